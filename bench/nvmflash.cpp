// Programming 256 KiB through the NVM driver on the simulated chip, on the
// plain block (64-byte pages) and on U2409 (512-byte pages).
//
// Counters per run:
//   bytes_per_byte    bytes over the interface (data, register accesses,
//                     polls) per byte programmed; the goal is 1.02 or less
//                     for programming erased flash
//   commands_per_page controller commands per page programmed
//   polls_per_page    reads of the ready bit per page
// The first argument picks the part, the second how many polls see the
// chip busy after a page write: 0 is the protocol's own cost (one poll per
// page), 1 makes every page wait once. Commands are ready at once.
// Host time is the benchmark's own time per iteration.

#include "libcommon/device/devicefile.h"
#include "libcommon/flash/nvmcontroller.h"
#include "sim/nvmchip.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <random>
#include <vector>

namespace {

const unsigned SIZE = 256u << 10;
const char* const PARTS[] = {"devices/CM0N256.xml", "devices/CM4U1024.xml"};

void program(benchmark::State& state, bool eraseFirst) {
    auto device = DeviceFile::load(PARTS[state.range(0)]);
    auto chip = boost::make_shared<NvmChip>(device);
    chip->setBusyPolls(0, unsigned(state.range(1)));
    NvmController flash(NvmControllerInformation(device), chip, false);
    std::vector<unsigned char> image(SIZE);
    std::mt19937 generator(1);
    for (unsigned char& b : image) b = (unsigned char)generator();

    NvmChip::Counters total;
    uint64_t commands = 0;
    for (auto _ : state) {
        state.PauseTiming();
        chip->eraseAll();
        chip->resetCounters();
        state.ResumeTiming();
        flash.programChip(0, SIZE, image.cbegin(), false, eraseFirst);
        flash.restoreCfgRegs();
        state.PauseTiming();
        const NvmChip::Counters& c = chip->getCounters();
        total.bytesRead += c.bytesRead;
        total.bytesWritten += c.bytesWritten;
        total.pagesProgrammed += c.pagesProgrammed;
        total.polls += c.polls;
        for (const auto& entry : c.commands) commands += entry.second;
        if (!chip->getViolations().empty() || chip->peek(0, SIZE) != image)
            state.SkipWithError("the chip did not end up with the image");
        state.ResumeTiming();
    }
    const double runs = double(state.iterations());
    state.counters["bytes_per_byte"] = double(total.bytesOverInterface()) / (runs * SIZE);
    state.counters["commands_per_page"] = double(commands) / double(total.pagesProgrammed);
    state.counters["polls_per_page"] = double(total.polls) / double(total.pagesProgrammed);
    state.SetBytesProcessed(int64_t(state.iterations()) * SIZE);
    state.SetLabel(PARTS[state.range(0)]);
}

void BM_ProgramErased(benchmark::State& state) {
    program(state, false);
}

void BM_EraseAndProgram(benchmark::State& state) {
    program(state, true);
}

}  // namespace

BENCHMARK(BM_ProgramErased)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EraseAndProgram)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
