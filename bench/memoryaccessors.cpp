// Throughput of accessor stacks over an in-memory target, next to a plain
// memcpy of the same size in the same run. The interesting ratio is the
// plain stack against memcpy for large aligned reads: the page path should
// move whole pages straight between buffers and allocate nothing per call.
// After the table, one goal line per stack: its throughput against memcpy,
// goal at least 0.5.
//
// Stacks:
//   stack:  bounded -> chunked(4 KiB) -> paged(256 B) -> target
//   shadow: bounded -> shadow(256 B pages) -> target, image already loaded
//   commit: 16 MiB written into a shadow, then committed through
//           chunked(4 KiB) -> paged(256 B) to the target

#include "libcommon/core/progress.h"
#include "libcommon/memory/memoryaccessors.h"
#include "libcommon/memory/shadowmemoryaccessor.h"
#include "sim/recordingmemory.h"

#include "benchgoals.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <cstring>
#include <string>
#include <vector>

namespace {

const uint64_t BASE = 0x20000000;
const unsigned int SIZE = 16u << 20;
const unsigned int CHUNK = 4096;
const unsigned int PAGE = 256;

boost::shared_ptr<RecordingMemory> makeTarget() {
    auto target = boost::make_shared<RecordingMemory>(BASE, SIZE, 0x5A);
    target->setRecording(false);  // the call log would allocate per call
    return target;
}

boost::shared_ptr<IMemoryAccessor> plainStack(boost::shared_ptr<IMemoryAccessor> target) {
    auto paged = boost::make_shared<PagedMemoryAccessor>(target, PAGE, false, false);
    auto chunked = boost::make_shared<ChunkedMemoryAccessor>(paged, CHUNK);
    return boost::make_shared<BoundedMemoryAccessor>(chunked, BASE, SIZE, 0);
}

void finish(benchmark::State& state) {
    state.SetBytesProcessed(int64_t(state.iterations()) * SIZE);
}

void BM_Memcpy(benchmark::State& state) {
    std::vector<unsigned char> from(SIZE, 0x5A);
    std::vector<unsigned char> to(SIZE);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), SIZE);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    finish(state);
}

void BM_StackRead(benchmark::State& state) {
    auto stack = plainStack(makeTarget());
    std::vector<unsigned char> buffer(SIZE);
    auto error = boost::make_shared<MemoryError>();
    // Arg 0: aligned; otherwise the request starts that many bytes into a
    // page, so every chunk goes through the scratch page at both ends.
    const unsigned int skew = static_cast<unsigned int>(state.range(0));
    for (auto _ : state) {
        stack->read(BASE + skew, SIZE - skew, buffer.begin(), error, nullptr);
        benchmark::DoNotOptimize(buffer.data());
    }
    finish(state);
}

void BM_StackWrite(benchmark::State& state) {
    auto stack = plainStack(makeTarget());
    const std::vector<unsigned char> data(SIZE, 0xA5);
    auto error = boost::make_shared<MemoryError>();
    const unsigned int skew = static_cast<unsigned int>(state.range(0));
    for (auto _ : state) {
        stack->write(BASE + skew, SIZE - skew, data.cbegin(), error, nullptr, false);
    }
    finish(state);
}

void BM_ShadowRead(benchmark::State& state) {
    auto shadow = boost::make_shared<ShadowMemoryAccessor>(makeTarget(), PAGE, SIZE, BASE);
    auto stack = boost::make_shared<BoundedMemoryAccessor>(shadow, BASE, SIZE, 0);
    std::vector<unsigned char> buffer(SIZE);
    auto error = boost::make_shared<MemoryError>();
    stack->read(BASE, SIZE, buffer.begin(), error, nullptr);  // load the image
    for (auto _ : state) {
        stack->read(BASE, SIZE, buffer.begin(), error, nullptr);
        benchmark::DoNotOptimize(buffer.data());
    }
    finish(state);
}

void BM_ShadowWrite(benchmark::State& state) {
    auto shadow = boost::make_shared<ShadowMemoryAccessor>(makeTarget(), PAGE, SIZE, BASE);
    auto stack = boost::make_shared<BoundedMemoryAccessor>(shadow, BASE, SIZE, 0);
    const std::vector<unsigned char> data(SIZE, 0xA5);
    auto error = boost::make_shared<MemoryError>();
    for (auto _ : state) {
        stack->write(BASE, SIZE, data.cbegin(), error, nullptr, false);
    }
    finish(state);
}

void BM_ShadowCommit(benchmark::State& state) {
    auto target = makeTarget();
    auto paged = boost::make_shared<PagedMemoryAccessor>(target, PAGE, false, false);
    auto chunked = boost::make_shared<ChunkedMemoryAccessor>(paged, CHUNK);
    auto shadow = boost::make_shared<ShadowMemoryAccessor>(chunked, CHUNK, SIZE, BASE);
    const std::vector<unsigned char> data(SIZE, 0xA5);
    auto error = boost::make_shared<MemoryError>();
    for (auto _ : state) {
        state.PauseTiming();
        shadow->write(BASE, SIZE, data.cbegin(), error, nullptr, false);
        state.ResumeTiming();
        IntermediateResult progress;
        shadow->commitChanges(&progress, error);
    }
    finish(state);
}

}  // namespace

BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StackRead)->Arg(0)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StackWrite)->Arg(0)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ShadowRead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ShadowWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ShadowCommit)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    GoalReporter reporter;
    if (!runBenchmarks(argc, argv, reporter))
        return 1;

    const double memcpyRate = reporter.bytesPerSecond("BM_Memcpy");
    printGoalHeader();
    for (const char* stack : {"BM_StackRead/0", "BM_StackRead/3", "BM_StackWrite/0",
                              "BM_StackWrite/3", "BM_ShadowRead", "BM_ShadowWrite",
                              "BM_ShadowCommit"}) {
        printGoal(std::string(stack + 3) + " vs memcpy",
                  reporter.bytesPerSecond(stack) / memcpyRate, GOAL_AT_LEAST, 0.5, "x");
    }
    return 0;
}
