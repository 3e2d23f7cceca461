// Where the fixed device paths really are.
//
// Every path the controller uses is written as it is on the camera
// ("/mnt/mtd/...", "/hd1/...", "/tmp/merge_style.xml"), and so it appears in
// messages. Only at the boundary to the host (opening a file, parsing the
// machine information, running a shell command, saving a document) is the
// path resolved, here, under the device root: the environment variable
// SENSOR_ROOT, or the real root when it is unset or empty.
#pragma once

#include <cstddef>
#include <string>

#include "diag/SensorDefs.h"

// The device path under the current device root.
SENSOR_API std::string sensorDevicePath(const std::string& devicePath);

// The same written into a caller's buffer, without allocating: false when it
// does not fit (the caller then takes the string form).
bool sensorDevicePathInto(const char* devicePath, char* out, size_t outSize);

// The device root itself, "" for the real root.
SENSOR_API std::string sensorDeviceRoot();

// True when the resolved path names a pipe, a socket or a device. Opening a
// pipe blocks until someone writes to it, and a device may read without end:
// the camera neither reads its settings from such a file nor writes over it.
bool sensorIsSpecialFile(const std::string& realPath);
// The same for a file mode a stat already gave.
bool sensorIsSpecialMode(unsigned int mode);

// The shell command that removes every stored scheme and version file
// ("rm -rf /mnt/mtd/code/config*/sensor*" under the device root).
SENSOR_API std::string sensorRemoveSchemeFilesCommand();
