// base64: decoding any text ends without a fault, and both directions agree:
// encoding and decoding give back the bytes, and what a text decodes to
// encodes to a text that decodes the same.

#include "fuzzcheck.h"

#include "libcommon/core/utilities.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<unsigned char> bytes(data, data + size);
    std::string encoded = base64_encode(bytes);
    FUZZ_CHECK(encoded.size() == (size + 2) / 3 * 4, "encoded length");
    std::vector<unsigned char> decoded;
    base64_decode(encoded, decoded);
    FUZZ_CHECK(decoded == bytes, "decode(encode(bytes)) differs from the bytes");

    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<unsigned char> once;
    once.push_back(0xA5);  // decoding appends: what was there stays
    base64_decode(text, once);
    FUZZ_CHECK(once.front() == 0xA5, "decode overwrote the output it appends to");
    FUZZ_CHECK((once.size() - 1) <= size / 4 * 3 + 2,
               "decode produced more bytes than the text holds");
    std::vector<unsigned char> payload(once.begin() + 1, once.end());
    std::vector<unsigned char> twice;
    base64_decode(base64_encode(payload), twice);
    FUZZ_CHECK(twice == payload, "re-encoded text decodes differently");
    return 0;
}
