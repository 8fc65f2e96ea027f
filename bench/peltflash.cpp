// Programming 256 KiB through the Pelt flash accessor on a simulated
// TP32A512, reached through SimpleTarn32MemoryAccessor as a plug-in reaches
// a real chip. Reported per run:
//   wire_per_byte  bytes that crossed the target interface (reads and
//                  writes, registers included) per byte programmed;
//   read_per_byte  the read share of it (status polls, merged page reads);
//   fsr_per_page   status register reads per page written.
// The floor is 1.0: every page buffer has to be loaded once. Host time is
// the benchmark's own time per iteration.
//
//   aligned:   whole pages, so no page is read before it is written
//   unaligned: 123 bytes in, so the first and last pages are merged

#include "libcommon/flash/peltflashaccessor.h"
#include "libcommon/memory/targetaccessors.h"
#include "sim/peltchip.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <fstream>
#include <string>
#include <vector>

namespace {

// The sample device, from the working directory or beside this source.
std::string deviceFile() {
    const std::string local = "devices/TP32A512.xml";
    if (std::ifstream(local)) return local;
    const std::string source = __FILE__;
    return source.substr(0, source.rfind("/bench/")) + "/" + local;
}

const uint64_t FLASH = 0x80000000;
const unsigned SIZE = 256 * 1024;

void BM_ProgramThroughAccessor(benchmark::State& state) {
    const unsigned offset = static_cast<unsigned>(state.range(0));
    auto chip = PeltChip::fromDeviceFile(deviceFile());
    const auto type = static_cast<ITarn32Target::MemoryType>(0);
    auto bus = boost::make_shared<SimpleTarn32MemoryAccessor>(chip, type, type);
    auto flash = boost::make_shared<PeltInternalFlash>(chip->getDevice(), bus);
    PeltInternalFlashMemoryAccessor accessor(flash, bus,
                                             PeltInternalFlashMemoryAccessor::WriteModeEraseFirst,
                                             boost::function<void()>());
    std::vector<unsigned char> image(SIZE);
    for (unsigned i = 0; i < SIZE; ++i) image[i] = static_cast<unsigned char>(i * 7 + (i >> 9));

    PeltChip::Counters counters;
    for (auto _ : state) {
        state.PauseTiming();
        chip->reset();
        chip->resetCounters();
        state.ResumeTiming();
        accessor.write(FLASH + offset, SIZE, image.begin(), boost::shared_ptr<MemoryError>(),
                       nullptr, false);
        counters = chip->getCounters();
    }
    if (!chip->getViolations().empty() || chip->peekFlash(offset, SIZE) != image)
        state.SkipWithError("programming went wrong");
    const double pages = double(counters.commands[PeltChip::CMD_WP]);
    state.counters["wire_per_byte"] = double(counters.bytesRead + counters.bytesWritten) / SIZE;
    state.counters["read_per_byte"] = double(counters.bytesRead) / SIZE;
    state.counters["fsr_per_page"] = double(counters.statusReads) / pages;
    state.SetBytesProcessed(int64_t(state.iterations()) * SIZE);
}

}  // namespace

BENCHMARK(BM_ProgramThroughAccessor)->Arg(0)->Arg(123)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
