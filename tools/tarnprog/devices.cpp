#include "devices.h"

#include "errors.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem.hpp>

#include <algorithm>
#include <map>

namespace fs = boost::filesystem;

namespace tarnprog {

namespace {

// The installed device files lie at a fixed place relative to the program.
std::string installedDevices() {
    boost::system::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    if (ec) {
        return std::string();
    }
    return (self.parent_path() / TARNPROG_INSTALLED_DEVICES).lexically_normal().string();
}

}  // namespace

DeviceDirectory::DeviceDirectory(const std::vector<std::string>& extraDirectories)
    : directories(extraDirectories) {
    boost::system::error_code ec;
    const std::string installed = installedDevices();
    if (!installed.empty() && fs::is_directory(installed, ec)) {
        directories.push_back(installed);
    } else {
        directories.push_back(TARNPROG_SOURCE_DEVICES);
    }
}

std::vector<KnownDevice> DeviceDirectory::list() const {
    std::map<std::string, std::string> found;
    for (const std::string& directory : directories) {
        boost::system::error_code ec;
        for (fs::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
            const fs::path path = it->path();
            if (path.extension() == ".xml" && fs::is_regular_file(path, ec)) {
                found.emplace(path.stem().string(), path.string());
            }
        }
    }
    std::vector<KnownDevice> devices;
    for (const auto& entry : found) {
        devices.push_back(KnownDevice{entry.first, entry.second});
    }
    return devices;
}

boost::shared_ptr<DIDevice> DeviceDirectory::load(const std::string& nameOrPath) const {
    std::string path;
    if (nameOrPath.find('/') != std::string::npos ||
        boost::algorithm::ends_with(nameOrPath, ".xml")) {
        path = nameOrPath;
    } else {
        for (const std::string& directory : directories) {
            path = DeviceFile::findDeviceFile(directory, nameOrPath);
            if (!path.empty()) {
                break;
            }
        }
    }
    if (path.empty()) {
        std::string message = "unknown device '" + nameOrPath + "'";
        for (const KnownDevice& known : list()) {
            if (boost::algorithm::iequals(known.name, nameOrPath)) {
                message += "; did you mean " + known.name + "?";
                throw TargetError(message);
            }
        }
        throw TargetError(message + " (tarnprog devices lists the known ones)");
    }
    try {
        return DeviceFile::load(path);
    } catch (const CoreException& e) {
        throw TargetError(std::string("device file: ") + e.what());
    }
}

}  // namespace tarnprog
