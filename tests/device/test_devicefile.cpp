// The XML device-file loader: the sample files load into the tree the
// queries expect, and every kind of bad file ends in an ERR_DEVICE_FILE
// error that names the file and the line at fault.

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"

#include <boost/filesystem.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

const char* const SAMPLES[] = {"TN8C328", "TN8R64", "TN8X16", "TP32A512",
                               "CM0N256", "CM4U1024", "CM23D64"};

// Wraps the body of a <device> element; the body starts on line 3.
std::string deviceText(const std::string& body,
                       const std::string& root = "<device name=\"D\" architecture=\"TARN8\">") {
    return "<?xml version=\"1.0\"?>\n" + root + "\n" + body + "\n</device>\n";
}

// Parses text that must fail; returns the error message.
std::string parseError(const std::string& text) {
    try {
        DeviceFile::parse(text, "bad.xml");
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_DEVICE_FILE, e.getStatus()->getErrorCode());
        return e.getStatus()->getMessage();
    }
    ADD_FAILURE() << "no error for:\n" << text;
    return std::string();
}

}  // namespace

TEST(DeviceFileSamples, EveryFileLoadsAndIsNamedLikeItsDevice) {
    for (const char* name : SAMPLES) {
        std::string path = DeviceFile::findDeviceFile("devices", name);
        ASSERT_EQ(std::string("devices/") + name + ".xml", path);
        boost::shared_ptr<ModelDevice> device;
        ASSERT_NO_THROW(device = DeviceFile::load(path)) << path;
        EXPECT_EQ(name, device->getName());
        EXPECT_FALSE(device->getArchitecture().empty());
        EXPECT_FALSE(device->getAddressSpaces().empty());
    }
}

TEST(DeviceFileSamples, ReadsEveryKindOfElement) {
    auto device = DeviceFile::load("devices/TN8X16.xml");
    EXPECT_EQ("TARN8X", device->getArchitecture());
    EXPECT_EQ("tarn8-sprig", device->getFamily());
    EXPECT_TRUE(device->getInterface("monoLINK"));
    EXPECT_FALSE(device->getInterface("JTAG"));

    auto spaces = device->getAddressSpaces();
    ASSERT_EQ(2u, spaces.size());
    EXPECT_FALSE(spaces[0]->isBigEndian());
    auto data = device->getAddressSpace("data");
    ASSERT_TRUE(data);
    EXPECT_EQ(0u, data->getStart());
    EXPECT_EQ(0x10000u, data->getSize());
    auto segments = data->getMemorySegments();
    ASSERT_EQ(9u, segments.size());
    EXPECT_EQ("IO", segments.front()->getName());  // file order is kept
    EXPECT_EQ("MAPPED_PROGMEM", segments.back()->getName());
    EXPECT_EQ(1u, data->getMemorySegmentsByType("eeprom").size());
    EXPECT_EQ(0u, data->getMemorySegment("IO")->getPageSize());

    auto fuse = device->getModule("FUSE");
    ASSERT_TRUE(fuse);
    EXPECT_EQ("", fuse->getModuleId());
    EXPECT_EQ(fuse, fuse->getDefinition());
    auto syscfg0 = fuse->getRegisterGroup("FUSE")->getRegister("SYSCFG0");
    ASSERT_TRUE(syscfg0);
    EXPECT_EQ(5u, syscfg0->getOffset());
    EXPECT_EQ(0x1285u, syscfg0->getAddress());
    EXPECT_EQ(1u, syscfg0->getByteSize());
    EXPECT_EQ(3u, syscfg0->getBitfields().size());
    auto rstPin = syscfg0->getBitfield("RSTPINCFG");
    ASSERT_TRUE(rstPin);
    EXPECT_EQ(0x0Cu, rstPin->getMask());
    ASSERT_TRUE(rstPin->getValueGroup());
    EXPECT_TRUE(rstPin->getValueGroup()->getValue("OCL"));
    EXPECT_FALSE(rstPin->getValueGroup()->getValue("ocl"));
    EXPECT_FALSE(syscfg0->getBitfield("EESAVE")->getValueGroup());

    auto signatures = device->getPropertyGroup("SIGNATURES");
    ASSERT_TRUE(signatures);
    ASSERT_EQ(3u, signatures->getProperties().size());
    auto sig1 = signatures->getProperty("SIGNATURE1");
    EXPECT_EQ(0x94u, sig1->getUint32Value());
    EXPECT_EQ(0x94u, sig1->getWordValue());
    EXPECT_EQ(0x94u, sig1->getSizeValue());
}

TEST(DeviceFileSamples, ModulePropertyGroupsAndFullAddressRange) {
    auto device = DeviceFile::load("devices/TP32A512.xml");
    auto base = device->getAddressSpace("base");
    EXPECT_EQ(0x100000000ULL, base->getSize());
    EXPECT_TRUE(base->isBigEndian());
    auto groups = device->getModule("FLASHC")->getPropertyGroups();
    ASSERT_EQ(1u, groups.size());
    EXPECT_EQ(0x80800000u, groups[0]->getProperty("USER_PAGE_ADDRESS")->getUint32Value());
    EXPECT_FALSE(device->getPropertyGroup("FLASHC"));  // module groups stay with the module
}

TEST(DeviceFileFind, FindsOnlyExactNamesInTheDirectory) {
    EXPECT_EQ("", DeviceFile::findDeviceFile("devices", "tn8c328"));
    EXPECT_EQ("", DeviceFile::findDeviceFile("devices", "NOPE"));
    EXPECT_EQ("", DeviceFile::findDeviceFile("devices", ""));
    EXPECT_EQ("", DeviceFile::findDeviceFile("devices", "../devices/TN8C328"));
    EXPECT_EQ("", DeviceFile::findDeviceFile("no-such-dir", "TN8C328"));
}

TEST(DeviceFileErrors, UnreadableFile) {
    try {
        DeviceFile::load("devices/NO_SUCH_DEVICE.xml");
        FAIL() << "a missing file must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_FILE_IO, e.getStatus()->getErrorCode());
        EXPECT_THAT(e.getStatus()->getMessage(), HasSubstr("devices/NO_SUCH_DEVICE.xml"));
    }
}

TEST(DeviceFileErrors, MalformedXmlNamesFileAndLine) {
    // Truncated in the middle of the tree.
    std::string truncated =
        "<?xml version=\"1.0\"?>\n<device name=\"D\" architecture=\"TARN8\">\n"
        "  <address-space name=\"prog\" size=\"0x100\">\n";
    EXPECT_THAT(parseError(truncated), StartsWith("bad.xml:4: malformed XML"));
    EXPECT_THAT(parseError(""), StartsWith("bad.xml:"));
    // Mismatched end tag on line 4.
    EXPECT_THAT(parseError(deviceText("<module name=\"A\">\n</modul>")),
                StartsWith("bad.xml:4: malformed XML"));
    // An attribute given twice is an XML error already.
    EXPECT_THAT(parseError(deviceText("<interface name=\"A\" name=\"B\"/>")),
                StartsWith("bad.xml:3: malformed XML"));
    // Text where only elements belong.
    EXPECT_EQ("bad.xml:3: unexpected text inside <device>; values belong in attributes",
              parseError(deviceText("stray words")));
}

TEST(DeviceFileErrors, StructureAndAttributes) {
    EXPECT_EQ("bad.xml:2: the root element is <chip>, expected <device>",
              parseError("<?xml version=\"1.0\"?>\n<chip name=\"D\"/>\n"));
    EXPECT_EQ("bad.xml:2: <device> lacks the attribute 'architecture'",
              parseError(deviceText("", "<device name=\"D\">")));
    EXPECT_EQ("bad.xml:2: attribute 'name' of <device> is empty",
              parseError(deviceText("", "<device name=\"\" architecture=\"TARN8\">")));
    EXPECT_EQ("bad.xml:2: unknown attribute 'vendor' on <device>",
              parseError(deviceText("", "<device name=\"D\" architecture=\"X\" vendor=\"v\">")));
    EXPECT_EQ("bad.xml:4: unknown element <segmnt> inside <address-space>",
              parseError(deviceText("<address-space name=\"prog\" size=\"0x100\">\n"
                                    "<segmnt name=\"FLASH\" start=\"0\" size=\"0x10\"/>\n"
                                    "</address-space>")));
    EXPECT_EQ("bad.xml:3: unknown element <memory> inside <device>",
              parseError(deviceText("<memory/>")));
    EXPECT_EQ("bad.xml:4: unknown element <note> inside <property>",
              parseError(deviceText("<property-group name=\"G\">\n"
                                    "<property name=\"P\" value=\"1\"><note/></property>\n"
                                    "</property-group>")));
    EXPECT_EQ("bad.xml:3: <segment> lacks the attribute 'size'",
              parseError(deviceText("<address-space name=\"prog\" size=\"0x100\">"
                                    "<segment name=\"FLASH\" start=\"0\"/></address-space>")));
    EXPECT_EQ("bad.xml:3: attribute 'endianness' of <address-space> must be 'little' or 'big', "
              "not 'middle'",
              parseError(deviceText(
                  "<address-space name=\"prog\" size=\"0x100\" endianness=\"middle\"/>")));
}

TEST(DeviceFileErrors, NamespacedNamesAreUnknownNames) {
    // The format has no namespaces: a prefix or a namespace declaration
    // makes a name the format does not know, never one of its own.
    EXPECT_EQ("bad.xml:2: the root element is <x:device>, expected <device>",
              parseError("<?xml version=\"1.0\"?>\n"
                         "<x:device xmlns:x=\"urn:a\" name=\"D\" architecture=\"TARN8\"/>\n"));
    EXPECT_EQ("bad.xml:2: unknown attribute 'xmlns' on <device>",
              parseError(deviceText("", "<device xmlns=\"urn:a\" name=\"D\" architecture=\"X\">")));
    EXPECT_EQ("bad.xml:3: unknown element <x:interface> inside <device>",
              parseError(deviceText("<x:interface xmlns:x=\"urn:a\" name=\"A\"/>")));
    EXPECT_EQ("bad.xml:3: unknown attribute 'x:name' on <interface>",
              parseError(deviceText("<interface x:name=\"A\" xmlns:x=\"urn:a\"/>")));
}

TEST(DeviceFileErrors, NestingDepthIsLimited) {
    // Elements nested one per line from line 3, so the element at depth n
    // (the device being depth 1) stands on line n + 1.
    auto nested = [](size_t levels, size_t lineBreaks) {
        std::string text = "<?xml version=\"1.0\"?>\n<device name=\"D\" architecture=\"X\">\n";
        text.reserve(27 * levels + 64);
        for (size_t i = 0; i < levels; ++i)
            text += i < lineBreaks ? "<module name=\"M\">\n" : "<module name=\"M\">";
        for (size_t i = 0; i < levels; ++i)
            text += "</module>";
        return text + "</device>\n";
    };
    // At the limit the usual checks run and stop at the first misplaced element.
    EXPECT_EQ("bad.xml:4: unknown element <module> inside <module>", parseError(nested(255, 255)));
    EXPECT_EQ("bad.xml:258: elements nested deeper than 256 levels", parseError(nested(256, 256)));
    // Far deeper than any stack could recurse: still a clean error.
    EXPECT_EQ("bad.xml:258: elements nested deeper than 256 levels",
              parseError(nested(1000000, 300)));
}

TEST(DeviceFileErrors, BadNumbers) {
    struct Case {
        const char* size;
        const char* error;
    } cases[] = {
        {"abc", "bad.xml:3: attribute 'size' of <address-space> is not a number: 'abc'"},
        {"", "bad.xml:3: attribute 'size' of <address-space> is not a number: ''"},
        {"0x", "bad.xml:3: attribute 'size' of <address-space> is not a number: '0x'"},
        {"-1", "bad.xml:3: attribute 'size' of <address-space> is not a number: '-1'"},
        {" 16", "bad.xml:3: attribute 'size' of <address-space> is not a number: ' 16'"},
        {"0x1G", "bad.xml:3: attribute 'size' of <address-space> is not a number: '0x1G'"},
        {"0x10000000000000000",
         "bad.xml:3: attribute 'size' of <address-space> is too large: '0x10000000000000000'"},
        {"18446744073709551616",
         "bad.xml:3: attribute 'size' of <address-space> is too large: '18446744073709551616'"},
        {"0", "bad.xml:3: <address-space> has size 0"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.error, parseError(deviceText(std::string("<address-space name=\"prog\" "
                                                             "size=\"") +
                                                 c.size + "\"/>")));

    // The largest values still fit; a property value must fit 32 bits.
    EXPECT_NO_THROW(DeviceFile::parse(
        deviceText("<address-space name=\"base\" start=\"0\" size=\"0xFFFFFFFFFFFFFFFF\"/>\n"
                   "<property-group name=\"G\"><property name=\"P\" value=\"4294967295\"/>"
                   "</property-group>"),
        "ok.xml"));
    EXPECT_EQ("bad.xml:3: attribute 'value' of <property> is too large: '0x100000000'",
              parseError(deviceText("<property-group name=\"G\">"
                                    "<property name=\"P\" value=\"0x100000000\"/>"
                                    "</property-group>")));
    EXPECT_EQ("bad.xml:3: attribute 'page-size' of <segment> is too large: '0x100000000'",
              parseError(deviceText("<address-space name=\"prog\" size=\"0x100\">"
                                    "<segment name=\"F\" start=\"0\" size=\"0x10\" "
                                    "page-size=\"0x100000000\"/></address-space>")));
}

TEST(DeviceFileErrors, DuplicateNamesPointAtBothLines) {
    EXPECT_EQ("bad.xml:4: duplicate address space name 'prog' (first defined at line 3)",
              parseError(deviceText("<address-space name=\"prog\" size=\"1\"/>\n"
                                    "<address-space name=\"prog\" size=\"1\"/>")));
    EXPECT_EQ("bad.xml:5: duplicate segment name 'FLASH' (first defined at line 4)",
              parseError(deviceText("<address-space name=\"prog\" size=\"0x100\">\n"
                                    "<segment name=\"FLASH\" start=\"0\" size=\"0x10\"/>\n"
                                    "<segment name=\"FLASH\" start=\"0x10\" size=\"0x10\"/>\n"
                                    "</address-space>")));
    EXPECT_EQ("bad.xml:4: duplicate interface name 'ISP' (first defined at line 3)",
              parseError(deviceText("<interface name=\"ISP\"/>\n<interface name=\"ISP\"/>")));
    EXPECT_EQ("bad.xml:4: duplicate module name 'NVM' (first defined at line 3)",
              parseError(deviceText("<module name=\"NVM\"/>\n<module name=\"NVM\"/>")));
    EXPECT_EQ("bad.xml:6: duplicate register name 'A' (first defined at line 5)",
              parseError(deviceText("<module name=\"M\">\n<register-group name=\"M\" "
                                    "address=\"0\">\n<register name=\"A\" offset=\"0\" "
                                    "size=\"1\"/>\n<register name=\"A\" offset=\"1\" size=\"1\"/>"
                                    "\n</register-group>\n</module>")));
    EXPECT_EQ("bad.xml:4: duplicate property name 'P' (first defined at line 4)",
              parseError(deviceText("<property-group name=\"G\">\n<property name=\"P\" "
                                    "value=\"1\"/><property name=\"P\" value=\"2\"/>\n"
                                    "</property-group>")));
    EXPECT_EQ("bad.xml:4: duplicate property group name 'G' (first defined at line 3)",
              parseError(deviceText("<property-group name=\"G\"/>\n"
                                    "<property-group name=\"G\"/>")));

    // The same name under different parents is fine.
    EXPECT_NO_THROW(DeviceFile::parse(
        deviceText("<module name=\"A\"><register-group name=\"A\" address=\"0\"/>"
                   "<property-group name=\"A\"/></module>\n<property-group name=\"A\"/>"),
        "ok.xml"));
}

TEST(DeviceFileErrors, RangesSizesAndMasks) {
    EXPECT_EQ("bad.xml:4: segment 'FLASH' (0xF0 to 0x10F) lies outside address space 'prog' "
              "(0x0 to 0xFF)",
              parseError(deviceText("<address-space name=\"prog\" size=\"0x100\">\n"
                                    "<segment name=\"FLASH\" start=\"0xF0\" size=\"0x20\"/>\n"
                                    "</address-space>")));
    EXPECT_EQ("bad.xml:3: <address-space> runs past the end of the address range",
              parseError(deviceText("<address-space name=\"prog\" start=\"0xFFFFFFFFFFFFFFF0\" "
                                    "size=\"0x11\"/>")));
    for (const char* size : {"0", "9"})
        EXPECT_EQ(std::string("bad.xml:5: register 'R' has size ") + size +
                      "; sizes are 1 to 8 bytes",
                  parseError(deviceText(std::string("<module name=\"M\">\n<register-group "
                                                    "name=\"M\" address=\"0\">\n<register "
                                                    "name=\"R\" offset=\"0\" size=\"") +
                                        size + "\"/>\n</register-group>\n</module>")));
    EXPECT_EQ("bad.xml:6: mask 0x100 of bitfield 'F' does not fit the 1-byte register 'R'",
              parseError(deviceText("<module name=\"M\">\n<register-group name=\"M\" "
                                    "address=\"0\">\n<register name=\"R\" offset=\"0\" "
                                    "size=\"1\">\n<bitfield name=\"F\" mask=\"0x100\"/>\n"
                                    "</register>\n</register-group>\n</module>")));
    EXPECT_EQ("bad.xml:3: bitfield 'F' has an empty mask",
              parseError(deviceText("<module name=\"M\"><register-group name=\"M\" "
                                    "address=\"0\"><register name=\"R\" offset=\"0\" size=\"8\">"
                                    "<bitfield name=\"F\" mask=\"0\"/></register>"
                                    "</register-group></module>")));
    // An 8-byte register takes any mask.
    EXPECT_NO_THROW(DeviceFile::parse(
        deviceText("<module name=\"M\"><register-group name=\"M\" address=\"0\">"
                   "<register name=\"R\" offset=\"0\" size=\"8\"><bitfield name=\"F\" "
                   "mask=\"0xFFFFFFFFFFFFFFFF\"/></register></register-group></module>"),
        "ok.xml"));
}

TEST(DeviceFileErrors, LoadedFileErrorsCarryThePath) {
    boost::filesystem::path path =
        boost::filesystem::temp_directory_path() /
        boost::filesystem::unique_path("devicefile-%%%%-%%%%.xml");
    {
        std::ofstream out(path.string());
        out << deviceText("<interface/>");
    }
    try {
        DeviceFile::load(path.string());
        ADD_FAILURE() << "an interface without name must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ(path.string() + ":3: <interface> lacks the attribute 'name'",
                  e.getStatus()->getMessage());
    }
    boost::filesystem::remove(path);
}
