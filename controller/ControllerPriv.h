// What the controller's source files share beyond the public class.
#pragma once

#define SNS_SOURCE_UNIT "ISensorController.cpp"

#include <atomic>
#include <mutex>

#include "controller/ISensorController.h"
#include "controller/LockSites.h"
#include "controller/SafePointer.h"
#include "diag/SensorDiag.h"
#include "host/KPMutex.h"
#include "host/ia_ioctrl_v2.h"

// Takes the controller mutex for the rest of the scope at a lock site of
// controller/LockSites.h: the line the host's lock diagnostics have always
// shown for this entry point.
#define SNS_LOCK_GUARD(site) ISensorController::LockGuard objMutexGuard(*this, lock_site::site)

// The controller's record beyond its fixed members, on the heap behind
// m_pThreadRun (a counted pointer: the controller and the worker's thread
// object each hold it). It holds the worker's round callable and the scheme
// lock, the library's own mutex over the per-scheme arrays
// (controller/LockSites.h).
struct ISensorController::ThreadRun {
    explicit ThreadRun(ISensorController* p_pOwner) : pOwner(p_pOwner) {}
    int operator()() const { return pOwner->sensorThread(); }

    // The record of a controller; null only when its constructor could not
    // make one (then there is no worker either).
    static ThreadRun* of(const ISensorController& p_objCtrl) {
        const SafePointer<ThreadRun>* pRun =
            static_cast<const SafePointer<ThreadRun>*>(p_objCtrl.m_pThreadRun);
        return pRun != nullptr ? pRun->get() : nullptr;
    }
    // A controller's scheme lock, not yet taken; none without the record.
    static std::unique_lock<std::recursive_mutex> schemeLock(const ISensorController& p_objCtrl) {
        ThreadRun* pRun = of(p_objCtrl);
        if (pRun == nullptr)
            return std::unique_lock<std::recursive_mutex>();
        return std::unique_lock<std::recursive_mutex>(pRun->objSchemeMutex, std::defer_lock);
    }

    ISensorController* pOwner;
    // Recursive: a locked entry point calls plain operations that take it
    // again, and init's round runs under a reset's hold on the same thread.
    std::recursive_mutex objSchemeMutex;
};

namespace sensor_detail {

// Busy bits: a reset, a restore or a scheme switch is under way.
const u8 kBusyMask = ISensorController::resetting_flag | ISensorController::restoring_flag |
                     ISensorController::switching_flag; // 56
// User actions are dropped while any of these is set (start-up too).
const u8 kUserDropMask = ISensorController::initing_flag | kBusyMask; // 57

inline void setFlag(std::atomic<u8>& flags, u8 bits) {
    flags.fetch_or(bits);
}
inline void clearFlag(std::atomic<u8>& flags, u8 bits) {
    flags.fetch_and(static_cast<u8>(~bits));
}
inline bool testFlag(const std::atomic<u8>& flags, u8 bits) {
    return (flags.load() & bits) != 0;
}

// A host's key may name any ISP command, also one whose record is more than
// one word (day/night times, version text, sensor check, ranges): the ISP then
// reads or writes that many words. A single value therefore travels in room
// for the largest record, its first word the value.
struct IspValueRoom {
    u32 aWords[sizeof(ia_dynamic_params_attr_st) / sizeof(u32) + 4];
};
static_assert(sizeof(IspValueRoom) >= sizeof(ia_dynamic_params_attr_st), "range record");
static_assert(sizeof(IspValueRoom) >= sizeof(ia_dynamic_params_cmds_st), "command list");
static_assert(sizeof(IspValueRoom) >= IA_VERSION_TEXT_LEN, "version text");

// Guards every controller's zoom and focus record: the host copies it in and
// out from its own threads while host calls and the worker read its lock.
std::mutex& zoomFocusMutex();

} // namespace sensor_detail
