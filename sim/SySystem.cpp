// The simulated host's shell: runs a command under /bin/sh in its own process
// group, so that a command that runs out of time is killed with its children.
#include "host/sy_system.h"

#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/SimHost.h"

namespace {

struct CommandRecord {
    std::mutex mutex;
    std::vector<std::string> commands;
};

CommandRecord& commandRecord() {
    static CommandRecord record;
    return record;
}

} // namespace

namespace sim {

std::vector<std::string> systemCommands() {
    CommandRecord& record = commandRecord();
    std::lock_guard<std::mutex> lock(record.mutex);
    return record.commands;
}

void clearSystemCommands() {
    CommandRecord& record = commandRecord();
    std::lock_guard<std::mutex> lock(record.mutex);
    record.commands.clear();
}

} // namespace sim

// A timeout of 0 or less waits for the command without limit.
extern "C" int sy_system(const char* command, int timeout) {
    if (command == nullptr)
        return -1;
    {
        CommandRecord& record = commandRecord();
        std::lock_guard<std::mutex> lock(record.mutex);
        record.commands.emplace_back(command);
    }
    const pid_t pid = ::fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        ::setpgid(0, 0);
        ::execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    // Also from the parent, so that the group exists before any kill.
    ::setpgid(pid, pid);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
    int status = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid, &status, timeout > 0 ? WNOHANG : 0);
        if (done == pid)
            break;
        if (done < 0 && errno != EINTR)
            return -1;
        if (timeout > 0 && std::chrono::steady_clock::now() >= deadline) {
            ::kill(-pid, SIGKILL);
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            return -1;
        }
        if (done == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    return -1; // ended by a signal
}
