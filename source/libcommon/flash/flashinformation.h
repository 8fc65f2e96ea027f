#ifndef LIBCOMMON_FLASH_FLASHINFORMATION_H
#define LIBCOMMON_FLASH_FLASHINFORMATION_H

// The abstract on-chip flash driver and the records that say where a flash
// controller's memory and registers lie.
//
// InternalFlash is what every flash driver offers; operations are const
// although they change the target, because a driver is a view of the chip
// and keeps only scratch state (mutable save fields).
//
// FlashInformation is a plain record, complete when its constructor
// returns; each derived class fills it from the device description for one
// controller type and throws when the description lacks what the driver
// needs, so no half-filled record exists. Drivers read the fields directly
// and keep their own copy.
//
//   boost::shared_ptr<DIDevice> device = ...;
//   NvmControllerInformation info(device);  // throws on a broken description
//   if (info.inRange(address)) ...

#include "libcommon/core/packet.h"
#include "libcommon/didevice.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class FlashInformation;

class InternalFlash {
public:
    enum EraseOption { EraseWithUnlock = 0, EraseOnly = 1 };
    enum FuseType { GeneralPurposeFuses = 0 };
    enum SecurityLevel { SecurityNone = 0, SecurityLevel1 = 1, SecurityLevel2 = 2 };

    virtual ~InternalFlash() {}

    virtual void unlockEntireChip() const = 0;
    virtual void unlockRegion(uint64_t address, unsigned size) const = 0;
    // May return before the chip has finished erasing.
    virtual void startEraseEntireChip() const = 0;
    virtual void eraseRegion(uint64_t address, unsigned size, EraseOption option) const = 0;
    virtual void programChip(uint64_t address, unsigned size,
                             std::vector<unsigned char>::const_iterator data, bool ignoreLockError,
                             bool eraseFirst) const = 0;
    virtual void eraseUserPage() const = 0;
    virtual void programUserPage(uint64_t address, unsigned size,
                                 std::vector<unsigned char>::const_iterator data) const = 0;
    virtual void readUserPage(uint64_t address, unsigned size,
                              std::vector<unsigned char>::iterator data) const = 0;
    virtual void eraseFuses(FuseType type) const = 0;
    virtual Packet readFuses(FuseType type) = 0;
    virtual void programFuses(FuseType type, Packet& values, int index) const = 0;
    virtual void modifyFusebit(FuseType type, int index, bool value) const = 0;
    virtual bool readFuseBit(FuseType type, int index) const = 0;
    virtual int getLockBitCount() const = 0;
    virtual Packet getLockBits() = 0;
    virtual void setLockBit(unsigned index) const = 0;
    virtual void clearLockBit(unsigned index) const = 0;
    virtual void setSecurityLevel(SecurityLevel level) const = 0;
    virtual SecurityLevel getSecurityLevel() = 0;
    // Puts the controller settings back after a programming run.
    virtual void restoreCfgRegs() const = 0;
    virtual const FlashInformation& getFlashInfo() const = 0;
    // Blocks until the controller is ready, or throws.
    virtual void waitFlashReady(int timeoutMs) const = 0;
};

// Addresses are absolute target addresses unless a field says "offset".
// Fields marked unset start at 0.
class FlashInformation {
public:
    FlashInformation() = default;
    FlashInformation(const FlashInformation&) = default;
    FlashInformation& operator=(const FlashInformation&) = default;
    virtual ~FlashInformation() {}

    uint64_t getStartAddress() const { return startAddress; }
    // First address behind the flash.
    uint64_t getEndAddress() const { return startAddress + uint64_t(size); }
    bool inRange(uint64_t address) const {
        return address >= startAddress && address - startAddress < uint64_t(size);
    }

    std::string moduleName;
    uint64_t startAddress = 0;
    uint32_t size = 0;
    uint32_t pageSize = 0;
    bool hasUserPage = false;
    uint64_t userPageAddress = 0;
    uint32_t userPageSize = 0;  // NVM controllers only: page size of the user segment
    uint32_t pagesPerRegion = 0;
    uint32_t propertyPageSize = 0;   // "PAGE_SIZE" of an EEFC module
    uint32_t propertyFlashSize = 0;  // "FLASH_SIZE" of an EEFC module
    uint32_t lockByteCount = 0;
    bool hasRwwSection = false;
    uint64_t rwwStart = 0;
    uint64_t rwwOffset = 0;  // rwwStart - startAddress
    uint64_t rwwSize = 0;
    uint64_t registerBase = 0;
    uint64_t firstRegister = 0;   // "EEFC_FMR" or "FCR"
    uint64_t secondRegister = 0;  // "EEFC_FCR" or "FCMD"
    uint64_t thirdRegister = 0;   // "EEFC_FSR" or "FSR"
    uint64_t fourthRegister = 0;  // "EEFC_FRR"
    uint64_t userPageOffset = 0;  // user page relative to startAddress, wraps below it
    uint64_t fuseHiRegister = 0;
    uint64_t fuseLoRegister = 0;
    uint32_t gpnvmMask = 0xFF;
    uint16_t eraseUnitPages = 1;       // on the NVM controllers a number of pages
    uint16_t largeEraseUnitPages = 0;  // set by the EEFC sector sizes only
    bool isU2409 = false;
    bool isU2802 = false;

protected:
    // The register's offset in the group; throws ERR_DEVICE_FILE naming the
    // register when the group lacks it.
    uint64_t getRegisterOffsetOrThrow(boost::shared_ptr<DIRegisterGroup> group,
                                      const std::string& name) const;
};

// Controllers with the "EEFC_" registers. Only the record exists here.
class EeFlashInformation : public FlashInformation {
public:
    EeFlashInformation() = default;
    EeFlashInformation(const EeFlashInformation&) = default;
    EeFlashInformation(EeFlashInformation&&) = default;
    EeFlashInformation& operator=(const EeFlashInformation&) = default;
    EeFlashInformation& operator=(EeFlashInformation&&) = default;
    EeFlashInformation(boost::shared_ptr<DIDevice> device, boost::shared_ptr<DIModule> module,
                       boost::shared_ptr<DIMemorySegment> segment);

private:
    void setSectorSize(boost::shared_ptr<DIDevice> device);
};

// "NVMCTRL" controllers: the plain block and the U2409 and U2802 blocks.
class NvmControllerInformation : public FlashInformation {
public:
    NvmControllerInformation() = default;
    NvmControllerInformation(const NvmControllerInformation&) = default;
    NvmControllerInformation(NvmControllerInformation&&) = default;
    NvmControllerInformation& operator=(const NvmControllerInformation&) = default;
    NvmControllerInformation& operator=(NvmControllerInformation&&) = default;
    explicit NvmControllerInformation(boost::shared_ptr<DIDevice> device);

    // Offsets from registerBase; widths in bytes.
    uint32_t commandRegisterOffset = 0;
    uint32_t configRegisterOffset = 0;
    uint32_t commandRegisterWidth = 0;
    uint32_t configRegisterWidth = 0;
    uint32_t statusWidth = 0;
    uint32_t intflagWidth = 0;
};

// "FLASHC", "FLASHCDW" and "HFLASHC" controllers.
class PeltFlashInformation : public FlashInformation {
public:
    PeltFlashInformation() = default;
    PeltFlashInformation(const PeltFlashInformation&) = default;
    PeltFlashInformation(PeltFlashInformation&&) = default;
    PeltFlashInformation& operator=(const PeltFlashInformation&) = default;
    PeltFlashInformation& operator=(PeltFlashInformation&&) = default;
    explicit PeltFlashInformation(boost::shared_ptr<DIDevice> device);

private:
    boost::shared_ptr<DIModule> getFlashControllerModule(boost::shared_ptr<DIDevice> device);
};

#endif
