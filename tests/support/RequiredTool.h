#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace kelvo::test {

/// True when running in CI, where a missing tool must fail the test rather than skip it.
inline bool runningInCI() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

} // namespace kelvo::test

/// Ends the current test when a required tool is unavailable: a failure in CI, else a skip.
#define KELVO_REQUIRE_TOOL(available, why)                                                         \
    do {                                                                                           \
        if (!(available)) {                                                                        \
            if (::kelvo::test::runningInCI())                                                      \
                FAIL() << (why);                                                                   \
            GTEST_SKIP() << (why);                                                                 \
        }                                                                                          \
    } while (0)
