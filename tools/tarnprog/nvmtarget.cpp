// The simulated Cortex-M parts with an NVMCTRL flash controller.
//
// Everything goes through the NvmController driver over the chip's memory
// map, as a probe-backed target would: the planner's erases and writes,
// lock bits, security level and the user page (the auxiliary row, written
// with writeAux after AdjustBaseAddressHLX7, so that the anti-brick check of
// the secure-boot parts is armed). Every run on the controller ends with
// restoreCfgRegs, which reports what the controller flagged.

#include "errors.h"
#include "simtargets.h"

#include "libcommon/core/status.h"
#include "libcommon/flash/flashinformation.h"
#include "libcommon/flash/nvmcontroller.h"
#include "sim/nvmchip.h"

#include <boost/make_shared.hpp>

#include <cstdio>

namespace tarnprog {

namespace {

class NvmTarget : public ITarget, public IProtection {
public:
    explicit NvmTarget(boost::shared_ptr<DIDevice> device)
        : device(device),
          chip(boost::make_shared<NvmChip>(device)),
          info(device),
          driver(boost::make_shared<NvmController>(info, chip, false)),
          units(driver, chip, false) {
        units.setLockQuery(
            [this](uint64_t address, uint32_t size) { return anyLocked(address, size); });
        const boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace("base");
        boost::shared_ptr<DIMemorySegment> page;
        if (base) {
            page = base->getMemorySegment("USER_PAGE");
            if (!page) {
                page = base->getMemorySegment("AUX0");
            }
        }
        if (page) {
            userPageSize = static_cast<uint32_t>(page->getSize());
        }
    }

    boost::shared_ptr<DIDevice> getDevice() const override { return device; }
    std::string describe() const override { return "simulated " + device->getName(); }
    std::string describeController() const override {
        const char* block = info.isU2409 ? "U2409" : info.isU2802 ? "U2802" : "plain";
        char text[200];
        std::snprintf(text, sizeof text,
                      "NVMCTRL (%s block) at 0x%llx: erase unit %u pages, %u lock regions%s", block,
                      static_cast<unsigned long long>(info.registerBase),
                      static_cast<unsigned>(info.eraseUnitPages), regionCount(),
                      info.hasUserPage ? ", user page" : "");
        return text;
    }

    IFlashUnits& flash() override { return units; }

    std::vector<std::pair<std::string, uint64_t>> readableSpaces() override {
        std::vector<std::pair<std::string, uint64_t>> spaces;
        for (const std::string& name : chip->getRegionNames()) {
            spaces.emplace_back(name, chip->getRegion(name).bytes.size());
        }
        return spaces;
    }

    // Memories by segment name, at their absolute addresses.
    std::vector<unsigned char> read(const std::string& space, uint64_t address,
                                    uint32_t size) override {
        std::string names;
        for (const auto& known : readableSpaces()) {
            if (known.first == space) {
                const uint64_t start = chip->getRegion(space).start;
                checkRange(space, start, start + known.second - 1, address, size);
                std::vector<unsigned char> data(size);
                chip->read(address, size, data.begin(), boost::shared_ptr<MemoryError>(), nullptr);
                return data;
            }
            names += (names.empty() ? "" : ", ") + known.first;
        }
        throw UsageError("no memory '" + space + "' on " + device->getName() + " (" + names + ")");
    }

    IProtection& protection() override { return *this; }

    TargetCounters getCounters() const override {
        const NvmChip::Counters& c = chip->getCounters();
        TargetCounters counters;
        for (const auto& command : c.commands) {
            counters.commands += command.second;
        }
        counters.eraseCommands = c.unitsErased;
        counters.programCommands = c.pagesProgrammed;
        counters.commands += c.pagesProgrammed;
        counters.bytesRead = c.bytesRead;
        counters.bytesWritten = c.bytesWritten;
        return counters;
    }

    void load(const std::string& path) override {
        ChipState state;
        if (!loadState(path, state)) {
            return;
        }
        std::vector<std::pair<std::string, size_t>> blocks{{"lockbits", 4}, {"security", 1}};
        for (const std::string& name : chip->getRegionNames()) {
            blocks.emplace_back(name, chip->getRegion(name).bytes.size());
        }
        checkState(path, state, device->getName(), blocks);
        for (const std::string& name : chip->getRegionNames()) {
            chip->setRegionBytes(name, *state.find(name));
        }
        const std::vector<unsigned char>& lock = *state.find("lockbits");
        chip->setLockBits(lock[0] | lock[1] << 8 | lock[2] << 16 | uint32_t(lock[3]) << 24);
        chip->setSecurityLevel(state.find("security")->front());
    }

    void save(const std::string& path) override {
        ChipState state;
        state.device = device->getName();
        for (const std::string& name : chip->getRegionNames()) {
            state.blocks.emplace_back(name, chip->getRegionBytes(name));
        }
        const uint32_t lock = chip->getLockBits();
        state.blocks.emplace_back(
            "lockbits", std::vector<unsigned char>{static_cast<unsigned char>(lock),
                                                   static_cast<unsigned char>(lock >> 8),
                                                   static_cast<unsigned char>(lock >> 16),
                                                   static_cast<unsigned char>(lock >> 24)});
        state.blocks.emplace_back(
            "security",
            std::vector<unsigned char>{static_cast<unsigned char>(chip->getSecurityLevel())});
        saveState(path, state);
    }

    // ---- IProtection ----
    std::vector<std::string> describe() override {
        std::string locked;
        for (unsigned i = 0; i < regionCount(); ++i) {
            if (regionLocked(i)) {
                locked += (locked.empty() ? "" : " ") + std::to_string(i);
            }
        }
        char text[160];
        std::snprintf(text, sizeof text, "%u lock regions of 0x%x bytes; locked: %s", regionCount(),
                      regionSize(), locked.empty() ? "none" : locked.c_str());
        return {text, "security level " + std::to_string(chip->getSecurityLevel())};
    }

    void lock(uint64_t address, uint64_t size) override {
        run([&]() {
            for (unsigned i : regionsOf(address, size)) {
                driver->setLockBit(i);
            }
        });
    }

    void unlock(uint64_t address, uint64_t size) override {
        regionsOf(address, size);  // checks the range
        run([&]() { driver->unlockRegion(address, static_cast<unsigned>(size)); });
    }

    void setSecurityLevel(int level) override {
        run([&]() { driver->setSecurityLevel(static_cast<InternalFlash::SecurityLevel>(level)); });
    }

    std::vector<unsigned char> readUserPage() override {
        requireUserPage();
        return read(userPageName(), info.userPageAddress, userPageSize);
    }

    // The row is erased and written whole; bytes outside the new data are
    // read first and kept.
    void writeUserPage(uint64_t offset, const std::vector<unsigned char>& data) override {
        requireUserPage();
        if (offset > userPageSize || data.size() > userPageSize - offset) {
            throw UsageError(std::to_string(data.size()) + " bytes at offset " +
                             std::to_string(offset) + " do not fit the " +
                             std::to_string(userPageSize) + "-byte user page");
        }
        std::vector<unsigned char> row = readUserPage();
        std::copy(data.begin(), data.end(), row.begin() + offset);
        run([&]() {
            driver->AdjustBaseAddressHLX7();
            driver->eraseAux(info.userPageAddress, userPageSize);
            driver->writeAux(info.userPageAddress, userPageSize, row.begin());
        });
    }

    // Fuses are not this controller's: the driver says so.
    uint64_t readFuses() override {
        driver->readFuses(InternalFlash::GeneralPurposeFuses);
        return 0;
    }
    void writeFuse(int index, bool value) override {
        run([&]() { driver->modifyFusebit(InternalFlash::GeneralPurposeFuses, index, value); });
    }

private:
    static std::string hexText(uint64_t value) {
        char text[24];
        std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
        return text;
    }

    unsigned regionCount() const { return info.isU2409 ? 32 : 16; }
    uint32_t regionSize() const { return info.size / regionCount(); }

    uint32_t lockRegister() {
        if (info.isU2802) {
            // The driver cannot read this block's lock register.
            return chip->getLockBits();
        }
        const Packet bits = driver->getLockBits();
        return bits[0] | bits[1] << 8 | bits[2] << 16 | uint32_t(bits[3]) << 24;
    }
    // A set bit in the lock register means the region is unlocked.
    bool regionLocked(unsigned i) { return !(lockRegister() >> i & 1); }

    bool anyLocked(uint64_t address, uint32_t size) {
        if (!info.inRange(address)) {
            return false;  // the read-while-write section has no lock bits
        }
        for (unsigned i : regionsOf(address, size)) {
            if (regionLocked(i)) {
                return true;
            }
        }
        return false;
    }

    std::vector<unsigned> regionsOf(uint64_t address, uint64_t size) const {
        if (size == 0 || !info.inRange(address) || size > info.getEndAddress() - address) {
            throw UsageError("0x" + hexText(address) + "+0x" + hexText(size) +
                             " is not inside the flash");
        }
        std::vector<unsigned> regions;
        const uint64_t offset = address - info.startAddress;
        for (uint64_t i = offset / regionSize(); i <= (offset + size - 1) / regionSize(); ++i) {
            regions.push_back(static_cast<unsigned>(i));
        }
        return regions;
    }

    void requireUserPage() const {
        if (!info.hasUserPage || userPageSize == 0) {
            throw TargetError(device->getName() + " has no user page");
        }
    }
    std::string userPageName() const {
        for (const std::string& name : chip->getRegionNames()) {
            if (chip->getRegion(name).start == info.userPageAddress) {
                return name;
            }
        }
        return "USER_PAGE";
    }

    // One run on the controller, always closed with restoreCfgRegs; its
    // report counts only when the run itself went well.
    template <typename Work>
    void run(Work work) {
        try {
            work();
        } catch (...) {
            try {
                driver->restoreCfgRegs();
            } catch (...) {
            }
            throw;
        }
        driver->restoreCfgRegs();
    }

    boost::shared_ptr<DIDevice> device;
    boost::shared_ptr<NvmChip> chip;
    NvmControllerInformation info;
    boost::shared_ptr<NvmController> driver;
    InternalFlashUnits units;
    uint32_t userPageSize = 0;
};

}  // namespace

boost::shared_ptr<ITarget> createNvmTarget(boost::shared_ptr<DIDevice> device) {
    return boost::make_shared<NvmTarget>(device);
}

}  // namespace tarnprog
