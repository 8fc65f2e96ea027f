#include "libcommon/flash/peltinternalflash.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"


#include <algorithm>
#include <cstdio>

namespace {

// All waits of this driver use this limit; at or below it FSR is polled
// without pause.
const long WAIT_MS = 500;
const unsigned KEY = 0xA5000000;
const unsigned FSR_FRDY = 1u << 0;
const unsigned FSR_LOCKE = 1u << 2;
const unsigned FSR_PROGE = 1u << 3;

enum : unsigned {
    CMD_WP = 1,
    CMD_EP = 2,
    CMD_CPB = 3,
    CMD_UR = 5,
    CMD_EA = 6,
    CMD_WGPB = 7,
    CMD_EGPB = 8,
    CMD_SSB = 9,
    CMD_EAGPF = 11,
    CMD_WUP = 13,
    CMD_EUP = 14
};

const char* const COMMAND_NAMES[] = {"NOP", "WP",   "EP",   "CPB",   "LR",    "UR",
                                     "EA",  "WGPB", "EGPB", "SSB",   "PGPFB", "EAGPF",
                                     "QPR", "WUP",  "EUP",  "QPRUP", "HSEN",  "HSDIS"};

unsigned command(unsigned code, uint64_t pagen = 0) {
    return KEY | static_cast<unsigned>((pagen & 0xFFFF) << 8) | code;
}

void debug(const std::string& text) {
    if (gLogMask & LOG_MASK_DEBUG) BackendLogger::debug(L_DBG, text);
}

void trace(const char* format, const std::string& status) {
    if (gLogMask & LOG_MASK_TRACE)
        BackendLogger::trace(L_DBG, FormatString(format, status.c_str()));
}

}  // namespace

PeltInternalFlash::PeltInternalFlash(const FlashInformation& info,
                                     boost::shared_ptr<IMemoryAccessor> memory)
    : info(info), memory(memory) {
    // Page and region arithmetic divides by these; a record without them
    // cannot drive a controller.
    if (info.pageSize == 0 || (info.pageSize & (info.pageSize - 1)) != 0 ||
        info.pagesPerRegion == 0)
        throw GenericError("Invalid flash geometry: page size %u, %u pages per region.",
                           info.pageSize, info.pagesPerRegion);
}

PeltInternalFlash::PeltInternalFlash(boost::shared_ptr<DIDevice> device,
                                     boost::shared_ptr<IMemoryAccessor> memory)
    : PeltInternalFlash(PeltFlashInformation(device), memory) {}

PeltInternalFlash::~PeltInternalFlash() = default;

// ---- registers and commands ----

unsigned PeltInternalFlash::getRegister(uint64_t address) const {
    std::vector<unsigned char> bytes(4);
    memory->read(address, 4, bytes.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | unsigned(bytes[3]) << 24;
}

void PeltInternalFlash::writeCommand(unsigned word) const {
    if (gLogMask & LOG_MASK_DEBUG)
        debug(FormatString("Internal flash command: %s.", decodeFlashCommand(word).c_str()));
    const std::vector<unsigned char> bytes = {
        static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8),
        static_cast<unsigned char>(word >> 16), static_cast<unsigned char>(word >> 24)};
    memory->write(info.secondRegister, 4, bytes.begin(), boost::shared_ptr<MemoryError>(), nullptr,
                  false);
}

void PeltInternalFlash::waitFlashReady(int timeoutMs) const {
    waitFlashReady(timeoutMs, false);
}

void PeltInternalFlash::waitFlashReady(long timeoutMs, bool ignoreLockError) const {
    Timer timer;
    timer.restart(timeoutMs);
    for (;;) {
        const unsigned status = getRegister(info.thirdRegister);
        if (status & FSR_LOCKE) {
            trace("Read FSR:%s. LockedFlashError.", decodeFlashStatus(status));
            if (!ignoreLockError) throw LockedFlashError();
        }
        if (status & FSR_PROGE) {
            trace("Read FSR:%s. PROGE Error.", decodeFlashStatus(status));
            throw GenericError("PROGE error: Invalid command or keyword written to FCMD.");
        }
        if (status & FSR_FRDY) {
            trace("Read FSR:%s. Flash is ready.", decodeFlashStatus(status));
            return;
        }
        if (timer.timedOut())
            throw GenericError("Timed out waiting for flash to become ready (%d ms).",
                               static_cast<int>(timeoutMs));
        if (timeoutMs > WAIT_MS) waitMsec(10);
    }
}

void PeltInternalFlash::guardedCommand(unsigned word) const {
    waitFlashReady(WAIT_MS, false);
    writeCommand(word);
    waitFlashReady(WAIT_MS, false);
}

void PeltInternalFlash::clearPageBuffer() const {
    guardedCommand(command(CMD_CPB));
}

std::string PeltInternalFlash::decodeFlashCommand(unsigned word) {
    const unsigned code = word & 0x3F;
    const char* name =
        code < sizeof(COMMAND_NAMES) / sizeof(COMMAND_NAMES[0]) ? COMMAND_NAMES[code] : "???";
    char text[128];
    std::snprintf(text, sizeof(text), "FCMD=%s (0x%x) PAGEN=0x%04x KEY=%02x", name, code,
                  (word >> 8) & 0xFFFF, word >> 24);
    return text;
}

std::string PeltInternalFlash::decodeFlashStatus(unsigned status) {
    std::string text = FormatString(" LOCK[15:0]=%04x", status >> 16);
    if (const unsigned fsz = (status >> 13) & 7) text += FormatString(" FSZ=%u", fsz);
    static const struct {
        unsigned bit;
        const char* name;
    } flags[] = {{1u << 5, " QPRR"},
                 {1u << 4, " SECURITY"},
                 {FSR_PROGE, " PROGE"},
                 {FSR_LOCKE, " LOCKE"},
                 {FSR_FRDY, " FRDY"}};
    for (const auto& flag : flags)
        if (status & flag.bit) text += flag.name;
    return text;
}

bool PeltInternalFlash::inUserPage(uint64_t offset) const {
    return offset >= info.userPageOffset && offset - info.userPageOffset < info.pageSize;
}

// ---- erase, unlock, program ----

void PeltInternalFlash::unlockEntireChip() const {
    unlockRegion(info.startAddress, info.size);
}

void PeltInternalFlash::unlockRegion(uint64_t address, unsigned size) const {
    const uint64_t offset = address - info.startAddress;
    if (inUserPage(offset)) return;  // the user page has no lock
    if (offset >= info.size || offset + size > info.size)
        throw GenericError("Region to be unlocked lies outside flash address space.");
    if (size == 0) return;
    debug(FormatString("Unlocking %d bytes starting at offset 0x%08x", static_cast<int>(size),
                       static_cast<unsigned>(offset)));
    try {
        const uint64_t last = (offset + size - 1) / info.pageSize / info.pagesPerRegion;
        for (uint64_t region = offset / info.pageSize / info.pagesPerRegion; region <= last;
             ++region) {
            debug(FormatString("Unlocking region: %d", static_cast<int>(region)));
            // PAGEN names the first page of the region.
            guardedCommand(command(CMD_UR, region * info.pagesPerRegion));
        }
    } catch (GenericError& e) {
        e.add("Unlocking page failed");
        throw;
    }
}

void PeltInternalFlash::startEraseEntireChip() const {
    try {
        waitFlashReady(WAIT_MS, false);
        writeCommand(command(CMD_EA));
    } catch (GenericError& e) {
        e.add("Flash chip erase failed.");
        throw;
    }
}

void PeltInternalFlash::eraseRegion(uint64_t address, unsigned size, EraseOption option) const {
    const uint64_t offset = address - info.startAddress;
    if (inUserPage(offset)) {
        eraseUserPage();
        return;
    }
    if (offset >= info.size || offset + size > info.size)
        throw GenericError("Region to be erased lies outside flash address space.");
    if (size == 0) return;
    try {
        if (static_cast<int>(option) == 0) unlockRegion(address, size);
        const uint64_t last = getPageNumber(offset + size - 1);
        for (uint64_t page = getPageNumber(offset); page <= last; ++page) {
            debug(FormatString("Erasing page: %d", static_cast<int>(page)));
            guardedCommand(command(CMD_EP, page));
        }
    } catch (GenericError& e) {
        e.add("Erasing page failed");
        throw;
    }
}

void PeltInternalFlash::programChip(uint64_t address, unsigned size,
                                    std::vector<unsigned char>::const_iterator data,
                                    bool ignoreLockError, bool) const {
    uint64_t offset = address - info.startAddress;
    if (inUserPage(offset)) {
        programUserPage(address, size, data);
        return;
    }
    if (offset >= info.size || offset + size > info.size)
        throw GenericError(
            "Unable to write 0x%x bytes at address 0x%llx. The access is outside of flash "
            "address space",
            size, static_cast<unsigned long long>(address));

    const unsigned pageSize = info.pageSize;
    uint64_t page = offset & ~uint64_t(pageSize - 1);
    std::vector<unsigned char> buffer(pageSize);
    try {
        waitFlashReady(WAIT_MS, ignoreLockError);
        while (size > 0) {
            clearPageBuffer();
            waitFlashReady(WAIT_MS, ignoreLockError);
            const unsigned inPage = static_cast<unsigned>(offset % pageSize);
            const unsigned chunk = std::min(size, pageSize - inPage);
            if (inPage != 0 || chunk != pageSize) {
                // A partly written page keeps the bytes around the new ones.
                std::fill(buffer.begin(), buffer.end(), 0xFF);
                memory->read(info.startAddress + page, pageSize, buffer.begin(),
                             boost::shared_ptr<MemoryError>(), nullptr);
            }
            std::copy(data, data + chunk, buffer.begin() + inPage);
            eraseRegion(info.startAddress + page, pageSize, static_cast<EraseOption>(1));
            memory->write(info.startAddress + page, pageSize, buffer.begin(),
                          boost::shared_ptr<MemoryError>(), nullptr, false);
            writeCommand(command(CMD_WP, getPageNumber(offset)));
            waitFlashReady(WAIT_MS, ignoreLockError);
            page += pageSize;
            offset = page;
            data += chunk;
            size -= chunk;
        }
    } catch (GenericError& e) {
        e.add("Internal flash programming failed");
        throw;
    }
}

// ---- user page ----

void PeltInternalFlash::eraseUserPage() const {
    guardedCommand(command(CMD_EUP));
}

void PeltInternalFlash::programUserPage(uint64_t address, unsigned size,
                                        std::vector<unsigned char>::const_iterator data) const {
    const uint64_t userPage = info.startAddress + info.userPageOffset;
    const uint64_t offset = address - userPage;
    if (offset >= info.pageSize || offset + size > info.pageSize)
        throw GenericError("Tried to program past user page boundary.");
    if (size == 0) return;
    std::vector<unsigned char> buffer(info.pageSize, 0xFF);
    try {
        if (offset != 0 || size < info.pageSize)
            memory->read(userPage, info.pageSize, buffer.begin(), boost::shared_ptr<MemoryError>(),
                         nullptr);
        eraseUserPage();
        clearPageBuffer();
        waitFlashReady(WAIT_MS, false);
        std::copy(data, data + size, buffer.begin() + offset);
        memory->write(userPage, info.pageSize, buffer.begin(), boost::shared_ptr<MemoryError>(),
                      nullptr, false);
        guardedCommand(command(CMD_WUP));
    } catch (GenericError& e) {
        e.add("User page programming failed");
        throw;
    }
}

void PeltInternalFlash::readUserPage(uint64_t address, unsigned size,
                                     std::vector<unsigned char>::iterator data) const {
    const uint64_t offset = address - (info.startAddress + info.userPageOffset);
    if (offset >= info.pageSize || offset + size > info.pageSize)
        throw GenericError("Tried to read outside user page boundaries.");
    memory->read(address, size, data, boost::shared_ptr<MemoryError>(), nullptr);
}

// ---- fuses ----

void PeltInternalFlash::checkFuseIndex(int index) const {
    if (index < 0 || index > 63 || (index > 31 && !hasHighFuses))
        throw GenericError("Fuse index out of range");
}

void PeltInternalFlash::addFuseBytes(Packet& packet, unsigned value) const {
    for (int i = 0; i < 4; ++i) packet.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

void PeltInternalFlash::eraseFuses(FuseType) const {
    debug("Erasing all general purpose fuses");
    try {
        guardedCommand(command(CMD_EAGPF));
    } catch (GenericError& e) {
        e.add("Faild erasing all general purpose fuses.");
        throw;
    }
}

Packet PeltInternalFlash::readFuses(FuseType type) {
    Packet packet;
    if (static_cast<int>(type) == 0) addFuseBytes(packet, getRegister(info.fuseLoRegister));
    return packet;
}

void PeltInternalFlash::programFuses(FuseType type, Packet& values, int index) const {
    // Four bytes, and all 32 fuses in range, are checked before the first
    // command, so a bad request never leaves the fuses half programmed.
    if (values.size() != 4)
        throw GenericError("Fuse values must be 4 bytes, not %zu.", values.size());
    checkFuseIndex(index);
    checkFuseIndex(index + 31);
    std::reverse(values.begin(), values.end());
    for (int i = 31; i >= 0; --i) {
        if (static_cast<int>(type) != 0) throw GenericError("Illegal fuse type");
        const bool bit = (values[(31 - i) >> 3] >> (i & 7)) & 1;
        modifyFusebit(static_cast<FuseType>(0), index + i, bit);
    }
}

void PeltInternalFlash::modifyFusebit(FuseType, int index, bool value) const {
    checkFuseIndex(index);
    try {
        guardedCommand(command(value ? CMD_EGPB : CMD_WGPB, unsigned(index)));
    } catch (GenericError& e) {
        e.add("Programming of general purpose fuse failed.");
        throw;
    }
}

bool PeltInternalFlash::readFuseBit(FuseType, int index) const {
    checkFuseIndex(index);
    if (index > 31) return (getRegister(info.fuseHiRegister) >> (index - 32)) & 1;
    return (getRegister(info.fuseLoRegister) >> index) & 1;
}

uint64_t PeltInternalFlash::getMinFuseAddress() const {
    if (info.fuseHiRegister != 0 && info.fuseHiRegister < info.fuseLoRegister)
        return info.fuseHiRegister;
    return info.fuseLoRegister;
}

// ---- lock bits and security ----

int PeltInternalFlash::getLockBitCount() const {
    throw GenericError("getLockBits() not implementedin PeltInternalFlash.");
}

Packet PeltInternalFlash::getLockBits() {
    throw GenericError("getLockBits() not implementedin PeltInternalFlash.");
}

void PeltInternalFlash::setLockBit(unsigned) const {
    throw GenericError("setLockBit() not implementedin PeltInternalFlash.");
}

void PeltInternalFlash::clearLockBit(unsigned) const {
    throw GenericError("clearLockBit() not implementedin PeltInternalFlash.");
}

void PeltInternalFlash::setSecurityLevel(SecurityLevel) const {
    waitFlashReady(WAIT_MS, false);
    writeCommand(command(CMD_SSB));
    // The controller takes this long to commit the bit.
    waitMsec(1000);
}

InternalFlash::SecurityLevel PeltInternalFlash::getSecurityLevel() {
    return static_cast<SecurityLevel>((getRegister(info.thirdRegister) >> 13) & 1);
}
