#include "libcommon/image/programsegments.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <stdexcept>

namespace {

typedef std::vector<unsigned char> Bytes;
typedef boost::shared_ptr<IProgramSegment> SegmentPtr;
typedef Tarn8ProgramSegmentWrapper Wrapper;

// A native segment on the flat line, whose space offset is its native
// offset; it notes the last read it was asked for.
struct FakeSegment : IProgramSegment {
    FakeSegment(uint64_t offset, Bytes bytes) : offset(offset), bytes(bytes) {}
    std::string getNativeName() override { return "native"; }
    uint64_t getNativeOffset() const override { return offset; }
    unsigned int getSize() const override { return unsigned(bytes.size()); }
    std::string getAddressSpaceName() override { return "flat"; }
    uint64_t getAddressSpaceOffset() const override { return offset; }
    void readData(Bytes& data, uint64_t from, unsigned int size) override {
        lastRead = std::make_pair(from, size);
        data.assign(bytes.begin() + long(from - offset), bytes.begin() + long(from - offset + size));
    }
    uint64_t offset;
    Bytes bytes;
    std::pair<uint64_t, unsigned> lastRead;
};

SegmentPtr segment(uint64_t offset, size_t size) {
    return boost::make_shared<FakeSegment>(offset, Bytes(size));
}

TEST(ProgramSegmentTest, FlatOffsetsMapToAddressSpaces) {
    const struct {
        uint64_t native;
        const char* space;
        uint64_t offset;
    } cases[] = {{0, "prog", 0},          {0x7FFFFF, "prog", 0x7FFFFF}, {0x800000, "data", 0},
                 {0x81FFFF, "eeprom", 0xFFFF}, {0x820003, "fuses", 3}, {0x830001, "lockbits", 1},
                 {0x840002, "signatures", 2},  {0x85FFFF, "user_signatures", 0xFFFF},
                 {0x860000, "", 0x860000},     {0x100800000ULL, "", 0x100800000ULL}};
    for (const auto& c : cases) {
        Wrapper wrapper(segment(0, 1), c.native, 1);
        EXPECT_EQ(c.space, wrapper.getAddressSpaceName()) << std::hex << c.native;
        EXPECT_EQ(c.offset, wrapper.getAddressSpaceOffset()) << std::hex << c.native;
    }
    Wrapper whole(segment(0x810010, 7));
    EXPECT_EQ(std::make_pair(uint64_t(0x810010), 7u),
              std::make_pair(whole.getNativeOffset(), whole.getSize()));
    EXPECT_EQ("native", whole.getNativeName());
    EXPECT_THROW(Wrapper{SegmentPtr()}, std::invalid_argument);
}

TEST(ProgramSegmentTest, ReadsForwardExceptSignaturesWhichAreReversed) {
    auto eeprom = boost::make_shared<FakeSegment>(0x810000, Bytes({1, 2, 3, 4}));
    Bytes data;
    Wrapper(eeprom, 0x810002, 2).readData(data, 0x810001, 2);
    EXPECT_EQ(Bytes({2, 3}), data);

    auto signature = boost::make_shared<FakeSegment>(0x840000, Bytes({0x1E, 0x95, 0x0F}));
    Wrapper wrapper(signature);
    wrapper.readData(data, 0x840000, 3);
    EXPECT_EQ(Bytes({0x0F, 0x95, 0x1E}), data);
    wrapper.readData(data, 0x840002, 1);  // the position counts in the turned bytes
    EXPECT_EQ(Bytes({0x1E}), data);
    EXPECT_EQ(std::make_pair(uint64_t(0x840000), 3u), signature->lastRead);
    EXPECT_THROW(wrapper.readData(data, 0x840002, 2), std::out_of_range);
    EXPECT_THROW(wrapper.readData(data, 0x83FFFF, 1), std::out_of_range);
}

TEST(ProgramSegmentTest, MappedContentIsAnythingFromData) {
    EXPECT_FALSE(Wrapper::segmentsHaveMappedContent({}));
    EXPECT_FALSE(Wrapper::segmentsHaveMappedContent({segment(0, 0x10), segment(0x7FFFF0, 0x10)}));
    EXPECT_TRUE(Wrapper::segmentsHaveMappedContent({segment(0, 0x10), segment(0x800000, 1)}));
}

typedef std::vector<std::pair<uint64_t, unsigned> > Placements;

Placements wrap(const std::vector<SegmentPtr>& segments) {
    Placements result;
    for (const SegmentPtr& s : Wrapper::wrapSegments(segments)) {
        result.push_back(std::make_pair(s->getNativeOffset(), s->getSize()));
    }
    return result;
}

TEST(ProgramSegmentTest, WrappingLeavesOutFuseByteThree) {
    EXPECT_EQ(Placements({{0x820000, 3}}), wrap({segment(0x820000, 3)}));
    EXPECT_EQ(Placements({{0x820000, 3}}), wrap({segment(0x820000, 4)}));
    EXPECT_EQ(Placements({{0x820000, 3}, {0x820004, 1}}), wrap({segment(0x820000, 5)}));
    EXPECT_EQ(Placements(), wrap({segment(0x820003, 1)}));
    EXPECT_EQ(Placements({{0x820004, 2}}), wrap({segment(0x820003, 3)}));
    EXPECT_EQ(Placements({{0x820004, 1}}), wrap({segment(0x820004, 1)}));
    // Order is kept, and empty segments pass as they are.
    EXPECT_EQ(Placements({{0x10, 4}, {0, 0}, {0x81FFF0, 0x13}, {0x820004, 0x1000C}, {0x840000, 3}}),
              wrap({segment(0x10, 4), segment(0, 0), segment(0x81FFF0, 0x10020),
                    segment(0x840000, 3)}));
}

}  // namespace
