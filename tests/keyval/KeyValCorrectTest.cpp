// The ISP's correction of a scheme's stored values for its dynamic commands.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/SensorKeys.h"
#include "keyval/SensorKeyVal.h"
#include "tests/support/Camera.h"
#include "tests/support/TestSupport.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const char* const kAssertTag = "[sensor assert]";

using testsupport::contains;

using testsupport::occurrences;

std::vector<sim::IspCall> corrections() {
    std::vector<sim::IspCall> vecOut;
    for (const sim::IspCall& call : sim::Isp::instance().trace())
        if (call.opt == IA_CMD_OPT_CORRECT_PARAM)
            vecOut.push_back(call);
    return vecOut;
}

} // namespace

TEST(KeyValCorrect, ListedCommandsAreCorrectedInPlace) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49, 96});
    KeyVal arValues[] = {{KEY_BRIGHTNESS, 50}, {KEY_MAX_SHUTTER, 7}, {KEY_METER_AREA, 9}};
    EXPECT_EQ(SNS_SUCCESS, keyval_correct(0, arValues, 3));
    // 7 is not a shutter the ISP offers, 9 is beyond the metering areas.
    EXPECT_NE(7u, arValues[1].value);
    EXPECT_NE(9u, arValues[2].value);
    EXPECT_EQ(50u, arValues[0].value);
    const std::vector<sim::IspCall> vecCalls = corrections();
    ASSERT_EQ(2u, vecCalls.size());
    EXPECT_EQ(49, vecCalls[0].cmd);
    EXPECT_EQ(96, vecCalls[1].cmd);
    EXPECT_EQ(arValues[1].value, vecCalls[0].words.at(0));
    EXPECT_EQ(arValues[2].value, vecCalls[1].words.at(0));
}

TEST(KeyValCorrect, AsksTheGivenChannel) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    KeyVal arValues[] = {{KEY_METER_AREA, 1}};
    keyval_correct(1, arValues, 1);
    const std::vector<sim::IspCall> vecCalls = sim::Isp::instance().trace();
    ASSERT_EQ(2u, vecCalls.size());
    EXPECT_EQ(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, vecCalls[0].cmd);
    EXPECT_EQ(1, vecCalls[0].channel);
    EXPECT_EQ(1, vecCalls[1].channel);
}

TEST(KeyValCorrect, PrintsBeforeAndAfterAtDebugLevel) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    sim::Isp::instance().setDynamicCommands({1537});
    KeyVal arValues[] = {{KEY_AUTO_FOCUS_NEAR_LIMIT, 40}};
    CaptureStdout();
    keyval_correct(0, arValues, 1);
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "before correct: (1537,40)\n")) << strOut;
    EXPECT_TRUE(
        contains(strOut, "after correct: (1537," + std::to_string(arValues[0].value) + ")\n"))
        << strOut;
    EXPECT_TRUE(contains(strOut, "[sensor dbg] file:SensorKeyVal.cpp fun:keyval_correct"));
    EXPECT_FALSE(contains(strOut, kAssertTag));
}

TEST(KeyValCorrect, QuietBelowDebugLevel) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({1537});
    KeyVal arValues[] = {{KEY_AUTO_FOCUS_NEAR_LIMIT, 40}};
    CaptureStdout();
    keyval_correct(0, arValues, 1);
    EXPECT_EQ("", GetCapturedStdout());
}

TEST(KeyValCorrect, MissingDynamicCommandIsReportedAndSkipped) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    sim::Isp::instance().setDynamicCommands({49, 96, 144});
    KeyVal arValues[] = {{KEY_MAX_SHUTTER, 30}, {KEY_DN_MODE, 9}};
    CaptureStdout();
    EXPECT_EQ(SNS_SUCCESS, keyval_correct(0, arValues, 2));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "-1 != index   ~~~Assertion failed.\n")) << strOut;
    EXPECT_EQ(1u, occurrences(strOut, "-1 != index"));
    const std::vector<sim::IspCall> vecCalls = corrections();
    ASSERT_EQ(2u, vecCalls.size());
    EXPECT_EQ(49, vecCalls[0].cmd);
    EXPECT_EQ(144, vecCalls[1].cmd);
    // The command after the missing one is still corrected.
    EXPECT_NE(9u, arValues[1].value);
    EXPECT_TRUE(contains(root.read("/mnt/mtd/log/SensorError.log"), "-1 != index"));
}

TEST(KeyValCorrect, TheSampleBoxCameraGetsAllParametersWithoutAFailedCheck) {
    // The sample machine's fixed-lens module: its ISP lists no lens command.
    camtest::Camera cam;
    ASSERT_TRUE(cam.start());
    std::string strText;
    CaptureStdout();
    (void)cam.ctl->getAllParameters(strText);
    const std::string strOut = GetCapturedStdout();
    EXPECT_FALSE(contains(strOut, "Assertion failed")) << strOut;
    EXPECT_FALSE(contains(cam.root.read("/mnt/mtd/log/SensorError.log"), "-1 != index"));
    EXPECT_TRUE(contains(strText, "(34,50)")) << strText;
}

TEST(KeyValCorrect, FirstMatchingRecordIsCorrected) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    KeyVal arValues[] = {{KEY_METER_AREA, 9}, {KEY_METER_AREA, 9}};
    keyval_correct(0, arValues, 2);
    EXPECT_NE(9u, arValues[0].value);
    EXPECT_EQ(9u, arValues[1].value);
}

TEST(KeyValCorrect, SearchStopsAtTheCount) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({96});
    KeyVal arValues[] = {{KEY_BRIGHTNESS, 1}, {KEY_METER_AREA, 9}};
    CaptureStdout();
    keyval_correct(0, arValues, 1);
    EXPECT_TRUE(contains(GetCapturedStdout(), "-1 != index"));
    EXPECT_EQ(9u, arValues[1].value);
    EXPECT_TRUE(corrections().empty());
}

TEST(KeyValCorrect, FailedListQueryIsReportedAndCorrectsNothing) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().failCommand(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, -1);
    KeyVal arValues[] = {{KEY_MAX_SHUTTER, 7}};
    CaptureStdout();
    EXPECT_EQ(SNS_SUCCESS, keyval_correct(0, arValues, 1));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "SNS_SUCCESS == ia_ioctrl_v2(p_nChannel_id, "
                                 "IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, "
                                 "(void*)(&dnaCmdList))   ~~~Assertion failed.\n"))
        << strOut;
    EXPECT_EQ(7u, arValues[0].value);
    EXPECT_TRUE(corrections().empty());
}

TEST(KeyValCorrect, FailedCorrectionIsReportedAndWorkGoesOn) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setDynamicCommands({49, 96});
    sim::Isp::instance().failCommand(KEY_MAX_SHUTTER, -1);
    KeyVal arValues[] = {{KEY_MAX_SHUTTER, 7}, {KEY_METER_AREA, 9}};
    CaptureStdout();
    EXPECT_EQ(SNS_SUCCESS, keyval_correct(0, arValues, 2));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "SNS_SUCCESS == ia_ioctrl_v2(p_nChannel_id, "
                                 "(ia_cmd_e)p_pKeyval[index].key, IA_CMD_OPT_CORRECT_PARAM, "
                                 "&p_pKeyval[index].value)   ~~~Assertion failed.\n"))
        << strOut;
    EXPECT_EQ(7u, arValues[0].value);
    EXPECT_NE(9u, arValues[1].value);
}

TEST(KeyValCorrect, NullArrayIsReportedAndNothingIsCorrected) {
    testsupport::TempDeviceRoot root;
    CaptureStdout();
    EXPECT_EQ(SNS_SUCCESS, keyval_correct(0, nullptr, 5));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "NULL != p_pKeyval   ~~~Assertion failed.\n")) << strOut;
    EXPECT_TRUE(corrections().empty());
}

TEST(KeyValCorrect, ListCountBeyondCapacityReadsOnlySixteenCommands) {
    testsupport::TempDeviceRoot root;
    ia_dynamic_params_cmds_st stList{};
    stList.cmd_cnt = 1000;
    for (u32 i = 0; i < IA_DYNAMIC_CMDS_MAX; ++i)
        stList.cmd_list[i] = 96;
    sim::Isp::instance().setRawCommandList(stList);
    KeyVal arValues[] = {{KEY_METER_AREA, 9}};
    CaptureStdout();
    EXPECT_EQ(SNS_SUCCESS, keyval_correct(0, arValues, 1));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "dnaCmdList.cmd_cnt(1000)\n")) << strOut;
    EXPECT_EQ(16u, corrections().size());
}
