#ifndef TARNPROG_ERRORS_H
#define TARNPROG_ERRORS_H

// The failures of tarnprog and the exit code each ends in. Every user error
// ends in one of these, with one message that names what was wrong.

#include <stdexcept>
#include <string>

namespace tarnprog {

enum ExitCode {
    EXIT_OK = 0,
    EXIT_MISMATCH = 1,  // verify found bytes that differ
    EXIT_USAGE = 2,     // the command line or an input file is wrong
    EXIT_TARGET = 3,    // the device, the target or its state
    EXIT_INTERRUPTED = 130
};

class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code(code) {}
    ExitCode getCode() const { return code; }

private:
    ExitCode code;
};

struct UsageError : ToolError {
    explicit UsageError(const std::string& message) : ToolError(EXIT_USAGE, message) {}
};

struct TargetError : ToolError {
    explicit TargetError(const std::string& message) : ToolError(EXIT_TARGET, message) {}
};

// Numbers on the command line: decimal, 0x hexadecimal or 0 octal, with an
// optional K or M suffix (1024, 1024 * 1024).
unsigned long long parseNumber(const std::string& text, const std::string& what);

}  // namespace tarnprog

#endif
