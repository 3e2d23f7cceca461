// The controller's text entry points: id lists, pair lists and the whole
// current scheme as text.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Camera.h"

using namespace camtest;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

struct TextCamera : Camera {
    TextCamera() {
        EXPECT_TRUE(start());
        stopWorker();
        sim::Isp::instance().clearTrace();
    }
};

std::string pair(u32 p_nKey, u32 p_nValue) {
    return "(" + std::to_string(p_nKey) + "," + std::to_string(p_nValue) + ")";
}

} // namespace

TEST(IdList, MalformedListsAreRejected) {
    Camera cam;
    cam.construct();
    for (const char* szText : {"", "()", "(1)x", "x(1)", "(1)(2)", "(", "1,2", ")"}) {
        std::vector<std::string> vecFields;
        EXPECT_FALSE(cam.ctl->parseSensorParameter(szText, vecFields)) << szText;
    }
}

TEST(IdList, SingleIdAndPairAreAccepted) {
    Camera cam;
    cam.construct();
    std::vector<std::string> vecFields;
    ASSERT_TRUE(cam.ctl->parseSensorParameter("(7)", vecFields));
    EXPECT_EQ(std::vector<std::string>({"7"}), vecFields);
    ASSERT_TRUE(cam.ctl->parseSensorParameter("(34,2337)", vecFields));
    EXPECT_EQ(std::vector<std::string>({"34", "2337"}), vecFields);
}

TEST(IdList, EmptyFieldsArePassedOnAsTheSplitterGivesThem) {
    Camera cam;
    cam.construct();
    std::vector<std::string> vecFields;
    ASSERT_TRUE(cam.ctl->parseSensorParameter("(34,,16)", vecFields));
    ASSERT_EQ(3u, vecFields.size());
    EXPECT_EQ("", vecFields[1]);
}

TEST(PairText, PairsAreAppliedAndCached) {
    TextCamera cam;
    const u32 nBright = cam.value(0, KEY_BRIGHTNESS) + 5;
    const u32 nSat = cam.value(0, KEY_SATURATION) + 6;
    EXPECT_EQ(0, cam.ctl->setParameters(pair(KEY_BRIGHTNESS, nBright) + pair(KEY_SATURATION, nSat),
                                        true));
    const std::vector<sim::IspCall> vecSets = setCalls();
    ASSERT_EQ(2u, vecSets.size());
    EXPECT_EQ(nBright, vecSets[0].words.at(0));
    EXPECT_EQ(nSat, vecSets[1].words.at(0));
    EXPECT_EQ(nBright, cam.value(0, KEY_BRIGHTNESS));
    EXPECT_EQ(nSat, cam.value(0, KEY_SATURATION));
}

TEST(PairText, WithoutCacheThePairIsPushedButNotStored) {
    TextCamera cam;
    const u32 nOld = cam.value(0, KEY_BRIGHTNESS);
    EXPECT_EQ(0, cam.ctl->setParameters(pair(KEY_BRIGHTNESS, nOld + 1), false));
    EXPECT_EQ(1u, setCalls(KEY_BRIGHTNESS).size());
    EXPECT_EQ(nOld, cam.value(0, KEY_BRIGHTNESS));
}

TEST(PairText, EmptyTextAppliesNothing) {
    TextCamera cam;
    EXPECT_EQ(0, cam.ctl->setParameters("", true));
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST(PairText, FailureReturnsTheNegatedKeyAndStops) {
    TextCamera cam;
    sim::Isp::instance().failCommand(KEY_SATURATION, -1);
    const std::string strText = pair(KEY_BRIGHTNESS, cam.value(0, KEY_BRIGHTNESS) + 1) +
                                pair(KEY_SATURATION, cam.value(0, KEY_SATURATION) + 1) +
                                pair(KEY_EXPOSE_MODE, cam.value(0, KEY_EXPOSE_MODE) + 1);
    EXPECT_EQ(-static_cast<int>(KEY_SATURATION), cam.ctl->setParameters(strText, true));
    EXPECT_EQ(1u, callsOf(KEY_BRIGHTNESS, 0));
    EXPECT_EQ(0u, callsOf(KEY_EXPOSE_MODE, 0));
}

TEST(PairText, TextOfTenThousandPairsIsAppliedInFull) {
    TextCamera cam;
    const u32 nBase = cam.value(0, KEY_BRIGHTNESS);
    std::string strText;
    for (u32 i = 1; i <= 10000; ++i)
        strText += pair(KEY_BRIGHTNESS, (nBase + i) % 101);
    ASSERT_GT(10000u, cam.acc->keyValSum());
    EXPECT_EQ(0, cam.ctl->setParameters(strText, true));
    // Each pair differs from the one before it, so each reached the ISP.
    const std::vector<sim::IspCall> vecSets = setCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(10000u, vecSets.size());
    EXPECT_EQ((nBase + 1) % 101, vecSets.front().words.at(0));
    EXPECT_EQ((nBase + 10000) % 101, vecSets.back().words.at(0));
    EXPECT_EQ((nBase + 10000) % 101, cam.value(0, KEY_BRIGHTNESS));
    // The scheme arrays around the scratch array are intact.
    for (u32 s = 1; s < 4; ++s)
        EXPECT_TRUE(sameKeyVals(cam.file(schemeFile(s)), cam.scheme(s))) << s;
}

TEST(PairText, LongTextStopsAtItsFirstFailureLikeOneArray) {
    TextCamera cam;
    sim::Isp::instance().failCommand(KEY_SATURATION, -1);
    std::string strText;
    for (u32 i = 0; i < 500; ++i)
        strText += pair(KEY_BRIGHTNESS, i % 100);
    strText += pair(KEY_SATURATION, 1);
    for (u32 i = 0; i < 500; ++i)
        strText += pair(KEY_EXPOSE_MODE, i % 2);
    EXPECT_EQ(-static_cast<int>(KEY_SATURATION), cam.ctl->setParameters(strText, false));
    EXPECT_EQ(500u, callsOf(KEY_BRIGHTNESS, 0));
    EXPECT_EQ(0u, callsOf(KEY_EXPOSE_MODE, 0));
}

TEST(PairText, MalformedGroupRepeatsThePreviousPair) {
    TextCamera cam;
    const u32 nValue = cam.value(0, KEY_BRIGHTNESS) + 1;
    EXPECT_EQ(0, cam.ctl->setParameters(pair(KEY_BRIGHTNESS, nValue) + "(x)", false));
    const std::vector<sim::IspCall> vecSets = setCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(2u, vecSets.size());
    EXPECT_EQ(nValue, vecSets[1].words.at(0));
}

TEST(PairText, TextIsTracedAtDebugLevel) {
    TextCamera cam;
    cam.root.setDebugSign("6\n");
    CaptureStdout();
    cam.ctl->setParameters("(34,1)", false);
    const std::string strOut = GetCapturedStdout();
    cam.root.clearDebugSign();
    EXPECT_TRUE(contains(strOut, "p_Parameters1111111111((34,1))")) << strOut;
}

TEST(GetParameters, ListedKeysAreReadInOrder) {
    TextCamera cam;
    std::string strOut = "old";
    CaptureStdout();
    ASSERT_TRUE(cam.ctl->getParameters("(2337,34)", strOut));
    const std::string strPrinted = GetCapturedStdout();
    EXPECT_EQ(pair(KEY_SATURATION, cam.value(0, KEY_SATURATION)) +
                  pair(KEY_BRIGHTNESS, cam.value(0, KEY_BRIGHTNESS)),
              strOut);
    EXPECT_TRUE(contains(strPrinted, "@@ out_Parameters = " + strOut + " @@\n"));
}

TEST(GetParameters, UnreadableIdsAreLeftOut) {
    TextCamera cam;
    // 4000 is in no scheme; the ISP refuses it.
    sim::Isp::instance().failCommand(4000, -1);
    std::string strOut;
    ASSERT_TRUE(cam.ctl->getParameters("(4000,34)", strOut));
    EXPECT_EQ(pair(KEY_BRIGHTNESS, cam.value(0, KEY_BRIGHTNESS)), strOut);
}

TEST(GetParameters, MalformedListFailsAndLeavesOutUntouched) {
    TextCamera cam;
    std::string strOut = "untouched";
    CaptureStdout();
    EXPECT_FALSE(cam.ctl->getParameters("(34)(2337)", strOut));
    const std::string strPrinted = GetCapturedStdout();
    EXPECT_EQ("untouched", strOut);
    EXPECT_TRUE(contains(strPrinted, "1053 getParameters fail p_strIds = (34)(2337) \n"))
        << strPrinted;
}

TEST(GetAllParameters, CurrentSchemeIsListedWhole) {
    TextCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(2));
    std::string strOut = "prefix";
    (void)cam.ctl->getAllParameters(strOut);
    std::string strExpected = "prefix";
    for (const KeyVal& kv : cam.scheme(2))
        strExpected += "(" + std::to_string(static_cast<int>(kv.key)) + "," +
                       std::to_string(static_cast<int>(kv.value)) + ")";
    EXPECT_EQ(strExpected, strOut);
}

TEST(GetAllParameters, DynamicValuesAreCorrectedFirst) {
    TextCamera cam;
    // 7 is no shutter the ISP offers; the correction replaces it in the scheme.
    cam.setValue(0, KEY_MAX_SHUTTER, 7);
    std::string strOut;
    (void)cam.ctl->getAllParameters(strOut);
    EXPECT_NE(7u, cam.value(0, KEY_MAX_SHUTTER));
    EXPECT_TRUE(contains(strOut, pair(49, cam.value(0, KEY_MAX_SHUTTER))));
    EXPECT_FALSE(contains(strOut, "(49,7)"));
}

TEST(GetAllParameters, BeforeStartUpGivesNothing) {
    Camera cam;
    cam.construct();
    std::string strOut;
    (void)cam.ctl->getAllParameters(strOut);
    EXPECT_EQ("", strOut);
}
