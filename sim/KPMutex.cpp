// The simulated host's recursive mutex, with an optional record of every
// lock operation for tests of the lock contract.
#include "host/KPMutex.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sim/SimHost.h"

namespace {

struct MutexRecord {
    std::atomic<bool> enabled{false};
    std::mutex mutex;
    std::vector<std::string> events;
};

MutexRecord& mutexRecord() {
    static MutexRecord record;
    return record;
}

void recordEvent(const char* what, const char* file, int line) {
    MutexRecord& record = mutexRecord();
    if (!record.enabled)
        return;
    std::string event =
        std::string(what) + " " + (file != nullptr ? file : "") + ":" + std::to_string(line);
    std::lock_guard<std::mutex> lock(record.mutex);
    record.events.push_back(std::move(event));
}

// Each live mutex's own lock, for the sim-only try below (a host's KPMutex
// offers no try).
struct MutexRegistry {
    std::mutex mutex;
    std::map<const KPMutex*, std::recursive_mutex*> locks;
};

MutexRegistry& mutexRegistry() {
    static MutexRegistry registry;
    return registry;
}

} // namespace

namespace sim {

bool tryLockMutex(KPMutex& mutex, const char* file, int line) {
    std::recursive_mutex* lock = nullptr;
    {
        MutexRegistry& registry = mutexRegistry();
        std::lock_guard<std::mutex> guard(registry.mutex);
        const auto it = registry.locks.find(&mutex);
        if (it != registry.locks.end())
            lock = it->second;
    }
    // Every attempt is recorded, taken or not.
    recordEvent("TryLock", file, line);
    return lock != nullptr && lock->try_lock();
}

void recordMutexEvents(bool enable) {
    mutexRecord().enabled = enable;
}

std::vector<std::string> mutexEvents() {
    MutexRecord& record = mutexRecord();
    std::lock_guard<std::mutex> lock(record.mutex);
    return record.events;
}

void clearMutexEvents() {
    MutexRecord& record = mutexRecord();
    std::lock_guard<std::mutex> lock(record.mutex);
    record.events.clear();
}

} // namespace sim

struct KPMutex::Impl {
    std::recursive_mutex mutex;
};

KPMutex::KPMutex() : m_pImpl(new Impl) {
    MutexRegistry& registry = mutexRegistry();
    std::lock_guard<std::mutex> guard(registry.mutex);
    registry.locks[this] = &m_pImpl->mutex;
}

KPMutex::~KPMutex() {
    MutexRegistry& registry = mutexRegistry();
    std::lock_guard<std::mutex> guard(registry.mutex);
    registry.locks.erase(this);
}

int KPMutex::Lock(const char* file, int line) {
    m_pImpl->mutex.lock();
    recordEvent("Lock", file, line);
    return 0;
}

int KPMutex::Unlock(const char* file, int line) {
    // Recorded before the release, so that the record keeps the real order.
    recordEvent("Unlock", file, line);
    m_pImpl->mutex.unlock();
    return 0;
}

KPMutexManager::KPMutexManager(KPMutex& mutex, const char* file, int line) : m_objMutex(mutex) {
    m_objMutex.Lock(file, line);
}

KPMutexManager::~KPMutexManager() {
    m_objMutex.Unlock("KPMutex.h", 74);
}
