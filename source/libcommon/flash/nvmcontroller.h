#ifndef LIBCOMMON_FLASH_NVMCONTROLLER_H
#define LIBCOMMON_FLASH_NVMCONTROLLER_H

// NvmController: the flash driver for the "NVMCTRL" controllers of Cortex-M
// parts. It drives the controller's memory-mapped registers through an
// IMemoryAccessor that reaches the target, and knows nothing of probes.
//
// One class serves three hardware blocks, told apart by isU2409 and isU2802
// of the record: "U2409", "U2802" (the secure-boot Hlx7 parts) and every
// other block ("plain"). Everything in which they differ (register roles,
// ready and error registers, how an address is latched, command codes,
// erase units, lock regions) is one row of a table in nvmcontroller.cpp.
//
// A programming run is any number of eraseRegion, programChip, eraseAux and
// writeAux calls; the first of them saves the controller's configuration
// and switches it to automatic page writes. restoreCfgRegs ends the run: it
// puts the configuration back and reports, as ERR_NVM_CONTROLLER, any error
// the controller flagged during the run. That is the one place a failed
// erase or page write surfaces; restoreCfgRegs always closes the run, also
// when it throws. A timeout (ERR_FLASH_TIMEOUT) leaves the run open for the
// caller to close.
//
// Hlx7 parts: AdjustBaseAddressHLX7 reads the debug access level and moves
// the register base accordingly; it runs once, from the first operation
// that saves the configuration or sets security. The anti-brick check of a
// boot-row write depends on the access level, so a caller must run
// AdjustBaseAddressHLX7 itself before any row write that may come first.
//
// A size of 0 touches nothing in every erase, program and unlock operation,
// except an erase at the start of the user page, which erases the user page
// whatever the size.
//
//     NvmController flash(NvmControllerInformation(device), targetMemory, false);
//     flash.programChip(0x0, data.size(), data.begin(), false, true);
//     flash.restoreCfgRegs();  // throws if the controller flagged an error
//
// Operations are const although they change the target; the saved state is
// mutable. Not synchronised: one caller at a time.

#include "libcommon/flash/flashinformation.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <vector>

class NvmController : public InternalFlash {
public:
    // Lines of the per-block table; defined in the source.
    struct Block;

    NvmController(const NvmControllerInformation& info, boost::shared_ptr<IMemoryAccessor> memory,
                  bool passThrough);

    void unlockEntireChip() const override;
    void unlockRegion(uint64_t address, unsigned size) const override;
    void startEraseEntireChip() const override;
    void eraseRegion(uint64_t address, unsigned size, EraseOption option) const override;
    // passThrough: the bytes go straight to the accessor, nothing else.
    // Otherwise size should be whole pages (a paged accessor above sees to it).
    void programChip(uint64_t address, unsigned size,
                     std::vector<unsigned char>::const_iterator data, bool ignoreLockError,
                     bool eraseFirst) const override;
    void eraseUserPage() const override;
    // The user page goes through writeAux and eraseAux: these two throw.
    void programUserPage(uint64_t address, unsigned size,
                         std::vector<unsigned char>::const_iterator data) const override;
    void readUserPage(uint64_t address, unsigned size,
                      std::vector<unsigned char>::iterator data) const override;
    // Fuses do not belong to this controller: all five throw.
    void eraseFuses(FuseType type) const override;
    Packet readFuses(FuseType type) override;
    void programFuses(FuseType type, Packet& values, int index) const override;
    void modifyFusebit(FuseType type, int index, bool value) const override;
    bool readFuseBit(FuseType type, int index) const override;
    int getLockBitCount() const override;
    // The 32-bit lock register; throws on "U2802".
    Packet getLockBits() override;
    void setLockBit(unsigned index) const override;
    void clearLockBit(unsigned index) const override;
    void setSecurityLevel(SecurityLevel level) const override;
    SecurityLevel getSecurityLevel() override;  // throws: not readable here
    void restoreCfgRegs() const override;
    const FlashInformation& getFlashInfo() const override { return info; }
    void waitFlashReady(int timeoutMs) const override;

    ~NvmController() override;

    // Auxiliary rows (user page, configuration and boot rows). On "U2409"
    // a write covers the whole 0x200-byte page and only its changed
    // 16-byte quad words are written; a shorter size is refused. On
    // "U2802" the rows at 0x804000 and 0x80C000 get their CRCs, digest and
    // boot hash (unless VELBACKEND_NO_M23_COMPUTE is set); a boot-row write
    // must be the whole 0x100-byte row and a configuration-row write at
    // least 0x20 bytes.
    virtual void writeAux(uint64_t address, unsigned size,
                          std::vector<unsigned char>::const_iterator data) const;
    // Nothing on "U2802": its rows are erased by writeAux itself.
    virtual void eraseAux(uint64_t address, unsigned size) const;

    void saveCfgWord() const;
    // Clears the controller's error flags; throws ERR_NVM_CONTROLLER after
    // clearing when one was set and throwOnError.
    void clearErrors(bool throwOnError) const;
    void eraseAuxInternal(uint64_t address, unsigned size) const;
    void eraseRWWSection(uint64_t address, unsigned size) const;
    void AdjustBaseAddressHLX7() const;

private:
    unsigned readReg(int offset, int width) const;
    void writeReg(int offset, int width, unsigned value) const;
    void writeAddrRegister(uint64_t address) const;
    void writeCommand(unsigned code, int timeoutMs) const;
    bool isReady() const;
    void eraseRWW(uint64_t address, unsigned size) const;
    void writeRWW(uint64_t address, unsigned size,
                  std::vector<unsigned char>::const_iterator data) const;
    bool isInRWWSection(uint64_t offset, unsigned size) const;
    bool isUserPageStart(uint64_t offset, unsigned size) const;
    bool isOutsideMemoryRange(uint64_t offset, unsigned size) const;
    unsigned getPageNumber(uint64_t offset) const;
    unsigned lockRegionsCount() const;
    void AddBootHashHlx7(unsigned bootSize, unsigned nonSecureCallableSize, int bootOption) const;

    void readMemory(uint64_t address, unsigned size,
                    std::vector<unsigned char>::iterator data) const;
    void writeMemory(uint64_t address, unsigned size,
                     std::vector<unsigned char>::const_iterator data) const;
    void writeHlx7Row(uint64_t address, unsigned size,
                      std::vector<unsigned char>::const_iterator data) const;
    uint64_t lockRegionOffset(unsigned index) const;
    // pageSize times the erase unit of the auxiliary area.
    unsigned auxEraseStep() const;

    bool passThrough;
    mutable unsigned debugAccessLevel = 0;
    mutable uint32_t savedConfig = 0;
    mutable uint32_t workingConfig = 0;
    mutable uint32_t savedCtrlC = 0;
    mutable uint32_t workingCtrlC = 0;
    mutable NvmControllerInformation info;
    boost::shared_ptr<IMemoryAccessor> memory;
    mutable bool configSaveDue = true;
    mutable bool baseAddressAdjusted = false;
    const Block* block;
};

#endif
