// The rules the controller, sensorctl, the benchmarks and the fuzz targets
// share: the name of a channel's scheme file, the module a device tree
// describes for its machine, and the simulated ISP's default profile.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "config/SysConfig.h"
#include "controller/SensorKeys.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "storage/SensorFile.h"
#include "tests/support/TestSupport.h"

namespace {

TEST(SchemeFileName, ChannelOneKeepsTheSensorFiles) {
    EXPECT_EQ("/mnt/mtd/code/config_file/sensor0.cfg", sensorSchemeFile(1, 0));
    EXPECT_EQ("/mnt/mtd/code/config_file/sensor3.cfg", sensorSchemeFile(1, 3));
}

TEST(SchemeFileName, ThermalChannelKeepsFilesOfItsOwn) {
    EXPECT_EQ("/mnt/mtd/code/config_file/sensor-thermal0.cfg", sensorSchemeFile(2, 0));
    EXPECT_EQ("/mnt/mtd/code/config_file/sensor-thermal1.cfg", sensorSchemeFile(2, 1));
}

TEST(MachineModule, SampleTreeGivesTheModuleOfItsMachine) {
    testsupport::TempDeviceRoot root(true);
    const ModuleConfigure objModule = sim::machineModule(root.path());
    // The sample machine is an IPC-B2204 on a Hi3516DV300: its module is the
    // first one listed, not the later IMX327 module of another machine.
    EXPECT_EQ(3u, objModule.getModuleId());
    EXPECT_EQ("(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)", objModule.getDetail());
    EXPECT_EQ("(width=1920)(height=1080)(fps=30)", objModule.getParameters());
}

TEST(MachineModule, OtherMachineGetsItsFirstMatchingModule) {
    testsupport::TempDeviceRoot root(true);
    root.write(SENSOR_MACHINE_INFO_FILE,
               "[machine]\ndevice_type=1\nhardware_model=Hi3559AV100\nhardware_code=TBC-D1302\n");
    EXPECT_EQ(7u, sim::machineModule(root.path()).getModuleId());
}

TEST(MachineModule, TreeWithoutFilesGivesAnEmptyModule) {
    testsupport::TempDeviceRoot root;
    const ModuleConfigure objModule = sim::machineModule(root.path());
    EXPECT_EQ(ModuleConfigure().getModuleId(), objModule.getModuleId());
    EXPECT_EQ("", objModule.getDetail());
}

TEST(DefaultIspProfile, ListRangesAreTheDynamicCommandsInOrder) {
    const sim::IspProfile& profile = sim::defaultProfile();
    std::vector<uint32_t> vecListed;
    for (const sim::ProfileRange& range : profile.ranges)
        if (!range.items.empty())
            vecListed.push_back(range.cmd);
    EXPECT_EQ(profile.dynamicCmds, vecListed);
    EXPECT_EQ((std::vector<uint32_t>{KEY_MAX_SHUTTER, KEY_FIX_SHUTTER, KEY_METER_AREA, KEY_DN_MODE,
                                     KEY_WB_MODE, KEY_AUTO_FOCUS_NEAR_LIMIT, KEY_2D_NR_MODE,
                                     KEY_WDR_MODE}),
              profile.dynamicCmds);
}

TEST(DefaultIspProfile, IsWhatTheIspReportsAfterReset) {
    testsupport::TempDeviceRoot root;
    sim::Isp& isp = sim::Isp::instance();
    isp.setMinMaxRange(KEY_BRIGHTNESS, 1, 2, 3);
    isp.reset();
    for (const sim::ProfileRange& range : sim::defaultProfile().ranges) {
        ia_dynamic_params_attr_st stRange;
        std::memset(&stRange, 0, sizeof(stRange));
        ASSERT_EQ(0, isp.call(0, static_cast<int>(range.cmd), IA_CMD_OPT_GET_PARAM_RNAGE, &stRange))
            << range.cmd;
        EXPECT_EQ(range.defaultValue, stRange.default_value) << range.cmd;
        EXPECT_EQ(range.items.size(), stRange.items_cnt) << range.cmd;
        if (range.items.empty()) {
            EXPECT_EQ(range.minValue, stRange.min_value) << range.cmd;
            EXPECT_EQ(range.maxValue, stRange.max_value) << range.cmd;
        }
    }
}

} // namespace
