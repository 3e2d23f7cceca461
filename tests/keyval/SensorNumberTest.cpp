// Decimal numbers read from texts and documents: atoi's reading, with the
// same 32-bit result on every target.
#include <gtest/gtest.h>

#include <cstdint>

#include "diag/SensorNumber.h"

TEST(SensorNumber, ReadsLikeAtoiWithinRange) {
    EXPECT_EQ(4, sensorAtoi("4abc"));
    EXPECT_EQ(0, sensorAtoi(""));
    EXPECT_EQ(0, sensorAtoi("x1"));
    EXPECT_EQ(-12, sensorAtoi("  -12"));
    EXPECT_EQ(7, sensorAtoi("+7)"));
}

TEST(SensorNumber, NumbersBeyondThirtyTwoBitsStopAtTheBound) {
    EXPECT_EQ(INT32_MAX, sensorAtoi("2147483648"));
    EXPECT_EQ(INT32_MAX, sensorAtoi("4294967295"));
    EXPECT_EQ(INT32_MIN, sensorAtoi("-2147483649"));
    EXPECT_EQ(INT32_MAX, sensorAtoi("99999999999999999999999"));
    EXPECT_EQ(INT32_MIN, sensorAtoi("-99999999999999999999999"));
}
