// getSensorParamRange: the ISP's list of accepted values as blank-separated text.
#include <cstring>

#include "tests/support/ControllerFixture.h"

using namespace lenstest;

namespace {

class RangeTest : public LensFixture {
protected:
    // Runs the query with stdout captured; the captured text goes to m_strOut.
    bool query(int nCmd, int& nDefault, std::string& strRange) {
        testing::internal::CaptureStdout();
        const bool bRet = ctrl().getSensorParamRange(nCmd, nDefault, strRange);
        m_strOut = testing::internal::GetCapturedStdout();
        return bRet;
    }
    bool printed(const std::string& text) const { return m_strOut.find(text) != std::string::npos; }

    std::string m_strOut;
};

ia_dynamic_params_cmds_st rawCommandList(uint32_t nCount, uint32_t nFill) {
    ia_dynamic_params_cmds_st list;
    list.cmd_cnt = nCount;
    for (uint32_t& cmd : list.cmd_list)
        cmd = nFill;
    return list;
}

} // namespace

TEST_F(RangeTest, ListBecomesBlankSeparatedNumbersAndDefault) {
    isp().setDynamicCommands({49});
    isp().setListRange(49, 10, {5, 10, 20});
    int nDefault = -1;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ("5 10 20", strRange);
    EXPECT_EQ(10, nDefault);
    EXPECT_EQ((Lines{"list 4112", "range 49"}), traceText());
}

TEST_F(RangeTest, PrintsRangeLineUnconditionally) {
    root.setDebugSign("0\n0\n");
    isp().setDynamicCommands({49});
    isp().setListRange(49, 10, {5, 10, 20});
    int nDefault = -1;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ("cmd=49 DefaltParam=10 strParamRange=5 10 20\n", m_strOut);
}

TEST_F(RangeTest, EmptyListKeepsTextWritesDefaultAndSucceeds) {
    isp().setDynamicCommands({50});
    isp().setListRange(50, 25, {});
    int nDefault = -1;
    std::string strRange = "kept";
    EXPECT_TRUE(query(50, nDefault, strRange));
    EXPECT_EQ("kept", strRange);
    EXPECT_EQ(25, nDefault);
    EXPECT_TRUE(printed("cmd=50 DefaltParam=25 strParamRange=kept\n"));
}

TEST_F(RangeTest, OneItemIsTheNumberAloneWithoutBlank) {
    isp().setDynamicCommands({82});
    isp().setListRange(82, 8, {8});
    int nDefault = -1;
    std::string strRange;
    EXPECT_TRUE(query(82, nDefault, strRange));
    EXPECT_EQ("8", strRange);
    EXPECT_EQ(8, nDefault);
}

TEST_F(RangeTest, ListedButDisallowedCommandFailsWithoutRangeQuery) {
    isp().setDynamicCommands({51, 49});
    isp().setListRange(51, 1, {1, 2});
    int nDefault = -7;
    std::string strRange = "old";
    EXPECT_FALSE(query(51, nDefault, strRange));
    EXPECT_EQ(-7, nDefault);
    EXPECT_EQ("old", strRange);
    EXPECT_EQ((Lines{"list 4112"}), traceText());
    EXPECT_FALSE(printed("cmd="));
}

TEST_F(RangeTest, UnlistedAllowedCommandFailsWithoutRangeQuery) {
    isp().setDynamicCommands({50});
    int nDefault = -7;
    std::string strRange;
    EXPECT_FALSE(query(49, nDefault, strRange));
    EXPECT_EQ(-7, nDefault);
    EXPECT_EQ("", strRange);
    EXPECT_EQ((Lines{"list 4112"}), traceText());
}

TEST_F(RangeTest, EachOfTheFourAllowedCommandsIsAnswered) {
    isp().setDynamicCommands({49, 50, 82, 1537});
    for (int nCmd : {49, 50, 82, 1537}) {
        isp().setListRange(nCmd, 3, {3, 4});
        int nDefault = -1;
        std::string strRange;
        EXPECT_TRUE(query(nCmd, nDefault, strRange)) << nCmd;
        EXPECT_EQ("3 4", strRange) << nCmd;
        EXPECT_EQ(3, nDefault) << nCmd;
    }
}

TEST_F(RangeTest, NumbersAreAppendedBehindOldContent) {
    isp().setDynamicCommands({49});
    isp().setListRange(49, 2, {1, 2, 4, 8});
    int nDefault = -1;
    std::string strRange = "old:";
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ("old:1 2 4 8", strRange);
    EXPECT_TRUE(printed("cmd=49 DefaltParam=2 strParamRange=old:1 2 4 8\n"));
}

TEST_F(RangeTest, NonListRangeSucceedsWithNothingWritten) {
    isp().setDynamicCommands({82});
    isp().setMinMaxRange(82, 100, 0, 200);
    int nDefault = -7;
    std::string strRange = "old";
    EXPECT_TRUE(query(82, nDefault, strRange));
    EXPECT_EQ(-7, nDefault);
    EXPECT_EQ("old", strRange);
    EXPECT_FALSE(printed("cmd="));
}

TEST_F(RangeTest, ItemsAreSignedDecimals) {
    isp().setDynamicCommands({49});
    isp().setListRange(49, 0xFFFFFFFEu, {0xFFFFFFFFu, 5});
    int nDefault = 0;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ("-1 5", strRange);
    EXPECT_EQ(-2, nDefault);
}

TEST_F(RangeTest, QueriesGoToTheCamerasOwnIspChannel) {
    ctrl().setChannelID(2);
    isp().setDynamicCommands({49});
    int nDefault = 0;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    const std::vector<sim::IspCall> calls = isp().trace();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(1, calls[0].channel);
    EXPECT_EQ(1, calls[1].channel);
}

TEST_F(RangeTest, CommandCountBeyondCapacityIsWalkedOnlyToSixteenthEntry) {
    ia_dynamic_params_cmds_st list = rawCommandList(1000, 7);
    list.cmd_list[IA_DYNAMIC_CMDS_MAX - 1] = 49;
    isp().setRawCommandList(list);
    isp().setListRange(49, 1, {1, 2});
    isp().setListRange(50, 1, {1, 2});
    int nDefault = 0;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ("1 2", strRange);
    // 50 is nowhere in the sixteen entries the record can hold.
    strRange.clear();
    EXPECT_FALSE(query(50, nDefault, strRange));
    EXPECT_EQ("", strRange);
}

TEST_F(RangeTest, NegativeCommandCountListsNothing) {
    ia_dynamic_params_cmds_st list = rawCommandList(0xFFFFFFFFu, 49);
    isp().setRawCommandList(list);
    int nDefault = -7;
    std::string strRange;
    EXPECT_FALSE(query(49, nDefault, strRange));
    EXPECT_EQ(-7, nDefault);
    EXPECT_EQ((Lines{"list 4112"}), traceText());
}

TEST_F(RangeTest, ItemCountBeyondCapacityStopsAtSixtyFourItems) {
    ia_dynamic_params_attr_st range;
    std::memset(&range, 0, sizeof(range));
    range.type = 0;
    range.default_value = 1;
    range.items_cnt = 5000;
    std::string strExpected;
    for (uint32_t i = 0; i < IA_DYNAMIC_ITEMS_MAX; ++i) {
        range.item[i] = i + 1;
        strExpected += (i ? " " : "") + std::to_string(i + 1);
    }
    isp().setDynamicCommands({49});
    isp().setRawRange(49, range);
    int nDefault = 0;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ(strExpected, strRange);
}

TEST_F(RangeTest, RefusedCommandListIsReportedAndListsNothing) {
    isp().failCommand(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, -1);
    int nDefault = -7;
    std::string strRange;
    EXPECT_FALSE(query(49, nDefault, strRange));
    const std::string strExpr = "SNS_SUCCESS == ia_ioctrl_v2(m_nCameraID-1, "
                                "IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, "
                                "(void*)(&dnaCmdList))   ~~~Assertion failed.\n";
    EXPECT_TRUE(printed("[sensor assert]"));
    EXPECT_TRUE(printed(strExpr));
    EXPECT_NE(std::string::npos, root.read("/mnt/mtd/log/SensorError.log").find(strExpr));
    EXPECT_EQ(-7, nDefault);
    EXPECT_EQ((Lines{"list 4112 failed"}), traceText());
}

TEST_F(RangeTest, RefusedRangeQueryIsReportedAndGoesOn) {
    isp().setDynamicCommands({49});
    isp().failCommand(KEY_MAX_SHUTTER, -1);
    int nDefault = -7;
    std::string strRange = "old";
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_TRUE(printed("SNS_SUCCESS == doIaCmd(p_nCmd, IA_CMD_OPT_GET_PARAM_RNAGE, "
                        "(void*)(&stDynamicParam))   ~~~Assertion failed.\n"));
    // The record was cleared before the query: an empty list with default 0.
    EXPECT_EQ(0, nDefault);
    EXPECT_EQ("old", strRange);
    EXPECT_TRUE(printed("cmd=49 DefaltParam=0 strParamRange=old\n"));
}

TEST_F(RangeTest, LockedLensSwallowsFocusLimitRangeQuery) {
    lockLens(true);
    int nDefault = -7;
    std::string strRange;
    EXPECT_TRUE(query(1537, nDefault, strRange));
    EXPECT_EQ((Lines{"list 4112"}), traceText());
    EXPECT_EQ(0, nDefault);
    EXPECT_EQ("", strRange);
}

TEST_F(RangeTest, LockedLensLeavesShutterRangeAlone) {
    lockLens(true);
    int nDefault = 0;
    std::string strRange;
    EXPECT_TRUE(query(49, nDefault, strRange));
    EXPECT_EQ((Lines{"list 4112", "range 49"}), traceText());
    EXPECT_EQ("1 2 4 8 16 25 30 50 60 100 120 250 500 1000 2000 5000 10000", strRange);
    EXPECT_EQ(30, nDefault);
}
