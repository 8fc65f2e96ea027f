#ifndef LIBCOMMON_IMAGE_HEXWRITER_H
#define LIBCOMMON_IMAGE_HEXWRITER_H

// Stream-based Intel HEX support: a reader that keeps the file's separate
// data segments apart and reports by exception, and a writer that puts
// data out as records on any std::ostream.

#include <boost/shared_ptr.hpp>

#include <deque>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace common {

// One parsed line of an Intel HEX file.
class HexRecord {
public:
    // The record types of the format. The type byte of a record is kept as
    // read, so a record may hold a value that has no name here.
    enum RecordType : unsigned char {
        Data = 0,
        EndOfFile = 1,
        ExtendedSegmentAddress = 2,
        StartSegmentAddress = 3,
        ExtendedLinearAddress = 4,
        StartLinearAddress = 5
    };

    // Reads one record from the stream. In strict mode every line must be a
    // record with a matching checksum and nothing but white space behind
    // it; otherwise lines that do not start with ':' are skipped and
    // checksums and trailing text are not looked at.
    HexRecord(std::istream& in, bool strict);

    unsigned short getAddress() const { return mAddress; }
    RecordType getType() { return mType; }
    boost::shared_ptr<std::vector<unsigned char> > getData() { return mData; }
    // Base address given by an extended segment or extended linear address
    // record; std::invalid_argument for any other record type.
    unsigned int getExtendedAddress() const;

private:
    unsigned short mAddress;
    RecordType mType;
    boost::shared_ptr<std::vector<unsigned char> > mData;
};

// A run of contiguous bytes at an absolute address.
class HexSegment {
public:
    HexSegment(unsigned address, boost::shared_ptr<std::vector<unsigned char> > data);

    unsigned int getAddress() const { return mAddress; }
    boost::shared_ptr<std::vector<unsigned char> > getData() { return mData; }
    static boost::shared_ptr<std::vector<unsigned char> > newSegmentData();

private:
    unsigned int mAddress;
    boost::shared_ptr<std::vector<unsigned char> > mData;
};

// Reads a whole Intel HEX file at construction and joins contiguous data
// records into segments, in file order. Records are not merged by address:
// overlapping records give overlapping segments.
class HexReader {
public:
    HexReader(std::istream& in, bool strict);
    HexReader(const std::string& fileName, bool strict);

    std::vector<HexSegment> getSegments() { return mSegments; }

protected:
    void parseFile(std::istream& in, bool strict);

private:
    std::vector<HexSegment> mSegments;
};

}  // namespace common

// Writes data as Intel HEX records of up to 16 bytes to a stream, which
// must outlive the writer. Each write() call stands on its own: it puts an
// extended address record ahead of its first record only when its own
// address is above 0xFFFF. A caller that writes below 0x10000 after a write
// above it must therefore start a new stream (or write the low data
// first), or a reader will place the low data in the higher 64K page.
// Stream errors are left in the stream's state.
class HexWriter {
public:
    enum RecordType { Data = 0, ExtendedSegmentAddress = 2, ExtendedLinearAddress = 4 };

    explicit HexWriter(std::ostream& out);

    // Throw std::invalid_argument, before anything is written, if the data
    // would run past the end of the 32-bit address range: the format has
    // no way to express it, and wrapping round would overwrite low data.
    void write(unsigned address, const std::vector<unsigned char>& data);
    void write(unsigned address, const std::deque<unsigned char>& data);
    void endFile();

private:
    template <typename Container>
    void writeAll(unsigned address, const Container& data);

    void startRecord(int byteCount, unsigned short address, RecordType type);
    void endRecord();
    void write8(unsigned char value);
    void write16(unsigned short value);
    void writeDataRecord(unsigned short address, const std::vector<unsigned char>& data,
                         int byteCount);
    void writeEndOfFileRecord();
    void writeExtendedLinearAddressRecord(unsigned address);
    void writeExtendedSegmentAddressRecord(unsigned address);

    std::ostream& mStream;
    unsigned char mChecksum;
};

#endif
