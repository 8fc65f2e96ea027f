#include "libcommon/flash/flashprogrammer.h"

#include "libcommon/flash/flashinformation.h"

#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"
#include "libcommon/memory/memorycontext.h"
#include "libcommon/memory/targetaccessors.h"
#include "sim/tarn8chip.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <numeric>
#include <set>
#include <stdexcept>

namespace {

typedef std::vector<unsigned char> Bytes;

// A flash in memory with real flash semantics: erase sets a unit to 0xFF,
// programming can only clear bits and must stay in one unit. It counts every
// command and can offer a check value, locks and failures.
class FakeFlash : public IFlashUnits {
public:
    explicit FakeFlash(std::vector<FlashRegion> regions) : regions(regions) {
        uint64_t end = 0;
        for (const FlashRegion& region : regions) {
            end = std::max(end, region.end());
        }
        bytes.assign(end, 0xFF);
    }

    std::vector<FlashRegion> getRegions() const override { return regions; }
    void begin() override { ++begins; }
    void end() override {
        ++ends;
        if (failAtEnd) {
            throw std::runtime_error("controller error");
        }
    }
    void read(uint64_t address, uint32_t size, Bytes::iterator data) override {
        ++reads;
        bytesRead += size;
        std::copy_n(bytes.begin() + address, size, data);
    }
    void eraseUnit(uint64_t address, uint32_t size) override {
        EXPECT_EQ(0u, address % unitOf(address).unitSize);
        EXPECT_EQ(unitOf(address).unitSize, size);
        EXPECT_FALSE(locked.count(address)) << "erase of a locked unit";
        erased.push_back(address);
        std::fill_n(bytes.begin() + address, size, 0xFF);
    }
    void program(uint64_t address, uint32_t size, Bytes::const_iterator data) override {
        if (failProgramAt == address) {
            throw std::runtime_error("program failed");
        }
        const FlashRegion& region = unitOf(address);
        const uint64_t unit = address - (address - region.start) % region.unitSize;
        EXPECT_LE(address + size, unit + region.unitSize) << "program crosses a unit";
        EXPECT_EQ(0u, (address - region.start) % region.pageSize);
        EXPECT_EQ(0u, size % region.pageSize);
        ++programs;
        bytesWritten += size;
        for (uint32_t i = 0; i < size; ++i) {
            bytes[address + i] = selfErasing ? data[i] : bytes[address + i] & data[i];
        }
    }
    bool programErases() const override { return selfErasing; }
    bool eraseChip() override {
        if (!hasChipErase) {
            return false;
        }
        ++chipErases;
        locked.clear();
        std::fill(bytes.begin(), bytes.end(), 0xFF);
        return true;
    }
    bool checksum(uint64_t address, uint32_t size, uint32_t& value) override {
        if (!hasChecksum) {
            return false;
        }
        ++checksums;
        value = expectedChecksum(bytes.cbegin() + address, size);
        return true;
    }
    uint32_t expectedChecksum(Bytes::const_iterator data, uint32_t size) const override {
        return SimpleTarn8MemoryAccessor::CRC_Reference(data, 0, static_cast<int>(size));
    }
    uint32_t checksumAlignment() const override { return 2; }
    bool isLocked(uint64_t address, uint32_t size) override {
        for (uint64_t unit : locked) {
            if (unit >= address && unit < address + size) {
                return true;
            }
        }
        return false;
    }
    bool canUnlock() const override { return unlockable; }
    void unlock(uint64_t address, uint32_t size) override {
        unlocked.push_back(address);
        for (auto it = locked.begin(); it != locked.end();) {
            it = (*it >= address && *it < address + size) ? locked.erase(it) : std::next(it);
        }
    }

    void resetCounters() {
        reads = programs = checksums = chipErases = 0;
        bytesRead = bytesWritten = 0;
        erased.clear();
        unlocked.clear();
    }

    const FlashRegion& unitOf(uint64_t address) const {
        for (const FlashRegion& region : regions) {
            if (region.contains(address)) {
                return region;
            }
        }
        throw std::logic_error("outside the fake flash");
    }

    std::vector<FlashRegion> regions;
    Bytes bytes;
    bool hasChecksum = false;
    bool hasChipErase = false;
    bool unlockable = false;
    bool selfErasing = false;
    bool failAtEnd = false;
    uint64_t failProgramAt = ~0ull;
    std::set<uint64_t> locked;
    std::vector<uint64_t> erased;
    std::vector<uint64_t> unlocked;
    int begins = 0, ends = 0, reads = 0, programs = 0, checksums = 0, chipErases = 0;
    uint64_t bytesRead = 0, bytesWritten = 0;
};

// Two regions with different units: 4 units of 256 bytes (pages of 64) at 0,
// then a hole, then 2 units of 1 KiB (pages of 256) at 0x1000.
std::vector<FlashRegion> twoRegions() {
    return {FlashRegion{0, 0x400, 0x100, 0x40}, FlashRegion{0x1000, 0x800, 0x400, 0x100}};
}

Bytes pattern(size_t size, unsigned seed) {
    Bytes data(size);
    for (size_t i = 0; i < size; ++i) {
        data[i] = static_cast<unsigned char>((i * 7 + seed) % 251);
    }
    return data;
}

FlashImage imageOf(uint64_t address, const Bytes& data) {
    FlashImage image;
    image.add(address, data);
    return image;
}

ErrorCode codeOf(const CoreException& e) {
    return e.getStatus()->getErrorCode();
}

class CancelAfter : public IntermediateResult {
public:
    explicit CancelAfter(unsigned units) : units(units) {}
    void worked(unsigned int amount) override {
        IntermediateResult::worked(amount);
        if (getDescription() == "Programming" && amount && ++seen >= units) {
            setCancel(true);
        }
    }
    unsigned units;
    unsigned seen = 0;
};

}  // namespace

TEST(FlashImage, MergesRunsAndLetsTheLaterOneWin) {
    FlashImage image;
    image.add(0x10, Bytes{1, 2, 3});
    image.add(0x20, Bytes{9});
    image.add(0x13, Bytes{4, 5});        // touches the end of the first run
    image.add(0x0E, Bytes{7, 8, 0xAA});  // overlaps its start; wins at 0x10
    ASSERT_EQ(2u, image.getSegments().size());
    EXPECT_EQ(0x0Eu, image.getSegments()[0].address);
    EXPECT_EQ((Bytes{7, 8, 0xAA, 2, 3, 4, 5}), image.getSegments()[0].data);

    image.add(0x14, Bytes(0x0D, 0x66));  // bridges the gap up to 0x20 and covers it
    ASSERT_EQ(1u, image.getSegments().size());
    const Bytes& data = image.getSegments()[0].data;
    EXPECT_EQ(0x21u - 0x0E, data.size());
    EXPECT_EQ(4, data[5]);        // 0x13 kept
    EXPECT_EQ(0x66, data[6]);     // 0x14 overwritten
    EXPECT_EQ(0x66, data[0x12]);  // 0x20 overwritten by the later run
    EXPECT_EQ(0x21u - 0x0E, image.byteCount());

    image.add(0x30, Bytes());
    EXPECT_EQ(1u, image.getSegments().size());
}

TEST(FlashProgrammer, BlankChipTakesTheImageInWholeUnitsAndKeepsTheRest) {
    FakeFlash flash(twoRegions());
    // Bytes of the partly covered units that the image must not lose.
    flash.bytes[0x100] = 0x12;
    flash.bytes[0x1FF] = 0x34;
    flash.bytes[0x17FF] = 0x56;
    const Bytes data = pattern(0x1F0, 3);
    FlashImage image = imageOf(0x110, data);  // 0x110..0x2FF: unit 1 in part, unit 2 whole
    image.add(0x1400, pattern(0x3FF, 5));     // second unit of region 2, all but its last byte

    FlashProgrammer::Report report = FlashProgrammer(flash).program(image, {}, nullptr);

    // The unit at 0x200 was blank: it is programmed without an erase.
    EXPECT_EQ((std::vector<uint64_t>{0x100, 0x1400}), flash.erased);
    EXPECT_EQ(FlashProgrammer::UnitProgram, report.units[1].action);
    EXPECT_EQ(0x12, flash.bytes[0x100]);
    EXPECT_EQ(data[0], flash.bytes[0x110]);
    EXPECT_EQ(data.back(), flash.bytes[0x2FF]);
    EXPECT_EQ(0x56, flash.bytes[0x17FF]);
    EXPECT_EQ(0xFF, flash.bytes[0x300]);
    EXPECT_EQ(2u, report.eraseCommands);
    EXPECT_EQ(0x100u + 0x400, report.bytesErased);
    EXPECT_EQ(report.bytesWritten, flash.bytesWritten);
    EXPECT_EQ(0u, report.unitsSkipped);
    EXPECT_EQ(1, flash.begins);
    EXPECT_EQ(1, flash.ends);
}

TEST(FlashProgrammer, AnUnchangedImageSendsNoEraseAndNoProgram) {
    for (bool withChecksum : {false, true}) {
        SCOPED_TRACE(withChecksum ? "check value on the target" : "read back");
        FakeFlash flash(twoRegions());
        flash.hasChecksum = withChecksum;
        FlashImage image = imageOf(0, pattern(0x400, 1));  // four whole units
        image.add(0x1010, pattern(0x20, 2));               // part of one unit
        FlashProgrammer programmer(flash);
        programmer.program(image, {}, nullptr);
        flash.resetCounters();

        FlashProgrammer::Options options;
        options.verify = true;
        FlashProgrammer::Report report = programmer.program(image, options, nullptr);

        EXPECT_TRUE(flash.erased.empty());
        EXPECT_EQ(0, flash.programs);
        EXPECT_EQ(5u, report.unitsSkipped);
        EXPECT_EQ(0u, report.mismatches);
        EXPECT_EQ(image.byteCount(), report.bytesVerified);
        // With a check value nothing is read back, not even for the partly
        // covered unit; without one, that unit is read whole, as a rewrite
        // would need its other bytes.
        EXPECT_EQ(withChecksum ? 0u : 0x400u + 0x400, flash.bytesRead);
        EXPECT_EQ(report.bytesRead, flash.bytesRead);
    }
}

TEST(FlashProgrammer, OneChangedByteRewritesExactlyItsUnit) {
    FakeFlash flash(twoRegions());
    flash.hasChecksum = true;
    Bytes data = pattern(0x400, 9);
    FlashProgrammer programmer(flash);
    programmer.program(imageOf(0, data), {}, nullptr);
    flash.resetCounters();

    data[0x2FF] ^= 0x01;  // last byte of the third unit
    FlashProgrammer::Report report = programmer.program(imageOf(0, data), {}, nullptr);

    EXPECT_EQ((std::vector<uint64_t>{0x200}), flash.erased);
    EXPECT_EQ(0x100u, flash.bytesWritten);
    EXPECT_EQ(3u, report.unitsSkipped);
    EXPECT_EQ(data[0x2FF], flash.bytes[0x2FF]);
    EXPECT_EQ(FlashProgrammer::UnitRewrite, report.units[2].action);
}

TEST(FlashProgrammer, NoSkipRewritesEqualUnits) {
    FakeFlash flash(twoRegions());
    const FlashImage image = imageOf(0, pattern(0x200, 4));
    FlashProgrammer programmer(flash);
    programmer.program(image, {}, nullptr);
    flash.resetCounters();
    FlashProgrammer::Options options;
    options.skipEqual = false;
    programmer.program(image, options, nullptr);
    EXPECT_EQ(2u, flash.erased.size());
    EXPECT_EQ(0x200u, flash.bytesWritten);
    EXPECT_EQ(0u, flash.bytesRead);
}

TEST(FlashProgrammer, BlankPagesOfAUnitAreNotProgrammed) {
    FakeFlash flash(twoRegions());
    Bytes data(0x100, 0xFF);
    data[0x80] = 0x00;  // third page of the unit only
    FlashProgrammer::Report report = FlashProgrammer(flash).program(imageOf(0, data), {}, nullptr);
    EXPECT_EQ(0x40u, flash.bytesWritten);
    EXPECT_EQ(1u, report.programCommands);
}

TEST(FlashProgrammer, ASelfErasingProgramIsNotPrecededByAnErase) {
    // Units of one page, as on controllers whose driver erases every page it
    // writes.
    FakeFlash flash({FlashRegion{0, 0x400, 0x40, 0x40}});
    flash.selfErasing = true;
    std::fill(flash.bytes.begin(), flash.bytes.end(), 0x00);
    FlashImage image = imageOf(0, pattern(0x40, 1));
    image.add(0x40, Bytes(0x40, 0xFF));  // a unit that is to end up erased
    FlashProgrammer::Report report = FlashProgrammer(flash).program(image, {}, nullptr);
    EXPECT_EQ((std::vector<uint64_t>{0x40}), flash.erased);
    EXPECT_EQ(pattern(0x40, 1)[5], flash.bytes[5]);
    EXPECT_EQ(0xFF, flash.bytes[0x45]);
    EXPECT_EQ(0x80u, report.bytesErased);
    EXPECT_EQ(0x40u, report.bytesWritten);
}

TEST(FlashProgrammer, ImageOutsideTheFlashIsRefusedBeforeAnyCommand) {
    FakeFlash flash(twoRegions());
    FlashProgrammer programmer(flash);
    // Ends exactly at the last byte of the first region: accepted.
    EXPECT_NO_THROW(programmer.program(imageOf(0x3F0, pattern(0x10, 1)), {}, nullptr));
    flash.resetCounters();
    flash.begins = 0;

    FlashImage image = imageOf(0, pattern(0x10, 1));
    image.add(0x3F0, pattern(0x11, 2));  // one byte into the hole
    try {
        programmer.program(image, {}, nullptr);
        FAIL() << "no exception";
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_ADDRESS_RANGE, codeOf(e));
        EXPECT_NE(std::string::npos, std::string(e.what()).find("0x400-0x400"));
        EXPECT_NE(std::string::npos, std::string(e.what()).find("0x0-0x3ff, 0x1000-0x17ff"));
    }
    EXPECT_EQ(0, flash.begins);
    EXPECT_EQ(0, flash.reads);
    EXPECT_TRUE(flash.erased.empty());
}

TEST(FlashProgrammer, LockedUnitsAreUnlockedOrRefusedBeforeTheFirstWrite) {
    const Bytes data = pattern(0x300, 6);
    {
        FakeFlash flash(twoRegions());
        flash.locked = {0x200};  // the last unit of the image
        try {
            FlashProgrammer(flash).program(imageOf(0, data), {}, nullptr);
            FAIL() << "no exception";
        } catch (const CoreException& e) {
            EXPECT_EQ(ERR_ACCESS_REFUSED, codeOf(e));
            EXPECT_NE(std::string::npos, std::string(e.what()).find("0x200-0x2ff"));
        }
        EXPECT_TRUE(flash.erased.empty());
        EXPECT_EQ(0, flash.programs);
    }
    {
        FakeFlash flash(twoRegions());
        flash.locked = {0x200};
        flash.unlockable = true;
        FlashProgrammer::Report report =
            FlashProgrammer(flash).program(imageOf(0, data), {}, nullptr);
        EXPECT_EQ((std::vector<uint64_t>{0x200}), flash.unlocked);
        EXPECT_EQ(1u, report.unlockCommands);
        EXPECT_EQ(data[0x250], flash.bytes[0x250]);
    }
    {
        // A locked unit that already holds the image needs no unlock.
        FakeFlash flash(twoRegions());
        FlashProgrammer(flash).program(imageOf(0, data), {}, nullptr);
        flash.locked = {0x200};
        EXPECT_NO_THROW(FlashProgrammer(flash).program(imageOf(0, data), {}, nullptr));
    }
}

TEST(FlashProgrammer, CancelStopsBetweenUnitsAndClosesTheRun) {
    FakeFlash flash(twoRegions());
    std::fill(flash.bytes.begin(), flash.bytes.end(), 0x00);
    const Bytes data = pattern(0x400, 8);
    CancelAfter progress(2);
    EXPECT_THROW(FlashProgrammer(flash).program(imageOf(0, data), {}, &progress),
                 InterruptedException);
    EXPECT_EQ(2u, flash.erased.size());
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + 0x200, flash.bytes.begin()));
    EXPECT_EQ(0x00, flash.bytes[0x200]);
    EXPECT_EQ(1, flash.ends);
}

TEST(FlashProgrammer, RunIsClosedAfterAFailureAndTheFirstErrorWins) {
    FakeFlash flash(twoRegions());
    flash.failProgramAt = 0x100;
    flash.failAtEnd = true;
    try {
        FlashProgrammer(flash).program(imageOf(0, pattern(0x200, 1)), {}, nullptr);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("program failed", e.what());
    }
    EXPECT_EQ(1, flash.ends);

    // On success, the controller's own report at the end of the run counts.
    flash.failProgramAt = ~0ull;
    EXPECT_THROW(FlashProgrammer(flash).program(imageOf(0, pattern(0x200, 2)), {}, nullptr),
                 std::runtime_error);
}

TEST(FlashProgrammer, VerifyLocatesTheFirstDifference) {
    for (bool withChecksum : {false, true}) {
        SCOPED_TRACE(withChecksum ? "check value on the target" : "read back");
        FakeFlash flash(twoRegions());
        flash.hasChecksum = withChecksum;
        const Bytes data = pattern(0x400, 2);
        FlashProgrammer programmer(flash);
        programmer.program(imageOf(0, data), {}, nullptr);
        flash.bytes[0x1C3] = static_cast<unsigned char>(data[0x1C3] & 0x0F);
        flash.bytes[0x3FF] = static_cast<unsigned char>(data[0x3FF] & 0xF0);
        flash.resetCounters();

        FlashProgrammer::Report report = programmer.verify(imageOf(0, data), nullptr);

        EXPECT_EQ(2u, report.mismatches);
        EXPECT_EQ(0x1C3u, report.firstMismatch);
        EXPECT_EQ(data[0x1C3], report.expectedByte);
        EXPECT_EQ(flash.bytes[0x1C3], report.foundByte);
        EXPECT_EQ(0x400u, report.bytesVerified);
        // A check value reads back only the two units that differ.
        EXPECT_EQ(withChecksum ? 0x200u : 0x400u, flash.bytesRead);
        EXPECT_TRUE(flash.erased.empty());
    }
}

TEST(FlashProgrammer, ProgramWithVerifyReportsWhatDidNotStick) {
    // Flash that was programmed without erase keeps cleared bits.
    FakeFlash flash(twoRegions());
    flash.bytes[0x10] = 0x00;
    FlashProgrammer::Options options;
    options.erase = FlashProgrammer::EraseNone;
    options.verify = true;
    FlashProgrammer::Report report =
        FlashProgrammer(flash).program(imageOf(0x10, Bytes{0xA5, 0x5A}), options, nullptr);
    EXPECT_TRUE(flash.erased.empty());
    EXPECT_EQ(1u, report.mismatches);
    EXPECT_EQ(0x10u, report.firstMismatch);
    EXPECT_EQ(0x5A, flash.bytes[0x11]);
    // Only the page that holds the image was programmed.
    EXPECT_EQ(0x40u, flash.bytesWritten);
}

TEST(FlashProgrammer, ChipEraseLeavesOnlyTheImage) {
    for (bool chipCommand : {false, true}) {
        FakeFlash flash(twoRegions());
        flash.hasChipErase = chipCommand;
        flash.unlockable = true;
        flash.locked = {0x1400};
        flash.bytes[0x150] = 0x00;
        flash.bytes[0x1500] = 0x00;
        FlashProgrammer::Options options;
        options.erase = FlashProgrammer::EraseChip;
        FlashProgrammer::Report report =
            FlashProgrammer(flash).program(imageOf(0x100, pattern(0x10, 1)), options, nullptr);
        EXPECT_EQ(0xFF, flash.bytes[0x150]);
        EXPECT_EQ(0xFF, flash.bytes[0x1500]);
        EXPECT_EQ(pattern(0x10, 1)[0], flash.bytes[0x100]);
        EXPECT_EQ(0, flash.reads);
        EXPECT_EQ(chipCommand ? 1 : 0, flash.chipErases);
        EXPECT_EQ(chipCommand ? 0u : 6u, flash.erased.size());
        EXPECT_EQ(0x400u + 0x800, report.bytesErased);
    }
}

TEST(FlashProgrammer, EraseAllWithoutAChipCommandChecksEveryLockFirst) {
    FakeFlash flash(twoRegions());
    flash.locked = {0x1400};  // the last unit
    EXPECT_THROW(FlashProgrammer(flash).eraseAll(nullptr), CoreException);
    EXPECT_TRUE(flash.erased.empty());
    flash.unlockable = true;
    FlashProgrammer::Report report = FlashProgrammer(flash).eraseAll(nullptr);
    EXPECT_EQ(6u, flash.erased.size());
    EXPECT_EQ((std::vector<uint64_t>{0x1400}), flash.unlocked);
    EXPECT_EQ(1u, report.unlockCommands);
}

TEST(FlashProgrammer, DryRunChangesNothing) {
    FakeFlash flash(twoRegions());
    flash.bytes[0x120] = 0x00;
    const Bytes before = flash.bytes;
    FlashProgrammer::Options options;
    options.dryRun = true;
    FlashProgrammer::Report report =
        FlashProgrammer(flash).program(imageOf(0x100, pattern(0x10, 1)), options, nullptr);
    EXPECT_EQ(before, flash.bytes);
    EXPECT_TRUE(flash.erased.empty());
    EXPECT_EQ(0, flash.programs);
    EXPECT_EQ(0, flash.begins);
    EXPECT_EQ(1u, report.eraseCommands);
    EXPECT_EQ(0x40u, report.bytesWritten);  // one page of the merged unit: 0x100..0x13F
}

TEST(FlashProgrammer, EraseRangesMustFollowUnitBorders) {
    FakeFlash flash(twoRegions());
    FlashProgrammer programmer(flash);
    for (auto range : {std::make_pair(0x80u, 0x100u), std::make_pair(0x0u, 0x180u),
                       std::make_pair(0x300u, 0x200u) /* runs into the hole */,
                       std::make_pair(0x800u, 0x100u) /* in the hole */}) {
        try {
            programmer.erase(range.first, range.second, nullptr);
            FAIL() << "no exception";
        } catch (const CoreException& e) {
            EXPECT_EQ(ERR_ADDRESS_RANGE, codeOf(e));
        }
    }
    EXPECT_THROW(programmer.erase(0xFFFFFFFFFFFFFF00ull, 0x200, nullptr), CoreException);
    EXPECT_TRUE(flash.erased.empty());
    // Up to the last byte of the flash.
    FlashProgrammer::Report report = programmer.erase(0x1000, 0x800, nullptr);
    EXPECT_EQ((std::vector<uint64_t>{0x1000, 0x1400}), flash.erased);
    EXPECT_EQ(0x800u, report.bytesErased);
}

// The 8-bit parts: the planner over the program memory stack of a memory
// context, with the flash controller's check value.
namespace {

class ProgramMemory : public MemoryContext {
public:
    using MemoryContext::getAccessor;
    using MemoryContext::MemoryContext;
};

}  // namespace

TEST(FlashProgrammer, DrivesTheEightBitPageEraseThroughTheAccessorStack) {
    boost::shared_ptr<Tarn8Chip> chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
    ProgramMemory prog(boost::shared_ptr<IMemoryContext>(), boost::shared_ptr<IProcessContext>(),
                       "prog", chip->getDevice(), chip, false);
    const uint32_t page = chip->getFlashPageSize();
    AccessorFlashUnits flash(prog.getAccessor(), {FlashRegion{0, 0x10000, page, page}});
    flash.setChecksum(
        [&chip](uint64_t address, uint32_t size) {
            const Bytes bytes = chip->peek("prog", static_cast<uint32_t>(address), size);
            return SimpleTarn8MemoryAccessor::CRC_Reference(bytes.begin(), 0,
                                                            static_cast<int>(size));
        },
        [](Bytes::const_iterator data, uint32_t size) {
            return SimpleTarn8MemoryAccessor::CRC_Reference(data, 0, static_cast<int>(size));
        },
        2);
    // Application and boot section both: the boot section is reached by its
    // own memory type.
    const Bytes data = pattern(0x200, 7);
    const FlashImage image = imageOf(0xEF00, data);
    FlashProgrammer programmer(flash);
    FlashProgrammer::Report first = programmer.program(image, {}, nullptr);
    EXPECT_EQ(data, chip->peek("prog", 0xEF00, 0x200));
    EXPECT_EQ(2u, chip->getCounters().eraseCalls);
    EXPECT_EQ(0x200u, chip->getCounters().bytesWritten);
    EXPECT_EQ(0x200u, first.bytesWritten);

    chip->resetCounters();
    FlashProgrammer::Options options;
    options.verify = true;
    FlashProgrammer::Report second = programmer.program(image, options, nullptr);
    EXPECT_EQ(0u, chip->getCounters().eraseCalls);
    EXPECT_EQ(0u, chip->getCounters().writeCalls);
    EXPECT_EQ(0u, chip->getCounters().bytesRead);
    EXPECT_EQ(2u, second.unitsSkipped);

    // A partly covered page keeps its other bytes.
    chip->poke("prog", 0xF0FF, {0x42});
    programmer.program(imageOf(0xF080, Bytes{1, 2}), {}, nullptr);
    EXPECT_EQ(0x42, chip->peek("prog", 0xF0FF, 1)[0]);
    EXPECT_EQ(1, chip->peek("prog", 0xF080, 1)[0]);
    EXPECT_EQ(data[0x100], chip->peek("prog", 0xF000, 1)[0]);
}

// The flash controller drivers: a driver that logs its calls over a flash
// in memory.
namespace {

class LoggingDriver : public InternalFlash {
public:
    LoggingDriver() {
        info.startAddress = 0x1000;
        info.size = 0x800;
        info.pageSize = 0x40;
        info.eraseUnitPages = 4;
        info.hasRwwSection = true;
        info.rwwStart = 0x9000;
        info.rwwSize = 0x200;
    }
    void unlockEntireChip() const override { log.push_back("unlock all"); }
    void unlockRegion(uint64_t address, unsigned size) const override {
        log.push_back("unlock " + std::to_string(address) + " " + std::to_string(size));
    }
    void startEraseEntireChip() const override { log.push_back("chip erase"); }
    void eraseRegion(uint64_t address, unsigned size, EraseOption option) const override {
        log.push_back("erase " + std::to_string(address) + " " + std::to_string(size) +
                      (option == EraseOnly ? "" : " unlocking"));
    }
    void programChip(uint64_t address, unsigned size, Bytes::const_iterator, bool ignoreLockError,
                     bool eraseFirst) const override {
        log.push_back("program " + std::to_string(address) + " " + std::to_string(size) +
                      (ignoreLockError || eraseFirst ? " with options" : ""));
    }
    void eraseUserPage() const override {}
    void programUserPage(uint64_t, unsigned, Bytes::const_iterator) const override {}
    void readUserPage(uint64_t, unsigned, Bytes::iterator) const override {}
    void eraseFuses(FuseType) const override {}
    Packet readFuses(FuseType) override { return Packet(); }
    void programFuses(FuseType, Packet&, int) const override {}
    void modifyFusebit(FuseType, int, bool) const override {}
    bool readFuseBit(FuseType, int) const override { return false; }
    int getLockBitCount() const override { return 0; }
    Packet getLockBits() override { return Packet(); }
    void setLockBit(unsigned) const override {}
    void clearLockBit(unsigned) const override {}
    void setSecurityLevel(SecurityLevel) const override {}
    SecurityLevel getSecurityLevel() override { return SecurityNone; }
    void restoreCfgRegs() const override {
        log.push_back("restore");
        if (failRestore) {
            throw std::runtime_error("Error reported by NVM controller.");
        }
    }
    const FlashInformation& getFlashInfo() const override { return info; }
    void waitFlashReady(int) const override { log.push_back("wait"); }

    FlashInformation info;
    bool failRestore = false;
    mutable std::vector<std::string> log;
};

// Reads give programmed flash, so that every unit needs its erase.
class ProgrammedMemory : public IMemoryAccessor {
public:
    void read(uint64_t, unsigned int size, Bytes::iterator data, boost::shared_ptr<MemoryError>,
              IIntermediateResult*) override {
        std::fill_n(data, size, 0x00);
    }
    void write(uint64_t, unsigned int, Bytes::const_iterator, boost::shared_ptr<MemoryError>,
               IIntermediateResult*, bool) override {}
};

}  // namespace

TEST(InternalFlashUnits, ErasesUnlocksAndClosesEveryRunThroughTheDriver) {
    auto driver = boost::make_shared<LoggingDriver>();
    InternalFlashUnits flash(driver, boost::make_shared<ProgrammedMemory>(), false);
    ASSERT_EQ(2u, flash.getRegions().size());
    EXPECT_EQ(0x100u, flash.getRegions()[0].unitSize);  // 4 pages
    EXPECT_EQ(0x9000u, flash.getRegions()[1].start);
    flash.setLockQuery([](uint64_t address, uint32_t size) {
        return address <= 0x1100 && 0x1100 < address + size;
    });

    FlashImage image = imageOf(0x10F0, pattern(0x20, 1));  // two units, the second locked
    FlashProgrammer(flash).program(image, {}, nullptr);
    EXPECT_EQ((std::vector<std::string>{"erase 4096 256", "program 4096 256", "unlock 4352 256",
                                        "erase 4352 256", "program 4352 256", "restore"}),
              driver->log);

    // The controller's report at the end of the run is the run's failure.
    driver->log.clear();
    driver->failRestore = true;
    EXPECT_THROW(FlashProgrammer(flash).eraseAll(nullptr), std::runtime_error);
    EXPECT_EQ((std::vector<std::string>{"unlock all", "chip erase", "wait", "erase 36864 512",
                                        "restore"}),
              driver->log);
}
