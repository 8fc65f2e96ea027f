// Both HEX families against each other: what one writes, both read back
// byte for byte; and random input never gets them past a clean error.

#include "libcommon/image/hexfile.h"
#include "libcommon/image/hexwriter.h"

#include "tempfiles.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using common::HexFile;
using common::HexReader;
using common::HexSegment;

namespace {

typedef std::vector<unsigned char> Bytes;
typedef std::vector<std::pair<unsigned, Bytes> > Chunks;

// Ascending chunks with gaps of at least one byte, spanning less than
// 1.2 MiB from a base that may lie low, across 1 MiB, or at the very top of
// the 32-bit range; many chunks cross a 64K page boundary.
Chunks randomImage(std::mt19937& rng) {
    static const unsigned bases[] = {0, 0xF8000, 0x0800F000, 0xFFE20000};
    const unsigned base = bases[rng() % 4];
    const unsigned limit = base + 0x120000;
    Chunks chunks;
    unsigned next = base + rng() % 0x200;
    for (int i = 0, count = 2 + static_cast<int>(rng() % 10); i < count; ++i) {
        switch (rng() % 3) {
        case 0:
            next += rng() % 64;
            break;
        case 1:  // just below the next page boundary
            next = std::max(next, (next | 0xFFFF) - static_cast<unsigned>(rng() % 40));
            break;
        default:
            next += rng() % 0x8000;
            break;
        }
        const unsigned length = rng() % 8 == 0 ? 0x10000 + rng() % 0x1000 : 1 + rng() % 700;
        if (next >= limit || limit - next < length) {
            break;
        }
        Bytes data(length);
        for (unsigned char& b : data) {
            b = static_cast<unsigned char>(rng());
        }
        chunks.push_back(std::make_pair(next, data));
        next += length + 1;
    }
    if (chunks.empty()) {
        chunks.push_back(std::make_pair(base, Bytes(1, 0x42)));
    }
    return chunks;
}

Bytes flatten(const Chunks& chunks, unsigned char fill) {
    const unsigned first = chunks.front().first;
    const unsigned last = chunks.back().first + static_cast<unsigned>(chunks.back().second.size());
    Bytes flat(last - first, fill);
    for (const auto& chunk : chunks) {
        std::copy(chunk.second.begin(), chunk.second.end(), flat.begin() + (chunk.first - first));
    }
    return flat;
}

Chunks segmentsOf(HexReader& reader) {
    Chunks result;
    for (HexSegment& segment : reader.getSegments()) {
        result.push_back(std::make_pair(segment.getAddress(), *segment.getData()));
    }
    return result;
}

TEST(HexRoundTripTest, RandomImagesSurviveBothFamilies) {
    std::mt19937 rng(20240611);
    TempDir dir;
    for (int image = 0; image < 16; ++image) {
        SCOPED_TRACE("image " + std::to_string(image));
        const Chunks chunks = randomImage(rng);
        const unsigned first = chunks.front().first;
        const Bytes flat = flatten(chunks, 0xA5);
        const unsigned last = first + static_cast<unsigned>(flat.size()) - 1;

        // Segments written by HexWriter come back as the same segments ...
        std::ostringstream text;
        HexWriter writer(text);
        for (const auto& chunk : chunks) {
            writer.write(chunk.first, chunk.second);
        }
        writer.endFile();
        for (bool strict : {true, false}) {
            std::istringstream in(text.str());
            HexReader reader(in, strict);
            ASSERT_EQ(chunks, segmentsOf(reader));
        }

        // ... and as one flat buffer through HexFile.
        const std::string segmented = dir.write("segmented.hex", text.str());
        HexFile file;
        Status status;
        ASSERT_TRUE(file.read(status, segmented, 0xA5, false)) << status.getMessage();
        EXPECT_EQ(std::make_pair(first, last), file.getBoundaries());
        ASSERT_EQ(flat, *file.getBuffer());

        // The flat buffer written by HexFile reads back whole in both.
        const std::string whole = dir.file("flat.hex");
        ASSERT_TRUE(file.write(status, whole, boost::make_shared<Bytes>(flat), first, last))
            << status.getMessage();
        HexFile again;
        ASSERT_TRUE(again.read(status, whole, 0, false)) << status.getMessage();
        EXPECT_EQ(std::make_pair(first, last), again.getBoundaries());
        ASSERT_EQ(flat, *again.getBuffer());
        HexReader reader(whole, true);
        ASSERT_EQ(Chunks(1, std::make_pair(first, flat)), segmentsOf(reader));
    }
}

// Mostly the characters of the format, so that the parsers get past the
// first field now and then, with arbitrary bytes in between.
std::string randomText(std::mt19937& rng) {
    static const char alphabet[] = "0123456789ABCDEFabcdef::::\n\n\r \t";
    std::string text(rng() % 2048, '\0');
    for (char& c : text) {
        c = rng() % 8 == 0 ? static_cast<char>(rng()) : alphabet[rng() % (sizeof alphabet - 1)];
    }
    return text;
}

TEST(HexRoundTripTest, RandomInputEndsInACleanError) {
    std::mt19937 rng(7);
    TempDir dir;
    const std::string end = ":00000001FF\n";
    for (int i = 0; i < 300; ++i) {
        // Most texts fail before the end record; some reach it by chance.
        const std::string text = randomText(rng) + (i % 2 ? end : "");
        const std::string path = dir.write("random.hex", text);
        HexFile file;
        Status status;
        for (bool skip : {true, false}) {
            if (!file.read(status, path, 0, skip)) {
                EXPECT_EQ(SeverityError, status.getSeverity());
                EXPECT_TRUE(status.getErrorCode() == ERR_HEX_FORMAT ||
                            status.getErrorCode() == ERR_HEX_CHECKSUM ||
                            status.getErrorCode() == ERR_NOT_DECLARED ||
                            status.getErrorCode() == ERR_ADDRESS_RANGE)
                    << status.getMessage();
            }
        }
        for (bool strict : {true, false}) {
            std::istringstream in(text);
            try {
                HexReader reader(in, strict);
            } catch (const std::runtime_error&) {
            }
        }
    }
}

}  // namespace
