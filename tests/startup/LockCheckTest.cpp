// The lock contract as the controller checks it: the host's mutex sees
// nothing of the worker's rounds (init's synchronous one included), which
// only try the controller's own scheme lock and never wait for it; in checked
// builds every function that needs the lock aborts loudly when its caller does
// not hold it, and the plain operations a host may call without the mutex
// never do.
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

using camtest::callsOf;
using camtest::eventually;
using camtest::setCalls;

class WorkerRound : public ::testing::Test {
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

TEST_F(WorkerRound, RoundLeavesTheHostMutexAlone) {
    EXPECT_EQ(std::vector<std::string>{}, oneRound());
}

TEST_F(WorkerRound, RoundThatSwitchesLeavesTheHostMutexAlone) {
    // Day/night schemes at night: the round switches to scheme 1.
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2, true));
    ASSERT_TRUE(cam.ctl->setParamMode(1));
    sim::Isp::instance().setDayNight(0, 1);
    const std::vector<std::string> events = oneRound();
    int nScheme = -1;
    ASSERT_TRUE(cam.ctl->getParamScheme(nScheme));
    EXPECT_EQ(1, nScheme);
    EXPECT_EQ(std::vector<std::string>{}, events);
}

TEST_F(WorkerRound, RoundWhileAHostCallHoldsTheLockGivesWayWithoutWaiting) {
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2, true));
    sim::Isp::instance().setDayNight(0, 1);
    // Another thread holds the controller's locks as a host call does, until
    // told to go.
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
    sim::Isp::instance().clearTrace();
    const std::vector<std::string> events = oneRound();
    // Neither a day/night read nor a switch: the round gave way.
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(0, cam.acc->curScheme());
    {
        std::lock_guard<std::mutex> objLock(objMutex);
        bRelease = true;
    }
    objCv.notify_all();
    objHost.join();
    EXPECT_EQ(std::vector<std::string>{}, events);
    // Once the host call is over, the next round switches.
    (void)cam.ctl->sensorThread();
    EXPECT_EQ(1, cam.acc->curScheme());
}

// A camera whose stored scheme 0 selects the day/night schemes, at night: the
// round of a start-up switches to scheme 1 at once.
class StartAtNight : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(cam.start());
        // Scheme 0 stays current while its file is written.
        cam.acc->sensorThread()->stop();
        ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2, true));
        ASSERT_EQ(0, cam.ctl->flush());
        sim::Isp::instance().setDayNight(0, 1);
        sim::clearMutexEvents();
    }
    void TearDown() override { sim::recordMutexEvents(false); }
    camtest::Camera cam;
};

TEST_F(StartAtNight, StartUpAndItsRoundLeaveTheHostMutexAlone) {
    sim::recordMutexEvents(true);
    sim::pauseThreads(true); // only init's own round runs
    ASSERT_TRUE(cam.start());
    const bool bSwitched = cam.acc->curScheme() == 1;
    cam.acc->sensorThread()->stop();
    sim::pauseThreads(false);
    sim::recordMutexEvents(false);
    EXPECT_TRUE(bSwitched) << "init's round did not switch to the night scheme";
    EXPECT_EQ(std::vector<std::string>{}, sim::mutexEvents());
}

TEST_F(StartAtNight, RunningWorkerLeavesTheHostMutexAlone) {
    ASSERT_TRUE(cam.start());
    ASSERT_EQ(1, cam.acc->curScheme());
    sim::Isp::instance().clearTrace();
    sim::recordMutexEvents(true);
    // Rounds that switch to day and back to night.
    sim::Isp::instance().setDayNight(0, 0);
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 0; }));
    sim::Isp::instance().setDayNight(0, 1);
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 1; }));
    // A few more rounds that only look.
    const size_t nReads = callsOf(camtest::DN_STATE_CMD, IA_CMD_OPT_GET);
    EXPECT_TRUE(
        eventually([&] { return callsOf(camtest::DN_STATE_CMD, IA_CMD_OPT_GET) >= nReads + 3; }));
    cam.acc->sensorThread()->stop();
    sim::recordMutexEvents(false);
    EXPECT_EQ(std::vector<std::string>{}, sim::mutexEvents());
}

TEST_F(StartAtNight, ResetRecordsOnlyItsOwnLockAndUnlock) {
    // The reset stops the running worker under its hold, starts the
    // controller again and runs init's round under it, on this thread.
    ASSERT_TRUE(cam.start());
    sim::recordMutexEvents(true);
    EXPECT_TRUE(cam.ctl->resetParameters());
    cam.acc->sensorThread()->stop();
    sim::recordMutexEvents(false);
    EXPECT_EQ((std::vector<std::string>{std::string("Lock ") + lock_site::kFile + ":" +
                                            std::to_string(lock_site::kResetParameters),
                                        std::string("Unlock ") + lock_site::kGuardFile + ":" +
                                            std::to_string(lock_site::kGuardLine)}),
              sim::mutexEvents());
}

#if SENSOR_LOCK_CHECKED

// Each function that needs the controller's lock held by its caller, called on
// a controller that never started.
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
            u32 nValue = 0;
            (void)objCtrl.getKeyValFromCache(0, KEY_BRIGHTNESS, nValue);
        },
        "ISensorController::getKeyValFromCache needs the controller mutex");
}

TEST(LockCheckDeath, HoldOnAnotherThreadDoesNotCount) {
    useDeathTestStyle();
    testsupport::TempDeviceRoot root;
    EXPECT_DEATH(
        {
            ISensorController objCtrl;
            ISensorControllerTestAccess objAccess(objCtrl);
            u32 nValue = 0;
            std::thread objOther([&] {
                const auto objHold = objAccess.hold();
                (void)objCtrl.getKeyValFromCache(0, KEY_BRIGHTNESS, nValue); // held here: passes
            });
            objOther.join();
            (void)objCtrl.getKeyValFromCache(0, KEY_BRIGHTNESS, nValue);
        },
        "ISensorController::getKeyValFromCache needs the controller mutex");
}

#endif

// paramCheck, judgeCurScheme and LPR_switch_to are plain operations a host
// may call directly, without the mutex: in checked builds too they run (and
// answer as always) rather than abort.
class PlainOperationWithoutTheLock : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(cam.start());
        // No worker, and this thread holds nothing and claims nothing.
        cam.acc->sensorThread()->stop();
        ASSERT_EQ(0, cam.acc->curScheme());
    }
    camtest::Camera cam;
};

TEST_F(PlainOperationWithoutTheLock, ParamCheckAnswersTheWindowsCode) {
    cam.setWindow(0, 23, 59, 24, 0);
    EXPECT_EQ(0, cam.ctl->paramCheck());
    cam.setWindow(0, 23, 59, 24, 1);
    EXPECT_EQ(506, cam.ctl->paramCheck());
    cam.setWindow(0, 25, 0, 26, 0);
    EXPECT_EQ(505, cam.ctl->paramCheck());
    cam.setWindow(0, 9, 0, 8, 0);
    EXPECT_EQ(507, cam.ctl->paramCheck());
}

TEST_F(PlainOperationWithoutTheLock, JudgeCurSchemePicksTheLowestMatchingWindow) {
    for (u32 s = 0; s < cam.acc->schemeSum(); ++s)
        cam.setWindow(s, 0, 0, 0, 0);
    cam.setWindow(0, 8, 0, 12, 0);
    cam.setWindow(1, 7, 0, 9, 0);
    int nScheme = -1;
    int nSchedule = -1;
    sim::setDeviceTime(8, 0);
    EXPECT_EQ(0, cam.ctl->judgeCurScheme(nScheme, nSchedule));
    EXPECT_EQ(0, nScheme);
    EXPECT_EQ(1, nSchedule);
    sim::setDeviceTime(12, 0);
    EXPECT_EQ(0, cam.ctl->judgeCurScheme(nScheme, nSchedule));
    EXPECT_EQ(0, nScheme);
    EXPECT_EQ(0, nSchedule);
}

TEST_F(PlainOperationWithoutTheLock, LprSwitchPushesTheDayNightModeAsZero) {
    cam.setValue(1, KEY_DN_MODE, 2);
    sim::Isp::instance().clearTrace();
    EXPECT_EQ(0, cam.ctl->LPR_switch_to(1));
    EXPECT_EQ(1, cam.acc->curScheme());
    const std::vector<sim::IspCall> vecDn = setCalls(KEY_DN_MODE);
    ASSERT_EQ(1u, vecDn.size());
    EXPECT_EQ(0u, vecDn[0].words.at(0));
    EXPECT_EQ(2u, cam.value(1, KEY_DN_MODE));
}

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
