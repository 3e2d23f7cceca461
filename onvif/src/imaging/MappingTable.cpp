// The mapping table of the imaging service: one row per ONVIF field, in the
// schema's element order, and the lookups derived from it.
#include "imaging/MappingTable.h"

#include <cstring>

#include "controller/SensorKeys.h"

namespace sensor_onvif {

// A key and its table name, written once.
#define SENSOR_ONVIF_KEY(name) name, #name

const std::vector<FieldMap>& imagingFieldMap() {
    // clang-format off
    static const std::vector<FieldMap> s_vecMap = {
        {"BacklightCompensation/Mode", SENSOR_ONVIF_KEY(KEY_BLC_SWITCH), Conversion::Enum, {{"OFF", {0}}, {"ON", {1}}}, 1},
        {"BacklightCompensation/Level", SENSOR_ONVIF_KEY(KEY_BLC_STRG), Conversion::Number, {}, 1},
        {"Brightness", SENSOR_ONVIF_KEY(KEY_BRIGHTNESS), Conversion::Number, {}, 1},
        {"ColorSaturation", SENSOR_ONVIF_KEY(KEY_SATURATION), Conversion::Number, {}, 1},
        {"Contrast", SENSOR_ONVIF_KEY(KEY_CONTRAST), Conversion::Number, {}, 1},
        {"Exposure/Mode", SENSOR_ONVIF_KEY(KEY_EXPOSE_MODE), Conversion::Enum, {{"AUTO", {0, 1, 2}}, {"MANUAL", {3}}}, 1},
        // The shutter lists hold N of 1/N s; ONVIF speaks microseconds.
        {"Exposure/MaxExposureTime", SENSOR_ONVIF_KEY(KEY_MAX_SHUTTER), Conversion::Reciprocal, {}, 1e6},
        {"Exposure/MaxGain", SENSOR_ONVIF_KEY(KEY_MAX_GAIN), Conversion::Number, {}, 1},
        {"Exposure/ExposureTime", SENSOR_ONVIF_KEY(KEY_FIX_SHUTTER), Conversion::Reciprocal, {}, 1e6},
        {"Exposure/Gain", SENSOR_ONVIF_KEY(KEY_FIX_GAIN), Conversion::Number, {}, 1},
        {"Exposure/Iris", SENSOR_ONVIF_KEY(KEY_IRIS_POSITION), Conversion::Number, {}, 1},
        {"Focus/AutoFocusMode", SENSOR_ONVIF_KEY(KEY_AUTO_FOCUS_MODE), Conversion::Enum, {{"AUTO", {0, 1}}, {"MANUAL", {2}}}, 1},
        {"Focus/DefaultSpeed", SENSOR_ONVIF_KEY(KEY_FOCUS_SPEED_LEVEL), Conversion::Number, {}, 1},
        // The style lists the near limit in centimetres; ONVIF speaks metres.
        {"Focus/NearLimit", SENSOR_ONVIF_KEY(KEY_AUTO_FOCUS_NEAR_LIMIT), Conversion::Number, {}, 0.01},
        // ON: the filter is in (day picture); OFF: out (night picture). By
        // time and by alarm input are the camera's own automatic modes.
        {"IrCutFilter", SENSOR_ONVIF_KEY(KEY_DN_MODE), Conversion::Enum, {{"AUTO", {0, 3, 4}}, {"ON", {1}}, {"OFF", {2}}}, 1},
        {"Sharpness", SENSOR_ONVIF_KEY(KEY_SHARPNESS), Conversion::Number, {}, 1},
        {"WideDynamicRange/Mode", SENSOR_ONVIF_KEY(KEY_WDR_MODE), Conversion::Enum, {{"OFF", {0}}, {"ON", {1, 2, 3}}}, 1},
        {"WideDynamicRange/Level", SENSOR_ONVIF_KEY(KEY_WDR_STRG), Conversion::Number, {}, 1},
        {"WhiteBalance/Mode", SENSOR_ONVIF_KEY(KEY_WB_MODE), Conversion::Enum, {{"AUTO", {0}}, {"MANUAL", {1, 2, 3, 4, 5, 6}}}, 1},
        {"WhiteBalance/CrGain", SENSOR_ONVIF_KEY(KEY_R_GAIN), Conversion::Number, {}, 1},
        {"WhiteBalance/CbGain", SENSOR_ONVIF_KEY(KEY_B_GAIN), Conversion::Number, {}, 1},
        {"Extension/ImageStabilization/Mode", SENSOR_ONVIF_KEY(KEY_ANTI_SHAKE_SWITCH), Conversion::Enum, {{"OFF", {0}}, {"ON", {1}}}, 1},
        {"Extension/ImageStabilization/Level", SENSOR_ONVIF_KEY(KEY_ANTI_SHAKE_STRG), Conversion::Number, {}, 1},
        // Switching the filter in (ToOn) follows the night-to-day threshold,
        // taking it out (ToOff) the day-to-night one; the response time is
        // the switch delay in seconds.
        {"Extension/Extension/IrCutFilterAutoAdjustment[ToOn]/BoundaryOffset", SENSOR_ONVIF_KEY(KEY_NTD_THR), Conversion::Offset, {}, 1},
        {"Extension/Extension/IrCutFilterAutoAdjustment[ToOff]/BoundaryOffset", SENSOR_ONVIF_KEY(KEY_DTN_THR), Conversion::Offset, {}, 1},
        {"Extension/Extension/IrCutFilterAutoAdjustment/ResponseTime", SENSOR_ONVIF_KEY(KEY_DELAY), Conversion::Seconds, {}, 1},
        {"Extension/Extension/Extension/Defogging/Mode", SENSOR_ONVIF_KEY(KEY_DEFLG_SWITCH), Conversion::Enum, {{"OFF", {0}}, {"ON", {1}}}, 1},
        {"Extension/Extension/Extension/Defogging/Level", SENSOR_ONVIF_KEY(KEY_DEFLG_STRG), Conversion::Normalized, {}, 1},
        {"Extension/Extension/Extension/NoiseReduction/Level", SENSOR_ONVIF_KEY(KEY_2D_NR_STRG_M), Conversion::Normalized, {}, 1},
    };
    // clang-format on
    return s_vecMap;
}
#undef SENSOR_ONVIF_KEY

namespace imaging {

const FieldMap* fieldOfKey(unsigned p_nKey) {
    for (const FieldMap& f : imagingFieldMap())
        if (f.key == p_nKey)
            return &f;
    return nullptr;
}

bool isIrCutAdjustment(const FieldMap& p_objField) {
    return std::strncmp(p_objField.path, kIrCutPath, std::strlen(kIrCutPath)) == 0;
}

const std::vector<Boundary>& boundaries() {
    static const std::vector<Boundary> s_vecBoundaries = [] {
        std::vector<Boundary> out;
        for (const FieldMap& f : imagingFieldMap()) {
            const char* szOpen = std::strchr(f.path, '[');
            const char* szClose = szOpen ? std::strchr(szOpen, ']') : nullptr;
            if (isIrCutAdjustment(f) && szClose)
                out.push_back({std::string(szOpen + 1, szClose), &f});
        }
        return out;
    }();
    return s_vecBoundaries;
}

} // namespace imaging
} // namespace sensor_onvif
