#ifndef LIBCOMMON_FUZZ_FUZZCHECK_H
#define LIBCOMMON_FUZZ_FUZZCHECK_H

// Shared by the libFuzzer harnesses: a broken invariant is a finding like a
// crash, so it aborts with a message and libFuzzer keeps the input.

#include <cstdio>
#include <cstdlib>
#include <string>

#define FUZZ_CHECK(condition, what)                                                   \
    do {                                                                              \
        if (!(condition)) {                                                           \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, \
                         std::string(what).c_str());                                  \
            std::abort();                                                             \
        }                                                                             \
    } while (0)

#endif
