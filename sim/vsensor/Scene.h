// The procedural scene: what stands in front of the virtual camera, drawn in
// code. Reflectances in linear light, a light class per point (which light
// reaches it and how far away it is) and an infrared reflectance, cached at
// the frame size and zoom; the moving ball is drawn per frame.
#pragma once

#include <cstdint>
#include <vector>

namespace sim {
namespace vsensor {

// Which light reaches a point, and at what distance (for fog and the reach
// of the illuminators).
enum SceneClass : uint8_t {
    kNear = 0,   // ground and target at about 4 m
    kMedium = 1, // walls, chart and ramp at about 12 m
    kFar = 2,    // the house at about 30 m
    kSky = 3,    // the window onto the sky: brighter than the scene around it
    kShadow = 4, // the deep-shadow wall: a small part of the ambient light
    kLamp = 5,   // the lamps: shine by themselves at night
    kClassCount = 6
};

// Distance of each class in metres (fog thickens with it).
extern const float kClassDepth[kClassCount];

struct SceneSample {
    float r, g, b; // reflectance 0..1
    float ir;      // infrared reflectance 0..1
    SceneClass cls;
};

// The scene at a point (u, v in 0..1 across and down the full 1x view).
SceneSample sceneAt(float u, float v);

// The moving ball's centre (u, v) and radius (in v units) at a frame.
void ballAt(uint64_t frame, float& u, float& v, float& radius);
extern const float kBallColour[3];

// The scene sampled at a frame size and zoom, with a margin on every side
// for the shake.
// A reflectance 0..1 coded as the cache keeps it, and back (65535 = 1).
uint8_t reflectanceCode(float r);
uint16_t reflectanceOf(uint8_t code);

struct SceneCache {
    int width = 0;
    int height = 0;
    int margin = 0;
    double zoom = 0;
    int stride = 0; // width + 2 margin
    // Reflectances coded as round(255 sqrt(r)): 8 bits that keep the dark
    // surfaces' detail (steps of under 2 % about mid grey).
    std::vector<uint8_t> refl; // RGB reflectance
    std::vector<uint8_t> ir;   // infrared reflectance
    std::vector<uint8_t> cls;  // SceneClass

    // Rebuilds when the size or zoom changed.
    void prepare(int frameWidth, int frameHeight, double zoomRatio);
    // Scene coordinates of a cache pixel's centre.
    float uOf(int cx) const;
    float vOf(int cy) const;
    // Cache coordinates of a scene point.
    float xOf(float u) const;
    float yOf(float v) const;
};

} // namespace vsensor
} // namespace sim
