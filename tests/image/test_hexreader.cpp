#include "libcommon/image/hexwriter.h"

#include "hexsamples.h"

#include <gtest/gtest.h>

#include <deque>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

typedef Chunks Segments;

Segments parse(const std::string& text, bool strict = true) {
    std::istringstream in(text);
    common::HexReader reader(in, strict);
    return segmentsOf(reader);
}

std::string parseError(const std::string& text, bool strict) {
    try {
        parse(text, strict);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no error";
}

const std::string kNoColon = "A record in the Intel Hex file does not start with ':'.";
const std::string kNoEnd =
    "Unexpectedly reached the end of the Intel Hex file (End Of File record might be missing).";
const std::string kJunk =
    "A record in the Intel Hex file has junk at the end (or a wrong byte count and checksum).";
const std::string kShort =
    "A record in the Intel Hex file has less content than expected (or a wrong byte count).";

TEST(HexReaderTest, ContiguousRecordsJoinIntoSegments) {
    Bytes joined = counting(16);
    joined.push_back(0x55);
    EXPECT_EQ(Segments({{0x100, joined}, {0x200, {1}}, {0x150, {2}}, {0x150, {3}}}),
              parse(record(0x100, 0, counting(16)) + record(0x110, 0, {0x55}) +
                    record(0x200, 0, {1}) + record(0x150, 0, {2}) + record(0x150, 0, {3}) + kEnd));

    // Running on over a 64K boundary keeps one segment; a jump doesn't.
    const std::string high = record(0xFFF0, 0, counting(16)) + ":020000040001F9\n";
    EXPECT_EQ(Segments({{0xFFF0, counting(17)}}), parse(high + record(0, 0, {16}) + kEnd));
    EXPECT_EQ(Segments({{0xFFF0, counting(16)}, {0x10004, {9}}}),
              parse(high + record(4, 0, {9}) + kEnd));
    EXPECT_EQ(Segments({{0x20010, {7}}}), parse(":020000022000DC\n" + record(0x10, 0, {7}) + kEnd));

    // Empty records: nothing on their own, at the expected address they
    // keep a segment open, elsewhere they close it.
    EXPECT_TRUE(parse(kEnd).empty());
    EXPECT_TRUE(parse(record(0x10, 0, {}) + kEnd).empty());
    EXPECT_EQ(Segments({{0, {1, 2}}}),
              parse(record(0, 0, {1}) + record(1, 0, {}) + record(1, 0, {2}) + kEnd));
    EXPECT_EQ(Segments({{0, {1}}, {1, {2}}}),
              parse(record(0, 0, {1}) + record(7, 0, {}) + record(1, 0, {2}) + kEnd));
    // Start records are ignored, and nothing behind the end record is read.
    EXPECT_EQ(Segments({{0, {1}}}),
              parse(":0400000300001234B3\n" + record(0, 0, {1}) + kEnd + "garbage\n"));
}

TEST(HexReaderTest, StrictAndLenientModes) {
    const std::string data = record(0, 0, {1, 2});
    const Segments expected = {{0, {1, 2}}};
    EXPECT_EQ(kNoColon, parseError("\n" + data + kEnd, true));
    EXPECT_EQ(expected, parse("\ncomment\n" + data + "  :indented\n" + kEnd, false));

    EXPECT_EQ("A record in the Intel Hex file has a checksum mismatch (or a wrong byte count).",
              parseError(":020000000102FF\n" + kEnd, true));
    EXPECT_EQ(expected, parse(":020000000102FF\n" + kEnd, false));
    EXPECT_EQ(kJunk, parseError(":020000000102FB x\n" + kEnd, true));
    EXPECT_EQ(expected, parse(":020000000102FB x\n" + kEnd, false));
    EXPECT_EQ(expected, parse(":020000000102FB \t\r\n" + kEnd, true));

    // A missing end record ends differently in the two modes.
    EXPECT_EQ(kNoColon, parseError(data, true));
    EXPECT_EQ(kNoEnd, parseError(data, false));
    EXPECT_EQ(kNoEnd, parseError(data + "\n\nno more records", false));

    for (bool strict : {true, false}) {
        EXPECT_EQ("Invalid hex character", parseError(":02000000010G\n" + kEnd, strict));
        EXPECT_EQ("Invalid hex character", parseError(std::string(":\0\xFF\x80\n", 5), strict));
        EXPECT_EQ(kShort, parseError(":0200000001\n" + kEnd, strict));
        EXPECT_EQ(kShort, parseError(":1\n" + kEnd, strict));
    }
}

TEST(HexReaderTest, VeryLongLinesAreReadInBoundedMemory) {
    const std::string data = record(0, 0, {1, 2});
    const std::string unended = data.substr(0, data.size() - 1);
    const std::string spaces(10 * 1024 * 1024, ' ');
    EXPECT_EQ(Segments({{0, {1, 2}}}), parse(unended + spaces + "\n" + kEnd));
    EXPECT_EQ(kJunk, parseError(unended + spaces + "x\n" + kEnd, true));
    EXPECT_EQ(Segments({{0, {1, 2}}}), parse(std::string(10 << 20, 'z') + "\n" + data + kEnd, false));
    EXPECT_EQ(kNoEnd, parseError(data + std::string(10 << 20, '\x01'), false));
}

TEST(HexReaderTest, RecordsAndFiles) {
    std::istringstream in(":020000040012E8\n:0100000042BD\n:00000042BE\n:00000002FE\n");
    common::HexRecord linear(in, true), data(in, true), other(in, true), tooShort(in, true);
    EXPECT_EQ(0x120000u, linear.getExtendedAddress());
    EXPECT_EQ(Bytes({0x42}), *data.getData());
    EXPECT_THROW(data.getExtendedAddress(), std::invalid_argument);
    EXPECT_EQ(0x42, static_cast<int>(other.getType()));
    EXPECT_THROW(tooShort.getExtendedAddress(), std::runtime_error);
    common::HexRecord copy = data;
    EXPECT_EQ(data.getData().get(), copy.getData().get());

    TempDir dir;
    common::HexReader reader(dir.write("in.hex", record(0x10, 0, {5}) + kEnd), true);
    ASSERT_EQ(1u, reader.getSegments().size());
    EXPECT_EQ(0x10u, reader.getSegments()[0].getAddress());
    try {
        common::HexReader missing(dir.file("missing.hex"), true);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("Could not open the Intel Hex file for processing.", e.what());
    }
}

std::string written(unsigned address, const Bytes& data) {
    std::ostringstream out;
    HexWriter(out).write(address, data);
    return out.str();
}

TEST(HexWriterTest, RecordLayout) {
    // Records run 16 bytes from the start of the data, not aligned.
    EXPECT_EQ(record(0x10, 0, counting(16)) + record(0x20, 0, {16}), written(0x10, counting(17)));
    EXPECT_EQ("", written(0x12345, Bytes()));

    // A record crossing 0x10000 is not split; the next one gets a new base.
    EXPECT_EQ(record(0xFFF8, 0, counting(16)) + ":020000021000EC\n" +
                  record(0x0008, 0, counting(16, 16)),
              written(0xFFF8, counting(32)));
    EXPECT_EQ(":020000040010EA\n" + record(0, 0, {1}), written(0x100000, {1}));
    EXPECT_EQ(":02000002F000" "0C\n" + record(0xFFFF, 0, counting(16)) + ":020000040010EA\n" +
                  record(0xF, 0, {16}),
              written(0xFFFFF, counting(17)));
    EXPECT_EQ(":02000004FFFFFC\n" + record(0xFFF0, 0, counting(16)),
              written(0xFFFFFFF0, counting(16)));

    std::ostringstream out;
    HexWriter writer(out);
    EXPECT_THROW(writer.write(0xFFFFFFF0, counting(17)), std::invalid_argument);
    writer.write(0x10, std::deque<unsigned char>({1, 2, 3}));
    writer.endFile();
    EXPECT_EQ(record(0x10, 0, {1, 2, 3}) + kEnd, out.str());
}

}  // namespace
