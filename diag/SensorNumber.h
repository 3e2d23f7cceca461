// Reading decimal numbers out of texts and documents with one result on every
// target. The C library reads "%d" and atoi through long, 32 bits on the
// camera and 64 on a PC, so a number beyond 32 bits would end at the bound on
// the camera and wrap on a PC; here it ends at the bound on both.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

// A number read as 64 bits, bounded to 32.
inline int sensorInt32(long long p_nValue) {
    return static_cast<int>(std::clamp<long long>(p_nValue, INT32_MIN, INT32_MAX));
}

// atoi, bounded as above.
inline int sensorAtoi(const char* p_szText) {
    return sensorInt32(std::strtoll(p_szText, nullptr, 10));
}
