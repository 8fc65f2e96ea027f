#ifndef TARNPROG_DEVICES_H
#define TARNPROG_DEVICES_H

// Where tarnprog finds device files: the directories given with
// --device-dir, in their order, then the bundled devices/ (installed beside
// the program, or the source tree's for a program run from its build tree).
// A device name is the file name without ".xml", matched with case; a path
// to a file names that file.

#include "libcommon/didevice.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace tarnprog {

struct KnownDevice {
    std::string name;
    std::string path;
};

class DeviceDirectory {
public:
    explicit DeviceDirectory(const std::vector<std::string>& extraDirectories);

    const std::vector<std::string>& getDirectories() const { return directories; }
    // Every device file, the first of a name winning, sorted by name.
    std::vector<KnownDevice> list() const;
    // Loads a device by name or path; TargetError for an unknown device or a
    // faulty file.
    boost::shared_ptr<DIDevice> load(const std::string& nameOrPath) const;

private:
    std::vector<std::string> directories;
};

}  // namespace tarnprog

#endif
