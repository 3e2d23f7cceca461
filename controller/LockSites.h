// The controller's lock contract, written once for the controller and its
// tests: the lines the host's lock diagnostics show for every place that
// takes the controller mutex, and the guards that take it.
//
// Every host entry point that serialises on the mutex takes it through
// LockGuard at its own site line, with the source name "ISensorController.cpp";
// the host's scoped guard gives it back with its own header's name and line
// ("KPMutex.h", 74). The worker only tries the mutex (TryLock and Unlock, both
// at kWorkerRound).
//
// In checked builds (SENSOR_LOCK_CHECKS, which CMake sets for the test build,
// or a build without NDEBUG) the guards count per thread how deep that thread
// holds each controller's mutex, and SNS_REQUIRE_LOCK() at the top of a
// function that needs the mutex aborts loudly when the calling thread does not
// hold it and is not the controller's sole user (start-up). Otherwise the
// count and the check compile to nothing: the guards then make exactly the
// host calls they always made.
#pragma once

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
// The worker's round: tried, never waited for.
constexpr int kWorkerRound = 1262;
constexpr int kGetUIStyleFile = 1290;
constexpr int kGetUILanguageFile = 1300;
constexpr int kGetUICommonFile = 1310;

} // namespace lock_site

// Takes the controller mutex for the rest of the scope at a site's line.
class ISensorController::LockGuard {
public:
    LockGuard(ISensorController& p_objCtrl, int p_nLine);
    ~LockGuard();
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    KPMutexManager m_objManager;
    ISensorController& m_objCtrl;
};

// Keeps a lock the worker took with TryLock for the rest of the scope and
// gives it back at the same line.
class ISensorController::TriedLock {
public:
    TriedLock(ISensorController& p_objCtrl, int p_nLine);
    ~TriedLock();
    TriedLock(const TriedLock&) = delete;
    TriedLock& operator=(const TriedLock&) = delete;

private:
    ISensorController& m_objCtrl;
    int m_nLine;
};

// For the rest of the scope this thread is the controller's only user without
// holding its mutex: start-up, which the host runs while no other call and no
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
// controller's mutex nor is its sole user.
#if SENSOR_LOCK_CHECKED
#define SNS_REQUIRE_LOCK() requireLock(__func__)
#else
#define SNS_REQUIRE_LOCK() ((void)0)
#endif
