#ifndef LIBCOMMON_ILOCATION_H
#define LIBCOMMON_ILOCATION_H

// Where a variable lies in one stack frame, and how its bytes are moved.
// A location is immutable and bound to the frame (and so to the stop of the
// target) it was made for; createAtOffset gives a new absolute location
// relative to this one, which is how members, elements and pointees are
// reached. Reads and writes throw plain C strings for what the location
// cannot do and pass on the exceptions of the layers below.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class ILocation {
public:
    enum AddressingMode : int {
        AM_NONE = 0,               // no place; reads fail, writes are ignored
        AM_GLOBAL = 1,             // absolute address in a named memory
        AM_REGISTER = 2,           // one register of the frame, by its index
        AM_STACK = 3,              // offset from the frame address
        AM_UNSUPPORTED4 = 4,       // reads fail, writes are ignored
        AM_UNSUPPORTED5 = 5,       // reads fail, writes are ignored
        AM_REGISTER_INDIRECT = 6,  // offset from a register, or the pair 28/29
        AM_OPTIMIZED_AWAY = 9,     // does not exist here; needs no pieces
        AM_UNKNOWN = 10,           // not known how to reach it
        AM_REGISTER_LIST = 11,     // several registers, first piece holds the low bytes
        AM_PROCESS_REGISTER = 12   // a process register, id = 100 + its position
    };

    virtual ~ILocation() {}
    virtual AddressingMode getAddressingMode() = 0;
    virtual uint64_t getAddress() const = 0;
    // The text a front end shows for the location ("0x0100", " R25 R24", ...).
    virtual std::string getLocationAsString() = 0;
    virtual uint64_t getAbsoluteAddress() const = 0;
    // An AM_GLOBAL location offset bytes from getAbsoluteAddress(), in the
    // same memory and frame.
    virtual boost::shared_ptr<ILocation> createAtOffset(int offset, unsigned int size,
                                                        unsigned int bitOffset,
                                                        unsigned int bitSize) = 0;
    // Resizes the buffer to getByteSize() and fills it.
    virtual void readContent(std::vector<unsigned char>& buffer) const = 0;
    virtual void writeContent(const std::vector<unsigned char>& buffer) const = 0;
    virtual int getOffset() const = 0;
    virtual std::string getMemoryName() = 0;
    virtual int getRegisterId() const = 0;
    virtual int getBitOffset() const = 0;
    virtual int getBitSize() const = 0;
    virtual int getByteSize() const = 0;
    virtual bool hasMultipleLocation() const = 0;
};

#endif
