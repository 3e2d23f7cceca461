// Schemes: switching, the time windows, the host's scheme and mode calls, and
// the worker's once-a-second round.
#include "controller/ControllerPriv.h"

#include <cstring>
#include <thread>

#include "keyval/SensorKeys.h"
#include "host/KPDeviceTime.h"
#include "host/TarvelTime.h"

using namespace sensor_detail;

namespace {

// Waits in steps of 0.5 s while a reset, a restore or a switch is under way.
void waitWhileBusy(const std::atomic<u8>& p_nFlags) {
    while (testFlag(p_nFlags, kBusyMask)) {
        TarvelTime objWait(0, 500000);
        objWait.wait();
    }
}

} // namespace

// Makes nScheme current and pushes its values: with force every value, else
// only those that differ from the scheme applied before. Always SNS_SUCCESS.
int ISensorController::switch_to(int nScheme, bool force) {
    SNS_REQUIRE_LOCK();
    SNS_DBG("switch_to(): %d -> %d\n", m_nCurScheme.load(), nScheme);

    setFlag(m_nFlags, switching_flag);
    m_nLastScheme = m_nCurScheme.load();
    m_nCurScheme = nScheme;

    // An index beyond the factory slot has no array: the switch is recorded
    // (the caller reported the index) but nothing can be pushed.
    const bool bHasArray = m_ppUserKeyVal != nullptr && nScheme >= 0 &&
                           static_cast<u32>(nScheme) <= m_stSysConf.nSchemeSum;
    if (bHasArray) {
        if (force) {
            (void)setParameters(m_ppUserKeyVal[nScheme], m_nKeyValSum, false);
        } else {
            SNS_ASSERT_TEXT(
                SNS_SUCCESS == setParameters(m_ppUserKeyVal[m_nCurScheme], m_nKeyValSum, true),
                "SNS_SUCCESS == setParameters(m_ppUserKeyVal[m_nCurScheme], "
                "m_nKeyValSum, true)",
                "m_nCurScheme(%d) m_nKeyValSum(%d)\n", m_nCurScheme.load(), m_nKeyValSum);
        }
    }

    clearFlag(m_nFlags, switching_flag);
    return SNS_SUCCESS;
}

// The switch of a plate-reading device leaving its time windows: the whole
// scheme is pushed with the day/night mode forced to 0 (the stored scheme
// keeps its own mode). Always SNS_SUCCESS.
int ISensorController::LPR_switch_to(int nScheme) {
    // A host may call it directly, without the mutex: the scheme lock keeps
    // the arrays from the worker and the host's locked calls meanwhile.
    SchemeLock objSchemeLock(*this, SchemeLock::Wait);
    setFlag(m_nFlags, switching_flag);
    m_nLastScheme = m_nCurScheme.load();
    m_nCurScheme = nScheme;

    const bool bHasArray = m_ppUserKeyVal != nullptr && m_pstKeyValTmp2 != nullptr &&
                           nScheme >= 0 && static_cast<u32>(nScheme) <= m_stSysConf.nSchemeSum;
    if (bHasArray) {
        std::memcpy(m_pstKeyValTmp2, m_ppUserKeyVal[nScheme], m_nKeyValSum * sizeof(KeyVal));
        for (u32 i = 0; i < m_nKeyValSum; ++i) {
            if (m_pstKeyValTmp2[i].key == KEY_DN_MODE) {
                m_pstKeyValTmp2[i].value = 0;
                break;
            }
        }
        (void)setParameters(m_pstKeyValTmp2, m_nKeyValSum, false);
    }

    clearFlag(m_nFlags, switching_flag);
    return SNS_SUCCESS;
}

// The lowest user scheme whose window [start, end) holds the device time
// (nSchedule 1), else scheme 0 (nSchedule 0). Always SNS_SUCCESS.
int ISensorController::judgeCurScheme(int& nScheme, int& nSchedule) {
    // A plain question a host may ask without the mutex; the scheme lock keeps
    // the windows from changing under it.
    SchemeLock objSchemeLock(*this, SchemeLock::Wait);
    const KPDateTime stNow = KPDeviceTime::getCurrentTime();
    const u32 nNow = static_cast<u32>(stNow.hour * 100 + stNow.minute);

    nSchedule = 0;
    // The window lies in entries 1 to 4; shorter arrays have none.
    const bool bHasWindows = m_ppUserKeyVal != nullptr && m_nKeyValSum >= 5;
    for (u32 i = 0; bHasWindows && i < m_stSysConf.nSchemeSum; ++i) {
        const KeyVal* pScheme = m_ppUserKeyVal[i];
        const u32 nStart = pScheme[1].value * 100 + pScheme[2].value;
        const u32 nEnd = pScheme[3].value * 100 + pScheme[4].value;
        if (nStart <= nNow && nNow < nEnd) {
            nScheme = static_cast<int>(i);
            nSchedule = 1;
            return SNS_SUCCESS;
        }
    }
    nScheme = 0;
    return SNS_SUCCESS;
}

// Applies scheme p_nScheme (0 to nSchemeSum, the last being the factory
// values). An out-of-range index is reported and still used. True when the
// switch succeeded.
bool ISensorController::setParamScheme(int p_nScheme) {
    SNS_LOCK_GUARD(kSetParamScheme);
    SNS_ASSERT_TEXT(p_nScheme >= 0 && (u32)p_nScheme <= m_stSysConf.nSchemeSum,
                    "p_nScheme >= 0 && (u32)p_nScheme <= m_stSysConf.nSchemeSum", "p_nScheme(%d)\n",
                    p_nScheme);
    waitWhileBusy(m_nFlags);
    return SNS_SUCCESS == switch_to(p_nScheme, false);
}

// The current scheme index (-1 before the first switch). Always true.
bool ISensorController::getParamScheme(int& scheme) {
    SNS_LOCK_GUARD(kGetParamScheme);
    scheme = m_nCurScheme;
    return true;
}

// 0: the worker never switches; 1: it switches by the clock or by day/night.
// Any other value is reported and still stored. Always true.
bool ISensorController::setParamMode(int p_nMode) {
    SNS_LOCK_GUARD(kSetParamMode);
    SNS_ASSERT_TEXT(0 == p_nMode || 1 == (u32)p_nMode, "0 == p_nMode || 1 == p_nMode",
                    "p_nMode(%d)\n", p_nMode);
    waitWhileBusy(m_nFlags);
    m_nParamMode = static_cast<u32>(p_nMode);
    return true;
}

// The parameter mode. Always true.
bool ISensorController::getParamMode(int& mode) {
    SNS_LOCK_GUARD(kGetParamMode);
    mode = static_cast<int>(m_nParamMode.load());
    return true;
}

// One round of the worker: after a second, choose the scheme by day/night or
// by the time windows and switch to it when it changed. Always 0.
int ISensorController::sensorThread() {
    if (!testFlag(m_nFlags, resetting_flag)) {
        TarvelTime objWait(1, 0);
        objWait.wait();
    }

    // The worker switches under the scheme lock, so that a host call
    // (setParameter, restore, a reset) never touches the scheme cache at the
    // same time; the host's mutex never sees the round. It only tries the
    // lock: while a host call holds it the switch is left to the next round.
    // It never waits for it, because a host call may hold it while it stops
    // this thread (a reset). The lock is recursive, so the round that init
    // runs under a reset's hold gets it.
    SchemeLock objSchemeLock(*this, SchemeLock::Try);
    if (!objSchemeLock.owns()) {
        std::this_thread::yield();
        return 0;
    }

    if (m_nParamMode == 0)
        return 0;

    int nScheme = 0;
    int nSchedule = 0;

    if (m_bDNScheme) {
        int nState = 0;
        (void)getDNState(nState);
        nScheme = nState != 0 ? 1 : 0;
        if (m_nCurScheme == nScheme || testFlag(m_nFlags, kBusyMask))
            return 0;
        SNS_DBG("SCHEME: auto switch_to(%d)\n", nScheme);
        SNS_ASSERT_TEXT(SNS_SUCCESS == switch_to(nScheme, false),
                        "SNS_SUCCESS == switch_to(nScheme)", "nScheme(%d)\n", nScheme);
        return 0;
    }

    if (!m_bTimeScheme)
        return 0;

    nSchedule = 0;
    SNS_ASSERT_TEXT(SNS_SUCCESS == judgeCurScheme(nScheme, nSchedule),
                    "SNS_SUCCESS == judgeCurScheme(nScheme, nSchedule)", "nScheme(%d)\n", nScheme);

    if (!m_bLprMode) {
        if (m_nCurScheme == nScheme || testFlag(m_nFlags, kBusyMask))
            return 0;
        SNS_DBG("SCHEME: auto switch_to(%d)\n", nScheme);
        SNS_ASSERT_TEXT(SNS_SUCCESS == switch_to(nScheme, false),
                        "SNS_SUCCESS == switch_to(nScheme)", "nScheme(%d)\n", nScheme);
        return 0;
    }

    if (nSchedule == 1) {
        if ((static_cast<u32>(nSchedule) == m_nLastSchedule && m_nCurScheme == nScheme) ||
            testFlag(m_nFlags, kBusyMask))
            return 0;
        SNS_DBG("SCHEME: auto switch_to(%d)\n", nScheme);
        if (m_nLastSchedule == static_cast<u32>(nSchedule)) {
            SNS_ASSERT_TEXT(SNS_SUCCESS == switch_to(nScheme, false),
                            "SNS_SUCCESS == switch_to(nScheme)", "nScheme(%d)\n", nScheme);
        } else {
            // Coming from the day/night schemes, whose pushes had the
            // day/night mode forced: push the whole window scheme.
            SNS_ASSERT_TEXT(SNS_SUCCESS == switch_to(nScheme, true),
                            "SNS_SUCCESS == switch_to(nScheme, true)", "nScheme(%d)\n", nScheme);
        }
    } else {
        int nState = 0;
        (void)getDNState(nState);
        nScheme = nState != 0 ? 1 : 0;
        if ((m_nLastSchedule == 0 && m_nCurScheme == nScheme) || testFlag(m_nFlags, kBusyMask))
            return 0;
        (void)LPR_switch_to(nScheme);
    }
    m_nLastSchedule = static_cast<u32>(nSchedule);
    return 0;
}
