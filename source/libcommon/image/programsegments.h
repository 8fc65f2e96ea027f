#ifndef LIBCOMMON_IMAGE_PROGRAMSEGMENTS_H
#define LIBCOMMON_IMAGE_PROGRAMSEGMENTS_H

// Program images of the 8-bit core family put every memory on one flat
// native address line: code from 0, then data, eeprom, fuses, lock bits
// and signatures at fixed high offsets. The wrapper maps such a segment to
// its address space and offset there.

#include "libcommon/iprogramsegment.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

class Tarn8ProgramSegmentWrapper : public IProgramSegment {
public:
    // Covers all of `segment`. Both constructors throw std::invalid_argument
    // for an empty pointer.
    explicit Tarn8ProgramSegmentWrapper(boost::shared_ptr<IProgramSegment> segment);
    // Covers `size` bytes from `nativeOffset` on, a part of `segment`.
    Tarn8ProgramSegmentWrapper(boost::shared_ptr<IProgramSegment> segment, uint64_t nativeOffset,
                               unsigned int size);

    std::string getNativeName() override;
    uint64_t getNativeOffset() const override;
    unsigned int getSize() const override;
    std::string getAddressSpaceName() override;
    uint64_t getAddressSpaceOffset() const override;
    // Signature bytes stand in the native segment in reverse order; they
    // are turned round here, and the offset counts in the turned bytes.
    // Reads of other spaces go to the wrapped segment unchanged.
    void readData(std::vector<unsigned char>& data, uint64_t offset,
                  unsigned int size) override;

    // Whether any segment lies outside "prog", at 0x800000 or above.
    static bool segmentsHaveMappedContent(std::vector<boost::shared_ptr<IProgramSegment> > segments);
    // Wraps each segment, leaving out byte 3 of the fuse space, which the
    // image format carries but which is not programmed; a segment holding
    // it becomes up to two wrappers, the lower part first.
    static std::vector<boost::shared_ptr<IProgramSegment> >
    wrapSegments(std::vector<boost::shared_ptr<IProgramSegment> > segments);

private:
    boost::shared_ptr<IProgramSegment> wrapped;
    uint64_t nativeOffset;
    unsigned int segmentSize;
};

#endif
