// Wide dynamic range and defog, both parts of the tone curve the tone stage
// builds. KEY_WDR_MODE 1 (digital) bends the curve only; 2 (line) and 3
// (frame), which merge exposures, also let the sensor hold four times the
// light before it clips. The curve x (1 + a/H) / (x + a), x relative to the
// normal clip and H the headroom, lifts the shadows by up to (H + a) / (H a)
// and leaves the brightest level where it was, so nothing more clips;
// a = 0.1 + 0.9 x (1 - KEY_WDR_STRG / 100). KEY_DEFLG_SWITCH on subtracts
// the veil fog lays over the picture, measured as its darkest 2% level in the
// last frame times (0.4 + 0.6 x KEY_DEFLG_STRG / 100), and stretches the rest
// back to full range.
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

class WdrDefogStage : public Stage {
public:
    const char* name() const override { return "wide dynamic range and defog"; }

    void prepare(FrameContext& ctx) override {
        const uint32_t wdrMode = ctx.isp.value(KEY_WDR_MODE, 0);
        if (wdrMode != 0) {
            const double strength =
                std::min<uint32_t>(100, ctx.isp.value(KEY_WDR_STRG, 50)) / 100.0;
            ctx.headroom = wdrMode >= 2 ? 4.0 : 1.0;
            ctx.wdrA = 0.1 + 0.9 * (1.0 - strength);
        } else {
            ctx.headroom = 1.0;
            ctx.wdrA = 0.0;
        }
        if (ctx.isp.value(KEY_DEFLG_SWITCH, 0) == 1) {
            const double strength =
                std::min<uint32_t>(100, ctx.isp.value(KEY_DEFLG_STRG, 50)) / 100.0;
            const double floor = std::min(0.9, ctx.state.darkFloor * (0.4 + 0.6 * strength));
            // In steps of 1/256, so that the tone curve settles with the picture.
            ctx.defogFloor = std::floor(floor * 256.0) / 256.0;
        } else {
            ctx.defogFloor = 0.0;
        }
    }
};

} // namespace

std::unique_ptr<Stage> makeWdrDefogStage() {
    return std::make_unique<WdrDefogStage>();
}

// The WDR and defog part of the tone curve, for x relative to the normal clip.
double wdrDefogCurve(double x, double headroom, double wdrA, double defogFloor) {
    if (defogFloor > 0)
        x = std::max(0.0, (x - defogFloor) * headroom / (headroom - defogFloor));
    if (wdrA > 0)
        x = x * (headroom + wdrA) / (headroom * (x + wdrA));
    return std::min(x, 1.0);
}

} // namespace vsensor
} // namespace sim
