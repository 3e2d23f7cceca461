// The virtual sensor's cost, each figure beside its floor in the same run:
// one frame with every stage on beside libjpeg-turbo encoding that frame
// (the least a camera must spend on a picture it shows), at 1920x1080 and
// 1280x720; render and encode together as frames per second on one core; the
// renderer's memory.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <iomanip>
#include <string>

#include "bench/BenchmarkMain.h"
#include "controller/SensorKeys.h"
#include "sim/SimIsp.h"
#include "sim/VirtualSensor.h"

namespace {

void setKey(SensorKey key, uint32_t value) {
    sim::Isp::instance().setValue(0, static_cast<int>(sensor_keys::commandOf(key)), value);
}

// Every stage doing work: exposure with BLC and HLC, automatic white
// balance, both noise reductions, line WDR, defog in light fog, shake with
// stabilisation, sharpening, mirror and flip. The lens is in focus (its
// blur costs nothing then; a defocused frame is measured on its own).
void everyStageOn() {
    sim::Isp::instance().reset();
    setKey(KEY_BLC_SWITCH, 1);
    setKey(KEY_HLC_SWITCH, 1);
    setKey(KEY_2D_NR_SWITCH, 1);
    setKey(KEY_3D_NR_SWITCH, 1);
    setKey(KEY_WDR_MODE, 2);
    setKey(KEY_DEFLG_SWITCH, 1);
    setKey(KEY_ANTI_SHAKE_SWITCH, 1);
    setKey(KEY_MIRROR, 3);
    setKey(KEY_SHARPNESS, 70);
    sim::VirtualSensor& sensor = sim::VirtualSensor::forChannel(0);
    sensor.reset();
    std::string error;
    sensor.setIlluminance(5000.0, error);
    sensor.setFog(0.3, error);
    sensor.setShake(4.0, error);
}

void resize(int w, int h) {
    std::string error;
    if (!sim::VirtualSensor::forChannel(0).setFrameSize(w, h, error))
        std::fprintf(stderr, "%s\n", error.c_str());
    // The loops settle and the scene is drawn at the size.
    for (int i = 0; i < 20; ++i)
        sim::VirtualSensor::forChannel(0).renderFrame();
}

void benchRender(benchmark::State& state, int w, int h, bool defocused) {
    everyStageOn();
    if (defocused) {
        setKey(KEY_AUTO_FOCUS_MODE, 2);
        setKey(KEY_MF_POSITION, 520); // 4 px of blur at 1280 wide
    }
    resize(w, h);
    sim::VirtualSensor& sensor = sim::VirtualSensor::forChannel(0);
    // Frame after frame into one buffer, as the stream's thread draws them.
    sim::Frame frame;
    for (auto _ : state) {
        sensor.renderFrame(frame);
        benchmark::DoNotOptimize(frame.rgb.data());
    }
    state.counters["renderer_MiB"] = sensor.rendererMemoryBytes() / 1048576.0;
}

void floorJpeg(benchmark::State& state, int w, int h) {
    everyStageOn();
    resize(w, h);
    const sim::Frame frame = sim::VirtualSensor::forChannel(0).renderFrame();
    std::vector<uint8_t> jpeg;
    std::string error;
    for (auto _ : state) {
        if (!sim::encodeJpeg(frame, 85, jpeg, error)) {
            state.SkipWithError(error.c_str());
            break;
        }
        benchmark::DoNotOptimize(jpeg.data());
    }
}

void benchRenderEncode(benchmark::State& state, int w, int h) {
    everyStageOn();
    resize(w, h);
    sim::VirtualSensor& sensor = sim::VirtualSensor::forChannel(0);
    std::vector<uint8_t> jpeg;
    std::string error;
    sim::Frame frame;
    for (auto _ : state) {
        sensor.renderFrame(frame);
        if (!sim::encodeJpeg(frame, 85, jpeg, error)) {
            state.SkipWithError(error.c_str());
            break;
        }
        benchmark::DoNotOptimize(jpeg.data());
    }
}

} // namespace

int main(int argc, char** argv) {
    bench::BenchmarkMain objMain(argc, argv);
    if (!objMain.ok())
        return 1;
    std::ostream& out = objMain.figures();
    if (!sim::jpegAvailable()) {
        out << "built without libturbojpeg: the floor cannot be measured\n";
        return 0;
    }
    const auto add = [](const std::string& name, auto fn) {
        return benchmark::RegisterBenchmark(name.c_str(), fn)->Unit(benchmark::kMillisecond);
    };
    add("floor/jpeg_1080p", [](benchmark::State& s) { floorJpeg(s, 1920, 1080); });
    add("render/1080p", [](benchmark::State& s) { benchRender(s, 1920, 1080, false); });
    add("render/1080p_defocused", [](benchmark::State& s) { benchRender(s, 1920, 1080, true); });
    add("render_encode/1080p", [](benchmark::State& s) { benchRenderEncode(s, 1920, 1080); });
    add("floor/jpeg_720p", [](benchmark::State& s) { floorJpeg(s, 1280, 720); });
    add("render/720p", [](benchmark::State& s) { benchRender(s, 1280, 720, false); });
    add("render_encode/720p", [](benchmark::State& s) { benchRenderEncode(s, 1280, 720); });

    bench::FigureReporter reporter(out);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto& figures = reporter.figures();
    const auto cpu = [&](const char* name) {
        const auto it = figures.find(name);
        return it != figures.end() ? it->second.dCpu / 1e6 : double(NAN);
    };
    const auto counter = [&](const char* name, const char* key) {
        const auto it = figures.find(name);
        if (it == figures.end())
            return double(NAN);
        const auto c = it->second.counters.find(key);
        return c != it->second.counters.end() ? static_cast<double>(c->second) : double(NAN);
    };
    out << "\nSummary (CPU ms per frame, medians; floor = libjpeg-turbo encoding the same frame)\n"
        << std::fixed << std::setprecision(2);
    const double r1080 = cpu("render/1080p") / cpu("floor/jpeg_1080p");
    out << "1080p render " << cpu("render/1080p") << " ms, floor " << cpu("floor/jpeg_1080p")
        << " ms, ratio " << r1080 << "  target 1.5  " << (r1080 <= 1.5 ? "yes" : "NO") << "\n";
    out << "1080p render, lens 4 px out of focus " << cpu("render/1080p_defocused") << " ms\n";
    out << "720p render " << cpu("render/720p") << " ms, floor " << cpu("floor/jpeg_720p")
        << " ms, ratio " << cpu("render/720p") / cpu("floor/jpeg_720p") << "\n";
    const double fps1080 = 1000.0 / cpu("render_encode/1080p");
    out << "render+encode 1080p " << std::setprecision(1) << fps1080
        << " frames/s on one core  goal 30  " << (fps1080 >= 30 ? "yes" : "NO") << "\n";
    out << "render+encode 720p " << 1000.0 / cpu("render_encode/720p") << " frames/s\n";
    out << "renderer memory 1080p " << counter("render/1080p", "renderer_MiB") << " MiB, 720p "
        << counter("render/720p", "renderer_MiB") << " MiB\n";
    return 0;
}
