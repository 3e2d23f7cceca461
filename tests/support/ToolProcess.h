// One run of sensorctl as a child process: its arguments, its standard input
// from a text, its standard output and error together in a file, its exit
// status. Bounded in time: a run still going after the limit is killed.
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
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace testsupport {

struct ToolRun {
    bool bExited = false; // false: killed, or could not start
    int nExitCode = -1;
    std::string strOutput; // standard output and error, interleaved
};

// Runs build/tools/sensorctl/sensorctl ARGS with input on its standard input
// and extraEnv set in its environment (NAME=VALUE each; SENSORCTL_DATA is
// the sample tree and SENSOR_ROOT is never passed on).
inline ToolRun runSensorctl(const std::vector<std::string>& arguments,
                            const std::string& input = "",
                            const std::vector<std::string>& extraEnv = {},
                            std::chrono::seconds limit = std::chrono::seconds(60)) {
    ToolRun run;
    char szOut[] = "/tmp/sensorctl-run-out-XXXXXX";
    char szIn[] = "/tmp/sensorctl-run-in-XXXXXX";
    const int fdOut = ::mkstemp(szOut);
    const int fdIn = ::mkstemp(szIn);
    if (fdOut < 0 || fdIn < 0)
        return run;
    ::close(fdOut);
    {
        size_t nDone = 0;
        while (nDone < input.size()) {
            const ssize_t n = ::write(fdIn, input.data() + nDone, input.size() - nDone);
            if (n <= 0)
                break;
            nDone += static_cast<size_t>(n);
        }
        ::close(fdIn);
    }

    std::vector<std::string> args;
    std::istringstream emulator(std::getenv("SENSOR_EMULATOR") ? std::getenv("SENSOR_EMULATOR")
                                                               : "");
    for (std::string word; emulator >> word;)
        args.push_back(word);
    args.push_back(std::string(SENSOR_BINARY_DIR) + "/tools/sensorctl/sensorctl");
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(&a[0]);
    argv.push_back(nullptr);

    // A name given in extraEnv takes the place of the inherited one.
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
    std::vector<char*> envp;
    for (std::string& e : env)
        envp.push_back(&e[0]);
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, szIn, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, szOut, O_WRONLY | O_TRUNC, 0);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = -1;
    const int nErr =
        posix_spawn(&pid, args[0].c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (nErr == 0) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        int nStatus = 0;
        bool bDone = false;
        while (!bDone && std::chrono::steady_clock::now() < deadline) {
            bDone = ::waitpid(pid, &nStatus, WNOHANG) == pid;
            if (!bDone)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (!bDone) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &nStatus, 0);
        } else if (WIFEXITED(nStatus)) {
            run.bExited = true;
            run.nExitCode = WEXITSTATUS(nStatus);
        }
    }
    std::ifstream in(szOut, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    run.strOutput = ss.str();
    ::unlink(szOut);
    ::unlink(szIn);
    return run;
}

} // namespace testsupport
