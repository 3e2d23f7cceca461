// The simulated host's log writer: appends entries and rotates the file over
// path, path.1, ... before it would grow beyond its size.
#include "host/KPLogger.h"

#include <cerrno>
#include <cstdio>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Loggers of one process may share a file: one lock for all of them.
std::mutex& loggerMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace

KPLogger::KPLogger() : m_nMaxSize(0), m_nMaxFiles(0) {}

KPLogger::~KPLogger() = default;

bool KPLogger::init(const char* path, int maxSize, int maxFiles) {
    if (path == nullptr || *path == '\0')
        return false;
    std::lock_guard<std::mutex> lock(loggerMutex());
    m_strPath = path;
    m_nMaxSize = maxSize;
    m_nMaxFiles = maxFiles < 1 ? 1 : maxFiles;
    return true;
}

int KPLogger::writeLog(const char* tag, const char* text) {
    std::lock_guard<std::mutex> lock(loggerMutex());
    if (m_strPath.empty())
        return -1;
    std::string entry =
        std::string(tag != nullptr ? tag : "") + " " + (text != nullptr ? text : "");
    if (entry.empty() || entry.back() != '\n')
        entry += '\n';

    struct stat st;
    if (m_nMaxSize > 0 && ::stat(m_strPath.c_str(), &st) == 0 && st.st_size > 0 &&
        st.st_size + static_cast<off_t>(entry.size()) > m_nMaxSize) {
        // path.(n-1) is dropped, every other file moves one place up.
        const std::string strOldest = m_strPath + "." + std::to_string(m_nMaxFiles - 1);
        if (m_nMaxFiles > 1)
            ::unlink(strOldest.c_str());
        for (int i = m_nMaxFiles - 2; i >= 1; --i) {
            const std::string strFrom = m_strPath + "." + std::to_string(i);
            const std::string strTo = m_strPath + "." + std::to_string(i + 1);
            ::rename(strFrom.c_str(), strTo.c_str());
        }
        if (m_nMaxFiles > 1)
            ::rename(m_strPath.c_str(), (m_strPath + ".1").c_str());
        else
            ::unlink(m_strPath.c_str());
    }

    // A pipe without a reader fails the open instead of blocking it; on a
    // regular file O_NONBLOCK changes nothing.
    const int fd =
        ::open(m_strPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0)
        return -1;
    size_t written = 0;
    while (written < entry.size()) {
        const ssize_t n = ::write(fd, entry.data() + written, entry.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        written += static_cast<size_t>(n);
    }
    ::close(fd);
    return written == entry.size() ? 0 : -1;
}
