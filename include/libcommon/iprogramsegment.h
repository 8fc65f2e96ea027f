#ifndef LIBCOMMON_IPROGRAMSEGMENT_H
#define LIBCOMMON_IPROGRAMSEGMENT_H

// One segment of a program image. The native offset places the segment on
// the image's own flat address line; the address-space name and offset
// say where it belongs on the target.

#include <cstdint>
#include <string>
#include <vector>

class IProgramSegment {
public:
    virtual ~IProgramSegment() {}

    virtual std::string getNativeName() = 0;
    virtual uint64_t getNativeOffset() const = 0;
    // In bytes.
    virtual unsigned int getSize() const = 0;
    virtual std::string getAddressSpaceName() = 0;
    virtual uint64_t getAddressSpaceOffset() const = 0;
    // Replaces `data` with `size` bytes of the segment from `offset` on;
    // `offset` is on the scale of getAddressSpaceOffset().
    virtual void readData(std::vector<unsigned char>& data, uint64_t offset,
                          unsigned int size) = 0;
};

#endif
