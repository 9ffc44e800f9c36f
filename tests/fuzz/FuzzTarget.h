#pragma once

// The shape every target shares: the input arrives as text (or bytes), and a broken invariant
// aborts so libFuzzer keeps the input that broke it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace kelvo::fuzz {

inline void require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace kelvo::fuzz

// The body is defined in kelvo::fuzz, so it names the project's types and `require` unqualified.
#define KELVO_FUZZ_TARGET(input)                                                                   \
    namespace kelvo::fuzz {                                                                        \
    static void fuzzOne(std::string_view input);                                                   \
    }                                                                                              \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {            \
        kelvo::fuzz::fuzzOne({reinterpret_cast<const char*>(data), size});                         \
        return 0;                                                                                  \
    }                                                                                              \
    void kelvo::fuzz::fuzzOne(std::string_view input)
