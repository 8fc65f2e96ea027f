#ifndef LIBCOMMON_FLASH_NVMACCESSORS_H
#define LIBCOMMON_FLASH_NVMACCESSORS_H

// Accessors that put an NvmController under the IMemoryAccessor interface
// again, so a plug-in can stack a flash layer like any other. Reads (and
// for NvmAccessor plain writes) go to an inner accessor; what needs the
// controller goes to the driver. They mark nothing in a MemoryError: every
// failure of the driver is an exception and passes through.
//
//   NvmAccessor: erase is a plain eraseRegion; read and write pass to inner.
//   NvmAuxAccessor: write is writeAux, erase is eraseAux; read passes to inner.
// Neither restores the controller's configuration: the caller ends a run
// with restoreCfgRegs on the driver.

#include "libcommon/flash/nvmcontroller.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

class NvmAccessor : public IMemoryAccessor {
public:
    NvmAccessor(boost::shared_ptr<NvmController> controller,
                boost::shared_ptr<IMemoryAccessor> inner);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // Address and size are cut to 32 bits.
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<NvmController> controller;
    boost::shared_ptr<IMemoryAccessor> inner;
};

class NvmAuxAccessor : public IMemoryAccessor {
public:
    NvmAuxAccessor(boost::shared_ptr<NvmController> controller,
                   boost::shared_ptr<IMemoryAccessor> inner);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    // error, progress and erased are not used.
    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // Address and size are cut to 32 bits.
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<NvmController> controller;
    boost::shared_ptr<IMemoryAccessor> inner;
};

#endif
