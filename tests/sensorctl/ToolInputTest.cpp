// The tools' one grammar, row by row: what the command line, the shell and
// the web console accept, the value read, and for a refusal the 0-based
// offset of the offending byte. Every expected value is written by hand.
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ToolInput.h"

namespace {

using sensorctl::InputError;

struct IntegerRow {
    const char* szText;
    long lo, hi;
    bool bOk;
    long nValue; // when accepted
    size_t nAt;  // when refused
};

TEST(ToolInput, IntegersAreAnOptionalMinusAndDigitsWithinTheirRange) {
    const IntegerRow rows[] = {
        {"0", 0, 10, true, 0, 0},
        {"7", 0, 10, true, 7, 0},
        {"-1", -5, 5, true, -1, 0},
        {"-0", 0, 5, true, 0, 0},
        {"007", 0, 10, true, 7, 0},
        {"2147483647", INT_MIN, INT_MAX, true, 2147483647L, 0},
        {"-2147483648", INT_MIN, INT_MAX, true, -2147483648L, 0},
        {"2147483647", 0, 2147483647L, true, 2147483647L, 0},
        {"2147483648", INT_MIN, INT_MAX, false, 0, 0},
        {"4294967297", 1, INT_MAX, false, 0, 0},
        {"99999999999999999999999", 0, LONG_MAX, false, 0, 0},
        {"11", 0, 10, false, 0, 0},
        {"-1", 0, 10, false, 0, 0},
        {"", 0, 10, false, 0, 0},
        {"-", -5, 5, false, 0, 1},
        {"+1", 0, 10, false, 0, 0},
        {" 1", 0, 10, false, 0, 0},
        {"1 ", 0, 10, false, 0, 1},
        {"1x", 0, 10, false, 0, 1},
        {"0x1", 0, 10, false, 0, 1},
        {"--1", -5, 5, false, 0, 1},
        {"12a4", 0, 9999, false, 0, 2},
        {"1.0", 0, 10, false, 0, 1},
    };
    for (const IntegerRow& row : rows) {
        long nValue = 12345;
        InputError error;
        const bool bOk = sensorctl::readInteger(row.szText, row.lo, row.hi, nValue, error);
        EXPECT_EQ(bOk, row.bOk) << '"' << row.szText << '"';
        if (row.bOk)
            EXPECT_EQ(nValue, row.nValue) << '"' << row.szText << '"';
        else
            EXPECT_EQ(error.nAt, row.nAt) << '"' << row.szText << '"';
    }
}

struct DecimalRow {
    const char* szText;
    bool bOk;
    double dValue;
    size_t nAt;
};

TEST(ToolInput, DecimalsAreDigitsWithAnOptionalFractionAndNothingElse) {
    // All read against the time scale's range, 0 to 1000.
    const DecimalRow rows[] = {
        {"1", true, 1.0, 0},       {"0.001", true, 0.001, 0}, {"2.5", true, 2.5, 0},
        {"1000", true, 1000.0, 0}, {"0", true, 0.0, 0},       {"1000.5", false, 0, 0},
        {"-0.5", false, 0, 0},     {"nan", false, 0, 0},      {"inf", false, 0, 0},
        {"NAN", false, 0, 0},      {"1e3", false, 0, 1},      {".5", false, 0, 0},
        {"5.", false, 0, 2},       {"0.5s", false, 0, 3},     {"", false, 0, 0},
        {"1,5", false, 0, 1},      {"+1", false, 0, 0},       {"0x10", false, 0, 1},
    };
    for (const DecimalRow& row : rows) {
        double dValue = -7;
        InputError error;
        const bool bOk = sensorctl::readDecimal(row.szText, 0, 1000, dValue, error);
        EXPECT_EQ(bOk, row.bOk) << '"' << row.szText << '"';
        if (row.bOk)
            EXPECT_DOUBLE_EQ(dValue, row.dValue) << '"' << row.szText << '"';
        else
            EXPECT_EQ(error.nAt, row.nAt) << '"' << row.szText << '"';
    }
}

struct ClockRow {
    const char* szText;
    bool bOk;
    int nHour, nMinute;
    size_t nAt;
};

TEST(ToolInput, ClockIsTwoDigitsColonTwoDigitsOfADay) {
    const ClockRow rows[] = {
        {"00:00", true, 0, 0, 0},   {"07:30", true, 7, 30, 0}, {"23:59", true, 23, 59, 0},
        {"7:30", false, 0, 0, 1},   {"7:5", false, 0, 0, 1},   {"07:5", false, 0, 0, 4},
        {"24:00", false, 0, 0, 0},  {"12:60", false, 0, 0, 3}, {"07:30:00", false, 0, 0, 5},
        {"ab:cd", false, 0, 0, 0},  {"-1:00", false, 0, 0, 0}, {":30", false, 0, 0, 0},
        {"", false, 0, 0, 0},       {"0730", false, 0, 0, 2},  {"07.30", false, 0, 0, 2},
        {"07:30 ", false, 0, 0, 5},
    };
    for (const ClockRow& row : rows) {
        int nHour = -1, nMinute = -1;
        InputError error;
        const bool bOk = sensorctl::readClock(row.szText, nHour, nMinute, error);
        EXPECT_EQ(bOk, row.bOk) << '"' << row.szText << '"';
        if (row.bOk) {
            EXPECT_EQ(nHour, row.nHour) << row.szText;
            EXPECT_EQ(nMinute, row.nMinute) << row.szText;
        } else {
            EXPECT_EQ(error.nAt, row.nAt) << '"' << row.szText << '"';
        }
    }
}

struct FaultRow {
    const char* szText;
    bool bOk;
    long nCmd, nRet;
    bool bOff;
    size_t nAt;
};

TEST(ToolInput, FaultSettingIsACommandAndAResultOrOff) {
    const FaultRow rows[] = {
        {"2353 -1", true, 2353, -1, false, 0}, {"2353 off", true, 2353, 0, true, 0},
        {"34 \t 5", true, 34, 5, false, 0},    {"0 2147483647", true, 0, 2147483647L, false, 0},
        {"2353", false, 0, 0, false, 4},       {"2353 ", false, 0, 0, false, 5},
        {"2353 x", false, 0, 0, false, 5},     {"2353 Off", false, 0, 0, false, 5},
        {"2353 -1 7", false, 0, 0, false, 7},  {"-1 5", false, 0, 0, false, 0},
        {"x 5", false, 0, 0, false, 0},        {"34 2147483648", false, 0, 0, false, 3},
        {"", false, 0, 0, false, 0},
    };
    for (const FaultRow& row : rows) {
        sensorctl::FaultSetting setting;
        InputError error;
        const bool bOk = sensorctl::readFaultSetting(row.szText, setting, error);
        EXPECT_EQ(bOk, row.bOk) << '"' << row.szText << '"';
        if (row.bOk) {
            EXPECT_EQ(setting.nCmd, row.nCmd) << row.szText;
            EXPECT_EQ(setting.nRet, row.nRet) << row.szText;
            EXPECT_EQ(setting.bOff, row.bOff) << row.szText;
        } else {
            EXPECT_EQ(error.nAt, row.nAt) << '"' << row.szText << '"';
        }
    }
}

struct ListRow {
    const char* szText;
    bool bOk;
    std::vector<long> keys;
    size_t nAt;
};

TEST(ToolInput, PairListsAreWholePairsOfIntegersBackToBack) {
    const ListRow rows[] = {
        {"(34,60)", true, {34}, 0},
        {"(34,60)(2337,-70)", true, {34, 2337}, 0},
        {"(-1,0)", true, {-1}, 0},
        {"", false, {}, 0},
        {"()", false, {}, 1},
        {"(34,60", false, {}, 6},
        {"(34,x)", false, {}, 4},
        {"34,60", false, {}, 0},
        {"(34,60)junk", false, {}, 7},
        {"(34 ,60)", false, {}, 3},
        {"(34,60)(", false, {}, 8},
        {"(+34,60)", false, {}, 1},
        {"(99999999999,1)", false, {}, 1},
        {"(34,--1)", false, {}, 5},
        {"(34,60) (35,1)", false, {}, 7},
        {"(34;60)", false, {}, 3},
    };
    for (const ListRow& row : rows) {
        std::vector<long> keys;
        InputError error;
        const bool bOk = sensorctl::readPairList(row.szText, keys, error);
        EXPECT_EQ(bOk, row.bOk) << '"' << row.szText << '"';
        if (row.bOk)
            EXPECT_EQ(keys, row.keys) << row.szText;
        else
            EXPECT_EQ(error.nAt, row.nAt) << '"' << row.szText << '"';
    }
}

TEST(ToolInput, IdListsAreIntegersBetweenOneParenthesisPair) {
    const ListRow rows[] = {
        {"(34)", true, {34}, 0},    {"(34,2337)", true, {34, 2337}, 0},
        {"34", false, {}, 0},       {"()", false, {}, 1},
        {"(34)(1)", false, {}, 4},  {"(3x)", false, {}, 2},
        {"(34,)", false, {}, 4},    {"(34", false, {}, 3},
        {"(34,2337", false, {}, 8}, {"", false, {}, 0},
        {"(34 ,1)", false, {}, 3},
    };
    for (const ListRow& row : rows) {
        std::vector<long> ids;
        InputError error;
        const bool bOk = sensorctl::readIdList(row.szText, ids, error);
        EXPECT_EQ(bOk, row.bOk) << '"' << row.szText << '"';
        if (row.bOk)
            EXPECT_EQ(ids, row.keys) << row.szText;
        else
            EXPECT_EQ(error.nAt, row.nAt) << '"' << row.szText << '"';
    }
}

TEST(ToolInput, TraceCursorIsAnEntryNumberFromZero) {
    long nSince = -1;
    InputError error;
    EXPECT_TRUE(sensorctl::readTraceCursor("0", nSince, error));
    EXPECT_EQ(nSince, 0);
    EXPECT_TRUE(sensorctl::readTraceCursor("120", nSince, error));
    EXPECT_EQ(nSince, 120);
    EXPECT_FALSE(sensorctl::readTraceCursor("-1", nSince, error));
    EXPECT_EQ(error.nAt, 0u);
    EXPECT_FALSE(sensorctl::readTraceCursor("12x", nSince, error));
    EXPECT_EQ(error.nAt, 2u);
}

TEST(ToolInput, ChoiceIsOneWordExactlyAndPointsWhereItLeavesThem) {
    const std::vector<std::string> words = {"day", "night"};
    size_t nIndex = 9;
    InputError error;
    EXPECT_TRUE(sensorctl::readChoice("night", words, nIndex, error));
    EXPECT_EQ(nIndex, 1u);
    EXPECT_TRUE(sensorctl::readChoice("day", words, nIndex, error));
    EXPECT_EQ(nIndex, 0u);
    EXPECT_FALSE(sensorctl::readChoice("dusk", words, nIndex, error));
    EXPECT_EQ(error.nAt, 1u);
    EXPECT_FALSE(sensorctl::readChoice("nights", words, nIndex, error));
    EXPECT_EQ(error.nAt, 5u);
    EXPECT_FALSE(sensorctl::readChoice("Day", words, nIndex, error));
    EXPECT_EQ(error.nAt, 0u);
    EXPECT_FALSE(sensorctl::readChoice("nig", words, nIndex, error));
    EXPECT_EQ(error.nAt, 3u);
}

TEST(ToolInput, NothingButBlanksIsAnEmptyBody) {
    InputError error;
    EXPECT_TRUE(sensorctl::readNothing("", error));
    EXPECT_TRUE(sensorctl::readNothing(" \r\n\t", error));
    EXPECT_FALSE(sensorctl::readNothing("x", error));
    EXPECT_EQ(error.nAt, 0u);
    EXPECT_FALSE(sensorctl::readNothing("  \n0", error));
    EXPECT_EQ(error.nAt, 3u);
}

TEST(ToolInput, BlanksAroundATextAreDroppedAndCounted) {
    const sensorctl::InnerText inner = sensorctl::withoutBlanks(" \t(34,60)\r\n");
    EXPECT_EQ(inner.strText, "(34,60)");
    EXPECT_EQ(inner.nOffset, 2u);
    const sensorctl::InnerText blank = sensorctl::withoutBlanks("   ");
    EXPECT_EQ(blank.strText, "");
    EXPECT_EQ(blank.nOffset, 3u);
}

} // namespace
