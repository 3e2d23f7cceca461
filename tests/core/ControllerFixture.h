// A controller with scheme storage laid out as start-up lays it out, in its
// own device root, with the simulated ISP's trace and a recording video
// pipeline: the stage for dispatch and handler tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "controller/ISensorController.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "support/ControllerAccess.h"
#include "support/TestSupport.h"

namespace coretest {

// The five scheme keys every array begins with: fixed mode, window 00:00-24:00.
inline std::vector<KeyVal> schemeHead() {
    return {{8000, 0}, {8001, 0}, {8002, 0}, {8003, 24}, {8004, 0}};
}

inline std::vector<KeyVal> factoryWith(const std::vector<KeyVal>& extra) {
    std::vector<KeyVal> values = schemeHead();
    values.insert(values.end(), extra.begin(), extra.end());
    return values;
}

// The ISP's trace restricted to one command and option.
inline std::vector<sim::IspCall> ispCalls(int cmd, int opt = 0) {
    std::vector<sim::IspCall> out;
    for (const sim::IspCall& call : sim::Isp::instance().trace())
        if (call.cmd == cmd && call.opt == opt)
            out.push_back(call);
    return out;
}

// The words of the last set of cmd, or none when it was never set.
inline std::vector<uint32_t> lastSent(int cmd) {
    const std::vector<sim::IspCall> calls = ispCalls(cmd);
    return calls.empty() ? std::vector<uint32_t>() : calls.back().words;
}

// The (key, value) of each video notification, in order.
inline std::vector<std::pair<int, int>>
keysAndValues(const std::vector<sim::SimVideoStreamModule::Notice>& notices) {
    std::vector<std::pair<int, int>> out;
    for (const auto& n : notices)
        out.emplace_back(n.key, n.value);
    return out;
}

inline std::string captureStdout(const std::function<void()>& fn) {
    testing::internal::CaptureStdout();
    fn();
    return testing::internal::GetCapturedStdout();
}

class ControllerTest : public ::testing::Test {
protected:
    // Scheme storage of nSchemes user schemes, every array a copy of the
    // factory values; scheme 0 current, the trace and notices cleared.
    void prepare(const std::vector<KeyVal>& extra, u32 nSchemes = 4) {
        access.allocateSchemes(nSchemes, factoryWith(extra));
        access.setCurScheme(0);
        sim::Isp::instance().clearTrace();
        video.clearNotices();
    }
    void attachVideo() { ctl->setVideoStreamModule(&video); }

    void TearDown() override {
        access.releaseSchemes();
        setshowBeawayFalg(true);
    }

    u32 cached(u32 scheme, u32 key) {
        u32 value = 0xDEADBEEF;
        ctl->getKeyValFromCache(scheme, key, value);
        return value;
    }

    testsupport::TempDeviceRoot root;
    sim::SimVideoStreamModule video;
    std::unique_ptr<ISensorController> ctl{new ISensorController()};
    ISensorControllerTestAccess access{*ctl};
};

} // namespace coretest
