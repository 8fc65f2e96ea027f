#include "libcommon/image/hexfile.h"

#include <boost/make_shared.hpp>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

namespace {

const char* const kComponent = "libcommon";

// The text behind the record type: 255 data bytes and the checksum, as
// digits. Longer texts are a format error and are never stored.
const std::size_t kMaxText = 512;

// Largest flat buffer that read() allocates. The buffer spans from the
// lowest to the highest address in the file, so two records far apart in
// the 32-bit space (or a zero-length record at address 0, whose last
// address wraps round to 0xFFFFFFFF) would otherwise ask for up to 4 GiB,
// filled byte by byte. 1 GiB is far above any on-chip memory image.
const std::uint64_t kMaxBufferSize = std::uint64_t(1) << 30;

// Size of the blocks in which files are read and written.
const std::size_t kIoBlock = 256 * 1024;

// -1 for anything that isn't a hexadecimal digit; both cases are digits.
struct HexTable {
    signed char value[256];
    bool space[256];
    HexTable() {
        for (int c = 0; c < 256; ++c) {
            value[c] = -1;
            // White space as the C locale defines it, which is where
            // the record scan lets it stand.
            space[c] = c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
        }
        for (int c = '0'; c <= '9'; ++c) {
            value[c] = static_cast<signed char>(c - '0');
        }
        for (int c = 0; c < 6; ++c) {
            value['A' + c] = static_cast<signed char>(10 + c);
            value['a' + c] = static_cast<signed char>(10 + c);
        }
    }
};
const HexTable kTable;

// Decodes the digit pair at text; false if either isn't a hex digit.
inline bool decodeByte(const unsigned char* text, unsigned char& value) {
    const int high = kTable.value[text[0]];
    const int low = kTable.value[text[1]];
    if ((high | low) < 0) {
        return false;
    }
    value = static_cast<unsigned char>((high << 4) | low);
    return true;
}

// Reads the records of a file the way the scanf format " :%2lx%4lx%2lx%s "
// would, without scanf's cost per character: white space may stand before
// the ':', before each field and behind the text; a field holds one up to
// its width of hex digits; the text runs to the next white space. A field
// that starts with a sign or a "0x" prefix is not taken as a number here,
// so such a line is a format error. atEof() turns true once a read found
// no more characters, as feof() does.
class RecordScanner {
public:
    explicit RecordScanner(std::FILE* file)
        : mFile(file), mBuffer(kIoBlock), mPos(0), mLength(0), mEof(false) {}

    bool atEof() const { return mEof; }

    // One record; false unless all four items were scanned and the text
    // fits in kMaxText characters.
    bool scan(unsigned& count, unsigned& address, unsigned& type, unsigned char* text,
              std::size_t& textLength) {
        skipSpace();
        if (peek() != ':') {
            return false;
        }
        ++mPos;
        if (!scanHex(2, count) || !scanHex(4, address) || !scanHex(2, type)) {
            return false;
        }
        if (!scanText(text, textLength)) {
            return false;
        }
        skipSpace();
        return true;
    }

private:
    bool refill() {
        if (mEof) {
            return false;
        }
        mLength = std::fread(mBuffer.data(), 1, mBuffer.size(), mFile);
        mPos = 0;
        if (mLength == 0) {
            mEof = true;
            return false;
        }
        return true;
    }

    int peek() {
        if (mPos == mLength && !refill()) {
            return EOF;
        }
        return static_cast<unsigned char>(mBuffer[mPos]);
    }

    void skipSpace() {
        for (;;) {
            if (mPos == mLength && !refill()) {
                return;
            }
            while (mPos < mLength && kTable.space[static_cast<unsigned char>(mBuffer[mPos])]) {
                ++mPos;
            }
            if (mPos < mLength) {
                return;
            }
        }
    }

    bool scanHex(int width, unsigned& value) {
        skipSpace();
        value = 0;
        int digits = 0;
        while (digits < width) {
            const int c = peek();
            if (c == EOF || kTable.value[c] < 0) {
                break;
            }
            value = (value << 4) | static_cast<unsigned>(kTable.value[c]);
            ++mPos;
            ++digits;
        }
        return digits > 0;
    }

    bool scanText(unsigned char* text, std::size_t& length) {
        skipSpace();
        length = 0;
        if (peek() == EOF) {
            return false;
        }
        for (;;) {
            if (mPos == mLength && !refill()) {
                return true;
            }
            const char* p = mBuffer.data() + mPos;
            const char* end = mBuffer.data() + mLength;
            while (p < end && !kTable.space[static_cast<unsigned char>(*p)]) {
                if (length == kMaxText) {
                    return false;
                }
                text[length++] = static_cast<unsigned char>(*p++);
            }
            mPos = static_cast<std::size_t>(p - mBuffer.data());
            if (p < end) {
                return true;
            }
        }
    }

    std::FILE* mFile;
    std::vector<char> mBuffer;
    std::size_t mPos;
    std::size_t mLength;
    bool mEof;
};

// Record numbers count from 0. `onData(address, bytes, count, record)`
// sees each data record after its bytes are decoded and before its
// checksum is tested; it may fail with status set. Returns true when the
// end record is reached.
template <typename CheckSum, typename OnData>
bool scanRecords(std::FILE* file, Status& status, const std::string& fileName,
                 bool skipChecksum, CheckSum checkSum, OnData onData) {
    RecordScanner scanner(file);
    unsigned base = 0;
    int record = 0;
    unsigned char text[kMaxText];
    unsigned char data[255];

    const auto formatError = [&]() {
        status.setFields(SeverityError, kComponent, ERR_HEX_FORMAT,
                         "Hex file format error encountered reading file %s at record number %d.",
                         fileName.c_str(), record);
        return false;
    };
    const auto checksumError = [&]() {
        status.setFields(SeverityError, kComponent, ERR_HEX_CHECKSUM,
                         "Invalid checksum when reading hex file %s at record number %d.",
                         fileName.c_str(), record);
        return false;
    };

    while (!scanner.atEof()) {
        unsigned count = 0;
        unsigned address = 0;
        unsigned type = 0;
        std::size_t length = 0;
        if (!scanner.scan(count, address, type, text, length) || length != 2 * count + 2) {
            return formatError();
        }
        unsigned char sum = static_cast<unsigned char>(count + (address >> 8) + (address & 0xFF) +
                                                       type);
        switch (type) {
        case 0: {
            // A data digit that isn't a hex digit has no value to store.
            for (unsigned i = 0; i < count; ++i) {
                if (!decodeByte(text + 2 * i, data[i])) {
                    return formatError();
                }
                sum = static_cast<unsigned char>(sum + data[i]);
            }
            if (!onData(base + address, data, count, record)) {
                return false;
            }
            if (!skipChecksum && !checkSum(text, count, sum)) {
                return checksumError();
            }
            break;
        }
        case 1:
            if (!skipChecksum && !checkSum(text, count, sum)) {
                status.setFields(SeverityError, kComponent, ERR_HEX_CHECKSUM,
                                 "Invalid hex file checksum read from last record in file %s.",
                                 fileName.c_str());
                return false;
            }
            return true;
        case 2:
        case 4: {
            // Up to four digits from the start of the text, as many as are
            // hex digits; the length test above guarantees two at least.
            unsigned value = 0;
            int digits = 0;
            while (digits < 4 && static_cast<std::size_t>(digits) < length &&
                   kTable.value[text[digits]] >= 0) {
                value = (value << 4) | static_cast<unsigned>(kTable.value[text[digits]]);
                ++digits;
            }
            if (digits == 0) {
                return formatError();
            }
            sum = static_cast<unsigned char>(sum + (value >> 8) + (value & 0xFF));
            base = type == 2 ? value << 4 : value << 16;
            if (!skipChecksum && !checkSum(text, count, sum)) {
                return checksumError();
            }
            break;
        }
        default:
            // Other record types are counted and skipped unchecked.
            break;
        }
        ++record;
    }
    status.setFields(SeverityError, kComponent, ERR_NOT_DECLARED,
                     "No End of file record  found when reading hex file %s", fileName.c_str());
    return false;
}

bool openFailed(Status& status, const std::string& fileName) {
    status.setFields(SeverityError, kComponent, ERR_FILE_IO, "Unable to open file %s: %s",
                     fileName.c_str(), std::strerror(errno));
    return false;
}

// Collects output text and hands it to the file in large blocks.
class BlockWriter {
public:
    explicit BlockWriter(std::FILE* file) : mFile(file), mBuffer(kIoBlock), mLength(0) {}

    // Room for `size` more characters; false if making room failed.
    bool reserve(std::size_t size) {
        return mLength + size <= mBuffer.size() || flush();
    }
    char* position() { return mBuffer.data() + mLength; }
    void advance(std::size_t size) { mLength += size; }

    bool flush() {
        const std::size_t length = mLength;
        mLength = 0;
        return length == 0 || std::fwrite(mBuffer.data(), 1, length, mFile) == length;
    }

private:
    std::FILE* mFile;
    std::vector<char> mBuffer;
    std::size_t mLength;
};

const char kHexDigits[] = "0123456789ABCDEF";

inline char* putByte(char* out, unsigned value) {
    out[0] = kHexDigits[(value >> 4) & 0xF];
    out[1] = kHexDigits[value & 0xF];
    return out + 2;
}

// The extended record that makes `base` the base of the records behind it:
// linear above 0xF0000, segment for other bases but 0. False if it could
// not be put out; `linear` tells which kind it was.
bool putExtendedRecord(BlockWriter& out, unsigned base, bool& linear) {
    linear = base > 0xF0000;
    if (!linear && base == 0) {
        return true;
    }
    const std::size_t length = 16;
    if (!out.reserve(length)) {
        return false;
    }
    const unsigned value = linear ? base >> 16 : base >> 4;
    const unsigned checksum = linear ? (0xFA - (base >> 24) - (base >> 16)) & 0xFF
                                     : (0xFC - (base >> 12) - (base >> 4)) & 0xFF;
    char* p = out.position();
    std::memcpy(p, linear ? ":02000004" : ":02000002", 9);
    p = putByte(p + 9, value >> 8);
    p = putByte(p, value);
    p = putByte(p, checksum);
    *p = '\n';
    out.advance(length);
    return true;
}

}  // namespace

namespace common {

const char* const HexFile::STATUS_STRINGS[7] = {
    "No errors",
    "Unable to open the specified file",
    "The specified file is not a valid Intel HEX file",
    "Checksum error in the specified Intel HEX file",
    "Contents of the specified Intel HEX file exceeds available buffer space",
    "No buffer to read data from",
    "Unknown error"};

HexFile::HexFile() : mLowerBound(0xFFFFFFFF), mUpperBound(0) {}

HexFile::~HexFile() {}

std::pair<unsigned, unsigned> HexFile::getBoundaries() {
    if (!mBuffer || mBuffer->empty()) {
        return std::make_pair(0u, 0u);
    }
    return std::make_pair(mLowerBound, mUpperBound);
}

std::list<std::pair<unsigned, unsigned> > HexFile::getBoundariesList() {
    return std::list<std::pair<unsigned, unsigned> >();
}

boost::shared_ptr<std::vector<unsigned char> > HexFile::getBuffer() {
    return mBuffer;
}

boost::shared_ptr<std::list<boost::shared_ptr<std::vector<unsigned char> > > >
HexFile::getBufferList() {
    return boost::shared_ptr<std::list<boost::shared_ptr<std::vector<unsigned char> > > >();
}

bool HexFile::checkCheckSum(const unsigned char* text, unsigned byteCount,
                            unsigned char sum) const {
    unsigned char value = 0;
    // Checksum digits that aren't hex digits can't match any sum.
    if (!decodeByte(text + 2 * byteCount, value)) {
        return false;
    }
    return value == static_cast<unsigned char>(0x100 - sum);
}

bool HexFile::calculateBoundaries(Status& status, const std::string& fileName,
                                  std::pair<unsigned, unsigned>& bounds,
                                  bool skipChecksum) const {
    bounds = std::make_pair(0xFFFFFFFFu, 0u);
    std::FILE* file = std::fopen(fileName.c_str(), "rt");
    if (file == nullptr) {
        return openFailed(status, fileName);
    }
    const bool ok = scanRecords(
        file, status, fileName, skipChecksum,
        [this](const unsigned char* text, unsigned count, unsigned char sum) {
            return checkCheckSum(text, count, sum);
        },
        [&](unsigned address, const unsigned char*, unsigned count, int record) {
            // A record of no bytes gives high = low - 1, and counts too.
            const unsigned high = address + count - 1;
            if (count > 0 && high < address) {
                // Bytes beyond 0xFFFFFFFF have no place in the buffer.
                status.setFields(SeverityError, kComponent, ERR_HEX_FORMAT,
                                 "Hex file format error encountered reading file %s at record "
                                 "number %d.",
                                 fileName.c_str(), record);
                return false;
            }
            if (high > bounds.second) {
                bounds.second = high;
            }
            if (address < bounds.first) {
                bounds.first = address;
            }
            return true;
        });
    std::fclose(file);
    return ok;
}

bool HexFile::read(Status& status, const std::string& fileName, unsigned char fill,
                   bool skipChecksum) {
    std::pair<unsigned, unsigned> bounds;
    if (!calculateBoundaries(status, fileName, bounds, skipChecksum)) {
        return false;
    }
    mLowerBound = bounds.first;
    mUpperBound = bounds.second;

    std::FILE* file = std::fopen(fileName.c_str(), "rt");
    if (file == nullptr) {
        return openFailed(status, fileName);
    }

    if (mLowerBound > mUpperBound) {
        // No data record gave a byte: an empty image, without a second pass.
        mBuffer = boost::make_shared<std::vector<unsigned char> >();
        std::fclose(file);
        return true;
    }
    const std::uint64_t size = std::uint64_t(mUpperBound) - mLowerBound + 1;
    if (size > kMaxBufferSize) {
        std::fclose(file);
        status.setFields(SeverityError, kComponent, ERR_ADDRESS_RANGE,
                         "Contents of hex file %s span 0x%X to 0x%X, more than the %u MiB a "
                         "flat buffer may hold.",
                         fileName.c_str(), mLowerBound, mUpperBound,
                         static_cast<unsigned>(kMaxBufferSize >> 20));
        return false;
    }
    try {
        mBuffer = boost::make_shared<std::vector<unsigned char> >(static_cast<std::size_t>(size),
                                                                  fill);
    } catch (const std::bad_alloc&) {
        std::fclose(file);
        status.setFields(SeverityError, kComponent, ERR_ADDRESS_RANGE,
                         "Not enough memory for the 0x%llX bytes of hex file %s.",
                         static_cast<unsigned long long>(size), fileName.c_str());
        return false;
    }

    unsigned char* const buffer = mBuffer->data();
    const unsigned lower = mLowerBound;
    const bool ok = scanRecords(
        file, status, fileName, skipChecksum,
        [this](const unsigned char* text, unsigned count, unsigned char sum) {
            return checkCheckSum(text, count, sum);
        },
        [&](unsigned address, const unsigned char* data, unsigned count, int record) {
            if (count == 0) {
                return true;
            }
            // The first pass bounds every record, unless the file changed
            // in between or a record runs past the end of the address range.
            const unsigned index = address - lower;
            if (std::uint64_t(index) + count > size) {
                status.setFields(SeverityError, kComponent, ERR_HEX_FORMAT,
                                 "Hex file format error encountered reading file %s at record "
                                 "number %d.",
                                 fileName.c_str(), record);
                return false;
            }
            std::memcpy(buffer + index, data, count);
            return true;
        });
    std::fclose(file);
    return ok;
}

bool HexFile::write(Status& status, const std::string& fileName,
                    boost::shared_ptr<std::vector<unsigned char> > buffer, unsigned startAddress,
                    unsigned endAddress) {
    if (!buffer || buffer->empty()) {
        status.setFields(SeverityError, kComponent, ERR_FILE_IO, "No buffer to write to file: %s",
                         std::strerror(errno));
        return false;
    }
    // The first byte is written whatever endAddress says.
    const std::uint64_t needed =
        endAddress >= startAddress ? std::uint64_t(endAddress) - startAddress + 1 : 1;
    if (needed > buffer->size()) {
        status.setFields(SeverityError, kComponent, ERR_INVALID_ARGUMENT,
                         "Buffer of %zu bytes is too small for the addresses 0x%X to 0x%X to be "
                         "written to file %s.",
                         buffer->size(), startAddress, endAddress, fileName.c_str());
        return false;
    }

    std::FILE* file = std::fopen(fileName.c_str(), "wt");
    if (file == nullptr) {
        return openFailed(status, fileName);
    }
    const auto fail = [&](const char* format) {
        const int error = errno;
        std::fclose(file);
        status.setFields(SeverityError, kComponent, ERR_FILE_IO, format, fileName.c_str(),
                         std::strerror(error));
        return false;
    };

    BlockWriter out(file);
    const unsigned char* const bytes = buffer->data();
    std::size_t index = 0;
    unsigned a = startAddress & 0xFFFF;
    unsigned base = startAddress & 0xFFFF0000;
    bool linear = false;
    if (!putExtendedRecord(out, base, linear)) {
        return fail("Error when writing to file %s: %s");
    }

    for (;;) {
        // ':', count, address, type, up to 16 bytes, checksum, '\n'.
        if (!out.reserve(1 + 8 + 32 + 3)) {
            return fail("Error when writing data record to file %s: %s");
        }
        char* const record = out.position();
        const unsigned recordAddress = a;
        char* p = record + 9;
        unsigned sum = 0;
        unsigned count = 0;
        do {
            const unsigned char value = bytes[index++];
            p = putByte(p, value);
            sum += value;
            ++count;
            a = (a + 1) & 0xFFFF;
        } while (a % 16 != 0 && base + a <= endAddress);
        sum += count + (recordAddress >> 8) + (recordAddress & 0xFF);
        record[0] = ':';
        putByte(record + 1, count);
        putByte(record + 3, recordAddress >> 8);
        putByte(record + 5, recordAddress);
        record[7] = '0';
        record[8] = '0';
        p = putByte(p, (0x100 - sum) & 0xFF);
        *p++ = '\n';
        out.advance(static_cast<std::size_t>(p - record));

        const bool wrapped = a == 0;
        if (wrapped) {
            base += 0x10000;
        }
        // A base that wraps round has passed the top of the 32-bit range,
        // which ends any file.
        if (base + a > endAddress || (wrapped && base == 0)) {
            break;
        }
        if (wrapped && !putExtendedRecord(out, base, linear)) {
            return fail(linear ? "Error when writing to file %s: %s"
                               : "Error when writing extended address record to file %s: %s");
        }
    }

    static const char endRecord[] = ":00000001FF\n";
    if (!out.reserve(sizeof endRecord - 1)) {
        return fail("Error when writing end record to file %s: %s");
    }
    std::memcpy(out.position(), endRecord, sizeof endRecord - 1);
    out.advance(sizeof endRecord - 1);
    if (!out.flush() || std::fflush(file) != 0) {
        return fail("Error when writing end record to file %s: %s");
    }
    if (std::fclose(file) != 0) {
        status.setFields(SeverityError, kComponent, ERR_FILE_IO,
                         "Error when writing end record to file %s: %s", fileName.c_str(),
                         std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace common
