// Both HEX families against each other: what one writes, both read back
// byte for byte; and damaged files read alike or end in a clean error.

#include "libcommon/image/hexfile.h"
#include "libcommon/image/hexwriter.h"

#include "hexsamples.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using common::HexFile;
using common::HexReader;

namespace {

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
        chunks.push_back(std::make_pair(next, randomBytes(rng, length)));
        next += length + 1;
    }
    if (chunks.empty()) {
        chunks.push_back(std::make_pair(base, Bytes(1, 0x42)));
    }
    return chunks;
}

// The chunks painted in order over `fill`, from the lowest to the highest address.
Bytes flatten(const Chunks& chunks, unsigned char fill, unsigned& low, unsigned& high) {
    low = 0xFFFFFFFF, high = 0;
    for (const auto& chunk : chunks) {
        low = std::min(low, chunk.first);
        high = std::max(high, chunk.first + unsigned(chunk.second.size()) - 1);
    }
    Bytes flat(high - low + 1, fill);
    for (const auto& chunk : chunks) {
        std::copy(chunk.second.begin(), chunk.second.end(), flat.begin() + (chunk.first - low));
    }
    return flat;
}

TEST(HexRoundTripTest, RandomImagesSurviveBothFamilies) {
    std::mt19937 rng(20240611);
    TempDir dir;
    for (int image = 0; image < 16; ++image) {
        SCOPED_TRACE("image " + std::to_string(image));
        const Chunks chunks = randomImage(rng);
        unsigned first, last;
        const Bytes flat = flatten(chunks, 0xA5, first, last);

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

// A few valid records, then a few random edits: changed, dropped or
// inserted characters. Extended bases stay small so that a flat buffer
// never gets big.
std::string mutatedFile(std::mt19937& rng) {
    static const unsigned types[] = {0, 0, 0, 0, 2, 4, 3};
    std::string text;
    for (int i = 0, count = 1 + static_cast<int>(rng() % 6); i < count; ++i) {
        const unsigned type = types[rng() % 7];
        Bytes data = randomBytes(rng, type == 0 ? 1 + rng() % 20 : 2);
        if (type == 2 || type == 4) {
            data[0] = 0;
            data[1] &= 0x0F;
        }
        text += record(rng() & 0xFFFF, type, data);
    }
    text += kEnd;
    for (int i = 0, edits = static_cast<int>(rng() % 4); i < edits; ++i) {
        const size_t at = rng() % text.size();
        switch (rng() % 3) {
        case 0:
            text[at] = static_cast<char>(rng());
            break;
        case 1:
            text.erase(at, 1 + rng() % 8);
            break;
        default:
            text.insert(at, std::string(1 + rng() % 4, static_cast<char>(rng())));
            break;
        }
    }
    return text.empty() ? kEnd : text;
}

// Whatever a strict reader accepts, HexFile reads to the same bytes; all
// else ends in one of the documented errors, never a crash or a hang.
TEST(HexRoundTripTest, MutatedFilesAgreeOrFailCleanly) {
    std::mt19937 rng(7);
    TempDir dir;
    int accepted = 0;
    for (int i = 0; i < 400; ++i) {
        const std::string text = mutatedFile(rng);
        SCOPED_TRACE(text);
        const std::string path = dir.write("mutated.hex", text);
        HexFile file;
        Status status;
        const bool fileRead = file.read(status, path, 0xEE, false);
        if (!fileRead) {
            const ErrorCode code = status.getErrorCode();
            EXPECT_TRUE(code == ERR_HEX_FORMAT || code == ERR_HEX_CHECKSUM ||
                        code == ERR_NOT_DECLARED || code == ERR_ADDRESS_RANGE)
                << status.getMessage();
        }
        Chunks segments;
        try {
            std::istringstream lenient(text);
            HexReader(lenient, false);
            std::istringstream strict(text);
            HexReader reader(strict, true);
            segments = segmentsOf(reader);
        } catch (const std::runtime_error&) {
            continue;
        }
        ++accepted;
        ASSERT_TRUE(fileRead) << status.getMessage();
        if (segments.empty()) {
            EXPECT_TRUE(file.getBuffer()->empty());
            continue;
        }
        unsigned low, high;
        const Bytes expected = flatten(segments, 0xEE, low, high);
        EXPECT_EQ(std::make_pair(low, high), file.getBoundaries());
        EXPECT_EQ(expected, *file.getBuffer());
    }
    EXPECT_GT(accepted, 40);
}

}  // namespace
