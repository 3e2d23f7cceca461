// Sharpening: an unsharp mask on the 8-bit picture. KEY_SHARPNESS sets the
// amount 0.3 + 1.2 x (value - 50) / 50: 50 gives the camera's usual light
// sharpening, 100 strong sharpening, 0 a soft picture (the mask subtracts).
// The mask is the difference from the 3x3 mean.
#include <algorithm>
#include <cmath>

#include "sim/vsensor/RowKernel.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

// Each sample's sum with its left and right neighbours (edges repeated).
VSENSOR_ROW_KERNEL
void threeSums(const uint8_t* __restrict row, uint16_t* __restrict sum, size_t rowLen) {
    for (int c = 0; c < 3; ++c) {
        sum[c] = static_cast<uint16_t>(2 * row[c] + row[3 + c]);
        sum[rowLen - 3 + c] = static_cast<uint16_t>(2 * row[rowLen - 3 + c] + row[rowLen - 6 + c]);
    }
    for (size_t i = 3; i + 3 < rowLen; ++i)
        sum[i] = static_cast<uint16_t>(row[i - 3] + row[i] + row[i + 3]);
}

// The row plus k / 32768 of nine times its difference from the 3x3 mean
// (rounded), given the three-sums of the rows above, here and below. All in
// 16 bits (|detail| <= 2295, |k| < 2^13), so that the vectoriser packs twice
// the samples and rounds the product in one instruction where it can.
VSENSOR_ROW_KERNEL
void sharpenRow(const uint8_t* __restrict row, const uint16_t* __restrict a,
                const uint16_t* __restrict m, const uint16_t* __restrict b, uint8_t* __restrict o,
                size_t rowLen, int16_t k) {
    for (size_t i = 0; i < rowLen; ++i) {
        const int16_t v = row[i];
        const int16_t detail = static_cast<int16_t>(9 * v - (a[i] + m[i] + b[i]));
        const int16_t mask = static_cast<int16_t>((((detail * k) >> 14) + 1) >> 1);
        const int16_t s = static_cast<int16_t>(v + mask);
        o[i] = static_cast<uint8_t>(s < 0 ? 0 : (s > 255 ? 255 : s));
    }
}

class SharpenStage : public Stage {
public:
    const char* name() const override { return "sharpening"; }

    // Pulls every row of the frame through the row steps (noise reduction,
    // tone and colour), sharpens it and places it in the frame (upside down
    // when the mirror says so).
    void process(FrameContext& ctx) override {
        const double amount =
            0.3 + 1.2 * (std::min<uint32_t>(100, ctx.isp.value(KEY_SHARPNESS, 50)) - 50.0) / 50.0;
        // amount / 9 in 1/32768: the mask is nine times the difference from the mean.
        const int16_t k = static_cast<int16_t>(std::lround(amount * 32768.0 / 9.0));
        const int w = ctx.width;
        const int h = ctx.height;
        const size_t rowLen = static_cast<size_t>(w) * 3;
        if (k == 0) {
            for (int y = 0; y < h; ++y)
                ctx.toneRow(y, ctx.outRow(y));
            return;
        }
        m_rows.resize(rowLen * 3);
        // Three rows of the picture and their horizontal three-sums in
        // rings: slot y % 3 holds row y.
        m_sums.resize(rowLen * 3);
        uint8_t* rows[3] = {m_rows.data(), m_rows.data() + rowLen, m_rows.data() + 2 * rowLen};
        uint16_t* sums[3] = {m_sums.data(), m_sums.data() + rowLen, m_sums.data() + 2 * rowLen};
        const auto pull = [&](int y) {
            ctx.toneRow(y, rows[y % 3]);
            threeSums(rows[y % 3], sums[y % 3], rowLen);
        };
        pull(0);
        for (int y = 0; y < h; ++y) {
            if (y + 1 < h)
                pull(y + 1);
            // The edges repeat the first and last rows.
            const uint16_t* above = sums[(y == 0 ? 0 : y - 1) % 3];
            const uint16_t* below = sums[(y + 1 < h ? y + 1 : y) % 3];
            sharpenRow(rows[y % 3], above, sums[y % 3], below, ctx.outRow(y), rowLen, k);
        }
    }

    size_t memoryBytes() const override {
        return m_rows.capacity() + m_sums.capacity() * sizeof(uint16_t);
    }

private:
    std::vector<uint8_t> m_rows;
    std::vector<uint16_t> m_sums;
};

} // namespace

std::unique_ptr<Stage> makeSharpenStage() {
    return std::make_unique<SharpenStage>();
}

} // namespace vsensor
} // namespace sim
