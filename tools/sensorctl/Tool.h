// The sensorctl commands besides the shell.
#pragma once

#include <string>
#include <vector>

#include "Camera.h"

namespace sensorctl {

int runDemo(const CameraOptions& options);
int runDump(const std::vector<std::string>& args);
int runMerge(const std::vector<std::string>& args);

} // namespace sensorctl
