// The day/night handlers assemble the ISP's records from the new value and
// the current scheme's siblings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ControllerFixture.h"
#include "storage/SensorFile.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;
using coretest::ispCalls;
using coretest::lastSent;

typedef std::vector<uint32_t> Words;

class DayNightHandlersTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{KEY_DN_MODE, 0},
                 {KEY_DTN_THR, 60},
                 {KEY_NTD_THR, 10},
                 {KEY_DN_SENSITIVITY, 4},
                 {KEY_DTN_H, 18},
                 {KEY_DTN_M, 0},
                 {KEY_NTD_H, 6},
                 {KEY_NTD_M, 15}});
    }
};

TEST_F(DayNightHandlersTest, NightToDayThresholdCarriesTheStoredDayToNight) {
    EXPECT_EQ(ctl->setParameter(KEY_NTD_THR, 20, true), 0);
    EXPECT_EQ(lastSent(KEY_NTD_THR), Words({60, 20, 0}));
    EXPECT_EQ(cached(0, KEY_NTD_THR), 20u);
}

TEST_F(DayNightHandlersTest, DayToNightThresholdCarriesTheStoredNightToDay) {
    EXPECT_EQ(ctl->setParameter(KEY_DTN_THR, 70, true), 0);
    EXPECT_EQ(lastSent(KEY_DTN_THR), Words({70, 10, 0}));
}

TEST_F(DayNightHandlersTest, SensitivityTravelsAlone) {
    EXPECT_EQ(ctl->setParameter(KEY_DN_SENSITIVITY, 7, true), 0);
    EXPECT_EQ(lastSent(KEY_DN_SENSITIVITY), Words({0, 0, 7}));
}

TEST_F(DayNightHandlersTest, SiblingsComeFromTheCurrentScheme) {
    ctl->setKeyValToCache(2, KEY_DTN_THR, 90, false);
    access().setCurScheme(2);
    ctl->setParameter(KEY_NTD_THR, 20, true);
    EXPECT_EQ(lastSent(KEY_NTD_THR), Words({90, 20, 0}));
}

TEST_F(DayNightHandlersTest, MissingSiblingIsSentAsZero) {
    prepare({{KEY_NTD_THR, 10}});
    ctl->setParameter(KEY_NTD_THR, 20, true);
    EXPECT_EQ(lastSent(KEY_NTD_THR), Words({0, 20, 0}));
}

TEST_F(DayNightHandlersTest, RejectedThresholdFailsOutsideAReplay) {
    sim::Isp::instance().failCommand(KEY_DTN_THR, -1);
    EXPECT_EQ(ctl->setParameter(KEY_DTN_THR, 70, true), -145);
    EXPECT_EQ(cached(0, KEY_DTN_THR), 60u);
}

TEST_F(DayNightHandlersTest, RejectedThresholdSucceedsDuringAReplay) {
    sim::Isp::instance().failCommand(KEY_DTN_THR, -1);
    access().setFlags(ISensorController::restoring_flag);
    EXPECT_EQ(ctl->setParameter(KEY_DTN_THR, 70, true), 0);
    EXPECT_EQ(ispCalls(KEY_DTN_THR).size(), 1u);
    EXPECT_EQ(cached(0, KEY_DTN_THR), 70u);
}

TEST_F(DayNightHandlersTest, RejectedTimeFailsEvenDuringAReplay) {
    sim::Isp::instance().failCommand(KEY_DTN_M, -1);
    access().setFlags(ISensorController::restoring_flag);
    EXPECT_EQ(ctl->setParameter(KEY_DTN_M, 30, true), -150);
}

TEST_F(DayNightHandlersTest, ThresholdLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_NTD_THR, 20, true); });
    EXPECT_NE(text.find("\033[0m\033[0mm_nCurScheme(0) dn_thr_st.d2n_thr(60) dn_thr_st.n2d_thr(20)"
                        "  dn_thr_st.dn_sensitivity(0)\n\033[0m"),
              std::string::npos)
        << text;
}

TEST_F(DayNightHandlersTest, MinuteToNightCarriesTheOtherThreeTimes) {
    EXPECT_EQ(ctl->setParameter(KEY_DTN_M, 30, true), 0);
    EXPECT_EQ(lastSent(KEY_DTN_M), Words({18, 30, 6, 15}));
}

TEST_F(DayNightHandlersTest, EachTimeKeySetsItsOwnMember) {
    ctl->setParameter(KEY_DTN_H, 19, true);
    EXPECT_EQ(lastSent(KEY_DTN_H), Words({19, 0, 6, 15}));
    ctl->setParameter(KEY_NTD_H, 7, true);
    EXPECT_EQ(lastSent(KEY_NTD_H), Words({19, 0, 7, 15}));
    ctl->setParameter(KEY_NTD_M, 45, true);
    EXPECT_EQ(lastSent(KEY_NTD_M), Words({19, 0, 7, 45}));
}

// The handler names three of the times; every other key it is given (the
// minute to day, in the table) sets the minute to day.
TEST_F(DayNightHandlersTest, AnyOtherKeySetsTheMinuteToDay) {
    u32 value = 33;
    ctl->doDNTime(KEY_NTD_M, 0, &value);
    EXPECT_EQ(lastSent(KEY_NTD_M), Words({18, 0, 6, 33}));
}

TEST_F(DayNightHandlersTest, TimeLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_DTN_M, 30, true); });
    EXPECT_NE(text.find("m_nCurScheme(0) dn_time_st.d2n_hour(18) dn_time_st.d2n_min(30) "
                        "dn_time_st.n2d_hour(6) dn_time_st.n2d_min(15) \n"),
              std::string::npos)
        << text;
}

TEST_F(DayNightHandlersTest, GetDNModeReadsTheCache) {
    ctl->setKeyValToCache(0, KEY_DN_MODE, 2, false);
    int mode = -5;
    (void)ctl->getDNMode(mode);
    EXPECT_EQ(mode, 2);
}

TEST_F(DayNightHandlersTest, GetDNModeAsksTheIspWhenTheModeIsNotCached) {
    prepare({});
    sim::Isp::instance().failCommand(KEY_DN_MODE, -1);
    int mode = 0;
    (void)ctl->getDNMode(mode);
    EXPECT_EQ(ispCalls(KEY_DN_MODE, 1).size(), 1u);
}

TEST_F(DayNightHandlersTest, SetDNModeSetsAndCaches) {
    // Start-up wrote the file; setting the mode does not save it.
    const std::string before = root.read(sensorSchemeFile(1, 0));
    ASSERT_FALSE(before.empty());
    EXPECT_TRUE(ctl->setDNMode(3));
    EXPECT_EQ(cached(0, KEY_DN_MODE), 3u);
    EXPECT_EQ(lastSent(KEY_DN_MODE), Words({3}));
    EXPECT_EQ(root.read(sensorSchemeFile(1, 0)), before);
}

TEST_F(DayNightHandlersTest, SetDNModeIsFalseWhenTheIspRejects) {
    sim::Isp::instance().failCommand(KEY_DN_MODE, -1);
    EXPECT_FALSE(ctl->setDNMode(3));
}

TEST_F(DayNightHandlersTest, GetDNStateAsksTheIspEveryTime) {
    sim::Isp::instance().setDayNight(0, 1);
    int state = 0;
    EXPECT_TRUE(ctl->getDNState(state));
    EXPECT_EQ(state, 1);
    EXPECT_EQ(ispCalls(IA_CMD_DN_STATE, 1).size(), 1u);
}

TEST_F(DayNightHandlersTest, GetDNStateIsFalseWhenTheIspFails) {
    sim::Isp::instance().failCommand(IA_CMD_DN_STATE, -1);
    int state = 0;
    EXPECT_FALSE(ctl->getDNState(state));
}

} // namespace
