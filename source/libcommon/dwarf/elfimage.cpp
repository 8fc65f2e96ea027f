#include "libcommon/dwarf/elfimage.h"

#include "libcommon/core/status.h"

#include <gelf.h>
#include <libelf.h>

#include <boost/format.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace {

const char* const COMPONENT = "dwarf";

// libelf refuses every call until the version is agreed once per process.
void initLibelf() {
    static const bool ready = elf_version(EV_CURRENT) != EV_NONE;
    if (!ready)
        CoreException::createAndThrow(COMPONENT, ERR_FILE_IO, "libelf is not usable: %s",
                                      elf_errmsg(-1));
}

// Whether [offset, offset + size) lies inside a file of fileSize bytes,
// without wrapping.
bool insideFile(uint64_t offset, uint64_t size, uint64_t fileSize) {
    return offset <= fileSize && size <= fileSize - offset;
}

}  // namespace

boost::shared_ptr<ElfImage> ElfImage::open(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) CoreException::createAndThrow(COMPONENT, ERR_FILE_IO, "Cannot open %s", path.c_str());
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)),
                                     std::istreambuf_iterator<char>());
    if (in.bad())
        CoreException::createAndThrow(COMPONENT, ERR_FILE_IO, "Cannot read %s", path.c_str());
    return fromBytes(std::move(bytes), path);
}

boost::shared_ptr<ElfImage> ElfImage::fromBytes(std::vector<unsigned char> bytes,
                                                const std::string& name) {
    return boost::shared_ptr<ElfImage>(new ElfImage(std::move(bytes), name));
}

ElfImage::ElfImage(std::vector<unsigned char> bytes, std::string fileName)
    : file(std::move(bytes)), name(std::move(fileName)) {
    initLibelf();
    if (file.size() < EI_NIDENT || file[EI_MAG0] != ELFMAG0 || file[EI_MAG1] != ELFMAG1 ||
        file[EI_MAG2] != ELFMAG2 || file[EI_MAG3] != ELFMAG3)
        fail("not an ELF file");
    // libelf may convert headers of the other byte order in place: the
    // buffer is ours and is never shared before this point.
    elf = elf_memory(reinterpret_cast<char*>(file.data()), file.size());
    if (elf && elf_kind(elf) != ELF_K_ELF) {
        elf_end(elf);
        elf = nullptr;
    }
    if (!elf) fail("not an ELF file");
    try {
        GElf_Ehdr header;
        if (!gelf_getehdr(elf, &header)) fail("truncated ELF header");
        machine = header.e_machine;
        sixtyFourBit = header.e_ident[EI_CLASS] == ELFCLASS64;
        bigEndian = header.e_ident[EI_DATA] == ELFDATA2MSB;
        entry = header.e_entry;
        // libelf quietly shows a file cut inside its header tables as one
        // without sections or segments; that is a damaged file, not an
        // empty program. (With extended numbering e_shnum is 0 and the real
        // count sits in the first entry, which must then be there.)
        uint64_t sectionEntries = header.e_shnum ? header.e_shnum : 1;
        if (header.e_shoff &&
            !insideFile(header.e_shoff, sectionEntries * header.e_shentsize, file.size()))
            fail("the section table lies beyond the end of the file (truncated?)");
        if (header.e_phoff &&
            !insideFile(header.e_phoff, uint64_t(header.e_phnum) * header.e_phentsize, file.size()))
            fail("the program header table lies beyond the end of the file (truncated?)");
        readSections();
    } catch (...) {
        elf_end(elf);
        throw;
    }
}

ElfImage::~ElfImage() {
    elf_end(elf);
}

void ElfImage::fail(const std::string& what) const {
    CoreException::createAndThrow(COMPONENT, ERR_FILE_IO, "%s: %s", name.c_str(), what.c_str());
}

void ElfImage::readSections() {
    size_t count = 0, namesIndex = 0;
    if (elf_getshdrnum(elf, &count) != 0 || elf_getshdrstrndx(elf, &namesIndex) != 0)
        fail(std::string("damaged section table: ") + elf_errmsg(-1));
    for (size_t i = 1; i < count; ++i) {
        Elf_Scn* scn = elf_getscn(elf, i);
        GElf_Shdr header;
        if (!scn || !gelf_getshdr(scn, &header))
            fail(std::string("damaged section table: ") + elf_errmsg(-1));
        if (!(header.sh_flags & SHF_ALLOC) || header.sh_size == 0) continue;
        // Thread-local no-bits sections overlay the sections behind them in
        // the address map and are not memory of their own.
        if (header.sh_type == SHT_NOBITS && (header.sh_flags & SHF_TLS)) continue;
        ElfSection section;
        const char* sectionName = elf_strptr(elf, namesIndex, header.sh_name);
        section.name = sectionName ? sectionName : "";
        section.address = header.sh_addr;
        section.size = header.sh_size;
        section.noBits = header.sh_type == SHT_NOBITS;
        if (section.address + (section.size - 1) < section.address)
            fail((boost::format("section %s wraps the address space") % section.name).str());
        if (!section.noBits) {
            if (!insideFile(header.sh_offset, header.sh_size, file.size()))
                fail((boost::format("section %s lies beyond the end of the file (truncated?)") %
                      section.name)
                         .str());
            section.data = file.data() + header.sh_offset;
        }
        sections.push_back(section);
    }
    std::stable_sort(
        sections.begin(), sections.end(),
        [](const ElfSection& a, const ElfSection& b) { return a.address < b.address; });
    // Overlapping allocated sections would make a byte's value depend on
    // the order of the section table; the first in address order is kept.
    std::vector<ElfSection> kept;
    for (const ElfSection& s : sections) {
        if (!kept.empty() && s.address <= kept.back().address + (kept.back().size - 1)) continue;
        kept.push_back(s);
    }
    sections.swap(kept);
}

const ElfSection* ElfImage::findSection(uint64_t address) const {
    auto after = std::upper_bound(sections.begin(), sections.end(), address,
                                  [](uint64_t a, const ElfSection& s) { return a < s.address; });
    if (after == sections.begin()) return nullptr;
    const ElfSection& s = *(after - 1);
    return address - s.address < s.size ? &s : nullptr;
}

std::vector<ElfSegment> ElfImage::getLoadableSegments() const {
    std::vector<ElfSegment> segments;
    size_t count = 0;
    if (elf_getphdrnum(elf, &count) != 0)
        fail(std::string("damaged program header table: ") + elf_errmsg(-1));
    for (size_t i = 0; i < count; ++i) {
        GElf_Phdr header;
        if (!gelf_getphdr(elf, static_cast<int>(i), &header))
            fail(std::string("damaged program header table: ") + elf_errmsg(-1));
        if (header.p_type != PT_LOAD || header.p_filesz == 0) continue;
        if (!insideFile(header.p_offset, header.p_filesz, file.size()))
            fail("a loadable segment lies beyond the end of the file (truncated?)");
        ElfSegment segment;
        segment.loadAddress = header.p_paddr;
        segment.runAddress = header.p_vaddr;
        segment.memorySize = header.p_memsz;
        segment.bytes.assign(file.begin() + header.p_offset,
                             file.begin() + header.p_offset + header.p_filesz);
        segments.push_back(std::move(segment));
    }
    return segments;
}

ElfImageMemoryAccessor::ElfImageMemoryAccessor(boost::shared_ptr<const ElfImage> elfImage)
    : image(std::move(elfImage)) {}

void ElfImageMemoryAccessor::read(uint64_t address, unsigned int size,
                                  std::vector<unsigned char>::iterator data,
                                  boost::shared_ptr<MemoryError> error, IIntermediateResult*) {
    const std::vector<ElfSection>& sections = image->getSections();
    uint64_t done = 0;
    while (done < size) {
        uint64_t at = address + done;  // wraps at the top like the bus
        uint64_t left = size - done;
        uint64_t run;
        const ElfSection* s = image->findSection(at);
        if (s) {
            run = std::min(left, s->size - (at - s->address));
            if (s->noBits)
                std::fill_n(data + done, run, 0);
            else
                std::copy_n(s->data + (at - s->address), run, data + done);
        } else {
            // Up to the next section, or to the end of the request.
            auto next =
                std::upper_bound(sections.begin(), sections.end(), at,
                                 [](uint64_t a, const ElfSection& x) { return a < x.address; });
            run = next == sections.end() ? left : std::min(left, next->address - at);
            if (!error)
                CoreException::createAndThrow(COMPONENT, ERR_ADDRESS_RANGE,
                                              "Address 0x%llx lies in no allocated section of %s",
                                              static_cast<unsigned long long>(at),
                                              image->getName().c_str());
            error->setStatus(at, static_cast<unsigned int>(run), MEM_UNKNOWN);
        }
        done += run;
    }
}

void ElfImageMemoryAccessor::write(uint64_t address, unsigned int size,
                                   std::vector<unsigned char>::const_iterator,
                                   boost::shared_ptr<MemoryError> error, IIntermediateResult*,
                                   bool) {
    if (error && size > 0) error->setStatus(address, size, MEM_WRITE_FAILED);
}
