#include "nvmchip.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"

#include <algorithm>

namespace {

const unsigned REGISTER_SPAN = 0x100;
const unsigned LOCK_OFFSET = 0x20;
const unsigned CTRLC_OFFSET = 8;
const uint64_t DAL_ADDRESS = 0x41002102;
const uint64_t HLX7_BASES[2] = {0x41004000, 0x41005000};
const int NONE = -1;

std::string hex(uint64_t value) {
    char text[24];
    snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

// Everything in which the three blocks differ, in one place.
struct NvmChip::Profile {
    unsigned readyOffset;
    uint32_t readyMask;
    unsigned errorOffset;
    uint32_t doneFlag;  // set when a command completes; 0: none
    // Error flags in the error register; the plain block adds the status
    // register bits below.
    uint32_t addressFlag, programFlag, lockFlag, nvmFlag, keyFlag;
    unsigned addressOffset;
    unsigned addressShift;  // the plain block counts 16-bit words
    unsigned flashUnitPages, rwwUnitPages, auxUnitPages;
    int eraseFlash, eraseRww, eraseAux;
    int lock, unlock, unlockAlso, security1, security2;
};

const NvmChip::Profile* NvmChip::profileOf(Block block) {
    auto make = [](unsigned readyOffset, uint32_t readyMask, unsigned errorOffset) {
        Profile p{};
        p.readyOffset = readyOffset;
        p.readyMask = readyMask;
        p.errorOffset = errorOffset;
        p.lock = p.unlockAlso = p.security2 = NONE;
        return p;
    };
    static const Profile plain = [&] {
        Profile p = make(0x14, 0x01, 0x14);  // ready and error bits share INTFLAG
        p.addressFlag = p.programFlag = p.lockFlag = p.nvmFlag = p.keyFlag = 0x02;
        p.addressOffset = 0x1C;
        p.addressShift = 1;
        p.flashUnitPages = p.rwwUnitPages = p.auxUnitPages = 4;
        p.eraseFlash = 0x02, p.eraseRww = 0x1A, p.eraseAux = 0x05;
        p.lock = 0x40, p.unlock = 0x41, p.security1 = 0x45;
        return p;
    }();
    static const Profile u2409 = [&] {
        Profile p = make(0x12, 0x01, 0x10);
        p.doneFlag = 0x01;
        p.addressFlag = 0x02, p.programFlag = p.keyFlag = 0x04, p.lockFlag = 0x08;
        p.nvmFlag = 0x40;
        p.addressOffset = 0x14;
        p.flashUnitPages = p.rwwUnitPages = 16;
        p.auxUnitPages = 1;
        p.eraseFlash = 0x01, p.eraseRww = 0x1A, p.eraseAux = 0x00;
        p.lock = 0x40, p.unlock = 0x41, p.unlockAlso = 0x12, p.security1 = 0x16;
        return p;
    }();
    static const Profile u2802 = [&] {
        Profile p = make(0x18, 0x04, 0x14);
        p.doneFlag = 0x01;
        p.addressFlag = p.programFlag = 0x02, p.lockFlag = 0x04, p.nvmFlag = 0x08;
        p.keyFlag = 0x10;
        p.addressOffset = 0x1C;
        p.flashUnitPages = p.rwwUnitPages = p.auxUnitPages = 4;
        p.eraseFlash = p.eraseRww = p.eraseAux = 0x02;
        p.unlock = 0x41, p.security1 = 0x4B, p.security2 = 0x4C;
        return p;
    }();
    return block == BLOCK_U2409 ? &u2409 : block == BLOCK_U2802 ? &u2802 : &plain;
}

namespace {

// Status register of the plain block: PROGE, LOCKE, NVME, write-one-to-clear.
const unsigned PLAIN_STATUS = 0x18;
const uint32_t PLAIN_PROGE = 0x04, PLAIN_LOCKE = 0x08, PLAIN_NVME = 0x10;

}  // namespace

uint64_t NvmChip::Counters::commandCount(unsigned code) const {
    auto it = commands.find(code);
    return it == commands.end() ? 0 : it->second;
}

NvmChip::NvmChip(boost::shared_ptr<DIDevice> device) : device(device) {
    if (!device)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT, "NvmChip: no device given.");
    boost::shared_ptr<DIModule> module = device->getModule("NVMCTRL");
    boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace("base");
    boost::shared_ptr<DIMemorySegment> flash = base ? base->getMemorySegment("FLASH") : nullptr;
    boost::shared_ptr<DIRegisterGroup> group =
        module ? module->getRegisterGroup("NVMCTRL") : nullptr;
    if (!flash || !group || flash->getPageSize() == 0 || flash->getSize() > 0xFFFFFFFFull)
        CoreException::createAndThrow("", ERR_DEVICE_INFO,
                                      "NvmChip: %s has no NVMCTRL register group or no paged "
                                      "FLASH segment in \"base\".",
                                      device->getName().c_str());
    boost::shared_ptr<DIModule> definition = module->getDefinition();
    const std::string id = definition ? definition->getModuleId() : module->getModuleId();
    block = id == "U2409" ? BLOCK_U2409 : id == "U2802" ? BLOCK_U2802 : BLOCK_PLAIN;
    profile = profileOf(block);

    flashStart = flash->getStart();
    flashSize = uint32_t(flash->getSize());
    const std::string rwwName = block == BLOCK_U2802 ? "DATAFLASH" : "RWW";
    std::vector<boost::shared_ptr<DIMemorySegment>> rows = base->getMemorySegmentsByType("aux");
    for (const auto& userPage : base->getMemorySegmentsByType("user_page"))
        rows.push_back(userPage);
    for (const auto& segment : base->getMemorySegments()) {
        RegionKind kind;
        if (segment->getName() == "FLASH")
            kind = REGION_FLASH;
        else if (segment->getName() == rwwName)
            kind = REGION_RWW;
        else if (std::find(rows.begin(), rows.end(), segment) != rows.end())
            kind = REGION_AUX;
        else
            continue;
        Region region;
        region.name = segment->getName();
        region.kind = kind;
        region.start = segment->getStart();
        region.pageSize = segment->getPageSize() ? segment->getPageSize() : flash->getPageSize();
        region.bytes.assign(size_t(segment->getSize()), 0xFF);
        regions.push_back(region);
    }
    uint32_t largestPage = 0;
    for (const Region& region : regions) largestPage = std::max(largestPage, region.pageSize);
    pageBuffer.assign(largestPage, 0xFF);

    if (block == BLOCK_U2802) {
        registerBases[0] = HLX7_BASES[0];
        registerBases[1] = HLX7_BASES[1];
    } else {
        registerBases[0] = registerBases[1] = group->getAddress();
    }
    // The roles of CTRLA and CTRLB are swapped on U2409.
    const std::string commandName = block == BLOCK_U2409 ? "CTRLB" : "CTRLA";
    const std::string configName = block == BLOCK_U2409 ? "CTRLA" : "CTRLB";
    for (const auto& reg : group->getRegisters()) {
        if (reg->getOffset() + reg->getByteSize() > REGISTER_SPAN) continue;
        if (reg->getName() == commandName) {
            commandOffset = unsigned(reg->getOffset());
            commandWidth = reg->getByteSize();
        } else if (reg->getName() == configName) {
            configOffset = unsigned(reg->getOffset());
            configWidth = reg->getByteSize();
        }
    }
    reset();
}

boost::shared_ptr<NvmChip> NvmChip::fromDeviceFile(const std::string& path) {
    return boost::shared_ptr<NvmChip>(new NvmChip(DeviceFile::load(path)));
}

void NvmChip::reset() {
    registers.assign(REGISTER_SPAN, 0);
    std::fill(pageBuffer.begin(), pageBuffer.end(), 0xFF);
    busyPollsLeft = 0;
    stuckBusy = false;
    failCommandIn = failProgramIn = 0;
    latchedAddress = 0;
    // Reset configurations: manual write mode, wait states 2.
    switch (block) {
        case BLOCK_PLAIN:
            setReg(configOffset, configWidth, 0x84);  // MANW, RWS
            break;
        case BLOCK_U2409:
            setReg(configOffset, configWidth, 0x0204);  // RWS, AUTOWS, WMODE manual
            break;
        case BLOCK_U2802:
            setReg(configOffset, configWidth, 0x04);  // RWS
            setReg(CTRLC_OFFSET, 1, 0x01);            // MANW
            break;
    }
    setLockBits(lockBits);
}

void NvmChip::setBusyPolls(unsigned afterCommand, unsigned afterProgram) {
    busyAfterCommand = afterCommand;
    busyAfterProgram = afterProgram;
}

void NvmChip::setLockBits(uint32_t bits) {
    lockBits = getLockRegionCount() == 32 ? bits : bits & 0xFFFF;
    setReg(LOCK_OFFSET, 4, lockBits);
}

uint32_t NvmChip::reg(unsigned offset, unsigned width) const {
    uint32_t value = 0;
    for (unsigned i = 0; i < width && i < 4 && offset + i < REGISTER_SPAN; ++i)
        value |= uint32_t(registers[offset + i]) << (8 * i);
    return value;
}

void NvmChip::setReg(unsigned offset, unsigned width, uint32_t value) {
    for (unsigned i = 0; i < width && i < 4 && offset + i < REGISTER_SPAN; ++i)
        registers[offset + i] = (unsigned char)(value >> (8 * i));
}

uint64_t NvmChip::getRegisterBase() const {
    return registerBases[block == BLOCK_U2802 && debugAccessLevel != 1 ? 1 : 0];
}

uint32_t NvmChip::peekRegister(unsigned offset, unsigned width) const {
    uint32_t value = reg(offset, width);
    if (offset <= profile->readyOffset && profile->readyOffset < offset + width && !busy())
        value |= profile->readyMask << (8 * (profile->readyOffset - offset));
    return value;
}

bool NvmChip::inManualWriteMode() const {
    switch (block) {
        case BLOCK_PLAIN:
            return reg(configOffset, configWidth) & 0x80;
        case BLOCK_U2409:
            return ((reg(configOffset, configWidth) >> 4) & 3) == 0;
        default:
            return reg(CTRLC_OFFSET, 1) & 0x01;
    }
}

uint32_t NvmChip::automaticWriteUnit(const Region& region) const {
    if (inManualWriteMode()) return 0;
    if (block != BLOCK_U2409) return region.pageSize;
    if (region.kind == REGION_AUX) return 16;
    switch ((reg(configOffset, configWidth) >> 4) & 3) {
        case 1:
            return 8;
        case 2:
            return 16;
        default:
            return region.pageSize;
    }
}

uint32_t NvmChip::getErrorFlags() const {
    const Profile& p = *profile;
    uint32_t mask = p.addressFlag | p.programFlag | p.lockFlag | p.nvmFlag | p.keyFlag;
    return reg(p.errorOffset, 2) & mask;
}

// ---- memories ----

NvmChip::Region* NvmChip::findRegion(uint64_t address, uint32_t size) {
    return const_cast<Region*>(static_cast<const NvmChip*>(this)->findRegion(address, size));
}

const NvmChip::Region* NvmChip::findRegion(uint64_t address, uint32_t size) const {
    for (const Region& region : regions) {
        if (address >= region.start && address - region.start < region.bytes.size() &&
            size <= region.bytes.size() - (address - region.start))
            return &region;
    }
    return nullptr;
}

std::vector<std::string> NvmChip::getRegionNames() const {
    std::vector<std::string> names;
    for (const Region& region : regions) names.push_back(region.name);
    return names;
}

const NvmChip::Region& NvmChip::getRegion(const std::string& name) const {
    for (const Region& region : regions) {
        if (region.name == name) return region;
    }
    CoreException::createAndThrow("", ERR_NOT_FOUND, "NvmChip: no memory named '%s'.",
                                  name.c_str());
}

std::vector<unsigned char> NvmChip::getRegionBytes(const std::string& name) const {
    return getRegion(name).bytes;
}

void NvmChip::setRegionBytes(const std::string& name, const std::vector<unsigned char>& bytes) {
    Region& region = const_cast<Region&>(getRegion(name));
    if (bytes.size() != region.bytes.size())
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "NvmChip: memory '%s' holds %zu bytes, not %zu.",
                                      name.c_str(), region.bytes.size(), bytes.size());
    region.bytes = bytes;
}

std::vector<unsigned char> NvmChip::peek(uint64_t address, uint32_t size) const {
    const Region* region = findRegion(address, size);
    if (!region)
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "NvmChip: 0x%llx+0x%x is not inside one NVM memory.",
                                      (unsigned long long)address, size);
    auto from = region->bytes.begin() + (address - region->start);
    return std::vector<unsigned char>(from, from + size);
}

void NvmChip::poke(uint64_t address, const std::vector<unsigned char>& bytes) {
    Region* region = findRegion(address, uint32_t(bytes.size()));
    if (!region)
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "NvmChip: 0x%llx+0x%zx is not inside one NVM memory.",
                                      (unsigned long long)address, bytes.size());
    std::copy(bytes.begin(), bytes.end(), region->bytes.begin() + (address - region->start));
}

void NvmChip::eraseAll() {
    for (Region& region : regions) std::fill(region.bytes.begin(), region.bytes.end(), 0xFF);
}

// ---- the bus ----

bool NvmChip::isRegisterBase(uint64_t address, unsigned* which) const {
    for (unsigned i = 0; i < 2; ++i) {
        if (address >= registerBases[i] && address - registerBases[i] < REGISTER_SPAN) {
            *which = i;
            return true;
        }
    }
    return false;
}

void NvmChip::read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
                   boost::shared_ptr<MemoryError>, IIntermediateResult*) {
    unsigned which = 0;
    if (block == BLOCK_U2802 && address == DAL_ADDRESS && size == 1) {
        *data = (unsigned char)debugAccessLevel;
    } else if (isRegisterBase(address, &which) &&
               address - registerBases[which] + size <= REGISTER_SPAN) {
        if (registerBases[which] != getRegisterBase()) {
            violation("register read at " + hex(address) + " while the access level selects " +
                      hex(getRegisterBase()));
            std::fill(data, data + size, 0);
        } else {
            readRegisters(unsigned(address - registerBases[which]), size, data);
        }
    } else if (const Region* region = findRegion(address, size)) {
        std::copy_n(region->bytes.begin() + (address - region->start), size, data);
    } else {
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "NvmChip: nothing to read at 0x%llx+0x%x.",
                                      (unsigned long long)address, size);
    }
    ++counters.readCalls;
    counters.bytesRead += size;
}

void NvmChip::write(uint64_t address, unsigned int size,
                    std::vector<unsigned char>::const_iterator data, boost::shared_ptr<MemoryError>,
                    IIntermediateResult*, bool) {
    unsigned which = 0;
    if (isRegisterBase(address, &which) && address - registerBases[which] + size <= REGISTER_SPAN) {
        if (registerBases[which] != getRegisterBase())
            violation("register write at " + hex(address) + " while the access level selects " +
                      hex(getRegisterBase()));
        else
            writeRegisters(unsigned(address - registerBases[which]), size, data);
    } else if (Region* region = findRegion(address, size)) {
        writeMemory(*region, address, size, data);
    } else {
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "NvmChip: nothing to write at 0x%llx+0x%x.",
                                      (unsigned long long)address, size);
    }
    ++counters.writeCalls;
    counters.bytesWritten += size;
}

void NvmChip::readRegisters(unsigned offset, unsigned size,
                            std::vector<unsigned char>::iterator data) {
    const bool poll = offset <= profile->readyOffset && profile->readyOffset < offset + size;
    std::copy_n(registers.begin() + offset, size, data);
    if (!poll) return;
    ++counters.polls;
    if (!busy())
        data[profile->readyOffset - offset] |= (unsigned char)profile->readyMask;
    else if (!stuckBusy)
        --busyPollsLeft;
}

void NvmChip::writeRegisters(unsigned offset, unsigned size,
                             std::vector<unsigned char>::const_iterator data) {
    const unsigned end = offset + size;
    if (offset < commandOffset + commandWidth && commandOffset < end) {
        if (offset != commandOffset || size != commandWidth) {
            violation("command register written in pieces: " + std::to_string(size) +
                      " bytes at offset " + hex(offset));
            return;
        }
        uint32_t value = 0;
        for (unsigned i = 0; i < size && i < 4; ++i) value |= uint32_t(data[i]) << (8 * i);
        execute(value);
        return;
    }
    const Profile& p = *profile;
    const uint32_t configBefore = reg(configOffset, configWidth);
    const uint32_t ctrlcBefore = reg(CTRLC_OFFSET, 1);
    for (unsigned i = 0; i < size; ++i) {
        const unsigned at = offset + i;
        const unsigned char byte = data[i];
        unsigned char& cell = registers[at];
        if (at >= LOCK_OFFSET && at < LOCK_OFFSET + 4)
            continue;  // lock bits change through commands only
        // Error (and done) flags are write-one-to-clear; the ready bit is read-only.
        uint32_t clearable = 0;
        if (at >= p.errorOffset && at < p.errorOffset + 2)
            clearable =
                (p.addressFlag | p.programFlag | p.lockFlag | p.nvmFlag | p.keyFlag | p.doneFlag) >>
                (8 * (at - p.errorOffset));
        if (block == BLOCK_PLAIN && at == PLAIN_STATUS)
            clearable = PLAIN_PROGE | PLAIN_LOCKE | PLAIN_NVME;
        bool readOnly = at == p.readyOffset || (block == BLOCK_PLAIN && at == PLAIN_STATUS + 1);
        if (clearable || readOnly) {
            cell &= (unsigned char)~(byte & clearable);
            continue;
        }
        cell = byte;
    }
    if (offset < p.addressOffset + 4 && p.addressOffset < end)
        latchedAddress = uint64_t(reg(p.addressOffset, 4)) << p.addressShift;
    if (reg(configOffset, configWidth) != configBefore)
        record(Event::REGISTER_WRITE, configOffset, reg(configOffset, configWidth));
    if (block == BLOCK_U2802 && reg(CTRLC_OFFSET, 1) != ctrlcBefore)
        record(Event::REGISTER_WRITE, CTRLC_OFFSET, reg(CTRLC_OFFSET, 1));
}

void NvmChip::writeMemory(Region& region, uint64_t address, unsigned size,
                          std::vector<unsigned char>::const_iterator data) {
    const uint32_t unit = automaticWriteUnit(region);
    for (unsigned i = 0; i < size; ++i) {
        if (busy()) {
            violation("data write at " + hex(address + i) + " while busy");
            return;
        }
        const uint64_t offset = address + i - region.start;
        latchedAddress = (address + i) & ~uint64_t(3);  // the word written
        pageBuffer[offset % region.pageSize] = data[i];
        if (unit != 0 && (offset + 1) % unit == 0) programBuffer(region, offset + 1 - unit, unit);
    }
    setReg(profile->addressOffset, 4, uint32_t(latchedAddress >> profile->addressShift));
}

void NvmChip::programBuffer(Region& region, uint64_t unitOffset, uint32_t unitSize) {
    const uint32_t inPage = uint32_t(unitOffset % region.pageSize);
    auto restoreBuffer = [&] {
        std::fill_n(pageBuffer.begin() + inPage, unitSize, (unsigned char)0xFF);
    };
    if (regionLocked(region, region.start + unitOffset, unitSize)) {
        raise(FAULT_LOCK);
        restoreBuffer();
        return;
    }
    busyPollsLeft = busyAfterProgram;
    if (failProgramIn != 0 && --failProgramIn == 0) {
        raise(FAULT_NVM);
        restoreBuffer();
        return;
    }
    for (uint32_t i = 0; i < unitSize; ++i) region.bytes[unitOffset + i] &= pageBuffer[inPage + i];
    restoreBuffer();
    ++counters.pagesProgrammed;
    record(Event::PAGE_PROGRAM, 0, region.start + unitOffset);
}

bool NvmChip::regionLocked(const Region& region, uint64_t address, uint32_t size) const {
    if (region.kind != REGION_FLASH || size == 0) return false;
    const uint64_t count = getLockRegionCount();
    const uint64_t first = (address - flashStart) * count / flashSize;
    const uint64_t last = (address + size - 1 - flashStart) * count / flashSize;
    for (uint64_t i = first; i <= last && i < count; ++i) {
        if (!(lockBits & (1u << i))) return true;
    }
    return false;
}

void NvmChip::raise(Fault fault) {
    const Profile& p = *profile;
    const uint32_t flag[] = {p.addressFlag, p.programFlag, p.lockFlag, p.nvmFlag, p.keyFlag};
    setReg(p.errorOffset, 2, reg(p.errorOffset, 2) | flag[fault]);
    if (block == BLOCK_PLAIN) {
        const uint32_t status[] = {PLAIN_PROGE, PLAIN_PROGE, PLAIN_LOCKE, PLAIN_NVME, PLAIN_PROGE};
        setReg(PLAIN_STATUS, 1, reg(PLAIN_STATUS, 1) | status[fault]);
    }
}

void NvmChip::execute(unsigned value) {
    if (busy()) {
        violation("command " + hex(value) + " while busy");
        return;
    }
    const Profile& p = *profile;
    if (((value >> 8) & 0xFF) != 0xA5) {
        ++counters.commandsRefused;
        raise(FAULT_KEY);
        return;
    }
    const int code = int(value & 0x7F);
    ++counters.commands[unsigned(code)];
    record(Event::COMMAND, unsigned(code), latchedAddress);
    busyPollsLeft = busyAfterCommand;
    if (failCommandIn != 0 && --failCommandIn == 0) {
        ++counters.commandsRefused;
        raise(FAULT_NVM);
        return;
    }
    Region* region = findRegion(latchedAddress, 1);
    Fault fault = FAULT_PROGRAM;
    auto isIn = [&](RegionKind kind) { return region && region->kind == kind; };
    auto erase = [&](bool addressFits, unsigned pages) {
        if (!addressFits) {
            fault = FAULT_ADDRESS;
            return false;
        }
        if (regionLocked(*region, latchedAddress, 1)) {
            fault = FAULT_LOCK;
            return false;
        }
        eraseUnit(*region, latchedAddress, pages * region->pageSize);
        return true;
    };
    auto setLock = [&](bool unlocked) {
        if (!isIn(REGION_FLASH)) {
            fault = FAULT_ADDRESS;
            return false;
        }
        const unsigned index =
            unsigned((latchedAddress - flashStart) * getLockRegionCount() / flashSize);
        setLockBits(unlocked ? lockBits | (1u << index) : lockBits & ~(1u << index));
        return true;
    };
    bool ok = false;
    if (block == BLOCK_U2802 && code == p.eraseFlash)
        ok = erase(region != nullptr, p.flashUnitPages);  // one code for every NVM memory
    else if (code == p.eraseFlash)
        ok = erase(isIn(REGION_FLASH), p.flashUnitPages);
    else if (code == p.eraseRww)
        ok = erase(isIn(REGION_RWW), p.rwwUnitPages);
    else if (code == p.eraseAux)
        ok = erase(isIn(REGION_AUX), p.auxUnitPages);
    else if (code == p.lock)
        ok = setLock(false);
    else if (code == p.unlock || code == p.unlockAlso)
        ok = setLock(true);
    else if (code == p.security1 || code == p.security2) {
        securityLevel = code == p.security2 ? 2 : 1;
        ok = true;
    }
    if (!ok) {
        ++counters.commandsRefused;
        raise(fault);
        return;
    }
    if (p.doneFlag) setReg(p.errorOffset, 2, reg(p.errorOffset, 2) | p.doneFlag);
}

void NvmChip::eraseUnit(Region& region, uint64_t address, uint32_t unitBytes) {
    const uint64_t offset = address - region.start;
    const uint64_t first = offset - offset % unitBytes;
    const uint64_t last = std::min<uint64_t>(first + unitBytes, region.bytes.size());
    std::fill(region.bytes.begin() + first, region.bytes.begin() + last, 0xFF);
    ++counters.unitsErased;
    record(Event::ERASE, 0, region.start + first);
}

void NvmChip::violation(const std::string& text) {
    violations.push_back(text);
}

void NvmChip::record(Event::Type type, unsigned code, uint64_t address) {
    if (recording) events.push_back(Event{type, code, address});
}
