// The system configuration of one channel.
#pragma once

#include "diag/SensorDefs.h"
#include "host/ModuleConfigure.h"

struct ModuleConfig {
    u32 nModuleId;
    char szLabel[32];
    char szTag[10];
    char szParameters[256];
    char szDetail[512]; // "(name=value)(name=value)..."
};

struct UILanguageEntry {
    u32 nLanguageId;
    char szReserved[32];
    char* szLanguageFile;
    char* szCommonFile;
};

struct SysConfig {
    ModuleConfig moduleConfig;
    u32 nSchemeSum; // user schemes; the factory slot is index nSchemeSum
    u32 nLanguageNum;
    UILanguageEntry* pLanguageTab;
    char* szUIStyle; // the merged style document, NUL-terminated
    u32 nDeviceType;
};

#define SENSOR_MACHINE_INFO_FILE "/mnt/mtd/code/factory_setting/machineinfo.ini"
#define SENSOR_MODULE_CONFIG_FILE "/hd1/moduleConfig/moduleConfig.xml"
// The folders of the style documents and of their diversity rules.
#define SENSOR_STYLE_FOLDER "/hd1/moduleConfig/sensorConfig/style/"
#define SENSOR_STYLE_DIVERSITY_FOLDER "/hd1/moduleConfig/sensorConfig/styleDiversity/"

// Fills conf for channel cameraId (from 1); 0 always, failures are reported.
SENSOR_API int initSysConf(int cameraId, const ModuleConfigure& module, SysConfig* conf);
SENSOR_API void uinitSysConf(SysConfig* conf);
