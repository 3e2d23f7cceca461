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

#include "tests/support/ServeProcess.h"

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

    std::vector<std::string> args = sensorctlCommand(arguments);
    std::vector<char*> argv = spawnArray(args);
    std::vector<std::string> env = sensorctlEnvironment(extraEnv);
    std::vector<char*> envp = spawnArray(env);

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
