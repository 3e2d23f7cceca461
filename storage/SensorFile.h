// Whole-file helpers: scheme files, the version stamp, and the raw reads of
// the style documents. Paths are device paths (see DeviceRoot.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "diag/SensorDefs.h"
#include "keyval/KeyVal.h"

// The stamp of the scheme-file layout this library writes.
#define SENSOR_VERSION_FILE "/mnt/mtd/code/config_file/snsversion.cfg"
#define SENSOR_SCHEME_FILE "/mnt/mtd/code/config_file/sensor%d.cfg"
#define SENSOR_THERMAL_SCHEME_FILE "/mnt/mtd/code/config_file/sensor-thermal%d.cfg"

// The device path of a channel's scheme file: the thermal channel (camera id
// 2) keeps its schemes in files of their own.
inline std::string sensorSchemeFile(int p_nCameraID, int p_nScheme) {
    char szName[128] = {0};
    std::snprintf(szName, sizeof(szName),
                  p_nCameraID == 2 ? SENSOR_THERMAL_SCHEME_FILE : SENSOR_SCHEME_FILE, p_nScheme);
    return szName;
}

SENSOR_API int64_t getFileLen(const char* file_name);
// The bytes read (== length), or -1. The buffer is not terminated.
SENSOR_API int64_t loadFromFile(const char* file_name, void* data, int64_t file_len);
// The bytes written.
SENSOR_API int saveToFile(const char* file_name, const void* data, int64_t file_len);
// Both return 0 always; failures are reported.
SENSOR_API int keyValFromFile(const char* file_name, KeyVal* p_pKeyVal, u32 p_nKeyValNum);
SENSOR_API int keyValToFile(const char* file_name, const KeyVal* p_pKeyVal, u32 p_nKeyValSum);
// 0, or -1 when the stamp is missing or shorter than 4 bytes.
SENSOR_API int getVersion(u32* p_nVersion);
// 0 when the 4 bytes were written, else -1.
SENSOR_API int setVersion(u32 p_nVersion);

// Fields of a module detail text "(name=value)(name=value)...".
// 0 and the value, or -1 when the field is absent.
SENSOR_API int getDetailFieldTou32(const char* p_szDetail, const char* p_szName, u32* p_nValue);
// Copies the value text into out without a terminator (the caller zeroes it);
// at most p_nOutSize bytes when given.
SENSOR_API int getDetailFieldToStr(const char* p_szDetail, const char* p_szName, char* p_szOut);
SENSOR_API int getDetailFieldToStrN(const char* p_szDetail, const char* p_szName, char* p_szOut,
                                    size_t p_nOutSize);
