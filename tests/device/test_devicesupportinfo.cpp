// Part-pack discovery over directory trees built in a temporary directory,
// and the two-way path table.

#include "libcommon/device/devicesupportinfo.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Exception.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <Poco/Util/MapConfiguration.h>
#include <gtest/gtest.h>
#include <boost/filesystem.hpp>

#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

namespace fs = boost::filesystem;

namespace {

// A directory tree that removes itself.
class TempTree {
public:
    TempTree() : root(fs::temp_directory_path() / fs::unique_path("partpacks-%%%%-%%%%-%%%%")) {
        fs::create_directories(root);
    }
    ~TempTree() {
        boost::system::error_code ec;
        fs::remove_all(root, ec);
    }

    void write(const fs::path& relative, const std::string& text = "") const {
        fs::create_directories((root / relative).parent_path());
        std::ofstream(fs::path(root / relative).string()) << text;
    }

    // A pack at dir: its properties file names the subdirectories "dev",
    // "tools" and "models" and the version (none when versionText is null);
    // "dev" holds one empty file per entry of files.
    void pack(const fs::path& dir, const char* versionText,
              std::initializer_list<const char*> files) const {
        std::string properties =
            "com.velmora.hil.core.partpack_devices = dev\n"
            "com.velmora.hil.core.partpack_tools = tools\n"
            "com.velmora.hil.core.partpack_models = models\n";
        if (versionText) {
            properties += "com.velmora.hil.core.partpack_version = " + std::string(versionText);
        }
        write(dir / "partpack.properties", properties);
        fs::create_directories(root / dir / "dev");
        for (const char* file : files) write(dir / "dev" / file);
    }

    std::string path(const fs::path& relative) const { return (root / relative).string(); }

    boost::shared_ptr<DeviceSupportInfoHelper> index() const {
        return DeviceSupportInfoHelper::createForRoot(root);
    }

    const fs::path root;
};

class CollectingChannel : public Poco::Channel {
public:
    void log(const Poco::Message& msg) override { lines.push_back(msg.getText()); }
    std::vector<std::string> lines;
};

// What the index logs on the "hil" channel while it lives.
class HilLog {
public:
    HilLog() : channel(new CollectingChannel) {
        Poco::Logger::get("hil").setChannel(channel);
        Poco::Logger::get("hil").setLevel(Poco::Message::PRIO_TRACE);
    }
    ~HilLog() { Poco::Logger::get("hil").setChannel(nullptr); }
    bool mentions(const std::string& text) const {
        for (const std::string& line : channel->lines) {
            if (line.find(text) != std::string::npos) return true;
        }
        return false;
    }
    Poco::AutoPtr<CollectingChannel> channel;
};

}  // namespace

TEST(PartPacks, FoundFromOneToThreeLevelsBelowTheRootOnly) {
    TempTree tree;
    tree.pack("a", "1.0.0", {"ONE.xml"});
    tree.pack("b/x", "1.0.0", {"TWO.xml"});
    tree.pack("c/x/y", "1.0.0", {"THREE.xml"});
    tree.pack("d/x/y/z", "1.0.0", {"FOUR.xml"});
    tree.pack(".", "1.0.0", {"ROOT.xml"});
    auto index = tree.index();

    EXPECT_EQ(tree.path("a/dev"), index->GetDeviceDir("ONE"));
    EXPECT_EQ(tree.path("b/x/dev"), index->GetDeviceDir("TWO"));
    EXPECT_EQ(tree.path("c/x/y/dev"), index->GetDeviceDir("THREE"));
    EXPECT_EQ("", index->GetDeviceDir("FOUR")) << "four levels down is too deep";
    EXPECT_EQ("", index->GetDeviceDir("ROOT")) << "the root itself is no pack";
    EXPECT_EQ(3u, index->GetPacks().size());
}

TEST(PartPacks, TheOldestVersionServesADeviceOfSeveralPacks) {
    TempTree tree;
    // Walked in name order: the newest comes first and the oldest between.
    tree.pack("a", "1.10.0", {"SHARED.xml", "NEWONLY.xml"});
    tree.pack("b", "1.2.0", {"SHARED.xml"});
    tree.pack("c", "1.9.0", {"SHARED.xml"});
    tree.pack("d", "1.2.0", {"SHARED.xml"});
    auto index = tree.index();

    EXPECT_EQ("1.2.0", index->GetVersion("SHARED")) << "numbers, not text: 1.2.0 < 1.10.0";
    EXPECT_EQ(tree.path("b/dev"), index->GetDeviceDir("SHARED"))
        << "of two packs of one version the first found answers";
    EXPECT_EQ(tree.path("b/tools"), index->GetToolsDir("SHARED"));
    EXPECT_EQ(tree.path("b/models"), index->GetModelsDir("SHARED"));
    EXPECT_EQ(tree.path("b/dev/SHARED.xml"), index->GetDeviceFile("SHARED"));
    EXPECT_EQ("1.10.0", index->GetVersion("NEWONLY"));

    std::vector<std::string> order;
    for (const auto& pack : index->GetPacks()) order.push_back(pack->mDeviceDir);
    EXPECT_EQ((std::vector<std::string>{tree.path("b/dev"), tree.path("d/dev"), tree.path("c/dev"),
                                        tree.path("a/dev")}),
              order);
}

TEST(PartPacks, DeviceNamesAreFileNamesWithoutTheirLastExtension) {
    TempTree tree;
    tree.pack("p", "2.0", {"TN8.rev.B.xml", "PLAIN", "TN8C328.xml", ".xml"});
    tree.write("p/dev/deeper/HIDDEN.xml");
    auto index = tree.index();

    EXPECT_EQ("2.0", index->GetVersion("TN8.rev.B"));
    EXPECT_EQ(tree.path("p/dev/PLAIN"), index->GetDeviceFile("PLAIN"));
    EXPECT_EQ(tree.path("p/dev/TN8C328.xml"), index->GetDeviceFile("TN8C328"));
    for (const char* unknown : {"TN8", "TN8C32", "TN8C3280", "tn8c328", "TN8.rev", "HIDDEN", ""}) {
        EXPECT_EQ("", index->GetDeviceDir(unknown)) << unknown;
        EXPECT_EQ("", index->GetToolsDir(unknown)) << unknown;
        EXPECT_EQ("", index->GetModelsDir(unknown)) << unknown;
        EXPECT_EQ("", index->GetVersion(unknown)) << unknown;
        EXPECT_EQ("", index->GetDeviceFile(unknown)) << unknown;
        EXPECT_FALSE(index->GetPack(unknown)) << unknown;
    }
    EXPECT_EQ((std::vector<std::string>{"PLAIN", "TN8.rev.B", "TN8C328"}),
              index->GetPack("PLAIN")->mDeviceNames);
}

TEST(PartPacks, UnsetKeysTakeTheirDefaults) {
    TempTree tree;
    tree.write("p/partpack.properties", "");
    tree.pack("q", nullptr, {"NOVERSION.xml"});
    auto index = tree.index();

    ASSERT_EQ(2u, index->GetPacks().size());
    const auto& bare = *index->GetPacks()[0];
    EXPECT_EQ(tree.path("p/not_specified"), bare.mDeviceDir);
    EXPECT_EQ(tree.path("p/not_specified"), bare.mToolsDir);
    EXPECT_EQ(tree.path("p/not_specified"), bare.mModelsDir);
    EXPECT_TRUE(bare.mDeviceNames.empty());
    EXPECT_EQ("0", index->GetVersion("NOVERSION"));
}

TEST(PartPacks, OddEntriesAndBadVersionsAreSkippedNotThrown) {
    TempTree tree;
    HilLog log;
    tree.pack("good", "1.0", {"GOOD.xml"});
    tree.pack("bad", "1.x", {"BAD.xml"});
    tree.write("stray-file");
    tree.write("filepack", "");  // a file where a pack directory belongs
    fs::create_symlink(tree.root / "nowhere", tree.root / "broken");
    fs::create_symlink(tree.root / "good", tree.root / "linked");
    auto index = tree.index();

    EXPECT_EQ(tree.path("good/dev"), index->GetDeviceDir("GOOD"));
    EXPECT_EQ(1u, index->GetPacks().size()) << "a pack reached through a link is read once";
    EXPECT_EQ("", index->GetDeviceDir("BAD"));
    EXPECT_TRUE(log.mentions(tree.path("bad/partpack.properties")));
    EXPECT_TRUE(log.mentions(tree.path("broken")));
}

TEST(PartPacks, NoRootMeansNoPacks) {
    TempTree tree;
    auto missing = DeviceSupportInfoHelper::createForRoot(tree.root / "absent");
    EXPECT_TRUE(missing->GetPacks().empty());
    EXPECT_EQ("", missing->GetDeviceDir("ANY"));
    auto none = DeviceSupportInfoHelper::createForRoot(fs::path());
    EXPECT_EQ("", none->GetVersion("ANY"));
}

TEST(PartPacks, TheExtensionDirectoryComesFromTheConfiguration) {
    TempTree tree;
    fs::create_directories(tree.root / "configured");
    fs::create_directories(tree.root / "app");
    Poco::AutoPtr<Poco::Util::MapConfiguration> config(new Poco::Util::MapConfiguration);
    config->setString("application.dir", tree.path("app") + "/");
    config->setString("com.velmora.hil.core.extension", tree.path("configured"));

    EXPECT_EQ(tree.root / "configured", DeviceSupportInfoHelper::FindExtensionDir(*config));

    // A configured directory that does not exist falls back quietly, and so
    // does a missing key; without the fall-back directory there is none.
    config->setString("com.velmora.hil.core.extension", tree.path("gone"));
    EXPECT_EQ(fs::path(), DeviceSupportInfoHelper::FindExtensionDir(*config));
    fs::create_directories(tree.root / "extensions");
    EXPECT_EQ(fs::path(tree.path("app") + "/../extensions"),
              DeviceSupportInfoHelper::FindExtensionDir(*config));
    config->remove("com.velmora.hil.core.extension");
    EXPECT_EQ(fs::path(tree.path("app") + "/../extensions"),
              DeviceSupportInfoHelper::FindExtensionDir(*config));

    config->remove("application.dir");
    EXPECT_THROW(DeviceSupportInfoHelper::FindExtensionDir(*config), Poco::NotFoundException);
}

// The only test that builds the process-wide index: it is made once.
TEST(PartPacks, TheSingletonIndexesTheHandedInConfigurationWithoutAnApplication) {
    TempTree tree;
    tree.pack("extensions/p", "3.1", {"SOLO.xml"});
    fs::create_directories(tree.root / "bin");
    Poco::AutoPtr<Poco::Util::MapConfiguration> config(new Poco::Util::MapConfiguration);
    config->setString("application.dir", tree.path("bin") + "/");
    DeviceSupportInfoHelper::setConfiguration(config);

    DeviceSupportInfoHelper* index = DeviceSupportInfoHelper::getDeviceSupportHelper();
    ASSERT_NE(nullptr, index);
    EXPECT_EQ(index, DeviceSupportInfoHelper::getDeviceSupportHelper());
    EXPECT_EQ("3.1", index->GetVersion("SOLO"));
    EXPECT_EQ("", index->GetVersion("OTHER"));
    DeviceSupportInfoHelper::setConfiguration(nullptr);
}

TEST(FileMapper, MapsBothWaysAndPassesUnknownPathsThrough) {
    TempTree tree;
    tree.write("real/file.c");
    FileMapper mapper;
    mapper.InitMapping(tree.path(""));
    mapper.MapFile(tree.path("real/file.c"), "/public/file.c");
    mapper.MapFile(tree.path("real/file.c"), "/public/other.c");  // keeps the first

    EXPECT_EQ("/public/file.c", mapper.GetPublicPath(tree.path("real/file.c")));
    EXPECT_EQ(tree.path("real/file.c"), mapper.GetPrivatePath("/public/file.c"));
    EXPECT_EQ("/public/other.c", mapper.GetPrivatePath("/public/other.c"));
    EXPECT_EQ("/unknown", mapper.GetPublicPath("/unknown"));
    EXPECT_EQ(tree.path("real/file"), mapper.GetPublicPath(tree.path("real/file")))
        << "a prefix of a mapped path is another path";

    // Spelled differently, or named through a link, it is still the path.
    EXPECT_EQ("/public/file.c", mapper.GetPublicPath(tree.path("real/./file.c")));
    EXPECT_EQ("/public/file.c", mapper.GetPublicPath(tree.path("real/../real/file.c")));
    fs::create_symlink(tree.root / "real", tree.root / "alias");
    EXPECT_EQ("/public/file.c", mapper.GetPublicPath(tree.path("alias/file.c")));
    EXPECT_EQ(tree.path("real/file.c"), mapper.GetPrivatePath("/public/./file.c"));
    mapper.MapFile(tree.path("alias/file.c"), "/public/again.c");
    EXPECT_EQ("/public/again.c", mapper.GetPrivatePath("/public/again.c"))
        << "the same file under another name is not mapped a second time";

    // Copies are independent; InitMapping forgets everything.
    FileMapper copy = mapper;
    mapper.InitMapping("/elsewhere");
    EXPECT_EQ(tree.path("real/file.c"), mapper.GetPublicPath(tree.path("real/file.c")));
    EXPECT_EQ("/public/file.c", copy.GetPublicPath(tree.path("real/file.c")));
}

TEST(FileMapper, APublicPathOfSeveralPrivatePathsGivesTheFirstByName) {
    FileMapper mapper;
    mapper.MapFile("/src/b.c", "/pub/x.c");
    mapper.MapFile("/src/a.c", "/pub/x.c");
    EXPECT_EQ("/src/a.c", mapper.GetPrivatePath("/pub/x.c"));
    EXPECT_EQ("/pub/x.c", mapper.GetPublicPath("/src/b.c"));
}
