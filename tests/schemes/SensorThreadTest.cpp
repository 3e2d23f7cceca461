// The worker's round: manual mode, day/night schemes, timed schemes and the
// plate-reading device's windows.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Camera.h"

using namespace camtest;

namespace {

// A started camera in the given scheme mode with scheme 1 differing from
// scheme 0 in brightness; worker stopped unless asked to run.
struct ModeCamera : Camera {
    explicit ModeCamera(u32 p_nSchemeMode, bool p_bRunWorker = false) {
        EXPECT_TRUE(start());
        if (!p_bRunWorker)
            stopWorker();
        setValue(1, KEY_BRIGHTNESS, value(0, KEY_BRIGHTNESS) + 11);
        // Through the dispatch, so that the mode flags follow as on a camera.
        EXPECT_EQ(0, ctl->setParameter(KEY_SCHEME_MODE, static_cast<int>(p_nSchemeMode)));
        sim::Isp::instance().clearTrace();
    }
};

void night() {
    sim::Isp::instance().setDayNight(0, 1);
}
void day() {
    sim::Isp::instance().setDayNight(0, 0);
}

} // namespace

TEST(SensorThread, ManualModeNeverSwitches) {
    ModeCamera cam(2);
    (void)cam.ctl->setParamMode(0);
    night();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(0, cam.ctl->sensorThread());
    EXPECT_EQ(0, cam.acc->curScheme());
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST(SensorThread, ManualModeIgnoresTheClockToo) {
    ModeCamera cam(1);
    (void)cam.ctl->setParamMode(0);
    cam.setWindow(0, 0, 0, 0, 0);
    cam.setWindow(2, 8, 0, 12, 0);
    sim::setDeviceTime(9, 0);
    EXPECT_EQ(0, cam.ctl->sensorThread());
    EXPECT_EQ(0, cam.acc->curScheme());
}

TEST(SensorThread, NightStateSwitchesToSchemeOne) {
    ModeCamera cam(2);
    ASSERT_TRUE(cam.acc->dnScheme());
    night();
    EXPECT_EQ(0, cam.ctl->sensorThread());
    EXPECT_EQ(1, cam.acc->curScheme());
    const std::vector<sim::IspCall> vecSets = setCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(1u, vecSets.size());
    EXPECT_EQ(cam.value(1, KEY_BRIGHTNESS), vecSets[0].words.at(0));
}

TEST(SensorThread, SecondDayNightRoundDoesNothing) {
    ModeCamera cam(2);
    night();
    cam.ctl->sensorThread();
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
    EXPECT_TRUE(setCalls().empty());
    // One read of the day/night state, nothing else.
    EXPECT_EQ(1u, sim::Isp::instance().trace().size());
    EXPECT_EQ(1u, callsOf(DN_STATE_CMD, 1));
}

TEST(SensorThread, DayStateReturnsToSchemeZero) {
    ModeCamera cam(2);
    night();
    cam.ctl->sensorThread();
    day();
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
}

TEST(SensorThread, FailedDayNightReadSelectsTheDayScheme) {
    ModeCamera cam(2);
    night();
    cam.ctl->sensorThread();
    sim::Isp::instance().failCommand(DN_STATE_CMD, -1);
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
}

TEST(SensorThread, BusyBitKeepsTheRoundFromSwitching) {
    ModeCamera cam(2);
    night();
    cam.acc->setFlags(cam.acc->flags() | ISensorController::restoring_flag);
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
    cam.acc->setFlags(cam.acc->flags() & ~ISensorController::restoring_flag);
    cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
}

TEST(SensorThread, RunningWorkerFollowsDayAndNight) {
    ModeCamera cam(2, true);
    night();
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 1; }));
    day();
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 0; }));
    night();
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 1; }));
}

TEST(SensorThread, RoundLeavesItsSwitchWhileAHostCallHoldsTheMutex) {
    ModeCamera cam(2);
    night();
    // A host call that holds the mutex: setParamMode waiting for a busy bit.
    cam.acc->setFlags(cam.acc->flags() | ISensorController::restoring_flag);
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    std::thread objHost([&] { cam.ctl->setParamMode(1); });
    const bool bHeld = eventually([] {
        for (const std::string& strEvent : sim::mutexEvents())
            if (strEvent.find("Lock ISensorController.cpp:1229") == 0)
                return true;
        return false;
    });
    EXPECT_TRUE(bHeld);
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    // Neither a day/night read nor a switch: the round gave way.
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(0, cam.acc->curScheme());

    cam.acc->setFlags(cam.acc->flags() & ~ISensorController::restoring_flag);
    objHost.join();
    sim::recordMutexEvents(false);
    cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
}

TEST(SensorThread, TimedSchemesOutsideEveryWindowApplySchemeZeroOnce) {
    ModeCamera cam(1);
    ASSERT_TRUE(cam.acc->timeScheme());
    cam.clearWindows();
    ASSERT_TRUE(cam.ctl->setParamScheme(2));
    sim::setDeviceTime(13, 0);
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST(SensorThread, TimedSchemeWindowIsApplied) {
    ModeCamera cam(1);
    cam.clearWindows();
    cam.setWindow(1, 8, 30, 17, 0);
    sim::setDeviceTime(8, 29);
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
    sim::setDeviceTime(8, 30);
    cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
    EXPECT_EQ(cam.value(1, KEY_BRIGHTNESS), setCalls(KEY_BRIGHTNESS).back().words.at(0));
    sim::setDeviceTime(17, 0);
    cam.ctl->sensorThread();
    EXPECT_EQ(0, cam.acc->curScheme());
}

TEST(SensorThread, RunningWorkerFollowsTheTimeWindows) {
    ModeCamera cam(1, true);
    cam.clearWindows();
    cam.setWindow(3, 20, 0, 22, 0);
    sim::setDeviceTime(21, 15);
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 3; }));
    sim::setDeviceTime(22, 15);
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 0; }));
}

TEST(SensorThread, PlateReaderLeavingWindowAppliesDayNightSchemeWithModeZero) {
    ModeCamera cam(1);
    cam.acc->setLprMode(true);
    cam.clearWindows();
    cam.setWindow(2, 8, 0, 18, 0);
    cam.setValue(1, KEY_DN_MODE, 3);
    cam.acc->setLastSchedule(1);
    ASSERT_TRUE(cam.ctl->setParamScheme(2));
    night();
    sim::setDeviceTime(19, 0);
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
    EXPECT_EQ(0u, cam.acc->lastSchedule());
    const std::vector<sim::IspCall> vecDn = setCalls(KEY_DN_MODE);
    ASSERT_EQ(1u, vecDn.size());
    EXPECT_EQ(0u, vecDn[0].words.at(0));
    EXPECT_EQ(3u, cam.value(1, KEY_DN_MODE));

    // Still outside and still night: nothing more.
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_TRUE(setCalls().empty());
}

TEST(SensorThread, PlateReaderEnteringWindowForcesAFullPush) {
    ModeCamera cam(1);
    cam.acc->setLprMode(true);
    cam.clearWindows();
    cam.setWindow(2, 8, 0, 18, 0);
    day();
    sim::setDeviceTime(7, 0);
    cam.ctl->sensorThread();
    EXPECT_EQ(0u, cam.acc->lastSchedule());

    sim::setDeviceTime(9, 0);
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_EQ(2, cam.acc->curScheme());
    EXPECT_EQ(1u, cam.acc->lastSchedule());
    // Scheme 2 equals scheme 0 in brightness, yet it was pushed.
    EXPECT_EQ(1u, callsOf(KEY_BRIGHTNESS, 0));

    // Inside the same window: nothing more.
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_TRUE(setCalls().empty());
}

TEST(SensorThread, PlateReaderMovingBetweenWindowsPushesOnlyDifferences) {
    ModeCamera cam(1);
    cam.acc->setLprMode(true);
    cam.clearWindows();
    cam.setWindow(1, 8, 0, 12, 0);
    cam.setWindow(3, 12, 0, 18, 0);
    sim::setDeviceTime(9, 0);
    cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
    sim::setDeviceTime(13, 0);
    sim::Isp::instance().clearTrace();
    cam.ctl->sensorThread();
    EXPECT_EQ(3, cam.acc->curScheme());
    const std::vector<sim::IspCall> vecSets = setCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(1u, vecSets.size());
    EXPECT_EQ(cam.value(3, KEY_BRIGHTNESS), vecSets[0].words.at(0));
    EXPECT_EQ(0u, callsOf(KEY_SATURATION, 0));
}
