// The parameter keys of the controller, listed once. Each entry gives the
// key's symbolic name (the text diagnostics print), its number, the ISP
// command that carries it and the handler that applies it; NONE entries are
// keys the controller keeps for itself and never sends. The key-command
// table's rows and the SensorKey enumerators are both generated from this
// list, so a key's number is written nowhere else.
//
// Most keys travel as the command of the same number. The exceptions are kept
// exactly: the iris size key 83 goes out as 85 while command 83 is the iris
// step up; the white-light keys 170..174 go out as 168..172; the sensor frame
// rate 2497 goes out as 2464. The momentary user actions (iris steps, lens
// moves, one-shot focus, frame rate, shutter reset) go through doIaCmd_User so
// that replaying a scheme never repeats them.
#pragma once

#include "diag/SensorDefs.h"

// clang-format off
#define SENSOR_KEY_LIST(ROW, NONE) \
    ROW(KEY_BRIGHTNESS, 34, 34, doIaCmd) \
    ROW(KEY_SATURATION, 2337, 2337, doIaCmd) \
    ROW(KEY_CONTRAST, 2353, 2353, doIaCmd) \
    ROW(KEY_SHARPNESS, 2321, 2321, doIaCmd) \
    ROW(KEY_METER_AREA, 96, 96, doIaCmd) \
    ROW(KEY_EXPOSE_MODE, 16, 16, doIaCmd) \
    ROW(KEY_MAX_SHUTTER, 49, 49, doIaCmd) \
    ROW(KEY_FIX_SHUTTER, 50, 50, doIaCmd) \
    ROW(KEY_MAX_GAIN, 65, 65, doIaCmd) \
    ROW(KEY_FIX_GAIN, 66, 66, doIaCmd) \
    ROW(KEY_IRIS_SWITCH, 80, 80, doIaCmd) \
    ROW(KEY_IRIS_SPEED, 81, 81, doIaCmd) \
    ROW(KEY_IRIS_POSITION, 82, 82, doIaCmd) \
    ROW(KEY_IRIS_SIZE, 83, 85, doIaCmd) \
    ROW(KEY_IRIS_UP, 17, 83, doIaCmd_User) \
    ROW(KEY_IRIS_DOWN, 18, 84, doIaCmd_User) \
    ROW(KEY_WB_MODE, 768, 768, doIaCmd) \
    ROW(KEY_R_GAIN, 770, 770, doIaCmd) \
    ROW(KEY_B_GAIN, 771, 771, doIaCmd) \
    ROW(KEY_DN_MODE, 144, 144, doIaCmd) \
    ROW(KEY_DELAY, 147, 147, doIaCmd) \
    ROW(KEY_IR_SWITCH, 160, 160, doIaCmd) \
    ROW(KEY_IR_MODE, 161, 161, doIaCmd) \
    ROW(KEY_IR_AUTO_STRG_NEAR, 162, 162, doIaCmd) \
    ROW(KEY_IR_MANUAL_STRG_NEAR, 163, 163, doIaCmd) \
    ROW(KEY_IR_AUTO_STRG_MEDIUM, 164, 164, doIaCmd) \
    ROW(KEY_IR_MANUAL_STRG_MEDIUM, 165, 165, doIaCmd) \
    ROW(KEY_IR_AUTO_STRG_FAR, 166, 166, doIaCmd) \
    ROW(KEY_IR_MANUAL_STRG_FAR, 167, 167, doIaCmd) \
    ROW(KEY_WHITE_SWITCH, 170, 168, doIaCmd) \
    ROW(KEY_WHITE_MODE, 171, 169, doIaCmd) \
    ROW(KEY_WHITE_MANUAL_STRG, 172, 170, doIaCmd) \
    ROW(KEY_WHITE_MANUAL_STRG_MEDIUM, 173, 171, doIaCmd) \
    ROW(KEY_WHITE_MANUAL_STRG_FAR, 174, 172, doIaCmd) \
    ROW(KEY_2D_NR_SWITCH, 2304, 2304, doIaCmd) \
    ROW(KEY_2D_NR_MODE, 2305, 2305, doIaCmd) \
    ROW(KEY_2D_NR_STRG_A, 2306, 2306, doIaCmd) \
    ROW(KEY_2D_NR_STRG_M, 2307, 2307, doIaCmd) \
    ROW(KEY_3D_NR_SWITCH, 2308, 2308, doIaCmd) \
    ROW(KEY_3D_NR_MODE, 2309, 2309, doIaCmd) \
    ROW(KEY_3D_NR_STRG_A, 2312, 2312, doIaCmd) \
    ROW(KEY_3D_NR_STRG_M, 2313, 2313, doIaCmd) \
    ROW(KEY_WDR_MODE, 2368, 2368, doHwdr) \
    ROW(KEY_WDR_STRG, 2369, 2369, doIaCmd) \
    ROW(KEY_HLC_SWITCH, 112, 112, doIaCmd) \
    ROW(KEY_HLC_STRG, 113, 113, doIaCmd) \
    ROW(KEY_BLC_SWITCH, 128, 128, doIaCmd) \
    ROW(KEY_BLC_MODE, 129, 129, doIaCmd) \
    ROW(KEY_BLC_STRG, 130, 130, doIaCmd) \
    ROW(KEY_ANTI_SHAKE_SWITCH, 2416, 2416, doDIS) \
    ROW(KEY_ANTI_SHAKE_STRG, 2417, 2417, doIaCmd) \
    ROW(KEY_DEFLG_SWITCH, 2400, 2400, doIaCmd) \
    ROW(KEY_DEFLG_STRG, 2401, 2401, doIaCmd) \
    ROW(KEY_IN_OUT_SIDE, 176, 176, doIaCmd) \
    ROW(KEY_MIRROR, 2384, 2384, doMirror) \
    ROW(KEY_BEAWAY, 2385, 2385, doBeaway) \
    ROW(KEY_DTN_THR, 145, 145, doDNThr) \
    ROW(KEY_NTD_THR, 146, 146, doDNThr) \
    ROW(KEY_DN_SENSITIVITY, 154, 154, doDNThr) \
    ROW(KEY_DTN_H, 149, 149, doDNTime) \
    ROW(KEY_DTN_M, 150, 150, doDNTime) \
    ROW(KEY_NTD_H, 151, 151, doDNTime) \
    ROW(KEY_NTD_M, 152, 152, doDNTime) \
    ROW(KEY_AUTO_FOCUS_MODE, 1536, 1536, doIaCmd) \
    ROW(KEY_AUTO_FOCUS_NEAR_LIMIT, 1537, 1537, doIaCmd) \
    ROW(KEY_AUTO_FOCUS_SENSITIVITY, 1538, 1538, doIaCmd) \
    ROW(KEY_AUTO_FOCUS_ONCE, 1539, 1539, doIaCmd_User) \
    ROW(KEY_LENS_RESET, 1616, 1616, doIaCmd_User) \
    ROW(KEY_ZOOM_OUT, 1570, 1570, doIaCmd_User) \
    ROW(KEY_ZOOM_IN, 1569, 1569, doIaCmd_User) \
    ROW(KEY_FOCUS_NEAR, 1553, 1553, doIaCmd_User) \
    ROW(KEY_FOCUS_FAR, 1554, 1554, doIaCmd_User) \
    ROW(KEY_DIGITAL_ZOOM, 1584, 1584, doIaCmd) \
    ROW(KEY_MZOOM_SPEED, 1571, 1571, doIaCmd) \
    NONE(KEY_SCHEME_MODE, 8000) \
    NONE(KEY_SCHEME_START_HOUR, 8001) \
    NONE(KEY_SCHEME_START_MIN, 8002) \
    NONE(KEY_SCHEME_END_HOUR, 8003) \
    NONE(KEY_SCHEME_END_MIN, 8004) \
    NONE(KEY_EMPTY1, 10) \
    NONE(KEY_EMPTY2, 11) \
    ROW(KEY_MF_POSITION, 1552, 1552, doIaCmd) \
    ROW(KEY_MZ_POSITION, 1568, 1568, doIaCmd) \
    ROW(KEY_CAP_OFF_ADJ_DIRECTION, 2432, 2432, doImageAdjust) \
    ROW(KEY_CAP_OFF_ADJ_STEP, 2433, 2433, doIaCmd) \
    ROW(KEY_CAP_OFF_ADJ_H_MIN, 2434, 2434, doIaCmd) \
    ROW(KEY_CAP_OFF_ADJ_H_MAX, 2435, 2435, doIaCmd) \
    ROW(KEY_CAP_OFF_ADJ_H_CUR, 2436, 2436, doImageAdjust) \
    ROW(KEY_CAP_OFF_ADJ_V_MIN, 2437, 2437, doIaCmd) \
    ROW(KEY_CAP_OFF_ADJ_V_MAX, 2438, 2438, doIaCmd) \
    ROW(KEY_CAP_OFF_ADJ_V_CUR, 2439, 2439, doImageAdjust) \
    ROW(KEY_SENSOR_FPS, 2497, 2464, doIaCmd_User) \
    ROW(KEY_FREEZE, 2512, 2512, doIaCmd) \
    ROW(KEY_GAMMA, 2528, 2528, doIaCmd) \
    ROW(KEY_DN_AF_MODE, 2560, 2560, doIaCmd) \
    ROW(KEY_NONE_COLOR_MODE, 8201, 8201, doIaCmd) \
    ROW(KEY_DVE_MODE, 8202, 8202, doIaCmd) \
    ROW(KEY_AUTO_TIME, 8203, 8203, doIaCmd) \
    ROW(KEY_AUTO_TEMPR, 8209, 8209, doIaCmd) \
    ROW(KEY_CONTROL_FFC_MODE, 8204, 8204, doIaCmd) \
    ROW(KEY_IMAGES_ADJUST, 8205, 8205, doIaCmd) \
    ROW(KEY_IMAGES_REGULATE, 8206, 8206, doIaCmd) \
    ROW(KEY_FOCUS_SPEED_LEVEL, 8207, 8207, doIaCmd) \
    ROW(KEY_DVE_TYPE, 8208, 8208, doIaCmd) \
    ROW(KEY_SHUTTER_ADJUST, 8211, 8211, doIaCmd) \
    ROW(KEY_BACKGROUND_ADJUST, 8212, 8212, doIaCmd_User) \
    ROW(KEY_TEMPERATURE_STRIP_SWITCH, 8217, 8217, doIaCmd) \
    ROW(IA_CMD_UI_SHUTTER_RESET, 8231, 8231, doIaCmd_User) \
    ROW(KEY_PANO_STITCH_DIST, 9000, 9000, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_SAVE, 9001, 9001, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_RESET, 9002, 9002, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_PREVIEW, 9003, 9003, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ADJUST_EN, 9004, 9004, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ID, 9005, 9005, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ADJUST_EN_1, 9101, 9101, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_YAW_1, 9102, 9102, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_PITCH_1, 9103, 9103, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ROLL_1, 9104, 9104, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETX_1, 9105, 9105, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETY_1, 9106, 9106, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ADJUST_EN_2, 9201, 9201, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_YAW_2, 9202, 9202, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_PITCH_2, 9203, 9203, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ROLL_2, 9204, 9204, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETX_2, 9205, 9205, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETY_2, 9206, 9206, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ADJUST_EN_3, 9301, 9301, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_YAW_3, 9302, 9302, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_PITCH_3, 9303, 9303, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ROLL_3, 9304, 9304, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETX_3, 9305, 9305, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETY_3, 9306, 9306, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ADJUST_EN_4, 9401, 9401, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_YAW_4, 9402, 9402, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_PITCH_4, 9403, 9403, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_ROLL_4, 9404, 9404, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETX_4, 9405, 9405, doIaCmd_PanoTuning) \
    ROW(KEY_PANO_OFFSETY_4, 9406, 9406, doIaCmd_PanoTuning)
// clang-format on

// Every key by its table name: KEY_BRIGHTNESS is 34.
enum SensorKey : u32 {
#define SENSOR_KEY_ENUM_ROW(name, key, cmd, handler) name = key,
#define SENSOR_KEY_ENUM_NONE(name, key) name = key,
    SENSOR_KEY_LIST(SENSOR_KEY_ENUM_ROW, SENSOR_KEY_ENUM_NONE)
#undef SENSOR_KEY_ENUM_ROW
#undef SENSOR_KEY_ENUM_NONE
};

namespace sensor_keys {

// The ISP command that carries a key; 0 for the keys the controller keeps for
// itself and for keys not in the list.
constexpr u32 commandOf(u32 p_nKey) {
#define SENSOR_KEY_CMD_ROW(name, key, cmd, handler)                                                \
    if (p_nKey == (key))                                                                           \
        return (cmd);
#define SENSOR_KEY_CMD_NONE(name, key)                                                             \
    if (p_nKey == (key))                                                                           \
        return 0;
    SENSOR_KEY_LIST(SENSOR_KEY_CMD_ROW, SENSOR_KEY_CMD_NONE)
#undef SENSOR_KEY_CMD_ROW
#undef SENSOR_KEY_CMD_NONE
    return 0;
}

// The only commands whose run-time range a host may ask for: the shutter
// lists, the iris position and the focus near limit.
constexpr u32 kRangeKeys[] = {KEY_MAX_SHUTTER, KEY_FIX_SHUTTER, KEY_IRIS_POSITION,
                              KEY_AUTO_FOCUS_NEAR_LIMIT};

// The number of keys in the list (the key-command table's rows).
constexpr u32 kKeyCount = 0
#define SENSOR_KEY_COUNT_ROW(name, key, cmd, handler) +1
#define SENSOR_KEY_COUNT_NONE(name, key) +1
    SENSOR_KEY_LIST(SENSOR_KEY_COUNT_ROW, SENSOR_KEY_COUNT_NONE)
#undef SENSOR_KEY_COUNT_ROW
#undef SENSOR_KEY_COUNT_NONE
    ;
static_assert(kKeyCount == 138, "the key list has 138 keys");

} // namespace sensor_keys
