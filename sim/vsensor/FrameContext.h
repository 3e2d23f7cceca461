// What the stages of one frame share: the ISP's values copied for the frame,
// the conditions in front of the lens, the decisions each stage takes in its
// prepare step, the frame's buffers, and the state the converging loops keep
// from frame to frame.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "sim/vsensor/IspView.h"
#include "sim/vsensor/Light.h"
#include "sim/vsensor/Scene.h"

namespace sim {
namespace vsensor {

// What the loops remember between frames; reset() clears it.
struct LoopState {
    bool aeStarted = false;
    double exposureEv = 0; // log2 of the exposure (seconds x gain x iris area)
    bool awbStarted = false;
    std::array<double, 3> awbGains{{1.0, 1.0, 1.0}};
    bool afStarted = false;
    double afPosition = 0; // the lens's focus motor position in auto focus
    uint32_t lastFocusMode = 0xffffffffu;
    std::vector<uint8_t> previous; // the last frame's picture after 3D NR, rows as toned
    int previousWidth = 0;
    int previousHeight = 0;
    int previousKind = 0; // its mirror (1 left-right, 2 upside down), 4 monochrome
    double darkFloor = 0; // the darkest 2% level of the last frame (defog)
    std::array<double, 3> channelMeans{{0.18, 0.18, 0.18}}; // last frame, linear
};

// The scene as the sensor faces it this frame.
struct Conditions {
    double lux = 0;   // ambient illuminance
    double fog = 0;   // 0..1
    double shake = 0; // pixels at 1280 wide
};

struct FrameContext {
    FrameContext(const IspView& view, LoopState& loops, SceneCache& cache)
        : isp(view), state(loops), scene(cache) {}

    const IspView& isp;
    LoopState& state;
    SceneCache& scene;
    Conditions conditions;
    uint64_t frameNumber = 0;
    int width = 0;
    int height = 0;

    // --- Decided in prepare ---
    bool night = false;    // the ISP's day/night state
    bool irCutOut = false; // monochrome, infrared seen
    Illuminators illuminators;
    double zoomRatio = 1.0;
    int offsetX = 0; // shake left after stabilisation, pixels
    int offsetY = 0;
    double shutterSeconds = 1.0 / 50;
    double gainLinear = 1.0;
    double irisArea = 1.0;
    uint32_t shutterValue = 50; // as 1/s
    uint32_t gainValue = 0;     // 0..100
    uint32_t irisValue = 100;   // 0..100
    double headroom = 1.0;      // WDR: how many times the normal clip the sensor holds
    // Light per class in linear units per unit reflectance (exposure folded
    // in), what fog adds, and the infrared light.
    float classMul[kClassCount][3] = {};
    float classAdd[kClassCount][3] = {};
    float classIr[kClassCount] = {};
    std::array<double, 3> wbGains{{1.0, 1.0, 1.0}};
    // Tone: curve parameters, filled by the exposure, WDR/defog and tone stages.
    double hlcStrength = 0; // 0..1 highlight compression
    double wdrA = 0;        // WDR curve knee (0: off)
    double defogFloor = 0;  // level subtracted and stretched away
    double focusPosition = 0;
    double inFocusPosition = 0;
    double blurRadius = 0; // pixels
    double measuredLevel = 0;
    // The sensor's noise: standard deviation noiseA * sqrt(v) + noiseB in
    // linear units at the level v (filled by the noise stage for the capture).
    float noiseA = 0;
    float noiseB = 0;
    // The noise's standard deviation in 8-bit output levels at mid grey
    // (filled by the tone stage from its curve, for the 3D reduction).
    double outputNoise = 0;

    // --- Buffers ---
    // The whole linear frame (RGB, 65535 = the sensor's clip), filled only
    // when a stage works across rows on it (wholeFrame: the lens blurring);
    // otherwise the capture gives each row as linearRow asks for it.
    bool wholeFrame = false;
    std::vector<uint16_t>* linear = nullptr;
    std::vector<uint16_t>* scratch = nullptr;
    std::vector<uint8_t>* out = nullptr; // RGB 8-bit

    // --- The rows of the picture after the capture ---
    // The stages from tone and colour on work one row at a time, so that a
    // row passes through all of them while it is still in the processor's
    // caches; each publishes its step and the sharpening stage pulls the rows
    // through in order (rows 0 to height - 1, each once).
    // Row y of the linear picture (the capture's, or the lens's); valid
    // until the next call.
    std::function<const uint16_t*(int y)> linearRow;
    // The meters' grid: every gridStep-th pixel across and down from
    // (gridStep / 2, gridStep / 2), as the sensor captured it (before the
    // lens's blur), RGB, row after row; filled by the capture.
    static int gridStepFor(int width) { return width / 160 > 1 ? width / 160 : 1; }
    int gridStep = 1;
    int gridColumns = 0;
    int gridRows = 0;
    const uint16_t* grid = nullptr;
    // Grid point (i, j) as RGB, and the pixel it stands for.
    const uint16_t* gridAt(int i, int j) const {
        return grid + (static_cast<size_t>(j) * gridColumns + i) * 3;
    }
    int gridX(int i) const { return gridStep / 2 + i * gridStep; }
    int gridY(int j) const { return gridStep / 2 + j * gridStep; }
    // Row y in 8-bit RGB after tone and colour and noise reduction, into dst.
    std::function<void(int y, uint8_t* dst)> toneRow;
    // The mirror (decided in prepare): rows reversed left to right as the
    // tone stage reads them (every step after is symmetric, so the picture
    // is the same as reflecting the finished frame), and placed upside down.
    bool mirrorLeftRight = false;
    bool mirrorUpsideDown = false;
    // Where the finished row y goes in the frame.
    uint8_t* outRow(int y) const {
        const int row = mirrorUpsideDown ? height - 1 - y : y;
        return out->data() + static_cast<size_t>(row) * width * 3;
    }
};

// The conversion of the sensor's units: full scale at 4 lux-seconds of
// light on a white surface at unit gain and open iris.
constexpr double kFullScaleLuxSeconds = 4.0;
// The level auto exposure aims the metered mean at (of full scale).
constexpr double kTargetLevel = 0.18;

} // namespace vsensor
} // namespace sim
