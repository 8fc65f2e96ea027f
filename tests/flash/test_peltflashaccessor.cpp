// The Pelt flash accessor: the fuse window, the write modes and the
// after-write callback, and a whole image through the accessor stack.

#include "test_peltfixture.h"

#include "libcommon/flash/peltflashaccessor.h"

namespace {

// Records what the accessor asks of the driver, then lets it act.
class SpyFlash : public PeltInternalFlash {
public:
    using PeltInternalFlash::PeltInternalFlash;
    Packet readFuses(FuseType type) override {
        ++fuseReads;
        Packet fuses = PeltInternalFlash::readFuses(type);
        fuses.resize(fuses.size() - shortenFuses);
        return fuses;
    }
    void programFuses(FuseType type, Packet& values, int index) const override {
        programmed.push_back(values);
        indexes.push_back(index);
        PeltInternalFlash::programFuses(type, values, index);
    }
    void programChip(uint64_t address, unsigned size,
                     std::vector<unsigned char>::const_iterator data, bool ignoreLockError,
                     bool eraseFirst) const override {
        eraseFirsts.push_back(eraseFirst);
        PeltInternalFlash::programChip(address, size, data, ignoreLockError, eraseFirst);
    }

    int fuseReads = 0;
    size_t shortenFuses = 0;
    mutable std::vector<Packet> programmed;
    mutable std::vector<int> indexes;
    mutable std::vector<bool> eraseFirsts;
};

class AccessorTest : public PeltFixture {
protected:
    using Accessor = PeltInternalFlashMemoryAccessor;

    AccessorTest() : spy(boost::make_shared<SpyFlash>(chip->getDevice(), bus)) {}

    boost::shared_ptr<Accessor> make(Accessor::WriteMode mode) {
        return boost::make_shared<Accessor>(spy, bus, mode, [this] { ++afterWrites; });
    }
    void write(Accessor& accessor, uint64_t address, const std::vector<unsigned char>& bytes,
               bool erased = false) {
        accessor.write(address, static_cast<unsigned>(bytes.size()), bytes.begin(),
                       boost::shared_ptr<MemoryError>(), nullptr, erased);
    }
    std::vector<unsigned char> read(Accessor& accessor, uint64_t address, unsigned size) {
        std::vector<unsigned char> bytes(size);
        accessor.read(address, size, bytes.begin(), boost::shared_ptr<MemoryError>(), nullptr);
        return bytes;
    }

    boost::shared_ptr<SpyFlash> spy;
    int afterWrites = 0;
    const uint64_t FUSES = 0xFFFE1418;
};

TEST_F(AccessorTest, RandomImageWithUnalignedEndsThroughTheStack) {
    const std::vector<unsigned char> before = randomBytes(0x80000, 11);
    chip->pokeFlash(0, before);
    const std::vector<unsigned char> image = randomBytes(200 * 1024, 12);
    const uint32_t offset = 0x10000 + 123;  // ends 123 + 200 KiB into the flash: mid-page too
    chip->setBusyPolls(2);
    auto accessor = make(Accessor::WriteModeEraseFirst);
    write(*accessor, FLASH + offset, image);

    EXPECT_EQ(read(*accessor, FLASH + offset, static_cast<unsigned>(image.size())), image);
    std::vector<unsigned char> expected = before;
    std::copy(image.begin(), image.end(), expected.begin() + offset);
    EXPECT_EQ(chip->getFlash(), expected);  // neighbours of both partial pages kept
    EXPECT_EQ(afterWrites, 1);
    EXPECT_EQ(spy->eraseFirsts, std::vector<bool>{true});
}

TEST_F(AccessorTest, FuseWordRoundTripsThroughTheWindow) {
    auto accessor = make(Accessor::WriteModeEraseFirst);
    write(*accessor, FUSES, {0x78, 0x56, 0x34, 0x12});
    EXPECT_EQ(spy->fuseReads, 0);  // the whole window needs no read first
    EXPECT_EQ(spy->indexes, std::vector<int>{0});
    EXPECT_EQ(chip->getFuseLo(), 0x12345678u);
    EXPECT_EQ(chip->getFuseHi(), 0xFFFFFFFFu);
    EXPECT_EQ(read(*accessor, FUSES, 4), (std::vector<unsigned char>{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(read(*accessor, FUSES + 3, 1), std::vector<unsigned char>{0x12});
    EXPECT_EQ(afterWrites, 0);  // fuse writes are not flash writes
}

TEST_F(AccessorTest, PartialFuseWriteReadsTheOthersAndCountsTheIndexInBits) {
    chip->setFuses(0x44332211, 0xFFFFFFFF);
    auto accessor = make(Accessor::WriteModeEraseFirst);
    write(*accessor, FUSES + 2, {0xAA, 0xBB});
    EXPECT_EQ(spy->fuseReads, 1);
    ASSERT_EQ(spy->indexes, std::vector<int>{16});
    // The four fuse bytes with the new two at offset 2.
    EXPECT_EQ(spy->programmed[0], (Packet{0x11, 0x22, 0xAA, 0xBB}));
    // Fuse 16 on gets the whole packet: the low bytes land in fuses 16 to
    // 31, the written ones in FGPFRHI.
    EXPECT_EQ(chip->getFuseLo(), 0x22112211u);
    EXPECT_EQ(chip->getFuseHi(), 0xFFFFBBAAu);
}

TEST_F(AccessorTest, FuseAccessesMustStayInTheWindow) {
    auto accessor = make(Accessor::WriteModeEraseFirst);
    auto failure = [](auto f) {
        try {
            f();
        } catch (const CoreException& e) {
            EXPECT_EQ(e.getStatus()->getErrorCode(), ERR_OPERATION_FAILED);
            return e.getStatus()->getMessage();
        }
        return std::string("no CoreException");
    };
    EXPECT_EQ(failure([&] { read(*accessor, FUSES + 3, 2); }), "Fuse read access out of bounds.");
    EXPECT_EQ(failure([&] {
                  write(*accessor, FUSES + 1, {1, 2, 3, 4});
              }),
              "Fuse write access out of bounds.");
    EXPECT_TRUE(spy->programmed.empty());

    // A read just below the window is a plain read of the bus: FGPFRHI.
    EXPECT_EQ(read(*accessor, FUSES - 4, 4), std::vector<unsigned char>(4, 0xFF));

    spy->shortenFuses = 1;
    try {
        read(*accessor, FUSES, 1);
        FAIL() << "no exception";
    } catch (const char* text) {
        EXPECT_STREQ(text, "Inconsistent fuse description");
    }
}

TEST_F(AccessorTest, WriteModesAndErase) {
    const std::vector<unsigned char> data(8, 0x5A);
    auto noErase = make(Accessor::WriteModeNoErase);
    auto eraseFirst = make(Accessor::WriteModeEraseFirst);
    write(*noErase, FLASH, data);
    write(*eraseFirst, FLASH + PAGE, data, true);  // already erased: no erase asked
    write(*eraseFirst, FLASH + 2 * PAGE, data);
    EXPECT_EQ(spy->eraseFirsts, (std::vector<bool>{false, false, true}));
    EXPECT_EQ(afterWrites, 3);

    chip->setLockBits(0x0001);
    chip->clearCommandLog();
    eraseFirst->erase(FLASH + 8, 1);  // unlocks, then erases
    EXPECT_EQ(pagesOf(PeltChip::CMD_UR), std::vector<unsigned>{0});
    EXPECT_EQ(pagesOf(PeltChip::CMD_EP), std::vector<unsigned>{0});
    EXPECT_EQ(chip->peekFlash(0, 1)[0], 0xFF);

    // Without a callback nothing is called.
    PeltInternalFlashMemoryAccessor plain(spy, bus, Accessor::WriteModeEraseFirst,
                                          boost::function<void()>());
    write(plain, FLASH, data);
    EXPECT_EQ(afterWrites, 3);

    chip->setLockBits(0x0001);
    EXPECT_THROW(write(plain, FLASH, data), LockedFlashError);
}

}  // namespace
