// Sharpening: an unsharp mask on the 8-bit picture. KEY_SHARPNESS sets the
// amount 0.3 + 1.2 x (value - 50) / 50: 50 gives the camera's usual light
// sharpening, 100 strong sharpening, 0 a soft picture (the mask subtracts).
// The mask is the difference from the 3x3 mean.
#include <algorithm>
#include <cmath>

#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

namespace {

class SharpenStage : public Stage {
public:
    const char* name() const override { return "sharpening"; }

    void process(FrameContext& ctx) override {
        const double amount =
            0.3 + 1.2 * (std::min<uint32_t>(100, ctx.isp.value(KEY_SHARPNESS, 50)) - 50.0) / 50.0;
        // amount / 9 in 1/65536: the mask is nine times the difference from the mean.
        const int32_t k = static_cast<int32_t>(std::lround(amount * 65536.0 / 9.0));
        if (k == 0)
            return;
        const int w = ctx.width;
        const int h = ctx.height;
        const size_t rowLen = static_cast<size_t>(w) * 3;
        uint8_t* px = ctx.out->data();
        // Horizontal three-sums of three rows at a time, in a ring, so that
        // the frame is read once and written once.
        m_sums.resize(rowLen * 4);
        uint16_t* ring[4] = {m_sums.data(), m_sums.data() + rowLen, m_sums.data() + 2 * rowLen,
                             m_sums.data() + 3 * rowLen};
        const auto sumRow = [&](int y, uint16_t* __restrict sum) {
            const uint8_t* __restrict row = px + y * rowLen;
            for (int c = 0; c < 3; ++c) {
                sum[c] = static_cast<uint16_t>(2 * row[c] + row[3 + c]);
                sum[rowLen - 3 + c] =
                    static_cast<uint16_t>(2 * row[rowLen - 3 + c] + row[rowLen - 6 + c]);
            }
            for (size_t i = 3; i + 3 < rowLen; ++i)
                sum[i] = static_cast<uint16_t>(row[i - 3] + row[i] + row[i + 3]);
        };
        // ring[(y + 1) % 4] holds row y's sums once row y is reached; the
        // row above is kept in the slot before it, as it was before sharpening.
        sumRow(0, ring[0]);
        std::copy(ring[0], ring[0] + rowLen, ring[3]); // the row above row 0: itself
        for (int y = 0; y < h; ++y) {
            uint16_t* here = ring[y % 3];
            uint16_t* below = ring[(y + 1) % 3];
            if (y + 1 < h)
                sumRow(y + 1, below);
            else
                below = here;
            const uint16_t* __restrict a = y == 0 ? ring[3] : ring[(y + 2) % 3];
            const uint16_t* __restrict m = here;
            const uint16_t* __restrict b = below;
            uint8_t* __restrict row = px + y * rowLen;
            for (size_t i = 0; i < rowLen; ++i) {
                const int32_t v = row[i];
                const int32_t detail = 9 * v - (a[i] + m[i] + b[i]);
                const int32_t o = v + ((detail * k + 32768) >> 16);
                row[i] = static_cast<uint8_t>(o < 0 ? 0 : (o > 255 ? 255 : o));
            }
        }
    }

    size_t memoryBytes() const override { return m_sums.capacity() * sizeof(uint16_t); }

private:
    std::vector<uint16_t> m_sums;
};

} // namespace

std::unique_ptr<Stage> makeSharpenStage() {
    return std::make_unique<SharpenStage>();
}

} // namespace vsensor
} // namespace sim
