// tarnprog's chip state files: any file content is either refused with a
// TargetError or loads into a state that saves and loads back unchanged.
// The state file is what a user can damage by hand between two runs.

#include "fuzzcheck.h"

// The reader is part of the tool, not the library; built into the harness.
#include "../tools/tarnprog/statefile.cpp"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace {

const std::string& scratchPath() {
    static const std::string path =
        "/dev/shm/fuzz-statefile-" + std::to_string(static_cast<long>(getpid()));
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& path = scratchPath();
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    tarnprog::ChipState state;
    try {
        FUZZ_CHECK(tarnprog::loadState(path, state), "an existing file reported as missing");
    } catch (const tarnprog::TargetError&) {
        return 0;
    }
    tarnprog::saveState(path, state);
    tarnprog::ChipState again;
    FUZZ_CHECK(tarnprog::loadState(path, again), "a saved state is missing");
    FUZZ_CHECK(again.device == state.device && again.blocks == state.blocks,
               "a saved state loads back differently");
    return 0;
}
