#ifndef LIBCOMMON_FLASH_PELTINTERNALFLASH_H
#define LIBCOMMON_FLASH_PELTINTERNALFLASH_H

// PeltInternalFlash: the InternalFlash driver of the flash controller of the
// 32-bit Pelt microcontrollers.
//
// It reaches the chip through one IMemoryAccessor: the controller registers
// FCMD and FSR and the fuse registers FGPFRLO and FGPFRHI as little-endian
// 4-byte words, and the flash's own address range, through which the page
// buffer is loaded. Every command is guarded: wait for ready, write FCMD
// (key 0xA5), wait for ready again. A wait polls FSR for at most 500 ms
// without pause and fails on the first error flag it sees:
//   - LOCKE throws a LockedFlashError, which callers of the erase and
//     program operations can tell from other failures (programChip may be
//     told to ignore it);
//   - PROGE throws a GenericError "PROGE error: Invalid command or keyword
//     written to FCMD.";
//   - running out of time throws a GenericError "Timed out waiting for flash
//     to become ready (500 ms).".
// Erase, unlock, program and fuse operations add their own context text to
// such a failure, keeping its type; range errors found before any command is
// sent carry no context. Operations that are given size 0 touch nothing.
//
// Programming erases and rewrites every page it touches, so a caller writes
// whole pages where it can; the bytes of a partly written page outside the
// written range are read first and kept. The user page (0x800000 above the
// flash start) has its own commands and is reached through the same
// operations.
//
//     PeltInternalFlash flash(device, memory);  // memory: the chip's bus
//     flash.unlockEntireChip();
//     flash.programChip(0x80000000, image.size(), image.begin(), false, true);
//
// The operations are const although they change the target: the driver is
// a view of the chip. No locks and no threads; one caller at a time.

#include "libcommon/core/packet.h"
#include "libcommon/didevice.h"
#include "libcommon/flash/flashinformation.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

class PeltInternalFlash : public InternalFlash {
public:
    PeltInternalFlash(const FlashInformation& info, boost::shared_ptr<IMemoryAccessor> memory);
    // Reads the geometry and registers of the device's controller; throws as
    // PeltFlashInformation does.
    PeltInternalFlash(boost::shared_ptr<DIDevice> device,
                      boost::shared_ptr<IMemoryAccessor> memory);

    void unlockEntireChip() const override;
    void unlockRegion(uint64_t address, unsigned size) const override;
    // Does not wait for the erase to end; the next command waits.
    void startEraseEntireChip() const override;
    // An address in the user page erases the user page, whatever size says.
    void eraseRegion(uint64_t address, unsigned size, EraseOption option) const override;
    // eraseFirst is not used: every page is erased before it is written.
    void programChip(uint64_t address, unsigned size,
                     std::vector<unsigned char>::const_iterator data, bool ignoreLockError,
                     bool eraseFirst) const override;
    void eraseUserPage() const override;
    void programUserPage(uint64_t address, unsigned size,
                         std::vector<unsigned char>::const_iterator data) const override;
    void readUserPage(uint64_t address, unsigned size,
                      std::vector<unsigned char>::iterator data) const override;
    void eraseFuses(FuseType type) const override;
    // Type 0: the four bytes of FGPFRLO, least significant first; other
    // types: empty.
    Packet readFuses(FuseType type) override;
    // values: a little-endian 32-bit value whose bit i goes to fuse
    // index + i, one guarded command per bit, highest first. The caller's
    // packet is left reversed.
    void programFuses(FuseType type, Packet& values, int index) const override;
    // value true erases the fuse bit (1), false writes it (0).
    void modifyFusebit(FuseType type, int index, bool value) const override;
    bool readFuseBit(FuseType type, int index) const override;
    // The lock bit operations are not supported by this controller's driver
    // and throw a GenericError.
    int getLockBitCount() const override;
    Packet getLockBits() override;
    void setLockBit(unsigned index) const override;
    void clearLockBit(unsigned index) const override;
    // Sets the security bit whatever level is asked, then waits one second.
    void setSecurityLevel(SecurityLevel level) const override;
    // FSR bit 13 as 0 or 1. On controllers that report their flash size in
    // FSR bits 13 to 15 (FSZ), bit 13 is part of that size code, not the
    // security flag: a caller that needs the security state should read FSR
    // bit 4 (SECURITY) instead.
    SecurityLevel getSecurityLevel() override;
    void restoreCfgRegs() const override {}
    const FlashInformation& getFlashInfo() const override { return info; }
    void waitFlashReady(int timeoutMs) const override;
    ~PeltInternalFlash() override;

    void enterBulkProg() const {}
    uint64_t getFuseGpLoAddress() const { return info.fuseLoRegister; }
    // 8 when there is a high fuse word, otherwise 4.
    uint64_t getFusesSize() const { return info.fuseHiRegister != 0 ? 8 : 4; }
    // The lower of the two fuse register addresses.
    uint64_t getMinFuseAddress() const;

private:
    unsigned getRegister(uint64_t address) const;
    uint64_t getPageNumber(uint64_t offset) const { return offset / info.pageSize; }
    void writeCommand(unsigned word) const;
    void waitFlashReady(long timeoutMs, bool ignoreLockError) const;
    // waitFlashReady, writeCommand, waitFlashReady.
    void guardedCommand(unsigned word) const;
    void clearPageBuffer() const;
    void addFuseBytes(Packet& packet, unsigned value) const;
    void checkFuseIndex(int index) const;
    bool inUserPage(uint64_t offset) const;
    static std::string decodeFlashCommand(unsigned word);
    static std::string decodeFlashStatus(unsigned status);

    FlashInformation info;
    boost::shared_ptr<IMemoryAccessor> memory;
    bool hasHighFuses = true;  // no constructor clears it
};

#endif
