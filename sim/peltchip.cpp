#include "peltchip.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/stringconstants.h"

#include <boost/format.hpp>

#include <algorithm>
#include <fstream>
#include <istream>
#include <ostream>
#include <sstream>

namespace {

// The controller maps its user page this far above the flash start.
const uint64_t USER_PAGE_OFFSET = 0x800000;
const unsigned int LOCK_REGIONS = 16;
const char* const STATE_MAGIC = "PeltChip state 1";

std::string hex(uint64_t value) {
    return (boost::format("0x%x") % value).str();
}

[[noreturn]] void deviceError(const boost::shared_ptr<DIDevice>& device, const std::string& what) {
    CoreException::createAndThrow("", ERR_DEVICE_INFO, "PeltChip: %s %s.",
                                  device->getName().c_str(), what.c_str());
}

bool contains(uint64_t start, uint64_t size, uint64_t address, unsigned int count) {
    return address >= start && address - start <= size && count <= size - (address - start);
}

}  // namespace

PeltChip::PeltChip(boost::shared_ptr<DIDevice> device) : device(device) {
    if (!device)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT, "PeltChip: no device given.");
    boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace(ADDRSPACE_BASE);
    if (!base) deviceError(device, "has no address space \"base\"");
    boost::shared_ptr<DIMemorySegment> segment = base->getMemorySegment("FLASH");
    if (!segment) deviceError(device, "has no segment \"FLASH\"");

    boost::shared_ptr<DIModule> module;
    for (const char* name : {"FLASHC", "FLASHCDW", "HFLASHC"})
        if ((module = device->getModule(name))) break;
    if (!module) deviceError(device, "has no Pelt flash controller module");
    boost::shared_ptr<DIRegisterGroup> group = module->getRegisterGroup(module->getName());
    if (!group) deviceError(device, "has no register group " + module->getName());
    boost::shared_ptr<DIPropertyGroup> properties;
    if (!module->getPropertyGroups().empty()) properties = module->getPropertyGroups().front();
    boost::shared_ptr<DIProperty> property =
        properties ? properties->getProperty("PAGES_PR_REGION") : boost::shared_ptr<DIProperty>();
    if (!property) deviceError(device, "has no property PAGES_PR_REGION");
    pagesPerRegion = property->getUint32Value();

    pageSize = segment->getPageSize();
    if (pageSize == 0 && properties && (property = properties->getProperty("PAGE_SIZE")))
        pageSize = property->getUint32Value();
    const uint64_t size = segment->getSize();
    if (pageSize == 0 || size == 0 || size % pageSize != 0 || size > 0x80000000ull ||
        pagesPerRegion == 0)
        deviceError(device, "has no usable flash geometry");
    const uint64_t pages = size / pageSize;
    if ((pages + pagesPerRegion - 1) / pagesPerRegion > LOCK_REGIONS)
        deviceError(device, "has more flash regions than lock bits");
    flashStart = segment->getStart();
    userPageAddress = flashStart + USER_PAGE_OFFSET;
    flash.assign(size, 0xFF);
    userPage.assign(pageSize, 0xFF);
    pageBuffer.assign(pageSize, 0xFF);

    for (const boost::shared_ptr<DIRegister>& reg : group->getRegisters())
        registers.push_back({reg->getName(), reg->getAddress()});
    for (const char* name : {"FCMD", "FSR", "FGPFRLO"})
        if (!group->getRegister(name)) deviceError(device, std::string("has no register ") + name);
    fcmdAddress = group->getRegister("FCMD")->getAddress();
    fsrAddress = group->getRegister("FSR")->getAddress();
    fuseLoAddress = group->getRegister("FGPFRLO")->getAddress();
    if (boost::shared_ptr<DIRegister> hi = group->getRegister("FGPFRHI"))
        fuseHiAddress = hi->getAddress();

    for (const boost::shared_ptr<DIMemorySegment>& ram : base->getMemorySegmentsByType("ram")) {
        ramStarts.push_back(ram->getStart());
        rams.emplace_back(ram->getSize(), 0x00);
    }
}

boost::shared_ptr<PeltChip> PeltChip::fromDeviceFile(const std::string& path) {
    return boost::shared_ptr<PeltChip>(new PeltChip(DeviceFile::load(path)));
}

// ---- target calls ----

void PeltChip::checkTransfer(const char* what) {
    if (transferFault < 0) return;
    if (transferFault-- > 0) return;
    CoreException::createAndThrow("", ERR_OPERATION_FAILED, "PeltChip: injected %s failure.", what);
}

const PeltChip::Register* PeltChip::findRegister(uint64_t address) const {
    for (const Register& reg : registers)
        if (reg.address == address) return &reg;
    return nullptr;
}

int PeltChip::findRam(uint64_t address, unsigned int size) const {
    for (size_t i = 0; i < rams.size(); ++i)
        if (contains(ramStarts[i], rams[i].size(), address, size)) return static_cast<int>(i);
    return -1;
}

void PeltChip::refuse(uint64_t address, unsigned int size) const {
    for (const Register& reg : registers)
        if (reg.address < address + size && address < reg.address + 4)
            CoreException::createAndThrow(
                "", ERR_ACCESS_REFUSED,
                "PeltChip: register access at %s must be one aligned 4-byte word.",
                hex(address).c_str());
    CoreException::createAndThrow("", ERR_ADDRESS_RANGE, "PeltChip: no memory for %u bytes at %s.",
                                  size, hex(address).c_str());
}

void PeltChip::readMemory(MemoryType, int, uint64_t address, unsigned int size,
                          std::vector<unsigned char>::iterator data) {
    checkTransfer("read");
    ++counters.readCalls;
    if (size == 0) return;
    if (contains(flashStart, flash.size(), address, size) ||
        contains(userPageAddress, userPage.size(), address, size)) {
        const bool inFlash = contains(flashStart, flash.size(), address, size);
        if (busy()) violation("flash read at " + hex(address) + " while the controller is busy");
        const unsigned char* source =
            inFlash ? &flash[address - flashStart] : &userPage[address - userPageAddress];
        std::copy(source, source + size, data);
    } else if (findRegister(address) && size == 4) {
        const uint32_t value = readRegister(address);
        for (int i = 0; i < 4; ++i) data[i] = static_cast<unsigned char>(value >> (8 * i));
    } else {
        const int ram = findRam(address, size);
        if (ram < 0) refuse(address, size);
        const std::vector<unsigned char>& bytes = rams[ram];
        std::copy_n(bytes.begin() + (address - ramStarts[ram]), size, data);
    }
    counters.bytesRead += size;
}

void PeltChip::writeMemory(MemoryType, int, uint64_t address, unsigned int size,
                           std::vector<unsigned char>::const_iterator data) {
    checkTransfer("write");
    ++counters.writeCalls;
    if (size == 0) return;
    if (contains(flashStart, flash.size(), address, size)) {
        loadBuffer(address - flashStart, size, data);
    } else if (contains(userPageAddress, userPage.size(), address, size)) {
        loadBuffer(address - userPageAddress, size, data);
    } else if (findRegister(address) && size == 4) {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value |= uint32_t(data[i]) << (8 * i);
        writeRegister(address, value);
    } else {
        const int ram = findRam(address, size);
        if (ram < 0) refuse(address, size);
        std::copy_n(data, size, rams[ram].begin() + (address - ramStarts[ram]));
    }
    counters.bytesWritten += size;
}

void PeltChip::loadBuffer(uint64_t offset, unsigned int size,
                          std::vector<unsigned char>::const_iterator data) {
    if (busy()) violation("page buffer written while the controller is busy");
    if (bufferUsed) violation("page buffer loaded again after a page write without clearing it");
    const uint32_t inPage = static_cast<uint32_t>(offset % pageSize);
    if (inPage + uint64_t(size) > pageSize)
        violation("a write of " + std::to_string(size) + " bytes at offset " + hex(offset) +
                  " crosses a page boundary of the page buffer");
    // The buffer is addressed by the low address bits only, so a write that
    // runs past its end wraps around inside it, as on the real part.
    for (unsigned int i = 0; i < size; ++i) pageBuffer[(inPage + i) % pageSize] = data[i];
    counters.bufferBytesLoaded += size;
}

// ---- registers ----

uint64_t PeltChip::getRegisterAddress(const std::string& name) const {
    for (const Register& reg : registers)
        if (reg.name == name) return reg.address;
    CoreException::createAndThrow("", ERR_NOT_FOUND, "PeltChip: no register named %s.",
                                  name.c_str());
}

uint32_t PeltChip::flashSizeCode() const {
    static const uint32_t kib[] = {32, 64, 128, 256, 384, 512, 768, 1024};
    for (uint32_t code = 0; code < 8; ++code)
        if (flash.size() == kib[code] * 1024) return code;
    return 0;
}

uint32_t PeltChip::readRegister(uint64_t address) {
    if (address == fsrAddress) {
        ++counters.statusReads;
        bool ready = !stuckBusy;
        if (ready && busyRemaining > 0) {
            --busyRemaining;
            ready = false;
        }
        uint32_t status = errorFlags | (uint32_t(lockBits) << 16) | (flashSizeCode() << 13);
        if (ready) status |= FSR_FRDY;
        if (secure) status |= FSR_SECURITY;
        if (quickReadBlank) status |= FSR_QPRR;
        errorFlags = 0;
        return status;
    }
    if (address == fcmdAddress) return lastCommand;
    if (address == fuseLoAddress) return fuseLo;
    if (fuseHiAddress != 0 && address == fuseHiAddress) return fuseHi;
    if (findRegister(address)->name == "FCR") return fcr;
    return 0;  // parameter and version registers carry nothing the chip models
}

void PeltChip::writeRegister(uint64_t address, uint32_t value) {
    if (address == fcmdAddress) {
        command(value);
        return;
    }
    const std::string& name = findRegister(address)->name;
    if (name == "FCR") {
        fcr = value;
        return;
    }
    // The hardware ignores writes to its read-only registers.
    violation("write of " + hex(value) + " to the read-only register " + name);
}

// ---- commands ----

void PeltChip::violation(const std::string& text) {
    violations.push_back(text);
}

bool PeltChip::regionLocked(uint32_t page) const {
    return (lockBits >> (page / pagesPerRegion)) & 1;
}

bool PeltChip::blank(const unsigned char* bytes, uint32_t size) const {
    return std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0xFF; });
}

void PeltChip::programPage(unsigned char* target, const char* what, uint32_t page) {
    for (uint32_t i = 0; i < pageSize; ++i) {
        if (pageBuffer[i] & ~target[i]) {
            violation(std::string(what) + " " + std::to_string(page) +
                      " programmed over bits that are not erased");
            break;
        }
    }
    for (uint32_t i = 0; i < pageSize; ++i) target[i] &= pageBuffer[i];
    bufferUsed = true;
}

void PeltChip::failNextCommand(Command code, StatusBit flag) {
    faultCommand = code;
    faultFlag = flag;
}

void PeltChip::failTransferAfter(unsigned int calls) {
    transferFault = calls;
}

void PeltChip::command(uint32_t word) {
    if (busy()) {
        violation("FCMD written with " + hex(word) + " while the controller is busy");
        return;  // the busy controller ignores it
    }
    const unsigned int code = word & 0x3F;
    const uint32_t pagen = (word >> 8) & 0xFFFF;
    if ((word >> 24) != KEY || code >= COMMAND_COUNT) {
        violation("FCMD written with " + hex(word) + ": wrong key or unknown command");
        errorFlags |= FSR_PROGE;
        return;
    }
    commandLog.push_back(word);
    ++counters.commands[code];
    lastCommand = word;
    quickReadBlank = false;
    // Only a command that runs makes the controller busy; a refused one
    // leaves it ready with its error flag.
    const uint32_t pending = errorFlags;
    errorFlags = 0;
    execute(code, pagen);
    if (errorFlags == 0)
        busyRemaining = busyPolls;
    errorFlags |= pending;
}

void PeltChip::execute(unsigned int code, uint32_t pagen) {
    if (static_cast<int>(code) == faultCommand) {
        faultCommand = -1;
        errorFlags |= faultFlag;
        return;
    }

    const uint32_t pages = static_cast<uint32_t>(flash.size() / pageSize);
    const bool pageCommand =
        code == CMD_WP || code == CMD_EP || code == CMD_LR || code == CMD_UR || code == CMD_QPR;
    if (pageCommand && pagen >= pages) {
        violation("FCMD names page " + std::to_string(pagen) + " beyond the flash");
        errorFlags |= FSR_PROGE;
        return;
    }
    if ((code == CMD_WP || code == CMD_EP) && regionLocked(pagen)) {
        errorFlags |= FSR_LOCKE;
        return;
    }
    unsigned char* page = pageCommand ? &flash[size_t(pagen) * pageSize] : nullptr;
    const unsigned int fuseBits = fuseHiAddress != 0 ? 64 : 32;
    switch (code) {
        case CMD_WP:
            programPage(page, "page", pagen);
            break;
        case CMD_EP:
            std::fill_n(page, pageSize, 0xFF);
            break;
        case CMD_CPB:
            std::fill(pageBuffer.begin(), pageBuffer.end(), 0xFF);
            bufferUsed = false;
            break;
        case CMD_LR:
            lockBits |= uint16_t(1u << (pagen / pagesPerRegion));
            break;
        case CMD_UR:
            lockBits &= uint16_t(~(1u << (pagen / pagesPerRegion)));
            break;
        case CMD_EA:
            if (lockBits != 0)
                errorFlags |= FSR_LOCKE;
            else
                std::fill(flash.begin(), flash.end(), 0xFF);
            break;
        case CMD_WGPB:
        case CMD_EGPB:
            if (pagen >= fuseBits) {
                errorFlags |= FSR_PROGE;
                break;
            }
            {
                uint32_t& fuses = pagen < 32 ? fuseLo : fuseHi;
                const uint32_t bit = 1u << (pagen % 32);
                fuses = code == CMD_EGPB ? (fuses | bit) : (fuses & ~bit);
            }
            break;
        case CMD_SSB:
            secure = true;
            break;
        case CMD_PGPFB: {
            const uint32_t byte = pagen & 7;
            const uint32_t value = (pagen >> 3) & 0xFF;
            if (byte * 8 >= fuseBits) {
                errorFlags |= FSR_PROGE;
                break;
            }
            uint32_t& fuses = byte < 4 ? fuseLo : fuseHi;
            fuses &= ~((~value & 0xFFu) << (8 * (byte % 4)));
            break;
        }
        case CMD_EAGPF:
            fuseLo = fuseHi = 0xFFFFFFFF;
            break;
        case CMD_QPR:
            quickReadBlank = blank(page, pageSize);
            break;
        case CMD_WUP:
            programPage(userPage.data(), "user page", 0);
            break;
        case CMD_EUP:
            std::fill(userPage.begin(), userPage.end(), 0xFF);
            break;
        case CMD_QPRUP:
            quickReadBlank = blank(userPage.data(), pageSize);
            break;
        case CMD_HSEN:
        case CMD_HSDIS:
            highSpeed = code == CMD_HSEN;
            break;
        default:  // NOP
            break;
    }
}

// ---- inspection ----

std::vector<unsigned char> PeltChip::peekFlash(uint32_t offset, uint32_t size) const {
    if (!contains(0, flash.size(), offset, size))
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "PeltChip: %u bytes at flash offset %s are outside flash.",
                                      size, hex(offset).c_str());
    return std::vector<unsigned char>(flash.begin() + offset, flash.begin() + offset + size);
}

void PeltChip::pokeFlash(uint32_t offset, const std::vector<unsigned char>& data) {
    if (!contains(0, flash.size(), offset, static_cast<unsigned int>(data.size())))
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "PeltChip: %zu bytes at flash offset %s are outside flash.",
                                      data.size(), hex(offset).c_str());
    std::copy(data.begin(), data.end(), flash.begin() + offset);
}

void PeltChip::pokeUserPage(uint32_t offset, const std::vector<unsigned char>& data) {
    if (!contains(0, userPage.size(), offset, static_cast<unsigned int>(data.size())))
        CoreException::createAndThrow("", ERR_ADDRESS_RANGE,
                                      "PeltChip: %zu bytes at user page offset %s are outside it.",
                                      data.size(), hex(offset).c_str());
    std::copy(data.begin(), data.end(), userPage.begin() + offset);
}

void PeltChip::setFuses(uint32_t lo, uint32_t hi) {
    fuseLo = lo;
    fuseHi = hi;
}

void PeltChip::reset() {
    std::fill(flash.begin(), flash.end(), 0xFF);
    std::fill(userPage.begin(), userPage.end(), 0xFF);
    std::fill(pageBuffer.begin(), pageBuffer.end(), 0xFF);
    fuseLo = fuseHi = 0xFFFFFFFF;
    lockBits = 0;
    secure = highSpeed = quickReadBlank = bufferUsed = false;
    errorFlags = 0;
    busyRemaining = 0;
}

// ---- saved state ----
//
// A text header per memory followed by its raw bytes:
//   PeltChip state 1
//   device <name>
//   flash <size>\n<bytes>
//   userpage <size>\n<bytes>
//   fuses <lo> <hi>
//   locks <bits>
//   security <0|1>
//   end

void PeltChip::save(std::ostream& out) const {
    out << STATE_MAGIC << "\ndevice " << device->getName() << "\nflash " << flash.size() << "\n";
    out.write(reinterpret_cast<const char*>(flash.data()), std::streamsize(flash.size()));
    out << "\nuserpage " << userPage.size() << "\n";
    out.write(reinterpret_cast<const char*>(userPage.data()), std::streamsize(userPage.size()));
    out << "\nfuses " << fuseLo << " " << fuseHi << "\nlocks " << lockBits << "\nsecurity "
        << (secure ? 1 : 0) << "\nend\n";
    if (!out) CoreException::createAndThrow("", ERR_FILE_IO, "PeltChip: could not save the state.");
}

void PeltChip::load(std::istream& in) {
    const std::string name = device->getName();
    auto fail = [&name](const std::string& why) {
        CoreException::createAndThrow("", ERR_FILE_IO, "PeltChip: not a saved state of %s: %s.",
                                      name.c_str(), why.c_str());
    };
    auto line = [&in, &fail](const std::string& key) {
        std::string text;
        if (!std::getline(in, text) || text.compare(0, key.size(), key) != 0)
            fail("expected \"" + key + "\"");
        return text.substr(key.size());
    };
    auto blob = [&in, &line, &fail](const std::string& key, size_t size) {
        std::vector<unsigned char> bytes(size);
        if (line(key + " ") != std::to_string(size)) fail("the size of " + key + " differs");
        in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(size));
        if (in.gcount() != std::streamsize(size) || in.get() != '\n') fail(key + " is cut short");
        return bytes;
    };
    line(STATE_MAGIC);
    if (line("device ") != name) fail("it belongs to another device");
    std::vector<unsigned char> newFlash = blob("flash", flash.size());
    std::vector<unsigned char> newUserPage = blob("userpage", userPage.size());
    std::istringstream fuses(line("fuses "));
    std::istringstream locks(line("locks "));
    std::istringstream security(line("security "));
    uint32_t lo = 0, hi = 0, bits = 0;
    int secureFlag = 0;
    if (!(fuses >> lo >> hi) || !(locks >> bits) || bits > 0xFFFF || !(security >> secureFlag) ||
        secureFlag < 0 || secureFlag > 1)
        fail("a fuse, lock or security value is malformed");
    line("end");
    flash.swap(newFlash);
    userPage.swap(newUserPage);
    fuseLo = lo;
    fuseHi = hi;
    lockBits = static_cast<uint16_t>(bits);
    secure = secureFlag == 1;
}

void PeltChip::saveToFile(const std::string& path) const {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        CoreException::createAndThrow("", ERR_FILE_IO, "PeltChip: cannot write %s.", path.c_str());
    save(out);
}

void PeltChip::loadFromFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        CoreException::createAndThrow("", ERR_FILE_IO, "PeltChip: cannot read %s.", path.c_str());
    load(in);
}
