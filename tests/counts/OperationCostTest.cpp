// What each hot operation costs in the work it cannot avoid: its ISP calls
// (the simulated ISP's trace) and its diagnostic decisions (one stat of the
// debug sign file each, counted by this program's own stat). The benchmarks'
// floors are built from these counts, so a change that adds a call would
// raise its own floor unseen; here it fails. The camera is the benchmarks'
// (bench/BenchCamera.h), started the same way, the sign file absent.
//
// This is a program of its own: its stat stands in for the C library's in
// the whole process, which the main test program should not have.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/BenchCamera.h"
#include "controller/SensorKeys.h"
#include "tests/support/ControllerAccess.h"

namespace {

std::atomic<bool> g_bCounting{false};
std::atomic<long> g_nSignStats{0};

typedef int (*StatFn)(const char*, struct stat*);

StatFn realStat() {
    static const StatFn fn = reinterpret_cast<StatFn>(dlsym(RTLD_NEXT, "stat"));
    return fn;
}

bool isSignPath(const char* p_szPath) {
    const size_t nPath = std::strlen(p_szPath);
    const size_t nSign = std::strlen(bench::kSignDevicePath);
    return nPath >= nSign &&
           std::memcmp(p_szPath + nPath - nSign, bench::kSignDevicePath, nSign) == 0;
}

} // namespace

extern "C" int stat(const char* __restrict path, struct stat* __restrict buf) noexcept {
    if (g_bCounting.load(std::memory_order_relaxed) && isSignPath(path))
        g_nSignStats.fetch_add(1, std::memory_order_relaxed);
    return realStat()(path, buf);
}

namespace {

struct Cost {
    long nIspCalls;
    long nDecisions;
};

bool operator==(const Cost& a, const Cost& b) {
    return a.nIspCalls == b.nIspCalls && a.nDecisions == b.nDecisions;
}

std::ostream& operator<<(std::ostream& out, const Cost& c) {
    return out << c.nIspCalls << " ISP calls, " << c.nDecisions << " decisions";
}

// One run of the operation, counted (after a first run, so that a cache the
// operation fills once is filled). Every run must cost the same.
Cost costOf(const std::function<void()>& p_fnOp) {
    p_fnOp();
    Cost stFirst{-1, -1};
    for (int i = 0; i < 3; ++i) {
        sim::Isp::instance().clearTrace();
        g_nSignStats = 0;
        g_bCounting = true;
        p_fnOp();
        g_bCounting = false;
        const Cost stRun{static_cast<long>(sim::Isp::instance().trace().size()),
                         g_nSignStats.load()};
        if (i == 0)
            stFirst = stRun;
        else
            EXPECT_EQ(stFirst, stRun) << "run " << i << " cost differently";
    }
    return stFirst;
}

class OperationCost : public ::testing::Test {
protected:
    void SetUp() override {
        m_pRoot.reset(new bench::DeviceRoot);
        m_pCamera.reset(new bench::Camera(*m_pRoot));
        m_pCamera->start();
        // No worker round and no waits while counting.
        sim::setTimeScale(0);
        sim::pauseThreads(true);
    }
    // What one getAllParameters costs on the started camera.
    Cost getAllParametersCost() {
        std::string strOut;
        return costOf([&] {
            strOut.clear();
            (void)ctl().getAllParameters(strOut);
        });
    }
    void TearDown() override {
        m_pCamera.reset();
        sim::pauseThreads(false);
        sim::setTimeScale(1);
        m_pRoot.reset();
    }
    ISensorController& ctl() { return *m_pCamera->ctl; }

    std::unique_ptr<bench::DeviceRoot> m_pRoot;
    std::unique_ptr<bench::Camera> m_pCamera;
};

TEST_F(OperationCost, SetParameterOfOneKeyIsOneIspCallAndFourDecisions) {
    int nValue = 0;
    ASSERT_TRUE(ctl().getParameter(KEY_BRIGHTNESS, nValue));
    // Alternating values, each new to the cache, so that every call reaches the ISP.
    EXPECT_EQ(costOf([&] {
                  nValue = nValue == 40 ? 60 : 40;
                  ASSERT_EQ(0, ctl().setParameter(KEY_BRIGHTNESS, nValue, true));
              }),
              (Cost{1, 4}));
}

TEST_F(OperationCost, GetParameterOfACachedKeyIsNoIspCallAndOneDecision) {
    int nValue = 0;
    EXPECT_EQ(costOf([&] { ASSERT_TRUE(ctl().getParameter(KEY_BRIGHTNESS, nValue)); }),
              (Cost{0, 1}));
}

TEST_F(OperationCost, ForcedSwitchToTheCurrentSchemePushesEveryKey) {
    // The worker switches under the scheme lock; so does this.
    ISensorControllerTestAccess objAccess(ctl());
    const auto objHold = objAccess.holdAsWorker();
    EXPECT_EQ(costOf([&] { (void)ctl().switch_to(0, true); }), (Cost{58, 183}));
}

TEST_F(OperationCost, UnforcedSwitchToTheCurrentSchemePushesNone) {
    // The worker switches under the scheme lock; so does this.
    ISensorControllerTestAccess objAccess(ctl());
    const auto objHold = objAccess.holdAsWorker();
    EXPECT_EQ(costOf([&] { (void)ctl().switch_to(0, false); }), (Cost{0, 64}));
}

TEST_F(OperationCost, GetAllParametersCorrectsTheDynamicCommands) {
    // The sample box camera's ISP runs its fixed-lens module: it lists no
    // command the scheme lacks, so no failed-check report.
    EXPECT_EQ(getAllParametersCost(), (Cost{8, 15}));
}

TEST_F(OperationCost, GetAllParametersWithAListedCommandTheSchemeLacksReportsIt) {
    // Listed on purpose: the focus near limit, which the fixed-lens scheme
    // lacks, costs the failed-check report's two decisions; the corrections
    // and ISP calls are the same.
    const std::vector<uint32_t> vecListed = sim::Isp::instance().dynamicCommands();
    ASSERT_EQ(0, std::count(vecListed.begin(), vecListed.end(), KEY_AUTO_FOCUS_NEAR_LIMIT));
    std::vector<uint32_t> vecWithLens = vecListed;
    vecWithLens.push_back(KEY_AUTO_FOCUS_NEAR_LIMIT);
    struct Restore {
        std::vector<uint32_t> vecCmds;
        ~Restore() { sim::Isp::instance().setDynamicCommands(vecCmds); }
    } objRestore{vecListed};
    sim::Isp::instance().setDynamicCommands(vecWithLens);
    EXPECT_EQ(getAllParametersCost(), (Cost{8, 17}));
}

TEST_F(OperationCost, GetUIStyleFileAsksTheDynamicListAndItsRanges) {
    std::string strStyle;
    EXPECT_EQ(costOf([&] { strStyle = ctl().getUIStyleFile(); }), (Cost{8, 28}));
    EXPECT_FALSE(strStyle.empty());
}

TEST_F(OperationCost, InitAndUinitOfASecondController) {
    const ModuleConfigure objModule = m_pRoot->module();
    sim::SimVideoStreamModule objVideo;
    ISensorController objCtl;
    objCtl.setChannelID(1);
    objCtl.setVideoStreamModule(&objVideo);
    EXPECT_EQ(costOf([&] {
                  (void)objCtl.init(objModule);
                  objCtl.uinit();
              }),
              (Cost{66, 298}));
}

} // namespace
