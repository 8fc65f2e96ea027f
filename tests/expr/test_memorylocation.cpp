#include "exprfixture.h"

#include "libcommon/expr/memorylocation.h"
#include "libcommon/memory/memorycontext.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

namespace {

typedef std::vector<unsigned char> Bytes;

class MemoryLocationTest : public ::testing::TestWithParam<ExprFixture::Profile> {
protected:
    MemoryLocationTest() : fx(GetParam()) {}

    Bytes read(const boost::shared_ptr<ILocation>& location) {
        Bytes bytes;
        location->readContent(bytes);
        return bytes;
    }

    // The number a buffer holds in the target's byte order.
    uint64_t number(const Bytes& bytes) const {
        uint64_t n = 0;
        for (size_t i = 0; i < bytes.size(); ++i)
            n |= uint64_t(bytes[i])
                 << (8 * (fx.compilerInfo->bigEndian ? bytes.size() - 1 - i : i));
        return n;
    }

    Bytes numberBytes(uint64_t n, size_t size) const {
        Bytes bytes(size);
        for (size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<unsigned char>(
                n >> (8 * (fx.compilerInfo->bigEndian ? size - 1 - i : i)));
        return bytes;
    }

    MemoryPiece piece(const std::string& memory, uint64_t address, int size) {
        MemoryPiece p;
        p.memoryName = memory;
        p.address = address;
        p.byteSize = size;
        return p;
    }

    ExprFixture fx;
};

std::string profileName(const ::testing::TestParamInfo<ExprFixture::Profile>& info) {
    return info.param == ExprFixture::TARN8 ? "Tarn8" : "Tarn32";
}

}  // namespace

TEST_P(MemoryLocationTest, GlobalReadsAndWritesOnlyItsBytes) {
    boost::shared_ptr<ILocation> counter = fx.locationOf("counter");
    EXPECT_EQ(counter->getLocationAsString(), "0x0100");
    EXPECT_EQ(counter->getAbsoluteAddress(), 0x100u);
    EXPECT_EQ(counter->getByteSize(), fx.intSize);
    EXPECT_EQ(number(read(counter)), 5u);

    const uint64_t behind = 0x100 + static_cast<uint64_t>(fx.intSize);
    const Bytes neighbour = fx.peek("data", behind, 1);
    counter->writeContent(numberBytes(0x1234, static_cast<size_t>(fx.intSize)));
    EXPECT_EQ(fx.peekNumber(0x100, static_cast<size_t>(fx.intSize)), 0x1234u);
    // The neighbours on both sides stay.
    EXPECT_EQ(fx.peek("data", 0xFF, 1), Bytes{0xA5});
    EXPECT_EQ(fx.peek("data", behind, 1), neighbour);

    // A longer buffer writes only the location's bytes.
    Bytes longer = numberBytes(0x77, static_cast<size_t>(fx.intSize));
    longer.push_back(0x11);
    counter->writeContent(longer);
    EXPECT_EQ(fx.peek("data", behind, 1), neighbour);
    EXPECT_EQ(thrownText([&] { counter->writeContent(Bytes{1}); }),
              "Value is smaller than its location");
}

TEST_P(MemoryLocationTest, StackLocalFollowsTheFrame) {
    boost::shared_ptr<ILocation> local = fx.locationOf("local");
    EXPECT_EQ(local->getLocationAsString(), "0x08ec (FP-4)");
    EXPECT_EQ(int64_t(number(read(local)) << (64 - 8 * fx.intSize)) >> (64 - 8 * fx.intSize), -7);
    local->writeContent(numberBytes(99, static_cast<size_t>(fx.intSize)));
    EXPECT_EQ(fx.peekNumber(0x8EC, static_cast<size_t>(fx.intSize)), 99u);

    MemoryPiece above;
    above.memoryName = "data";
    above.offset = 4;
    above.byteSize = 1;
    MemoryLocation up(fx.frame, ILocation::AM_STACK, {above});
    EXPECT_EQ(up.getLocationAsString(), "0x08f4 (FP+4)");
    // The same location in the caller's frame lies at the caller's frame.
    MemoryLocation outer(fx.outerFrame, ILocation::AM_STACK, {above});
    EXPECT_EQ(outer.getAbsoluteAddress(), 0x904u);

    // An offset location is absolute: it leaves the frame behind.
    boost::shared_ptr<ILocation> member = local->createAtOffset(4, 2, 0, 16);
    EXPECT_EQ(member->getLocationAsString(), "0x08f0");
    EXPECT_EQ(member->getAbsoluteAddress(), 0x8F0u);
    EXPECT_EQ(member->getMemoryName(), "data");
    EXPECT_EQ(member->getByteSize(), 2);
    EXPECT_EQ(member->getBitSize(), 16);
}

TEST_P(MemoryLocationTest, RegisterVariableReadsTheFramesView) {
    boost::shared_ptr<ILocation> rv = fx.locationOf("rv");
    EXPECT_EQ(rv->getLocationAsString(), fx.profile == ExprFixture::TARN8 ? "R16" : "R04");
    EXPECT_EQ(read(rv), Bytes{'z'});
    // The frame's value wins over the target's.
    fx.process->registerFile[static_cast<size_t>(fx.regVar)] = 'q';
    EXPECT_EQ(read(rv), Bytes{'z'});
    EXPECT_EQ(read(fx.outerLocationOf("rv")), Bytes{'o'});

    rv->writeContent(Bytes{'w'});
    EXPECT_EQ(fx.frameRegisters[static_cast<size_t>(fx.regVar)], uint64_t('w'));
    EXPECT_EQ(fx.targetRegister(fx.regVar), uint64_t('w'));
}

TEST_P(MemoryLocationTest, RegisterWriteInAnOuterFrameIsRefused) {
    boost::shared_ptr<ILocation> rv = fx.outerLocationOf("rv");
    EXPECT_EQ(thrownText([&] { rv->writeContent(Bytes{'n'}); }),
              "Cannot update registers in a higher CFA");
    EXPECT_EQ(fx.targetRegister(fx.regVar), uint64_t('z'));
    // The frame keeps the value it was given.
    EXPECT_EQ(read(rv), Bytes{'n'});
    EXPECT_EQ(fx.frameRegisters[static_cast<size_t>(fx.regVar)], uint64_t('z'));
}

TEST_P(MemoryLocationTest, RegisterPairPutsTheLowBytesFirst) {
    boost::shared_ptr<ILocation> rp = fx.locationOf("rp");
    const uint64_t above = fx.targetRegister(fx.pairHigh + 1);
    if (fx.profile == ExprFixture::TARN8) {
        EXPECT_EQ(rp->getLocationAsString(), " R25 R24");
        EXPECT_EQ(read(rp), (Bytes{0x34, 0x12}));
        rp->writeContent(Bytes{0xEF, 0xBE});
        EXPECT_EQ(fx.targetRegister(24), 0xEFu);
        EXPECT_EQ(fx.targetRegister(25), 0xBEu);
    } else {
        EXPECT_EQ(rp->getLocationAsString(), " R03 R02");
        EXPECT_EQ(read(rp), (Bytes{0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01}));
        rp->writeContent(Bytes{1, 2, 3, 4, 5, 6, 7, 8});
        EXPECT_EQ(fx.targetRegister(2), 0x04030201u);
        EXPECT_EQ(fx.targetRegister(3), 0x08070605u);
    }
    // Neighbouring registers are untouched.
    EXPECT_EQ(fx.targetRegister(fx.pairHigh + 1), above);
    EXPECT_EQ(thrownText([&] { rp->writeContent(Bytes{1}); }), "Invalid Register memory size");
}

TEST_P(MemoryLocationTest, RegisterIndirectAddsToTheBase) {
    boost::shared_ptr<ILocation> ind = fx.locationOf("ind");
    EXPECT_EQ(ind->getAbsoluteAddress(), 0x8F2u);
    EXPECT_EQ(ind->getByteSize(), fx.intSize);  // the first piece's size, not the sum
    EXPECT_EQ(number(read(ind)), 1234u);
    ind->writeContent(numberBytes(4321, static_cast<size_t>(fx.intSize)));
    EXPECT_EQ(fx.peekNumber(0x8F2, static_cast<size_t>(fx.intSize)), 4321u);
    if (fx.profile == ExprFixture::TARN8)
        EXPECT_EQ(ind->getLocationAsString(), "0x08f2 ([R28]+2)");
    else
        EXPECT_EQ(ind->getLocationAsString(), "0x08f2 ([R7]+2)");

    MemoryPiece below;
    below.memoryName = "data";
    below.registerId = 7;
    below.offset = -2;
    below.byteSize = 1;
    MemoryLocation negative(fx.frame, ILocation::AM_REGISTER_INDIRECT, {below});
    fx.frameRegisters[7] = 0x200;
    EXPECT_EQ(negative.getLocationAsString(), "0x01fe ([R7]-2)");
}

TEST(MemoryLocationPair, ANarrowStackPointerTakesOnlyRegister28) {
    ExprFixture fx(ExprFixture::TARN8);
    fx.process->registers.push_back(
        boost::make_shared<TestRegister>(fx.process, "SP", 1, "", 40, fx.process->registerFile, 0));
    EXPECT_EQ(fx.locationOf("ind")->getAbsoluteAddress(), 0xF2u);
}

TEST_P(MemoryLocationTest, ProcessRegisterGoesToTheTarget) {
    boost::shared_ptr<ILocation> r5 = createRegisterLocation(fx.frame, 5, 1);
    EXPECT_EQ(r5->getLocationAsString(), "R5");
    EXPECT_EQ(r5->getAbsoluteAddress(), 5u);
    fx.process->registerFile[5] = 0x5A;
    EXPECT_EQ(read(r5), Bytes{0x5A});
    r5->writeContent(Bytes{0x66});
    EXPECT_EQ(fx.targetRegister(5), 0x66u);
    // The frame's cache is not this location's business.
    EXPECT_EQ(fx.frameRegisters[5], 0u);

    boost::shared_ptr<ILocation> outside = createRegisterLocation(fx.frame, 500, 1);
    EXPECT_EQ(outside->getLocationAsString(), "unk");
    EXPECT_EQ(thrownText([&] { read(outside); }), "Register index out of bounds");
    EXPECT_EQ(thrownText([&] { outside->writeContent(Bytes{1}); }), "Register index out of bounds");
}

TEST_P(MemoryLocationTest, OptimizedAwayHasNoPlace) {
    boost::shared_ptr<ILocation> gone = fx.locationOf("gone");
    EXPECT_EQ(gone->getByteSize(), 0);
    EXPECT_EQ(gone->getLocationAsString(), "Optimized away");
    EXPECT_EQ(gone->getMemoryName(), "");
    EXPECT_EQ(thrownText([&] { read(gone); }), "Optimized away");
    gone->writeContent(Bytes{1, 2});  // ignored
}

TEST_P(MemoryLocationTest, OtherModesFailReadsAndIgnoreWrites) {
    for (ILocation::AddressingMode mode : {ILocation::AM_NONE, ILocation::AM_UNSUPPORTED4}) {
        MemoryLocation location(fx.frame, mode, {piece("data", 0x100, 2)});
        EXPECT_EQ(thrownText([&] {
                      Bytes bytes;
                      location.readContent(bytes);
                  }),
                  "unsupported addressing mode");
        location.writeContent(Bytes{1, 2});
    }
    MemoryLocation unknown(fx.frame, ILocation::AM_UNKNOWN, {piece("data", 0x100, 2)});
    EXPECT_EQ(unknown.getLocationAsString(), "Unknown addressing mode");
    EXPECT_EQ(thrownText([&] {
                  Bytes bytes;
                  unknown.readContent(bytes);
              }),
              "unknown addressing mode");
    EXPECT_EQ(fx.peekNumber(0x100, static_cast<size_t>(fx.intSize)), 5u);
}

TEST_P(MemoryLocationTest, MissingMemoryAndRegistersFailClearly) {
    MemoryLocation eeprom(fx.frame, ILocation::AM_GLOBAL, {piece("fuses_nowhere", 0, 1)});
    EXPECT_EQ(thrownText([&] { read(boost::make_shared<MemoryLocation>(eeprom)); }),
              "Could not fetch memory for global variable");
    EXPECT_EQ(thrownText([&] { eeprom.writeContent(Bytes{1}); }),
              "Could not fetch memory for writing to a global variable");

    MemoryPiece reg;
    reg.registerId = 99;
    reg.byteSize = 1;
    MemoryLocation missing(fx.frame, ILocation::AM_REGISTER, {reg});
    EXPECT_EQ(thrownText([&] {
                  Bytes bytes;
                  missing.readContent(bytes);
              }),
              "Did not find register 99 in the register file");

    EXPECT_EQ(thrownText([&] { MemoryLocation(fx.frame, ILocation::AM_GLOBAL, {}); }),
              "Missing memory information in MemoryLocation constructor");
}

TEST(MemoryLocationFailures, AFailedTransferIsAnError) {
    ExprFixture fx(ExprFixture::TARN32);
    fx.dataRam->failAt(0x101, RecordingMemory::KIND_ANY, RecordingMemory::FAIL_MARK);
    boost::shared_ptr<ILocation> counter = fx.locationOf("counter");
    EXPECT_EQ(thrownText([&] {
                  std::vector<unsigned char> bytes;
                  counter->readContent(bytes);
              }),
              "Could not read memory content for global variable");
    EXPECT_EQ(thrownText([&] {
                  counter->writeContent({1, 2, 3, 4});
              }),
              "Could not write to memory while writing to a global variable");

    fx.dataRam->failAt(0x8ED, RecordingMemory::KIND_ANY, RecordingMemory::FAIL_MARK);
    boost::shared_ptr<ILocation> local = fx.locationOf("local");
    EXPECT_EQ(thrownText([&] {
                  std::vector<unsigned char> bytes;
                  local->readContent(bytes);
              }),
              "Could not read memory content for stack variable");
    EXPECT_EQ(thrownText([&] {
                  local->writeContent({1, 2, 3, 4});
              }),
              "Could not write to memory while writing to a stack variable");
}

TEST(MemoryLocationSpaces, DataFallsBackToBase) {
    ExprFixture fx(ExprFixture::TARN32);
    boost::shared_ptr<IMemoryContext> data = fx.process->memories["data"];
    fx.process->memories.erase("data");
    fx.process->memories["base"] = data;
    boost::shared_ptr<ILocation> counter = fx.locationOf("counter");
    EXPECT_EQ(counter->getMemoryName(), "base");
    std::vector<unsigned char> bytes;
    counter->readContent(bytes);
    EXPECT_EQ(bytes, (std::vector<unsigned char>{5, 0, 0, 0}));
    EXPECT_EQ(createAbsoluteLocation(fx.frame, "data", 0x12345, 1, 0, 8)->getLocationAsString(),
              "0x12345");
}

TEST(MemoryLocationSpaces, BigEndianTargetsKeepTheirByteOrderInMemory) {
    ExprFixture fx(ExprFixture::TARN32, true);
    std::vector<unsigned char> bytes;
    fx.locationOf("counter")->readContent(bytes);
    EXPECT_EQ(bytes, (std::vector<unsigned char>{0, 0, 0, 5}));
}

INSTANTIATE_TEST_SUITE_P(Profiles, MemoryLocationTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);
