// The image command handlers as a host reaches them: through setParameter.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ControllerFixture.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;
using coretest::ispCalls;
using coretest::keysAndValues;
using coretest::lastSent;
using Notice = sim::SimVideoStreamModule::Notice;

class ImageHandlersTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{KEY_ZOOM_IN, 0},
                 {KEY_SENSOR_FPS, 25},
                 {KEY_IRIS_UP, 0},
                 {IA_CMD_UI_SHUTTER_RESET, 0},
                 {KEY_WDR_MODE, 0},
                 {KEY_WDR_STRG, 0},
                 {KEY_CAP_OFF_ADJ_DIRECTION, 0},
                 {KEY_CAP_OFF_ADJ_H_CUR, 0},
                 {KEY_ANTI_SHAKE_SWITCH, 0},
                 {KEY_PANO_STITCH_DIST, 0},
                 {KEY_PANO_OFFSETY_4, 0}});
    }
};

// --- doIaCmd_User ---------------------------------------------------------------

TEST_F(ImageHandlersTest, ZoomInIsDroppedDuringEveryBusyPhaseAndSucceeds) {
    const u8 phases[] = {ISensorController::switching_flag, ISensorController::initing_flag,
                         ISensorController::resetting_flag, ISensorController::restoring_flag};
    u32 value = 1;
    for (u8 phase : phases) {
        access().setFlags(phase);
        EXPECT_EQ(ctl->setParameter(KEY_ZOOM_IN, static_cast<int>(value), true), 0) << int(phase);
        EXPECT_EQ(cached(0, KEY_ZOOM_IN), value) << int(phase);
        ++value;
    }
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(ImageHandlersTest, ZoomInSetByTheUserAfterwardsIsSent) {
    access().setFlags(ISensorController::switching_flag);
    ctl->setParameter(KEY_ZOOM_IN, 1, true);
    access().setFlags(0);
    EXPECT_EQ(ctl->setParameter(KEY_ZOOM_IN, 2, true), 0);
    const auto calls = ispCalls(KEY_ZOOM_IN);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].words, std::vector<uint32_t>({2}));
}

TEST_F(ImageHandlersTest, UserActionsAreSentWhileStartedOrShuttingDown) {
    access().setFlags(ISensorController::inited_flag | ISensorController::uniniting_flag);
    EXPECT_EQ(ctl->setParameter(KEY_ZOOM_IN, 1, true), 0);
    EXPECT_EQ(ispCalls(KEY_ZOOM_IN).size(), 1u);
}

TEST_F(ImageHandlersTest, SensorFpsIsCommand2464AndDroppedDuringAReplay) {
    access().setFlags(ISensorController::restoring_flag);
    EXPECT_EQ(ctl->setParameter(KEY_SENSOR_FPS, 30, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    access().setFlags(0);
    EXPECT_EQ(ctl->setParameter(KEY_SENSOR_FPS, 50, true), 0);
    ASSERT_EQ(ispCalls(2464).size(), 1u);
    EXPECT_EQ(ispCalls(2464)[0].words, std::vector<uint32_t>({50}));
}

TEST_F(ImageHandlersTest, IrisUpAndShutterResetAreDroppedToo) {
    access().setFlags(ISensorController::resetting_flag);
    ctl->setParameter(KEY_IRIS_UP, 1, true);
    ctl->setParameter(IA_CMD_UI_SHUTTER_RESET, 1, true);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    access().setFlags(0);
    ctl->setParameter(KEY_IRIS_UP, 2, true);
    EXPECT_EQ(ispCalls(83).size(), 1u);
}

TEST_F(ImageHandlersTest, DroppedActionPrintsTheOneShotFocusLine) {
    root.setDebugSign("6\n");
    access().setFlags(ISensorController::switching_flag);
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_ZOOM_IN, 1, true); });
    EXPECT_NE(text.find("[sensor dbg] file:ISensorController.cpp fun:doIaCmd_User line:"),
              std::string::npos);
    EXPECT_NE(text.find("ignored auto focus once !!!\n"), std::string::npos) << text;
}

TEST_F(ImageHandlersTest, UserActionReturnsTheIspFailure) {
    sim::Isp::instance().failCommand(KEY_ZOOM_IN, -1);
    EXPECT_EQ(ctl->setParameter(KEY_ZOOM_IN, 1, true), -1569);
}

// --- doHwdr ------------------------------------------------------------------------

TEST_F(ImageHandlersTest, WdrWithdrawnStoresZeroAndTellsNobody) {
    attachVideo();
    ctl->setShowWDRFalg(false);
    EXPECT_EQ(ctl->setParameter(KEY_WDR_MODE, 2, true), 0);
    EXPECT_EQ(cached(0, KEY_WDR_MODE), 0u);
    EXPECT_TRUE(video.notices().empty());
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(ImageHandlersTest, WdrModeChangeIsBracketedByNotice2370) {
    attachVideo();
    EXPECT_EQ(ctl->setParameter(KEY_WDR_MODE, 2, true), 0);
    const std::vector<std::pair<int, int>> expected = {{2370, 0}, {2368, 2}, {2370, 1}};
    EXPECT_EQ(keysAndValues(video.notices()), expected);
    ASSERT_EQ(ispCalls(KEY_WDR_MODE).size(), 1u);
    EXPECT_EQ(ispCalls(KEY_WDR_MODE)[0].words, std::vector<uint32_t>({2}));
    EXPECT_EQ(cached(0, KEY_WDR_MODE), 2u);
}

TEST_F(ImageHandlersTest, RejectedWdrModeStillClosesTheBracketAndReturnsTheNoticeResult) {
    attachVideo();
    sim::Isp::instance().failCommand(KEY_WDR_MODE, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(KEY_WDR_MODE, 1, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == doIaCmd(p_nKey, p_nDir, p_pVal)   ~~~Assertion failed."),
              std::string::npos);
    const std::vector<std::pair<int, int>> expected = {{2370, 0}, {2368, 1}, {2370, 1}};
    EXPECT_EQ(keysAndValues(video.notices()), expected);
    EXPECT_EQ(cached(0, KEY_WDR_MODE), 1u);
}

TEST_F(ImageHandlersTest, WdrModeRefusedByThePipelineFails) {
    attachVideo();
    video.setResultForKey(KEY_WDR_MODE, -3);
    EXPECT_EQ(ctl->setParameter(KEY_WDR_MODE, 1, true), -2368);
    EXPECT_EQ(keysAndValues(video.notices()).back(), std::make_pair(2370, 1));
    EXPECT_EQ(cached(0, KEY_WDR_MODE), 0u);
}

TEST_F(ImageHandlersTest, WdrStrengthIsAPlainCommand) {
    attachVideo();
    ctl->setShowWDRFalg(false);
    EXPECT_EQ(ctl->setParameter(KEY_WDR_STRG, 5, true), 0);
    EXPECT_EQ(ispCalls(KEY_WDR_STRG).size(), 1u);
    EXPECT_TRUE(video.notices().empty());
}

TEST_F(ImageHandlersTest, ShowWdrFlagIsReadBack) {
    bool show = false;
    (void)ctl->getShowWDRFalg(show);
    EXPECT_TRUE(show);
    ctl->setShowWDRFalg(false);
    (void)ctl->getShowWDRFalg(show);
    EXPECT_FALSE(show);
}

// --- doImageAdjust ---------------------------------------------------------------------

TEST_F(ImageHandlersTest, ImageAdjustGoesToTheIspAndThePipeline) {
    attachVideo();
    EXPECT_EQ(ctl->setParameter(KEY_CAP_OFF_ADJ_H_CUR, 12, true), 0);
    EXPECT_EQ(ispCalls(KEY_CAP_OFF_ADJ_H_CUR).size(), 1u);
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].key, 2436);
    EXPECT_EQ(video.notices()[0].value, 12);
}

TEST_F(ImageHandlersTest, ImageAdjustRejectedByTheIspStillSucceedsWithThePipeline) {
    attachVideo();
    sim::Isp::instance().failCommand(KEY_CAP_OFF_ADJ_DIRECTION, -1);
    EXPECT_EQ(ctl->setParameter(KEY_CAP_OFF_ADJ_DIRECTION, 1, true), 0);
    EXPECT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(cached(0, KEY_CAP_OFF_ADJ_DIRECTION), 1u);
}

TEST_F(ImageHandlersTest, ImageAdjustResultIsThePipelines) {
    attachVideo();
    video.setResultForKey(KEY_CAP_OFF_ADJ_DIRECTION, -2);
    EXPECT_EQ(ctl->setParameter(KEY_CAP_OFF_ADJ_DIRECTION, 1, true), -2432);
    EXPECT_EQ(ispCalls(KEY_CAP_OFF_ADJ_DIRECTION).size(), 1u);
}

// --- doDIS ---------------------------------------------------------------------------------

TEST_F(ImageHandlersTest, StabilisationResultIsTheIsps) {
    attachVideo();
    sim::Isp::instance().failCommand(KEY_ANTI_SHAKE_SWITCH, -1);
    EXPECT_EQ(ctl->setParameter(KEY_ANTI_SHAKE_SWITCH, 1, true), -2416);
    EXPECT_EQ(video.notices().size(), 1u);
}

TEST_F(ImageHandlersTest, StabilisationRefusedByThePipelineIsReportedAndStillSent) {
    attachVideo();
    video.setResultForKey(KEY_ANTI_SHAKE_SWITCH, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(KEY_ANTI_SHAKE_SWITCH, 1, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(p_nKey, *(u32*)p_pVal)   ~~~Assertion "
                        "failed."),
              std::string::npos)
        << text;
    EXPECT_EQ(ispCalls(KEY_ANTI_SHAKE_SWITCH).size(), 1u);
    EXPECT_EQ(cached(0, KEY_ANTI_SHAKE_SWITCH), 1u);
}

// --- doIaCmd_PanoTuning ------------------------------------------------------------------

TEST_F(ImageHandlersTest, PanoramaKeyWithoutAPipelineSucceedsAndIsOnlyStored) {
    EXPECT_EQ(ctl->setParameter(KEY_PANO_STITCH_DIST, 40, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, KEY_PANO_STITCH_DIST), 40u);
}

TEST_F(ImageHandlersTest, PanoramaKeyGoesToThePipelineOnly) {
    attachVideo();
    EXPECT_EQ(ctl->setParameter(KEY_PANO_OFFSETY_4, 3, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].key, 9406);
}

TEST_F(ImageHandlersTest, PanoramaKeyRefusedByThePipelineIsReportedAndSucceeds) {
    attachVideo();
    video.setResultForKey(KEY_PANO_STITCH_DIST, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(KEY_PANO_STITCH_DIST, 41, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(nKey, nVal)   ~~~Assertion failed."),
              std::string::npos)
        << text;
    EXPECT_EQ(cached(0, KEY_PANO_STITCH_DIST), 41u);
}

} // namespace
