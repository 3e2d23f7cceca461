// The host's mutex and its scoped guard. The mutex is recursive: the thread
// that holds it may lock it again.
#pragma once

#include <memory>

class KPMutex {
public:
    KPMutex();
    ~KPMutex();
    KPMutex(const KPMutex&) = delete;
    KPMutex& operator=(const KPMutex&) = delete;

    // file and line name the caller, for the host's lock diagnostics.
    int Lock(const char* file, int line);
    int Unlock(const char* file, int line);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

// Locks in the constructor with the caller's file and line, unlocks in the
// destructor with this header's own name and line.
class KPMutexManager {
public:
    KPMutexManager(KPMutex& mutex, const char* file, int line);
    ~KPMutexManager();
    KPMutexManager(const KPMutexManager&) = delete;
    KPMutexManager& operator=(const KPMutexManager&) = delete;

private:
    KPMutex& m_objMutex;
};
