// The day curve (documented in docs/virtual-sensor.md): a moonlit night of
// 0.1 lux until 05:00; dawn rising in log steps to 400 lux at sunrise
// (06:30); by day 400 lux plus 49600 lux times the sine of the sun's path,
// 50000 lux at noon; after sunset (17:30) dusk falling in log steps back to
// 0.1 lux at 19:00.
#include "sim/vsensor/Light.h"

#include <algorithm>
#include <cmath>

#include "sim/VirtualSensor.h"

namespace sim {

namespace {

constexpr double kNightLux = 0.1;
constexpr double kHorizonLux = 400.0;
constexpr double kNoonLux = 50000.0;
constexpr double kDawn = 5.0;
constexpr double kSunrise = 6.5;
constexpr double kSunset = 17.5;
constexpr double kDusk = 19.0;

double logBetween(double from, double to, double fraction) {
    return std::pow(10.0, std::log10(from) + (std::log10(to) - std::log10(from)) * fraction);
}

} // namespace

double dayCurveLux(int hour, int minute, int second) {
    const double t = std::clamp(hour, 0, 23) + std::clamp(minute, 0, 59) / 60.0 +
                     std::clamp(second, 0, 59) / 3600.0;
    if (t < kDawn || t >= kDusk)
        return kNightLux;
    if (t < kSunrise)
        return logBetween(kNightLux, kHorizonLux, (t - kDawn) / (kSunrise - kDawn));
    if (t >= kSunset)
        return logBetween(kHorizonLux, kNightLux, (t - kSunset) / (kDusk - kSunset));
    const double pi = 3.14159265358979323846;
    return kHorizonLux +
           (kNoonLux - kHorizonLux) * std::sin(pi * (t - kSunrise) / (kSunset - kSunrise));
}

namespace vsensor {

void ambientColour(double lux, float rgb[3]) {
    if (lux >= 2000.0) {
        rgb[0] = 0.92f;
        rgb[1] = 1.0f;
        rgb[2] = 1.10f;
    } else if (lux >= 5.0) {
        rgb[0] = 1.15f;
        rgb[1] = 1.0f;
        rgb[2] = 0.75f;
    } else {
        rgb[0] = 1.25f;
        rgb[1] = 1.0f;
        rgb[2] = 0.60f;
    }
}

Illuminators illuminatorsOf(const IspView& isp, bool night) {
    Illuminators out;
    // Lux at full strength in each class: the beam weakens with distance.
    constexpr float kIrReach[kClassCount] = {40.0f, 10.0f, 2.5f, 0.0f, 6.0f, 2.5f};
    constexpr float kWhiteReach[kClassCount] = {25.0f, 6.0f, 1.5f, 0.0f, 4.0f, 1.5f};

    const uint32_t irMode = isp.value(KEY_IR_MODE, 0);
    out.irOn = isp.value(KEY_IR_SWITCH, 0) == 1 && (irMode == 1 || night);
    if (out.irOn) {
        const bool manual = irMode == 1;
        const float near = std::min<uint32_t>(
            100, isp.value(manual ? KEY_IR_MANUAL_STRG_NEAR : KEY_IR_AUTO_STRG_NEAR, 50));
        const float medium = std::min<uint32_t>(
            100, isp.value(manual ? KEY_IR_MANUAL_STRG_MEDIUM : KEY_IR_AUTO_STRG_MEDIUM, 50));
        const float far = std::min<uint32_t>(
            100, isp.value(manual ? KEY_IR_MANUAL_STRG_FAR : KEY_IR_AUTO_STRG_FAR, 50));
        const float byClass[kClassCount] = {near, medium, far, 0.0f, medium, far};
        for (int c = 0; c < kClassCount; ++c)
            out.ir[c] = kIrReach[c] * byClass[c] / 100.0f;
    }

    const uint32_t whiteMode = isp.value(KEY_WHITE_MODE, 0);
    out.whiteOn =
        isp.value(KEY_WHITE_SWITCH, 0) == 1 && (whiteMode == 1 || (whiteMode == 0 && night));
    if (out.whiteOn) {
        const float near = std::min<uint32_t>(100, isp.value(KEY_WHITE_MANUAL_STRG, 50));
        const float medium = std::min<uint32_t>(100, isp.value(KEY_WHITE_MANUAL_STRG_MEDIUM, 50));
        const float far = std::min<uint32_t>(100, isp.value(KEY_WHITE_MANUAL_STRG_FAR, 50));
        const float byClass[kClassCount] = {near, medium, far, 0.0f, medium, far};
        for (int c = 0; c < kClassCount; ++c)
            out.white[c] = kWhiteReach[c] * byClass[c] / 100.0f;
    }
    return out;
}

} // namespace vsensor
} // namespace sim
