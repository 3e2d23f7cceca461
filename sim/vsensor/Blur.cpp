#include "sim/vsensor/Blur.h"

#include <algorithm>

namespace sim {
namespace vsensor {

namespace {

// One line of n RGB samples, distance `step` apart, blurred into out.
void blurLine(const uint16_t* in, uint16_t* out, int n, size_t step, int r) {
    const uint32_t div = static_cast<uint32_t>(2 * r + 1);
    const uint32_t half = div / 2;
    uint32_t sum[3] = {0, 0, 0};
    for (int i = -r; i <= r; ++i) {
        const uint16_t* p = in + std::clamp(i, 0, n - 1) * step;
        for (int c = 0; c < 3; ++c)
            sum[c] += p[c];
    }
    for (int i = 0; i < n; ++i) {
        uint16_t* o = out + i * step;
        for (int c = 0; c < 3; ++c)
            o[c] = static_cast<uint16_t>((sum[c] + half) / div);
        const uint16_t* leaving = in + std::max(i - r, 0) * step;
        const uint16_t* entering = in + std::min(i + r + 1, n - 1) * step;
        for (int c = 0; c < 3; ++c)
            sum[c] += static_cast<uint32_t>(entering[c]) - leaving[c];
    }
}

} // namespace

void boxBlur(const uint16_t* src, uint16_t* dst, int w, int h, int r,
             std::vector<uint16_t>& scratch) {
    const size_t count = static_cast<size_t>(w) * h * 3;
    if (r <= 0) {
        if (src != dst)
            std::copy(src, src + count, dst);
        return;
    }
    scratch.resize(count);
    for (int y = 0; y < h; ++y)
        blurLine(src + static_cast<size_t>(y) * w * 3,
                 scratch.data() + static_cast<size_t>(y) * w * 3, w, 3, r);
    // Columns: running sums of whole rows, so that memory is read in order.
    const size_t rowLen = static_cast<size_t>(w) * 3;
    const uint32_t div = static_cast<uint32_t>(2 * r + 1);
    const uint32_t half = div / 2;
    std::vector<uint32_t> sums(rowLen, 0);
    const uint16_t* rows = scratch.data();
    for (int i = -r; i <= r; ++i) {
        const uint16_t* row = rows + std::clamp(i, 0, h - 1) * rowLen;
        for (size_t k = 0; k < rowLen; ++k)
            sums[k] += row[k];
    }
    for (int y = 0; y < h; ++y) {
        uint16_t* out = dst + y * rowLen;
        for (size_t k = 0; k < rowLen; ++k)
            out[k] = static_cast<uint16_t>((sums[k] + half) / div);
        const uint16_t* leaving = rows + std::max(y - r, 0) * rowLen;
        const uint16_t* entering = rows + std::min(y + r + 1, h - 1) * rowLen;
        for (size_t k = 0; k < rowLen; ++k)
            sums[k] += static_cast<uint32_t>(entering[k]) - leaving[k];
    }
}

} // namespace vsensor
} // namespace sim
