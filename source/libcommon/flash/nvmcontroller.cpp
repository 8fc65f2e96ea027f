#include "libcommon/flash/nvmcontroller.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"

#include <openssl/evp.h>
#include <boost/crc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace {

const unsigned COMMAND_KEY = 0xA500;
const unsigned LOCK_REGISTER = 0x20;
const unsigned CTRLC = 8;
const int WIDTH_OF_INTFLAG = 0;  // table marker: the record's intflagWidth

const int ERASE_TIMEOUT_MS = 250;
const int PAGE_WRITE_TIMEOUT_MS = 10;
const int RWW_WRITE_TIMEOUT_MS = 500;
const int U2409_AUX_STEP_TIMEOUT_MS = 5;
const int AUX_WRITE_TIMEOUT_MS = 10;
const int LOCK_TIMEOUT_MS = 50;

const unsigned U2409_AUX_SIZE = 0x200;
const unsigned U2409_AUX_STEP = 16;

// Fixed places of the Hlx7 parts.
const uint64_t HLX7_ACCESS_LEVEL = 0x41002102;
const uint64_t HLX7_BASE_LEVEL1 = 0x41004000;
const uint64_t HLX7_BASE_OTHER = 0x41005000;
const uint64_t HLX7_CONFIG_ROW = 0x804000;
const uint64_t HLX7_BOOT_ROW = 0x80C000;
const uint64_t HLX7_STORED_CEKEY2 = 0x80C030;
const uint64_t HLX7_STORED_BOOT_KEY = 0x80C050;
const unsigned BOOT_ROW_SIZE = 0x100;
const unsigned CONFIG_ROW_MIN = 0x20;
const unsigned BOOT_KEY_SIZE = 32;
const unsigned DIGEST_SIZE = 32;
const char* const NO_COMPUTE_VARIABLE = "VELBACKEND_NO_M23_COMPUTE";
const std::string L_HLX7 = "hlx7";

const int NO_CODE = -1;

typedef std::vector<unsigned char> Bytes;

uint32_t crc32(const unsigned char* begin, const unsigned char* end) {
    boost::crc_32_type crc;
    crc.process_block(begin, end);
    return crc.checksum();
}

void putLittle32(unsigned char* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = (unsigned char)(value >> (8 * i));
}

bool allZero(const unsigned char* begin, size_t size) {
    return std::all_of(begin, begin + size, [](unsigned char b) { return b == 0; });
}

[[noreturn]] void controllerError(ErrorCode code, const char* text) {
    CoreException::createAndThrow("dbg", code, "%s", text);
}

}  // namespace

// One row per hardware block: every difference between the blocks.
struct NvmController::Block {
    // Ready test and error flags: offset, width (WIDTH_OF_INTFLAG: the
    // record's intflagWidth) and mask.
    unsigned readyOffset;
    int readyWidth;
    unsigned readyMask;
    unsigned errorOffset;
    int errorWidth;
    unsigned errorMask;
    // Clearing: write errorClear, ORed into the value read when
    // clearKeepsRead; the plain block also clears its status register.
    unsigned errorClear;
    bool clearKeepsRead;
    bool clearsStatus;
    // Address register offset and shift; NO_CODE: latched by a 0xFF write.
    int addressOffset;
    unsigned addressShift;
    // Configuration for a run: (saved & ~configClear) | configSet, or on
    // U2802 the working value ORed with configSet; U2802 also clears bit 0
    // (manual write) of its second configuration register.
    unsigned configClear;
    unsigned configSet;
    bool configFromWorking;
    bool hasCtrlC;
    // Command codes.
    unsigned eraseCode;
    unsigned rwwEraseCode;
    unsigned auxEraseCode;
    int setLockCode;
    unsigned clearLockCode;
    unsigned unlockCode;
    int securityCodes[3];  // by level
    // Erase units in pages; the auxiliary area of U2409 erases by page.
    unsigned eraseUnitPages;
    bool auxErasesByPage;
    // Lock region: flash size >> lockRegionShift.
    unsigned lockRegionShift;
    bool hasHlx7Rows;
};

namespace {

// clang-format off
const NvmController::Block PLAIN = {
    /* ready: offset, width, mask */            0x14, WIDTH_OF_INTFLAG, 0x01,
    /* error: offset, width, mask */            0x14, WIDTH_OF_INTFLAG, 0x02,
    /* clear: value, keep, status */            0x02, false, true,
    /* address: offset, shift */                0x1C, 1,
    /* config: clear, set, working, C */        0x80, 0x1E, false, false,
    /* erase: flash, RWW, aux */                0x02, 0x1A, 0x05,
    /* lock: set, clear, unlock */              0x40, 0x41, 0x41,
    /* security by level */                     {0x45, 0x45, 0x45},
    /* units: pages, aux by page, lock shift */ 4, false, 4,
    /* Hlx7 rows */                             false};

const NvmController::Block U2409 = {
    /* ready: offset, width, mask */            0x12, 2, 0x01,
    /* error: offset, width, mask */            0x10, 2, 0x7E,
    /* clear: value, keep, status */            0x7F, true, false,
    /* address: offset, shift */                0x14, 0,
    /* config: clear, set, working, C */        0x4, 0xF30, false, false,
    /* erase: flash, RWW, aux */                0x01, 0x1A, 0x00,
    /* lock: set, clear, unlock */              0x40, 0x41, 0x12,
    /* security by level */                     {0x16, 0x16, 0x16},
    /* units: pages, aux by page, lock shift */ 16, true, 5,
    /* Hlx7 rows */                             false};

const NvmController::Block U2802 = {
    /* ready: offset, width, mask */            0x18, 1, 0x04,
    /* error: offset, width, mask */            0x14, 1, 0x1E,
    /* clear: value, keep, status */            0x1E, false, false,
    /* address: offset, shift */                NO_CODE, 0,
    /* config: clear, set, working, C */        0, 0x1E, true, true,
    /* erase: flash, RWW, aux */                0x02, 0x02, 0x02,
    /* lock: set, clear, unlock */              NO_CODE, 0x41, 0x41,
    /* security by level */                     {NO_CODE, 0x4B, 0x4C},
    /* units: pages, aux by page, lock shift */ 4, false, 4,
    /* Hlx7 rows */                             true};
// clang-format on

}  // namespace

NvmController::NvmController(const NvmControllerInformation& info,
                             boost::shared_ptr<IMemoryAccessor> memory, bool passThrough)
    : passThrough(passThrough),
      info(info),
      memory(memory),
      block(info.isU2409   ? &U2409
            : info.isU2802 ? &U2802
                           : &PLAIN) {}

NvmController::~NvmController() {}

// ---- registers ----

unsigned NvmController::readReg(int offset, int width) const {
    // The base is settled before the first register access of any kind.
    AdjustBaseAddressHLX7();
    Bytes bytes(width == 1 ? 1 : width == 2 ? 2 : 4);
    memory->read(info.registerBase + offset, unsigned(bytes.size()), bytes.begin(),
                 boost::shared_ptr<MemoryError>(), nullptr);
    unsigned value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) value |= unsigned(bytes[i]) << (8 * i);
    return value;
}

void NvmController::writeReg(int offset, int width, unsigned value) const {
    if (width != 1 && width != 2 && width != 4)
        CoreException::createAndThrow("dbg", ERR_UNSUPPORTED_REGISTER,
                                      "Unsupported NVM controller register with reg=%d width =%d",
                                      offset, width);
    AdjustBaseAddressHLX7();
    Bytes bytes(width);
    for (int i = 0; i < width; ++i) bytes[i] = (unsigned char)(value >> (8 * i));
    memory->write(info.registerBase + offset, unsigned(width), bytes.cbegin(),
                  boost::shared_ptr<MemoryError>(), nullptr, false);
}

void NvmController::writeAddrRegister(uint64_t address) const {
    if (block->addressOffset == NO_CODE) {
        // The controller latches the address of a data write; 0xFF bytes
        // leave the page buffer as they find it.
        const Bytes latch(4, 0xFF);
        writeMemory(address, 4, latch.cbegin());
    } else {
        writeReg(block->addressOffset, 4, unsigned(address >> block->addressShift));
    }
}

void NvmController::writeCommand(unsigned code, int timeoutMs) const {
    writeReg(int(info.commandRegisterOffset), int(info.commandRegisterWidth), code | COMMAND_KEY);
    waitFlashReady(timeoutMs);
}

bool NvmController::isReady() const {
    const int width =
        block->readyWidth == WIDTH_OF_INTFLAG ? int(info.intflagWidth) : block->readyWidth;
    return readReg(int(block->readyOffset), width) & block->readyMask;
}

void NvmController::waitFlashReady(int timeoutMs) const {
    // Short limits (a page write) poll flat out; long ones sleep a
    // twentieth of the limit between polls.
    // The clock is read before each poll, and only a poll that began after
    // the deadline, and is not the first, ends the wait with a timeout: a
    // host that is descheduled for a while then still looks at the
    // controller again before it reports a timeout the controller never had.
    typedef std::chrono::steady_clock Clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (bool first = true;; first = false) {
        const Clock::time_point polled = Clock::now();
        if (isReady()) return;
        if (!first && deadline < polled)
            CoreException::createAndThrow(
                "dbg", ERR_FLASH_TIMEOUT,
                "Flash operation failed. Timed out waiting for the ready bit in the NVMCTRL.");
        if (timeoutMs > 200) waitMsec(unsigned(timeoutMs / 20));
    }
}

void NvmController::clearErrors(bool throwOnError) const {
    const int width =
        block->errorWidth == WIDTH_OF_INTFLAG ? int(info.intflagWidth) : block->errorWidth;
    const unsigned flags = readReg(int(block->errorOffset), width);
    if (!(flags & block->errorMask)) return;
    writeReg(int(block->errorOffset), width,
             block->clearKeepsRead ? flags | block->errorClear : block->errorClear);
    if (block->clearsStatus) {
        const int statusWidth = int(info.statusWidth);
        writeReg(0x18, statusWidth, readReg(0x18, statusWidth) | 0x1E);
    }
    if (throwOnError) controllerError(ERR_NVM_CONTROLLER, "Error reported by NVM controller.");
}

// ---- a programming run ----

void NvmController::saveCfgWord() const {
    if (!configSaveDue) return;
    AdjustBaseAddressHLX7();
    const int offset = int(info.configRegisterOffset);
    const int width = int(info.configRegisterWidth);
    savedConfig = readReg(offset, width);
    if (block->hasCtrlC) {
        savedCtrlC = readReg(CTRLC, 1);
        workingCtrlC = savedCtrlC & 0xFE;  // automatic write mode
    }
    if (block->configFromWorking)
        workingConfig |= block->configSet;
    else
        workingConfig = (savedConfig & ~block->configClear) | block->configSet;
    configSaveDue = false;
    if (workingConfig != savedConfig) writeReg(offset, width, workingConfig);
    if (block->hasCtrlC && workingCtrlC != savedCtrlC) writeReg(CTRLC, 1, workingCtrlC);
}

void NvmController::restoreCfgRegs() const {
    // The run is over whatever happens below.
    configSaveDue = true;
    if (savedConfig != workingConfig) {
        writeReg(int(info.configRegisterOffset), int(info.configRegisterWidth), savedConfig);
        savedConfig = workingConfig;
    }
    if (block->hasCtrlC && savedCtrlC != workingCtrlC) {
        writeReg(CTRLC, 1, savedCtrlC);
        savedCtrlC = workingCtrlC;
    }
    clearErrors(true);
}

// ---- erase ----

void NvmController::eraseRegion(uint64_t address, unsigned size, EraseOption) const {
    const uint64_t offset = address - info.startAddress;
    const bool userPage = isUserPageStart(offset, size);
    if (size == 0 && !userPage) return;
    saveCfgWord();
    if (isInRWWSection(offset, size)) {
        eraseRWWSection(address, size);
    } else if (userPage) {
        eraseUserPage();
    } else {
        const uint64_t unit = uint64_t(info.pageSize) * block->eraseUnitPages;
        for (uint64_t step = 0; step < size; step += unit) {
            writeAddrRegister(offset + step);
            writeCommand(block->eraseCode, ERASE_TIMEOUT_MS);
        }
    }
}

void NvmController::startEraseEntireChip() const {
    eraseRegion(info.startAddress, info.size, EraseOnly);
}

void NvmController::eraseRWWSection(uint64_t address, unsigned size) const {
    if (info.hasRwwSection) eraseRWW(address, size);
}

void NvmController::eraseRWW(uint64_t address, unsigned size) const {
    const uint64_t unit = uint64_t(info.eraseUnitPages) * info.pageSize;
    for (uint64_t step = 0; step < size; step += unit) {
        writeAddrRegister(address - info.startAddress + step);
        writeCommand(block->rwwEraseCode, ERASE_TIMEOUT_MS);
    }
}

void NvmController::eraseUserPage() const {
    if (!info.hasUserPage) return;
    eraseAux(info.userPageAddress, block->auxErasesByPage
                                       ? info.pageSize
                                       : unsigned(info.eraseUnitPages) * info.pageSize);
}

unsigned NvmController::auxEraseStep() const {
    return block->auxErasesByPage ? info.pageSize : unsigned(info.eraseUnitPages) * info.pageSize;
}

void NvmController::eraseAux(uint64_t address, unsigned size) const {
    if (!block->hasHlx7Rows) eraseAuxInternal(address, size);
}

void NvmController::eraseAuxInternal(uint64_t address, unsigned size) const {
    if (passThrough || size == 0) return;
    saveCfgWord();
    const uint64_t step = auxEraseStep();
    for (uint64_t a = address; a < address + size; a += step) {
        writeAddrRegister(a);
        writeCommand(block->auxEraseCode, ERASE_TIMEOUT_MS);
    }
}

// ---- program ----

void NvmController::readMemory(uint64_t address, unsigned size, Bytes::iterator data) const {
    memory->read(address, size, data, boost::shared_ptr<MemoryError>(), nullptr);
}

void NvmController::writeMemory(uint64_t address, unsigned size, Bytes::const_iterator data) const {
    memory->write(address, size, data, boost::shared_ptr<MemoryError>(), nullptr, false);
}

void NvmController::programChip(uint64_t address, unsigned size, Bytes::const_iterator data, bool,
                                bool eraseFirst) const {
    if (size == 0) return;
    const uint64_t offset = address - info.startAddress;
    if (passThrough) {
        writeMemory(address, size, data);
        return;
    }
    saveCfgWord();
    if (isUserPageStart(offset, size)) eraseUserPage();
    const bool inRww = isInRWWSection(offset, size);
    if (eraseFirst) {
        if (inRww)
            eraseRWWSection(address, size);
        else
            eraseRegion(address, size, EraseOnly);
    }
    // With automatic page writes in force, the data write is the whole
    // protocol of a page: no write command follows.
    for (unsigned done = 0; done < size; done += info.pageSize) {
        const unsigned chunk = std::min(info.pageSize, size - done);
        if (inRww) {
            writeRWW(address + done, chunk, data + done);
        } else {
            writeMemory(address + done, chunk, data + done);
            waitFlashReady(PAGE_WRITE_TIMEOUT_MS);
        }
    }
}

void NvmController::writeRWW(uint64_t address, unsigned size, Bytes::const_iterator data) const {
    writeMemory(address, size, data);
    waitFlashReady(RWW_WRITE_TIMEOUT_MS);
}

void NvmController::writeAux(uint64_t address, unsigned size, Bytes::const_iterator data) const {
    if (size == 0) return;
    if (block->hasHlx7Rows) {
        writeHlx7Row(address, size, data);
        return;
    }
    // A row write may open a run like any other write: without the switch
    // to automatic writes the data would only fill the page buffer.
    // U2409 compares and writes the whole page: fewer bytes than that
    // would be read beyond the caller's data.
    if (block->auxErasesByPage && size < U2409_AUX_SIZE)
        CoreException::createAndThrow("dbg", ERR_INVALID_ARGUMENT,
                                      "An auxiliary page write must cover the whole 0x%x bytes "
                                      "of the page.",
                                      U2409_AUX_SIZE);
    if (!passThrough) saveCfgWord();
    if (block->auxErasesByPage) {
        // Only the changed 16-byte quad words are written.
        Bytes stored(U2409_AUX_SIZE);
        readMemory(address, U2409_AUX_SIZE, stored.begin());
        for (unsigned step = 0; step < U2409_AUX_SIZE; step += U2409_AUX_STEP) {
            if (std::equal(stored.begin() + step, stored.begin() + step + U2409_AUX_STEP,
                           data + step))
                continue;
            writeMemory(address + step, U2409_AUX_STEP, data + step);
            waitFlashReady(U2409_AUX_STEP_TIMEOUT_MS);
        }
    } else {
        writeMemory(address, size, data);
        waitFlashReady(AUX_WRITE_TIMEOUT_MS);
    }
}

void NvmController::programUserPage(uint64_t, unsigned, Bytes::const_iterator) const {
    throw GenericError(std::string("Not implemented, flash controller does not handle fuses."));
}

void NvmController::readUserPage(uint64_t, unsigned, Bytes::iterator) const {
    throw GenericError(std::string("Not implemented, flash controller does not handle user page."));
}

// ---- ranges ----

bool NvmController::isInRWWSection(uint64_t offset, unsigned size) const {
    return info.hasRwwSection && offset >= info.rwwOffset &&
           offset + size <= info.rwwOffset + info.rwwSize;
}

bool NvmController::isUserPageStart(uint64_t offset, unsigned) const {
    return info.hasUserPage && offset == info.userPageOffset;
}

bool NvmController::isOutsideMemoryRange(uint64_t offset, unsigned size) const {
    return offset >= info.size || offset + size > info.size;
}

unsigned NvmController::getPageNumber(uint64_t offset) const {
    return unsigned(offset / info.pageSize);
}

unsigned NvmController::lockRegionsCount() const {
    return 1u << block->lockRegionShift;
}

// ---- lock bits ----

uint64_t NvmController::lockRegionOffset(unsigned index) const {
    return uint32_t(info.size * index) >> block->lockRegionShift;
}

void NvmController::setLockBit(unsigned index) const {
    if (block->setLockCode == NO_CODE) throw "Not implemented";
    writeAddrRegister(lockRegionOffset(index));
    writeCommand(unsigned(block->setLockCode), LOCK_TIMEOUT_MS);
}

void NvmController::clearLockBit(unsigned index) const {
    writeAddrRegister(lockRegionOffset(index));
    writeCommand(block->clearLockCode, LOCK_TIMEOUT_MS);
}

void NvmController::unlockRegion(uint64_t address, unsigned size) const {
    const uint32_t offset = uint32_t(address - info.startAddress);
    if (offset >= info.size)
        throw GenericError(std::string("Address to unlock lies outside of flash region."));
    // A flash smaller than its region count would give empty regions.
    const uint64_t region = std::max<uint32_t>(info.size >> block->lockRegionShift, 1);
    for (uint64_t step = 0; step < size; step += region) {
        writeAddrRegister(offset + step);
        writeCommand(block->unlockCode, LOCK_TIMEOUT_MS);
    }
}

void NvmController::unlockEntireChip() const {
    unlockRegion(info.startAddress, info.size);
}

Packet NvmController::getLockBits() {
    if (block->setLockCode == NO_CODE) throw "Not implemented";
    Packet bits(4);
    readMemory(info.registerBase + LOCK_REGISTER, 4, bits.begin());
    return bits;
}

int NvmController::getLockBitCount() const {
    // The record of this controller carries no lock byte count; the lock
    // register then has one bit per lock region.
    return info.lockByteCount != 0 ? int(info.lockByteCount * 8) : int(lockRegionsCount());
}

// ---- security and fuses ----

void NvmController::setSecurityLevel(SecurityLevel level) const {
    AdjustBaseAddressHLX7();
    const int code = block->hasHlx7Rows ? (level == SecurityLevel1   ? block->securityCodes[1]
                                           : level == SecurityLevel2 ? block->securityCodes[2]
                                                                     : NO_CODE)
                                        : block->securityCodes[0];
    if (code != NO_CODE) writeCommand(unsigned(code), LOCK_TIMEOUT_MS);
}

InternalFlash::SecurityLevel NvmController::getSecurityLevel() {
    throw GenericError(std::string("Not implemented"));
}

namespace {

[[noreturn]] void noFuses() {
    throw GenericError(std::string("Not implemented, flash controller does not handle fuses."));
}

}  // namespace

void NvmController::eraseFuses(FuseType) const {
    noFuses();
}

Packet NvmController::readFuses(FuseType) {
    noFuses();
}

void NvmController::programFuses(FuseType, Packet&, int) const {
    noFuses();
}

void NvmController::modifyFusebit(FuseType, int, bool) const {
    noFuses();
}

bool NvmController::readFuseBit(FuseType, int) const {
    noFuses();
}

// ---- Hlx7 parts ----

void NvmController::AdjustBaseAddressHLX7() const {
    if (!block->hasHlx7Rows || baseAddressAdjusted) return;
    Bytes level(1);
    readMemory(HLX7_ACCESS_LEVEL, 1, level.begin());
    debugAccessLevel = level[0] & 3;
    info.registerBase = debugAccessLevel == 1 ? HLX7_BASE_LEVEL1 : HLX7_BASE_OTHER;
    baseAddressAdjusted = true;
}

namespace {

class Sha256 {
public:
    Sha256() : context(EVP_MD_CTX_new()) {
        if (!context || EVP_DigestInit_ex(context, EVP_sha256(), nullptr) != 1)
            throw GenericError(std::string("SHA-256 is not available."));
    }
    ~Sha256() { EVP_MD_CTX_free(context); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void feed(const unsigned char* begin, size_t size) { EVP_DigestUpdate(context, begin, size); }
    // Writes the 32-byte digest at out.
    void finish(unsigned char* out) {
        unsigned int length = 0;
        EVP_DigestFinal_ex(context, out, &length);
    }

private:
    EVP_MD_CTX* context;
};

void logHlx7(const FormatString& text) {
    if (gLogMask & LOG_MASK_DEBUG) BackendLogger::debug(L_HLX7, text);
}

}  // namespace

void NvmController::writeHlx7Row(uint64_t address, unsigned size,
                                 Bytes::const_iterator data) const {
    // Set by people who prepare their rows themselves: the bytes go to the
    // chip as given, with no check values and no refusals.
    const bool compute = std::getenv(NO_COMPUTE_VARIABLE) == nullptr;
    const bool bootRow = compute && address == HLX7_BOOT_ROW;
    const bool configRow = compute && address == HLX7_CONFIG_ROW;
    // The check values sit at fixed row offsets; a shorter write would put
    // them (or read the fields) outside the caller's bytes.
    if (bootRow && size != BOOT_ROW_SIZE)
        CoreException::createAndThrow("dbg", ERR_INVALID_ARGUMENT,
                                      "A boot configuration row write must cover the whole "
                                      "0x%x-byte row, not 0x%x bytes.",
                                      BOOT_ROW_SIZE, size);
    if (configRow && size < CONFIG_ROW_MIN)
        CoreException::createAndThrow("dbg", ERR_INVALID_ARGUMENT,
                                      "A configuration row write must cover at least 0x%x "
                                      "bytes, not 0x%x.",
                                      CONFIG_ROW_MIN, size);
    Bytes row(data, data + size);
    if (configRow) putLittle32(&row[0x1C], ~crc32(&row[8], &row[0x1C]));
    int bootOption = 0;
    if (bootRow) {
        putLittle32(&row[8], ~crc32(&row[0], &row[8]));
        bootOption = row[3] & 3;
        Sha256 sha;
        if (bootOption > 1) {
            sha.feed(&row[0x50], BOOT_KEY_SIZE);
            sha.feed(&row[0x50], BOOT_KEY_SIZE);
        }
        sha.feed(&row[0], 0xE0);
        sha.finish(&row[0xE0]);
        // Clearing BCWEN while voiding a stored CEKEY2 would lock the
        // debugger out for good.
        if (debugAccessLevel == 2 && allZero(&row[0x30], 16)) {
            Bytes stored(16);
            readMemory(HLX7_STORED_CEKEY2, 16, stored.begin());
            if (!allZero(stored.data(), stored.size()) && !(row[6] & 1))
                controllerError(ERR_NVM_CONTROLLER,
                                "Antibrick: cannot set BCWEN to 0 and void "
                                "the CEKEY2 in the same opeation.");
        }
    }
    eraseAuxInternal(address, size);
    programChip(address, size, row.cbegin(), true, false);
    if (!bootRow || bootOption == 0) return;
    const unsigned bootProt = unsigned(row[4]) << 8;
    const unsigned bootSize = unsigned(row[1]) << 8;
    const unsigned nonSecureCallableSize = unsigned(row[2] & 0x3F) << 5;
    if (bootProt >= bootSize && int64_t(bootSize) - int64_t(nonSecureCallableSize) >= 0x100) {
        logHlx7(
            FormatString("Read sizes from fuses : bootprot=0x%x, bs=0x%x, bnsc=0x%x , "
                         "bootopt=%x\n",
                         bootProt, bootSize, nonSecureCallableSize, bootOption));
        AddBootHashHlx7(bootSize, nonSecureCallableSize, bootOption);
    } else if (nonSecureCallableSize > bootSize) {
        logHlx7(
            FormatString("No boot hash written: non-secure-callable size 0x%x exceeds the "
                         "boot size 0x%x\n",
                         nonSecureCallableSize, bootSize));
    }
}

void NvmController::AddBootHashHlx7(unsigned bootSize, unsigned nonSecureCallableSize,
                                    int bootOption) const {
    if (bootOption == 0) return;
    // The hash sits in the 32 bytes below the non-secure-callable part; the
    // sizes come from the row and may describe no such place.
    if (int64_t(bootSize) - int64_t(nonSecureCallableSize) < int64_t(DIGEST_SIZE) ||
        bootSize > info.size) {
        logHlx7(
            FormatString("No boot hash written: boot size 0x%x with non-secure-callable "
                         "size 0x%x does not fit the flash of 0x%x bytes\n",
                         bootSize, nonSecureCallableSize, info.size));
        return;
    }
    Sha256 sha;
    if (bootOption != 1) {
        Bytes key(BOOT_KEY_SIZE);
        readMemory(HLX7_STORED_BOOT_KEY, BOOT_KEY_SIZE, key.begin());
        sha.feed(key.data(), key.size());
        sha.feed(key.data(), key.size());
    }
    Bytes image(bootSize);
    readMemory(info.startAddress, bootSize, image.begin());
    const unsigned secureEnd = bootSize - nonSecureCallableSize;
    const unsigned hashOffset = secureEnd - DIGEST_SIZE;
    sha.feed(image.data(), hashOffset);
    if (nonSecureCallableSize != 0) sha.feed(image.data() + secureEnd, nonSecureCallableSize);
    sha.finish(&image[hashOffset]);
    // Rewrite the 0x100-byte block around the hash with all else as read.
    const unsigned block = hashOffset & ~0xFFu;
    programChip(info.startAddress + block, 0x100, image.cbegin() + block, true, true);
    logHlx7(FormatString(" Hash written at 0x%08x\n", hashOffset));
}
