// Host threads and the worker on one controller at once, with a factory reset
// in the middle: everything ends, nothing deadlocks.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "startup/CameraFixture.h"
#include "support/Watchdog.h"

using namespace camtest;
using testsupport::Watchdog;

TEST(Stress, HostThreadsWorkerAndResetEndWithoutDeadlock) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2));
    Watchdog objWatchdog(std::chrono::seconds(90));

    std::atomic<bool> bStop{false};
    std::atomic<int> nSwitchesSeen{0};
    ISensorController& ctl = *cam.ctl;

    // The light changes every few milliseconds: the worker switches by
    // day/night nearly every round.
    std::thread objLight([&] {
        int nLast = -1;
        for (u32 i = 0; !bStop; ++i) {
            sim::Isp::instance().setDayNight(0, i % 2);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            int nScheme = -1;
            ctl.getParamScheme(nScheme);
            if (nScheme != nLast)
                ++nSwitchesSeen;
            nLast = nScheme;
        }
    });

    std::vector<std::thread> vecHosts;
    vecHosts.emplace_back([&] {
        for (int i = 0; i < 300; ++i) {
            ctl.setParameter(KEY_BRIGHTNESS, i % 100);
            int nValue = 0;
            ctl.getParameter(KEY_SATURATION, nValue);
            ctl.setParameters("(34," + std::to_string(i % 100) + ")(2337,50)", true);
        }
    });
    vecHosts.emplace_back([&] {
        for (int i = 0; i < 150; ++i) {
            std::string strOut;
            ctl.getAllParameters(strOut);
            strOut.clear();
            ctl.getParameters("(34,2337,16)", strOut);
            ctl.flush();
            ctl.restore(KEY_BRIGHTNESS);
        }
    });
    vecHosts.emplace_back([&] {
        for (int i = 0; i < 150; ++i) {
            ctl.setParamScheme(i % 5);
            ctl.setParamMode(i % 7 == 0 ? 0 : 1);
            ctl.setParamMode(1);
            int nValue = 0;
            ctl.getParamMode(nValue);
            ctl.resetToLastParameters();
            // Keep the day/night schemes on after resets and switches.
            ctl.setParameter(KEY_SCHEME_MODE, 2);
        }
    });
    vecHosts.emplace_back([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_TRUE(ctl.resetParameters());
        ctl.getUIStyleFile();
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_TRUE(ctl.resetParameters());
    });

    for (std::thread& objHost : vecHosts)
        objHost.join();
    ASSERT_EQ(0, ctl.setParamScheme(0) ? 0 : 1);
    ASSERT_EQ(0, ctl.setParameter(KEY_SCHEME_MODE, 2));
    // The worker still follows the light once the host threads are done.
    const int nBefore = nSwitchesSeen;
    EXPECT_TRUE(eventually([&] { return nSwitchesSeen > nBefore + 2; }));
    bStop = true;
    objLight.join();
    // Taken under the controller mutex: a switch under way ends first, and
    // no later round switches while the flags are read.
    ASSERT_TRUE(ctl.setParamMode(0));
    EXPECT_TRUE(cam.acc->sensorThread()->isRunning());
    EXPECT_FALSE(cam.acc->flags() &
                 (ISensorController::resetting_flag | ISensorController::restoring_flag |
                  ISensorController::switching_flag));
}
