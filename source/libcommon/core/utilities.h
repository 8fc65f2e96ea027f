#ifndef LIBCOMMON_CORE_UTILITIES_H
#define LIBCOMMON_CORE_UTILITIES_H

// Small helpers: printf-style string builder, deadline timer, sleeping,
// thread naming, a bit helper and base64.

#include <boost/shared_ptr.hpp>
#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

// Lets the compiler check printf-style arguments of the library's own
// formatting functions.
#if defined(__GNUC__)
#define LC_PRINTF(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))
#else
#define LC_PRINTF(fmtIndex, firstArg)
#endif

class FormatString {
public:
    FormatString() = default;
    explicit FormatString(const char* format, ...) LC_PRINTF(2, 3);
    FormatString(const FormatString& other);
    FormatString& operator=(const FormatString& other);
    virtual ~FormatString();

    FormatString& operator()(const char* format, ...) LC_PRINTF(2, 3);
    const char* c_str() const;
    operator std::string() const { return c_str(); }

private:
    struct Buffer {
        std::size_t capacity = 0;
        std::unique_ptr<char[]> data;
    };
    void format(const char* format, va_list args);
    Buffer buffer;
};

class Timer {
public:
    Timer();
    void restart(long milliseconds);
    long remaining() const;
    bool timedOut() const;

private:
    struct Impl;
    boost::shared_ptr<Impl> impl;  // copies share the deadline
};

// Sleeps on a boost::thread interruption point.
void waitMsec(unsigned int milliseconds);
// Names a thread for a debugger; no effect on behaviour.
void setThreadName(unsigned long threadId, const char* name);
// Index of the lowest set bit; 4 for the value 0.
int getTrailingZeroes(unsigned long value);

std::string base64_encode(std::vector<unsigned char>& data);
// Appends to output; stops silently at '=' or the first character outside
// the alphabet.
void base64_decode(const std::string& text, std::vector<unsigned char>& output);

#endif
