// Noise and noise reduction. The sensor's noise (added by the capture from
// this stage's model): shot noise sqrt(3.3 x gain x level) plus read noise
// 10 x gain, in units of 1/65535 of the clip. 2D noise reduction
// (KEY_2D_NR_SWITCH; KEY_2D_NR_MODE 0 automatic with KEY_2D_NR_STRG_A, else
// KEY_2D_NR_STRG_M) blends each sample towards its box mean (radius 1, or 2
// above half strength) by the strength; 3D noise reduction
// (KEY_3D_NR_SWITCH; KEY_3D_NR_MODE 0 automatic with KEY_3D_NR_STRG_A, else
// KEY_3D_NR_STRG_M) blends each sample towards the last frame's by 0.85 x
// strength where they differ by less than three times the noise, so moving
// things do not smear. The automatic modes scale the strength with the gain
// (30% at unit gain, full from 21 dB).
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Blur.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

class NoiseStage : public Stage {
public:
    const char* name() const override { return "noise and noise reduction"; }

    void prepare(FrameContext& ctx) override {
        const double g = ctx.gainLinear;
        const double h = ctx.headroom;
        for (size_t i = 0; i < ctx.noiseSigma.size(); ++i) {
            const double level = (i * 16.0 + 8.0) * h;
            ctx.noiseSigma[i] = static_cast<float>((std::sqrt(3.3 * g * level) + 10.0 * g) / h);
        }
    }

    void process(FrameContext& ctx) override {
        const IspView& isp = ctx.isp;
        const double gainDb = 20.0 * std::log10(ctx.gainLinear);
        const double autoScale = std::clamp(0.3 + gainDb / 30.0, 0.3, 1.0);
        const size_t count = static_cast<size_t>(ctx.width) * ctx.height * 3;
        uint16_t* px = ctx.linear->data();

        if (isp.value(KEY_2D_NR_SWITCH, 0) == 1) {
            const bool automatic = isp.value(KEY_2D_NR_MODE, 0) == 0;
            double s = std::min<uint32_t>(
                           100, isp.value(automatic ? KEY_2D_NR_STRG_A : KEY_2D_NR_STRG_M, 50)) /
                       100.0;
            if (automatic)
                s *= autoScale;
            const int k = static_cast<int>(std::lround(s * 256.0));
            if (k > 0) {
                m_blurred.resize(count);
                boxBlur(px, m_blurred.data(), ctx.width, ctx.height, s > 0.5 ? 2 : 1, *ctx.scratch);
                for (size_t i = 0; i < count; ++i)
                    px[i] = static_cast<uint16_t>(
                        px[i] + ((static_cast<int32_t>(m_blurred[i]) - px[i]) * k) / 256);
            }
        }

        LoopState& st = ctx.state;
        if (isp.value(KEY_3D_NR_SWITCH, 0) == 1) {
            const bool automatic = isp.value(KEY_3D_NR_MODE, 0) == 0;
            double s = std::min<uint32_t>(
                           100, isp.value(automatic ? KEY_3D_NR_STRG_A : KEY_3D_NR_STRG_M, 50)) /
                       100.0;
            if (automatic)
                s *= autoScale;
            const int k = static_cast<int>(std::lround(0.85 * s * 256.0));
            if (st.previousWidth == ctx.width && st.previousHeight == ctx.height && k > 0) {
                const uint16_t* prev = st.previous.data();
                int32_t limits[4096];
                for (int i = 0; i < 4096; ++i)
                    limits[i] = static_cast<int32_t>(3.0f * ctx.noiseSigma[i]) + 64;
                for (size_t i = 0; i < count; ++i) {
                    const int32_t d = static_cast<int32_t>(prev[i]) - px[i];
                    const int32_t limit = limits[px[i] >> 4];
                    // Without a branch: noise makes the test unpredictable.
                    const int32_t still =
                        static_cast<int32_t>(d < limit) & static_cast<int32_t>(d > -limit);
                    px[i] = static_cast<uint16_t>(px[i] + still * ((d * k) >> 8));
                }
            }
            st.previous.assign(px, px + count);
            st.previousWidth = ctx.width;
            st.previousHeight = ctx.height;
        } else if (!st.previous.empty()) {
            st.previous.clear();
            st.previous.shrink_to_fit();
            st.previousWidth = 0;
            st.previousHeight = 0;
        }
    }

    size_t memoryBytes() const override { return m_blurred.capacity() * sizeof(uint16_t); }

private:
    std::vector<uint16_t> m_blurred;
};

} // namespace

std::unique_ptr<Stage> makeNoiseStage() {
    return std::make_unique<NoiseStage>();
}

} // namespace vsensor
} // namespace sim
