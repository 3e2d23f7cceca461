// A controller with scheme storage laid out (no start-up), a private device
// root and a clean simulated ISP, for the lens, iris, shutter, light and
// range operations.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/ISensorController.h"
#include "sim/SimIsp.h"
#include "tests/support/ControllerAccess.h"
#include "tests/support/TestSupport.h"

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

class LensFixture : public ::testing::Test {
protected:
    // The ISP channel of the default camera id 1.
    static constexpr int kChannel = 0;

    void SetUp() override {
        m_objAccess.allocateSchemes(4, {{8000, 0},
                                        {8001, 0},
                                        {8002, 0},
                                        {8003, 24},
                                        {8004, 0},
                                        {49, 30},
                                        {160, 0},
                                        {170, 0},
                                        {171, 0}});
        m_objAccess.setCurScheme(0);
        isp().clearTrace();
    }
    void TearDown() override { m_objAccess.releaseSchemes(); }

    ISensorController& ctrl() { return m_objCtrl; }

    // The value cached for key in the current scheme (-1 when absent).
    long cached(u32 key) {
        const KeyVal* pScheme = m_objAccess.scheme(0);
        for (u32 i = 0; i < m_objAccess.keyValSum(); ++i)
            if (pScheme[i].key == key)
                return pScheme[i].value;
        return -1;
    }
    void setCached(u32 key, u32 value) {
        KeyVal* pScheme = m_objAccess.scheme(0);
        for (u32 i = 0; i < m_objAccess.keyValSum(); ++i)
            if (pScheme[i].key == key)
                pScheme[i].value = value;
    }

    void lockLens(bool bLock) {
        SensorZoomFocusParam objParam;
        objParam.setLockZoomFocusEnable(bLock);
        ASSERT_EQ(0, m_objCtrl.setSensorZoomFocusParam(objParam));
    }

    testsupport::TempDeviceRoot m_objRoot;
    ISensorController m_objCtrl;
    ISensorControllerTestAccess m_objAccess{m_objCtrl};
};

typedef std::vector<std::string> Lines;

} // namespace lenstest
