#ifndef LIBCOMMON_SIM_PELTCHIP_H
#define LIBCOMMON_SIM_PELTCHIP_H

// PeltChip: a simulated 32-bit Pelt chip behind the ITarn32Target interface,
// with the flash controller ("FLASHC", "FLASHCDW" or "HFLASHC") that a flash
// driver programs through memory-mapped registers.
//
// The chip holds the flash array, the user page, the two general purpose
// fuse words, sixteen region lock bits, the security bit and the RAM
// segments of the description's "base" space. It serves the target calls
// with the semantics of the real controller:
//   - reads of flash or the user page give the array;
//   - writes into flash or the user page fill the page buffer only, at the
//     address modulo the page size; the array is changed by commands alone;
//   - FCMD takes one 4-byte write, least significant byte first: command in
//     bits 0 to 5, PAGEN in bits 8 to 23, KEY in bits 24 to 31. Every
//     command needs the key 0xA5; a wrong key or an unknown command sets
//     PROGE and does nothing else;
//   - WP and WUP program the buffer into a page (flash = flash & buffer:
//     programming only clears bits), EP and EUP erase a page to 0xFF, EA
//     the whole flash, CPB sets the buffer to 0xFF;
//   - LR and UR set and clear the lock bit of the region that holds page
//     PAGEN. EP and WP in a locked region, and EA while any region is
//     locked, set LOCKE and change nothing;
//   - WGPB clears fuse bit PAGEN, EGPB sets it, PGPFB programs a fuse byte
//     (byte PAGEN bits 0 to 2, value PAGEN bits 3 to 10; bits are only
//     cleared), EAGPF sets all fuse bits; SSB sets the security bit;
//   - QPR and QPRUP set QPRR when the page is blank, any other command
//     clears it; HSEN and HSDIS only switch a flag; NOP does nothing;
//   - FSR: FRDY goes low after a command and comes back after a
//     configurable number of FSR reads (0: at once); LOCKE and PROGE are
//     cleared when FSR is read; FSZ gives the flash size code; LOCK[15:0]
//     the region lock bits. FGPFRLO and FGPFRHI read the fuse words.
//     Register words are carried least significant byte first.
// Accesses the chip cannot serve (no memory at the address, a register
// access other than one aligned 4-byte word) throw a CoreException and
// change nothing.
//
// What a correct driver never does is logged as a protocol violation, and
// the chip still behaves as the hardware would: a command or an access to
// flash while the controller is busy, loading the page buffer again after
// a page write without clearing it, a write that crosses a page boundary of
// the buffer, a wrong key or an unknown command, programming a page over
// bits that are not erased, a write to a read-only register. Tests assert
// that the log stays empty.
//
// Fault injection: a stuck-busy controller (for timeouts), a forced PROGE
// or LOCKE on the next command of a given code, and a failing transfer on
// the Nth target call from now.
//
// The memories can be saved to a stream or file and loaded again, so that a
// tool can keep the state of a chip between runs.
//
//     auto chip = PeltChip::fromDeviceFile("devices/TP32A512.xml");
//     auto memory = boost::make_shared<SimpleTarn32MemoryAccessor>(chip, type, type);
//     ... run a flash driver over memory ...
//     EXPECT_TRUE(chip->getViolations().empty());
//     chip->peekFlash(0, 16);
//
// Not synchronised, like the accessors above it.

#include "libcommon/didevice.h"
#include "libcommon/itarntarget.h"

#include <boost/shared_ptr.hpp>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

class PeltChip : public ITarn32Target {
public:
    enum Command {
        CMD_NOP = 0,
        CMD_WP = 1,
        CMD_EP = 2,
        CMD_CPB = 3,
        CMD_LR = 4,
        CMD_UR = 5,
        CMD_EA = 6,
        CMD_WGPB = 7,
        CMD_EGPB = 8,
        CMD_SSB = 9,
        CMD_PGPFB = 10,
        CMD_EAGPF = 11,
        CMD_QPR = 12,
        CMD_WUP = 13,
        CMD_EUP = 14,
        CMD_QPRUP = 15,
        CMD_HSEN = 16,
        CMD_HSDIS = 17,
        COMMAND_COUNT = 18
    };

    enum StatusBit : uint32_t {
        FSR_FRDY = 1u << 0,
        FSR_LOCKE = 1u << 2,
        FSR_PROGE = 1u << 3,
        FSR_SECURITY = 1u << 4,
        FSR_QPRR = 1u << 5
    };

    static const unsigned char KEY = 0xA5;

    struct Counters {
        uint64_t readCalls = 0;
        uint64_t writeCalls = 0;
        uint64_t bytesRead = 0;
        uint64_t bytesWritten = 0;
        uint64_t statusReads = 0;
        uint64_t bufferBytesLoaded = 0;                  // bytes written into the page buffer
        std::array<uint64_t, COMMAND_COUNT> commands{};  // accepted commands, by code
    };

    // Builds the chip of a Pelt device description: the "FLASH" and
    // "USER_PAGE" segments of "base", the controller's register group and its
    // "PAGES_PR_REGION" property. Throws a CoreException (ERR_DEVICE_INFO)
    // when any of them is missing or the geometry does not fit sixteen lock
    // regions.
    explicit PeltChip(boost::shared_ptr<DIDevice> device);
    static boost::shared_ptr<PeltChip> fromDeviceFile(const std::string& path);

    boost::shared_ptr<DIDevice> getDevice() const { return device; }

    // ---- ITarn32Target ----
    void readMemory(MemoryType type, int flags, uint64_t address, unsigned int size,
                    std::vector<unsigned char>::iterator data) override;
    void writeMemory(MemoryType type, int flags, uint64_t address, unsigned int size,
                     std::vector<unsigned char>::const_iterator data) override;

    // ---- geometry ----
    uint64_t getFlashStart() const { return flashStart; }
    uint32_t getFlashSize() const { return static_cast<uint32_t>(flash.size()); }
    uint32_t getPageSize() const { return pageSize; }
    uint32_t getPagesPerRegion() const { return pagesPerRegion; }
    uint64_t getUserPageAddress() const { return userPageAddress; }
    uint64_t getRegisterAddress(const std::string& name) const;  // throws ERR_NOT_FOUND

    // ---- memories, bypassing commands, counters and the violation log ----
    std::vector<unsigned char> peekFlash(uint32_t offset, uint32_t size) const;
    void pokeFlash(uint32_t offset, const std::vector<unsigned char>& data);
    const std::vector<unsigned char>& getFlash() const { return flash; }
    std::vector<unsigned char> peekUserPage() const { return userPage; }
    void pokeUserPage(uint32_t offset, const std::vector<unsigned char>& data);
    const std::vector<unsigned char>& getPageBuffer() const { return pageBuffer; }
    uint32_t getFuseLo() const { return fuseLo; }
    uint32_t getFuseHi() const { return fuseHi; }
    void setFuses(uint32_t lo, uint32_t hi);
    uint16_t getLockBits() const { return lockBits; }
    void setLockBits(uint16_t bits) { lockBits = bits; }
    bool isSecure() const { return secure; }
    bool isHighSpeed() const { return highSpeed; }
    // The state of a chip straight from the factory: flash, user page and
    // fuses all ones, no locks, no security. Counters and the log stay.
    void reset();

    // ---- saving the memories (flash, user page, fuse words, lock bits,
    // security bit) ----
    // load refuses a state of another device or geometry with a
    // CoreException (ERR_FILE_IO) and changes nothing then.
    void save(std::ostream& out) const;
    void load(std::istream& in);
    void saveToFile(const std::string& path) const;
    void loadFromFile(const std::string& path);

    // ---- timing and faults ----
    // FSR reads that show the controller busy after each command.
    void setBusyPolls(unsigned int polls) { busyPolls = polls; }
    // While set, FRDY never comes back.
    void setStuckBusy(bool on) { stuckBusy = on; }
    // The next accepted command with this code fails with the flag
    // (FSR_PROGE or FSR_LOCKE) instead of taking effect.
    void failNextCommand(Command code, StatusBit flag);
    // The target call after the next n ones throws a CoreException
    // (ERR_OPERATION_FAILED) and changes nothing; n = 0 fails the next one.
    void failTransferAfter(unsigned int calls);

    // ---- traffic and violations ----
    const Counters& getCounters() const { return counters; }
    void resetCounters() { counters = Counters(); }
    const std::vector<std::string>& getViolations() const { return violations; }
    void clearViolations() { violations.clear(); }
    // Accepted commands in order, as written (whole FCMD words).
    const std::vector<uint32_t>& getCommandLog() const { return commandLog; }
    void clearCommandLog() { commandLog.clear(); }

private:
    struct Register {
        std::string name;
        uint64_t address;
    };

    void checkTransfer(const char* what);
    // Throws the refusal of an access the chip has no memory or register for.
    [[noreturn]] void refuse(uint64_t address, unsigned int size) const;
    bool busy() const { return stuckBusy || busyRemaining > 0; }
    void violation(const std::string& text);
    uint32_t readRegister(uint64_t address);
    void writeRegister(uint64_t address, uint32_t value);
    // A write of FCMD, and the command it carries once key and code pass.
    void command(uint32_t word);
    void execute(unsigned int code, uint32_t pagen);
    bool regionLocked(uint32_t page) const;
    bool blank(const unsigned char* bytes, uint32_t size) const;
    void programPage(unsigned char* target, const char* what, uint32_t page);
    void loadBuffer(uint64_t address, unsigned int size,
                    std::vector<unsigned char>::const_iterator data);
    uint32_t flashSizeCode() const;
    const Register* findRegister(uint64_t address) const;
    // Index of the RAM segment that holds [address, address + size), or -1.
    int findRam(uint64_t address, unsigned int size) const;

    boost::shared_ptr<DIDevice> device;
    uint64_t flashStart = 0;
    uint32_t pageSize = 0;
    uint32_t pagesPerRegion = 0;
    uint64_t userPageAddress = 0;
    std::vector<unsigned char> flash;
    std::vector<unsigned char> userPage;
    std::vector<unsigned char> pageBuffer;
    std::vector<Register> registers;
    uint64_t fcmdAddress = 0;
    uint64_t fsrAddress = 0;
    uint64_t fuseLoAddress = 0;
    uint64_t fuseHiAddress = 0;  // 0: no high fuse word
    std::vector<uint64_t> ramStarts;
    std::vector<std::vector<unsigned char>> rams;

    uint32_t fuseLo = 0xFFFFFFFF;
    uint32_t fuseHi = 0xFFFFFFFF;
    uint16_t lockBits = 0;
    bool secure = false;
    bool highSpeed = false;
    uint32_t errorFlags = 0;      // LOCKE and PROGE, until FSR is read
    bool quickReadBlank = false;  // QPRR: result of the last QPR or QPRUP
    uint32_t lastCommand = 0;
    uint32_t fcr = 0;
    bool bufferUsed = false;  // a page write took the buffer since the last clear

    unsigned int busyPolls = 0;
    unsigned int busyRemaining = 0;
    bool stuckBusy = false;
    int faultCommand = -1;
    uint32_t faultFlag = 0;
    long transferFault = -1;

    Counters counters;
    std::vector<std::string> violations;
    std::vector<uint32_t> commandLog;
};

#endif
