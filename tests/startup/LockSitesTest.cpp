// Every host entry point that serialises on the controller mutex takes it at
// the line the host's lock diagnostics have always shown for it, and gives it
// back through the scoped guard.
#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <string>
#include <vector>

#include "startup/CameraFixture.h"

namespace {

struct EntryPoint {
    const char* szName;
    int nLine;
    std::function<void(ISensorController&)> call;
};

const std::vector<EntryPoint>& entryPoints() {
    static const std::vector<EntryPoint> table = {
        {"setParameters(text)", 713,
         [](ISensorController& c) { c.setParameters("(34,51)", true); }},
        {"setParameter", 722, [](ISensorController& c) { c.setParameter(34, 52, true); }},
        {"restore", 730, [](ISensorController& c) { c.restore(34); }},
        {"getParameter", 1021,
         [](ISensorController& c) {
             int v = 0;
             c.getParameter(34, v);
         }},
        {"getAllParameters", 1111,
         [](ISensorController& c) {
             std::string s;
             c.getAllParameters(s);
         }},
        {"flush", 1120, [](ISensorController& c) { c.flush(); }},
        {"resetParameters", 1145, [](ISensorController& c) { c.resetParameters(); }},
        {"resetToLastParameters", 1192, [](ISensorController& c) { c.resetToLastParameters(); }},
        {"setParamScheme", 1210, [](ISensorController& c) { c.setParamScheme(1); }},
        {"getParamScheme", 1222,
         [](ISensorController& c) {
             int s = 0;
             c.getParamScheme(s);
         }},
        {"setParamMode", 1229, [](ISensorController& c) { c.setParamMode(1); }},
        {"getParamMode", 1243,
         [](ISensorController& c) {
             int m = 0;
             c.getParamMode(m);
         }},
    };
    return table;
}

class LockSites : public ::testing::TestWithParam<size_t> {
protected:
    void SetUp() override {
        ASSERT_TRUE(cam.start());
        // Only the host's call takes the lock: the worker is stopped, and
        // the one a reset starts again begins no round.
        cam.stopWorker();
        sim::pauseThreads(true);
        sim::clearMutexEvents();
        sim::recordMutexEvents(true);
    }
    void TearDown() override {
        sim::recordMutexEvents(false);
        sim::pauseThreads(false);
    }
    camtest::Camera cam;
};

TEST_P(LockSites, EntryPointLocksAtItsLineAndUnlocksThroughTheGuard) {
    const EntryPoint& entry = entryPoints().at(GetParam());
    entry.call(*cam.ctl);
    sim::recordMutexEvents(false);
    const std::vector<std::string> events = sim::mutexEvents();
    ASSERT_FALSE(events.empty()) << entry.szName;
    EXPECT_EQ("Lock ISensorController.cpp:" + std::to_string(entry.nLine), events.front())
        << entry.szName;
    EXPECT_EQ("Unlock KPMutex.h:74", events.back()) << entry.szName;
    // Every lock is given back.
    size_t nLocks = 0, nUnlocks = 0;
    for (const std::string& e : events) {
        nLocks += e.rfind("Lock ", 0) == 0 || e.rfind("TryLock ", 0) == 0;
        nUnlocks += e.rfind("Unlock ", 0) == 0;
    }
    EXPECT_EQ(nLocks, nUnlocks) << entry.szName;
}

INSTANTIATE_TEST_SUITE_P(EveryEntryPoint, LockSites,
                         ::testing::Range<size_t>(0, entryPoints().size()),
                         [](const ::testing::TestParamInfo<size_t>& p) {
                             std::string name = entryPoints().at(p.param).szName;
                             std::string out;
                             for (char ch : name)
                                 if (std::isalnum(static_cast<unsigned char>(ch)))
                                     out += ch;
                             return out;
                         });

} // namespace
