// The heap a started controller holds, counted by allocator hooks: every
// malloc-family call of the process (operator new included, which allocates
// through malloc) passes through the counters below, which track the bytes
// live (as malloc_usable_size reports them) and their peak.
//
// Measured on the sample device tree after one warm-up start and stop, so
// that what the process keeps once (the scheme files, the ISP's value store,
// the C and C++ runtimes' own buffers) is not charged to the start-up.
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/BenchCamera.h"
#include "config/StyleMerge.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* ptr, size_t size);
void __libc_free(void* ptr);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<long long> g_nLive{0};
std::atomic<long long> g_nPeak{0};

void added(void* p) {
    if (p == nullptr)
        return;
    const long long nLive = g_nLive.fetch_add(static_cast<long long>(malloc_usable_size(p))) +
                            static_cast<long long>(malloc_usable_size(p));
    long long nPeak = g_nPeak.load();
    while (nLive > nPeak && !g_nPeak.compare_exchange_weak(nPeak, nLive)) {
    }
}

void removed(void* p) {
    if (p != nullptr)
        g_nLive.fetch_sub(static_cast<long long>(malloc_usable_size(p)));
}

} // namespace

extern "C" {

void* malloc(size_t size) {
    void* p = __libc_malloc(size);
    added(p);
    return p;
}

void* calloc(size_t count, size_t size) {
    void* p = __libc_calloc(count, size);
    added(p);
    return p;
}

void* realloc(void* ptr, size_t size) {
    removed(ptr);
    void* p = __libc_realloc(ptr, size);
    // A failed realloc leaves the old block in place.
    added(p != nullptr || size == 0 ? p : ptr);
    return p;
}

void free(void* ptr) {
    removed(ptr);
    __libc_free(ptr);
}

void* memalign(size_t alignment, size_t size) {
    void* p = __libc_memalign(alignment, size);
    added(p);
    return p;
}

void* aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** out, size_t alignment, size_t size) {
    void* p = memalign(alignment, size);
    if (p == nullptr)
        return ENOMEM;
    *out = p;
    return 0;
}

} // extern "C"

namespace {

double kib(long long n) {
    return static_cast<double>(n) / 1024.0;
}

long long fileSize(const std::string& p_strPath) {
    struct stat st;
    return ::stat(p_strPath.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// Empties what the simulated host records (the ISP trace and the video
// notices), which a real host does not keep.
void trimHost(sim::SimVideoStreamModule& p_objVideo) {
    sim::Isp::instance().clearTrace();
    p_objVideo.clearNotices();
}

} // namespace

int main() {
    // The library's own prints go to /dev/null, the figures to standard output.
    const int nFigures = bench::silenceStdoutKeepingFigures();
    if (nFigures < 0)
        return 1;
    FILE* pOut = ::fdopen(nFigures, "w");
    if (pOut == nullptr)
        return 1;

    bench::DeviceRoot objRoot;
    const ModuleConfigure objModule = objRoot.module();
    sim::SimVideoStreamModule objVideo;
    sim::setTimeScale(0);
    sim::pauseThreads(true);

    // Warm-up: a controller started and stopped once.
    {
        ISensorController objWarm;
        objWarm.setChannelID(1);
        objWarm.setVideoStreamModule(&objVideo);
        (void)objWarm.init(objModule);
        objWarm.uinit();
    }
    trimHost(objVideo);

    const long long nBefore = g_nLive.load();
    ISensorController* pCtl = new ISensorController;
    pCtl->setChannelID(1);
    pCtl->setVideoStreamModule(&objVideo);
    const long long nConstructed = g_nLive.load();

    g_nPeak = g_nLive.load();
    (void)pCtl->init(objModule);
    const long long nPeakInit = g_nPeak.load();
    trimHost(objVideo);
    const long long nAfterInit = g_nLive.load();

    // The style texts the controller holds: the merged style, read back from
    // the merge file into a block one byte longer than the file (no language
    // texts: the language table stays empty).
    const long long nStyle = fileSize(objRoot.real(SENSOR_MERGE_STYLE_FILE)) + 1;

    // One style request, as a host's UI makes: what it leaves behind.
    g_nPeak = g_nLive.load();
    size_t nStyleResult = 0;
    {
        const std::string strStyle = pCtl->getUIStyleFile();
        nStyleResult = strStyle.size();
    }
    const long long nPeakStyle = g_nPeak.load();
    trimHost(objVideo);

    pCtl->uinit();
    trimHost(objVideo);
    const long long nAfterUinit = g_nLive.load();
    delete pCtl;
    const long long nAfterDelete = g_nLive.load();

    const long long nHeld = nAfterInit - nConstructed;
    const long long nRest = nHeld - nStyle;
    std::fprintf(pOut,
                 "Heap of one controller on the sample device tree (bytes as malloc_usable_size "
                 "counts them)\n");
    std::fprintf(pOut, "  constructed (thread object, machine information)  %8.1f KiB\n",
                 kib(nConstructed - nBefore));
    std::fprintf(pOut, "  held after init, beyond construction              %8.1f KiB\n",
                 kib(nHeld));
    std::fprintf(pOut, "    style texts (merged style, %lld bytes)          %8.1f KiB\n", nStyle,
                 kib(nStyle));
    std::fprintf(pOut,
                 "    the rest (schemes, key table, scratch, worker)  %8.1f KiB   target < "
                 "256 KiB  %s\n",
                 kib(nRest), nRest < 256 * 1024 ? "yes" : "NO");
    std::fprintf(pOut, "  peak during init, beyond construction             %8.1f KiB\n",
                 kib(nPeakInit - nConstructed));
    std::fprintf(pOut,
                 "  peak during getUIStyleFile, beyond held           %8.1f KiB (result %zu "
                 "bytes)\n",
                 kib(nPeakStyle - nAfterInit), nStyleResult);
    std::fprintf(pOut, "  left after uinit, beyond construction             %8.1f KiB\n",
                 kib(nAfterUinit - nConstructed));
    std::fprintf(pOut, "  left after delete, beyond the start               %8.1f KiB\n",
                 kib(nAfterDelete - nBefore));
    std::fclose(pOut);
    sim::pauseThreads(false);
    return 0;
}
