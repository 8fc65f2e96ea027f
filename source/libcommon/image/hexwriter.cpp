#include "libcommon/image/hexwriter.h"

#include <boost/make_shared.hpp>

#include <cctype>
#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace {

// Longest part of a line that is kept in memory. A record needs at most
// 521 characters (':', count, address, type, 255 data bytes, checksum);
// behind that only "is it all white space" matters, and that is decided
// while the rest is read and dropped. So a line of any length - a 10 MB
// line of garbage, say - is read in constant memory.
const std::size_t kMaxKeptLine = 1024;

struct Line {
    char text[kMaxKeptLine];
    std::size_t length = 0;   // characters kept in text
    bool junkBeyond = false;  // a non-space character in the part not kept
};

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool hasJunk(const char* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        if (!isSpace(text[i])) {
            return true;
        }
    }
    return false;
}

// Reads one line the way std::getline does - up to and without the '\n',
// eofbit when the stream ends first, failbit only when nothing at all
// could be extracted - but keeps at most kMaxKeptLine - 1 characters.
void readLine(std::istream& in, Line& line) {
    line.length = 0;
    line.junkBeyond = false;
    in.getline(line.text, kMaxKeptLine);
    const std::streamsize got = in.gcount();
    const bool cut = in.fail() && !in.eof() && !in.bad() &&
                     got == static_cast<std::streamsize>(kMaxKeptLine - 1);
    if (got == 0) {
        return;  // end of stream, or a stream that failed before
    }
    line.length = static_cast<std::size_t>((in.eof() || cut) ? got : got - 1);
    if (!cut) {
        return;
    }
    char scratch[4096];
    for (;;) {
        in.clear(in.rdstate() & ~std::ios::failbit);
        in.getline(scratch, sizeof scratch);
        const std::streamsize n = in.gcount();
        const bool again = in.fail() && !in.eof() && !in.bad() &&
                           n == static_cast<std::streamsize>(sizeof scratch - 1);
        const std::streamsize kept = (in.eof() || again || n == 0) ? n : n - 1;
        if (!line.junkBeyond && hasJunk(scratch, static_cast<std::size_t>(kept))) {
            line.junkBeyond = true;
        }
        if (!again) {
            // The line as a whole did extract characters: no failbit.
            in.clear(in.rdstate() & ~std::ios::failbit);
            return;
        }
    }
}

// Value of each character as a hex digit, in either case; -1 for others.
struct HexDigitTable {
    signed char value[256];
    HexDigitTable() {
        for (int c = 0; c < 256; ++c) {
            value[c] = -1;
        }
        for (int c = 0; c < 10; ++c) {
            value['0' + c] = static_cast<signed char>(c);
        }
        for (int c = 0; c < 6; ++c) {
            value['A' + c] = static_cast<signed char>(10 + c);
            value['a' + c] = static_cast<signed char>(10 + c);
        }
    }
};
const HexDigitTable kDigits;

inline int hexValue(char c) {
    return kDigits.value[static_cast<unsigned char>(c)];
}

class LineCursor {
public:
    explicit LineCursor(const Line& line) : mLine(line), mPos(1) {}

    unsigned char readByte() {
        if (mLine.length - mPos < 2) {
            throw std::runtime_error(
                "A record in the Intel Hex file has less content than expected (or a wrong "
                "byte count).");
        }
        const int high = hexValue(mLine.text[mPos]);
        const int low = hexValue(mLine.text[mPos + 1]);
        if (high < 0 || low < 0) {
            throw std::runtime_error("Invalid hex character");
        }
        mPos += 2;
        return static_cast<unsigned char>((high << 4) | low);
    }

    // `count` bytes into `out`, failing where readByte() would fail first.
    void readBytes(unsigned char* out, unsigned count) {
        if (mLine.length - mPos < 2 * std::size_t(count)) {
            for (unsigned i = 0; i < count; ++i) {
                out[i] = readByte();
            }
            return;
        }
        const char* text = mLine.text + mPos;
        int invalid = 0;
        for (unsigned i = 0; i < count; ++i) {
            const int high = hexValue(text[2 * i]);
            const int low = hexValue(text[2 * i + 1]);
            invalid |= high | low;
            out[i] = static_cast<unsigned char>(((high & 0xF) << 4) | (low & 0xF));
        }
        if (invalid < 0) {
            throw std::runtime_error("Invalid hex character");
        }
        mPos += 2 * std::size_t(count);
    }

    bool onlySpaceLeft() const {
        return !mLine.junkBeyond && !hasJunk(mLine.text + mPos, mLine.length - mPos);
    }

private:
    const Line& mLine;
    std::size_t mPos;
};

const char kHexDigits[] = "0123456789ABCDEF";

}  // namespace

namespace common {

HexRecord::HexRecord(std::istream& in, bool strict)
    : mAddress(0), mType(Data), mData(boost::make_shared<std::vector<unsigned char> >()) {
    Line line;
    for (;;) {
        readLine(in, line);
        if (line.length > 0 && line.text[0] == ':') {
            break;
        }
        if (strict) {
            throw std::runtime_error("A record in the Intel Hex file does not start with ':'.");
        }
        // A stream that failed for another reason than its end can't give
        // more lines either; going on would loop for ever.
        if (!in.good()) {
            throw std::runtime_error(
                "Unexpectedly reached the end of the Intel Hex file (End Of File record might "
                "be missing).");
        }
    }

    LineCursor cursor(line);
    const unsigned char count = cursor.readByte();
    const unsigned char addressHigh = cursor.readByte();
    const unsigned char addressLow = cursor.readByte();
    const unsigned char type = cursor.readByte();
    mAddress = static_cast<unsigned short>((addressHigh << 8) | addressLow);
    mType = static_cast<RecordType>(type);

    unsigned char sum = static_cast<unsigned char>(count + addressHigh + addressLow + type);
    unsigned char bytes[255];
    cursor.readBytes(bytes, count);
    mData->assign(bytes, bytes + count);
    for (unsigned i = 0; i < count; ++i) {
        sum = static_cast<unsigned char>(sum + bytes[i]);
    }
    const unsigned char checksum = cursor.readByte();

    if (strict) {
        if (checksum != static_cast<unsigned char>(0x100 - sum)) {
            throw std::runtime_error(
                "A record in the Intel Hex file has a checksum mismatch (or a wrong byte "
                "count).");
        }
        if (!cursor.onlySpaceLeft()) {
            throw std::runtime_error(
                "A record in the Intel Hex file has junk at the end (or a wrong byte count and "
                "checksum).");
        }
    }
}

unsigned int HexRecord::getExtendedAddress() const {
    const std::vector<unsigned char>& d = *mData;
    switch (mType) {
    case ExtendedSegmentAddress:
        if (d.size() < 2) {
            throw std::runtime_error("An extended segment address record has insufficient size.");
        }
        return ((static_cast<unsigned>(d[0]) << 8) | d[1]) << 4;
    case ExtendedLinearAddress:
        if (d.size() < 2) {
            throw std::runtime_error("An extended linear address record has insufficient size.");
        }
        return ((static_cast<unsigned>(d[0]) << 8) | d[1]) << 16;
    default:
        throw std::invalid_argument(
            "Tried to get extended address from a non-extended-address record (internal error).");
    }
}

HexSegment::HexSegment(unsigned address, boost::shared_ptr<std::vector<unsigned char> > data)
    : mAddress(address), mData(data) {}

boost::shared_ptr<std::vector<unsigned char> > HexSegment::newSegmentData() {
    return boost::make_shared<std::vector<unsigned char> >();
}

HexReader::HexReader(std::istream& in, bool strict) {
    parseFile(in, strict);
}

HexReader::HexReader(const std::string& fileName, bool strict) {
    std::ifstream in;
    // A larger buffer than the default saves most of the read calls on
    // big images; it must be set before the file is opened.
    char buffer[64 * 1024];
    in.rdbuf()->pubsetbuf(buffer, sizeof buffer);
    in.open(fileName.c_str());
    if (!in.is_open()) {
        throw std::runtime_error("Could not open the Intel Hex file for processing.");
    }
    parseFile(in, strict);
}

void HexReader::parseFile(std::istream& in, bool strict) {
    unsigned base = 0;
    unsigned expected = 0;
    bool open = false;
    unsigned start = 0;
    boost::shared_ptr<std::vector<unsigned char> > segment;

    for (;;) {
        HexRecord record(in, strict);
        switch (record.getType()) {
        case HexRecord::ExtendedSegmentAddress:
        case HexRecord::ExtendedLinearAddress:
            base = record.getExtendedAddress();
            break;
        case HexRecord::Data: {
            const unsigned address = record.getAddress() + base;
            const boost::shared_ptr<std::vector<unsigned char> > data = record.getData();
            if (open && address != expected) {
                mSegments.push_back(HexSegment(start, segment));
                open = false;
            }
            if (!open && !data->empty()) {
                open = true;
                start = address;
                segment = HexSegment::newSegmentData();
            }
            if (open) {
                expected = address + static_cast<unsigned>(data->size());
                segment->insert(segment->end(), data->begin(), data->end());
            }
            break;
        }
        case HexRecord::EndOfFile:
            if (open) {
                mSegments.push_back(HexSegment(start, segment));
            }
            return;
        default:
            break;
        }
    }
}

}  // namespace common

HexWriter::HexWriter(std::ostream& out) : mStream(out), mChecksum(0) {}

void HexWriter::write(unsigned address, const std::vector<unsigned char>& data) {
    writeAll(address, data);
}

void HexWriter::write(unsigned address, const std::deque<unsigned char>& data) {
    writeAll(address, data);
}

template <typename Container>
void HexWriter::writeAll(unsigned address, const Container& data) {
    if (static_cast<std::uint64_t>(address) + data.size() > 0x100000000ULL) {
        throw std::invalid_argument(
            "Data to write to the Intel Hex file runs past the end of the 32-bit address "
            "range.");
    }
    unsigned a = address;
    bool needExtended = address > 0xFFFF;
    std::vector<unsigned char> bytes;
    bytes.reserve(16);
    typename Container::const_iterator next = data.begin();
    std::size_t remaining = data.size();
    while (remaining > 0) {
        if (needExtended) {
            if (a > 0xFFFFF) {
                writeExtendedLinearAddressRecord(a);
            } else if (a > 0xFFFF) {
                writeExtendedSegmentAddressRecord(a);
            }
        }
        const int n = static_cast<int>(remaining < 16 ? remaining : 16);
        typename Container::const_iterator last = next + n;
        bytes.assign(next, last);
        next = last;
        remaining -= static_cast<std::size_t>(n);
        writeDataRecord(static_cast<unsigned short>(a & 0xFFFF), bytes, n);
        needExtended = (a & 0xFFFF) + static_cast<unsigned>(n) > 0xFFFF;
        a += static_cast<unsigned>(n);
    }
}

void HexWriter::endFile() {
    writeEndOfFileRecord();
    mStream.flush();
}

void HexWriter::startRecord(int byteCount, unsigned short address, RecordType type) {
    char text[9];
    text[0] = ':';
    text[1] = kHexDigits[(byteCount >> 4) & 0xF];
    text[2] = kHexDigits[byteCount & 0xF];
    text[3] = kHexDigits[(address >> 12) & 0xF];
    text[4] = kHexDigits[(address >> 8) & 0xF];
    text[5] = kHexDigits[(address >> 4) & 0xF];
    text[6] = kHexDigits[address & 0xF];
    text[7] = kHexDigits[(type >> 4) & 0xF];
    text[8] = kHexDigits[type & 0xF];
    mStream.write(text, sizeof text);
    mChecksum = static_cast<unsigned char>(byteCount + (address >> 8) + (address & 0xFF) + type);
}

void HexWriter::endRecord() {
    const unsigned char checksum = static_cast<unsigned char>(0x100 - mChecksum);
    const char text[3] = {kHexDigits[checksum >> 4], kHexDigits[checksum & 0xF], '\n'};
    mStream.write(text, sizeof text);
}

void HexWriter::write8(unsigned char value) {
    const char text[2] = {kHexDigits[value >> 4], kHexDigits[value & 0xF]};
    mStream.write(text, sizeof text);
    mChecksum = static_cast<unsigned char>(mChecksum + value);
}

void HexWriter::write16(unsigned short value) {
    write8(static_cast<unsigned char>(value >> 8));
    write8(static_cast<unsigned char>(value & 0xFF));
}

void HexWriter::writeDataRecord(unsigned short address, const std::vector<unsigned char>& data,
                                int byteCount) {
    // Built in one piece and handed to the stream at once: a record per
    // write call instead of one per digit pair keeps big images fast.
    char text[1 + 8 + 2 * 255 + 3];
    char* out = text;
    unsigned sum = static_cast<unsigned>(byteCount) + (address >> 8) + (address & 0xFF) + Data;
    *out++ = ':';
    *out++ = kHexDigits[(byteCount >> 4) & 0xF];
    *out++ = kHexDigits[byteCount & 0xF];
    *out++ = kHexDigits[(address >> 12) & 0xF];
    *out++ = kHexDigits[(address >> 8) & 0xF];
    *out++ = kHexDigits[(address >> 4) & 0xF];
    *out++ = kHexDigits[address & 0xF];
    *out++ = '0';
    *out++ = '0';
    for (int i = 0; i < byteCount; ++i) {
        const unsigned char value = data[static_cast<std::size_t>(i)];
        *out++ = kHexDigits[value >> 4];
        *out++ = kHexDigits[value & 0xF];
        sum += value;
    }
    mChecksum = static_cast<unsigned char>(sum);
    const unsigned char checksum = static_cast<unsigned char>(0x100 - mChecksum);
    *out++ = kHexDigits[checksum >> 4];
    *out++ = kHexDigits[checksum & 0xF];
    *out++ = '\n';
    mStream.write(text, out - text);
}

void HexWriter::writeEndOfFileRecord() {
    static const char text[] = ":00000001FF\n";
    mStream.write(text, sizeof text - 1);
}

void HexWriter::writeExtendedLinearAddressRecord(unsigned address) {
    startRecord(2, 0, ExtendedLinearAddress);
    write16(static_cast<unsigned short>(address >> 16));
    endRecord();
}

void HexWriter::writeExtendedSegmentAddressRecord(unsigned address) {
    startRecord(2, 0, ExtendedSegmentAddress);
    write16(static_cast<unsigned short>((address >> 4) & 0xF000));
    endRecord();
}
