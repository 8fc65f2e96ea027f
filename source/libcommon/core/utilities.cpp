#include "libcommon/core/utilities.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/thread/thread.hpp>
#include <cstdio>
#include <cstring>
#include <limits>

// ---- FormatString -----------------------------------------------------------

namespace {
const std::size_t kInitialCapacity = 256;
const std::size_t kLastDoubling = 0x80000;  // capacities above this are not doubled
}  // namespace

FormatString::FormatString(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    format(fmt, args);
    va_end(args);
}

FormatString::FormatString(const FormatString& other) { *this = other; }

FormatString& FormatString::operator=(const FormatString& other) {
    if (this != &other) {
        buffer.capacity = other.buffer.capacity;
        buffer.data.reset();
        if (other.buffer.data) {
            buffer.data.reset(new char[buffer.capacity]);
            std::memcpy(buffer.data.get(), other.buffer.data.get(), buffer.capacity);
        }
    }
    return *this;
}

FormatString::~FormatString() = default;

FormatString& FormatString::operator()(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    format(fmt, args);
    va_end(args);
    return *this;
}

const char* FormatString::c_str() const { return buffer.data ? buffer.data.get() : ""; }

void FormatString::format(const char* fmt, va_list args) {
    // Each call asks for 256 bytes first; a larger buffer from an earlier
    // call is kept.
    std::size_t wanted = kInitialCapacity;
    for (;;) {
        if (buffer.capacity < wanted) {
            buffer.data.reset(new char[wanted]);
            buffer.capacity = wanted;
        }
        va_list copy;
        va_copy(copy, args);
        int n = std::vsnprintf(buffer.data.get(), buffer.capacity, fmt, copy);
        va_end(copy);
        buffer.data[buffer.capacity - 1] = '\0';
        if (n < 0 || static_cast<std::size_t>(n) < buffer.capacity) return;
        if (buffer.capacity > kLastDoubling) return;  // what fits, stands
        wanted = buffer.capacity * 2;
    }
}

// ---- Timer ------------------------------------------------------------------

struct Timer::Impl {
    boost::posix_time::ptime deadline;
};

namespace {
boost::posix_time::ptime now() { return boost::posix_time::microsec_clock::local_time(); }
}  // namespace

// Without a deadline the timer never times out, and remaining() reads the
// largest long: nothing is due.
Timer::Timer() : impl(new Impl{boost::posix_time::ptime()}) {}

void Timer::restart(long milliseconds) {
    impl->deadline = now() + boost::posix_time::milliseconds(milliseconds);
}

long Timer::remaining() const {
    if (impl->deadline.is_special()) return std::numeric_limits<long>::max();
    return static_cast<long>((impl->deadline - now()).total_milliseconds());
}

bool Timer::timedOut() const {
    return !impl->deadline.is_special() && impl->deadline < now();
}

// ---- Free functions -----------------------------------------------------------

void waitMsec(unsigned int milliseconds) {
    boost::this_thread::sleep(boost::posix_time::milliseconds(milliseconds));
}

// Thread names for a debugger exist only on Windows; elsewhere nothing to do.
void setThreadName(unsigned long, const char*) {}

int getTrailingZeroes(unsigned long value) {
    if (value == 0) return 4;
    int n = 0;
    while (!(value & 1UL)) {
        value >>= 1;
        ++n;
    }
    return n;
}

namespace {
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int decodeChar(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}
}  // namespace

std::string base64_encode(std::vector<unsigned char>& data) {
    std::string out;
    out.reserve((data.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= data.size(); i += 3) {
        unsigned int v = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += kAlphabet[(v >> 6) & 63];
        out += kAlphabet[v & 63];
    }
    std::size_t rest = data.size() - i;
    if (rest > 0) {
        unsigned int v = data[i] << 16;
        if (rest == 2) v |= data[i + 1] << 8;
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

void base64_decode(const std::string& text, std::vector<unsigned char>& output) {
    unsigned int group = 0;
    int count = 0;
    for (char c : text) {
        int v = decodeChar(c);
        if (v < 0) break;  // '=' or anything outside the alphabet ends the input
        group = (group << 6) | static_cast<unsigned int>(v);
        if (++count == 4) {
            output.push_back(static_cast<unsigned char>(group >> 16));
            output.push_back(static_cast<unsigned char>(group >> 8));
            output.push_back(static_cast<unsigned char>(group));
            group = 0;
            count = 0;
        }
    }
    // A last group of n characters carries n - 1 bytes.
    group <<= 6 * (4 - count);
    for (int k = 0; k < count - 1; ++k) {
        output.push_back(static_cast<unsigned char>(group >> (16 - 8 * k)));
    }
}
