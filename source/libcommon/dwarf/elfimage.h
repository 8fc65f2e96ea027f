#ifndef LIBCOMMON_DWARF_ELFIMAGE_H
#define LIBCOMMON_DWARF_ELFIMAGE_H

// An ELF executable as the debugger sees it before it runs: its machine, the
// initial contents of its allocated sections at their run addresses, and its
// loadable segments at their load addresses.
//
// The whole file is read into memory once and parsed with libelf; the image
// is immutable after opening, so it can be shared by any number of readers.
// A file that is not ELF, is truncated, or whose section table points
// outside the file fails to open with a CoreException (component "dwarf",
// ERR_FILE_IO) that names the file and the fault; nothing is half-opened.
//
//     boost::shared_ptr<ElfImage> image = ElfImage::open("firmware.elf");
//     boost::shared_ptr<IMemoryAccessor> mem(new ElfImageMemoryAccessor(image));
//     mem->read(0x20000000, 4, buffer.begin(), error, nullptr); // .data
//
// Not synchronised beyond immutability: libelf handles are only touched
// while opening.

#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

typedef struct Elf Elf;

// An allocated section: what the program sees at address when it starts.
// A no-bits section (.bss) reads as zeros; data is then null.
struct ElfSection {
    std::string name;
    uint64_t address = 0;
    uint64_t size = 0;
    bool noBits = false;
    const unsigned char* data = nullptr;  // into the image's file buffer
};

// A loadable segment: the bytes a programmer writes at loadAddress (the
// physical address, where .data's initial values are stored in flash).
// memorySize beyond bytes.size() is zero-initialised by the program itself
// and is never programmed.
struct ElfSegment {
    uint64_t loadAddress = 0;
    uint64_t runAddress = 0;
    uint64_t memorySize = 0;
    std::vector<unsigned char> bytes;
};

class ElfImage {
public:
    // Reads and parses the file. Throws CoreException (ERR_FILE_IO).
    static boost::shared_ptr<ElfImage> open(const std::string& path);
    // The same over bytes already in memory; name only appears in messages.
    static boost::shared_ptr<ElfImage> fromBytes(std::vector<unsigned char> bytes,
                                                 const std::string& name);

    ~ElfImage();
    ElfImage(const ElfImage&) = delete;
    ElfImage& operator=(const ElfImage&) = delete;

    const std::string& getName() const { return name; }
    // e_machine (EM_ARM, EM_X86_64, ...).
    unsigned int getMachine() const { return machine; }
    bool is64Bit() const { return sixtyFourBit; }
    bool isBigEndian() const { return bigEndian; }
    uint64_t getEntry() const { return entry; }

    // Allocated sections of non-zero size, ascending by address.
    const std::vector<ElfSection>& getSections() const { return sections; }
    // The allocated section that holds address, or null.
    const ElfSection* findSection(uint64_t address) const;
    // PT_LOAD segments with file contents, in program header order.
    std::vector<ElfSegment> getLoadableSegments() const;

    // The libelf handle, for the debug information reader. Owned here.
    Elf* getElf() const { return elf; }

private:
    ElfImage(std::vector<unsigned char> bytes, std::string name);
    [[noreturn]] void fail(const std::string& what) const;
    void readSections();

    std::vector<unsigned char> file;
    std::string name;
    Elf* elf = nullptr;
    unsigned int machine = 0;
    bool sixtyFourBit = false;
    bool bigEndian = false;
    uint64_t entry = 0;
    std::vector<ElfSection> sections;
};

// Reads an ElfImage's allocated sections at their run addresses. Bytes that
// lie in no allocated section are not part of the program: they are marked
// MEM_UNKNOWN and left as they were; with no error record to mark them in,
// the read throws a CoreException (ERR_ADDRESS_RANGE) rather than hand back
// bytes that look valid. The image is the program as built, so writes are
// refused: every byte is marked MEM_WRITE_FAILED. Erase does nothing.
class ElfImageMemoryAccessor : public IMemoryAccessor {
public:
    explicit ElfImageMemoryAccessor(boost::shared_ptr<const ElfImage> image);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size, std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;

private:
    boost::shared_ptr<const ElfImage> image;
};

#endif
