// The ISP refuses commands (-1, -4, -5) during start-up, a scheme switch, a
// restore and a factory reset. Every case: no crash, init true, and once the
// ISP is healthy again the controller answers single keys; no scheme file is
// torn.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/HardeningSupport.h"

using namespace camtest;
using namespace hardening;

namespace {

const int kFaults[] = {-1, -4, -5};

// Starts a camera, then runs the operation with every ISP command failing.
void withFailingIsp(int p_nFault, const std::function<void(Camera&)>& p_fnOperation) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, 61));
    ASSERT_EQ(0, cam.ctl->flush());
    const std::string strScheme0 = cam.root.read(schemeFile(0));
    sim::Isp::instance().failAll(p_nFault);
    p_fnOperation(cam);
    sim::Isp::instance().clearFailures();
    EXPECT_TRUE(answers(*cam.ctl)) << "fault " << p_nFault;
    EXPECT_TRUE(schemeFilesWholeOrUntouched(cam));
}

} // namespace

TEST(IspFault, StartUpWithEveryCommandFailingStillStarts) {
    long nCases = 0;
    for (int nFault : kFaults) {
        Camera cam;
        sim::Isp::instance().failAll(nFault);
        EXPECT_TRUE(cam.start()) << nFault;
        EXPECT_TRUE(sim::threadRunning(*cam.acc->sensorThread()));
        sim::Isp::instance().clearFailures();
        EXPECT_TRUE(answers(*cam.ctl)) << nFault;
        EXPECT_TRUE(schemeFilesWholeOrUntouched(cam));
        ++nCases;
    }
    reportCases("start-up, every ISP command failing", nCases);
}

// Each command start-up issues, failing alone, with each result.
TEST(IspFault, StartUpWithAnyOneCommandFailingStillStarts) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    std::set<int> setCmds;
    for (const sim::IspCall& call : sim::Isp::instance().trace())
        setCmds.insert(call.cmd);
    ASSERT_GT(setCmds.size(), 10u);
    long nCases = 0;
    for (int nCmd : setCmds) {
        for (int nFault : kFaults) {
            // One camera restarted per case: a fresh device root costs more
            // than the start-up under test.
            cam.ctl->uinit();
            sim::Isp::instance().reset();
            sim::Isp::instance().failCommand(nCmd, nFault);
            EXPECT_TRUE(cam.start()) << "cmd " << nCmd << " fault " << nFault;
            sim::Isp::instance().clearFailures();
            EXPECT_TRUE(answers(*cam.ctl)) << "cmd " << nCmd << " fault " << nFault;
            ++nCases;
        }
    }
    reportCases("start-up, one ISP command failing", nCases);
}

TEST(IspFault, SchemeSwitchWithEveryCommandFailingKeepsFilesAndRecovers) {
    long nCases = 0;
    for (int nFault : kFaults) {
        withFailingIsp(nFault, [](Camera& cam) {
            const std::string strBefore = cam.root.read(schemeFile(1));
            cam.ctl->setParamScheme(1);
            cam.ctl->setParamScheme(0);
            cam.ctl->setParamScheme(3);
            EXPECT_EQ(strBefore, cam.root.read(schemeFile(1)));
        });
        ++nCases;
    }
    reportCases("scheme switch, every ISP command failing", nCases);
}

TEST(IspFault, WorkerSwitchWithEveryCommandFailingRecovers) {
    long nCases = 0;
    for (int nFault : kFaults) {
        withFailingIsp(nFault, [nFault](Camera& cam) {
            cam.stopWorker();
            sim::Isp::instance().clearFailures();
            ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2));
            sim::Isp::instance().setDayNight(0, 1);
            sim::Isp::instance().failAll(nFault);
            // The day/night read fails: day scheme; nothing hangs.
            for (int i = 0; i < 3; ++i)
                EXPECT_EQ(0, cam.ctl->sensorThread());
            EXPECT_EQ(0, cam.acc->curScheme());
        });
        ++nCases;
    }
    reportCases("worker switch, every ISP command failing", nCases);
}

TEST(IspFault, RestoreWithEveryCommandFailingKeepsFilesAndRecovers) {
    long nCases = 0;
    for (int nFault : kFaults) {
        withFailingIsp(nFault, [nFault](Camera& cam) {
            const std::string strBefore = cam.root.read(schemeFile(0));
            EXPECT_NE(0, cam.ctl->restore(KEY_BRIGHTNESS)) << nFault;
            EXPECT_FALSE(cam.ctl->restoreAeMode());
            cam.ctl->setParameter(KEY_SATURATION, 3);
            cam.ctl->resetToLastParameters();
            EXPECT_EQ(strBefore, cam.root.read(schemeFile(0)));
        });
        nCases += 3;
    }
    reportCases("restore, every ISP command failing", nCases);
}

TEST(IspFault, ResetWithEveryCommandFailingStartsAgainFromFactoryFiles) {
    long nCases = 0;
    for (int nFault : kFaults) {
        withFailingIsp(nFault, [](Camera& cam) {
            (void)cam.ctl->resetParameters();
            EXPECT_TRUE(sim::threadRunning(*cam.acc->sensorThread()));
            EXPECT_EQ(0, cam.acc->curScheme());
            for (int s = 0; s < 4; ++s)
                EXPECT_TRUE(sameKeyVals(cam.factory(), cam.file(schemeFile(s)))) << s;
        });
        ++nCases;
    }
    reportCases("factory reset, every ISP command failing", nCases);
}

TEST(IspFault, FlushWhileTheIspFailsStillSavesTheScheme) {
    long nCases = 0;
    for (int nFault : kFaults) {
        withFailingIsp(nFault, [](Camera& cam) {
            EXPECT_EQ(0, cam.ctl->flush());
            EXPECT_TRUE(sameKeyVals(cam.scheme(0), cam.file(schemeFile(0))));
            EXPECT_EQ(61u, cam.value(0, KEY_BRIGHTNESS));
        });
        ++nCases;
    }
    reportCases("flush, every ISP command failing", nCases);
}
