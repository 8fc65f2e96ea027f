// The simulated Pelt chip, driven through its target interface the way a
// flash driver drives it, so that the driver tests stand on a controller
// that behaves like the real one.

#include "sim/peltchip.h"

#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

const ITarn32Target::MemoryType MEM = static_cast<ITarn32Target::MemoryType>(0);
const uint32_t FLASH = 0x80000000;
const uint32_t USER_PAGE = 0x80800000;

class PeltChipTest : public ::testing::Test {
protected:
    PeltChipTest() : chip(PeltChip::fromDeviceFile("devices/TP32A512.xml")) {}

    void write(uint64_t address, const std::vector<unsigned char>& bytes) {
        chip->writeMemory(MEM, 0, address, static_cast<unsigned>(bytes.size()), bytes.begin());
    }
    std::vector<unsigned char> read(uint64_t address, unsigned size) {
        std::vector<unsigned char> bytes(size);
        chip->readMemory(MEM, 0, address, size, bytes.begin());
        return bytes;
    }
    uint32_t readWord(uint64_t address) {
        std::vector<unsigned char> b = read(address, 4);
        return b[0] | b[1] << 8 | b[2] << 16 | uint32_t(b[3]) << 24;
    }
    void writeWord(uint64_t address, uint32_t word) {
        write(address,
              {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8),
               static_cast<unsigned char>(word >> 16), static_cast<unsigned char>(word >> 24)});
    }
    void command(unsigned code, unsigned pagen = 0) {
        writeWord(chip->getRegisterAddress("FCMD"), 0xA5000000 | pagen << 8 | code);
    }
    uint32_t status() { return readWord(chip->getRegisterAddress("FSR")); }

    boost::shared_ptr<PeltChip> chip;
};

TEST_F(PeltChipTest, WritesFillOnlyThePageBufferUntilAPageWrite) {
    write(FLASH + 0x204, {0x12, 0x34});
    EXPECT_EQ(read(FLASH + 0x204, 2), std::vector<unsigned char>({0xFF, 0xFF}));
    EXPECT_EQ(chip->getPageBuffer()[4], 0x12);

    command(PeltChip::CMD_WP, 3);  // the page comes from PAGEN, not the load address
    EXPECT_EQ(read(FLASH + 3 * 512 + 4, 3), std::vector<unsigned char>({0x12, 0x34, 0xFF}));
    EXPECT_EQ(chip->peekFlash(0x204, 2), std::vector<unsigned char>({0xFF, 0xFF}));
    EXPECT_TRUE(chip->getViolations().empty());

    // Programming only clears bits; over a programmed page that is a fault.
    command(PeltChip::CMD_CPB);
    write(FLASH + 3 * 512 + 4, {0x21, 0xFF});
    command(PeltChip::CMD_WP, 3);
    EXPECT_EQ(read(FLASH + 3 * 512 + 4, 2), std::vector<unsigned char>({0x00, 0x34}));
    ASSERT_EQ(chip->getViolations().size(), 1u);

    command(PeltChip::CMD_EP, 3);
    EXPECT_EQ(read(FLASH + 3 * 512 + 4, 2), std::vector<unsigned char>({0xFF, 0xFF}));
}

TEST_F(PeltChipTest, LoadingTheBufferAgainWithoutClearingIsAViolation) {
    write(FLASH, {0x00});
    command(PeltChip::CMD_WP, 0);
    write(FLASH + 1, {0x00});
    EXPECT_EQ(chip->getViolations().size(), 1u);
    chip->clearViolations();
    command(PeltChip::CMD_CPB);
    EXPECT_EQ(chip->getPageBuffer(), std::vector<unsigned char>(512, 0xFF));
    write(FLASH + 510, {1, 2});
    EXPECT_TRUE(chip->getViolations().empty());
    write(FLASH + 511, {3, 4});  // runs past the page: wraps in the buffer
    EXPECT_EQ(chip->getViolations().size(), 1u);
    EXPECT_EQ(chip->getPageBuffer()[0], 4);
}

TEST_F(PeltChipTest, UserPageHasItsOwnCommands) {
    write(USER_PAGE + 511, {0x5A});
    command(PeltChip::CMD_WUP);
    EXPECT_EQ(read(USER_PAGE + 510, 2), std::vector<unsigned char>({0xFF, 0x5A}));
    EXPECT_EQ(chip->getFlash()[511], 0xFF);
    command(PeltChip::CMD_QPRUP);
    EXPECT_EQ(status() & PeltChip::FSR_QPRR, 0u);
    command(PeltChip::CMD_EUP);
    command(PeltChip::CMD_QPRUP);
    EXPECT_NE(status() & PeltChip::FSR_QPRR, 0u);
    EXPECT_THROW(read(USER_PAGE + 511, 2), CoreException);
}

TEST_F(PeltChipTest, StatusReportsErrorsOnceAndLocksPerRegion) {
    const uint32_t fsr = chip->getRegisterAddress("FSR");
    EXPECT_EQ(status(), 1u | 5u << 13);  // ready, FSZ for 512 KiB

    writeWord(chip->getRegisterAddress("FCMD"), 0xA4000002);  // wrong key
    EXPECT_EQ(status() & PeltChip::FSR_PROGE, PeltChip::FSR_PROGE);
    EXPECT_EQ(status() & PeltChip::FSR_PROGE, 0u);  // cleared by the read
    EXPECT_EQ(chip->getViolations().size(), 1u);
    chip->clearViolations();

    // Region 1 holds pages 64 to 127.
    chip->pokeFlash(64 * 512, {0x00});
    command(PeltChip::CMD_LR, 127);
    EXPECT_EQ(readWord(fsr) >> 16, 0x0002u);
    command(PeltChip::CMD_EP, 64);
    EXPECT_EQ(status() & PeltChip::FSR_LOCKE, PeltChip::FSR_LOCKE);
    command(PeltChip::CMD_EA);
    EXPECT_EQ(status() & PeltChip::FSR_LOCKE, PeltChip::FSR_LOCKE);
    EXPECT_EQ(chip->getFlash()[64 * 512], 0x00);
    command(PeltChip::CMD_EP, 63);  // the region below is not locked
    EXPECT_EQ(status() & PeltChip::FSR_LOCKE, 0u);
    command(PeltChip::CMD_UR, 64);
    command(PeltChip::CMD_EA);
    EXPECT_EQ(status(), 1u | 5u << 13);
    EXPECT_EQ(chip->getFlash()[64 * 512], 0xFF);

    command(PeltChip::CMD_EP, 1024);  // one page beyond the flash
    EXPECT_EQ(status() & PeltChip::FSR_PROGE, PeltChip::FSR_PROGE);
    EXPECT_TRUE(chip->getViolations().size() == 1u);
}

TEST_F(PeltChipTest, BusyControllerIgnoresCommandsAndCanHang) {
    chip->setBusyPolls(2);
    command(PeltChip::CMD_EP, 0);
    EXPECT_EQ(status() & PeltChip::FSR_FRDY, 0u);
    command(PeltChip::CMD_LR, 0);  // ignored while busy
    EXPECT_EQ(chip->getViolations().size(), 1u);
    EXPECT_EQ(status() & PeltChip::FSR_FRDY, 0u);
    EXPECT_EQ(status() & PeltChip::FSR_FRDY, PeltChip::FSR_FRDY);
    EXPECT_EQ(chip->getLockBits(), 0u);

    chip->setBusyPolls(0);
    chip->setStuckBusy(true);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(status() & PeltChip::FSR_FRDY, 0u);
    chip->setStuckBusy(false);
    EXPECT_EQ(status() & PeltChip::FSR_FRDY, PeltChip::FSR_FRDY);
}

TEST_F(PeltChipTest, FuseCommandsWorkBitByBitAndByByte) {
    const uint64_t lo = chip->getRegisterAddress("FGPFRLO");
    const uint64_t hi = chip->getRegisterAddress("FGPFRHI");
    command(PeltChip::CMD_WGPB, 0);
    command(PeltChip::CMD_WGPB, 32);
    command(PeltChip::CMD_WGPB, 63);
    EXPECT_EQ(readWord(lo), 0xFFFFFFFEu);
    EXPECT_EQ(readWord(hi), 0x7FFFFFFEu);
    command(PeltChip::CMD_EGPB, 63);
    EXPECT_EQ(readWord(hi), 0xFFFFFFFEu);
    command(PeltChip::CMD_WGPB, 64);
    EXPECT_EQ(status() & PeltChip::FSR_PROGE, PeltChip::FSR_PROGE);

    command(PeltChip::CMD_PGPFB, 0x3C << 3 | 2);  // byte 2 of the low word
    EXPECT_EQ(readWord(lo), 0xFF3CFFFEu);
    command(PeltChip::CMD_EAGPF);
    EXPECT_EQ(readWord(lo), 0xFFFFFFFFu);
    EXPECT_EQ(readWord(hi), 0xFFFFFFFFu);

    writeWord(lo, 0);  // read-only: ignored, and a driver fault
    EXPECT_EQ(readWord(lo), 0xFFFFFFFFu);
    EXPECT_EQ(chip->getViolations().size(), 1u);
}

TEST_F(PeltChipTest, RefusesWhatTheBusCannotServe) {
    const uint64_t fsr = chip->getRegisterAddress("FSR");
    EXPECT_THROW(read(fsr, 2), CoreException);
    EXPECT_THROW(read(fsr - 2, 4), CoreException);
    EXPECT_THROW(read(FLASH + 0x80000 - 1, 2), CoreException);  // runs past the flash
    EXPECT_THROW(read(0x10000, 1), CoreException);              // behind the SRAM
    write(0xFFFF, {0xAB});
    EXPECT_EQ(read(0xFFFF, 1)[0], 0xAB);

    chip->failTransferAfter(1);
    read(0, 1);
    EXPECT_THROW(read(0, 1), CoreException);
    read(0, 1);

    chip->failNextCommand(PeltChip::CMD_EP, PeltChip::FSR_PROGE);
    chip->pokeFlash(0, {0x00});
    command(PeltChip::CMD_EP, 0);
    EXPECT_EQ(status() & PeltChip::FSR_PROGE, PeltChip::FSR_PROGE);
    EXPECT_EQ(chip->getFlash()[0], 0x00);
    EXPECT_TRUE(chip->getViolations().empty());
}

TEST_F(PeltChipTest, SavedStateRoundTripsAndRefusesAnotherChip) {
    chip->pokeFlash(0x7FFFF, {0x11});
    chip->pokeUserPage(0, {0x22});
    chip->setFuses(0x12345678, 0x9ABCDEF0);
    chip->setLockBits(0x8001);
    command(PeltChip::CMD_SSB);
    std::stringstream state;
    chip->save(state);

    auto other = PeltChip::fromDeviceFile("devices/TP32A512.xml");
    other->load(state);
    EXPECT_EQ(other->getFlash(), chip->getFlash());
    EXPECT_EQ(other->peekUserPage(), chip->peekUserPage());
    EXPECT_EQ(other->getFuseLo(), 0x12345678u);
    EXPECT_EQ(other->getFuseHi(), 0x9ABCDEF0u);
    EXPECT_EQ(other->getLockBits(), 0x8001u);
    EXPECT_TRUE(other->isSecure());

    std::string text = state.str();
    std::stringstream cut(text.substr(0, text.size() - 20));
    other->reset();
    EXPECT_THROW(other->load(cut), CoreException);
    EXPECT_EQ(other->getFlash()[0x7FFFF], 0xFF);  // nothing half loaded
    std::string renamed = text;
    renamed.replace(renamed.find("TP32A512"), 8, "TP32A256");
    std::stringstream foreign(renamed);
    EXPECT_THROW(other->load(foreign), CoreException);
}

}  // namespace
