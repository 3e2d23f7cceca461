// A simulated camera for controller tests: a private device root (the sample
// tree by default), the simulated video pipeline and one controller, with
// helpers that read the ISP trace and the device files.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/SysConfig.h"
#include "controller/ISensorController.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "storage/SensorFile.h"
#include "tests/support/ControllerAccess.h"
#include "tests/support/TestSupport.h"

namespace camtest {

const u32 KEY_SCHEME_MODE = 8000;
const u32 KEY_BRIGHTNESS = 34;
const u32 KEY_SATURATION = 2337;
const u32 KEY_EXPOSE_MODE = 16;
const u32 KEY_AUTO_FOCUS_MODE = 1536;
const u32 KEY_DN_MODE = 144;
const int DN_STATE_CMD = 153;

inline std::string schemeFile(int p_nScheme, int p_nChannel = 1) {
    char szName[96];
    snprintf(szName, sizeof(szName),
             p_nChannel == 2 ? SENSOR_THERMAL_SCHEME_FILE : SENSOR_SCHEME_FILE, p_nScheme);
    return szName;
}

inline std::vector<KeyVal> toKeyVals(const std::string& p_strBytes) {
    std::vector<KeyVal> vecOut(p_strBytes.size() / sizeof(KeyVal));
    if (!vecOut.empty())
        std::memcpy(vecOut.data(), p_strBytes.data(), vecOut.size() * sizeof(KeyVal));
    return vecOut;
}

inline std::string toBytes(const std::vector<KeyVal>& p_vecKeyVal) {
    return std::string(reinterpret_cast<const char*>(p_vecKeyVal.data()),
                       p_vecKeyVal.size() * sizeof(KeyVal));
}

inline bool sameKeyVals(const std::vector<KeyVal>& a, const std::vector<KeyVal>& b) {
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].key != b[i].key || a[i].value != b[i].value)
            return false;
    }
    return true;
}

// Set calls (option 0) of the ISP trace, optionally of one command.
inline std::vector<sim::IspCall> setCalls(int p_nCmd = -1) {
    std::vector<sim::IspCall> vecOut;
    for (const sim::IspCall& call : sim::Isp::instance().trace()) {
        if (call.opt == 0 && (p_nCmd < 0 || call.cmd == p_nCmd))
            vecOut.push_back(call);
    }
    return vecOut;
}

inline size_t callsOf(int p_nCmd, int p_nOpt) {
    size_t n = 0;
    for (const sim::IspCall& call : sim::Isp::instance().trace()) {
        if (call.cmd == p_nCmd && call.opt == p_nOpt)
            ++n;
    }
    return n;
}

// Polls a condition with short real sleeps, up to about ten seconds: a
// sanitizer build on a loaded machine may need far more than the usual few
// milliseconds, and a condition that holds ends the wait at once.
inline bool eventually(const std::function<bool()>& p_fnCondition) {
    for (int i = 0; i < 10000; ++i) {
        if (p_fnCondition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return p_fnCondition();
}

class Camera {
public:
    explicit Camera(bool p_bPopulate = true) : root(p_bPopulate) {}
    ~Camera() {
        if (ctl)
            ctl->uinit();
    }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // The module the sample tree describes for its machine.
    ModuleConfigure module() const {
        MachineInfo objInfo;
        (void)SystemInfoParser::parseMachineInfo(root.real(SENSOR_MACHINE_INFO_FILE), objInfo);
        std::vector<ModuleConfigure> vecModules;
        (void)ModuleConfigureParser::parse(root.real(SENSOR_MODULE_CONFIG_FILE),
                                           objInfo.getHardwareModel(), objInfo.getHardwareCode(),
                                           vecModules);
        return vecModules.empty() ? ModuleConfigure() : vecModules.front();
    }

    void construct(int p_nChannel = 1) {
        ctl.reset(new ISensorController);
        ctl->setChannelID(p_nChannel);
        ctl->setVideoStreamModule(&video);
        acc.reset(new ISensorControllerTestAccess(*ctl));
    }

    bool start(int p_nChannel = 1) {
        construct(p_nChannel);
        return ctl->init(module());
    }
    bool start(const ModuleConfigure& p_objModule, int p_nChannel = 1) {
        construct(p_nChannel);
        return ctl->init(p_objModule);
    }

    // Stops the worker so that the test drives the rounds itself.
    void stopWorker() { acc->sensorThread()->stop(); }

    std::vector<KeyVal> scheme(u32 p_nScheme) const {
        const KeyVal* pScheme = acc->scheme(p_nScheme);
        return std::vector<KeyVal>(pScheme, pScheme + acc->keyValSum());
    }
    std::vector<KeyVal> factory() const { return scheme(acc->schemeSum()); }
    std::vector<KeyVal> file(const std::string& p_strDevicePath) const {
        return toKeyVals(root.read(p_strDevicePath));
    }

    // The index of the first entry with the key, -1 when absent.
    int indexOf(u32 p_nKey) const {
        const std::vector<KeyVal> vecFct = factory();
        for (size_t i = 0; i < vecFct.size(); ++i) {
            if (vecFct[i].key == p_nKey)
                return static_cast<int>(i);
        }
        return -1;
    }
    u32 value(u32 p_nScheme, u32 p_nKey) const {
        const int nIndex = indexOf(p_nKey);
        EXPECT_GE(nIndex, 0) << "key " << p_nKey;
        return nIndex >= 0 ? acc->scheme(p_nScheme)[nIndex].value : 0;
    }
    void setValue(u32 p_nScheme, u32 p_nKey, u32 p_nValue) {
        const int nIndex = indexOf(p_nKey);
        ASSERT_GE(nIndex, 0) << "key " << p_nKey;
        acc->scheme(p_nScheme)[nIndex].value = p_nValue;
    }
    // The time window of a scheme, hours and minutes.
    void setWindow(u32 p_nScheme, u32 p_nStartH, u32 p_nStartM, u32 p_nEndH, u32 p_nEndM) {
        KeyVal* pScheme = acc->scheme(p_nScheme);
        pScheme[1].value = p_nStartH;
        pScheme[2].value = p_nStartM;
        pScheme[3].value = p_nEndH;
        pScheme[4].value = p_nEndM;
    }

    // No user scheme has a window (00:00-00:00 matches no time).
    void clearWindows() {
        for (u32 s = 0; s < acc->schemeSum(); ++s)
            setWindow(s, 0, 0, 0, 0);
    }

    std::string errorLog() const { return root.read("/mnt/mtd/log/SensorError.log"); }

    testsupport::TempDeviceRoot root;
    sim::SimVideoStreamModule video;
    std::unique_ptr<ISensorController> ctl;
    std::unique_ptr<ISensorControllerTestAccess> acc;
};

inline bool contains(const std::string& p_strText, const std::string& p_strPart) {
    return p_strText.find(p_strPart) != std::string::npos;
}

} // namespace camtest
