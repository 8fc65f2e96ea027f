#ifndef LIBCOMMON_SIM_TARN8CHIP_H
#define LIBCOMMON_SIM_TARN8CHIP_H

// Tarn8Chip: a simulated 8-bit Tarn chip behind the ITarn8Target interface.
//
// The chip holds the memories of a device description (program flash,
// eeprom, fuses, lock bits, signature rows, calibration, data space) and
// serves the target calls of the memory layers with the semantics of the
// real parts:
//   - flash (program memory, user signature row): erasing a page sets it to
//     0xFF; programming can only clear bits (new = old & data); a single
//     write must stay inside one flash page (the page buffer);
//   - eeprom: bytes are written as given (erase and write in one step);
//     erasing a page sets it to 0xFF;
//   - signature, production signature and calibration rows are read-only;
//     the signature row starts with the device's signature bytes;
//   - fuses, lock bits and the data space are plain bytes.
// Every transfer is held to the chip's limits: data-space transfers to
// plainMax, paged memories to pagedMax, the others to the larger of both.
// Whatever the chip refuses (unknown memory type, range outside a memory,
// transfer too large, write to a read-only row) throws a CoreException and
// changes nothing.
//
// Which memory a memory type reaches follows the core family:
//   - classic and Orbit: each type addresses its own space from that
//     space's start (flash types 0, 8, 9 from 0; the boot type 10 from the
//     start of the boot section);
//   - Sprig (TARN8X): flash as above, every other type addresses the data
//     space, where eeprom, fuses, signature rows and RAM are segments.
//
// Memories are named after their address space ("prog", "eeprom", "fuses",
// "lockbits", "signatures", "user_signatures", "prod_signatures", "osccal",
// "data") or, on the Sprig family, after their data-space segment in lower
// case ("eeprom", "fuses", "internal_sram", "io", ...). Offsets in the
// inspection API count from the start of the memory.
//
// Counters and an optional call log record what crossed the interface, so
// that tests and benchmarks can prove how much traffic a stack causes.
//
//     auto chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
//     chip->poke("prog", 0x100, {0x0C, 0x94});
//     ... run a memory context over chip ...
//     chip->getCounters().bytesWritten;
//
// Not synchronised, like the accessors above it.

#include "libcommon/didevice.h"
#include "libcommon/itarntarget.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

class Tarn8Chip : public ITarn8Target {
public:
    enum Kind {
        KIND_RAM,     // plain bytes
        KIND_FLASH,   // page erase to 0xFF, programming clears bits only
        KIND_EEPROM,  // byte writable, page erase to 0xFF
        KIND_ROM      // read-only
    };

    struct Memory {
        std::string name;
        Kind kind;
        // Where the memory lies in the addresses its memory types carry.
        uint32_t start;
        uint32_t pageSize;  // 0: no pages
        std::vector<unsigned char> bytes;
    };

    struct Counters {
        uint64_t readCalls = 0;
        uint64_t writeCalls = 0;
        uint64_t eraseCalls = 0;  // eraseMemoryPage and eraseFlashPage
        uint64_t bytesRead = 0;
        uint64_t bytesWritten = 0;
        uint64_t bytesErased = 0;  // size of the erased pages
    };

    enum Operation { OP_READ, OP_WRITE, OP_ERASE_MEMORY_PAGE, OP_ERASE_FLASH_PAGE };

    struct Call {
        Operation operation;
        int type;  // memory type of a read or write, erase kind of a page erase, -1 otherwise
        uint32_t address;
        uint32_t size;  // bytes moved or erased
        std::string memory;
        uint32_t offset;  // where the call landed in the memory
    };

    // Builds the memories of an 8-bit device description. Throws a
    // CoreException (ERR_NOT_SUPPORTED) for another architecture and
    // (ERR_DEVICE_INFO) for a description without program memory.
    // The default limits are one flash page for paged transfers and 256
    // bytes for plain ones.
    explicit Tarn8Chip(boost::shared_ptr<DIDevice> device);
    static boost::shared_ptr<Tarn8Chip> fromDeviceFile(const std::string& path);

    boost::shared_ptr<DIDevice> getDevice() const { return device; }

    // ---- ITarn8Target ----
    TransferLimits getMemoryTransferLimits() override;
    void eraseMemoryPage(int eraseKind, unsigned int address) override;
    void eraseFlashPage(unsigned int address) override;
    void readMemory(MemoryType type, unsigned int address, unsigned int size,
                    std::vector<unsigned char>::iterator data) override;
    void writeMemory(MemoryType type, unsigned int address, unsigned int size,
                     std::vector<unsigned char>::const_iterator data) override;

    // ---- configuration ----
    void setTransferLimits(unsigned int pagedMax, unsigned int plainMax);

    // ---- memories, bypassing semantics, limits and counters ----
    std::vector<std::string> getMemoryNames() const;
    bool hasMemory(const std::string& name) const;
    // Throws a CoreException (ERR_NOT_FOUND) for an unknown name.
    const Memory& getMemory(const std::string& name) const;
    std::vector<unsigned char> peek(const std::string& name, uint32_t offset,
                                    uint32_t size) const;
    void poke(const std::string& name, uint32_t offset, const std::vector<unsigned char>& data);
    void fill(const std::string& name, unsigned char value);
    // Erases all flash memories, as a chip erase of the programming
    // interface does; eeprom, fuses and signature rows stay.
    void chipErase();
    // Flash geometry of the program memory.
    uint32_t getFlashPageSize() const;
    uint32_t getBootStart() const { return bootStart; }
    uint32_t getBootSize() const { return bootSize; }

    // ---- traffic ----
    const Counters& getCounters() const { return counters; }
    void resetCounters();
    // The call log is off by default; counters are always kept.
    void setRecording(bool on) { recording = on; }
    const std::vector<Call>& getCalls() const { return calls; }
    void clearCalls() { calls.clear(); }
    // How many recorded writes landed in each page of a memory, by page
    // number from the start of the memory.
    std::vector<unsigned int> writesPerPage(const std::string& name) const;

private:
    // Where a memory type reaches: [start, start + size) of the type's
    // addresses lands at memory offset memoryOffset + (address - start).
    struct Window {
        int type;
        uint32_t start;
        uint32_t size;
        size_t memory;
        uint32_t memoryOffset;
    };

    void addMemory(const std::string& name, Kind kind, uint64_t start, uint64_t size,
                   uint32_t pageSize, unsigned char fill);
    void addWindow(int type, size_t memory, uint32_t start, uint32_t size, uint32_t memoryOffset);
    void addWindowsForAll(const std::vector<int>& types, size_t memory);
    size_t findMemory(const std::string& name) const;  // npos when missing
    // The window of type that holds [address, address + size); throws.
    const Window& resolve(int type, uint32_t address, uint32_t size, const char* what) const;
    void checkLimit(int type, unsigned int size) const;
    void erasePage(size_t memory, uint32_t offset, Operation operation, int kind,
                   uint32_t address);
    void buildClassic();
    void buildSprig();
    void presetSignature();
    // Factory values of fuses, lock bits and calibration from the
    // description's property group "DEFAULTS", where it has one.
    void presetDefaults();

    boost::shared_ptr<DIDevice> device;
    bool sprig = false;
    std::vector<Memory> memories;
    std::vector<Window> windows;
    size_t flashIndex = 0;
    uint32_t bootStart = 0;
    uint32_t bootSize = 0;
    unsigned int pagedMax = 0;
    unsigned int plainMax = 256;
    Counters counters;
    bool recording = false;
    std::vector<Call> calls;
};

#endif
