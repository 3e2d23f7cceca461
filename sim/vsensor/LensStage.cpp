// The lens: zoom and focus. KEY_MZ_POSITION gives the zoom ratio through the
// lens's table of motor positions (16384 is 1x, 31424 is 16x, linear
// between); the scene is drawn magnified by it about the centre. The lens is
// in focus at position 400 + 30 x (ratio - 1); the picture blurs by
// |position - in-focus| / 30 pixels (at 1280 wide, two box passes, at most
// 16). KEY_AUTO_FOCUS_MODE 0 (automatic) starts from KEY_MF_POSITION and
// moves the lens 60 steps a frame towards focus, so any start reaches it
// within 17 frames; modes 1 and 2 hold the lens at KEY_MF_POSITION (in focus
// when the ISP holds none).
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Blur.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

constexpr uint32_t kZoomPositions[16] = {16384, 24576, 27264, 28672, 29056, 29440, 29728, 30016,
                                         30208, 30400, 30560, 30720, 30912, 31104, 31232, 31424};
constexpr double kFocusStepsPerPixel = 30.0;
constexpr double kAutoFocusStep = 60.0;

double zoomRatioOf(uint32_t position) {
    if (position <= kZoomPositions[0])
        return 1.0;
    for (int k = 1; k < 16; ++k) {
        if (position <= kZoomPositions[k])
            return k + static_cast<double>(position - kZoomPositions[k - 1]) /
                           (kZoomPositions[k] - kZoomPositions[k - 1]);
    }
    return 16.0;
}

class LensStage : public Stage {
    // Two box passes of radius r/1.5 come near a disc of radius r.
    static int boxRadius(const FrameContext& ctx) {
        return static_cast<int>(std::lround(ctx.blurRadius / 1.5));
    }

public:
    const char* name() const override { return "lens"; }

    void prepare(FrameContext& ctx) override {
        ctx.zoomRatio = zoomRatioOf(ctx.isp.value(KEY_MZ_POSITION, kZoomPositions[0]));
        ctx.inFocusPosition = 400.0 + 30.0 * (ctx.zoomRatio - 1.0);
        const uint32_t mode = ctx.isp.value(KEY_AUTO_FOCUS_MODE, 0);
        const double manual = ctx.isp.has(KEY_MF_POSITION)
                                  ? std::min<uint32_t>(1000, ctx.isp.value(KEY_MF_POSITION, 0))
                                  : ctx.inFocusPosition;
        LoopState& st = ctx.state;
        if (mode == 0) {
            if (!st.afStarted || st.lastFocusMode != 0)
                st.afPosition = manual;
            st.afStarted = true;
            ctx.focusPosition = st.afPosition;
        } else {
            ctx.focusPosition = manual;
        }
        st.lastFocusMode = mode;
        const double scale = ctx.width / 1280.0;
        ctx.blurRadius = std::min(16.0 * scale, std::fabs(ctx.focusPosition - ctx.inFocusPosition) /
                                                    kFocusStepsPerPixel * scale);
        // The blur works across rows, on the whole frame.
        ctx.wholeFrame = boxRadius(ctx) > 0;
    }

    void process(FrameContext& ctx) override {
        const int r = boxRadius(ctx);
        if (r == 0 && ctx.scratch->capacity() > 0) {
            // In focus again: the blur's plane is given back.
            ctx.scratch->clear();
            ctx.scratch->shrink_to_fit();
        }
        if (r > 0) {
            boxBlur(ctx.linear->data(), ctx.linear->data(), ctx.width, ctx.height, r, *ctx.scratch);
            boxBlur(ctx.linear->data(), ctx.linear->data(), ctx.width, ctx.height, r, *ctx.scratch);
        }
        if (ctx.isp.value(KEY_AUTO_FOCUS_MODE, 0) == 0) {
            const double error = ctx.inFocusPosition - ctx.state.afPosition;
            ctx.state.afPosition += std::clamp(error, -kAutoFocusStep, kAutoFocusStep);
        }
    }
};

} // namespace

std::unique_ptr<Stage> makeLensStage() {
    return std::make_unique<LensStage>();
}

} // namespace vsensor
} // namespace sim
