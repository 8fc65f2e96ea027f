#include "libcommon/flash/nvmaccessors.h"

NvmAccessorBase::NvmAccessorBase(boost::shared_ptr<NvmController> controller,
                                 boost::shared_ptr<IMemoryAccessor> inner)
    : controller(controller), inner(inner) {}

void NvmAccessorBase::read(uint64_t address, unsigned int size,
                           std::vector<unsigned char>::iterator data,
                           boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) {
    inner->read(address, size, data, error, progress);
}

NvmAccessor::NvmAccessor(boost::shared_ptr<NvmController> controller,
                         boost::shared_ptr<IMemoryAccessor> inner)
    : NvmAccessorBase(controller, inner) {}

void NvmAccessor::write(uint64_t address, unsigned int size,
                        std::vector<unsigned char>::const_iterator data,
                        boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
                        bool erased) {
    inner->write(address, size, data, error, progress, erased);
}

void NvmAccessor::erase(uint64_t address, uint64_t size) {
    controller->eraseRegion(uint32_t(address), unsigned(uint32_t(size)), InternalFlash::EraseOnly);
}

NvmAuxAccessor::NvmAuxAccessor(boost::shared_ptr<NvmController> controller,
                               boost::shared_ptr<IMemoryAccessor> inner)
    : NvmAccessorBase(controller, inner) {}

void NvmAuxAccessor::write(uint64_t address, unsigned int size,
                           std::vector<unsigned char>::const_iterator data,
                           boost::shared_ptr<MemoryError>, IIntermediateResult*, bool) {
    controller->writeAux(address, size, data);
}

void NvmAuxAccessor::erase(uint64_t address, uint64_t size) {
    controller->eraseAux(uint32_t(address), unsigned(uint32_t(size)));
}
