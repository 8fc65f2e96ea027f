#ifndef TARNPROG_DEVICES_H
#define TARNPROG_DEVICES_H

// Where tarnprog finds device files: the directories given with
// --device-dir, in their order, then the installed part packs
// (DeviceSupportInfoHelper; --packs names their extensions directory), then
// the bundled devices/ (installed beside the program, or the source tree's
// for a program run from its build tree). A device name is the file name
// without ".xml", matched with case; a path to a file names that file.

#include "libcommon/didevice.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

class DeviceSupportInfoHelper;

namespace tarnprog {

struct KnownDevice {
    std::string name;
    std::string path;
};

class DeviceDirectory {
public:
    // packsDirectory: the extensions directory of the part packs; empty for
    // the default place.
    DeviceDirectory(const std::vector<std::string>& extraDirectories,
                    const std::string& packsDirectory);

    // Every device file, the first of a name winning, sorted by name.
    std::vector<KnownDevice> list() const;
    // Loads a device by name or path; TargetError for an unknown device or a
    // faulty file.
    boost::shared_ptr<DIDevice> load(const std::string& nameOrPath) const;

private:
    std::string findInDirectories(const std::vector<std::string>& in,
                                  const std::string& name) const;

    std::vector<std::string> extra;
    std::vector<std::string> directories;  // extra, then the bundled one
    DeviceSupportInfoHelper* packs;
};

}  // namespace tarnprog

#endif
