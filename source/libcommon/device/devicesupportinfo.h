#ifndef LIBCOMMON_DEVICE_DEVICESUPPORTINFO_H
#define LIBCOMMON_DEVICE_DEVICESUPPORTINFO_H

// Part packs: installable directories of device files, tool files and
// simulation models. Each pack describes itself in a "partpack.properties"
// file somewhere below one extensions directory:
//
//     <extensions>/<pack>/partpack.properties
//     <extensions>/<pack>/<dir>/partpack.properties
//     <extensions>/<pack>/<dir>/<dir>/partpack.properties     (and no deeper)
//
// The file names the pack's device, tools and models directories, relative
// to the file's own directory, and the pack's version. Every regular file in
// the device directory serves the device named like the file without its
// last extension ("TN8C328.xml" serves "TN8C328").
//
// DeviceSupportInfoHelper is the process-wide index: made at first use, it
// finds the extensions directory, reads every pack and then only answers.
// When several packs serve one device, the pack with the lowest version
// answers (1.2.0 is older than 1.10.0: versions compare by number). A pack
// installed later is not seen before the process restarts.
//
// Failure rule: the index never throws for the layout of the disk. No
// extensions directory means no packs, and every lookup gives an empty
// string. A broken link, a file where a directory belongs, an unreadable
// directory and a version text that is not a version are skipped with a
// warning on the "hil" channel. Only a properties file that exists but
// cannot be read throws (Poco's exception) out of the first
// getDeviceSupportHelper(); the index then stays without devices.
//
// Usage:
//     DeviceSupportInfoHelper* packs = DeviceSupportInfoHelper::getDeviceSupportHelper();
//     std::string file = packs->GetDeviceFile("TN8C328");  // "" when no pack serves it
//     if (!file.empty()) device = DeviceFile::load(file);

#include "libcommon/core/version.h"

#include <Poco/AutoPtr.h>
#include <Poco/Util/AbstractConfiguration.h>
#include <boost/filesystem/path.hpp>
#include <boost/shared_ptr.hpp>

#include <map>
#include <string>
#include <vector>

// One pack, read from its properties file.
class DeviceSupportInfo {
public:
    // Parses versionText (BundleResolveException when it is not a version),
    // then lists the devices of deviceDir. A device directory that does not
    // exist or cannot be read gives a pack without devices.
    DeviceSupportInfo(std::string deviceDir, std::string toolsDir, std::string modelsDir,
                      std::string versionText);

    std::string mDeviceDir;
    std::string mToolsDir;
    std::string mModelsDir;
    std::string mVersionText;
    // One name per regular file of mDeviceDir, in the order of the file names.
    std::vector<std::string> mDeviceNames;
    Version mVersion;
    // The full path of the file behind each entry of mDeviceNames.
    std::vector<std::string> mDeviceFiles;
};

class DeviceSupportInfoHelper {
public:
    typedef boost::shared_ptr<DeviceSupportInfo> PackPtr;

    // The index, built at the first call. Not synchronised: the first call
    // must not race with another.
    static DeviceSupportInfoHelper* getDeviceSupportHelper();

    // The directories and version text of the pack serving deviceName;
    // empty when no pack serves it. Names match exactly, with case.
    std::string GetDeviceDir(std::string deviceName);
    std::string GetToolsDir(std::string deviceName);
    std::string GetModelsDir(std::string deviceName);
    std::string GetVersion(std::string deviceName);

    // The path of the file describing deviceName in the pack serving it;
    // empty when no pack serves it. When a pack holds two files for one
    // name ("X.xml", "X.old"), the first by file name answers.
    std::string GetDeviceFile(const std::string& deviceName) const;
    // The pack serving deviceName, empty when none does.
    PackPtr GetPack(const std::string& deviceName) const;
    // Every pack read, oldest version first.
    const std::vector<PackPtr>& GetPacks() const { return mPacks; }

    // Where the extensions directory is looked up: the Poco application's
    // configuration when an application object exists. A program without
    // one (a command-line tool, a test) may hand a configuration in before
    // the first getDeviceSupportHelper(); keys it lacks, and the whole
    // configuration when none is handed in, fall back to "application.dir"
    // being the running program's directory, as the application object
    // would have set it.
    static void setConfiguration(Poco::AutoPtr<Poco::Util::AbstractConfiguration> config);

    // The extensions directory that config names: the existing path under
    // "com.velmora.hil.core.extension", else "<application.dir>../extensions"
    // when that exists, else an empty path. "application.dir" ends with a
    // separator, as a Poco application sets it; when it is missing, the
    // configuration's NotFoundException passes through.
    static boost::filesystem::path FindExtensionDir(
        const Poco::Util::AbstractConfiguration& config);

    // The packs below root, sorted and mapped as the singleton does it. This
    // is the singleton's own construction without the process-wide state,
    // for tools that index a directory of their choosing.
    static boost::shared_ptr<DeviceSupportInfoHelper> createForRoot(boost::filesystem::path root);

private:
    DeviceSupportInfoHelper() = default;
    DeviceSupportInfoHelper(const DeviceSupportInfoHelper&) = delete;
    DeviceSupportInfoHelper& operator=(const DeviceSupportInfoHelper&) = delete;
    ~DeviceSupportInfoHelper() = default;

    void preparePartPackInfo();
    boost::filesystem::path FindAppExtensionDir();
    // Every "partpack.properties" below root at the depths above, in the
    // order of a walk that visits entries by name.
    static std::vector<std::string> GetPropFileList(boost::filesystem::path& root);
    void ReadPPackPropFiles(boost::filesystem::path& root);
    void GenerateMap();
    static bool compareversion(PackPtr a, PackPtr b);
    // The field of the pack serving deviceName, or an empty string.
    std::string packField(const std::string& deviceName,
                          std::string DeviceSupportInfo::*field) const;

    std::vector<PackPtr> mPacks;
    std::multimap<std::string, PackPtr> mDeviceMap;

    static DeviceSupportInfoHelper* mInstance;
};

// A two-way table between private and public path names. Paths are
// compared as paths, not as texts: "a/./b" and "a/b" are one path, and so
// are two names of one existing file.
class FileMapper {
public:
    FileMapper() = default;
    virtual ~FileMapper() = default;
    FileMapper(const FileMapper&) = default;
    FileMapper& operator=(const FileMapper&) = default;

    // Keeps root and forgets every mapping.
    void InitMapping(const std::string& root);
    // A private path that is already mapped keeps its public path.
    void MapFile(const std::string& privatePath, const std::string& publicPath);
    // The mapped path, or the argument itself when it is not mapped.
    std::string GetPublicPath(const std::string& privatePath) const;
    // The first private path (in the order of the private paths' texts)
    // mapped to publicPath, or the argument itself.
    std::string GetPrivatePath(const std::string& publicPath) const;

private:
    std::map<std::string, std::string> mMap;
    std::string mRoot;
};

#endif
