#include "sim/vsensor/Blur.h"

#include <algorithm>

namespace sim {
namespace vsensor {

namespace {

// One line of n RGB samples, distance `step` apart, blurred into out.
// The mean of a window as a multiplication by the reciprocal of its width
// in 1/2^32 (a division per sample would cost most of the blur).
inline uint16_t meanOf(uint32_t sum, uint32_t half, uint64_t reciprocal) {
    return static_cast<uint16_t>((static_cast<uint64_t>(sum + half) * reciprocal) >> 32);
}

void blurLine(const uint16_t* in, uint16_t* out, int n, size_t step, int r) {
    const uint32_t div = static_cast<uint32_t>(2 * r + 1);
    const uint32_t half = div / 2;
    const uint64_t reciprocal = (uint64_t(1) << 32) / div + 1;
    uint32_t sum[3] = {0, 0, 0};
    for (int i = -r; i <= r; ++i) {
        const uint16_t* p = in + std::clamp(i, 0, n - 1) * step;
        for (int c = 0; c < 3; ++c)
            sum[c] += p[c];
    }
    // The clamped edges apart, so that the middle runs without a test.
    const int middleFrom = std::min(r, n);
    const int middleTo = std::max(middleFrom, n - r - 1);
    for (int i = 0; i < n; ++i) {
        uint16_t* o = out + i * step;
        for (int c = 0; c < 3; ++c)
            o[c] = meanOf(sum[c], half, reciprocal);
        if (i >= middleFrom && i < middleTo) {
            const uint16_t* leaving = in + (i - r) * step;
            const uint16_t* entering = in + (i + r + 1) * step;
            for (int c = 0; c < 3; ++c)
                sum[c] += static_cast<uint32_t>(entering[c]) - leaving[c];
            continue;
        }
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
    const size_t rowLen = static_cast<size_t>(w) * 3;
    if (r <= 2 && w > 2 * r + 1) {
        // Narrow boxes (the slightest defocus) as direct sums, which the
        // vectoriser can take; the mean in 1/16384 (exact to 0.03 %).
        const uint32_t inverse = 16384 / static_cast<uint32_t>(2 * r + 1) + 1;
        const size_t edge = static_cast<size_t>(r) * 3;
        for (int y = 0; y < h; ++y) {
            const uint16_t* __restrict in = src + y * rowLen;
            uint16_t* __restrict out = scratch.data() + y * rowLen;
            for (size_t i = edge; i < rowLen - edge; ++i) {
                uint32_t sum = in[i - 3] + in[i] + in[i + 3];
                if (r == 2)
                    sum += in[i - 6] + in[i + 6];
                out[i] = static_cast<uint16_t>(std::min<uint32_t>(65535, (sum * inverse) >> 14));
            }
            for (size_t i = 0; i < edge; ++i) {
                out[i] = in[i];
                out[rowLen - 1 - i] = in[rowLen - 1 - i];
            }
        }
    } else {
        for (int y = 0; y < h; ++y)
            blurLine(src + y * rowLen, scratch.data() + y * rowLen, w, 3, r);
    }
    // Columns: running sums of whole rows, so that memory is read in order.
    const uint32_t div = static_cast<uint32_t>(2 * r + 1);
    const uint32_t half = div / 2;
    const uint64_t reciprocal = (uint64_t(1) << 32) / div + 1;
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
            out[k] = meanOf(sums[k], half, reciprocal);
        const uint16_t* leaving = rows + std::max(y - r, 0) * rowLen;
        const uint16_t* entering = rows + std::min(y + r + 1, h - 1) * rowLen;
        for (size_t k = 0; k < rowLen; ++k)
            sums[k] += static_cast<uint32_t>(entering[k]) - leaving[k];
    }
}

} // namespace vsensor
} // namespace sim
