// Day/night and the IR-cut filter. Reads KEY_DN_MODE and the ISP's day/night
// state (command 153): mode 1 keeps the filter in (colour), mode 2 takes it
// out (monochrome, infrared seen); the automatic, by-time and alarm modes
// follow the state the ISP reports. Also decides which illuminators shine
// (they follow the same night).
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

class DayNightStage : public Stage {
public:
    const char* name() const override { return "day/night"; }

    void prepare(FrameContext& ctx) override {
        const uint32_t mode = ctx.isp.value(KEY_DN_MODE, 0);
        if (mode == 1)
            ctx.night = false;
        else if (mode == 2)
            ctx.night = true;
        else
            ctx.night = ctx.isp.dayNightState() != 0;
        ctx.irCutOut = ctx.night;
        ctx.illuminators = illuminatorsOf(ctx.isp, ctx.night);
    }
};

} // namespace

std::unique_ptr<Stage> makeDayNightStage() {
    return std::make_unique<DayNightStage>();
}

} // namespace vsensor
} // namespace sim
