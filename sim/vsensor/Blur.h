// Box blurs of the whole linear RGB picture, for the lens's focus blur:
// separable running sums, edges repeated. (The noise reduction blurs row by
// row as the rows pass; see NoiseStage.cpp.)
#pragma once

#include <cstdint>
#include <vector>

namespace sim {
namespace vsensor {

// Blurs src (w x h RGB) with a box of radius r into dst; scratch is resized
// as needed. src and dst may be the same.
void boxBlur(const uint16_t* src, uint16_t* dst, int w, int h, int r,
             std::vector<uint16_t>& scratch);

} // namespace vsensor
} // namespace sim
