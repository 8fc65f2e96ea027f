// The simulated 8-bit Tarn chips.
//
// Programming goes through the program memory stack that a memory context
// builds for the part, so the planner's page erases and page writes reach
// the chip as the library's accessors shape them. Two things of the real
// parts' programming interface that the target interface does not carry
// are modelled here: the flash controller's check value over a range, which
// the chip computes without sending the bytes, and the chip erase, which
// also clears the lock bits. A lock bits value with either of its two low
// bits cleared disables flash programming until a chip erase.

#include "errors.h"
#include "simtargets.h"

#include "libcommon/device/didevicehelper.h"
#include "libcommon/memory/targetaccessors.h"
#include "libcommon/stringconstants.h"
#include "sim/tarn8chip.h"

#include <boost/make_shared.hpp>

#include <cstdio>

namespace tarnprog {

namespace {

const char* const LOCKBITS = "lockbits";
const unsigned char LOCK_MASK = 0x03;

uint32_t crcOf(std::vector<unsigned char>::const_iterator data, uint32_t size) {
    return SimpleTarn8MemoryAccessor::CRC_Reference(data, 0, static_cast<int>(size));
}

class Tarn8Target;

class Tarn8Flash : public AccessorFlashUnits {
public:
    Tarn8Flash(Tarn8Target& target, boost::shared_ptr<IMemoryAccessor> stack,
               const std::vector<FlashRegion>& regions)
        : AccessorFlashUnits(stack, regions), target(target) {}
    bool isLocked(uint64_t address, uint32_t size) override;

private:
    Tarn8Target& target;
};

class Tarn8Target : public ITarget, public IProtection {
public:
    explicit Tarn8Target(boost::shared_ptr<DIDevice> device)
        : device(device), chip(boost::make_shared<Tarn8Chip>(device)) {
        uint64_t flashSize = 0;
        DIDeviceHelper::getFlashAttributes(device, &flashSize, nullptr, nullptr);
        const uint32_t page = chip->getFlashPageSize();
        boost::shared_ptr<StackMemoryContext> prog = context(ADDRSPACE_PROG);
        flashUnits.reset(
            new Tarn8Flash(*this, prog->getAccessor(), {FlashRegion{0, flashSize, page, page}}));
        flashUnits->setChecksum(
            [this](uint64_t address, uint32_t size) {
                ++checksumCommands;
                const std::vector<unsigned char> bytes =
                    chip->peek(ADDRSPACE_PROG, static_cast<uint32_t>(address), size);
                return crcOf(bytes.begin(), size);
            },
            crcOf, 2);
        flashUnits->setChipErase([this]() {
            ++chipErases;
            chip->chipErase();
            if (chip->hasMemory(LOCKBITS)) {
                chip->poke(LOCKBITS, 0, {0xFF});
            }
        });
    }

    boost::shared_ptr<DIDevice> getDevice() const override { return device; }
    std::string describe() const override { return "simulated " + device->getName(); }
    std::string describeController() const override {
        std::string text =
            "8-bit Tarn on-chip programming: page erase, page write, "
            "check value over 16-bit words, chip erase";
        if (chip->getBootSize() != 0) {
            char boot[96];
            std::snprintf(boot, sizeof boot, "; boot section 0x%x-0x%x", chip->getBootStart(),
                          chip->getBootStart() + chip->getBootSize() - 1);
            text += boot;
        }
        return text;
    }

    IFlashUnits& flash() override { return *flashUnits; }

    std::vector<std::pair<std::string, uint64_t>> readableSpaces() override {
        std::vector<std::pair<std::string, uint64_t>> spaces;
        for (const std::string& name : chip->getMemoryNames()) {
            spaces.emplace_back(name, chip->getMemory(name).bytes.size());
        }
        return spaces;
    }

    std::vector<unsigned char> read(const std::string& space, uint64_t address,
                                    uint32_t size) override {
        if (!chip->hasMemory(space)) {
            std::string names;
            for (const auto& known : readableSpaces()) {
                names += (names.empty() ? "" : ", ") + known.first;
            }
            throw UsageError("no memory '" + space + "' on " + device->getName() + " (" + names +
                             ")");
        }
        return readContext(*context(space), address, size);
    }

    IProtection& protection() override { return *this; }

    TargetCounters getCounters() const override {
        const Tarn8Chip::Counters& c = chip->getCounters();
        TargetCounters counters;
        counters.eraseCommands = c.eraseCalls + chipErases;
        counters.programCommands = c.writeCalls;
        counters.checksumCommands = checksumCommands;
        counters.commands =
            c.readCalls + c.writeCalls + c.eraseCalls + chipErases + checksumCommands;
        counters.bytesRead = c.bytesRead;
        counters.bytesWritten = c.bytesWritten;
        counters.bytesErased = c.bytesErased;
        return counters;
    }

    void load(const std::string& path) override {
        ChipState state;
        if (!loadState(path, state)) {
            return;
        }
        std::vector<std::pair<std::string, size_t>> blocks;
        for (const std::string& name : chip->getMemoryNames()) {
            blocks.emplace_back(name, chip->getMemory(name).bytes.size());
        }
        checkState(path, state, device->getName(), blocks);
        for (const auto& block : blocks) {
            chip->poke(block.first, 0, *state.find(block.first));
        }
    }

    void save(const std::string& path) override {
        ChipState state;
        state.device = device->getName();
        for (const std::string& name : chip->getMemoryNames()) {
            state.blocks.emplace_back(name, chip->getMemory(name).bytes);
        }
        saveState(path, state);
    }

    // ---- IProtection ----
    bool flashLocked() const {
        return chip->hasMemory(LOCKBITS) &&
               (chip->peek(LOCKBITS, 0, 1)[0] & LOCK_MASK) != LOCK_MASK;
    }

    std::vector<std::string> describe() override {
        if (!chip->hasMemory(LOCKBITS)) {
            return {"no lock bits"};
        }
        char text[96];
        std::snprintf(text, sizeof text, "lock bits 0x%02X: flash programming %s",
                      chip->peek(LOCKBITS, 0, 1)[0], flashLocked() ? "disabled" : "enabled");
        return {text};
    }

    void lock(uint64_t, uint64_t) override {
        // The lock bits lock the whole flash; they are written through their
        // own memory context like any other byte.
        std::vector<unsigned char> value = read(LOCKBITS, 0, 1);
        value[0] &= static_cast<unsigned char>(~LOCK_MASK);
        boost::shared_ptr<IMemoryError> error;
        context(LOCKBITS)->setMemory(0, 0, value, 0, 1, AccessPlain, nullptr, error);
        if (error && !error->isOk()) {
            throw TargetError("writing the lock bits failed");
        }
    }

    void unlock(uint64_t, uint64_t) override {
        throw TargetError("the lock bits of " + device->getName() +
                          " are cleared only by a chip erase (tarnprog erase " + device->getName() +
                          " --chip)");
    }

    void setSecurityLevel(int) override { notOnThisPart("a security level; its lock bits"); }
    std::vector<unsigned char> readUserPage() override {
        notOnThisPart("a user page; read its user_signatures");
    }
    void writeUserPage(uint64_t, const std::vector<unsigned char>&) override {
        notOnThisPart("a user page");
    }
    uint64_t readFuses() override { notOnThisPart("fuse bits; read its fuses memory"); }
    void writeFuse(int, bool) override { notOnThisPart("general purpose fuse bits"); }

private:
    [[noreturn]] void notOnThisPart(const std::string& what) {
        throw TargetError(device->getName() + " has no " + what +
                          " (tarnprog protection shows what it has)");
    }

    boost::shared_ptr<StackMemoryContext> context(const std::string& space) {
        auto found = contexts.find(space);
        if (found != contexts.end()) {
            return found->second;
        }
        // Only the data space needs debug access; every other space gets
        // the programming interface's stack.
        boost::shared_ptr<StackMemoryContext> created = boost::make_shared<StackMemoryContext>(
            boost::shared_ptr<IMemoryContext>(), boost::shared_ptr<IProcessContext>(), space,
            device, chip, space == ADDRSPACE_DATA);
        contexts[space] = created;
        return created;
    }

    boost::shared_ptr<DIDevice> device;
    boost::shared_ptr<Tarn8Chip> chip;
    std::map<std::string, boost::shared_ptr<StackMemoryContext>> contexts;
    std::unique_ptr<Tarn8Flash> flashUnits;
    uint64_t checksumCommands = 0;
    uint64_t chipErases = 0;
};

bool Tarn8Flash::isLocked(uint64_t, uint32_t) {
    return target.flashLocked();
}

}  // namespace

boost::shared_ptr<ITarget> createTarn8Target(boost::shared_ptr<DIDevice> device) {
    return boost::make_shared<Tarn8Target>(device);
}

}  // namespace tarnprog
