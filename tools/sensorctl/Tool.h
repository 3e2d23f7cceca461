// The sensorctl commands besides the shell.
#pragma once

#include <string>
#include <vector>

#include "Camera.h"
#include "CommandLine.h"

namespace sensorctl {

// shell, demo or serve on a camera started with the command's options: 0
// when it ran to its end, 1 when the camera did not start or serve could not
// listen.
int runCameraCommand(const CameraCommand& command);
int runDemo(const CameraOptions& options);
int runDump(const std::vector<std::string>& args);
int runMerge(const std::vector<std::string>& args);

} // namespace sensorctl
