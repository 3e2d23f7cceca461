// The infrared and white-light illuminators: never on together.
#include "tests/support/ControllerFixture.h"

using namespace lenstest;

namespace {

class LightTest : public LensFixture {};

} // namespace

TEST_F(LightTest, IRSwitchOnWithWhiteLightOnSwitchesWhiteOffFirst) {
    isp().setValue(kChannel, 168, 1);
    setCached(KEY_WHITE_SWITCH, 1);
    EXPECT_TRUE(ctrl().setIRSwitch(1));
    EXPECT_EQ((Lines{"get 168=1", "set 168=0", "set 160=1"}), traceText());
    EXPECT_EQ(0, cached(KEY_WHITE_SWITCH));
    EXPECT_EQ(1, cached(KEY_IR_SWITCH));
}

TEST_F(LightTest, IRSwitchOnWithWhiteLightOffOnlyReadsIt) {
    isp().setValue(kChannel, 168, 0);
    EXPECT_TRUE(ctrl().setIRSwitch(1));
    EXPECT_EQ((Lines{"get 168=0", "set 160=1"}), traceText());
    EXPECT_EQ(1, cached(KEY_IR_SWITCH));
}

TEST_F(LightTest, IRSwitchOffTouchesNothingElse) {
    isp().setValue(kChannel, 168, 1);
    setCached(KEY_IR_SWITCH, 1);
    setCached(KEY_WHITE_SWITCH, 1);
    EXPECT_TRUE(ctrl().setIRSwitch(0));
    EXPECT_EQ((Lines{"set 160=0"}), traceText());
    EXPECT_EQ(0, cached(KEY_IR_SWITCH));
    EXPECT_EQ(1, cached(KEY_WHITE_SWITCH));
}

TEST_F(LightTest, IRSwitchFailsWhenWhiteLightCannotBeRead) {
    isp().failCommand(168, -1);
    EXPECT_FALSE(ctrl().setIRSwitch(1));
    EXPECT_EQ((Lines{"get 168=0 failed"}), traceText());
    EXPECT_EQ(0, cached(KEY_IR_SWITCH));
}

TEST_F(LightTest, RefusedIRSwitchFailsAndIsNotStored) {
    isp().failCommand(KEY_IR_SWITCH, -1);
    EXPECT_FALSE(ctrl().setIRSwitch(1));
    EXPECT_EQ(0, cached(KEY_IR_SWITCH));
}

TEST_F(LightTest, WhiteSwitchOnWithIROnSwitchesIROffFirst) {
    isp().setValue(kChannel, KEY_IR_SWITCH, 1);
    setCached(KEY_IR_SWITCH, 1);
    EXPECT_TRUE(ctrl().setWhiteSwitch(1));
    EXPECT_EQ((Lines{"get 160=1", "set 160=0", "set 168=1"}), traceText());
    EXPECT_EQ(0, cached(KEY_IR_SWITCH));
    EXPECT_EQ(1, cached(KEY_WHITE_SWITCH));
}

TEST_F(LightTest, WhiteSwitchOnWithIROffOnlyReadsIt) {
    EXPECT_TRUE(ctrl().setWhiteSwitch(1));
    EXPECT_EQ((Lines{"get 160=0", "set 168=1"}), traceText());
    EXPECT_EQ(1, cached(KEY_WHITE_SWITCH));
}

TEST_F(LightTest, WhiteSwitchOffTouchesNothingElse) {
    isp().setValue(kChannel, KEY_IR_SWITCH, 1);
    setCached(KEY_IR_SWITCH, 1);
    setCached(KEY_WHITE_SWITCH, 1);
    EXPECT_TRUE(ctrl().setWhiteSwitch(0));
    EXPECT_EQ((Lines{"set 168=0"}), traceText());
    EXPECT_EQ(1, cached(KEY_IR_SWITCH));
    EXPECT_EQ(0, cached(KEY_WHITE_SWITCH));
}

TEST_F(LightTest, WhiteSwitchFailsWhenIRCannotBeRead) {
    isp().failCommand(KEY_IR_SWITCH, -1);
    EXPECT_FALSE(ctrl().setWhiteSwitch(1));
    EXPECT_EQ((Lines{"get 160=0 failed"}), traceText());
    EXPECT_EQ(0, cached(KEY_WHITE_SWITCH));
}

TEST_F(LightTest, SetWhiteModeStoresKeyAndSendsItsCommand) {
    EXPECT_TRUE(ctrl().setWhiteMode(2));
    EXPECT_EQ((Lines{"set 169=2"}), traceText());
    EXPECT_EQ(2, cached(KEY_WHITE_MODE));
}

TEST_F(LightTest, RefusedWhiteModeFailsAndIsNotStored) {
    isp().failCommand(169, -1);
    EXPECT_FALSE(ctrl().setWhiteMode(2));
    EXPECT_EQ(0, cached(KEY_WHITE_MODE));
}
