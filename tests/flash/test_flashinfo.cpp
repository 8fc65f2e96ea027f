// Flash information records filled from device descriptions: the sample
// files, and small descriptions built in code for the edges the samples
// do not reach.

#include "nvmrig.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/device/devicemodel.h"
#include "libcommon/flash/flashinformation.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <functional>
#include <string>

namespace {

struct NvmDevice {
    boost::shared_ptr<ModelDevice> device =
        boost::make_shared<ModelDevice>("SYN", "CORTEX-M0PLUS", "syn");
    boost::shared_ptr<ModelAddressSpace> base = device->addAddressSpace("base", 0, 0x100000000);
    boost::shared_ptr<ModelModule> module;
    boost::shared_ptr<ModelRegisterGroup> group;

    explicit NvmDevice(const std::string& id, uint64_t flashStart = 0x1000) {
        base->addSegment("FLASH", "flash", flashStart, 0x8000, 128);
        module = device->addModule("NVMCTRL", id);
        group = module->addRegisterGroup("NVMCTRL", 0x41004000);
        group->addRegister("CTRLA", 0x00, 2);
        group->addRegister("CTRLB", 0x04, 1);
        group->addRegister("STATUS", 0x18, 2);
    }
};

}  // namespace

TEST(FlashInformation, RangeEndsAtTheFirstByteBehindTheFlash) {
    FlashInformation info;
    info.startAddress = 0xFFFFFFFF00000000ull;
    info.size = 0x1000;
    EXPECT_TRUE(info.inRange(info.startAddress));
    EXPECT_TRUE(info.inRange(info.getEndAddress() - 1));
    EXPECT_FALSE(info.inRange(info.getEndAddress()));
    EXPECT_FALSE(info.inRange(info.startAddress - 1));
    EXPECT_EQ(0xFFFFFFFF00001000ull, info.getEndAddress());
}

TEST(NvmControllerInformation, SampleFilesGiveEachBlockItsRegisterRoles) {
    NvmControllerInformation plain(DeviceFile::load("devices/CM0N256.xml"));
    EXPECT_FALSE(plain.isU2409 || plain.isU2802);
    EXPECT_EQ(0u, plain.commandRegisterOffset);
    EXPECT_EQ(2u, plain.commandRegisterWidth);
    EXPECT_EQ(4u, plain.configRegisterOffset);
    EXPECT_EQ(4u, plain.configRegisterWidth);
    EXPECT_EQ(2u, plain.statusWidth);
    EXPECT_EQ(1u, plain.intflagWidth);
    EXPECT_EQ(4u, plain.eraseUnitPages);
    EXPECT_TRUE(plain.hasRwwSection);
    EXPECT_EQ(0x400000u, plain.rwwOffset);
    EXPECT_EQ(0x2000u, plain.rwwSize);
    EXPECT_EQ(0x804000u, plain.userPageOffset);
    EXPECT_EQ(64u, plain.userPageSize);
    EXPECT_EQ(0x41004000u, plain.registerBase);

    NvmControllerInformation u2409(DeviceFile::load("devices/CM4U1024.xml"));
    EXPECT_TRUE(u2409.isU2409);
    EXPECT_EQ(4u, u2409.commandRegisterOffset);  // CTRLB
    EXPECT_EQ(0u, u2409.configRegisterOffset);   // CTRLA
    EXPECT_EQ(2u, u2409.configRegisterWidth);
    EXPECT_EQ(16u, u2409.eraseUnitPages);
    EXPECT_FALSE(u2409.hasRwwSection);
    EXPECT_EQ(512u, u2409.pageSize);

    NvmControllerInformation u2802(DeviceFile::load("devices/CM23D64.xml"));
    EXPECT_TRUE(u2802.isU2802);
    EXPECT_EQ(0u, u2802.commandRegisterOffset);
    EXPECT_EQ(1u, u2802.configRegisterWidth);
    EXPECT_TRUE(u2802.hasRwwSection);  // DATAFLASH
    EXPECT_EQ(0x400000u, u2802.rwwStart);
    EXPECT_TRUE(u2802.hasUserPage);  // AUX0 stands in for the user page
    EXPECT_EQ(0x804000u, u2802.userPageAddress);
}

TEST(NvmControllerInformation, U2802IgnoresRwwAndPlainBlocksIgnoreDataFlash) {
    NvmDevice u2802("U2802");
    u2802.base->addSegment("RWW", "rww", 0x400000, 0x800, 128);
    EXPECT_FALSE(NvmControllerInformation(u2802.device).hasRwwSection);

    NvmDevice plain("N1");
    plain.base->addSegment("DATAFLASH", "dataflash", 0x400000, 0x800, 128);
    EXPECT_FALSE(NvmControllerInformation(plain.device).hasRwwSection);
}

TEST(NvmControllerInformation, MissingUserPageLeavesAnOffsetThatWrapsBelowTheFlash) {
    NvmDevice d("N1");
    NvmControllerInformation info(d.device);
    EXPECT_FALSE(info.hasUserPage);
    EXPECT_EQ(0u, info.userPageAddress);
    EXPECT_EQ(0ull - 0x1000, info.userPageOffset);
    // Defaults hold where the description says nothing.
    EXPECT_EQ(4u, info.intflagWidth);
}

TEST(NvmControllerInformation, LastRegisterOfAName) {
    NvmDevice d("N1");
    d.module->addRegisterGroup("SECOND", 0x41005000)->addRegister("CTRLA", 0x40, 4);
    NvmControllerInformation info(d.device);
    EXPECT_EQ(0x40u, info.commandRegisterOffset);
    EXPECT_EQ(4u, info.commandRegisterWidth);
}

TEST(NvmControllerInformation, BrokenDescriptionsAreRefused) {
    auto noFlash = boost::make_shared<ModelDevice>("X", "CORTEX-M0PLUS", "x");
    noFlash->addAddressSpace("base", 0, 0x100000000);
    noFlash->addModule("NVMCTRL", "N1");
    EXPECT_EQ(std::make_pair(0u, std::string("Memory segment description error in the VXDF "
                                             "file(no NVMCTRL, addres space element or FLASH "
                                             "segment).")),
              thrown([&] { NvmControllerInformation info(noFlash); }));

    auto device = boost::make_shared<ModelDevice>("Z", "CORTEX-M0PLUS", "z");
    device->addAddressSpace("base", 0, 0x100000000)->addSegment("FLASH", "flash", 0, 0x100, 0);
    device->addModule("NVMCTRL", "N1");
    EXPECT_EQ("Page size cannot be 0.",
              thrown([&] { NvmControllerInformation info(device); }).second);

    auto noGroup = boost::make_shared<ModelDevice>("G", "CORTEX-M0PLUS", "g");
    noGroup->addAddressSpace("base", 0, 0x100000000)->addSegment("FLASH", "flash", 0, 0x100, 64);
    noGroup->addModule("NVMCTRL", "N1")->addRegisterGroup("OTHER", 0x41004000);
    EXPECT_EQ(std::make_pair(unsigned(ERR_DEVICE_FILE),
                             std::string("Could not find  NVMCTRL register group.")),
              thrown([&] { NvmControllerInformation info(noGroup); }));
}

namespace {

boost::shared_ptr<ModelDevice> eefcDevice(const std::string& arch, const std::string& family,
                                          bool withFlashSize) {
    auto device = boost::make_shared<ModelDevice>("E", arch, family);
    device->addAddressSpace("base", 0, 0x100000000)
        ->addSegment("FLASH", "flash", 0x400000, 0x80000, 0x200);
    device->addAddressSpace("lockbits", 0, 0x10);
    auto module = device->addModule("EFC");
    auto props = module->addPropertyGroup("EFC");
    props->addProperty("PAGES_PR_REGION", 32);
    props->addProperty("PAGE_SIZE", 0x200);
    if (withFlashSize) props->addProperty("FLASH_SIZE", 0x80000);
    auto group = module->addRegisterGroup("EFC", 0x400E0A00);
    const char* names[] = {"EEFC_FMR", "EEFC_FCR", "EEFC_FSR", "EEFC_FRR"};
    for (int i = 0; i < 4; ++i) group->addRegister(names[i], 4 * i, 4);
    return device;
}

EeFlashInformation eefcInfo(const boost::shared_ptr<ModelDevice>& device) {
    auto module = device->getModule("EFC");
    auto segment = device->getAddressSpace("base")->getMemorySegment("FLASH");
    return EeFlashInformation(device, module, segment);
}

}  // namespace

TEST(EeFlashInformation, LockBytesAndEraseUnits) {
    EeFlashInformation withSize = eefcInfo(eefcDevice("CORTEX-M4", "x", true));
    EXPECT_EQ(4u, withSize.lockByteCount);
    EXPECT_EQ(8u, withSize.eraseUnitPages);
    EXPECT_EQ(32u, withSize.largeEraseUnitPages);
    EXPECT_EQ(0x400E0A08u, withSize.thirdRegister);
    EXPECT_EQ(0xFFu, withSize.gpnvmMask);

    EeFlashInformation withoutSize = eefcInfo(eefcDevice("CORTEX-M4", "HGR2", false));
    EXPECT_EQ(0x10u, withoutSize.lockByteCount);
    EXPECT_EQ(16u, withoutSize.eraseUnitPages);

    EeFlashInformation m0 = eefcInfo(eefcDevice("CORTEX-M0PLUS", "x", true));
    EXPECT_EQ(1u, m0.eraseUnitPages);
    EXPECT_EQ(0u, m0.largeEraseUnitPages);
}

TEST(EeFlashInformation, GpnvmMaskIsTheUnionOfTheFuseFields) {
    auto device = eefcDevice("CORTEX-M7", "x", true);
    auto reg = device->addModule("FUSES")->addRegisterGroup("GPNVMBITS", 0)->addRegister("G", 0, 4);
    reg->addBitfield("A", 0x02);
    reg->addBitfield("B", 0x0C);
    EXPECT_EQ(0x0Eu, eefcInfo(device).gpnvmMask);
}

TEST(EeFlashInformation, MissingPiecesNameWhatIsMissing) {
    auto noFrr = boost::make_shared<ModelDevice>("E", "CORTEX-M4", "x");
    noFrr->addAddressSpace("base", 0, 0x100000000)->addSegment("FLASH", "flash", 0, 0x100, 64);
    noFrr->addAddressSpace("lockbits", 0, 2);
    auto module = noFrr->addModule("EFC");
    module->addPropertyGroup("P")->addProperty("PAGES_PR_REGION", 1);
    module->addRegisterGroup("EFC", 0)->addRegister("EEFC_FMR", 0, 4);
    EXPECT_EQ(std::make_pair(unsigned(ERR_DEVICE_FILE),
                             std::string("Could not find flash module EEFC_FCR register.")),
              thrown([&] { eefcInfo(noFrr); }));

    auto noLockbits = boost::make_shared<ModelDevice>("E", "CORTEX-M4", "x");
    noLockbits->addAddressSpace("base", 0, 0x100000000)->addSegment("FLASH", "flash", 0, 0x100, 64);
    noLockbits->addModule("EFC")->addPropertyGroup("P")->addProperty("PAGES_PR_REGION", 1);
    EXPECT_EQ("Could not find \"lockbits\" address space for EEFlash Module",
              thrown([&] { eefcInfo(noLockbits); }).second);
}

TEST(PeltFlashInformation, RegistersArePlacedFromTheGroupBase) {
    auto device = boost::make_shared<ModelDevice>("P", "TARN32", "p");
    device->addAddressSpace("base", 0, 0x100000000)
        ->addSegment("FLASH", "flash", 0x80000000, 0x40000, 0);
    auto module = device->addModule("FLASHCDW");
    auto props = module->addPropertyGroup("P");
    props->addProperty("PAGES_PR_REGION", 16);
    props->addProperty("PAGE_SIZE", 512);
    auto group = module->addRegisterGroup("FLASHCDW", 0xFFFE0000);
    const char* names[] = {"FCR", "FCMD", "FSR", "FGPFRHI", "FGPFRLO"};
    for (int i = 0; i < 5; ++i) group->addRegister(names[i], 4 * i, 4);

    PeltFlashInformation info(device);
    EXPECT_EQ(512u, info.pageSize);
    EXPECT_EQ(0xFFFE0004u, info.secondRegister);
    EXPECT_EQ(0xFFFE0010u, info.fuseLoRegister);
    EXPECT_EQ(2u, info.lockByteCount);
    EXPECT_EQ(0x800000u, info.userPageOffset);

    auto bare = boost::make_shared<ModelDevice>("P", "TARN32", "p");
    bare->addAddressSpace("base", 0, 0x100000000)->addSegment("FLASH", "flash", 0, 0x100, 0);
    bare->addModule("HFLASHC");
    EXPECT_EQ("Could not find flash pagesize from flash properties.",
              thrown([&] { PeltFlashInformation i(bare); }).second);
    auto none = boost::make_shared<ModelDevice>("P", "TARN32", "p");
    none->addAddressSpace("base", 0, 0x100000000)->addSegment("FLASH", "flash", 0, 0x100, 64);
    EXPECT_EQ(std::make_pair(unsigned(ERR_DEVICE_FILE),
                             std::string("Could not find flash controller for PELT device.")),
              thrown([&] { PeltFlashInformation i(none); }));
}
