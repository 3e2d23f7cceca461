// The simulated host's reference counts.
#include "host/RefCountManager.h"

#include <atomic>
#include <mutex>
#include <new>

// One count: the owner's lock (for the owner's own use, taken with lock and
// unlock) and the count itself, which changes atomically without that lock so
// that increment and decrement may be called while it is held.
class RefCount {
public:
    explicit RefCount(const void* owner) : m_pOwner(owner), m_nCount(1) {}

    std::recursive_mutex m_objMutex;
    const void* const m_pOwner;
    std::atomic<int> m_nCount;
};

RefCount* RefCountManager::acquire(const void* owner) {
    return new (std::nothrow) RefCount(owner);
}

void RefCountManager::release(RefCount* count) {
    delete count;
}

bool RefCountManager::lock(RefCount* count) {
    if (count == nullptr)
        return false;
    count->m_objMutex.lock();
    return true;
}

void RefCountManager::unlock(RefCount* count) {
    if (count != nullptr)
        count->m_objMutex.unlock();
}

bool RefCountManager::increment(RefCount* count) {
    if (count == nullptr)
        return false;
    int current = count->m_nCount.load();
    // Once zero, the owner is going: no new reference may be taken.
    while (current > 0) {
        if (count->m_nCount.compare_exchange_weak(current, current + 1))
            return true;
    }
    return false;
}

int RefCountManager::decrement(RefCount* count) {
    if (count == nullptr)
        return 0;
    int current = count->m_nCount.load();
    // Never below zero, however often it is called.
    while (current > 0) {
        if (count->m_nCount.compare_exchange_weak(current, current - 1))
            return current - 1;
    }
    return 0;
}

const void* RefCountManager::owner(const RefCount* count) {
    return count != nullptr ? count->m_pOwner : nullptr;
}
