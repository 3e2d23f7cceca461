// The simulated camera's picture: a virtual sensor per ISP channel whose
// frames follow every image setting the simulated ISP holds.
//
// Each frame is drawn from a procedural scene (grey ramp, colour patches, a
// fine-detail target, a bright window beside deep shadow, near/medium/far
// zones, lamps that shine at night, a moving ball, thickenable fog) lit by a
// light model (a day curve over the simulated device clock, or a lux value set
// by hand, plus the infrared and white-light illuminators as the controller
// switched them) and passed through an image pipeline whose every stage reads
// a copy of the ISP's values for the channel, taken once per frame. The
// renderer never takes the controller's mutex. Frames are deterministic: the
// same settings, light and frame number give the same bytes.
//
// The sensor also carries the ISP's light meter: in the automatic day/night
// mode the simulated ISP decides its day/night state (command 153) from the
// measured scene level, the thresholds, the switch delay and the sensitivity
// the controller set. A state forced with Isp::setDayNight wins until
// Isp::releaseDayNight.
//
// Thread-safe: every member may be called from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sim {

// One picture of the virtual sensor: 8-bit RGB, rows top to bottom, three
// bytes per pixel, no padding.
struct Frame {
    int width = 0;
    int height = 0;
    uint64_t number = 0;      // the sensor's frame counter when it was drawn
    std::vector<uint8_t> rgb; // width * height * 3 bytes

    // What the ISP decided for this frame.
    double lux = 0.0;           // scene illuminance that lit it
    uint32_t shutter = 0;       // exposure time as 1/shutter seconds (the shutter list's unit)
    uint32_t gain = 0;          // analogue+digital gain, 0..100 (the gain keys' unit)
    uint32_t iris = 0;          // iris opening, 0..100 (100: fully open)
    double measuredLevel = 0;   // the auto-exposure meter's level, 0..1 of full scale
    bool irCutOut = false;      // the IR-cut filter was out: monochrome, infrared visible
    uint32_t focusPosition = 0; // the focus motor position the lens was at
};

// Measurements of a frame, for tests and for the console's read-outs.
struct FrameStats {
    double mean = 0;                       // mean luma (0..255)
    std::array<double, 3> channelMean{};   // mean R, G, B (0..255)
    double colourfulness = 0;              // Hasler–Süsstrunk colourfulness (0 for grey)
    double sharpness = 0;                  // mean squared luma Laplacian (high-frequency energy)
    double noise = 0;                      // median absolute deviation of luma from its 3x3 mean
    std::array<uint32_t, 256> histogram{}; // luma histogram
    double clipped = 0;                    // fraction of pixels with a channel at 255
};

// Named parts of the scene, for measurements: where they lie in a frame of
// the given size with the lens at 1x, no shake, no mirror.
enum class SceneRegion {
    Window,        // the bright window onto the sky (top left)
    Shadow,        // the deep-shadow wall beside it
    ColourPatches, // six colour patches and six grey patches (top right)
    FlatGrey,      // one flat 18% grey patch among them
    GreyRamp,      // the grey ramp below the patches
    FineDetail,    // the fine-detail target (bars and a fine checkerboard), near
    NearZone,      // the three ground zones at about 4 m, 12 m and 30 m
    MediumZone,
    FarZone, // holds the lamps that shine at night
};
struct Rect {
    int x = 0;
    int y = 0;
    int w = 0;
    int h = 0;
};
Rect sceneRegion(SceneRegion region, int width, int height);

// Measures a frame (of any size, or a rectangle of it when w and h are
// positive).
FrameStats measureFrame(const Frame& frame, int x = 0, int y = 0, int w = 0, int h = 0);

// The luma plane of a frame, BT.601 weights (for encoders and measurements).
std::vector<uint8_t> lumaOf(const Frame& frame);

// The frame as planar YUV 4:2:0 (I420: Y plane, then U, then V, each chroma
// plane (width+1)/2 by (height+1)/2), full-range BT.601.
std::vector<uint8_t> toI420(const Frame& frame);

// The frame as a binary PPM (P6) file's bytes.
std::string toPpm(const Frame& frame);

// The scene's illuminance at a time of day (hour 0..23, minute 0..59, second
// 0..59) along the documented day curve: ~0.1 lux moonlit night, dawn from
// 05:00, sunrise 06:30, ~50000 lux around noon, sunset 17:30, dusk until 19:00.
double dayCurveLux(int hour, int minute, int second = 0);

class VirtualSensor {
public:
    // The sensor behind ISP channel ispChannel (the controller's channel - 1),
    // made on first use and never destroyed.
    static VirtualSensor& forChannel(int ispChannel);

    // Back to the state of a new sensor: default size, light following the
    // day curve, no fog, no shake, frame counter 0, every converging loop
    // (exposure, white balance, focus, temporal noise reduction) restarted.
    // Subscribers and the light meter thread are kept.
    void reset();

    // --- Picture size ---------------------------------------------------

    static constexpr int kDefaultWidth = 1280;
    static constexpr int kDefaultHeight = 720;
    static constexpr int kMaxWidth = 1920;
    static constexpr int kMaxHeight = 1080;
    static constexpr int kMinWidth = 16;
    static constexpr int kMinHeight = 16;

    // Sets the frame size: even width and height from 16x16 to 1920x1080.
    // False, with error set to a sentence saying why, for any other size; the
    // size is then unchanged.
    bool setFrameSize(int width, int height, std::string& error);
    int width() const;
    int height() const;

    // --- Light ----------------------------------------------------------

    static constexpr double kMinLux = 0.0;
    static constexpr double kMaxLux = 200000.0;

    // Fixes the scene illuminance in lux (0..200000); false with error for a
    // value outside that range or not a number.
    bool setIlluminance(double lux, std::string& error);
    // The illuminance follows the day curve over the device clock again.
    void followDayCurve();
    bool followsDayCurve() const;
    // The scene illuminance now (the fixed value, or the day curve at the
    // device clock's time).
    double illuminance() const;

    static constexpr double kMaxFog = 1.0;
    static constexpr double kMaxShake = 32.0;

    // Fog density 0 (clear) .. kMaxFog (thick); false with error outside.
    bool setFog(double density, std::string& error);
    double fog() const;
    // Camera shake amplitude in pixels of a 1280-wide frame, 0..kMaxShake;
    // false with error outside.
    bool setShake(double pixels, std::string& error);
    double shake() const;

    // --- Frames ---------------------------------------------------------

    // Renders the next frame now, on the calling thread, from a fresh copy of
    // the ISP's values, and advances the frame counter. For tests, snapshots
    // and tools; a subscriber's frames come from the sensor's own thread.
    Frame renderFrame();
    // The same into frame, reusing the buffer it has (no allocation once the
    // size settles): what a caller drawing frame after frame uses.
    void renderFrame(Frame& frame);
    // The number the next rendered frame will carry; set it to repeat a
    // picture (with reset() for the converging loops).
    uint64_t nextFrameNumber() const;
    void setNextFrameNumber(uint64_t number);

    // The latest frame rendered (by either path); an empty frame (width 0)
    // before the first.
    Frame latestFrame() const;

    // The frame rate the ISP holds for the channel (the sensor frame-rate
    // command that KEY_SENSOR_FPS goes out as), 25 when unset or out of 1..60.
    double frameRate() const;

    // Bytes the renderer holds now: its buffers, the scene drawn at the
    // frame size, the temporal noise reduction's last frame, its tables and
    // the latest frame it keeps.
    size_t rendererMemoryBytes() const;

    // A subscriber's callback, called on the sensor's thread for every frame
    // while subscribed. It must not unsubscribe itself or call renderFrame.
    using FrameCallback = std::function<void(const Frame&)>;
    // Subscribes; frames are rendered at the ISP's frame rate (waits scaled
    // by sim::timeScale) only while at least one subscriber is there. Returns
    // a handle for unsubscribe (never 0).
    int subscribe(FrameCallback callback);
    // Ends a subscription; when the last one ends the thread stops. Waits for
    // a callback in progress. Unknown handles are ignored.
    void unsubscribe(int handle);
    int subscriberCount() const;

    // --- The ISP's light meter and automatic day/night -------------------

    // Runs the light meter for this many simulated seconds at the device
    // clock's current time: the measured level, and in the automatic
    // day/night mode the ISP's day/night state, follow (one step per second).
    // Deterministic; what the meter thread does once per (scaled) second.
    void runLightMeter(int seconds);
    // Starts / stops the meter thread (one step per second, scaled by
    // sim::timeScale; at scale 0 a step per millisecond). Off on a new sensor.
    void startLightMeter();
    void stopLightMeter();
    bool lightMeterRunning() const;
    // The level the meter measured last, 0..100 on the thresholds' scale:
    // 20 * log10(lux) + 20, clamped (0.1 lux: 0, 1 lux: 20, 10 lux: 40,
    // 10000 lux: 100). Measures the ambient light only: the ISP discounts its
    // own illuminators.
    double measuredLightLevel() const;
    // The level scale itself, for documentation and tests.
    static double lightLevelOf(double lux);

private:
    explicit VirtualSensor(int ispChannel);
    ~VirtualSensor();
    VirtualSensor(const VirtualSensor&) = delete;
    VirtualSensor& operator=(const VirtualSensor&) = delete;
    struct Impl;
    Impl* m_pImpl;
};

// JPEG through libjpeg-turbo. Available when the build found it; otherwise
// encodeJpeg answers false with error saying the build has no JPEG encoder.
bool jpegAvailable();
// Encodes a frame at quality 1..100 into out.
bool encodeJpeg(const Frame& frame, int quality, std::vector<uint8_t>& out, std::string& error);

} // namespace sim
