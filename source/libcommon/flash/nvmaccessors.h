#ifndef LIBCOMMON_FLASH_NVMACCESSORS_H
#define LIBCOMMON_FLASH_NVMACCESSORS_H

// Accessors that put an NvmController under the IMemoryAccessor interface
// again, so a plug-in can stack a flash layer like any other. Reads (and
// for NvmAccessor plain writes) go to an inner accessor; what needs the
// controller goes to the driver. They mark nothing in a MemoryError: every
// failure of the driver is an exception and passes through. Neither ends a
// programming run: the caller does, with restoreCfgRegs on the driver.
//
//   NvmAccessor: erase is a plain eraseRegion; write passes to inner.
//   NvmAuxAccessor: write is writeAux, erase is eraseAux.
// Both cut erase addresses and sizes to 32 bits.

#include "libcommon/flash/nvmcontroller.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

// What both share: the driver, the inner accessor, and reads through it.
class NvmAccessorBase : public IMemoryAccessor {
public:
    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;

protected:
    NvmAccessorBase(boost::shared_ptr<NvmController> controller,
                    boost::shared_ptr<IMemoryAccessor> inner);

    boost::shared_ptr<NvmController> controller;
    boost::shared_ptr<IMemoryAccessor> inner;
};

class NvmAccessor : public NvmAccessorBase {
public:
    NvmAccessor(boost::shared_ptr<NvmController> controller,
                boost::shared_ptr<IMemoryAccessor> inner);

    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;
};

class NvmAuxAccessor : public NvmAccessorBase {
public:
    NvmAuxAccessor(boost::shared_ptr<NvmController> controller,
                   boost::shared_ptr<IMemoryAccessor> inner);

    // error, progress and erased are not used.
    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;
};

#endif
