#include "libcommon/image/programsegments.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

typedef std::vector<unsigned char> Bytes;
typedef boost::shared_ptr<IProgramSegment> SegmentPtr;

// A native segment whose space offset is its native offset; it records
// the last read it was asked for.
class FakeSegment : public IProgramSegment {
public:
    FakeSegment(uint64_t offset, Bytes bytes) : offset(offset), bytes(bytes) {}

    std::string getNativeName() override { return "native"; }
    uint64_t getNativeOffset() const override { return offset; }
    unsigned int getSize() const override { return static_cast<unsigned int>(bytes.size()); }
    std::string getAddressSpaceName() override { return "flat"; }
    uint64_t getAddressSpaceOffset() const override { return offset; }
    void readData(Bytes& data, uint64_t from, unsigned int size) override {
        lastOffset = from;
        lastSize = size;
        data.assign(bytes.begin() + static_cast<std::ptrdiff_t>(from - offset),
                    bytes.begin() + static_cast<std::ptrdiff_t>(from - offset + size));
    }

    uint64_t offset;
    Bytes bytes;
    uint64_t lastOffset = 0;
    unsigned int lastSize = 0;
};

SegmentPtr segment(uint64_t offset, size_t size) {
    return boost::make_shared<FakeSegment>(offset, Bytes(size, 0));
}

struct Placement {
    std::string space;
    uint64_t offset;
};

Placement place(uint64_t nativeOffset) {
    Tarn8ProgramSegmentWrapper wrapper(segment(0, 1), nativeOffset, 1);
    return {wrapper.getAddressSpaceName(), wrapper.getAddressSpaceOffset()};
}

TEST(ProgramSegmentTest, FlatOffsetsMapToAddressSpaces) {
    const struct {
        uint64_t native;
        const char* space;
        uint64_t offset;
    } cases[] = {
        {0, "prog", 0},
        {0x7FFFFF, "prog", 0x7FFFFF},
        {0x800000, "data", 0},
        {0x81FFFF, "eeprom", 0xFFFF},
        {0x820003, "fuses", 3},
        {0x830001, "lockbits", 1},
        {0x840002, "signatures", 2},
        {0x85FFFF, "user_signatures", 0xFFFF},
        {0x860000, "", 0x860000},
        {0x100000000ULL, "", 0x100000000ULL},
        {0xFFFFFFFFFFFFFFFFULL, "", 0xFFFFFFFFFFFFFFFFULL},
    };
    for (const auto& c : cases) {
        const Placement p = place(c.native);
        EXPECT_EQ(c.space, p.space) << std::hex << c.native;
        EXPECT_EQ(c.offset, p.offset) << std::hex << c.native;
    }

    // The plain constructor takes place and size from the segment; the
    // name always comes from it.
    Tarn8ProgramSegmentWrapper whole(segment(0x810010, 7));
    EXPECT_EQ(0x810010u, whole.getNativeOffset());
    EXPECT_EQ(7u, whole.getSize());
    EXPECT_EQ("eeprom", whole.getAddressSpaceName());
    EXPECT_EQ("native", whole.getNativeName());
    EXPECT_THROW(Tarn8ProgramSegmentWrapper{SegmentPtr()}, std::invalid_argument);
}

TEST(ProgramSegmentTest, ReadsForwardExceptSignaturesWhichAreReversed) {
    auto eeprom = boost::make_shared<FakeSegment>(0x810000, Bytes({1, 2, 3, 4}));
    Tarn8ProgramSegmentWrapper part(eeprom, 0x810002, 2);
    Bytes data;
    part.readData(data, 0x810001, 2);
    EXPECT_EQ(Bytes({2, 3}), data);
    EXPECT_EQ(0x810001u, eeprom->lastOffset);

    auto signature = boost::make_shared<FakeSegment>(0x840000, Bytes({0x1E, 0x95, 0x0F}));
    Tarn8ProgramSegmentWrapper wrapper(signature);
    wrapper.readData(data, 0x840000, 3);
    EXPECT_EQ(Bytes({0x0F, 0x95, 0x1E}), data);
    wrapper.readData(data, 0x840002, 1);
    EXPECT_EQ(Bytes({0x1E}), data);
    // The whole native segment is read, whatever part was asked for.
    EXPECT_EQ(0x840000u, signature->lastOffset);
    EXPECT_EQ(3u, signature->lastSize);

    EXPECT_THROW(wrapper.readData(data, 0x840002, 2), std::out_of_range);
    EXPECT_THROW(wrapper.readData(data, 0x83FFFF, 1), std::out_of_range);
    EXPECT_EQ(Bytes({0x1E}), data);
}

TEST(ProgramSegmentTest, MappedContentIsAnythingFromData) {
    typedef Tarn8ProgramSegmentWrapper W;
    EXPECT_FALSE(W::segmentsHaveMappedContent({}));
    EXPECT_FALSE(W::segmentsHaveMappedContent({segment(0, 0x10), segment(0x7FFFF0, 0x10)}));
    EXPECT_TRUE(W::segmentsHaveMappedContent({segment(0, 0x10), segment(0x800000, 1)}));
    EXPECT_TRUE(W::segmentsHaveMappedContent({segment(0x900000, 1)}));
}

struct Wrapped {
    uint64_t offset;
    unsigned int size;
    bool operator==(const Wrapped& other) const {
        return offset == other.offset && size == other.size;
    }
};

std::vector<Wrapped> wrap(const std::vector<SegmentPtr>& segments) {
    std::vector<Wrapped> result;
    for (const SegmentPtr& s : Tarn8ProgramSegmentWrapper::wrapSegments(segments)) {
        EXPECT_EQ("native", s->getNativeName());
        result.push_back({s->getNativeOffset(), s->getSize()});
    }
    return result;
}

TEST(ProgramSegmentTest, WrappingLeavesOutFuseByteThree) {
    typedef std::vector<Wrapped> List;
    EXPECT_EQ(List({{0x820000, 3}}), wrap({segment(0x820000, 3)}));
    EXPECT_EQ(List({{0x820000, 3}}), wrap({segment(0x820000, 4)}));
    EXPECT_EQ(List({{0x820000, 3}, {0x820004, 1}}), wrap({segment(0x820000, 5)}));
    EXPECT_EQ(List(), wrap({segment(0x820003, 1)}));
    EXPECT_EQ(List({{0x820004, 2}}), wrap({segment(0x820003, 3)}));
    EXPECT_EQ(List({{0x820004, 1}}), wrap({segment(0x820004, 1)}));
    // Order is kept, and empty segments pass as they are.
    EXPECT_EQ(List({{0x10, 4}, {0, 0}, {0x81FFF0, 0x13}, {0x820004, 0x1000C}, {0x840000, 3}}),
              wrap({segment(0x10, 4), segment(0, 0), segment(0x81FFF0, 0x10020),
                    segment(0x840000, 3)}));
}

}  // namespace
