// Scheme switching, the time windows and the host's scheme and mode calls.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Camera.h"

using namespace camtest;

namespace {

// A started camera whose worker is stopped, with scheme 1 differing from
// scheme 0 in brightness and saturation only.
struct SwitchCamera : Camera {
    SwitchCamera() {
        EXPECT_TRUE(start());
        stopWorker();
        setValue(1, KEY_BRIGHTNESS, value(0, KEY_BRIGHTNESS) + 11);
        setValue(1, KEY_SATURATION, value(0, KEY_SATURATION) + 13);
        sim::Isp::instance().clearTrace();
    }
};

} // namespace

TEST(SchemeSwitch, SwitchPushesOnlyTheDifferingKeys) {
    SwitchCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(1));
    const std::vector<sim::IspCall> vecSets = setCalls();
    ASSERT_EQ(2u, vecSets.size());
    EXPECT_EQ(static_cast<int>(KEY_BRIGHTNESS), vecSets[0].cmd);
    EXPECT_EQ(cam.value(1, KEY_BRIGHTNESS), vecSets[0].words.at(0));
    EXPECT_EQ(static_cast<int>(KEY_SATURATION), vecSets[1].cmd);
    EXPECT_EQ(cam.value(1, KEY_SATURATION), vecSets[1].words.at(0));
    EXPECT_EQ(1, cam.acc->curScheme());
    EXPECT_EQ(0, cam.acc->lastScheme());
    EXPECT_FALSE(cam.acc->flags() & ISensorController::switching_flag);
}

TEST(SchemeSwitch, SwitchToTheCurrentSchemePushesNothing) {
    SwitchCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(0));
    EXPECT_TRUE(setCalls().empty());
}

TEST(SchemeSwitch, ForcedSwitchPushesEveryKey) {
    SwitchCamera cam;
    const auto objHold = cam.acc->holdAsWorker(); // as the worker holds it
    (void)cam.ctl->switch_to(1, true);
    const std::vector<sim::IspCall> vecSets = setCalls();
    // Every key the table dispatches, the controller's own keys excepted.
    EXPECT_GT(vecSets.size(), 2u);
    EXPECT_EQ(1u, callsOf(KEY_BRIGHTNESS, 0));
    EXPECT_EQ(1, cam.acc->curScheme());
}

TEST(SchemeSwitch, FactorySlotIsAcceptedAndAppliesTheDefaults) {
    SwitchCamera cam;
    cam.setValue(0, KEY_BRIGHTNESS, cam.value(4, KEY_BRIGHTNESS) + 3);
    ASSERT_TRUE(cam.ctl->setParamScheme(0));
    ASSERT_TRUE(cam.ctl->setParamScheme(1));
    sim::Isp::instance().clearTrace();
    const std::string strLog = cam.errorLog();
    ASSERT_TRUE(cam.ctl->setParamScheme(4));
    EXPECT_EQ(4, cam.acc->curScheme());
    EXPECT_EQ(strLog, cam.errorLog());
    const std::vector<sim::IspCall> vecSets = setCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(1u, vecSets.size());
    EXPECT_EQ(cam.value(4, KEY_BRIGHTNESS), vecSets[0].words.at(0));
}

TEST(SchemeSwitch, SchemeBeyondTheFactorySlotIsReportedAndStillUsed) {
    SwitchCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(5));
    EXPECT_EQ(5, cam.acc->curScheme());
    EXPECT_TRUE(
        contains(cam.errorLog(), "p_nScheme >= 0 && (u32)p_nScheme <= m_stSysConf.nSchemeSum"));
    EXPECT_TRUE(contains(cam.errorLog(), "p_nScheme(5)"));
    // Nothing was pushed from beyond the scheme block; the next switch works.
    EXPECT_TRUE(setCalls().empty());
    ASSERT_TRUE(cam.ctl->setParamScheme(0));
    EXPECT_EQ(0, cam.acc->curScheme());
}

TEST(SchemeSwitch, NegativeSchemeIsReported) {
    SwitchCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(-1));
    EXPECT_EQ(-1, cam.acc->curScheme());
    EXPECT_TRUE(contains(cam.errorLog(), "p_nScheme(-1)"));
}

TEST(SchemeSwitch, GetParamSchemeGivesTheCurrentIndex) {
    SwitchCamera cam;
    int nScheme = -5;
    (void)cam.ctl->getParamScheme(nScheme);
    EXPECT_EQ(0, nScheme);
    ASSERT_TRUE(cam.ctl->setParamScheme(3));
    (void)cam.ctl->getParamScheme(nScheme);
    EXPECT_EQ(3, nScheme);
}

TEST(SchemeSwitch, SetParamSchemeWaitsWhileBusy) {
    SwitchCamera cam;
    cam.acc->setFlags(cam.acc->flags() | ISensorController::restoring_flag);
    std::atomic<bool> bDone{false};
    std::thread objHost([&] {
        cam.ctl->setParamScheme(1);
        bDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(bDone);
    EXPECT_EQ(0, cam.acc->curScheme());
    cam.acc->setFlags(cam.acc->flags() & ~ISensorController::restoring_flag);
    EXPECT_TRUE(eventually([&] { return bDone.load(); }));
    objHost.join();
    EXPECT_EQ(1, cam.acc->curScheme());
}

TEST(SchemeMode, SetParamModeStoresManualAndAutomatic) {
    SwitchCamera cam;
    int nMode = -1;
    (void)cam.ctl->getParamMode(nMode);
    EXPECT_EQ(1, nMode);
    (void)cam.ctl->setParamMode(0);
    (void)cam.ctl->getParamMode(nMode);
    EXPECT_EQ(0, nMode);
    EXPECT_FALSE(contains(cam.errorLog(), "0 == p_nMode || 1 == p_nMode"));
}

TEST(SchemeMode, ModeTwoIsReportedAndStored) {
    SwitchCamera cam;
    (void)cam.ctl->setParamMode(2);
    int nMode = -1;
    (void)cam.ctl->getParamMode(nMode);
    EXPECT_EQ(2, nMode);
    EXPECT_TRUE(contains(cam.errorLog(), "0 == p_nMode || 1 == p_nMode"));
    EXPECT_TRUE(contains(cam.errorLog(), "p_nMode(2)"));
}

TEST(SchemeMode, NegativeModeIsReported) {
    SwitchCamera cam;
    (void)cam.ctl->setParamMode(-1);
    EXPECT_TRUE(contains(cam.errorLog(), "p_nMode(-1)"));
}

TEST(SchemeWindow, LowestMatchingWindowWins) {
    SwitchCamera cam;
    cam.clearWindows();
    cam.setWindow(0, 8, 0, 12, 0);
    cam.setWindow(1, 7, 0, 9, 0);
    sim::setDeviceTime(8, 0);
    int nScheme = -1;
    int nSchedule = -1;
    const auto objHold = cam.acc->holdAsWorker(); // as the worker holds it
    (void)cam.ctl->judgeCurScheme(nScheme, nSchedule);
    EXPECT_EQ(0, nScheme);
    EXPECT_EQ(1, nSchedule);
}

TEST(SchemeWindow, LaterWindowMatchesItsOwnTime) {
    SwitchCamera cam;
    cam.clearWindows();
    cam.setWindow(0, 8, 0, 12, 0);
    cam.setWindow(1, 7, 0, 9, 0);
    sim::setDeviceTime(7, 30);
    int nScheme = -1;
    int nSchedule = -1;
    const auto objHold = cam.acc->holdAsWorker(); // as the worker holds it
    (void)cam.ctl->judgeCurScheme(nScheme, nSchedule);
    EXPECT_EQ(1, nScheme);
    EXPECT_EQ(1, nSchedule);
}

TEST(SchemeWindow, EndOfWindowMatchesNoWindow) {
    SwitchCamera cam;
    cam.clearWindows();
    cam.setWindow(0, 8, 0, 12, 0);
    cam.setWindow(1, 7, 0, 9, 0);
    sim::setDeviceTime(12, 0);
    int nScheme = -1;
    int nSchedule = -1;
    const auto objHold = cam.acc->holdAsWorker(); // as the worker holds it
    (void)cam.ctl->judgeCurScheme(nScheme, nSchedule);
    EXPECT_EQ(0, nScheme);
    EXPECT_EQ(0, nSchedule);
}

TEST(SchemeWindow, WindowAcrossMidnightNeverMatches) {
    SwitchCamera cam;
    cam.clearWindows();
    cam.setWindow(2, 22, 0, 6, 0);
    sim::setDeviceTime(23, 0);
    int nScheme = -1;
    int nSchedule = -1;
    const auto objHold = cam.acc->holdAsWorker(); // as the worker holds it
    (void)cam.ctl->judgeCurScheme(nScheme, nSchedule);
    EXPECT_EQ(0, nScheme);
    EXPECT_EQ(0, nSchedule);
}

TEST(SchemeWindow, FactorySlotWindowIsNotConsidered) {
    SwitchCamera cam;
    cam.clearWindows();
    cam.setWindow(4, 0, 0, 24, 0);
    sim::setDeviceTime(10, 0);
    int nScheme = -1;
    int nSchedule = -1;
    const auto objHold = cam.acc->holdAsWorker(); // as the worker holds it
    (void)cam.ctl->judgeCurScheme(nScheme, nSchedule);
    EXPECT_EQ(0, nScheme);
    EXPECT_EQ(0, nSchedule);
}

TEST(LprSwitch, DayNightModeIsPushedAsZeroButStoredValueIsKept) {
    SwitchCamera cam;
    cam.setValue(1, KEY_DN_MODE, 2);
    {
        // As the worker holds it; given back before the host calls below,
        // which take the host's mutex first.
        const auto objHold = cam.acc->holdAsWorker();
        (void)cam.ctl->LPR_switch_to(1);
    }
    EXPECT_EQ(1, cam.acc->curScheme());
    EXPECT_EQ(0, cam.acc->lastScheme());
    const std::vector<sim::IspCall> vecDn = setCalls(KEY_DN_MODE);
    ASSERT_EQ(1u, vecDn.size());
    EXPECT_EQ(0u, vecDn[0].words.at(0));
    // Every key is pushed, unchanged ones too.
    EXPECT_EQ(1u, callsOf(KEY_BRIGHTNESS, 0));
    EXPECT_EQ(2u, cam.value(1, KEY_DN_MODE));
    std::string strAll;
    (void)cam.ctl->getAllParameters(strAll);
    EXPECT_TRUE(contains(strAll, "(144,2)")) << strAll;
    EXPECT_FALSE(cam.acc->flags() & ISensorController::switching_flag);
}
