#ifndef LIBCOMMON_ITARNTARGET_H
#define LIBCOMMON_ITARNTARGET_H

// The target objects of the tool plug-ins, as far as the library calls
// them. A plug-in's real target class has many more operations; these
// interfaces list only the ones the memory layers use, in the order in
// which they stand in the plug-in's interface.

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

// Target of the 8-bit cores.
class ITarn8Target {
public:
    // Memory types as the memory layers pass them. Values 11 and 12 exist
    // on the plug-in side but are never used by the library.
    enum MemoryType : int {
        MemTypeFlash = 0,                // program memory (classic: programming, debug write)
        MemTypeEepromPage = 1,           // eeprom, classic family without monoLINK
        MemTypeFuses = 2,
        MemTypeLockbits = 3,
        MemTypeSignature = 4,
        MemTypeOsccal = 5,
        MemTypeSram = 6,                 // data space
        MemTypeEeprom = 7,
        MemTypeFlashDebug = 8,           // program memory, debug read, classic family
        MemTypeApplication = 9,          // application flash
        MemTypeBoot = 10,                // boot flash
        MemTypeEepromWrite = 13,         // eeprom, write side in debug mode
        MemTypeUserSignature = 14,
        MemTypeProductionSignature = 15
    };

    // Largest transfers the target accepts in one call: first is the limit
    // for paged memory (pagedMax), second the one for plain memory (plainMax).
    typedef std::pair<unsigned int, unsigned int> TransferLimits;

    virtual ~ITarn8Target() = default;

    virtual TransferLimits getMemoryTransferLimits() = 0;
    // eraseKind: 4 application, 5 boot, 6 eeprom, 7 user signature page.
    virtual void eraseMemoryPage(int eraseKind, unsigned int address) = 0;
    virtual void eraseFlashPage(unsigned int address) = 0;
    virtual void readMemory(MemoryType type, unsigned int address, unsigned int size,
                            std::vector<unsigned char>::iterator data) = 0;
    virtual void writeMemory(MemoryType type, unsigned int address, unsigned int size,
                             std::vector<unsigned char>::const_iterator data) = 0;
};

// Target of the 32-bit cores.
class ITarn32Target {
public:
    // The numbering belongs to the plug-in; the library passes the value on
    // as one byte and names none of them.
    enum MemoryType : unsigned char {};

    virtual ~ITarn32Target() = default;

    // flags is always 0 from the library.
    virtual void readMemory(MemoryType type, int flags, std::uint64_t address, unsigned int size,
                            std::vector<unsigned char>::iterator data) = 0;
    virtual void writeMemory(MemoryType type, int flags, std::uint64_t address, unsigned int size,
                             std::vector<unsigned char>::const_iterator data) = 0;
};

// Addresses that a masked read or write of the on-chip debugger skips
// (registers with side effects on access). Filled by the tool layer.
class MaskedIODetails {
public:
    std::set<std::uint64_t> readMaskedAddresses;
    std::set<std::uint64_t> writeMaskedAddresses;
};

#endif
