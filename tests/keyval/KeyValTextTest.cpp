// The pair-list text form: "(key,value)" groups back to back.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "controller/SensorKeys.h"
#include "keyval/SensorKeyVal.h"

namespace {

// Parses text into a generous array, also checking that the room counted
// beforehand is exactly what the parse used.
std::vector<KeyVal> parse(const std::string& text) {
    std::vector<KeyVal> vecPairs(64, KeyVal{0xdead, 0xbeef});
    u32 nCount = 12345;
    keyval_str2st(text, vecPairs.data(), &nCount);
    EXPECT_EQ(keyval_str_count(text), nCount) << text;
    vecPairs.resize(nCount);
    return vecPairs;
}

bool same(const std::vector<KeyVal>& actual, const std::vector<std::pair<int, int>>& expected) {
    if (actual.size() != expected.size())
        return false;
    for (size_t i = 0; i < actual.size(); ++i)
        if (static_cast<int>(actual[i].key) != expected[i].first ||
            static_cast<int>(actual[i].value) != expected[i].second)
            return false;
    return true;
}

} // namespace

TEST(KeyValText, TwoGroupsStoreTwoPairs) {
    EXPECT_TRUE(same(parse("(1,2)(3,4)"), {{1, 2}, {3, 4}}));
}

TEST(KeyValText, EmptyTextStoresNone) {
    EXPECT_TRUE(parse("").empty());
}

TEST(KeyValText, UnclosedGroupStoresNone) {
    EXPECT_TRUE(parse("(1,2").empty());
}

TEST(KeyValText, MalformedGroupRepeatsPreviousPair) {
    EXPECT_TRUE(same(parse("(5,6)(x)"), {{5, 6}, {5, 6}}));
}

TEST(KeyValText, MalformedFirstGroupYieldsZeroPair) {
    EXPECT_TRUE(same(parse("(x)"), {{0, 0}}));
}

TEST(KeyValText, GroupWithOnlyKeyKeepsPreviousValue) {
    EXPECT_TRUE(same(parse("(5,6)(7)"), {{5, 6}, {7, 6}}));
}

TEST(KeyValText, TrailingLoneOpeningBracketStopsBeforeIt) {
    EXPECT_TRUE(same(parse("(1,2)("), {{1, 2}}));
    EXPECT_TRUE(parse("(").empty());
}

TEST(KeyValText, NegativeNumbersAreSigned) {
    const std::vector<KeyVal> vecPairs = parse("(34,-1)");
    ASSERT_EQ(1u, vecPairs.size());
    EXPECT_EQ(34u, vecPairs[0].key);
    EXPECT_EQ(0xffffffffu, vecPairs[0].value);
}

TEST(KeyValText, TextBetweenGroupsIsIgnored) {
    EXPECT_TRUE(same(parse("ab(1,2) ,(3,4)zz"), {{1, 2}, {3, 4}}));
}

TEST(KeyValText, ClosingBracketBeforeOpeningReadsToTheEnd) {
    // ")" is searched from the position, not from the "(": the first group
    // runs to the end of the text and the real group is read a second time.
    EXPECT_TRUE(same(parse(")(1,2)"), {{1, 2}, {1, 2}}));
}

TEST(KeyValText, CountMatchesParseForHostileTexts) {
    for (const char* text :
         {"((((", "))))", "()()()", "(()", ")()(", "(1,2)(3,4)(5,6)(", "(,)(,)", "x(1)y(2)z"})
        (void)parse(text);
}

TEST(KeyValText, CountOfManyGroups) {
    std::string strText;
    for (int i = 0; i < 1000; ++i)
        strText += "(" + std::to_string(i) + ",1)";
    EXPECT_EQ(1000u, keyval_str_count(strText));
}

TEST(KeyValText, WriteAppendsEveryPair) {
    KeyVal arPairs[] = {{KEY_BRIGHTNESS, 50}, {KEY_SATURATION, 60}};
    std::string strText;
    keyval_st2str(strText, arPairs, 2);
    EXPECT_EQ("(34,50)(2337,60)", strText);
}

TEST(KeyValText, WriteWithCountZeroLeavesTextUnchanged) {
    KeyVal arPairs[] = {{KEY_BRIGHTNESS, 50}};
    std::string strText = "(1,2)";
    keyval_st2str(strText, arPairs, 0);
    EXPECT_EQ("(1,2)", strText);
    std::string strEmpty;
    keyval_st2str(strEmpty, arPairs, 0);
    EXPECT_EQ("", strEmpty);
}

TEST(KeyValText, WriteAppendsToNonEmptyText) {
    KeyVal arPairs[] = {{3, 4}};
    std::string strText = "(1,2)";
    keyval_st2str(strText, arPairs, 1);
    EXPECT_EQ("(1,2)(3,4)", strText);
}

TEST(KeyValText, WritePrintsValuesSigned) {
    KeyVal arPairs[] = {{7, 0xffffffffu}};
    std::string strText;
    keyval_st2str(strText, arPairs, 1);
    EXPECT_EQ("(7,-1)", strText);
}

// Every pair reads exactly as "(%d,%d)" prints it, bounds and signs included.
TEST(KeyValText, WrittenPairsReadAsTheFormatterPrintsThem) {
    std::vector<u32> vecNumbers = {0u,          1u,          9u,          10u,
                                   99u,         100u,        4112u,       0x7fffffffu,
                                   0x80000000u, 0x80000001u, 0xfffffff6u, 0xffffffffu};
    for (u32 n = 1; n != 0 && n < 0x40000000u; n *= 7)
        vecNumbers.push_back(n);
    for (u32 nKey : vecNumbers) {
        for (u32 nValue : vecNumbers) {
            KeyVal arPair[] = {{nKey, nValue}};
            std::string strText;
            keyval_st2str(strText, arPair, 1);
            char szExpected[32];
            std::snprintf(szExpected, sizeof(szExpected), "(%d,%d)", static_cast<int>(nKey),
                          static_cast<int>(nValue));
            EXPECT_EQ(szExpected, strText);
        }
    }
}

TEST(KeyValText, WrittenTextParsesBack) {
    KeyVal arPairs[] = {{0, 1}, {KEY_BRIGHTNESS, 50}, {KEY_SATURATION, 60}, {4112, 0}};
    std::string strText;
    keyval_st2str(strText, arPairs, 4);
    EXPECT_TRUE(same(parse(strText), {{0, 1}, {34, 50}, {2337, 60}, {4112, 0}}));
}

// Numbers beyond 32 bits end at the nearest 32-bit bound, as on the camera,
// whose C library reads them through a 32-bit long; a PC must not wrap them.
TEST(KeyValText, NumbersBeyondThirtyTwoBitsStopAtTheBound) {
    EXPECT_TRUE(same(parse("(770,4294967295)(771,-4294967297)(2147483648,99999999999999999999)"),
                     {{KEY_R_GAIN, INT32_MAX}, {KEY_B_GAIN, INT32_MIN}, {INT32_MAX, INT32_MAX}}));
}

TEST(KeyValText, BoundsThemselvesAreKept) {
    EXPECT_TRUE(same(parse("(2147483647,-2147483648)"), {{INT32_MAX, INT32_MIN}}));
}
