#include "Camera.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <tinyxml.h>

#include "config/SysConfig.h"
#include "host/MachineInfo.h"
#include "sim/SimHost.h"
#include "diag/DeviceRoot.h"
#include "sim/SimIsp.h"
#include "sim/VirtualSensor.h"
#include "storage/SensorFile.h"

namespace fs = std::filesystem;

namespace sensorctl {

namespace {

const char* const kStyleDir = SENSOR_STYLE_FOLDER;

// Folders a camera's flash always has, which a copied tree may lack.
const char* const kDeviceDirs[] = {"/mnt/mtd/code/config_file", "/mnt/mtd/log", "/mnt/mtd/sign",
                                   "/tmp"};

bool writeWholeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

// Replaces the value of group "(name=...)" in a detail text, or appends it.
std::string withDetailField(const std::string& detail, const std::string& name,
                            const std::string& value) {
    const std::string strOpen = "(" + name + "=";
    const size_t nPos = detail.find(strOpen);
    if (nPos == std::string::npos)
        return detail + strOpen + value + ")";
    const size_t nEnd = detail.find(')', nPos);
    if (nEnd == std::string::npos)
        return detail.substr(0, nPos) + strOpen + value + ")";
    return detail.substr(0, nPos) + strOpen + value + detail.substr(nEnd);
}

} // namespace

bool readWholeFile(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream ss;
    ss << in.rdbuf();
    out = ss.str();
    return true;
}

Camera::Camera(const CameraOptions& options) : m_options(options) {}

Camera::~Camera() {
    stop();
    m_pController.reset();
    if (m_bTemporary && !m_options.bKeep && !m_strRoot.empty()) {
        std::error_code ec;
        fs::remove_all(m_strRoot, ec);
    }
}

int Camera::ispChannel() const {
    const MachineInfo objInfo = sim::machineInfo(sensorDeviceRoot());
    const int nChannel = objInfo.getDeviceType() == DeviceType::LPR ? 2 : m_options.nChannel;
    return nChannel - 1;
}

bool Camera::prepareRoot(std::string& error) {
    bool bNew = false;
    if (m_options.strRoot.empty()) {
        char szTemplate[] = "/tmp/sensorctl-XXXXXX";
        if (::mkdtemp(szTemplate) == nullptr) {
            error = "cannot create a temporary root";
            return false;
        }
        m_strRoot = szTemplate;
        m_bTemporary = true;
    } else {
        m_strRoot = fs::absolute(m_options.strRoot).lexically_normal().string();
        std::error_code ec;
        fs::create_directories(m_strRoot, ec);
        if (ec) {
            error = "cannot create root " + m_strRoot + ": " + ec.message();
            return false;
        }
    }
    if (!fs::exists(m_strRoot + kStyleDir)) {
        if (!sim::populateDeviceRoot(m_strRoot, m_options.strDataDir)) {
            error = "cannot populate " + m_strRoot + " from " + m_options.strDataDir;
            return false;
        }
        bNew = true;
    }
    for (const char* dir : kDeviceDirs) {
        std::error_code ec;
        fs::create_directories(m_strRoot + dir, ec);
    }
    ::setenv("SENSOR_ROOT", m_strRoot.c_str(), 1);
    if (bNew && !writeMachineInfo(error))
        return false;
    if (bNew && !writeModuleDetail(error))
        return false;
    if (m_options.bDebug && !writeWholeFile(sensorDevicePath("/mnt/mtd/sign/Debug.sign"),
                                            std::to_string(m_options.nDebug) + "\n")) {
        error = "cannot write the debug sign file";
        return false;
    }
    return true;
}

bool Camera::writeMachineInfo(std::string& error) {
    if (m_options.nDeviceType < 0 && m_options.strModel.empty())
        return true;
    const std::string strPath = sensorDevicePath(SENSOR_MACHINE_INFO_FILE);
    const MachineInfo objInfo = sim::machineInfo(sensorDeviceRoot());
    const int nType = m_options.nDeviceType >= 0 ? m_options.nDeviceType : objInfo.getDeviceType();
    const std::string strModel =
        m_options.strModel.empty() ? objInfo.getHardwareModel() : m_options.strModel;
    std::ostringstream text;
    text << "# written by sensorctl\n[machine]\n"
         << "device_type=" << nType << "\n"
         << "hardware_model=" << strModel << "\n"
         << "hardware_code=" << objInfo.getHardwareCode() << "\n";
    if (!writeWholeFile(strPath, text.str())) {
        error = "cannot write " + strPath;
        return false;
    }
    return true;
}

bool Camera::writeModuleDetail(std::string& error) {
    if (m_options.strDetail.empty() && m_options.nMaxScheme < 0 && m_options.strModel.empty())
        return true;
    const std::string strPath = sensorDevicePath(SENSOR_MODULE_CONFIG_FILE);
    TiXmlDocument objDoc;
    if (!objDoc.LoadFile(strPath.c_str())) {
        error = "cannot read " + strPath;
        return false;
    }
    const MachineInfo objInfo = sim::machineInfo(sensorDeviceRoot());
    TiXmlElement* pRoot = objDoc.RootElement();
    TiXmlElement* pModule = pRoot ? pRoot->FirstChildElement("module") : nullptr;
    if (pModule == nullptr) {
        error = "no module in " + strPath;
        return false;
    }
    // The module this camera starts with is the first one; it follows the
    // machine's model so that the host's parser finds it.
    pModule->SetAttribute("hardware_model", objInfo.getHardwareModel().c_str());
    pModule->SetAttribute("hardware_code", objInfo.getHardwareCode().c_str());
    const char* szDetail = pModule->Attribute("detail");
    std::string strDetail =
        m_options.strDetail.empty() ? (szDetail ? szDetail : "") : m_options.strDetail;
    if (m_options.nMaxScheme >= 0)
        strDetail = withDetailField(strDetail, "max_scheme", std::to_string(m_options.nMaxScheme));
    pModule->SetAttribute("detail", strDetail.c_str());
    if (!objDoc.SaveFile(strPath.c_str())) {
        error = "cannot write " + strPath;
        return false;
    }
    return true;
}

ModuleConfigure Camera::readModuleConfigure() const {
    return sim::machineModule(sensorDeviceRoot());
}

bool Camera::start(std::string& error) {
    if (!prepareRoot(error))
        return false;
    sim::setTimeScale(m_options.dTimeScale);
    if (m_options.nClockHour >= 0)
        sim::setDeviceTime(m_options.nClockHour, m_options.nClockMinute);
    m_pController.reset(new ISensorController());
    m_pController->setChannelID(m_options.nChannel);
    m_pController->setVideoStreamModule(&m_objVideo);
    return run(error);
}

bool Camera::restart(std::string& error) {
    if (!m_pController) {
        error = "the camera was never started";
        return false;
    }
    stop();
    return run(error);
}

bool Camera::run(std::string& error) {
    const ModuleConfigure objModule = readModuleConfigure();
    u32 nSchemes = 0;
    if (getDetailFieldTou32(objModule.getDetail().c_str(), "max_scheme", &nSchemes) != 0)
        nSchemes = 4;
    m_nSchemes = nSchemes;
    // The ISP is set up for the module it runs (no lens commands on a fixed lens).
    sim::Isp::instance().runModule(objModule.getDetail());
    m_pController->init(objModule);
    m_bStarted = true;
    // The ISP meters the scene's light whether or not anyone watches the
    // picture, so that automatic day/night switches on its own.
    sim::VirtualSensor::forChannel(ispChannel()).startLightMeter();
    // init reports a failure and goes on, as the library does for its host;
    // the camera checks what start-up left. Without a current scheme (no
    // room for the schemes, say) every later answer would be about nothing.
    int nScheme = -1;
    m_pController->getParamScheme(nScheme);
    if (!m_pController->getSensorStatus() || nScheme < 0) {
        error = "the camera did not start: the controller has no current scheme (" +
                std::to_string(nSchemes) + " schemes asked for; see its report above)";
        stop();
        return false;
    }
    return true;
}

void Camera::stop() {
    if (m_bStarted)
        sim::VirtualSensor::forChannel(ispChannel()).stopLightMeter();
    if (m_bStarted && m_pController)
        m_pController->uinit();
    m_bStarted = false;
}

} // namespace sensorctl
