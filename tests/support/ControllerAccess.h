// Reaches into an ISensorController for tests, for the states a host cannot
// reach or read: the flags of a switch, reset or shut-down in progress, the
// current and last scheme, the worker, and the layout start-up built.
#pragma once

#include <memory>

#include "controller/ISensorController.h"
#include "controller/LockSites.h"

class ISensorControllerTestAccess {
public:
    explicit ISensorControllerTestAccess(ISensorController& c) : m(c) {}

    // Makes the calling thread the controller's sole user until
    // the end of this object: for a controller whose
    // worker never runs or was stopped, and that no other thread calls.
    void claimSoleUse() {
        if (!m_pSoleUse)
            m_pSoleUse.reset(new ISensorController::SoleUse(m));
    }

    // The line a test's hold gives the host's mutex: no lock site uses it.
    static constexpr int kHoldLine = 1;

    // Holds the host's mutex and the scheme lock, as a locked entry point
    // does, until the result goes.
    std::unique_ptr<ISensorController::LockGuard> hold() {
        return std::unique_ptr<ISensorController::LockGuard>(
            new ISensorController::LockGuard(m, kHoldLine));
    }

    // Holds the scheme lock alone, as the worker's round does, until the
    // result goes.
    std::unique_ptr<ISensorController::SchemeLock> holdAsWorker() {
        return std::unique_ptr<ISensorController::SchemeLock>(
            new ISensorController::SchemeLock(m, ISensorController::SchemeLock::Wait));
    }

    KeyVal* scheme(u32 s) const { return m.m_ppUserKeyVal[s]; }
    u32 keyValSum() const { return m.m_nKeyValSum; }
    u32 schemeSum() const { return m.m_stSysConf.nSchemeSum; }
    SysConfig& sysConf() { return m.m_stSysConf; }
    const keycmd* keyCmdMap() const { return m.m_pKeyCmdMap; }
    u32 keyCmdNum() const { return m.m_nKeyCmdNum; }
    int cameraId() const { return m.m_nCameraID; }
    int curScheme() const { return m.m_nCurScheme; }
    void setCurScheme(int s) { m.m_nCurScheme = s; }
    int lastScheme() const { return m.m_nLastScheme; }
    void setLastScheme(int s) { m.m_nLastScheme = s; }
    u8 flags() const { return m.m_nFlags; }
    void setFlags(u8 f) { m.m_nFlags = f; }
    u32 paramMode() const { return m.m_nParamMode; }
    u32 version() const { return m.m_nVersion; }
    u32 lastSchedule() const { return m.m_nLastSchedule; }
    void setLastSchedule(u32 v) { m.m_nLastSchedule = v; }
    bool lprMode() const { return m.m_bLprMode; }
    void setLprMode(bool b) { m.m_bLprMode = b; }
    bool timeScheme() const { return m.m_bTimeScheme; }
    void setTimeScheme(bool b) { m.m_bTimeScheme = b; }
    bool dnScheme() const { return m.m_bDNScheme; }
    void setDNScheme(bool b) { m.m_bDNScheme = b; }
    bool showWDR() const { return m.m_bShowWDRFalg; }
    const VideoStreamModule* videoStreamModule() const { return m.m_pVideoStreamModule; }
    GThread* sensorThread() const { return m.m_pSensorThread; }
    KeyVal* factory() const { return m.m_pFctKeyVal; }
    KeyVal* scratch() const { return m.m_pstKeyValTmp; }
    KeyVal* scratch2() const { return m.m_pstKeyValTmp2; }
    SensorZoomFocusParam& zoomFocus() { return m.m_objZoomFocusParam; }

private:
    ISensorController& m;
    std::unique_ptr<ISensorController::SoleUse> m_pSoleUse;
};
