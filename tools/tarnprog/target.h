#ifndef TARNPROG_TARGET_H
#define TARNPROG_TARGET_H

// What the commands of tarnprog need of a chip. The commands see only
// ITarget, so a probe-backed target can be added beside the simulated ones
// without touching them.

#include "libcommon/didevice.h"
#include "libcommon/flash/flashprogrammer.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarnprog {

// Traffic at the chip's own interface, as far as the target can count it.
struct TargetCounters {
    uint64_t commands = 0;  // every call that reached the chip
    uint64_t eraseCommands = 0;
    uint64_t programCommands = 0;
    uint64_t checksumCommands = 0;
    uint64_t bytesRead = 0;
    uint64_t bytesWritten = 0;
    uint64_t bytesErased = 0;
};

// A chip's optional extras beyond its main flash. Each operation throws
// where the chip has no such thing: a TargetError, or the refusal of the
// chip's flash driver in the driver's own words.
class IProtection {
public:
    virtual ~IProtection() = default;
    // One line per protection setting, for `tarnprog protection`.
    virtual std::vector<std::string> describe() = 0;
    // Locks the flash units of [address, address + size); unlock likewise.
    virtual void lock(uint64_t address, uint64_t size) = 0;
    virtual void unlock(uint64_t address, uint64_t size) = 0;
    // Security level, fuses and user page, where the chip has them.
    virtual void setSecurityLevel(int level) = 0;
    virtual std::vector<unsigned char> readUserPage() = 0;
    virtual void writeUserPage(uint64_t offset, const std::vector<unsigned char>& data) = 0;
    virtual uint64_t readFuses() = 0;
    virtual void writeFuse(int index, bool value) = 0;
};

class ITarget {
public:
    virtual ~ITarget() = default;

    virtual boost::shared_ptr<DIDevice> getDevice() const = 0;
    // "simulated TN8R64", "probe ..."
    virtual std::string describe() const = 0;
    // The flash controller in a few words.
    virtual std::string describeController() const = 0;

    // The main flash, addressed as in image files.
    virtual IFlashUnits& flash() = 0;
    // Address spaces and memories that `read` can reach, with their sizes.
    virtual std::vector<std::pair<std::string, uint64_t>> readableSpaces() = 0;
    virtual std::vector<unsigned char> read(const std::string& space, uint64_t address,
                                            uint32_t size) = 0;
    virtual IProtection& protection() = 0;

    virtual TargetCounters getCounters() const = 0;

    // Loads and saves what the chip holds between runs; a real chip keeps
    // it by itself.
    virtual void load(const std::string& path) = 0;
    virtual void save(const std::string& path) = 0;
};

// The simulated chip for the device's architecture. Throws a TargetError
// where there is none.
boost::shared_ptr<ITarget> createSimulatedTarget(boost::shared_ptr<DIDevice> device);

}  // namespace tarnprog

#endif
