// The controller object: construction, the channel, the small accessors, and
// saving the current scheme.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ControllerFixture.h"
#include "config/SysConfig.h"
#include "host/ModuleConfigure.h"
#include "sim/SimHost.h"
#include "storage/SensorFile.h"

namespace {

using coretest::ControllerTest;
using coretest::ispCalls;

TEST(ControllerObject, ConstructedControllerHasItsDefaults) {
    testsupport::TempDeviceRoot root;
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    EXPECT_EQ(access.cameraId(), 1);
    EXPECT_EQ(access.curScheme(), -1);
    EXPECT_EQ(access.lastScheme(), -1);
    EXPECT_EQ(access.paramMode(), 1u);
    EXPECT_EQ(access.keyValSum(), 0u);
    EXPECT_EQ(access.version(), 8u);
    EXPECT_EQ(access.flags(), 0);
    EXPECT_EQ(access.keyCmdNum(), 150u);
    EXPECT_EQ(access.lastSchedule(), 255u);
    EXPECT_FALSE(access.lprMode());
    EXPECT_TRUE(access.showWDR());
    EXPECT_FALSE(access.timeScheme());
    EXPECT_FALSE(access.dnScheme());
    EXPECT_EQ(access.videoStreamModule(), nullptr);
    EXPECT_EQ(access.factory(), nullptr);
    EXPECT_FALSE(ctl.getSensorStatus());
}

TEST(ControllerObject, WorkerIsCreatedButNotStarted) {
    testsupport::TempDeviceRoot root;
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    ASSERT_NE(access.sensorThread(), nullptr);
    EXPECT_FALSE(sim::threadRunning(*access.sensorThread()));
}

TEST(ControllerObject, DeviceType13ForcesChannelTwo) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_MACHINE_INFO_FILE, "[machine]\ndevice_type=13\n");
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    ctl.setChannelID(1);
    EXPECT_EQ(access.cameraId(), 2);
}

TEST(ControllerObject, OtherDeviceTypesKeepTheChannel) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_MACHINE_INFO_FILE, "[machine]\ndevice_type=8\n");
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    ctl.setChannelID(1);
    EXPECT_EQ(access.cameraId(), 1);
    ctl.setChannelID(2);
    EXPECT_EQ(access.cameraId(), 2);
}

TEST(ControllerObject, DeviceType13NotifiesThePipelineOnChannelOne) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_MACHINE_INFO_FILE, "[machine]\ndevice_type=13\n");
    sim::SimVideoStreamModule video;
    ISensorController ctl;
    ctl.setChannelID(1);
    ctl.setVideoStreamModule(&video);
    const auto objHold = ISensorControllerTestAccess(ctl).hold();
    EXPECT_EQ(ctl.notifyToVideo(KEY_MIRROR, 1), 0);
    ASSERT_EQ(video.notices().size(), 1u);
    EXPECT_EQ(video.notices()[0].channel, 1);
}

TEST(ControllerObject, VideoStreamModuleIsKept) {
    testsupport::TempDeviceRoot root;
    sim::SimVideoStreamModule video;
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    ctl.setVideoStreamModule(&video);
    EXPECT_EQ(access.videoStreamModule(), &video);
}

TEST(ControllerObject, CameraVersionIsTheIspText) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().setVersionText(0, "ISP 7.1");
    ISensorController ctl;
    std::string text;
    EXPECT_TRUE(ctl.getCameraVerInf(text));
    EXPECT_EQ(text, "ISP 7.1");
    EXPECT_EQ(ispCalls(IA_CMD_VERSION, 1).size(), 1u);
}

TEST(ControllerObject, CameraVersionFailureIsFalse) {
    testsupport::TempDeviceRoot root;
    sim::Isp::instance().failCommand(IA_CMD_VERSION, -1);
    ISensorController ctl;
    std::string text = "before";
    EXPECT_FALSE(ctl.getCameraVerInf(text));
    EXPECT_EQ(text, "before");
}

TEST(ControllerObject, SensorTypeIsTheModuleIdAndStatusTheInitedBit) {
    testsupport::TempDeviceRoot root;
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    access.sysConf().moduleConfig.nModuleId = 77;
    EXPECT_EQ(ctl.getSensorType(), 77u);
    access.setFlags(ISensorController::initing_flag);
    EXPECT_FALSE(ctl.getSensorStatus());
    access.setFlags(ISensorController::inited_flag);
    EXPECT_TRUE(ctl.getSensorStatus());
    access.setFlags(0);
    ctl.printDebugMsg();
}

TEST(ControllerObject, StartedControllerDestroyedWithoutUinitStopsItsWorker) {
    testsupport::TempDeviceRoot root(true);
    sim::SimVideoStreamModule video;
    const ModuleConfigure objModule = sim::machineModule(root.path());
    ASSERT_FALSE(objModule.getDetail().empty());
    {
        ISensorController ctl;
        ISensorControllerTestAccess access(ctl);
        ctl.setVideoStreamModule(&video);
        (void)ctl.init(objModule); // always true; the running worker is what counts
        ASSERT_TRUE(sim::threadRunning(*access.sensorThread()));
    }
    // The worker is gone: the ISP hears nothing more from it.
    sim::Isp::instance().clearTrace();
    sim::setTimeScale(0.001);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(sim::Isp::instance().trace().empty());
}

// --- flush --------------------------------------------------------------------

class FlushTest : public ControllerTest {
protected:
    // Start-up writes every user scheme's file; they are removed so that
    // each test sees exactly what flush() writes.
    void SetUp() override {
        prepare({{KEY_BRIGHTNESS, 50}});
        for (int n = 0; n < 5; ++n)
            root.remove(file(n));
    }
    static std::string file(int n) { return sensorSchemeFile(1, n); }
};

TEST_F(FlushTest, DefaultSchemeIndexSucceedsAndWritesNothing) {
    access().setCurScheme(4);
    EXPECT_EQ(ctl->flush(), 0);
    EXPECT_FALSE(root.exists(file(4)));
}

TEST_F(FlushTest, NoSchemeYetSucceedsAndWritesNothing) {
    access().setCurScheme(-1);
    EXPECT_EQ(ctl->flush(), 0);
    for (int n = 0; n < 5; ++n)
        EXPECT_FALSE(root.exists(file(n)));
}

TEST_F(FlushTest, StartHour25Returns505AndWritesNothing) {
    ctl->setKeyValToCache(0, KEY_SCHEME_START_HOUR, 25, false);
    EXPECT_EQ(ctl->flush(), 505);
    EXPECT_FALSE(root.exists(file(0)));
}

TEST_F(FlushTest, EndAfterMidnightReturns506AndWritesNothing) {
    ctl->setKeyValToCache(0, KEY_SCHEME_END_MIN, 1, false); // 24:01
    EXPECT_EQ(ctl->flush(), 506);
    EXPECT_FALSE(root.exists(file(0)));
}

TEST_F(FlushTest, StartNotBeforeEndReturns507AndWritesNothing) {
    ctl->setKeyValToCache(0, KEY_SCHEME_START_HOUR, 24, false);
    EXPECT_EQ(ctl->flush(), 507);
    EXPECT_FALSE(root.exists(file(0)));
}

TEST_F(FlushTest, CurrentSchemeIsWrittenToItsOwnFile) {
    access().setCurScheme(2);
    ctl->setParameter(KEY_BRIGHTNESS, 61, true);
    EXPECT_EQ(ctl->flush(), 0);
    EXPECT_FALSE(root.exists(file(0)));
    const std::string bytes = root.read(file(2));
    ASSERT_EQ(bytes.size(), 6 * sizeof(KeyVal));
    EXPECT_EQ(std::memcmp(bytes.data(), access().scheme(2), bytes.size()), 0);
    EXPECT_EQ(reinterpret_cast<const KeyVal*>(bytes.data())[5].value, 61u);
}

TEST_F(FlushTest, ChannelTwoWritesTheThermalFile) {
    ctl->setChannelID(2);
    access().setCurScheme(1);
    EXPECT_EQ(ctl->flush(), 0);
    EXPECT_TRUE(root.exists(sensorSchemeFile(2, 1)));
    EXPECT_FALSE(root.exists(file(1)));
}

TEST_F(FlushTest, FlushTakesTheMutexAtLine1120) {
    sim::clearMutexEvents();
    sim::recordMutexEvents(true);
    ctl->flush();
    sim::recordMutexEvents(false);
    const auto events = sim::mutexEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), "Lock ISensorController.cpp:1120");
}

} // namespace
