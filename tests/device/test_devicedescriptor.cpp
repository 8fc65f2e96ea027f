// DeviceDescriptor against every sample device, and against small devices
// built in code for each way a description can fall short.

#include "libcommon/core/status.h"
#include "libcommon/device/devicedescriptor.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/device/devicemodel.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <string>
#include <vector>

namespace {

// The message of the set-up failure, after checking its component and code;
// empty when the descriptor was built.
std::string setupFailure(boost::shared_ptr<DIDevice> device) {
    try {
        DeviceDescriptor descriptor(device);
    } catch (const CoreException& e) {
        EXPECT_EQ(e.getStatus()->getComponent(), "hil");
        EXPECT_EQ(e.getStatus()->getErrorCode(), ERR_DEVICE_SETUP);
        return e.getStatus()->getMessage();
    }
    return std::string();
}

struct Expected {
    const char* device;
    const char* failure;  // nullptr: builds
    const char* controller = "";
    unsigned int sramAddress = 0, sramSize = 0, controllerAddress = 0;
    unsigned int flashStart = 0, flashSize = 0, pageSize = 0, pagesPerRegion = 0;
    unsigned int userPageAddress = 0, userPageSize = 0, fuseLo = 0, fuseHi = 0;
    unsigned int resetDomains = 0, resetGroup = 0, pm = 0, sLine = 0;
};

const Expected SAMPLES[] = {
    {"TP32A512", nullptr, "FLASHC", 0x0, 0x10000, 0xFFFE1400, 0x80000000, 0x80000, 512, 64,
     0x80800000, 512, 0x18, 0x14, 4, 2, 0xFFFF0C00, 0xFFFF3000},
    {"CM0N256", nullptr, "NVMCTRL", 0x20000000, 0x8000, 0x41004000, 0x0, 0x40000, 64, 0x4000,
     0x804000, 0x40, 0, 0, 5, 1, 0, 0},
    {"CM4U1024", nullptr, "NVMCTRL", 0x20000000, 0x40000, 0x41004000, 0x0, 0x100000, 512, 0x10000,
     0x804000, 0x200, 0, 0, 5, 1, 0, 0},
    {"CM23D64", "Could not find memory segment 'USER_PAGE' in the device XML file."},
    {"TN8C328", "Could not find address space 'base' in the device XML file."},
    {"TN8R64", "Could not find address space 'base' in the device XML file."},
    {"TN8X16", "Could not find address space 'base' in the device XML file."},
};

TEST(DeviceDescriptorTest, SampleDevices) {
    for (const Expected& e : SAMPLES) {
        SCOPED_TRACE(e.device);
        auto device = DeviceFile::load(std::string("devices/") + e.device + ".xml");
        if (e.failure) {
            EXPECT_EQ(setupFailure(device), e.failure);
            continue;
        }
        DeviceDescriptor d(device);
        EXPECT_EQ(d.getName(), e.device);
        EXPECT_EQ(d.getProductNames(), std::vector<std::string>{e.device});
        EXPECT_EQ(d.getFlashControllerName(), e.controller);
        EXPECT_EQ(d.getInternalSramAddress(), e.sramAddress);
        EXPECT_EQ(d.getInternalSramSize(), e.sramSize);
        EXPECT_EQ(d.getFlashControllerAddress(), e.controllerAddress);
        EXPECT_EQ(d.getFlashStart(), e.flashStart);
        EXPECT_EQ(d.getFlashSize(), e.flashSize);
        EXPECT_EQ(d.getFlashPageSize(), e.pageSize);
        EXPECT_EQ(d.getFlashPagesPerRegion(), e.pagesPerRegion);
        EXPECT_EQ(d.getUserPageAddress(), e.userPageAddress);
        EXPECT_EQ(d.getUserPageSize(), e.userPageSize);
        EXPECT_EQ(d.getFuseGpLoOffset(), e.fuseLo);
        EXPECT_EQ(d.getFuseGpHiOffset(), e.fuseHi);
        EXPECT_EQ(d.getNumberOfResetDomains(), e.resetDomains);
        EXPECT_EQ(d.getTarn32ResetGroup(), e.resetGroup);
        EXPECT_EQ(d.getScifAddress(), 0u);
        EXPECT_EQ(d.getPmAddress(), e.pm);
        EXPECT_EQ(d.getSLineBaseAddress(), e.sLine);
        EXPECT_EQ(d.getFlashBufferPageRatio(), 1u);
        EXPECT_TRUE(d.isPeltFlashRev2());
        EXPECT_FALSE(d.hasFlashVaultSupport());
        EXPECT_EQ(d.getMmuType() | d.getCpuArchType() | d.getDelayBeforeReadingFlash(), 0u);
        EXPECT_EQ(d.getProductNumber(), 0u);
    }
}

// A complete Pelt device; tests take parts away or add to it.
struct PeltDevice {
    PeltDevice() : device(boost::make_shared<ModelDevice>("TPX", "TARN32_PELT", "pelt")) {
        base = device->addAddressSpace("base", 0, 0x100000000ull, true);
        base->addSegment("SRAM", "ram", 0x1000, 0x2000);
        base->addSegment("FLASH", "flash", 0x40000000, 0x1000, 256);
        flashc = device->addModule("FLASHC");
        group = flashc->addRegisterGroup("FLASHC", 0x1FFFE1400ull);
        group->addRegister("FCMD", 0x04, 4);
        group->addRegister("FGPFRHI", 0x14, 4);
        group->addRegister("FGPFRLO", 0x18, 4);
        properties = flashc->addPropertyGroup("FLASHC");
        // Each reading differs, so that a property read the wrong way shows.
        properties->addProperty(boost::make_shared<ModelProperty>("PAGES_PR_REGION", 1, 32, 3));
        properties->addProperty(boost::make_shared<ModelProperty>("FLASH_SIZE", 1, 2, 0x40000));
        properties->addProperty(boost::make_shared<ModelProperty>("PAGE_SIZE", 1, 256, 3));
        properties->addProperty("USER_PAGE_ADDRESS", 0x80800000);
        properties->addProperty("USER_PAGE_SIZE", 256);
        auto reset = device->addPropertyGroup("TARN32_RESET");
        reset->addProperty("NumberOfResetDomains", 3);
        reset->addProperty("ResetGroup", 7);
    }
    boost::shared_ptr<ModelDevice> device;
    boost::shared_ptr<ModelAddressSpace> base;
    boost::shared_ptr<ModelModule> flashc;
    boost::shared_ptr<ModelRegisterGroup> group;
    boost::shared_ptr<ModelPropertyGroup> properties;
};

const std::vector<std::string> PELT_PROPERTIES = {"PAGES_PR_REGION", "FLASH_SIZE", "PAGE_SIZE",
                                                  "USER_PAGE_ADDRESS", "USER_PAGE_SIZE"};

// A small Pelt device with the given controller module, properties (all 16)
// and fuse registers.
boost::shared_ptr<ModelDevice> smallPelt(const std::string& moduleName,
                                         const std::vector<std::string>& properties,
                                         const std::vector<std::string>& registers) {
    auto device = boost::make_shared<ModelDevice>("X", "TARN32_PELT", "pelt");
    device->addAddressSpace("base", 0, 0x1000)->addSegment("CPU_RAM", "ram", 0x500, 0x100);
    auto module = device->addModule(moduleName);
    auto group = module->addRegisterGroup(moduleName, 0x100);
    for (const std::string& name : registers)
        group->addRegister(name, name == "FGPFRHI" ? 0x14 : 0x18, 4);
    auto first = module->addPropertyGroup("FIRST");
    for (const std::string& name : properties) first->addProperty(name, 16);
    return device;
}

TEST(DeviceDescriptorTest, PeltPathReadsTheControllerProperties) {
    PeltDevice pelt;
    pelt.device->addModule("NVMCTRL");  // never looked at beside a Pelt controller
    DeviceDescriptor d(pelt.device);
    EXPECT_EQ(d.getFlashControllerAddress(), 0xFFFE1400u);  // cut to 32 bits
    EXPECT_EQ(d.getFlashPagesPerRegion(), 32u);
    EXPECT_EQ(d.getFlashSize(), 0x40000u);
    EXPECT_EQ(d.getFlashPageSize(), 256u);
    EXPECT_EQ(d.getFlashStart(), 0x80000000u);  // whatever the segment says
    EXPECT_EQ(d.getFuseGpHiOffset(), 0x14u);
    EXPECT_EQ(d.getFuseGpLoOffset(), 0x18u);
    EXPECT_EQ(d.getNumberOfResetDomains(), 3u);
    EXPECT_EQ(d.getTarn32ResetGroup(), 7u);

    DeviceDescriptor h(smallPelt("HFLASHC", PELT_PROPERTIES, {"FGPFRLO"}));
    EXPECT_EQ(h.getFlashControllerName(), "HFLASHC");
    EXPECT_EQ(h.getFuseGpHiOffset(), 0u);  // no FGPFRHI is no failure
    EXPECT_EQ(h.getFuseGpLoOffset(), 0x18u);
    EXPECT_EQ(h.getInternalSramAddress(), 0x500u);
}

TEST(DeviceDescriptorTest, PeltPathFailures) {
    auto noGroup = boost::make_shared<ModelDevice>("X", "TARN32_PELT", "pelt");
    noGroup->addAddressSpace("base", 0, 0x1000)->addSegment("SRAM", "ram", 0, 0x100);
    noGroup->addModule("FLASHC")->addRegisterGroup("OTHER", 0x100);
    EXPECT_EQ(setupFailure(noGroup),
              "Could not identify FLASH controller register group in the device XML file.");

    auto noProperties = boost::make_shared<ModelDevice>("X", "TARN32_PELT", "pelt");
    noProperties->addAddressSpace("base", 0, 0x1000)->addSegment("SRAM", "ram", 0, 0x100);
    noProperties->addModule("FLASHCDW")->addRegisterGroup("FLASHCDW", 0x100);
    EXPECT_EQ(setupFailure(noProperties),
              "Found no FLASH controller properties in the device XML file.");

    for (const std::string& missing : PELT_PROPERTIES) {
        std::vector<std::string> others;
        for (const std::string& name : PELT_PROPERTIES)
            if (name != missing) others.push_back(name);
        auto device = smallPelt("FLASHC", others, {"FGPFRLO"});
        // Only the first property group counts.
        boost::static_pointer_cast<ModelModule>(device->getModule("FLASHC"))
            ->addPropertyGroup("SECOND")
            ->addProperty(missing, 16);
        EXPECT_EQ(setupFailure(device), "Could not read module property " + missing);
    }

    EXPECT_EQ(setupFailure(smallPelt("FLASHC", PELT_PROPERTIES, {"FGPFRHI"})),
              "Could not find register 'FGPFRLO' in the device XML file.");
}

// A complete NVM device.
boost::shared_ptr<ModelDevice> nvmDevice(unsigned flashSegments) {
    auto device = boost::make_shared<ModelDevice>("CMX", "CORTEX-M0PLUS", "kite");
    auto base = device->addAddressSpace("base", 0, 0x100000000ull);
    base->addSegment("SRAM", "ram", 0x20000000, 0x1000);
    base->addSegment("CPU_RAM", "ram", 0x30000000, 0x2000);  // SRAM wins
    for (unsigned i = 0; i < flashSegments; ++i)
        base->addSegment("FLASH" + std::to_string(i), "flash", 0x10000 * i, 0x40000, 64);
    base->addSegment("USER_PAGE", "user_page", 0x804000, 0x40, 64);
    device->addModule("NVMCTRL")->addRegisterGroup("NVMCTRL", 0x41004000);
    return device;
}

TEST(DeviceDescriptorTest, NvmPath) {
    DeviceDescriptor d(nvmDevice(1));
    EXPECT_EQ(d.getInternalSramAddress(), 0x20000000u);
    EXPECT_EQ(d.getInternalSramSize(), 0x1000u);
    EXPECT_EQ(d.getFlashPagesPerRegion(), 0x4000u);  // a sixteenth of the size
    EXPECT_EQ(d.getFlashPageSize(), 64u);
    EXPECT_EQ(d.getUserPageSize(), 0x40u);

    const std::string notOne =
        "Expected exactly one memory segment of type 'flash' in the device XML file.";
    EXPECT_EQ(setupFailure(nvmDevice(0)), notOne);
    EXPECT_EQ(setupFailure(nvmDevice(2)), notOne);

    auto noGroup = boost::make_shared<ModelDevice>("CMX", "CORTEX-M0PLUS", "kite");
    noGroup->addAddressSpace("base", 0, 0x1000)->addSegment("SRAM", "ram", 0, 0x100);
    noGroup->addModule("NVMCTRL");
    EXPECT_EQ(setupFailure(noGroup),
              "Could not identify FLASH controller register group in the device XML file.");
}

TEST(DeviceDescriptorTest, DeviceLevelFailures) {
    auto device = boost::make_shared<ModelDevice>("X", "CORTEX-M4", "f");
    auto base = device->addAddressSpace("base", 0, 0x1000);
    base->addSegment("RAM", "ram", 0, 0x100);  // neither SRAM nor CPU_RAM
    EXPECT_EQ(setupFailure(device),
              "Could not find expected RAM memory segment in the device XML file.");
    base->addSegment("CPU_RAM", "ram", 0x200, 0x100);
    EXPECT_EQ(setupFailure(device),
              "Could not determine flash controller module from device XML file.");

    auto withScif = nvmDevice(1);
    withScif->addModule("SCIF")->addRegisterGroup("SCIF", 0x400E0800);
    withScif->addModule("PM")->addRegisterGroup("PM", 0x400E0000);
    withScif->addModule("SL")->addRegisterGroup("SL", 0x400E3000);
    DeviceDescriptor d(withScif);
    EXPECT_EQ(d.getScifAddress(), 0x400E0800u);
    EXPECT_EQ(d.getPmAddress(), 0u);
    EXPECT_EQ(d.getSLineBaseAddress(), 0x400E3000u);

    for (const char* module : {"SCIF", "PM", "SL"}) {
        auto broken = nvmDevice(1);
        broken->addModule(module)->addRegisterGroup("WRONG", 0x400E0000);
        EXPECT_EQ(setupFailure(broken), std::string("Could not find register group '") + module +
                                            "' in the device XML file.");
    }
}

TEST(DeviceDescriptorTest, MissingResetPropertiesWarnAndKeepDefaults) {
    {
        LogCapture warnings("hil", LOG_MASK_WARN);
        auto device = nvmDevice(1);
        device->addPropertyGroup("OCD")->addProperty("BUFFERS_PER_FLASH_PAGE", 2);
        DeviceDescriptor d(device);
        EXPECT_EQ(d.getNumberOfResetDomains(), 5u);
        EXPECT_EQ(d.getTarn32ResetGroup(), 1u);
        EXPECT_EQ(d.getFlashBufferPageRatio(), 2u);
        EXPECT_EQ(warnings.lines(),
                  std::vector<std::string>{"The device descriptor file did not specify "
                                           "TARN32_RESET properties. Defaults will be used."});
    }
    {
        LogCapture warnings("hil", LOG_MASK_WARN);
        auto device = nvmDevice(1);
        device->addPropertyGroup("TARN32_RESET");
        DeviceDescriptor d(device);
        EXPECT_EQ(d.getNumberOfResetDomains(), 5u);
        EXPECT_EQ(d.getTarn32ResetGroup(), 1u);
        EXPECT_EQ(warnings.lines(),
                  (std::vector<std::string>{
                      "The device description file did not specify NumberOfResetDomains. "
                      "Defaulting to 5.",
                      "The device descriptor file did not specify the property ResetGroup. "
                      "Defaulting to 1."}));
    }
}

}  // namespace
