#ifndef LIBCOMMON_DEVICE_DEVICEDESCRIPTOR_H
#define LIBCOMMON_DEVICE_DEVICEDESCRIPTOR_H

// DeviceDescriptor: the flat record of one 32-bit chip's physical facts that
// a tool plug-in needs before it talks to a target: where RAM lies, which
// flash controller the chip has and its geometry, the reset domains, and
// the base addresses of a few system peripherals.
//
// It is built once from a device description and never changes; it may be
// copied as a plain value and read from any thread. A description that
// lacks what the record needs stops the construction with a CoreException
// (component "hil", ERR_DEVICE_SETUP) that names what is missing, so no
// half-filled descriptor exists. Missing reset properties are not failures:
// they log a warning on "hil" and keep the defaults.
//
// Two flash paths:
//   - a Pelt controller ("FLASHC", "FLASHCDW", "HFLASHC", first found wins)
//     takes its geometry from the module's first property group; the flash
//     start is the fixed 0x80000000 and the fuse register offsets count from
//     the controller's base;
//   - an "NVMCTRL" controller takes it from the one segment of type "flash"
//     in "base"; there flashPagesPerRegion holds a sixteenth of the flash
//     size in bytes, not a page count, and the fuse offsets stay 0.
//
//     DeviceDescriptor descriptor(DeviceFile::load("devices/TP32A512.xml"));
//     descriptor.getFlashControllerAddress();  // 0xFFFE1400

#include "libcommon/didevice.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

class DeviceDescriptor {
public:
    explicit DeviceDescriptor(boost::shared_ptr<DIDevice> device);

    unsigned int getInternalSramAddress() const { return internalSramAddress; }
    unsigned int getInternalSramSize() const { return internalSramSize; }
    unsigned int getMmuType() const { return mmuType; }
    unsigned int getDelayBeforeReadingFlash() const { return delayBeforeReadingFlash; }
    unsigned int getFlashControllerAddress() const { return flashControllerAddress; }
    unsigned int getNumberOfResetDomains() const { return numberOfResetDomains; }
    unsigned int getFlashPagesPerRegion() const { return flashPagesPerRegion; }
    unsigned int getFlashStart() const { return flashStart; }
    unsigned int getFlashSize() const { return flashSize; }
    unsigned int getFlashPageSize() const { return flashPageSize; }
    unsigned int getFlashBufferPageRatio() const { return flashBufferPageRatio; }
    unsigned int getFuseGpLoOffset() const { return fuseGpLoOffset; }
    unsigned int getFuseGpHiOffset() const { return fuseGpHiOffset; }
    unsigned int getUserPageAddress() const { return userPageAddress; }
    unsigned int getUserPageSize() const { return userPageSize; }
    unsigned int getScifAddress() const { return scifAddress; }
    unsigned int getPmAddress() const { return pmAddress; }
    unsigned int getCpuArchType() const { return cpuArchType; }
    unsigned int getSLineBaseAddress() const { return sLineBaseAddress; }
    unsigned int getTarn32ResetGroup() const { return tarn32ResetGroup; }
    bool isPeltFlashRev2() const { return peltFlashRev2; }
    bool hasFlashVaultSupport() const { return flashVaultSupport; }
    const std::string& getFlashControllerName() const { return flashControllerName; }
    std::string getName() const { return name; }
    std::vector<std::string> getProductNames() const { return productNames; }

    // No device data feeds the JTAG identity, so this is always 0; where
    // the identity of a chip is wanted, DIDeviceHelper::getDeviceId gives it.
    unsigned int getJtagId() const { return jtagId; }
    // Bits 12 to 27 of the JTAG identity.
    unsigned int getProductNumber() const { return (getJtagId() >> 12) & 0xFFFF; }

private:
    void updateInfoFromDeviceInfo(boost::shared_ptr<DIDevice> device);
    void setupNvmFlash(boost::shared_ptr<DIDevice> device, boost::shared_ptr<DIModule> module);
    void setupPeltInternalFlash(boost::shared_ptr<DIModule> module);
    bool isPeltFlashRev2(boost::shared_ptr<DIDevice> device);
    // The register group named like the module, which also sets the
    // controller's address and name.
    boost::shared_ptr<DIRegisterGroup> setupFlashController(boost::shared_ptr<DIModule> module);

    unsigned int jtagId = 0;
    unsigned int internalSramAddress = 0;
    unsigned int internalSramSize = 0;
    unsigned int mmuType = 0;
    std::vector<std::string> productNames;
    bool peltFlashRev2 = false;
    bool flashVaultSupport = false;
    unsigned int delayBeforeReadingFlash = 0;
    unsigned int flashControllerAddress = 0;
    std::string flashControllerName;
    unsigned int numberOfResetDomains = 1;
    unsigned int tarn32ResetGroup = 1;
    unsigned int flashPagesPerRegion = 0;
    unsigned int flashStart = 0;
    unsigned int flashSize = 0;
    unsigned int flashPageSize = 0;
    unsigned int flashBufferPageRatio = 1;
    unsigned int fuseGpLoOffset = 0;  // never set on the NVM path
    unsigned int fuseGpHiOffset = 0;
    unsigned int userPageAddress = 0;
    unsigned int userPageSize = 0;
    unsigned int scifAddress = 0;
    unsigned int pmAddress = 0;
    unsigned int cpuArchType = 0;
    unsigned int sLineBaseAddress = 0;
    std::string name;
};

#endif
