// Power cuts at random instants while a started controller saves and resets:
// a forked child flushes its schemes over and over, with a factory reset now
// and then, and is killed with SIGKILL. Afterwards every scheme file is a
// whole scheme of the factory layout (or absent, when the cut fell inside a
// reset's deletion), and the next start-up loads each as it is.
//
// SENSOR_POWER_CUTS sets the number of kills (CI: 1000); the normal suite
// runs 100, about two seconds.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/HardeningSupport.h"

using namespace camtest;
using namespace hardening;

namespace {

// The child: start, say so through the pipe, then save and reset until
// killed.
[[noreturn]] void saveUntilKilled(Camera& cam, unsigned p_nSeed, int p_nStartedFd) {
    if (!cam.start())
        ::_exit(1);
    (void)!::write(p_nStartedFd, "s", 1);
    std::mt19937 rng(p_nSeed);
    for (u32 n = 0;; ++n) {
        (void)cam.ctl->setParamScheme(static_cast<int>(rng() % 4));
        (void)cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(rng() % 100));
        (void)cam.ctl->flush();
        if (rng() % 16 == 0)
            (void)cam.ctl->resetParameters();
    }
}

// Waits (at most 60 s) for the child's word that it has started.
bool waitStarted(int p_nFd) {
    pollfd stPoll{p_nFd, POLLIN, 0};
    char c = 0;
    return ::poll(&stPoll, 1, 60000) == 1 && ::read(p_nFd, &c, 1) == 1;
}

// Kills the child and waits for it and for anything it left running (the
// shell of a reset's deletion, adopted by this process as subreaper), so
// that no file changes after the cut. True when the cut is what ended the
// child: it was still at work, not gone on its own (a failed start-up).
bool cut(pid_t p_nPid) {
    ::kill(p_nPid, SIGKILL);
    int status = 0;
    const bool bKilled = ::waitpid(p_nPid, &status, 0) == p_nPid && WIFSIGNALED(status) &&
                         WTERMSIG(status) == SIGKILL;
    int other = 0;
    while (::waitpid(-1, &other, 0) > 0 || errno == EINTR) {
    }
    return bKilled;
}

// Every scheme file is absent or a whole scheme with the factory's keys in
// the factory's order.
testing::AssertionResult wholeOrAbsent(const Camera& cam, const std::vector<KeyVal>& p_vecFactory) {
    for (int s = 0; s < 4; ++s) {
        const std::string strPath = cam.root.real(schemeFile(s));
        if (::access(strPath.c_str(), F_OK) != 0)
            continue;
        const std::vector<KeyVal> vecFile = toKeyVals(readRegular(strPath));
        if (readRegular(strPath).size() != p_vecFactory.size() * sizeof(KeyVal))
            return testing::AssertionFailure() << schemeFile(s) << " is not a whole scheme";
        for (size_t i = 0; i < vecFile.size(); ++i) {
            if (vecFile[i].key != p_vecFactory[i].key)
                return testing::AssertionFailure() << schemeFile(s) << " key " << i;
        }
    }
    return testing::AssertionSuccess();
}

} // namespace

TEST(ControllerPowerCut, SchemeFilesAreWholeAfterEveryCutAndTheNextStartUpLoadsThem) {
    const long nKills = envCount("SENSOR_POWER_CUTS", 100);
    // The killed writer's own children (a reset's file deletion) are ours to
    // reap, so that nothing goes on deleting after a cut. An emulator without
    // this control cannot run the test; the file handling it checks is the
    // same on every target and runs natively.
    if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0)
        GTEST_SKIP() << "no child subreaper here (an emulator?)";
    Camera cam;
    ASSERT_TRUE(cam.start());
    const std::vector<KeyVal> vecFactory = cam.factory();
    cam.ctl->uinit();

    std::mt19937 rng(20240613);
    // One cut in four falls anywhere from the child's start, start-up
    // included; the others fall in the saves and resets after its start-up,
    // however long that takes on this machine (a sanitizer build is slow).
    std::uniform_int_distribution<int> delayUs(0, 25000);
    std::uniform_int_distribution<int> savingUs(0, 5000);
    long nKilled = 0;
    long nStartUps = 0;
    long nSaved = 0;  // cuts after which a scheme file had changed
    long nAbsent = 0; // cuts that left a scheme file deleted by a reset
    std::string strLast;
    for (long i = 0; i < nKills; ++i) {
        int aStarted[2];
        ASSERT_EQ(0, ::pipe(aStarted));
        std::fflush(stdout);
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            // The child's diagnostics would flood the log.
            (void)std::freopen("/dev/null", "w", stdout);
            ::close(aStarted[0]);
            saveUntilKilled(cam, static_cast<unsigned>(i), aStarted[1]);
        }
        ::close(aStarted[1]);
        if (i % 4 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(delayUs(rng)));
        } else {
            EXPECT_TRUE(waitStarted(aStarted[0])) << "child " << i << " did not start";
            std::this_thread::sleep_for(std::chrono::microseconds(savingUs(rng)));
        }
        nKilled += cut(pid) ? 1 : 0;
        ::close(aStarted[0]);
        ASSERT_TRUE(wholeOrAbsent(cam, vecFactory)) << "after cut " << i;
        std::string strNow;
        for (int s = 0; s < 4; ++s) {
            const std::string strPath = cam.root.real(schemeFile(s));
            nAbsent += ::access(strPath.c_str(), F_OK) != 0 ? 1 : 0;
            strNow += readRegular(strPath);
        }
        nSaved += strNow != strLast ? 1 : 0;
        strLast = strNow;

        // Now and then, and after the last cut, the camera starts again.
        if (i % 25 == 24 || i == nKills - 1) {
            testing::internal::CaptureStdout();
            const testing::AssertionResult bStarted = cam.start();
            (void)testing::internal::GetCapturedStdout();
            ASSERT_TRUE(bStarted);
            for (u32 s = 1; s < 4; ++s) {
                EXPECT_TRUE(sameKeyVals(cam.file(schemeFile(static_cast<int>(s))), cam.scheme(s)))
                    << "scheme " << s << " after cut " << i;
            }
            EXPECT_TRUE(answers(*cam.ctl));
            cam.ctl->uinit();
            ++nStartUps;
        }
    }
    // Every cut ended a child still at work.
    EXPECT_EQ(nKills, nKilled);
    // The cuts fell while the child was saving, not all before its start-up.
    EXPECT_GT(nSaved, nKills / 4);
    std::printf("[ hardening ] cuts after a save: %ld, files left deleted by a reset: %ld\n",
                nSaved, nAbsent);
    reportCases("power cuts survived", nKilled);
    reportCases("start-ups after power cuts", nStartUps);
}
