#include "PictureVerbs.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "Camera.h"
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
// set it from a number with one; the sensor judges the range.
bool numberSetting(VerbContext& c, std::string& r, const char* szUnit,
                   bool (sim::VirtualSensor::*set)(double, std::string&),
                   double (sim::VirtualSensor::*get)() const) {
    sim::VirtualSensor& sensor = sensorOf(c);
    if (!c.args.empty()) {
        double d = 0;
        if (!parseDecimal(c.args[0], d)) {
            c.error = "not a number: " + c.args[0];
            return false;
        }
        if (!(sensor.*set)(d, c.error))
            return false;
    }
    r = decimalText((sensor.*get)(), 2) + szUnit;
    return true;
}

bool lightVerb(VerbContext& c, std::string& r) {
    sim::VirtualSensor& sensor = sensorOf(c);
    if (!c.args.empty()) {
        if (c.args[0] == "clock") {
            sensor.followDayCurve();
        } else {
            double d = 0;
            if (!parseDecimal(c.args[0], d)) {
                c.error = "expected lux or clock: " + c.args[0];
                return false;
            }
            if (!sensor.setIlluminance(d, c.error))
                return false;
        }
    }
    r = decimalText(sensor.illuminance(), 1) + " lux" +
        (sensor.followsDayCurve() ? " (clock)" : " (fixed)");
    return true;
}

bool fogVerb(VerbContext& c, std::string& r) {
    return numberSetting(c, r, "", &sim::VirtualSensor::setFog, &sim::VirtualSensor::fog);
}

bool shakeVerb(VerbContext& c, std::string& r) {
    return numberSetting(c, r, " px", &sim::VirtualSensor::setShake, &sim::VirtualSensor::shake);
}

bool sizeVerb(VerbContext& c, std::string& r) {
    sim::VirtualSensor& sensor = sensorOf(c);
    if (!c.args.empty()) {
        int w = 0, h = 0;
        if (!parseFrameSize(c.args[0], w, h)) {
            c.error = "not a size WIDTHxHEIGHT: " + c.args[0];
            return false;
        }
        if (!sensor.setFrameSize(w, h, c.error))
            return false;
    }
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

bool parseDecimal(const std::string& text, double& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return errno == 0 && *end == '\0' && std::isfinite(value);
}

bool parseFrameSize(const std::string& text, int& width, int& height) {
    const size_t x = text.find('x');
    if (x == std::string::npos || x == 0 || x + 1 >= text.size() || x > 6 || text.size() - x > 7)
        return false;
    for (size_t i = 0; i < text.size(); ++i)
        if (i != x && !std::isdigit(static_cast<unsigned char>(text[i])))
            return false;
    width = std::atoi(text.substr(0, x).c_str());
    height = std::atoi(text.substr(x + 1).c_str());
    return true;
}

std::string shutterText(unsigned shutter) {
    return shutter == 0 ? std::string("unknown") : "1/" + std::to_string(shutter) + " s";
}

const std::vector<PictureVerb>& pictureVerbs() {
    static const std::vector<PictureVerb> verbs = {
        {"snapshot", "snapshot PATH", 1, -1, "write the current picture to PATH as JPEG",
         snapshotVerb},
        {"light", "light [LUX|clock]", 0, 1,
         "the scene's light in lux (0..200000), or follow the clock's day curve", lightVerb},
        {"fog", "fog [DENSITY]", 0, 1, "the fog, 0 (clear) .. 1 (thick), or set it", fogVerb},
        {"shake", "shake [PIXELS]", 0, 1, "the camera shake, 0..32 pixels, or set it", shakeVerb},
        {"size", "size [WxH]", 0, 1, "the picture size, 16x16 .. 1920x1080 (even), or set it",
         sizeVerb},
        {"stats", "stats", 0, 0,
         "render a picture and list its statistics and what the ISP chose; = its number",
         statsVerb},
    };
    return verbs;
}

} // namespace sensorctl
