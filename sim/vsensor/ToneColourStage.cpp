// Tone and colour: from the sensor's linear signal to 8-bit RGB, row by row,
// through a table per channel. The table holds, in order: the white-balance
// gain, the WDR and defog curve, highlight compression above 60% (by the
// exposure stage's HLC strength x 0.8), the gamma of KEY_GAMMA (0 standard,
// 1/2.2; 1 linear; 2 high contrast, the standard curve pushed 60% towards an
// S-curve), contrast (KEY_CONTRAST: slope 2^((value - 50) / 35) about mid
// grey) and brightness (KEY_BRIGHTNESS: (value - 50) / 200 of full scale
// added). Then saturation (KEY_SATURATION: chroma times value / 50 about the
// pixel's luma). With the IR-cut filter out the picture is the luma of the
// signal, without white balance: grey.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "sim/vsensor/RowKernel.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

struct ToneParams {
    double gain[3];
    double headroom;
    double wdrA;
    double defogFloor;
    double hlc;
    uint32_t gamma;
    uint32_t contrast;
    uint32_t brightness;
    bool mono;

    bool operator==(const ToneParams& o) const {
        return std::equal(gain, gain + 3, o.gain) && headroom == o.headroom && wdrA == o.wdrA &&
               defogFloor == o.defogFloor && hlc == o.hlc && gamma == o.gamma &&
               contrast == o.contrast && brightness == o.brightness && mono == o.mono;
    }
};

double toneOf(double x, const ToneParams& p) {
    x = wdrDefogCurve(x, p.headroom, p.wdrA, p.defogFloor);
    if (p.hlc > 0 && x > 0.6)
        x = 0.6 + (x - 0.6) * (1.0 - 0.8 * p.hlc);
    double y = x;
    if (p.gamma != 1) {
        y = std::pow(x, 1.0 / 2.2);
        if (p.gamma == 2)
            y += 0.6 * (y * y * (3.0 - 2.0 * y) - y);
    }
    y = 0.5 + (y - 0.5) * std::exp2((std::min<uint32_t>(100, p.contrast) - 50.0) / 35.0);
    y += (std::min<uint32_t>(100, p.brightness) - 50.0) / 200.0;
    return std::clamp(y, 0.0, 1.0);
}

// The tables take the top 14 bits of the signal: small enough to stay in the
// processor's nearest caches, fine enough that only the darkest step of the
// standard gamma (3 output levels) shows.
constexpr int kLutShift = 2;
constexpr int kLutSize = 65536 >> kLutShift;

inline uint8_t clampByte(int32_t v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

VSENSOR_ROW_KERNEL
void lookUpRow(const uint16_t* __restrict in, uint8_t* __restrict o, int pixels,
               const uint8_t* __restrict lr, const uint8_t* __restrict lg,
               const uint8_t* __restrict lb) {
    for (int i = 0; i < pixels; ++i) {
        const uint16_t* p = in + i * 3;
        o[i * 3] = lr[p[0] >> kLutShift];
        o[i * 3 + 1] = lg[p[1] >> kLutShift];
        o[i * 3 + 2] = lb[p[2] >> kLutShift];
    }
}

VSENSOR_ROW_KERNEL
void lookUpReversed(const uint16_t* __restrict in, uint8_t* __restrict o, int pixels,
                    const uint8_t* __restrict lr, const uint8_t* __restrict lg,
                    const uint8_t* __restrict lb) {
    for (int i = 0; i < pixels; ++i) {
        const uint16_t* p = in + (pixels - 1 - i) * 3;
        o[i * 3] = lr[p[0] >> kLutShift];
        o[i * 3 + 1] = lg[p[1] >> kLutShift];
        o[i * 3 + 2] = lb[p[2] >> kLutShift];
    }
}

// Chroma times sat / 256 about each pixel's luma.
VSENSOR_ROW_KERNEL
void saturateRow(uint8_t* __restrict o, int pixels, int32_t sat) {
    for (int i = 0; i < pixels; ++i) {
        const int32_t r = o[i * 3];
        const int32_t g = o[i * 3 + 1];
        const int32_t b = o[i * 3 + 2];
        const int32_t y = (77 * r + 150 * g + 29 * b + 128) >> 8;
        o[i * 3] = clampByte(y + ((r - y) * sat >> 8));
        o[i * 3 + 1] = clampByte(y + ((g - y) * sat >> 8));
        o[i * 3 + 2] = clampByte(y + ((b - y) * sat >> 8));
    }
}

class ToneColourStage : public Stage {
public:
    const char* name() const override { return "tone and colour"; }

    void prepare(FrameContext& ctx) override {
        ToneParams p;
        for (int c = 0; c < 3; ++c)
            // In steps of 1/1024, so that the tables settle with the white balance.
            p.gain[c] = ctx.irCutOut ? 1.0 : std::round(ctx.wbGains[c] * 1024.0) / 1024.0;
        p.headroom = ctx.headroom;
        p.wdrA = ctx.wdrA;
        p.defogFloor = ctx.defogFloor;
        p.hlc = ctx.hlcStrength;
        p.gamma = ctx.isp.value(KEY_GAMMA, 0);
        p.contrast = ctx.isp.value(KEY_CONTRAST, 50);
        p.brightness = ctx.isp.value(KEY_BRIGHTNESS, 50);
        p.mono = ctx.irCutOut;
        if (m_bBuilt && p == m_params)
            return;
        m_params = p;
        m_bBuilt = true;
        const int channels = p.mono ? 1 : 3;
        for (int c = 0; c < channels; ++c) {
            // The curve at 1025 knots, linear between: the same table as
            // every entry computed, to well under one output step.
            double knots[1025];
            for (int i = 0; i <= 1024; ++i)
                knots[i] = toneOf(i / 1024.0 * p.headroom * p.gain[c], p) * 255.0;
            for (int v = 0; v < kLutSize; ++v) {
                const double pos = v / 16.0;
                const int i = std::min(1023, static_cast<int>(pos));
                const double f = pos - i;
                m_lut[c][v] =
                    static_cast<uint8_t>(std::lround(knots[i] + (knots[i + 1] - knots[i]) * f));
            }
        }
    }

    // Publishes the row step; the sharpening stage pulls the rows through.
    void process(FrameContext& ctx) override {
        // The sensor's noise at the level auto exposure aims for, as this
        // curve passes it to the picture (green, or the luma when mono).
        const double grey = kTargetLevel * 65535.0 / m_params.headroom;
        const double sigma = ctx.noiseA * std::sqrt(grey) + ctx.noiseB;
        const double gain = m_params.gain[m_params.mono ? 0 : 1];
        const auto tone = [&](double v) {
            return toneOf(std::max(0.0, v) / 65535.0 * m_params.headroom * gain, m_params) * 255.0;
        };
        ctx.outputNoise = (tone(grey + sigma) - tone(grey - sigma)) / 2.0;
        m_sat = static_cast<int32_t>(
            std::lround(std::min<uint32_t>(100, ctx.isp.value(KEY_SATURATION, 50)) * 256.0 / 50.0));
        const int w = ctx.width;
        const bool reversed = ctx.mirrorLeftRight;
        ctx.toneRow = [this, &ctx, w, reversed](int y, uint8_t* dst) {
            toneRow(ctx.linearRow(y), dst, w, reversed);
        };
    }

    // Row in (reversed left to right for the mirror) to 8 bits in o.
    void toneRow(const uint16_t* in, uint8_t* __restrict o, int pixels, bool reversed) const {
        if (m_params.mono) {
            const uint8_t* lut = m_lut[0];
            for (int i = 0; i < pixels; ++i) {
                const uint16_t* p = in + (reversed ? pixels - 1 - i : i) * 3;
                const uint32_t y = (19595u * p[0] + 38470u * p[1] + 7471u * p[2] + 32768u) >> 16;
                const uint8_t v = lut[y >> kLutShift];
                o[i * 3] = v;
                o[i * 3 + 1] = v;
                o[i * 3 + 2] = v;
            }
            return;
        }
        // The table look-ups alone, then the saturation over the row, which
        // the vectoriser can take.
        if (reversed)
            lookUpReversed(in, o, pixels, m_lut[0], m_lut[1], m_lut[2]);
        else
            lookUpRow(in, o, pixels, m_lut[0], m_lut[1], m_lut[2]);
        if (m_sat != 256)
            saturateRow(o, pixels, m_sat);
    }

    size_t memoryBytes() const override { return sizeof(m_lut); }

private:
    bool m_bBuilt = false;
    ToneParams m_params{};
    int32_t m_sat = 256; // saturation in 1/256
    uint8_t m_lut[3][kLutSize];
};

} // namespace

std::unique_ptr<Stage> makeToneColourStage() {
    return std::make_unique<ToneColourStage>();
}

} // namespace vsensor
} // namespace sim
