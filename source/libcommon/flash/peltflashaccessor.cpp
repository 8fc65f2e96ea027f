#include "libcommon/flash/peltflashaccessor.h"

#include "libcommon/core/status.h"

#include <algorithm>

PeltInternalFlashMemoryAccessor::PeltInternalFlashMemoryAccessor(
    boost::shared_ptr<PeltInternalFlash> flash, boost::shared_ptr<IMemoryAccessor> inner,
    WriteMode mode, boost::function<void()> afterWrite)
    : afterWrite(afterWrite),
      flash(flash),
      inner(inner),
      mode(mode),
      fuseAddress(flash->getFuseGpLoAddress()) {}

bool PeltInternalFlashMemoryAccessor::isFuseAccess(uint64_t address) const {
    return address >= fuseAddress && address - fuseAddress < fuseSize;
}

uint64_t PeltInternalFlashMemoryAccessor::fuseOffset(uint64_t address, unsigned int size,
                                                     const char* message) const {
    const uint64_t offset = address - fuseAddress;
    if (offset + size > fuseSize)
        CoreException::createAndThrow("", ERR_OPERATION_FAILED, std::string(message));
    return offset;
}

void PeltInternalFlashMemoryAccessor::read(uint64_t address, unsigned int size,
                                           std::vector<unsigned char>::iterator data,
                                           boost::shared_ptr<MemoryError>, IIntermediateResult*) {
    if (!isFuseAccess(address)) {
        inner->read(address, size, data, boost::shared_ptr<MemoryError>(), nullptr);
        return;
    }
    const uint64_t offset = fuseOffset(address, size, "Fuse read access out of bounds.");
    const Packet fuses = flash->readFuses(static_cast<InternalFlash::FuseType>(0));
    if (fuses.size() != fuseSize) throw "Inconsistent fuse description";
    std::copy_n(fuses.begin() + offset, size, data);
}

void PeltInternalFlashMemoryAccessor::write(uint64_t address, unsigned int size,
                                            std::vector<unsigned char>::const_iterator data,
                                            boost::shared_ptr<MemoryError>, IIntermediateResult*,
                                            bool erased) {
    if (!isFuseAccess(address)) {
        const bool eraseFirst = !erased && mode == WriteModeEraseFirst;
        flash->programChip(address, size, data, false, eraseFirst);
        if (afterWrite) afterWrite();
        return;
    }
    const uint64_t offset = fuseOffset(address, size, "Fuse write access out of bounds.");
    // A write of the whole window needs no read of the fuses it replaces.
    Packet fuses(fuseSize, 0);
    if (size != fuseSize) fuses = flash->readFuses(static_cast<InternalFlash::FuseType>(0));
    if (fuses.size() != fuseSize) throw "Inconsistent fuse description";
    std::copy_n(data, size, fuses.begin() + offset);
    flash->programFuses(static_cast<InternalFlash::FuseType>(0), fuses,
                        static_cast<int>(offset * 8));
}

void PeltInternalFlashMemoryAccessor::erase(uint64_t address, uint64_t size) {
    flash->eraseRegion(address, static_cast<unsigned>(size),
                       static_cast<InternalFlash::EraseOption>(0));
}

void PeltInternalFlashMemoryAccessor::setSecurityBit() {
    flash->setSecurityLevel(static_cast<InternalFlash::SecurityLevel>(1));
}
