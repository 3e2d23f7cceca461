// A parameter's path from a key to the ISP and back: the record loop, the
// keys the controller keeps, the cache, the ISP call and the video notices.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ControllerFixture.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;
using coretest::ispCalls;

class DispatchTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{KEY_BRIGHTNESS, 50},
                 {KEY_SATURATION, 50},
                 {KEY_CONTRAST, 50},
                 {KEY_IRIS_SIZE, 0},
                 {KEY_WHITE_SWITCH, 0},
                 {KEY_SENSOR_FPS, 25},
                 {KEY_IR_AUTO_STRG_NEAR, 10}});
    }
};

std::vector<uint32_t> words(std::initializer_list<uint32_t> w) {
    return std::vector<uint32_t>(w);
}

// --- the key reaches the ISP with its row's command --------------------------

TEST_F(DispatchTest, BrightnessReachesTheIspIsCachedAndIsAnsweredFromTheCache) {
    EXPECT_EQ(ctl->setParameter(KEY_BRIGHTNESS, 60, true), 0);
    const auto calls = ispCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].channel, 0);
    EXPECT_EQ(calls[0].words, words({60}));
    EXPECT_EQ(cached(0, KEY_BRIGHTNESS), 60u);

    sim::Isp::instance().clearTrace();
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(KEY_BRIGHTNESS, value));
    EXPECT_EQ(value, 60);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, IrisSizeKey83GoesOutAsCommand85) {
    EXPECT_EQ(ctl->setParameter(KEY_IRIS_SIZE, 7, true), 0);
    ASSERT_EQ(ispCalls(85).size(), 1u);
    EXPECT_EQ(ispCalls(85)[0].words, words({7}));
    EXPECT_TRUE(ispCalls(83).empty());
    EXPECT_EQ(cached(0, KEY_IRIS_SIZE), 7u);
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(KEY_IRIS_SIZE, value));
    EXPECT_EQ(value, 7);
}

TEST_F(DispatchTest, WhiteSwitchKey170GoesOutAsCommand168) {
    EXPECT_EQ(ctl->setParameter(KEY_WHITE_SWITCH, 1, true), 0);
    ASSERT_EQ(ispCalls(168).size(), 1u);
    EXPECT_EQ(ispCalls(168)[0].words, words({1}));
    EXPECT_TRUE(ispCalls(170).empty());
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(KEY_WHITE_SWITCH, value));
    EXPECT_EQ(value, 1);
}

TEST_F(DispatchTest, SensorFpsKey2497GoesOutAsCommand2464) {
    EXPECT_EQ(ctl->setParameter(KEY_SENSOR_FPS, 30, true), 0);
    ASSERT_EQ(ispCalls(2464).size(), 1u);
    EXPECT_EQ(ispCalls(2464)[0].words, words({30}));
    EXPECT_TRUE(ispCalls(2497).empty());
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(KEY_SENSOR_FPS, value));
    EXPECT_EQ(value, 30);
}

TEST_F(DispatchTest, IspChannelIsCameraIdMinusOne) {
    ctl->setChannelID(3);
    ctl->setParameter(KEY_BRIGHTNESS, 61, true);
    ASSERT_EQ(ispCalls(KEY_BRIGHTNESS).size(), 1u);
    EXPECT_EQ(ispCalls(KEY_BRIGHTNESS)[0].channel, 2);
}

TEST_F(DispatchTest, SetParameterTakesTheMutexAtLine722) {
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    ctl->setParameter(KEY_BRIGHTNESS, 62, true);
    sim::recordMutexEvents(false);
    const auto events = sim::mutexEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), "Lock ISensorController.cpp:722");
}

TEST_F(DispatchTest, GetParameterTakesTheMutexAtLine1021) {
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    int value = 0;
    ctl->getParameter(KEY_BRIGHTNESS, value);
    sim::recordMutexEvents(false);
    const auto events = sim::mutexEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), "Lock ISensorController.cpp:1021");
}

// --- the record loop ---------------------------------------------------------

TEST_F(DispatchTest, CountZeroPrintsOneNewlineAndSucceeds) {
    KeyVal none[1] = {{KEY_BRIGHTNESS, 1}};
    const std::string text =
        captureStdout([&] { EXPECT_EQ(ctl->setParameters(none, 0, true), 0); });
    EXPECT_EQ(text, "\n");
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, EntryEqualToTheCacheIsSkippedWhateverTheIspHolds) {
    sim::Isp::instance().setValue(0, KEY_BRIGHTNESS, 99);
    sim::Isp::instance().clearTrace();
    EXPECT_EQ(ctl->setParameter(KEY_BRIGHTNESS, 50, true), 0);
    EXPECT_TRUE(ispCalls(KEY_BRIGHTNESS).empty());
    uint32_t isp = 0;
    sim::Isp::instance().getValue(0, KEY_BRIGHTNESS, isp);
    EXPECT_EQ(isp, 99u);
}

TEST_F(DispatchTest, SkipLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_BRIGHTNESS, 50, true); });
    EXPECT_NE(text.find("[sensor dbg] file:ISensorController.cpp fun:setParameters line:"),
              std::string::npos);
    EXPECT_NE(text.find("ignore, (34,50) is newest, m_nFlags.switching_flag(0), "
                        "m_nLastScheme(-1), m_nCurScheme(0)!!!\n"),
              std::string::npos)
        << text;
}

TEST_F(DispatchTest, WithoutCacheEqualValueIsSentAndNothingStored) {
    KeyVal kv[2] = {{KEY_BRIGHTNESS, 50}, {KEY_SATURATION, 77}};
    EXPECT_EQ(ctl->setParameters(kv, 2, false), 0);
    EXPECT_EQ(ispCalls(KEY_BRIGHTNESS).size(), 1u);
    EXPECT_EQ(ispCalls(KEY_SATURATION).size(), 1u);
    EXPECT_EQ(cached(0, KEY_SATURATION), 50u);
}

TEST_F(DispatchTest, DuringASwitchEntriesAreComparedWithTheOutgoingScheme) {
    ctl->setKeyValToCache(1, KEY_BRIGHTNESS, 20, false);
    access().setLastScheme(1);
    access().setFlags(ISensorController::switching_flag);
    EXPECT_EQ(ctl->setParameter(KEY_BRIGHTNESS, 20, true), 0);
    EXPECT_TRUE(ispCalls(KEY_BRIGHTNESS).empty());
    EXPECT_EQ(ctl->setParameter(KEY_BRIGHTNESS, 50, true), 0);
    EXPECT_EQ(ispCalls(KEY_BRIGHTNESS).size(), 1u);
}

TEST_F(DispatchTest, HandlerFailureOnSecondOfThreeReturnsItsNegatedKey) {
    sim::Isp::instance().failCommand(KEY_SATURATION, -1);
    KeyVal kv[3] = {{KEY_BRIGHTNESS, 60}, {KEY_SATURATION, 70}, {KEY_CONTRAST, 80}};
    EXPECT_EQ(ctl->setParameters(kv, 3, true), -2337);
    EXPECT_EQ(cached(0, KEY_BRIGHTNESS), 60u);
    EXPECT_EQ(cached(0, KEY_SATURATION), 50u);
    EXPECT_EQ(cached(0, KEY_CONTRAST), 50u);
    EXPECT_TRUE(ispCalls(KEY_CONTRAST).empty());
}

TEST_F(DispatchTest, FailureLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    sim::Isp::instance().failCommand(KEY_SATURATION, -1);
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_SATURATION, 70, true); });
    EXPECT_NE(text.find("[sensor err] file:ISensorController.cpp fun:setParameters line:"),
              std::string::npos);
    EXPECT_NE(text.find("set KEY_SATURATION (2337,70) func:&ISensorController::doIaCmd "
                        "ia_cmd:2337 ~~~failed ia_ret=-1\n"),
              std::string::npos)
        << text;
}

TEST_F(DispatchTest, FailureCodesMinus4AndMinus5AreReportedToo) {
    root.setDebugSign("6\n");
    for (int code : {-4, -5}) {
        sim::Isp::instance().failCommand(KEY_SATURATION, code);
        const std::string text =
            captureStdout([&] { ctl->setParameter(KEY_SATURATION, 70, true); });
        EXPECT_NE(text.find("~~~failed ia_ret=" + std::to_string(code) + "\n"), std::string::npos);
    }
}

TEST_F(DispatchTest, OtherFailureCodeReturnsNegatedKeyWithoutTheErrorLine) {
    root.setDebugSign("6\n");
    sim::Isp::instance().failCommand(KEY_SATURATION, -2);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(KEY_SATURATION, 70, true), -2337); });
    EXPECT_EQ(text.find("[sensor err]"), std::string::npos);
    EXPECT_EQ(text.find("~~~failed"), std::string::npos);
}

TEST_F(DispatchTest, SetLinePrintedBeforeEachHandlerCall) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_IRIS_SIZE, 9, true); });
    EXPECT_NE(text.find("\033[0m\033[31m[sensor dbg] file:ISensorController.cpp fun:setParameters"),
              std::string::npos);
    EXPECT_NE(text.find("====================== set KEY_IRIS_SIZE (83,9) "
                        "func:&ISensorController::doIaCmd ia_cmd:85 =====================\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("p_Parameters22222222222(83, 9)\n"), std::string::npos);
}

TEST_F(DispatchTest, IspCallIsBracketedByBeginAndEndLines) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(KEY_BRIGHTNESS, 61, true); });
    EXPECT_NE(text.find("====================== cmd:34 dir:0 val:61 ======m_nCameraID=(1)"
                        "===============begin\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("====================== cmd:34 dir:0 val:61 =====================end\n"),
              std::string::npos);
}

TEST_F(DispatchTest, FailedStoreIsReportedAndTheLoopGoesOn) {
    root.setDebugSign("6\n");
    KeyVal kv[2] = {{KEY_SHARPNESS, 40}, {KEY_BRIGHTNESS, 61}};
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameters(kv, 2, true), 0); });
    EXPECT_NE(text.find("SET_KEY_VAL FAILED, m_nCurScheme(0), p_pKeyval[0].key(2321), "
                        "p_pKeyval[0].value(40),  maybe jixin\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(ispCalls(KEY_SHARPNESS).size(), 1u);
    EXPECT_EQ(cached(0, KEY_BRIGHTNESS), 61u);
}

// --- the keys the controller keeps --------------------------------------------

TEST_F(DispatchTest, SchemeStartHourIsStoredButNeverSent) {
    EXPECT_EQ(ctl->setParameter(KEY_SCHEME_START_HOUR, 7, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, KEY_SCHEME_START_HOUR), 7u);
}

TEST_F(DispatchTest, SchemeTimeKeysAndPlaceholdersAreStoredOnly) {
    // The style keeps the placeholders only while it hides what they stand
    // for: wide dynamic range once a start-up has seen a 60 fps stream (so a
    // restart of the same controller keeps 10) and beaway while it is hidden
    // (11).
    AVStreamParam fast;
    fast.setFrameRate(60);
    video.setStreams({fast});
    attachVideo();
    const std::vector<KeyVal> layout = coretest::factoryWith({{KEY_EMPTY1, 0}, {KEY_EMPTY2, 0}});
    cam.writeFactoryStyle(layout);
    ctl->uinit();
    ASSERT_TRUE(cam.init(cam.module()));
    cam.writeFactoryStyle(layout);
    ctl->uinit();
    ctl->setShowBeawayFalg(false);
    ASSERT_TRUE(cam.init(cam.module()));
    ASSERT_TRUE(camtest::sameKeyVals(cam.factory(), layout));
    cam.stopWorker();
    sim::Isp::instance().clearTrace();

    KeyVal kv[5] = {{KEY_SCHEME_START_MIN, 1},
                    {KEY_SCHEME_END_HOUR, 2},
                    {KEY_SCHEME_END_MIN, 3},
                    {KEY_EMPTY1, 4},
                    {KEY_EMPTY2, 5}};
    EXPECT_EQ(ctl->setParameters(kv, 5, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, KEY_SCHEME_END_MIN), 3u);
    EXPECT_EQ(cached(0, KEY_EMPTY2), 5u);
}

TEST_F(DispatchTest, SchemeModeInSchemeZeroSetsTimeSchemesAndCopiesToUserSchemes) {
    EXPECT_EQ(ctl->setParameter(KEY_SCHEME_MODE, 1, true), 0);
    EXPECT_TRUE(access().timeScheme());
    EXPECT_FALSE(access().dnScheme());
    for (u32 s = 0; s < 4; ++s)
        EXPECT_EQ(cached(s, KEY_SCHEME_MODE), 1u) << "scheme " << s;
    EXPECT_EQ(cached(4, KEY_SCHEME_MODE), 0u); // the factory slot keeps its own
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, SchemeModeTwoSetsDayNightSchemes) {
    ctl->setParameter(KEY_SCHEME_MODE, 2, true);
    EXPECT_FALSE(access().timeScheme());
    EXPECT_TRUE(access().dnScheme());
    EXPECT_EQ(cached(3, KEY_SCHEME_MODE), 2u);
}

TEST_F(DispatchTest, OtherSchemeModeClearsBothAndCopiesZero) {
    ctl->setParameter(KEY_SCHEME_MODE, 2, true);
    ctl->setParameter(KEY_SCHEME_MODE, 7, true);
    EXPECT_FALSE(access().timeScheme());
    EXPECT_FALSE(access().dnScheme());
    EXPECT_EQ(cached(0, KEY_SCHEME_MODE), 7u);
    EXPECT_EQ(cached(2, KEY_SCHEME_MODE), 0u);
}

TEST_F(DispatchTest, SchemeModeInAnotherSchemeIsOnlyStored) {
    access().setCurScheme(2);
    ctl->setParameter(KEY_SCHEME_MODE, 1, true);
    EXPECT_FALSE(access().timeScheme());
    EXPECT_EQ(cached(2, KEY_SCHEME_MODE), 1u);
    EXPECT_EQ(cached(1, KEY_SCHEME_MODE), 0u);
}

TEST_F(DispatchTest, UnknownKey168IsReportedThenSentAsItsOwnCommand) {
    const std::string text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(168, 5, true), 0); });
    EXPECT_NE(text.find("[sensor assert] file:ISensorController.cpp fun:setParameters"),
              std::string::npos);
    EXPECT_NE(text.find("-1 != findFromKeyCmdMap(m_pKeyCmdMap, p_pKeyval[i].key, stKeyCmdTmp)   "
                        "~~~Assertion failed.\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("p_pKeyval[0].key(168)"), std::string::npos);
    const auto calls = ispCalls(168);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].words, words({5}));
}

TEST_F(DispatchTest, UnknownKeyFallbackRowAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(168, 5, true); });
    EXPECT_NE(text.find("\033[0m\033[32m[sensor dbg]"), std::string::npos);
    EXPECT_NE(text.find("not find (168) \n"), std::string::npos);
    EXPECT_NE(text.find("====================== set unknow key (168,5) "
                        "func:ISensorController::doIaCmd ia_cmd:168 =====================\n"),
              std::string::npos)
        << text;
}

// --- channel 2 ---------------------------------------------------------------

class ThermalChannelTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{KEY_NONE_COLOR_MODE, 0},
                 {KEY_TEMPERATURE_STRIP_SWITCH, 0},
                 {KEY_MIRROR, 0},
                 {KEY_BEAWAY, 0},
                 {KEY_ANTI_SHAKE_SWITCH, 0}},
                2);
        attachVideo();
    }
};

TEST_F(ThermalChannelTest, NoneColourModeGoesToThePipelineOnly) {
    EXPECT_EQ(ctl->setParameter(KEY_NONE_COLOR_MODE, 3, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    const auto notices = video.notices();
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].channel, 2);
    EXPECT_EQ(notices[0].key, 8201);
    EXPECT_EQ(notices[0].value, 3);
    EXPECT_EQ(cached(0, KEY_NONE_COLOR_MODE), 3u);
}

TEST_F(ThermalChannelTest, TemperatureStripGoesToThePipelineAndItsResultIsIgnored) {
    video.setResultForKey(KEY_TEMPERATURE_STRIP_SWITCH, -1);
    EXPECT_EQ(ctl->setParameter(KEY_TEMPERATURE_STRIP_SWITCH, 1, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(cached(0, KEY_TEMPERATURE_STRIP_SWITCH), 1u);
}

TEST_F(ThermalChannelTest, MirrorGoesThroughDoMirrorAndItsResultIsIgnored) {
    sim::Isp::instance().failCommand(KEY_MIRROR, -1);
    EXPECT_EQ(ctl->setParameter(KEY_MIRROR, 1, true), 0);
    EXPECT_EQ(ispCalls(KEY_MIRROR).size(), 1u);
    EXPECT_EQ(cached(0, KEY_MIRROR), 1u);
}

TEST_F(ThermalChannelTest, AntiShakeGoesThroughDoDISAndItsResultIsIgnored) {
    sim::Isp::instance().failCommand(KEY_ANTI_SHAKE_SWITCH, -1);
    EXPECT_EQ(ctl->setParameter(KEY_ANTI_SHAKE_SWITCH, 1, true), 0);
    EXPECT_EQ(ispCalls(KEY_ANTI_SHAKE_SWITCH).size(), 1u);
    EXPECT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(cached(0, KEY_ANTI_SHAKE_SWITCH), 1u);
}

TEST_F(DispatchTest, NoneColourModeOnChannelOneGoesToTheIsp) {
    prepare({{KEY_NONE_COLOR_MODE, 0}});
    attachVideo();
    EXPECT_EQ(ctl->setParameter(KEY_NONE_COLOR_MODE, 3, true), 0);
    EXPECT_EQ(ispCalls(KEY_NONE_COLOR_MODE).size(), 1u);
    EXPECT_TRUE(video.notices().empty());
}

// --- day/night schemes share the day/night keys ----------------------------------

class DayNightSharingTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{KEY_DN_MODE, 0},
                 {KEY_DTN_THR, 60},
                 {KEY_NTD_THR, 20},
                 {KEY_DTN_H, 18},
                 {KEY_DTN_M, 0},
                 {KEY_NTD_H, 6},
                 {KEY_NTD_M, 0}});
        access().setDNScheme(true);
    }
};

TEST_F(DayNightSharingTest, DayNightModeInSchemeZeroIsSentAndCopiedToSchemeOne) {
    EXPECT_EQ(ctl->setParameter(KEY_DN_MODE, 2, true), 0);
    EXPECT_EQ(ispCalls(KEY_DN_MODE).size(), 1u);
    EXPECT_EQ(cached(0, KEY_DN_MODE), 2u);
    EXPECT_EQ(cached(1, KEY_DN_MODE), 2u);
    EXPECT_EQ(cached(2, KEY_DN_MODE), 0u);
}

TEST_F(DayNightSharingTest, ThresholdInSchemeOneIsStoredButNotSent) {
    access().setCurScheme(1);
    EXPECT_EQ(ctl->setParameter(KEY_DTN_THR, 70, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(1, KEY_DTN_THR), 70u);
    EXPECT_EQ(cached(0, KEY_DTN_THR), 60u);
}

TEST_F(DayNightSharingTest, SharedKeysAreOrdinaryWithoutDayNightSchemes) {
    access().setDNScheme(false);
    access().setCurScheme(1);
    EXPECT_EQ(ctl->setParameter(KEY_DTN_M, 30, true), 0);
    EXPECT_EQ(ispCalls(KEY_DTN_M).size(), 1u);
    EXPECT_EQ(cached(0, KEY_DTN_M), 0u);
}

// --- the cache -------------------------------------------------------------------

TEST_F(DispatchTest, FactorySlotIsReadable) {
    ctl->setKeyValToCache(4, KEY_BRIGHTNESS, 44, true);
    u32 value = 0;
    EXPECT_EQ(ctl->getKeyValFromCache(4, KEY_BRIGHTNESS, value), 5);
    EXPECT_EQ(value, 44u);
}

TEST_F(DispatchTest, FactorySlotIsNotWritableWithoutForce) {
    EXPECT_EQ(ctl->setKeyValToCache(4, KEY_BRIGHTNESS, 44, false), -2);
    EXPECT_EQ(cached(4, KEY_BRIGHTNESS), 50u);
    EXPECT_EQ(ctl->setKeyValToCache(4, KEY_BRIGHTNESS, 44, true), 5);
    EXPECT_EQ(cached(4, KEY_BRIGHTNESS), 44u);
}

TEST_F(DispatchTest, ForcedWriteBeyondTheFactorySlotIsRefused) {
    EXPECT_EQ(ctl->setKeyValToCache(5, KEY_BRIGHTNESS, 44, true), -1);
}

TEST_F(DispatchTest, CacheMissLeavesTheValueUntouched) {
    u32 value = 123;
    EXPECT_EQ(ctl->getKeyValFromCache(0, 4242, value), -1);
    EXPECT_EQ(value, 123u);
    EXPECT_EQ(ctl->setKeyValToCache(0, 4242, 1, false), -1);
}

TEST_F(DispatchTest, InvalidSchemeIsReportedAtDebugLevel6) {
    root.setDebugSign("6\n");
    u32 value = 0;
    const std::string text =
        captureStdout([&] { EXPECT_EQ(ctl->getKeyValFromCache(5, KEY_BRIGHTNESS, value), -1); });
    EXPECT_NE(text.find("can not find val, invalid sheme(5) \n"), std::string::npos);
}

TEST_F(DispatchTest, IsKeyValSameIsFalseForAKeyNotCached) {
    EXPECT_FALSE(ctl->isKeyValSame(KeyVal{4242, 0}));
    EXPECT_TRUE(ctl->isKeyValSame(KeyVal{KEY_BRIGHTNESS, 50}));
    EXPECT_FALSE(ctl->isKeyValSame(KeyVal{KEY_BRIGHTNESS, 51}));
}

// --- getParameter ------------------------------------------------------------------

TEST_F(DispatchTest, KeyMissingFromTheCacheIsAskedOfTheIsp) {
    prepare({});
    sim::Isp::instance().setValue(0, KEY_IR_AUTO_STRG_NEAR, 33);
    sim::Isp::instance().clearTrace();
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(KEY_IR_AUTO_STRG_NEAR, value));
    EXPECT_EQ(value, 33);
    EXPECT_EQ(ispCalls(KEY_IR_AUTO_STRG_NEAR, 1).size(), 1u);
}

TEST_F(DispatchTest, InfraredKeysMissingFromTheCacheAnswerMinusOneWithoutTheIsp) {
    for (int key : {160, 161, 163, 165, 167}) {
        int value = 0;
        EXPECT_TRUE(ctl->getParameter(key, value)) << key;
        EXPECT_EQ(value, -1) << key;
    }
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, FailedIspReadIsReportedAndFalse) {
    sim::Isp::instance().failCommand(4000, -1);
    int value = 0;
    std::string text;
    text = captureStdout([&] { EXPECT_FALSE(ctl->getParameter(4000, value)); });
    EXPECT_NE(text.find("SNS_SUCCESS == doIaCmd(p_nKey, IA_CMD_OPT_GET, &p_nVal)   ~~~Assertion "
                        "failed.\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("get key(4000) val from 2a err"), std::string::npos);
}

// The ISP reads into the caller's own value: it is asked with it, and what
// it wrote before refusing reaches the caller.
TEST_F(DispatchTest, RefusedIspReadIsAskedWithTheCallersValueAndHandsBackWhatItWrote) {
    sim::Isp::instance().failCommand(4000, -1);
    int value = 123;
    captureStdout([&] { EXPECT_FALSE(ctl->getParameter(4000, value)); });
    ASSERT_EQ(ispCalls(4000, 1).size(), 1u);
    EXPECT_EQ(ispCalls(4000, 1)[0].words, words({123}));
    EXPECT_EQ(value, 123);

    sim::Isp::instance().clearTrace();
    sim::Isp::instance().failCommandAfterWriting(4000, -1, {77});
    captureStdout([&] { EXPECT_FALSE(ctl->getParameter(4000, value)); });
    EXPECT_EQ(value, 77);
}

// --- doIaCmd and the lens lock ----------------------------------------------------------

TEST_F(DispatchTest, LockedLensSwallowsZoomInAndSendsNothing) {
    access().zoomFocus().setLockZoomFocusEnable(true);
    u32 value = 1;
    EXPECT_EQ(ctl->doIaCmd(1569, 0, &value), 0);
    EXPECT_EQ(ctl->doIaCmd(1536, 0, &value), 0);
    EXPECT_EQ(ctl->doIaCmd(1616, 0, &value), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, LockedLensStillSendsCommandsOutsideTheLensRange) {
    access().zoomFocus().setLockZoomFocusEnable(true);
    u32 value = 1;
    ctl->doIaCmd(1617, 0, &value);
    ctl->doIaCmd(1535, 0, &value);
    EXPECT_EQ(ispCalls(1617).size(), 1u);
    EXPECT_EQ(ispCalls(1535).size(), 1u);
}

TEST_F(DispatchTest, LockedLensSwallowsZoomSetThroughSetParameterAndCachesIt) {
    access().zoomFocus().setLockZoomFocusEnable(true);
    prepare({{KEY_ZOOM_IN, 0}});
    access().zoomFocus().setLockZoomFocusEnable(true);
    EXPECT_EQ(ctl->setParameter(KEY_ZOOM_IN, 1, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, KEY_ZOOM_IN), 1u);
}

TEST_F(DispatchTest, DoIaCmdReturnsTheIspResultUnchanged) {
    sim::Isp::instance().failCommand(KEY_BRIGHTNESS, -7);
    u32 value = 1;
    EXPECT_EQ(ctl->doIaCmd(34, 0, &value), -7);
}

// --- notices, status, version ----------------------------------------------------------

TEST_F(DispatchTest, NotifyWithoutAVideoModuleSucceeds) {
    EXPECT_EQ(ctl->notifyToVideo(KEY_MIRROR, 1), 0);
}

TEST_F(DispatchTest, NotifyUsesTheCameraIdAndReturnsThePipelineResult) {
    attachVideo();
    ctl->setChannelID(3);
    video.setResultForKey(KEY_MIRROR, -9);
    EXPECT_EQ(ctl->notifyToVideo(KEY_MIRROR, 1), -9);
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].channel, 3);
}

TEST_F(DispatchTest, ExecStatusIsReadWithOption4) {
    sim::Isp::instance().setExecStatus(1539, 3);
    int value = 0;
    EXPECT_TRUE(ctl->getCmdExecStatus(1539, value));
    EXPECT_EQ(value, 3);
    EXPECT_EQ(ispCalls(KEY_AUTO_FOCUS_ONCE, 4).size(), 1u);
}

TEST_F(DispatchTest, ExecStatusFailureIsFalse) {
    sim::Isp::instance().failCommand(KEY_AUTO_FOCUS_ONCE, -1);
    int value = 0;
    EXPECT_FALSE(ctl->getCmdExecStatus(1539, value));
}

TEST_F(DispatchTest, ExecStatusLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    int value = 0;
    const std::string text = captureStdout([&] { ctl->getCmdExecStatus(0x603, value); });
    EXPECT_NE(text.find("=================  get exec status cmd(0x603)       value(0)   "
                        "======================\n"),
              std::string::npos)
        << text;
}

// --- paramCheck -----------------------------------------------------------------------

class ParamCheckTest : public ControllerTest {
protected:
    void SetUp() override { prepare({}); }
    int check(u32 startH, u32 startM, u32 endH, u32 endM) {
        ctl->setKeyValToCache(0, KEY_SCHEME_START_HOUR, startH, false);
        ctl->setKeyValToCache(0, KEY_SCHEME_START_MIN, startM, false);
        ctl->setKeyValToCache(0, KEY_SCHEME_END_HOUR, endH, false);
        ctl->setKeyValToCache(0, KEY_SCHEME_END_MIN, endM, false);
        return ctl->paramCheck();
    }
};

TEST_F(ParamCheckTest, Start2359End2400IsValid) {
    EXPECT_EQ(check(23, 59, 24, 0), 0);
}

TEST_F(ParamCheckTest, End2401Is506) {
    EXPECT_EQ(check(23, 59, 24, 1), 506);
}

TEST_F(ParamCheckTest, Start2401Is505) {
    EXPECT_EQ(check(24, 1, 24, 0), 505);
}

TEST_F(ParamCheckTest, StartHour25Is505) {
    EXPECT_EQ(check(25, 0, 24, 0), 505);
}

TEST_F(ParamCheckTest, StartNotBeforeEndIs507) {
    EXPECT_EQ(check(8, 0, 8, 0), 507);
    EXPECT_EQ(check(22, 0, 6, 0), 507);
}

TEST_F(ParamCheckTest, MessagesAtDebugLevel6) {
    root.setDebugSign("6\n");
    std::string text = captureStdout([&] { check(25, 0, 24, 0); });
    EXPECT_NE(text.find("failed!!!! nParamSchemeStartTime(2500)\n"), std::string::npos) << text;
    text = captureStdout([&] { check(1, 0, 24, 1); });
    EXPECT_NE(text.find("failed!!!! nParamSchemeEndTime(2401)\n"), std::string::npos) << text;
    text = captureStdout([&] { check(9, 0, 8, 30); });
    EXPECT_NE(text.find("failed!!!! nParamSchemeStartTime(900) nParamSchemeEndTime(830)\n"),
              std::string::npos)
        << text;
}

TEST_F(ParamCheckTest, HugeHourIsStillOutOfRange) {
    EXPECT_EQ(check(0xFFFFFFFFu, 0, 24, 0), 505);
}

} // namespace
