// Parameter lists as text: "(34,60)(2337,1)" to set, "(34,2337)" to read.
#include "controller/ControllerPriv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/StringHandler.h"
#include "keyval/SensorKeyVal.h"
#include "diag/SensorNumber.h"

using namespace sensor_detail;

// Splits an id list "(a,b,c)" into its fields. False unless the whole text is
// one group with something between its brackets.
bool ISensorController::parseSensorParameter(const std::string& text,
                                             std::vector<std::string>& fields) {
    if (text.empty() || text[0] != '(')
        return false;
    const std::string::size_type nClose = text.find(')');
    if (nClose == std::string::npos || nClose != text.size() - 1 || nClose <= 1)
        return false;
    StringHandler::split(text.substr(1, nClose - 1), ",", fields);
    return !fields.empty();
}

// Applies a pair list; the result of the array form (0, or the negated key
// of the first pair that failed).
int ISensorController::setParameters(const std::string& text, bool bCache) {
    SNS_LOCK_GUARD(kSetParametersText);
    SNS_DBG("p_Parameters1111111111(%s)\n", text.c_str());

    // The text comes from a web page: a list longer than a scheme does not
    // fit the scratch array, so it is parsed into room of its own and applied
    // whole, in order, as one array.
    const u32 nPairs = keyval_str_count(text);
    if (m_pstKeyValTmp != nullptr && nPairs <= m_nKeyValSum) {
        u32 nCount = 0;
        keyval_str2st(text, m_pstKeyValTmp, &nCount);
        return setParameters(m_pstKeyValTmp, nCount, bCache);
    }

    std::vector<KeyVal> vecPairs(static_cast<size_t>(nPairs) + 1);
    u32 nCount = 0;
    keyval_str2st(text, vecPairs.data(), &nCount);
    const int nRet = setParameters(vecPairs.data(), nCount, bCache);
    // The scratch array ends up holding the head of the list, as it would
    // have had the list fitted.
    if (m_pstKeyValTmp != nullptr && m_nKeyValSum > 0)
        std::memcpy(m_pstKeyValTmp, vecPairs.data(), m_nKeyValSum * sizeof(KeyVal));
    return nRet;
}

// Reads the keys of an id list into a pair list; keys that cannot be read are
// left out. False (and out untouched) for a malformed list.
bool ISensorController::getParameters(const std::string& ids, std::string& out) {
    std::vector<std::string> vecIds;
    if (!parseSensorParameter(ids, vecIds)) {
        printf("%s%d getParameters fail p_strIds = %s \n", SNS_SOURCE_UNIT, 1053, ids.c_str());
        return false;
    }

    out.clear();
    for (const std::string& strId : vecIds) {
        const int nId = sensorAtoi(strId.c_str());
        int nValue = 0;
        if (!getParameter(nId, nValue))
            continue;
        char szPair[32] = {0};
        snprintf(szPair, sizeof(szPair), "(%d,%d)", nId, nValue);
        out += szPair;
    }
    printf("@@ out_Parameters = %s @@\n", out.c_str());
    return true;
}

// The current scheme's whole array as a pair list, its dynamic values first
// corrected by the ISP. Always true.
bool ISensorController::getAllParameters(std::string& out) {
    SNS_LOCK_GUARD(kGetAllParameters);
    const int nCurScheme = m_nCurScheme;
    // Before the first switch (or after shut-down) there is no current array.
    if (m_ppUserKeyVal == nullptr || nCurScheme < 0 ||
        static_cast<u32>(nCurScheme) > m_stSysConf.nSchemeSum) {
        SNS_DBG("current scheme: %d\n%s\n", nCurScheme, out.c_str());
        return true;
    }

    SNS_ASSERT_TEXT(SNS_SUCCESS ==
                        keyval_correct(m_nCameraID - 1, m_ppUserKeyVal[nCurScheme], m_nKeyValSum),
                    "SNS_SUCCESS == keyval_correct(m_nCameraID-1,m_ppUserKeyVal[m_nCurScheme], "
                    "m_nKeyValSum)",
                    "m_nCurScheme(%d) m_nKeyValSum(%d)\n", nCurScheme, m_nKeyValSum);
    keyval_st2str(out, m_ppUserKeyVal[nCurScheme], m_nKeyValSum);
    SNS_DBG("current scheme: %d\n%s\n", nCurScheme, out.c_str());
    return true;
}
