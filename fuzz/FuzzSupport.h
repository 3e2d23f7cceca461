// What every fuzz target shares: a private device root holding the sample
// device tree (never the real /mnt, /hd1 or /tmp paths), a quiet standard
// output (the library's own prints would slow the fuzzer down), and a
// controller started afresh for each input, its worker held between rounds.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
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
    // In memory where there is a tmpfs: start-up writes its version stamp
    // and syncs it, which on a disk would cost more than the input's work.
    char szShm[] = "/dev/shm/sensor-fuzz-XXXXXX";
    char szTmp[] = "/tmp/sensor-fuzz-XXXXXX";
    const char* szDir = ::mkdtemp(szShm);
    if (szDir == nullptr)
        szDir = ::mkdtemp(szTmp);
    if (szDir == nullptr)
        std::abort();
    rootPath() = szDir;
    ::setenv("SENSOR_ROOT", szDir, 1);
    sim::populateDeviceRoot(rootPath(), std::string(SENSOR_SOURCE_DIR) + "/data/device");
    for (const char* szDir2 :
         {"/mnt/mtd/code/config_file", "/mnt/mtd/log", "/mnt/mtd/sign", "/tmp"})
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
    return sim::machineModule(rootPath());
}

inline sim::SimVideoStreamModule& video() {
    static sim::SimVideoStreamModule objVideo;
    return objVideo;
}

// The scheme files and version stamp a first start on the sample tree
// writes, kept to be put back before every input: the same flash each time,
// without start-up writing (and syncing) its defaults anew.
using Flash = std::vector<std::pair<std::string, std::string>>;

inline Flash& flashSnapshot() {
    static Flash vecFiles;
    return vecFiles;
}

inline const char* flashDir() {
    return "/mnt/mtd/code/config_file";
}

inline void takeFlashSnapshot() {
    Flash& vecFiles = flashSnapshot();
    vecFiles.clear();
    for (const auto& entry : std::filesystem::directory_iterator(real(flashDir())))
        if (entry.is_regular_file())
            vecFiles.emplace_back(
                entry.path().filename().string(),
                readFile(std::string(flashDir()) + "/" + entry.path().filename().string()));
}

inline void restoreFlash() {
    std::error_code ec;
    std::filesystem::remove_all(real(flashDir()), ec);
    std::filesystem::create_directories(real(flashDir()), ec);
    for (const auto& file : flashSnapshot())
        writeFile(std::string(flashDir()) + "/" + file.first, file.second);
}

// A controller started on the sample tree for one input only. Every input
// starts from the same state (the same flash, the simulated ISP back to its
// default profile, no notices recorded), so that what an input finds replays
// from that input alone, whatever ran before it.
class FreshController {
public:
    FreshController() {
        setUp();
        static const ModuleConfigure objModule = sampleModule();
        static const bool bSnapshot = [] {
            // The first start writes the defaults; its files are the flash
            // of every start that follows.
            std::error_code ec;
            std::filesystem::remove_all(real(flashDir()), ec);
            std::filesystem::create_directories(real(flashDir()), ec);
            sim::Isp::instance().reset();
            ISensorController objFirst;
            objFirst.setChannelID(1);
            objFirst.setVideoStreamModule(&video());
            (void)objFirst.init(objModule);
            objFirst.uinit();
            takeFlashSnapshot();
            return true;
        }();
        (void)bSnapshot;
        restoreFlash();
        sim::Isp::instance().reset();
        video().clearNotices();
        m_ctl.setChannelID(1);
        m_ctl.setVideoStreamModule(&video());
        (void)m_ctl.init(objModule);
    }
    ~FreshController() { m_ctl.uinit(); }
    FreshController(const FreshController&) = delete;
    FreshController& operator=(const FreshController&) = delete;

    ISensorController& operator*() { return m_ctl; }
    ISensorController* operator->() { return &m_ctl; }

private:
    ISensorController m_ctl;
};

} // namespace fuzzsupport
