// White balance: red and blue gains that undo the sensor's colour filters and
// the colour of the light. KEY_WB_MODE: 0 automatic (grey world: the gains
// that make the last frame's unclipped red and blue means equal its green
// mean, approached by 30% a frame, resting within 1/256), 1 manual (the daylight gains times
// 2^((KEY_R_GAIN - 50) / 50) and 2^((KEY_B_GAIN - 50) / 50)), 2 indoor
// (tungsten), 3 outdoor (daylight), 4 sodium lamp, 5 fluorescent, 6 natural
// light. Monochrome pictures take no gains.
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

constexpr double kRawRed = 0.55;
constexpr double kRawBlue = 0.70;

// The colour (red, blue relative to green) of each preset's light.
struct PresetLight {
    double red;
    double blue;
};
constexpr PresetLight kIndoor{1.30, 0.55};
constexpr PresetLight kOutdoor{0.92, 1.10};
constexpr PresetLight kSodium{1.50, 0.35};
constexpr PresetLight kFluorescent{1.00, 0.85};
constexpr PresetLight kNatural{1.00, 1.00};

std::array<double, 3> gainsFor(const PresetLight& light) {
    return {1.0 / (kRawRed * light.red), 1.0, 1.0 / (kRawBlue * light.blue)};
}

class WhiteBalanceStage : public Stage {
public:
    const char* name() const override { return "white balance"; }

    void prepare(FrameContext& ctx) override {
        LoopState& st = ctx.state;
        if (ctx.irCutOut) {
            ctx.wbGains = {1.0, 1.0, 1.0};
            return;
        }
        switch (ctx.isp.value(KEY_WB_MODE, 0)) {
            case 1: {
                std::array<double, 3> g = gainsFor(kOutdoor);
                g[0] *= std::exp2((std::min<uint32_t>(100, ctx.isp.value(KEY_R_GAIN, 50)) - 50.0) /
                                  50.0);
                g[2] *= std::exp2((std::min<uint32_t>(100, ctx.isp.value(KEY_B_GAIN, 50)) - 50.0) /
                                  50.0);
                ctx.wbGains = g;
                return;
            }
            case 2:
                ctx.wbGains = gainsFor(kIndoor);
                return;
            case 3:
                ctx.wbGains = gainsFor(kOutdoor);
                return;
            case 4:
                ctx.wbGains = gainsFor(kSodium);
                return;
            case 5:
                ctx.wbGains = gainsFor(kFluorescent);
                return;
            case 6:
                ctx.wbGains = gainsFor(kNatural);
                return;
            default:
                break;
        }
        if (!st.awbStarted) {
            st.awbGains = gainsFor(kOutdoor);
            st.awbStarted = true;
        }
        ctx.wbGains = st.awbGains;
    }

    void process(FrameContext& ctx) override {
        // Channel means of the unclipped picture, for the next frame's grey world.
        std::array<double, 3> sum{};
        for (int j = 0; j < ctx.gridRows; ++j) {
            for (int i = 0; i < ctx.gridColumns; ++i) {
                const uint16_t* p = ctx.gridAt(i, j);
                if (p[0] > 60000 || p[1] > 60000 || p[2] > 60000)
                    continue;
                for (int c = 0; c < 3; ++c)
                    sum[c] += p[c];
            }
        }
        LoopState& st = ctx.state;
        if (ctx.irCutOut || ctx.isp.value(KEY_WB_MODE, 0) != 0 || sum[0] <= 0 || sum[2] <= 0)
            return;
        const double targetRed = std::clamp(sum[1] / sum[0], 0.25, 4.0);
        const double targetBlue = std::clamp(sum[1] / sum[2], 0.25, 4.0);
        // In steps of 1/1024, resting within 1/256 of the target.
        for (const auto& [index, target] :
             {std::pair<int, double>{0, targetRed}, {2, targetBlue}}) {
            const double error = target - st.awbGains[index];
            if (std::fabs(error) > 1.0 / 256)
                st.awbGains[index] =
                    std::round((st.awbGains[index] + 0.3 * error) * 1024.0) / 1024.0;
        }
    }
};

} // namespace

std::unique_ptr<Stage> makeWhiteBalanceStage() {
    return std::make_unique<WhiteBalanceStage>();
}

} // namespace vsensor
} // namespace sim
