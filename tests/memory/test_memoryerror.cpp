// The per-byte error record: ordering, merging, look-ups and texts.

#include "libcommon/imemoryaccessor.h"

#include <gtest/gtest.h>

TEST(MemoryError, RangesMergeOnlyWhenAdjoiningWithTheSameStatus) {
    MemoryError e;
    e.setStatus(0x10, 4, MEM_VALID);
    EXPECT_TRUE(e.isOk());

    e.setStatus(0x10, 4, MEM_READ_FAILED);
    e.setStatus(0x14, 4, MEM_READ_FAILED);  // continues the first
    e.setStatus(0x18, 4, MEM_WRITE_FAILED);  // adjoins, other status
    ASSERT_EQ(2u, e.getRecords().size());
    unsigned int length = 0;
    EXPECT_EQ(MEM_READ_FAILED, e.getStatus(0x10, &length));
    EXPECT_EQ(8u, length);
    EXPECT_EQ(MEM_WRITE_FAILED, e.getStatus(0x19, &length));
    EXPECT_EQ(3u, length);
    EXPECT_FALSE(e.isOk());
}

TEST(MemoryError, RangesStayInAscendingOrder) {
    MemoryError e;
    e.setStatus(0x100, 0x10, MEM_UNKNOWN);
    e.setStatus(0x80, 0x10, MEM_UNKNOWN);
    e.setStatus(0x200, 0x10, MEM_UNKNOWN);
    e.setStatus(0x80, 0x4, MEM_READ_FAILED);  // equal start: behind the earlier one
    const std::vector<MemoryError::Record>& r = e.getRecords();
    ASSERT_EQ(4u, r.size());
    EXPECT_EQ(0x80u, r[0].address);
    EXPECT_EQ(MEM_UNKNOWN, r[0].status);
    EXPECT_EQ(0x80u, r[1].address);
    EXPECT_EQ(MEM_READ_FAILED, r[1].status);
    EXPECT_EQ(0x100u, r[2].address);
    EXPECT_EQ(0x200u, r[3].address);
}

TEST(MemoryError, StatusLookupAroundRanges) {
    MemoryError e;
    e.setStatus(0x40, 0x10, MEM_READ_FAILED);
    unsigned int length = 99;
    EXPECT_EQ(MEM_VALID, e.getStatus(0x30, &length));
    EXPECT_EQ(0x10u, length);  // distance to the mark
    EXPECT_EQ(MEM_READ_FAILED, e.getStatus(0x4F, &length));
    EXPECT_EQ(1u, length);
    EXPECT_EQ(MEM_VALID, e.getStatus(0x50, &length));
    EXPECT_EQ(0u, length);  // nothing further on
    EXPECT_EQ(MEM_READ_FAILED, e.getStatus(0x45, nullptr));

    EXPECT_TRUE(e.allLocationsAreValid(0x30, 0x10));   // ends right in front
    EXPECT_FALSE(e.allLocationsAreValid(0x30, 0x11));  // touches the first byte
    EXPECT_FALSE(e.allLocationsAreValid(0x4F, 1));
    EXPECT_TRUE(e.allLocationsAreValid(0x50, 0x1000));
    EXPECT_TRUE(e.allLocationsAreValid(0x40, 0));
    EXPECT_TRUE(MemoryError().allLocationsAreValid(0, 0xFFFFFFFF));
}

TEST(MemoryError, MessagesPerByteAndSummary) {
    MemoryError e;
    EXPECT_EQ("", e.getMessage(MemoryError::SUMMARY_ADDRESS));
    e.setStatus(0x40, 4, MEM_WRITE_FAILED);
    e.setStatus(0x10, 0x10, MEM_UNKNOWN);
    e.setStatus(0x60, 1, MEM_READ_FAILED);
    e.setStatus(0x70, 1, 2);
    EXPECT_EQ("byte is valid", e.getMessage(0x0));
    EXPECT_EQ("byte is unknown", e.getMessage(0x1F));
    EXPECT_EQ("cannot write byte", e.getMessage(0x43));
    EXPECT_EQ("cannot read byte", e.getMessage(0x60));
    EXPECT_EQ("unknown reason", e.getMessage(0x70));
    EXPECT_EQ("00000010-00000020 00000040-00000044 00000060-00000061 00000070-00000071 ",
              e.getMessage(0x100000000ULL));
}

TEST(MemoryError, SummaryIsCutAfterAboutAKilobyte) {
    MemoryError e;
    for (uint64_t i = 0; i < 200; ++i) {
        e.setStatus(i * 0x10, 1, MEM_UNKNOWN);
    }
    const std::string s = e.getMessage(MemoryError::SUMMARY_ADDRESS);
    // 18 characters a range: the 57th passes 1024.
    EXPECT_EQ(57u * 18 + 3, s.size());
    EXPECT_EQ("...", s.substr(s.size() - 3));
}

TEST(MemoryError, RangesAtTheTopOfTheAddressSpaceAndFarGaps) {
    MemoryError e;
    e.setStatus(0xFFFFFFFFFFFFFFF0ULL, 0x10, MEM_UNKNOWN);  // ends exactly at 2^64
    unsigned int length = 0;
    EXPECT_EQ(MEM_UNKNOWN, e.getStatus(0xFFFFFFFFFFFFFFF8ULL, &length));
    EXPECT_EQ(8u, length);
    EXPECT_EQ(MEM_UNKNOWN, e.getStatus(0xFFFFFFFFFFFFFFFFULL, &length));
    EXPECT_EQ(1u, length);
    EXPECT_FALSE(e.allLocationsAreValid(0xFFFFFFFFFFFFFFE0ULL, 0x20));
    EXPECT_TRUE(e.allLocationsAreValid(0xFFFFFFFFFFFFFFE0ULL, 0x10));

    // A mark 4 GiB away is not "nothing further on".
    MemoryError far;
    far.setStatus(0x100000010ULL, 1, MEM_READ_FAILED);
    EXPECT_EQ(MEM_VALID, far.getStatus(0x10, &length));
    EXPECT_EQ(0xFFFFFFFFu, length);
}
