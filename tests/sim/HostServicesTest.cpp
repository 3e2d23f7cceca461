// The simulated host's services: logger, waits and clock, machine and module
// configuration, strings, shell, device tree, reference counts, mutex record,
// video pipeline and the device root.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <thread>

#include <signal.h>

#include "host/KPDeviceTime.h"
#include "host/KPLogger.h"
#include "host/KPMutex.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "host/RefCountManager.h"
#include "host/SensorZoomFocusParam.h"
#include "host/StringHandler.h"
#include "host/TarvelTime.h"
#include "host/VideoStreamModule.h"
#include "host/sy_system.h"
#include "sim/SimHost.h"
#include "diag/DeviceRoot.h"
#include "tests/support/TestSupport.h"

namespace {

using testsupport::TempDeviceRoot;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// --- KPLogger -------------------------------------------------------------

TEST(KPLoggerTest, InitRefusesEmptyPath) {
    KPLogger logger;
    EXPECT_FALSE(logger.init("", 10240, 3));
    EXPECT_FALSE(logger.init(nullptr, 10240, 3));
    EXPECT_EQ(-1, logger.writeLog("[sensor err]", "never written"));
}

TEST(KPLoggerTest, WriteLogAppendsTagAndTextWithNewline) {
    TempDeviceRoot root;
    KPLogger logger;
    ASSERT_TRUE(logger.init(root.real("/mnt/mtd/log/SensorError.log").c_str(), 10240, 3));
    EXPECT_EQ(0, logger.writeLog("[sensor assert]", "first"));
    EXPECT_EQ(0, logger.writeLog("[sensor assert]", "second\n"));
    EXPECT_EQ("[sensor assert] first\n[sensor assert] second\n",
              root.read("/mnt/mtd/log/SensorError.log"));
}

TEST(KPLoggerTest, RotationKeepsFileCountAndDropsOldest) {
    TempDeviceRoot root;
    const std::string path = root.real("/mnt/mtd/log/r.log");
    KPLogger logger;
    ASSERT_TRUE(logger.init(path.c_str(), 20, 3));
    // Each entry ("t entry-N\n") is 10 bytes: two fit in one file of 20.
    for (int i = 1; i <= 8; ++i)
        ASSERT_EQ(0, logger.writeLog("t", ("entry-" + std::to_string(i)).c_str()));
    EXPECT_EQ("t entry-7\nt entry-8\n", root.read("/mnt/mtd/log/r.log"));
    EXPECT_EQ("t entry-5\nt entry-6\n", root.read("/mnt/mtd/log/r.log.1"));
    EXPECT_EQ("t entry-3\nt entry-4\n", root.read("/mnt/mtd/log/r.log.2"));
    EXPECT_FALSE(root.exists("/mnt/mtd/log/r.log.3"));
}

TEST(KPLoggerTest, EntryLargerThanMaxSizeStillWritten) {
    TempDeviceRoot root;
    KPLogger logger;
    ASSERT_TRUE(logger.init(root.real("/mnt/mtd/log/big.log").c_str(), 4, 2));
    EXPECT_EQ(0, logger.writeLog("tag", "a long entry"));
    EXPECT_EQ("tag a long entry\n", root.read("/mnt/mtd/log/big.log"));
}

TEST(KPLoggerTest, MissingFolderFailsWithoutCrash) {
    TempDeviceRoot root;
    KPLogger logger;
    ASSERT_TRUE(logger.init(root.real("/no/such/dir/x.log").c_str(), 10240, 3));
    EXPECT_EQ(-1, logger.writeLog("tag", "text"));
}

// --- TarvelTime and KPDeviceTime -------------------------------------------

TEST(TarvelTimeTest, ScaledWaitReturnsFast) {
    sim::setTimeScale(0.001);
    const Clock::time_point start = Clock::now();
    TarvelTime(1, 0).wait();
    const double elapsed = secondsSince(start);
    EXPECT_LT(elapsed, 0.5);
    EXPECT_GE(elapsed, 0.0005);
}

TEST(TarvelTimeTest, ZeroScaleReturnsAtOnce) {
    sim::setTimeScale(0.0);
    const Clock::time_point start = Clock::now();
    TarvelTime(3600, 0).wait();
    EXPECT_LT(secondsSince(start), 0.1);
}

TEST(TarvelTimeTest, MicrosecondsCountInTheWait) {
    sim::setTimeScale(1.0);
    const Clock::time_point start = Clock::now();
    TarvelTime(0, 3000).wait();
    const double elapsed = secondsSince(start);
    EXPECT_GE(elapsed, 0.0025);
    EXPECT_LT(elapsed, 0.5);
}

TEST(TarvelTimeTest, TimeScaleIsSettable) {
    sim::setTimeScale(2.5);
    EXPECT_DOUBLE_EQ(2.5, sim::timeScale());
    sim::setTimeScale(-1.0);
    EXPECT_DOUBLE_EQ(0.0, sim::timeScale());
    sim::setTimeScale(1.0);
}

TEST(KPDeviceTimeTest, SimulatedTimeGivesHourAndMinute) {
    sim::setDeviceTime(7, 45);
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    EXPECT_EQ(7, now.hour);
    EXPECT_EQ(45, now.minute);
    EXPECT_GE(now.year, 2020);
    EXPECT_GE(now.month, 1);
    EXPECT_LE(now.month, 12);
    sim::clearDeviceTime();
}

TEST(KPDeviceTimeTest, ClearedTimeFollowsRealClock) {
    sim::setDeviceTime(7, 45);
    sim::clearDeviceTime();
    const std::time_t before = std::time(nullptr);
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    const std::time_t after = std::time(nullptr);
    std::tm tmBefore{}, tmAfter{};
    localtime_r(&before, &tmBefore);
    localtime_r(&after, &tmAfter);
    EXPECT_TRUE(now.hour == tmBefore.tm_hour || now.hour == tmAfter.tm_hour);
    EXPECT_TRUE(now.minute == tmBefore.tm_min || now.minute == tmAfter.tm_min);
    EXPECT_EQ(tmAfter.tm_year + 1900, now.year);
}

// --- MachineInfo --------------------------------------------------------------

TEST(MachineInfoTest, DefaultsAreCameraWithoutModel) {
    const MachineInfo info;
    EXPECT_EQ(DeviceType::IPCAMERA, info.getDeviceType());
    EXPECT_EQ("", info.getHardwareModel());
    EXPECT_EQ("", info.getHardwareCode());
    EXPECT_EQ(16, DeviceType(DeviceType::THERMAL_DEVICE).getId());
}

TEST(MachineInfoTest, ParsesMachineSection) {
    TempDeviceRoot root;
    root.write("/mnt/mtd/code/factory_setting/machineinfo.ini", "# factory data\n"
                                                                "[machine]\n"
                                                                "device_type=17\n"
                                                                "\n"
                                                                "hardware_model = IPC-B2\r\n"
                                                                "hardware_code=HC-0042\n"
                                                                "serial=123\n");
    MachineInfo info;
    ASSERT_TRUE(SystemInfoParser::parseMachineInfo(
        root.real("/mnt/mtd/code/factory_setting/machineinfo.ini"), info));
    EXPECT_EQ(17, info.getDeviceType());
    EXPECT_EQ("IPC-B2", info.getHardwareModel());
    EXPECT_EQ("HC-0042", info.getHardwareCode());
}

TEST(MachineInfoTest, KeysWithoutSectionAreRead) {
    TempDeviceRoot root;
    root.write("/m.ini", "device_type=11\nhardware_model=DOME\n");
    MachineInfo info;
    ASSERT_TRUE(SystemInfoParser::parseMachineInfo(root.real("/m.ini"), info));
    EXPECT_EQ(DeviceType::IPDOME, info.getDeviceType());
    EXPECT_EQ("DOME", info.getHardwareModel());
}

TEST(MachineInfoTest, OtherSectionsAndBadNumbersAreIgnored) {
    TempDeviceRoot root;
    root.write("/m.ini", "[network]\nhardware_model=WRONG\n[machine]\ndevice_type=abc\n");
    MachineInfo info;
    ASSERT_TRUE(SystemInfoParser::parseMachineInfo(root.real("/m.ini"), info));
    EXPECT_EQ(DeviceType::IPCAMERA, info.getDeviceType());
    EXPECT_EQ("", info.getHardwareModel());
}

TEST(MachineInfoTest, UnreadableFileLeavesInfoUnchanged) {
    TempDeviceRoot root;
    MachineInfo info;
    info.setDeviceType(9);
    info.setHardwareModel("KEEP");
    EXPECT_FALSE(SystemInfoParser::parseMachineInfo(root.real("/missing.ini"), info));
    EXPECT_EQ(9, info.getDeviceType());
    EXPECT_EQ("KEEP", info.getHardwareModel());
}

// --- ModuleConfigure ------------------------------------------------------------

const char* const kModuleDocument =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<moduleConfig>\n"
    "  <module hardware_model=\"IPC-B2\" hardware_code=\"HC1\" id=\"3\"\n"
    "          detail=\"(sensor=IMX290)(max_scheme=4)\" parameters=\"p1\"/>\n"
    "  <module hardware_model=\"IPC-B2\" hardware_code=\"HC2\" id=\"4\" detail=\"other\"/>\n"
    "  <module hardware_model=\"OTHER\" id=\"5\"/>\n"
    "  <module id=\"6\" detail=\"(sensor=ANY)\" hardware_code=\"\"/>\n"
    "</moduleConfig>\n";

TEST(ModuleConfigureTest, DefaultsAreEmpty) {
    const ModuleConfigure config;
    EXPECT_EQ(0u, config.getModuleId());
    EXPECT_EQ("", config.getDetail());
    EXPECT_EQ("", config.getParameters());
}

TEST(ModuleConfigureTest, ParserKeepsModulesOfModelAndCode) {
    TempDeviceRoot root;
    root.write("/hd1/moduleConfig/moduleConfig.xml", kModuleDocument);
    std::vector<ModuleConfigure> modules;
    ASSERT_TRUE(ModuleConfigureParser::parse(root.real("/hd1/moduleConfig/moduleConfig.xml"),
                                             "IPC-B2", "HC1", modules));
    ASSERT_EQ(2u, modules.size());
    EXPECT_EQ(3u, modules[0].getModuleId());
    EXPECT_EQ("(sensor=IMX290)(max_scheme=4)", modules[0].getDetail());
    EXPECT_EQ("p1", modules[0].getParameters());
    EXPECT_EQ(6u, modules[1].getModuleId());
    EXPECT_EQ("(sensor=ANY)", modules[1].getDetail());
}

TEST(ModuleConfigureTest, ParserAppendsToGivenList) {
    TempDeviceRoot root;
    root.write("/m.xml", kModuleDocument);
    std::vector<ModuleConfigure> modules(1);
    ASSERT_TRUE(ModuleConfigureParser::parse(root.real("/m.xml"), "OTHER", "X", modules));
    ASSERT_EQ(3u, modules.size());
    EXPECT_EQ(0u, modules[0].getModuleId());
    EXPECT_EQ(5u, modules[1].getModuleId());
    EXPECT_EQ(6u, modules[2].getModuleId());
}

TEST(ModuleConfigureTest, ParserFailsOnMissingOrBrokenDocument) {
    TempDeviceRoot root;
    std::vector<ModuleConfigure> modules;
    EXPECT_FALSE(ModuleConfigureParser::parse(root.real("/missing.xml"), "A", "B", modules));
    root.write("/broken.xml", "<moduleConfig><module id=\"1\"");
    EXPECT_FALSE(ModuleConfigureParser::parse(root.real("/broken.xml"), "A", "B", modules));
    EXPECT_TRUE(modules.empty());
}

TEST(ModuleConfigureTest, ParserFailsOnAFolderInPlaceOfTheDocument) {
    TempDeviceRoot root;
    root.makeDirs("/folder.xml");
    std::vector<ModuleConfigure> modules;
    EXPECT_FALSE(ModuleConfigureParser::parse(root.real("/folder.xml"), "A", "B", modules));
    EXPECT_TRUE(modules.empty());
}

// --- StringHandler ----------------------------------------------------------

TEST(StringHandlerTest, SplitKeepsEmptyFields) {
    std::vector<std::string> out;
    StringHandler::split("a,,b,", ",", out);
    EXPECT_EQ((std::vector<std::string>{"a", "", "b", ""}), out);
    StringHandler::split(",", ",", out);
    EXPECT_EQ((std::vector<std::string>{"", ""}), out);
}

TEST(StringHandlerTest, SplitOfEmptyTextGivesNoField) {
    std::vector<std::string> out{"stale"};
    StringHandler::split("", ",", out);
    EXPECT_TRUE(out.empty());
}

TEST(StringHandlerTest, SplitWithEmptyDelimiterGivesWholeText) {
    std::vector<std::string> out;
    StringHandler::split("(34,60)", "", out);
    EXPECT_EQ(std::vector<std::string>{"(34,60)"}, out);
}

TEST(StringHandlerTest, SplitAtMultiCharacterDelimiter) {
    std::vector<std::string> out{"stale"};
    StringHandler::split("(34,60)(2337,1)", ")(", out);
    EXPECT_EQ((std::vector<std::string>{"(34,60", "2337,1)"}), out);
}

// --- sy_system --------------------------------------------------------------

TEST(SySystemTest, ReturnsExitStatusAndRecordsCommand) {
    sim::clearSystemCommands();
    EXPECT_EQ(0, sy_system("true", 5));
    EXPECT_EQ(3, sy_system("exit 3", 5));
    EXPECT_EQ((std::vector<std::string>{"true", "exit 3"}), sim::systemCommands());
    sim::clearSystemCommands();
    EXPECT_TRUE(sim::systemCommands().empty());
}

TEST(SySystemTest, CommandRunsInShell) {
    TempDeviceRoot root;
    const std::string file = root.real("/out.txt");
    EXPECT_EQ(0, sy_system(("echo hi > '" + file + "'").c_str(), 5));
    EXPECT_EQ("hi\n", root.read("/out.txt"));
}

TEST(SySystemTest, NullCommandFails) {
    EXPECT_EQ(-1, sy_system(nullptr, 5));
}

TEST(SySystemTest, TimeoutKillsCommandAndItsChildren) {
    TempDeviceRoot root;
    const std::string pidFile = root.real("/child.pid");
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(-1, sy_system(("sleep 30 & echo $! > '" + pidFile + "'; wait").c_str(), 1));
    EXPECT_LT(secondsSince(start), 10.0);
    std::ifstream in(pidFile);
    pid_t child = 0;
    ASSERT_TRUE(in >> child);
    // The killed grandchild is reaped by init; allow it a moment.
    bool gone = false;
    for (int i = 0; i < 500 && !gone; ++i) {
        std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
        std::string pid, name, state;
        gone = !(stat >> pid >> name >> state) || state == "Z";
        if (!gone)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(gone);
}

// --- populateDeviceRoot --------------------------------------------------------

TEST(PopulateDeviceRootTest, CopiesTreeRecursivelyAndOverwrites) {
    TempDeviceRoot root;
    root.write("/data/hd1/moduleConfig/moduleConfig.xml", "<moduleConfig/>");
    root.write("/data/mnt/mtd/sign/Debug.sign", "3");
    root.write("/target/mnt/mtd/sign/Debug.sign", "old");
    ASSERT_TRUE(sim::populateDeviceRoot(root.real("/target"), root.real("/data")));
    EXPECT_EQ("<moduleConfig/>", root.read("/target/hd1/moduleConfig/moduleConfig.xml"));
    EXPECT_EQ("3", root.read("/target/mnt/mtd/sign/Debug.sign"));
}

TEST(PopulateDeviceRootTest, MissingDataFolderFails) {
    TempDeviceRoot root;
    EXPECT_FALSE(sim::populateDeviceRoot(root.real("/target"), root.real("/no-data")));
}

// --- RefCountManager ------------------------------------------------------------

TEST(RefCountManagerTest, AcquireGivesCountOfOneForOwner) {
    int owner = 0;
    RefCount* count = RefCountManager::acquire(&owner);
    ASSERT_NE(nullptr, count);
    EXPECT_EQ(&owner, RefCountManager::owner(count));
    EXPECT_TRUE(RefCountManager::increment(count));
    EXPECT_EQ(1, RefCountManager::decrement(count));
    EXPECT_EQ(0, RefCountManager::decrement(count));
    RefCountManager::release(count);
}

TEST(RefCountManagerTest, IncrementFailsOnceCountReachedZero) {
    int owner = 0;
    RefCount* count = RefCountManager::acquire(&owner);
    ASSERT_EQ(0, RefCountManager::decrement(count));
    EXPECT_FALSE(RefCountManager::increment(count));
    EXPECT_EQ(0, RefCountManager::decrement(count));
    RefCountManager::release(count);
}

TEST(RefCountManagerTest, CountMayChangeWhileLocked) {
    int owner = 0;
    RefCount* count = RefCountManager::acquire(&owner);
    ASSERT_TRUE(RefCountManager::lock(count));
    EXPECT_TRUE(RefCountManager::increment(count));
    EXPECT_EQ(1, RefCountManager::decrement(count));
    RefCountManager::unlock(count);
    RefCountManager::release(count);
}

TEST(RefCountManagerTest, NullCountIsHarmless) {
    EXPECT_FALSE(RefCountManager::lock(nullptr));
    RefCountManager::unlock(nullptr);
    EXPECT_FALSE(RefCountManager::increment(nullptr));
    EXPECT_EQ(0, RefCountManager::decrement(nullptr));
    EXPECT_EQ(nullptr, RefCountManager::owner(nullptr));
    RefCountManager::release(nullptr);
}

// --- KPMutex ----------------------------------------------------------------------

TEST(KPMutexTest, GuardRecordsLockAndUnlockEvents) {
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    KPMutex mutex;
    { KPMutexManager guard(mutex, "SensorCore.cpp", 120); }
    EXPECT_TRUE(sim::tryLockMutex(mutex, "SensorCore.cpp", 130));
    EXPECT_EQ(0, mutex.Unlock("SensorCore.cpp", 131));
    sim::recordMutexEvents(false);
    EXPECT_EQ((std::vector<std::string>{"Lock SensorCore.cpp:120", "Unlock KPMutex.h:74",
                                        "TryLock SensorCore.cpp:130", "Unlock SensorCore.cpp:131"}),
              sim::mutexEvents());
    sim::clearMutexEvents();
    EXPECT_TRUE(sim::mutexEvents().empty());
}

TEST(KPMutexTest, NothingRecordedWhileDisabled) {
    sim::recordMutexEvents(false);
    sim::clearMutexEvents();
    KPMutex mutex;
    EXPECT_EQ(0, mutex.Lock("a.cpp", 1));
    EXPECT_EQ(0, mutex.Unlock("a.cpp", 2));
    EXPECT_TRUE(sim::mutexEvents().empty());
}

TEST(KPMutexTest, HolderMayLockAgainButOthersMayNot) {
    KPMutex mutex;
    ASSERT_EQ(0, mutex.Lock("a.cpp", 1));
    EXPECT_EQ(0, mutex.Lock("a.cpp", 2));
    EXPECT_TRUE(sim::tryLockMutex(mutex, "a.cpp", 3));
    bool otherGotIt = true;
    std::thread([&] { otherGotIt = sim::tryLockMutex(mutex, "b.cpp", 1); }).join();
    EXPECT_FALSE(otherGotIt);
    mutex.Unlock("a.cpp", 4);
    mutex.Unlock("a.cpp", 5);
    mutex.Unlock("a.cpp", 6);
    std::thread([&] {
        otherGotIt = sim::tryLockMutex(mutex, "b.cpp", 2);
        if (otherGotIt)
            mutex.Unlock("b.cpp", 3);
    }).join();
    EXPECT_TRUE(otherGotIt);
}

// --- Parameter records and the video pipeline -----------------------------------

TEST(HostParamsTest, ZoomFocusDefaultsAndSetters) {
    SensorZoomFocusParam param;
    EXPECT_FALSE(param.getLockZoomFocusEnable());
    EXPECT_EQ(0, param.getZoomPosition());
    EXPECT_EQ(0, param.getFocusPosition());
    param.setLockZoomFocusEnable(true);
    param.setZoomPosition(120);
    param.setFocusPosition(-3);
    EXPECT_TRUE(param.getLockZoomFocusEnable());
    EXPECT_EQ(120, param.getZoomPosition());
    EXPECT_EQ(-3, param.getFocusPosition());
}

TEST(HostParamsTest, StreamParamDefaultsAndSetters) {
    AVStreamParam stream;
    EXPECT_EQ(25, stream.getFrameRate());
    EXPECT_EQ(0, stream.getVideoEncoderType());
    EXPECT_EQ(1080, stream.getVideoHeight());
    stream.setFrameRate(60);
    stream.setVideoEncoderType(1);
    stream.setVideoHeight(2160);
    EXPECT_EQ(60, stream.getFrameRate());
    EXPECT_EQ(1, stream.getVideoEncoderType());
    EXPECT_EQ(2160, stream.getVideoHeight());
}

TEST(SimVideoStreamModuleTest, RecordsNoticesAndAnswersResult) {
    sim::SimVideoStreamModule pipeline;
    const VideoStreamModule& host = pipeline;
    EXPECT_EQ(0, host.notifySensorParam(1, 2368, 2));
    pipeline.setResult(-1);
    pipeline.setResultForKey(2384, 5);
    EXPECT_EQ(-1, host.notifySensorParam(1, 34, 60));
    EXPECT_EQ(5, host.notifySensorParam(2, 2384, 1));
    const std::vector<sim::SimVideoStreamModule::Notice> notices = pipeline.notices();
    ASSERT_EQ(3u, notices.size());
    EXPECT_EQ(1, notices[0].channel);
    EXPECT_EQ(2368, notices[0].key);
    EXPECT_EQ(2, notices[0].value);
    EXPECT_EQ(2384, notices[2].key);
    EXPECT_EQ(3u, pipeline.takeNotices().size());
    EXPECT_TRUE(pipeline.notices().empty());
    host.notifySensorParam(1, 1, 1);
    pipeline.clearNotices();
    EXPECT_TRUE(pipeline.notices().empty());
}

TEST(SimVideoStreamModuleTest, DeletedThroughHostInterface) {
    std::unique_ptr<VideoStreamModule> pipeline(new sim::SimVideoStreamModule);
    EXPECT_EQ(0, pipeline->notifySensorParam(0, 1, 1));
    pipeline.reset();
}

TEST(SimVideoStreamModuleTest, ListsSettableStreams) {
    sim::SimVideoStreamModule pipeline;
    std::vector<AVStreamParam> streams(3);
    ASSERT_TRUE(pipeline.getAVStreamParams(streams));
    ASSERT_EQ(1u, streams.size());
    EXPECT_EQ(25, streams[0].getFrameRate());
    EXPECT_EQ(0, streams[0].getVideoEncoderType());
    EXPECT_EQ(1080, streams[0].getVideoHeight());
    AVStreamParam fast;
    fast.setFrameRate(60);
    pipeline.setStreams({fast, AVStreamParam()});
    ASSERT_TRUE(pipeline.getAVStreamParams(streams));
    ASSERT_EQ(2u, streams.size());
    EXPECT_EQ(60, streams[0].getFrameRate());
}

// --- Device root ------------------------------------------------------------------

TEST(DeviceRootTest, PathsResolveUnderSetRoot) {
    ::setenv("SENSOR_ROOT", "/tmp/root dir/", 1);
    EXPECT_EQ("/tmp/root dir", sensorDeviceRoot());
    EXPECT_EQ("/tmp/root dir/mnt/mtd/sign/Debug.sign",
              sensorDevicePath("/mnt/mtd/sign/Debug.sign"));
    EXPECT_EQ("rm -rf '/tmp/root dir'/mnt/mtd/code/config*/sensor*",
              sensorRemoveSchemeFilesCommand());
    ::unsetenv("SENSOR_ROOT");
}

TEST(DeviceRootTest, PathsStayAsTheyAreWithoutRoot) {
    ::unsetenv("SENSOR_ROOT");
    EXPECT_EQ("", sensorDeviceRoot());
    EXPECT_EQ("/tmp/merge_style.xml", sensorDevicePath("/tmp/merge_style.xml"));
    EXPECT_EQ("rm -rf /mnt/mtd/code/config*/sensor*", sensorRemoveSchemeFilesCommand());
    ::setenv("SENSOR_ROOT", "", 1);
    EXPECT_EQ("/tmp/merge_style.xml", sensorDevicePath("/tmp/merge_style.xml"));
    ::unsetenv("SENSOR_ROOT");
}

TEST(DeviceRootTest, RemoveCommandClearsSchemeFilesUnderRoot) {
    TempDeviceRoot root;
    root.write("/mnt/mtd/code/config_file/sensor0.cfg", "x");
    root.write("/mnt/mtd/code/config_file/snsversion.cfg", "v");
    root.write("/mnt/mtd/code/config_file/other.cfg", "keep");
    EXPECT_EQ(0, sy_system(sensorRemoveSchemeFilesCommand().c_str(), 5));
    EXPECT_FALSE(root.exists("/mnt/mtd/code/config_file/sensor0.cfg"));
    EXPECT_TRUE(root.exists("/mnt/mtd/code/config_file/snsversion.cfg"));
    EXPECT_TRUE(root.exists("/mnt/mtd/code/config_file/other.cfg"));
}

} // namespace
