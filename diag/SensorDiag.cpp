#include "diag/SensorDiag.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

#include "host/KPFile.h"
#include "host/KPLogger.h"
#include "diag/SensorNumber.h"
#include "diag/DeviceRoot.h"

// The C library's assertion failure, declared here because release builds
// (NDEBUG) hide it in <assert.h>; a failed check aborts through it either way.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((noreturn));

std::atomic<int> g_nDebugLevel{1};
std::atomic<bool> g_bEnAssert{false};

namespace {

const char* const kSignFile = "/mnt/mtd/sign/Debug.sign";
const char* const kErrorLog = "/mnt/mtd/log/SensorError.log";
const int kLogSize = 10240;
const int kLogCount = 3;
const char* const kColourPrefix = "\033[%dm\033[%dm";
const char* const kColourSuffix = "\033[0m";
const char* const kHeader = "%s file:%s fun:%s line:%d\n";

// What the sign file held when it was last read, and how to recognise it
// unchanged without reading it again. Written under g_signMutex.
struct SignCache {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    timespec mtime{};
    timespec ctime{};
    int nLevel = 1;
    bool bAssert = false;
};

std::mutex g_signMutex;
SignCache g_signCache;
// Whether g_signCache holds a file: readable without the lock, so that with no
// sign file (the usual camera) a decision costs its stat and nothing more.
std::atomic<bool> g_bSignCached{false};

bool sameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool sameIdentity(const SignCache& c, const struct stat& st) {
    return g_bSignCached.load(std::memory_order_relaxed) && c.dev == st.st_dev &&
           c.ino == st.st_ino && c.size == st.st_size && sameTime(c.mtime, st.st_mtim) &&
           sameTime(c.ctime, st.st_ctim);
}

// A file changed within the clock's granularity of our read could change again
// without its time stamps moving; such a read is not trusted for the cache.
bool settledBefore(const struct stat& st, const timespec& readTime) {
    return st.st_mtim.tv_sec + 2 <= readTime.tv_sec && st.st_ctim.tv_sec + 2 <= readTime.tv_sec;
}

// Formats into one string so that a message leaves in one write and is never
// interleaved with another thread's.
std::string vformat(const char* fmt, va_list ap) {
    char szBuf[1024];
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(szBuf, sizeof(szBuf), fmt, copy);
    va_end(copy);
    if (n < 0)
        return std::string();
    if (static_cast<size_t>(n) < sizeof(szBuf))
        return std::string(szBuf, n);
    std::string strOut(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(&strOut[0], strOut.size(), fmt, ap);
    strOut.resize(n);
    return strOut;
}

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::string s = vformat(fmt, ap);
    va_end(ap);
    return s;
}

void writeOut(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

std::string colourPrefix(int colour) {
    return format(kColourPrefix, 0, colour);
}

void writeErrorLog(const char* tag, const std::string& first, const std::string* second) {
    KPLogger objLogger;
    const std::string strPath = sensorDevicePath(kErrorLog);
    objLogger.init(strPath.c_str(), kLogSize, kLogCount);
    objLogger.writeLog(tag, first.c_str());
    if (second != nullptr)
        objLogger.writeLog(tag, second->c_str());
}

} // namespace

void updateDebugLevel() {
    // Asked before every decision: the path is built without allocating.
    char szPath[512];
    std::string strLong;
    const char* szSign = szPath;
    if (!sensorDevicePathInto(kSignFile, szPath, sizeof(szPath))) {
        strLong = sensorDevicePath(kSignFile);
        szSign = strLong.c_str();
    }
    struct stat st;
    if (::stat(szSign, &st) != 0) {
        // Only what differs is written, and the lock is taken only to forget
        // a file the cache knew.
        if (g_nDebugLevel.load(std::memory_order_relaxed) != 1)
            g_nDebugLevel = 1;
        if (g_bEnAssert.load(std::memory_order_relaxed))
            g_bEnAssert = false;
        if (g_bSignCached.load(std::memory_order_acquire)) {
            std::lock_guard<std::mutex> guard(g_signMutex);
            g_bSignCached.store(false, std::memory_order_release);
        }
        return;
    }
    // A pipe in its place would block the open: it counts as a sign file
    // that cannot be read.
    if (sensorIsSpecialMode(st.st_mode))
        return;
    {
        std::lock_guard<std::mutex> guard(g_signMutex);
        if (sameIdentity(g_signCache, st)) {
            g_nDebugLevel = g_signCache.nLevel;
            g_bEnAssert = g_signCache.bAssert;
            return;
        }
    }

    KPFile objFile;
    if (!objFile.open(szSign, KPFile::modeRead))
        return;
    std::string strLine = objFile.ReadOneLine();
    const int nLevel = strLine.empty() ? 1 : sensorAtoi(strLine.c_str());
    g_nDebugLevel = nLevel;
    strLine = objFile.ReadOneLine();
    const bool bAssert = strLine.empty() ? false : sensorAtoi(strLine.c_str()) != 0;
    g_bEnAssert = bAssert;
    objFile.close();

    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::lock_guard<std::mutex> guard(g_signMutex);
    g_bSignCached.store(settledBefore(st, now), std::memory_order_release);
    g_signCache.dev = st.st_dev;
    g_signCache.ino = st.st_ino;
    g_signCache.size = st.st_size;
    g_signCache.mtime = st.st_mtim;
    g_signCache.ctime = st.st_ctim;
    g_signCache.nLevel = nLevel;
    g_signCache.bAssert = bAssert;
}

namespace {

void vprintDecided(const char* unit, const char* func, int line, const char* tag, int colour,
                   bool log, const char* fmt, va_list ap) {
    const std::string strMessage = vformat(fmt, ap);
    writeOut(colourPrefix(colour) + format(kHeader, tag, unit, func, line) + strMessage +
             kColourSuffix);
    if (log) {
        const std::string strWhere = format("file:%s fun:%s line:%d\n", unit, func, line);
        writeErrorLog(tag, strWhere, &strMessage);
    }
}

} // namespace

bool snsDecide(int threshold) {
    updateDebugLevel();
    return g_nDebugLevel > threshold;
}

void snsPrintDecided(const char* unit, const char* func, int line, const char* tag, int colour,
                     bool log, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vprintDecided(unit, func, line, tag, colour, log, fmt, ap);
    va_end(ap);
}

void snsPrint(const char* unit, const char* func, int line, const char* tag, int threshold,
              int colour, bool log, const char* fmt, ...) {
    if (!snsDecide(threshold))
        return;
    va_list ap;
    va_start(ap, fmt);
    vprintDecided(unit, func, line, tag, colour, log, fmt, ap);
    va_end(ap);
}

void snsPrintBare(int threshold, int colour, const char* fmt, ...) {
    if (!snsDecide(threshold))
        return;
    va_list ap;
    va_start(ap, fmt);
    const std::string strMessage = vformat(fmt, ap);
    va_end(ap);
    writeOut(colourPrefix(colour) + strMessage + kColourSuffix);
}

void snsAssertFail(const char* unit, const char* func, int line, const char* pretty,
                   const char* expr, const char* fmt, ...) {
    static const char* const kTag = "[sensor assert]";
    updateDebugLevel();
    if (g_nDebugLevel >= 0) {
        const std::string strFailed = format("%s   ~~~Assertion failed.\n", expr);
        writeOut(colourPrefix(31) + format(kHeader, kTag, unit, func, line) + strFailed +
                 kColourSuffix);
        writeErrorLog(kTag, format("file:%s fun:%s line:%d\n", unit, func, line), &strFailed);
    }
    updateDebugLevel();
    if (g_nDebugLevel >= 0) {
        va_list ap;
        va_start(ap, fmt);
        const std::string strDetail = vformat(fmt, ap);
        va_end(ap);
        writeOut(colourPrefix(31) + strDetail + kColourSuffix);
        writeErrorLog(kTag, strDetail, nullptr);
    }
    if (g_bEnAssert)
        __assert_fail("bRet", unit, static_cast<unsigned int>(line), pretty);
}
