#include "libcommon/core/status.h"
#include "tests/memory/corefailure.h"
#include "libcommon/memory/targetaccessors.h"
#include "sim/tarn8chip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

using ::testing::_;
using ::testing::Return;

namespace {

class MockTarn8Target : public ITarn8Target {
public:
    MOCK_METHOD(TransferLimits, getMemoryTransferLimits, (), (override));
    MOCK_METHOD(void, eraseMemoryPage, (int eraseKind, unsigned int address), (override));
    MOCK_METHOD(void, eraseFlashPage, (unsigned int address), (override));
    MOCK_METHOD(void, readMemory,
                (MemoryType type, unsigned int address, unsigned int size,
                 std::vector<unsigned char>::iterator data),
                (override));
    MOCK_METHOD(void, writeMemory,
                (MemoryType type, unsigned int address, unsigned int size,
                 std::vector<unsigned char>::const_iterator data),
                (override));
};

class MockTarn32Target : public ITarn32Target {
public:
    MOCK_METHOD(void, readMemory,
                (MemoryType type, int flags, uint64_t address, unsigned int size,
                 std::vector<unsigned char>::iterator data),
                (override));
    MOCK_METHOD(void, writeMemory,
                (MemoryType type, int flags, uint64_t address, unsigned int size,
                 std::vector<unsigned char>::const_iterator data),
                (override));
};

ITarn8Target::MemoryType t8(int value) { return static_cast<ITarn8Target::MemoryType>(value); }

// Runs f and returns the CoreException's code and text.
}  // namespace

TEST(SimpleTarn8MemoryAccessor, ReadsAndWritesWithTheirOwnTypesAndTruncatedAddress) {
    auto target = boost::make_shared<MockTarn8Target>();
    SimpleTarn8MemoryAccessor accessor(target, ITarn8Target::MemTypeFlashDebug,
                                       ITarn8Target::MemTypeFlash, false);
    std::vector<unsigned char> buffer(8, 0);

    EXPECT_CALL(*target, readMemory(ITarn8Target::MemTypeFlashDebug, 0x1234u, 8u, _))
        .WillOnce([](ITarn8Target::MemoryType, unsigned int, unsigned int size,
                     std::vector<unsigned char>::iterator data) {
            for (unsigned int i = 0; i < size; ++i)
                data[i] = static_cast<unsigned char>(i + 1);
        });
    // Only the low 32 bits of the address reach the target.
    accessor.read(0x100001234ull, 8, buffer.begin(), boost::make_shared<MemoryError>(), nullptr);
    EXPECT_EQ(buffer, (std::vector<unsigned char>{1, 2, 3, 4, 5, 6, 7, 8}));

    EXPECT_CALL(*target, writeMemory(ITarn8Target::MemTypeFlash, 0x40u, 4u, _))
        .WillOnce([&buffer](ITarn8Target::MemoryType, unsigned int, unsigned int,
                            std::vector<unsigned char>::const_iterator data) {
            EXPECT_EQ(data, std::vector<unsigned char>::const_iterator(buffer.begin() + 2));
        });
    accessor.write(0x40, 4, buffer.begin() + 2, boost::shared_ptr<MemoryError>(), nullptr, true);
}

TEST(SimpleTarn8MemoryAccessor, TargetFailuresPassThroughWithoutMarks) {
    auto target = boost::make_shared<MockTarn8Target>();
    SimpleTarn8MemoryAccessor accessor(target, ITarn8Target::MemTypeSram,
                                       ITarn8Target::MemTypeSram, false);
    std::vector<unsigned char> buffer(4);
    auto error = boost::make_shared<MemoryError>();
    EXPECT_CALL(*target, readMemory(_, _, _, _)).WillOnce([](auto...) {
        throw std::runtime_error("link lost");
    });
    EXPECT_THROW(accessor.read(0, 4, buffer.begin(), error, nullptr), std::runtime_error);
    EXPECT_TRUE(error->isOk());
}

TEST(SimpleTarn8MemoryAccessor, PageEraseRoutesByWriteType) {
    const std::vector<std::pair<int, int>> routes = {{9, 4}, {10, 5}, {7, 6}, {14, 7}};
    for (const auto& route : routes) {
        auto target = boost::make_shared<MockTarn8Target>();
        SimpleTarn8MemoryAccessor accessor(target, t8(route.first), t8(route.first), true);
        EXPECT_CALL(*target, eraseMemoryPage(route.second, 0x200u));
        EXPECT_CALL(*target, eraseFlashPage(_)).Times(0);
        accessor.erase(0x200, 12345);  // the size plays no part
    }
}

TEST(SimpleTarn8MemoryAccessor, PageEraseOfAnotherTypeIsRefused) {
    for (int type : {0, 6, 8, 13, 15}) {
        auto target = boost::make_shared<MockTarn8Target>();
        SimpleTarn8MemoryAccessor accessor(target, t8(type), t8(type), true);
        EXPECT_CALL(*target, eraseMemoryPage(_, _)).Times(0);
        auto failure = coreFailure([&] { accessor.erase(0, 1); });
        EXPECT_EQ(failure.first, ERR_NOT_SUPPORTED);
        EXPECT_EQ(failure.second, "Invalid memorytype " + std::to_string(type) +
                                      " in SimpleTarn8MemoryAccessor::erasePage");
    }
}

TEST(SimpleTarn8MemoryAccessor, PlainEraseReachesOnlyProgramMemory) {
    for (int type : {0, 8}) {
        auto target = boost::make_shared<MockTarn8Target>();
        SimpleTarn8MemoryAccessor accessor(target, t8(8), t8(type), false);
        EXPECT_CALL(*target, eraseFlashPage(0x80u));
        accessor.erase(0x80, 0);
    }
    for (int type : {1, 6, 7, 9, 14}) {
        auto target = boost::make_shared<MockTarn8Target>();
        SimpleTarn8MemoryAccessor accessor(target, t8(type), t8(type), false);
        EXPECT_CALL(*target, eraseFlashPage(_)).Times(0);
        EXPECT_CALL(*target, eraseMemoryPage(_, _)).Times(0);
        EXPECT_NO_THROW(accessor.erase(0x80, 0x80));
    }
}

TEST(SimpleTarn8MemoryAccessor, RefusesAMissingTarget) {
    EXPECT_THROW(SimpleTarn8MemoryAccessor(boost::shared_ptr<ITarn8Target>(), t8(0), t8(0), false),
                 CoreException);
}

TEST(SimpleTarn32MemoryAccessor, PassesTypeWithFlagsZeroAndCannotErase) {
    auto target = boost::make_shared<MockTarn32Target>();
    const auto readType = static_cast<ITarn32Target::MemoryType>(0x21);
    const auto writeType = static_cast<ITarn32Target::MemoryType>(0x42);
    SimpleTarn32MemoryAccessor accessor(target, readType, writeType);
    std::vector<unsigned char> buffer(16);

    EXPECT_CALL(*target, readMemory(readType, 0, 0x1'2000'0000ull, 16u, _));
    EXPECT_CALL(*target, writeMemory(writeType, 0, 0x2000'0000ull, 8u, _));
    accessor.read(0x1'2000'0000ull, 16, buffer.begin(), boost::make_shared<MemoryError>(), nullptr);
    accessor.write(0x2000'0000ull, 8, buffer.begin(), boost::make_shared<MemoryError>(), nullptr,
                   false);

    auto failure = coreFailure([&] { accessor.erase(0, 0x100); });
    EXPECT_EQ(failure.first, ERR_NOT_SUPPORTED);
    EXPECT_EQ(failure.second, "Cannot erase memory page with memoryType 66");
}

TEST(CrcReference, FollowsTheControllerShiftRegister) {
    const std::vector<unsigned char> none;
    EXPECT_EQ(SimpleTarn8MemoryAccessor::CRC_Reference(none.begin(), 0, 0), 0u);

    const std::vector<unsigned char> words = {0x01, 0x00, 0x02, 0x00};
    EXPECT_EQ(SimpleTarn8MemoryAccessor::CRC_Reference(words.begin(), 0, 2), 1u);
    // 1 shifted is 2, xored with the second word 2.
    EXPECT_EQ(SimpleTarn8MemoryAccessor::CRC_Reference(words.begin(), 0, 4), 0u);
    // start and end count from the iterator.
    EXPECT_EQ(SimpleTarn8MemoryAccessor::CRC_Reference(words.begin(), 2, 4), 2u);

    // 0x8000 shifted eight times reaches bit 23; the next word feeds back.
    std::vector<unsigned char> feedback = {0x00, 0x80};
    feedback.resize(2 + 8 * 2, 0);
    EXPECT_EQ(SimpleTarn8MemoryAccessor::CRC_Reference(feedback.begin(), 0, 18), 0x800000u);
    feedback.resize(20, 0);
    EXPECT_EQ(SimpleTarn8MemoryAccessor::CRC_Reference(feedback.begin(), 0, 20), 0x80001Bu);
}

TEST(MaskPacketCreator, ClearsOneBitPerMaskedAddressInRange) {
    auto details = boost::make_shared<MaskedIODetails>();
    MaskPacketCreator creator(details);
    Packet mask;

    EXPECT_FALSE(creator.createReadMask(0x20, 9, mask));
    EXPECT_EQ(mask, (Packet{0xFF, 0xFF}));

    details->readMaskedAddresses = {0x1F, 0x21, 0x28, 0x29};  // 0x1F and 0x29 lie outside
    details->writeMaskedAddresses = {0x20};
    EXPECT_TRUE(creator.createReadMask(0x20, 9, mask));
    EXPECT_EQ(mask, (Packet{0xFD, 0xFE}));
    EXPECT_TRUE(creator.createWriteMask(0x20, 9, mask));
    EXPECT_EQ(mask, (Packet{0xFE, 0xFF}));

    // The mask replaces what the packet held.
    mask.assign(5, 0);
    EXPECT_FALSE(creator.createWriteMask(0x100, 16, mask));
    EXPECT_EQ(mask, (Packet{0xFF, 0xFF}));

    MaskPacketCreator none{boost::shared_ptr<MaskedIODetails>()};
    EXPECT_FALSE(none.createReadMask(0, 0, mask));
    EXPECT_TRUE(mask.empty());
}

// ---------------------------------------------------------------------------
// The simulated chip as the target behind the accessors.

namespace {

typedef std::vector<unsigned char> Bytes;

Bytes readVia(IMemoryAccessor& accessor, uint64_t address, unsigned int size) {
    Bytes bytes(size, 0);
    accessor.read(address, size, bytes.begin(), boost::make_shared<MemoryError>(), nullptr);
    return bytes;
}

void writeVia(IMemoryAccessor& accessor, uint64_t address, const Bytes& bytes) {
    accessor.write(address, static_cast<unsigned int>(bytes.size()), bytes.begin(),
                   boost::make_shared<MemoryError>(), nullptr, false);
}

}  // namespace

TEST(Tarn8Chip, FlashProgrammingOnlyClearsBitsUntilThePageIsErased) {
    auto chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
    SimpleTarn8MemoryAccessor app(chip, ITarn8Target::MemTypeApplication,
                                  ITarn8Target::MemTypeApplication, true);
    writeVia(app, 0x100, {0x0F, 0x3C});
    writeVia(app, 0x100, {0xF0, 0xFF});
    EXPECT_EQ(readVia(app, 0x100, 2), (Bytes{0x00, 0x3C}));

    app.erase(0x1FF, 1);  // any address of the page
    EXPECT_EQ(chip->peek("prog", 0x100, 0x100), Bytes(0x100, 0xFF));
    EXPECT_EQ(chip->getCounters().eraseCalls, 1u);
    EXPECT_EQ(chip->getCounters().bytesErased, 0x100u);

    // One write is one page buffer: it cannot cross a page boundary.
    auto crossing = coreFailure([&] { writeVia(app, 0x1FF, {0, 0}); });
    EXPECT_EQ(crossing.first, ERR_OPERATION_FAILED);
    EXPECT_EQ(chip->peek("prog", 0x1FF, 2), Bytes(2, 0xFF));
}

TEST(Tarn8Chip, RefusesWhatTheRealPartRefuses) {
    auto chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
    chip->setTransferLimits(64, 32);
    Bytes buffer(0x100);
    // Paged memories take pagedMax, the data space plainMax.
    EXPECT_NO_THROW(chip->readMemory(ITarn8Target::MemTypeApplication, 0, 64, buffer.begin()));
    EXPECT_THROW(chip->readMemory(ITarn8Target::MemTypeApplication, 0, 65, buffer.begin()),
                 CoreException);
    EXPECT_THROW(chip->readMemory(ITarn8Target::MemTypeSram, 0x100, 33, buffer.begin()),
                 CoreException);
    // Outside any memory, or a type the chip does not have.
    EXPECT_EQ(coreFailure([&] {
                  chip->readMemory(ITarn8Target::MemTypeEeprom, 0x7FF, 2, buffer.begin());
              }).first,
              ERR_ADDRESS_RANGE);
    EXPECT_EQ(coreFailure([&] {
                  chip->readMemory(static_cast<ITarn8Target::MemoryType>(11), 0, 1,
                                   buffer.begin());
              }).first,
              ERR_NOT_SUPPORTED);
    // Signature rows are read-only and start with the device's signature.
    chip->readMemory(ITarn8Target::MemTypeSignature, 0, 3, buffer.begin());
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 3), (Bytes{0x5A, 0x96, 0x4E}));
    EXPECT_EQ(coreFailure([&] {
                  chip->writeMemory(ITarn8Target::MemTypeSignature, 0, 1, buffer.begin());
              }).first,
              ERR_ACCESS_REFUSED);
    EXPECT_THROW(chip->eraseMemoryPage(3, 0), CoreException);
    EXPECT_EQ(chip->getCounters().writeCalls, 0u);

    EXPECT_EQ(coreFailure([] { Tarn8Chip::fromDeviceFile("devices/TP32A512.xml"); }).first,
              ERR_NOT_SUPPORTED);
    EXPECT_THROW(Tarn8Chip::fromDeviceFile("devices/none.xml"), CoreException);
}

TEST(Tarn8Chip, EepromAndBootSectionBehaveLikeTheirMemories) {
    auto chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
    SimpleTarn8MemoryAccessor eeprom(chip, ITarn8Target::MemTypeEeprom,
                                     ITarn8Target::MemTypeEeprom, true);
    writeVia(eeprom, 0x21, {0x00});
    writeVia(eeprom, 0x21, {0xA5});  // eeprom writes erase by themselves
    EXPECT_EQ(readVia(eeprom, 0x21, 1), Bytes{0xA5});
    eeprom.erase(0x3F, 1);
    EXPECT_EQ(chip->peek("eeprom", 0x20, 0x20), Bytes(0x20, 0xFF));

    // The boot type counts from the start of the boot section.
    SimpleTarn8MemoryAccessor boot(chip, ITarn8Target::MemTypeBoot, ITarn8Target::MemTypeBoot,
                                   true);
    writeVia(boot, 0x10, {0x12, 0x34});
    EXPECT_EQ(chip->peek("prog", 0xF010, 2), (Bytes{0x12, 0x34}));
    boot.erase(0, 1);
    EXPECT_EQ(chip->peek("prog", 0xF010, 2), Bytes(2, 0xFF));
    EXPECT_THROW(readVia(boot, 0xFFF, 2), CoreException);  // beyond the section
}

TEST(Tarn8Chip, StartsFromFactoryDefaultsAndMapsFlashIntoSprigDataSpace) {
    auto classic = Tarn8Chip::fromDeviceFile("devices/TN8C328.xml");
    EXPECT_EQ(classic->peek("fuses", 0, 3), (Bytes{0x62, 0xD9, 0xFF}));
    EXPECT_EQ(classic->peek("osccal", 0, 1), Bytes{0x9C});
    EXPECT_EQ(classic->peek("prog", 0, 4), Bytes(4, 0xFF));

    auto sprig = Tarn8Chip::fromDeviceFile("devices/TN8X16.xml");
    sprig->poke("prog", 0x40, {0xDE, 0xAD});
    SimpleTarn8MemoryAccessor data(sprig, ITarn8Target::MemTypeSram, ITarn8Target::MemTypeSram,
                                   false);
    EXPECT_EQ(readVia(data, 0x8040, 2), (Bytes{0xDE, 0xAD}));
    // Fuses are data-space bytes of their own type as well.
    SimpleTarn8MemoryAccessor fuses(sprig, ITarn8Target::MemTypeFuses,
                                    ITarn8Target::MemTypeFuses, false);
    writeVia(fuses, 0x1281, {0x42});
    EXPECT_EQ(sprig->peek("fuses", 1, 1), Bytes{0x42});
    EXPECT_EQ(readVia(data, 0x1281, 1), Bytes{0x42});

    sprig->resetCounters();
    EXPECT_EQ(sprig->getCounters().readCalls, 0u);
    EXPECT_THROW(sprig->peek("fuses", 0, 0x100), CoreException);
    EXPECT_THROW(sprig->poke("nothing", 0, {1}), CoreException);
}
