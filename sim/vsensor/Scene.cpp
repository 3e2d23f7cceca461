// The scene, laid out on a 16:9 view (u across, v down, both 0..1):
//   top left      a window onto a bright sky, crossed by its frame
//   beside it     a wall in deep shadow with faint stripes (WDR, BLC)
//   top right     six colour patches over six grey patches (WB, saturation)
//   below them    a grey ramp, even in output steps (contrast, gamma)
//   middle band   a grey wall along which a red ball moves (3D NR, shake)
//   bottom        three ground zones: near with the fine-detail target
//                 (bars of rising frequency over a fine checkerboard),
//                 medium with a coarse checkerboard, far with a house whose
//                 lamps shine at night (IR and white-light reach, HLC)
#include "sim/vsensor/Scene.h"

#include <algorithm>
#include <cmath>

#include "sim/VirtualSensor.h"

namespace sim {
namespace vsensor {

const float kClassDepth[kClassCount] = {4.0f, 12.0f, 30.0f, 60.0f, 10.0f, 30.0f};
const float kBallColour[3] = {0.70f, 0.12f, 0.08f};

namespace {

struct Box {
    float u0, v0, u1, v1;
    bool holds(float u, float v) const { return u >= u0 && u < u1 && v >= v0 && v < v1; }
};

constexpr Box kWindowBox{0.02f, 0.04f, 0.30f, 0.42f};
constexpr Box kShadowBox{0.30f, 0.04f, 0.48f, 0.42f};
constexpr Box kPatchBox{0.52f, 0.04f, 0.98f, 0.30f};
constexpr Box kRampBox{0.52f, 0.32f, 0.98f, 0.42f};
constexpr Box kNearZone{0.02f, 0.58f, 0.32f, 0.98f};
constexpr Box kMediumZone{0.35f, 0.58f, 0.65f, 0.98f};
constexpr Box kFarZone{0.68f, 0.58f, 0.98f, 0.98f};

// Patch reflectances, linear: red, green, blue, cyan, magenta, yellow; then
// white and greys down to black.
constexpr float kPatchColours[12][3] = {
    {0.55f, 0.06f, 0.05f}, {0.08f, 0.40f, 0.08f}, {0.05f, 0.08f, 0.45f}, {0.06f, 0.40f, 0.50f},
    {0.50f, 0.08f, 0.40f}, {0.70f, 0.60f, 0.06f}, {0.90f, 0.90f, 0.90f}, {0.59f, 0.59f, 0.59f},
    {0.36f, 0.36f, 0.36f}, {0.18f, 0.18f, 0.18f}, {0.09f, 0.09f, 0.09f}, {0.03f, 0.03f, 0.03f}};

// The patch index of a point inside the patch box (a small gap between).
int patchAt(float u, float v) {
    const float fu = (u - kPatchBox.u0) / (kPatchBox.u1 - kPatchBox.u0) * 6.0f;
    const float fv = (v - kPatchBox.v0) / (kPatchBox.v1 - kPatchBox.v0) * 2.0f;
    const int col = std::min(5, static_cast<int>(fu));
    const int row = std::min(1, static_cast<int>(fv));
    const float du = fu - col;
    const float dv = fv - row;
    if (du < 0.06f || du > 0.94f || dv < 0.06f || dv > 0.94f)
        return -1;
    return row * 6 + col;
}

SceneSample grey(float r, SceneClass cls) {
    return {r, r, r, 0.2f + 0.7f * r, cls};
}

float lumaOf(float r, float g, float b) {
    return 0.299f * r + 0.587f * g + 0.114f * b;
}

SceneSample colour(const float* c, SceneClass cls) {
    return {c[0], c[1], c[2], 0.2f + 0.7f * lumaOf(c[0], c[1], c[2]), cls};
}

Rect toRect(const Box& box, int width, int height) {
    Rect r;
    r.x = static_cast<int>(std::lround(box.u0 * width));
    r.y = static_cast<int>(std::lround(box.v0 * height));
    r.w = static_cast<int>(std::lround(box.u1 * width)) - r.x;
    r.h = static_cast<int>(std::lround(box.v1 * height)) - r.y;
    return r;
}

} // namespace

SceneSample sceneAt(float u, float v) {
    if (kWindowBox.holds(u, v)) {
        // The window frame: a cross and a border of dark wood.
        const float lu = (u - kWindowBox.u0) / (kWindowBox.u1 - kWindowBox.u0);
        const float lv = (v - kWindowBox.v0) / (kWindowBox.v1 - kWindowBox.v0);
        if (lu < 0.04f || lu > 0.96f || lv < 0.05f || lv > 0.95f || std::fabs(lu - 0.5f) < 0.02f ||
            std::fabs(lv - 0.5f) < 0.025f)
            return grey(0.05f, kShadow);
        // Sky: deeper blue at the top, paler towards the horizon.
        const float t = lv;
        const float c[3] = {0.55f + 0.3f * t, 0.70f + 0.2f * t, 0.95f};
        return {c[0], c[1], c[2], 0.0f, kSky};
    }
    if (kShadowBox.holds(u, v)) {
        // Faint stripes only a lifted shadow shows.
        const float lv = (v - kShadowBox.v0) / (kShadowBox.v1 - kShadowBox.v0);
        const bool stripe = static_cast<int>(lv * 12.0f) % 2 == 0;
        return grey(stripe ? 0.35f : 0.12f, kShadow);
    }
    if (kPatchBox.holds(u, v)) {
        const int patch = patchAt(u, v);
        return patch < 0 ? grey(0.04f, kMedium) : colour(kPatchColours[patch], kMedium);
    }
    if (kRampBox.holds(u, v)) {
        // Even steps in the output: reflectance rises as the standard gamma's inverse.
        const float t = (u - kRampBox.u0) / (kRampBox.u1 - kRampBox.u0);
        return grey(std::pow(t, 2.2f), kMedium);
    }
    if (kNearZone.holds(u, v)) {
        const float lu = (u - kNearZone.u0) / (kNearZone.u1 - kNearZone.u0);
        const float lv = (v - kNearZone.v0) / (kNearZone.v1 - kNearZone.v0);
        if (lv < 0.5f) {
            // Bars whose frequency rises from 4 to 60 cycles across the target.
            const float phase = 4.0f * lu + 28.0f * lu * lu;
            const bool bright = phase - std::floor(phase) < 0.5f;
            return grey(bright ? 0.80f : 0.05f, kNear);
        }
        // A fine checkerboard of 1/160 view-width cells.
        const int cu = static_cast<int>(u * 160.0f);
        const int cv = static_cast<int>(v * 90.0f);
        return grey((cu + cv) % 2 == 0 ? 0.70f : 0.10f, kNear);
    }
    if (kMediumZone.holds(u, v)) {
        const int cu = static_cast<int>((u - kMediumZone.u0) * 40.0f);
        const int cv = static_cast<int>((v - kMediumZone.v0) * 22.5f);
        return grey((cu + cv) % 2 == 0 ? 0.60f : 0.20f, kMedium);
    }
    if (kFarZone.holds(u, v)) {
        const float lu = (u - kFarZone.u0) / (kFarZone.u1 - kFarZone.u0);
        const float lv = (v - kFarZone.v0) / (kFarZone.v1 - kFarZone.v0);
        // Two lamps on the house front.
        for (const float lampU : {0.25f, 0.75f}) {
            const float du = (lu - lampU) * 1.6f;
            const float dv = lv - 0.30f;
            if (du * du + dv * dv < 0.06f * 0.06f) {
                const float c[3] = {1.0f, 0.85f, 0.55f};
                return {c[0], c[1], c[2], 0.3f, kLamp};
            }
        }
        // A door and the wall.
        if (lu > 0.42f && lu < 0.58f && lv > 0.45f)
            return grey(0.08f, kFar);
        const float wall[3] = {0.45f, 0.35f, 0.25f};
        return colour(wall, kFar);
    }
    // The wall behind everything, and the ground below the middle band.
    if (v > 0.56f)
        return grey(0.15f, kNear);
    return grey(0.25f, kMedium);
}

void ballAt(uint64_t frame, float& u, float& v, float& radius) {
    // Back and forth along the middle band every 200 frames.
    const double phase = static_cast<double>(frame % 200) / 100.0;
    const double tri = phase < 1.0 ? phase : 2.0 - phase;
    u = static_cast<float>(0.08 + 0.84 * tri);
    v = 0.50f;
    radius = 0.045f;
}

uint8_t reflectanceCode(float r) {
    return static_cast<uint8_t>(std::lround(std::sqrt(std::clamp(r, 0.0f, 1.0f)) * 255.0f));
}

uint16_t reflectanceOf(uint8_t code) {
    const double root = code / 255.0;
    return static_cast<uint16_t>(std::lround(root * root * 65535.0));
}

void SceneCache::prepare(int frameWidth, int frameHeight, double zoomRatio) {
    const int newMargin = static_cast<int>(std::ceil(32.0 * frameWidth / 1280.0)) + 1;
    if (frameWidth == width && frameHeight == height && zoomRatio == zoom && newMargin == margin)
        return;
    width = frameWidth;
    height = frameHeight;
    zoom = zoomRatio;
    margin = newMargin;
    stride = width + 2 * margin;
    const int rows = height + 2 * margin;
    refl.assign(static_cast<size_t>(stride) * rows * 3, 0);
    ir.assign(static_cast<size_t>(stride) * rows, 0);
    cls.assign(static_cast<size_t>(stride) * rows, kMedium);
    // A smaller frame gives back what the larger one held.
    refl.shrink_to_fit();
    ir.shrink_to_fit();
    cls.shrink_to_fit();
    for (int cy = 0; cy < rows; ++cy) {
        const float v = vOf(cy);
        for (int cx = 0; cx < stride; ++cx) {
            const SceneSample s = sceneAt(uOf(cx), v);
            const size_t i = static_cast<size_t>(cy) * stride + cx;
            refl[i * 3 + 0] = reflectanceCode(s.r);
            refl[i * 3 + 1] = reflectanceCode(s.g);
            refl[i * 3 + 2] = reflectanceCode(s.b);
            ir[i] = reflectanceCode(s.ir);
            cls[i] = s.cls;
        }
    }
}

float SceneCache::uOf(int cx) const {
    return static_cast<float>(((cx - margin + 0.5) / width - 0.5) / zoom + 0.5);
}

float SceneCache::vOf(int cy) const {
    return static_cast<float>(((cy - margin + 0.5) / height - 0.5) / zoom + 0.5);
}

float SceneCache::xOf(float u) const {
    return static_cast<float>(((u - 0.5) * zoom + 0.5) * width + margin);
}

float SceneCache::yOf(float v) const {
    return static_cast<float>(((v - 0.5) * zoom + 0.5) * height + margin);
}

} // namespace vsensor

Rect sceneRegion(SceneRegion region, int width, int height) {
    using namespace vsensor;
    switch (region) {
        case SceneRegion::Window:
            return toRect(kWindowBox, width, height);
        case SceneRegion::Shadow:
            return toRect(kShadowBox, width, height);
        case SceneRegion::ColourPatches:
            return toRect(kPatchBox, width, height);
        case SceneRegion::FlatGrey: {
            // The 18% grey patch (second row, fourth column), inside its gap.
            const float pw = (kPatchBox.u1 - kPatchBox.u0) / 6.0f;
            const float ph = (kPatchBox.v1 - kPatchBox.v0) / 2.0f;
            const Box box{kPatchBox.u0 + pw * 3.15f, kPatchBox.v0 + ph * 1.15f,
                          kPatchBox.u0 + pw * 3.85f, kPatchBox.v0 + ph * 1.85f};
            return toRect(box, width, height);
        }
        case SceneRegion::GreyRamp:
            return toRect(kRampBox, width, height);
        case SceneRegion::FineDetail:
        case SceneRegion::NearZone:
            return toRect(kNearZone, width, height);
        case SceneRegion::MediumZone:
            return toRect(kMediumZone, width, height);
        case SceneRegion::FarZone:
            return toRect(kFarZone, width, height);
    }
    return Rect();
}

} // namespace sim
