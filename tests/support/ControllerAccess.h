// Reaches into an ISensorController for tests: its members, and scheme
// storage laid out as start-up lays it out, so that dispatch can be tested
// on its own.
#pragma once

#include <cstdlib>
#include <cstring>
#include <vector>

#include "controller/ISensorController.h"

class ISensorControllerTestAccess {
public:
    explicit ISensorControllerTestAccess(ISensorController& c) : m(c) {}

    // nSchemes user schemes plus the factory slot, m_nKeyValSum = factory size,
    // every array a copy of the factory values (which must begin with 8000..8004),
    // the key table built, scratch arrays allocated. Freed by uinit(), or by
    // releaseSchemes() for a controller that never ran init().
    void allocateSchemes(u32 nSchemes, const std::vector<KeyVal>& factory) {
        m.m_stSysConf.nSchemeSum = nSchemes;
        m.m_nKeyValSum = static_cast<u32>(factory.size());
        KeyVal* pBlock = static_cast<KeyVal*>(
            std::calloc((nSchemes + 1) * factory.size() + 1, sizeof(KeyVal)));
        m.m_ppUserKeyVal = static_cast<KeyVal**>(std::calloc(nSchemes + 1, sizeof(KeyVal*)));
        for (u32 s = 0; s <= nSchemes; ++s) {
            m.m_ppUserKeyVal[s] = pBlock + s * factory.size();
            if (!factory.empty())
                std::memcpy(m.m_ppUserKeyVal[s], factory.data(), factory.size() * sizeof(KeyVal));
        }
        m.m_pFctKeyVal = m.m_ppUserKeyVal[nSchemes];
        m.m_pstKeyValTmp = static_cast<KeyVal*>(std::calloc(factory.size() + 1, sizeof(KeyVal)));
        m.m_pstKeyValTmp2 = static_cast<KeyVal*>(
            std::calloc(ISensorController::KEY_CMD_CAPACITY, sizeof(KeyVal)));
        m.buildKeyCmdMap();
        m_bOwned = true;
    }
    void releaseSchemes() {
        if (!m_bOwned)
            return;
        if (m.m_ppUserKeyVal != nullptr)
            std::free(m.m_ppUserKeyVal[0]);
        std::free(m.m_ppUserKeyVal);
        std::free(m.m_pstKeyValTmp);
        std::free(m.m_pstKeyValTmp2);
        std::free(m.m_pKeyCmdMap);
        m.m_ppUserKeyVal = nullptr;
        m.m_pstKeyValTmp = nullptr;
        m.m_pstKeyValTmp2 = nullptr;
        m.m_pKeyCmdMap = nullptr;
        m.m_pFctKeyVal = nullptr;
        m_bOwned = false;
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
    bool m_bOwned = false;
};
