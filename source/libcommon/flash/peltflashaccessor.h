#ifndef LIBCOMMON_FLASH_PELTFLASHACCESSOR_H
#define LIBCOMMON_FLASH_PELTFLASHACCESSOR_H

// PeltInternalFlashMemoryAccessor: puts a Pelt flash driver under the
// IMemoryAccessor interface again, so that a plug-in stacks a flash layer
// like any other.
//
// One 4-byte window, at the driver's FGPFRLO address, stands for the
// general purpose fuses 0 to 31 (byte i holds fuses 8i to 8i + 7); an access
// that starts in the window is a fuse access and must end inside it. The
// rest of the address space is flash: reads go to the inner accessor, writes
// to the driver's programChip, erases to its eraseRegion with unlock.
//
// A fuse write programs all four bytes of the window (a partial write reads
// the others first) from fuse number offset * 8 on. Only a write at offset 0
// therefore lands where a read finds it again; one at a higher offset moves
// the window's bytes that many fuses up, into FGPFRHI on a chip that has it.
//
// It makes no marks in a MemoryError: every failure of the driver or the
// inner accessor is an exception and passes through. A fuse access that
// runs out of the window throws a CoreException (ERR_OPERATION_FAILED);
// a driver that reports fuses of another size throws the C string
// "Inconsistent fuse description".
//
//     auto flash = boost::make_shared<PeltInternalFlash>(device, bus);
//     PeltInternalFlashMemoryAccessor accessor(
//         flash, bus, PeltInternalFlashMemoryAccessor::WriteModeEraseFirst, [] { ... });

#include "libcommon/flash/peltinternalflash.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <vector>

class PeltInternalFlashMemoryAccessor : public IMemoryAccessor {
public:
    // Any value other than 0 means no erase.
    enum WriteMode { WriteModeEraseFirst = 0, WriteModeNoErase = 1 };

    // afterWrite, when set, runs after each flash write (not after a fuse
    // write).
    PeltInternalFlashMemoryAccessor(boost::shared_ptr<PeltInternalFlash> flash,
                                    boost::shared_ptr<IMemoryAccessor> inner, WriteMode mode,
                                    boost::function<void()> afterWrite);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    // erased true tells the driver the range is blank, in either mode.
    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

    void setSecurityBit();

private:
    bool isFuseAccess(uint64_t address) const;
    // The offset of a fuse access in the window; throws when it runs out.
    uint64_t fuseOffset(uint64_t address, unsigned int size, const char* message) const;

    boost::function<void()> afterWrite;
    boost::shared_ptr<PeltInternalFlash> flash;
    boost::shared_ptr<IMemoryAccessor> inner;
    WriteMode mode;
    uint64_t fuseAddress;
    uint64_t fuseSize = 4;
};

#endif
