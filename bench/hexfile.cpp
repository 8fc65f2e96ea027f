// Throughput and peak heap of both Intel HEX families on a 16 MiB image,
// next to srec_cat (Debian package "srecord") converting the same file in
// the same run. srec_cat is only run when it is on the PATH; without it
// the anchor is left out and said so.
//
// MB/s counts image bytes (not file text) per second of wall time, in
// units of 10^6 bytes. Peak heap is the highest number of bytes held
// through operator new during one benchmark, above what was held before;
// for srec_cat it is the child's maximum resident set size.

#include "libcommon/image/hexfile.h"
#include "libcommon/image/hexwriter.h"

#include <benchmark/benchmark.h>

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
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

class Measure {
public:
    explicit Measure(benchmark::State& state)
        : mState(state), mStart(std::chrono::steady_clock::now()), mBase(gHeapNow.load()) {
        gHeapPeak = mBase;
    }
    void finish(const std::string& name, double peakBytes = -1) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
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
    std::chrono::steady_clock::time_point mStart;
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

// One srec_cat conversion; returns the child's peak resident set in bytes.
long runSrecCat(const std::string& out) {
    const std::string in = gFixture.hexFile;
    std::vector<std::string> args = {gFixture.srecCat, in,   "-intel", "-o", out, "-intel",
                                     "-Output_Block_Size", "16"};
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        return -1;
    }
    int status = 0;
    struct rusage usage = {};
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        return -1;
    }
    return usage.ru_maxrss * 1024L;
}

void srecCatConvert(benchmark::State& state) {
    Measure measure(state);
    const std::string out = outFile("srec-convert.hex");
    long peak = 0;
    for (auto _ : state) {
        const long rss = runSrecCat(out);
        if (rss < 0) {
            state.SkipWithError("srec_cat failed");
            return;
        }
        peak = std::max(peak, rss);
    }
    measure.finish("srec_cat convert", double(peak));
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
    gFixture.srecCat = findOnPath("srec_cat");
}

void report() {
    std::printf("\nImage %u MiB, hex file %.1f MB\n", kImageSize >> 20,
                double(boost::filesystem::file_size(gFixture.hexFile)) / 1e6);
    std::printf("%-30s %10s %10s %12s\n", "", "MB/s", "peak MiB", "vs srec_cat");
    const auto anchor = gFigures.find("srec_cat convert");
    for (const auto& entry : gFigures) {
        const bool comparable = entry.first.find("convert") != std::string::npos;
        if (anchor != gFigures.end() && comparable) {
            std::printf("%-30s %10.1f %10.1f %11.2fx\n", entry.first.c_str(),
                        entry.second.mbPerSecond, entry.second.peakMiB,
                        entry.second.mbPerSecond / anchor->second.mbPerSecond);
        } else {
            std::printf("%-30s %10.1f %10.1f %12s\n", entry.first.c_str(),
                        entry.second.mbPerSecond, entry.second.peakMiB, "");
        }
    }
    if (gFixture.srecCat.empty()) {
        std::printf("srec_cat not found on PATH: anchor skipped.\n");
    }
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
        configure(benchmark::RegisterBenchmark("srec_cat/convert", srecCatConvert));
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
