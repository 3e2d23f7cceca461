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

class ServeProcess {
public:
    ServeProcess() = default;
    ~ServeProcess() { kill(); }
    ServeProcess(const ServeProcess&) = delete;
    ServeProcess& operator=(const ServeProcess&) = delete;

    // Starts `sensorctl serve --port 0 ARGS...` and waits (at most 30 s) for
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

        const std::string strBinary = std::string(SENSOR_BINARY_DIR) + "/tools/sensorctl/sensorctl";
        // Under an emulator (a cross build) the emulator starts the program.
        std::vector<std::string> args;
        std::istringstream emulator(std::getenv("SENSOR_EMULATOR") ? std::getenv("SENSOR_EMULATOR")
                                                                   : "");
        for (std::string word; emulator >> word;)
            args.push_back(word);
        args.insert(args.end(), {strBinary, "serve", "--port", "0"});
        args.insert(args.end(), extra.begin(), extra.end());
        std::vector<char*> argv;
        for (std::string& a : args)
            argv.push_back(&a[0]);
        argv.push_back(nullptr);

        std::vector<std::string> env;
        for (char** e = environ; *e; ++e)
            if (std::strncmp(*e, "SENSOR_ROOT=", 12) != 0 &&
                std::strncmp(*e, "SENSORCTL_DATA=", 15) != 0)
                env.emplace_back(*e);
        env.push_back(std::string("SENSORCTL_DATA=") + SENSOR_SOURCE_DIR + "/data/device");
        std::vector<char*> envp;
        for (std::string& e : env)
            envp.push_back(&e[0]);
        envp.push_back(nullptr);

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
            error = "cannot start " + strBinary;
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
