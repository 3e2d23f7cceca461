// The scene the virtual sensor films, set from what a user typed: the
// shell's verbs and the console's API read the same texts, with the sensor's
// own limits, and refuse them with the same words.
#pragma once

#include <string>

namespace sim {
class VirtualSensor;
}

namespace sensorctl {

enum class SceneValue {
    Light, // lux, or "clock": follow the day curve
    Fog,   // density
    Shake, // pixels at 1280 wide
};

// Sets the value from text (a plain decimal, see readDecimal); false with a
// sentence in error that names what was expected and the text.
bool setSceneValue(sim::VirtualSensor& sensor, SceneValue which, const std::string& text,
                   std::string& error);

// Sets the frame size from "WIDTHxHEIGHT" (two decimal integers); false with
// a sentence in error for another text or a size the sensor refuses.
bool setSceneSize(sim::VirtualSensor& sensor, const std::string& text, std::string& error);

// The limits as the help texts give them: "the scene's light in lux
// (0..200000) ..." and so on, from the sensor's constants.
std::string sceneValueRange(SceneValue which);
std::string sceneSizeRange();

} // namespace sensorctl
