// HexFile::read on any file, with checksums tested and skipped. Either read
// fails with an error status of a documented code, or it succeeds with a
// buffer that spans the bounds it reports; skipping checksums accepts what
// testing them accepts, with the same bytes; and a buffer it read writes
// out and reads back unchanged.

#include "fuzzcheck.h"

#include "libcommon/core/status.h"
#include "libcommon/image/hexfile.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string inPath;
std::string outPath;

void removeFiles() {
    std::remove(inPath.c_str());
    std::remove(outPath.c_str());
}

// Round trips are checked on buffers up to this size, to keep runs fast.
const uint64_t kRoundTripLimit = 64 * 1024;

struct Result {
    bool ok;
    Status status;
    std::pair<unsigned, unsigned> bounds;
    boost::shared_ptr<std::vector<unsigned char> > buffer;
};

Result readFile(const std::string& path, bool skipChecksum) {
    common::HexFile file;
    Result result;
    result.ok = file.read(result.status, path, 0xA5, skipChecksum);
    result.bounds = file.getBoundaries();
    result.buffer = file.getBuffer();
    if (result.ok) {
        FUZZ_CHECK(result.buffer != nullptr, "success without a buffer");
        if (!result.buffer->empty())
            FUZZ_CHECK(
                uint64_t(result.bounds.second) - result.bounds.first + 1 == result.buffer->size(),
                "buffer size differs from the reported bounds");
    } else {
        const ErrorCode code = result.status.getErrorCode();
        FUZZ_CHECK(result.status.getSeverity() == SeverityError, "failure without error severity");
        FUZZ_CHECK(code == ERR_HEX_FORMAT || code == ERR_HEX_CHECKSUM ||
                       code == ERR_NOT_DECLARED || code == ERR_ADDRESS_RANGE,
                   "undocumented error code " + std::to_string(code) + ": " +
                       result.status.getMessage());
        FUZZ_CHECK(!result.status.getMessage().empty(), "failure without a message");
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // HexFile reads by name; a RAM-backed directory keeps that cheap.
    const char* dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    const std::string stem =
        std::string(dir) + "/libcommon-fuzz-hexfile-" + std::to_string(::getpid());
    inPath = stem + "-in.hex";
    outPath = stem + "-out.hex";
    std::atexit(removeFiles);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        std::FILE* file = std::fopen(inPath.c_str(), "wb");
        FUZZ_CHECK(file != nullptr, "cannot write " + inPath);
        FUZZ_CHECK(std::fwrite(data, 1, size, file) == size, "cannot write " + inPath);
        std::fclose(file);
    }
    const Result checked = readFile(inPath, false);
    const Result skipped = readFile(inPath, true);
    if (checked.ok) {
        FUZZ_CHECK(skipped.ok, "skipping checksums refused a file that passes them");
        FUZZ_CHECK(*skipped.buffer == *checked.buffer && skipped.bounds == checked.bounds,
                   "skipping checksums changed the content");
    }
    if (!skipped.ok || skipped.buffer->empty() || skipped.buffer->size() > kRoundTripLimit)
        return 0;

    common::HexFile writer;
    Status status;
    FUZZ_CHECK(writer.write(status, outPath, skipped.buffer, skipped.bounds.first,
                            skipped.bounds.second),
               "write failed: " + status.getMessage());
    const Result back = readFile(outPath, false);
    FUZZ_CHECK(back.ok, "a written file does not read back: " + back.status.getMessage());
    FUZZ_CHECK(back.bounds == skipped.bounds && *back.buffer == *skipped.buffer,
               "a written file reads back differently");
    return 0;
}
