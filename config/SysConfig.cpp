#define SNS_SOURCE_UNIT "sensor.cpp"
#include "diag/SensorDiag.h"

#include "config/SysConfig.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "config/StyleMerge.h"
#include "host/MachineInfo.h"
#include "diag/DeviceRoot.h"
#include "storage/SensorFile.h"

namespace {

const u32 kDefaultSchemeSum = 4;

// Copies text with its terminator, cut to the field when too long.
template <size_t N> void copyField(char (&p_szField)[N], const std::string& p_strText) {
    const size_t nLen = p_strText.size() < N - 1 ? p_strText.size() : N - 1;
    std::memcpy(p_szField, p_strText.data(), nLen);
    p_szField[nLen] = '\0';
}

// Devices whose style is the box-camera family; every other type (domes and
// anything unknown) takes the dome documents.
bool usesCameraStyle(u32 p_nDeviceType) {
    switch (p_nDeviceType) {
        case DeviceType::IPCAMERA:
        case DeviceType::VEHICLE_DETECT:
        case DeviceType::AIMULTI_OBJECT_DETECT:
        case DeviceType::IPDOME:
        case DeviceType::LPR:
        case DeviceType::IPP:
        case DeviceType::HUMAN_TEMPERATURE:
        case DeviceType::THERMAL_DEVICE:
        case DeviceType::THERMAL_DOUBLE_SENSOR_DEVICE:
        case DeviceType::FISHEYE:
            return true;
        default:
            return false;
    }
}

// Channel 2 of a two-sensor device is the thermal imager.
bool usesThermalStyle(int p_nCameraId, u32 p_nDeviceType) {
    if (p_nCameraId != 2)
        return false;
    switch (p_nDeviceType) {
        case DeviceType::LPR:
        case DeviceType::IPP:
        case DeviceType::THERMAL_DOUBLE_SENSOR_DEVICE:
        case DeviceType::DOMECORE:
            return true;
        default:
            return false;
    }
}

std::string chooseDocument(int p_nCameraId, u32 p_nDeviceType, const char* p_szFolder,
                           const char* p_szBaseName) {
    std::string strName = std::string(p_szFolder) + p_szBaseName;
    if (usesThermalStyle(p_nCameraId, p_nDeviceType))
        return strName + "_Thermal.xml";
    return strName + (usesCameraStyle(p_nDeviceType) ? ".xml" : "_dome.xml");
}

// A whole document's block: its length and a terminator.
size_t blockFor(int64_t p_nLen) {
    return static_cast<size_t>(p_nLen > 0 ? p_nLen : 0) + 1;
}

// A zeroed block for a whole document and its terminator, sized by the
// file's length. The length is asked a second time for the zeroing, as the
// design does (each ask reports a missing document); the block is zeroed
// whole whatever that second answer, so the text always ends.
char* documentBlock(const std::string& p_strPath, size_t& p_nBlock) {
    p_nBlock = blockFor(getFileLen(p_strPath.c_str()));
    char* pBlock = static_cast<char*>(std::calloc(p_nBlock, 1));
    (void)getFileLen(p_strPath.c_str());
    return pBlock;
}

// The length to read into a block: the file's, bounded by the block less its
// terminator.
int64_t readLen(int64_t p_nLen, size_t p_nBlock) {
    const int64_t nRoom = static_cast<int64_t>(p_nBlock) - 1;
    return p_nLen < nRoom ? p_nLen : nRoom;
}

} // namespace

int initSysConf(int cameraId, const ModuleConfigure& p_objModuleConfigure, SysConfig* p_stSysConf) {
    std::memset(p_stSysConf, 0, sizeof(*p_stSysConf));
    copyField(p_stSysConf->moduleConfig.szLabel, "xxx");
    copyField(p_stSysConf->moduleConfig.szTag, "xxx");

    p_stSysConf->moduleConfig.nModuleId = p_objModuleConfigure.getModuleId();
    copyField(p_stSysConf->moduleConfig.szDetail, p_objModuleConfigure.getDetail());
    copyField(p_stSysConf->moduleConfig.szParameters, p_objModuleConfigure.getParameters());

    if (getDetailFieldTou32(p_stSysConf->moduleConfig.szDetail, "max_scheme",
                            &p_stSysConf->nSchemeSum) != SNS_SUCCESS)
        p_stSysConf->nSchemeSum = kDefaultSchemeSum;

    MachineInfo machineInfo;
    SNS_ASSERT_TEXT(
        SystemInfoParser::parseMachineInfo(sensorDevicePath(SENSOR_MACHINE_INFO_FILE), machineInfo),
        "SystemInfoParser::parseMachineInfo(\"" SENSOR_MACHINE_INFO_FILE "\", machineInfo)", "");

    p_stSysConf->nDeviceType = static_cast<u32>(machineInfo.getDeviceType());
    // The detail names only five types; the accepted set is the expression's.
    SNS_ASSERT(DeviceType::IPCAMERA == p_stSysConf->nDeviceType ||
                   DeviceType::FACE_DETECT == p_stSysConf->nDeviceType ||
                   DeviceType::VEHICLE_DETECT == p_stSysConf->nDeviceType ||
                   DeviceType::AIMULTI_OBJECT_DETECT == p_stSysConf->nDeviceType ||
                   DeviceType::IPDOME == p_stSysConf->nDeviceType ||
                   DeviceType::LPR == p_stSysConf->nDeviceType ||
                   DeviceType::IPP == p_stSysConf->nDeviceType ||
                   DeviceType::HUMAN_TEMPERATURE == p_stSysConf->nDeviceType ||
                   DeviceType::THERMAL_DEVICE == p_stSysConf->nDeviceType ||
                   DeviceType::THERMAL_DOUBLE_SENSOR_DEVICE == p_stSysConf->nDeviceType ||
                   DeviceType::FISHEYE == p_stSysConf->nDeviceType ||
                   DeviceType::DOMECORE == p_stSysConf->nDeviceType ||
                   DeviceType::THERMAL_DOUBLE_SENSOR_DOME_DEVICE == p_stSysConf->nDeviceType ||
                   DeviceType::DOMECORE_THERMAL_DEVICE == p_stSysConf->nDeviceType,
               "machineinfo, devicetype(%d) error, must be 1 or 4 or 8 or 9 or 13\n",
               static_cast<int>(p_stSysConf->nDeviceType));

    const std::string strStyleFileName =
        chooseDocument(cameraId, p_stSysConf->nDeviceType, SENSOR_STYLE_FOLDER, "Style");
    // The file's length is asked anew for each use: the block, its zeroing
    // and the read (a missing document is reported each time).
    size_t nStyleBlock = 0;
    p_stSysConf->szUIStyle = documentBlock(strStyleFileName, nStyleBlock);
    SNS_ASSERT_TEXT(loadFromFile(strStyleFileName.c_str(), p_stSysConf->szUIStyle,
                                 readLen(getFileLen(strStyleFileName.c_str()), nStyleBlock)) > 0,
                    "loadFromFile(strStyleFileName.c_str(), p_stSysConf->szUIStyle, "
                    "getFileLen(strStyleFileName.c_str())) > 0",
                    "");

    const std::string strStyleDivFileName = chooseDocument(
        cameraId, p_stSysConf->nDeviceType, SENSOR_STYLE_DIVERSITY_FOLDER, "StyleDiversity");
    size_t nDivBlock = 0;
    char* ui_styleDiversity = documentBlock(strStyleDivFileName, nDivBlock);
    SNS_ASSERT_TEXT(loadFromFile(strStyleDivFileName.c_str(), ui_styleDiversity,
                                 readLen(getFileLen(strStyleDivFileName.c_str()), nDivBlock)) > 0,
                    "loadFromFile(strStyleDivFileName.c_str(), ui_styleDiversity, "
                    "getFileLen(strStyleDivFileName.c_str())) > 0",
                    "");

    SNS_ASSERT(SNS_SUCCESS == mergeStyle(&p_stSysConf->moduleConfig, &p_stSysConf->szUIStyle,
                                         ui_styleDiversity),
               "");

    std::free(ui_styleDiversity);
    return SNS_SUCCESS;
}

void uinitSysConf(SysConfig* p_stSysConf) {
    if (p_stSysConf == nullptr)
        return;
    if (p_stSysConf->pLanguageTab != nullptr) {
        for (u32 i = 0; i < p_stSysConf->nLanguageNum; ++i) {
            UILanguageEntry& stEntry = p_stSysConf->pLanguageTab[i];
            std::free(stEntry.szCommonFile);
            stEntry.szCommonFile = nullptr;
            std::free(stEntry.szLanguageFile);
            stEntry.szLanguageFile = nullptr;
        }
        // The table itself is released too, so a controller reset does not
        // leak it; the cleared pointers make a second release harmless.
        std::free(p_stSysConf->pLanguageTab);
        p_stSysConf->pLanguageTab = nullptr;
        p_stSysConf->nLanguageNum = 0;
    }
    std::free(p_stSysConf->szUIStyle);
    p_stSysConf->szUIStyle = nullptr;
}
