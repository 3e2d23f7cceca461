// Helpers of the hardening tests: what "still a working camera" means after
// a fault, children that run a controller on their own (a forked child never
// inherits a worker thread), and the count of cases each test tried.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Camera.h"

namespace hardening {

using camtest::Camera;

// A number from the environment, or the fallback.
inline long envCount(const char* p_szName, long p_nFallback) {
    const char* szValue = std::getenv(p_szName);
    if (szValue == nullptr || *szValue == '\0')
        return p_nFallback;
    const long nValue = std::strtol(szValue, nullptr, 10);
    return nValue > 0 ? nValue : p_nFallback;
}

// Every test says how many cases it tried; the CI log sums them.
inline void reportCases(const char* p_szWhat, long p_nCases) {
    std::printf("[ hardening ] %s: %ld cases\n", p_szWhat, p_nCases);
    std::fflush(stdout);
    testing::Test::RecordProperty("cases", static_cast<int>(p_nCases));
}

// The controller answers single keys: a value set is read back. The ISP
// must be healthy again when this is asked.
inline testing::AssertionResult answers(ISensorController& p_objCtl, int p_nValue = 42) {
    int nValue = -1;
    if (!p_objCtl.getParameter(KEY_BRIGHTNESS, nValue))
        return testing::AssertionFailure() << "getParameter failed";
    const int nSet = p_objCtl.setParameter(KEY_BRIGHTNESS, p_nValue);
    if (nSet != 0)
        return testing::AssertionFailure() << "setParameter gave " << nSet;
    if (!p_objCtl.getParameter(KEY_BRIGHTNESS, nValue) || nValue != p_nValue)
        return testing::AssertionFailure() << "read back " << nValue << " not " << p_nValue;
    return testing::AssertionSuccess();
}

// Plain file access for tests that put non-files in the device's places:
// a folder or a socket reads as nothing, and no shell runs per file.
inline std::string readRegular(const std::string& p_strReal) {
    struct stat st;
    if (::stat(p_strReal.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return std::string();
    std::ifstream in(p_strReal, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}
inline void writeFile(const std::string& p_strReal, const std::string& p_strContent) {
    std::error_code ec;
    std::filesystem::remove_all(p_strReal, ec);
    std::filesystem::create_directories(std::filesystem::path(p_strReal).parent_path(), ec);
    std::ofstream out(p_strReal, std::ios::binary | std::ios::trunc);
    out << p_strContent;
}

// Every regular scheme file is what the test put there or a whole scheme of
// the current layout: a failed save never leaves a torn one.
inline testing::AssertionResult
schemeFilesWholeOrUntouched(const Camera& cam, const std::vector<std::string>& p_vecInjected = {}) {
    const size_t nWhole = cam.acc->keyValSum() * sizeof(KeyVal);
    for (u32 s = 0; s < 8; ++s) {
        const std::string strPath = camtest::schemeFile(static_cast<int>(s));
        struct stat st;
        if (::stat(cam.root.real(strPath).c_str(), &st) != 0 || !S_ISREG(st.st_mode))
            continue;
        const std::string strBytes = readRegular(cam.root.real(strPath));
        const bool bInjected = s < p_vecInjected.size() && strBytes == p_vecInjected[s];
        if (strBytes.size() != nWhole && !bInjected)
            return testing::AssertionFailure() << strPath << " holds " << strBytes.size()
                                               << " bytes, a whole scheme " << nWhole;
    }
    return testing::AssertionSuccess();
}

// Replaces a device path by a folder or a bound socket.
inline void putFolder(const Camera& cam, const std::string& p_strDevicePath) {
    std::error_code ec;
    std::filesystem::remove_all(cam.root.real(p_strDevicePath), ec);
    std::filesystem::create_directories(cam.root.real(p_strDevicePath), ec);
}
inline bool putPipe(const Camera& cam, const std::string& p_strDevicePath) {
    std::error_code ec;
    std::filesystem::remove_all(cam.root.real(p_strDevicePath), ec);
    return ::mkfifo(cam.root.real(p_strDevicePath).c_str(), 0644) == 0;
}
inline bool putSocket(const Camera& cam, const std::string& p_strDevicePath) {
    std::error_code ec;
    std::filesystem::remove_all(cam.root.real(p_strDevicePath), ec);
    const std::string strReal = cam.root.real(p_strDevicePath);
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    if (strReal.size() >= sizeof(stAddr.sun_path))
        return false;
    strReal.copy(stAddr.sun_path, strReal.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0)
        return false;
    const bool bBound = ::bind(fd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) == 0;
    ::close(fd); // the socket file stays
    return bBound;
}

// Runs f in a forked child and returns its exit code (128 + signal when it
// died, 124 when it outlived its bound). The child must not use gtest
// assertions: it reports through its exit code.
inline int runInChild(const std::function<int()>& f, unsigned p_nBoundSeconds = 60) {
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = ::fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        ::alarm(p_nBoundSeconds);
        std::signal(SIGALRM, [](int) { ::_exit(124); });
        const int nCode = f();
        std::fflush(stdout);
        ::_exit(nCode);
    }
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid)
        return -1;
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

// Limits the files this process may grow, as on a full flash.
inline void limitFileSize(rlim_t p_nBytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit rl;
    ::getrlimit(RLIMIT_FSIZE, &rl);
    rl.rlim_cur = p_nBytes;
    ::setrlimit(RLIMIT_FSIZE, &rl);
}

} // namespace hardening
