// The key-command table: for every parameter key, the ISP command that
// carries it, the handler that applies it and the names diagnostics show.
// It is the one list of keys in the library; every other list derives from it.
#pragma once

#include "controller/ISensorController.h"
#include "diag/SensorDefs.h"

namespace sensor_detail {

// One row as written in the source: names as plain texts.
struct KeyCmdRow {
    u32 key;
    u32 cmd;
    SensorHandler handler; // null for the keys the controller keeps for itself
    const char* szKeyName;
    const char* szHandlerName; // "&ISensorController::doIaCmd", or "NULL"
};

// The rows in table order (the order diagnostics list keys in).
extern const KeyCmdRow kKeyCmdTable[];

} // namespace sensor_detail

// Lookups for tools, derived from the table.
// The key's symbolic name ("KEY_BRIGHTNESS"), or nullptr for a key not in the table.
SENSOR_API const char* sensorKeyName(u32 key);
// The number of rows (138).
SENSOR_API u32 sensorKeyCount();
// Row row of the table in table order; false past the last row.
SENSOR_API bool sensorKeyRow(u32 row, u32& key, u32& cmd, const char*& keyName,
                             const char*& handlerName);
