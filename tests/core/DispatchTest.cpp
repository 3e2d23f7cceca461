// A parameter's path from a key to the ISP and back: the record loop, the
// keys the controller keeps, the cache, the ISP call and the video notices.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/ControllerFixture.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;
using coretest::ispCalls;

class DispatchTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{34, 50}, {2337, 50}, {2353, 50}, {83, 0}, {170, 0}, {2497, 25}, {162, 10}});
    }
};

std::vector<uint32_t> words(std::initializer_list<uint32_t> w) {
    return std::vector<uint32_t>(w);
}

// --- the key reaches the ISP with its row's command --------------------------

TEST_F(DispatchTest, BrightnessReachesTheIspIsCachedAndIsAnsweredFromTheCache) {
    EXPECT_EQ(ctl->setParameter(34, 60, true), 0);
    const auto calls = ispCalls(34);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].channel, 0);
    EXPECT_EQ(calls[0].words, words({60}));
    EXPECT_EQ(cached(0, 34), 60u);

    sim::Isp::instance().clearTrace();
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(34, value));
    EXPECT_EQ(value, 60);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, IrisSizeKey83GoesOutAsCommand85) {
    EXPECT_EQ(ctl->setParameter(83, 7, true), 0);
    ASSERT_EQ(ispCalls(85).size(), 1u);
    EXPECT_EQ(ispCalls(85)[0].words, words({7}));
    EXPECT_TRUE(ispCalls(83).empty());
    EXPECT_EQ(cached(0, 83), 7u);
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(83, value));
    EXPECT_EQ(value, 7);
}

TEST_F(DispatchTest, WhiteSwitchKey170GoesOutAsCommand168) {
    EXPECT_EQ(ctl->setParameter(170, 1, true), 0);
    ASSERT_EQ(ispCalls(168).size(), 1u);
    EXPECT_EQ(ispCalls(168)[0].words, words({1}));
    EXPECT_TRUE(ispCalls(170).empty());
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(170, value));
    EXPECT_EQ(value, 1);
}

TEST_F(DispatchTest, SensorFpsKey2497GoesOutAsCommand2464) {
    EXPECT_EQ(ctl->setParameter(2497, 30, true), 0);
    ASSERT_EQ(ispCalls(2464).size(), 1u);
    EXPECT_EQ(ispCalls(2464)[0].words, words({30}));
    EXPECT_TRUE(ispCalls(2497).empty());
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(2497, value));
    EXPECT_EQ(value, 30);
}

TEST_F(DispatchTest, IspChannelIsCameraIdMinusOne) {
    ctl->setChannelID(3);
    ctl->setParameter(34, 61, true);
    ASSERT_EQ(ispCalls(34).size(), 1u);
    EXPECT_EQ(ispCalls(34)[0].channel, 2);
}

TEST_F(DispatchTest, SetParameterTakesTheMutexAtLine722) {
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    ctl->setParameter(34, 62, true);
    sim::recordMutexEvents(false);
    const auto events = sim::mutexEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), "Lock ISensorController.cpp:722");
}

TEST_F(DispatchTest, GetParameterTakesTheMutexAtLine1021) {
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    int value = 0;
    ctl->getParameter(34, value);
    sim::recordMutexEvents(false);
    const auto events = sim::mutexEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), "Lock ISensorController.cpp:1021");
}

// --- the record loop ---------------------------------------------------------

TEST_F(DispatchTest, CountZeroPrintsOneNewlineAndSucceeds) {
    KeyVal none[1] = {{34, 1}};
    const std::string text =
        captureStdout([&] { EXPECT_EQ(ctl->setParameters(none, 0, true), 0); });
    EXPECT_EQ(text, "\n");
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, EntryEqualToTheCacheIsSkippedWhateverTheIspHolds) {
    sim::Isp::instance().setValue(0, 34, 99);
    sim::Isp::instance().clearTrace();
    EXPECT_EQ(ctl->setParameter(34, 50, true), 0);
    EXPECT_TRUE(ispCalls(34).empty());
    uint32_t isp = 0;
    sim::Isp::instance().getValue(0, 34, isp);
    EXPECT_EQ(isp, 99u);
}

TEST_F(DispatchTest, SkipLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(34, 50, true); });
    EXPECT_NE(text.find("[sensor dbg] file:ISensorController.cpp fun:setParameters line:"),
              std::string::npos);
    EXPECT_NE(text.find("ignore, (34,50) is newest, m_nFlags.switching_flag(0), "
                        "m_nLastScheme(-1), m_nCurScheme(0)!!!\n"),
              std::string::npos)
        << text;
}

TEST_F(DispatchTest, WithoutCacheEqualValueIsSentAndNothingStored) {
    KeyVal kv[2] = {{34, 50}, {2337, 77}};
    EXPECT_EQ(ctl->setParameters(kv, 2, false), 0);
    EXPECT_EQ(ispCalls(34).size(), 1u);
    EXPECT_EQ(ispCalls(2337).size(), 1u);
    EXPECT_EQ(cached(0, 2337), 50u);
}

TEST_F(DispatchTest, DuringASwitchEntriesAreComparedWithTheOutgoingScheme) {
    ctl->setKeyValToCache(1, 34, 20, false);
    access.setLastScheme(1);
    access.setFlags(ISensorController::switching_flag);
    EXPECT_EQ(ctl->setParameter(34, 20, true), 0);
    EXPECT_TRUE(ispCalls(34).empty());
    EXPECT_EQ(ctl->setParameter(34, 50, true), 0);
    EXPECT_EQ(ispCalls(34).size(), 1u);
}

TEST_F(DispatchTest, HandlerFailureOnSecondOfThreeReturnsItsNegatedKey) {
    sim::Isp::instance().failCommand(2337, -1);
    KeyVal kv[3] = {{34, 60}, {2337, 70}, {2353, 80}};
    EXPECT_EQ(ctl->setParameters(kv, 3, true), -2337);
    EXPECT_EQ(cached(0, 34), 60u);
    EXPECT_EQ(cached(0, 2337), 50u);
    EXPECT_EQ(cached(0, 2353), 50u);
    EXPECT_TRUE(ispCalls(2353).empty());
}

TEST_F(DispatchTest, FailureLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    sim::Isp::instance().failCommand(2337, -1);
    const std::string text = captureStdout([&] { ctl->setParameter(2337, 70, true); });
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
        sim::Isp::instance().failCommand(2337, code);
        const std::string text = captureStdout([&] { ctl->setParameter(2337, 70, true); });
        EXPECT_NE(text.find("~~~failed ia_ret=" + std::to_string(code) + "\n"), std::string::npos);
    }
}

TEST_F(DispatchTest, OtherFailureCodeReturnsNegatedKeyWithoutTheErrorLine) {
    root.setDebugSign("6\n");
    sim::Isp::instance().failCommand(2337, -2);
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameter(2337, 70, true), -2337); });
    EXPECT_EQ(text.find("[sensor err]"), std::string::npos);
    EXPECT_EQ(text.find("~~~failed"), std::string::npos);
}

TEST_F(DispatchTest, SetLinePrintedBeforeEachHandlerCall) {
    root.setDebugSign("6\n");
    const std::string text = captureStdout([&] { ctl->setParameter(83, 9, true); });
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
    const std::string text = captureStdout([&] { ctl->setParameter(34, 61, true); });
    EXPECT_NE(text.find("====================== cmd:34 dir:0 val:61 ======m_nCameraID=(1)"
                        "===============begin\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("====================== cmd:34 dir:0 val:61 =====================end\n"),
              std::string::npos);
}

TEST_F(DispatchTest, FailedStoreIsReportedAndTheLoopGoesOn) {
    root.setDebugSign("6\n");
    KeyVal kv[2] = {{2321, 40}, {34, 61}};
    std::string text;
    text = captureStdout([&] { EXPECT_EQ(ctl->setParameters(kv, 2, true), 0); });
    EXPECT_NE(text.find("SET_KEY_VAL FAILED, m_nCurScheme(0), p_pKeyval[0].key(2321), "
                        "p_pKeyval[0].value(40),  maybe jixin\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(ispCalls(2321).size(), 1u);
    EXPECT_EQ(cached(0, 34), 61u);
}

// --- the keys the controller keeps --------------------------------------------

TEST_F(DispatchTest, SchemeStartHourIsStoredButNeverSent) {
    EXPECT_EQ(ctl->setParameter(8001, 7, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, 8001), 7u);
}

TEST_F(DispatchTest, SchemeTimeKeysAndPlaceholdersAreStoredOnly) {
    KeyVal kv[5] = {{8002, 1}, {8003, 2}, {8004, 3}, {10, 4}, {11, 5}};
    std::vector<KeyVal> extra = {{10, 0}, {11, 0}};
    access.releaseSchemes();
    prepare(extra);
    EXPECT_EQ(ctl->setParameters(kv, 5, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, 8004), 3u);
    EXPECT_EQ(cached(0, 11), 5u);
}

TEST_F(DispatchTest, SchemeModeInSchemeZeroSetsTimeSchemesAndCopiesToUserSchemes) {
    EXPECT_EQ(ctl->setParameter(8000, 1, true), 0);
    EXPECT_TRUE(access.timeScheme());
    EXPECT_FALSE(access.dnScheme());
    for (u32 s = 0; s < 4; ++s)
        EXPECT_EQ(cached(s, 8000), 1u) << "scheme " << s;
    EXPECT_EQ(cached(4, 8000), 0u); // the factory slot keeps its own
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, SchemeModeTwoSetsDayNightSchemes) {
    ctl->setParameter(8000, 2, true);
    EXPECT_FALSE(access.timeScheme());
    EXPECT_TRUE(access.dnScheme());
    EXPECT_EQ(cached(3, 8000), 2u);
}

TEST_F(DispatchTest, OtherSchemeModeClearsBothAndCopiesZero) {
    ctl->setParameter(8000, 2, true);
    ctl->setParameter(8000, 7, true);
    EXPECT_FALSE(access.timeScheme());
    EXPECT_FALSE(access.dnScheme());
    EXPECT_EQ(cached(0, 8000), 7u);
    EXPECT_EQ(cached(2, 8000), 0u);
}

TEST_F(DispatchTest, SchemeModeInAnotherSchemeIsOnlyStored) {
    access.setCurScheme(2);
    ctl->setParameter(8000, 1, true);
    EXPECT_FALSE(access.timeScheme());
    EXPECT_EQ(cached(2, 8000), 1u);
    EXPECT_EQ(cached(1, 8000), 0u);
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
        prepare({{8201, 0}, {8217, 0}, {2384, 0}, {2385, 0}, {2416, 0}});
        ctl->setChannelID(2);
        attachVideo();
    }
};

TEST_F(ThermalChannelTest, NoneColourModeGoesToThePipelineOnly) {
    EXPECT_EQ(ctl->setParameter(8201, 3, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    const auto notices = video.notices();
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].channel, 2);
    EXPECT_EQ(notices[0].key, 8201);
    EXPECT_EQ(notices[0].value, 3);
    EXPECT_EQ(cached(0, 8201), 3u);
}

TEST_F(ThermalChannelTest, TemperatureStripGoesToThePipelineAndItsResultIsIgnored) {
    video.setResultForKey(8217, -1);
    EXPECT_EQ(ctl->setParameter(8217, 1, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(cached(0, 8217), 1u);
}

TEST_F(ThermalChannelTest, MirrorGoesThroughDoMirrorAndItsResultIsIgnored) {
    sim::Isp::instance().failCommand(2384, -1);
    EXPECT_EQ(ctl->setParameter(2384, 1, true), 0);
    EXPECT_EQ(ispCalls(2384).size(), 1u);
    EXPECT_EQ(cached(0, 2384), 1u);
}

TEST_F(ThermalChannelTest, AntiShakeGoesThroughDoDISAndItsResultIsIgnored) {
    sim::Isp::instance().failCommand(2416, -1);
    EXPECT_EQ(ctl->setParameter(2416, 1, true), 0);
    EXPECT_EQ(ispCalls(2416).size(), 1u);
    EXPECT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(cached(0, 2416), 1u);
}

TEST_F(DispatchTest, NoneColourModeOnChannelOneGoesToTheIsp) {
    access.releaseSchemes();
    prepare({{8201, 0}});
    attachVideo();
    EXPECT_EQ(ctl->setParameter(8201, 3, true), 0);
    EXPECT_EQ(ispCalls(8201).size(), 1u);
    EXPECT_TRUE(video.notices().empty());
}

// --- day/night schemes share the day/night keys ----------------------------------

class DayNightSharingTest : public ControllerTest {
protected:
    void SetUp() override {
        prepare({{144, 0}, {145, 60}, {146, 20}, {149, 18}, {150, 0}, {151, 6}, {152, 0}});
        access.setDNScheme(true);
    }
};

TEST_F(DayNightSharingTest, DayNightModeInSchemeZeroIsSentAndCopiedToSchemeOne) {
    EXPECT_EQ(ctl->setParameter(144, 2, true), 0);
    EXPECT_EQ(ispCalls(144).size(), 1u);
    EXPECT_EQ(cached(0, 144), 2u);
    EXPECT_EQ(cached(1, 144), 2u);
    EXPECT_EQ(cached(2, 144), 0u);
}

TEST_F(DayNightSharingTest, ThresholdInSchemeOneIsStoredButNotSent) {
    access.setCurScheme(1);
    EXPECT_EQ(ctl->setParameter(145, 70, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(1, 145), 70u);
    EXPECT_EQ(cached(0, 145), 60u);
}

TEST_F(DayNightSharingTest, SharedKeysAreOrdinaryWithoutDayNightSchemes) {
    access.setDNScheme(false);
    access.setCurScheme(1);
    EXPECT_EQ(ctl->setParameter(150, 30, true), 0);
    EXPECT_EQ(ispCalls(150).size(), 1u);
    EXPECT_EQ(cached(0, 150), 0u);
}

// --- the cache -------------------------------------------------------------------

TEST_F(DispatchTest, FactorySlotIsReadable) {
    ctl->setKeyValToCache(4, 34, 44, true);
    u32 value = 0;
    EXPECT_EQ(ctl->getKeyValFromCache(4, 34, value), 5);
    EXPECT_EQ(value, 44u);
}

TEST_F(DispatchTest, FactorySlotIsNotWritableWithoutForce) {
    EXPECT_EQ(ctl->setKeyValToCache(4, 34, 44, false), -2);
    EXPECT_EQ(cached(4, 34), 50u);
    EXPECT_EQ(ctl->setKeyValToCache(4, 34, 44, true), 5);
    EXPECT_EQ(cached(4, 34), 44u);
}

TEST_F(DispatchTest, ForcedWriteBeyondTheFactorySlotIsRefused) {
    EXPECT_EQ(ctl->setKeyValToCache(5, 34, 44, true), -1);
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
        captureStdout([&] { EXPECT_EQ(ctl->getKeyValFromCache(5, 34, value), -1); });
    EXPECT_NE(text.find("can not find val, invalid sheme(5) \n"), std::string::npos);
}

TEST_F(DispatchTest, IsKeyValSameIsFalseForAKeyNotCached) {
    EXPECT_FALSE(ctl->isKeyValSame(KeyVal{4242, 0}));
    EXPECT_TRUE(ctl->isKeyValSame(KeyVal{34, 50}));
    EXPECT_FALSE(ctl->isKeyValSame(KeyVal{34, 51}));
}

// --- getParameter ------------------------------------------------------------------

TEST_F(DispatchTest, KeyMissingFromTheCacheIsAskedOfTheIsp) {
    access.releaseSchemes();
    prepare({});
    sim::Isp::instance().setValue(0, 162, 33);
    sim::Isp::instance().clearTrace();
    int value = 0;
    EXPECT_TRUE(ctl->getParameter(162, value));
    EXPECT_EQ(value, 33);
    EXPECT_EQ(ispCalls(162, 1).size(), 1u);
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

// --- doIaCmd and the lens lock ----------------------------------------------------------

TEST_F(DispatchTest, LockedLensSwallowsZoomInAndSendsNothing) {
    access.zoomFocus().setLockZoomFocusEnable(true);
    u32 value = 1;
    EXPECT_EQ(ctl->doIaCmd(1569, 0, &value), 0);
    EXPECT_EQ(ctl->doIaCmd(1536, 0, &value), 0);
    EXPECT_EQ(ctl->doIaCmd(1616, 0, &value), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST_F(DispatchTest, LockedLensStillSendsCommandsOutsideTheLensRange) {
    access.zoomFocus().setLockZoomFocusEnable(true);
    u32 value = 1;
    ctl->doIaCmd(1617, 0, &value);
    ctl->doIaCmd(1535, 0, &value);
    EXPECT_EQ(ispCalls(1617).size(), 1u);
    EXPECT_EQ(ispCalls(1535).size(), 1u);
}

TEST_F(DispatchTest, LockedLensSwallowsZoomSetThroughSetParameterAndCachesIt) {
    access.zoomFocus().setLockZoomFocusEnable(true);
    access.releaseSchemes();
    prepare({{1569, 0}});
    access.zoomFocus().setLockZoomFocusEnable(true);
    EXPECT_EQ(ctl->setParameter(1569, 1, true), 0);
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_EQ(cached(0, 1569), 1u);
}

TEST_F(DispatchTest, DoIaCmdReturnsTheIspResultUnchanged) {
    sim::Isp::instance().failCommand(34, -7);
    u32 value = 1;
    EXPECT_EQ(ctl->doIaCmd(34, 0, &value), -7);
}

// --- notices, status, version ----------------------------------------------------------

TEST_F(DispatchTest, NotifyWithoutAVideoModuleSucceeds) {
    EXPECT_EQ(ctl->notifyToVideo(2384, 1), 0);
}

TEST_F(DispatchTest, NotifyUsesTheCameraIdAndReturnsThePipelineResult) {
    attachVideo();
    ctl->setChannelID(3);
    video.setResultForKey(2384, -9);
    EXPECT_EQ(ctl->notifyToVideo(2384, 1), -9);
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].channel, 3);
}

TEST_F(DispatchTest, ExecStatusIsReadWithOption4) {
    sim::Isp::instance().setExecStatus(1539, 3);
    int value = 0;
    EXPECT_TRUE(ctl->getCmdExecStatus(1539, value));
    EXPECT_EQ(value, 3);
    EXPECT_EQ(ispCalls(1539, 4).size(), 1u);
}

TEST_F(DispatchTest, ExecStatusFailureIsFalse) {
    sim::Isp::instance().failCommand(1539, -1);
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
        ctl->setKeyValToCache(0, 8001, startH, false);
        ctl->setKeyValToCache(0, 8002, startM, false);
        ctl->setKeyValToCache(0, 8003, endH, false);
        ctl->setKeyValToCache(0, 8004, endM, false);
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
