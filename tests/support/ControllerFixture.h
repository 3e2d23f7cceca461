// The gtest fixtures over Camera for dispatch, handler, lens and range tests:
// a controller started through init() on a style listing exactly the keys a
// test names, its worker stopped so that the test alone drives it, the ISP
// trace and the video notices cleared after start-up.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "controller/ISensorController.h"
#include "controller/SensorKeys.h"
#include "host/ia_ioctrl_v2.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "tests/support/Camera.h"

namespace coretest {

// The five scheme keys every array begins with: fixed mode, window 00:00-24:00.
inline std::vector<KeyVal> schemeHead() {
    return {{KEY_SCHEME_MODE, 0},
            {KEY_SCHEME_START_HOUR, 0},
            {KEY_SCHEME_START_MIN, 0},
            {KEY_SCHEME_END_HOUR, 24},
            {KEY_SCHEME_END_MIN, 0}};
}

inline std::vector<KeyVal> factoryWith(const std::vector<KeyVal>& extra) {
    std::vector<KeyVal> values = schemeHead();
    values.insert(values.end(), extra.begin(), extra.end());
    return values;
}

// The ISP's trace restricted to one command and option.
inline std::vector<sim::IspCall> ispCalls(int cmd, int opt = IA_CMD_OPT_SET) {
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

using testsupport::captureStdout;

class ControllerTest : public ::testing::Test {
protected:
    // Before prepare(): a constructed controller, not started, with no video
    // pipeline attached.
    ControllerTest() { cam.construct(1, false); }

    // Starts the controller through init() on a style whose factory set is
    // the scheme keys plus extra (4 user schemes, the sample module), on the
    // given channel. Its worker is stopped, the trace and notices cleared;
    // scheme 0 is current, as init() leaves it. A second call starts a new
    // controller on the new layout.
    void prepare(const std::vector<KeyVal>& extra, int channel = 1) {
        ASSERT_TRUE(cam.startWithFactory(factoryWith(extra), channel, false));
        cam.stopWorker();
        sim::Isp::instance().clearTrace();
        video.clearNotices();
    }
    void attachVideo() { ctl->setVideoStreamModule(&video); }

    void TearDown() override { setshowBeawayFalg(true); }

    ISensorControllerTestAccess& access() { return *cam.acc; }

    u32 cached(u32 scheme, u32 key) {
        u32 value = 0xDEADBEEF;
        const auto objHold = access().hold();
        ctl->getKeyValFromCache(scheme, key, value);
        return value;
    }

    camtest::Camera cam{true};
    testsupport::TempDeviceRoot& root = cam.root;
    sim::SimVideoStreamModule& video = cam.video;
    std::unique_ptr<ISensorController>& ctl = cam.ctl;
};

} // namespace coretest

namespace lenstest {

inline sim::Isp& isp() {
    return sim::Isp::instance();
}

// The ISP traffic since the last clear, one readable line per call:
// "set 1536=1", "get 168=0", "range 49", "list 4112" ("... failed" when refused).
inline std::vector<std::string> traceText() {
    std::vector<std::string> out;
    for (const sim::IspCall& call : isp().trace()) {
        std::string line;
        if (call.cmd == IA_CMD_DYNAMIC_PARAMS_CMDS_GET)
            line = "list " + std::to_string(call.cmd);
        else if (call.opt == IA_CMD_OPT_GET_PARAM_RNAGE)
            line = "range " + std::to_string(call.cmd);
        else if (call.opt == IA_CMD_OPT_SET || call.opt == IA_CMD_OPT_GET)
            line = std::string(call.opt == IA_CMD_OPT_SET ? "set " : "get ") +
                   std::to_string(call.cmd) + "=" +
                   (call.words.empty() ? std::string("?") : std::to_string(call.words[0]));
        else
            line = "opt" + std::to_string(call.opt) + " " + std::to_string(call.cmd);
        if (call.result != 0)
            line += " failed";
        out.push_back(line);
    }
    return out;
}

// Only the calls that are not range look-ups (the shutter operations read the
// range first; most tests care about what follows).
inline std::vector<std::string> valueTraffic() {
    std::vector<std::string> out;
    for (const std::string& line : traceText())
        if (line.rfind("list ", 0) != 0 && line.rfind("range ", 0) != 0)
            out.push_back(line);
    return out;
}

// The lens, iris, shutter, light and range operations, on a started
// controller whose schemes hold the shutter, infrared and white-light keys.
class LensFixture : public coretest::ControllerTest {
protected:
    // The ISP channel of the default camera id 1.
    static constexpr int kChannel = 0;

    void SetUp() override {
        prepare({{KEY_MAX_SHUTTER, 30},
                 {KEY_IR_SWITCH, 0},
                 {KEY_WHITE_SWITCH, 0},
                 {KEY_WHITE_MODE, 0}});
    }

    ISensorController& ctrl() { return *ctl; }

    // The value cached for key in the current scheme (-1 when absent).
    long cached(u32 key) {
        u32 value = 0;
        return ctl->getKeyValFromCache(0, key, value) < 0 ? -1 : static_cast<long>(value);
    }
    void setCached(u32 key, u32 value) { (void)ctl->setKeyValToCache(0, key, value, false); }

    void lockLens(bool bLock) {
        SensorZoomFocusParam objParam;
        objParam.setLockZoomFocusEnable(bLock);
        (void)ctl->setSensorZoomFocusParam(objParam);
    }
};

typedef std::vector<std::string> Lines;

} // namespace lenstest
