// The style rewritten with the ranges the ISP reports at run time.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "controller/SensorKeys.h"
#include "config/DnaStyle.h"
#include "controller/ISensorController.h"
#include "tests/support/DnaTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace dnatest;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const char* const kFailed = "   ~~~Assertion failed.\n";

// Restores the process-wide beaway switch whatever a test does with it.
class BeawayFlagGuard {
public:
    BeawayFlagGuard() : m_bSaved(getshowBeawayFalg()) {}
    ~BeawayFlagGuard() { setshowBeawayFalg(m_bSaved); }

private:
    bool m_bSaved;
};

std::string rewrite(const std::string& text, bool showWdr = false, int channel = 1) {
    std::string strOut = "stale";
    EXPECT_EQ(0, getDnaStyle(channel, text.c_str(), strOut, showWdr));
    return strOut;
}

std::vector<std::string> strings(const std::vector<int>& v) {
    std::vector<std::string> out;
    for (int i : v)
        out.push_back(std::to_string(i));
    return out;
}

size_t rangeQueries() {
    size_t n = 0;
    for (const sim::IspCall& call : sim::Isp::instance().trace())
        if (call.opt == IA_CMD_OPT_GET_PARAM_RNAGE)
            ++n;
    return n;
}

} // namespace

TEST(DnaStyle, ChoiceItemKeepsOnlyIspChoicesAndTakesIspDefault) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    sim::Isp::instance().setListRange(96, 3, {1, 3});
    Doc objOut(rewrite(style(choiceItem(96, 0, {0, 1, 2, 3, 4, 5}))));
    ASSERT_TRUE(objOut.loaded());
    EXPECT_EQ(strings({1, 3}), objOut.choices(96));
    EXPECT_EQ("3", objOut.value(96));
}

TEST(DnaStyle, ChoicesKeepTheirStyleOrder) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    sim::Isp::instance().setListRange(96, 0, {3, 0, 2});
    Doc objOut(rewrite(style(choiceItem(96, 0, {2, 1, 0, 3}))));
    EXPECT_EQ(strings({2, 0, 3}), objOut.choices(96));
}

TEST(DnaStyle, MaxShutterKeepsStyleValueTheIspAccepts) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49});
    sim::Isp::instance().setListRange(49, 8, {2, 4, 8});
    CaptureStdout();
    Doc objOut(rewrite(style(choiceItem(49, 4, {1, 2, 4, 8}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ("4", objOut.value(49));
    EXPECT_EQ(strings({2, 4, 8}), objOut.choices(49));
    // The walk over the ISP's items is printed and stops at the match.
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_list[0] = dnaParamList.items_cnt(3)\n"
                                 " dnaParamList.item[0] = 2 nVal = 4 \n"
                                 " dnaParamList.item[1] = 4 nVal = 4 \n"))
        << strOut;
    EXPECT_FALSE(contains(strOut, "dnaParamList.item[2]")) << strOut;
}

TEST(DnaStyle, MaxShutterStyleValueTheIspRefusesTakesIspDefault) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49});
    sim::Isp::instance().setListRange(49, 8, {2, 4, 8});
    CaptureStdout();
    Doc objOut(rewrite(style(choiceItem(49, 5, {2, 4, 5, 8}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ("8", objOut.value(49));
    EXPECT_EQ(strings({2, 4, 8}), objOut.choices(49));
    EXPECT_TRUE(contains(strOut, " dnaParamList.item[2] = 8 nVal = 5 \n")) << strOut;
}

TEST(DnaStyle, StyleValueHundredAlwaysTakesIspDefault) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49});
    sim::Isp::instance().setListRange(49, 30, {30, 100});
    CaptureStdout();
    Doc objOut(rewrite(style(choiceItem(49, 100, {30, 100}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ("30", objOut.value(49));
    EXPECT_FALSE(contains(strOut, "dnaParamList.items_cnt")) << strOut;
}

TEST(DnaStyle, FixShutterKeepsStyleValueTheIspAccepts) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({50});
    Doc objOut(rewrite(style(choiceItem(50, 250, {25, 250}))));
    EXPECT_EQ("250", objOut.value(50));
}

TEST(DnaStyle, FocusNearLimitKeepsStyleValueTheIspAccepts) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({1537});
    Doc objOut(rewrite(style(choiceItem(1537, 150, {10, 150}))));
    EXPECT_EQ("150", objOut.value(1537));
}

TEST(DnaStyle, FocusNearLimitHundredTakesIspDefault) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({1537});
    // 100 is one of the ISP's own near limits, and still the default wins.
    Doc objOut(rewrite(style(choiceItem(1537, 100, {10, 100}))));
    EXPECT_EQ("30", objOut.value(1537));
}

TEST(DnaStyle, OtherCommandsTakeIspDefaultEvenForAcceptedValue) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({768});
    CaptureStdout();
    Doc objOut(rewrite(style(choiceItem(768, 3, {0, 1, 2, 3}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ("0", objOut.value(768));
    EXPECT_FALSE(contains(strOut, "dnaParamList.items_cnt")) << strOut;
}

TEST(DnaStyle, ItemWithoutChoicesGetsIspDefault) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({144});
    sim::Isp::instance().setListRange(144, 2, {0, 1, 2});
    Doc objOut(rewrite(style(plainItem(144, 0))));
    EXPECT_EQ("2", objOut.value(144));
}

TEST(DnaStyle, ShutterMissingFromStyleUsesIspDefaultAndChangesNothing) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49});
    const std::string strStyle = style(plainItem(34, 50));
    CaptureStdout();
    EXPECT_EQ(reserialised(strStyle), rewrite(strStyle));
    // No value in the style counts as 0, which the ISP does not offer.
    EXPECT_TRUE(contains(GetCapturedStdout(), " dnaParamList.item[0] = 1 nVal = 0 \n"));
}

TEST(DnaStyle, CommandTheStyleLacksChangesNothing) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({768, 2305});
    const std::string strStyle =
        style(choiceItem(96, 2, {0, 1, 2, 3, 7}) + plainItem(34, 60) + "<group name=\"a\" />");
    EXPECT_EQ(reserialised(strStyle), rewrite(strStyle));
}

TEST(DnaStyle, EmptyCommandListOnlyReserialises) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({});
    const std::string strStyle =
        style("<group name=\"image\">" + choiceItem(96, 7, {0, 7}) + plainItem(49, 3) + "</group>");
    EXPECT_EQ(reserialised(strStyle), rewrite(strStyle));
    EXPECT_EQ(0u, rangeQueries());
}

TEST(DnaStyle, OutputIsReplacedNotAppended) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({});
    const std::string strStyle = style(plainItem(34, 60));
    std::string strOut = "previous text";
    getDnaStyle(1, strStyle.c_str(), strOut, false);
    EXPECT_EQ(reserialised(strStyle), strOut);
}

TEST(DnaStyle, EveryMatchingItemIsRewritten) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    sim::Isp::instance().setListRange(96, 1, {1, 2});
    Doc objOut(rewrite(style("<page>" + choiceItem(96, 0, {0, 1, 2}) + "</page><page>" +
                             choiceItem(96, 0, {0, 2, 3}) + "</page>")));
    const std::vector<TiXmlElement*> vecItems = objOut.all(96);
    ASSERT_EQ(2u, vecItems.size());
    for (TiXmlElement* pItem : vecItems)
        EXPECT_STREQ("1", pItem->Attribute("value"));
    int nChoices = 0;
    for (TiXmlElement* c = vecItems[1]->FirstChildElement(); c; c = c->NextSiblingElement())
        ++nChoices;
    EXPECT_EQ(1, nChoices);
}

TEST(DnaStyle, ItemsNestedInAMatchAreNotRewritten) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    sim::Isp::instance().setListRange(96, 1, {1});
    const std::string strStyle = style("<item id=\"96\" value=\"0\"><option index=\"1\">" +
                                       plainItem(96, 5) + "</option></item>");
    Doc objOut(rewrite(strStyle));
    const std::vector<TiXmlElement*> vecItems = objOut.all(96);
    ASSERT_EQ(2u, vecItems.size());
    EXPECT_STREQ("1", vecItems[0]->Attribute("value"));
    EXPECT_STREQ("5", vecItems[1]->Attribute("value"));
}

TEST(DnaStyle, ShowWdrFalseKeepsItemTen) {
    testsupport::TempDeviceRoot root;
    Doc objOut(rewrite(style(plainItem(10, 0) + plainItem(34, 50)), false));
    EXPECT_NE(nullptr, objOut.item(10));
}

TEST(DnaStyle, ShowWdrTrueDeletesItemTen) {
    testsupport::TempDeviceRoot root;
    Doc objOut(rewrite(style("<page>" + plainItem(10, 0) + "</page>" + plainItem(34, 50)), true));
    EXPECT_EQ(nullptr, objOut.item(10));
    EXPECT_NE(nullptr, objOut.item(34));
}

TEST(DnaStyle, ShowWdrDeletesOnlyTheLastItemTen) {
    testsupport::TempDeviceRoot root;
    Doc objOut(rewrite(style(plainItem(10, 1) + plainItem(10, 2)), true));
    ASSERT_EQ(1u, objOut.all(10).size());
    EXPECT_EQ("1", objOut.value(10));
}

TEST(DnaStyle, BeawayShownDeletesItemEleven) {
    testsupport::TempDeviceRoot root;
    BeawayFlagGuard objGuard;
    setshowBeawayFalg(true);
    Doc objOut(rewrite(style(plainItem(11, 0) + plainItem(34, 50))));
    EXPECT_EQ(nullptr, objOut.item(11));
    EXPECT_NE(nullptr, objOut.item(34));
}

TEST(DnaStyle, BeawayWithdrawnKeepsItemEleven) {
    testsupport::TempDeviceRoot root;
    BeawayFlagGuard objGuard;
    setshowBeawayFalg(false);
    Doc objOut(rewrite(style(plainItem(11, 0) + plainItem(10, 0)), true));
    EXPECT_NE(nullptr, objOut.item(11));
    EXPECT_EQ(nullptr, objOut.item(10));
}

TEST(DnaStyle, QueriesTheIspOnChannelMinusOne) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96, 144});
    rewrite(style(plainItem(96, 0)), false, 2);
    const std::vector<sim::IspCall> vecCalls = sim::Isp::instance().trace();
    ASSERT_EQ(3u, vecCalls.size());
    EXPECT_EQ(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, vecCalls[0].cmd);
    EXPECT_EQ(IA_CMD_OPT_GET, vecCalls[0].opt);
    EXPECT_EQ(96, vecCalls[1].cmd);
    EXPECT_EQ(144, vecCalls[2].cmd);
    for (const sim::IspCall& call : vecCalls)
        EXPECT_EQ(1, call.channel);
    EXPECT_EQ(IA_CMD_OPT_GET_PARAM_RNAGE, vecCalls[2].opt);
}

TEST(DnaStyle, DefaultProfileRewritesTheUsualItems) {
    testsupport::TempDeviceRoot root;
    const std::string strStyle = style(
        choiceItem(49, 60, {1, 3, 30, 60}) + choiceItem(50, 7, {7, 50}) +
        choiceItem(96, 2, {0, 1, 2, 3, 4}) + choiceItem(2368, 1, {0, 1, 2, 3}) + plainItem(34, 60));
    Doc objOut(rewrite(strStyle));
    EXPECT_EQ("60", objOut.value(49));
    EXPECT_EQ(strings({1, 30, 60}), objOut.choices(49));
    EXPECT_EQ("50", objOut.value(50));
    EXPECT_EQ("0", objOut.value(96));
    EXPECT_EQ(strings({0, 1, 2, 3}), objOut.choices(96));
    EXPECT_EQ(strings({0, 1, 2}), objOut.choices(2368));
    EXPECT_EQ("60", objOut.value(34));
}

TEST(DnaStyle, PrintsTheWalkAtDebugLevel) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    sim::Isp::instance().setDynamicCommands({144, 96});
    sim::Isp::instance().setListRange(96, 2, {0, 2});
    CaptureStdout();
    rewrite(style(choiceItem(96, 0, {0, 1, 2})));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "[sensor dbg] file:SensorFile.cpp fun:getDnaStyle"));
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_cnt(2)\n"));
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_list[0] = cmd(144)\n"));
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_list[1] = cmd(96)\n"));
    EXPECT_TRUE(contains(strOut, "fun:doDnaStyle"));
    EXPECT_TRUE(contains(strOut, "_________________cmd(96) default(2)__________________\n"));
    EXPECT_TRUE(contains(strOut, "_________________delete comboitem(1)__________________\n"));
    EXPECT_EQ(1u, occurrences(strOut, "delete comboitem"));
    // 144 is not in the style: its walk finds nothing to print.
    EXPECT_FALSE(contains(strOut, "cmd(144) default"));
    EXPECT_FALSE(contains(strOut, "[sensor assert]"));
}

TEST(DnaStyle, QuietBelowDebugLevel) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    CaptureStdout();
    rewrite(style(choiceItem(96, 0, {0, 9})));
    EXPECT_EQ("", GetCapturedStdout());
}

TEST(DnaStyle, FailedCommandListIsReportedAndStyleOnlyReserialised) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().failCommand(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, -1);
    const std::string strStyle = style(choiceItem(96, 3, {0, 3, 9}));
    CaptureStdout();
    EXPECT_EQ(reserialised(strStyle), rewrite(strStyle));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, std::string("SNS_SUCCESS == ia_ioctrl_v2(p_channelID-1, "
                                             "IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, "
                                             "(void*)(&dnaCmdList))") +
                                     kFailed))
        << strOut;
    EXPECT_TRUE(contains(strOut, "[sensor assert] file:SensorFile.cpp fun:getDnaStyle"));
    EXPECT_EQ(0u, rangeQueries());
}

TEST(DnaStyle, FailedRangeQueryIsReportedAndOtherCommandsGoOn) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({144, 96, 768});
    sim::Isp::instance().setListRange(144, 2, {1, 2});
    sim::Isp::instance().setListRange(768, 4, {3, 4});
    sim::Isp::instance().failCommand(KEY_METER_AREA, -5);
    CaptureStdout();
    Doc objOut(rewrite(style(choiceItem(144, 0, {0, 1, 2}) + choiceItem(96, 0, {0, 1, 2}) +
                             choiceItem(768, 0, {0, 3, 4}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, std::string("SNS_SUCCESS == ia_ioctrl_v2(p_channelID-1, "
                                             "(ia_cmd_e)dnaCmdList.cmd_list[i], "
                                             "IA_CMD_OPT_GET_PARAM_RNAGE, "
                                             "(void*)(&dnaParamList))") +
                                     kFailed))
        << strOut;
    EXPECT_EQ(1u, occurrences(strOut, kFailed));
    EXPECT_EQ("4", objOut.value(768));
    EXPECT_EQ(strings({3, 4}), objOut.choices(768));
    // The refused query left the record as the previous command filled it.
    EXPECT_EQ("2", objOut.value(96));
    EXPECT_EQ(strings({1, 2}), objOut.choices(96));
}

TEST(DnaStyle, ChoiceWithoutIndexIsReportedAndOtherCommandsGoOn) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96, 144});
    sim::Isp::instance().setListRange(96, 1, {1});
    sim::Isp::instance().setListRange(144, 2, {2});
    CaptureStdout();
    Doc objOut(rewrite(style("<item id=\"96\" value=\"0\"><option index=\"0\" /><option />"
                             "<option index=\"3\" /></item>" +
                             choiceItem(144, 0, {0, 2}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, std::string("SNS_SUCCESS == doDnaStyle(objStyleXmlDoc."
                                             "RootElement(), dnaCmdList.cmd_list[i], "
                                             "&dnaParamList)") +
                                     kFailed))
        << strOut;
    // The walk of 96 stopped at the choice without index.
    EXPECT_EQ("1", objOut.value(96));
    EXPECT_EQ((std::vector<std::string>{"<none>", "3"}), objOut.choices(96));
    EXPECT_EQ("2", objOut.value(144));
    EXPECT_EQ(strings({2}), objOut.choices(144));
}

TEST(DnaStyle, UnparsableStyleIsReportedAndGoesOnWithWhatWasRead) {
    testsupport::TempDeviceRoot root;
    CaptureStdout();
    std::string strOut = "stale";
    EXPECT_EQ(0,
              getDnaStyle(1, "<style><item id=\"96\" value=\"1\" /><item id=\"34\"", strOut, true));
    // The part read before the break is rewritten and passed on.
    EXPECT_TRUE(contains(strOut, "<item id=\"96\" value=\"0\" />")) << strOut;
    EXPECT_FALSE(contains(strOut, "id=\"34\"")) << strOut;
    // The ISP is still asked for every range.
    EXPECT_EQ(9u, sim::Isp::instance().trace().size());
    const std::string strPrinted = GetCapturedStdout();
    EXPECT_TRUE(contains(
        strPrinted, std::string("objStyleXmlDoc.LoadMem(szStyle, TIXML_ENCODING_UTF8)") + kFailed))
        << strPrinted;
}

TEST(DnaStyle, NullStyleIsReportedAndStillReturnsZero) {
    testsupport::TempDeviceRoot root;
    CaptureStdout();
    std::string strOut;
    EXPECT_EQ(0, getDnaStyle(1, nullptr, strOut, true));
    EXPECT_TRUE(contains(GetCapturedStdout(), "objStyleXmlDoc.LoadMem(szStyle"));
}

TEST(DnaStyle, CommandCountBeyondCapacityReadsOnlySixteenCommands) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    ia_dynamic_params_cmds_st stList{};
    stList.cmd_cnt = 1000;
    for (u32 i = 0; i < IA_DYNAMIC_CMDS_MAX; ++i)
        stList.cmd_list[i] = 96;
    sim::Isp::instance().setRawCommandList(stList);
    CaptureStdout();
    Doc objOut(rewrite(style(choiceItem(96, 3, {0, 1, 9}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_EQ(16u, rangeQueries());
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_cnt(1000)\n"));
    EXPECT_TRUE(
        contains(strOut, std::string("dnaCmdList.cmd_cnt <= IA_DYNAMIC_CMDS_MAX") + kFailed))
        << strOut;
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_list[15] = cmd(96)\n"));
    EXPECT_FALSE(contains(strOut, "dnaCmdList.cmd_list[16]"));
    EXPECT_EQ(strings({0, 1}), objOut.choices(96));
}

TEST(DnaStyle, ItemCountBeyondCapacityReadsOnlySixtyFourItems) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49, 96});
    ia_dynamic_params_attr_st stRange{};
    stRange.default_value = 1;
    stRange.items_cnt = 1000;
    for (u32 i = 0; i < IA_DYNAMIC_ITEMS_MAX; ++i)
        stRange.item[i] = i;
    sim::Isp::instance().setRawRange(49, stRange);
    sim::Isp::instance().setRawRange(96, stRange);
    CaptureStdout();
    Doc objOut(rewrite(
        style(choiceItem(49, 70, {0, 63, 64, 70}) + choiceItem(96, 0, {0, 5, 63, 64, 65, 999}))));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(
        contains(strOut, std::string("dnaParamList.items_cnt <= IA_DYNAMIC_ITEMS_MAX") + kFailed))
        << strOut;
    // The shutter's walk prints the 64 items and no more.
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_list[0] = dnaParamList.items_cnt(1000)\n"));
    EXPECT_TRUE(contains(strOut, " dnaParamList.item[63] = 63 nVal = 70 \n"));
    EXPECT_FALSE(contains(strOut, "dnaParamList.item[64]"));
    EXPECT_EQ("1", objOut.value(49));
    EXPECT_EQ(strings({0, 63}), objOut.choices(49));
    EXPECT_EQ(strings({0, 5, 63}), objOut.choices(96));
}

TEST(DnaStyle, StoredStyleTextIsNotModified) {
    testsupport::TempDeviceRoot root;
    const std::string strStyle = style(choiceItem(96, 3, {0, 3, 9}) + plainItem(10, 0));
    const std::string strCopy = strStyle;
    rewrite(strStyle, true);
    EXPECT_EQ(strCopy, strStyle);
}

namespace {

// The rewrite as the exported one-command helpers make it, each command
// walking the tree anew: what getDnaStyle's own walks must give. The kept
// style values (shutters, focus near limit) are read with getDnaValbyCmdId.
std::string rewriteCommandByCommand(const std::string& text, bool showWdr) {
    SensorXmlDocument objDoc;
    objDoc.LoadMem(text.c_str(), TIXML_ENCODING_UTF8);
    TiXmlElement* pRoot = objDoc.RootElement();
    ia_dynamic_params_cmds_st stList{};
    (void)ia_ioctrl_v2(0, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &stList);
    ia_dynamic_params_attr_st stRange{};
    for (u32 i = 0; i < stList.cmd_cnt && i < IA_DYNAMIC_CMDS_MAX; ++i) {
        const int nCmd = static_cast<int>(stList.cmd_list[i]);
        (void)ia_ioctrl_v2(0, nCmd, IA_CMD_OPT_GET_PARAM_RNAGE, &stRange);
        if (nCmd == KEY_MAX_SHUTTER || nCmd == KEY_FIX_SHUTTER ||
            nCmd == KEY_AUTO_FOCUS_NEAR_LIMIT) {
            int nVal = 0;
            getDnaValbyCmdId(pRoot, nCmd, nVal);
            const u32 nItems = std::min<u32>(stRange.items_cnt, IA_DYNAMIC_ITEMS_MAX);
            for (u32 j = 0; nVal != 100 && j < nItems; ++j) {
                if (static_cast<int>(stRange.item[j]) == nVal) {
                    stRange.default_value = static_cast<u32>(nVal);
                    break;
                }
            }
        }
        (void)doDnaStyle(pRoot, nCmd, &stRange);
    }
    for (const int nId : {KEY_EMPTY1, KEY_EMPTY2}) {
        if (nId == KEY_EMPTY1 ? !showWdr : !getshowBeawayFalg())
            continue;
        TiXmlElement* pFound = nullptr;
        getNodebyCmdId(pRoot, nId, pFound);
        DeleteNode(pRoot, pFound);
    }
    std::string strOut;
    objDoc.getXmlString(strOut);
    return strOut;
}

// Every combination of the two deletions, rewritten both ways.
void expectSameAsCommandByCommand(const std::string& text) {
    BeawayFlagGuard objGuard;
    for (const bool bBeaway : {false, true}) {
        for (const bool bShowWdr : {false, true}) {
            setshowBeawayFalg(bBeaway);
            EXPECT_EQ(rewriteCommandByCommand(text, bShowWdr), rewrite(text, bShowWdr))
                << "beaway " << bBeaway << ", show WDR " << bShowWdr;
        }
    }
}

} // namespace

std::string sampleStyle(const char* p_szName) {
    return testsupport::readFile(testsupport::kSampleSensorConfig + "style/" + p_szName);
}

const char* const kSampleStyles[] = {"Style.xml", "Style_dome.xml", "Style_Thermal.xml"};

TEST(DnaStyle, SampleStylesRewriteAsCommandByCommandWithTheDefaultIsp) {
    testsupport::TempDeviceRoot root;
    for (const char* szName : kSampleStyles) {
        const std::string strStyle = sampleStyle(szName);
        ASSERT_FALSE(strStyle.empty()) << szName;
        CaptureStdout(); // the kept values' walk prints the ranges
        expectSameAsCommandByCommand(strStyle);
        (void)GetCapturedStdout();
    }
}

TEST(DnaStyle, SampleStylesRewriteAsCommandByCommandWithOtherRanges) {
    testsupport::TempDeviceRoot root;
    const std::vector<uint32_t> vecCmds = {KEY_BRIGHTNESS, KEY_METER_AREA, KEY_DN_MODE, KEY_WB_MODE,
                                           KEY_GAMMA};
    sim::Isp::instance().setDynamicCommands(vecCmds);
    for (const uint32_t nCmd : vecCmds)
        sim::Isp::instance().setListRange(static_cast<int>(nCmd), 2, {0, 2, 5});
    size_t nMeterItems = 0;
    for (const char* szName : kSampleStyles) {
        const std::string strStyle = sampleStyle(szName);
        ASSERT_FALSE(strStyle.empty()) << szName;
        expectSameAsCommandByCommand(strStyle);
        // What both ways must have done: every metering item takes the
        // ISP's default and keeps only the choices it offers.
        Doc objOut(rewrite(strStyle));
        for (TiXmlElement* pItem : objOut.all(KEY_METER_AREA)) {
            ++nMeterItems;
            EXPECT_STREQ("2", pItem->Attribute("value")) << szName;
            for (TiXmlElement* c = pItem->FirstChildElement(); c; c = c->NextSiblingElement()) {
                const std::string strIndex = c->Attribute("index") ? c->Attribute("index") : "";
                EXPECT_TRUE(strIndex == "0" || strIndex == "2" || strIndex == "5")
                    << szName << ": " << strIndex;
            }
        }
    }
    EXPECT_GT(nMeterItems, 0u);
}

TEST(DnaStyle, ChoiceRemovedByOneCommandIsNotReachedByTheNext) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96, 144});
    sim::Isp::instance().setListRange(96, 1, {1, 3});
    sim::Isp::instance().setListRange(144, 2, {2});
    // The choice of 96 that the ISP does not offer carries 144's id; once it
    // is gone, 144 rewrites only the item that is left.
    const std::string strStyle =
        style("<item id=\"96\" value=\"0\"><option index=\"1\" />"
              "<option index=\"2\" id=\"144\" value=\"7\"><option index=\"0\" /></option>"
              "<option index=\"3\" /></item>" +
              choiceItem(144, 0, {0, 2}));
    Doc objOut(rewrite(strStyle));
    ASSERT_EQ(1u, objOut.all(144).size());
    EXPECT_EQ("2", objOut.value(144));
    EXPECT_EQ(strings({2}), objOut.choices(144));
    EXPECT_EQ(strings({1, 3}), objOut.choices(96));
    expectSameAsCommandByCommand(strStyle);
}

TEST(DnaStyle, ItemInsideADeletedItemIsNotReachedAgain) {
    testsupport::TempDeviceRoot root;
    BeawayFlagGuard objGuard;
    setshowBeawayFalg(true);
    // Item 11's last match lies inside item 10: deleting 10 takes it along,
    // and the beaway deletion then finds the first 11.
    const std::string strStyle =
        style(plainItem(11, 1) + plainItem(34, 50) + "<item id=\"10\" value=\"0\">" +
              plainItem(11, 2) + "</item>");
    Doc objOut(rewrite(strStyle, true));
    EXPECT_EQ(nullptr, objOut.item(10));
    EXPECT_EQ(nullptr, objOut.item(11));
    EXPECT_NE(nullptr, objOut.item(34));
    expectSameAsCommandByCommand(strStyle);
}

TEST(DnaStyle, WalkStoppedByAChoiceWithoutIndexRewritesAsCommandByCommand) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96, 144});
    sim::Isp::instance().setListRange(96, 1, {1});
    sim::Isp::instance().setListRange(144, 2, {2});
    // 96's walk stops at its first item: the second keeps its value and
    // choices; nested and root-level matches of 144 follow the tree's order.
    const std::string strStyle =
        "<root id=\"144\" value=\"9\"><item id=\"96\" value=\"0\"><option />"
        "<option index=\"3\" /></item>" +
        choiceItem(96, 0, {0, 1, 2}) + choiceItem(144, 0, {0, 2}) + "</root>";
    CaptureStdout();
    const std::string strOut = rewrite(strStyle);
    expectSameAsCommandByCommand(strStyle);
    (void)GetCapturedStdout();
    Doc objOut(strOut);
    const std::vector<TiXmlElement*> vecItems = objOut.all(96);
    ASSERT_EQ(2u, vecItems.size());
    EXPECT_STREQ("1", vecItems[0]->Attribute("value"));
    EXPECT_STREQ("0", vecItems[1]->Attribute("value"));
    // The root matched 144: nothing inside it was searched for 144.
    const std::vector<TiXmlElement*> vecDnModes = objOut.all(144);
    ASSERT_EQ(2u, vecDnModes.size());
    EXPECT_STREQ("2", vecDnModes[0]->Attribute("value"));
    EXPECT_STREQ("0", vecDnModes[1]->Attribute("value"));
}
