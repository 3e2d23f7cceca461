#include "SceneInput.h"

#include <sstream>

#include "ToolInput.h"
#include "sim/VirtualSensor.h"

namespace sensorctl {

namespace {

using Sensor = sim::VirtualSensor;

std::string numberText(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

struct Limits {
    double lo;
    double hi;
    const char* szWhat; // what the number is, for the refusal
};

Limits limitsOf(SceneValue which) {
    switch (which) {
        case SceneValue::Light:
            return {Sensor::kMinLux, Sensor::kMaxLux, "lux"};
        case SceneValue::Fog:
            return {0.0, Sensor::kMaxFog, "a fog density"};
        case SceneValue::Shake:
            return {0.0, Sensor::kMaxShake, "a shake in pixels"};
    }
    return {0.0, 0.0, ""};
}

} // namespace

std::string sceneValueRange(SceneValue which) {
    const Limits l = limitsOf(which);
    return numberText(l.lo) + ".." + numberText(l.hi);
}

std::string sceneSizeRange() {
    return std::to_string(Sensor::kMinWidth) + "x" + std::to_string(Sensor::kMinHeight) + ".." +
           std::to_string(Sensor::kMaxWidth) + "x" + std::to_string(Sensor::kMaxHeight);
}

bool setSceneValue(Sensor& sensor, SceneValue which, const std::string& text, std::string& error) {
    if (which == SceneValue::Light && text == "clock") {
        sensor.followDayCurve();
        return true;
    }
    const Limits l = limitsOf(which);
    double value = 0;
    InputError why;
    if (!readDecimal(text, l.lo, l.hi, value, why)) {
        error = std::string("expected ") + l.szWhat + " from " + numberText(l.lo) + " to " +
                numberText(l.hi) + (which == SceneValue::Light ? ", or clock" : "") + ": " + text;
        return false;
    }
    switch (which) {
        case SceneValue::Light:
            return sensor.setIlluminance(value, error);
        case SceneValue::Fog:
            return sensor.setFog(value, error);
        case SceneValue::Shake:
            return sensor.setShake(value, error);
    }
    return false;
}

bool setSceneSize(Sensor& sensor, const std::string& text, std::string& error) {
    const size_t x = text.find('x');
    long width = 0;
    long height = 0;
    InputError why;
    // Each side a number that fits; the sensor then judges the pair.
    constexpr long kLargest = 1000000;
    if (x == std::string::npos || !readInteger(text.substr(0, x), 0, kLargest, width, why) ||
        !readInteger(text.substr(x + 1), 0, kLargest, height, why)) {
        error = "expected a size WIDTHxHEIGHT: " + text;
        return false;
    }
    return sensor.setFrameSize(static_cast<int>(width), static_cast<int>(height), error);
}

} // namespace sensorctl
