#ifndef LIBCOMMON_FLASH_FLASHPROGRAMMER_H
#define LIBCOMMON_FLASH_FLASHPROGRAMMER_H

// Programming an image into on-chip flash in whole erase units.
//
// The contract of the family:
//   - an erase unit is erased and written as a whole: bytes of a unit that
//     the image does not cover are read first and written back, never
//     silently erased;
//   - a unit whose content already equals the image is left alone (no erase,
//     no program command), unless the caller asks otherwise; the comparison
//     uses the flash's own check value where it has one, and reads back only
//     where it must;
//   - everything that can be known before the first write (an image outside
//     the flash, a locked unit that cannot be unlocked) is refused before the
//     first write;
//   - cancellation is looked at between units only, so a unit is never left
//     half written;
//   - a run on the flash is always closed with IFlashUnits::end(), also when
//     it fails, so a controller is put back into its normal state.
//
// The flash is seen through IFlashUnits, so the same planner drives the
// 8-bit targets' page erase through an accessor stack (AccessorFlashUnits)
// and the flash controller drivers (InternalFlashUnits).
//
//     FlashImage image;
//     image.add(0x0, bytes);
//     AccessorFlashUnits flash(accessor, {{0, 0x10000, 256, 256}});
//     FlashProgrammer::Report report = FlashProgrammer(flash).program(image, options, progress);
//
// Not synchronised: one run at a time per flash.

#include "libcommon/iintermediateresult.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class InternalFlash;

// A sparse image: byte runs at absolute addresses, kept sorted and merged.
// Where two runs overlap, the one added later wins.
class FlashImage {
public:
    struct Segment {
        uint64_t address;
        std::vector<unsigned char> data;
        uint64_t end() const { return address + data.size(); }
    };

    void add(uint64_t address, const std::vector<unsigned char>& data);
    void add(uint64_t address, std::vector<unsigned char>::const_iterator first,
             std::vector<unsigned char>::const_iterator last);

    const std::vector<Segment>& getSegments() const { return segments; }
    bool empty() const { return segments.empty(); }
    uint64_t byteCount() const;

private:
    std::vector<Segment> segments;
};

// One stretch of flash with a uniform geometry.
struct FlashRegion {
    uint64_t start;
    uint64_t size;
    uint32_t unitSize;  // erase unit, a multiple of pageSize
    uint32_t pageSize;  // smallest programmable block
    uint64_t end() const { return start + size; }
    bool contains(uint64_t address) const { return start <= address && address < end(); }
};

// What the planner needs of a flash. Addresses are absolute; every call
// stays inside one region.
class IFlashUnits {
public:
    virtual ~IFlashUnits() = default;

    virtual std::vector<FlashRegion> getRegions() const = 0;
    // Value of an erased byte.
    virtual unsigned char erasedValue() const { return 0xFF; }

    // A run: begin() before the first command, end() after the last. end()
    // is where a controller reports what went wrong in the run; it is called
    // after a failure too.
    virtual void begin() {}
    virtual void end() {}

    virtual void read(uint64_t address, uint32_t size,
                      std::vector<unsigned char>::iterator data) = 0;
    // Erases the unit at address (its start) of size bytes.
    virtual void eraseUnit(uint64_t address, uint32_t size) = 0;
    // Programs whole pages of one unit; bits can only be cleared.
    virtual void program(uint64_t address, uint32_t size,
                         std::vector<unsigned char>::const_iterator data) = 0;
    // True when program() erases the pages it writes by itself, as some
    // controllers' drivers do; the planner then erases only what it does
    // not program.
    virtual bool programErases() const { return false; }
    // Erases all of the flash at once and clears its locks. False when the
    // flash has no such command; the planner then erases unit by unit.
    virtual bool eraseChip() { return false; }

    // Check value computed by the target over a range, without moving the
    // bytes. False when the target has none. The planner computes the
    // expected value with expectedChecksum; both work on ranges whose address
    // and size are multiples of checksumAlignment().
    virtual bool checksum(uint64_t /*address*/, uint32_t /*size*/, uint32_t& /*value*/) {
        return false;
    }
    virtual uint32_t expectedChecksum(std::vector<unsigned char>::const_iterator /*data*/,
                                      uint32_t /*size*/) const {
        return 0;
    }
    virtual uint32_t checksumAlignment() const { return 1; }

    // Write protection of a range. A locked unit that a run must change is
    // unlocked when canUnlock() says so; otherwise the run is refused.
    virtual bool isLocked(uint64_t /*address*/, uint32_t /*size*/) { return false; }
    virtual bool canUnlock() const { return false; }
    virtual void unlock(uint64_t /*address*/, uint32_t /*size*/) {}
};

// A flash behind an accessor stack whose erase() erases the page that holds
// an address (the 8-bit targets' page erase). Programs with erased = true, so
// layers that would erase in front of a write leave that to the planner.
// The optional check and chip erase are handed in as functions.
class AccessorFlashUnits : public IFlashUnits {
public:
    typedef boost::function<uint32_t(uint64_t address, uint32_t size)> ChecksumFunction;
    typedef boost::function<uint32_t(std::vector<unsigned char>::const_iterator data,
                                     uint32_t size)>
        ExpectedChecksumFunction;

    AccessorFlashUnits(boost::shared_ptr<IMemoryAccessor> accessor,
                       const std::vector<FlashRegion>& regions);

    // Uses the target's check value for comparisons.
    void setChecksum(ChecksumFunction onTarget, ExpectedChecksumFunction expected,
                     uint32_t alignment);
    void setChipErase(boost::function<void()> chipErase) { this->chipErase = chipErase; }

    std::vector<FlashRegion> getRegions() const override { return regions; }
    void read(uint64_t address, uint32_t size, std::vector<unsigned char>::iterator data) override;
    void eraseUnit(uint64_t address, uint32_t size) override;
    void program(uint64_t address, uint32_t size,
                 std::vector<unsigned char>::const_iterator data) override;
    bool eraseChip() override;
    bool checksum(uint64_t address, uint32_t size, uint32_t& value) override;
    uint32_t expectedChecksum(std::vector<unsigned char>::const_iterator data,
                              uint32_t size) const override;
    uint32_t checksumAlignment() const override { return alignment; }

private:
    const FlashRegion& regionOf(uint64_t address) const;

    boost::shared_ptr<IMemoryAccessor> accessor;
    std::vector<FlashRegion> regions;
    ChecksumFunction onTarget;
    ExpectedChecksumFunction expected;
    uint32_t alignment = 1;
    boost::function<void()> chipErase;
};

// A flash behind a controller driver. Reads go through the accessor that
// reaches the chip's memory map; erases and writes through the driver, in
// runs that end with restoreCfgRegs, where the controller reports what went
// wrong. The driver's erase and program never unlock, so a locked unit is
// unlocked with unlockRegion first; which units are locked is the caller's
// to say (the lock layout differs between controllers), through a query.
class InternalFlashUnits : public IFlashUnits {
public:
    typedef boost::function<bool(uint64_t address, uint32_t size)> LockQuery;

    // programErases: the driver erases each page it programs by itself.
    InternalFlashUnits(boost::shared_ptr<InternalFlash> driver,
                       boost::shared_ptr<IMemoryAccessor> memory, bool programErases);

    void setLockQuery(LockQuery query) { lockQuery = query; }
    // How long a chip erase may take, in milliseconds.
    void setChipEraseTimeout(int milliseconds) { chipEraseTimeout = milliseconds; }

    std::vector<FlashRegion> getRegions() const override { return regions; }
    void end() override;
    void read(uint64_t address, uint32_t size, std::vector<unsigned char>::iterator data) override;
    void eraseUnit(uint64_t address, uint32_t size) override;
    void program(uint64_t address, uint32_t size,
                 std::vector<unsigned char>::const_iterator data) override;
    bool programErases() const override { return selfErasing; }
    bool eraseChip() override;
    bool isLocked(uint64_t address, uint32_t size) override;
    bool canUnlock() const override { return true; }
    void unlock(uint64_t address, uint32_t size) override;

private:
    boost::shared_ptr<InternalFlash> driver;
    boost::shared_ptr<IMemoryAccessor> memory;
    bool selfErasing;
    std::vector<FlashRegion> regions;
    LockQuery lockQuery;
    int chipEraseTimeout = 10000;
};

class FlashProgrammer {
public:
    enum EraseMode {
        EraseUnits,  // erase and rewrite the units the image touches
        EraseChip,   // erase the whole flash first; only the image remains
        EraseNone    // program over what is there; the caller knows it is blank
    };

    struct Options {
        EraseMode erase = EraseUnits;
        bool skipEqual = true;  // leave units that already hold the image
        bool verify = false;    // check every unit written
        bool dryRun = false;    // plan only: reads and checks, no change
    };

    enum UnitAction {
        UnitSkip,     // already equal
        UnitRewrite,  // erase, then program the merged content
        UnitProgram   // program only: the unit is blank, or not to be erased
    };

    struct UnitPlan {
        uint64_t address;
        uint32_t size;
        UnitAction action;
        uint32_t imageBytes;  // bytes of the image in the unit
        bool unlock;          // locked; unlocked before it is erased
    };

    // What a run did, counted at the planner's side of IFlashUnits.
    struct Report {
        std::vector<UnitPlan> units;
        uint64_t imageBytes = 0;
        uint64_t bytesErased = 0;
        uint64_t bytesWritten = 0;  // bytes handed to program()
        uint64_t bytesRead = 0;
        uint64_t bytesVerified = 0;
        uint64_t unitsSkipped = 0;
        uint64_t eraseCommands = 0;  // unit erases and chip erases
        uint64_t programCommands = 0;
        uint64_t checksumCommands = 0;
        uint64_t unlockCommands = 0;
        // Verification: bytes that differ, and the first of them.
        uint64_t mismatches = 0;
        uint64_t firstMismatch = 0;
        unsigned char expectedByte = 0;
        unsigned char foundByte = 0;
    };

    explicit FlashProgrammer(IFlashUnits& flash);

    // Programs the image. Throws a CoreException with ERR_ADDRESS_RANGE for
    // image bytes outside the flash and ERR_ACCESS_REFUSED for a locked unit
    // that cannot be unlocked, both before anything is written, and an
    // InterruptedException when progress is cancelled between two units.
    Report program(const FlashImage& image, const Options& options, IIntermediateResult* progress);
    // Compares the image with the flash; nothing is written.
    Report verify(const FlashImage& image, IIntermediateResult* progress);
    // Erases the units of [address, address + size), which must start and
    // end on unit borders (ERR_ADDRESS_RANGE otherwise).
    Report erase(uint64_t address, uint64_t size, IIntermediateResult* progress);
    // Erases all of the flash.
    Report eraseAll(IIntermediateResult* progress);

    // The checks that program() and erase() make before they touch the
    // flash, for callers that want to tell bad input from a failing target:
    // both throw ERR_ADDRESS_RANGE.
    void checkImage(const FlashImage& image) const;
    std::vector<UnitPlan> eraseUnitsOf(uint64_t address, uint64_t size) const;

    // "0x<first>-0x<last>", as the messages name ranges.
    static std::string formatHexRange(uint64_t first, uint64_t last);

private:
    struct Piece {
        uint32_t offset;  // in the unit
        std::vector<unsigned char>::const_iterator data;
        uint32_t size;
    };
    struct Unit {
        UnitPlan plan;
        std::vector<Piece> pieces;
        std::vector<unsigned char> content;  // what the unit is to hold
        bool wholeKnown = false;             // content covers the whole unit
    };

    const FlashRegion& regionOf(uint64_t address) const;
    // The units the image touches, in address order; refuses image bytes
    // outside the flash.
    std::vector<Unit> unitsOf(const FlashImage& image) const;
    void planUnit(Unit& unit, const Options& options, Report& report);
    // With checksumOnly, false as soon as a piece cannot be checked on the
    // target, so that the caller reads instead.
    bool piecesEqual(const Unit& unit, Report& report, bool checksumOnly);
    // Compares a range through the target's check value; false when the
    // target has none for it.
    bool checkOnTarget(uint64_t address, std::vector<unsigned char>::const_iterator expected,
                       uint32_t size, Report& report, bool& equal);
    // With findMismatch, a difference is located and counted in report.
    bool rangeEqual(uint64_t address, std::vector<unsigned char>::const_iterator expected,
                    uint32_t size, Report& report, bool findMismatch);
    void programUnit(Unit& unit, bool dryRun, Report& report);
    void checkUnit(const Unit& unit, Report& report);
    void checkCancel(IIntermediateResult* progress, uint64_t done, uint64_t total) const;
    // Marks the locked units for unlocking, or refuses the run.
    void lockCheck(std::vector<UnitPlan*>& plans);
    void eraseEverything(bool dryRun, Report& report);
    void eraseUnit(const UnitPlan& plan, Report& report);
    // One run on the flash, closed by end() whatever happens.
    void run(const boost::function<void()>& work);

    IFlashUnits& flash;
    std::vector<FlashRegion> regions;
};

#endif
