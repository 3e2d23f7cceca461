// Basic types and the export marker shared by every unit of libsensor.
#pragma once

#include <cstdint>

typedef uint32_t u32;
typedef int32_t i32;
typedef uint8_t u8;

#define SNS_SUCCESS 0

// Only what a host may call is exported; everything else stays hidden.
#define SENSOR_API __attribute__((visibility("default")))
