// What every fuzz target shares: a private device root holding the sample
// device tree (never the real /mnt, /hd1 or /tmp paths), a quiet standard
// output (the library's own prints would slow the fuzzer down), and a
// started controller whose worker is held between rounds.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <stdlib.h>
#include <unistd.h>

#include "config/SysConfig.h"
#include "controller/ISensorController.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"

namespace fuzzsupport {

inline std::string& rootPath() {
    static std::string strRoot;
    return strRoot;
}

inline std::string real(const std::string& p_strDevicePath) {
    return rootPath() + p_strDevicePath;
}

inline void writeFile(const std::string& p_strDevicePath, const std::string& p_strContent) {
    std::error_code ec;
    std::filesystem::remove_all(real(p_strDevicePath), ec);
    std::filesystem::create_directories(std::filesystem::path(real(p_strDevicePath)).parent_path(),
                                        ec);
    std::ofstream out(real(p_strDevicePath), std::ios::binary | std::ios::trunc);
    out << p_strContent;
}

inline std::string readFile(const std::string& p_strDevicePath) {
    std::ifstream in(real(p_strDevicePath), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Once per process: the private root, quiet output, no waits, held worker.
inline void setUp() {
    if (!rootPath().empty())
        return;
    char szTemplate[] = "/tmp/sensor-fuzz-XXXXXX";
    const char* szDir = ::mkdtemp(szTemplate);
    if (szDir == nullptr)
        std::abort();
    rootPath() = szDir;
    ::setenv("SENSOR_ROOT", szDir, 1);
    sim::populateDeviceRoot(rootPath(), std::string(SENSOR_SOURCE_DIR) + "/data/device");
    for (const char* szDir2 : {"/mnt/mtd/code/config_file", "/mnt/mtd/log", "/mnt/mtd/sign", "/tmp"})
        std::filesystem::create_directories(real(szDir2));
    // The private root goes with the process.
    std::atexit([] {
        std::error_code ec;
        std::filesystem::remove_all(rootPath(), ec);
    });
    if (std::getenv("SENSOR_FUZZ_VERBOSE") == nullptr)
        (void)std::freopen("/dev/null", "w", stdout);
    sim::setTimeScale(0);
    sim::pauseThreads(true);
}

// The module the sample tree describes for its machine.
inline ModuleConfigure sampleModule() {
    MachineInfo objInfo;
    (void)SystemInfoParser::parseMachineInfo(real("/mnt/mtd/code/factory_setting/machineinfo.ini"),
                                             objInfo);
    std::vector<ModuleConfigure> vecModules;
    (void)ModuleConfigureParser::parse(real("/hd1/moduleConfig/moduleConfig.xml"),
                                       objInfo.getHardwareModel(), objInfo.getHardwareCode(),
                                       vecModules);
    return vecModules.empty() ? ModuleConfigure() : vecModules.front();
}

inline sim::SimVideoStreamModule& video() {
    static sim::SimVideoStreamModule objVideo;
    return objVideo;
}

// A controller started on the sample tree, kept for the whole run. What the
// simulated host records of each call is dropped per input, so that a long
// run does not grow with it.
inline ISensorController& startedController() {
    static ISensorController* pCtl = [] {
        setUp();
        ISensorController* p = new ISensorController;
        p->setChannelID(1);
        p->setVideoStreamModule(&video());
        (void)p->init(sampleModule());
        return p;
    }();
    sim::Isp::instance().clearTrace();
    video().clearNotices();
    return *pCtl;
}

} // namespace fuzzsupport
