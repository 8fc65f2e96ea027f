#include "tarn8chip.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/device/didevicehelper.h"
#include "libcommon/stringconstants.h"

#include <boost/algorithm/string/case_conv.hpp>

#include <algorithm>
#include <limits>

namespace {

const size_t npos = std::numeric_limits<size_t>::max();

bool isPagedType(int type) {
    switch (type) {
    case ITarn8Target::MemTypeFlash:
    case ITarn8Target::MemTypeEepromPage:
    case ITarn8Target::MemTypeEeprom:
    case ITarn8Target::MemTypeFlashDebug:
    case ITarn8Target::MemTypeApplication:
    case ITarn8Target::MemTypeBoot:
    case ITarn8Target::MemTypeEepromWrite:
    case ITarn8Target::MemTypeUserSignature:
        return true;
    default:
        return false;
    }
}

uint32_t to32(uint64_t value, const std::string& what) {
    if (value > 0xFFFFFFFFull)
        CoreException::createAndThrow("", ERR_DEVICE_INFO,
                                      "Tarn8Chip: %s does not fit 32-bit addresses.", what.c_str());
    return static_cast<uint32_t>(value);
}

}  // namespace

Tarn8Chip::Tarn8Chip(boost::shared_ptr<DIDevice> device) : device(device) {
    if (!device)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT, "Tarn8Chip: no device given.");
    const std::string arch = device->getArchitecture();
    if (arch != ARCH_TARN8 && arch != ARCH_TARN8L && arch != ARCH_TARN8X &&
        arch != ARCH_TARN8_ORBIT)
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                      "Tarn8Chip: %s is a %s device, not an 8-bit Tarn.",
                                      device->getName().c_str(), arch.c_str());
    sprig = DIDeviceHelper::isArch4(device);

    // Program flash, common to all families.
    uint64_t flashSize = 0;
    int pageSize = 0;
    DIDeviceHelper::getFlashAttributes(device, &flashSize, &pageSize, nullptr);
    if (flashSize == 0 || pageSize <= 0 || flashSize % static_cast<uint64_t>(pageSize) != 0)
        CoreException::createAndThrow("", ERR_DEVICE_INFO,
                                      "Tarn8Chip: %s has no usable flash geometry.",
                                      device->getName().c_str());
    flashIndex = memories.size();
    addMemory(ADDRSPACE_PROG, KIND_FLASH, 0, flashSize, static_cast<uint32_t>(pageSize), 0xFF);
    const uint32_t flashBytes = to32(flashSize, ADDRSPACE_PROG);
    for (int type : {MemTypeFlash, MemTypeFlashDebug, MemTypeApplication})
        addWindow(type, flashIndex, 0, flashBytes, 0);
    uint64_t start = 0;
    unsigned int size = 0;
    DIDeviceHelper::getOrbitBootAttributes(device, &start, &size);
    if (size != 0) {
        if (start + size > flashSize)
            CoreException::createAndThrow("", ERR_DEVICE_INFO,
                                          "Tarn8Chip: the boot section lies outside the flash.");
        bootStart = static_cast<uint32_t>(start);
        bootSize = size;
        addWindow(MemTypeBoot, flashIndex, 0, bootSize, bootStart);
    }
    pagedMax = static_cast<unsigned int>(pageSize);

    if (sprig)
        buildSprig();
    else
        buildClassic();
    presetSignature();
    presetDefaults();
}

boost::shared_ptr<Tarn8Chip> Tarn8Chip::fromDeviceFile(const std::string& path) {
    return boost::shared_ptr<Tarn8Chip>(new Tarn8Chip(DeviceFile::load(path)));
}

void Tarn8Chip::buildClassic() {
    struct SpaceLayout {
        const std::string& name;
        Kind kind;
        std::vector<int> types;
        bool paged;
        unsigned char fill;
    };
    const std::vector<SpaceLayout> layouts = {
        {ADDRSPACE_EEPROM, KIND_EEPROM, {MemTypeEepromPage, MemTypeEeprom, MemTypeEepromWrite}, true,
         0xFF},
        {ADDRSPACE_FUSES, KIND_RAM, {MemTypeFuses}, false, 0xFF},
        {ADDRSPACE_LOCKBITS, KIND_RAM, {MemTypeLockbits}, false, 0xFF},
        {ADDRSPACE_SIGNATURES, KIND_ROM, {MemTypeSignature}, false, 0xFF},
        {ADDRSPACE_OSCCAL, KIND_ROM, {MemTypeOsccal}, false, 0x80},
        {ADDRSPACE_DATA, KIND_RAM, {MemTypeSram}, false, 0x00},
        {ADDRSPACE_USER_SIGNATURES, KIND_FLASH, {MemTypeUserSignature}, true, 0xFF},
        {ADDRSPACE_PROD_SIGNATURES, KIND_ROM, {MemTypeProductionSignature}, false, 0xFF},
    };
    for (const SpaceLayout& layout : layouts) {
        boost::shared_ptr<DIAddressSpace> space = device->getAddressSpace(layout.name);
        if (!space || space->getSize() == 0)
            continue;
        int pageSize = 0;
        if (layout.paged) {
            try {
                DIDeviceHelper::getAddressSpacePageSize(layout.name, device, &pageSize);
            } catch (const std::exception&) {
                pageSize = 0;  // disagreeing segments: treat the memory as unpaged
            }
        }
        // A flash row without pages cannot be erased; give it one page.
        if (layout.kind == KIND_FLASH && pageSize <= 0)
            pageSize = static_cast<int>(space->getSize());
        const size_t index = memories.size();
        addMemory(layout.name, layout.kind, space->getStart(), space->getSize(),
                  static_cast<uint32_t>(std::max(pageSize, 0)), layout.fill);
        addWindowsForAll(layout.types, index);
    }
}

void Tarn8Chip::buildSprig() {
    boost::shared_ptr<DIAddressSpace> data = device->getAddressSpace(ADDRSPACE_DATA);
    if (!data)
        return;
    for (const auto& segment : data->getMemorySegments()) {
        const std::string segmentName = segment->getName();
        const std::string memoryName = boost::algorithm::to_lower_copy(segmentName);
        if (segment->getSize() == 0 || findMemory(memoryName) != npos)
            continue;
        if (segmentName == "MAPPED_PROGMEM") {
            // The program flash seen through the data space.
            const uint32_t mappedSize = static_cast<uint32_t>(
                std::min<uint64_t>(segment->getSize(), memories[flashIndex].bytes.size()));
            addWindow(MemTypeSram, flashIndex, to32(segment->getStart(), memoryName), mappedSize,
                      0);
            continue;
        }
        Kind kind = KIND_RAM;
        unsigned char fill = 0x00;
        std::vector<int> types = {MemTypeSram};
        if (segmentName == SEGMENT_EEPROM) {
            kind = KIND_EEPROM;
            fill = 0xFF;
            types = {MemTypeSram, MemTypeEeprom, MemTypeEepromWrite, MemTypeEepromPage};
        } else if (segmentName == SEGMENT_FUSES) {
            fill = 0xFF;
            types = {MemTypeSram, MemTypeFuses};
        } else if (segmentName == SEGMENT_LOCKBITS) {
            fill = 0xFF;
            types = {MemTypeSram, MemTypeLockbits};
        } else if (segmentName == SEGMENT_SIGNATURES) {
            kind = KIND_ROM;
            fill = 0xFF;
            types = {MemTypeSram, MemTypeSignature};
        } else if (segmentName == SEGMENT_PROD_SIGNATURES) {
            kind = KIND_ROM;
            fill = 0xFF;
            types = {MemTypeSram, MemTypeProductionSignature};
        } else if (segmentName == SEGMENT_USER_SIGNATURES) {
            kind = KIND_FLASH;
            fill = 0xFF;
            types = {MemTypeSram, MemTypeUserSignature};
        }
        uint32_t pageSize = segment->getPageSize();
        if (kind == KIND_FLASH && pageSize == 0)
            pageSize = to32(segment->getSize(), memoryName);
        const size_t index = memories.size();
        addMemory(memoryName, kind, segment->getStart(), segment->getSize(), pageSize, fill);
        addWindowsForAll(types, index);
    }
}

void Tarn8Chip::presetSignature() {
    const size_t index = sprig ? findMemory("signatures") : findMemory(ADDRSPACE_SIGNATURES);
    DeviceId id;
    if (index == npos || !DIDeviceHelper::getDeviceId(device, id))
        return;
    Memory& memory = memories[index];
    const unsigned char bytes[3] = {static_cast<unsigned char>(id.signature >> 16),
                                    static_cast<unsigned char>(id.signature >> 8),
                                    static_cast<unsigned char>(id.signature)};
    for (size_t i = 0; i < 3 && i < memory.bytes.size(); ++i)
        memory.bytes[i] = bytes[i];
}

void Tarn8Chip::presetDefaults() {
    boost::shared_ptr<DIPropertyGroup> defaults = device->getPropertyGroup("DEFAULTS");
    if (!defaults)
        return;
    const size_t fuses = findMemory("fuses");
    const size_t lockbits = findMemory("lockbits");
    const size_t osccal = findMemory("osccal");
    boost::shared_ptr<DIModule> fuseModule = device->getModule("FUSE");
    boost::shared_ptr<DIRegisterGroup> fuseGroup =
        fuseModule ? fuseModule->getRegisterGroup("FUSE") : boost::shared_ptr<DIRegisterGroup>();
    auto setByte = [this](size_t memory, uint64_t offset, uint32_t value) {
        if (memory != npos && offset < memories[memory].bytes.size())
            memories[memory].bytes[offset] = static_cast<unsigned char>(value);
    };
    const std::string fusePrefix = "FUSE_";
    for (const auto& property : defaults->getProperties()) {
        const std::string key = property->getName();
        const uint32_t value = property->getUint32Value();
        if (key == "LOCKBIT") {
            setByte(lockbits, 0, value);
        } else if (key == "OSCCAL") {
            setByte(osccal, 0, value);
        } else if (key.compare(0, fusePrefix.size(), fusePrefix) == 0 && fuseGroup) {
            // FUSE_<name> names the fuse register <name> or FUSE<name>.
            const std::string fuse = key.substr(fusePrefix.size());
            boost::shared_ptr<DIRegister> reg = fuseGroup->getRegister(fuse);
            if (!reg)
                reg = fuseGroup->getRegister("FUSE" + fuse);
            if (reg)
                setByte(fuses, reg->getOffset(), value);
        }
    }
}

void Tarn8Chip::addMemory(const std::string& name, Kind kind, uint64_t start, uint64_t size,
                          uint32_t pageSize, unsigned char fill) {
    Memory memory;
    memory.name = name;
    memory.kind = kind;
    memory.start = to32(start, name);
    to32(start + size, name);
    memory.pageSize = pageSize;
    memory.bytes.assign(static_cast<size_t>(size), fill);
    memories.push_back(memory);
}

void Tarn8Chip::addWindow(int type, size_t memory, uint32_t start, uint32_t size,
                          uint32_t memoryOffset) {
    Window window;
    window.type = type;
    window.start = start;
    window.size = size;
    window.memory = memory;
    window.memoryOffset = memoryOffset;
    windows.push_back(window);
}

void Tarn8Chip::addWindowsForAll(const std::vector<int>& types, size_t memory) {
    const Memory& m = memories[memory];
    for (int type : types)
        addWindow(type, memory, m.start, static_cast<uint32_t>(m.bytes.size()), 0);
}

size_t Tarn8Chip::findMemory(const std::string& name) const {
    for (size_t i = 0; i < memories.size(); ++i)
        if (memories[i].name == name)
            return i;
    return npos;
}

const Tarn8Chip::Window& Tarn8Chip::resolve(int type, uint32_t address, uint32_t size,
                                            const char* what) const {
    bool typeKnown = false;
    for (const Window& window : windows) {
        if (window.type != type)
            continue;
        typeKnown = true;
        const uint64_t end = static_cast<uint64_t>(address) + size;
        if (address >= window.start && end <= static_cast<uint64_t>(window.start) + window.size)
            return window;
    }
    if (!typeKnown)
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                      "Tarn8Chip: %s with memory type %d, which this chip does "
                                      "not have.",
                                      what, type);
    CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                  "Tarn8Chip: %s of %u bytes at 0x%x with memory type %d lies "
                                  "outside the memory.",
                                  what, size, address, type);
}

void Tarn8Chip::checkLimit(int type, unsigned int size) const {
    unsigned int limit = std::max(pagedMax, plainMax);
    if (type == MemTypeSram)
        limit = plainMax;
    else if (isPagedType(type))
        limit = pagedMax;
    if (size > limit)
        CoreException::createAndThrow("", ERR_OPERATION_FAILED,
                                      "Tarn8Chip: transfer of %u bytes with memory type %d "
                                      "exceeds the limit of %u bytes.",
                                      size, type, limit);
}

ITarn8Target::TransferLimits Tarn8Chip::getMemoryTransferLimits() {
    return TransferLimits(pagedMax, plainMax);
}

void Tarn8Chip::setTransferLimits(unsigned int paged, unsigned int plain) {
    pagedMax = paged;
    plainMax = plain;
}

void Tarn8Chip::readMemory(MemoryType type, unsigned int address, unsigned int size,
                           std::vector<unsigned char>::iterator data) {
    checkLimit(type, size);
    const Window& window = resolve(type, address, size, "read");
    const Memory& memory = memories[window.memory];
    const uint32_t offset = window.memoryOffset + (address - window.start);
    std::copy_n(memory.bytes.begin() + offset, size, data);
    ++counters.readCalls;
    counters.bytesRead += size;
    if (recording)
        calls.push_back(Call{OP_READ, type, address, size, memory.name, offset});
}

void Tarn8Chip::writeMemory(MemoryType type, unsigned int address, unsigned int size,
                            std::vector<unsigned char>::const_iterator data) {
    checkLimit(type, size);
    const Window& window = resolve(type, address, size, "write");
    Memory& memory = memories[window.memory];
    const uint32_t offset = window.memoryOffset + (address - window.start);
    switch (memory.kind) {
    case KIND_ROM:
        CoreException::createAndThrow("", ERR_ACCESS_REFUSED,
                                      "Tarn8Chip: the %s row is read-only.", memory.name.c_str());
    case KIND_FLASH:
        if (size != 0 && memory.pageSize != 0 &&
            offset / memory.pageSize != (offset + size - 1) / memory.pageSize)
            CoreException::createAndThrow("", ERR_OPERATION_FAILED,
                                          "Tarn8Chip: a %s write of %u bytes at 0x%x crosses a "
                                          "page boundary.",
                                          memory.name.c_str(), size, address);
        for (uint32_t i = 0; i < size; ++i)
            memory.bytes[offset + i] &= data[i];
        break;
    case KIND_EEPROM:
    case KIND_RAM:
        std::copy_n(data, size, memory.bytes.begin() + offset);
        break;
    }
    ++counters.writeCalls;
    counters.bytesWritten += size;
    if (recording)
        calls.push_back(Call{OP_WRITE, type, address, size, memory.name, offset});
}

void Tarn8Chip::eraseMemoryPage(int eraseKind, unsigned int address) {
    int type;
    switch (eraseKind) {
    case 4: type = MemTypeApplication; break;
    case 5: type = MemTypeBoot; break;
    case 6: type = MemTypeEeprom; break;
    case 7: type = MemTypeUserSignature; break;
    default:
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED, "Tarn8Chip: unknown erase kind %d.",
                                      eraseKind);
    }
    const Window& window = resolve(type, address, 1, "page erase");
    erasePage(window.memory, window.memoryOffset + (address - window.start),
              OP_ERASE_MEMORY_PAGE, eraseKind, address);
}

void Tarn8Chip::eraseFlashPage(unsigned int address) {
    const Window& window = resolve(MemTypeFlash, address, 1, "flash page erase");
    erasePage(window.memory, window.memoryOffset + (address - window.start), OP_ERASE_FLASH_PAGE,
              -1, address);
}

void Tarn8Chip::erasePage(size_t index, uint32_t offset, Operation operation, int kind,
                          uint32_t address) {
    Memory& memory = memories[index];
    if (memory.kind != KIND_FLASH && memory.kind != KIND_EEPROM)
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                      "Tarn8Chip: the %s memory has no page erase.",
                                      memory.name.c_str());
    const uint32_t pageSize = memory.pageSize ? memory.pageSize : 1;
    const uint32_t first = offset - offset % pageSize;
    const uint32_t count =
        static_cast<uint32_t>(std::min<size_t>(pageSize, memory.bytes.size() - first));
    std::fill_n(memory.bytes.begin() + first, count, 0xFF);
    ++counters.eraseCalls;
    counters.bytesErased += count;
    if (recording)
        calls.push_back(Call{operation, kind, address, count, memory.name, first});
}

std::vector<std::string> Tarn8Chip::getMemoryNames() const {
    std::vector<std::string> names;
    for (const Memory& memory : memories)
        names.push_back(memory.name);
    return names;
}

bool Tarn8Chip::hasMemory(const std::string& name) const { return findMemory(name) != npos; }

const Tarn8Chip::Memory& Tarn8Chip::getMemory(const std::string& name) const {
    const size_t index = findMemory(name);
    if (index == npos)
        CoreException::createAndThrow("", ERR_NOT_FOUND, "Tarn8Chip: no memory named %s.",
                                      name.c_str());
    return memories[index];
}

std::vector<unsigned char> Tarn8Chip::peek(const std::string& name, uint32_t offset,
                                           uint32_t size) const {
    const Memory& memory = getMemory(name);
    if (static_cast<uint64_t>(offset) + size > memory.bytes.size())
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "Tarn8Chip: %u bytes at offset 0x%x lie outside %s.", size,
                                      offset, name.c_str());
    return std::vector<unsigned char>(memory.bytes.begin() + offset,
                                      memory.bytes.begin() + offset + size);
}

void Tarn8Chip::poke(const std::string& name, uint32_t offset,
                     const std::vector<unsigned char>& data) {
    const size_t index = findMemory(name);
    if (index == npos)
        CoreException::createAndThrow("", ERR_NOT_FOUND, "Tarn8Chip: no memory named %s.",
                                      name.c_str());
    Memory& memory = memories[index];
    if (static_cast<uint64_t>(offset) + data.size() > memory.bytes.size())
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "Tarn8Chip: %zu bytes at offset 0x%x lie outside %s.",
                                      data.size(), offset, name.c_str());
    std::copy(data.begin(), data.end(), memory.bytes.begin() + offset);
}

void Tarn8Chip::fill(const std::string& name, unsigned char value) {
    const size_t index = findMemory(name);
    if (index == npos)
        CoreException::createAndThrow("", ERR_NOT_FOUND, "Tarn8Chip: no memory named %s.",
                                      name.c_str());
    std::fill(memories[index].bytes.begin(), memories[index].bytes.end(), value);
}

void Tarn8Chip::chipErase() {
    for (Memory& memory : memories)
        if (memory.kind == KIND_FLASH && memory.name == ADDRSPACE_PROG)
            std::fill(memory.bytes.begin(), memory.bytes.end(), 0xFF);
}

uint32_t Tarn8Chip::getFlashPageSize() const { return memories[flashIndex].pageSize; }

void Tarn8Chip::resetCounters() { counters = Counters(); }

std::vector<unsigned int> Tarn8Chip::writesPerPage(const std::string& name) const {
    const Memory& memory = getMemory(name);
    const uint32_t pageSize = memory.pageSize ? memory.pageSize : 1;
    std::vector<unsigned int> pages((memory.bytes.size() + pageSize - 1) / pageSize, 0);
    for (const Call& call : calls) {
        if (call.operation != OP_WRITE || call.memory != name || call.size == 0)
            continue;
        for (uint32_t page = call.offset / pageSize; page <= (call.offset + call.size - 1) / pageSize;
             ++page)
            ++pages[page];
    }
    return pages;
}
