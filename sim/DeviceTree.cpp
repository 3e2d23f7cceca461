// Copies the sample device tree into a test's device root, and picks the
// module a device tree describes for its machine.
#include <filesystem>
#include <system_error>
#include <vector>

#include "config/SysConfig.h"
#include "host/MachineInfo.h"
#include "sim/SimHost.h"

namespace sim {

bool populateDeviceRoot(const std::string& root, const std::string& dataDir) {
    namespace fs = std::filesystem;
    std::error_code ec;
    if (root.empty() || !fs::is_directory(dataDir, ec))
        return false;
    fs::create_directories(root, ec);
    if (ec)
        return false;
    fs::copy(dataDir, root, fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
    return !ec;
}

MachineInfo machineInfo(const std::string& root) {
    MachineInfo objInfo;
    (void)SystemInfoParser::parseMachineInfo(root + SENSOR_MACHINE_INFO_FILE, objInfo);
    return objInfo;
}

ModuleConfigure machineModule(const std::string& root) {
    const MachineInfo objInfo = machineInfo(root);
    std::vector<ModuleConfigure> vecModules;
    (void)ModuleConfigureParser::parse(root + SENSOR_MODULE_CONFIG_FILE, objInfo.getHardwareModel(),
                                       objInfo.getHardwareCode(), vecModules);
    return vecModules.empty() ? ModuleConfigure() : vecModules.front();
}

} // namespace sim
