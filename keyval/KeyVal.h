// One image parameter: its key and its value. Arrays of KeyVal are whole
// parameter sets; the scheme files are such arrays as they lie in memory.
#pragma once

#include "diag/SensorDefs.h"

struct KeyVal {
    u32 key;
    u32 value;
};

static_assert(sizeof(KeyVal) == 8, "scheme files are raw 8-byte records");
