#include <gtest/gtest.h>

#include "host/ia_ioctrl_v2.h"
#include "sim/SimIsp.h"

TEST(SimIsp, SetThenGetReturnsStoredValue) {
    sim::Isp::instance().reset();
    uint32_t value = 60;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
    uint32_t read = 0;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(60u, read);
}
