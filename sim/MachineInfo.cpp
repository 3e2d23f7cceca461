// The simulated host's machine information and its ini parser.
#include "host/MachineInfo.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include <sys/stat.h>

namespace {

std::string trimmed(const std::string& text) {
    const std::string::size_type first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    const std::string::size_type last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

} // namespace

MachineInfo::MachineInfo() : m_nDeviceType(DeviceType::IPCAMERA) {}

int MachineInfo::getDeviceType() const {
    return m_nDeviceType;
}

std::string MachineInfo::getHardwareModel() const {
    return m_strHardwareModel;
}

std::string MachineInfo::getHardwareCode() const {
    return m_strHardwareCode;
}

void MachineInfo::setDeviceType(int type) {
    m_nDeviceType = type;
}

void MachineInfo::setHardwareModel(const std::string& model) {
    m_strHardwareModel = model;
}

void MachineInfo::setHardwareCode(const std::string& code) {
    m_strHardwareCode = code;
}

// Keys count before any section and inside [machine]; other sections, unknown
// keys, comments and malformed lines are skipped.
bool SystemInfoParser::parseMachineInfo(const std::string& path, MachineInfo& info) {
    // Only a regular file is read, as for the module configuration: a pipe
    // would block the host for ever.
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    std::ifstream in(path);
    if (!in)
        return false;
    bool bInMachine = true;
    std::string line;
    while (std::getline(in, line)) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#' || line[0] == ';')
            continue;
        if (line[0] == '[') {
            const std::string::size_type close = line.find(']');
            bInMachine =
                close != std::string::npos && trimmed(line.substr(1, close - 1)) == "machine";
            continue;
        }
        const std::string::size_type eq = line.find('=');
        if (!bInMachine || eq == std::string::npos)
            continue;
        const std::string key = trimmed(line.substr(0, eq));
        const std::string value = trimmed(line.substr(eq + 1));
        if (key == "device_type") {
            // A value that is not a whole decimal number leaves the type as it was.
            char* end = nullptr;
            errno = 0;
            const long type = std::strtol(value.c_str(), &end, 10);
            if (!value.empty() && end != nullptr && *end == '\0' && errno == 0)
                info.setDeviceType(static_cast<int>(type));
        } else if (key == "hardware_model") {
            info.setHardwareModel(value);
        } else if (key == "hardware_code") {
            info.setHardwareCode(value);
        }
    }
    return true;
}

DeviceType::DeviceType(int id) : m_nId(id) {}

int DeviceType::getId() const {
    return m_nId;
}
