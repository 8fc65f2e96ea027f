#ifndef LIBCOMMON_TESTS_DWARF_TESTPROGRAMS_H
#define LIBCOMMON_TESTS_DWARF_TESTPROGRAMS_H

// Paths of the test programs built from tests/data/watchprog.c, and the
// variants the suites run over.

#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <utility>

inline std::string testProgram(const std::string& name) {
    return std::string(LIBCOMMON_DWARF_TEST_PROGRAMS) + "/" + name;
}

// The programs with debug information: Cortex-M with DWARF 5 and DWARF 4,
// and the host's 64-bit build.
inline const char* const debugPrograms[] = {"watchprog-arm.elf", "watchprog-arm-dwarf4.elf",
                                            "watchprog-host.elf"};

// The test name of a program variant: its file name, punctuation as '_'.
inline std::string programTestName(const ::testing::TestParamInfo<const char*>& info) {
    std::string name = info.param;
    for (char& ch : name)
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return name;
}

// Runs f and returns the code and message of the CoreException it throws;
// records a test failure when it throws none.
template <class F>
std::pair<ErrorCode, std::string> coreFailure(F f) {
    try {
        f();
    } catch (const CoreException& e) {
        return std::make_pair(e.getStatus()->getErrorCode(), e.getStatus()->getMessage());
    }
    ADD_FAILURE() << "no CoreException";
    return std::make_pair(ERR_NONE, std::string());
}

#endif
