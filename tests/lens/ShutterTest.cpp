// The shutter as a position in the ISP's own list of shutter values.
#include "tests/support/ControllerFixture.h"

using namespace lenstest;

namespace {

class ShutterTest : public LensFixture {
protected:
    void SetUp() override {
        LensFixture::SetUp();
        isp().setListRange(49, 4, {1, 2, 4, 8});
        isp().setValue(kChannel, KEY_MAX_SHUTTER, 4);
        isp().clearTrace();
    }
    void shutterAt(uint32_t nValue) {
        isp().setValue(kChannel, KEY_MAX_SHUTTER, nValue);
        isp().clearTrace();
    }
};

} // namespace

TEST_F(ShutterTest, ShutterUpStoresNextValue) {
    EXPECT_TRUE(ctrl().shutterUp());
    EXPECT_EQ((Lines{"list 4112", "range 49", "get 49=4", "set 49=8"}), traceText());
    EXPECT_EQ(8, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, ShutterDownStoresPreviousValue) {
    EXPECT_TRUE(ctrl().shutterDown());
    EXPECT_EQ((Lines{"get 49=4", "set 49=2"}), valueTraffic());
    EXPECT_EQ(2, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, GetShutterValueGivesPositionInList) {
    int nIndex = -1;
    EXPECT_TRUE(ctrl().getShutterValue(nIndex));
    EXPECT_EQ(2, nIndex);
    EXPECT_EQ((Lines{"get 49=4"}), valueTraffic());
}

TEST_F(ShutterTest, ShutterUpAtLastPositionWritesSameValueAgain) {
    shutterAt(8);
    EXPECT_TRUE(ctrl().shutterUp());
    EXPECT_EQ((Lines{"get 49=8", "set 49=8"}), valueTraffic());
    EXPECT_EQ(8, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, ShutterDownAtFirstPositionWritesSameValueAgain) {
    shutterAt(1);
    EXPECT_TRUE(ctrl().shutterDown());
    EXPECT_EQ((Lines{"get 49=1", "set 49=1"}), valueTraffic());
    EXPECT_EQ(1, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, SetShutterValueStoresListEntry) {
    EXPECT_TRUE(ctrl().setShutterValue(3));
    EXPECT_EQ((Lines{"set 49=8"}), valueTraffic());
    EXPECT_EQ(8, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, SetShutterValuePastListEndFails) {
    EXPECT_FALSE(ctrl().setShutterValue(4));
    EXPECT_EQ(Lines{}, valueTraffic());
    EXPECT_EQ(30, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, SetShutterValueRejectsNegativeIndex) {
    EXPECT_FALSE(ctrl().setShutterValue(-1));
    EXPECT_FALSE(ctrl().setShutterValue(INT32_MIN));
    EXPECT_EQ(Lines{}, valueTraffic());
    EXPECT_EQ(30, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, SetShutterValueFailsWithoutList) {
    isp().setDynamicCommands({50});
    EXPECT_FALSE(ctrl().setShutterValue(0));
    EXPECT_EQ(Lines{}, valueTraffic());
}

TEST_F(ShutterTest, ValueOutsideListMakesShutterOperationsFail) {
    shutterAt(3);
    int nIndex = -1;
    EXPECT_FALSE(ctrl().getShutterValue(nIndex));
    EXPECT_FALSE(ctrl().shutterUp());
    EXPECT_FALSE(ctrl().shutterDown());
    EXPECT_EQ(-1, nIndex);
    EXPECT_EQ((Lines{"get 49=3", "get 49=3", "get 49=3"}), valueTraffic());
    EXPECT_EQ(30, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, RefusedShutterReadFails) {
    isp().failCommand(KEY_MAX_SHUTTER, -1);
    testing::internal::CaptureStdout();
    int nIndex = -1;
    EXPECT_FALSE(ctrl().getShutterValue(nIndex));
    EXPECT_FALSE(ctrl().shutterUp());
    EXPECT_FALSE(ctrl().shutterDown());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(-1, nIndex);
    EXPECT_EQ(30, cached(KEY_MAX_SHUTTER));
}

TEST_F(ShutterTest, ListKeepsOnlyThirtyValues) {
    std::vector<uint32_t> vecItems;
    for (uint32_t n = 101; n <= 140; ++n)
        vecItems.push_back(n);
    isp().setListRange(49, 1, vecItems);
    int nIndex = -1;
    shutterAt(130);
    EXPECT_TRUE(ctrl().getShutterValue(nIndex));
    EXPECT_EQ(29, nIndex);
    shutterAt(131);
    EXPECT_FALSE(ctrl().getShutterValue(nIndex));
    EXPECT_FALSE(ctrl().setShutterValue(30));
    EXPECT_TRUE(ctrl().setShutterValue(29));
    EXPECT_EQ(130, cached(KEY_MAX_SHUTTER));
    EXPECT_EQ((Lines{"get 49=131", "set 49=130"}), valueTraffic());
}

TEST_F(ShutterTest, ShutterUpAtThirtiethValueStaysDespiteLongerIspList) {
    std::vector<uint32_t> vecItems;
    for (uint32_t n = 101; n <= 140; ++n)
        vecItems.push_back(n);
    isp().setListRange(49, 1, vecItems);
    shutterAt(130);
    EXPECT_TRUE(ctrl().shutterUp());
    EXPECT_EQ((Lines{"get 49=130", "set 49=130"}), valueTraffic());
}

TEST_F(ShutterTest, DefaultProfileShutterIsPositionOfThirty) {
    isp().reset();
    int nIndex = -1;
    EXPECT_TRUE(ctrl().getShutterValue(nIndex));
    EXPECT_EQ(6, nIndex);
}

TEST_F(ShutterTest, ShutterOperationsPrintTheRangeLine) {
    testing::internal::CaptureStdout();
    EXPECT_TRUE(ctrl().shutterUp());
    const std::string strOut = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, strOut.find("cmd=49 DefaltParam=4 strParamRange=1 2 4 8\n"));
}

TEST_F(ShutterTest, LockedLensLeavesShutterAlone) {
    lockLens(true);
    EXPECT_TRUE(ctrl().shutterUp());
    EXPECT_EQ((Lines{"get 49=4", "set 49=8"}), valueTraffic());
}
