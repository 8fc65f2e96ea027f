#include "devices.h"

#include "errors.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/device/devicesupportinfo.h"

#include <Poco/Util/MapConfiguration.h>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem.hpp>

#include <algorithm>
#include <iostream>
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

// The process-wide index of the part packs, pointed at packsDirectory when
// one is given. A pack that cannot be read leaves the index without packs.
DeviceSupportInfoHelper* partPacks(const std::string& packsDirectory) {
    static bool configured = false;
    if (!configured) {
        configured = true;
        if (!packsDirectory.empty()) {
            Poco::AutoPtr<Poco::Util::MapConfiguration> config(new Poco::Util::MapConfiguration);
            config->setString("com.velmora.hil.core.extension", packsDirectory);
            DeviceSupportInfoHelper::setConfiguration(config);
        }
        try {
            return DeviceSupportInfoHelper::getDeviceSupportHelper();
        } catch (const std::exception& e) {
            std::cerr << "tarnprog: warning: part packs: " << e.what() << '\n';
        }
    }
    return DeviceSupportInfoHelper::getDeviceSupportHelper();
}

}  // namespace

DeviceDirectory::DeviceDirectory(const std::vector<std::string>& extraDirectories,
                                 const std::string& packsDirectory)
    : extra(extraDirectories), directories(extraDirectories) {
    packs = partPacks(packsDirectory);
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
    auto addDirectory = [&found](const std::string& directory) {
        boost::system::error_code ec;
        for (fs::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
            const fs::path path = it->path();
            if (path.extension() == ".xml" && fs::is_regular_file(path, ec)) {
                found.emplace(path.stem().string(), path.string());
            }
        }
    };
    for (const std::string& directory : extra) {
        addDirectory(directory);
    }
    for (const DeviceSupportInfoHelper::PackPtr& pack : packs->GetPacks()) {
        for (size_t i = 0; i < pack->mDeviceNames.size(); ++i) {
            // The pack that answers for a name is the one the lookup uses.
            if (packs->GetPack(pack->mDeviceNames[i]) == pack) {
                found.emplace(pack->mDeviceNames[i], pack->mDeviceFiles[i]);
            }
        }
    }
    addDirectory(directories.back());
    std::vector<KnownDevice> devices;
    for (const auto& entry : found) {
        devices.push_back(KnownDevice{entry.first, entry.second});
    }
    return devices;
}

std::string DeviceDirectory::findInDirectories(const std::vector<std::string>& in,
                                               const std::string& name) const {
    for (const std::string& directory : in) {
        const std::string path = DeviceFile::findDeviceFile(directory, name);
        if (!path.empty()) {
            return path;
        }
    }
    return std::string();
}

boost::shared_ptr<DIDevice> DeviceDirectory::load(const std::string& nameOrPath) const {
    std::string path;
    if (nameOrPath.find('/') != std::string::npos ||
        boost::algorithm::ends_with(nameOrPath, ".xml")) {
        path = nameOrPath;
    } else {
        path = findInDirectories(extra, nameOrPath);
        if (path.empty()) {
            path = packs->GetDeviceFile(nameOrPath);
        }
        if (path.empty()) {
            path = findInDirectories({directories.back()}, nameOrPath);
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
