// The simulated host's file object on POSIX descriptors.
#include "host/KPFile.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Moves up to length bytes with step (read or write), going on after an
// interrupted call or a short count; the count moved, or -1 when nothing
// moved and the call failed.
template <typename Step> int transfer(int p_nFd, char* p_pData, int p_nLength, Step step) {
    int total = 0;
    while (total < p_nLength) {
        const ssize_t n = step(p_nFd, p_pData + total, static_cast<size_t>(p_nLength - total));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return total > 0 ? total : -1;
        }
        if (n == 0)
            break;
        total += static_cast<int>(n);
    }
    return total;
}

} // namespace

KPFile::KPFile() : m_nFd(-1) {}

KPFile::~KPFile() {
    close();
}

bool KPFile::open(const char* name, int mode) {
    close();
    if (name == nullptr || *name == '\0')
        return false;
    int flags;
    const bool bRead = (mode & modeRead) != 0;
    const bool bWrite = (mode & modeWrite) != 0;
    if (bRead && bWrite)
        flags = O_RDWR | O_CREAT;
    else if (bWrite)
        flags = O_WRONLY | O_CREAT;
    else if (bRead)
        flags = O_RDONLY;
    else
        return false;
    if (bWrite && (mode & modeTruncate) != 0)
        flags |= O_TRUNC;
    int fd;
    do {
        fd = ::open(name, flags | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    m_nFd = fd;
    return fd >= 0;
}

int KPFile::read(void* buffer, int length) {
    if (m_nFd < 0 || buffer == nullptr || length < 0)
        return -1;
    char* out = static_cast<char*>(buffer);
    int total = 0;
    // Bytes already read ahead by ReadOneLine come first.
    if (!m_strPending.empty()) {
        const int n = std::min<int>(length, static_cast<int>(m_strPending.size()));
        m_strPending.copy(out, n);
        m_strPending.erase(0, n);
        total = n;
    }
    const int nRead = transfer(m_nFd, out + total, length - total, ::read);
    if (nRead < 0)
        return total > 0 ? total : -1;
    return total + nRead;
}

int KPFile::write(const void* data, int length) {
    if (m_nFd < 0 || data == nullptr || length < 0)
        return -1;
    // write takes const bytes; transfer hands it the caller's own buffer.
    char* in = const_cast<char*>(static_cast<const char*>(data));
    return transfer(m_nFd, in, length, [](int fd, char* p, size_t n) { return ::write(fd, p, n); });
}

int64_t KPFile::getLength() {
    if (m_nFd < 0)
        return 0;
    struct stat st;
    if (::fstat(m_nFd, &st) != 0)
        return 0;
    return static_cast<int64_t>(st.st_size);
}

int KPFile::getFileHandle() const {
    return m_nFd;
}

std::string KPFile::ReadOneLine() {
    if (m_nFd < 0)
        return std::string();
    std::string::size_type end = m_strPending.find('\n');
    while (end == std::string::npos) {
        char chunk[512];
        const ssize_t n = ::read(m_nFd, chunk, sizeof(chunk));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        const std::string::size_type before = m_strPending.size();
        m_strPending.append(chunk, static_cast<size_t>(n));
        end = m_strPending.find('\n', before);
    }
    std::string line;
    if (end == std::string::npos) {
        // The last line of a file that does not end with a line end.
        line.swap(m_strPending);
    } else {
        line = m_strPending.substr(0, end);
        m_strPending.erase(0, end + 1);
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

void KPFile::close() {
    if (m_nFd >= 0)
        ::close(m_nFd);
    m_nFd = -1;
    m_strPending.clear();
}
