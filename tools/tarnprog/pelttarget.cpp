// The simulated 32-bit Pelt parts.
//
// Everything goes through the PeltInternalFlash driver over the chip's
// target interface, as a probe-backed target would: the planner's page
// writes (the driver erases each page it writes), the region locks, the
// user page, the general purpose fuses and the security bit.

#include "errors.h"
#include "simtargets.h"

#include "libcommon/core/status.h"
#include "libcommon/flash/flashinformation.h"
#include "libcommon/flash/peltinternalflash.h"
#include "libcommon/memory/targetaccessors.h"
#include "sim/peltchip.h"

#include <boost/make_shared.hpp>

#include <cstdio>
#include <sstream>

namespace tarnprog {

namespace {

const ITarn32Target::MemoryType MEMORY = static_cast<ITarn32Target::MemoryType>(0);
const uint32_t SECURITY_BIT = 1u << 4;  // of FSR

class PeltTarget : public ITarget, public IProtection {
public:
    explicit PeltTarget(boost::shared_ptr<DIDevice> device)
        : device(device),
          chip(boost::make_shared<PeltChip>(device)),
          memory(boost::make_shared<SimpleTarn32MemoryAccessor>(chip, MEMORY, MEMORY)),
          driver(boost::make_shared<PeltInternalFlash>(device, memory)),
          info(driver->getFlashInfo()),
          units(driver, memory, true) {
        units.setLockQuery(
            [this](uint64_t address, uint32_t size) { return anyLocked(address, size); });
    }

    boost::shared_ptr<DIDevice> getDevice() const override { return device; }
    std::string describe() const override { return "simulated " + device->getName(); }
    std::string describeController() const override {
        char text[200];
        std::snprintf(text, sizeof text,
                      "%s at 0x%llx: page erase and write, 16 lock regions of %u pages, user "
                      "page at 0x%llx, %u general purpose fuse bits",
                      info.moduleName.c_str(), static_cast<unsigned long long>(info.registerBase),
                      info.pagesPerRegion, static_cast<unsigned long long>(userPageAddress()),
                      static_cast<unsigned>(driver->getFusesSize() * 8));
        return text;
    }

    IFlashUnits& flash() override { return units; }

    std::vector<std::pair<std::string, uint64_t>> readableSpaces() override {
        return {{"flash", info.size}, {"user_page", info.pageSize}};
    }

    // "flash" and "user_page" at their absolute addresses.
    std::vector<unsigned char> read(const std::string& space, uint64_t address,
                                    uint32_t size) override {
        uint64_t start = 0, length = 0;
        if (space == "flash") {
            start = info.startAddress;
            length = info.size;
        } else if (space == "user_page") {
            start = userPageAddress();
            length = info.pageSize;
        } else {
            throw UsageError("no memory '" + space + "' on " + device->getName() +
                             " (flash, user_page)");
        }
        checkRange(space, start, start + length - 1, address, size);
        std::vector<unsigned char> data(size);
        memory->read(address, size, data.begin(), boost::shared_ptr<MemoryError>(), nullptr);
        return data;
    }

    IProtection& protection() override { return *this; }

    TargetCounters getCounters() const override {
        const PeltChip::Counters& c = chip->getCounters();
        TargetCounters counters;
        for (uint64_t count : c.commands) {
            counters.commands += count;
        }
        counters.eraseCommands = c.commands[PeltChip::CMD_EP] + c.commands[PeltChip::CMD_EA] +
                                 c.commands[PeltChip::CMD_EUP];
        counters.programCommands = c.commands[PeltChip::CMD_WP] + c.commands[PeltChip::CMD_WUP];
        counters.bytesRead = c.bytesRead;
        counters.bytesWritten = c.bytesWritten;
        return counters;
    }

    void load(const std::string& path) override {
        ChipState state;
        if (!loadState(path, state)) {
            return;
        }
        const std::vector<unsigned char>* saved = state.find("chip");
        if (state.device != device->getName() || saved == nullptr) {
            checkState(path, state, device->getName(), {{"chip", 0}});
        }
        std::istringstream in(std::string(saved->begin(), saved->end()));
        try {
            chip->load(in);
        } catch (const std::exception& e) {
            throw TargetError("unreadable state file " + path + ": " + e.what() +
                              " (delete it to start from a blank chip)");
        }
    }

    void save(const std::string& path) override {
        std::ostringstream out;
        chip->save(out);
        const std::string bytes = out.str();
        ChipState state;
        state.device = device->getName();
        state.blocks.emplace_back("chip", std::vector<unsigned char>(bytes.begin(), bytes.end()));
        saveState(path, state);
    }

    // ---- IProtection ----
    std::vector<std::string> describe() override {
        const uint32_t fsr = readRegister(info.thirdRegister);
        std::string locked;
        for (unsigned i = 0; i < 16; ++i) {
            if (fsr >> (16 + i) & 1) {
                locked += (locked.empty() ? "" : " ") + std::to_string(i);
            }
        }
        char fuses[64];
        std::snprintf(fuses, sizeof fuses, "general purpose fuses 0x%016llx",
                      static_cast<unsigned long long>(readFuses()));
        return {"16 lock regions of " + std::to_string(regionSize()) +
                    " bytes; locked: " + (locked.empty() ? "none" : locked),
                // The SECURITY flag itself: the driver's level reads a bit
                // that the flash size code shares.
                std::string("security bit ") + (fsr & SECURITY_BIT ? "set" : "clear"), fuses};
    }

    void lock(uint64_t, uint64_t) override {
        try {
            driver->setLockBit(0);
        } catch (const GenericError& e) {
            throw TargetError(device->getName() + " cannot lock regions through its driver (" +
                              e.what() + ")");
        }
    }
    void unlock(uint64_t address, uint64_t size) override {
        driver->unlockRegion(address, static_cast<unsigned>(size));
    }
    void setSecurityLevel(int level) override {
        driver->setSecurityLevel(static_cast<InternalFlash::SecurityLevel>(level));
    }

    std::vector<unsigned char> readUserPage() override {
        std::vector<unsigned char> page(info.pageSize);
        driver->readUserPage(userPageAddress(), info.pageSize, page.begin());
        return page;
    }
    // The driver reads the page first and keeps what the data does not cover.
    void writeUserPage(uint64_t offset, const std::vector<unsigned char>& data) override {
        if (offset > info.pageSize || data.size() > info.pageSize - offset) {
            throw UsageError(std::to_string(data.size()) + " bytes at offset " +
                             std::to_string(offset) + " do not fit the " +
                             std::to_string(info.pageSize) + "-byte user page");
        }
        driver->programUserPage(userPageAddress() + offset, static_cast<unsigned>(data.size()),
                                data.begin());
    }

    uint64_t readFuses() override {
        const Packet low = driver->readFuses(InternalFlash::GeneralPurposeFuses);
        uint64_t value = 0;
        for (size_t i = 0; i < low.size() && i < 4; ++i) {
            value |= uint64_t(low[i]) << (8 * i);
        }
        if (driver->getFusesSize() == 8) {
            value |= uint64_t(readRegister(info.fuseHiRegister)) << 32;
        }
        return value;
    }
    void writeFuse(int index, bool value) override {
        driver->modifyFusebit(InternalFlash::GeneralPurposeFuses, index, value);
    }

private:
    uint64_t userPageAddress() const { return info.startAddress + info.userPageOffset; }
    uint32_t regionSize() const { return info.pagesPerRegion * info.pageSize; }

    uint32_t readRegister(uint64_t address) {
        std::vector<unsigned char> word(4);
        memory->read(address, 4, word.begin(), boost::shared_ptr<MemoryError>(), nullptr);
        return word[0] | word[1] << 8 | word[2] << 16 | uint32_t(word[3]) << 24;
    }

    bool anyLocked(uint64_t address, uint32_t size) {
        const uint32_t locks = readRegister(info.thirdRegister) >> 16;
        const uint64_t first = (address - info.startAddress) / regionSize();
        const uint64_t last = (address - info.startAddress + size - 1) / regionSize();
        for (uint64_t i = first; i <= last && i < 16; ++i) {
            if (locks >> i & 1) {
                return true;
            }
        }
        return false;
    }

    boost::shared_ptr<DIDevice> device;
    boost::shared_ptr<PeltChip> chip;
    boost::shared_ptr<IMemoryAccessor> memory;
    boost::shared_ptr<PeltInternalFlash> driver;
    FlashInformation info;
    InternalFlashUnits units;
};

}  // namespace

boost::shared_ptr<ITarget> createPeltTarget(boost::shared_ptr<DIDevice> device) {
    return boost::make_shared<PeltTarget>(device);
}

}  // namespace tarnprog
