// The shell's verbs over the simulated camera's picture: a snapshot as JPEG,
// the scene's light, fog and shake, the frame size and the frame statistics.
// They live beside the shell, which lists them before its help.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace sensorctl {

// The JPEG quality of a still, the shell's snapshot and the console's: a
// quality where JPEG's blocks do not show.
constexpr int kSnapshotQuality = 90;

class Camera;

// What a picture verb works with: the camera, the words after the verb (and
// the whole rest of the line, for paths with blanks), the shell's output for
// listed lines, and the error it fills when it fails.
struct VerbContext {
    Camera& camera;
    const std::vector<std::string>& args;
    const std::string& rest;
    std::ostream& out;
    std::string& error;
};

struct PictureVerb {
    const char* szName;
    const char* szUsage;
    int nMinArgs;
    int nMaxArgs; // -1: the rest of the line is one text
    const char* szHelp;
    // Fills the result (the text after "= ") or the error; false on error.
    bool (*fn)(VerbContext& context, std::string& result);
};

const std::vector<PictureVerb>& pictureVerbs();

// The shutter as the list names it: "1/50 s".
std::string shutterText(unsigned shutter);

} // namespace sensorctl
