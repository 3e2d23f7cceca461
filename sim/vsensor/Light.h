// The light model: the day curve, the colour of the ambient light, the lamps
// and the camera's own illuminators by zone.
#pragma once

#include "sim/vsensor/IspView.h"
#include "sim/vsensor/Scene.h"

namespace sim {
namespace vsensor {

// Lux of each lamp when it shines; lamps switch on below kLampsOnLux.
constexpr float kLampLux = 3000.0f;
constexpr float kLampsOnLux = 20.0f;

// The colour of the ambient light at an illuminance (R, G, B multipliers):
// daylight slightly blue, twilight warm, night orange from street lighting.
void ambientColour(double lux, float rgb[3]);

// What the illuminators add at each distance class, in lux.
struct Illuminators {
    float ir[kClassCount] = {};    // infrared: seen only with the IR-cut filter out
    float white[kClassCount] = {}; // white light: seen always
    bool irOn = false;
    bool whiteOn = false;
};

// The illuminators as the ISP holds them: the infrared one with its switch,
// mode (0 auto: on at night only; 1 manual) and the auto or manual strength
// per zone; the white light with its switch, mode (0 auto: at night only;
// 1 manual; 2 alarm: off here) and strength per zone. Near is lit strongest.
Illuminators illuminatorsOf(const IspView& isp, bool night);

} // namespace vsensor
} // namespace sim
