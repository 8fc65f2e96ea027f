// The NVM driver against the simulated chip: programming runs on the three
// controller blocks, erase units and codes, the read-while-write section,
// the auxiliary rows, and how errors and timeouts surface.

#include "nvmrig.h"

#include "libcommon/flash/nvmaccessors.h"
#include "libcommon/memory/memoryaccessors.h"

namespace {

// The programming path a plug-in stacks under NvmAccessor: plain writes go
// through the driver's page loop.
class DriverWrites : public IMemoryAccessor {
public:
    DriverWrites(boost::shared_ptr<NvmController> flash, boost::shared_ptr<IMemoryAccessor> chip)
        : flash(flash), chip(chip) {}
    void read(uint64_t address, unsigned size, Bytes::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override {
        chip->read(address, size, data, error, progress);
    }
    void write(uint64_t address, unsigned size, Bytes::const_iterator data,
               boost::shared_ptr<MemoryError>, IIntermediateResult*, bool) override {
        flash->programChip(address, size, data, false, false);
    }

private:
    boost::shared_ptr<NvmController> flash;
    boost::shared_ptr<IMemoryAccessor> chip;
};

const char* const SAMPLES[] = {"devices/CM0N256.xml", "devices/CM4U1024.xml",
                               "devices/CM23D64.xml"};

}  // namespace

TEST(NvmController, UnalignedImageProgramsOnEveryBlockAndKeepsItsNeighbours) {
    for (const char* file : SAMPLES) {
        SCOPED_TRACE(file);
        NvmRig rig(file);
        rig.chip->setBusyPolls(0, 2);
        const uint32_t flashSize = rig.info.size;
        const Bytes before = randomBytes(flashSize, 7);
        rig.chip->setRegionBytes("FLASH", before);
        const uint32_t resetConfig = rig.config();

        // 64 KiB where the flash has room around it, else as much as fits
        // with an unaligned start and end.
        const uint64_t start = 0x123;
        const unsigned size = std::min<unsigned>(0x10000, flashSize - 0x123 - 0x55);
        const Bytes image = randomBytes(size, 11);
        const unsigned unit = rig.info.pageSize * rig.info.eraseUnitPages;
        auto nvm = boost::make_shared<NvmAccessor>(
            rig.flash, boost::make_shared<DriverWrites>(rig.flash, rig.chip));
        PagedMemoryAccessor paged(nvm, unit, true, false);
        paged.write(start, size, image.begin(), boost::shared_ptr<MemoryError>(), nullptr, false);
        rig.flash->restoreCfgRegs();

        Bytes expected = before;
        std::copy(image.begin(), image.end(), expected.begin() + start);
        Bytes readBack(flashSize);
        rig.chip->read(0, flashSize, readBack.begin(), boost::shared_ptr<MemoryError>(), nullptr);
        EXPECT_TRUE(readBack == expected);
        EXPECT_TRUE(rig.chip->getViolations().empty()) << rig.chip->getViolations().front();
        EXPECT_EQ(resetConfig, rig.config());
        EXPECT_TRUE(rig.chip->inManualWriteMode());
        EXPECT_EQ(0u, rig.chip->getErrorFlags());
    }
}

TEST(NvmChip, WritesInManualModeProgramNothing) {
    // What a driver that forgets to switch the configuration gets.
    for (const char* file : SAMPLES) {
        NvmRig rig(file);
        const Bytes page(rig.info.pageSize, 0x00);
        rig.chip->write(0, rig.info.pageSize, page.begin(), boost::shared_ptr<MemoryError>(),
                        nullptr, false);
        EXPECT_EQ(Bytes(rig.info.pageSize, 0xFF), rig.chip->peek(0, rig.info.pageSize)) << file;
        EXPECT_EQ(0u, rig.chip->getCounters().pagesProgrammed);
    }
}

TEST(NvmChip, RefusesAndLogsWhatTheControllerWouldRefuse) {
    NvmRig rig("devices/CM0N256.xml");
    auto poke = [&](uint64_t address, Bytes bytes) {
        rig.chip->write(address, unsigned(bytes.size()), bytes.begin(),
                        boost::shared_ptr<MemoryError>(), nullptr, false);
    };
    rig.chip->poke(0, Bytes(0x100, 0x00));
    poke(0x41004000, {0x02, 0xA4});  // erase with a wrong key
    EXPECT_EQ(0x02u, rig.chip->getErrorFlags());
    EXPECT_EQ(Bytes(0x100, 0x00), rig.chip->peek(0, 0x100));
    poke(0x41004014, {0x02});  // write-one-to-clear
    EXPECT_EQ(0u, rig.chip->getErrorFlags());

    poke(0x41004000, {0x02});  // half a command
    EXPECT_EQ(1u, rig.chip->getViolations().size());
    poke(0x4100401C, {0x00, 0x00, 0x20, 0x00});  // word address 0x200000: no memory there
    poke(0x41004000, {0x02, 0xA5});
    EXPECT_EQ(0x02u, rig.chip->getErrorFlags());
    EXPECT_EQ(0x04u, rig.chip->peekRegister(0x18, 1) & 0x1C);  // PROGE

    Bytes flags(1);
    rig.chip->read(0x41004014, 1, flags.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    poke(0x4100401C, {0x00, 0x00, 0x00, 0x00});
    poke(0x41004000, {0x02, 0xA5});  // busy for one poll now
    poke(0x41004000, {0x02, 0xA5});
    poke(0x100, Bytes(4, 0x00));
    EXPECT_EQ(3u, rig.chip->getViolations().size());
    EXPECT_EQ(Bytes(0x100, 0xFF), rig.chip->peek(0, 0x100));
    EXPECT_EQ(2u, rig.chip->getCounters().commandCount(0x02));  // the one while busy is lost

    EXPECT_EQ(unsigned(ERR_ADDRESS_RANGE), thrown([&] { poke(0x20000000, {0}); }).first);

    // U2802 at access level 2 answers at its second base only.
    NvmRig u2802("devices/CM23D64.xml");
    Bytes status(1);
    u2802.chip->read(0x41004018, 1, status.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    EXPECT_EQ(1u, u2802.chip->getViolations().size());
    u2802.chip->read(0x41005018, 1, status.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    EXPECT_EQ(0x04u, status[0] & 0x04u);
    EXPECT_EQ(1u, u2802.chip->getViolations().size());
}

TEST(NvmController, EraseCoversWholeUnitsWithEachBlocksCodeAndAddress) {
    // Plain: 4 pages of 64 bytes; one byte into the second unit erases it whole.
    NvmRig plain("devices/CM0N256.xml");
    plain.chip->setBusyPolls(2, 1);
    plain.chip->poke(0x200, Bytes(4, 0x00));
    plain.flash->eraseRegion(0x40, 257, InternalFlash::EraseOnly);
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x02, 0x40}, {0x02, 0x140}}),
              plain.commands());
    EXPECT_EQ(Bytes(4, 0x00), plain.chip->peek(0x200, 4));  // the third unit stays
    EXPECT_EQ(Bytes(0x200, 0xFF), plain.chip->peek(0, 0x200));
    EXPECT_EQ(0x140u / 2, plain.chip->peekRegister(0x1C, 4));  // a word address

    // U2409: 16 pages of 512 bytes, byte address in its own register.
    NvmRig u2409("devices/CM4U1024.xml");
    u2409.flash->eraseRegion(0x4000, 0x2001, InternalFlash::EraseOnly);
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x01, 0x4000}, {0x01, 0x6000}}),
              u2409.commands());

    // U2802: the address is latched by a data write, which programs nothing.
    NvmRig u2802("devices/CM23D64.xml");
    u2802.chip->poke(0x100, Bytes(0x100, 0x5A));
    u2802.flash->eraseRegion(0x100, 0x100, InternalFlash::EraseOnly);
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x02, 0x100}}), u2802.commands());
    EXPECT_EQ(Bytes(0x100, 0xFF), u2802.chip->peek(0x100, 0x100));
    EXPECT_EQ(0u, u2802.chip->getCounters().pagesProgrammed);

    for (NvmRig* rig : {&plain, &u2409, &u2802}) {
        rig->flash->restoreCfgRegs();
        EXPECT_TRUE(rig->chip->getViolations().empty());
    }
}

TEST(NvmController, SizeZeroTouchesNothingButTheUserPageErase) {
    NvmRig rig("devices/CM0N256.xml");
    rig.flash->eraseRegion(0x100, 0, InternalFlash::EraseOnly);
    rig.flash->programChip(0x100, 0, Bytes().begin(), false, true);
    rig.flash->eraseAux(0x804000, 0);
    rig.flash->unlockRegion(0x100, 0);
    EXPECT_EQ(0u, rig.chip->getCounters().writeCalls);

    rig.chip->poke(0x804000, Bytes(0x40, 0x11));
    rig.flash->eraseRegion(0x804000, 0, InternalFlash::EraseOnly);
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x05, 0x804000}}), rig.commands());
    EXPECT_EQ(Bytes(0x40, 0xFF), rig.chip->peek(0x804000, 0x40));
    rig.flash->restoreCfgRegs();
}

TEST(NvmController, ReadWhileWriteSectionUsesItsOwnEraseAndWrite) {
    NvmRig plain("devices/CM0N256.xml");
    const Bytes data = randomBytes(0x140, 3);
    plain.chip->poke(0x400000, Bytes(0x300, 0x00));
    plain.flash->programChip(0x400040, 0x140, data.begin(), false, true);
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x1A, 0x400040}, {0x1A, 0x400140}}),
              plain.commands());
    EXPECT_EQ(data, plain.chip->peek(0x400040, 0x140));
    EXPECT_EQ(Bytes(0x40, 0xFF), plain.chip->peek(0x400000, 0x40));    // in an erased unit
    EXPECT_EQ(Bytes(0x100, 0x00), plain.chip->peek(0x400200, 0x100));  // the next unit
    plain.flash->restoreCfgRegs();

    // A range that runs past the section's end is not the section's: the
    // main-array code, which the controller refuses there.
    plain.chip->clearEvents();
    plain.chip->poke(0x401F00, Bytes(0x100, 0x00));
    plain.flash->eraseRegion(0x401F00, 0x200, InternalFlash::EraseOnly);
    EXPECT_EQ(0x02u, plain.commands().front().first);
    EXPECT_EQ(unsigned(ERR_NVM_CONTROLLER), thrown([&] { plain.flash->restoreCfgRegs(); }).first);
    EXPECT_EQ(Bytes(0x100, 0x00), plain.chip->peek(0x401F00, 0x100));
    EXPECT_TRUE(plain.chip->getViolations().empty());

    NvmRig u2802("devices/CM23D64.xml");
    u2802.flash->eraseRegion(0x400100, 0x100, InternalFlash::EraseOnly);
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x02, 0x400100}}), u2802.commands());
    u2802.flash->restoreCfgRegs();
}

TEST(NvmController, UserPageAndAuxRows) {
    // Plain: the user page is erased by its own code and written as a page.
    NvmRig plain("devices/CM0N256.xml");
    plain.chip->poke(0x804000, Bytes(0x40, 0x00));
    const Bytes row = randomBytes(0x40, 5);
    plain.flash->eraseUserPage();
    plain.flash->writeAux(0x804000, 0x40, row.begin());
    plain.flash->restoreCfgRegs();
    EXPECT_EQ(row, plain.chip->peek(0x804000, 0x40));
    EXPECT_EQ(1u, plain.chip->getCounters().commandCount(0x05));

    // U2409: only changed quad words are written, each one waited for.
    NvmRig u2409("devices/CM4U1024.xml");
    u2409.chip->setBusyPolls(1, 3);
    Bytes page = randomBytes(0x200, 9);
    u2409.chip->poke(0x804000, page);
    u2409.flash->writeAux(0x804000, 0x200, page.begin());
    EXPECT_EQ(0u, u2409.chip->getCounters().pagesProgrammed);
    Bytes changed = page;
    changed[0x1F] &= 0x0F;
    changed[0x1F0] = 0;
    u2409.flash->writeAux(0x804000, 0x200, changed.begin());
    EXPECT_EQ(2u, u2409.chip->getCounters().pagesProgrammed);
    EXPECT_EQ(changed, u2409.chip->peek(0x804000, 0x200));
    EXPECT_EQ(unsigned(ERR_INVALID_ARGUMENT),
              thrown([&] { u2409.flash->writeAux(0x804000, 0x1F0, changed.begin()); }).first);
    u2409.flash->eraseUserPage();
    EXPECT_EQ((std::pair<unsigned, uint64_t>{0x00, 0x804000}), u2409.commands().back());
    u2409.flash->restoreCfgRegs();
    EXPECT_EQ(Bytes(0x200, 0xFF), u2409.chip->peek(0x804000, 0x200));
    EXPECT_TRUE(u2409.chip->getViolations().empty());

    // U2802 erases its rows only as part of a row write.
    NvmRig u2802("devices/CM23D64.xml");
    u2802.flash->eraseUserPage();
    u2802.flash->eraseAux(0x80C000, 0x100);
    EXPECT_TRUE(u2802.commands().empty());
}

TEST(NvmController, ConfigurationIsSavedOncePerRunAndRestoredOnce) {
    NvmRig rig("devices/CM0N256.xml");
    const uint32_t reset = rig.config();
    const Bytes page(64, 0x3C);
    rig.flash->programChip(0, 64, page.begin(), false, true);
    EXPECT_EQ((reset & ~0x80u) | 0x1E, rig.config());
    rig.flash->programChip(0x40, 64, page.begin(), false, false);
    rig.flash->restoreCfgRegs();
    rig.flash->restoreCfgRegs();
    std::vector<uint64_t> configWrites;
    for (const NvmChip::Event& e : rig.chip->getEvents()) {
        if (e.type == NvmChip::Event::REGISTER_WRITE) configWrites.push_back(e.address);
    }
    EXPECT_EQ((std::vector<uint64_t>{(reset & ~0x80u) | 0x1E, reset}), configWrites);

    // U2802 switches its second configuration register to automatic writes.
    NvmRig u2802("devices/CM23D64.xml");
    u2802.flash->programChip(0, 64, page.begin(), false, true);
    EXPECT_FALSE(u2802.chip->inManualWriteMode());
    EXPECT_EQ(0x1Eu, u2802.config());
    u2802.flash->restoreCfgRegs();
    EXPECT_TRUE(u2802.chip->inManualWriteMode());
    EXPECT_EQ(0x04u, u2802.config());
    EXPECT_EQ(page, u2802.chip->peek(0, 64));
}

TEST(NvmController, ControllerErrorsSurfaceOnlyAtRestoreWhichClosesTheRun) {
    for (const char* file : SAMPLES) {
        SCOPED_TRACE(file);
        NvmRig rig(file);
        const uint32_t reset = rig.config();
        rig.chip->failPageProgram(2);
        const Bytes data(rig.info.pageSize * 3, 0x00);
        rig.flash->programChip(0, unsigned(data.size()), data.begin(), false, true);
        EXPECT_EQ(std::make_pair(unsigned(ERR_NVM_CONTROLLER),
                                 std::string("Error reported by NVM controller.")),
                  thrown([&] { rig.flash->restoreCfgRegs(); }));
        EXPECT_EQ(0u, rig.chip->getErrorFlags());
        EXPECT_EQ(reset, rig.config());
        rig.flash->restoreCfgRegs();  // nothing left to report
        EXPECT_EQ(Bytes(rig.info.pageSize, 0xFF),
                  rig.chip->peek(rig.info.pageSize, rig.info.pageSize));

        rig.chip->failCommand(1);
        rig.flash->eraseRegion(0, 1, InternalFlash::EraseOnly);
        EXPECT_EQ(unsigned(ERR_NVM_CONTROLLER), thrown([&] { rig.flash->restoreCfgRegs(); }).first);
        EXPECT_TRUE(rig.chip->getViolations().empty());
    }
    // The plain block's status register is cleared as well.
    NvmRig plain("devices/CM0N256.xml");
    plain.chip->failCommand(1);
    plain.flash->eraseRegion(0, 1, InternalFlash::EraseOnly);
    EXPECT_NE(0u, plain.chip->peekRegister(0x18, 1) & 0x10);
    thrown([&] { plain.flash->restoreCfgRegs(); });
    EXPECT_EQ(0u, plain.chip->peekRegister(0x18, 1) & 0x1C);
}

TEST(NvmController, TimeoutLeavesTheRunForTheCallerToClose) {
    NvmRig rig("devices/CM0N256.xml");
    rig.chip->setStuckBusy(true);
    const Bytes page(64, 0x00);
    EXPECT_EQ(std::make_pair(unsigned(ERR_FLASH_TIMEOUT),
                             std::string("Flash operation failed. Timed out waiting for the ready "
                                         "bit in the NVMCTRL.")),
              thrown([&] { rig.flash->programChip(0, 64, page.begin(), false, false); }));
    EXPECT_FALSE(rig.chip->inManualWriteMode());
    rig.chip->setStuckBusy(false);
    rig.flash->restoreCfgRegs();
    EXPECT_TRUE(rig.chip->inManualWriteMode());
}

TEST(NvmController, WaitPollsUntilReadyAndSleepsOnlyOnLongLimits) {
    NvmRig rig("devices/CM4U1024.xml");
    rig.chip->setBusyPolls(3, 0);
    rig.flash->eraseRegion(0, 1, InternalFlash::EraseOnly);
    // Config save reads no ready bit; the erase polls 3 times busy, once ready.
    EXPECT_EQ(4u, rig.chip->getCounters().polls);
    rig.chip->resetCounters();

    rig.chip->setStuckBusy(true);
    thrown([&] { rig.flash->waitFlashReady(200); });
    const uint64_t flatOut = rig.chip->getCounters().polls;
    rig.chip->resetCounters();
    thrown([&] { rig.flash->waitFlashReady(220); });
    // 220 ms in steps of 11 ms: about 20 polls, far fewer than a flat-out loop.
    EXPECT_LE(rig.chip->getCounters().polls, 25u);
    EXPECT_GT(flatOut, 100u);
}

TEST(NvmController, RefusesWhatItCannotDo) {
    auto device = DeviceFile::load("devices/CM0N256.xml");
    NvmControllerInformation info(device);
    info.commandRegisterWidth = 3;
    auto chip = boost::make_shared<NvmChip>(device);
    NvmController flash(info, chip, false);
    EXPECT_EQ(
        std::make_pair(unsigned(ERR_UNSUPPORTED_REGISTER),
                       std::string("Unsupported NVM controller register with reg=0 width =3")),
        thrown([&] { flash.eraseRegion(0, 64, InternalFlash::EraseOnly); }));
    EXPECT_TRUE(chip->getViolations().empty());  // no piece of the register was written

    Bytes buffer(4);
    EXPECT_EQ("Not implemented, flash controller does not handle fuses.",
              thrown([&] { flash.programUserPage(0x804000, 4, buffer.begin()); }).second);
    EXPECT_EQ("Not implemented, flash controller does not handle user page.",
              thrown([&] { flash.readUserPage(0x804000, 4, buffer.begin()); }).second);
    Packet fuses;
    for (const std::function<void()>& f : std::vector<std::function<void()>>{
             [&] { flash.eraseFuses(InternalFlash::GeneralPurposeFuses); },
             [&] { flash.readFuses(InternalFlash::GeneralPurposeFuses); },
             [&] { flash.programFuses(InternalFlash::GeneralPurposeFuses, fuses, 0); },
             [&] { flash.modifyFusebit(InternalFlash::GeneralPurposeFuses, 0, true); },
             [&] { flash.readFuseBit(InternalFlash::GeneralPurposeFuses, 0); }})
        EXPECT_EQ("Not implemented, flash controller does not handle fuses.", thrown(f).second);
    EXPECT_EQ("Not implemented", thrown([&] { flash.getSecurityLevel(); }).second);
}

TEST(NvmController, PassThroughOnlyWritesTheBytes) {
    NvmRig rig("devices/CM0N256.xml", true);
    const Bytes page(64, 0x00);
    rig.flash->programChip(0x80, 64, page.begin(), false, true);
    rig.flash->eraseAuxInternal(0x804000, 0x40);
    EXPECT_TRUE(rig.commands().empty());
    EXPECT_EQ(1u, rig.chip->getCounters().writeCalls);
    EXPECT_TRUE(rig.chip->inManualWriteMode());  // nothing saved, nothing switched
}

TEST(NvmAccessors, RouteErasesAndRowsToTheDriver) {
    NvmRig rig("devices/CM0N256.xml");
    NvmAccessor nvm(rig.flash, rig.chip);
    rig.chip->poke(0x300, Bytes(0x100, 0x00));
    nvm.erase(0x100000300ull, 0x100);  // the address is cut to 32 bits
    EXPECT_EQ(Bytes(0x100, 0xFF), rig.chip->peek(0x300, 0x100));
    Bytes got(4);
    nvm.read(0x804000, 4, got.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    EXPECT_EQ(Bytes(4, 0xFF), got);

    NvmAuxAccessor aux(rig.flash, rig.chip);
    const Bytes row = randomBytes(0x40, 1);
    aux.erase(0x804000, 0x40);
    aux.write(0x804000, 0x40, row.begin(), boost::shared_ptr<MemoryError>(), nullptr, true);
    aux.read(0x804000, 4, got.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    EXPECT_EQ(Bytes(row.begin(), row.begin() + 4), got);
    rig.flash->restoreCfgRegs();
    EXPECT_EQ((std::vector<std::pair<unsigned, uint64_t>>{{0x02, 0x300}, {0x05, 0x804000}}),
              rig.commands());
    EXPECT_TRUE(rig.chip->getViolations().empty());
}
