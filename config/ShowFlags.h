// The process-wide switch that withdraws beaway when the video streams can't
// carry it (true: offered). Start-up and the host write it; the beaway
// handler and the style rewrite obey it.
#pragma once

#include "diag/SensorDefs.h"

SENSOR_API void setshowBeawayFalg(bool p_bShow);
SENSOR_API bool getshowBeawayFalg();
