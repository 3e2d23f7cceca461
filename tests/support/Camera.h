// The one way tests build a controller: a private device root (the sample
// tree by default), the simulated video pipeline and one controller started
// through init(), as a host starts it, with helpers that read the ISP trace
// and the device files. A test that needs a scheme layout of its own writes a
// style listing exactly those keys and lets init() build every array from it.
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
#include "controller/SensorKeys.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "host/ia_ioctrl_v2.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "storage/SensorFile.h"
#include "tests/support/ControllerAccess.h"
#include "tests/support/TestSupport.h"

namespace camtest {

const int DN_STATE_CMD = IA_CMD_DN_STATE;

inline std::string schemeFile(int p_nScheme, int p_nChannel = 1) {
    return sensorSchemeFile(p_nChannel, p_nScheme);
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
    ~Camera() { shutDown(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // Shuts the controller down for good, whatever state flags a test left
    // it in (a switch or a reset "in progress" makes uinit() do nothing).
    void shutDown() {
        if (!ctl)
            return;
        if (acc)
            acc->setFlags(ISensorController::inited_flag);
        ctl->uinit();
    }

    // The module the sample tree describes for its machine.
    ModuleConfigure module() const { return sim::machineModule(root.path()); }

    // A new controller, not started; a previous one is shut down first.
    void construct(int p_nChannel = 1, bool p_bAttachVideo = true) {
        shutDown();
        acc.reset();
        ctl.reset(new ISensorController);
        ctl->setChannelID(p_nChannel);
        if (p_bAttachVideo)
            ctl->setVideoStreamModule(&video);
        acc.reset(new ISensorControllerTestAccess(*ctl));
    }

    // Starts a new controller through init(). init() itself always answers
    // true, so the result is whether the controller came up in its started
    // shape (see started()).
    testing::AssertionResult start(int p_nChannel = 1) { return start(module(), p_nChannel); }
    testing::AssertionResult start(const ModuleConfigure& p_objModule, int p_nChannel = 1) {
        construct(p_nChannel);
        return init(p_objModule);
    }
    // init() on the controller already constructed, the ISP running the
    // module as a host sets it up (no lens commands on a fixed lens).
    testing::AssertionResult init(const ModuleConfigure& p_objModule) {
        sim::Isp::instance().runModule(p_objModule.getDetail());
        (void)ctl->init(p_objModule);
        return started();
    }

    // What init() leaves behind when it has run to its end: the inited flag
    // alone, every scheme array and the factory slot in one block, the key
    // table, both scratch arrays (the first seeded from scheme 0), the time
    // and day/night flags taken from scheme 0's mode key, and a running
    // worker.
    testing::AssertionResult started() const {
        if (!ctl)
            return testing::AssertionFailure() << "no controller";
        if (acc->flags() != ISensorController::inited_flag)
            return testing::AssertionFailure() << "flags " << int(acc->flags());
        const u32 nSchemes = acc->schemeSum();
        for (u32 s = 0; s <= nSchemes; ++s) {
            if (acc->scheme(s) != acc->scheme(0) + static_cast<size_t>(s) * acc->keyValSum())
                return testing::AssertionFailure() << "scheme " << s << " is not in the block";
        }
        if (acc->factory() != acc->scheme(nSchemes))
            return testing::AssertionFailure() << "the factory slot is not the last array";
        if (acc->keyCmdMap() == nullptr || acc->keyCmdNum() != sensor_keys::kKeyCount)
            return testing::AssertionFailure() << "key table of " << acc->keyCmdNum() << " rows";
        if (acc->scratch() == nullptr || acc->scratch2() == nullptr)
            return testing::AssertionFailure() << "a scratch array is missing";
        if (acc->keyValSum() > 0 &&
            std::memcmp(acc->scratch(), acc->scheme(0), acc->keyValSum() * sizeof(KeyVal)) != 0)
            return testing::AssertionFailure() << "the first scratch array is not scheme 0";
        const int nMode = indexOf(KEY_SCHEME_MODE);
        const u32 nModeValue = nMode >= 0 ? acc->scheme(0)[nMode].value : 0;
        if (acc->timeScheme() != (nModeValue == 1) || acc->dnScheme() != (nModeValue == 2))
            return testing::AssertionFailure()
                   << "time/day-night flags disagree with mode " << nModeValue;
        if (acc->sensorThread() == nullptr || !sim::threadRunning(*acc->sensorThread()))
            return testing::AssertionFailure() << "the worker is not running";
        return testing::AssertionSuccess();
    }

    // Writes a style (all three families) and a diversity that changes
    // nothing, so that the factory set is exactly p_vecValues in order. The
    // scheme files of an earlier start are removed.
    void writeFactoryStyle(const std::vector<KeyVal>& p_vecValues) const {
        std::string strStyle =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<sensorStyle name=\"test\">\n    <tab key=\"keys\" name=\"Keys\">\n";
        for (const KeyVal& kv : p_vecValues)
            strStyle += "        <item id=\"" + std::to_string(kv.key) + "\" value=\"" +
                        std::to_string(kv.value) + "\"/>\n";
        strStyle += "    </tab>\n</sensorStyle>\n";
        const std::string strDiversity = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                         "<rule sensor=\"NO-SUCH-SENSOR\">\n"
                                         "    <Delete tab_key=\"keys\"/>\n</rule>\n";
        for (const std::string strFamily : {"", "_dome", "_Thermal"}) {
            root.write(SENSOR_STYLE_FOLDER "Style" + strFamily + ".xml", strStyle);
            root.write(SENSOR_STYLE_DIVERSITY_FOLDER "StyleDiversity" + strFamily + ".xml",
                       strDiversity);
        }
        (void)std::system(("rm -f '" + root.real("/mnt/mtd/code/config_file") + "'/*").c_str());
    }

    // Starts a controller through init() on a style listing exactly these
    // factory values. The ISP offers no dynamic choices during that start (so
    // no value is replaced by an ISP default); its profile is restored after.
    // The result also ties the layout to the request: the factory set init()
    // built is the one asked for.
    // Constructs the controller and starts it on the style as it lies: the
    // ISP offers no dynamic choices meanwhile, so that no value of the style
    // is replaced.
    testing::AssertionResult startOnStyleAsWritten(int p_nChannel = 1, bool p_bAttachVideo = true) {
        construct(p_nChannel, p_bAttachVideo);
        sim::Isp& objIsp = sim::Isp::instance();
        const std::vector<uint32_t> vecDynamic = objIsp.dynamicCommands();
        objIsp.setDynamicCommands({});
        testing::AssertionResult objStarted = init(module());
        objIsp.setDynamicCommands(vecDynamic);
        return objStarted;
    }

    testing::AssertionResult startWithFactory(const std::vector<KeyVal>& p_vecValues,
                                              int p_nChannel = 1, bool p_bAttachVideo = true) {
        writeFactoryStyle(p_vecValues);
        testing::AssertionResult objStarted = startOnStyleAsWritten(p_nChannel, p_bAttachVideo);
        if (!objStarted)
            return objStarted;
        if (!sameKeyVals(factory(), p_vecValues))
            return testing::AssertionFailure()
                   << "init() built " << factory().size() << " factory values, not the "
                   << p_vecValues.size() << " the style lists";
        return testing::AssertionSuccess();
    }

    // Stops the worker so that the test drives the rounds itself.
    // Stops the worker; from then on the test's thread is the controller's sole
    // user and may call what needs the controller mutex directly.
    void stopWorker() {
        acc->sensorThread()->stop();
        acc->claimSoleUse();
    }

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
    // A scheme's cached value, through the controller's own cache calls.
    u32 value(u32 p_nScheme, u32 p_nKey) const {
        u32 nValue = 0;
        const auto objHold = acc->hold(); // the cache calls need the controller mutex
        EXPECT_GE(ctl->getKeyValFromCache(p_nScheme, p_nKey, nValue), 0) << "key " << p_nKey;
        return nValue;
    }
    void setValue(u32 p_nScheme, u32 p_nKey, u32 p_nValue) {
        const auto objHold = acc->hold(); // the cache calls need the controller mutex
        ASSERT_GE(ctl->setKeyValToCache(p_nScheme, p_nKey, p_nValue, true), 0) << "key " << p_nKey;
    }
    // The time window of a scheme, hours and minutes.
    void setWindow(u32 p_nScheme, u32 p_nStartH, u32 p_nStartM, u32 p_nEndH, u32 p_nEndM) {
        setValue(p_nScheme, KEY_SCHEME_START_HOUR, p_nStartH);
        setValue(p_nScheme, KEY_SCHEME_START_MIN, p_nStartM);
        setValue(p_nScheme, KEY_SCHEME_END_HOUR, p_nEndH);
        setValue(p_nScheme, KEY_SCHEME_END_MIN, p_nEndM);
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

using testsupport::contains;

} // namespace camtest
