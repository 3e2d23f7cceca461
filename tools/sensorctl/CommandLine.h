// sensorctl's command line: the commands, their options, and the usage text.
// Numbers are read by the tools' one grammar (ToolInput.h); a value out of
// its range or with anything after it is refused, never cut to fit.
#pragma once

#include <string>
#include <vector>

#include "Camera.h"
#include "Serve.h"

namespace sensorctl {

// The usage text of sensorctl help.
const char* usageText();

// What a camera command (shell, demo, serve) was asked to do.
struct CameraCommand {
    std::string strCommand; // "shell", "demo" or "serve"
    CameraOptions camera;
    ServeOptions serve; // serve only
    bool bEcho = false; // shell only
};

// Reads the options after a camera command. false with the reason when an
// option is unknown, lacks its value or has a value out of its form or range.
bool readCameraCommand(const std::string& command, const std::vector<std::string>& args,
                       CameraCommand& out, std::string& error);

} // namespace sensorctl
