#include "libcommon/device/devicesupportinfo.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/utilities.h"

#include <Poco/Exception.h>
#include <Poco/Util/Application.h>
#include <Poco/Util/LayeredConfiguration.h>
#include <Poco/Util/MapConfiguration.h>
#include <Poco/Util/PropertyFileConfiguration.h>
#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <set>

namespace fs = boost::filesystem;

namespace {

const std::string PROPERTIES_FILE = "partpack.properties";
const std::string KEY_DEVICES = "com.velmora.hil.core.partpack_devices";
const std::string KEY_TOOLS = "com.velmora.hil.core.partpack_tools";
const std::string KEY_MODELS = "com.velmora.hil.core.partpack_models";
const std::string KEY_VERSION = "com.velmora.hil.core.partpack_version";
const std::string KEY_EXTENSION = "com.velmora.hil.core.extension";
const std::string KEY_APPLICATION_DIR = "application.dir";
const std::string NOT_SPECIFIED = "not_specified";

// How deep below the extensions directory a properties file may lie:
// <root>/<pack>/ is depth 1, <root>/<pack>/<dir>/<dir>/ depth 3.
const int DEEPEST_PROPERTIES = 3;

void warn(const std::string& text) {
    if (gLogMask & LOG_MASK_WARN) BackendLogger::warn(L_HIL, text);
}

void debug(const std::string& text) {
    if (gLogMask & LOG_MASK_DEBUG) BackendLogger::debug(L_HIL, text);
}

// The entries of dir sorted by name, so that what the index finds does not
// depend on the order the file system keeps. A directory that cannot be
// read is skipped whole, with a warning, rather than half read.
std::vector<fs::path> sortedEntries(const fs::path& dir) {
    std::vector<fs::path> entries;
    boost::system::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        entries.push_back(it->path());
    }
    if (ec) {
        warn(FormatString("Skipping directory '%s': %s", dir.string().c_str(),
                          ec.message().c_str()));
        return {};
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// Visits directories only: a link is followed to what it names, and a
// broken link or a special file is skipped with a log line.
void findPropertyFiles(const fs::path& dir, int depth, std::vector<fs::path>& found) {
    for (const fs::path& entry : sortedEntries(dir)) {
        boost::system::error_code ec;
        const fs::file_type type = fs::status(entry, ec).type();
        if (type == fs::directory_file) {
            if (depth < DEEPEST_PROPERTIES) findPropertyFiles(entry, depth + 1, found);
        } else if (type == fs::regular_file) {
            if (depth == 0) {
                debug(FormatString("Skipping '%s': not a pack directory", entry.string().c_str()));
            } else if (entry.filename() == PROPERTIES_FILE) {
                found.push_back(entry);
            }
        } else if (ec || type == fs::file_not_found) {
            warn(FormatString("Skipping '%s': %s", entry.string().c_str(),
                              ec ? ec.message().c_str() : "broken link"));
        } else {
            debug(
                FormatString("Skipping '%s': neither file nor directory", entry.string().c_str()));
        }
    }
}

// Names one file of a path apart from its spelling, so that a pack reached
// twice through a link is read once.
fs::path identity(const fs::path& p) {
    boost::system::error_code ec;
    fs::path canonical = fs::canonical(p, ec);
    return ec ? p.lexically_normal() : canonical;
}

bool samePath(const std::string& a, const std::string& b) {
    if (a == b) return true;
    fs::path normalA = fs::path(a).lexically_normal();
    fs::path normalB = fs::path(b).lexically_normal();
    // "a/b/" normalises to "a/b/."; the directory is the same as "a/b".
    if (normalA.filename() == ".") normalA.remove_filename();
    if (normalB.filename() == ".") normalB.remove_filename();
    if (normalA == normalB) return true;
    boost::system::error_code ec;
    return fs::equivalent(a, b, ec) && !ec;
}

Poco::Util::Application* applicationOrNull() {
    try {
        return &Poco::Util::Application::instance();
    } catch (const Poco::NullPointerException&) {
        return nullptr;
    }
}

Poco::AutoPtr<Poco::Util::AbstractConfiguration> gHandedInConfiguration;

// What a Poco application would have set "application.dir" to: the
// directory of the running program, with a trailing separator.
std::string programDirectory() {
    boost::system::error_code ec;
    fs::path program = boost::dll::program_location(ec);
    if (ec) return "";
    return program.parent_path().string() + static_cast<char>(fs::path::preferred_separator);
}

}  // namespace

DeviceSupportInfo::DeviceSupportInfo(std::string deviceDir, std::string toolsDir,
                                     std::string modelsDir, std::string versionText)
    : mDeviceDir(std::move(deviceDir)),
      mToolsDir(std::move(toolsDir)),
      mModelsDir(std::move(modelsDir)),
      mVersionText(std::move(versionText)),
      mVersion(mVersionText) {
    boost::system::error_code ec;
    if (!fs::is_directory(mDeviceDir, ec)) return;
    for (const fs::path& entry : sortedEntries(mDeviceDir)) {
        if (!fs::is_regular_file(entry, ec)) continue;
        const std::string fileName = entry.filename().string();
        const std::string name = fileName.substr(0, fileName.rfind('.'));
        // ".xml" would serve a device without a name, which nobody can ask for.
        if (name.empty()) continue;
        mDeviceNames.push_back(name);
        mDeviceFiles.push_back(entry.string());
    }
}

DeviceSupportInfoHelper* DeviceSupportInfoHelper::mInstance = nullptr;

DeviceSupportInfoHelper* DeviceSupportInfoHelper::getDeviceSupportHelper() {
    if (!mInstance) {
        // Stored first: when reading a pack throws, later calls get the
        // index without devices instead of reading the disk again.
        mInstance = new DeviceSupportInfoHelper;
        mInstance->preparePartPackInfo();
        mInstance->GenerateMap();
    }
    return mInstance;
}

boost::shared_ptr<DeviceSupportInfoHelper> DeviceSupportInfoHelper::createForRoot(fs::path root) {
    boost::shared_ptr<DeviceSupportInfoHelper> index(new DeviceSupportInfoHelper,
                                                     [](DeviceSupportInfoHelper* p) { delete p; });
    if (!root.empty()) index->ReadPPackPropFiles(root);
    index->GenerateMap();
    return index;
}

void DeviceSupportInfoHelper::setConfiguration(
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> config) {
    gHandedInConfiguration = config;
}

void DeviceSupportInfoHelper::preparePartPackInfo() {
    fs::path root = FindAppExtensionDir();
    if (!root.empty()) ReadPPackPropFiles(root);
}

fs::path DeviceSupportInfoHelper::FindAppExtensionDir() {
    if (Poco::Util::Application* app = applicationOrNull()) return FindExtensionDir(app->config());
    Poco::AutoPtr<Poco::Util::LayeredConfiguration> config(new Poco::Util::LayeredConfiguration);
    if (gHandedInConfiguration) config->add(gHandedInConfiguration, 0);
    Poco::AutoPtr<Poco::Util::MapConfiguration> defaults(new Poco::Util::MapConfiguration);
    defaults->setString(KEY_APPLICATION_DIR, programDirectory());
    config->add(defaults, 1);
    return FindExtensionDir(*config);
}

fs::path DeviceSupportInfoHelper::FindExtensionDir(
    const Poco::Util::AbstractConfiguration& config) {
    boost::system::error_code ec;
    try {
        if (config.hasProperty(KEY_EXTENSION)) {
            fs::path configured(config.getString(KEY_EXTENSION));
            if (fs::exists(configured, ec)) return configured;
        }
    } catch (const std::exception&) {
        // A configured directory that cannot be used is not an error: the
        // application's own directory is the fall-back.
    }
    // Appended as text: "application.dir" ends with a separator.
    fs::path fallback(config.getString(KEY_APPLICATION_DIR) + "../extensions");
    return fs::exists(fallback, ec) ? fallback : fs::path();
}

std::vector<std::string> DeviceSupportInfoHelper::GetPropFileList(fs::path& root) {
    std::vector<std::string> list;
    boost::system::error_code ec;
    if (!fs::exists(root, ec)) return list;
    std::vector<fs::path> found;
    findPropertyFiles(root, 0, found);
    std::set<fs::path> seen;
    for (const fs::path& file : found) {
        if (seen.insert(identity(file)).second) list.push_back(file.string());
    }
    return list;
}

void DeviceSupportInfoHelper::ReadPPackPropFiles(fs::path& root) {
    Poco::AutoPtr<Poco::Util::PropertyFileConfiguration> properties(
        new Poco::Util::PropertyFileConfiguration);
    for (const std::string& file : GetPropFileList(root)) {
        const fs::path path(file);
        if (path.filename().empty()) continue;
        const fs::path base = path.parent_path();
        properties->clear();
        properties->load(file);
        try {
            mPacks.push_back(boost::make_shared<DeviceSupportInfo>(
                (base / properties->getString(KEY_DEVICES, NOT_SPECIFIED)).string(),
                (base / properties->getString(KEY_TOOLS, NOT_SPECIFIED)).string(),
                (base / properties->getString(KEY_MODELS, NOT_SPECIFIED)).string(),
                properties->getString(KEY_VERSION, "0")));
        } catch (const BundleResolveException& e) {
            warn(FormatString("Skipping part pack '%s': %s", file.c_str(), e.what()));
        }
    }
}

bool DeviceSupportInfoHelper::compareversion(PackPtr a, PackPtr b) {
    return a->mVersion < b->mVersion;
}

void DeviceSupportInfoHelper::GenerateMap() {
    // Stable, so packs of one version keep the order of the walk.
    std::stable_sort(mPacks.begin(), mPacks.end(), compareversion);
    for (const PackPtr& pack : mPacks) {
        for (const std::string& name : pack->mDeviceNames) mDeviceMap.emplace(name, pack);
    }
}

DeviceSupportInfoHelper::PackPtr DeviceSupportInfoHelper::GetPack(
    const std::string& deviceName) const {
    // lower_bound, not find: of equal keys only the first is the oldest pack.
    auto it = mDeviceMap.lower_bound(deviceName);
    return it != mDeviceMap.end() && it->first == deviceName ? it->second : PackPtr();
}

std::string DeviceSupportInfoHelper::packField(const std::string& deviceName,
                                               std::string DeviceSupportInfo::*field) const {
    PackPtr pack = GetPack(deviceName);
    return pack ? (*pack).*field : std::string();
}

std::string DeviceSupportInfoHelper::GetDeviceDir(std::string deviceName) {
    return packField(deviceName, &DeviceSupportInfo::mDeviceDir);
}

std::string DeviceSupportInfoHelper::GetToolsDir(std::string deviceName) {
    return packField(deviceName, &DeviceSupportInfo::mToolsDir);
}

std::string DeviceSupportInfoHelper::GetModelsDir(std::string deviceName) {
    return packField(deviceName, &DeviceSupportInfo::mModelsDir);
}

std::string DeviceSupportInfoHelper::GetVersion(std::string deviceName) {
    return packField(deviceName, &DeviceSupportInfo::mVersionText);
}

std::string DeviceSupportInfoHelper::GetDeviceFile(const std::string& deviceName) const {
    PackPtr pack = GetPack(deviceName);
    if (!pack) return std::string();
    auto it = std::find(pack->mDeviceNames.begin(), pack->mDeviceNames.end(), deviceName);
    return pack->mDeviceFiles[it - pack->mDeviceNames.begin()];
}

void FileMapper::InitMapping(const std::string& root) {
    mRoot = root;
    mMap.clear();
}

void FileMapper::MapFile(const std::string& privatePath, const std::string& publicPath) {
    for (const auto& entry : mMap) {
        if (samePath(entry.first, privatePath)) return;
    }
    mMap.emplace(privatePath, publicPath);
}

std::string FileMapper::GetPublicPath(const std::string& privatePath) const {
    auto exact = mMap.find(privatePath);
    if (exact != mMap.end()) return exact->second;
    for (const auto& entry : mMap) {
        if (samePath(entry.first, privatePath)) return entry.second;
    }
    return privatePath;
}

std::string FileMapper::GetPrivatePath(const std::string& publicPath) const {
    for (const auto& entry : mMap) {
        if (samePath(entry.second, publicPath)) return entry.first;
    }
    return publicPath;
}
