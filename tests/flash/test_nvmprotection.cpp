// Lock regions, security and the secure-boot rows of the "U2802" block,
// against the simulated chip. Check values are computed here with code of
// the test's own (CRC-32) or taken from an outside tool (SHA-256 digests).

#include "nvmrig.h"

#include "libcommon/device/devicemodel.h"

#include <cstdlib>

namespace {

// Plain bitwise CRC-32 (reflected, 0xEDB88320, all ones in and out).
uint32_t referenceCrc32(const unsigned char* data, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
    }
    return ~crc;
}

uint32_t little32(const Bytes& bytes, size_t at) {
    return uint32_t(bytes[at]) | uint32_t(bytes[at + 1]) << 8 | uint32_t(bytes[at + 2]) << 16 |
           uint32_t(bytes[at + 3]) << 24;
}

Bytes fromHex(const std::string& text) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back((unsigned char)std::stoul(text.substr(i, 2), nullptr, 16));
    return bytes;
}

// A boot configuration row: a byte pattern with the size and option fields
// set and BCWEN kept.
Bytes bootRow(unsigned bs, unsigned bnsc, unsigned option, unsigned bootProt) {
    Bytes row(0x100);
    for (size_t i = 0; i < row.size(); ++i) row[i] = (unsigned char)(i * 37 + 11);
    row[1] = (unsigned char)bs;
    row[2] = (unsigned char)bnsc;
    row[3] = (unsigned char)option;
    row[4] = (unsigned char)bootProt;
    row[6] |= 1;
    return row;
}

Bytes flashPattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = (unsigned char)(i * 13 + 5);
    return bytes;
}

const uint64_t BOOT_ROW = 0x80C000;

struct Hlx7Rig : NvmRig {
    Hlx7Rig() : NvmRig("devices/CM23D64.xml") {
        chip->setBusyPolls(0, 1);
        chip->setRegionBytes("FLASH", flashPattern(0x10000));
    }
    Bytes writeBootRow(const Bytes& row) {
        flash->writeAux(BOOT_ROW, unsigned(row.size()), row.begin());
        flash->restoreCfgRegs();
        EXPECT_TRUE(chip->getViolations().empty());
        return chip->peek(BOOT_ROW, 0x100);
    }
};

// The digest a boot row must carry, and the boot hash, from sha256sum.
struct BootCase {
    unsigned bs, bnsc, option, bootProt;
    const char* rowDigest;
    unsigned hashOffset;  // 0: no boot hash
    const char* bootHash;
};

}  // namespace

TEST(NvmProtection, UnlockEntireChipWalksEveryRegion) {
    const struct {
        const char* file;
        unsigned code, count;
    } cases[] = {{"devices/CM0N256.xml", 0x41, 16},
                 {"devices/CM4U1024.xml", 0x12, 32},
                 {"devices/CM23D64.xml", 0x41, 16}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        NvmRig rig(c.file);
        rig.chip->setBusyPolls(0, 0);
        rig.chip->setLockBits(0);
        rig.flash->unlockEntireChip();
        EXPECT_EQ(c.count, rig.chip->getCounters().commandCount(c.code));
        EXPECT_EQ(c.count, rig.commands().size());
        EXPECT_EQ(c.count == 32 ? 0xFFFFFFFFu : 0xFFFFu, rig.chip->getLockBits());
        EXPECT_EQ(int(c.count), rig.flash->getLockBitCount());
        EXPECT_TRUE(rig.chip->getViolations().empty());
    }
}

TEST(NvmProtection, LockedRegionKeepsItsContentUntilUnlocked) {
    const struct {
        const char* file;
        unsigned region;
        uint64_t start;
    } cases[] = {{"devices/CM0N256.xml", 3, 3 * 0x4000}, {"devices/CM4U1024.xml", 5, 5 * 0x8000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        NvmRig rig(c.file);
        rig.chip->setBusyPolls(0, 1);
        rig.flash->setLockBit(c.region);
        EXPECT_FALSE(rig.chip->getLockBits() & (1u << c.region));
        const Packet bits = rig.flash->getLockBits();
        EXPECT_EQ(rig.chip->getLockBits(), little32(bits, 0));

        const Bytes page(rig.info.pageSize, 0x00);
        rig.flash->programChip(c.start, rig.info.pageSize, page.begin(), false, false);
        EXPECT_EQ(unsigned(ERR_NVM_CONTROLLER), thrown([&] { rig.flash->restoreCfgRegs(); }).first);
        EXPECT_EQ(Bytes(rig.info.pageSize, 0xFF), rig.chip->peek(c.start, rig.info.pageSize));
        // The page just below the region is not locked.
        rig.flash->programChip(c.start - rig.info.pageSize, rig.info.pageSize, page.begin(), false,
                               false);
        rig.flash->restoreCfgRegs();

        rig.flash->clearLockBit(c.region);
        rig.flash->programChip(c.start, rig.info.pageSize, page.begin(), false, false);
        rig.flash->restoreCfgRegs();
        EXPECT_EQ(page, rig.chip->peek(c.start, rig.info.pageSize));
        EXPECT_TRUE(rig.chip->getViolations().empty());
    }
}

TEST(NvmProtection, LockOperationsTheBlocksDoNotHave) {
    NvmRig rig("devices/CM23D64.xml");
    for (const std::function<void()>& f : std::vector<std::function<void()>>{
             [&] { rig.flash->setLockBit(0); }, [&] { rig.flash->getLockBits(); }}) {
        try {
            f();
            ADD_FAILURE() << "nothing thrown";
        } catch (const char* text) {
            EXPECT_STREQ("Not implemented", text);
        }
    }
    NvmRig plain("devices/CM0N256.xml");
    EXPECT_EQ("Address to unlock lies outside of flash region.",
              thrown([&] { plain.flash->unlockRegion(0x40000, 1); }).second);
    EXPECT_TRUE(plain.commands().empty());
}

TEST(NvmProtection, SecurityCommandsByBlockAndLevel) {
    NvmRig plain("devices/CM0N256.xml");
    plain.flash->setSecurityLevel(InternalFlash::SecurityLevel2);
    EXPECT_EQ(1u, plain.chip->getCounters().commandCount(0x45));
    EXPECT_EQ(1u, plain.chip->getSecurityLevel());

    NvmRig u2409("devices/CM4U1024.xml");
    u2409.flash->setSecurityLevel(InternalFlash::SecurityNone);
    EXPECT_EQ(1u, u2409.chip->getCounters().commandCount(0x16));

    NvmRig u2802("devices/CM23D64.xml");
    u2802.flash->setSecurityLevel(InternalFlash::SecurityNone);
    EXPECT_TRUE(u2802.commands().empty());
    u2802.flash->setSecurityLevel(InternalFlash::SecurityLevel1);
    EXPECT_EQ(1u, u2802.chip->getSecurityLevel());
    u2802.flash->setSecurityLevel(InternalFlash::SecurityLevel2);
    EXPECT_EQ(2u, u2802.chip->getSecurityLevel());
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x4B, 0}, {0x4C, 0}}), u2802.commands());
    EXPECT_TRUE(u2802.chip->getViolations().empty());
}

TEST(NvmProtection, AccessLevelChoosesTheRegisterBase) {
    for (unsigned level : {1u, 2u, 3u}) {
        NvmRig rig("devices/CM23D64.xml");
        rig.chip->setDebugAccessLevel(level);
        const Bytes page(64, 0x00);
        rig.flash->programChip(0x40, 64, page.begin(), false, true);
        rig.flash->restoreCfgRegs();
        EXPECT_EQ(level == 1 ? 0x41004000u : 0x41005000u, rig.flash->getFlashInfo().registerBase);
        EXPECT_EQ(page, rig.chip->peek(0x40, 64));
        EXPECT_TRUE(rig.chip->getViolations().empty()) << level;
    }
}

TEST(NvmProtection, ConfigurationRowGetsItsCrc) {
    Hlx7Rig rig;
    Bytes row = randomBytes(0x100, 21);
    rig.flash->writeAux(0x804000, 0x100, row.begin());
    rig.flash->restoreCfgRegs();
    const Bytes stored = rig.chip->peek(0x804000, 0x100);
    EXPECT_EQ(~referenceCrc32(&row[8], 0x14), little32(stored, 0x1C));
    std::copy(stored.begin() + 0x1C, stored.begin() + 0x20, row.begin() + 0x1C);
    EXPECT_EQ(row, stored);  // nothing else changed
}

TEST(NvmProtection, BootRowDigestAndBootHash) {
    const BootCase cases[] = {
        {0, 0, 0, 0, "ac898e0ab457a917d92be2065e5a2162e1f869b442e9aa1701772e265db15a85", 0, ""},
        {2, 0, 2, 2, "22769667f026e4dae29f77500de0623e64d1cd7c84aa943c9c88e183ced0ad27", 0x1E0,
         "78c890086b29d84d82bf43a85cf341f92323c0159e1fe571492cb35fd266c115"},
        {2, 8, 3, 2, "9f22d5f51e5822d414413eb7ef230938a924ae2eebbabf54692097384cb17ac7", 0xE0,
         "8246736b39c7e9ae63d27c6f844726b2f4e750919d1155a6a1177d3d32509ffc"},
        {1, 0, 1, 1, "e3b9817cdc170b641d0e8031e4a84165f0284a14069740cc22029a5ad3ae103b", 0xE0,
         "d927128dc756d874a536c58678a050e300ee6f443503bbe7b19f91c243ebff59"},
    };
    for (const BootCase& c : cases) {
        SCOPED_TRACE(c.option);
        Hlx7Rig rig;
        const Bytes row = bootRow(c.bs, c.bnsc, c.option, c.bootProt);
        const Bytes stored = rig.writeBootRow(row);
        EXPECT_EQ(~referenceCrc32(&row[0], 8), little32(stored, 8));
        EXPECT_EQ(fromHex(c.rowDigest), Bytes(stored.begin() + 0xE0, stored.end()));
        EXPECT_TRUE(std::equal(row.begin() + 12, row.begin() + 0xE0, stored.begin() + 12));

        Bytes expected = flashPattern(0x10000);
        if (c.hashOffset) {
            const Bytes hash = fromHex(c.bootHash);
            std::copy(hash.begin(), hash.end(), expected.begin() + c.hashOffset);
        }
        EXPECT_TRUE(expected == rig.chip->getRegionBytes("FLASH"));
    }
}

TEST(NvmProtection, BootSizesThatDescribeNoHashPlaceWriteNoHash) {
    // Boot protection below the boot size; a secure part of 0xE0 bytes;
    // a non-secure-callable part larger than the boot region.
    const unsigned sizes[][3] = {{2, 0, 1}, {2, 9, 2}, {1, 0x10, 1}};
    for (const auto& s : sizes) {
        Hlx7Rig rig;
        rig.writeBootRow(bootRow(s[0], s[1], 2, s[2]));
        EXPECT_TRUE(flashPattern(0x10000) == rig.chip->getRegionBytes("FLASH"));
    }

    // A boot region larger than the flash: no hash, nothing read beyond.
    auto device = boost::make_shared<ModelDevice>("SMALL", "CORTEX-M23", "hlx7");
    auto base = device->addAddressSpace("base", 0, 0x100000000);
    base->addSegment("FLASH", "flash", 0, 0x1000, 64);
    base->addSegment("AUX0", "aux", 0x804000, 0x100, 64);
    base->addSegment("BOCOR", "aux", BOOT_ROW, 0x100, 64);
    auto group = device->addModule("NVMCTRL", "U2802")->addRegisterGroup("NVMCTRL", 0x41004000);
    group->addRegister("CTRLA", 0, 2);
    group->addRegister("CTRLB", 4, 1);
    group->addRegister("INTFLAG", 0x14, 1);
    group->addRegister("STATUS", 0x18, 1);
    NvmRig small(device);
    const Bytes row = bootRow(0x20, 0, 1, 0x20);
    small.flash->writeAux(BOOT_ROW, 0x100, row.begin());
    small.flash->restoreCfgRegs();
    EXPECT_EQ(Bytes(0x1000, 0xFF), small.chip->getRegionBytes("FLASH"));
}

TEST(NvmProtection, RowWritesThatCannotCarryTheirCheckValuesAreRefused) {
    Hlx7Rig rig;
    const Bytes row = bootRow(0, 0, 0, 0);
    EXPECT_EQ(unsigned(ERR_INVALID_ARGUMENT),
              thrown([&] { rig.flash->writeAux(BOOT_ROW, 0xFF, row.begin()); }).first);
    EXPECT_EQ(unsigned(ERR_INVALID_ARGUMENT),
              thrown([&] { rig.flash->writeAux(0x804000, 0x1F, row.begin()); }).first);
    EXPECT_EQ(0u, rig.chip->getCounters().writeCalls);
    // Elsewhere in a row the bytes are only copied, erased and programmed.
    rig.flash->writeAux(0x804040, 0x40, row.begin());
    rig.flash->restoreCfgRegs();
    EXPECT_EQ(Bytes(row.begin(), row.begin() + 0x40), rig.chip->peek(0x804040, 0x40));
}

TEST(NvmProtection, WithoutComputationTheRowGoesAsGiven) {
    Hlx7Rig rig;
    const Bytes row = bootRow(2, 0, 2, 2);
    setenv("VELBACKEND_NO_M23_COMPUTE", "", 1);
    const Bytes stored = rig.writeBootRow(row);
    rig.flash->writeAux(0x804000, 0x10, row.begin());  // no length rule either
    rig.flash->restoreCfgRegs();
    unsetenv("VELBACKEND_NO_M23_COMPUTE");
    EXPECT_EQ(row, stored);
    EXPECT_TRUE(flashPattern(0x10000) == rig.chip->getRegionBytes("FLASH"));
}

TEST(NvmProtection, AntiBrickRefusesToVoidTheKeyWhileClearingBcwen) {
    Bytes voiding = bootRow(0, 0, 0, 0);
    std::fill(voiding.begin() + 0x30, voiding.begin() + 0x40, 0);
    voiding[6] &= 0xFE;
    const Bytes storedKey(16, 0x42);

    Hlx7Rig rig;
    rig.chip->poke(BOOT_ROW + 0x30, storedKey);
    const Bytes before = rig.chip->getRegionBytes("BOCOR");
    rig.flash->AdjustBaseAddressHLX7();  // level 2
    EXPECT_EQ(std::make_pair(unsigned(ERR_NVM_CONTROLLER),
                             std::string("Antibrick: cannot set BCWEN to 0 and void the CEKEY2 in "
                                         "the same opeation.")),
              thrown([&] { rig.flash->writeAux(BOOT_ROW, 0x100, voiding.begin()); }));
    EXPECT_EQ(before, rig.chip->getRegionBytes("BOCOR"));
    EXPECT_TRUE(rig.commands().empty());

    Bytes keepsBcwen = voiding;
    keepsBcwen[6] |= 1;
    rig.writeBootRow(keepsBcwen);

    Hlx7Rig emptyKey;  // nothing stored to lose
    emptyKey.chip->poke(BOOT_ROW + 0x30, Bytes(16, 0));
    emptyKey.flash->AdjustBaseAddressHLX7();
    emptyKey.writeBootRow(voiding);

    Hlx7Rig level1;
    level1.chip->setDebugAccessLevel(1);
    level1.chip->poke(BOOT_ROW + 0x30, storedKey);
    level1.flash->AdjustBaseAddressHLX7();
    level1.writeBootRow(voiding);
    EXPECT_EQ(Bytes(16, 0), level1.chip->peek(BOOT_ROW + 0x30, 16));
}
