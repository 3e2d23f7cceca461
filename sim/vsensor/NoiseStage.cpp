// Noise and noise reduction. The sensor's noise (added by the capture from
// this stage's model): shot noise sqrt(3.3 x gain x level) plus read noise
// 10 x gain, in units of 1/65535 of the clip.
//
// Both reductions work on the 8-bit picture after tone and colour, where the
// camera's gamma has made the noise nearly the same at every level, as an
// ISP's noise reduction on its YUV picture does. 2D noise reduction
// (KEY_2D_NR_SWITCH; KEY_2D_NR_MODE 0 automatic with KEY_2D_NR_STRG_A, else
// KEY_2D_NR_STRG_M) blends each sample towards its box mean (radius 1, or 2
// above half strength) by the strength; 3D noise reduction
// (KEY_3D_NR_SWITCH; KEY_3D_NR_MODE 0 automatic with KEY_3D_NR_STRG_A, else
// KEY_3D_NR_STRG_M) blends each sample towards the last frame's by 0.85 x
// strength where they differ by less than three times the picture's noise
// (at mid grey, as the tone stage measures it) plus two levels, so moving
// things do not smear. The automatic modes scale the strength with the gain
// (30% at unit gain, full from 21 dB).
#include <algorithm>
#include <cmath>

#include "sim/vsensor/RowKernel.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

// 16-bit lanes throughout (sums of up to 25 bytes, products within int16),
// so that the vectoriser packs sixteen samples a step.

VSENSOR_ROW_KERNEL
void startSums(uint16_t* __restrict sums, const uint8_t* __restrict row, size_t count) {
    for (size_t i = 0; i < count; ++i)
        sums[i] = row[i];
}

VSENSOR_ROW_KERNEL
void addToSums(uint16_t* __restrict sums, const uint8_t* __restrict row, size_t count) {
    for (size_t i = 0; i < count; ++i)
        sums[i] = static_cast<uint16_t>(sums[i] + row[i]);
}

VSENSOR_ROW_KERNEL
void moveSums(uint16_t* __restrict sums, const uint8_t* __restrict entering,
              const uint8_t* __restrict leaving, size_t count) {
    for (size_t i = 0; i < count; ++i)
        sums[i] = static_cast<uint16_t>(sums[i] + entering[i] - leaving[i]);
}

// Sample p blended towards the box mean by k / 128: the mean is the box sum
// times m / 65536 (m = 65536 / box size, rounded), the blend within int16.
inline uint8_t towardsMean(uint8_t p, uint16_t box, uint16_t m, int16_t k) {
    const int16_t mean = static_cast<int16_t>((static_cast<uint32_t>(box) * m + 32768u) >> 16);
    const int16_t diff = static_cast<int16_t>(mean - p);
    return static_cast<uint8_t>(p + static_cast<int16_t>((diff * k) >> 7));
}

// Samples from..to of a row blended towards their 3x3 (blendBox1) or 5x5
// (blendBox2) box, given the rows' sums down each column.
// The 3x3 mean in 16-bit lanes: floor((box + 4) x 7282 / 65536) is box / 9
// rounded for every box sum up to 9 x 255 (7282 / 65536 exceeds 1/9 by less
// than the 1/9 the floor has to spare), as towardsMean gives it.
VSENSOR_ROW_KERNEL
void blendBox1(const uint8_t* __restrict src, const uint16_t* __restrict sums,
               uint8_t* __restrict out, size_t from, size_t to, int16_t k) {
    for (size_t i = from; i < to; ++i) {
        const uint16_t box = static_cast<uint16_t>(sums[i - 3] + sums[i] + sums[i + 3] + 4);
        const int16_t mean = static_cast<int16_t>((static_cast<uint32_t>(box) * 7282u) >> 16);
        const int16_t p = src[i];
        const int16_t diff = static_cast<int16_t>(mean - p);
        out[i] = static_cast<uint8_t>(p + static_cast<int16_t>((diff * k) >> 7));
    }
}

VSENSOR_ROW_KERNEL
void blendBox2(const uint8_t* __restrict src, const uint16_t* __restrict sums,
               uint8_t* __restrict out, size_t from, size_t to, uint16_t m, int16_t k) {
    for (size_t i = from; i < to; ++i)
        out[i] = towardsMean(
            src[i],
            static_cast<uint16_t>(sums[i - 6] + sums[i - 3] + sums[i] + sums[i + 3] + sums[i + 6]),
            m, k);
}

// Blends a row towards the last frame's by k / 128 where the two differ by
// less than the threshold, without a branch (noise makes the test
// unpredictable); the result is also kept as the next frame's last one.
VSENSOR_ROW_KERNEL
void temporalRow(uint8_t* __restrict out, uint8_t* __restrict prev, size_t count, int16_t threshold,
                 int16_t k) {
    for (size_t i = 0; i < count; ++i) {
        const int16_t p = out[i];
        const int16_t d = static_cast<int16_t>(prev[i] - p);
        const int16_t magnitude = d < 0 ? static_cast<int16_t>(-d) : d;
        const int16_t step = static_cast<int16_t>((d * k) >> 7);
        const uint8_t v = static_cast<uint8_t>(p + (magnitude < threshold ? step : 0));
        out[i] = v;
        prev[i] = v;
    }
}

class NoiseStage : public Stage {
public:
    const char* name() const override { return "noise and noise reduction"; }

    void prepare(FrameContext& ctx) override {
        // sigma(v) = (sqrt(3.3 g v h) + 10 g) / h for v in units of the
        // (headroom-scaled) clip.
        const double g = ctx.gainLinear;
        const double h = ctx.headroom;
        ctx.noiseA = static_cast<float>(std::sqrt(3.3 * g / h));
        ctx.noiseB = static_cast<float>(10.0 * g / h);
    }

    // Decides the strengths and puts the reduction between tone and colour
    // and the stages after it: the rows are reduced as they are pulled
    // (ctx.toneRow), 2D then 3D, and each result is kept as the 3D
    // reduction's last frame.
    void process(FrameContext& ctx) override {
        const IspView& isp = ctx.isp;
        const double gainDb = 20.0 * std::log10(ctx.gainLinear);
        const double autoScale = std::clamp(0.3 + gainDb / 30.0, 0.3, 1.0);
        const size_t rowLen = static_cast<size_t>(ctx.width) * 3;
        const size_t count = rowLen * ctx.height;

        m_k2 = 0;
        if (isp.value(KEY_2D_NR_SWITCH, 0) == 1) {
            const bool automatic = isp.value(KEY_2D_NR_MODE, 0) == 0;
            double s = std::min<uint32_t>(
                           100, isp.value(automatic ? KEY_2D_NR_STRG_A : KEY_2D_NR_STRG_M, 50)) /
                       100.0;
            if (automatic)
                s *= autoScale;
            m_k2 = static_cast<int16_t>(std::lround(s * 128.0));
            m_radius = s > 0.5 ? 2 : 1;
        }

        LoopState& st = ctx.state;
        m_k3 = 0;
        m_keep = false;
        // The last frame as the rows come (mirrored as they are): a change of
        // size, of the mirror or between colour and monochrome (the IR-cut
        // filter moved) leaves nothing to blend with for a frame.
        const int kind =
            (ctx.mirrorLeftRight ? 1 : 0) | (ctx.mirrorUpsideDown ? 2 : 0) | (ctx.irCutOut ? 4 : 0);
        if (isp.value(KEY_3D_NR_SWITCH, 0) == 1) {
            const bool automatic = isp.value(KEY_3D_NR_MODE, 0) == 0;
            double s = std::min<uint32_t>(
                           100, isp.value(automatic ? KEY_3D_NR_STRG_A : KEY_3D_NR_STRG_M, 50)) /
                       100.0;
            if (automatic)
                s *= autoScale;
            if (st.previousWidth == ctx.width && st.previousHeight == ctx.height &&
                st.previousKind == kind)
                m_k3 = static_cast<int16_t>(std::lround(0.85 * s * 128.0));
            m_threshold = static_cast<int16_t>(std::lround(3.0 * ctx.outputNoise + 2.0));
            st.previous.resize(count);
            st.previous.shrink_to_fit(); // after a smaller frame
            st.previousWidth = ctx.width;
            st.previousHeight = ctx.height;
            st.previousKind = kind;
            m_keep = true;
        } else if (!st.previous.empty()) {
            st.previous.clear();
            st.previous.shrink_to_fit();
            st.previousWidth = 0;
            st.previousHeight = 0;
        }
        if (m_k2 == 0 && !m_keep)
            return; // the toned rows as they are
        m_ring.resize(rowLen * kRingRows);
        m_sums.resize(rowLen);
        m_pulled = -1;
        m_tone = ctx.toneRow;
        ctx.toneRow = [this, &ctx, rowLen](int y, uint8_t* dst) { reduceRow(ctx, y, rowLen, dst); };
    }

    size_t memoryBytes() const override {
        return m_ring.capacity() + m_sums.capacity() * sizeof(uint16_t);
    }

private:
    // Toned row y (edges repeated) from the ring of the last six (the box's
    // five and the row leaving it), pulling the rows below it as needed; the
    // rows are asked for in order.
    const uint8_t* toned(int y, int h, size_t rowLen) {
        y = std::clamp(y, 0, h - 1);
        while (m_pulled < y) {
            ++m_pulled;
            m_tone(m_pulled, m_ring.data() + (m_pulled % kRingRows) * rowLen);
        }
        return m_ring.data() + (y % kRingRows) * rowLen;
    }

    void reduceRow(FrameContext& ctx, int y, size_t rowLen, uint8_t* dst) {
        const int h = ctx.height;
        const int r = m_k2 > 0 ? m_radius : 0;
        // The rows the box needs, pulled first (rows y - 3 .. y + 2 stay in
        // the ring).
        toned(y + r, h, rowLen);
        const uint8_t* src = toned(y, h, rowLen);
        if (m_k2 > 0)
            spatialRow(y, h, rowLen, src, dst);
        else
            std::copy(src, src + rowLen, dst);
        if (m_keep) {
            uint8_t* prev = ctx.state.previous.data() + static_cast<size_t>(y) * rowLen;
            if (m_k3 > 0)
                temporalRow(dst, prev, rowLen, m_threshold, m_k3);
            else
                std::copy(dst, dst + rowLen, prev);
        }
    }

    // Each sample blended towards the mean of its (2r + 1)^2 box, edges
    // repeated: the rows' sums down the column, then across.
    void spatialRow(int y, int h, size_t rowLen, const uint8_t* src, uint8_t* out) {
        const int r = m_radius;
        uint16_t* __restrict sums = m_sums.data();
        // The rows come in order: each row's column sums are the last row's
        // with one row entering below and one leaving above.
        if (y == 0) {
            startSums(sums, toned(-r, h, rowLen), rowLen);
            for (int j = -r + 1; j <= r; ++j)
                addToSums(sums, toned(j, h, rowLen), rowLen);
        } else {
            moveSums(sums, toned(y + r, h, rowLen), toned(y - r - 1, h, rowLen), rowLen);
        }
        const int side = 2 * r + 1;
        const uint16_t m = static_cast<uint16_t>(std::lround(65536.0 / (side * side)));
        const int16_t k = m_k2;
        const size_t edge = static_cast<size_t>(r) * 3;
        if (rowLen <= 2 * edge + 6) {
            for (size_t i = 0; i < rowLen; ++i)
                out[i] = towardsMean(src[i], boxAt(sums, i, rowLen, r), m, k);
            return;
        }
        if (r == 1)
            blendBox1(src, sums, out, edge, rowLen - edge, k);
        else
            blendBox2(src, sums, out, edge, rowLen - edge, m, k);
        for (size_t i = 0; i < edge; ++i) {
            out[i] = towardsMean(src[i], boxAt(sums, i, rowLen, r), m, k);
            const size_t j = rowLen - 1 - i;
            out[j] = towardsMean(src[j], boxAt(sums, j, rowLen, r), m, k);
        }
    }

    // The box sum across at sample i with the edge pixels repeated.
    static uint16_t boxAt(const uint16_t* sums, size_t i, size_t rowLen, int r) {
        const int pixels = static_cast<int>(rowLen / 3);
        const int x = static_cast<int>(i / 3);
        const size_t c = i % 3;
        uint32_t box = 0;
        for (int j = -r; j <= r; ++j)
            box += sums[std::clamp(x + j, 0, pixels - 1) * 3 + c];
        return static_cast<uint16_t>(box);
    }

    int16_t m_k2 = 0; // in 1/128
    int m_radius = 1;
    int16_t m_k3 = 0; // in 1/128
    int16_t m_threshold = 0;
    bool m_keep = false;
    std::function<void(int, uint8_t*)> m_tone; // the rows as tone and colour gives them
    int m_pulled = -1;                         // the last row taken from it
    static constexpr int kRingRows = 6;
    std::vector<uint8_t> m_ring; // the last toned rows
    std::vector<uint16_t> m_sums;
};

} // namespace

std::unique_ptr<Stage> makeNoiseStage() {
    return std::make_unique<NoiseStage>();
}

} // namespace vsensor
} // namespace sim
