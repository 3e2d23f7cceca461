// A simulated camera for the benchmarks: a private device root holding the
// sample device tree, the simulated video pipeline and one controller on
// channel 1, started the way a host starts it.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/SysConfig.h"
#include "controller/ISensorController.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"

namespace bench {

const char* const kSignDevicePath = "/mnt/mtd/sign/Debug.sign";

// A new temporary folder as SENSOR_ROOT, populated with the sample device
// tree, removed again at the end.
class DeviceRoot {
public:
    DeviceRoot() {
        const char* szBase = std::getenv("SENSOR_BENCH_TMP");
        std::string strTemplate =
            std::string(szBase != nullptr ? szBase : "/tmp") + "/sensor-bench-XXXXXX";
        std::vector<char> vecName(strTemplate.begin(), strTemplate.end());
        vecName.push_back('\0');
        const char* szDir = ::mkdtemp(vecName.data());
        m_strPath = szDir != nullptr ? szDir : "";
        ::setenv("SENSOR_ROOT", m_strPath.c_str(), 1);
        sim::Isp::instance().reset();
        sim::clearDeviceTime();
        sim::clearSystemCommands();
        sim::populateDeviceRoot(m_strPath, std::string(SENSOR_SOURCE_DIR) + "/data/device");
        // The ISP runs the sample machine's module, as the host sets it up.
        sim::Isp::instance().runModule(module().getDetail());
        for (const char* szDir2 :
             {"/mnt/mtd/code/config_file", "/mnt/mtd/log", "/mnt/mtd/sign", "/tmp"})
            (void)std::system(("mkdir -p '" + real(szDir2) + "'").c_str());
    }
    ~DeviceRoot() {
        if (!m_strPath.empty())
            (void)std::system(("rm -rf '" + m_strPath + "'").c_str());
    }
    DeviceRoot(const DeviceRoot&) = delete;
    DeviceRoot& operator=(const DeviceRoot&) = delete;

    std::string real(const std::string& p_strDevicePath) const {
        return m_strPath + p_strDevicePath;
    }

    // A device file's whole content; empty when it cannot be read.
    std::string read(const std::string& p_strDevicePath) const {
        std::ifstream in(real(p_strDevicePath), std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

    // The module the sample tree describes for its machine.
    ModuleConfigure module() const { return sim::machineModule(m_strPath); }

    // Writes the sign file with an mtime an hour old, then waits until its
    // change time is old enough too: only then does the library trust its
    // identity and stop re-reading it (a file changed within two seconds of
    // a read could change again unseen).
    void writeSettledSign(const std::string& p_strContent) const {
        const std::string strPath = real(kSignDevicePath);
        {
            std::ofstream out(strPath, std::ios::binary | std::ios::trunc);
            out << p_strContent;
        }
        timespec times[2];
        clock_gettime(CLOCK_REALTIME, &times[0]);
        times[0].tv_sec -= 3600;
        times[1] = times[0];
        (void)::utimensat(AT_FDCWD, strPath.c_str(), times, 0);
        struct stat st;
        if (::stat(strPath.c_str(), &st) != 0)
            return;
        for (;;) {
            timespec now;
            clock_gettime(CLOCK_REALTIME, &now);
            if (st.st_ctim.tv_sec + 3 <= now.tv_sec)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    void removeSign() const { (void)::unlink(real(kSignDevicePath).c_str()); }

    const std::string& path() const { return m_strPath; }

private:
    std::string m_strPath;
};

// One started controller on the root.
class Camera {
public:
    explicit Camera(const DeviceRoot& p_objRoot) : m_objRoot(p_objRoot) {}
    ~Camera() { stop(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // Starts without the start-up round sleeping, then lets the worker sleep
    // its real second per round.
    void start() {
        ctl.reset(new ISensorController);
        ctl->setChannelID(1);
        ctl->setVideoStreamModule(&video);
        sim::setTimeScale(0);
        ctl->init(m_objRoot.module());
        sim::setTimeScale(1);
    }
    void stop() {
        if (ctl) {
            ctl->uinit();
            ctl.reset();
        }
    }

    sim::SimVideoStreamModule video;
    std::unique_ptr<ISensorController> ctl;

private:
    const DeviceRoot& m_objRoot;
};

// Sends the library's own prints (standard output) to /dev/null and returns a
// descriptor of the real standard output for the figures; -1 on failure.
inline int silenceStdoutKeepingFigures() {
    std::fflush(stdout);
    const int nFigures = ::dup(STDOUT_FILENO);
    const int nNull = ::open("/dev/null", O_WRONLY);
    if (nFigures < 0 || nNull < 0 || ::dup2(nNull, STDOUT_FILENO) < 0)
        return -1;
    ::close(nNull);
    return nFigures;
}

} // namespace bench
