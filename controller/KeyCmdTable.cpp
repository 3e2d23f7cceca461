#include "controller/ControllerPriv.h"

#include "controller/KeyCmdTable.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace sensor_detail {

// A row with a handler; its name field is the handler's expression as text.
#define KEY_CMD_ROW(key, cmd, handler, name)                                                       \
    KeyCmdRow {                                                                                    \
        key, cmd, &ISensorController::handler, name, "&ISensorController::" #handler               \
    }
// A key the controller keeps for itself: intercepted before the lookup, never sent.
#define KEY_CMD_NONE(key, name)                                                                    \
    KeyCmdRow {                                                                                    \
        key, 0, nullptr, name, "NULL"                                                              \
    }

// Most keys travel as the command of the same number. The exceptions are kept
// exactly: the iris size key 83 goes out as 85 while command 83 is the iris
// step up; the white-light keys 170..174 go out as 168..172; the sensor frame
// rate 2497 goes out as 2464. The momentary user actions (iris steps, lens
// moves, one-shot focus, frame rate, shutter reset) go through doIaCmd_User so
// that replaying a scheme never repeats them.
const KeyCmdRow kKeyCmdTable[] = {
    KEY_CMD_ROW(34, 34, doIaCmd, "KEY_BRIGHTNESS"),
    KEY_CMD_ROW(2337, 2337, doIaCmd, "KEY_SATURATION"),
    KEY_CMD_ROW(2353, 2353, doIaCmd, "KEY_CONTRAST"),
    KEY_CMD_ROW(2321, 2321, doIaCmd, "KEY_SHARPNESS"),
    KEY_CMD_ROW(96, 96, doIaCmd, "KEY_METER_AREA"),
    KEY_CMD_ROW(16, 16, doIaCmd, "KEY_EXPOSE_MODE"),
    KEY_CMD_ROW(49, 49, doIaCmd, "KEY_MAX_SHUTTER"),
    KEY_CMD_ROW(50, 50, doIaCmd, "KEY_FIX_SHUTTER"),
    KEY_CMD_ROW(65, 65, doIaCmd, "KEY_MAX_GAIN"),
    KEY_CMD_ROW(66, 66, doIaCmd, "KEY_FIX_GAIN"),
    KEY_CMD_ROW(80, 80, doIaCmd, "KEY_IRIS_SWITCH"),
    KEY_CMD_ROW(81, 81, doIaCmd, "KEY_IRIS_SPEED"),
    KEY_CMD_ROW(82, 82, doIaCmd, "KEY_IRIS_POSITION"),
    KEY_CMD_ROW(83, 85, doIaCmd, "KEY_IRIS_SIZE"),
    KEY_CMD_ROW(17, 83, doIaCmd_User, "KEY_IRIS_UP"),
    KEY_CMD_ROW(18, 84, doIaCmd_User, "KEY_IRIS_DOWN"),
    KEY_CMD_ROW(768, 768, doIaCmd, "KEY_WB_MODE"),
    KEY_CMD_ROW(770, 770, doIaCmd, "KEY_R_GAIN"),
    KEY_CMD_ROW(771, 771, doIaCmd, "KEY_B_GAIN"),
    KEY_CMD_ROW(144, 144, doIaCmd, "KEY_DN_MODE"),
    KEY_CMD_ROW(147, 147, doIaCmd, "KEY_DELAY"),
    KEY_CMD_ROW(160, 160, doIaCmd, "KEY_IR_SWITCH"),
    KEY_CMD_ROW(161, 161, doIaCmd, "KEY_IR_MODE"),
    KEY_CMD_ROW(162, 162, doIaCmd, "KEY_IR_AUTO_STRG_NEAR"),
    KEY_CMD_ROW(163, 163, doIaCmd, "KEY_IR_MANUAL_STRG_NEAR"),
    KEY_CMD_ROW(164, 164, doIaCmd, "KEY_IR_AUTO_STRG_MEDIUM"),
    KEY_CMD_ROW(165, 165, doIaCmd, "KEY_IR_MANUAL_STRG_MEDIUM"),
    KEY_CMD_ROW(166, 166, doIaCmd, "KEY_IR_AUTO_STRG_FAR"),
    KEY_CMD_ROW(167, 167, doIaCmd, "KEY_IR_MANUAL_STRG_FAR"),
    KEY_CMD_ROW(170, 168, doIaCmd, "KEY_WHITE_SWITCH"),
    KEY_CMD_ROW(171, 169, doIaCmd, "KEY_WHITE_MODE"),
    KEY_CMD_ROW(172, 170, doIaCmd, "KEY_WHITE_MANUAL_STRG"),
    KEY_CMD_ROW(173, 171, doIaCmd, "KEY_WHITE_MANUAL_STRG_MEDIUM"),
    KEY_CMD_ROW(174, 172, doIaCmd, "KEY_WHITE_MANUAL_STRG_FAR"),
    KEY_CMD_ROW(2304, 2304, doIaCmd, "KEY_2D_NR_SWITCH"),
    KEY_CMD_ROW(2305, 2305, doIaCmd, "KEY_2D_NR_MODE"),
    KEY_CMD_ROW(2306, 2306, doIaCmd, "KEY_2D_NR_STRG_A"),
    KEY_CMD_ROW(2307, 2307, doIaCmd, "KEY_2D_NR_STRG_M"),
    KEY_CMD_ROW(2308, 2308, doIaCmd, "KEY_3D_NR_SWITCH"),
    KEY_CMD_ROW(2309, 2309, doIaCmd, "KEY_3D_NR_MODE"),
    KEY_CMD_ROW(2312, 2312, doIaCmd, "KEY_3D_NR_STRG_A"),
    KEY_CMD_ROW(2313, 2313, doIaCmd, "KEY_3D_NR_STRG_M"),
    KEY_CMD_ROW(2368, 2368, doHwdr, "KEY_WDR_MODE"),
    KEY_CMD_ROW(2369, 2369, doIaCmd, "KEY_WDR_STRG"),
    KEY_CMD_ROW(112, 112, doIaCmd, "KEY_HLC_SWITCH"),
    KEY_CMD_ROW(113, 113, doIaCmd, "KEY_HLC_STRG"),
    KEY_CMD_ROW(128, 128, doIaCmd, "KEY_BLC_SWITCH"),
    KEY_CMD_ROW(129, 129, doIaCmd, "KEY_BLC_MODE"),
    KEY_CMD_ROW(130, 130, doIaCmd, "KEY_BLC_STRG"),
    KEY_CMD_ROW(2416, 2416, doDIS, "KEY_ANTI_SHAKE_SWITCH"),
    KEY_CMD_ROW(2417, 2417, doIaCmd, "KEY_ANTI_SHAKE_STRG"),
    KEY_CMD_ROW(2400, 2400, doIaCmd, "KEY_DEFLG_SWITCH"),
    KEY_CMD_ROW(2401, 2401, doIaCmd, "KEY_DEFLG_STRG"),
    KEY_CMD_ROW(176, 176, doIaCmd, "KEY_IN_OUT_SIDE"),
    KEY_CMD_ROW(2384, 2384, doMirror, "KEY_MIRROR"),
    KEY_CMD_ROW(2385, 2385, doBeaway, "KEY_BEAWAY"),
    KEY_CMD_ROW(145, 145, doDNThr, "KEY_DTN_THR"),
    KEY_CMD_ROW(146, 146, doDNThr, "KEY_NTD_THR"),
    KEY_CMD_ROW(154, 154, doDNThr, "KEY_DN_SENSITIVITY"),
    KEY_CMD_ROW(149, 149, doDNTime, "KEY_DTN_H"),
    KEY_CMD_ROW(150, 150, doDNTime, "KEY_DTN_M"),
    KEY_CMD_ROW(151, 151, doDNTime, "KEY_NTD_H"),
    KEY_CMD_ROW(152, 152, doDNTime, "KEY_NTD_M"),
    KEY_CMD_ROW(1536, 1536, doIaCmd, "KEY_AUTO_FOCUS_MODE"),
    KEY_CMD_ROW(1537, 1537, doIaCmd, "KEY_AUTO_FOCUS_NEAR_LIMIT"),
    KEY_CMD_ROW(1538, 1538, doIaCmd, "KEY_AUTO_FOCUS_SENSITIVITY"),
    KEY_CMD_ROW(1539, 1539, doIaCmd_User, "KEY_AUTO_FOCUS_ONCE"),
    KEY_CMD_ROW(1616, 1616, doIaCmd_User, "KEY_LENS_RESET"),
    KEY_CMD_ROW(1570, 1570, doIaCmd_User, "KEY_ZOOM_OUT"),
    KEY_CMD_ROW(1569, 1569, doIaCmd_User, "KEY_ZOOM_IN"),
    KEY_CMD_ROW(1553, 1553, doIaCmd_User, "KEY_FOCUS_NEAR"),
    KEY_CMD_ROW(1554, 1554, doIaCmd_User, "KEY_FOCUS_FAR"),
    KEY_CMD_ROW(1584, 1584, doIaCmd, "KEY_DIGITAL_ZOOM"),
    KEY_CMD_ROW(1571, 1571, doIaCmd, "KEY_MZOOM_SPEED"),
    KEY_CMD_NONE(8000, "KEY_SCHEME_MODE"),
    KEY_CMD_NONE(8001, "KEY_SCHEME_START_HOUR"),
    KEY_CMD_NONE(8002, "KEY_SCHEME_START_MIN"),
    KEY_CMD_NONE(8003, "KEY_SCHEME_END_HOUR"),
    KEY_CMD_NONE(8004, "KEY_SCHEME_END_MIN"),
    KEY_CMD_NONE(10, "KEY_EMPTY1"),
    KEY_CMD_NONE(11, "KEY_EMPTY2"),
    KEY_CMD_ROW(1552, 1552, doIaCmd, "KEY_MF_POSITION"),
    KEY_CMD_ROW(1568, 1568, doIaCmd, "KEY_MZ_POSITION"),
    KEY_CMD_ROW(2432, 2432, doImageAdjust, "KEY_CAP_OFF_ADJ_DIRECTION"),
    KEY_CMD_ROW(2433, 2433, doIaCmd, "KEY_CAP_OFF_ADJ_STEP"),
    KEY_CMD_ROW(2434, 2434, doIaCmd, "KEY_CAP_OFF_ADJ_H_MIN"),
    KEY_CMD_ROW(2435, 2435, doIaCmd, "KEY_CAP_OFF_ADJ_H_MAX"),
    KEY_CMD_ROW(2436, 2436, doImageAdjust, "KEY_CAP_OFF_ADJ_H_CUR"),
    KEY_CMD_ROW(2437, 2437, doIaCmd, "KEY_CAP_OFF_ADJ_V_MIN"),
    KEY_CMD_ROW(2438, 2438, doIaCmd, "KEY_CAP_OFF_ADJ_V_MAX"),
    KEY_CMD_ROW(2439, 2439, doImageAdjust, "KEY_CAP_OFF_ADJ_V_CUR"),
    KEY_CMD_ROW(2497, 2464, doIaCmd_User, "KEY_SENSOR_FPS"),
    KEY_CMD_ROW(2512, 2512, doIaCmd, "KEY_FREEZE"),
    KEY_CMD_ROW(2528, 2528, doIaCmd, "KEY_GAMMA"),
    KEY_CMD_ROW(2560, 2560, doIaCmd, "KEY_DN_AF_MODE"),
    KEY_CMD_ROW(8201, 8201, doIaCmd, "KEY_NONE_COLOR_MODE"),
    KEY_CMD_ROW(8202, 8202, doIaCmd, "KEY_DVE_MODE"),
    KEY_CMD_ROW(8203, 8203, doIaCmd, "KEY_AUTO_TIME"),
    KEY_CMD_ROW(8209, 8209, doIaCmd, "KEY_AUTO_TEMPR"),
    KEY_CMD_ROW(8204, 8204, doIaCmd, "KEY_CONTROL_FFC_MODE"),
    KEY_CMD_ROW(8205, 8205, doIaCmd, "KEY_IMAGES_ADJUST"),
    KEY_CMD_ROW(8206, 8206, doIaCmd, "KEY_IMAGES_REGULATE"),
    KEY_CMD_ROW(8207, 8207, doIaCmd, "KEY_FOCUS_SPEED_LEVEL"),
    KEY_CMD_ROW(8208, 8208, doIaCmd, "KEY_DVE_TYPE"),
    KEY_CMD_ROW(8211, 8211, doIaCmd, "KEY_SHUTTER_ADJUST"),
    KEY_CMD_ROW(8212, 8212, doIaCmd_User, "KEY_BACKGROUND_ADJUST"),
    KEY_CMD_ROW(8217, 8217, doIaCmd, "KEY_TEMPERATURE_STRIP_SWITCH"),
    KEY_CMD_ROW(8231, 8231, doIaCmd_User, "IA_CMD_UI_SHUTTER_RESET"),
    KEY_CMD_ROW(9000, 9000, doIaCmd_PanoTuning, "KEY_PANO_STITCH_DIST"),
    KEY_CMD_ROW(9001, 9001, doIaCmd_PanoTuning, "KEY_PANO_SAVE"),
    KEY_CMD_ROW(9002, 9002, doIaCmd_PanoTuning, "KEY_PANO_RESET"),
    KEY_CMD_ROW(9003, 9003, doIaCmd_PanoTuning, "KEY_PANO_PREVIEW"),
    KEY_CMD_ROW(9004, 9004, doIaCmd_PanoTuning, "KEY_PANO_ADJUST_EN"),
    KEY_CMD_ROW(9005, 9005, doIaCmd_PanoTuning, "KEY_PANO_ID"),
    KEY_CMD_ROW(9101, 9101, doIaCmd_PanoTuning, "KEY_PANO_ADJUST_EN_1"),
    KEY_CMD_ROW(9102, 9102, doIaCmd_PanoTuning, "KEY_PANO_YAW_1"),
    KEY_CMD_ROW(9103, 9103, doIaCmd_PanoTuning, "KEY_PANO_PITCH_1"),
    KEY_CMD_ROW(9104, 9104, doIaCmd_PanoTuning, "KEY_PANO_ROLL_1"),
    KEY_CMD_ROW(9105, 9105, doIaCmd_PanoTuning, "KEY_PANO_OFFSETX_1"),
    KEY_CMD_ROW(9106, 9106, doIaCmd_PanoTuning, "KEY_PANO_OFFSETY_1"),
    KEY_CMD_ROW(9201, 9201, doIaCmd_PanoTuning, "KEY_PANO_ADJUST_EN_2"),
    KEY_CMD_ROW(9202, 9202, doIaCmd_PanoTuning, "KEY_PANO_YAW_2"),
    KEY_CMD_ROW(9203, 9203, doIaCmd_PanoTuning, "KEY_PANO_PITCH_2"),
    KEY_CMD_ROW(9204, 9204, doIaCmd_PanoTuning, "KEY_PANO_ROLL_2"),
    KEY_CMD_ROW(9205, 9205, doIaCmd_PanoTuning, "KEY_PANO_OFFSETX_2"),
    KEY_CMD_ROW(9206, 9206, doIaCmd_PanoTuning, "KEY_PANO_OFFSETY_2"),
    KEY_CMD_ROW(9301, 9301, doIaCmd_PanoTuning, "KEY_PANO_ADJUST_EN_3"),
    KEY_CMD_ROW(9302, 9302, doIaCmd_PanoTuning, "KEY_PANO_YAW_3"),
    KEY_CMD_ROW(9303, 9303, doIaCmd_PanoTuning, "KEY_PANO_PITCH_3"),
    KEY_CMD_ROW(9304, 9304, doIaCmd_PanoTuning, "KEY_PANO_ROLL_3"),
    KEY_CMD_ROW(9305, 9305, doIaCmd_PanoTuning, "KEY_PANO_OFFSETX_3"),
    KEY_CMD_ROW(9306, 9306, doIaCmd_PanoTuning, "KEY_PANO_OFFSETY_3"),
    KEY_CMD_ROW(9401, 9401, doIaCmd_PanoTuning, "KEY_PANO_ADJUST_EN_4"),
    KEY_CMD_ROW(9402, 9402, doIaCmd_PanoTuning, "KEY_PANO_YAW_4"),
    KEY_CMD_ROW(9403, 9403, doIaCmd_PanoTuning, "KEY_PANO_PITCH_4"),
    KEY_CMD_ROW(9404, 9404, doIaCmd_PanoTuning, "KEY_PANO_ROLL_4"),
    KEY_CMD_ROW(9405, 9405, doIaCmd_PanoTuning, "KEY_PANO_OFFSETX_4"),
    KEY_CMD_ROW(9406, 9406, doIaCmd_PanoTuning, "KEY_PANO_OFFSETY_4"),
};

#undef KEY_CMD_ROW
#undef KEY_CMD_NONE

static_assert(std::size(kKeyCmdTable) == 138, "the key-command table has 138 rows");
static_assert(std::size(kKeyCmdTable) == ISensorController::KEY_CMD_ROWS,
              "the table fills every row the controller counts");

namespace {

// Copies a name into a fixed field, always terminated.
template <size_t N> void copyName(char (&dst)[N], const char* src) {
    std::snprintf(dst, N, "%s", src);
}

} // namespace

} // namespace sensor_detail

using sensor_detail::kKeyCmdTable;

const char* sensorKeyName(u32 key) {
    for (const auto& row : kKeyCmdTable)
        if (row.key == key)
            return row.szKeyName;
    return nullptr;
}

u32 sensorKeyCount() {
    return ISensorController::KEY_CMD_ROWS;
}

bool sensorKeyRow(u32 row, u32& key, u32& cmd, const char*& keyName, const char*& handlerName) {
    if (row >= ISensorController::KEY_CMD_ROWS)
        return false;
    key = kKeyCmdTable[row].key;
    cmd = kKeyCmdTable[row].cmd;
    keyName = kKeyCmdTable[row].szKeyName;
    handlerName = kKeyCmdTable[row].szHandlerName;
    return true;
}

// Room for 150 rows, all zero, then the 138 rows; the row count is set only
// once the rows are in place. The zero rows beyond are never searched.
void ISensorController::buildKeyCmdMap() {
    std::free(m_pKeyCmdMap);
    m_pKeyCmdMap = static_cast<keycmd*>(std::malloc(KEY_CMD_CAPACITY * sizeof(keycmd)));
    if (m_pKeyCmdMap == nullptr) {
        m_nKeyCmdNum = 0;
        SNS_ASSERT(m_pKeyCmdMap != nullptr, "no room for %d key-command rows\n", KEY_CMD_CAPACITY);
        return;
    }
    std::memset(static_cast<void*>(m_pKeyCmdMap), 0, KEY_CMD_CAPACITY * sizeof(keycmd));
    for (u32 i = 0; i < KEY_CMD_ROWS; ++i) {
        keycmd& dst = m_pKeyCmdMap[i];
        const sensor_detail::KeyCmdRow& src = kKeyCmdTable[i];
        dst.key = src.key;
        dst.cmd = src.cmd;
        dst.handler = src.handler;
        sensor_detail::copyName(dst.szKeyName, src.szKeyName);
        sensor_detail::copyName(dst.szHandlerName, src.szHandlerName);
    }
    m_nKeyCmdNum = KEY_CMD_ROWS;
}

// The first row with the key among the rows in use, copied into out; -1 and
// out untouched when there is none.
int ISensorController::findFromKeyCmdMap(const keycmd* map, u32 key, keycmd& out) {
    if (map != nullptr) {
        for (u32 i = 0; i < m_nKeyCmdNum; ++i) {
            if (map[i].key != key)
                continue;
            out.key = map[i].key;
            out.cmd = map[i].cmd;
            out.handler = map[i].handler;
            sensor_detail::copyName(out.szKeyName, map[i].szKeyName);
            sensor_detail::copyName(out.szHandlerName, map[i].szHandlerName);
            return static_cast<int>(i);
        }
    }
    SNS_BARE(0, "cand not find key-cmd while key=%d\n", key);
    return -1;
}
