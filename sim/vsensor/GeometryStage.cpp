// Geometry: camera shake and its stabilisation (before the capture), mirror
// and flip (after everything else).
//
// Shake moves the picture by a fresh pseudo-random offset each frame, up to
// the set amplitude; KEY_ANTI_SHAKE_SWITCH on cuts what is left of it to
// 1 - 0.9 x KEY_ANTI_SHAKE_STRG / 100. KEY_MIRROR as the ISP holds it (after
// the controller's beaway mapping): 1 mirrors left-right, 2 flips upside
// down, 3 does both.
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

// A value in -1..1 for a frame and an axis, the same on every run.
double wobble(uint64_t frame, uint32_t axis) {
    uint32_t h = static_cast<uint32_t>(frame) * 0x9E3779B1u ^ (axis + 1) * 0x85EBCA77u;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    h *= 0x297A2D39u;
    h ^= h >> 15;
    return (h & 0xFFFF) / 32767.5 - 1.0;
}

class GeometryStage : public Stage {
public:
    const char* name() const override { return "shake and stabilisation"; }

    void prepare(FrameContext& ctx) override {
        double amplitude = ctx.conditions.shake * ctx.width / 1280.0;
        if (ctx.isp.value(KEY_ANTI_SHAKE_SWITCH, 0) == 1) {
            const double strength = std::min<uint32_t>(100, ctx.isp.value(KEY_ANTI_SHAKE_STRG, 50));
            amplitude *= 1.0 - 0.9 * strength / 100.0;
        }
        // The scene is drawn with this margin around the frame (see SceneCache).
        const int limit = static_cast<int>(std::ceil(32.0 * ctx.width / 1280.0));
        ctx.offsetX = std::clamp(
            static_cast<int>(std::lround(amplitude * wobble(ctx.frameNumber, 0))), -limit, limit);
        ctx.offsetY = std::clamp(
            static_cast<int>(std::lround(amplitude * wobble(ctx.frameNumber, 1))), -limit, limit);
    }
};

class MirrorStage : public Stage {
public:
    const char* name() const override { return "mirror"; }

    // Decides only: the tone stage reads each row reversed, the sharpening
    // stage places it upside down.
    void prepare(FrameContext& ctx) override {
        const uint32_t mirror = ctx.isp.value(KEY_MIRROR, 0);
        ctx.mirrorLeftRight = mirror == 1 || mirror == 3;
        ctx.mirrorUpsideDown = mirror == 2 || mirror == 3;
    }
};

} // namespace

std::unique_ptr<Stage> makeGeometryStage() {
    return std::make_unique<GeometryStage>();
}

std::unique_ptr<Stage> makeMirrorStage() {
    return std::make_unique<MirrorStage>();
}

} // namespace vsensor
} // namespace sim
