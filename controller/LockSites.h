// The controller's lock contract, written once for the controller and its
// tests: the lines the host's lock diagnostics show for every place that
// takes the controller mutex, and the guards that take the controller's locks.
//
// Two locks, always taken in this order:
// - The host's mutex (m_objMutex, a KPMutex). It serialises the host's entry
//   points, and the host sees exactly their calls: each takes it through
//   LockGuard at its own site line below, with the source name
//   "ISensorController.cpp"; the host's scoped guard gives it back with its
//   own header's name and line ("KPMutex.h", 74). Nothing else touches it: not
//   init, not uinit, not the worker's rounds (init's synchronous one
//   included). A host supplies only Lock and Unlock, so the library never
//   tries it.
// - The scheme lock, the library's own recursive mutex over the per-scheme
//   arrays (the cache), kept in the controller's heap record (ThreadRun)
//   beyond the fixed members. LockGuard takes it right after the host's mutex
//   and gives it back right before. The worker's round only tries it
//   (SchemeLock::Try): while a host call holds it the round gives way and
//   leaves its switch to the next round. It never waits for it, so a host call
//   that waits for the worker under its hold (a reset whose uinit stops the
//   worker) cannot deadlock with it; and since the lock is recursive, the
//   round init runs under a reset's hold on the same thread gets it. The
//   plain operations a host may call without the mutex (paramCheck,
//   judgeCurScheme, LPR_switch_to) wait for the scheme lock alone
//   (SchemeLock::Wait); nothing that holds the scheme lock alone takes the
//   host's mutex, so the order never turns round. So the scheme arrays are
//   never written by two threads at once, and the host's mutex sees nothing
//   of it. A host's video pipeline, told of changes from under the scheme
//   lock (possibly on the worker), must not call back into the controller.
//
// In checked builds (SENSOR_LOCK_CHECKS, which CMake sets for the test build,
// or a build without NDEBUG) the guards count per thread how deep that thread
// holds each controller's scheme lock, and SNS_REQUIRE_LOCK() at the top of a
// function that needs it aborts loudly when the calling thread does not hold
// it and is not the controller's sole user (start-up). Only functions whose
// callers must hold the lock check it: the plain operations that take the
// scheme lock themselves never abort. Otherwise the count and the check
// compile to nothing: the guards then make exactly the host calls they always
// made.
#pragma once

#include <mutex>

#include "controller/ISensorController.h"
#include "host/KPMutex.h"

#if defined(SENSOR_LOCK_CHECKS) || !defined(NDEBUG)
#define SENSOR_LOCK_CHECKED 1
#else
#define SENSOR_LOCK_CHECKED 0
#endif

namespace lock_site {

// The source name every lock site gives the host.
constexpr char kFile[] = "ISensorController.cpp";
// Where the host's scoped guard says it gives the mutex back.
constexpr char kGuardFile[] = "KPMutex.h";
constexpr int kGuardLine = 74;

// The host entry points, by the line each takes the mutex at.
constexpr int kSetParametersText = 713;
constexpr int kSetParameter = 722;
constexpr int kRestore = 730;
constexpr int kGetParameter = 1021;
constexpr int kGetAllParameters = 1111;
constexpr int kFlush = 1120;
constexpr int kResetParameters = 1145;
constexpr int kResetToLastParameters = 1192;
constexpr int kSetParamScheme = 1210;
constexpr int kGetParamScheme = 1222;
constexpr int kSetParamMode = 1229;
constexpr int kGetParamMode = 1243;
constexpr int kGetUIStyleFile = 1290;
constexpr int kGetUILanguageFile = 1300;
constexpr int kGetUICommonFile = 1310;

} // namespace lock_site

// Takes the host's mutex at a site's line and then the scheme lock, for the
// rest of the scope; gives them back in the reverse order.
class ISensorController::LockGuard {
public:
    LockGuard(ISensorController& p_objCtrl, int p_nLine);
    ~LockGuard();
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    // Declared in the order they are taken.
    KPMutexManager m_objManager;
    std::unique_lock<std::recursive_mutex> m_objSchemeLock;
    ISensorController& m_objCtrl;
};

// The scheme lock alone, without the host's mutex, for the rest of the scope:
// tried by the worker's round (owns() tells whether it got it), waited for
// by the plain operations a host may call without the mutex.
class ISensorController::SchemeLock {
public:
    enum Mode { Try, Wait };
    SchemeLock(ISensorController& p_objCtrl, Mode p_eMode);
    ~SchemeLock();
    SchemeLock(const SchemeLock&) = delete;
    SchemeLock& operator=(const SchemeLock&) = delete;

    bool owns() const;

private:
    std::unique_lock<std::recursive_mutex> m_objLock;
    ISensorController& m_objCtrl;
};

// For the rest of the scope this thread is the controller's only user without
// holding its locks: start-up, which the host runs while no other call and no
// worker can reach the controller, or a controller whose worker never runs.
// Functions that need the mutex accept that in checked builds.
class ISensorController::SoleUse {
public:
    explicit SoleUse(const ISensorController& p_objCtrl);
    ~SoleUse();
    SoleUse(const SoleUse&) = delete;
    SoleUse& operator=(const SoleUse&) = delete;

private:
    const KPMutex& m_objMutex;
};

// Aborts, in checked builds, when the calling thread neither holds this
// controller's scheme lock (through LockGuard or SchemeLock) nor is its sole
// user.
#if SENSOR_LOCK_CHECKED
#define SNS_REQUIRE_LOCK() requireLock(__func__)
#else
#define SNS_REQUIRE_LOCK() ((void)0)
#endif
