// Direct lens and iris operations, the zoom ratio, the read-outs and the lens lock.
#include <atomic>
#include <climits>
#include <thread>

#include "tests/support/ControllerFixture.h"

using namespace lenstest;

namespace {

class LensTest : public LensFixture {};
class LensZoomTest : public LensFixture {
protected:
    // The ratio for a zoom motor position, starting from nRatio.
    int ratioAt(uint32_t nPos, int nRatio = -1) {
        isp().setValue(kChannel, KEY_MZ_POSITION, nPos);
        int nReadPos = 0;
        EXPECT_TRUE(ctrl().getZoomValue(nReadPos, nRatio));
        EXPECT_EQ(static_cast<int>(nPos), nReadPos);
        return nRatio;
    }
};
class LensLockTest : public LensFixture {};
class IrisTest : public LensFixture {};

} // namespace

// Lens steps -----------------------------------------------------------------

TEST_F(LensTest, FocusFarSetsManualFocusModeThenStepsFar) {
    EXPECT_TRUE(ctrl().focusFar());
    EXPECT_EQ((Lines{"set 1536=1", "set 1554=1"}), traceText());
}

TEST_F(LensTest, FocusNearSetsManualFocusModeThenStepsNear) {
    EXPECT_TRUE(ctrl().focusNear());
    EXPECT_EQ((Lines{"set 1536=1", "set 1553=1"}), traceText());
}

TEST_F(LensTest, FocusStepIgnoresRefusedFocusMode) {
    isp().failCommand(KEY_AUTO_FOCUS_MODE, -1);
    EXPECT_TRUE(ctrl().focusFar());
    EXPECT_TRUE(ctrl().focusNear());
    EXPECT_EQ((Lines{"set 1536=1 failed", "set 1554=1", "set 1536=1 failed", "set 1553=1"}),
              traceText());
}

TEST_F(LensTest, RefusedFocusStepFails) {
    isp().failCommand(KEY_FOCUS_FAR, -1);
    isp().failCommand(KEY_FOCUS_NEAR, -1);
    EXPECT_FALSE(ctrl().focusFar());
    EXPECT_FALSE(ctrl().focusNear());
}

TEST_F(LensTest, ZoomInSendsOneStep) {
    EXPECT_TRUE(ctrl().zoomIn());
    EXPECT_EQ((Lines{"set 1569=1"}), traceText());
}

TEST_F(LensTest, ZoomOutSendsOneStep) {
    EXPECT_TRUE(ctrl().zoomOut());
    EXPECT_EQ((Lines{"set 1570=1"}), traceText());
}

TEST_F(LensTest, RefusedZoomStepFails) {
    isp().failCommand(KEY_ZOOM_IN, -1);
    isp().failCommand(KEY_ZOOM_OUT, -1);
    EXPECT_FALSE(ctrl().zoomIn());
    EXPECT_FALSE(ctrl().zoomOut());
}

// Positions and run state --------------------------------------------------------

TEST_F(LensTest, SetZoomValueSendsZoomPosition) {
    EXPECT_TRUE(ctrl().setZoomValue(28000));
    EXPECT_EQ((Lines{"set 1568=28000"}), traceText());
    isp().failCommand(KEY_MZ_POSITION, -1);
    EXPECT_FALSE(ctrl().setZoomValue(28000));
}

TEST_F(LensTest, SetPTZRunStateSendsRunState) {
    EXPECT_TRUE(ctrl().setPTZRunState(1));
    EXPECT_EQ((Lines{"set 1632=1"}), traceText());
    isp().failCommand(IA_CMD_PTZ_RUN_STATE, -1);
    EXPECT_FALSE(ctrl().setPTZRunState(0));
}

TEST_F(LensTest, FocusValueIsSetAndReadAsFocusPosition) {
    EXPECT_TRUE(ctrl().setFocusValue(777));
    int nVal = 0;
    EXPECT_TRUE(ctrl().getFocusValue(nVal));
    EXPECT_EQ(777, nVal);
    EXPECT_EQ((Lines{"set 1552=777", "get 1552=777"}), traceText());
}

TEST_F(LensTest, FocusModeIsSetAndReadDirectly) {
    EXPECT_TRUE(ctrl().setFocusMode(2));
    int nMode = 0;
    EXPECT_TRUE(ctrl().getFocusMode(nMode));
    EXPECT_EQ(2, nMode);
    EXPECT_EQ((Lines{"set 1536=2", "get 1536=2"}), traceText());
}

// Read-outs --------------------------------------------------------------------

TEST_F(LensTest, ReadOutsComeFromTheIspNotTheCache) {
    isp().setValue(kChannel, IA_CMD_AF_STATISTIC, 4000000000u);
    isp().setValue(kChannel, KEY_WDR_MODE, 2);
    isp().setValue(kChannel, KEY_IRIS_POSITION, 3000);
    isp().setValue(kChannel, KEY_IR_SWITCH, 1);
    isp().setValue(kChannel, 168, 1);
    isp().setValue(kChannel, 169, 3);
    setCached(KEY_IR_SWITCH, 0);
    setCached(KEY_WHITE_SWITCH, 0);
    setCached(KEY_WHITE_MODE, 0);

    unsigned int nStat = 0;
    int nWdr = 0, nIris = 0, nIr = 0, nWhite = 0, nWhiteMode = 0;
    EXPECT_TRUE(ctrl().getAFStatistic(nStat));
    EXPECT_TRUE(ctrl().getWDR(nWdr));
    EXPECT_TRUE(ctrl().getIrisValue(nIris));
    EXPECT_TRUE(ctrl().getIRSwitch(nIr));
    EXPECT_TRUE(ctrl().getWhiteSwitch(nWhite));
    EXPECT_TRUE(ctrl().getWhiteMode(nWhiteMode));
    EXPECT_EQ(4000000000u, nStat);
    EXPECT_EQ(2, nWdr);
    EXPECT_EQ(3000, nIris);
    EXPECT_EQ(1, nIr);
    EXPECT_EQ(1, nWhite);
    EXPECT_EQ(3, nWhiteMode);
    EXPECT_EQ((Lines{"get 1648=4000000000", "get 2368=2", "get 82=3000", "get 160=1", "get 168=1",
                     "get 169=3"}),
              traceText());
}

TEST_F(LensTest, ReadOutsFailWhenIspRefuses) {
    isp().failAll(-1);
    unsigned int nStat = 0;
    int nVal = 0;
    EXPECT_FALSE(ctrl().getAFStatistic(nStat));
    EXPECT_FALSE(ctrl().getWDR(nVal));
    EXPECT_FALSE(ctrl().getIrisValue(nVal));
    EXPECT_FALSE(ctrl().getIRSwitch(nVal));
    EXPECT_FALSE(ctrl().getWhiteSwitch(nVal));
    EXPECT_FALSE(ctrl().getWhiteMode(nVal));
    EXPECT_FALSE(ctrl().getFocusValue(nVal));
    EXPECT_FALSE(ctrl().getFocusMode(nVal));
}

// Zoom ratio ---------------------------------------------------------------------

TEST_F(LensZoomTest, RatioIsOneXAtOrBelowFirstPosition) {
    EXPECT_EQ(1000, ratioAt(16384));
    EXPECT_EQ(1000, ratioAt(1000));
    EXPECT_EQ(1000, ratioAt(0));
}

TEST_F(LensZoomTest, RatioIsSixteenXAtLastPosition) {
    EXPECT_EQ(16000, ratioAt(31424));
}

TEST_F(LensZoomTest, RatioBeyondLastPositionIsLeftUntouched) {
    EXPECT_EQ(4242, ratioAt(31425, 4242));
    EXPECT_EQ(4242, ratioAt(65535, 4242));
}

TEST_F(LensZoomTest, RatioInterpolatesBetweenWholeFactors) {
    EXPECT_EQ(1500, ratioAt(20480));
    EXPECT_EQ(2000, ratioAt(24576));
    EXPECT_EQ(1001, ratioAt(16385));
    // 27264 + (28672 - 27264) / 4 lies a quarter of the way from 3x to 4x.
    EXPECT_EQ(3250, ratioAt(27616));
}

TEST_F(LensZoomTest, RatioDivisionTruncates) {
    // 3000 - 1000 * 2687 / 2688: 999.6 is cut to 999.
    EXPECT_EQ(2001, ratioAt(24577));
    // 16000 - 1000 * 1 / 192: 5.2 is cut to 5.
    EXPECT_EQ(15995, ratioAt(31423));
}

TEST_F(LensZoomTest, EveryTablePositionGivesItsWholeFactor) {
    const uint32_t aPos[16] = {16384, 24576, 27264, 28672, 29056, 29440, 29728, 30016,
                               30208, 30400, 30560, 30720, 30912, 31104, 31232, 31424};
    for (int k = 0; k < 16; ++k)
        EXPECT_EQ(1000 * (k + 1), ratioAt(aPos[k])) << aPos[k];
}

TEST_F(LensZoomTest, RefusedPositionReadFailsAndKeepsRatio) {
    isp().failCommand(KEY_MZ_POSITION, -1);
    int nPos = 5, nRatio = 4242;
    EXPECT_FALSE(ctrl().getZoomValue(nPos, nRatio));
    EXPECT_EQ(4242, nRatio);
}

// Lens lock ----------------------------------------------------------------------

TEST_F(LensLockTest, LockedLensSwallowsStepsAndPositions) {
    lockLens(true);
    EXPECT_TRUE(ctrl().focusFar());
    EXPECT_TRUE(ctrl().focusNear());
    EXPECT_TRUE(ctrl().zoomIn());
    EXPECT_TRUE(ctrl().zoomOut());
    EXPECT_TRUE(ctrl().setZoomValue(30000));
    EXPECT_TRUE(ctrl().setFocusValue(100));
    EXPECT_TRUE(ctrl().setFocusMode(0));
    EXPECT_EQ(Lines{}, traceText());
}

TEST_F(LensLockTest, LockedLensReadsSucceedWithoutTouchingValues) {
    isp().setValue(kChannel, KEY_MF_POSITION, 777);
    isp().setValue(kChannel, KEY_MZ_POSITION, 31424);
    lockLens(true);
    int nFocus = 5, nMode = 6, nPos = 20480, nRatio = 0;
    EXPECT_TRUE(ctrl().getFocusValue(nFocus));
    EXPECT_TRUE(ctrl().getFocusMode(nMode));
    EXPECT_TRUE(ctrl().getZoomValue(nPos, nRatio));
    EXPECT_EQ(5, nFocus);
    EXPECT_EQ(6, nMode);
    // The position is not read; the ratio follows the value the caller passed.
    EXPECT_EQ(20480, nPos);
    EXPECT_EQ(1500, nRatio);
    EXPECT_EQ(Lines{}, traceText());
}

TEST_F(LensLockTest, LockedLensLeavesIrisRunStateAndStatisticAlone) {
    lockLens(true);
    unsigned int nStat = 0;
    EXPECT_TRUE(ctrl().irisUp());
    EXPECT_TRUE(ctrl().setPTZRunState(1));
    EXPECT_TRUE(ctrl().getAFStatistic(nStat));
    EXPECT_EQ((Lines{"set 16=3", "set 83=1", "set 1632=1", "get 1648=0"}), traceText());
}

TEST_F(LensLockTest, UnlockingRestoresLensCommands) {
    lockLens(true);
    EXPECT_TRUE(ctrl().zoomIn());
    lockLens(false);
    EXPECT_TRUE(ctrl().zoomIn());
    EXPECT_EQ((Lines{"set 1569=1"}), traceText());
}

TEST_F(LensLockTest, ZoomFocusParamIsCopiedInAndOut) {
    SensorZoomFocusParam objIn;
    objIn.setLockZoomFocusEnable(true);
    objIn.setZoomPosition(29000);
    objIn.setFocusPosition(1234);
    (void)ctrl().setSensorZoomFocusParam(objIn);
    SensorZoomFocusParam objOut;
    (void)ctrl().getSensorZoomFocusParam(objOut);
    EXPECT_TRUE(objOut.getLockZoomFocusEnable());
    EXPECT_EQ(29000, objOut.getZoomPosition());
    EXPECT_EQ(1234, objOut.getFocusPosition());
    // A copy: changing the caller's object afterwards does not unlock the lens.
    objIn.setLockZoomFocusEnable(false);
    EXPECT_TRUE(ctrl().zoomIn());
    EXPECT_EQ(Lines{}, traceText());
}

TEST_F(LensLockTest, RecordCopiedInAndOutWhileLensCommandsRun) {
    // The host copies the record from its own threads while other host calls
    // read the lock; no copy is ever seen half-written. Run under
    // ThreadSanitizer too, which reports any unguarded access. Every thread
    // makes a fixed number of calls; the writer writes once for each call the
    // other two made, so the three overlap however the scheduler and the
    // mutex favour them, and the run is as long as those calls.
    constexpr int kCalls = 2000;
    std::atomic<int> nReads{0};
    std::atomic<int> nCommands{0};
    std::atomic<int> nTorn{0};
    std::thread objWriter([&] {
        for (int i = 0; i < 2 * kCalls; ++i) {
            while (nReads.load() + nCommands.load() < i)
                std::this_thread::yield();
            SensorZoomFocusParam objParam;
            objParam.setLockZoomFocusEnable(i % 2 == 0);
            objParam.setZoomPosition(i);
            objParam.setFocusPosition(i * 2);
            ctrl().setSensorZoomFocusParam(objParam);
        }
    });
    std::thread objReader([&] {
        for (int i = 0; i < kCalls; ++i) {
            SensorZoomFocusParam objOut;
            ctrl().getSensorZoomFocusParam(objOut);
            if (objOut.getFocusPosition() != objOut.getZoomPosition() * 2)
                ++nTorn;
            ++nReads;
        }
    });
    for (int i = 0; i < kCalls; ++i) {
        (void)ctrl().zoomIn();
        if (++nCommands % 500 == 0)
            isp().clearTrace();
    }
    objWriter.join();
    objReader.join();
    EXPECT_EQ(kCalls, nReads.load());
    EXPECT_EQ(kCalls, nCommands.load());
    EXPECT_EQ(0, nTorn.load());
    // Locked at the end: the lens commands are swallowed.
    SensorZoomFocusParam objLocked;
    objLocked.setLockZoomFocusEnable(true);
    ctrl().setSensorZoomFocusParam(objLocked);
    isp().clearTrace();
    EXPECT_TRUE(ctrl().zoomIn());
    EXPECT_EQ(Lines{}, traceText());
}

// Iris -------------------------------------------------------------------------

TEST_F(IrisTest, IrisUpSetsManualExposureThenStepsOpen) {
    EXPECT_TRUE(ctrl().irisUp());
    EXPECT_EQ((Lines{"set 16=3", "set 83=1"}), traceText());
}

TEST_F(IrisTest, IrisDownSetsManualExposureThenStepsClosed) {
    EXPECT_TRUE(ctrl().irisDown());
    EXPECT_EQ((Lines{"set 16=3", "set 84=1"}), traceText());
}

TEST_F(IrisTest, NoIrisStepWhenExposureModeRefused) {
    isp().failCommand(KEY_EXPOSE_MODE, -1);
    EXPECT_FALSE(ctrl().irisUp());
    EXPECT_FALSE(ctrl().irisDown());
    EXPECT_EQ((Lines{"set 16=3 failed", "set 16=3 failed"}), traceText());
}

TEST_F(IrisTest, RefusedIrisStepFails) {
    isp().failCommand(83, -1);
    isp().failCommand(84, -1);
    EXPECT_FALSE(ctrl().irisUp());
    EXPECT_FALSE(ctrl().irisDown());
}

TEST_F(IrisTest, IrisValueBelowRangeSends256) {
    EXPECT_TRUE(ctrl().setIrisValue(100));
    EXPECT_TRUE(ctrl().setIrisValue(255));
    EXPECT_TRUE(ctrl().setIrisValue(-5));
    EXPECT_EQ((Lines{"set 16=3", "set 82=256", "set 16=3", "set 82=256", "set 16=3", "set 82=256"}),
              traceText());
}

TEST_F(IrisTest, IrisValueWithinRangePassesUnchanged) {
    EXPECT_TRUE(ctrl().setIrisValue(256));
    EXPECT_TRUE(ctrl().setIrisValue(25600));
    EXPECT_EQ((Lines{"set 16=3", "set 82=256", "set 16=3", "set 82=25600"}), traceText());
}

TEST_F(IrisTest, IrisValueAboveRangeJumpsTo1048576) {
    EXPECT_TRUE(ctrl().setIrisValue(25601));
    EXPECT_TRUE(ctrl().setIrisValue(INT_MAX));
    EXPECT_EQ((Lines{"set 16=3", "set 82=1048576", "set 16=3", "set 82=1048576"}), traceText());
}

TEST_F(IrisTest, IrisValueNotSentWhenExposureModeRefused) {
    isp().failCommand(KEY_EXPOSE_MODE, -1);
    EXPECT_FALSE(ctrl().setIrisValue(1000));
    EXPECT_EQ((Lines{"set 16=3 failed"}), traceText());
}

TEST_F(IrisTest, RefusedIrisValueFails) {
    isp().failCommand(KEY_IRIS_POSITION, -1);
    EXPECT_FALSE(ctrl().setIrisValue(1000));
    EXPECT_EQ((Lines{"set 16=3", "set 82=1000 failed"}), traceText());
}
