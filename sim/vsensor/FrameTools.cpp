// Measurements and conversions of frames.
#include <algorithm>
#include <cmath>

#include "sim/VirtualSensor.h"

namespace sim {

namespace {

inline int lumaAt(const uint8_t* p) {
    return (77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8;
}

} // namespace

std::vector<uint8_t> lumaOf(const Frame& frame) {
    const size_t pixels = static_cast<size_t>(frame.width) * frame.height;
    std::vector<uint8_t> out(pixels);
    for (size_t i = 0; i < pixels; ++i)
        out[i] = static_cast<uint8_t>(lumaAt(frame.rgb.data() + i * 3));
    return out;
}

FrameStats measureFrame(const Frame& frame, int x0, int y0, int w, int h) {
    FrameStats st;
    if (w <= 0 || h <= 0) {
        x0 = 0;
        y0 = 0;
        w = frame.width;
        h = frame.height;
    }
    x0 = std::clamp(x0, 0, frame.width);
    y0 = std::clamp(y0, 0, frame.height);
    w = std::min(w, frame.width - x0);
    h = std::min(h, frame.height - y0);
    if (w <= 0 || h <= 0 || frame.rgb.size() < static_cast<size_t>(frame.width) * frame.height * 3)
        return st;
    const std::vector<uint8_t> luma = lumaOf(frame);
    const auto Y = [&](int x, int y) {
        return static_cast<int>(luma[static_cast<size_t>(y) * frame.width + x]);
    };

    double sumY = 0;
    double sum[3] = {0, 0, 0};
    double sumRg = 0, sumYb = 0, sumRg2 = 0, sumYb2 = 0;
    size_t clipped = 0;
    for (int y = y0; y < y0 + h; ++y) {
        for (int x = x0; x < x0 + w; ++x) {
            const uint8_t* p = frame.rgb.data() + (static_cast<size_t>(y) * frame.width + x) * 3;
            const int l = Y(x, y);
            st.histogram[l]++;
            sumY += l;
            for (int c = 0; c < 3; ++c)
                sum[c] += p[c];
            const double rg = double(p[0]) - p[1];
            const double yb = 0.5 * (double(p[0]) + p[1]) - p[2];
            sumRg += rg;
            sumYb += yb;
            sumRg2 += rg * rg;
            sumYb2 += yb * yb;
            if (p[0] == 255 || p[1] == 255 || p[2] == 255)
                ++clipped;
        }
    }
    const double n = static_cast<double>(w) * h;
    st.mean = sumY / n;
    for (int c = 0; c < 3; ++c)
        st.channelMean[c] = sum[c] / n;
    const double mRg = sumRg / n, mYb = sumYb / n;
    const double vRg = std::max(0.0, sumRg2 / n - mRg * mRg);
    const double vYb = std::max(0.0, sumYb2 / n - mYb * mYb);
    st.colourfulness = std::sqrt(vRg + vYb) + 0.3 * std::sqrt(mRg * mRg + mYb * mYb);
    st.clipped = clipped / n;

    // High-frequency energy and noise, inside the rectangle's interior.
    double lap2 = 0;
    size_t lapCount = 0;
    std::vector<int> residuals;
    for (int y = y0 + 1; y < y0 + h - 1; ++y) {
        for (int x = x0 + 1; x < x0 + w - 1; ++x) {
            const int c = Y(x, y);
            const int lap = 4 * c - Y(x - 1, y) - Y(x + 1, y) - Y(x, y - 1) - Y(x, y + 1);
            lap2 += double(lap) * lap;
            ++lapCount;
            int around = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    around += Y(x + dx, y + dy);
            residuals.push_back(std::abs(9 * c - around));
        }
    }
    if (lapCount > 0) {
        st.sharpness = lap2 / lapCount;
        const auto mid = residuals.begin() + residuals.size() / 2;
        std::nth_element(residuals.begin(), mid, residuals.end());
        st.noise = *mid / 9.0;
    }
    return st;
}

std::vector<uint8_t> toI420(const Frame& frame) {
    const int w = frame.width;
    const int h = frame.height;
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    std::vector<uint8_t> out(static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch);
    uint8_t* yPlane = out.data();
    uint8_t* uPlane = yPlane + static_cast<size_t>(w) * h;
    uint8_t* vPlane = uPlane + static_cast<size_t>(cw) * ch;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            yPlane[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(
                lumaAt(frame.rgb.data() + (static_cast<size_t>(y) * w + x) * 3));
    for (int cy = 0; cy < ch; ++cy) {
        for (int cx = 0; cx < cw; ++cx) {
            int r = 0, g = 0, b = 0, n = 0;
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx) {
                    const int x = std::min(cx * 2 + dx, w - 1);
                    const int y = std::min(cy * 2 + dy, h - 1);
                    const uint8_t* p = frame.rgb.data() + (static_cast<size_t>(y) * w + x) * 3;
                    r += p[0];
                    g += p[1];
                    b += p[2];
                    ++n;
                }
            r /= n;
            g /= n;
            b /= n;
            // Full-range BT.601 chroma.
            const int u = ((-43 * r - 85 * g + 128 * b + 128) >> 8) + 128;
            const int v = ((128 * r - 107 * g - 21 * b + 128) >> 8) + 128;
            uPlane[static_cast<size_t>(cy) * cw + cx] = static_cast<uint8_t>(std::clamp(u, 0, 255));
            vPlane[static_cast<size_t>(cy) * cw + cx] = static_cast<uint8_t>(std::clamp(v, 0, 255));
        }
    }
    return out;
}

std::string toPpm(const Frame& frame) {
    std::string out =
        "P6\n" + std::to_string(frame.width) + " " + std::to_string(frame.height) + "\n255\n";
    out.append(reinterpret_cast<const char*>(frame.rgb.data()), frame.rgb.size());
    return out;
}

} // namespace sim
