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

#include "sim/vsensor/RowKernel.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

// Sample p blended towards the box mean by k / 256.
inline uint16_t towardsMean(int32_t p, uint32_t box, float inverse, int32_t k) {
    // Through a signed integer (a box sum fits): the unsigned conversion to
    // float takes several instructions a sample.
    const int32_t mean =
        static_cast<int32_t>(static_cast<float>(static_cast<int32_t>(box)) * inverse + 0.5f);
    return static_cast<uint16_t>(p + (((mean - p) * k) >> 8));
}

VSENSOR_ROW_KERNEL
void startSums(uint32_t* __restrict sums, const uint16_t* __restrict row, size_t count) {
    for (size_t i = 0; i < count; ++i)
        sums[i] = row[i];
}

VSENSOR_ROW_KERNEL
void addToSums(uint32_t* __restrict sums, const uint16_t* __restrict row, size_t count) {
    for (size_t i = 0; i < count; ++i)
        sums[i] += row[i];
}

VSENSOR_ROW_KERNEL
void moveSums(uint32_t* __restrict sums, const uint16_t* __restrict entering,
              const uint16_t* __restrict leaving, size_t count) {
    for (size_t i = 0; i < count; ++i)
        sums[i] += static_cast<uint32_t>(entering[i]) - leaving[i];
}

// Samples from..to of a row blended towards their 3x3 (blendBox1) or 5x5
// (blendBox2) box, given the rows' sums down each column.
VSENSOR_ROW_KERNEL
void blendBox1(const uint16_t* __restrict src, const uint32_t* __restrict sums,
               uint16_t* __restrict out, size_t from, size_t to, float inverse, int32_t k) {
    for (size_t i = from; i < to; ++i)
        out[i] = towardsMean(src[i], sums[i - 3] + sums[i] + sums[i + 3], inverse, k);
}

VSENSOR_ROW_KERNEL
void blendBox2(const uint16_t* __restrict src, const uint32_t* __restrict sums,
               uint16_t* __restrict out, size_t from, size_t to, float inverse, int32_t k) {
    for (size_t i = from; i < to; ++i)
        out[i] = towardsMean(
            src[i], sums[i - 6] + sums[i - 3] + sums[i] + sums[i + 3] + sums[i + 6], inverse, k);
}

// Blends a row towards the last frame's by k / 256 where the two are within
// a sqrt(p) + b of each other (three times the noise and a small floor),
// tested as (|d| - b)^2 < a^2 p, without a root; without a branch, as noise
// makes the test unpredictable. The result is also kept as the next frame's
// last one, in the same pass.
VSENSOR_ROW_KERNEL
void temporalRow(uint16_t* __restrict out, uint16_t* __restrict prev, size_t count, float a,
                 float b, int32_t k) {
    const float a2 = a * a;
    for (size_t i = 0; i < count; ++i) {
        const int32_t p = out[i];
        const int32_t d = static_cast<int32_t>(prev[i]) - p;
        const float e = static_cast<float>(d < 0 ? -d : d) - b;
        const int32_t still = (e < 0.0f) | (e * e < a2 * static_cast<float>(p));
        const uint16_t v = static_cast<uint16_t>(p + still * ((d * k) >> 8));
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

    // Decides the strengths; the rows are reduced when the next stage pulls
    // them (ctx.linearRow), 2D then 3D, and each result is kept as the 3D
    // reduction's last frame.
    void process(FrameContext& ctx) override {
        const IspView& isp = ctx.isp;
        const double gainDb = 20.0 * std::log10(ctx.gainLinear);
        const double autoScale = std::clamp(0.3 + gainDb / 30.0, 0.3, 1.0);
        const size_t count = static_cast<size_t>(ctx.width) * ctx.height * 3;

        m_k2 = 0;
        if (isp.value(KEY_2D_NR_SWITCH, 0) == 1) {
            const bool automatic = isp.value(KEY_2D_NR_MODE, 0) == 0;
            double s = std::min<uint32_t>(
                           100, isp.value(automatic ? KEY_2D_NR_STRG_A : KEY_2D_NR_STRG_M, 50)) /
                       100.0;
            if (automatic)
                s *= autoScale;
            m_k2 = static_cast<int32_t>(std::lround(s * 256.0));
            m_radius = s > 0.5 ? 2 : 1;
        }

        LoopState& st = ctx.state;
        m_k3 = 0;
        m_keep = false;
        if (isp.value(KEY_3D_NR_SWITCH, 0) == 1) {
            const bool automatic = isp.value(KEY_3D_NR_MODE, 0) == 0;
            double s = std::min<uint32_t>(
                           100, isp.value(automatic ? KEY_3D_NR_STRG_A : KEY_3D_NR_STRG_M, 50)) /
                       100.0;
            if (automatic)
                s *= autoScale;
            if (st.previousWidth == ctx.width && st.previousHeight == ctx.height)
                m_k3 = static_cast<int32_t>(std::lround(0.85 * s * 256.0));
            st.previous.resize(count);
            st.previousWidth = ctx.width;
            st.previousHeight = ctx.height;
            m_keep = true;
        } else if (!st.previous.empty()) {
            st.previous.clear();
            st.previous.shrink_to_fit();
            st.previousWidth = 0;
            st.previousHeight = 0;
        }
        if (m_k2 == 0 && !m_keep)
            return; // the capture's rows as they are
        const size_t rowLen = static_cast<size_t>(ctx.width) * 3;
        m_row.resize(rowLen);
        m_sums.resize(rowLen);
        ctx.linearRow = [this, &ctx, rowLen](int y) { return reduceRow(ctx, y, rowLen); };
    }

    size_t memoryBytes() const override {
        return m_row.capacity() * sizeof(uint16_t) + m_sums.capacity() * sizeof(uint32_t);
    }

private:
    const uint16_t* reduceRow(FrameContext& ctx, int y, size_t rowLen) {
        const uint16_t* __restrict src = ctx.linear->data() + y * rowLen;
        uint16_t* __restrict out = m_row.data();
        if (m_k2 > 0)
            spatialRow(ctx, y, rowLen);
        else
            std::copy(src, src + rowLen, out);
        if (m_keep) {
            uint16_t* __restrict prev = ctx.state.previous.data() + y * rowLen;
            if (m_k3 > 0)
                temporalRow(out, prev, rowLen, 3.0f * ctx.noiseA, 3.0f * ctx.noiseB + 64.0f, m_k3);
            else
                std::copy(out, out + rowLen, prev);
        }
        return out;
    }

    // Each sample blended towards the mean of its (2r + 1)^2 box, edges
    // repeated: the rows' sums down the column, then across.
    void spatialRow(FrameContext& ctx, int y, size_t rowLen) {
        const int r = m_radius;
        const int h = ctx.height;
        const uint16_t* lin = ctx.linear->data();
        uint32_t* __restrict sums = m_sums.data();
        // The rows come in order: each row's column sums are the last row's
        // with one row entering below and one leaving above.
        if (y == 0) {
            startSums(sums, lin + std::clamp(y - r, 0, h - 1) * rowLen, rowLen);
            for (int j = -r + 1; j <= r; ++j)
                addToSums(sums, lin + std::clamp(y + j, 0, h - 1) * rowLen, rowLen);
        } else {
            moveSums(sums, lin + std::min(y + r, h - 1) * rowLen,
                     lin + std::max(y - r - 1, 0) * rowLen, rowLen);
        }
        const uint16_t* __restrict src = lin + y * rowLen;
        uint16_t* __restrict out = m_row.data();
        const float inverse = 1.0f / static_cast<float>((2 * r + 1) * (2 * r + 1));
        const int32_t k = m_k2;
        const size_t edge = static_cast<size_t>(r) * 3;
        const auto blend = [&](size_t i, uint32_t box) {
            out[i] = towardsMean(src[i], box, inverse, k);
        };
        if (rowLen <= 2 * edge + 6) {
            for (size_t i = 0; i < rowLen; ++i)
                blend(i, boxAt(sums, i, rowLen, r));
            return;
        }
        if (r == 1)
            blendBox1(src, sums, out, edge, rowLen - edge, inverse, k);
        else
            blendBox2(src, sums, out, edge, rowLen - edge, inverse, k);
        for (size_t i = 0; i < edge; ++i) {
            blend(i, boxAt(sums, i, rowLen, r));
            blend(rowLen - 1 - i, boxAt(sums, rowLen - 1 - i, rowLen, r));
        }
    }

    // The box sum across at sample i with the edge pixels repeated.
    static uint32_t boxAt(const uint32_t* sums, size_t i, size_t rowLen, int r) {
        const int pixels = static_cast<int>(rowLen / 3);
        const int x = static_cast<int>(i / 3);
        const size_t c = i % 3;
        uint32_t box = 0;
        for (int j = -r; j <= r; ++j)
            box += sums[std::clamp(x + j, 0, pixels - 1) * 3 + c];
        return box;
    }

    int32_t m_k2 = 0;
    int m_radius = 1;
    int32_t m_k3 = 0;
    bool m_keep = false;
    std::vector<uint16_t> m_row;
    std::vector<uint32_t> m_sums;
};

} // namespace

std::unique_ptr<Stage> makeNoiseStage() {
    return std::make_unique<NoiseStage>();
}

} // namespace vsensor
} // namespace sim
