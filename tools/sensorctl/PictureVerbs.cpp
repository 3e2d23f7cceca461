#include "PictureVerbs.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "Camera.h"
#include "SceneInput.h"
#include "controller/SensorKeys.h"
#include "sim/SimIsp.h"
#include "sim/VirtualSensor.h"

namespace sensorctl {

namespace {

sim::VirtualSensor& sensorOf(VerbContext& c) {
    return sim::VirtualSensor::forChannel(c.camera.ispChannel());
}

std::string decimalText(double value, int digits) {
    char sz[64];
    std::snprintf(sz, sizeof(sz), "%.*f", digits, value);
    return sz;
}

// A value the sensor keeps (light, fog, shake): read it without an argument,
// set it with one.
bool sceneVerb(VerbContext& c, SceneValue which) {
    return c.args.empty() || setSceneValue(sensorOf(c), which, c.args[0], c.error);
}

bool lightVerb(VerbContext& c, std::string& r) {
    if (!sceneVerb(c, SceneValue::Light))
        return false;
    const sim::VirtualSensor& sensor = sensorOf(c);
    r = decimalText(sensor.illuminance(), 1) + " lux" +
        (sensor.followsDayCurve() ? " (clock)" : " (fixed)");
    return true;
}

bool fogVerb(VerbContext& c, std::string& r) {
    if (!sceneVerb(c, SceneValue::Fog))
        return false;
    r = decimalText(sensorOf(c).fog(), 2);
    return true;
}

bool shakeVerb(VerbContext& c, std::string& r) {
    if (!sceneVerb(c, SceneValue::Shake))
        return false;
    r = decimalText(sensorOf(c).shake(), 2) + " px";
    return true;
}

bool sizeVerb(VerbContext& c, std::string& r) {
    sim::VirtualSensor& sensor = sensorOf(c);
    if (!c.args.empty() && !setSceneSize(sensor, c.args[0], c.error))
        return false;
    r = std::to_string(sensor.width()) + "x" + std::to_string(sensor.height());
    return true;
}

bool snapshotVerb(VerbContext& c, std::string& r) {
    const std::string& path = c.rest;
    const sim::Frame frame = sensorOf(c).renderFrame();
    std::vector<uint8_t> jpeg;
    if (!sim::encodeJpeg(frame, kSnapshotQuality, jpeg, c.error))
        return false;
    // Written whole or not at all: a half-written picture is worse than none.
    const std::string strPart = path + ".part";
    FILE* pFile = std::fopen(strPart.c_str(), "wb");
    if (pFile == nullptr) {
        c.error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    const bool bWritten = std::fwrite(jpeg.data(), 1, jpeg.size(), pFile) == jpeg.size();
    const int nWriteErr = errno;
    const bool bClosed = std::fclose(pFile) == 0;
    if (!bWritten || !bClosed || std::rename(strPart.c_str(), path.c_str()) != 0) {
        const int nErr = bWritten && bClosed ? errno : nWriteErr;
        std::remove(strPart.c_str());
        c.error = "cannot write " + path + ": " + std::strerror(nErr);
        return false;
    }
    r = path + " " + std::to_string(frame.width) + "x" + std::to_string(frame.height);
    return true;
}

bool statsVerb(VerbContext& c, std::string& r) {
    sim::VirtualSensor& sensor = sensorOf(c);
    const sim::Frame frame = sensor.renderFrame();
    const sim::FrameStats stats = sim::measureFrame(frame);
    int nDayToNight = -1, nNightToDay = -1;
    c.camera.controller().getParameter(KEY_DTN_THR, nDayToNight);
    c.camera.controller().getParameter(KEY_NTD_THR, nNightToDay);
    const uint32_t nState = sim::Isp::instance().dayNightState(c.camera.ispChannel());
    std::ostream& o = c.out;
    o << "frame " << frame.number << " " << frame.width << "x" << frame.height << "\n"
      << "mean " << decimalText(stats.mean, 1) << "\n"
      << "channels " << decimalText(stats.channelMean[0], 1) << " "
      << decimalText(stats.channelMean[1], 1) << " " << decimalText(stats.channelMean[2], 1)
      << " (R G B)\n"
      << "colourfulness " << decimalText(stats.colourfulness, 1) << "\n"
      << "sharpness " << decimalText(stats.sharpness, 1) << "\n"
      << "noise " << decimalText(stats.noise, 2) << "\n"
      << "clipped " << decimalText(stats.clipped * 100, 2) << " %\n"
      << "exposure level " << decimalText(frame.measuredLevel, 3) << " (the ISP's meter, 0..1)\n"
      << "light level " << decimalText(sim::VirtualSensor::lightLevelOf(frame.lux), 1)
      << " (day to night below " << nDayToNight << ", night to day above " << nNightToDay
      << "; the ISP's meter " << decimalText(sensor.measuredLightLevel(), 1) << ", ISP "
      << (nState != 0 ? "night" : "day") << ")\n"
      << "shutter " << shutterText(frame.shutter) << "\n"
      << "gain " << frame.gain << "\n"
      << "iris " << frame.iris << "\n"
      << "lux " << decimalText(frame.lux, 1) << (sensor.followsDayCurve() ? " (clock)" : " (fixed)")
      << "\n"
      << "ircut " << (frame.irCutOut ? "out" : "in") << "\n";
    r = std::to_string(frame.number);
    return true;
}

} // namespace

std::string shutterText(unsigned shutter) {
    return shutter == 0 ? std::string("unknown") : "1/" + std::to_string(shutter) + " s";
}

const std::vector<PictureVerb>& pictureVerbs() {
    // The ranges in the help are the sensor's own.
    static const std::string light = "the scene's light in lux (" +
                                     sceneValueRange(SceneValue::Light) +
                                     "), or follow the clock's day curve";
    static const std::string fog =
        "the fog (" + sceneValueRange(SceneValue::Fog) + ", 0 clear), or set it";
    static const std::string shake =
        "the camera shake (" + sceneValueRange(SceneValue::Shake) + " pixels), or set it";
    static const std::string size = "the picture size (" + sceneSizeRange() + ", even), or set it";
    static const std::vector<PictureVerb> verbs = {
        {"snapshot", "snapshot PATH", 1, -1, "write the current picture to PATH as JPEG",
         snapshotVerb},
        {"light", "light [LUX|clock]", 0, 1, light.c_str(), lightVerb},
        {"fog", "fog [DENSITY]", 0, 1, fog.c_str(), fogVerb},
        {"shake", "shake [PIXELS]", 0, 1, shake.c_str(), shakeVerb},
        {"size", "size [WxH]", 0, 1, size.c_str(), sizeVerb},
        {"stats", "stats", 0, 0,
         "render a picture and list its statistics and what the ISP chose; = its number",
         statsVerb},
    };
    return verbs;
}

} // namespace sensorctl
