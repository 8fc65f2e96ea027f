#include "libcommon/image/hexfile.h"

#include "tempfiles.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <cstdio>
#include <string>
#include <vector>

using common::HexFile;

namespace {

typedef std::vector<unsigned char> Bytes;

// One record with a correct checksum.
std::string record(unsigned address, unsigned type, const Bytes& data) {
    unsigned sum = static_cast<unsigned>(data.size()) + (address >> 8) + (address & 0xFF) + type;
    char text[16];
    std::snprintf(text, sizeof text, ":%02X%04X%02X", static_cast<unsigned>(data.size()),
                  address & 0xFFFF, type);
    std::string line = text;
    for (unsigned char b : data) {
        std::snprintf(text, sizeof text, "%02X", b);
        line += text;
        sum += b;
    }
    std::snprintf(text, sizeof text, "%02X\n", (0x100 - (sum & 0xFF)) & 0xFF);
    return line + text;
}

const std::string kEnd = ":00000001FF\n";

class HexFileTest : public ::testing::Test {
protected:
    // Reads `content` through a file; the status is kept for inspection.
    bool read(const std::string& content, unsigned char fill = 0xFF, bool skipChecksum = false) {
        path = dir.write("in.hex", content);
        status = Status();
        return file.read(status, path, fill, skipChecksum);
    }

    void expectError(ErrorCode code, const std::string& message) {
        EXPECT_EQ(SeverityError, status.getSeverity());
        EXPECT_EQ("libcommon", status.getComponent());
        EXPECT_EQ(code, status.getErrorCode());
        EXPECT_EQ(message, status.getMessage());
    }

    std::string formatError(int record) {
        return "Hex file format error encountered reading file " + path + " at record number " +
               std::to_string(record) + ".";
    }

    TempDir dir;
    std::string path;
    Status status;
    HexFile file;
};

TEST_F(HexFileTest, GapsAreFilledBetweenLowestAndHighestAddress) {
    EXPECT_EQ(std::make_pair(0u, 0u), file.getBoundaries());
    EXPECT_FALSE(file.getBuffer());
    EXPECT_TRUE(file.getBoundariesList().empty());
    EXPECT_FALSE(file.getBufferList());

    ASSERT_TRUE(read(":04030000AABBCCDDEB\n:0401000001020304F1\n" + kEnd, 0x5A));
    EXPECT_EQ(std::make_pair(0x100u, 0x303u), file.getBoundaries());
    const Bytes& buffer = *file.getBuffer();
    ASSERT_EQ(0x204u, buffer.size());
    EXPECT_EQ(Bytes({1, 2, 3, 4, 0x5A}), Bytes(buffer.begin(), buffer.begin() + 5));
    EXPECT_EQ(0x5A, buffer[0x1FF]);
    EXPECT_EQ(Bytes({0xAA, 0xBB, 0xCC, 0xDD}), Bytes(buffer.begin() + 0x200, buffer.end()));
}

TEST_F(HexFileTest, ExtendedRecordsMoveTheBaseAndLaterDataWins) {
    // Segment 0x1000 and linear 0x0001 both mean 0x10000; white space
    // around records and lower-case digits are accepted.
    ASSERT_TRUE(read("  :020000021000ec\r\n" + record(0x10, 0, {1, 2}) +
                     ":020000040001F9\n\n\t" + record(0x11, 0, {9}) + kEnd));
    EXPECT_EQ(std::make_pair(0x10010u, 0x10011u), file.getBoundaries());
    EXPECT_EQ(Bytes({1, 9}), *file.getBuffer());
}

TEST_F(HexFileTest, ChecksumsAreTestedUnlessSkipped) {
    const std::string badData = ":0401000001020304F0\n";
    EXPECT_FALSE(read(record(0, 0, {7}) + badData + kEnd));
    expectError(ERR_HEX_CHECKSUM,
                "Invalid checksum when reading hex file " + path + " at record number 1.");
    EXPECT_TRUE(read(record(0, 0, {7}) + badData + kEnd, 0, true));

    EXPECT_FALSE(read(":020000021000ED\n" + kEnd));
    expectError(ERR_HEX_CHECKSUM,
                "Invalid checksum when reading hex file " + path + " at record number 0.");
    EXPECT_TRUE(read(":020000021000ED\n" + record(0, 0, {1}) + kEnd, 0, true));
    EXPECT_EQ(std::make_pair(0x10000u, 0x10000u), file.getBoundaries());

    EXPECT_FALSE(read(record(0, 0, {1}) + ":00000001FE\n"));
    expectError(ERR_HEX_CHECKSUM,
                "Invalid hex file checksum read from last record in file " + path + ".");
    EXPECT_TRUE(read(record(0, 0, {1}) + ":00000001FE\n", 0, true));

    // Other record types are skipped unchecked, but still counted.
    EXPECT_TRUE(read(":0400000300001234FF\n" + record(0, 0, {1}) + kEnd));
    EXPECT_FALSE(read(":0400000300001234FF\n" + record(0, 0, {1}) + ":0100000001FF\n" + kEnd));
    expectError(ERR_HEX_CHECKSUM,
                "Invalid checksum when reading hex file " + path + " at record number 2.");

    // Skipping checksums does not skip the length test.
    EXPECT_FALSE(read(":0401000001020304F\n" + kEnd, 0, true));
    expectError(ERR_HEX_FORMAT, formatError(0));
}

TEST_F(HexFileTest, MalformedFilesAreFormatErrors) {
    const std::string good = record(0x20, 0, {1, 2, 3});
    const std::vector<std::string> broken = {
        "0401000001020304F1\n",            // no ':'
        ":040100000102030F1\n",            // odd length
        ":04010000010203\n",               // truncated
        ":0401000001020304F1AA\n",         // text too long for the count
        ":04010000010G0304F1\n",           // not a hex digit
        ":\n",                             // nothing behind the colon
        std::string(":\x01\xFF\x80garbage\0\x7F", 14) + "\n",
    };
    for (const std::string& line : broken) {
        EXPECT_FALSE(read(good + line + kEnd)) << line;
        expectError(ERR_HEX_FORMAT, formatError(1));
    }

    // A text far beyond the longest record is refused, not stored.
    EXPECT_FALSE(read(good + ":10000000" + std::string(10 * 1024 * 1024, 'A') + "\n" + kEnd));
    expectError(ERR_HEX_FORMAT, formatError(1));

    // An empty file has not even one record.
    EXPECT_FALSE(read(""));
    expectError(ERR_HEX_FORMAT, formatError(0));
}

TEST_F(HexFileTest, MissingEndRecordAndMissingFile) {
    EXPECT_FALSE(read(record(0, 0, {1}) + record(1, 0, {2})));
    expectError(ERR_NOT_DECLARED, "No End of file record  found when reading hex file " + path);
    EXPECT_FALSE(read(record(0, 0, {1}) + "   \n\n"));
    EXPECT_EQ(ERR_NOT_DECLARED, status.getErrorCode());

    status = Status();
    const std::string missing = dir.file("missing.hex");
    EXPECT_FALSE(file.read(status, missing, 0, false));
    expectError(ERR_FILE_IO, "Unable to open file " + missing + ": No such file or directory");
}

TEST_F(HexFileTest, DegenerateBoundsNeverAllocateWildly) {
    // Only an end record: an empty image.
    ASSERT_TRUE(read(kEnd));
    EXPECT_TRUE(file.getBuffer()->empty());
    EXPECT_EQ(std::make_pair(0u, 0u), file.getBoundaries());

    // A zero-length record at 0 reaches up to 0xFFFFFFFF, and data at both
    // ends of the address range spans 4 GiB: both are refused.
    EXPECT_FALSE(read(record(0, 0, {}) + kEnd));
    EXPECT_EQ(ERR_ADDRESS_RANGE, status.getErrorCode());
    EXPECT_FALSE(read(record(0, 0, {1}) + ":02000004FFFFFC\n" + record(0xFF00, 0, {2}) + kEnd));
    EXPECT_EQ(ERR_ADDRESS_RANGE, status.getErrorCode());

    // A record that runs past the end of the address range is refused too.
    EXPECT_FALSE(read(":02000004FFFFFC\n" + record(0xFFFF, 0, {1, 2}) + kEnd));
    EXPECT_EQ(ERR_HEX_FORMAT, status.getErrorCode());
}

class HexFileWriteTest : public HexFileTest {
protected:
    bool write(unsigned start, unsigned end, size_t size) {
        Bytes data(size);
        for (size_t i = 0; i < size; ++i) {
            data[i] = static_cast<unsigned char>(i);
        }
        path = dir.file("out.hex");
        status = Status();
        return file.write(status, path, boost::make_shared<Bytes>(data), start, end);
    }
};

TEST_F(HexFileWriteTest, RecordsAlignToSixteenAfterTheFirst) {
    ASSERT_TRUE(write(0x7FFE, 0x8010, 0x13));
    EXPECT_EQ(record(0x7FFE, 0, {0, 1}) +
                  record(0x8000, 0, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17}) +
                  record(0x8010, 0, {18}) + kEnd,
              readWholeFile(path));

    // The first byte goes out even when the end lies before the start.
    ASSERT_TRUE(write(0x20, 0x10, 1));
    EXPECT_EQ(record(0x20, 0, {0}) + kEnd, readWholeFile(path));
}

TEST_F(HexFileWriteTest, ExtendedRecordsFollowThe64KPages) {
    ASSERT_TRUE(write(0xFFFF, 0x10000, 2));
    EXPECT_EQ(record(0xFFFF, 0, {0}) + ":020000021000EC\n" + record(0, 0, {1}) + kEnd,
              readWholeFile(path));

    // Segment records up to 0xFFFFF, linear ones beyond.
    ASSERT_TRUE(write(0xFFFFF, 0x100000, 2));
    EXPECT_EQ(":02000002F000" "0C\n" + record(0xFFFF, 0, {0}) + ":020000040010EA\n" +
                  record(0, 0, {1}) + kEnd,
              readWholeFile(path));

    // The top of the address range ends the file.
    ASSERT_TRUE(write(0xFFFFFFFF, 0xFFFFFFFF, 1));
    EXPECT_EQ(":02000004FFFFFC\n" + record(0xFFFF, 0, {0}) + kEnd, readWholeFile(path));
}

TEST_F(HexFileWriteTest, RefusesMissingOrShortBuffersAndReportsIoErrors) {
    status = Status();
    EXPECT_FALSE(file.write(status, dir.file("x.hex"), boost::shared_ptr<Bytes>(), 0, 0));
    EXPECT_EQ(ERR_FILE_IO, status.getErrorCode());
    EXPECT_EQ(0u, status.getMessage().find("No buffer to write to file: "));

    EXPECT_FALSE(write(0x100, 0x1FF, 0xFF));
    EXPECT_EQ(ERR_INVALID_ARGUMENT, status.getErrorCode());
    EXPECT_FALSE(boost::filesystem::exists(path));

    status = Status();
    const std::string badPath = dir.file("no/such/dir.hex");
    EXPECT_FALSE(file.write(status, badPath, boost::make_shared<Bytes>(1), 0, 0));
    EXPECT_EQ("Unable to open file " + badPath + ": No such file or directory",
              status.getMessage());

    if (boost::filesystem::exists("/dev/full")) {
        status = Status();
        EXPECT_FALSE(file.write(status, "/dev/full", boost::make_shared<Bytes>(0x10000), 0, 0xFFFF));
        EXPECT_EQ(ERR_FILE_IO, status.getErrorCode());
        EXPECT_NE(std::string::npos, status.getMessage().find("/dev/full: No space left"));
    }
}

}  // namespace
