// Throughput and peak heap of both Intel HEX families on a 16 MiB image,
// next to srec_cat (Debian package "srecord", installed by the bootstrap)
// reading, writing and converting the same image in the same run. After
// the table, one goal line per direction and class against srec_cat doing
// the same: HexReader reads at least 5 times as fast, HexFile reads and
// both writers write at least twice as fast. Without srec_cat on the PATH
// those goals print as not measured.
//
// MB/s counts image bytes (not file text) per CPU second, in units of 10^6
// bytes: our side's process time, srec_cat's user and system time as its
// parent sees it. CPU time keeps the comparison fair on a shared machine,
// where wall time mostly measures the neighbours. srec_cat runs a fixed
// number of times, enough for a stable figure although each run takes long.
// Peak heap is the highest number of bytes held through operator new during
// one benchmark, above what was held before; for srec_cat it is the
// child's maximum resident set size.

#include "libcommon/image/hexfile.h"
#include "libcommon/image/hexwriter.h"

#include "benchgoals.h"

#include <benchmark/benchmark.h>

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

// ---------------------------------------------------------------------------
// Heap accounting: every operator new carries its size in a header.

namespace {

std::atomic<long long> gHeapNow(0);
std::atomic<long long> gHeapPeak(0);
const std::size_t kHeader = 16;  // keeps the alignment of malloc

// Neither is inlined into the replacement operators below: inlined, the
// compiler sees free() on a pointer from operator new and an offset before
// the caller's object, and warns about both, though the header makes it right.
[[gnu::noinline]] void* countedAlloc(std::size_t size) {
    void* raw = std::malloc(size + kHeader);
    if (raw == nullptr) {
        return nullptr;
    }
    *static_cast<std::size_t*>(raw) = size;
    const long long now = gHeapNow += static_cast<long long>(size);
    long long peak = gHeapPeak.load();
    while (now > peak && !gHeapPeak.compare_exchange_weak(peak, now)) {
    }
    return static_cast<char*>(raw) + kHeader;
}

[[gnu::noinline]] void countedFree(void* p) {
    if (p == nullptr) {
        return;
    }
    void* raw = static_cast<char*>(p) - kHeader;
    gHeapNow -= static_cast<long long>(*static_cast<std::size_t*>(raw));
    std::free(raw);
}

}  // namespace

void* operator new(std::size_t size) {
    void* p = countedAlloc(size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return countedAlloc(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return countedAlloc(size);
}
void operator delete(void* p) noexcept {
    countedFree(p);
}
void operator delete[](void* p) noexcept {
    countedFree(p);
}
void operator delete(void* p, std::size_t) noexcept {
    countedFree(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    countedFree(p);
}

namespace {

const unsigned kImageSize = 16 * 1024 * 1024;
// Above 1 MiB, so both extended record kinds and many 64K pages are used.
const unsigned kImageAddress = 0x00080000;

struct Fixture {
    boost::filesystem::path dir;
    std::string hexFile;
    std::string binFile;  // the image as raw bytes, what srec_cat writes from
    boost::shared_ptr<std::vector<unsigned char> > image;
    std::string srecCat;  // empty when not installed
};
Fixture gFixture;

// Image bytes per second of the last run of each benchmark, and its peak.
struct Figures {
    double mbPerSecond = 0;
    double peakMiB = 0;
};
std::map<std::string, Figures> gFigures;

std::string findOnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= dirs.size()) {
        std::size_t end = dirs.find(':', start);
        if (end == std::string::npos) {
            end = dirs.size();
        }
        const std::string candidate = dirs.substr(start, end - start) + "/" + program;
        if (end > start && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    return std::string();
}

double processSeconds() {
    timespec now = {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

class Measure {
public:
    explicit Measure(benchmark::State& state)
        : mState(state), mStart(processSeconds()), mBase(gHeapNow.load()) {
        gHeapPeak = mBase;
    }
    // seconds < 0: this process's CPU time since construction.
    void finish(const std::string& name, double peakBytes = -1, double seconds = -1) {
        if (seconds < 0) {
            seconds = processSeconds() - mStart;
        }
        const double bytes = double(kImageSize) * double(mState.iterations());
        if (peakBytes < 0) {
            peakBytes = double(gHeapPeak.load() - mBase);
        }
        mState.SetBytesProcessed(static_cast<int64_t>(bytes));
        mState.counters["MB/s"] = bytes / seconds / 1e6;
        mState.counters["peak_MiB"] = peakBytes / (1024.0 * 1024.0);
        Figures& f = gFigures[name];
        f.mbPerSecond = bytes / seconds / 1e6;
        f.peakMiB = peakBytes / (1024.0 * 1024.0);
    }

private:
    benchmark::State& mState;
    double mStart;
    long long mBase;
};

std::string outFile(const char* name) {
    return (gFixture.dir / name).string();
}

void hexFileRead(benchmark::State& state) {
    Measure measure(state);
    for (auto _ : state) {
        common::HexFile file;
        Status status;
        if (!file.read(status, gFixture.hexFile, 0xFF, false) ||
            file.getBuffer()->size() != kImageSize) {
            state.SkipWithError(status.getMessage().c_str());
            return;
        }
    }
    measure.finish("HexFile read");
}

void hexFileWrite(benchmark::State& state) {
    Measure measure(state);
    const std::string out = outFile("hexfile-out.hex");
    for (auto _ : state) {
        common::HexFile file;
        Status status;
        if (!file.write(status, out, gFixture.image, kImageAddress,
                        kImageAddress + kImageSize - 1)) {
            state.SkipWithError(status.getMessage().c_str());
            return;
        }
    }
    measure.finish("HexFile write");
}

void hexFileConvert(benchmark::State& state) {
    Measure measure(state);
    const std::string out = outFile("hexfile-convert.hex");
    for (auto _ : state) {
        common::HexFile file;
        Status status;
        if (!file.read(status, gFixture.hexFile, 0xFF, false)) {
            state.SkipWithError(status.getMessage().c_str());
            return;
        }
        const std::pair<unsigned, unsigned> bounds = file.getBoundaries();
        if (!file.write(status, out, file.getBuffer(), bounds.first, bounds.second)) {
            state.SkipWithError(status.getMessage().c_str());
            return;
        }
    }
    measure.finish("HexFile convert");
}

void hexReaderRead(benchmark::State& state) {
    Measure measure(state);
    for (auto _ : state) {
        common::HexReader reader(gFixture.hexFile, true);
        if (reader.getSegments().size() != 1) {
            state.SkipWithError("unexpected segments");
            return;
        }
    }
    measure.finish("HexReader read");
}

void writeSegments(std::vector<common::HexSegment> segments, const std::string& path) {
    std::ofstream out;
    std::vector<char> buffer(256 * 1024);
    out.rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    out.open(path.c_str(), std::ios::binary);
    HexWriter writer(out);
    for (common::HexSegment& segment : segments) {
        writer.write(segment.getAddress(), *segment.getData());
    }
    writer.endFile();
}

void hexWriterWrite(benchmark::State& state) {
    Measure measure(state);
    const std::string out = outFile("hexwriter-out.hex");
    const std::vector<common::HexSegment> segments(
        1, common::HexSegment(kImageAddress, gFixture.image));
    for (auto _ : state) {
        writeSegments(segments, out);
    }
    measure.finish("HexWriter write");
}

void hexReaderConvert(benchmark::State& state) {
    Measure measure(state);
    const std::string out = outFile("hexreader-convert.hex");
    for (auto _ : state) {
        common::HexReader reader(gFixture.hexFile, true);
        writeSegments(reader.getSegments(), out);
    }
    measure.finish("HexReader/HexWriter convert");
}

// What one srec_cat run cost: the child's peak resident set and CPU time.
struct ChildCost {
    bool ok = false;
    long peakBytes = 0;
    double seconds = 0;
};

ChildCost runSrecCat(std::vector<std::string> args) {
    args.insert(args.begin(), gFixture.srecCat);
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    ChildCost cost;
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        return cost;
    }
    int status = 0;
    struct rusage usage = {};
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        return cost;
    }
    cost.ok = true;
    cost.peakBytes = usage.ru_maxrss * 1024L;
    cost.seconds = double(usage.ru_utime.tv_sec) + double(usage.ru_utime.tv_usec) / 1e6 +
                   double(usage.ru_stime.tv_sec) + double(usage.ru_stime.tv_usec) / 1e6;
    return cost;
}

void srecCat(benchmark::State& state, const std::string& name,
             const std::vector<std::string>& args) {
    Measure measure(state);
    ChildCost total;
    for (auto _ : state) {
        const ChildCost cost = runSrecCat(args);
        if (!cost.ok) {
            state.SkipWithError("srec_cat failed");
            return;
        }
        total.peakBytes = std::max(total.peakBytes, cost.peakBytes);
        total.seconds += cost.seconds;
    }
    measure.finish(name, double(total.peakBytes), total.seconds);
}

// Reading: the HEX file into srec_cat's memory image, put out as raw bytes
// to /dev/null (the least work an output can be).
void srecCatRead(benchmark::State& state) {
    srecCat(state, "srec_cat read", {gFixture.hexFile, "-intel", "-o", "/dev/null", "-binary"});
}

// Writing: raw bytes, which take no parsing, to 16-byte HEX records.
void srecCatWrite(benchmark::State& state) {
    char offset[16];
    std::snprintf(offset, sizeof offset, "0x%X", kImageAddress);
    srecCat(state, "srec_cat write",
            {gFixture.binFile, "-binary", "-offset", offset, "-o", outFile("srec-out.hex"),
             "-intel", "-Output_Block_Size", "16"});
}

void srecCatConvert(benchmark::State& state) {
    srecCat(state, "srec_cat convert",
            {gFixture.hexFile, "-intel", "-o", outFile("srec-convert.hex"), "-intel",
             "-Output_Block_Size", "16"});
}

void prepare() {
    gFixture.dir = boost::filesystem::temp_directory_path() /
                   boost::filesystem::unique_path("libcommon-hexbench-%%%%-%%%%");
    boost::filesystem::create_directories(gFixture.dir);
    gFixture.image = boost::make_shared<std::vector<unsigned char> >(kImageSize);
    std::mt19937 rng(12345);
    for (unsigned char& b : *gFixture.image) {
        b = static_cast<unsigned char>(rng());
    }
    gFixture.hexFile = (gFixture.dir / "image.hex").string();
    common::HexFile file;
    Status status;
    if (!file.write(status, gFixture.hexFile, gFixture.image, kImageAddress,
                    kImageAddress + kImageSize - 1)) {
        throw std::runtime_error(status.getMessage());
    }
    gFixture.binFile = (gFixture.dir / "image.bin").string();
    std::ofstream bin(gFixture.binFile, std::ios::binary);
    bin.write(reinterpret_cast<const char*>(gFixture.image->data()),
              static_cast<std::streamsize>(gFixture.image->size()));
    if (!bin.flush()) {
        throw std::runtime_error("cannot write " + gFixture.binFile);
    }
    gFixture.srecCat = findOnPath("srec_cat");
}

void report() {
    std::printf("\nImage %u MiB, hex file %.1f MB\n", kImageSize >> 20,
                double(boost::filesystem::file_size(gFixture.hexFile)) / 1e6);
    std::printf("%-30s %10s %10s %12s\n", "", "MB/s", "peak MiB", "vs srec_cat");
    // Each row against srec_cat doing the same: reading, writing or converting.
    for (const auto& entry : gFigures) {
        const std::string& name = entry.first;
        const std::string direction = name.substr(name.rfind(' ') + 1);
        const auto anchor = gFigures.find("srec_cat " + direction);
        if (anchor != gFigures.end() && anchor->first != name) {
            std::printf("%-30s %10.1f %10.1f %11.2fx\n", name.c_str(), entry.second.mbPerSecond,
                        entry.second.peakMiB,
                        entry.second.mbPerSecond / anchor->second.mbPerSecond);
        } else {
            std::printf("%-30s %10.1f %10.1f %12s\n", name.c_str(), entry.second.mbPerSecond,
                        entry.second.peakMiB, "");
        }
    }
    if (gFixture.srecCat.empty()) {
        std::printf("srec_cat not found on PATH: anchor skipped.\n");
    }

    // Against srec_cat doing the same, per direction and class.
    const auto ratio = [](const char* ours, const char* theirs) {
        const auto a = gFigures.find(ours);
        const auto b = gFigures.find(theirs);
        if (a == gFigures.end() || b == gFigures.end() || b->second.mbPerSecond <= 0) {
            return std::numeric_limits<double>::quiet_NaN();
        }
        return a->second.mbPerSecond / b->second.mbPerSecond;
    };
    printGoalHeader();
    printGoal("HexFile read vs srec_cat read", ratio("HexFile read", "srec_cat read"),
              GOAL_AT_LEAST, 2.0, "x");
    printGoal("HexReader read vs srec_cat read", ratio("HexReader read", "srec_cat read"),
              GOAL_AT_LEAST, 5.0, "x");
    printGoal("HexFile write vs srec_cat write", ratio("HexFile write", "srec_cat write"),
              GOAL_AT_LEAST, 2.0, "x");
    printGoal("HexWriter write vs srec_cat write", ratio("HexWriter write", "srec_cat write"),
              GOAL_AT_LEAST, 2.0, "x");
}

}  // namespace

int main(int argc, char** argv) {
    prepare();
    const auto configure = [](benchmark::internal::Benchmark* b) {
        b->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
    };
    configure(benchmark::RegisterBenchmark("HexFile/read", hexFileRead));
    configure(benchmark::RegisterBenchmark("HexFile/write", hexFileWrite));
    configure(benchmark::RegisterBenchmark("HexFile/convert", hexFileConvert));
    configure(benchmark::RegisterBenchmark("HexReader/read", hexReaderRead));
    configure(benchmark::RegisterBenchmark("HexWriter/write", hexWriterWrite));
    configure(benchmark::RegisterBenchmark("HexReaderWriter/convert", hexReaderConvert));
    if (!gFixture.srecCat.empty()) {
        // Each run takes about a CPU second: a fixed count, not a minimum time.
        const auto fixedRuns = [](benchmark::internal::Benchmark* b) {
            b->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
        };
        fixedRuns(benchmark::RegisterBenchmark("srec_cat/read", srecCatRead));
        fixedRuns(benchmark::RegisterBenchmark("srec_cat/write", srecCatWrite));
        fixedRuns(benchmark::RegisterBenchmark("srec_cat/convert", srecCatConvert));
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    report();
    boost::system::error_code ignored;
    boost::filesystem::remove_all(gFixture.dir, ignored);
    return 0;
}
