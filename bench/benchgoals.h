#ifndef LIBCOMMON_BENCH_BENCHGOALS_H
#define LIBCOMMON_BENCH_BENCHGOALS_H

// Goal lines for the benchmark programs. A benchmark table alone leaves the
// reader to work out whether a goal was met; so each program prints, after
// its table and from the same run, one line per goal:
//
//     goal: <what>  <measured>  (goal >= <goal>)  met | NOT MET
//
// GoalReporter is the console reporter that also keeps what each benchmark
// measured, so the program can compute the figures of its goals.
//
//     GoalReporter reporter;
//     if (!runBenchmarks(argc, argv, reporter))
//         return 1;
//     printGoal("stack read vs memcpy",
//               reporter.bytesPerSecond("BM_StackRead/0") /
//                   reporter.bytesPerSecond("BM_Memcpy"),
//               GOAL_AT_LEAST, 0.5, "x");
//
// A goal whose benchmarks did not run (filtered out, or failed) prints as
// not measured, never as met.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <string>
#include <vector>

class GoalReporter : public benchmark::ConsoleReporter {
public:
    // Counters in columns; colour only on a terminal, as the default reporter.
    GoalReporter()
        : benchmark::ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                results[run.benchmark_name()] = run;
        }
        benchmark::ConsoleReporter::ReportRuns(runs);
    }

    // A counter of the first benchmark named name, or name followed by '/'
    // and its arguments or options; rates are per second. NaN when the
    // benchmark did not run or has no such counter.
    double counter(const std::string& name, const std::string& counterName) const {
        for (const auto& entry : results) {
            if (entry.first == name || entry.first.compare(0, name.size() + 1, name + "/") == 0) {
                const auto found = entry.second.counters.find(counterName);
                if (found != entry.second.counters.end())
                    return found->second.value;
            }
        }
        return std::numeric_limits<double>::quiet_NaN();
    }

    double bytesPerSecond(const std::string& name) const {
        return counter(name, "bytes_per_second");
    }

private:
    std::map<std::string, Run> results;
};

// The main of a program with goals: runs the benchmarks the command line
// selects through reporter. False for an unknown argument.
inline bool runBenchmarks(int argc, char** argv, GoalReporter& reporter) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return false;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return true;
}

enum GoalKind { GOAL_AT_LEAST, GOAL_AT_MOST };

inline void printGoalHeader() {
    std::printf("\nGoals (measured in this run):\n");
}

inline void printGoal(const std::string& what, double measured, GoalKind kind, double goal,
                      const char* unit) {
    const char* relation = kind == GOAL_AT_LEAST ? ">=" : "<=";
    if (std::isnan(measured)) {
        std::printf("goal: %-44s %10s  (goal %s %.2f%s)  not measured\n", what.c_str(), "-",
                    relation, goal, unit);
        return;
    }
    const bool met = kind == GOAL_AT_LEAST ? measured >= goal : measured <= goal;
    std::printf("goal: %-44s %9.2f%s  (goal %s %.2f%s)  %s\n", what.c_str(), measured, unit,
                relation, goal, unit, met ? "met" : "NOT MET");
}

#endif
