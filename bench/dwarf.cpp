// Watch expressions on a real program: the library against GDB.
//
//   OpenAndIndex      open an ELF file and index its debug information
//   LibraryPerList    evaluate and print the whole expression list
//   GdbPerList        the same list in gdb-multiarch on the same file, timed
//                     inside GDB so that its start-up is not counted
//   GdbOpenAndPrint   one GDB run that opens the file and prints one value
//
// The per_expression counters are the figures to compare (goal: the library
// at least twice as fast as GDB). The expression list is the one the oracle
// test checks, tests/data/watchprog.expressions.

#include "../tests/dwarf/gdbprint.h"
#include "libcommon/dwarf/elfwatch.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

std::string program(const char* name) {
    return std::string(LIBCOMMON_DWARF_TEST_PROGRAMS) + "/" + name;
}

const std::vector<std::string>& expressions() {
    static const std::vector<std::string> list =
        readExpressionList(std::string(LIBCOMMON_DWARF_TEST_DATA) + "/watchprog.expressions");
    return list;
}

const char* const programs[] = {"watchprog-arm.elf", "watchprog-host.elf"};

void OpenAndIndex(benchmark::State& state) {
    std::string elf = program(programs[state.range(0)]);
    for (auto _ : state) {
        auto symbols = DwarfSymbolInformation::open(elf);
        benchmark::DoNotOptimize(symbols->getCompilerInfo());
    }
    state.SetLabel(programs[state.range(0)]);
}
BENCHMARK(OpenAndIndex)->DenseRange(0, 1)->UseRealTime()->Unit(benchmark::kMicrosecond);

void LibraryPerList(benchmark::State& state) {
    ElfWatch watch(program(programs[state.range(0)]));
    const std::vector<std::string>& list = expressions();
    for (auto _ : state)
        for (const std::string& e : list) benchmark::DoNotOptimize(watch.evaluate(e));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(list.size()));
    state.counters["per_expression"] =
        benchmark::Counter(static_cast<double>(state.iterations() * list.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetLabel(programs[state.range(0)]);
}
// Wall time, as GDB's side is measured.
BENCHMARK(LibraryPerList)->DenseRange(0, 1)->UseRealTime()->Unit(benchmark::kMicrosecond);

void GdbPerList(benchmark::State& state) {
    std::string elf = program(programs[state.range(0)]);
    const std::vector<std::string>& list = expressions();
    double perExpression = 0;
    for (auto _ : state) {
        perExpression = timeGdbPerExpression(elf, list, 20);
        state.SetIterationTime(perExpression * list.size());
    }
    state.counters["per_expression"] = perExpression;
    state.SetLabel(programs[state.range(0)]);
}
BENCHMARK(GdbPerList)
    ->DenseRange(0, 1)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMicrosecond);

void GdbOpenAndPrint(benchmark::State& state) {
    std::string elf = program(programs[state.range(0)]);
    for (auto _ : state) state.SetIterationTime(timeGdbOpen(elf, "c_int"));
    state.SetLabel(programs[state.range(0)]);
}
BENCHMARK(GdbOpenAndPrint)
    ->DenseRange(0, 1)
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
