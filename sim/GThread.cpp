// The simulated host's thread object on std::thread.
#include "host/GThread.h"
#include "sim/SimHost.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace {

// The thread object whose round runs on this thread, if any.
thread_local const void* tl_pCurrentThread = nullptr;

} // namespace

namespace {
std::atomic<bool> g_bThreadsPaused{false};

// Each live thread object's running state, for the sim-only question below (a
// host's GThread offers no such question).
struct ThreadRegistry {
    std::mutex mutex;
    std::map<const GThread*, const std::atomic<bool>*> running;
};

ThreadRegistry& threadRegistry() {
    static ThreadRegistry registry;
    return registry;
}
} // namespace

namespace sim {
void pauseThreads(bool pause) {
    g_bThreadsPaused = pause;
}
bool threadsPaused() {
    return g_bThreadsPaused;
}
bool threadRunning(const GThread& thread) {
    ThreadRegistry& registry = threadRegistry();
    std::lock_guard<std::mutex> guard(registry.mutex);
    const auto it = registry.running.find(&thread);
    return it != registry.running.end() && it->second->load();
}
} // namespace sim

struct GThread::Impl {
    Fun run;
    Fun onStart;
    Fun onStop;
    std::string name;
    std::mutex control; // serialises start and stop
    std::thread thread;
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> running{false};
    // Set while a stop from another thread holds the control lock and joins.
    std::atomic<bool> externalStopping{false};
};

int GThread::emptyFun() {
    return 0;
}

GThread::GThread(const Fun& run, const char* name, const Fun& onStart, const Fun& onStop)
    : m_pImpl(new Impl) {
    m_pImpl->run = run;
    m_pImpl->name = name != nullptr ? name : "";
    m_pImpl->onStart = onStart;
    m_pImpl->onStop = onStop;
    ThreadRegistry& registry = threadRegistry();
    std::lock_guard<std::mutex> guard(registry.mutex);
    registry.running[this] = &m_pImpl->running;
}

GThread::~GThread() {
    stop();
    ThreadRegistry& registry = threadRegistry();
    std::lock_guard<std::mutex> guard(registry.mutex);
    registry.running.erase(this);
}

bool GThread::start() {
    std::lock_guard<std::mutex> lock(m_pImpl->control);
    if (m_pImpl->running)
        return false;
    if (m_pImpl->thread.joinable()) // ended by a stop request from its own round
        m_pImpl->thread.join();
    // onStart runs on the caller, so that it has happened once start returns.
    if (m_pImpl->onStart)
        m_pImpl->onStart();
    m_pImpl->stopRequested = false;
    m_pImpl->running = true;
    Impl* impl = m_pImpl.get();
    try {
        m_pImpl->thread = std::thread([impl] {
            tl_pCurrentThread = impl;
            // Thread names are limited to 15 characters.
            if (!impl->name.empty())
                pthread_setname_np(pthread_self(), impl->name.substr(0, 15).c_str());
            // The round's result is informative only: the loop goes on until stopped.
            while (!impl->stopRequested) {
                if (g_bThreadsPaused) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                    continue;
                }
                if (impl->run)
                    (void)impl->run();
                else
                    std::this_thread::yield();
            }
        });
    } catch (const std::system_error&) {
        m_pImpl->running = false;
        return false;
    }
    return true;
}

bool GThread::stop() {
    if (tl_pCurrentThread == m_pImpl.get()) {
        // A round that stops its own thread cannot wait for itself: the loop
        // ends after this round, and the thread is joined by the next start,
        // stop or the destructor. When another thread is already stopping
        // this one, that stop waits for this round and finishes the job.
        m_pImpl->stopRequested = true;
        // The control lock may be held by a start that has not returned yet
        // (then it is ours in a moment) or by a stop from another thread
        // that is joining us (then that stop finishes the job, and waiting
        // for it here would deadlock).
        std::unique_lock<std::mutex> lock(m_pImpl->control, std::defer_lock);
        while (!lock.try_lock()) {
            if (m_pImpl->externalStopping)
                return true;
            std::this_thread::yield();
        }
        if (!m_pImpl->running)
            return false;
        m_pImpl->running = false;
        if (m_pImpl->onStop)
            m_pImpl->onStop();
        return true;
    }
    std::lock_guard<std::mutex> lock(m_pImpl->control);
    if (!m_pImpl->running) {
        // A thread that stopped itself is still to be joined.
        if (m_pImpl->thread.joinable())
            m_pImpl->thread.join();
        return false;
    }
    m_pImpl->externalStopping = true;
    m_pImpl->stopRequested = true;
    if (m_pImpl->thread.joinable())
        m_pImpl->thread.join();
    m_pImpl->externalStopping = false;
    m_pImpl->running = false;
    if (m_pImpl->onStop)
        m_pImpl->onStop();
    return true;
}
