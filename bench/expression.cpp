// Parse and evaluation time of watch expressions on the expression tests'
// fixture program, 32-bit profile, whose memory is in host RAM (so the
// figures are the engine's own, not a target's):
//   - BM_Watch: one typical watch expression per run, parsed and evaluated
//     through evalExpression; BM_Parse: the same texts parsed only;
//   - BM_Nesting/<depth>: "(((counter + 1)))" nested 10, 50 and 200 deep,
//     which must grow linearly (200 deep well under 10 ms);
//   - BM_EightExpressions: a set of eight typical watch expressions
//     (member access, indexing, arithmetic, a cast, sizeof, address-of, a
//     conditional, a pointer chain), counted per expression.
// After the table, goal lines: the eight-expression time per expression at
// most 25 microseconds, depth 200 at most 10 ms, and the growth from depth
// 50 to 200 at most 5 times (linear is 4). When gdb-multiarch and
// arm-none-eabi-gcc are on the PATH, GDB evaluates the same eight
// expressions on the same data in a static ELF file, in the same run, and
// a goal line asks for twice its speed. GDB's time is the CPU time of the
// child processes, less that of a run that only loads the file.

#include "libcommon/expr/evaluation.h"
#include "libcommon/expr/grammar.h"
#include "libcommon/expr/symbolaccess.h"

// The fixture program of the expression tests, built into this program.
#include "../tests/expr/exprfixture.cpp"

#include <benchmark/benchmark.h>

#include <boost/make_shared.hpp>

#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace {

const std::vector<std::string> kWatches = {
    "counter",
    "flags.c",
    "nums[2]",
    "node.next->value",
    "counter * 2 + 1",
    "(char)lg",
    "sizeof(struct Flags)",
    "&nums[1]",
    "counter > 3 ? lg : ul",
    "buf[1], hex",
};

const std::vector<std::string> kEight = {
    "flags.c",
    "nums[2]",
    "counter * 3 + lg",
    "(unsigned char)ul",
    "sizeof(struct Flags)",
    "&nums[1]",
    "counter > 3 ? lg : 0",
    "node.next->value",
};

struct Program {
    ExprFixture fx{ExprFixture::TARN32};
    boost::shared_ptr<SymbolAccessorApi> api = boost::make_shared<SymbolAccessorApi>(
        fx.symbolInformation, fx.frame, fx.compilerInfo, fx.types, fx.symbols);
};

Program& program() {
    static Program instance;
    return instance;
}

// The lists live across all runs, as a plug-in keeps them for a whole
// debug session.
value evaluate(Program& p, const std::string& text) {
    return evalExpression(text, p.api);
}

std::string nested(int depth) {
    return std::string(static_cast<std::size_t>(depth), '(') + "counter + 1" +
           std::string(static_cast<std::size_t>(depth), ')');
}

void BM_Watch(benchmark::State& state) {
    Program& p = program();
    const std::string& text = kWatches[static_cast<std::size_t>(state.range(0))];
    state.SetLabel(text);
    for (auto _ : state) benchmark::DoNotOptimize(evaluate(p, text).val);
}
BENCHMARK(BM_Watch)->DenseRange(0, static_cast<int>(kWatches.size()) - 1);

void BM_Parse(benchmark::State& state) {
    const std::string& text = kWatches[static_cast<std::size_t>(state.range(0))];
    const TypedefQuery none = [](const std::string&) { return false; };
    state.SetLabel(text);
    for (auto _ : state) benchmark::DoNotOptimize(parseExpressionText(text, none).children.size());
}
BENCHMARK(BM_Parse)->DenseRange(0, static_cast<int>(kWatches.size()) - 1);

void BM_Nesting(benchmark::State& state) {
    Program& p = program();
    const std::string text = nested(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(evaluate(p, text).val);
}
BENCHMARK(BM_Nesting)->Arg(10)->Arg(50)->Arg(200)->Unit(benchmark::kMicrosecond);

void BM_EightExpressions(benchmark::State& state) {
    Program& p = program();
    for (auto _ : state) {
        for (const std::string& text : kEight) benchmark::DoNotOptimize(evaluate(p, text).val);
    }
    // Seconds per expression.
    state.counters["per_expression"] = benchmark::Counter(
        static_cast<double>(kEight.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_EightExpressions);

// Keeps the CPU time per iteration of every run, for the goal lines.
class GoalReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                seconds[run.benchmark_name()] =
                    run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
                for (const auto& c : run.counters) counters[run.benchmark_name()] = c.second.value;
            }
        }
        benchmark::ConsoleReporter::ReportRuns(runs);
    }
    double secondsOf(const std::string& name) const {
        auto found = seconds.find(name);
        return found == seconds.end() ? std::numeric_limits<double>::quiet_NaN() : found->second;
    }
    double counterOf(const std::string& name) const {
        auto found = counters.find(name);
        return found == counters.end() ? std::numeric_limits<double>::quiet_NaN() : found->second;
    }

private:
    std::map<std::string, double> seconds;
    std::map<std::string, double> counters;
};

void printGoal(const char* what, double measured, double goal, const char* unit) {
    if (std::isnan(measured)) {
        std::printf("goal: %-40s %10s  (goal <= %.2f%s)  not measured\n", what, "-", goal, unit);
        return;
    }
    std::printf("goal: %-40s %9.2f%s  (goal <= %.2f%s)  %s\n", what, measured, unit, goal, unit,
                measured <= goal ? "met" : "NOT MET");
}

// CPU seconds of the children that ended while command ran.
double childSeconds(const std::string& command) {
    auto seconds = [] {
        rusage usage{};
        getrusage(RUSAGE_CHILDREN, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
    };
    const double before = seconds();
    if (std::system(command.c_str()) != 0) return std::numeric_limits<double>::quiet_NaN();
    return seconds() - before;
}

// GDB's CPU time per expression for the eight expressions on the fixture's
// data, compiled into a static ELF file; NaN without the tools.
double gdbSecondsPerExpression() {
    if (std::system("command -v gdb-multiarch >/dev/null && command -v arm-none-eabi-gcc "
                    ">/dev/null") != 0)
        return std::numeric_limits<double>::quiet_NaN();
    char dir[] = "/tmp/bench_expression_XXXXXX";
    if (!mkdtemp(dir)) return std::numeric_limits<double>::quiet_NaN();
    const std::string base = dir;
    std::ofstream(base + "/prog.c")
        << "struct Flags { unsigned char a : 3; unsigned char b : 5; int c;\n"
           "               struct { int x; int y; }; };\n"
           "struct Node { int value; struct Node *next; };\n"
           "int counter = 5; long lg = 100000; unsigned long ul = 0xDEADBEEF;\n"
           "struct Flags flags = {5, 17, -300, {7, -8}};\n"
           "int nums[4] = {10, 20, 30, 40};\n"
           "struct Node node = {42, &node};\n"
           "void _start(void) { for (;;) ; }\n";
    const int rounds = 500;
    {
        std::ofstream commands(base + "/eight.gdb");
        for (int i = 0; i < rounds; ++i) {
            for (const std::string& text : kEight) commands << "print " << text << "\n";
        }
    }
    std::ofstream(base + "/none.gdb") << "\n";
    double perExpression = std::numeric_limits<double>::quiet_NaN();
    if (std::system(("arm-none-eabi-gcc -g -O0 -nostdlib -ffreestanding -Wl,-e,_start -o " + base +
                     "/prog.elf " + base + "/prog.c")
                        .c_str()) == 0) {
        const std::string gdb = "gdb-multiarch -batch -nx " + base + "/prog.elf -x ";
        const double loadOnly = childSeconds(gdb + base + "/none.gdb >/dev/null 2>&1");
        const double eight = childSeconds(gdb + base + "/eight.gdb >/dev/null 2>&1");
        perExpression = (eight - loadOnly) / (rounds * static_cast<double>(kEight.size()));
    }
    std::system(("rm -rf " + base).c_str());
    return perExpression;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    GoalReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nGoals (measured in this run, CPU time):\n");
    const double ours = reporter.counterOf("BM_EightExpressions");
    printGoal("eight expressions, per expression", ours * 1e6, 25.0, "us");
    const double gdb = gdbSecondsPerExpression();
    if (!std::isnan(gdb))
        std::printf("gdb-multiarch, same eight expressions:    %9.2fus per expression\n",
                    gdb * 1e6);
    // At most half of GDB's time.
    printGoal("eight expressions, share of GDB's time", ours / gdb, 0.5, "x");
    printGoal("nesting depth 200", reporter.secondsOf("BM_Nesting/200") * 1e3, 10.0, "ms");
    printGoal("nesting growth 50 -> 200 (linear: 4)",
              reporter.secondsOf("BM_Nesting/200") / reporter.secondsOf("BM_Nesting/50"), 5.0, "x");
    return 0;
}
