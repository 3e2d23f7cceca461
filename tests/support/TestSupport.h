// Shared test helpers: a private device root per test, and file helpers that
// speak in device paths.
#pragma once

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "diag/DeviceRoot.h"

namespace testsupport {

// The sample device tree and the expected merges, in the source tree.
const std::string kSampleTree = std::string(SENSOR_SOURCE_DIR) + "/data/device";
const std::string kSampleSensorConfig = kSampleTree + "/hd1/moduleConfig/sensorConfig/";
const std::string kExpectedMerges = std::string(SENSOR_SOURCE_DIR) + "/tests/files/expected/";

// A whole file by its real path ("" when it cannot be read).
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// What fn printed on standard output.
inline std::string captureStdout(const std::function<void()>& fn) {
    testing::internal::CaptureStdout();
    fn();
    return testing::internal::GetCapturedStdout();
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// How many times part occurs in text, overlapping occurrences included.
inline size_t occurrences(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t pos = text.find(part); pos != std::string::npos; pos = text.find(part, pos + 1))
        ++n;
    return n;
}

// A new temporary folder as SENSOR_ROOT for the life of the object; optionally
// populated with the sample device tree. The simulated host is reset too.
class TempDeviceRoot {
public:
    explicit TempDeviceRoot(bool populate = false) {
        char szTemplate[] = "/tmp/sensor-test-XXXXXX";
        const char* dir = ::mkdtemp(szTemplate);
        m_strPath = dir ? dir : "";
        ::setenv("SENSOR_ROOT", m_strPath.c_str(), 1);
        sim::Isp::instance().reset();
        sim::setTimeScale(0.001);
        sim::clearDeviceTime();
        sim::clearSystemCommands();
        if (populate)
            sim::populateDeviceRoot(m_strPath, kSampleTree);
        makeDirs("/mnt/mtd/code/config_file");
        makeDirs("/mnt/mtd/log");
        makeDirs("/mnt/mtd/sign");
        makeDirs("/tmp");
    }
    ~TempDeviceRoot() {
        ::unsetenv("SENSOR_ROOT");
        if (!m_strPath.empty() && std::getenv("SENSOR_KEEP_TEST_ROOT") == nullptr)
            (void)std::system(
                ("chmod -R u+w '" + m_strPath + "' 2>/dev/null; rm -rf '" + m_strPath + "'")
                    .c_str());
    }
    TempDeviceRoot(const TempDeviceRoot&) = delete;
    TempDeviceRoot& operator=(const TempDeviceRoot&) = delete;

    const std::string& path() const { return m_strPath; }
    std::string real(const std::string& devicePath) const { return m_strPath + devicePath; }

    void makeDirs(const std::string& deviceDir) const {
        (void)std::system(("mkdir -p '" + real(deviceDir) + "'").c_str());
    }
    void write(const std::string& devicePath, const std::string& content) const {
        const std::string strReal = real(devicePath);
        makeDirs(devicePath.substr(0, devicePath.rfind('/')));
        std::ofstream out(strReal, std::ios::binary | std::ios::trunc);
        out << content;
    }
    std::string read(const std::string& devicePath) const { return readFile(real(devicePath)); }
    bool exists(const std::string& devicePath) const {
        struct stat st;
        return ::stat(real(devicePath).c_str(), &st) == 0;
    }
    void remove(const std::string& devicePath) const { ::unlink(real(devicePath).c_str()); }

    // The debug sign file, written as a new file each time so that its
    // identity changes and the next decision reads it.
    void setDebugSign(const std::string& content) const {
        const std::string strTmp = real("/mnt/mtd/sign/.Debug.sign.tmp");
        {
            std::ofstream out(strTmp, std::ios::binary | std::ios::trunc);
            out << content;
        }
        ::rename(strTmp.c_str(), real("/mnt/mtd/sign/Debug.sign").c_str());
    }
    void clearDebugSign() const { remove("/mnt/mtd/sign/Debug.sign"); }

private:
    std::string m_strPath;
};

} // namespace testsupport
