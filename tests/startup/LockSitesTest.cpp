// Every host entry point that serialises on the controller mutex takes it at
// the line the host's lock diagnostics have always shown for it, gives it back
// through the scoped guard, and the host's mutex sees nothing else of it.
#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <string>
#include <vector>

#include "controller/LockSites.h"
#include "tests/support/Camera.h"

namespace {

struct EntryPoint {
    const char* szName;
    int nLine;
    std::function<void(ISensorController&)> call;
};

const std::vector<EntryPoint>& entryPoints() {
    static const std::vector<EntryPoint> table = {
        {"setParameters(text)", lock_site::kSetParametersText,
         [](ISensorController& c) { c.setParameters("(34,51)", true); }},
        {"setParameter", lock_site::kSetParameter,
         [](ISensorController& c) { c.setParameter(34, 52, true); }},
        {"restore", lock_site::kRestore, [](ISensorController& c) { c.restore(34); }},
        {"getParameter", lock_site::kGetParameter,
         [](ISensorController& c) {
             int v = 0;
             c.getParameter(34, v);
         }},
        {"getAllParameters", lock_site::kGetAllParameters,
         [](ISensorController& c) {
             std::string s;
             c.getAllParameters(s);
         }},
        {"flush", lock_site::kFlush, [](ISensorController& c) { c.flush(); }},
        {"resetParameters", lock_site::kResetParameters,
         [](ISensorController& c) { c.resetParameters(); }},
        {"resetToLastParameters", lock_site::kResetToLastParameters,
         [](ISensorController& c) { c.resetToLastParameters(); }},
        {"setParamScheme", lock_site::kSetParamScheme,
         [](ISensorController& c) { c.setParamScheme(1); }},
        {"getParamScheme", lock_site::kGetParamScheme,
         [](ISensorController& c) {
             int s = 0;
             c.getParamScheme(s);
         }},
        {"setParamMode", lock_site::kSetParamMode, [](ISensorController& c) { c.setParamMode(1); }},
        {"getParamMode", lock_site::kGetParamMode,
         [](ISensorController& c) {
             int m = 0;
             c.getParamMode(m);
         }},
        {"getUIStyleFile", lock_site::kGetUIStyleFile,
         [](ISensorController& c) { (void)c.getUIStyleFile(); }},
        {"getUILanguageFile", lock_site::kGetUILanguageFile,
         [](ISensorController& c) { (void)c.getUILanguageFile(0); }},
        {"getUICommonFile", lock_site::kGetUICommonFile,
         [](ISensorController& c) { (void)c.getUICommonFile(0); }},
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
    // Exactly the entry point's own pair: the host's guard gives the mutex
    // back at its own header's line, and nothing the call does inside (a
    // reset's start-up and the worker round it runs included) touches it.
    EXPECT_EQ((std::vector<std::string>{std::string("Lock ") + lock_site::kFile + ":" +
                                            std::to_string(entry.nLine),
                                        std::string("Unlock ") + lock_site::kGuardFile + ":" +
                                            std::to_string(lock_site::kGuardLine)}),
              sim::mutexEvents())
        << entry.szName;
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
