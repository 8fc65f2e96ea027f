#ifndef LIBCOMMON_TESTS_MEMORY_COREFAILURE_H
#define LIBCOMMON_TESTS_MEMORY_COREFAILURE_H

// Runs f and returns the code and message of the CoreException it throws;
// records a test failure when it throws none.

#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

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
