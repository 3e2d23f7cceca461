// Every parameter key by name (KEY_BRIGHTNESS is 34), for the host. The list
// itself lives with the KeyVal records whose keys it names, where every room
// of the library can look down to it; this header keeps its installed path.
#pragma once

#include "keyval/SensorKeys.h"
