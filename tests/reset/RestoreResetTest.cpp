// Restoring one key, the saved scheme or the factory values, and the ISP's
// sensor self-check.
#include <gtest/gtest.h>

#include <glob.h>
#include <sys/stat.h>
#include <time.h>

#include <string>
#include <vector>

#include "tests/support/Camera.h"

using namespace camtest;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const int SENSOR_CHECK_CMD = 2816;

struct ResetCamera : Camera {
    ResetCamera() {
        EXPECT_TRUE(start());
        stopWorker();
        sim::Isp::instance().clearTrace();
    }
};

std::vector<std::string> storedSchemeFiles(const Camera& cam) {
    std::vector<std::string> vecOut;
    glob_t stGlob;
    const std::string strPattern = cam.root.real("/mnt/mtd/code/config*/sensor*");
    if (glob(strPattern.c_str(), 0, nullptr, &stGlob) == 0) {
        for (size_t i = 0; i < stGlob.gl_pathc; ++i)
            vecOut.push_back(stGlob.gl_pathv[i]);
    }
    globfree(&stGlob);
    return vecOut;
}

bool notBefore(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec > b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec >= b.tv_nsec);
}

} // namespace

TEST(Restore, StoredValueIsPushedEvenWhenTheIspHoldsIt) {
    ResetCamera cam;
    const u32 nStored = cam.value(0, KEY_BRIGHTNESS);
    sim::Isp::instance().setValue(0, KEY_BRIGHTNESS, nStored);
    EXPECT_EQ(SNS_SUCCESS, cam.ctl->restore(KEY_BRIGHTNESS));
    const std::vector<sim::IspCall> vecSets = setCalls();
    ASSERT_EQ(1u, vecSets.size());
    EXPECT_EQ(static_cast<int>(KEY_BRIGHTNESS), vecSets[0].cmd);
    EXPECT_EQ(nStored, vecSets[0].words.at(0));
}

TEST(Restore, KeyNotInTheSchemeIsReportedAndGivesMinusOne) {
    ResetCamera cam;
    EXPECT_EQ(-1, cam.ctl->restore(4000));
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
    EXPECT_TRUE(contains(cam.errorLog(), "-1 != nPos"));
    EXPECT_TRUE(
        contains(cam.errorLog(), "restore key(4000) failed! make sure it is sensor ui key"));
}

TEST(Restore, IspFailureGivesTheNegatedKey) {
    ResetCamera cam;
    sim::Isp::instance().failCommand(KEY_BRIGHTNESS, -1);
    EXPECT_EQ(-static_cast<int>(KEY_BRIGHTNESS), cam.ctl->restore(KEY_BRIGHTNESS));
}

TEST(Restore, AeModeRestoresExposureThenAutofocusMode) {
    ResetCamera cam;
    const bool bHasFocusMode = cam.indexOf(KEY_AUTO_FOCUS_MODE) >= 0;
    EXPECT_EQ(bHasFocusMode, cam.ctl->restoreAeMode());
    const std::vector<sim::IspCall> vecSets = setCalls();
    ASSERT_EQ(bHasFocusMode ? 2u : 1u, vecSets.size());
    EXPECT_EQ(static_cast<int>(KEY_EXPOSE_MODE), vecSets[0].cmd);
    if (bHasFocusMode) {
        EXPECT_EQ(static_cast<int>(KEY_AUTO_FOCUS_MODE), vecSets[1].cmd);
    }
}

TEST(Restore, AeModeStopsWhenExposureFails) {
    ResetCamera cam;
    sim::Isp::instance().failCommand(KEY_EXPOSE_MODE, -1);
    EXPECT_FALSE(cam.ctl->restoreAeMode());
    EXPECT_EQ(0u, callsOf(KEY_AUTO_FOCUS_MODE, 0));
}

TEST(ResetToLast, FactorySchemeIndexTouchesNothing) {
    ResetCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(4));
    sim::Isp::instance().clearTrace();
    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST(ResetToLast, FactorySchemeIndexLeavesTheHostMutexAlone) {
    ResetCamera cam;
    ASSERT_TRUE(cam.ctl->setParamScheme(4));
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    sim::recordMutexEvents(false);
    EXPECT_EQ(std::vector<std::string>{}, sim::mutexEvents());
}

TEST(ResetToLast, OnlyKeysWhoseSavedValueDiffersArePushed) {
    ResetCamera cam;
    const u32 nSaved = cam.value(0, KEY_BRIGHTNESS);
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(nSaved + 9)));
    sim::Isp::instance().clearTrace();
    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    const std::vector<sim::IspCall> vecSets = setCalls();
    ASSERT_EQ(1u, vecSets.size());
    EXPECT_EQ(static_cast<int>(KEY_BRIGHTNESS), vecSets[0].cmd);
    EXPECT_EQ(nSaved, vecSets[0].words.at(0));
    EXPECT_EQ(nSaved, cam.value(0, KEY_BRIGHTNESS));
    EXPECT_FALSE(cam.acc->flags() & ISensorController::restoring_flag);
}

TEST(ResetToLast, ChannelTwoReadsItsThermalFile) {
    Camera cam;
    ASSERT_TRUE(cam.start(2));
    cam.stopWorker();
    std::vector<KeyVal> vecSaved = cam.scheme(0);
    const int nIndex = cam.indexOf(KEY_BRIGHTNESS);
    vecSaved[nIndex].value += 4;
    cam.root.write(schemeFile(0, 2), toBytes(vecSaved));
    sim::Isp::instance().clearTrace();
    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    EXPECT_EQ(vecSaved[nIndex].value, cam.value(0, KEY_BRIGHTNESS));
}

// The set calls of one command, in order, as the values sent.
std::vector<u32> valuesSent(int p_nCmd) {
    std::vector<u32> vecOut;
    for (const sim::IspCall& stCall : setCalls(p_nCmd))
        vecOut.push_back(stCall.words.at(0));
    return vecOut;
}

TEST(ResetToLast, MissingFileRightAfterStartUpPushesNothing) {
    ResetCamera cam;
    cam.root.remove(schemeFile(0));
    sim::Isp::instance().clearTrace();
    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    // The scratch array still holds the scheme start-up applied: every value
    // equals the cache, and no empty row reaches the ISP as command 0.
    EXPECT_TRUE(setCalls().empty());
    EXPECT_TRUE(setCalls(0).empty());
    EXPECT_TRUE(contains(cam.errorLog(), "file.open(file_name)"));
    EXPECT_FALSE(cam.acc->flags() & ISensorController::restoring_flag);
}

TEST(ResetToLast, MissingFileReappliesWhatTheLastTextLeftInTheScratchArray) {
    ResetCamera cam;
    const std::vector<KeyVal> vecStart = cam.scheme(0);
    const int nBright = cam.indexOf(KEY_BRIGHTNESS);
    const int nSat = cam.indexOf(KEY_SATURATION);
    // The text fills the scratch array's first two rows; the rows of both
    // keys in the start-up copy lie beyond them.
    ASSERT_GE(nBright, 2);
    ASSERT_GE(nSat, 2);
    const u32 nBrightStart = vecStart[nBright].value;
    const u32 nSatStart = vecStart[nSat].value;
    ASSERT_NE(1u, nBrightStart);
    ASSERT_NE(2u, nSatStart);
    ASSERT_EQ(0, cam.ctl->setParameters("(34,1)(2337,2)", true));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, 9));
    cam.root.remove(schemeFile(0));
    sim::Isp::instance().clearTrace();

    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    // Row 0 (34,1) differs from the cache (9); row 1 (2337,2) does not; the
    // start-up rows of both keys then differ from what the text left.
    EXPECT_EQ((std::vector<u32>{1u, nBrightStart}), valuesSent(static_cast<int>(KEY_BRIGHTNESS)));
    EXPECT_EQ((std::vector<u32>{nSatStart}), valuesSent(static_cast<int>(KEY_SATURATION)));
    EXPECT_EQ(3u, setCalls().size());
    EXPECT_EQ(nBrightStart, cam.value(0, KEY_BRIGHTNESS));
    EXPECT_EQ(nSatStart, cam.value(0, KEY_SATURATION));
    EXPECT_TRUE(contains(cam.errorLog(), "file.open(file_name)"));
    EXPECT_FALSE(cam.acc->flags() & ISensorController::restoring_flag);
}

TEST(ResetToLast, ShortFileReappliesItsHeadThenTheScratchArraysTail) {
    ResetCamera cam;
    const int nBright = cam.indexOf(KEY_BRIGHTNESS);
    const int nSat = cam.indexOf(KEY_SATURATION);
    ASSERT_LT(nBright, nSat);
    std::vector<KeyVal> vecHead = cam.scheme(0);
    const u32 nBrightSaved = vecHead[nBright].value;
    const u32 nSatStart = vecHead[nSat].value;
    vecHead.resize(static_cast<size_t>(nBright) + 1);
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(nBrightSaved + 2)));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SATURATION, static_cast<int>(nSatStart + 3)));
    cam.root.write(schemeFile(0), toBytes(vecHead));
    sim::Isp::instance().clearTrace();
    EXPECT_TRUE(cam.ctl->resetToLastParameters());
    // Brightness comes from the file's head; saturation, beyond the head,
    // from the scratch array's start-up rows.
    EXPECT_EQ((std::vector<u32>{nBrightSaved}), valuesSent(static_cast<int>(KEY_BRIGHTNESS)));
    EXPECT_EQ((std::vector<u32>{nSatStart}), valuesSent(static_cast<int>(KEY_SATURATION)));
    EXPECT_EQ(2u, setCalls().size());
}

TEST(FactoryReset, NoSchemeFilePredatesTheCall) {
    ResetCamera cam;
    cam.root.write("/mnt/mtd/code/config_file/sensor9.cfg", "left over");
    struct timespec stStart;
    clock_gettime(CLOCK_REALTIME_COARSE, &stStart);
    (void)cam.ctl->resetParameters();
    EXPECT_FALSE(cam.root.exists("/mnt/mtd/code/config_file/sensor9.cfg"));
    const std::vector<std::string> vecFiles = storedSchemeFiles(cam);
    EXPECT_EQ(4u, vecFiles.size());
    for (const std::string& strFile : vecFiles) {
        struct stat st;
        ASSERT_EQ(0, stat(strFile.c_str(), &st)) << strFile;
        EXPECT_TRUE(notBefore(st.st_mtim, stStart)) << strFile;
    }
    int nScheme = -1;
    (void)cam.ctl->getParamScheme(nScheme);
    EXPECT_EQ(0, nScheme);
}

TEST(FactoryReset, EverySchemeEqualsTheFactoryValues) {
    ResetCamera cam;
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS,
                                       static_cast<int>(cam.value(0, KEY_BRIGHTNESS) + 3)));
    ASSERT_EQ(SNS_SUCCESS, cam.ctl->flush());
    cam.setValue(2, KEY_SATURATION, cam.value(2, KEY_SATURATION) + 5);
    cam.root.write(schemeFile(2), toBytes(cam.scheme(2)));
    ASSERT_TRUE(cam.ctl->setParamScheme(2));

    (void)cam.ctl->resetParameters();
    for (u32 s = 0; s < 4; ++s) {
        EXPECT_TRUE(sameKeyVals(cam.factory(), cam.scheme(s))) << s;
        EXPECT_TRUE(sameKeyVals(cam.factory(), cam.file(schemeFile(s)))) << s;
    }
    EXPECT_EQ(0, cam.acc->curScheme());
    EXPECT_EQ(std::string("\x08\x00\x00\x00", 4), cam.root.read(SENSOR_VERSION_FILE));
}

TEST(FactoryReset, FactoryValuesArePushedAndFilesRemovedThroughTheShell) {
    ResetCamera cam;
    const u32 nFactory = cam.value(4, KEY_BRIGHTNESS);
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(nFactory + 3)));
    sim::Isp::instance().clearTrace();
    sim::clearSystemCommands();
    (void)cam.ctl->resetParameters();
    const std::vector<sim::IspCall> vecSets = setCalls(KEY_BRIGHTNESS);
    ASSERT_FALSE(vecSets.empty());
    EXPECT_EQ(nFactory, vecSets.front().words.at(0));
    bool bRemoved = false;
    for (const std::string& strCommand : sim::systemCommands())
        bRemoved |=
            contains(strCommand, "rm -rf") && contains(strCommand, "/mnt/mtd/code/config*/sensor*");
    EXPECT_TRUE(bRemoved);
}

TEST(FactoryReset, ControllerRunsAgainFromItsModuleDescription) {
    ResetCamera cam;
    const u32 nModuleId = cam.ctl->getSensorType();
    (void)cam.ctl->setParamMode(0);
    (void)cam.ctl->resetParameters();
    EXPECT_EQ(nModuleId, cam.ctl->getSensorType());
    EXPECT_EQ(4u, cam.acc->schemeSum());
    EXPECT_TRUE(sim::threadRunning(*cam.acc->sensorThread()));
    EXPECT_EQ(ISensorController::inited_flag, cam.acc->flags());
    int nMode = -1;
    (void)cam.ctl->getParamMode(nMode);
    EXPECT_EQ(1, nMode);
}

TEST(FactoryReset, RunningWorkerFollowsDayAndNightAfterReset) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    (void)cam.ctl->resetParameters();
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SCHEME_MODE, 2));
    sim::Isp::instance().setDayNight(0, 1);
    EXPECT_TRUE(eventually([&] { return cam.acc->curScheme() == 1; }));
}

TEST(SensorCheck, ReadGivesTheIspNumberAsText) {
    ResetCamera cam;
    std::string strText = "(1,2,3)";
    EXPECT_EQ(0, cam.ctl->SensorCheck(strText));
    EXPECT_EQ("1", strText);
    ASSERT_EQ(1u, callsOf(SENSOR_CHECK_CMD, 1));
}

TEST(SensorCheck, WriteLeavesTheTextUnchanged) {
    ResetCamera cam;
    std::string strText = "(1,0,3)";
    EXPECT_EQ(0, cam.ctl->SensorCheck(strText));
    EXPECT_EQ("(1,0,3)", strText);
    const std::vector<sim::IspCall> vecSets = setCalls(SENSOR_CHECK_CMD);
    ASSERT_EQ(1u, vecSets.size());
    ASSERT_GE(vecSets[0].words.size(), 3u);
    EXPECT_EQ(1u, vecSets[0].words[0]);
    EXPECT_EQ(0u, vecSets[0].words[1]);
    EXPECT_EQ(3u, vecSets[0].words[2]);
    EXPECT_EQ(0, vecSets[0].channel);
}

TEST(SensorCheck, IspResultIsReturned) {
    ResetCamera cam;
    sim::Isp::instance().failCommand(SENSOR_CHECK_CMD, -4);
    std::string strText = "(1,0,3)";
    EXPECT_EQ(-4, cam.ctl->SensorCheck(strText));
}

TEST(SensorCheck, MalformedTextGivesZeroAndAMessage) {
    ResetCamera cam;
    std::string strText = "1,2,3";
    CaptureStdout();
    EXPECT_EQ(0, cam.ctl->SensorCheck(strText));
    const std::string strOut = GetCapturedStdout();
    EXPECT_TRUE(contains(strOut, "1496 getParameters fail p_strIds = 1,2,3 \n")) << strOut;
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

TEST(SensorCheck, MissingNumbersCountAsZero) {
    ResetCamera cam;
    std::string strText = "(5)";
    EXPECT_EQ(0, cam.ctl->SensorCheck(strText));
    const std::vector<sim::IspCall> vecSets = setCalls(SENSOR_CHECK_CMD);
    ASSERT_EQ(1u, vecSets.size());
    EXPECT_EQ(5u, vecSets[0].words.at(0));
    EXPECT_EQ(0u, vecSets[0].words.at(1));
}
