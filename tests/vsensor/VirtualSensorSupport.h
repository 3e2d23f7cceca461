// A started controller on its own device root with the virtual sensor of its
// channel reset to small frames at a set illuminance, standard gamma: the tests set a value
// through the controller as a host would, render frames and measure them.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "controller/SensorKeys.h"
#include "sim/VirtualSensor.h"
#include "tests/support/Camera.h"

namespace vstest {

class SensorTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(cam.start());
        cam.stopWorker();
        sensor().reset();
        std::string error;
        ASSERT_TRUE(sensor().setFrameSize(kWidth, kHeight, error)) << error;
        ASSERT_TRUE(sensor().setIlluminance(2000.0, error)) << error;
        // The sample module's factory gamma is linear; the standard curve
        // shows shadows and midtones as the tests expect to see them.
        set(KEY_GAMMA, 0);
    }

    static constexpr int kWidth = 320;
    static constexpr int kHeight = 180;

    static sim::VirtualSensor& sensor() { return sim::VirtualSensor::forChannel(0); }

    // Sets a key through the controller, as the host's user would.
    void set(SensorKey key, int value) {
        ASSERT_EQ(0, cam.ctl->setParameter(static_cast<int>(key), value)) << "key " << key;
    }
    void light(double lux) {
        std::string error;
        ASSERT_TRUE(sensor().setIlluminance(lux, error)) << error;
    }
    // Renders n frames (the loops settle) and returns the last.
    static sim::Frame settle(int n = 12) {
        sim::Frame frame;
        for (int i = 0; i < n; ++i)
            frame = sensor().renderFrame();
        return frame;
    }
    static sim::FrameStats stats(const sim::Frame& frame, sim::SceneRegion region) {
        const sim::Rect r = sim::sceneRegion(region, frame.width, frame.height);
        return sim::measureFrame(frame, r.x, r.y, r.w, r.h);
    }
    // The standard deviation of luma, from a histogram.
    static double lumaSpread(const sim::FrameStats& st) {
        double n = 0, sum = 0, sum2 = 0;
        for (int v = 0; v < 256; ++v) {
            n += st.histogram[v];
            sum += double(v) * st.histogram[v];
            sum2 += double(v) * v * st.histogram[v];
        }
        const double mean = sum / n;
        return std::sqrt(std::max(0.0, sum2 / n - mean * mean));
    }

    camtest::Camera cam;
};

// FNV-1a, 64 bits, of a frame's bytes (the published constants).
inline uint64_t fnv1a(const std::vector<uint8_t>& bytes) {
    uint64_t h = 14695981039346656037ull;
    for (uint8_t b : bytes) {
        h ^= b;
        h *= 1099511628211ull;
    }
    return h;
}

} // namespace vstest
