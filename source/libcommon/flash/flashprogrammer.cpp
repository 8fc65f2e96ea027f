#include "libcommon/flash/flashprogrammer.h"

#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/flash/flashinformation.h"

#include <cstdio>

#include <algorithm>

namespace {

typedef std::vector<unsigned char>::const_iterator InIt;

bool allErased(InIt data, uint32_t size, unsigned char erased) {
    return std::all_of(data, data + size, [erased](unsigned char b) { return b == erased; });
}

// Reads through an accessor; a byte that could not be read ends the run, as
// the planner cannot compare or keep what it does not know.
void readFlash(IMemoryAccessor& accessor, uint64_t address, uint32_t size,
               std::vector<unsigned char>::iterator data) {
    boost::shared_ptr<MemoryError> error(new MemoryError);
    accessor.read(address, size, data, error, nullptr);
    if (!error->isOk()) {
        CoreException::createAndThrow("", ERR_OPERATION_FAILED, "Reading flash failed at %s",
                                      error->getMessage(MemoryError::SUMMARY_ADDRESS).c_str());
    }
}

}  // namespace

// ---- FlashImage ------------------------------------------------------------

void FlashImage::add(uint64_t address, const std::vector<unsigned char>& data) {
    add(address, data.begin(), data.end());
}

void FlashImage::add(uint64_t address, InIt first, InIt last) {
    if (first == last) {
        return;
    }
    const uint64_t start = address;
    const uint64_t end = address + static_cast<uint64_t>(last - first);
    // Segments are sorted and neither overlap nor touch. [i, j) are the ones
    // that overlap or touch the new run; they become one segment.
    auto i = std::lower_bound(segments.begin(), segments.end(), start,
                              [](const Segment& s, uint64_t a) { return s.end() < a; });
    auto j = i;
    while (j != segments.end() && j->address <= end) {
        ++j;
    }
    if (i == j) {
        segments.insert(i, Segment{start, std::vector<unsigned char>(first, last)});
        return;
    }
    Segment& merged = *i;
    if (start < merged.address) {
        merged.data.insert(merged.data.begin(), merged.address - start, 0);
        merged.address = start;
    }
    const uint64_t newEnd = std::max((j - 1)->end(), end);
    merged.data.resize(newEnd - merged.address);
    // Segments between the first and the last are separated by gaps that
    // the new run covers, so copying them and then the run fills it all.
    for (auto k = i + 1; k != j; ++k) {
        std::copy(k->data.begin(), k->data.end(),
                  merged.data.begin() + (k->address - merged.address));
    }
    std::copy(first, last, merged.data.begin() + (start - merged.address));
    segments.erase(i + 1, j);
}

uint64_t FlashImage::byteCount() const {
    uint64_t count = 0;
    for (const Segment& segment : segments) {
        count += segment.data.size();
    }
    return count;
}

// ---- AccessorFlashUnits -------------------------------------------------------

AccessorFlashUnits::AccessorFlashUnits(boost::shared_ptr<IMemoryAccessor> accessor,
                                       const std::vector<FlashRegion>& regions)
    : accessor(accessor), regions(regions) {
    if (!accessor) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "AccessorFlashUnits needs an accessor");
    }
    for (const FlashRegion& region : regions) {
        if (region.pageSize == 0 || region.unitSize == 0 || region.unitSize % region.pageSize ||
            region.size % region.unitSize) {
            CoreException::createAndThrow(
                "", ERR_INVALID_ARGUMENT,
                "AccessorFlashUnits: region at 0x%llx is not a whole number of pages and units",
                static_cast<unsigned long long>(region.start));
        }
    }
}

void AccessorFlashUnits::setChecksum(ChecksumFunction onTarget, ExpectedChecksumFunction expected,
                                     uint32_t alignment) {
    this->onTarget = onTarget;
    this->expected = expected;
    this->alignment = std::max<uint32_t>(alignment, 1);
}

const FlashRegion& AccessorFlashUnits::regionOf(uint64_t address) const {
    for (const FlashRegion& region : regions) {
        if (region.contains(address)) {
            return region;
        }
    }
    CoreException::createAndThrow("", ERR_ADDRESS_RANGE, "0x%llx lies outside the flash",
                                  static_cast<unsigned long long>(address));
}

void AccessorFlashUnits::read(uint64_t address, uint32_t size,
                              std::vector<unsigned char>::iterator data) {
    readFlash(*accessor, address, size, data);
}

void AccessorFlashUnits::eraseUnit(uint64_t address, uint32_t size) {
    // The page erase below the stack erases the page that holds an address,
    // whatever size it is given.
    const uint32_t pageSize = regionOf(address).pageSize;
    for (uint32_t offset = 0; offset < size; offset += pageSize) {
        accessor->erase(address + offset, pageSize);
    }
}

void AccessorFlashUnits::program(uint64_t address, uint32_t size, InIt data) {
    boost::shared_ptr<MemoryError> error(new MemoryError);
    accessor->write(address, size, data, error, nullptr, true);
    if (!error->isOk()) {
        CoreException::createAndThrow("", ERR_OPERATION_FAILED, "Programming flash failed at %s",
                                      error->getMessage(MemoryError::SUMMARY_ADDRESS).c_str());
    }
}

bool AccessorFlashUnits::eraseChip() {
    if (!chipErase) {
        return false;
    }
    chipErase();
    return true;
}

bool AccessorFlashUnits::checksum(uint64_t address, uint32_t size, uint32_t& value) {
    if (!onTarget) {
        return false;
    }
    value = onTarget(address, size);
    return true;
}

uint32_t AccessorFlashUnits::expectedChecksum(InIt data, uint32_t size) const {
    return expected ? expected(data, size) : 0;
}

// ---- InternalFlashUnits -------------------------------------------------------------

InternalFlashUnits::InternalFlashUnits(boost::shared_ptr<InternalFlash> driver,
                                       boost::shared_ptr<IMemoryAccessor> memory,
                                       bool programErases)
    : driver(driver), memory(memory), selfErasing(programErases) {
    if (!driver || !memory) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "InternalFlashUnits needs a driver and an accessor");
    }
    const FlashInformation& info = driver->getFlashInfo();
    const uint32_t unit = info.pageSize * std::max<uint32_t>(info.eraseUnitPages, 1);
    regions.push_back(FlashRegion{info.startAddress, info.size, unit, info.pageSize});
    // The read-while-write section is flash of its own, erased by its own
    // command, where it lies outside the main array.
    if (info.hasRwwSection && !info.inRange(info.rwwStart)) {
        regions.push_back(FlashRegion{info.rwwStart, info.rwwSize, unit, info.pageSize});
    }
}

void InternalFlashUnits::end() {
    driver->restoreCfgRegs();
}

void InternalFlashUnits::read(uint64_t address, uint32_t size,
                              std::vector<unsigned char>::iterator data) {
    readFlash(*memory, address, size, data);
}

void InternalFlashUnits::eraseUnit(uint64_t address, uint32_t size) {
    driver->eraseRegion(address, size, InternalFlash::EraseOnly);
}

void InternalFlashUnits::program(uint64_t address, uint32_t size, InIt data) {
    driver->programChip(address, size, data, false, false);
}

bool InternalFlashUnits::eraseChip() {
    for (const FlashRegion& region : regions) {
        if (isLocked(region.start, static_cast<uint32_t>(region.size))) {
            driver->unlockEntireChip();
            break;
        }
    }
    driver->startEraseEntireChip();
    driver->waitFlashReady(chipEraseTimeout);
    // The chip erase covers the main array; a separate read-while-write
    // section has its own erase.
    for (size_t i = 1; i < regions.size(); ++i) {
        driver->eraseRegion(regions[i].start, static_cast<uint32_t>(regions[i].size),
                            InternalFlash::EraseOnly);
    }
    return true;
}

bool InternalFlashUnits::isLocked(uint64_t address, uint32_t size) {
    return lockQuery && lockQuery(address, size);
}

void InternalFlashUnits::unlock(uint64_t address, uint32_t size) {
    driver->unlockRegion(address, size);
}

// ---- FlashProgrammer --------------------------------------------------------------

FlashProgrammer::FlashProgrammer(IFlashUnits& flash) : flash(flash), regions(flash.getRegions()) {}

const FlashRegion& FlashProgrammer::regionOf(uint64_t address) const {
    for (const FlashRegion& region : regions) {
        if (region.contains(address)) {
            return region;
        }
    }
    CoreException::createAndThrow("", ERR_ADDRESS_RANGE, "0x%llx lies outside the flash",
                                  static_cast<unsigned long long>(address));
}

std::vector<FlashProgrammer::Unit> FlashProgrammer::unitsOf(const FlashImage& image) const {
    std::vector<Unit> units;
    for (const FlashImage::Segment& segment : image.getSegments()) {
        uint64_t address = segment.address;
        while (address < segment.end()) {
            const FlashRegion* region = nullptr;
            for (const FlashRegion& candidate : regions) {
                if (candidate.contains(address)) {
                    region = &candidate;
                }
            }
            if (region == nullptr) {
                // Name the whole run outside the flash: up to the next region
                // or the end of the segment.
                uint64_t last = segment.end();
                for (const FlashRegion& candidate : regions) {
                    if (candidate.start > address) {
                        last = std::min(last, candidate.start);
                    }
                }
                std::string flashText;
                for (const FlashRegion& candidate : regions) {
                    flashText += (flashText.empty() ? "" : ", ") +
                                 formatHexRange(candidate.start, candidate.end() - 1);
                }
                CoreException::createAndThrow(
                    "", ERR_ADDRESS_RANGE,
                    "The image does not fit the flash: bytes %s lie outside it (flash: %s).",
                    formatHexRange(address, last - 1).c_str(), flashText.c_str());
            }
            const uint64_t unitStart =
                region->start + (address - region->start) / region->unitSize * region->unitSize;
            const uint64_t pieceEnd = std::min(segment.end(), unitStart + region->unitSize);
            if (units.empty() || units.back().plan.address != unitStart) {
                Unit unit;
                unit.plan = UnitPlan{unitStart, region->unitSize, UnitSkip, 0, false};
                units.push_back(unit);
            }
            Unit& unit = units.back();
            const uint32_t size = static_cast<uint32_t>(pieceEnd - address);
            unit.pieces.push_back(Piece{static_cast<uint32_t>(address - unitStart),
                                        segment.data.begin() + (address - segment.address), size});
            unit.plan.imageBytes += size;
            address = pieceEnd;
        }
    }
    return units;
}

std::string FlashProgrammer::formatHexRange(uint64_t first, uint64_t last) {
    char text[64];
    std::snprintf(text, sizeof text, "0x%llx-0x%llx", static_cast<unsigned long long>(first),
                  static_cast<unsigned long long>(last));
    return text;
}

bool FlashProgrammer::checkOnTarget(uint64_t address, InIt expected, uint32_t size, Report& report,
                                    bool& equal) {
    const uint32_t alignment = flash.checksumAlignment();
    uint32_t value = 0;
    if (address % alignment != 0 || size % alignment != 0 ||
        !flash.checksum(address, size, value)) {
        return false;
    }
    ++report.checksumCommands;
    equal = value == flash.expectedChecksum(expected, size);
    return true;
}

bool FlashProgrammer::rangeEqual(uint64_t address, InIt expected, uint32_t size, Report& report,
                                 bool findMismatch) {
    bool equal = false;
    if (checkOnTarget(address, expected, size, report, equal)) {
        if (equal || !findMismatch) {
            return equal;
        }
        // The check value says that something differs; only the bytes can
        // say where.
    }
    std::vector<unsigned char> found(size);
    flash.read(address, size, found.begin());
    report.bytesRead += size;
    equal = true;
    for (uint32_t i = 0; i < size; ++i) {
        if (found[i] == expected[i]) {
            continue;
        }
        equal = false;
        if (!findMismatch) {
            break;
        }
        if (report.mismatches == 0) {
            report.firstMismatch = address + i;
            report.expectedByte = expected[i];
            report.foundByte = found[i];
        }
        ++report.mismatches;
    }
    return equal;
}

bool FlashProgrammer::piecesEqual(const Unit& unit, Report& report, bool checksumOnly) {
    for (const Piece& piece : unit.pieces) {
        const uint64_t address = unit.plan.address + piece.offset;
        bool equal = false;
        if (checksumOnly) {
            if (!checkOnTarget(address, piece.data, piece.size, report, equal) || !equal) {
                return false;
            }
        } else if (!rangeEqual(address, piece.data, piece.size, report, false)) {
            return false;
        }
    }
    return true;
}

void FlashProgrammer::planUnit(Unit& unit, const Options& options, Report& report) {
    UnitPlan& plan = unit.plan;
    const unsigned char erased = flash.erasedValue();
    auto overlay = [&unit]() {
        for (const Piece& piece : unit.pieces) {
            std::copy_n(piece.data, piece.size, unit.content.begin() + piece.offset);
        }
    };
    if (options.erase != EraseUnits) {
        // Over an erased chip, or over whatever is there: only the image's
        // bytes are known, the rest stays erased or untouched.
        unit.content.assign(plan.size, erased);
        overlay();
        unit.wholeKnown = options.erase == EraseChip;
        const bool equal =
            options.erase == EraseNone && options.skipEqual && piecesEqual(unit, report, false);
        plan.action = equal ? UnitSkip : UnitProgram;
        return;
    }
    const bool whole = plan.imageBytes == plan.size;
    if (whole) {
        unit.content.assign(plan.size, erased);
        overlay();
        unit.wholeKnown = true;
        bool equal = false;
        if (!options.skipEqual) {
            plan.action = UnitRewrite;
            return;
        }
        if (checkOnTarget(plan.address, unit.content.cbegin(), plan.size, report, equal)) {
            plan.action = equal ? UnitSkip : UnitRewrite;
            return;
        }
    } else if (options.skipEqual && piecesEqual(unit, report, true)) {
        // A partly covered unit that the target's check value finds unchanged
        // costs no read.
        plan.action = UnitSkip;
        return;
    }
    // The unit is read: to compare it, and for a partly covered one to keep
    // its other bytes. A unit found blank needs no erase. (A check value
    // alone never makes a unit count as blank: a value that matches by chance
    // would leave bits unerased under the new data.)
    std::vector<unsigned char> current(plan.size);
    flash.read(plan.address, plan.size, current.begin());
    report.bytesRead += plan.size;
    if (!whole) {
        unit.content = current;
        overlay();
        unit.wholeKnown = true;
    }
    if (options.skipEqual && current == unit.content) {
        plan.action = UnitSkip;
    } else {
        plan.action = allErased(current.cbegin(), plan.size, erased) ? UnitProgram : UnitRewrite;
    }
}

void FlashProgrammer::programUnit(Unit& unit, bool dryRun, Report& report) {
    const UnitPlan& plan = unit.plan;
    // A lock covers more than one unit on most controllers: the unlock of a
    // neighbour may have done this one's already.
    if (plan.unlock && (dryRun || flash.isLocked(plan.address, plan.size))) {
        if (!dryRun) {
            flash.unlock(plan.address, plan.size);
        }
        ++report.unlockCommands;
    }
    // Pages that are to stay erased need no programming; runs of the others
    // go in one call.
    const uint32_t pageSize = regionOf(plan.address).pageSize;
    const unsigned char erased = flash.erasedValue();
    if (plan.action == UnitRewrite) {
        // A flash whose programming erases needs its own erase only for
        // pages that are to end up erased.
        bool needErase = !flash.programErases();
        for (uint32_t offset = 0; !needErase && offset < plan.size; offset += pageSize) {
            needErase = allErased(unit.content.cbegin() + offset, pageSize, erased);
        }
        if (needErase) {
            if (!dryRun) {
                flash.eraseUnit(plan.address, plan.size);
            }
            ++report.eraseCommands;
        }
        report.bytesErased += plan.size;
    }
    uint32_t offset = 0;
    while (offset < plan.size) {
        if (allErased(unit.content.cbegin() + offset, pageSize, erased)) {
            offset += pageSize;
            continue;
        }
        uint32_t end = offset + pageSize;
        while (end < plan.size && !allErased(unit.content.cbegin() + end, pageSize, erased)) {
            end += pageSize;
        }
        if (!dryRun) {
            flash.program(plan.address + offset, end - offset, unit.content.cbegin() + offset);
        }
        ++report.programCommands;
        report.bytesWritten += end - offset;
        offset = end;
    }
}

void FlashProgrammer::checkUnit(const Unit& unit, Report& report) {
    if (unit.wholeKnown) {
        rangeEqual(unit.plan.address, unit.content.cbegin(), unit.plan.size, report, true);
        report.bytesVerified += unit.plan.size;
        return;
    }
    for (const Piece& piece : unit.pieces) {
        rangeEqual(unit.plan.address + piece.offset, piece.data, piece.size, report, true);
        report.bytesVerified += piece.size;
    }
}

void FlashProgrammer::checkCancel(IIntermediateResult* progress, uint64_t done,
                                  uint64_t total) const {
    if (progress && progress->isCanceled()) {
        throw InterruptedException(FormatString(
            "Cancelled after %llu of %llu erase units; no unit was left half written.",
            static_cast<unsigned long long>(done), static_cast<unsigned long long>(total)));
    }
}

void FlashProgrammer::lockCheck(std::vector<UnitPlan*>& plans) {
    for (UnitPlan* plan : plans) {
        if (!flash.isLocked(plan->address, plan->size)) {
            continue;
        }
        if (!flash.canUnlock()) {
            CoreException::createAndThrow(
                "", ERR_ACCESS_REFUSED,
                "The flash is locked at %s; nothing was written. Only a chip erase clears "
                "this lock.",
                formatHexRange(plan->address, plan->address + plan->size - 1).c_str());
        }
        plan->unlock = true;
    }
}

void FlashProgrammer::run(const boost::function<void()>& work) {
    flash.begin();
    try {
        work();
    } catch (...) {
        // The failure that ended the run is the one to report; what the
        // controller says on closing it cannot be more telling.
        try {
            flash.end();
        } catch (...) {
        }
        throw;
    }
    flash.end();
}

FlashProgrammer::Report FlashProgrammer::program(const FlashImage& image, const Options& options,
                                                 IIntermediateResult* progress) {
    Report report;
    report.imageBytes = image.byteCount();
    std::vector<Unit> units = unitsOf(image);

    if (progress) {
        progress->beginTask("Checking", static_cast<unsigned int>(units.size()));
    }
    for (Unit& unit : units) {
        planUnit(unit, options, report);
        if (progress) {
            progress->worked(1);
        }
    }
    if (options.erase != EraseChip) {
        std::vector<UnitPlan*> changing;
        for (Unit& unit : units) {
            if (unit.plan.action != UnitSkip) {
                changing.push_back(&unit.plan);
            }
        }
        lockCheck(changing);
    }

    auto work = [&]() {
        if (options.erase == EraseChip) {
            eraseEverything(options.dryRun, report);
        }
        if (progress) {
            progress->beginTask("Programming", static_cast<unsigned int>(units.size()));
        }
        uint64_t done = 0;
        for (Unit& unit : units) {
            checkCancel(progress, done, units.size());
            if (unit.plan.action == UnitSkip) {
                ++report.unitsSkipped;
                // The comparison that found it equal covered the image's bytes.
                report.bytesVerified += options.verify ? unit.plan.imageBytes : 0;
            } else {
                programUnit(unit, options.dryRun, report);
                if (options.verify && !options.dryRun) {
                    checkUnit(unit, report);
                }
            }
            ++done;
            if (progress) {
                progress->worked(1);
            }
        }
    };
    if (options.dryRun) {
        work();
    } else {
        run(work);
    }
    if (progress) {
        progress->done();
    }
    for (const Unit& unit : units) {
        report.units.push_back(unit.plan);
    }
    return report;
}

FlashProgrammer::Report FlashProgrammer::verify(const FlashImage& image,
                                                IIntermediateResult* progress) {
    Report report;
    report.imageBytes = image.byteCount();
    std::vector<Unit> units = unitsOf(image);
    if (progress) {
        progress->beginTask("Verifying", static_cast<unsigned int>(units.size()));
    }
    uint64_t done = 0;
    for (Unit& unit : units) {
        checkCancel(progress, done++, units.size());
        checkUnit(unit, report);
        report.units.push_back(unit.plan);
        if (progress) {
            progress->worked(1);
        }
    }
    if (progress) {
        progress->done();
    }
    return report;
}

void FlashProgrammer::eraseEverything(bool dryRun, Report& report) {
    uint64_t total = 0;
    for (const FlashRegion& region : regions) {
        total += region.size;
    }
    if (dryRun || flash.eraseChip()) {
        ++report.eraseCommands;
        report.bytesErased += total;
        return;
    }
    // Unit by unit: locks are checked for all units before the first erase.
    std::vector<UnitPlan> plans;
    for (const FlashRegion& region : regions) {
        for (uint64_t address = region.start; address < region.end(); address += region.unitSize) {
            plans.push_back(UnitPlan{address, region.unitSize, UnitRewrite, 0, false});
        }
    }
    std::vector<UnitPlan*> pointers;
    for (UnitPlan& plan : plans) {
        pointers.push_back(&plan);
    }
    lockCheck(pointers);
    for (const UnitPlan& plan : plans) {
        eraseUnit(plan, report);
    }
}

void FlashProgrammer::eraseUnit(const UnitPlan& plan, Report& report) {
    if (plan.unlock && flash.isLocked(plan.address, plan.size)) {
        flash.unlock(plan.address, plan.size);
        ++report.unlockCommands;
    }
    flash.eraseUnit(plan.address, plan.size);
    ++report.eraseCommands;
    report.bytesErased += plan.size;
}

FlashProgrammer::Report FlashProgrammer::eraseAll(IIntermediateResult* progress) {
    Report report;
    if (progress) {
        progress->beginTask("Erasing", 1);
    }
    run([&]() { eraseEverything(false, report); });
    if (progress) {
        progress->done();
    }
    return report;
}

void FlashProgrammer::checkImage(const FlashImage& image) const {
    unitsOf(image);
}

std::vector<FlashProgrammer::UnitPlan> FlashProgrammer::eraseUnitsOf(uint64_t address,
                                                                     uint64_t size) const {
    std::vector<UnitPlan> plans;
    if (size == 0) {
        return plans;
    }
    if (size - 1 > ~uint64_t(0) - address) {
        CoreException::createAndThrow(
            "", ERR_ADDRESS_RANGE, "Cannot erase 0x%llx bytes at 0x%llx: the range wraps around",
            static_cast<unsigned long long>(size), static_cast<unsigned long long>(address));
    }
    const uint64_t last = address + (size - 1);
    uint64_t at = address;
    while (true) {
        const FlashRegion* region = nullptr;
        for (const FlashRegion& candidate : regions) {
            if (candidate.contains(at)) {
                region = &candidate;
            }
        }
        if (region == nullptr) {
            CoreException::createAndThrow(
                "", ERR_ADDRESS_RANGE, "Cannot erase %s: 0x%llx lies outside the flash.",
                formatHexRange(address, last).c_str(), static_cast<unsigned long long>(at));
        }
        const uint64_t unitLast = at + region->unitSize - 1;
        if ((at - region->start) % region->unitSize != 0 || last < unitLast) {
            CoreException::createAndThrow(
                "", ERR_ADDRESS_RANGE,
                "Cannot erase %s: erase ranges must start and end on %u-byte erase unit "
                "borders, or bytes outside the range would be lost.",
                formatHexRange(address, last).c_str(), region->unitSize);
        }
        plans.push_back(UnitPlan{at, region->unitSize, UnitRewrite, 0, false});
        if (unitLast >= last) {
            return plans;
        }
        at = unitLast + 1;
    }
}

FlashProgrammer::Report FlashProgrammer::erase(uint64_t address, uint64_t size,
                                               IIntermediateResult* progress) {
    Report report;
    // All units first, so that a range with a bad end or a hole is refused
    // before anything is erased.
    std::vector<UnitPlan> plans = eraseUnitsOf(address, size);
    std::vector<UnitPlan*> pointers;
    for (UnitPlan& plan : plans) {
        pointers.push_back(&plan);
    }
    lockCheck(pointers);
    if (progress) {
        progress->beginTask("Erasing", static_cast<unsigned int>(plans.size()));
    }
    run([&]() {
        uint64_t done = 0;
        for (const UnitPlan& plan : plans) {
            checkCancel(progress, done++, plans.size());
            eraseUnit(plan, report);
            if (progress) {
                progress->worked(1);
            }
        }
    });
    if (progress) {
        progress->done();
    }
    report.units = plans;
    return report;
}
