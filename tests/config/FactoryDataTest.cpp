// The factory values: one record per style item, from the style as the ISP
// rewrote it.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "config/DnaStyle.h"
#include "tests/support/DnaTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace dnatest;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

typedef std::vector<std::pair<u32, u32>> Pairs;

const KeyVal kUnwritten = {0xdeadbeef, 0xdeadbeef};

Pairs pairsOf(const KeyVal* p, u32 n) {
    Pairs out;
    for (u32 i = 0; i < n; ++i)
        out.emplace_back(p[i].key, p[i].value);
    return out;
}

Pairs fromStyle(const std::string& text) {
    Doc objDoc(text);
    std::vector<KeyVal> vec(64, kUnwritten);
    u32 nCount = 0;
    EXPECT_EQ(0, style2KeyVal(objDoc.root(), vec.data(), &nCount));
    return pairsOf(vec.data(), nCount);
}

std::string manyItems(int n) {
    std::string s;
    for (int i = 0; i < n; ++i)
        s += plainItem(1000 + i, i);
    return style(s);
}

} // namespace

TEST(FactoryData, ItemsInDocumentOrder) {
    EXPECT_EQ((Pairs{{34, 50}, {2337, 60}, {96, 2}}),
              fromStyle(style(plainItem(34, 50) + "<page>" + plainItem(2337, 60) + "</page>" +
                              plainItem(96, 2))));
}

TEST(FactoryData, NestedItemYieldsOuterFirst) {
    EXPECT_EQ((Pairs{{7, 1}, {8, 2}, {9, 3}}),
              fromStyle(style("<item id=\"7\" value=\"1\"><item id=\"8\" value=\"2\" /></item>" +
                              plainItem(9, 3))));
}

TEST(FactoryData, ChoicesWithOnlyIndexAddNothing) {
    EXPECT_EQ((Pairs{{96, 2}}), fromStyle(style(choiceItem(96, 2, {0, 1, 2, 3}))));
}

TEST(FactoryData, ElementLackingAttributeAddsNothingButChildrenCount) {
    EXPECT_EQ((Pairs{{5, 6}, {11, 12}}),
              fromStyle(style("<item id=\"3\"><item value=\"4\">" + plainItem(5, 6) +
                              "</item></item>" + plainItem(11, 12))));
}

TEST(FactoryData, StartingElementItselfCounts) {
    EXPECT_EQ((Pairs{{1, 2}, {3, 4}}),
              fromStyle("<style id=\"1\" value=\"2\">" + plainItem(3, 4) + "</style>"));
}

TEST(FactoryData, AppendsAfterTheGivenCount) {
    Doc objDoc(style(plainItem(3, 4)));
    KeyVal arOut[3] = {{1, 2}, kUnwritten, kUnwritten};
    u32 nCount = 1;
    style2KeyVal(objDoc.root(), arOut, &nCount);
    EXPECT_EQ((Pairs{{1, 2}, {3, 4}}), pairsOf(arOut, nCount));
    EXPECT_EQ(kUnwritten.key, arOut[2].key);
}

TEST(FactoryData, NullElementAddsNothing) {
    KeyVal arOut[1] = {kUnwritten};
    u32 nCount = 0;
    EXPECT_EQ(0, style2KeyVal(nullptr, arOut, &nCount));
    EXPECT_EQ(0u, nCount);
}

TEST(FactoryData, BoundedWalkDropsRecordsBeyondCapacityWithReport) {
    testsupport::TempDeviceRoot root;
    Doc objDoc(manyItems(5));
    std::vector<KeyVal> vec(5, kUnwritten);
    u32 nCount = 0;
    CaptureStdout();
    EXPECT_EQ(-1, style2KeyValN(objDoc.root(), vec.data(), &nCount, 3));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ(3u, nCount);
    EXPECT_EQ((Pairs{{1000, 0}, {1001, 1}, {1002, 2}}), pairsOf(vec.data(), 3));
    EXPECT_EQ(kUnwritten.key, vec[3].key);
    EXPECT_EQ(kUnwritten.key, vec[4].key);
    EXPECT_TRUE(contains(strOut, "*p_pnKeyValNum < p_nCapacity   ~~~Assertion failed.\n"))
        << strOut;
    EXPECT_TRUE(contains(strOut, "id(1003) value(3) p_nCapacity(3)\n")) << strOut;
}

TEST(FactoryData, BoundedWalkWithinCapacityIsQuiet) {
    testsupport::TempDeviceRoot root;
    Doc objDoc(manyItems(3));
    KeyVal arOut[3];
    u32 nCount = 0;
    CaptureStdout();
    EXPECT_EQ(0, style2KeyValN(objDoc.root(), arOut, &nCount, 3));
    EXPECT_EQ("", GetCapturedStdout());
    EXPECT_EQ(3u, nCount);
}

TEST(FactoryData, FactoryValuesFollowTheRewrittenStyle) {
    testsupport::TempDeviceRoot root;
    std::string strStyle = style(plainItem(34, 50) + choiceItem(49, 60, {30, 60, 7}) +
                                 choiceItem(96, 3, {0, 3}) + plainItem(10, 0) + plainItem(11, 0));
    KeyVal arOut[SENSOR_FACTORY_CAPACITY];
    u32 nCount = 999;
    EXPECT_EQ(0, getFctData(1, &strStyle[0], arOut, &nCount, false));
    EXPECT_EQ((Pairs{{34, 50}, {49, 60}, {96, 0}, {10, 0}}), pairsOf(arOut, nCount));
}

TEST(FactoryData, ShowWdrWithdrawsItemTenFromFactoryValues) {
    testsupport::TempDeviceRoot root;
    std::string strStyle = style(plainItem(34, 50) + plainItem(10, 0));
    KeyVal arOut[SENSOR_FACTORY_CAPACITY];
    u32 nCount = 0;
    getFctData(1, &strStyle[0], arOut, &nCount, true);
    EXPECT_EQ((Pairs{{34, 50}}), pairsOf(arOut, nCount));
}

TEST(FactoryData, FactoryValuesStopAtTheStartUpCapacity) {
    testsupport::TempDeviceRoot root;
    std::string strStyle = manyItems(200);
    std::vector<KeyVal> vec(200, kUnwritten);
    u32 nCount = 0;
    CaptureStdout();
    EXPECT_EQ(0, getFctData(1, &strStyle[0], vec.data(), &nCount, false));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ(static_cast<u32>(SENSOR_FACTORY_CAPACITY), nCount);
    EXPECT_EQ(1149u, vec[149].key);
    EXPECT_EQ(kUnwritten.key, vec[150].key);
    EXPECT_TRUE(contains(strOut, "SNS_SUCCESS == style2KeyVal(pRootNode, p_pKeyVal, "
                                 "p_pnKeyValNum)   ~~~Assertion failed.\n"))
        << strOut;
    EXPECT_TRUE(contains(strOut, "p_pnKeyValNum(150)\n")) << strOut;
}

TEST(FactoryData, UnparsableStyleIsReportedAndGivesTheItemsReadBeforeTheBreak) {
    testsupport::TempDeviceRoot root;
    char szStyle[] = "<style><item id=\"34\" value=\"5\" /><item id=\"35\"";
    KeyVal arOut[SENSOR_FACTORY_CAPACITY];
    u32 nCount = 7;
    CaptureStdout();
    EXPECT_EQ(0, getFctData(1, szStyle, arOut, &nCount, false));
    const std::string strOut = GetCapturedStdout();
    ASSERT_EQ(1u, nCount);
    EXPECT_EQ(34u, arOut[0].key);
    EXPECT_EQ(5u, arOut[0].value);
    EXPECT_TRUE(contains(strOut, "objStyleXmlDoc.LoadMem(szStyle, TIXML_ENCODING_UTF8)"));
}

TEST(FactoryData, NullOutputIsReported) {
    testsupport::TempDeviceRoot root;
    char szStyle[] = "<style />";
    u32 nCount = 7;
    CaptureStdout();
    EXPECT_EQ(0, getFctData(1, szStyle, nullptr, &nCount, false));
    EXPECT_EQ(0, getFctData(1, szStyle, nullptr, nullptr, false));
    EXPECT_EQ(2u,
              occurrences(GetCapturedStdout(),
                          "NULL != p_pKeyVal && NULL != p_pnKeyValNum   ~~~Assertion failed.\n"));
    EXPECT_EQ(0u, nCount);
}
