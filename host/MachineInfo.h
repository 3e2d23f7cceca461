// The host's description of the machine, read from the factory settings.
#pragma once

#include <string>

class MachineInfo {
public:
    MachineInfo();
    int getDeviceType() const;
    std::string getHardwareModel() const;
    std::string getHardwareCode() const;
    void setDeviceType(int type);
    void setHardwareModel(const std::string& model);
    void setHardwareCode(const std::string& code);

private:
    int m_nDeviceType;
    std::string m_strHardwareModel;
    std::string m_strHardwareCode;
};

class SystemInfoParser {
public:
    // false when the file cannot be read; info keeps what it held then.
    static bool parseMachineInfo(const std::string& path, MachineInfo& info);
};

// Device type numbers of the machine information.
class DeviceType {
public:
    enum {
        IPCAMERA = 1,
        FACE_DETECT = 4,
        VEHICLE_DETECT = 8,
        AIMULTI_OBJECT_DETECT = 9,
        IPDOME = 11,
        LPR = 13,
        IPP = 14,
        HUMAN_TEMPERATURE = 15,
        THERMAL_DEVICE = 16,
        THERMAL_DOUBLE_SENSOR_DEVICE = 17,
        FISHEYE = 18,
        DOMECORE = 19,
        THERMAL_DOUBLE_SENSOR_DOME_DEVICE = 20,
        DOMECORE_THERMAL_DEVICE = 104,
    };
    explicit DeviceType(int id);
    int getId() const;

private:
    int m_nId;
};
