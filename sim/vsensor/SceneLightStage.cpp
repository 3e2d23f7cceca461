// Scene and light: the capture. Lights every point of the scene by its class
// (ambient light in the colour of the hour, the lamps at night, the white
// light and, with the IR-cut filter out, the infrared light by distance),
// veils it with fog (transmission exp(-0.1 x fog x distance), the rest
// replaced by bright haze), and turns it into the sensor's linear signal with
// the exposure the exposure stage chose, through the colour filters'
// sensitivities, adding the sensor's noise for the gain (the noise stage's
// model) from a generator seeded by (frame, x, y).
#include <algorithm>
#include <cmath>
#include <cstring>

#include "sim/vsensor/RowKernel.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

// How strongly the red, green and blue filters pass white light: uncorrected
// frames look green, as a real sensor's raw picture does.
constexpr float kRawSensitivity[3] = {0.55f, 1.0f, 0.70f};
// The filters pass near infrared almost alike.
constexpr float kIrSensitivity = 0.9f;
// How much of the ambient light each class receives.
constexpr float kAmbientShare[kClassCount] = {1.0f, 1.0f, 1.0f, 3.0f, 0.06f, 1.0f};
constexpr float kFogPerMetre = 0.1f;

// 65536 samples of a standard normal variate (x 1024), from a fixed integer
// generator: the sum of twelve uniform variates less six. Each row of a
// frame reads them from its own starting point, a hash of (frame, row), so
// that the noise of every pixel follows from (frame, x, y) alone.
constexpr uint32_t kNoiseSamples = 65536;
const int16_t* noiseTable() {
    static const std::vector<int16_t> table = [] {
        std::vector<int16_t> t(kNoiseSamples + 1920 * 3);
        uint32_t state = 12345u;
        for (size_t i = 0; i < kNoiseSamples; ++i) {
            int64_t sum = 0;
            for (int k = 0; k < 12; ++k) {
                state = state * 1664525u + 1013904223u;
                sum += state >> 16; // 0..65535
            }
            // sum / 65536 - 6, in units of 1/1024.
            t[i] = static_cast<int16_t>((sum - 6 * 65536) / 64);
        }
        // The start repeated past the end, so that a row never wraps.
        for (size_t i = kNoiseSamples; i < t.size(); ++i)
            t[i] = t[i - kNoiseSamples];
        return t;
    }();
    return table.data();
}

inline uint32_t rowHash(uint32_t y, uint32_t frame) {
    uint32_t h = y * 0xD8163841u ^ frame * 0xCB1AB31Fu ^ 0x8DA6B343u;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    h *= 0x297A2D39u;
    h ^= h >> 15;
    return h;
}

// The square root for the noise's level, to about 0.2 %: the reciprocal
// root's first guess from the float's bits and one Newton step, all of it
// multiplications the vectoriser packs (a true root costs several times more
// and the noise needs no more precision). Exact 0 at 0.
inline float roughSqrt(float v) {
    int32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    bits = 0x5f3759df - (bits >> 1);
    float r;
    std::memcpy(&r, &bits, sizeof r);
    r = r * (1.5f - 0.5f * v * r * r);
    return v * r;
}

// A clean level v with noise n (in 1/1024 of a standard deviation) of the
// level's standard deviation a sqrt(v) + b (capped at the clip), rounded and
// clamped to the sample range. Comparisons rather than std::min and
// std::clamp, which the vectoriser does not take.
// The clamp is on the rounded integer, where the vectoriser has a minimum
// and a maximum in one instruction each (the float comparisons it cannot
// turn into them): the same result, as rounding and clamping commute here
// and the sum stays far inside an int32 (|n| <= 6 x 1024, sigma <= kCap).
constexpr float kSigmaCap = 65535.0f / 1024.0f;
template <bool Capped> inline uint16_t noisySampleOf(float v, int16_t n, float a, float b) {
    float sigma = a * roughSqrt(v) + b;
    if (Capped)
        sigma = sigma < kSigmaCap ? sigma : kSigmaCap;
    int32_t q = static_cast<int32_t>(v + static_cast<float>(n) * sigma + 0.5f);
    q = q < 0 ? 0 : q;
    q = q > 65535 ? 65535 : q;
    return static_cast<uint16_t>(q);
}
inline uint16_t noisySample(float v, int16_t n, float a, float b) {
    return noisySampleOf<true>(v, n, a, b);
}

// A row with its noise; sigma never reaches the cap below the clip when
// 256 a + b stays under it (the usual gains), and the cap is then left out.
VSENSOR_ROW_KERNEL
void captureRowUncapped(const uint16_t* __restrict clean, const int16_t* __restrict noise,
                        uint16_t* __restrict dst, size_t count, float a, float b) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = noisySampleOf<false>(static_cast<float>(clean[i]), noise[i], a, b);
}

VSENSOR_ROW_KERNEL
void captureRowCapped(const uint16_t* __restrict clean, const int16_t* __restrict noise,
                      uint16_t* __restrict dst, size_t count, float a, float b) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = noisySampleOf<true>(static_cast<float>(clean[i]), noise[i], a, b);
}

void captureRow(const uint16_t* clean, const int16_t* noise, uint16_t* dst, size_t count, float a,
                float b) {
    // roughSqrt(65535) is within 0.2 % of 256: 257 leaves room.
    if (257.0f * a + b < kSigmaCap)
        captureRowUncapped(clean, noise, dst, count, a, b);
    else
        captureRowCapped(clean, noise, dst, count, a, b);
}

class SceneLightStage : public Stage {
public:
    const char* name() const override { return "scene and light"; }

    void prepare(FrameContext& ctx) override {
        const double lux = ctx.conditions.lux;
        float ambient[3];
        ambientColour(lux, ambient);
        const bool lampsOn = lux < kLampsOnLux;
        for (int k = 0; k < kClassCount; ++k) {
            const float transmission =
                std::exp(-kFogPerMetre * static_cast<float>(ctx.conditions.fog) * kClassDepth[k]);
            const float haze = static_cast<float>(lux) * 0.8f * (1.0f - transmission);
            for (int c = 0; c < 3; ++c) {
                float light = static_cast<float>(lux) * kAmbientShare[k] * ambient[c] +
                              ctx.illuminators.white[k];
                if (k == kLamp && lampsOn)
                    light += kLampLux;
                ctx.classMul[k][c] = light * transmission * kRawSensitivity[c];
                ctx.classAdd[k][c] = haze * ambient[c] * kRawSensitivity[c];
            }
            ctx.classIr[k] =
                ctx.irCutOut ? ctx.illuminators.ir[k] * transmission * kIrSensitivity : 0.0f;
        }
    }

    // Two steps. The noise-free signal of the whole drawn scene (margin
    // included) is kept while the light, exposure, size and zoom stay as
    // they were (the usual case: exposure moves in 1/32 stops and rests
    // within 1/16 stop of its target). Each frame then only reads
    // its window of it, shifted by the shake, adds the frame's noise and
    // draws the moving ball.
    void process(FrameContext& ctx) override {
        SceneCache& sc = ctx.scene;
        sc.prepare(ctx.width, ctx.height, ctx.zoomRatio);
        const double units = ctx.shutterSeconds * ctx.gainLinear * ctx.irisArea /
                             kFullScaleLuxSeconds * 65535.0 / ctx.headroom;
        Factors f;
        const auto factor = [](double perReflectance) {
            // Signal per 1/65535 of reflectance, as 1/4096 per 12-bit step;
            // capped at 8 full scales per unit reflectance, far beyond the clip.
            return static_cast<int32_t>(std::min(perReflectance * 16.0 * 4096.0, 524287.0));
        };
        for (int k = 0; k < kClassCount; ++k) {
            for (int c = 0; c < 3; ++c) {
                f.mul[k][c] = factor(ctx.classMul[k][c] * units / 65535.0);
                f.add[k][c] = static_cast<int32_t>(std::min(ctx.classAdd[k][c] * units, 524287.0));
            }
            f.ir[k] = factor(ctx.classIr[k] * units / 65535.0);
        }
        f.width = sc.width;
        f.height = sc.height;
        f.zoom = sc.zoom;
        if (!(f == m_factors)) {
            m_factors = f;
            drawClean(sc);
        }

        float ballU, ballV, ballR;
        ballAt(ctx.frameNumber, ballU, ballV, ballR);
        m_frame.bx = sc.xOf(ballU) - sc.margin - ctx.offsetX;
        m_frame.by = sc.yOf(ballV) - sc.margin - ctx.offsetY;
        m_frame.br = static_cast<float>(ballR * ctx.height * ctx.zoomRatio);
        m_frame.number = static_cast<uint32_t>(ctx.frameNumber);
        m_frame.width = ctx.width;
        m_frame.origin =
            static_cast<size_t>(sc.margin + ctx.offsetY) * sc.stride + sc.margin + ctx.offsetX;
        m_frame.stride = static_cast<size_t>(sc.stride);
        // The noise's standard deviation per level, with the table's 1/1024
        // folded in.
        m_frame.a = ctx.noiseA / 1024.0f;
        m_frame.b = ctx.noiseB / 1024.0f;

        // The meters' grid, once for both of them.
        ctx.gridStep = FrameContext::gridStepFor(ctx.width);
        ctx.gridColumns = (ctx.width - ctx.gridStep / 2 + ctx.gridStep - 1) / ctx.gridStep;
        ctx.gridRows = (ctx.height - ctx.gridStep / 2 + ctx.gridStep - 1) / ctx.gridStep;
        m_grid.resize(static_cast<size_t>(ctx.gridColumns) * ctx.gridRows * 3);
        for (int j = 0; j < ctx.gridRows; ++j)
            for (int i = 0; i < ctx.gridColumns; ++i)
                pixelAt(ctx.gridX(i), ctx.gridY(j),
                        m_grid.data() + (static_cast<size_t>(j) * ctx.gridColumns + i) * 3);
        ctx.grid = m_grid.data();
        const size_t rowLen = static_cast<size_t>(ctx.width) * 3;
        if (ctx.wholeFrame) {
            // The lens blurs across rows: the whole frame first.
            ctx.linear->resize(rowLen * ctx.height);
            for (int y = 0; y < ctx.height; ++y)
                captureRowInto(y, ctx.linear->data() + y * rowLen);
            return;
        }
        // Otherwise each row is captured as the next stage asks for it, into
        // one row that stays in the processor's caches.
        ctx.linear->clear();
        ctx.linear->shrink_to_fit();
        m_row.resize(rowLen);
        ctx.linearRow = [this](int y) {
            captureRowInto(y, m_row.data());
            return static_cast<const uint16_t*>(m_row.data());
        };
    }

    size_t memoryBytes() const override {
        return (m_clean.capacity() + m_row.capacity() + m_grid.capacity()) * sizeof(uint16_t);
    }

private:
    static constexpr uint16_t kBallRefl[3] = {static_cast<uint16_t>(0.70 * 65535),
                                              static_cast<uint16_t>(0.12 * 65535),
                                              static_cast<uint16_t>(0.08 * 65535)};
    static constexpr uint16_t kBallIr = static_cast<uint16_t>(0.35 * 65535);

    // What the noise-free signal depends on.
    struct Factors {
        int32_t mul[kClassCount][3] = {};
        int32_t add[kClassCount][3] = {};
        int32_t ir[kClassCount] = {};
        int width = 0;
        int height = 0;
        double zoom = 0;
        bool operator==(const Factors& o) const {
            return width == o.width && height == o.height && zoom == o.zoom &&
                   std::memcmp(mul, o.mul, sizeof(mul)) == 0 &&
                   std::memcmp(add, o.add, sizeof(add)) == 0 &&
                   std::memcmp(ir, o.ir, sizeof(ir)) == 0;
        }
    };

    // Integer arithmetic throughout: a reflectance (16 bits, used as 12)
    // times a class factor in 1/4096 gives the signal.
    void drawClean(const SceneCache& sc) {

        const Factors& f = m_factors;
        // Each class's signal for each of the 256 reflectance codes: the
        // drawing is then look-ups and one sum a sample.
        auto& light = m_light;
        auto& infrared = m_infrared;
        for (int k = 0; k < kClassCount; ++k) {
            for (int code = 0; code < 256; ++code) {
                const int32_t r = reflectanceOf(static_cast<uint8_t>(code)) >> 4;
                for (int c = 0; c < 3; ++c)
                    light[k][c][code] = (r * f.mul[k][c] >> 12) + f.add[k][c];
                infrared[k][code] = r * f.ir[k] >> 12;
            }
        }
        const size_t samples = sc.cls.size();
        m_clean.resize(samples * 3);
        m_clean.shrink_to_fit(); // after a smaller frame or zoom
        for (size_t i = 0; i < samples; ++i) {
            const int k = sc.cls[i];
            const int32_t irPart = infrared[k][sc.ir[i]];
            for (int c = 0; c < 3; ++c)
                m_clean[i * 3 + c] = static_cast<uint16_t>(
                    std::min(light[k][c][sc.refl[i * 3 + c]] + irPart, 65535));
        }
    }

    // Row y of the frame as the sensor captures it: the noise-free signal's
    // window with the frame's noise, and the ball.
    void captureRowInto(int y, uint16_t* __restrict dst) const {
        const FrameGeometry& g = m_frame;
        const size_t rowLen = static_cast<size_t>(g.width) * 3;
        const uint16_t* clean = m_clean.data() + (g.origin + y * g.stride) * 3;
        const int16_t* rowNoise = rowNoiseOf(y);
        captureRow(clean, rowNoise, dst, rowLen, g.a, g.b);
        // The ball's span on this row, if it crosses it.
        const float dy = y + 0.5f - g.by;
        if (dy * dy >= g.br * g.br)
            return;
        const float half = std::sqrt(g.br * g.br - dy * dy);
        const int from = std::clamp(static_cast<int>(std::ceil(g.bx - half - 0.5f)), 0, g.width);
        const int to =
            std::clamp(static_cast<int>(std::floor(g.bx + half - 0.5f)) + 1, from, g.width);
        for (int x = from; x < to; ++x)
            ballPixel(rowNoise + x * 3, dst + x * 3);
    }

    // One pixel exactly as captureRowInto gives it, for the meters' grid.
    void pixelAt(int x, int y, uint16_t* rgb) const {
        const FrameGeometry& g = m_frame;
        const int16_t* noise = rowNoiseOf(y) + x * 3;
        const float dy = y + 0.5f - g.by;
        if (dy * dy < g.br * g.br) {
            const float half = std::sqrt(g.br * g.br - dy * dy);
            const int from = static_cast<int>(std::ceil(g.bx - half - 0.5f));
            const int to = static_cast<int>(std::floor(g.bx + half - 0.5f)) + 1;
            if (x >= from && x < to) {
                ballPixel(noise, rgb);
                return;
            }
        }
        const uint16_t* clean = m_clean.data() + (g.origin + y * g.stride + x) * 3;
        for (int c = 0; c < 3; ++c)
            rgb[c] = noisySample(static_cast<float>(clean[c]), noise[c], g.a, g.b);
    }

    const int16_t* rowNoiseOf(int y) const {
        return noiseTable() + rowHash(static_cast<uint32_t>(y), m_frame.number) % kNoiseSamples;
    }

    void ballPixel(const int16_t* noise, uint16_t* rgb) const {
        const Factors& f = m_factors;
        const int32_t irPart = (kBallIr >> 4) * f.ir[kMedium] >> 12;
        for (int c = 0; c < 3; ++c) {
            int32_t v = (kBallRefl[c] >> 4) * f.mul[kMedium][c] >> 12;
            v = std::min(v + f.add[kMedium][c] + irPart, 65535);
            rgb[c] = noisySample(static_cast<float>(v), noise[c], m_frame.a, m_frame.b);
        }
    }

    // Where this frame's window, noise and ball are.
    struct FrameGeometry {
        float bx = 0, by = 0, br = 0; // the ball's centre and radius in frame pixels
        uint32_t number = 0;
        int width = 0;
        size_t origin = 0; // the window's first pixel in the noise-free signal
        size_t stride = 0;
        float a = 0, b = 0; // the noise model with the table's 1/1024
    };

    Factors m_factors;
    int32_t m_light[kClassCount][3][256] = {}; // per class, channel and reflectance code
    int32_t m_infrared[kClassCount][256] = {};
    FrameGeometry m_frame;
    std::vector<uint16_t> m_clean;
    std::vector<uint16_t> m_row;
    std::vector<uint16_t> m_grid;
};

} // namespace

std::unique_ptr<Stage> makeSceneLightStage() {
    return std::make_unique<SceneLightStage>();
}

} // namespace vsensor
} // namespace sim
