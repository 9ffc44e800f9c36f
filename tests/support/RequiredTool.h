#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>

/// Ends the current test when a required tool is unavailable: a failure in CI (CI=true), where
/// a missing tool must not pass unnoticed, else a skip.
#define KELVO_REQUIRE_TOOL(available, why)                                                         \
    do {                                                                                           \
        if (!(available)) {                                                                        \
            if (const char* ci = std::getenv("CI"); ci && std::string_view(ci) == "true")          \
                FAIL() << (why);                                                                   \
            GTEST_SKIP() << (why);                                                                 \
        }                                                                                          \
    } while (0)
