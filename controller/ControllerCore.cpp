#include "controller/ControllerPriv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "controller/SafePointer.h"
#include "keyval/SensorKeys.h"
#include "host/ia_ioctrl_v2.h"
#include "diag/DeviceRoot.h"
#include "storage/SensorFile.h"

using namespace sensor_detail;

namespace {

// Lens commands, auto focus mode to lens reset, swallowed while the lens is
// locked.
const u32 kLensCmdFirst = KEY_AUTO_FOCUS_MODE;
const u32 kLensCmdEnd = KEY_LENS_RESET + 1;

// Day/night mode, thresholds and times: shared by schemes 0 and 1 when the
// schemes follow day and night.
bool isSharedDayNightKey(u32 key) {
    switch (key) {
        case KEY_DN_MODE:
        case KEY_DTN_THR:
        case KEY_NTD_THR:
        case KEY_DTN_H:
        case KEY_DTN_M:
        case KEY_NTD_H:
        case KEY_NTD_M:
            return true;
        default:
            return false;
    }
}

// Infrared keys that are answered "not set" rather than asked of the ISP.
bool isUncachedInfraredKey(int key) {
    return key == KEY_IR_SWITCH || key == KEY_IR_MODE || key == KEY_IR_MANUAL_STRG_NEAR ||
           key == KEY_IR_MANUAL_STRG_MEDIUM || key == KEY_IR_MANUAL_STRG_FAR;
}

u32 valueAt(const void* pVal) {
    return pVal != nullptr ? *static_cast<const u32*>(pVal) : 0;
}

} // namespace

ISensorController::ISensorController()
    : m_stSysConf(), m_nCameraID(1), m_objMutex(), m_pSensorThread(nullptr), m_nLastScheme(-1),
      m_nCurScheme(-1), m_nParamMode(1), m_ppUserKeyVal(nullptr), m_pstKeyValTmp(nullptr),
      m_pFctKeyVal(nullptr), m_nKeyValSum(0), m_pstKeyValTmp2(nullptr), m_pKeyCmdMap(nullptr),
      m_nVersion(SENSOR_VERSION), m_pVideoStreamModule(nullptr), m_objMachineInfo(), m_nFlags(0),
      m_nKeyCmdNum(KEY_CMD_CAPACITY), m_nLastSchedule(255), m_bLprMode(false), m_bShowWDRFalg(true),
      m_bTimeScheme(false), m_bDNScheme(false), m_objZoomFocusParam(), m_pThreadRun(nullptr) {
    // The round callable is counted: the controller keeps one reference and
    // the thread object its own copies, so it lives as long as either.
    typedef SafePointer<ThreadRun> ThreadRunPointer;
    try {
        ThreadRunPointer* pRun = new ThreadRunPointer(new ThreadRun(this));
        m_pThreadRun = pRun;
        const ThreadRunPointer objRun(*pRun);
        m_pSensorThread = new GThread([objRun]() { return (*objRun)(); }, "SensorThread",
                                      GThread::emptyFun, GThread::emptyFun);
    } catch (const std::exception& e) {
        SNS_ERR("SensorThread not created: %s\n", e.what());
    }
    m_nFlags = 0;
    SystemInfoParser::parseMachineInfo(sensorDevicePath(SENSOR_MACHINE_INFO_FILE),
                                       m_objMachineInfo);
}

ISensorController::~ISensorController() {
    // A host that never called uinit still gets everything init took back
    // (uinit stops the worker first, so it runs while the thread object exists).
    if (testFlag(m_nFlags, inited_flag))
        uinit();
    if (m_pSensorThread != nullptr) {
        m_pSensorThread->stop();
        delete m_pSensorThread;
        m_pSensorThread = nullptr;
    }
    delete static_cast<SafePointer<ThreadRun>*>(m_pThreadRun);
    m_pThreadRun = nullptr;
}

void ISensorController::setChannelID(int id) {
    m_nCameraID = id;
    // That device shows one channel, which is always the second sensor.
    if (m_objMachineInfo.getDeviceType() == DeviceType::LPR)
        m_nCameraID = 2;
}

void ISensorController::setVideoStreamModule(const VideoStreamModule* module) {
    m_pVideoStreamModule = module;
}

u32 ISensorController::getSensorType() {
    return m_stSysConf.moduleConfig.nModuleId;
}

bool ISensorController::getSensorStatus() {
    return testFlag(m_nFlags, inited_flag);
}

bool ISensorController::getCameraVerInf(std::string& out) {
    char szVersion[IA_VERSION_TEXT_LEN];
    std::memset(szVersion, 0, sizeof(szVersion));
    if (doIaCmd(IA_CMD_VERSION, IA_CMD_OPT_GET, szVersion) != SNS_SUCCESS)
        return false;
    out.assign(szVersion, strnlen(szVersion, sizeof(szVersion)));
    return true;
}

void ISensorController::printDebugMsg() {}

// The one place a key's command reaches the ISP. While the lens is locked,
// lens commands are swallowed and count as done.
// It needs no lock: the lens, iris and light calls and getDNState reach it
// from the host's threads without the controller mutex.
int ISensorController::doIaCmd(u32 cmd, u32 opt, void* pVal) {
    SNS_DBG(
        "====================== cmd:%d dir:%d val:%d ======m_nCameraID=(%d)===============begin\n",
        cmd, opt, valueAt(pVal), m_nCameraID);
    bool bLensLocked = false;
    {
        std::lock_guard<std::mutex> objGuard(zoomFocusMutex());
        bLensLocked = m_objZoomFocusParam.getLockZoomFocusEnable();
    }
    if (bLensLocked && cmd >= kLensCmdFirst && cmd < kLensCmdEnd)
        return SNS_SUCCESS;
    const int nRet =
        ia_ioctrl_v2(m_nCameraID - 1, static_cast<int>(cmd), static_cast<int>(opt), pVal);
    SNS_DBG("====================== cmd:%d dir:%d val:%d =====================end\n", cmd, opt,
            valueAt(pVal));
    return nRet;
}

// Applies the entries in order: the controller's own keys are kept, the rest
// go through their row's handler. With bCache, values equal to the cached
// ones are skipped and applied values are cached in the current scheme.
// The caller holds the mutex: a locked entry point, or the worker's round,
// which switches under its try-lock.
int ISensorController::setParameters(KeyVal* p_pKeyval, u32 count, bool bCache) {
    SNS_REQUIRE_LOCK();
    if (p_pKeyval == nullptr)
        count = 0;
    for (u32 i = 0; i < count; ++i) {
        const u32 k = p_pKeyval[i].key;
        const u32 v = p_pKeyval[i].value;

        if (bCache && isKeyValSame(p_pKeyval[i])) {
            SNS_DBG("ignore, (%u,%u) is newest, m_nFlags.switching_flag(%d), m_nLastScheme(%d), "
                    "m_nCurScheme(%d)!!!\n",
                    k, v, testFlag(m_nFlags, switching_flag) ? 1 : 0, m_nLastScheme.load(),
                    m_nCurScheme.load());
            continue;
        }

        bool bStoreOnly = false;
        if (k == KEY_SCHEME_MODE) {
            // The mode lives in scheme 0 and is mirrored into every user scheme.
            if (m_nCurScheme == 0) {
                m_bTimeScheme = (v == 1);
                m_bDNScheme = (v == 2);
                const u32 nMode = (v == 1 || v == 2) ? v : 0;
                for (u32 s = 1; s < m_stSysConf.nSchemeSum; ++s)
                    setKeyValToCache(s, KEY_SCHEME_MODE, nMode, true);
            }
            bStoreOnly = true;
        } else if ((k > KEY_SCHEME_MODE && k <= KEY_SCHEME_END_MIN) || k == KEY_EMPTY1 ||
                   k == KEY_EMPTY2) {
            bStoreOnly = true;
        } else if (m_nCameraID == 2 &&
                   (k == KEY_NONE_COLOR_MODE || k == KEY_TEMPERATURE_STRIP_SWITCH)) {
            // The thermal channel's colour and strip settings are the pipeline's.
            notifyToVideo(static_cast<int>(k), static_cast<int>(v));
            bStoreOnly = true;
        } else if (m_nCameraID == 2 && k == KEY_MIRROR) {
            u32 nVal = v;
            doMirror(k, IA_CMD_OPT_SET, &nVal);
            bStoreOnly = true;
        } else if (m_nCameraID == 2 && k == KEY_ANTI_SHAKE_SWITCH) {
            u32 nVal = v;
            doDIS(k, IA_CMD_OPT_SET, &nVal);
            bStoreOnly = true;
        } else if (m_bDNScheme && isSharedDayNightKey(k)) {
            // Day and night schemes share one day/night setting; only the day
            // scheme sends it.
            if (m_nCurScheme != 0)
                bStoreOnly = true;
            else
                setKeyValToCache(1, k, v, true);
        }

        if (!bStoreOnly) {
            keycmd stKeyCmdTmp;
            std::memset(static_cast<void*>(&stKeyCmdTmp), 0, sizeof(stKeyCmdTmp));
            const int nRow = findFromKeyCmdMap(m_pKeyCmdMap, k, stKeyCmdTmp);
            SNS_ASSERT_TEXT(-1 != nRow,
                            "-1 != findFromKeyCmdMap(m_pKeyCmdMap, p_pKeyval[i].key, stKeyCmdTmp)",
                            "p_pKeyval[%u].key(%u)", i, k);
            if (nRow == -1) {
                // An unknown key still reaches the ISP, as its own command.
                SNS_DBG_C(32, "not find (%d) \n", k);
                stKeyCmdTmp.key = k;
                stKeyCmdTmp.cmd = k;
                stKeyCmdTmp.handler = &ISensorController::doIaCmd;
                std::snprintf(stKeyCmdTmp.szKeyName, sizeof(stKeyCmdTmp.szKeyName), "%s",
                              "unknow key");
                std::snprintf(stKeyCmdTmp.szHandlerName, sizeof(stKeyCmdTmp.szHandlerName), "%s",
                              "ISensorController::doIaCmd");
            }
            if (stKeyCmdTmp.handler != nullptr) {
                SNS_DBG_C(31,
                          "====================== set %s (%d,%d) func:%s ia_cmd:%d "
                          "=====================\n",
                          stKeyCmdTmp.szKeyName, k, v, stKeyCmdTmp.szHandlerName, stKeyCmdTmp.cmd);
                IspValueRoom stRoom = {};
                stRoom.aWords[0] = p_pKeyval[i].value;
                const int nRet =
                    (this->*stKeyCmdTmp.handler)(stKeyCmdTmp.cmd, IA_CMD_OPT_SET, stRoom.aWords);
                p_pKeyval[i].value = stRoom.aWords[0];
                if (nRet != SNS_SUCCESS) {
                    if (nRet == -1 || nRet == -4 || nRet == -5)
                        SNS_ERR("set %s (%d,%d) func:%s ia_cmd:%d ~~~failed ia_ret=%d\n",
                                stKeyCmdTmp.szKeyName, k, v, stKeyCmdTmp.szHandlerName,
                                stKeyCmdTmp.cmd, nRet);
                    return -static_cast<int>(k);
                }
            }
        }

        if (bCache) {
            // A handler may have rewritten the value: the rewritten one is stored.
            const int nCurScheme = m_nCurScheme;
            if (-1 == setKeyValToCache(static_cast<u32>(nCurScheme), k, p_pKeyval[i].value, false))
                SNS_DBG("SET_KEY_VAL FAILED, m_nCurScheme(%d), p_pKeyval[%d].key(%d), "
                        "p_pKeyval[%d].value(%d),  maybe jixin\n",
                        nCurScheme, i, k, i, p_pKeyval[i].value);
        }
    }
    std::fputs("\n", stdout);
    std::fflush(stdout);
    return SNS_SUCCESS;
}

int ISensorController::setParameter(int key, int value, bool bCache) {
    SNS_LOCK_GUARD(kSetParameter);
    SNS_DBG("p_Parameters22222222222(%d, %d)\n", key, value);
    KeyVal stKeyVal = {static_cast<u32>(key), static_cast<u32>(value)};
    return setParameters(&stKeyVal, 1, bCache);
}

// The factory slot (index nSchemeSum) is written only by force. Returns the
// entry's index, -1 when the key is not in the scheme, -2 for a refused slot.
int ISensorController::setKeyValToCache(u32 scheme, u32 key, u32 value, bool bForce) {
    SNS_REQUIRE_LOCK();
    if (!bForce && scheme >= m_stSysConf.nSchemeSum)
        return -2;
    // Even a forced write stays inside the scheme block.
    if (m_ppUserKeyVal == nullptr || scheme > m_stSysConf.nSchemeSum)
        return -1;
    KeyVal* pScheme = m_ppUserKeyVal[scheme];
    for (u32 i = 0; i < m_nKeyValSum; ++i) {
        if (pScheme[i].key == key) {
            pScheme[i].value = value;
            return static_cast<int>(i);
        }
    }
    return -1;
}

// Reads the factory slot too. value is untouched when the key is not there.
int ISensorController::getKeyValFromCache(u32 scheme, u32 key, u32& value) {
    SNS_REQUIRE_LOCK();
    if (scheme > m_stSysConf.nSchemeSum) {
        SNS_DBG("can not find val, invalid sheme(%d) \n", scheme);
        return -1;
    }
    if (m_ppUserKeyVal == nullptr)
        return -1;
    const KeyVal* pScheme = m_ppUserKeyVal[scheme];
    for (u32 i = 0; i < m_nKeyValSum; ++i) {
        if (pScheme[i].key == key) {
            value = pScheme[i].value;
            return static_cast<int>(i);
        }
    }
    return -1;
}

// During a switch the incoming scheme is compared with the outgoing one, so
// only the differences reach the ISP.
bool ISensorController::isKeyValSame(const KeyVal& kv) {
    SNS_REQUIRE_LOCK();
    const int nScheme =
        testFlag(m_nFlags, switching_flag) ? m_nLastScheme.load() : m_nCurScheme.load();
    u32 nCached = 0;
    if (getKeyValFromCache(static_cast<u32>(nScheme), kv.key, nCached) == -1)
        return false;
    return kv.value == nCached;
}

bool ISensorController::getParameter(int p_nKey, int& p_nVal) {
    SNS_LOCK_GUARD(kGetParameter);
    SNS_DBG("p_nKey(%d)\n", p_nKey);
    u32 nCached = static_cast<u32>(-1);
    if (getKeyValFromCache(static_cast<u32>(m_nCurScheme.load()), static_cast<u32>(p_nKey),
                           nCached) != -1) {
        p_nVal = static_cast<int>(nCached);
        return true;
    }
    if (isUncachedInfraredKey(p_nKey)) {
        p_nVal = -1;
        return true;
    }
    // The ISP works on the caller's value: it sees it, and whatever it writes
    // reaches the caller, also when it then refuses. The rest of the room
    // takes the words of a command whose record is longer than one value.
    IspValueRoom stRoom = {};
    stRoom.aWords[0] = static_cast<u32>(p_nVal);
    const int nRet = doIaCmd(static_cast<u32>(p_nKey), IA_CMD_OPT_GET, stRoom.aWords);
    p_nVal = static_cast<int>(stRoom.aWords[0]);
    SNS_ASSERT_TEXT(SNS_SUCCESS == nRet, "SNS_SUCCESS == doIaCmd(p_nKey, IA_CMD_OPT_GET, &p_nVal)",
                    "get key(%d) val from 2a err", p_nKey);
    return nRet == SNS_SUCCESS;
}

// Tells the video pipeline of a change; success when there is no pipeline.
int ISensorController::notifyToVideo(int key, int value) {
    SNS_REQUIRE_LOCK();
    if (m_pVideoStreamModule == nullptr)
        return SNS_SUCCESS;
    const int nChannel = m_objMachineInfo.getDeviceType() == DeviceType::LPR ? 1 : m_nCameraID;
    return m_pVideoStreamModule->notifySensorParam(nChannel, key, value);
}

bool ISensorController::getCmdExecStatus(int cmd, int& value) {
    if (doIaCmd(static_cast<u32>(cmd), IA_CMD_OPT_GET_EXEC_STATUS, &value) != SNS_SUCCESS)
        return false;
    SNS_DBG("=================  get exec status cmd(0x%x)       value(%d)   "
            "======================\n",
            cmd, value);
    return true;
}

// The current scheme's window as hhmm: both ends at most 2400, and the start
// before the end (a window may not wrap past midnight).
int ISensorController::paramCheck() {
    // A plain question a host may ask without the mutex (flush asks it under
    // its hold); the scheme lock keeps the window from changing under it.
    SchemeLock objSchemeLock(*this, SchemeLock::Wait);
    const int nCurScheme = m_nCurScheme;
    if (m_ppUserKeyVal == nullptr || nCurScheme < 0 ||
        static_cast<u32>(nCurScheme) > m_stSysConf.nSchemeSum || m_nKeyValSum < 5)
        return SNS_SUCCESS; // no scheme yet: nothing to check
    const KeyVal* a = m_ppUserKeyVal[nCurScheme];
    const long long nStart = a[2].value + 100LL * a[1].value;
    const long long nEnd = a[4].value + 100LL * a[3].value;
    const int nParamSchemeStartTime = static_cast<int>(nStart);
    const int nParamSchemeEndTime = static_cast<int>(nEnd);
    if (nStart >= 2401) {
        SNS_DBG("failed!!!! nParamSchemeStartTime(%d)\n", nParamSchemeStartTime);
        return 505;
    }
    if (nEnd >= 2401) {
        SNS_DBG("failed!!!! nParamSchemeEndTime(%d)\n", nParamSchemeEndTime);
        return 506;
    }
    if (nStart >= nEnd) {
        SNS_DBG("failed!!!! nParamSchemeStartTime(%d) nParamSchemeEndTime(%d)\n",
                nParamSchemeStartTime, nParamSchemeEndTime);
        return 507;
    }
    return SNS_SUCCESS;
}

// Saves the current user scheme to its file. The factory slot and "no scheme
// yet" are not saved; a scheme with an impossible time window is refused
// with paramCheck's code.
int ISensorController::flush() {
    SNS_LOCK_GUARD(kFlush);
    const int nCurScheme = m_nCurScheme;
    if (nCurScheme < 0 || static_cast<u32>(nCurScheme) >= m_stSysConf.nSchemeSum)
        return SNS_SUCCESS;
    const int nCheck = paramCheck();
    if (nCheck != SNS_SUCCESS)
        return nCheck;
    return keyValToFile(sensorSchemeFile(m_nCameraID, nCurScheme).c_str(),
                        m_ppUserKeyVal[nCurScheme], m_nKeyValSum);
}
