// The controller's lock guards and, in checked builds, the per-thread record
// of the controllers whose scheme lock a thread holds.
#include "controller/LockSites.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "controller/ControllerPriv.h"

namespace {

#if SENSOR_LOCK_CHECKED

// How deep this thread holds one controller's mutex, and how often it claims
// to be that controller's sole user.
struct Hold {
    const KPMutex* pMutex;
    int nDepth;
    int nSole;
};

// A thread holds few controllers at once (one per channel at most).
const int kMaxHolds = 16;

struct Holds {
    Hold aHolds[kMaxHolds];
    int nHolds;
};

// The record lives behind a POSIX thread key rather than in thread_local
// storage: a shared library's dynamic TLS needs the dynamic loader's
// __tls_get_addr on ARM, and the library must need nothing but libc, the C++
// runtime and TinyXML. The key's destructor frees each thread's record.
pthread_key_t g_holdsKey;
pthread_once_t g_holdsOnce = PTHREAD_ONCE_INIT;

void freeHolds(void* p_pHolds) {
    delete static_cast<Holds*>(p_pHolds);
}

void createHoldsKey() {
    if (pthread_key_create(&g_holdsKey, freeHolds) != 0) {
        std::fprintf(stderr, "lock contract: no thread key for the lock records\n");
        std::abort();
    }
}

// This thread's record; created on first use unless p_bCreate is false.
Holds* threadHolds(bool p_bCreate) {
    pthread_once(&g_holdsOnce, createHoldsKey);
    Holds* pHolds = static_cast<Holds*>(pthread_getspecific(g_holdsKey));
    if (pHolds == nullptr && p_bCreate) {
        pHolds = new Holds();
        pthread_setspecific(g_holdsKey, pHolds);
    }
    return pHolds;
}

Hold* findHold(Holds& p_objHolds, const KPMutex* p_pMutex) {
    for (int i = 0; i < p_objHolds.nHolds; ++i) {
        if (p_objHolds.aHolds[i].pMutex == p_pMutex)
            return &p_objHolds.aHolds[i];
    }
    return nullptr;
}

[[noreturn]] void contractBroken(const char* p_szWhat) {
    std::fprintf(stderr, "lock contract broken: %s\n", p_szWhat);
    std::fflush(stderr);
    std::abort();
}

Hold& holdOf(Holds& p_objHolds, const KPMutex* p_pMutex) {
    Hold* pHold = findHold(p_objHolds, p_pMutex);
    if (pHold != nullptr)
        return *pHold;
    if (p_objHolds.nHolds == kMaxHolds)
        contractBroken("one thread holds too many controller mutexes");
    p_objHolds.aHolds[p_objHolds.nHolds] = Hold{p_pMutex, 0, 0};
    return p_objHolds.aHolds[p_objHolds.nHolds++];
}

// Forgets a record that counts nothing any more.
void dropIfEmpty(Holds& p_objHolds, Hold& p_objHold) {
    if (p_objHold.nDepth != 0 || p_objHold.nSole != 0)
        return;
    p_objHold = p_objHolds.aHolds[--p_objHolds.nHolds];
}

void count(const KPMutex* p_pMutex, int Hold::*p_pField, int p_nDelta) {
    Holds& objHolds = *threadHolds(true);
    Hold& objHold = holdOf(objHolds, p_pMutex);
    objHold.*p_pField += p_nDelta;
    if (objHold.*p_pField < 0)
        contractBroken("a controller mutex given back more often than taken");
    dropIfEmpty(objHolds, objHold);
}

#endif

} // namespace

#if SENSOR_LOCK_CHECKED
#define SNS_COUNT_HOLD(ctrl, delta) count(&(ctrl).m_objMutex, &Hold::nDepth, delta)
#define SNS_COUNT_SOLE(mutex, delta) count(&(mutex), &Hold::nSole, delta)
#else
#define SNS_COUNT_HOLD(ctrl, delta) ((void)0)
#define SNS_COUNT_SOLE(mutex, delta) ((void)0)
#endif

ISensorController::LockGuard::LockGuard(ISensorController& p_objCtrl, int p_nLine)
    : m_objManager(p_objCtrl.m_objMutex, lock_site::kFile, p_nLine),
      m_objSchemeLock(ThreadRun::schemeLock(p_objCtrl)), m_objCtrl(p_objCtrl) {
    // After the host's mutex: a host call waits here only while the worker
    // or a plain operation finishes with the scheme arrays.
    if (m_objSchemeLock.mutex() != nullptr)
        m_objSchemeLock.lock();
    SNS_COUNT_HOLD(m_objCtrl, 1);
}

ISensorController::LockGuard::~LockGuard() {
    SNS_COUNT_HOLD(m_objCtrl, -1);
}

ISensorController::SchemeLock::SchemeLock(ISensorController& p_objCtrl, Mode p_eMode)
    : m_objLock(ThreadRun::schemeLock(p_objCtrl)), m_objCtrl(p_objCtrl) {
    if (m_objLock.mutex() != nullptr) {
        if (p_eMode == Try)
            (void)m_objLock.try_lock();
        else
            m_objLock.lock();
    }
    if (owns())
        SNS_COUNT_HOLD(m_objCtrl, 1);
}

ISensorController::SchemeLock::~SchemeLock() {
    if (owns())
        SNS_COUNT_HOLD(m_objCtrl, -1);
}

bool ISensorController::SchemeLock::owns() const {
    return m_objLock.mutex() == nullptr || m_objLock.owns_lock();
}

ISensorController::SoleUse::SoleUse(const ISensorController& p_objCtrl)
    : m_objMutex(p_objCtrl.m_objMutex) {
    SNS_COUNT_SOLE(m_objMutex, 1);
}

ISensorController::SoleUse::~SoleUse() {
    SNS_COUNT_SOLE(m_objMutex, -1);
}

void ISensorController::requireLock(const char* p_szFunction) const {
#if SENSOR_LOCK_CHECKED
    Holds* pHolds = threadHolds(false);
    const Hold* pHold = pHolds == nullptr ? nullptr : findHold(*pHolds, &m_objMutex);
    if (pHold != nullptr && (pHold->nDepth > 0 || pHold->nSole > 0))
        return;
    std::fprintf(stderr,
                 "lock contract broken: ISensorController::%s needs the controller mutex, and "
                 "this thread does not hold it\n",
                 p_szFunction);
    std::fflush(stderr);
    std::abort();
#else
    (void)p_szFunction;
#endif
}
