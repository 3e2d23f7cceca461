// Mirror and beaway: the exchange of the single-axis mirrors while beaway is
// on, the process-wide withdrawal of beaway, and the saving mirror setter.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ControllerFixture.h"
#include "storage/SensorFile.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;
using coretest::ispCalls;
using coretest::keysAndValues;
using coretest::lastSent;
using Notice = sim::SimVideoStreamModule::Notice;

class MirrorBeawayTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{KEY_MIRROR, 0}, {KEY_BEAWAY, 0}});
        attachVideo();
    }
};

TEST_F(MirrorBeawayTest, BeawayOnExchangesMirrorOneForTwoButStoresOne) {
    ctl->setKeyValToCache(0, KEY_BEAWAY, 1, false);
    EXPECT_EQ(ctl->setParameter(KEY_MIRROR, 1, true), 0);
    EXPECT_EQ(keysAndValues(video.notices()), (std::vector<std::pair<int, int>>{{2384, 2}}));
    EXPECT_EQ(lastSent(KEY_MIRROR), std::vector<uint32_t>({2}));
    EXPECT_EQ(cached(0, KEY_MIRROR), 1u);
}

TEST_F(MirrorBeawayTest, BeawayOffSendsMirrorTwoUnchanged) {
    EXPECT_EQ(ctl->setParameter(KEY_MIRROR, 2, true), 0);
    EXPECT_EQ(keysAndValues(video.notices()), (std::vector<std::pair<int, int>>{{2384, 2}}));
    EXPECT_EQ(lastSent(KEY_MIRROR), std::vector<uint32_t>({2}));
}

TEST_F(MirrorBeawayTest, MirrorZeroAndThreePassBeawayUnchanged) {
    ctl->setKeyValToCache(0, KEY_BEAWAY, 1, false);
    ctl->setParameter(KEY_MIRROR, 3, true);
    EXPECT_EQ(lastSent(KEY_MIRROR), std::vector<uint32_t>({3}));
    ctl->setParameter(KEY_MIRROR, 0, true);
    EXPECT_EQ(lastSent(KEY_MIRROR), std::vector<uint32_t>({0}));
}

TEST_F(MirrorBeawayTest, MirrorRefusedByThePipelineIsReportedAndStillSent) {
    video.setResultForKey(KEY_MIRROR, -1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(KEY_MIRROR, 1, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(p_nKey, nMirror)   ~~~Assertion failed."),
              std::string::npos)
        << text;
    EXPECT_EQ(ispCalls(KEY_MIRROR).size(), 1u);
}

TEST_F(MirrorBeawayTest, MirrorResultIsTheIsps) {
    sim::Isp::instance().failCommand(KEY_MIRROR, -1);
    EXPECT_EQ(ctl->setParameter(KEY_MIRROR, 1, true), -2384);
}

TEST_F(MirrorBeawayTest, MirrorLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    ctl->setKeyValToCache(0, KEY_BEAWAY, 1, false);
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_MIRROR, 2, true); });
    EXPECT_NE(text.find("nMirror(2 --> 1), nBeaway:1\n"), std::string::npos) << text;
}

TEST_F(MirrorBeawayTest, WithdrawnBeawaySucceedsStoresZeroAndSendsNothing) {
    setshowBeawayFalg(false);
    EXPECT_EQ(ctl->setParameter(KEY_BEAWAY, 1, true), 0);
    EXPECT_EQ(cached(0, KEY_BEAWAY), 0u);
    EXPECT_TRUE(video.notices().empty());
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(MirrorBeawayTest, BeawayOffWithStoredMirrorOneTellsMirrorOneAndBeawayZero) {
    ctl->setKeyValToCache(0, KEY_BEAWAY, 1, false);
    ctl->setKeyValToCache(0, KEY_MIRROR, 1, false);
    EXPECT_EQ(ctl->setParameter(KEY_BEAWAY, 0, true), 0);
    EXPECT_EQ(keysAndValues(video.notices()),
              (std::vector<std::pair<int, int>>{{2384, 1}, {2385, 0}}));
    EXPECT_EQ(lastSent(KEY_BEAWAY), std::vector<uint32_t>({0}));
    EXPECT_TRUE(ispCalls(KEY_MIRROR).empty());
}

TEST_F(MirrorBeawayTest, BeawayOnWithStoredMirrorOneTellsMirrorTwoAndBeawayOne) {
    ctl->setKeyValToCache(0, KEY_MIRROR, 1, false);
    EXPECT_EQ(ctl->setParameter(KEY_BEAWAY, 1, true), 0);
    EXPECT_EQ(keysAndValues(video.notices()),
              (std::vector<std::pair<int, int>>{{2384, 2}, {2385, 1}}));
    EXPECT_EQ(lastSent(KEY_BEAWAY), std::vector<uint32_t>({1}));
    EXPECT_TRUE(ispCalls(KEY_MIRROR).empty());
    EXPECT_EQ(cached(0, KEY_BEAWAY), 1u);
}

TEST_F(MirrorBeawayTest, BeawayWithoutStoredMirrorTellsMirrorZero) {
    prepare({{KEY_BEAWAY, 0}});
    attachVideo();
    EXPECT_EQ(ctl->setParameter(KEY_BEAWAY, 1, true), 0);
    EXPECT_EQ(keysAndValues(video.notices()),
              (std::vector<std::pair<int, int>>{{2384, 0}, {2385, 1}}));
}

TEST_F(MirrorBeawayTest, BeawayNoticeFailuresAreReportedAndTheIspStillHearsIt) {
    video.setResult(-1);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(KEY_BEAWAY, 1, true), 0); });
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(IA_CMD_UI_MIRROR, nMirror)   ~~~Assertion"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("SNS_SUCCESS == notifyToVideo(p_nKey, nBeaway)   ~~~Assertion"),
              std::string::npos);
    EXPECT_EQ(ispCalls(KEY_BEAWAY).size(), 1u);
}

TEST_F(MirrorBeawayTest, ShowBeawayFlagIsProcessWideAndStartsTrue) {
    EXPECT_TRUE(getshowBeawayFalg());
    bool show = false;
    (void)ctl->getShowBeawayFalg(show);
    EXPECT_TRUE(show);
    ctl->setShowBeawayFalg(false);
    EXPECT_FALSE(getshowBeawayFalg());
    (void)ctl->getShowBeawayFalg(show);
    EXPECT_FALSE(show);
    setshowBeawayFalg(true);
    EXPECT_TRUE(getshowBeawayFalg());
}

TEST_F(MirrorBeawayTest, SetMirrorModeSavesTheSchemeOnSuccess) {
    EXPECT_TRUE(ctl->setMirrorMode(1));
    ASSERT_TRUE(root.exists(sensorSchemeFile(1, 0)));
    const std::string bytes = root.read(sensorSchemeFile(1, 0));
    ASSERT_EQ(bytes.size(), access().keyValSum() * sizeof(KeyVal));
    const KeyVal* saved = reinterpret_cast<const KeyVal*>(bytes.data());
    EXPECT_EQ(saved[5].key, 2384u);
    EXPECT_EQ(saved[5].value, 1u);
}

TEST_F(MirrorBeawayTest, SetMirrorModeDoesNotSaveOnFailure) {
    // Start-up wrote the file; a failed mirror leaves it as it was.
    const std::string before = root.read(sensorSchemeFile(1, 0));
    ASSERT_FALSE(before.empty());
    sim::Isp::instance().failCommand(KEY_MIRROR, -1);
    EXPECT_FALSE(ctl->setMirrorMode(1));
    EXPECT_EQ(root.read(sensorSchemeFile(1, 0)), before);
}

TEST_F(MirrorBeawayTest, MirrorAndBeawayAreReadFromTheCache) {
    ctl->setKeyValToCache(0, KEY_MIRROR, 2, false);
    ctl->setKeyValToCache(0, KEY_BEAWAY, 1, false);
    int mirror = 0, beaway = 0;
    EXPECT_TRUE(ctl->getMirrorValue(mirror));
    EXPECT_TRUE(ctl->getBeaway(beaway));
    EXPECT_EQ(mirror, 2);
    EXPECT_EQ(beaway, 1);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

} // namespace
