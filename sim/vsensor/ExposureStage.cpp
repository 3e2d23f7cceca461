// Exposure: chooses shutter, gain and iris for the frame, then meters the
// captured picture and moves the automatic exposure towards its target.
//
// KEY_EXPOSE_MODE: 0 automatic (shutter up to 1/KEY_MAX_SHUTTER s first,
// then gain up to KEY_MAX_GAIN; an automatic iris, KEY_IRIS_SWITCH 1, closes
// only when the shutter is at its fastest), 1 shutter priority
// (KEY_FIX_SHUTTER, gain automatic), 2 gain priority (KEY_FIX_GAIN, shutter
// automatic), 3 manual (both fixed, iris at KEY_IRIS_POSITION). The meter
// weighs the picture by KEY_METER_AREA (centre, average, spot, upper half);
// backlight compensation (KEY_BLC_SWITCH, KEY_BLC_MODE area, KEY_BLC_STRG)
// weighs its area up to 16 times and ignores burnt-out light; highlight
// compensation (KEY_HLC_SWITCH, KEY_HLC_STRG) ignores burnt-out light and
// compresses the highlights above 60% of the output. Each frame the exposure
// moves by 60% of the error in stops, at most 1.5 stops, in steps of 1/32
// stop, and rests while the level is within 1/16 stop of the target.
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

double gainFactor(double gainValue) {
    return std::pow(10.0, 0.6 * gainValue / 20.0);
}

namespace {

constexpr double kShortestShutter = 1.0 / 10000;
constexpr double kSmallestIris = 1.0 / 32;
// The mean reflectance the first frame's exposure assumes.
constexpr double kSceneMean = 0.25;
// The auto exposure rests while the level is within this many stops of the target.
constexpr double kRestBand = 1.0 / 16;

class ExposureStage : public Stage {
public:
    const char* name() const override { return "exposure"; }

    void prepare(FrameContext& ctx) override {
        const IspView& isp = ctx.isp;
        const uint32_t mode = isp.value(KEY_EXPOSE_MODE, 0);
        const double longest = 1.0 / std::max<uint32_t>(1, isp.value(KEY_MAX_SHUTTER, 30));
        const double fixedShutter = 1.0 / std::max<uint32_t>(1, isp.value(KEY_FIX_SHUTTER, 50));
        const double maxGain = gainFactor(std::min<uint32_t>(100, isp.value(KEY_MAX_GAIN, 60)));
        const double fixedGain = gainFactor(std::min<uint32_t>(100, isp.value(KEY_FIX_GAIN, 30)));
        const bool autoIris = isp.value(KEY_IRIS_SWITCH, 0) == 1 && mode != 3;
        const double manualIris =
            isp.has(KEY_IRIS_POSITION)
                ? std::max(kSmallestIris,
                           std::min<uint32_t>(100, isp.value(KEY_IRIS_POSITION, 100)) / 100.0)
                : 1.0;

        LoopState& st = ctx.state;
        if (!st.aeStarted) {
            const double lux = std::max(ctx.conditions.lux, 1e-4);
            st.exposureEv = std::round(32.0 * std::log2(kTargetLevel * kFullScaleLuxSeconds /
                                                        (lux * kSceneMean))) /
                            32.0;
            st.aeStarted = true;
        }
        const double wanted = std::exp2(st.exposureEv);

        double t = fixedShutter;
        double g = 1.0;
        double area = autoIris ? 1.0 : manualIris;
        switch (mode) {
            case 1: // shutter priority
                if (autoIris && wanted < t)
                    area = std::clamp(wanted / t, kSmallestIris, 1.0);
                g = std::clamp(wanted / (t * area), 1.0, maxGain);
                break;
            case 2: // gain priority
                g = fixedGain;
                t = std::clamp(wanted / (g * area), kShortestShutter, longest);
                if (autoIris && wanted / g < kShortestShutter)
                    area = std::clamp(wanted / (g * kShortestShutter), kSmallestIris, 1.0);
                break;
            case 3: // manual
                g = fixedGain;
                break;
            default: // automatic
                t = std::clamp(wanted / area, kShortestShutter, longest);
                if (autoIris && wanted < kShortestShutter)
                    area = std::clamp(wanted / kShortestShutter, kSmallestIris, 1.0);
                g = std::clamp(wanted / (t * area), 1.0, maxGain);
                break;
        }
        ctx.shutterSeconds = t;
        ctx.gainLinear = g;
        ctx.irisArea = area;
        ctx.shutterValue = static_cast<uint32_t>(std::lround(1.0 / t));
        ctx.gainValue = static_cast<uint32_t>(std::lround(20.0 * std::log10(g) / 0.6));
        ctx.irisValue = static_cast<uint32_t>(std::lround(area * 100.0));
        // No winding up beyond what shutter, gain and iris can give.
        const double reached = std::log2(t * g * area);
        if (mode != 3 && std::fabs(reached - st.exposureEv) > 1e-9)
            st.exposureEv = reached;

        ctx.hlcStrength = isp.value(KEY_HLC_SWITCH, 0) == 1
                              ? std::min<uint32_t>(100, isp.value(KEY_HLC_STRG, 50)) / 100.0
                              : 0.0;
    }

    void process(FrameContext& ctx) override {
        const IspView& isp = ctx.isp;
        const int w = ctx.width;
        const int h = ctx.height;
        const uint32_t area = isp.value(KEY_METER_AREA, 0);
        const bool blc = isp.value(KEY_BLC_SWITCH, 0) == 1;
        const uint32_t blcArea = isp.value(KEY_BLC_MODE, 0);
        const double blcWeight =
            1.0 + 15.0 * std::min<uint32_t>(100, isp.value(KEY_BLC_STRG, 50)) / 100.0;
        const bool ignoreBurnt = blc || ctx.hlcStrength > 0;

        double sum = 0;
        double weights = 0;
        std::array<uint32_t, 512> histogram{};
        uint32_t samples = 0;
        for (int j = 0; j < ctx.gridRows; ++j) {
            const double fy = (ctx.gridY(j) + 0.5) / h;
            for (int i = 0; i < ctx.gridColumns; ++i) {
                const double fx = (ctx.gridX(i) + 0.5) / w;
                const uint16_t* p = ctx.gridAt(i, j);
                const double level =
                    (0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]) / 65535.0 * ctx.headroom;
                histogram[std::min(511, static_cast<int>(level * 511.0))]++;
                ++samples;
                double weight = 1.0;
                const bool centre = std::fabs(fx - 0.5) < 0.25 && std::fabs(fy - 0.5) < 0.25;
                switch (area) {
                    case 0:
                        weight = centre ? 4.0 : 1.0;
                        break;
                    case 2:
                        weight = std::fabs(fx - 0.5) < 0.1 && std::fabs(fy - 0.5) < 0.1 ? 1.0 : 0.0;
                        break;
                    case 3:
                        weight = fy < 0.5 ? 1.0 : 0.0;
                        break;
                    default:
                        break;
                }
                if (blc && inBlcArea(blcArea, fx, fy))
                    weight *= blcWeight;
                if (ignoreBurnt && level > 0.9)
                    weight = 0.0;
                sum += weight * level;
                weights += weight;
            }
        }
        const double measured = weights > 0 ? sum / weights : 0.0;
        ctx.measuredLevel = measured;
        // The darkest 2% of the picture, for defog.
        uint32_t seen = 0;
        int floorBin = 0;
        while (floorBin < 511 && (seen += histogram[floorBin]) < samples / 50)
            ++floorBin;
        ctx.state.darkFloor = std::min(1.0, floorBin / 511.0);

        if (isp.value(KEY_EXPOSE_MODE, 0) != 3) {
            // In steps of 1/32 stop, resting once within 1/16 stop of the
            // target: the meter's own jitter (noise, shake, the moving ball)
            // then leaves the exposure, and the capture's drawn signal, alone.
            const double error = std::log2(kTargetLevel / std::max(measured, 1e-6));
            const double move = std::fabs(error) < kRestBand
                                    ? 0.0
                                    : std::round(std::clamp(0.6 * error, -1.5, 1.5) * 32.0) / 32.0;
            ctx.state.exposureEv += move;
        }
    }

private:
    // The BLC areas: centre, upper, lower, left, right.
    static bool inBlcArea(uint32_t area, double fx, double fy) {
        switch (area) {
            case 1:
                return fy < 0.5;
            case 2:
                return fy >= 0.5;
            case 3:
                return fx < 0.5;
            case 4:
                return fx >= 0.5;
            default:
                return std::fabs(fx - 0.5) < 0.25 && std::fabs(fy - 0.5) < 0.25;
        }
    }
};

} // namespace

std::unique_ptr<Stage> makeExposureStage() {
    return std::make_unique<ExposureStage>();
}

} // namespace vsensor
} // namespace sim
