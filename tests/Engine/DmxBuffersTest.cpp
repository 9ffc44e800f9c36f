#include "DMX/DmxFrame.h"

#include <gtest/gtest.h>

#include <limits>

namespace kelvo {
namespace {

TEST(DmxBuffersJson, ReadsUniversesOfChannelBytes) {
    EXPECT_EQ(parseDmxBuffersJSON(R"({"1":[0,1,255],"2":[],"10":[7]})"),
              (DmxFrame{{1, {0, 1, 255}}, {2, {}}, {10, {7}}}));
    EXPECT_EQ(parseDmxBuffersJSON(" { \"3\" : [ 1 , 2 ] } \n"), (DmxFrame{{3, {1, 2}}}));
    EXPECT_EQ(parseDmxBuffersJSON("{}"), DmxFrame{});
    // Brackets and quotes inside strings are text, whatever depth they sit at.
    EXPECT_EQ(parseDmxBuffersJSON(R"({"1":[1,2],"2":[{"x":"]"},"[",4],"a\"b":[1],"3":[null]})"),
              (DmxFrame{{1, {1, 2}}, {2, {0, 0, 4}}, {3, {0}}}));
}

TEST(DmxBuffersJson, ElementRules) {
    // Low 8 bits of the integer part; anything that is not a number is 0.
    EXPECT_EQ(
        parseDmxBuffersJSON(
            R"({"1":[256,257,-1,255.9,-255.5,1e3,-0.5,null,"9",true,{"a":[1]},[2],1e300,-1e300,-41E-341,1e999]})"),
        (DmxFrame{{1, {0, 1, 255, 255, 1, 232, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}}}));
    // Integers too long to be exact in a double are the double the script held (2^55 + 8).
    EXPECT_EQ(parseDmxBuffersJSON(R"({"1":[36028797018963970,36028797018963977,999999999999999]})"),
              (DmxFrame{{1, {0, 8, 255}}}));
}

TEST(DmxBuffersJson, KeyRules) {
    EXPECT_EQ(parseDmxBuffersJSON(R"({"+4":[1],"-2":[2],"abc":[3],"":[4],"1.5":[5],"0x1":[6],
                                      " 7":[7],"99999999999999999999":[8],"\u0031":[9]})"),
              (DmxFrame{{4, {1}}, {-2, {2}}}));
    std::int64_t universe = 0;
    EXPECT_TRUE(parseUniverseKey("-9223372036854775808", universe));
    EXPECT_EQ(universe, std::numeric_limits<std::int64_t>::min());
    EXPECT_TRUE(parseUniverseKey("9223372036854775807", universe));
    EXPECT_FALSE(parseUniverseKey("9223372036854775808", universe));
    for (const char* key : {"+", "-", "1-", "++1"})
        EXPECT_FALSE(parseUniverseKey(key, universe)) << key;
}

TEST(DmxBuffersJson, MalformedTextOrOneNonArrayValueGivesNothing) {
    for (const char* text :
         {R"({"1":[1],"2":5})", R"({"1":[1],"x":{}})", R"([[1,2]])", "5", "", R"({"1":[1,2)",
          R"({"1":[1,]})", R"({"1":[1]}x)", R"({"1" [1]})", R"({"1":[-]})", R"({"1":[1e]})",
          R"({"1":[-inf]})", "{\"1\":[1],\"x\n\":[2]}", R"({"1":[tru]})", R"({"1":[{"a":"]}"]})"})
        EXPECT_EQ(parseDmxBuffersJSON(text), DmxFrame{}) << text;
}

} // namespace
} // namespace kelvo
