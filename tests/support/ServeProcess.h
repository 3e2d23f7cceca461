// `sensorctl serve` as a child process on a free loopback port, its output in
// a file, its temporary device root removed at the end.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace testsupport {

// The sensorctl of this build and its arguments; under an emulator (a cross
// build) the emulator starts the program.
inline std::vector<std::string> sensorctlCommand(const std::vector<std::string>& arguments) {
    std::vector<std::string> args;
    std::istringstream emulator(std::getenv("SENSOR_EMULATOR") ? std::getenv("SENSOR_EMULATOR")
                                                               : "");
    for (std::string word; emulator >> word;)
        args.push_back(word);
    args.push_back(std::string(SENSOR_BINARY_DIR) + "/tools/sensorctl/sensorctl");
    args.insert(args.end(), arguments.begin(), arguments.end());
    return args;
}

// This process's environment for a sensorctl child: SENSORCTL_DATA is the
// sample tree, SENSOR_ROOT is never passed on, and a NAME=VALUE of extraEnv
// takes the place of the inherited one.
inline std::vector<std::string>
sensorctlEnvironment(const std::vector<std::string>& extraEnv = {}) {
    auto overridden = [&extraEnv](const char* szEntry) {
        for (const std::string& extra : extraEnv) {
            const size_t nName = extra.find('=') + 1;
            if (std::strncmp(szEntry, extra.c_str(), nName) == 0)
                return true;
        }
        return false;
    };
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "SENSOR_ROOT=", 12) != 0 &&
            std::strncmp(*e, "SENSORCTL_DATA=", 15) != 0 && !overridden(*e))
            env.emplace_back(*e);
    env.push_back(std::string("SENSORCTL_DATA=") + SENSOR_SOURCE_DIR + "/data/device");
    env.insert(env.end(), extraEnv.begin(), extraEnv.end());
    return env;
}

// The null-terminated pointer array posix_spawn takes, over texts that
// outlive it.
inline std::vector<char*> spawnArray(std::vector<std::string>& texts) {
    std::vector<char*> out;
    for (std::string& t : texts)
        out.push_back(&t[0]);
    out.push_back(nullptr);
    return out;
}

class ServeProcess {
public:
    ServeProcess() = default;
    ~ServeProcess() { kill(); }
    ServeProcess(const ServeProcess&) = delete;
    ServeProcess& operator=(const ServeProcess&) = delete;

    // Starts `sensorctl serve --port 0 --discovery-bind 127.0.0.1
    // --discovery-port 0 ARGS...` and waits (at most 30 s) for
    // the port it announces. false with the reason in error.
    bool start(const std::vector<std::string>& extra, std::string& error) {
        char szLog[] = "/tmp/sensorctl-serve-test-XXXXXX";
        const int fd = ::mkstemp(szLog);
        if (fd < 0) {
            error = "no log file";
            return false;
        }
        ::close(fd);
        m_strLog = szLog;

        // Discovery, on with ONVIF, stays on the loopback interface on a free
        // port: no test joins a multicast group or shares the well-known port.
        std::vector<std::string> args = sensorctlCommand(
            {"serve", "--port", "0", "--discovery-bind", "127.0.0.1", "--discovery-port", "0"});
        args.insert(args.end(), extra.begin(), extra.end());
        std::vector<char*> argv = spawnArray(args);
        std::vector<std::string> env = sensorctlEnvironment();
        std::vector<char*> envp = spawnArray(env);

        // The controller prints freely; a file takes it all so the server
        // never blocks on a full pipe.
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, m_strLog.c_str(), O_WRONLY | O_TRUNC, 0);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        const int nErr =
            posix_spawn(&m_pid, args[0].c_str(), &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (nErr != 0) {
            m_pid = -1;
            error = "cannot start " + args[0];
            return false;
        }

        const std::regex port("listening on http://127\\.0\\.0\\.1:([0-9]+)/");
        const std::regex root("device root (\\S+)");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        std::smatch m;
        while (std::chrono::steady_clock::now() < deadline) {
            const std::string strOut = output();
            if (std::regex_search(strOut, m, port)) {
                m_nPort = std::stoi(m[1]);
                if (std::regex_search(strOut, m, root))
                    m_strRoot = m[1];
                return true;
            }
            int nStatus = 0;
            if (::waitpid(m_pid, &nStatus, WNOHANG) == m_pid) {
                m_pid = -1;
                error = "sensorctl serve ended at start:\n" + strOut;
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        error = "sensorctl serve did not announce its port:\n" + output();
        return false;
    }

    // The signal (SIGTERM unless named), then the exit status within 10 s
    // (-1: still running).
    int stop(int p_nSignal = SIGTERM) {
        if (m_pid <= 0)
            return -1;
        ::kill(m_pid, p_nSignal);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        int nStatus = 0;
        while (std::chrono::steady_clock::now() < deadline) {
            if (::waitpid(m_pid, &nStatus, WNOHANG) == m_pid) {
                m_pid = -1;
                return nStatus;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return -1;
    }

    void kill() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
        if (!m_strRoot.empty())
            (void)std::system(("rm -rf '" + m_strRoot + "'").c_str());
        m_strRoot.clear();
        if (!m_strLog.empty())
            ::unlink(m_strLog.c_str());
        m_strLog.clear();
    }

    std::string output() const {
        std::ifstream in(m_strLog, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

    int port() const { return m_nPort; }
    // The temporary device root serve announced ("" when it named none).
    const std::string& root() const { return m_strRoot; }
    // Forgets the root: its removal is the caller's from now on.
    void releaseRoot() { m_strRoot.clear(); }

private:
    pid_t m_pid = -1;
    int m_nPort = 0;
    std::string m_strLog;
    std::string m_strRoot;
};

} // namespace testsupport
