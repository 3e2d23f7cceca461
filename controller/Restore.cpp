// Taking parameters back to a known state: one key, the saved scheme, or the
// factory values; and the ISP's sensor self-check.
#include "controller/ControllerPriv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "keyval/SensorKeys.h"
#include "host/ia_ioctrl_v2.h"
#include "host/sy_system.h"
#include "diag/SensorNumber.h"
#include "diag/DeviceRoot.h"
#include "storage/SensorFile.h"

using namespace sensor_detail;

namespace {

// A NUL-terminated copy of a fixed text field that may lack its terminator.
std::string boundedText(const char* p_szText, size_t p_nSize) {
    size_t nLen = 0;
    while (nLen < p_nSize && p_szText[nLen] != '\0')
        ++nLen;
    return std::string(p_szText, nLen);
}

} // namespace

// Pushes the current scheme's stored value of p_nKey again, even when the ISP
// already holds it. SNS_SUCCESS, the apply result, or -1 for a key the scheme
// does not hold.
int ISensorController::restore(int p_nKey) {
    SNS_LOCK_GUARD(kRestore);
    SNS_DBG("p_nKey(%d)\n", p_nKey);

    int nPos = -1;
    const int nCurScheme = m_nCurScheme;
    const bool bHasArray = m_ppUserKeyVal != nullptr && nCurScheme >= 0 &&
                           static_cast<u32>(nCurScheme) <= m_stSysConf.nSchemeSum;
    KeyVal* pScheme = bHasArray ? m_ppUserKeyVal[nCurScheme] : nullptr;
    for (u32 i = 0; pScheme != nullptr && i < m_nKeyValSum; ++i) {
        if (pScheme[i].key == static_cast<u32>(p_nKey)) {
            nPos = static_cast<int>(i);
            break;
        }
    }
    if (nPos != -1)
        return setParameters(&pScheme[nPos], 1, false);

    SNS_ASSERT(-1 != nPos, "restore key(%d) failed! make sure it is sensor ui key \n", p_nKey);
    return -1;
}

// Restores the exposure mode, then (deliberately) the autofocus mode.
bool ISensorController::restoreAeMode() {
    if (SNS_SUCCESS != restore(KEY_EXPOSE_MODE))
        return false;
    return SNS_SUCCESS == restore(KEY_AUTO_FOCUS_MODE);
}

// Re-applies the current scheme as its file holds it: only values that differ
// from the cache reach the ISP. True when every value was applied; true and
// nothing done on the factory scheme, which has no file.
bool ISensorController::resetToLastParameters() {
    SNS_DBG("\n");
    // No scheme yet, or the factory scheme: neither has a file.
    const auto fnNoFile = [this](int p_nScheme) {
        return p_nScheme < 0 || static_cast<u32>(p_nScheme) >= m_stSysConf.nSchemeSum;
    };
    // Tested before the host's mutex is taken: on the factory scheme the call
    // does nothing at all. The scheme lock alone keeps a reset on another
    // thread from rewriting the index and the scheme count meanwhile.
    {
        SchemeLock objSchemeLock(*this, SchemeLock::Wait);
        if (fnNoFile(m_nCurScheme))
            return true;
    }
    SNS_LOCK_GUARD(kResetToLastParameters);
    // Tested again: another thread may have switched in between.
    const int nCurScheme = m_nCurScheme;
    if (fnNoFile(nCurScheme))
        return true;

    const std::string strFile = sensorSchemeFile(m_nCameraID, nCurScheme);
    const char* szTmp = strFile.c_str();

    setFlag(m_nFlags, restoring_flag);
    // A missing or short file leaves the scratch array (or its tail) as the
    // last parameter text left it, and that is re-applied like the rest.
    SNS_ASSERT_TEXT(SNS_SUCCESS == keyValFromFile(szTmp, m_pstKeyValTmp, m_nKeyValSum),
                    "SNS_SUCCESS == keyValFromFile(szTmp, m_pstKeyValTmp, m_nKeyValSum)",
                    "szTmp(%s), m_nKeyValSum(%d)\n", szTmp, m_nKeyValSum);
    const int nRet =
        m_pstKeyValTmp != nullptr ? setParameters(m_pstKeyValTmp, m_nKeyValSum, true) : SNS_SUCCESS;
    clearFlag(m_nFlags, restoring_flag);
    return SNS_SUCCESS == nRet;
}

// Factory reset: pushes the factory values, deletes every stored scheme file,
// starts the controller again from the module description of its last start
// and makes scheme 0 current. Always true.
bool ISensorController::resetParameters() {
    SNS_LOCK_GUARD(kResetParameters);
    SNS_DBG("resetting\n");

    setFlag(m_nFlags, resetting_flag);
    SNS_ASSERT_TEXT(SNS_SUCCESS == switch_to(static_cast<int>(m_stSysConf.nSchemeSum), false),
                    "SNS_SUCCESS == switch_to(m_stSysConf.nSchemeSum)",
                    "m_stSysConf.nSchemeSum(%d)\n", m_stSysConf.nSchemeSum);

    (void)sy_system(sensorRemoveSchemeFilesCommand().c_str(), 30);

    // What init was given last time, kept in the configuration record.
    const ModuleConfig& stLast = m_stSysConf.moduleConfig;
    const u32 nLastModuleId = stLast.nModuleId;
    const std::string strLastDetail = boundedText(stLast.szDetail, sizeof(stLast.szDetail));
    const std::string strLastParameters =
        boundedText(stLast.szParameters, sizeof(stLast.szParameters));

    uinit();

    ModuleConfigure objModuleConfigure;
    if (g_nDebugLevel > 5) {
        // A debugging aid: start from the module description on the device.
        MachineInfo objMachineInfo;
        (void)SystemInfoParser::parseMachineInfo(sensorDevicePath(SENSOR_MACHINE_INFO_FILE),
                                                 objMachineInfo);
        std::vector<ModuleConfigure> vecModules;
        (void)ModuleConfigureParser::parse(sensorDevicePath(SENSOR_MODULE_CONFIG_FILE),
                                           objMachineInfo.getHardwareModel(),
                                           objMachineInfo.getHardwareCode(), vecModules);
        if (!vecModules.empty()) {
            objModuleConfigure.setDetail(vecModules.front().getDetail());
            objModuleConfigure.setParameters(vecModules.front().getParameters());
        }
    } else {
        objModuleConfigure.setModuleId(nLastModuleId);
        objModuleConfigure.setDetail(strLastDetail);
        objModuleConfigure.setParameters(strLastParameters);
    }

    SNS_ASSERT_TEXT(init(objModuleConfigure), "init(objModuleConfigure)", "");

    m_nCurScheme = 0;
    clearFlag(m_nFlags, resetting_flag);
    return true;
}

// Passes the ISP's self-check: "(a,b,c)"; when b is 2 the check is read and
// text becomes its result. The ISP's result, 0 for a malformed text.
int ISensorController::SensorCheck(std::string& text) {
    std::vector<std::string> vecFields;
    if (!parseSensorParameter(text, vecFields)) {
        printf("%s%d getParameters fail p_strIds = %s \n", SNS_SOURCE_UNIT, 1496, text.c_str());
        return 0;
    }

    // Three numbers are expected; missing ones count as 0.
    i32 aRecord[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < 3 && i < vecFields.size(); ++i)
        aRecord[i] = sensorAtoi(vecFields[i].c_str());

    const bool bRead = aRecord[1] == 2;
    const int nRet = ia_ioctrl_v2(m_nCameraID - 1, IA_CMD_SENSOR_CHECK,
                                  bRead ? IA_CMD_OPT_GET : IA_CMD_OPT_SET, aRecord);
    if (bRead) {
        char szResult[16] = {0};
        snprintf(szResult, sizeof(szResult), "%d", aRecord[3]);
        text = szResult;
    }
    return nRet;
}
