// Queries of DIDeviceHelper, against small trees built in code (for the
// corner cases) and against the sample device files (for what plug-ins
// will really see).

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/device/devicemodel.h"
#include "libcommon/device/didevicehelper.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace DIDeviceHelper;

namespace {

// Collects what the library logs on the "dbg" channel.
class CollectingChannel : public Poco::Channel {
public:
    void log(const Poco::Message& msg) override { lines.push_back(msg.getText()); }
    std::vector<std::string> lines;
};

class LogCapture {
public:
    LogCapture() : channel(new CollectingChannel), savedMask(gLogMask) {
        Poco::Logger& logger = Poco::Logger::get("dbg");
        savedLevel = logger.getLevel();
        savedChannel = logger.getChannel();
        logger.setChannel(channel);
        logger.setLevel(Poco::Message::PRIO_TRACE);
        gLogMask |= LOG_MASK_DEBUG;
    }
    ~LogCapture() {
        Poco::Logger& logger = Poco::Logger::get("dbg");
        logger.setChannel(savedChannel);
        logger.setLevel(savedLevel);
        gLogMask = savedMask;
    }
    bool saw(const std::string& text) const {
        for (const std::string& line : channel->lines)
            if (line == text)
                return true;
        return false;
    }
    Poco::AutoPtr<CollectingChannel> channel;

private:
    int savedMask;
    int savedLevel;
    Poco::Channel::Ptr savedChannel;
};

std::string messageOf(const CoreException& e) { return e.getStatus()->getMessage(); }

boost::shared_ptr<ModelDevice> makeDevice(const std::string& arch = "TARN8") {
    return boost::make_shared<ModelDevice>("TESTDEV", arch, "testfamily");
}

boost::shared_ptr<ModelDevice> sample(const std::string& name) {
    return DeviceFile::load("devices/" + name + ".xml");
}

// A database whose lookups fail by throwing, as a real one may.
class ThrowingModuleDevice : public ModelDevice {
public:
    ThrowingModuleDevice() : ModelDevice("THROWS", "TARN8X", "x") {}
    boost::shared_ptr<DIModule> getModule(const std::string&) const override {
        throw std::runtime_error("database unavailable");
    }
};

}  // namespace

TEST(DIDeviceHelperArchitecture, TestsAreExactAndSafeOnEmptyDevice) {
    boost::shared_ptr<DIDevice> none;
    EXPECT_FALSE(isTARN32(none));
    EXPECT_FALSE(isArch4(none));
    EXPECT_FALSE(isOrbit(none));
    EXPECT_FALSE(hasMonoLink(none));

    EXPECT_TRUE(isTARN32(makeDevice("TARN32_PELT")));
    EXPECT_FALSE(isTARN32(makeDevice("TARN32_VANE")));
    EXPECT_TRUE(isArch4(makeDevice("TARN8X")));
    EXPECT_FALSE(isArch4(makeDevice("tarn8x")));  // names keep their case
    EXPECT_TRUE(isOrbit(makeDevice("TARN8_ORBIT")));
    EXPECT_FALSE(isOrbit(makeDevice("TARN8")));

    auto device = makeDevice();
    EXPECT_FALSE(hasMonoLink(device));
    device->addInterface("monolink");
    EXPECT_FALSE(hasMonoLink(device));
    device->addInterface("monoLINK");
    EXPECT_TRUE(hasMonoLink(device));
}

TEST(DIDeviceHelperSpaces, AddressSpaceAttributesFillOnlyGivenOutputs) {
    LogCapture log;
    auto device = makeDevice();
    device->addAddressSpace("eeprom", 0x10, 0x400);
    uint64_t start = 7, size = 9;
    EXPECT_FALSE(getAddressSpaceAttributes("prog", device, &start, &size));
    EXPECT_EQ(7u, start);
    EXPECT_EQ(9u, size);
    EXPECT_TRUE(log.saw("No address space for prog."));

    EXPECT_TRUE(getAddressSpaceAttributes("eeprom", device, nullptr, &size));
    EXPECT_EQ(7u, start);
    EXPECT_EQ(0x400u, size);
    EXPECT_TRUE(getAddressSpaceAttributes("eeprom", device, &start, nullptr));
    EXPECT_EQ(0x10u, start);
}

TEST(DIDeviceHelperSpaces, PageSizeWalkAcceptsLeadingZeroButNotTrailingZero) {
    LogCapture log;
    auto device = makeDevice();
    auto prog = device->addAddressSpace("prog", 0, 0x10000);
    prog->addSegment("A", "flash", 0, 0x100, 0);
    prog->addSegment("B", "flash", 0x100, 0x100, 256);
    prog->addSegment("C", "flash", 0x200, 0x100, 256);
    int pageSize = -1;
    getAddressSpacePageSize("prog", device, &pageSize);
    EXPECT_EQ(256, pageSize);
    EXPECT_TRUE(log.saw("Using prog page size 256."));

    prog->addSegment("D", "flash", 0x300, 0x100, 0);
    try {
        getAddressSpacePageSize("prog", device, &pageSize);
        FAIL() << "a zero page size behind a sized one must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_DEVICE_INFO, e.getStatus()->getErrorCode());
        EXPECT_EQ("com.velmora.hil.tarnprobe", e.getStatus()->getComponent());
        EXPECT_EQ("Unexpectedly found memory segments with different page sizes in address "
                  "space prog.",
                  messageOf(e));
    }

    // A space without segments has page size 0; a null output is allowed.
    device->addAddressSpace("data", 0, 0x100);
    getAddressSpacePageSize("data", device, &pageSize);
    EXPECT_EQ(0, pageSize);
    EXPECT_NO_THROW(getAddressSpacePageSize("prog", device, nullptr));
}

TEST(DIDeviceHelperSpaces, PageSizeOfMissingSpaceThrowsEvenWithoutOutput) {
    auto device = makeDevice();
    int pageSize = 3;
    for (int* out : {static_cast<int*>(nullptr), &pageSize}) {
        try {
            getAddressSpacePageSize("eeprom", device, out);
            FAIL() << "missing space must throw";
        } catch (const CoreException& e) {
            EXPECT_EQ(ERR_DEVICE_INFO, e.getStatus()->getErrorCode());
            EXPECT_EQ(SeverityError, e.getStatus()->getSeverity());
            EXPECT_EQ("com.velmora.hil.core", e.getStatus()->getComponent());
            EXPECT_EQ("No information found for address space eeprom.", messageOf(e));
        }
    }
    EXPECT_EQ(3, pageSize);
    EXPECT_THROW(getAddressSpacePageSize("prog", boost::shared_ptr<DIDevice>(), nullptr),
                 CoreException);
}

TEST(DIDeviceHelperFlash, FlashAttributesFromProgAndOcd) {
    LogCapture log;
    auto device = makeDevice();
    try {
        getFlashAttributes(device, nullptr, nullptr, nullptr);
        FAIL() << "no prog space must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ("Device info for 'TESTDEV' did not contain program address space.",
                  messageOf(e));
        EXPECT_EQ("com.velmora.hil.tarnprobe", e.getStatus()->getComponent());
    }

    auto prog = device->addAddressSpace("prog", 0, 0x8000);
    prog->addSegment("FLASH", "flash", 0, 0x8000, 128);
    uint64_t flashSize = 0;
    int pageSize = 0, buffers = 0;
    getFlashAttributes(device, &flashSize, &pageSize, &buffers);
    EXPECT_EQ(0x8000u, flashSize);
    EXPECT_EQ(128, pageSize);
    EXPECT_EQ(1, buffers);
    EXPECT_TRUE(log.saw("PROG address space has size 32768."));
    EXPECT_TRUE(log.saw("Using flash page size 128."));

    auto ocd = device->addPropertyGroup("OCD");
    getFlashAttributes(device, nullptr, nullptr, &buffers);
    EXPECT_EQ(1, buffers);
    ocd->addProperty("BUFFERS_PER_FLASH_PAGE", 4);
    getFlashAttributes(device, nullptr, nullptr, &buffers);
    EXPECT_EQ(4, buffers);

    prog->addSegment("BOOT", "flash", 0x7000, 0x1000, 64);
    try {
        getFlashAttributes(device, nullptr, &pageSize, nullptr);
        FAIL() << "page size mismatch must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ("Unexpectedly found memory segments with different page sizes in program "
                  "address space.",
                  messageOf(e));
    }
    // Without a page-size output the segments are not looked at.
    EXPECT_NO_THROW(getFlashAttributes(device, &flashSize, nullptr, nullptr));
}

TEST(DIDeviceHelperSpaces, DataMemorySpansAllSegments) {
    auto device = makeDevice();
    uint64_t start = 1, end = 2;
    EXPECT_FALSE(getDataMemoryAttributes(device, &start, &end));
    auto data = device->addAddressSpace("data", 0, 0x10000);
    EXPECT_FALSE(getDataMemoryAttributes(device, &start, &end));
    EXPECT_EQ(1u, start);
    EXPECT_EQ(2u, end);

    data->addSegment("HIGH", "ram", 0x2000, 0x10);
    data->addSegment("LOW", "io", 0x100, 0x20);
    EXPECT_TRUE(getDataMemoryAttributes(device, &start, &end));
    EXPECT_EQ(0x100u, start);
    EXPECT_EQ(0x2010u, end);
    EXPECT_FALSE(getDataMemoryAttributes(boost::shared_ptr<DIDevice>(), &start, &end));
}

TEST(DIDeviceHelperSegments, ByNameAndByType) {
    LogCapture log;
    auto device = makeDevice();
    auto base = device->addAddressSpace("base", 0, 0x100000000ULL);
    base->addSegment("FLASH", "flash", 0x0, 0x40000, 64);
    base->addSegment("SRAM", "ram", 0x20000000, 0x8000);
    base->addSegment("SRAM2", "ram", 0x20008000, 0x8000);

    uint64_t start = 0, size = 0;
    int pageSize = -1;
    EXPECT_TRUE(getMemorySegmentAttributes("base", "SRAM", device, &start, &size, &pageSize));
    EXPECT_EQ(0x20000000u, start);
    EXPECT_EQ(0x8000u, size);
    EXPECT_EQ(0, pageSize);

    EXPECT_FALSE(getMemorySegmentAttributes("prog", "FLASH", device, &start, &size, &pageSize));
    EXPECT_TRUE(log.saw("No address space by name  prog."));
    EXPECT_FALSE(getMemorySegmentAttributes("base", "flash", device, &start, &size, &pageSize));
    EXPECT_TRUE(log.saw("No segment by name flash."));
    EXPECT_FALSE(getMemorySegmentAttributes("base", "FLASH", boost::shared_ptr<DIDevice>(),
                                            &start, &size, &pageSize));

    EXPECT_TRUE(
        getMemorySegmentAttributesByType("base", "flash", device, &start, &size, &pageSize));
    EXPECT_EQ(0u, start);
    EXPECT_EQ(0x40000u, size);
    EXPECT_EQ(64, pageSize);

    start = size = 5;
    pageSize = 5;
    EXPECT_FALSE(
        getMemorySegmentAttributesByType("base", "ram", device, &start, &size, &pageSize));
    EXPECT_TRUE(log.saw("2 segments of type ram found"));
    EXPECT_EQ(5u, start);
    EXPECT_EQ(5u, size);
    EXPECT_EQ(5, pageSize);
    EXPECT_FALSE(
        getMemorySegmentAttributesByType("base", "eeprom", device, &start, &size, &pageSize));
    EXPECT_TRUE(log.saw("No segment by type eeprom."));
}

TEST(DIDeviceHelperRegisters, RegisterGroupAddressIsCutTo16Bits) {
    LogCapture log;
    auto device = makeDevice();
    unsigned short address = 0x1234;
    EXPECT_FALSE(getRegisterGroupAddress(device, "NVM", "NVM", nullptr));
    EXPECT_FALSE(getNvmAddress(device, &address));
    EXPECT_EQ(0, address);
    EXPECT_TRUE(log.saw("Module NVM or register group NVM not found."));

    auto nvm = device->addModule("NVM");
    address = 0x1234;
    EXPECT_FALSE(getNvmAddress(device, &address));
    EXPECT_EQ(0, address);

    nvm->addRegisterGroup("NVM", 0x41001000);
    EXPECT_TRUE(getNvmAddress(device, &address));
    EXPECT_EQ(0x1000, address);
    EXPECT_FALSE(getRegisterGroupAddress(device, "NVM", "nvm", &address));
}

TEST(DIDeviceHelperRegisters, DevId0FallsBackToFixedAddress) {
    auto device = makeDevice();
    unsigned short address = 0;
    EXPECT_FALSE(getDevId0Address(device, nullptr));
    EXPECT_TRUE(getDevId0Address(device, &address));
    EXPECT_EQ(0x90, address);

    auto group = device->addModule("MCU")->addRegisterGroup("MCU", 0x11100);
    address = 0;
    EXPECT_TRUE(getDevId0Address(device, &address));
    EXPECT_EQ(0x90, address);  // group without the register
    group->addRegister("DEVID0", 0x4, 1);
    EXPECT_TRUE(getDevId0Address(device, &address));
    EXPECT_EQ(0x1104, address);
}

TEST(DIDeviceHelperProperties, OcdRevisionAndUint32Property) {
    auto device = makeDevice();
    unsigned int revision = 77;
    EXPECT_FALSE(getOcdRevision(device, &revision));
    auto ocd = device->addPropertyGroup("OCD");
    EXPECT_FALSE(getOcdRevision(device, &revision));
    ocd->addProperty("OCD_REVISION", 3);
    EXPECT_FALSE(getOcdRevision(device, nullptr));
    EXPECT_EQ(77u, revision);
    EXPECT_TRUE(getOcdRevision(device, &revision));
    EXPECT_EQ(3u, revision);

    unsigned int value = 0;
    EXPECT_TRUE(getUint32PropertyValue(ocd, "OCD_REVISION", &value));
    EXPECT_EQ(3u, value);
    EXPECT_FALSE(getUint32PropertyValue(ocd, "OCD_REVISION", nullptr));
    EXPECT_FALSE(getUint32PropertyValue(ocd, "MISSING", &value));
    try {
        getUint32PropertyValue(boost::shared_ptr<DIPropertyGroup>(), "PAGE_SIZE", &value);
        FAIL() << "an empty group must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_DEVICE_FILE, e.getStatus()->getErrorCode());
        EXPECT_EQ("", e.getStatus()->getComponent());
        EXPECT_EQ("null property group for property name PAGE_SIZE", messageOf(e));
    }
}

TEST(DIDeviceHelperFuses, FirstRegisterWithTheFieldWins) {
    auto device = makeDevice();
    uint64_t address = 0, mask = 0;
    EXPECT_FALSE(getSingleFuseAttributes(device, "EESAVE", &address, &mask));
    auto fuse = device->addModule("FUSE");
    EXPECT_FALSE(getSingleFuseAttributes(device, "EESAVE", &address, &mask));
    auto group = fuse->addRegisterGroup("FUSE", 0x1280);
    group->addRegister("WDTCFG", 0, 1)->addBitfield("PERIOD", 0x0F);
    group->addRegister("SYSCFG0", 5, 1)->addBitfield("EESAVE", 0x01);
    group->addRegister("SYSCFG1", 6, 1)->addBitfield("EESAVE", 0x80);
    EXPECT_FALSE(getSingleFuseAttributes(device, "BOOTEND", &address, &mask));
    EXPECT_TRUE(getSingleFuseAttributes(device, "EESAVE", &address, &mask));
    EXPECT_EQ(0x1285u, address);
    EXPECT_EQ(0x01u, mask);
    EXPECT_TRUE(getSingleFuseAttributes(device, "PERIOD", nullptr, &mask));
    EXPECT_EQ(0x0Fu, mask);
}

TEST(DIDeviceHelperBoot, LastBootSectionWins) {
    auto device = makeDevice("TARN8_ORBIT");
    uint64_t start = 1;
    unsigned int size = 2;
    try {
        getOrbitBootAttributes(device, &start, &size);
        FAIL() << "no prog space must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_DEVICE_INFO, e.getStatus()->getErrorCode());
        EXPECT_EQ("", e.getStatus()->getComponent());
        EXPECT_EQ("Device info for 'TESTDEV' did not contain program address space.",
                  messageOf(e));
    }
    auto prog = device->addAddressSpace("prog", 0, 0x200000000ULL);
    prog->addSegment("APP_SECTION", "flash", 0, 0x1000, 256);
    getOrbitBootAttributes(device, &start, &size);
    EXPECT_EQ(1u, start);
    EXPECT_EQ(2u, size);
    prog->addSegment("BOOT_SECTION", "flash", 0x1000, 0x800, 256);
    prog->addSegment("BOOT_SECTION", "flash", 0x1800, 0x100000100ULL, 256);
    getOrbitBootAttributes(device, &start, &size);
    EXPECT_EQ(0x1800u, start);
    EXPECT_EQ(0x100u, size);  // cut to 32 bits
}

TEST(DIDeviceHelperOclPin, DecisionOrder) {
    LogCapture log;
    // Not a TARN8X part: always dedicated.
    EXPECT_TRUE(hasDedicatedOclPin(makeDevice("TARN8")));
    EXPECT_TRUE(hasDedicatedOclPin(boost::shared_ptr<DIDevice>()));

    // An explicit implementation property decides alone.
    auto hv = makeDevice("TARN8X");
    auto oclGroup = hv->addPropertyGroup("OCL_INTERFACE");
    hv->addModule("FUSE")->addRegisterGroup("FUSE", 0)->addRegister("SYSCFG0", 5, 1)->addBitfield(
        "OCLPINCFG", 0x08);
    oclGroup->addProperty("HV_IMPLEMENTATION", 1);
    EXPECT_TRUE(hasDedicatedOclPin(hv));
    auto hv2 = makeDevice("TARN8X");
    hv2->addPropertyGroup("OCL_INTERFACE")->addProperty("HV_IMPLEMENTATION", 2);
    EXPECT_FALSE(hasDedicatedOclPin(hv2));

    // A group without the property falls through to the fuses.
    auto shared = makeDevice("TARN8X");
    shared->addPropertyGroup("OCL_INTERFACE");
    shared->addModule("FUSE")->addRegisterGroup("FUSE", 0)->addRegister("SYSCFG0", 5, 1)
        ->addBitfield("OCLPINCFG", 0x08);
    EXPECT_FALSE(hasDedicatedOclPin(shared));

    auto rstPin = makeDevice("TARN8X");
    auto field = rstPin->addModule("FUSE")->addRegisterGroup("FUSE", 0)->addRegister(
        "SYSCFG0", 5, 1)->addBitfield("RSTPINCFG", 0x0C);
    field->addValue("GPIO", 0);
    EXPECT_TRUE(hasDedicatedOclPin(rstPin));
    field->addValue("OCL", 1);
    EXPECT_FALSE(hasDedicatedOclPin(rstPin));

    // Missing links and throwing lookups end in "dedicated", with a log line.
    const std::string fallback =
        "Caught an exception when trying to resolve SYSCFG0 fuse. Not a configurable OCL pin, "
        "so it must be dedicated then. Proceed.";
    EXPECT_FALSE(log.saw(fallback));
    auto noFuse = makeDevice("TARN8X");
    EXPECT_TRUE(hasDedicatedOclPin(noFuse));
    EXPECT_TRUE(log.saw(fallback));
    auto noValues = makeDevice("TARN8X");
    noValues->addModule("FUSE")->addRegisterGroup("FUSE", 0)->addRegister("SYSCFG0", 5, 1)
        ->addBitfield("RSTPINCFG", 0x0C);
    EXPECT_TRUE(hasDedicatedOclPin(noValues));
    EXPECT_TRUE(hasDedicatedOclPin(boost::make_shared<ThrowingModuleDevice>()));
}

TEST(DIDeviceHelperIdentity, SignatureBytesAndFullWords) {
    DeviceId id;
    id.jtagId = id.signature = id.extendedId = 0xAAAA;
    EXPECT_FALSE(getDeviceId(boost::shared_ptr<DIDevice>(), id));
    EXPECT_EQ(0xAAAAu, id.signature);

    auto device = makeDevice();
    EXPECT_FALSE(getDeviceId(device, id));
    EXPECT_EQ(0u, id.jtagId);
    EXPECT_EQ(0u, id.signature);
    EXPECT_EQ(0xAAAAu, id.extendedId);

    auto group = device->addPropertyGroup("SIGNATURES");
    id.jtagId = id.signature = 0x5555;
    EXPECT_FALSE(getDeviceId(device, id));
    EXPECT_EQ(0u, id.jtagId);
    EXPECT_EQ(0u, id.signature);

    group->addProperty("SIGNATURE1", 0x195);  // cut to its low byte
    group->addProperty("SIGNATURE0", 0x1E);
    group->addProperty("SIGNATURE2", 0x0F);
    group->addProperty("JTAGID", 0x0978103F);
    group->addProperty("UNRELATED", 0x12345678);
    EXPECT_TRUE(getDeviceId(device, id));
    EXPECT_EQ(0x1E950Fu, id.signature);
    EXPECT_EQ(0x0978103Fu, id.jtagId);
    EXPECT_EQ(0xAAAAu, id.extendedId);

    // A later full-word identity overwrites what the bytes built; a byte
    // behind it is ORed in.
    group->addProperty("DSU_DID", 0x10010305);
    group->addProperty("CHIPID_EXID", 0x7);
    EXPECT_TRUE(getDeviceId(device, id));
    EXPECT_EQ(0x10010305u, id.signature);
    EXPECT_EQ(7u, id.extendedId);
    group->addProperty("SIGNATURE2", 0xF0);
    EXPECT_TRUE(getDeviceId(device, id));
    EXPECT_EQ(0x100103F5u, id.signature);
}

// ---- the sample device files ---------------------------------------------

TEST(DIDeviceHelperSamples, ClassicTarn8) {
    auto device = sample("TN8C328");
    EXPECT_FALSE(isArch4(device) || isOrbit(device) || isTARN32(device));
    EXPECT_FALSE(hasMonoLink(device));
    EXPECT_TRUE(hasDedicatedOclPin(device));

    uint64_t flashSize = 0;
    int pageSize = 0, buffers = 0;
    getFlashAttributes(device, &flashSize, &pageSize, &buffers);
    EXPECT_EQ(0x8000u, flashSize);
    EXPECT_EQ(128, pageSize);
    EXPECT_EQ(1, buffers);
    getAddressSpacePageSize("eeprom", device, &pageSize);
    EXPECT_EQ(4, pageSize);

    uint64_t start = 0, end = 0;
    EXPECT_TRUE(getDataMemoryAttributes(device, &start, &end));
    EXPECT_EQ(0u, start);
    EXPECT_EQ(0x900u, end);
    for (const char* space : {"prog", "data", "eeprom", "fuses", "lockbits", "signatures",
                              "osccal"})
        EXPECT_TRUE(getAddressSpaceAttributes(space, device, nullptr, nullptr)) << space;

    unsigned short address = 0;
    EXPECT_TRUE(getDevId0Address(device, &address));
    EXPECT_EQ(0x90, address);
    uint64_t fuseAddress = 0, mask = 0;
    EXPECT_TRUE(getSingleFuseAttributes(device, "OCLEN", &fuseAddress, &mask));
    EXPECT_EQ(1u, fuseAddress);
    EXPECT_EQ(0x40u, mask);

    DeviceId id;
    EXPECT_TRUE(getDeviceId(device, id));
    EXPECT_EQ(0x5A952Cu, id.signature);
}

TEST(DIDeviceHelperSamples, OrbitTarn8) {
    auto device = sample("TN8R64");
    EXPECT_TRUE(isOrbit(device));
    uint64_t start = 0;
    unsigned int size = 0;
    getOrbitBootAttributes(device, &start, &size);
    EXPECT_EQ(0xF000u, start);
    EXPECT_EQ(0x1000u, size);

    uint64_t flashSize = 0;
    int pageSize = 0, buffers = 0;
    getFlashAttributes(device, &flashSize, &pageSize, &buffers);
    EXPECT_EQ(0x10000u, flashSize);
    EXPECT_EQ(256, pageSize);
    EXPECT_EQ(2, buffers);

    unsigned short address = 0;
    EXPECT_TRUE(getNvmAddress(device, &address));
    EXPECT_EQ(0x1C0, address);
    EXPECT_TRUE(getDevId0Address(device, &address));
    EXPECT_EQ(0x78, address);
    unsigned int revision = 0;
    EXPECT_TRUE(getOcdRevision(device, &revision));
    EXPECT_EQ(3u, revision);
    for (const char* space : {"user_signatures", "prod_signatures", "osccal"})
        EXPECT_TRUE(getAddressSpaceAttributes(space, device, nullptr, nullptr)) << space;
    DeviceId id;
    EXPECT_TRUE(getDeviceId(device, id));
    EXPECT_EQ(0x0A7C303Fu, id.jtagId);
    EXPECT_EQ(0x5A964Eu, id.signature);
}

TEST(DIDeviceHelperSamples, Tarn8X) {
    auto device = sample("TN8X16");
    EXPECT_TRUE(isArch4(device));
    EXPECT_TRUE(hasMonoLink(device));
    EXPECT_FALSE(hasDedicatedOclPin(device));  // RSTPINCFG offers OCL

    uint64_t start = 0, size = 0;
    int pageSize = 0;
    EXPECT_TRUE(getMemorySegmentAttributes("data", "EEPROM", device, &start, &size, &pageSize));
    EXPECT_EQ(0x1400u, start);
    EXPECT_EQ(0x100u, size);
    EXPECT_EQ(32, pageSize);
    EXPECT_TRUE(getMemorySegmentAttributesByType("data", "user_signatures", device, &start,
                                                 &size, &pageSize));
    EXPECT_EQ(0x1300u, start);
    for (const char* segment : {"IO", "SIGNATURES", "PROD_SIGNATURES", "FUSES", "LOCKBITS",
                                "USER_SIGNATURES", "INTERNAL_SRAM"})
        EXPECT_TRUE(getMemorySegmentAttributes("data", segment, device, nullptr, nullptr,
                                               nullptr))
            << segment;

    unsigned short address = 0;
    EXPECT_TRUE(getNvmAddress(device, &address));
    EXPECT_EQ(0x1000, address);
    EXPECT_TRUE(getDevId0Address(device, &address));
    EXPECT_EQ(0x1100, address);
    uint64_t fuseAddress = 0, mask = 0;
    EXPECT_TRUE(getSingleFuseAttributes(device, "RSTPINCFG", &fuseAddress, &mask));
    EXPECT_EQ(0x1285u, fuseAddress);
    EXPECT_EQ(0x0Cu, mask);
}

TEST(DIDeviceHelperSamples, Tarn32Pelt) {
    auto device = sample("TP32A512");
    EXPECT_TRUE(isTARN32(device));
    EXPECT_TRUE(device->getAddressSpace("base")->isBigEndian());
    uint64_t start = 0, size = 0;
    int pageSize = 0;
    EXPECT_TRUE(getMemorySegmentAttributes("base", "FLASH", device, &start, &size, &pageSize));
    EXPECT_EQ(0x80000000u, start);
    EXPECT_EQ(0x80000u, size);
    EXPECT_EQ(512, pageSize);
    EXPECT_TRUE(getMemorySegmentAttributes("base", "USER_PAGE", device, &start, nullptr,
                                           nullptr));
    EXPECT_EQ(0x80800000u, start);

    auto flashc = device->getModule("FLASHC");
    ASSERT_TRUE(flashc);
    ASSERT_EQ(1u, flashc->getPropertyGroups().size());
    unsigned int value = 0;
    EXPECT_TRUE(getUint32PropertyValue(flashc->getPropertyGroups()[0], "PAGES_PR_REGION", &value));
    EXPECT_EQ(64u, value);
    auto group = flashc->getRegisterGroup("FLASHC");
    ASSERT_TRUE(group);
    for (const char* reg : {"FCR", "FCMD", "FSR", "FGPFRHI", "FGPFRLO"})
        EXPECT_TRUE(group->getRegister(reg)) << reg;
    EXPECT_EQ(0xFFFE1418u, group->getRegister("FGPFRLO")->getAddress());
    DeviceId id;
    EXPECT_TRUE(getDeviceId(device, id));
    EXPECT_EQ(0x1D3E503Fu, id.jtagId);
}

TEST(DIDeviceHelperSamples, CortexMNvmBlocks) {
    struct Expect {
        const char* file;
        const char* moduleId;
        const char* rwwSegment;
        const char* userSegment;
        uint32_t pageSize;
    } expected[] = {
        {"CM0N256", "N4410", "RWW", "USER_PAGE", 64},
        {"CM4U1024", "U2409", nullptr, "USER_PAGE", 512},
        {"CM23D64", "U2802", "DATAFLASH", "AUX0", 64},
    };
    for (const Expect& e : expected) {
        SCOPED_TRACE(e.file);
        auto device = sample(e.file);
        auto nvm = device->getModule("NVMCTRL");
        ASSERT_TRUE(nvm);
        ASSERT_TRUE(nvm->getDefinition());
        EXPECT_EQ(e.moduleId, nvm->getDefinition()->getModuleId());
        auto group = nvm->getRegisterGroup("NVMCTRL");
        ASSERT_TRUE(group);
        EXPECT_EQ(0x41004000u, group->getAddress());
        for (const char* reg : {"CTRLA", "CTRLB", "STATUS", "INTFLAG"})
            EXPECT_TRUE(group->getRegister(reg)) << reg;

        uint64_t start = 0, size = 0;
        int pageSize = 0;
        EXPECT_TRUE(getMemorySegmentAttributes("base", "FLASH", device, &start, &size,
                                               &pageSize));
        EXPECT_EQ(0u, start);
        EXPECT_EQ(static_cast<int>(e.pageSize), pageSize);
        // Exactly one segment of type "flash", as flash set-up requires.
        EXPECT_TRUE(getMemorySegmentAttributesByType("base", "flash", device, nullptr, nullptr,
                                                     nullptr));
        EXPECT_TRUE(getMemorySegmentAttributes("base", e.userSegment, device, nullptr, nullptr,
                                               nullptr));
        if (e.rwwSegment) {
            EXPECT_TRUE(getMemorySegmentAttributes("base", e.rwwSegment, device, nullptr,
                                                   nullptr, nullptr));
        }
        DeviceId id;
        EXPECT_TRUE(getDeviceId(device, id));
        EXPECT_NE(0u, id.signature);
    }
    EXPECT_EQ(0x41002102u, sample("CM23D64")
                               ->getModule("DSU")
                               ->getRegisterGroup("DSU")
                               ->getRegister("STATUSB")
                               ->getAddress());
}
