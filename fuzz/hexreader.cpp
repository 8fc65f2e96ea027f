// HexReader on any stream, strict and lenient. Reading either succeeds or
// throws std::runtime_error with one of the reader's texts; whatever strict
// mode accepts, lenient mode accepts with the same segments; and every
// segment written by HexWriter reads back strictly as the same bytes at the
// same addresses.

#include "fuzzcheck.h"

#include "libcommon/image/hexwriter.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

typedef std::vector<std::pair<unsigned, std::vector<unsigned char> > > Segments;

const char* const kErrors[] = {
    "A record in the Intel Hex file has less content than expected (or a wrong byte count).",
    "Invalid hex character",
    "A record in the Intel Hex file does not start with ':'.",
    "Unexpectedly reached the end of the Intel Hex file (End Of File record might be missing).",
    "A record in the Intel Hex file has a checksum mismatch (or a wrong byte count).",
    "A record in the Intel Hex file has junk at the end (or a wrong byte count and checksum).",
    "An extended segment address record has insufficient size.",
    "An extended linear address record has insufficient size.",
};

bool knownError(const std::string& message) {
    for (const char* known : kErrors) {
        if (message == known)
            return true;
    }
    return false;
}

// The segments, or false when the reader refused the text.
bool readSegments(const std::string& text, bool strict, Segments& segments) {
    std::istringstream in(text);
    try {
        common::HexReader reader(in, strict);
        for (common::HexSegment& segment : reader.getSegments()) {
            FUZZ_CHECK(!segment.getData()->empty(), "an empty segment");
            segments.emplace_back(segment.getAddress(), *segment.getData());
        }
        return true;
    } catch (const std::runtime_error& e) {
        FUZZ_CHECK(knownError(e.what()), std::string("unknown error text: ") + e.what());
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Segments strict, lenient;
    const bool strictOk = readSegments(text, true, strict);
    const bool lenientOk = readSegments(text, false, lenient);
    if (strictOk) {
        FUZZ_CHECK(lenientOk, "lenient mode refused what strict mode accepts");
        FUZZ_CHECK(lenient == strict, "lenient mode read other segments than strict mode");
    }
    if (!lenientOk)
        return 0;

    for (const auto& segment : lenient) {
        std::ostringstream out;
        HexWriter writer(out);
        try {
            writer.write(segment.first, segment.second);
        } catch (const std::invalid_argument&) {
            // Refused only for data that runs past the top of the address range.
            FUZZ_CHECK(uint64_t(segment.first) + segment.second.size() > (uint64_t(1) << 32),
                       "the writer refused a segment inside the address range");
            continue;
        }
        writer.endFile();
        Segments back;
        FUZZ_CHECK(readSegments(out.str(), true, back), "written segment does not read back");
        FUZZ_CHECK(back.size() == 1 && back.front() == segment,
                   "written segment reads back differently");
    }
    return 0;
}
