// Start-up and shut-down of a controller: init and uinit.
#include "controller/ControllerPriv.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "config/DnaStyle.h"
#include "host/KPFile.h"
#include "keyval/SensorKeys.h"
#include "host/sy_system.h"
#include "diag/DeviceRoot.h"
#include "storage/SensorFile.h"

using namespace sensor_detail;

namespace {

// The first entry with the key, or null.
KeyVal* findEntry(KeyVal* p_pKeyVal, u32 p_nNum, u32 p_nKey) {
    if (p_pKeyVal == nullptr)
        return nullptr;
    for (u32 i = 0; i < p_nNum; ++i) {
        if (p_pKeyVal[i].key == p_nKey)
            return &p_pKeyVal[i];
    }
    return nullptr;
}

void setFirst(KeyVal* p_pKeyVal, u32 p_nNum, u32 p_nKey, u32 p_nValue) {
    KeyVal* pEntry = findEntry(p_pKeyVal, p_nNum, p_nKey);
    if (pEntry != nullptr)
        pEntry->value = p_nValue;
}

bool fileExists(const std::string& p_strDevicePath) {
    return ::access(sensorDevicePath(p_strDevicePath).c_str(), F_OK) == 0;
}

// The bytes of a stored scheme file and its size; no bytes when it cannot be
// read. A file far larger than any scheme is not read past the bound: it
// cannot fit the layout anyway.
std::string readStoredBytes(const std::string& p_strDevicePath, int64_t& p_nBytes) {
    const int64_t kMaxBytes = 1 << 20;
    p_nBytes = 0;
    KPFile objFile;
    const std::string strPath = sensorDevicePath(p_strDevicePath);
    if (sensorIsSpecialFile(strPath) || !objFile.open(strPath.c_str(), KPFile::modeRead))
        return {};
    const int64_t nLength = objFile.getLength();
    std::string strBytes(static_cast<size_t>(nLength < 0 ? 0 : std::min(nLength, kMaxBytes)), '\0');
    if (strBytes.empty())
        return {};
    const int nRead = objFile.read(&strBytes[0], static_cast<int>(strBytes.size()));
    if (nRead <= 0)
        return {};
    strBytes.resize(static_cast<size_t>(nRead));
    p_nBytes = nLength;
    return strBytes;
}

// The whole records among the bytes of a file.
std::vector<KeyVal> wholeRecords(const std::string& p_strBytes) {
    std::vector<KeyVal> vecRecords(p_strBytes.size() / sizeof(KeyVal));
    if (!vecRecords.empty())
        std::memcpy(vecRecords.data(), p_strBytes.data(), vecRecords.size() * sizeof(KeyVal));
    return vecRecords;
}

// A stored file is in the factory's layout when every key byte it holds is
// the factory's key byte in that place: the whole file holds the factory's
// keys in the factory's order, a short one (cut at its end, or empty) a
// leading part of them. Then the raw load puts every value it holds in its
// place. A longer file, or one with other keys, is of another layout.
bool inFactoryLayout(const std::string& p_strBytes, int64_t p_nBytes, const KeyVal* p_pFct,
                     u32 p_nNum) {
    const int64_t nWhole = static_cast<int64_t>(p_nNum) * static_cast<int64_t>(sizeof(KeyVal));
    if (p_nBytes > nWhole || static_cast<int64_t>(p_strBytes.size()) != p_nBytes)
        return false;
    const char* pFctBytes = reinterpret_cast<const char*>(p_pFct);
    for (size_t i = 0; i < p_strBytes.size(); ++i) {
        if (i % sizeof(KeyVal) < sizeof(p_pFct->key) && p_strBytes[i] != pFctBytes[i])
            return false;
    }
    return true;
}

// Puts the stored values into a scheme laid out as the factory values: the
// n-th record of a key in the file gives the value of the n-th entry of that
// key in the scheme. A key the factory no longer has is dropped; a new key
// keeps its factory value. The number of values kept.
u32 remapByKey(const std::vector<KeyVal>& p_vecStored, const KeyVal* p_pFct, KeyVal* p_pScheme,
               u32 p_nNum) {
    std::memcpy(p_pScheme, p_pFct, p_nNum * sizeof(KeyVal));
    std::vector<bool> vecTaken(p_nNum, false);
    u32 nKept = 0;
    for (const KeyVal& stStored : p_vecStored) {
        for (u32 i = 0; i < p_nNum; ++i) {
            if (!vecTaken[i] && p_pFct[i].key == stStored.key) {
                p_pScheme[i].value = stStored.value;
                vecTaken[i] = true;
                ++nKept;
                break;
            }
        }
    }
    return nKept;
}

} // namespace

// Builds the configuration, the factory values and the schemes, applies the
// first scheme and starts the worker. Every failure is reported and start-up
// goes on: the result is always true.
bool ISensorController::init(const ModuleConfigure& p_objModuleConfigure) {
    // The host starts a controller while no other call reaches it and its
    // worker does not run yet: start-up fills the schemes and makes the
    // first switch as the controller's sole user, without the mutex.
    SoleUse objSoleUse(*this);
    // Start-up in progress: a previous start's finished state no longer holds.
    clearFlag(m_nFlags, initing_flag | inited_flag);
    setFlag(m_nFlags, initing_flag);

    // The factory data may fill up to its capacity whatever row count a
    // previous start-up left behind, so the room is never below it. Taken
    // before the style documents come and go: a block asked for after a
    // document is freed makes the allocator merge all its freed nodes, which
    // the next document's parse would otherwise take back one by one.
    const u32 nFctRoom =
        m_nKeyCmdNum > SENSOR_FACTORY_CAPACITY ? m_nKeyCmdNum : SENSOR_FACTORY_CAPACITY;
    KeyVal* pFctTmp = static_cast<KeyVal*>(std::calloc(nFctRoom, sizeof(KeyVal)));
    m_pstKeyValTmp2 = static_cast<KeyVal*>(std::calloc(nFctRoom, sizeof(KeyVal)));
    m_pFctKeyVal = pFctTmp;

    // The channel's configuration: module, merged style, languages.
    SNS_ASSERT_TEXT(SNS_SUCCESS == initSysConf(m_nCameraID, p_objModuleConfigure, &m_stSysConf),
                    "SNS_SUCCESS == initSysConf(m_nCameraID,p_objModuleConfigure, &m_stSysConf)",
                    "");

    // The factory values, from the style as the ISP's ranges rewrite it.
    m_nKeyValSum = 0;
    SNS_ASSERT_TEXT(SNS_SUCCESS == getFctData(m_nCameraID, m_stSysConf.szUIStyle, m_pFctKeyVal,
                                              &m_nKeyValSum, m_bShowWDRFalg),
                    "SNS_SUCCESS == getFctData(m_nCameraID,m_stSysConf.szUIStyle, m_pFctKeyVal, "
                    "&m_nKeyValSum,m_bShowWDRFalg)",
                    "");
    if (m_nKeyValSum > nFctRoom)
        m_nKeyValSum = nFctRoom;

    // One block for every scheme and the factory slot; +1 keeps the block
    // a real allocation even for an empty factory set.
    const u32 nSchemeSum = m_stSysConf.nSchemeSum;
    const u32 nKeyValSum = m_nKeyValSum;
    KeyVal* pBlock = static_cast<KeyVal*>(
        std::calloc(static_cast<size_t>(nSchemeSum + 1) * nKeyValSum + 1, sizeof(KeyVal)));
    m_ppUserKeyVal = static_cast<KeyVal**>(std::calloc(nSchemeSum + 1, sizeof(KeyVal*)));
    SNS_ASSERT(pBlock != nullptr && m_ppUserKeyVal != nullptr, "nSchemeSum(%u) m_nKeyValSum(%u)\n",
               nSchemeSum, nKeyValSum);
    if (pBlock == nullptr || m_ppUserKeyVal == nullptr) {
        // Without room for the schemes nothing below can run; keep the
        // controller in its shut-down shape.
        std::free(pBlock);
        std::free(m_ppUserKeyVal);
        std::free(pFctTmp);
        m_ppUserKeyVal = nullptr;
        m_pFctKeyVal = nullptr;
        m_nKeyValSum = 0;
        clearFlag(m_nFlags, initing_flag);
        setFlag(m_nFlags, inited_flag);
        return true;
    }
    for (u32 s = 0; s <= nSchemeSum; ++s)
        m_ppUserKeyVal[s] = pBlock + static_cast<size_t>(s) * nKeyValSum;
    SNS_DBG("m_nKeyCmdNum(%d), m_nKeyValNum(%d)\n", m_nKeyCmdNum, m_nKeyValSum);

    // The factory slot is the last array of the block; the temporary goes.
    if (nKeyValSum > 0)
        std::memcpy(m_ppUserKeyVal[nSchemeSum], pFctTmp, nKeyValSum * sizeof(KeyVal));
    std::free(pFctTmp);
    m_pFctKeyVal = m_ppUserKeyVal[nSchemeSum];

    // Files of another version may not fit these keys: they are deleted.
    u32 nLocalVersion = 0;
    if (getVersion(&nLocalVersion) != SNS_SUCCESS || nLocalVersion != m_nVersion) {
        SNS_WARN("check the sensor version,   local(%u) --> libsensordll.so(%u), source the cmd: "
                 "rm -rf /mnt/mtd/code/config*/sensor*\n",
                 nLocalVersion, m_nVersion);
        (void)sy_system(sensorRemoveSchemeFilesCommand().c_str(), 30);
    }

    // Vehicle detection without an infrared choice is a plate-reading camera.
    MachineInfo objMachineInfo;
    (void)SystemInfoParser::parseMachineInfo(sensorDevicePath(SENSOR_MACHINE_INFO_FILE),
                                             objMachineInfo);
    DeviceType objDeviceType(objMachineInfo.getDeviceType());
    const char* szDetail = m_stSysConf.moduleConfig.szDetail;
    if (objDeviceType.getId() == DeviceType::VEHICLE_DETECT &&
        std::strstr(szDetail, "(isInfrared=0)") == nullptr &&
        std::strstr(szDetail, "(isInfrared=1)") == nullptr)
        m_bLprMode = true;

    // Every user scheme: written from the factory values when missing, then loaded.
    for (u32 s = 0; s < nSchemeSum; ++s) {
        const std::string strName = sensorSchemeFile(m_nCameraID, static_cast<int>(s));
        if (!fileExists(strName)) {
            const KeyVal* pSource = m_pFctKeyVal;
            if (!m_bLprMode) {
                if (s == 0)
                    (void)setKeyValToCache(nSchemeSum, KEY_SCHEME_MODE, 0, true);
            } else if (s == 1 && m_pstKeyValTmp2 != nullptr) {
                // The night scheme of a plate-reading device: colour off,
                // short shutter, metering and strong near infrared.
                std::memcpy(m_pstKeyValTmp2, m_pFctKeyVal, nKeyValSum * sizeof(KeyVal));
                setFirst(m_pstKeyValTmp2, nKeyValSum, KEY_DN_MODE, 0);
                setFirst(m_pstKeyValTmp2, nKeyValSum, KEY_MAX_SHUTTER, 18);
                setFirst(m_pstKeyValTmp2, nKeyValSum, KEY_METER_AREA, 1);
                setFirst(m_pstKeyValTmp2, nKeyValSum, KEY_IR_MODE, 2);
                setFirst(m_pstKeyValTmp2, nKeyValSum, KEY_IR_MANUAL_STRG_NEAR, 40);
                pSource = m_pstKeyValTmp2;
            }
            (void)keyValToFile(strName.c_str(), pSource, nKeyValSum);
        }
        // A file in the factory's layout (the usual case) is read once, and
        // that read is the raw load. A short one (cut, empty or unreadable)
        // gets the raw load itself, with its reports, over the factory
        // values: what the file does not reach stays the factory's, so a
        // record cut in two keeps the file's first bytes. A file of another
        // layout is read again by the raw load, for its reports, and then
        // taken record by record by key (a style update may change the keys
        // without a new stamp).
        int64_t nStoredBytes = 0;
        const std::string strBytes = readStoredBytes(strName, nStoredBytes);
        const bool bWhole =
            nStoredBytes == static_cast<int64_t>(nKeyValSum) * static_cast<int64_t>(sizeof(KeyVal));
        if (nKeyValSum > 0 && inFactoryLayout(strBytes, nStoredBytes, m_pFctKeyVal, nKeyValSum)) {
            if (bWhole) {
                std::memcpy(m_ppUserKeyVal[s], strBytes.data(), nKeyValSum * sizeof(KeyVal));
            } else {
                std::memcpy(m_ppUserKeyVal[s], m_pFctKeyVal, nKeyValSum * sizeof(KeyVal));
                (void)keyValFromFile(strName.c_str(), m_ppUserKeyVal[s], nKeyValSum);
            }
        } else {
            (void)keyValFromFile(strName.c_str(), m_ppUserKeyVal[s], nKeyValSum);
            const std::vector<KeyVal> vecStored = wholeRecords(strBytes);
            const u32 nKept = remapByKey(vecStored, m_pFctKeyVal, m_ppUserKeyVal[s], nKeyValSum);
            if (!vecStored.empty())
                SNS_WARN("%s does not fit the factory layout: %u of its %u records kept by key\n",
                         strName.c_str(), nKept, static_cast<u32>(vecStored.size()));
        }
        if (s == 0) {
            const KeyVal* pMode = findEntry(m_ppUserKeyVal[0], nKeyValSum, KEY_SCHEME_MODE);
            const u32 nMode = pMode != nullptr ? pMode->value : 0;
            m_bTimeScheme = nMode == 1;
            m_bDNScheme = nMode == 2;
        }
    }

    // The stamp names this version from now on.
    SNS_ASSERT_TEXT(SNS_SUCCESS == setVersion(m_nVersion), "SNS_SUCCESS == setVersion(m_nVersion)",
                    "m_nVersion(%d)\n", m_nVersion);

    // The key-command table.
    buildKeyCmdMap();

    // The scratch array for parameter texts.
    m_pstKeyValTmp = static_cast<KeyVal*>(std::calloc(nKeyValSum + 1, sizeof(KeyVal)));
    // Until a parameter text is parsed into it, the scratch array holds the
    // first scheme as start-up found it: a return to the last parameters
    // whose file cannot be read then re-applies real keys, never empty rows
    // that would reach the ISP as command 0.
    if (m_pstKeyValTmp != nullptr && m_ppUserKeyVal != nullptr && nKeyValSum > 0)
        std::memcpy(m_pstKeyValTmp, m_ppUserKeyVal[0], nKeyValSum * sizeof(KeyVal));

    // A fixed scheme applies scheme 0 now; the automatic modes leave it to the worker.
    if (!m_bTimeScheme && !m_bDNScheme)
        (void)switch_to(0, false);

    // One round of the worker on the calling thread ...
    (void)sensorThread();

    // ... then the worker itself, once a second.
    SNS_ASSERT_TEXT(m_pSensorThread->start(), "m_pSensorThread->start()", "");

    // Streams at 50/60 fps cannot carry wide dynamic range; small
    // encoded streams of the AV200 models cannot carry beaway.
    m_bShowWDRFalg = true;
    setshowBeawayFalg(true);
    std::vector<AVStreamParam> vecStreams;
    if (m_pVideoStreamModule != nullptr)
        (void)m_pVideoStreamModule->getAVStreamParams(vecStreams);
    const std::string strModel = objMachineInfo.getHardwareModel();
    const bool bAv200 = strModel == "Hi3516AV200" || strModel == "Hi3516AV200Thermal";
    for (const AVStreamParam& objStream : vecStreams) {
        if (objStream.getFrameRate() == 50 || objStream.getFrameRate() == 60)
            m_bShowWDRFalg = false;
        if (bAv200 && objStream.getVideoEncoderType() == 1 && objStream.getVideoHeight() < 256)
            setshowBeawayFalg(false);
    }

    // Started.
    clearFlag(m_nFlags, initing_flag);
    setFlag(m_nFlags, inited_flag);
    SNS_DBG("ISensorController::initSensor  success\n");
    return true;
}

// Stops the worker and frees what init allocated. Before init, and once the
// controller is already shut down, it does nothing.
void ISensorController::uinit() {
    if (!testFlag(m_nFlags, inited_flag))
        return;
    // The worker runs only after init has allocated the scheme arrays, so
    // nothing allocated means nothing to stop either.
    const bool bAllocated = m_ppUserKeyVal != nullptr || m_pstKeyValTmp != nullptr ||
                            m_pstKeyValTmp2 != nullptr || m_pKeyCmdMap != nullptr;
    if (!bAllocated)
        return;

    setFlag(m_nFlags, uniniting_flag);
    SNS_ASSERT_TEXT(m_pSensorThread->stop(), "m_pSensorThread->stop()", "");

    std::free(m_pstKeyValTmp);
    m_pstKeyValTmp = nullptr;
    std::free(m_pKeyCmdMap);
    m_pKeyCmdMap = nullptr;
    if (m_ppUserKeyVal != nullptr)
        std::free(m_ppUserKeyVal[0]); // the scheme block starts at scheme 0
    std::free(m_ppUserKeyVal);
    m_ppUserKeyVal = nullptr;
    std::free(m_pstKeyValTmp2);
    m_pstKeyValTmp2 = nullptr;

    uinitSysConf(&m_stSysConf);
    // The released texts must not be reached again (style requests after
    // shut-down see no style). The module description is kept: a reset
    // starts the controller again from it.
    m_stSysConf.szUIStyle = nullptr;
    m_stSysConf.pLanguageTab = nullptr;
    m_stSysConf.nLanguageNum = 0;

    m_nParamMode = 1;
    m_nLastScheme = -1;
    m_nCurScheme = -1;
    m_nKeyValSum = 0;
    m_pFctKeyVal = nullptr;
    clearFlag(m_nFlags, uniniting_flag);
}
