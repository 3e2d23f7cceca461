// The image-sensor controller of one camera channel: the class the host drives.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "config/ShowFlags.h"
#include "config/SysConfig.h"
#include "diag/SensorDefs.h"
#include "host/GThread.h"
#include "host/KPMutex.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "host/SensorZoomFocusParam.h"
#include "host/VideoStreamModule.h"
#include "keyval/KeyVal.h"

class ISensorController;

// A key's handler: (command, ISP option, pointer to the 32-bit value) -> 0 on success.
typedef int (ISensorController::*SensorHandler)(u32 p_nKey, u32 p_nDir, void* p_pVal);

// One row of the key-command table.
struct keycmd {
    u32 key;
    u32 cmd;
    SensorHandler handler;  // null for keys the controller keeps for itself
    char szKeyName[32];     // "KEY_BRIGHTNESS"
    char szHandlerName[64]; // "&ISensorController::doIaCmd", or "NULL"
};

// Locking (controller/LockSites.h). One host mutex per controller serialises
// the host's entry points. The entry points marked "Locks" take it for their
// whole run, and with it the controller's own scheme lock over the scheme
// arrays; those marked "Needs the lock" take none and must be called by a
// thread that holds the scheme lock (the controller's own locked entry points
// and its worker do); those marked "Takes the scheme lock" are plain
// operations a host may call without the mutex; the rest take no lock of the
// controller. init and uinit take none: the host calls them while no other
// call runs. The worker round never touches the host mutex: it only tries the
// scheme lock and skips its switch while a host call holds it.
class SENSOR_API ISensorController {
public:
    // State bits of m_nFlags.
    enum {
        initing_flag = 0x01,
        uniniting_flag = 0x02,
        inited_flag = 0x04,
        resetting_flag = 0x08,
        restoring_flag = 0x10,
        switching_flag = 0x20,
    };
    enum { KEY_CMD_CAPACITY = 150, KEY_CMD_ROWS = 138, SENSOR_VERSION = 8 };

    ISensorController();
    ~ISensorController();
    ISensorController(const ISensorController&) = delete;
    ISensorController& operator=(const ISensorController&) = delete;

    // Life cycle ----------------------------------------------------------
    // Start-up: configuration, factory values, scheme files, key table, the
    // first scheme and the worker. Always true; failures are reported.
    bool init(const ModuleConfigure& p_objModuleConfigure);
    void uinit();
    void setChannelID(int id);
    void setVideoStreamModule(const VideoStreamModule* module);
    u32 getSensorType();
    bool getSensorStatus();
    bool getCameraVerInf(std::string& out);
    void printDebugMsg();

    // Single keys and the per-scheme cache -------------------------------
    // Takes no lock and needs none: the one place a command reaches the ISP.
    // The lens, iris and light calls and getDNState reach it without the
    // controller mutex; the locked entry points and the worker with it.
    int doIaCmd(u32 cmd, u32 opt, void* pVal);
    // Needs the lock. 0 when every entry was applied, else the negated key of
    // the first failure.
    int setParameters(KeyVal* p_pKeyval, u32 count, bool bCache);
    int setParameter(int key, int value, bool bCache = true); // Locks.
    bool getParameter(int p_nKey, int& p_nVal);               // Locks.
    // Needs the lock (the four cache functions below).
    int setKeyValToCache(u32 scheme, u32 key, u32 value, bool bForce);
    int getKeyValFromCache(u32 scheme, u32 key, u32& value);
    bool isKeyValSame(const KeyVal& kv);
    int findFromKeyCmdMap(const keycmd* map, u32 key, keycmd& out);
    int notifyToVideo(int key, int value); // Needs the lock.
    // Takes no lock: a direct ISP read.
    bool getCmdExecStatus(int cmd, int& value);
    int paramCheck(); // Takes the scheme lock.
    // Allocates and fills m_pKeyCmdMap from the key-command table.
    void buildKeyCmdMap();

    // Parameter text ------------------------------------------------------
    bool parseSensorParameter(const std::string& text, std::vector<std::string>& fields);
    int setParameters(const std::string& text, bool bCache); // Locks.
    // Takes no lock itself: every getParameter it makes locks on its own.
    bool getParameters(const std::string& ids, std::string& out);
    bool getAllParameters(std::string& out); // Locks.

    // Schemes, modes, the worker and saving -------------------------------
    int switch_to(int nScheme, bool force = false); // Needs the lock.
    // Take the scheme lock (the two below).
    int LPR_switch_to(int nScheme);
    int judgeCurScheme(int& nScheme, int& nSchedule);
    // Lock (the four below).
    bool setParamScheme(int p_nScheme);
    bool getParamScheme(int& scheme);
    bool setParamMode(int p_nMode);
    bool getParamMode(int& mode);
    // The worker's round: tries the scheme lock, never waits for it, and
    // never touches the host mutex.
    int sensorThread();
    int flush(); // Locks.

    // Restore and reset ---------------------------------------------------
    int restore(int p_nKey);      // Locks.
    bool restoreAeMode();         // Two restores, each locking on its own.
    bool resetToLastParameters(); // Locks.
    bool resetParameters();       // Locks, and starts the controller again under it.
    // Takes no lock: a direct ISP call.
    int SensorCheck(std::string& text);

    // Handlers ------------------------------------------------------------
    // Need the lock: they run from setParameters, under its caller's hold.
    int doIaCmd_User(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doHwdr(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doImageAdjust(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doDIS(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doIaCmd_PanoTuning(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doDNThr(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doDNTime(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doMirror(u32 p_nKey, u32 p_nDir, void* p_pVal);
    int doBeaway(u32 p_nKey, u32 p_nDir, void* p_pVal);

    // Day/night, mirror and beaway -----------------------------------------
    // The mode, mirror and beaway calls lock through getParameter,
    // setParameter and flush; the beaway switch itself takes no lock.
    bool getDNMode(int& p_nMode);
    bool setDNMode(int p_nMode);
    // Takes no lock: reads the ISP's state directly (the worker calls it
    // under its own hold).
    bool getDNState(int& p_nState);
    bool setMirrorMode(int p_nMode);
    bool getMirrorValue(int& p_nVal);
    bool getBeaway(int& p_nVal);
    void setShowBeawayFalg(bool p_bShow);
    bool getShowBeawayFalg(bool& p_bShow);

    // Lens, iris, shutter and lights ---------------------------------------
    // These take no lock of the controller: the lens, iris, light and shutter
    // calls reach the ISP directly, through doIaCmd, without the mutex. Only
    // the settings stored like keys (the illuminator switches, the
    // white-light mode and the shutter setters and steps) lock, through
    // setParameter.
    bool focusFar();
    bool focusNear();
    bool zoomIn();
    bool zoomOut();
    bool irisUp();
    bool irisDown();
    bool setZoomValue(int p_nPos);
    bool getZoomValue(int& p_nPos, int& p_nRatio);
    bool setPTZRunState(int p_nState);
    bool setFocusValue(int p_nVal);
    bool getFocusValue(int& p_nVal);
    bool setFocusMode(int p_nMode);
    bool getFocusMode(int& p_nMode);
    bool getAFStatistic(unsigned int& p_nVal);
    bool getWDR(int& p_nVal);
    bool setIrisValue(int p_nVal);
    bool getIrisValue(int& p_nVal);
    bool setIRSwitch(int p_nVal);
    bool getIRSwitch(int& p_nVal);
    bool setWhiteSwitch(int p_nVal);
    bool getWhiteSwitch(int& p_nVal);
    bool setWhiteMode(int p_nVal);
    bool getWhiteMode(int& p_nVal);
    void setShowWDRFalg(bool p_bShow);
    bool getShowWDRFalg(bool& p_bShow);
    bool getShutterValue(int& p_nIndex);
    bool setShutterValue(int p_nIndex);
    bool shutterUp();
    bool shutterDown();
    // Copy the zoom and focus record under its own lock, not the controller's.
    int getSensorZoomFocusParam(SensorZoomFocusParam& p_objParam);
    int setSensorZoomFocusParam(SensorZoomFocusParam& p_objParam);
    bool getSensorParamRange(int p_nCmd, int& p_nDefault, std::string& p_strRange);

    // Texts for the host's UI ----------------------------------------------
    // Lock (the three below).
    std::string getUIStyleFile();
    std::string getUILanguageFile(int p_nLanguageId);
    std::string getUICommonFile(int p_nLanguageId);

private:
    friend class ISensorControllerTestAccess;

    // The guards of the lock contract (controller/LockSites.h).
    class LockGuard;
    class SchemeLock;
    class SoleUse;
    // In checked builds: aborts unless this thread holds the scheme lock
    // (its guards do) or is the controller's sole user.
    void requireLock(const char* p_szFunction) const;

    // Members in their fixed order. Fields that the worker and the host's
    // threads share are atomics of the plain type's size.
    SysConfig m_stSysConf;
    int m_nCameraID;
    // Serialises the host's entry points; only they take it (the worker
    // coordinates through the scheme lock in m_pThreadRun).
    KPMutex m_objMutex;
    GThread* m_pSensorThread;
    std::atomic<int> m_nLastScheme;
    std::atomic<int> m_nCurScheme;
    std::atomic<u32> m_nParamMode;
    KeyVal** m_ppUserKeyVal;
    KeyVal* m_pstKeyValTmp;
    KeyVal* m_pFctKeyVal;
    u32 m_nKeyValSum;
    KeyVal* m_pstKeyValTmp2;
    keycmd* m_pKeyCmdMap;
    u32 m_nVersion;
    const VideoStreamModule* m_pVideoStreamModule;
    MachineInfo m_objMachineInfo;
    std::atomic<u8> m_nFlags;
    u32 m_nKeyCmdNum;
    std::atomic<u32> m_nLastSchedule;
    std::atomic<bool> m_bLprMode;
    std::atomic<bool> m_bShowWDRFalg;
    std::atomic<bool> m_bTimeScheme;
    std::atomic<bool> m_bDNScheme;
    SensorZoomFocusParam m_objZoomFocusParam;

    // Beyond the fixed members: the worker's round callable and the scheme
    // lock, shared with the thread object through a counted pointer.
    struct ThreadRun;
    void* m_pThreadRun;
};
