#ifndef LIBCOMMON_SIM_NVMCHIP_H
#define LIBCOMMON_SIM_NVMCHIP_H

// NvmChip: a simulated Cortex-M chip with an "NVMCTRL" flash controller, at
// register level, behind the IMemoryAccessor interface that a flash driver
// uses to reach the target's memory map.
//
// The chip is built from a device description (space "base": segment
// "FLASH", the read-while-write segment "RWW", or "DATAFLASH" on a "U2802"
// block, and every segment of type "user_page" or "aux" as an auxiliary
// row; module "NVMCTRL" with its id and register group). It maps:
//   - the NVM memories with flash semantics: a bus write only loads the
//     page buffer; programming a page ANDs the buffer into the page
//     (bits can only be cleared) and empties the buffer to 0xFF; an erase
//     command sets its whole erase unit to 0xFF;
//   - the controller's register file at the group address; on "U2802" at
//     0x41004000 and 0x41005000, of which the debug access level selects
//     one (level 1 the first), and the debug access level byte at
//     0x41002102;
// and nothing else: any other address throws a CoreException
// (ERR_ADDRESS_RANGE) and changes nothing.
//
// The controller speaks the protocol of the real blocks:
//   - it comes out of reset in manual write mode, where filling the page
//     buffer programs nothing (no write-page command exists here); in
//     automatic mode writing the last byte of a page programs it; on
//     "U2409" the auxiliary rows are written one 16-byte quad word at a time;
//   - commands arrive in the command register with the key 0xA5 in its high
//     byte, written whole in one access; the address they act on is the one
//     last latched, by the address register or by any write into the NVM
//     memories (on "U2802" the driver latches with a 4-byte 0xFF write,
//     which loads the buffer but programs nothing). Address registers hold
//     absolute addresses, as on parts whose flash starts at 0;
//   - after each command and each page program the ready bit stays clear
//     for a configurable number of polls, or for ever in stuck-busy mode;
//   - a locked region, an unknown command, a bad key, an address outside
//     what the command acts on and an injected failure set the block's
//     write-one-to-clear error flags and change nothing;
//   - lock bits are the 32-bit register at offset 0x20, bit i set meaning
//     region i (one sixteenth of the flash, one thirty-second on "U2409")
//     is unlocked.
// Command codes by block (the key not shown):
//   plain: 0x02 erase 4 flash pages, 0x1A erase 4 RWW pages, 0x05 erase an
//          auxiliary row (4 pages), 0x40 lock, 0x41 unlock, 0x45 security;
//   U2409: 0x01 erase 16 flash pages, 0x1A erase 16 RWW pages, 0x00 erase
//          one auxiliary page, 0x40 lock, 0x41 and 0x12 unlock, 0x16 security;
//   U2802: 0x02 erase 4 pages of flash, data flash or a row, 0x41 unlock,
//          0x4B security level 1, 0x4C level 2.
// What a correct driver never does is logged as a protocol violation and
// otherwise ignored: a data write or command while busy, a command register
// written in pieces, a register access at the base the access level does
// not select. Tests require the log to be empty.
//
//     auto chip = NvmChip::fromDeviceFile("devices/CM0N256.xml");
//     chip->setBusyPolls(1, 2);
//     ... program through a driver over chip ...
//     EXPECT_TRUE(chip->getViolations().empty());
//     chip->peek(0x100, 64);
//
// Counters record what crossed the interface, so benchmarks can prove the
// cost of a protocol. Not synchronised, like the accessors above it.

#include "libcommon/didevice.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class NvmChip : public IMemoryAccessor {
public:
    enum Block { BLOCK_PLAIN, BLOCK_U2409, BLOCK_U2802 };
    enum RegionKind { REGION_FLASH, REGION_RWW, REGION_AUX };

    struct Region {
        std::string name;  // the segment's name
        RegionKind kind;
        uint64_t start;
        uint32_t pageSize;
        std::vector<unsigned char> bytes;
    };

    struct Counters {
        std::map<unsigned, uint64_t> commands;  // well-formed commands by code, key removed
        uint64_t commandsRefused = 0;           // raised an error flag instead of acting
        uint64_t pagesProgrammed = 0;           // pages (quad words on U2409 rows) programmed
        uint64_t unitsErased = 0;
        uint64_t readCalls = 0;
        uint64_t writeCalls = 0;
        uint64_t bytesRead = 0;
        uint64_t bytesWritten = 0;
        uint64_t polls = 0;  // reads that covered the ready bit
        uint64_t bytesOverInterface() const { return bytesRead + bytesWritten; }
        uint64_t commandCount(unsigned code) const;
    };

    // One step of the protocol as the chip saw it, when recording is on.
    struct Event {
        enum Type { COMMAND, PAGE_PROGRAM, ERASE, REGISTER_WRITE } type;
        unsigned code;     // COMMAND: code without key; REGISTER_WRITE: offset
        uint64_t address;  // COMMAND, ERASE, PAGE_PROGRAM: where; REGISTER_WRITE: value
    };

    // Throws a CoreException (ERR_DEVICE_INFO) for a description without
    // module "NVMCTRL", its register group or a paged "FLASH" segment.
    explicit NvmChip(boost::shared_ptr<DIDevice> device);
    static boost::shared_ptr<NvmChip> fromDeviceFile(const std::string& path);

    boost::shared_ptr<DIDevice> getDevice() const { return device; }
    Block getBlock() const { return block; }

    // ---- IMemoryAccessor ----
    // error and progress are not used: every failure throws.
    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;

    // ---- behaviour ----
    // Polls that see the ready bit clear after a command and after a page
    // program. Both start at 1.
    void setBusyPolls(unsigned afterCommand, unsigned afterProgram);
    void setStuckBusy(bool on) { stuckBusy = on; }
    // The nth command, or page program, from now (1: the next) fails with
    // the NVM error flag. 0 cancels.
    void failCommand(unsigned n) { failCommandIn = n; }
    void failPageProgram(unsigned n) { failProgramIn = n; }
    // "U2802" only; 2 after construction.
    void setDebugAccessLevel(unsigned level) { debugAccessLevel = level & 3; }
    unsigned getDebugAccessLevel() const { return debugAccessLevel; }
    // Registers back to their reset values (manual write mode, no error
    // flags, not busy, empty page buffer), stuck-busy mode and injected
    // failures off; memories, lock bits, security level and access level
    // stay, as across a real reset.
    void reset();

    // ---- state, bypassing semantics and counters ----
    uint64_t getRegisterBase() const;  // the base the access level selects
    uint32_t peekRegister(unsigned offset, unsigned width) const;
    bool inManualWriteMode() const;
    unsigned getLockRegionCount() const { return block == BLOCK_U2409 ? 32 : 16; }
    uint32_t getLockBits() const { return lockBits; }
    void setLockBits(uint32_t bits);
    unsigned getSecurityLevel() const { return securityLevel; }
    void setSecurityLevel(unsigned level) { securityLevel = level; }
    // The block's error flags as set now (0: none).
    uint32_t getErrorFlags() const;

    // ---- memories: whole regions by segment name, or bytes by address ----
    std::vector<std::string> getRegionNames() const;
    // Throw a CoreException (ERR_NOT_FOUND) for an unknown name.
    const Region& getRegion(const std::string& name) const;
    std::vector<unsigned char> getRegionBytes(const std::string& name) const;
    // Throws (ERR_INVALID_ARGUMENT) unless bytes has the region's size.
    void setRegionBytes(const std::string& name, const std::vector<unsigned char>& bytes);
    // Inside one region; throw (ERR_ADDRESS_RANGE) otherwise.
    std::vector<unsigned char> peek(uint64_t address, uint32_t size) const;
    void poke(uint64_t address, const std::vector<unsigned char>& bytes);
    // Every NVM memory to 0xFF.
    void eraseAll();

    // ---- traffic and protocol ----
    const Counters& getCounters() const { return counters; }
    void resetCounters() { counters = Counters(); }
    const std::vector<std::string>& getViolations() const { return violations; }
    void clearViolations() { violations.clear(); }
    void setRecording(bool on) { recording = on; }
    const std::vector<Event>& getEvents() const { return events; }
    void clearEvents() { events.clear(); }

private:
    struct Profile;
    static const Profile* profileOf(Block block);
    enum Fault { FAULT_ADDRESS, FAULT_PROGRAM, FAULT_LOCK, FAULT_NVM, FAULT_KEY };

    Region* findRegion(uint64_t address, uint32_t size);
    const Region* findRegion(uint64_t address, uint32_t size) const;
    bool isRegisterBase(uint64_t address, unsigned* which) const;
    void readRegisters(unsigned offset, unsigned size, std::vector<unsigned char>::iterator data);
    void writeRegisters(unsigned offset, unsigned size,
                        std::vector<unsigned char>::const_iterator data);
    void writeMemory(Region& region, uint64_t address, unsigned size,
                     std::vector<unsigned char>::const_iterator data);
    void programBuffer(Region& region, uint64_t unitStart, uint32_t unitSize);
    void execute(unsigned code);
    void eraseUnit(Region& region, uint64_t address, uint32_t unitBytes);
    bool regionLocked(const Region& region, uint64_t address, uint32_t size) const;
    void raise(Fault fault);
    bool busy() const { return stuckBusy || busyPollsLeft > 0; }
    uint32_t reg(unsigned offset, unsigned width) const;
    void setReg(unsigned offset, unsigned width, uint32_t value);
    void violation(const std::string& text);
    void record(Event::Type type, unsigned code, uint64_t address);
    uint32_t automaticWriteUnit(const Region& region) const;  // 0: manual mode

    boost::shared_ptr<DIDevice> device;
    Block block = BLOCK_PLAIN;
    const Profile* profile = nullptr;
    std::vector<Region> regions;
    uint64_t flashStart = 0;
    uint32_t flashSize = 0;
    uint64_t registerBases[2] = {0, 0};
    unsigned commandOffset = 0;
    unsigned commandWidth = 2;
    unsigned configOffset = 4;
    unsigned configWidth = 4;

    std::vector<unsigned char> registers;  // 0x100 bytes from the base
    std::vector<unsigned char> pageBuffer;
    uint64_t latchedAddress = 0;
    uint32_t lockBits = 0xFFFFFFFF;
    unsigned securityLevel = 0;
    unsigned debugAccessLevel = 2;
    unsigned busyAfterCommand = 1;
    unsigned busyAfterProgram = 1;
    unsigned busyPollsLeft = 0;
    bool stuckBusy = false;
    unsigned failCommandIn = 0;
    unsigned failProgramIn = 0;

    Counters counters;
    std::vector<std::string> violations;
    bool recording = false;
    std::vector<Event> events;
};

#endif
