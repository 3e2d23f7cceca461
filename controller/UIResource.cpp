// The texts the host's UI is built from: the style document and the language
// resources.
#include "controller/ControllerPriv.h"

#include <string>

#include "config/DnaStyle.h"

using namespace sensor_detail;

namespace {

// The entry of the language id, else the first one; null for an empty table.
const UILanguageEntry* findLanguage(const SysConfig& p_stSysConf, int p_nLanguageId) {
    if (p_stSysConf.pLanguageTab == nullptr || p_stSysConf.nLanguageNum == 0)
        return nullptr;
    for (u32 i = 0; i < p_stSysConf.nLanguageNum; ++i) {
        if (p_stSysConf.pLanguageTab[i].nLanguageId == static_cast<u32>(p_nLanguageId))
            return &p_stSysConf.pLanguageTab[i];
    }
    return &p_stSysConf.pLanguageTab[0];
}

// One text of the language id's entry (the first entry's for an unknown id);
// empty before start-up, when there is no configuration, and for an empty table.
std::string languageText(const SysConfig& p_stSysConf, bool p_bInited, int p_nLanguageId,
                         char* UILanguageEntry::*p_pText) {
    if (!p_bInited)
        return std::string();
    const UILanguageEntry* pEntry = findLanguage(p_stSysConf, p_nLanguageId);
    if (pEntry == nullptr || pEntry->*p_pText == nullptr)
        return std::string();
    return std::string(pEntry->*p_pText);
}

} // namespace

// The style document rewritten with the ranges the ISP reports now; rebuilt
// on every call.
std::string ISensorController::getUIStyleFile() {
    SNS_LOCK_GUARD(kGetUIStyleFile);
    std::string strTmp;
    // Before start-up (or after shut-down) there is no style: an empty one.
    const char* szStyle = m_stSysConf.szUIStyle != nullptr && testFlag(m_nFlags, inited_flag)
                              ? m_stSysConf.szUIStyle
                              : "";
    SNS_ASSERT_TEXT(SNS_SUCCESS == getDnaStyle(m_nCameraID, szStyle, strTmp, m_bShowWDRFalg),
                    "SNS_SUCCESS == getDnaStyle(m_nCameraID,m_stSysConf.szUIStyle, "
                    "strTmp,m_bShowWDRFalg)",
                    "");
    SNS_INFO("%s\n", strTmp.c_str());
    return strTmp;
}

// The language text of the language id (the first entry's for an unknown id,
// empty for an empty table).
std::string ISensorController::getUILanguageFile(int p_nLanguageId) {
    SNS_LOCK_GUARD(kGetUILanguageFile);
    SNS_DBG("LanguageId(%d)\n", p_nLanguageId);
    return languageText(m_stSysConf, testFlag(m_nFlags, inited_flag), p_nLanguageId,
                        &UILanguageEntry::szLanguageFile);
}

// The common text of the language id, chosen as getUILanguageFile does.
std::string ISensorController::getUICommonFile(int p_nLanguageId) {
    SNS_LOCK_GUARD(kGetUICommonFile);
    SNS_DBG("LanguageId(%d)\n", p_nLanguageId);
    return languageText(m_stSysConf, testFlag(m_nFlags, inited_flag), p_nLanguageId,
                        &UILanguageEntry::szCommonFile);
}
