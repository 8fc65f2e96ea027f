#include "libcommon/image/hexfile.h"

#include "hexsamples.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

namespace {

class HexFileTest : public ::testing::Test {
protected:
    bool read(const std::string& content, bool skipChecksum = false) {
        path = dir.write("in.hex", content);
        status = Status();
        return file.read(status, path, 0x5A, skipChecksum);
    }
    bool write(unsigned start, unsigned end, size_t size) {
        path = dir.file("out.hex");
        status = Status();
        return file.write(status, path, boost::make_shared<Bytes>(counting(size)), start, end);
    }
    // Code and text of a failure; texts that name a record end with its number.
    void expectError(ErrorCode code, const std::string& text, int record = -1) {
        EXPECT_EQ(SeverityError, status.getSeverity());
        EXPECT_EQ("libcommon", status.getComponent());
        EXPECT_EQ(code, status.getErrorCode());
        EXPECT_EQ(record < 0 ? text : text + " at record number " + std::to_string(record) + ".",
                  status.getMessage());
    }
    std::string formatText() { return "Hex file format error encountered reading file " + path; }
    std::string checksumText() { return "Invalid checksum when reading hex file " + path; }

    TempDir dir;
    std::string path;
    Status status;
    common::HexFile file;
};

TEST_F(HexFileTest, ReadsOneFlatBufferWithGapsFilled) {
    EXPECT_EQ(std::make_pair(0u, 0u), file.getBoundaries());
    EXPECT_FALSE(file.getBuffer());
    EXPECT_FALSE(file.getBufferList());

    ASSERT_TRUE(read(":04030000AABBCCDDEB\n:0401000001020304F1\n" + kEnd));
    EXPECT_EQ(std::make_pair(0x100u, 0x303u), file.getBoundaries());
    Bytes expected(0x204, 0x5A);
    expected[0] = 1, expected[1] = 2, expected[2] = 3, expected[3] = 4;
    expected[0x200] = 0xAA, expected[0x201] = 0xBB, expected[0x202] = 0xCC, expected[0x203] = 0xDD;
    EXPECT_EQ(expected, *file.getBuffer());

    // Segment 0x1000 and linear 0x0001 both mean 0x10000; white space around
    // records and lower-case digits are fine; the later record wins.
    ASSERT_TRUE(read("  :020000021000ec\r\n" + record(0x10, 0, {1, 2}) + ":020000040001F9\n\n\t" +
                     record(0x11, 0, {9}) + kEnd));
    EXPECT_EQ(std::make_pair(0x10010u, 0x10011u), file.getBoundaries());
    EXPECT_EQ(Bytes({1, 9}), *file.getBuffer());
}

TEST_F(HexFileTest, ChecksumsAreTestedUnlessSkipped) {
    for (bool skip : {false, true}) {
        EXPECT_EQ(skip, read(record(0, 0, {7}) + ":0401000001020304F0\n" + kEnd, skip));
        EXPECT_EQ(skip, read(":020000021000ED\n" + record(0, 0, {1}) + kEnd, skip));
        EXPECT_EQ(skip, read(record(0, 0, {1}) + ":00000001FE\n", skip));
        // Other record types are skipped unchecked.
        EXPECT_TRUE(read(":0400000300001234FF\n" + record(0, 0, {1}) + kEnd, skip));
        // Skipping checksums does not skip the length test.
        EXPECT_FALSE(read(":0401000001020304F\n" + kEnd, skip));
        expectError(ERR_HEX_FORMAT, formatText(), 0);
    }
    read(record(0, 0, {7}) + ":0401000001020304F0\n" + kEnd);
    expectError(ERR_HEX_CHECKSUM, checksumText(), 1);
    read(":020000021000ED\n" + kEnd);
    expectError(ERR_HEX_CHECKSUM, checksumText(), 0);
    read(record(0, 0, {1}) + ":00000001FE\n");
    expectError(ERR_HEX_CHECKSUM, "Invalid hex file checksum read from last record in file " +
                                      path + ".");
    read(":0400000300001234FF\n" + record(0, 0, {1}) + ":0100000001FF\n" + kEnd);
    expectError(ERR_HEX_CHECKSUM, checksumText(), 2);
}

TEST_F(HexFileTest, MalformedFilesFailCleanly) {
    const std::string good = record(0x20, 0, {1, 2, 3});
    for (const std::string& line : std::vector<std::string>{
             "0401000001020304F1\n", ":040100000102030F1\n", ":04010000010203\n",
          ":0401000001020304F1AA\n", ":04010000010G0304F1\n", ":\n",
          ":10000000" + std::string(10 * 1024 * 1024, 'A') + "\n",
          std::string(":\x01\xFF\x80garbage\0\x7F\n", 14)}) {
        EXPECT_FALSE(read(good + line + kEnd)) << line.substr(0, 40);
        expectError(ERR_HEX_FORMAT, formatText(), 1);
    }
    EXPECT_FALSE(read(""));
    expectError(ERR_HEX_FORMAT, formatText(), 0);

    EXPECT_FALSE(read(good + good + "  \n"));
    expectError(ERR_NOT_DECLARED, "No End of file record  found when reading hex file " + path);
    status = Status();
    EXPECT_FALSE(file.read(status, dir.file("missing.hex"), 0, false));
    expectError(ERR_FILE_IO, "Unable to open file " + dir.file("missing.hex") +
                                 ": No such file or directory");
}

TEST_F(HexFileTest, DegenerateBoundsNeverAllocateWildly) {
    ASSERT_TRUE(read(kEnd));  // an empty image
    EXPECT_TRUE(file.getBuffer()->empty());
    EXPECT_EQ(std::make_pair(0u, 0u), file.getBoundaries());

    // A zero-length record at 0 reaches up to 0xFFFFFFFF; data at both ends
    // of the address range spans 4 GiB; a record may not run past the top.
    EXPECT_FALSE(read(record(0, 0, {}) + kEnd));
    EXPECT_EQ(ERR_ADDRESS_RANGE, status.getErrorCode());
    EXPECT_FALSE(read(record(0, 0, {1}) + ":02000004FFFFFC\n" + record(0xFF00, 0, {2}) + kEnd));
    EXPECT_EQ(ERR_ADDRESS_RANGE, status.getErrorCode());
    EXPECT_FALSE(read(":02000004FFFFFC\n" + record(0xFFFF, 0, {1, 2}) + kEnd));
    expectError(ERR_HEX_FORMAT, formatText(), 1);
}

TEST_F(HexFileTest, WritesRecordsAlignedToSixteenWithExtendedRecordsPer64K) {
    ASSERT_TRUE(write(0x7FFE, 0x8010, 0x13));
    EXPECT_EQ(record(0x7FFE, 0, {0, 1}) + record(0x8000, 0, counting(16, 2)) +
                  record(0x8010, 0, {18}) + kEnd,
              dir.read(path));
    ASSERT_TRUE(write(0x8001, 0x8003, 3));
    EXPECT_EQ(record(0x8001, 0, {0, 1, 2}) + kEnd, dir.read(path));
    ASSERT_TRUE(write(0x20, 0x10, 1));  // the first byte goes out regardless
    EXPECT_EQ(record(0x20, 0, {0}) + kEnd, dir.read(path));

    ASSERT_TRUE(write(0xFFFF, 0x10000, 2));
    EXPECT_EQ(record(0xFFFF, 0, {0}) + ":020000021000EC\n" + record(0, 0, {1}) + kEnd,
              dir.read(path));
    ASSERT_TRUE(write(0xFFFFF, 0x100000, 2));
    EXPECT_EQ(":02000002F000" "0C\n" + record(0xFFFF, 0, {0}) + ":020000040010EA\n" +
                  record(0, 0, {1}) + kEnd,
              dir.read(path));
    ASSERT_TRUE(write(0xFFFFFFFF, 0xFFFFFFFF, 1));  // the top ends the file
    EXPECT_EQ(":02000004FFFFFC\n" + record(0xFFFF, 0, {0}) + kEnd, dir.read(path));
}

TEST_F(HexFileTest, WriteRefusesMissingOrShortBuffersAndReportsIoErrors) {
    EXPECT_FALSE(file.write(status, dir.file("x.hex"), boost::shared_ptr<Bytes>(), 0, 0));
    EXPECT_EQ(0u, status.getMessage().find("No buffer to write to file: "));
    EXPECT_FALSE(write(0x100, 0x1FF, 0xFF));
    EXPECT_EQ(ERR_INVALID_ARGUMENT, status.getErrorCode());
    EXPECT_FALSE(boost::filesystem::exists(path));

    EXPECT_FALSE(file.write(status, dir.file("no/dir.hex"), boost::make_shared<Bytes>(1), 0, 0));
    expectError(ERR_FILE_IO, "Unable to open file " + dir.file("no/dir.hex") +
                                 ": No such file or directory");
    if (boost::filesystem::exists("/dev/full")) {
        EXPECT_FALSE(file.write(status, "/dev/full", boost::make_shared<Bytes>(0x10000), 0, 0xFFFF));
        EXPECT_EQ(ERR_FILE_IO, status.getErrorCode());
        EXPECT_NE(std::string::npos, status.getMessage().find("/dev/full: No space left"));
    }
}

}  // namespace
