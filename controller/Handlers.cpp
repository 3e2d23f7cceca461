#include "controller/ControllerPriv.h"

#include <atomic>

#include "keyval/SensorKeys.h"
#include "host/ia_ioctrl_v2.h"

using namespace sensor_detail;

namespace {

// Brackets a wide-dynamic-range mode change for the video pipeline (0 before, 1 after).
const int kNoticeWdrChange = 2370;

// While beaway turns the picture, the two single-axis mirrors act along the
// other axis: 1 and 2 are exchanged, every other mirror value passes.
u32 beawayMapping(u32 nMirror, u32 nBeaway) {
    if (nBeaway != 0) {
        if (nMirror == 1)
            return 2;
        if (nMirror == 2)
            return 1;
    }
    return nMirror;
}

} // namespace

// Momentary user actions (lens moves, iris steps, one-shot focus, frame rate,
// shutter reset) are stored in schemes like any key, but must only happen
// when a user asks: they are dropped while the controller starts, resets,
// replays or switches schemes.
int ISensorController::doIaCmd_User(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    if (!testFlag(m_nFlags, kUserDropMask))
        return doIaCmd(p_nKey, p_nDir, p_pVal);
    SNS_DBG("ignored auto focus once !!!\n");
    return SNS_SUCCESS;
}

// A wide-dynamic-range mode change, bracketed by notices so the pipeline can
// hold its streams. It counts as done when the pipeline accepted it.
int ISensorController::doHwdr(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    if (!m_bShowWDRFalg) {
        // The streams cannot carry it: the mode is stored as off.
        *static_cast<u32*>(p_pVal) = 0;
        return SNS_SUCCESS;
    }
    notifyToVideo(kNoticeWdrChange, 0);
    const int nRet = notifyToVideo(static_cast<int>(p_nKey), *static_cast<int*>(p_pVal));
    SNS_ASSERT(SNS_SUCCESS == doIaCmd(p_nKey, p_nDir, p_pVal), "");
    notifyToVideo(kNoticeWdrChange, 1);
    return nRet;
}

int ISensorController::doImageAdjust(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    SNS_ASSERT(SNS_SUCCESS == doIaCmd(p_nKey, p_nDir, p_pVal), "");
    return notifyToVideo(static_cast<int>(p_nKey), *static_cast<int*>(p_pVal));
}

// Stabilisation: the pipeline first, then the ISP, whose result counts.
int ISensorController::doDIS(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    SNS_ASSERT_TEXT(SNS_SUCCESS ==
                        notifyToVideo(static_cast<int>(p_nKey), *static_cast<int*>(p_pVal)),
                    "SNS_SUCCESS == notifyToVideo(p_nKey, *(u32*)p_pVal)", "");
    return doIaCmd(p_nKey, p_nDir, p_pVal);
}

// Panorama stitching is the video pipeline's work: the ISP is not involved
// and the value is only stored.
int ISensorController::doIaCmd_PanoTuning(u32 p_nKey, u32 /*p_nDir*/, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    const int nKey = static_cast<int>(p_nKey);
    const int nVal = *static_cast<int*>(p_pVal);
    SNS_ASSERT(SNS_SUCCESS == notifyToVideo(nKey, nVal), "");
    return SNS_SUCCESS;
}

// The ISP takes the thresholds as one record: the new value and the current
// scheme's sibling; the sensitivity travels alone.
int ISensorController::doDNThr(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    dn_thr_st stThr = {0, 0, 0};
    const u32 nNew = *static_cast<u32*>(p_pVal);
    const u32 nScheme = static_cast<u32>(m_nCurScheme.load());
    switch (p_nKey) {
        case KEY_DTN_THR:
            stThr.d2n_thr = nNew;
            getKeyValFromCache(nScheme, KEY_NTD_THR, stThr.n2d_thr);
            break;
        case KEY_NTD_THR:
            getKeyValFromCache(nScheme, KEY_DTN_THR, stThr.d2n_thr);
            stThr.n2d_thr = nNew;
            break;
        case KEY_DN_SENSITIVITY:
            getKeyValFromCache(nScheme, KEY_DN_SENSITIVITY, stThr.dn_sensitivity);
            stThr.dn_sensitivity = nNew;
            break;
        default:
            break;
    }
    SNS_BARE(0,
             "m_nCurScheme(%u) dn_thr_st.d2n_thr(%u) dn_thr_st.n2d_thr(%u)  "
             "dn_thr_st.dn_sensitivity(%u)\n",
             nScheme, stThr.d2n_thr, stThr.n2d_thr, stThr.dn_sensitivity);
    const int nRet = doIaCmd(p_nKey, p_nDir, &stThr);
    // A threshold the ISP rejects must not stop the replay of saved parameters.
    if (testFlag(m_nFlags, restoring_flag))
        return SNS_SUCCESS;
    return nRet;
}

// The ISP takes both switching times as one record: the new member and the
// current scheme's other three.
int ISensorController::doDNTime(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    dn_time_st stTime = {0, 0, 0, 0};
    const u32 nNew = *static_cast<u32*>(p_pVal);
    const u32 nScheme = static_cast<u32>(m_nCurScheme.load());
    if (p_nKey == KEY_DTN_H)
        stTime.d2n_hour = nNew;
    else
        getKeyValFromCache(nScheme, KEY_DTN_H, stTime.d2n_hour);
    if (p_nKey == KEY_DTN_M)
        stTime.d2n_min = nNew;
    else
        getKeyValFromCache(nScheme, KEY_DTN_M, stTime.d2n_min);
    if (p_nKey == KEY_NTD_H)
        stTime.n2d_hour = nNew;
    else
        getKeyValFromCache(nScheme, KEY_NTD_H, stTime.n2d_hour);
    // Every other key sets the minute to day (KEY_NTD_M in practice).
    if (p_nKey != KEY_DTN_H && p_nKey != KEY_DTN_M && p_nKey != KEY_NTD_H)
        stTime.n2d_min = nNew;
    else
        getKeyValFromCache(nScheme, KEY_NTD_M, stTime.n2d_min);
    SNS_BARE(0,
             "m_nCurScheme(%u) dn_time_st.d2n_hour(%u) dn_time_st.d2n_min(%u) "
             "dn_time_st.n2d_hour(%u) dn_time_st.n2d_min(%u) \n",
             nScheme, stTime.d2n_hour, stTime.d2n_min, stTime.n2d_hour, stTime.n2d_min);
    return doIaCmd(p_nKey, p_nDir, &stTime);
}

// Always true, whatever getParameter answered.
bool ISensorController::getDNMode(int& p_nMode) {
    getParameter(KEY_DN_MODE, p_nMode);
    return true;
}

// Sets the mode in the current scheme; saving is the host's flush.
bool ISensorController::setDNMode(int p_nMode) {
    return setParameter(KEY_DN_MODE, p_nMode, true) == SNS_SUCCESS;
}

// The ISP's present state (non-zero: night); never cached.
bool ISensorController::getDNState(int& p_nState) {
    return doIaCmd(IA_CMD_DN_STATE, IA_CMD_OPT_GET, &p_nState) == SNS_SUCCESS;
}

// The user's mirror is stored as chosen; the pipeline and the ISP get it
// mapped through the stored beaway.
int ISensorController::doMirror(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    const u32 nAsSet = *static_cast<u32*>(p_pVal);
    u32 nBeaway = 0;
    getKeyValFromCache(static_cast<u32>(m_nCurScheme.load()), KEY_BEAWAY, nBeaway);
    u32 nMirror = beawayMapping(nAsSet, nBeaway);
    SNS_DBG("nMirror(%u --> %u), nBeaway:%u\n", nAsSet, nMirror, nBeaway);
    SNS_ASSERT(SNS_SUCCESS == notifyToVideo(p_nKey, nMirror), "");
    return doIaCmd(p_nKey, p_nDir, &nMirror);
}

// Beaway changes the mirror in effect: the pipeline hears the new effective
// mirror and the beaway; the ISP gets the beaway only.
int ISensorController::doBeaway(u32 p_nKey, u32 p_nDir, void* p_pVal) {
    SNS_REQUIRE_LOCK();
    if (!getshowBeawayFalg()) {
        // Withdrawn on this camera: stored as off, nothing sent.
        *static_cast<u32*>(p_pVal) = 0;
        return SNS_SUCCESS;
    }
    u32 nBeaway = *static_cast<u32*>(p_pVal);
    u32 nMirror = 0;
    getKeyValFromCache(static_cast<u32>(m_nCurScheme.load()), KEY_MIRROR, nMirror);
    nMirror = beawayMapping(nMirror, nBeaway);
    SNS_ASSERT(SNS_SUCCESS == notifyToVideo(IA_CMD_UI_MIRROR, nMirror), "");
    SNS_ASSERT(SNS_SUCCESS == notifyToVideo(p_nKey, nBeaway), "");
    return doIaCmd(p_nKey, p_nDir, &nBeaway);
}

// Sets the mirror and, only when that succeeded, saves the scheme.
bool ISensorController::setMirrorMode(int p_nMode) {
    if (setParameter(KEY_MIRROR, p_nMode, true) != SNS_SUCCESS)
        return false;
    flush();
    return true;
}

bool ISensorController::getMirrorValue(int& p_nVal) {
    return getParameter(KEY_MIRROR, p_nVal);
}

bool ISensorController::getBeaway(int& p_nVal) {
    return getParameter(KEY_BEAWAY, p_nVal);
}

void ISensorController::setShowBeawayFalg(bool p_bShow) {
    setshowBeawayFalg(p_bShow);
}

bool ISensorController::getShowBeawayFalg(bool& p_bShow) {
    p_bShow = getshowBeawayFalg();
    return true;
}

void ISensorController::setShowWDRFalg(bool p_bShow) {
    m_bShowWDRFalg = p_bShow;
}

bool ISensorController::getShowWDRFalg(bool& p_bShow) {
    p_bShow = m_bShowWDRFalg;
    return true;
}
