#ifndef LIBCOMMON_MEMORY_TARGETACCESSORS_H
#define LIBCOMMON_MEMORY_TARGETACCESSORS_H

// The bottom layers of an accessor stack: they turn IMemoryAccessor calls
// into calls on a plug-in's target object. They make no marks in a
// MemoryError; every failure of the target is an exception and passes
// through (stack a CatchAndDegradeMemoryAccessor on top for marks).
//
// Also here: the check value of the flash controller, and the builder of
// the skip masks for masked I/O.

#include "libcommon/core/packet.h"
#include "libcommon/imemoryaccessor.h"
#include "libcommon/itarntarget.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <vector>

class SimpleTarn8MemoryAccessor : public IMemoryAccessor {
public:
    // pageErase selects how erase() reaches the target: through the typed
    // eraseMemoryPage of the newer cores, or through eraseFlashPage.
    SimpleTarn8MemoryAccessor(boost::shared_ptr<ITarn8Target> target,
                              ITarn8Target::MemoryType readType,
                              ITarn8Target::MemoryType writeType, bool pageErase);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // Erases the page that holds address; size plays no part, the page is
    // the target's concern.
    void erase(uint64_t address, uint64_t size) override;

    // 24-bit check value of the flash controller over the 16-bit
    // little-endian words in [start, end). The range must hold whole words.
    static unsigned int CRC_Reference(std::vector<unsigned char>::const_iterator data, int start,
                                      int end);

private:
    boost::shared_ptr<ITarn8Target> target;
    ITarn8Target::MemoryType readType;
    ITarn8Target::MemoryType writeType;
    bool pageErase;
};

class SimpleTarn32MemoryAccessor : public IMemoryAccessor {
public:
    SimpleTarn32MemoryAccessor(boost::shared_ptr<ITarn32Target> target,
                               ITarn32Target::MemoryType readType,
                               ITarn32Target::MemoryType writeType);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // The 32-bit targets have no page erase through this path: always throws
    // ERR_NOT_SUPPORTED.
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<ITarn32Target> target;
    ITarn32Target::MemoryType readType;
    ITarn32Target::MemoryType writeType;
};

// Builds the bit masks that tell the debugger which bytes of a block access
// to skip: one bit per byte, least significant bit first, set = access.
class MaskPacketCreator {
public:
    explicit MaskPacketCreator(boost::shared_ptr<MaskedIODetails> details);

    // Both give true when at least one address of the range is masked. An
    // empty details pointer masks nothing.
    bool createReadMask(unsigned int start, unsigned int size, Packet& mask) const;
    bool createWriteMask(unsigned int start, unsigned int size, Packet& mask) const;

private:
    boost::shared_ptr<MaskedIODetails> details;
};

#endif
