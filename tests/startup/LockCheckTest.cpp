// The lock contract as the controller checks it: the worker's round tries the
// mutex at its own line and never waits for it, and in checked builds every
// function that needs the mutex aborts loudly when its caller does not hold it.
#include <gtest/gtest.h>

#include <cstdlib>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "controller/LockSites.h"
#include "tests/support/Camera.h"

namespace {

const std::string kTryLockAtWorkerLine =
    std::string("TryLock ") + lock_site::kFile + ":" + std::to_string(lock_site::kWorkerRound);
const std::string kUnlockAtWorkerLine =
    std::string("Unlock ") + lock_site::kFile + ":" + std::to_string(lock_site::kWorkerRound);

class WorkerLockSite : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(cam.start());
        // The test runs the rounds itself, at once.
        cam.stopWorker();
        sim::setTimeScale(0);
        sim::clearMutexEvents();
    }
    void TearDown() override { sim::recordMutexEvents(false); }

    // The record of one round run on this thread.
    std::vector<std::string> oneRound() {
        sim::clearMutexEvents();
        sim::recordMutexEvents(true);
        (void)cam.ctl->sensorThread();
        sim::recordMutexEvents(false);
        return sim::mutexEvents();
    }

    camtest::Camera cam;
};

TEST_F(WorkerLockSite, RoundTriesTheMutexAtItsLineAndGivesItBackThere) {
    const std::vector<std::string> events = oneRound();
    EXPECT_EQ((std::vector<std::string>{kTryLockAtWorkerLine, kUnlockAtWorkerLine}), events);
}

TEST_F(WorkerLockSite, RoundThatSwitchesStillTakesTheMutexOnlyOnce) {
    // Day/night schemes at night: the round switches to scheme 1 under its
    // one try-lock.
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2, true));
    ASSERT_TRUE(cam.ctl->setParamMode(1));
    sim::Isp::instance().setDayNight(0, 1);
    const std::vector<std::string> events = oneRound();
    int nScheme = -1;
    ASSERT_TRUE(cam.ctl->getParamScheme(nScheme));
    EXPECT_EQ(1, nScheme);
    EXPECT_EQ((std::vector<std::string>{kTryLockAtWorkerLine, kUnlockAtWorkerLine}), events);
}

TEST_F(WorkerLockSite, RoundWhileAHostCallHoldsTheMutexOnlyTriesIt) {
    // Another thread holds the mutex as a host call does, until told to go.
    std::mutex objMutex;
    std::condition_variable objCv;
    bool bHeld = false;
    bool bRelease = false;
    std::thread objHost([&] {
        const auto objHold = cam.acc->hold();
        std::unique_lock<std::mutex> objLock(objMutex);
        bHeld = true;
        objCv.notify_all();
        objCv.wait(objLock, [&] { return bRelease; });
    });
    {
        std::unique_lock<std::mutex> objLock(objMutex);
        objCv.wait(objLock, [&] { return bHeld; });
    }
    const std::vector<std::string> events = oneRound();
    {
        std::lock_guard<std::mutex> objLock(objMutex);
        bRelease = true;
    }
    objCv.notify_all();
    objHost.join();
    EXPECT_EQ((std::vector<std::string>{kTryLockAtWorkerLine}), events);
}

#if SENSOR_LOCK_CHECKED

// Each function that needs the controller mutex, called on a controller that
// never started.
struct NeedsLock {
    const char* szName;
    std::function<void(ISensorController&)> call;
};

// A key's handler, called as setParameters calls it, with the value 1.
std::function<void(ISensorController&)> handler(SensorHandler p_fnHandler, u32 p_nCmd) {
    return [p_fnHandler, p_nCmd](ISensorController& c) {
        u32 nValue = 1;
        (void)(c.*p_fnHandler)(p_nCmd, IA_CMD_OPT_SET, &nValue);
    };
}

const std::vector<NeedsLock>& needsLock() {
    static const std::vector<NeedsLock> table = {
        {"switch_to", [](ISensorController& c) { (void)c.switch_to(0, false); }},
        {"LPR_switch_to", [](ISensorController& c) { (void)c.LPR_switch_to(0); }},
        {"judgeCurScheme",
         [](ISensorController& c) {
             int nScheme = 0, nSchedule = 0;
             (void)c.judgeCurScheme(nScheme, nSchedule);
         }},
        {"setParameters",
         [](ISensorController& c) {
             KeyVal stKeyVal = {KEY_BRIGHTNESS, 50};
             (void)c.setParameters(&stKeyVal, 1, false);
         }},
        {"setKeyValToCache",
         [](ISensorController& c) { (void)c.setKeyValToCache(0, KEY_BRIGHTNESS, 50, false); }},
        {"getKeyValFromCache",
         [](ISensorController& c) {
             u32 nValue = 0;
             (void)c.getKeyValFromCache(0, KEY_BRIGHTNESS, nValue);
         }},
        {"isKeyValSame",
         [](ISensorController& c) {
             (void)c.isKeyValSame(KeyVal{KEY_BRIGHTNESS, 50});
         }},
        {"notifyToVideo", [](ISensorController& c) { (void)c.notifyToVideo(KEY_MIRROR, 1); }},
        {"paramCheck", [](ISensorController& c) { (void)c.paramCheck(); }},
        {"doIaCmd_User", handler(&ISensorController::doIaCmd_User, KEY_ZOOM_IN)},
        {"doHwdr", handler(&ISensorController::doHwdr, KEY_WDR_MODE)},
        {"doImageAdjust", handler(&ISensorController::doImageAdjust, KEY_CAP_OFF_ADJ_DIRECTION)},
        {"doDIS", handler(&ISensorController::doDIS, KEY_ANTI_SHAKE_SWITCH)},
        {"doIaCmd_PanoTuning", handler(&ISensorController::doIaCmd_PanoTuning, KEY_PANO_PREVIEW)},
        {"doDNThr", handler(&ISensorController::doDNThr, KEY_DTN_THR)},
        {"doDNTime", handler(&ISensorController::doDNTime, KEY_DTN_H)},
        {"doMirror", handler(&ISensorController::doMirror, KEY_MIRROR)},
        {"doBeaway", handler(&ISensorController::doBeaway, KEY_BEAWAY)},
    };
    return table;
}

// The controller's worker may be running: a death test re-executes the test
// program rather than forking it. Under an emulator (a cross build) the test
// program cannot execute another target program itself, so it forks there.
void useDeathTestStyle() {
    const char* szEmulator = std::getenv("SENSOR_EMULATOR");
    GTEST_FLAG_SET(death_test_style,
                   szEmulator != nullptr && szEmulator[0] != '\0' ? "fast" : "threadsafe");
}

class LockCheckDeathTest : public ::testing::TestWithParam<size_t> {
protected:
    void SetUp() override { useDeathTestStyle(); }
    testsupport::TempDeviceRoot root;
};

TEST_P(LockCheckDeathTest, FunctionThatNeedsTheMutexAbortsWhenItsCallerHoldsItNot) {
    const NeedsLock& entry = needsLock().at(GetParam());
    EXPECT_DEATH(
        {
            ISensorController objCtrl;
            entry.call(objCtrl);
        },
        std::string("lock contract broken: ISensorController::") + entry.szName +
            " needs the controller mutex");
}

TEST_P(LockCheckDeathTest, FunctionThatNeedsTheMutexRunsWhenItsCallerHoldsIt) {
    const NeedsLock& entry = needsLock().at(GetParam());
    ISensorController objCtrl;
    ISensorControllerTestAccess objAccess(objCtrl);
    const auto objHold = objAccess.hold();
    entry.call(objCtrl); // returns: the check passed
    SUCCEED();
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, LockCheckDeathTest,
                         ::testing::Range<size_t>(0, needsLock().size()),
                         [](const ::testing::TestParamInfo<size_t>& p) {
                             std::string out;
                             for (char ch : std::string(needsLock().at(p.param).szName))
                                 if (ch != '_')
                                     out += ch;
                             return out;
                         });

TEST(LockCheckDeath, HoldEndsWithTheGuard) {
    useDeathTestStyle();
    testsupport::TempDeviceRoot root;
    EXPECT_DEATH(
        {
            ISensorController objCtrl;
            ISensorControllerTestAccess objAccess(objCtrl);
            { const auto objHold = objAccess.hold(); }
            (void)objCtrl.paramCheck();
        },
        "ISensorController::paramCheck needs the controller mutex");
}

TEST(LockCheckDeath, HoldOnAnotherThreadDoesNotCount) {
    useDeathTestStyle();
    testsupport::TempDeviceRoot root;
    EXPECT_DEATH(
        {
            ISensorController objCtrl;
            ISensorControllerTestAccess objAccess(objCtrl);
            std::thread objOther([&] {
                const auto objHold = objAccess.hold();
                (void)objCtrl.paramCheck(); // held here: passes
            });
            objOther.join();
            (void)objCtrl.paramCheck();
        },
        "ISensorController::paramCheck needs the controller mutex");
}

#endif

// doIaCmd is reached without the mutex by the lens, iris and light calls and
// by getDNState: it needs none, in checked builds too.
TEST(LockCheck, DoIaCmdNeedsNoLock) {
    testsupport::TempDeviceRoot root;
    ISensorController objCtrl;
    u32 nValue = 0;
    EXPECT_EQ(0, objCtrl.doIaCmd(KEY_BRIGHTNESS, IA_CMD_OPT_GET, &nValue));
    int nState = 0;
    EXPECT_TRUE(objCtrl.getDNState(nState));
    EXPECT_TRUE(objCtrl.zoomIn());
}

} // namespace
