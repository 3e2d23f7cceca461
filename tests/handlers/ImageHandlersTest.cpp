// The image command handlers as a host reaches them: through setParameter.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/ControllerFixture.h"

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
        prepare({{1569, 0},
                 {2497, 25},
                 {17, 0},
                 {8231, 0},
                 {2368, 0},
                 {2369, 0},
                 {2432, 0},
                 {2436, 0},
                 {2416, 0},
                 {9000, 0},
                 {9406, 0}});
    }
};

// --- doIaCmd_User ---------------------------------------------------------------

TEST_F(ImageHandlersTest, ZoomInIsDroppedDuringEveryBusyPhaseAndSucceeds) {
    const u8 phases[] = {ISensorController::switching_flag, ISensorController::initing_flag,
                         ISensorController::resetting_flag, ISensorController::restoring_flag};
    u32 value = 1;
    for (u8 phase : phases) {
        access.setFlags(phase);
        EXPECT_EQ(ctl->setParameter(1569, static_cast<int>(value), true), 0) << int(phase);
        EXPECT_EQ(cached(0, 1569), value) << int(phase);
        ++value;
    }
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(ImageHandlersTest, ZoomInSetByTheUserAfterwardsIsSent) {
    access.setFlags(ISensorController::switching_flag);
    ctl->setParameter(1569, 1, true);
    access.setFlags(0);
    EXPECT_EQ(ctl->setParameter(1569, 2, true), 0);
    const auto calls = ispCalls(1569);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].words, std::vector<uint32_t>({2}));
}

TEST_F(ImageHandlersTest, UserActionsAreSentWhileStartedOrShuttingDown) {
    access.setFlags(ISensorController::inited_flag | ISensorController::uniniting_flag);
    EXPECT_EQ(ctl->setParameter(1569, 1, true), 0);
    EXPECT_EQ(ispCalls(1569).size(), 1u);
}

TEST_F(ImageHandlersTest, SensorFpsIsCommand2464AndDroppedDuringAReplay) {
    access.setFlags(ISensorController::restoring_flag);
    EXPECT_EQ(ctl->setParameter(2497, 30, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    access.setFlags(0);
    EXPECT_EQ(ctl->setParameter(2497, 50, true), 0);
    ASSERT_EQ(ispCalls(2464).size(), 1u);
    EXPECT_EQ(ispCalls(2464)[0].words, std::vector<uint32_t>({50}));
}

TEST_F(ImageHandlersTest, IrisUpAndShutterResetAreDroppedToo) {
    access.setFlags(ISensorController::resetting_flag);
    ctl->setParameter(17, 1, true);
    ctl->setParameter(8231, 1, true);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    access.setFlags(0);
    ctl->setParameter(17, 2, true);
    EXPECT_EQ(ispCalls(83).size(), 1u);
}

TEST_F(ImageHandlersTest, DroppedActionPrintsTheOneShotFocusLine) {
    root.setDebugSign("6\n");
    access.setFlags(ISensorController::switching_flag);
    const std::string text = captureStdout([&] { ctl->setParameter(1569, 1, true); });
    EXPECT_NE(text.find("[sensor dbg] file:ISensorController.cpp fun:doIaCmd_User line:"),
              std::string::npos);
    EXPECT_NE(text.find("ignored auto focus once !!!\n"), std::string::npos) << text;
}

TEST_F(ImageHandlersTest, UserActionReturnsTheIspFailure) {
    sim::Isp::instance().failCommand(1569, -1);
    EXPECT_EQ(ctl->setParameter(1569, 1, true), -1569);
}

// --- doHwdr ------------------------------------------------------------------------

TEST_F(ImageHandlersTest, WdrWithdrawnStoresZeroAndTellsNobody) {
    attachVideo();
    ctl->setShowWDRFalg(false);
    EXPECT_EQ(ctl->setParameter(2368, 2, true), 0);
    EXPECT_EQ(cached(0, 2368), 0u);
    EXPECT_TRUE(video.notices().empty());
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(ImageHandlersTest, WdrModeChangeIsBracketedByNotice2370) {
    attachVideo();
    EXPECT_EQ(ctl->setParameter(2368, 2, true), 0);
    const std::vector<std::pair<int, int>> expected = {{2370, 0}, {2368, 2}, {2370, 1}};
    EXPECT_EQ(keysAndValues(video.notices()), expected);
    ASSERT_EQ(ispCalls(2368).size(), 1u);
    EXPECT_EQ(ispCalls(2368)[0].words, std::vector<uint32_t>({2}));
    EXPECT_EQ(cached(0, 2368), 2u);
}

TEST_F(ImageHandlersTest, RejectedWdrModeStillClosesTheBracketAndReturnsTheNoticeResult) {
    attachVideo();
    sim::Isp::instance().failCommand(2368, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(2368, 1, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == doIaCmd(p_nKey, p_nDir, p_pVal)   ~~~Assertion failed."),
              std::string::npos);
    const std::vector<std::pair<int, int>> expected = {{2370, 0}, {2368, 1}, {2370, 1}};
    EXPECT_EQ(keysAndValues(video.notices()), expected);
    EXPECT_EQ(cached(0, 2368), 1u);
}

TEST_F(ImageHandlersTest, WdrModeRefusedByThePipelineFails) {
    attachVideo();
    video.setResultForKey(2368, -3);
    EXPECT_EQ(ctl->setParameter(2368, 1, true), -2368);
    EXPECT_EQ(keysAndValues(video.notices()).back(), std::make_pair(2370, 1));
    EXPECT_EQ(cached(0, 2368), 0u);
}

TEST_F(ImageHandlersTest, WdrStrengthIsAPlainCommand) {
    attachVideo();
    ctl->setShowWDRFalg(false);
    EXPECT_EQ(ctl->setParameter(2369, 5, true), 0);
    EXPECT_EQ(ispCalls(2369).size(), 1u);
    EXPECT_TRUE(video.notices().empty());
}

TEST_F(ImageHandlersTest, ShowWdrFlagIsReadBack) {
    bool show = false;
    EXPECT_TRUE(ctl->getShowWDRFalg(show));
    EXPECT_TRUE(show);
    ctl->setShowWDRFalg(false);
    EXPECT_TRUE(ctl->getShowWDRFalg(show));
    EXPECT_FALSE(show);
}

// --- doImageAdjust ---------------------------------------------------------------------

TEST_F(ImageHandlersTest, ImageAdjustGoesToTheIspAndThePipeline) {
    attachVideo();
    EXPECT_EQ(ctl->setParameter(2436, 12, true), 0);
    EXPECT_EQ(ispCalls(2436).size(), 1u);
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].key, 2436);
    EXPECT_EQ(video.notices()[0].value, 12);
}

TEST_F(ImageHandlersTest, ImageAdjustRejectedByTheIspStillSucceedsWithThePipeline) {
    attachVideo();
    sim::Isp::instance().failCommand(2432, -1);
    EXPECT_EQ(ctl->setParameter(2432, 1, true), 0);
    EXPECT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(cached(0, 2432), 1u);
}

TEST_F(ImageHandlersTest, ImageAdjustResultIsThePipelines) {
    attachVideo();
    video.setResultForKey(2432, -2);
    EXPECT_EQ(ctl->setParameter(2432, 1, true), -2432);
    EXPECT_EQ(ispCalls(2432).size(), 1u);
}

// --- doDIS ---------------------------------------------------------------------------------

TEST_F(ImageHandlersTest, StabilisationResultIsTheIsps) {
    attachVideo();
    sim::Isp::instance().failCommand(2416, -1);
    EXPECT_EQ(ctl->setParameter(2416, 1, true), -2416);
    EXPECT_EQ(video.notices().size(), 1u);
}

TEST_F(ImageHandlersTest, StabilisationRefusedByThePipelineIsReportedAndStillSent) {
    attachVideo();
    video.setResultForKey(2416, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(2416, 1, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(p_nKey, *(u32*)p_pVal)   ~~~Assertion "
                        "failed."),
              std::string::npos)
        << text;
    EXPECT_EQ(ispCalls(2416).size(), 1u);
    EXPECT_EQ(cached(0, 2416), 1u);
}

// --- doIaCmd_PanoTuning ------------------------------------------------------------------

TEST_F(ImageHandlersTest, PanoramaKeyWithoutAPipelineSucceedsAndIsOnlyStored) {
    EXPECT_EQ(ctl->setParameter(9000, 40, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, 9000), 40u);
}

TEST_F(ImageHandlersTest, PanoramaKeyGoesToThePipelineOnly) {
    attachVideo();
    EXPECT_EQ(ctl->setParameter(9406, 3, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].key, 9406);
}

TEST_F(ImageHandlersTest, PanoramaKeyRefusedByThePipelineIsReportedAndSucceeds) {
    attachVideo();
    video.setResultForKey(9000, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(9000, 41, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(nKey, nVal)   ~~~Assertion failed."),
              std::string::npos)
        << text;
    EXPECT_EQ(cached(0, 9000), 41u);
}

} // namespace
