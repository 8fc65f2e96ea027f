// The Pelt flash driver over a simulated chip: which commands reach the
// controller for each request, what ends in the flash, and how controller
// errors come back.

#include "test_peltfixture.h"

#include <chrono>

namespace {

using Fixture = PeltFixture;
const auto EraseOnly = static_cast<InternalFlash::EraseOption>(1);
const auto EraseWithUnlock = static_cast<InternalFlash::EraseOption>(0);
const auto Fuses = static_cast<InternalFlash::FuseType>(0);

TEST_F(Fixture, EraseTouchesExactlyThePagesOfTheRange) {
    flash->eraseRegion(FLASH + 5 * PAGE + 7, 1, EraseOnly);
    EXPECT_EQ(pagesOf(PeltChip::CMD_EP), std::vector<unsigned>{5});
    chip->clearCommandLog();
    flash->eraseRegion(FLASH + PAGE - 1, 2, EraseOnly);
    EXPECT_EQ(pagesOf(PeltChip::CMD_EP), (std::vector<unsigned>{0, 1}));
    chip->clearCommandLog();
    flash->eraseRegion(FLASH + 0x80000 - PAGE, PAGE, EraseOnly);  // ends at the last byte
    EXPECT_EQ(pagesOf(PeltChip::CMD_EP), std::vector<unsigned>{1023});
    chip->clearCommandLog();

    flash->eraseRegion(FLASH, 0, EraseWithUnlock);
    EXPECT_TRUE(chip->getCommandLog().empty());

    // In the user page the size does not matter.
    chip->pokeUserPage(0, {0x00});
    flash->eraseRegion(USER_PAGE + 3, 0x10000, EraseOnly);
    EXPECT_EQ(chip->peekUserPage()[0], 0xFF);
    EXPECT_EQ(chip->getCommandLog(), std::vector<uint32_t>{0xA500000E});

    const std::string outside = "Region to be erased lies outside flash address space.";
    EXPECT_EQ(genericFailure([&] { flash->eraseRegion(FLASH + 0x80000 - 1, 2, EraseOnly); }),
              outside);
    EXPECT_EQ(genericFailure([&] { flash->eraseRegion(FLASH - 1, 1, EraseOnly); }), outside);
}

TEST_F(Fixture, EraseWithUnlockUnlocksEveryRegionFirst) {
    chip->setLockBits(0xFFFF);
    chip->pokeFlash(63 * PAGE, {0x00});
    chip->pokeFlash(64 * PAGE, {0x00});
    flash->eraseRegion(FLASH + 63 * PAGE, 2 * PAGE, EraseWithUnlock);
    // Regions 0 and 1, each named by its first page.
    EXPECT_EQ(pagesOf(PeltChip::CMD_UR), (std::vector<unsigned>{0, 64}));
    EXPECT_EQ(pagesOf(PeltChip::CMD_EP), (std::vector<unsigned>{63, 64}));
    EXPECT_EQ(chip->getLockBits(), 0xFFFC);
    EXPECT_EQ(chip->peekFlash(63 * PAGE, 1)[0], 0xFF);
    EXPECT_EQ(chip->peekFlash(64 * PAGE, 1)[0], 0xFF);

    flash->unlockEntireChip();
    EXPECT_EQ(chip->getLockBits(), 0);
    flash->unlockRegion(USER_PAGE, PAGE);  // no lock there: nothing sent
    EXPECT_EQ(pagesOf(PeltChip::CMD_UR).size(), 18u);
    EXPECT_EQ(genericFailure([&] { flash->unlockRegion(FLASH + 0x80000, 1); }),
              "Region to be unlocked lies outside flash address space.");
}

TEST_F(Fixture, LockedRegionSurfacesAsLockedFlashErrorWithContext) {
    chip->setLockBits(0x0002);
    const std::vector<unsigned char> data(PAGE, 0x00);
    try {
        flash->programChip(FLASH + 64 * PAGE, PAGE, data.begin(), false, true);
        FAIL() << "no exception";
    } catch (const LockedFlashError& e) {
        EXPECT_EQ(e.getString(),
                  "Internal flash programming failed. Erasing page failed. The flash region is "
                  "locked.");
    }
    EXPECT_EQ(chip->peekFlash(64 * PAGE, 1)[0], 0xFF);
    EXPECT_THROW(flash->eraseRegion(FLASH + 64 * PAGE, 1, EraseOnly), LockedFlashError);
}

TEST_F(Fixture, ProgrammingMergesPartialPagesAndSkipsTheReadOfWholeOnes) {
    const std::vector<unsigned char> old = randomBytes(3 * PAGE, 1);
    chip->pokeFlash(PAGE, old);
    const std::vector<unsigned char> data = randomBytes(PAGE + 2, 2);
    chip->resetCounters();
    // The last byte of page 1, all of page 2, the first byte of page 3.
    flash->programChip(FLASH + 2 * PAGE - 1, PAGE + 2, data.begin(), false, true);

    std::vector<unsigned char> expected = old;
    std::copy(data.begin(), data.end(), expected.begin() + PAGE - 1);
    EXPECT_EQ(chip->peekFlash(PAGE, 3 * PAGE), expected);
    EXPECT_EQ(pagesOf(PeltChip::CMD_WP), (std::vector<unsigned>{1, 2, 3}));
    const PeltChip::Counters& c = chip->getCounters();
    EXPECT_EQ(c.bytesRead - 4 * c.statusReads, 2u * PAGE);  // pages 1 and 3 only
    EXPECT_EQ(c.commands[PeltChip::CMD_UR], 0u);            // programming never unlocks

    chip->clearCommandLog();
    chip->resetCounters();
    flash->programChip(FLASH, 0, data.begin(), false, true);
    EXPECT_TRUE(chip->getCommandLog().empty());
    EXPECT_EQ(chip->getCounters().statusReads, 1u);
    EXPECT_EQ(chip->getCounters().bytesWritten, 0u);

    EXPECT_EQ(
        genericFailure([&] { flash->programChip(FLASH + 0x7FFFF, 2, data.begin(), false, true); }),
        "Unable to write 0x2 bytes at address 0x8007ffff. The access is outside of flash "
        "address space");
}

TEST_F(Fixture, ControllerErrorsAndTimeoutsGiveTheirTexts) {
    chip->failNextCommand(PeltChip::CMD_EP, PeltChip::FSR_PROGE);
    EXPECT_EQ(genericFailure([&] { flash->eraseRegion(FLASH, 1, EraseOnly); }),
              "Erasing page failed. PROGE error: Invalid command or keyword written to FCMD.");

    chip->setBusyPolls(3);  // slow but not too slow
    flash->eraseRegion(FLASH, 1, EraseOnly);

    chip->setStuckBusy(true);
    const auto start = std::chrono::steady_clock::now();
    const std::vector<unsigned char> data(4, 0);
    EXPECT_EQ(genericFailure([&] { flash->programChip(FLASH, 4, data.begin(), false, true); }),
              "Internal flash programming failed. Timed out waiting for flash to become ready "
              "(500 ms).");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    chip->setStuckBusy(false);

    chip->failNextCommand(PeltChip::CMD_UR, PeltChip::FSR_PROGE);
    EXPECT_EQ(genericFailure([&] { flash->unlockRegion(FLASH, 1); }),
              "Unlocking page failed. PROGE error: Invalid command or keyword written to FCMD.");
    chip->failNextCommand(PeltChip::CMD_WGPB, PeltChip::FSR_PROGE);
    EXPECT_EQ(genericFailure([&] { flash->modifyFusebit(Fuses, 3, false); }),
              "Programming of general purpose fuse failed. PROGE error: Invalid command or "
              "keyword written to FCMD.");
    chip->failNextCommand(PeltChip::CMD_EAGPF, PeltChip::FSR_PROGE);
    EXPECT_EQ(genericFailure([&] { flash->eraseFuses(Fuses); }),
              "Faild erasing all general purpose fuses. PROGE error: Invalid command or keyword "
              "written to FCMD.");
    chip->failNextCommand(PeltChip::CMD_WUP, PeltChip::FSR_PROGE);
    EXPECT_EQ(genericFailure([&] { flash->programUserPage(USER_PAGE, 1, data.begin()); }),
              "User page programming failed. PROGE error: Invalid command or keyword written "
              "to FCMD.");
}

TEST_F(Fixture, ChipEraseAfterUnlock) {
    chip->pokeFlash(0x7FFFF, {0x00});
    chip->setLockBits(0x8000);
    flash->unlockEntireChip();
    flash->startEraseEntireChip();
    flash->waitFlashReady(500);
    EXPECT_EQ(chip->peekFlash(0x7FFFF, 1)[0], 0xFF);
}

TEST_F(Fixture, UserPageKeepsWhatAPartialWriteLeaves) {
    const std::vector<unsigned char> old = randomBytes(PAGE, 3);
    chip->pokeUserPage(0, old);
    const std::vector<unsigned char> data = {1, 2, 3};
    flash->programChip(USER_PAGE + PAGE - 3, 3, data.begin(), false, true);
    std::vector<unsigned char> expected = old;
    std::copy(data.begin(), data.end(), expected.end() - 3);
    EXPECT_EQ(chip->peekUserPage(), expected);

    std::vector<unsigned char> back(3);
    flash->readUserPage(USER_PAGE + PAGE - 3, 3, back.begin());
    EXPECT_EQ(back, data);
    EXPECT_EQ(
        genericFailure([&] { flash->programUserPage(USER_PAGE + PAGE - 2, 3, data.begin()); }),
        "Tried to program past user page boundary.");
    EXPECT_EQ(genericFailure([&] { flash->readUserPage(USER_PAGE + PAGE, 1, back.begin()); }),
              "Tried to read outside user page boundaries.");
}

TEST_F(Fixture, FuseBitsAndWords) {
    chip->setFuses(0x12345678, 0xFFFFFFFE);
    EXPECT_EQ(flash->readFuses(Fuses), (Packet{0x78, 0x56, 0x34, 0x12}));
    EXPECT_FALSE(flash->readFuseBit(Fuses, 32));  // bit 0 of FGPFRHI
    EXPECT_TRUE(flash->readFuseBit(Fuses, 33));
    EXPECT_FALSE(flash->readFuseBit(Fuses, 0));
    EXPECT_TRUE(flash->readFuseBit(Fuses, 3));

    flash->modifyFusebit(Fuses, 63, false);
    EXPECT_EQ(chip->getFuseHi(), 0x7FFFFFFEu);
    flash->modifyFusebit(Fuses, 0, true);
    EXPECT_EQ(chip->getFuseLo(), 0x12345679u);
    for (int index : {-1, 64})
        EXPECT_EQ(genericFailure([&] { flash->modifyFusebit(Fuses, index, true); }),
                  "Fuse index out of range");
    EXPECT_EQ(genericFailure([&] { flash->readFuseBit(Fuses, 64); }), "Fuse index out of range");

    chip->clearCommandLog();
    Packet values{0x01, 0x00, 0x00, 0x80};
    flash->programFuses(Fuses, values, 0);
    EXPECT_EQ(chip->getFuseLo(), 0x80000001u);
    EXPECT_EQ(values, (Packet{0x80, 0x00, 0x00, 0x01}));  // reversed
    const std::vector<uint32_t>& log = chip->getCommandLog();
    ASSERT_EQ(log.size(), 32u);
    EXPECT_EQ(log.front(), 0xA5001F08u);  // fuse 31 first, erased to 1
    EXPECT_EQ(log.back(), 0xA5000008u);
    EXPECT_EQ(log[1], 0xA5001E07u);

    Packet three{1, 2, 3};
    EXPECT_THROW(flash->programFuses(Fuses, three, 0), GenericError);
    Packet four(4, 0);
    EXPECT_EQ(genericFailure([&] { flash->programFuses(Fuses, four, 40); }),
              "Fuse index out of range");
    EXPECT_EQ(chip->getFuseHi(), 0x7FFFFFFEu);  // refused before any command

    flash->eraseFuses(Fuses);
    EXPECT_EQ(chip->getFuseLo(), 0xFFFFFFFFu);
    EXPECT_EQ(chip->getFuseHi(), 0xFFFFFFFFu);
}

TEST_F(Fixture, FuseRegisterLayout) {
    EXPECT_EQ(flash->getFuseGpLoAddress(), 0xFFFE1418u);
    EXPECT_EQ(flash->getFusesSize(), 8u);
    EXPECT_EQ(flash->getMinFuseAddress(), 0xFFFE1414u);  // FGPFRHI lies lower

    FlashInformation info = flash->getFlashInfo();
    info.fuseHiRegister = 0;
    PeltInternalFlash low(info, bus);
    EXPECT_EQ(low.getFusesSize(), 4u);
    EXPECT_EQ(low.getMinFuseAddress(), 0xFFFE1418u);

    info.pagesPerRegion = 0;
    EXPECT_THROW(PeltInternalFlash(info, bus), GenericError);
}

TEST_F(Fixture, DecodedCommandsAndStatusInTheLog) {
    LogCapture log(L_DBG, LOG_MASK_DEBUG | LOG_MASK_TRACE);
    chip->setLockBits(0x8002);  // page 1 lies in region 0
    flash->eraseRegion(FLASH + PAGE, 1, EraseOnly);
    EXPECT_TRUE(log.saw("Internal flash command: FCMD=EP (0x2) PAGEN=0x0001 KEY=a5."));
    EXPECT_TRUE(log.saw("Erasing page: 1"));
    EXPECT_TRUE(log.saw("Read FSR: LOCK[15:0]=8002 FSZ=5 FRDY. Flash is ready."));
    chip->failNextCommand(PeltChip::CMD_EP, PeltChip::FSR_LOCKE);
    EXPECT_THROW(flash->eraseRegion(FLASH + PAGE, 1, EraseOnly), LockedFlashError);
    EXPECT_TRUE(log.saw("Read FSR: LOCK[15:0]=8002 FSZ=5 LOCKE FRDY. LockedFlashError."));
}

TEST_F(Fixture, SecurityAndUnsupportedLockBits) {
    // Bit 13 belongs to this chip's flash size code (512 KiB: 5), so the
    // operation reports 1 on a chip without security.
    EXPECT_EQ(flash->getSecurityLevel(), 1);
    const auto start = std::chrono::steady_clock::now();
    flash->setSecurityLevel(static_cast<InternalFlash::SecurityLevel>(2));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_TRUE(chip->isSecure());

    EXPECT_EQ(genericFailure([&] { flash->getLockBitCount(); }),
              "getLockBits() not implementedin PeltInternalFlash.");
    EXPECT_EQ(genericFailure([&] { flash->getLockBits(); }),
              "getLockBits() not implementedin PeltInternalFlash.");
    EXPECT_EQ(genericFailure([&] { flash->setLockBit(0); }),
              "setLockBit() not implementedin PeltInternalFlash.");
    EXPECT_EQ(genericFailure([&] { flash->clearLockBit(0); }),
              "clearLockBit() not implementedin PeltInternalFlash.");
}

}  // namespace
