// The day/night handlers assemble the ISP's records from the new value and
// the current scheme's siblings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/ControllerFixture.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;
using coretest::ispCalls;
using coretest::lastSent;

typedef std::vector<uint32_t> Words;

class DayNightHandlersTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare(
            {{144, 0}, {145, 60}, {146, 10}, {154, 4}, {149, 18}, {150, 0}, {151, 6}, {152, 15}});
    }
};

TEST_F(DayNightHandlersTest, NightToDayThresholdCarriesTheStoredDayToNight) {
    EXPECT_EQ(ctl->setParameter(146, 20, true), 0);
    EXPECT_EQ(lastSent(146), Words({60, 20, 0}));
    EXPECT_EQ(cached(0, 146), 20u);
}

TEST_F(DayNightHandlersTest, DayToNightThresholdCarriesTheStoredNightToDay) {
    EXPECT_EQ(ctl->setParameter(145, 70, true), 0);
    EXPECT_EQ(lastSent(145), Words({70, 10, 0}));
}

TEST_F(DayNightHandlersTest, SensitivityTravelsAlone) {
    EXPECT_EQ(ctl->setParameter(154, 7, true), 0);
    EXPECT_EQ(lastSent(154), Words({0, 0, 7}));
}

TEST_F(DayNightHandlersTest, SiblingsComeFromTheCurrentScheme) {
    ctl->setKeyValToCache(2, 145, 90, false);
    access.setCurScheme(2);
    ctl->setParameter(146, 20, true);
    EXPECT_EQ(lastSent(146), Words({90, 20, 0}));
}

TEST_F(DayNightHandlersTest, MissingSiblingIsSentAsZero) {
    access.releaseSchemes();
    prepare({{146, 10}});
    ctl->setParameter(146, 20, true);
    EXPECT_EQ(lastSent(146), Words({0, 20, 0}));
}

TEST_F(DayNightHandlersTest, RejectedThresholdFailsOutsideAReplay) {
    sim::Isp::instance().failCommand(145, -1);
    EXPECT_EQ(ctl->setParameter(145, 70, true), -145);
    EXPECT_EQ(cached(0, 145), 60u);
}

TEST_F(DayNightHandlersTest, RejectedThresholdSucceedsDuringAReplay) {
    sim::Isp::instance().failCommand(145, -1);
    access.setFlags(ISensorController::restoring_flag);
    EXPECT_EQ(ctl->setParameter(145, 70, true), 0);
    EXPECT_EQ(ispCalls(145).size(), 1u);
    EXPECT_EQ(cached(0, 145), 70u);
}

TEST_F(DayNightHandlersTest, RejectedTimeFailsEvenDuringAReplay) {
    sim::Isp::instance().failCommand(150, -1);
    access.setFlags(ISensorController::restoring_flag);
    EXPECT_EQ(ctl->setParameter(150, 30, true), -150);
}

TEST_F(DayNightHandlersTest, ThresholdLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(146, 20, true); });
    EXPECT_NE(text.find("\033[0m\033[0mm_nCurScheme(0) dn_thr_st.d2n_thr(60) dn_thr_st.n2d_thr(20)"
                        "  dn_thr_st.dn_sensitivity(0)\n\033[0m"),
              std::string::npos)
        << text;
}

TEST_F(DayNightHandlersTest, MinuteToNightCarriesTheOtherThreeTimes) {
    EXPECT_EQ(ctl->setParameter(150, 30, true), 0);
    EXPECT_EQ(lastSent(150), Words({18, 30, 6, 15}));
}

TEST_F(DayNightHandlersTest, EachTimeKeySetsItsOwnMember) {
    ctl->setParameter(149, 19, true);
    EXPECT_EQ(lastSent(149), Words({19, 0, 6, 15}));
    ctl->setParameter(151, 7, true);
    EXPECT_EQ(lastSent(151), Words({19, 0, 7, 15}));
    ctl->setParameter(152, 45, true);
    EXPECT_EQ(lastSent(152), Words({19, 0, 7, 45}));
}

TEST_F(DayNightHandlersTest, AnyOtherKeySetsTheMinuteToDay) {
    u32 value = 33;
    ctl->doDNTime(152, 0, &value);
    EXPECT_EQ(lastSent(152), Words({18, 0, 6, 33}));
}

TEST_F(DayNightHandlersTest, TimeLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(150, 30, true); });
    EXPECT_NE(text.find("m_nCurScheme(0) dn_time_st.d2n_hour(18) dn_time_st.d2n_min(30) "
                        "dn_time_st.n2d_hour(6) dn_time_st.n2d_min(15) \n"),
              std::string::npos)
        << text;
}

TEST_F(DayNightHandlersTest, GetDNModeReadsTheCache) {
    ctl->setKeyValToCache(0, 144, 2, false);
    int mode = -5;
    EXPECT_TRUE(ctl->getDNMode(mode));
    EXPECT_EQ(mode, 2);
}

TEST_F(DayNightHandlersTest, GetDNModeIsTrueEvenWhenTheReadFails) {
    access.releaseSchemes();
    prepare({});
    sim::Isp::instance().failCommand(144, -1);
    int mode = 0;
    EXPECT_TRUE(ctl->getDNMode(mode));
    EXPECT_EQ(ispCalls(144, 1).size(), 1u);
}

TEST_F(DayNightHandlersTest, SetDNModeSetsAndCaches) {
    EXPECT_TRUE(ctl->setDNMode(3));
    EXPECT_EQ(cached(0, 144), 3u);
    EXPECT_EQ(lastSent(144), Words({3}));
    EXPECT_FALSE(root.exists("/mnt/mtd/code/config_file/sensor0.cfg"));
}

TEST_F(DayNightHandlersTest, SetDNModeIsFalseWhenTheIspRejects) {
    sim::Isp::instance().failCommand(144, -1);
    EXPECT_FALSE(ctl->setDNMode(3));
}

TEST_F(DayNightHandlersTest, GetDNStateAsksTheIspEveryTime) {
    sim::Isp::instance().setDayNight(0, 1);
    int state = 0;
    EXPECT_TRUE(ctl->getDNState(state));
    EXPECT_EQ(state, 1);
    EXPECT_EQ(ispCalls(153, 1).size(), 1u);
}

TEST_F(DayNightHandlersTest, GetDNStateIsFalseWhenTheIspFails) {
    sim::Isp::instance().failCommand(153, -1);
    int state = 0;
    EXPECT_FALSE(ctl->getDNState(state));
}

} // namespace
