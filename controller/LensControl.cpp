// Direct lens, iris, shutter and light operations of the controller, and the
// run-time parameter ranges they build on.
#include "controller/ControllerPriv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "keyval/SensorKeys.h"
#include "host/ia_ioctrl_v2.h"
#include "diag/SensorNumber.h"

namespace {

// ISP commands served here that are not a key of the same number, or that
// no key names. The other commands are the keys' own numbers.
enum : u32 {
    kCmdIrisUp = sensor_keys::commandOf(KEY_IRIS_UP),
    kCmdIrisDown = sensor_keys::commandOf(KEY_IRIS_DOWN),
    kCmdWhiteSwitch = sensor_keys::commandOf(KEY_WHITE_SWITCH),
    kCmdWhiteMode = sensor_keys::commandOf(KEY_WHITE_MODE),
    kCmdPtzRunState = IA_CMD_PTZ_RUN_STATE,
    kCmdAfStatistic = IA_CMD_AF_STATISTIC,
};

// A manual focus step is only honoured in focus mode 1, a manual iris step or
// position only in exposure mode 3.
const u32 kManualFocusMode = 1;
const u32 kManualIrisExposeMode = 3;

// Iris positions the ISP accepts; see setIrisValue for the upper clamp.
const int kIrisMin = 256;
const int kIrisMax = 25600;
const u32 kIrisBeyondMax = 0x100000;

// The zoom motor positions at which the lens reaches 1x, 2x, ... 16x. One
// table serves every lens.
constexpr u32 kZoomRatioPos[16] = {16384, 24576, 27264, 28672, 29056, 29440, 29728, 30016,
                                   30208, 30400, 30560, 30720, 30912, 31104, 31232, 31424};

// The shutter list keeps at most this many values.
const size_t kShutterListMax = 30;

// Only these commands may have their range asked for.
bool isRangeCommandAllowed(int p_nCmd) {
    for (u32 nCmd : sensor_keys::kRangeKeys)
        if (p_nCmd == static_cast<int>(nCmd))
            return true;
    return false;
}

// Before one illuminator goes on, the other goes off when the ISP says it is
// on: the infrared and white lights are never on together. False when the
// other light cannot be read or switched off.
bool otherLightOff(ISensorController& p_objCtrl, int p_nVal,
                   bool (ISensorController::*p_pGetOther)(int&),
                   bool (ISensorController::*p_pSetOther)(int)) {
    if (p_nVal != 1)
        return true;
    int nOther = 0;
    if (!(p_objCtrl.*p_pGetOther)(nOther))
        return false;
    return nOther != 1 || (p_objCtrl.*p_pSetOther)(0);
}

// Splits a range text at single blanks into at most kShutterListMax numbers,
// in the order of the text. An empty part between two blanks reads as 0.
std::vector<int> splitRangeText(const std::string& p_strRange) {
    std::vector<int> vecList;
    std::string strRest = p_strRange;
    while (vecList.size() < kShutterListMax) {
        const std::string::size_type nBlank = strRest.find(' ');
        if (nBlank == std::string::npos) {
            if (!strRest.empty())
                vecList.push_back(sensorAtoi(strRest.c_str()));
            break;
        }
        vecList.push_back(sensorAtoi(strRest.substr(0, nBlank).c_str()));
        strRest = strRest.substr(nBlank + 1);
    }
    return vecList;
}

// The position of the first list entry equal to p_nValue, or -1.
int findInList(const std::vector<int>& p_vecList, int p_nValue) {
    for (size_t i = 0; i < p_vecList.size(); ++i) {
        if (p_vecList[i] == p_nValue)
            return static_cast<int>(i);
    }
    return -1;
}

} // namespace

// Lens steps ---------------------------------------------------------------

// One focus step towards far. True when the ISP took the step.
bool ISensorController::focusFar() {
    // The mode's result is ignored: the step itself tells whether it worked.
    u32 nMode = kManualFocusMode;
    (void)doIaCmd(KEY_AUTO_FOCUS_MODE, IA_CMD_OPT_SET, &nMode);
    u32 nStep = 1;
    return doIaCmd(KEY_FOCUS_FAR, IA_CMD_OPT_SET, &nStep) == SNS_SUCCESS;
}

// One focus step towards near. True when the ISP took the step.
bool ISensorController::focusNear() {
    u32 nMode = kManualFocusMode;
    (void)doIaCmd(KEY_AUTO_FOCUS_MODE, IA_CMD_OPT_SET, &nMode);
    u32 nStep = 1;
    return doIaCmd(KEY_FOCUS_NEAR, IA_CMD_OPT_SET, &nStep) == SNS_SUCCESS;
}

// One zoom step towards tele.
bool ISensorController::zoomIn() {
    u32 nStep = 1;
    return doIaCmd(KEY_ZOOM_IN, IA_CMD_OPT_SET, &nStep) == SNS_SUCCESS;
}

// One zoom step towards wide.
bool ISensorController::zoomOut() {
    u32 nStep = 1;
    return doIaCmd(KEY_ZOOM_OUT, IA_CMD_OPT_SET, &nStep) == SNS_SUCCESS;
}

// One iris step open; false without a step when the exposure mode is refused.
bool ISensorController::irisUp() {
    u32 nMode = kManualIrisExposeMode;
    if (doIaCmd(KEY_EXPOSE_MODE, IA_CMD_OPT_SET, &nMode) != SNS_SUCCESS)
        return false;
    u32 nStep = 1;
    return doIaCmd(kCmdIrisUp, IA_CMD_OPT_SET, &nStep) == SNS_SUCCESS;
}

// One iris step closed; false without a step when the exposure mode is refused.
bool ISensorController::irisDown() {
    u32 nMode = kManualIrisExposeMode;
    if (doIaCmd(KEY_EXPOSE_MODE, IA_CMD_OPT_SET, &nMode) != SNS_SUCCESS)
        return false;
    u32 nStep = 1;
    return doIaCmd(kCmdIrisDown, IA_CMD_OPT_SET, &nStep) == SNS_SUCCESS;
}

// Lens positions and read-outs ---------------------------------------------

// Moves the zoom motor to p_nPos.
bool ISensorController::setZoomValue(int p_nPos) {
    return doIaCmd(KEY_MZ_POSITION, IA_CMD_OPT_SET, &p_nPos) == SNS_SUCCESS;
}

// Reads the zoom motor position and converts it into the zoom factor in
// thousandths (1000 = 1x). Beyond the last table position the ratio is left
// as it was and the result is still true.
bool ISensorController::getZoomValue(int& p_nPos, int& p_nRatio) {
    if (doIaCmd(KEY_MZ_POSITION, IA_CMD_OPT_GET, &p_nPos) != SNS_SUCCESS)
        return false;
    if (p_nPos <= static_cast<int>(kZoomRatioPos[0])) {
        p_nRatio = 1000;
        return true;
    }
    const u32 nPos = static_cast<u32>(p_nPos);
    for (u32 k = 1; k < 16; ++k) {
        const u32 nLow = kZoomRatioPos[k - 1];
        const u32 nHigh = kZoomRatioPos[k];
        if (nLow < nPos && nPos <= nHigh) {
            // Linear between whole factors, in truncating unsigned arithmetic.
            p_nRatio = static_cast<int>(1000 * (k + 1) - (1000 * (nHigh - nPos)) / (nHigh - nLow));
            break;
        }
    }
    return true;
}

// Tells the lens driver whether the pan-tilt unit is moving.
bool ISensorController::setPTZRunState(int p_nState) {
    return doIaCmd(kCmdPtzRunState, IA_CMD_OPT_SET, &p_nState) == SNS_SUCCESS;
}

bool ISensorController::setFocusValue(int p_nVal) {
    return doIaCmd(KEY_MF_POSITION, IA_CMD_OPT_SET, &p_nVal) == SNS_SUCCESS;
}

bool ISensorController::getFocusValue(int& p_nVal) {
    return doIaCmd(KEY_MF_POSITION, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

bool ISensorController::setFocusMode(int p_nMode) {
    return doIaCmd(KEY_AUTO_FOCUS_MODE, IA_CMD_OPT_SET, &p_nMode) == SNS_SUCCESS;
}

bool ISensorController::getFocusMode(int& p_nMode) {
    return doIaCmd(KEY_AUTO_FOCUS_MODE, IA_CMD_OPT_GET, &p_nMode) == SNS_SUCCESS;
}

// The autofocus measure of the current picture.
bool ISensorController::getAFStatistic(unsigned int& p_nVal) {
    return doIaCmd(kCmdAfStatistic, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

// The wide-dynamic-range mode as the ISP holds it, not as cached.
bool ISensorController::getWDR(int& p_nVal) {
    return doIaCmd(KEY_WDR_MODE, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

// Iris ---------------------------------------------------------------------

// Puts the exposure into manual iris mode and moves the iris to p_nVal,
// clamped. True when both calls succeeded.
bool ISensorController::setIrisValue(int p_nVal) {
    u32 nIris = static_cast<u32>(p_nVal);
    if (p_nVal < kIrisMin)
        nIris = kIrisMin;
    else if (p_nVal > kIrisMax)
        // Deliberately not clamped to the maximum: above the range the ISP is
        // given 0x100000, far beyond it, and that jump must stay as it is.
        nIris = kIrisBeyondMax;

    u32 nMode = kManualIrisExposeMode;
    if (doIaCmd(KEY_EXPOSE_MODE, IA_CMD_OPT_SET, &nMode) != SNS_SUCCESS)
        return false;
    return doIaCmd(KEY_IRIS_POSITION, IA_CMD_OPT_SET, &nIris) == SNS_SUCCESS;
}

bool ISensorController::getIrisValue(int& p_nVal) {
    return doIaCmd(KEY_IRIS_POSITION, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

// Illuminators ---------------------------------------------------------------

// Switches the infrared illuminator and stores the switch like a key. The
// infrared and white lights are never on together: switching one on first
// switches the other off.
bool ISensorController::setIRSwitch(int p_nVal) {
    if (!otherLightOff(*this, p_nVal, &ISensorController::getWhiteSwitch,
                       &ISensorController::setWhiteSwitch))
        return false;
    return setParameter(KEY_IR_SWITCH, p_nVal, true) == SNS_SUCCESS;
}

// The infrared switch as the ISP holds it.
bool ISensorController::getIRSwitch(int& p_nVal) {
    return doIaCmd(KEY_IR_SWITCH, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

// Switches the white-light illuminator and stores the switch like a key; the
// infrared light goes off first when it is on.
bool ISensorController::setWhiteSwitch(int p_nVal) {
    if (!otherLightOff(*this, p_nVal, &ISensorController::getIRSwitch,
                       &ISensorController::setIRSwitch))
        return false;
    return setParameter(KEY_WHITE_SWITCH, p_nVal, true) == SNS_SUCCESS;
}

// The white-light switch as the ISP holds it.
bool ISensorController::getWhiteSwitch(int& p_nVal) {
    return doIaCmd(kCmdWhiteSwitch, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

// Sets the white-light mode and stores it like a key.
bool ISensorController::setWhiteMode(int p_nVal) {
    return setParameter(KEY_WHITE_MODE, p_nVal, true) == SNS_SUCCESS;
}

// The white-light mode as the ISP holds it.
bool ISensorController::getWhiteMode(int& p_nVal) {
    return doIaCmd(kCmdWhiteMode, IA_CMD_OPT_GET, &p_nVal) == SNS_SUCCESS;
}

// Shutter ------------------------------------------------------------------
// The host sees the shutter as a position in the ISP's own list of shutter
// values, not as a time.

namespace {

// The ISP's shutter list, read afresh for every operation because it depends
// on the fitted sensor and its current mode.
std::vector<int> shutterList(ISensorController& p_objCtrl) {
    int nDefault = 0;
    std::string strRange;
    (void)p_objCtrl.getSensorParamRange(KEY_MAX_SHUTTER, nDefault, strRange);
    return splitRangeText(strRange);
}

} // namespace

// The position of the current shutter value in the list; false when the ISP
// refuses the read or reports a value that is not in its own list.
bool ISensorController::getShutterValue(int& p_nIndex) {
    const std::vector<int> vecList = shutterList(*this);
    int nValue = 0;
    if (doIaCmd(KEY_MAX_SHUTTER, IA_CMD_OPT_GET, &nValue) != SNS_SUCCESS)
        return false;
    const int nIndex = findInList(vecList, nValue);
    if (nIndex < 0)
        return false;
    p_nIndex = nIndex;
    return true;
}

// Sets and stores the shutter value at position p_nIndex of the list; false
// for a position outside the list, negative ones included.
bool ISensorController::setShutterValue(int p_nIndex) {
    const std::vector<int> vecList = shutterList(*this);
    if (vecList.empty() || p_nIndex < 0 || static_cast<size_t>(p_nIndex) >= vecList.size())
        return false;
    return setParameter(KEY_MAX_SHUTTER, vecList[p_nIndex], true) == SNS_SUCCESS;
}

// Moves the shutter one position up the list; at the last position the
// current value is written again.
bool ISensorController::shutterUp() {
    const std::vector<int> vecList = shutterList(*this);
    int nValue = 0;
    if (doIaCmd(KEY_MAX_SHUTTER, IA_CMD_OPT_GET, &nValue) != SNS_SUCCESS)
        return false;
    const int nIndex = findInList(vecList, nValue);
    if (nIndex < 0)
        return false;
    if (static_cast<size_t>(nIndex) + 1 < vecList.size())
        nValue = vecList[nIndex + 1];
    return setParameter(KEY_MAX_SHUTTER, nValue, true) == SNS_SUCCESS;
}

// Moves the shutter one position down the list; at the first position the
// current value is written again.
bool ISensorController::shutterDown() {
    const std::vector<int> vecList = shutterList(*this);
    int nValue = 0;
    if (doIaCmd(KEY_MAX_SHUTTER, IA_CMD_OPT_GET, &nValue) != SNS_SUCCESS)
        return false;
    const int nIndex = findInList(vecList, nValue);
    if (nIndex < 0)
        return false;
    if (nIndex > 0)
        nValue = vecList[nIndex - 1];
    return setParameter(KEY_MAX_SHUTTER, nValue, true) == SNS_SUCCESS;
}

// Zoom and focus record --------------------------------------------------------

// One lock for the records of all channels: copies are rare and short. It is
// not the controller mutex, whose holders the host can see.
std::mutex& sensor_detail::zoomFocusMutex() {
    static std::mutex s_objMutex;
    return s_objMutex;
}

// Copies the host's zoom and focus record out; always 0.
int ISensorController::getSensorZoomFocusParam(SensorZoomFocusParam& p_objParam) {
    std::lock_guard<std::mutex> objGuard(sensor_detail::zoomFocusMutex());
    p_objParam = m_objZoomFocusParam;
    return 0;
}

// Copies the host's zoom and focus record in, its lock included: while the
// lock is on, doIaCmd swallows every lens command. Always 0.
int ISensorController::setSensorZoomFocusParam(SensorZoomFocusParam& p_objParam) {
    std::lock_guard<std::mutex> objGuard(sensor_detail::zoomFocusMutex());
    m_objZoomFocusParam = p_objParam;
    return 0;
}

// Ranges -----------------------------------------------------------------------

// Appends the ISP's list of accepted values for p_nCmd to p_strRange as
// decimal numbers separated by single blanks, and gives its default in
// p_nDefault. True when the list was delivered, or when the command's range
// is not a list (nothing written then); false when the ISP does not list the
// command as dynamic or the command is not one whose range may be asked.
bool ISensorController::getSensorParamRange(int p_nCmd, int& p_nDefault, std::string& p_strRange) {
    // Cleared so that a refused query leaves an empty list, never stale stack.
    ia_dynamic_params_cmds_st dnaCmdList;
    std::memset(&dnaCmdList, 0, sizeof(dnaCmdList));
    SNS_ASSERT_TEXT(SNS_SUCCESS == ia_ioctrl_v2(m_nCameraID - 1, IA_CMD_DYNAMIC_PARAMS_CMDS_GET,
                                                IA_CMD_OPT_GET, &dnaCmdList),
                    "SNS_SUCCESS == ia_ioctrl_v2(m_nCameraID-1, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, "
                    "IA_CMD_OPT_GET, (void*)(&dnaCmdList))",
                    "");

    // The count is the ISP's word; the walk never leaves the record.
    const i32 nCmdCnt = static_cast<i32>(dnaCmdList.cmd_cnt);
    const i32 nCmdWalk = nCmdCnt < IA_DYNAMIC_CMDS_MAX ? nCmdCnt : IA_DYNAMIC_CMDS_MAX;
    bool bListed = false;
    for (i32 i = 0; i < nCmdWalk && !bListed; ++i)
        bListed =
            static_cast<int>(dnaCmdList.cmd_list[i]) == p_nCmd && isRangeCommandAllowed(p_nCmd);
    if (!bListed)
        return false;

    ia_dynamic_params_attr_st stDynamicParam;
    std::memset(&stDynamicParam, 0, sizeof(stDynamicParam));
    // Through doIaCmd so that the lens lock covers the focus limit too.
    SNS_ASSERT_TEXT(SNS_SUCCESS == doIaCmd(p_nCmd, IA_CMD_OPT_GET_PARAM_RNAGE, &stDynamicParam),
                    "SNS_SUCCESS == doIaCmd(p_nCmd, IA_CMD_OPT_GET_PARAM_RNAGE, "
                    "(void*)(&stDynamicParam))",
                    "");

    // Only a list of values becomes text.
    if (stDynamicParam.type != 0)
        return true;

    p_nDefault = static_cast<int>(stDynamicParam.default_value);
    const u32 nItemWalk = stDynamicParam.items_cnt < IA_DYNAMIC_ITEMS_MAX
                              ? stDynamicParam.items_cnt
                              : static_cast<u32>(IA_DYNAMIC_ITEMS_MAX);
    char szItem[16];
    for (u32 i = 0; i < nItemWalk; ++i) {
        std::snprintf(szItem, sizeof(szItem), "%d", static_cast<int>(stDynamicParam.item[i]));
        p_strRange += szItem;
        if (i + 1 < nItemWalk)
            p_strRange += " ";
    }

    std::printf("cmd=%d DefaltParam=%d strParamRange=%s\n", p_nCmd, p_nDefault, p_strRange.c_str());
    return true;
}
