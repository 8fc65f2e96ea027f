#ifndef LIBCOMMON_IMAGE_HEXFILE_H
#define LIBCOMMON_IMAGE_HEXFILE_H

// Intel HEX files as one flat byte buffer: everything from the lowest to
// the highest address in the file, gaps filled. Reports through a Status
// and a bool, never by exception.

#include "libcommon/core/status.h"

#include <boost/shared_ptr.hpp>

#include <list>
#include <string>
#include <utility>
#include <vector>

namespace common {

class HexFile {
public:
    HexFile();
    virtual ~HexFile();

    // Loads the file. Addresses that no data record covers hold `fill`;
    // with `skipChecksum` wrong checksums pass, the record layout is still
    // checked. When the same address is given twice, the later record wins.
    bool read(Status& status, const std::string& fileName, unsigned char fill,
              bool skipChecksum);
    // Writes the addresses startAddress to endAddress inclusive; buffer[0]
    // is the byte for startAddress. At least one byte is always written.
    bool write(Status& status, const std::string& fileName,
               boost::shared_ptr<std::vector<unsigned char> > buffer, unsigned startAddress,
               unsigned endAddress);

    std::pair<unsigned, unsigned> getBoundaries();
    std::list<std::pair<unsigned, unsigned> > getBoundariesList();
    boost::shared_ptr<std::vector<unsigned char> > getBuffer();
    boost::shared_ptr<std::list<boost::shared_ptr<std::vector<unsigned char> > > >
    getBufferList();

private:
    bool calculateBoundaries(Status& status, const std::string& fileName,
                             std::pair<unsigned, unsigned>& bounds, bool skipChecksum) const;
    bool checkCheckSum(const unsigned char* text, unsigned byteCount, unsigned char sum) const;

    static const char* const STATUS_STRINGS[7];

    unsigned int mLowerBound;
    unsigned int mUpperBound;
    boost::shared_ptr<std::vector<unsigned char> > mBuffer;
};

}  // namespace common

#endif
