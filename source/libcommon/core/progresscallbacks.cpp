#include "libcommon/core/progresscallbacks.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdarg>
#include <cstdio>

namespace {
const char kBar[] = "==================================================";  // 50 signs

void line(const char* format, ...) __attribute__((format(printf, 1, 2)));
void line(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fflush(stderr);
}
}  // namespace

// ---- ProgramProgressCallback --------------------------------------------------

// A zero total or negative counts have no meaningful percentage; they are
// shown as 0 % rather than dividing by zero.
void ProgramProgressCallback::increase(int amount) {
    progress += amount;
    double percent = 0.0;
    if (total > 0 && progress > 0) {
        percent = static_cast<unsigned int>(progress) * 100.0 / static_cast<unsigned int>(total);
    }
    if (percent > 100.0) percent = 100.0;
    int signs = static_cast<int>(percent) / 2;
    if (signs > 50) signs = 50;
    line("%20s: %-50s %5.1f%%\r", currentTask.c_str(), kBar + (50 - signs), percent);
}

void ProgramProgressCallback::finish() { line("\n"); }

// ---- EraseProgressCallback ----------------------------------------------------

EraseProgressCallback::~EraseProgressCallback() {
    if (!finished) line("\n");
}

void EraseProgressCallback::increase(int amount) {
    static const char spinner[] = {'-', '\\', '|', '/'};
    // A negative step is taken by its magnitude so the index stays in range.
    unsigned int step = amount < 0 ? 0U - static_cast<unsigned int>(amount) : static_cast<unsigned int>(amount);
    line("%20s: %c\r", "Erasing flash", spinner[step % 4]);
}

void EraseProgressCallback::finish() {
    if (finished) return;
    line("       Erasing flash: done\n");
    finished = true;
}

// ---- ChipEraseProgressCallback --------------------------------------------------

void ChipEraseProgressCallback::increase(int) {
    using namespace boost::posix_time;
    if (!started) {
        startTime = second_clock::local_time();
        started = true;
        remaining = total;
    } else {
        remaining = total - static_cast<int>((second_clock::local_time() - startTime).total_seconds());
    }
    if (remaining >= 60) {
        int minutes = remaining / 60;
        int seconds = remaining % 60;
        line("%20s: Remaining time %d %s and %d seconds.   \r", currentTask.c_str(), minutes,
             minutes > 1 ? "minutes" : "minute", seconds);
    } else {
        line("%20s: Remaining time: %d seconds.                 \r", currentTask.c_str(),
             remaining > 0 ? remaining : 0);
    }
}

void ChipEraseProgressCallback::finish() {
    line("%20s: done                                   \n", currentTask.c_str());
}
