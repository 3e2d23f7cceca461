// Start-up and shut-down of a controller on the simulated camera.
#include <gtest/gtest.h>

#include <malloc.h>

#include <cstdlib>

#include <string>
#include <vector>

#include "tests/support/Camera.h"
#include "tests/support/FilesTestSupport.h"

using namespace camtest;

namespace {

const char* const kRemoveCommandTail = "/mnt/mtd/code/config*/sensor*";

std::string versionBytes(u32 p_nVersion) {
    return std::string(reinterpret_cast<const char*>(&p_nVersion), sizeof(p_nVersion));
}

bool removeCommandRan() {
    for (const std::string& strCommand : sim::systemCommands()) {
        if (contains(strCommand, "rm -rf") && contains(strCommand, kRemoveCommandTail))
            return true;
    }
    return false;
}

AVStreamParam stream(int p_nFps, int p_nEncoder, int p_nHeight) {
    AVStreamParam objStream;
    objStream.setFrameRate(p_nFps);
    objStream.setVideoEncoderType(p_nEncoder);
    objStream.setVideoHeight(p_nHeight);
    return objStream;
}

void writeMachineInfo(const Camera& cam, int p_nDeviceType, const std::string& p_strModel) {
    MachineInfo objInfo;
    (void)SystemInfoParser::parseMachineInfo(cam.root.real(SENSOR_MACHINE_INFO_FILE), objInfo);
    cam.root.write(SENSOR_MACHINE_INFO_FILE,
                   "[machine]\ndevice_type=" + std::to_string(p_nDeviceType) + "\nhardware_model=" +
                       p_strModel + "\nhardware_code=" + objInfo.getHardwareCode() + "\n");
}

std::string hardwareModel(const Camera& cam) {
    MachineInfo objInfo;
    (void)SystemInfoParser::parseMachineInfo(cam.root.real(SENSOR_MACHINE_INFO_FILE), objInfo);
    return objInfo.getHardwareModel();
}

// The sample module with its detail replaced.
ModuleConfigure moduleWithDetail(const Camera& cam, const std::string& p_strDetail) {
    ModuleConfigure objModule = cam.module();
    objModule.setDetail(p_strDetail);
    return objModule;
}

} // namespace

TEST(Startup, SampleTreeStartsWithFourSchemeFilesStampAndSchemeZero) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(cam.ctl->getSensorStatus());
    EXPECT_EQ(4u, cam.acc->schemeSum());
    EXPECT_GT(cam.acc->keyValSum(), 5u);
    for (int s = 0; s < 4; ++s) {
        ASSERT_TRUE(cam.root.exists(schemeFile(s))) << s;
        EXPECT_TRUE(sameKeyVals(cam.scheme(s), cam.file(schemeFile(s)))) << s;
    }
    EXPECT_FALSE(cam.root.exists(schemeFile(4)));
    EXPECT_EQ(versionBytes(8), cam.root.read(SENSOR_VERSION_FILE));
    EXPECT_EQ(0, cam.acc->curScheme());
    EXPECT_EQ(138u, cam.acc->keyCmdNum());
    EXPECT_TRUE(sim::threadRunning(*cam.acc->sensorThread()));
    // Start-up flags: only inited.
    EXPECT_EQ(ISensorController::inited_flag, cam.acc->flags());
}

TEST(Startup, SchemeZeroIsPushedToTheIsp) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    const int nIndex = cam.indexOf(KEY_BRIGHTNESS);
    ASSERT_GE(nIndex, 0);
    const std::vector<sim::IspCall> vecCalls = setCalls(KEY_BRIGHTNESS);
    ASSERT_FALSE(vecCalls.empty());
    EXPECT_EQ(cam.value(0, KEY_BRIGHTNESS), vecCalls.back().words.at(0));
}

TEST(Startup, NewSchemeFilesHoldFactoryValuesWithFixedSchemeMode) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    std::vector<KeyVal> vecExpected = cam.factory();
    ASSERT_EQ(KEY_SCHEME_MODE, vecExpected[0].key);
    EXPECT_EQ(0u, vecExpected[0].value);
    for (int s = 0; s < 4; ++s)
        EXPECT_TRUE(sameKeyVals(vecExpected, cam.file(schemeFile(s)))) << s;
}

TEST(Startup, MissingVersionStampDeletesAndRecreatesSchemeFiles) {
    Camera cam;
    cam.root.write(schemeFile(0), "stale");
    cam.root.write(schemeFile(2), "stale too");
    cam.root.remove(SENSOR_VERSION_FILE);
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(removeCommandRan());
    for (int s = 0; s < 4; ++s)
        EXPECT_TRUE(sameKeyVals(cam.factory(), cam.file(schemeFile(s)))) << s;
    EXPECT_EQ(versionBytes(8), cam.root.read(SENSOR_VERSION_FILE));
}

TEST(Startup, DifferentVersionStampDeletesStoredFiles) {
    Camera cam;
    cam.root.write(SENSOR_VERSION_FILE, versionBytes(7));
    cam.root.write(schemeFile(1), "stale");
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(removeCommandRan());
    EXPECT_TRUE(sameKeyVals(cam.factory(), cam.file(schemeFile(1))));
    EXPECT_TRUE(sameKeyVals(cam.factory(), cam.scheme(1)));
    EXPECT_EQ(versionBytes(8), cam.root.read(SENSOR_VERSION_FILE));
}

TEST(Startup, ShortVersionStampCountsAsDifferent) {
    Camera cam;
    cam.root.write(SENSOR_VERSION_FILE, std::string("\x08\x00", 2));
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(removeCommandRan());
    EXPECT_EQ(versionBytes(8), cam.root.read(SENSOR_VERSION_FILE));
}

TEST(Startup, MatchingStampKeepsSavedSchemes) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.setValue(2, KEY_BRIGHTNESS, cam.value(2, KEY_BRIGHTNESS) + 7);
    const std::vector<KeyVal> vecSaved = cam.scheme(2);
    cam.root.write(schemeFile(2), toBytes(vecSaved));
    cam.ctl->uinit();

    sim::clearSystemCommands();
    ASSERT_TRUE(cam.start());
    EXPECT_FALSE(removeCommandRan());
    EXPECT_TRUE(sameKeyVals(vecSaved, cam.scheme(2)));
}

TEST(Startup, ShortSchemeFileKeepsFactoryTail) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    const std::vector<KeyVal> vecFactory = cam.factory();
    cam.ctl->uinit();

    std::vector<KeyVal> vecHead(vecFactory.begin(), vecFactory.begin() + 3);
    vecHead[1].value = 6; // a start hour that differs from the factory's
    cam.root.write(schemeFile(3), toBytes(vecHead));
    ASSERT_TRUE(cam.start());
    std::vector<KeyVal> vecExpected = cam.factory();
    vecExpected[1].value = 6;
    EXPECT_TRUE(sameKeyVals(vecExpected, cam.scheme(3)));
    EXPECT_TRUE(contains(cam.errorLog(), "nSize == sizeof(KeyVal)*p_nKeyValNum"));
}

TEST(Startup, ChannelOneUsesSensorFileNames) {
    Camera cam;
    ASSERT_TRUE(cam.start(1));
    for (int s = 0; s < 4; ++s) {
        EXPECT_TRUE(cam.root.exists(schemeFile(s, 1))) << s;
        EXPECT_FALSE(cam.root.exists(schemeFile(s, 2))) << s;
    }
}

TEST(Startup, ChannelTwoUsesThermalFileNames) {
    Camera cam;
    ASSERT_TRUE(cam.start(2));
    ASSERT_EQ(2, cam.acc->cameraId());
    for (int s = 0; s < 4; ++s) {
        EXPECT_TRUE(cam.root.exists(schemeFile(s, 2))) << s;
        EXPECT_FALSE(cam.root.exists(schemeFile(s, 1))) << s;
    }
    EXPECT_FALSE(cam.root.exists(schemeFile(4, 2)));
}

TEST(Startup, MaxSchemeDetailDecidesTheFileCount) {
    Camera cam;
    ModuleConfigure objModule = cam.module();
    objModule.setDetail("(sensor=IMX327)(lens=fixed)(max_scheme=2)(isInfrared=1)");
    ASSERT_TRUE(cam.start(objModule));
    EXPECT_EQ(2u, cam.acc->schemeSum());
    EXPECT_TRUE(cam.root.exists(schemeFile(1)));
    EXPECT_FALSE(cam.root.exists(schemeFile(2)));
}

TEST(Startup, PlateReadingDeviceWritesItsNightScheme) {
    Camera cam;
    writeMachineInfo(cam, 8, hardwareModel(cam));
    ASSERT_TRUE(cam.start(moduleWithDetail(cam, "(sensor=IMX327)")));
    EXPECT_TRUE(cam.acc->lprMode());

    const std::vector<KeyVal> vecNight = cam.file(schemeFile(1));
    std::vector<KeyVal> vecExpected = cam.factory();
    const u32 aChanges[][2] = {{144, 0}, {49, 18}, {96, 1}, {161, 2}, {163, 40}};
    for (const auto& change : aChanges) {
        for (KeyVal& kv : vecExpected) {
            if (kv.key == change[0]) {
                kv.value = change[1];
                break;
            }
        }
    }
    EXPECT_TRUE(sameKeyVals(vecExpected, vecNight));
    EXPECT_TRUE(sameKeyVals(vecExpected, cam.scheme(1)));
    // The other schemes are the factory values as they are.
    EXPECT_TRUE(sameKeyVals(cam.factory(), cam.file(schemeFile(0))));
    EXPECT_TRUE(sameKeyVals(cam.factory(), cam.file(schemeFile(2))));
}

TEST(Startup, VehicleDeviceDeclaringInfraredIsNotPlateReading) {
    for (const char* szDetail : {"(isInfrared=0)", "(isInfrared=1)"}) {
        Camera cam;
        writeMachineInfo(cam, 8, hardwareModel(cam));
        ASSERT_TRUE(cam.start(moduleWithDetail(cam, szDetail)));
        EXPECT_FALSE(cam.acc->lprMode()) << szDetail;
    }
}

TEST(Startup, OtherDeviceTypeIsNotPlateReading) {
    Camera cam;
    writeMachineInfo(cam, 1, hardwareModel(cam));
    ASSERT_TRUE(cam.start(moduleWithDetail(cam, "(sensor=IMX327)")));
    EXPECT_FALSE(cam.acc->lprMode());
}

TEST(Startup, StreamAt50FpsWithdrawsWdr) {
    Camera cam;
    cam.video.setStreams({stream(25, 0, 1080), stream(50, 0, 720)});
    ASSERT_TRUE(cam.start());
    EXPECT_FALSE(cam.acc->showWDR());
}

TEST(Startup, StreamAt60FpsWithdrawsWdr) {
    Camera cam;
    cam.video.setStreams({stream(60, 0, 1080)});
    ASSERT_TRUE(cam.start());
    EXPECT_FALSE(cam.acc->showWDR());
}

TEST(Startup, StreamsBelow50FpsKeepWdr) {
    Camera cam;
    cam.video.setStreams({stream(30, 0, 1080), stream(25, 1, 240)});
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(cam.acc->showWDR());
}

TEST(Startup, FactoryValuesOfA60FpsStartWereReadWithWdrOffered) {
    // The factory data are read before the streams are looked at: the first
    // start-up still sees WDR offered (its style drops the placeholder key
    // 10), while the style requests and the restart see it withdrawn.
    Camera cam;
    cam.video.setStreams({stream(60, 0, 1080)});
    ASSERT_TRUE(cam.start());
    EXPECT_FALSE(cam.acc->showWDR());
    EXPECT_LT(cam.indexOf(KEY_EMPTY1), 0);
    EXPECT_TRUE(contains(cam.ctl->getUIStyleFile(), "id=\"10\""));
    cam.ctl->uinit();
    ASSERT_TRUE(cam.init(cam.module()));
    EXPECT_GE(cam.indexOf(KEY_EMPTY1), 0);
}

TEST(Startup, FactoryValuesWithWdrOfferedLackThePlaceholder) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(cam.acc->showWDR());
    EXPECT_LT(cam.indexOf(KEY_EMPTY1), 0);
    EXPECT_FALSE(contains(cam.ctl->getUIStyleFile(), "id=\"10\""));
}

TEST(Startup, SmallH264StreamOnAv200WithdrawsBeaway) {
    for (const char* szModel : {"Hi3516AV200", "Hi3516AV200Thermal"}) {
        Camera cam;
        writeMachineInfo(cam, 1, szModel);
        cam.video.setStreams({stream(25, 0, 1080), stream(25, 1, 240)});
        ASSERT_TRUE(cam.start());
        EXPECT_FALSE(getshowBeawayFalg()) << szModel;
        setshowBeawayFalg(true);
    }
}

TEST(Startup, BeawayStaysOfferedOnOtherModelsAndLargeStreams) {
    {
        Camera cam;
        writeMachineInfo(cam, 1, "Hi3519V101");
        cam.video.setStreams({stream(25, 1, 240)});
        ASSERT_TRUE(cam.start());
        EXPECT_TRUE(getshowBeawayFalg());
    }
    {
        Camera cam;
        writeMachineInfo(cam, 1, "Hi3516AV200");
        cam.video.setStreams({stream(25, 1, 256), stream(25, 0, 240)});
        ASSERT_TRUE(cam.start());
        EXPECT_TRUE(getshowBeawayFalg());
    }
}

TEST(Startup, WithoutAnyDeviceFileStartUpStillSucceeds) {
    Camera cam(false);
    // Started shape: the scheme block, the key table, the running worker.
    ASSERT_TRUE(cam.start(ModuleConfigure()));
    EXPECT_TRUE(cam.ctl->getSensorStatus());
    // With no style there is no factory key: four empty default schemes.
    EXPECT_EQ(4u, cam.acc->schemeSum());
    EXPECT_EQ(0u, cam.acc->keyValSum());
    // The stamp is written, so the next start-up keeps what it finds.
    EXPECT_TRUE(cam.root.exists(SENSOR_VERSION_FILE));
    // The controller answers: a key it does not cache is read from the ISP,
    // and a value set reaches the ISP.
    sim::Isp::instance().setValue(0, KEY_SATURATION, 61);
    int nValue = 0;
    EXPECT_TRUE(cam.ctl->getParameter(KEY_SATURATION, nValue));
    EXPECT_EQ(61, nValue);
    sim::Isp::instance().clearTrace();
    (void)cam.ctl->setParameter(KEY_BRIGHTNESS, 70, false);
    uint32_t nIsp = 0;
    EXPECT_TRUE(sim::Isp::instance().getValue(0, KEY_BRIGHTNESS, nIsp));
    EXPECT_EQ(70u, nIsp);
    // And it shuts down.
    cam.ctl->uinit();
    EXPECT_FALSE(sim::threadRunning(*cam.acc->sensorThread()));
}

TEST(Startup, SchemeModeOfSchemeZeroSelectsDayNightSchemes) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.setValue(0, KEY_SCHEME_MODE, 2);
    cam.root.write(schemeFile(0), toBytes(cam.scheme(0)));
    cam.ctl->uinit();

    sim::Isp::instance().clearTrace();
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(cam.acc->dnScheme());
    EXPECT_FALSE(cam.acc->timeScheme());
}

TEST(Startup, SchemeModeOneSelectsTimedSchemes) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.setValue(0, KEY_SCHEME_MODE, 1);
    cam.root.write(schemeFile(0), toBytes(cam.scheme(0)));
    cam.ctl->uinit();

    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(cam.acc->timeScheme());
    EXPECT_FALSE(cam.acc->dnScheme());
}

TEST(Shutdown, UinitBeforeInitDoesNothing) {
    Camera cam;
    cam.construct();
    cam.ctl->uinit();
    EXPECT_EQ(0u, cam.acc->flags());
    EXPECT_EQ(-1, cam.acc->curScheme());
    EXPECT_FALSE(sim::threadRunning(*cam.acc->sensorThread()));
    // The controller is still whole: it starts afterwards.
    EXPECT_TRUE(cam.init(cam.module()));
}

TEST(Shutdown, UinitStopsTheWorkerAndFreesTheSchemes) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    (void)cam.ctl->setParamMode(0);
    cam.ctl->uinit();
    EXPECT_FALSE(sim::threadRunning(*cam.acc->sensorThread()));
    EXPECT_EQ(nullptr, cam.acc->keyCmdMap());
    EXPECT_EQ(nullptr, cam.acc->factory());
    EXPECT_EQ(nullptr, cam.acc->scratch());
    EXPECT_EQ(nullptr, cam.acc->scratch2());
    EXPECT_EQ(0u, cam.acc->keyValSum());
    EXPECT_EQ(-1, cam.acc->curScheme());
    EXPECT_EQ(-1, cam.acc->lastScheme());
    EXPECT_EQ(1u, cam.acc->paramMode());
    // Start-up completed once: the status stays.
    EXPECT_TRUE(cam.ctl->getSensorStatus());
}

TEST(Shutdown, SecondUinitIsHarmless) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.ctl->uinit();
    const std::string strLog = cam.errorLog();
    cam.ctl->uinit();
    EXPECT_EQ(strLog, cam.errorLog());
    EXPECT_FALSE(sim::threadRunning(*cam.acc->sensorThread()));
}

TEST(Shutdown, ManyStartUpsAndShutDownsLeakNothing) {
    Camera cam;
    cam.construct();
    const ModuleConfigure objModule = cam.module();
    // Warm up: the first cycles create the files and the lazily built state.
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(cam.init(objModule));
        cam.ctl->uinit();
    }
    // A sanitizer's allocator keeps its own books: mallinfo2 then does not
    // see even a fresh block, and the measure below would pass on anything.
    // There, LeakSanitizer reports what a cycle leaks when the process ends.
    const size_t nProbeBefore = mallinfo2().uordblks;
    volatile char* pProbe = static_cast<volatile char*>(std::malloc(1 << 16));
    pProbe[0] = 1;
    const size_t nProbeAfter = mallinfo2().uordblks;
    std::free(const_cast<char*>(pProbe));
    if (nProbeAfter < nProbeBefore + (1 << 16))
        GTEST_SKIP() << "the allocator does not report its heap to mallinfo2 (a sanitizer "
                        "build); leaks are LeakSanitizer's to report at exit";
    sim::Isp::instance().clearTrace();
    sim::clearSystemCommands();
    const size_t nBefore = mallinfo2().uordblks;
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(cam.init(objModule));
        cam.ctl->uinit();
        // The simulated host's own records grow with every call.
        sim::Isp::instance().clearTrace();
        sim::clearSystemCommands();
    }
    const size_t nAfter = mallinfo2().uordblks;
    // One cycle's scheme block alone (5 schemes of some 60 records) is
    // larger than this slack; a leak per cycle would exceed it many times.
    EXPECT_LT(nAfter, nBefore + 16384) << nBefore << " -> " << nAfter;
    EXPECT_EQ(-1, cam.acc->curScheme());
}

namespace {

// A factory set written out here, so that every byte a start-up leaves in a
// scheme is known: keys 34 and 2353 (brightness, contrast) with values whose
// four bytes all differ.
const std::vector<KeyVal> kListedFactory = {{KEY_SCHEME_MODE, 0},      {KEY_SCHEME_START_HOUR, 0},
                                            {KEY_SCHEME_START_MIN, 0}, {KEY_SCHEME_END_HOUR, 24},
                                            {KEY_SCHEME_END_MIN, 0},   {KEY_BRIGHTNESS, 0x0A0B0C0D},
                                            {KEY_CONTRAST, 0x01020304}};

// The same seven records as they lie in a scheme file.
const std::string kListedFactoryBytes("\x40\x1f\0\0\0\0\0\0"          // 8000 (scheme mode), 0
                                      "\x41\x1f\0\0\0\0\0\0"          // 8001 (start hour), 0
                                      "\x42\x1f\0\0\0\0\0\0"          // 8002 (start minute), 0
                                      "\x43\x1f\0\0\x18\0\0\0"        // 8003 (end hour), 24
                                      "\x44\x1f\0\0\0\0\0\0"          // 8004 (end minute), 0
                                      "\x22\0\0\0\x0d\x0c\x0b\x0a"    // 34, 0x0A0B0C0D
                                      "\x31\x09\0\0\x04\x03\x02\x01", // 2353, 0x01020304
                                      56);

// A stored scheme 2 in that layout: start hour 6, brightness 0x1A1B1C1D,
// contrast 0x21222324.
const std::string kStoredScheme2("\x40\x1f\0\0\0\0\0\0"
                                 "\x41\x1f\0\0\x06\0\0\0"
                                 "\x42\x1f\0\0\0\0\0\0"
                                 "\x43\x1f\0\0\x18\0\0\0"
                                 "\x44\x1f\0\0\0\0\0\0"
                                 "\x22\0\0\0\x1d\x1c\x1b\x1a"
                                 "\x31\x09\0\0\x24\x23\x22\x21",
                                 56);

std::vector<std::pair<u32, u32>> pairsOf(const std::vector<KeyVal>& p_vecKeyVal) {
    std::vector<std::pair<u32, u32>> vecOut;
    for (const KeyVal& kv : p_vecKeyVal)
        vecOut.emplace_back(kv.key, kv.value);
    return vecOut;
}

} // namespace

// The test's own layout is the one it writes by hand.
TEST(Startup, ListedFactorySetIsStoredAsItsBytes) {
    Camera cam;
    ASSERT_TRUE(cam.startWithFactory(kListedFactory));
    EXPECT_EQ(kListedFactoryBytes, cam.root.read(schemeFile(2)));
}

// A scheme file one byte short of the factory's layout is loaded as it
// lies: every whole record from the file, and of the last one the key and
// the value's three low bytes from the file, its high byte still the
// factory's. The size is reported, nothing is taken by key.
TEST(Startup, SchemeFileOneByteShortLeavesTheLastRecordPartlyRead) {
    Camera cam;
    ASSERT_TRUE(cam.startWithFactory(kListedFactory));
    cam.ctl->uinit();
    cam.root.write(schemeFile(2), kStoredScheme2.substr(0, 55));
    cam.root.remove("/mnt/mtd/log/SensorError.log");
    ASSERT_TRUE(cam.startOnStyleAsWritten());
    const std::vector<std::pair<u32, u32>> vecExpected = {
        {KEY_SCHEME_MODE, 0},      {KEY_SCHEME_START_HOUR, 6}, {KEY_SCHEME_START_MIN, 0},
        {KEY_SCHEME_END_HOUR, 24}, {KEY_SCHEME_END_MIN, 0},    {KEY_BRIGHTNESS, 0x1A1B1C1D},
        {KEY_CONTRAST, 0x01222324}};
    EXPECT_EQ(vecExpected, pairsOf(cam.scheme(2)));
    EXPECT_TRUE(contains(cam.errorLog(), "nSize == sizeof(KeyVal)*p_nKeyValNum"));
    EXPECT_TRUE(contains(cam.errorLog(), "file_name(/mnt/mtd/code/config_file/sensor2.cfg) "
                                         "nSize(55) sizeof(KeyVal) = 8, p_nKeyValNum(7)\n"));
    EXPECT_FALSE(contains(cam.errorLog(), "does not fit the factory layout"));
}

// Cut inside a record's value: its low bytes come from the file, the rest
// and every later record stay the factory's. Cut inside a key that agrees
// with the factory's as far as it goes: the record stays the factory's.
TEST(Startup, SchemeFileCutInsideARecordKeepsItsFirstBytes) {
    Camera cam;
    ASSERT_TRUE(cam.startWithFactory(kListedFactory));
    cam.ctl->uinit();
    cam.root.write(schemeFile(2), kStoredScheme2.substr(0, 46));
    cam.root.write(schemeFile(3), kStoredScheme2.substr(0, 42));
    cam.root.remove("/mnt/mtd/log/SensorError.log");
    ASSERT_TRUE(cam.startOnStyleAsWritten());
    const std::vector<std::pair<u32, u32>> vecCutInValue = {
        {KEY_SCHEME_MODE, 0},      {KEY_SCHEME_START_HOUR, 6}, {KEY_SCHEME_START_MIN, 0},
        {KEY_SCHEME_END_HOUR, 24}, {KEY_SCHEME_END_MIN, 0},    {KEY_BRIGHTNESS, 0x0A0B1C1D},
        {KEY_CONTRAST, 0x01020304}};
    EXPECT_EQ(vecCutInValue, pairsOf(cam.scheme(2)));
    const std::vector<std::pair<u32, u32>> vecCutInKey = {
        {KEY_SCHEME_MODE, 0},      {KEY_SCHEME_START_HOUR, 6}, {KEY_SCHEME_START_MIN, 0},
        {KEY_SCHEME_END_HOUR, 24}, {KEY_SCHEME_END_MIN, 0},    {KEY_BRIGHTNESS, 0x0A0B0C0D},
        {KEY_CONTRAST, 0x01020304}};
    EXPECT_EQ(vecCutInKey, pairsOf(cam.scheme(3)));
    EXPECT_TRUE(contains(cam.errorLog(), "nSize(46) sizeof(KeyVal) = 8, p_nKeyValNum(7)"));
    EXPECT_TRUE(contains(cam.errorLog(), "nSize(42) sizeof(KeyVal) = 8, p_nKeyValNum(7)"));
    EXPECT_FALSE(contains(cam.errorLog(), "does not fit the factory layout"));
}

// A folder of someone else's at a missing scheme file's temporary name:
// start-up creates the file all the same, from the factory values, and the
// folder stays.
TEST(Startup, MissingSchemeFileIsCreatedBesideAFolderAtItsTemporaryName) {
    Camera cam;
    ASSERT_TRUE(cam.startWithFactory(kListedFactory));
    cam.ctl->uinit();
    cam.root.remove(schemeFile(1));
    cam.root.write(schemeFile(1) + ".tmp/kept", "mine");
    std::string strOut;
    strOut = testsupport::captureStdout([&] { EXPECT_TRUE(cam.startOnStyleAsWritten()); });
    EXPECT_FALSE(contains(strOut, "Assertion failed")) << strOut;
    EXPECT_EQ(kListedFactoryBytes, cam.root.read(schemeFile(1)));
    EXPECT_EQ(pairsOf(kListedFactory), pairsOf(cam.scheme(1)));
    EXPECT_EQ("mine", cam.root.read(schemeFile(1) + ".tmp/kept"));
}

// A file the camera may not write at a missing scheme file's temporary
// name: start-up creates the scheme file all the same, and that file keeps
// its bytes.
TEST(Startup, MissingSchemeFileIsCreatedBesideAnUnwritableFileAtItsTemporaryName) {
    Camera cam;
    ASSERT_TRUE(cam.startWithFactory(kListedFactory));
    cam.ctl->uinit();
    cam.ctl.reset();
    cam.root.remove(schemeFile(1));
    cam.root.write(schemeFile(1) + ".tmp", "not the camera's");
    const filestest::ChildRun run = filestest::runUnprivileged(cam.root.path(), [&]() -> int {
        if (::chmod(cam.root.real(schemeFile(1) + ".tmp").c_str(), 0444) != 0)
            return 1;
        if (!cam.startOnStyleAsWritten())
            return 2;
        if (pairsOf(cam.scheme(1)) != pairsOf(kListedFactory))
            return 3;
        cam.ctl->uinit();
        return 0;
    });
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_FALSE(contains(run.strOut, "Assertion failed")) << run.strOut;
    EXPECT_EQ(kListedFactoryBytes, cam.root.read(schemeFile(1)));
    EXPECT_EQ("not the camera's", cam.root.read(schemeFile(1) + ".tmp"));
}
