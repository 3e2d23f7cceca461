// The simulated ISP: stores, records, ranges, correction, the dynamic list,
// raw records, status, day/night, version, sensor check, trace, injected
// results and concurrent callers.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "host/ia_ioctrl_v2.h"
#include "sim/SimIsp.h"

namespace {

using sim::Isp;
using sim::IspCall;

class SimIspTest : public ::testing::Test {
protected:
    void SetUp() override { Isp::instance().reset(); }
    void TearDown() override { Isp::instance().reset(); }
    Isp& isp() { return Isp::instance(); }
};

constexpr uint32_t kGuard = 0xA5A5A5A5u;

ia_dynamic_params_attr_st rangeOf(int cmd) {
    ia_dynamic_params_attr_st range;
    std::memset(&range, 0xEE, sizeof(range));
    EXPECT_EQ(0, ia_ioctrl_v2(0, cmd, IA_CMD_OPT_GET_PARAM_RNAGE, &range));
    return range;
}

uint32_t corrected(int cmd, uint32_t value) {
    EXPECT_EQ(0, ia_ioctrl_v2(0, cmd, IA_CMD_OPT_CORRECT_PARAM, &value));
    return value;
}

TEST_F(SimIspTest, SetThenGetReturnsStoredValue) {
    uint32_t value = 60;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
    uint32_t read = 0;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(60u, read);
    uint32_t stored = 0;
    EXPECT_TRUE(isp().getValue(0, 34, stored));
    EXPECT_EQ(60u, stored);
}

TEST_F(SimIspTest, ValuesAreKeptPerChannel) {
    uint32_t value = 7;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 1000, IA_CMD_OPT_SET, &value));
    uint32_t read = 99;
    ASSERT_EQ(0, ia_ioctrl_v2(1, 1000, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(0u, read);
    ASSERT_EQ(0, ia_ioctrl_v2(0, 1000, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(7u, read);
}

TEST_F(SimIspTest, UnsetCommandReadsAsItsRangeDefault) {
    uint32_t read = 0;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 49, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(30u, read);
    ASSERT_EQ(0, ia_ioctrl_v2(0, 2337, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(50u, read);
}

TEST_F(SimIspTest, UnsetCommandWithoutRangeReadsAsZero) {
    uint32_t read = 123;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 777, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(0u, read);
    uint32_t stored = 0;
    EXPECT_FALSE(isp().getValue(0, 777, stored));
}

TEST_F(SimIspTest, RecordWordsMatchEveryRecordSize) {
    EXPECT_EQ(69u, Isp::recordWords(34, IA_CMD_OPT_GET_PARAM_RNAGE));
    EXPECT_EQ(69u, Isp::recordWords(145, IA_CMD_OPT_GET_PARAM_RNAGE));
    EXPECT_EQ(17u, Isp::recordWords(4112, IA_CMD_OPT_GET));
    for (int cmd : {145, 146, 154})
        EXPECT_EQ(3u, Isp::recordWords(cmd, IA_CMD_OPT_SET)) << cmd;
    for (int cmd = 149; cmd <= 152; ++cmd)
        EXPECT_EQ(4u, Isp::recordWords(cmd, IA_CMD_OPT_GET)) << cmd;
    EXPECT_EQ(4u, Isp::recordWords(2816, IA_CMD_OPT_SET));
    EXPECT_EQ(13u, Isp::recordWords(2496, IA_CMD_OPT_GET));
    EXPECT_EQ(1u, Isp::recordWords(34, IA_CMD_OPT_SET));
    EXPECT_EQ(1u, Isp::recordWords(153, IA_CMD_OPT_GET));
}

TEST_F(SimIspTest, ThresholdRecordKeepsThreeWords) {
    uint32_t record[4] = {10, 20, 30, kGuard};
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DN_THR_D2N, IA_CMD_OPT_SET, record));
    EXPECT_EQ((std::vector<uint32_t>{10, 20, 30}), isp().getRecord(0, IA_CMD_DN_THR_D2N));
    uint32_t read[4] = {0, 0, 0, kGuard};
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DN_THR_D2N, IA_CMD_OPT_GET, read));
    EXPECT_EQ(10u, read[0]);
    EXPECT_EQ(20u, read[1]);
    EXPECT_EQ(30u, read[2]);
    EXPECT_EQ(kGuard, read[3]);
}

TEST_F(SimIspTest, DayNightTimeRecordKeepsFourWords) {
    isp().setRecord(0, 151, {1, 2, 3, 4});
    uint32_t read[5] = {0, 0, 0, 0, kGuard};
    ASSERT_EQ(0, ia_ioctrl_v2(0, 151, IA_CMD_OPT_GET, read));
    EXPECT_EQ(1u, read[0]);
    EXPECT_EQ(4u, read[3]);
    EXPECT_EQ(kGuard, read[4]);
    ASSERT_EQ(1u, isp().callsOf(151).size());
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 4}), isp().callsOf(151)[0].words);
}

TEST_F(SimIspTest, ShortStoredRecordIsPaddedWithZeros) {
    isp().setRecord(0, 154, {5});
    uint32_t read[3] = {9, 9, 9};
    ASSERT_EQ(0, ia_ioctrl_v2(0, 154, IA_CMD_OPT_GET, read));
    EXPECT_EQ(5u, read[0]);
    EXPECT_EQ(0u, read[1]);
    EXPECT_EQ(0u, read[2]);
}

TEST_F(SimIspTest, ListRangeGivesDefaultAndItems) {
    const ia_dynamic_params_attr_st range = rangeOf(49);
    EXPECT_EQ(0u, range.type);
    EXPECT_EQ(30u, range.default_value);
    ASSERT_EQ(17u, range.items_cnt);
    EXPECT_EQ(1u, range.item[0]);
    EXPECT_EQ(10000u, range.item[16]);
    EXPECT_EQ(0u, range.item[17]);
}

TEST_F(SimIspTest, DefaultProfileHasEveryListRange) {
    struct Expected {
        int cmd;
        uint32_t defaultValue;
        std::vector<uint32_t> items;
    };
    const std::vector<uint32_t> shutter = {1,   2,   4,   8,   16,   25,   30,   50,   60,
                                           100, 120, 250, 500, 1000, 2000, 5000, 10000};
    const std::vector<Expected> expected = {
        {49, 30, shutter},         {50, 50, shutter},
        {96, 0, {0, 1, 2, 3}},     {144, 0, {0, 1, 2, 3}},
        {768, 0, {0, 1, 2, 3, 4}}, {1537, 30, {10, 30, 50, 100, 150, 300, 600}},
        {2305, 0, {0, 1}},         {2368, 0, {0, 1, 2}},
    };
    for (const Expected& e : expected) {
        const ia_dynamic_params_attr_st range = rangeOf(e.cmd);
        EXPECT_EQ(0u, range.type) << e.cmd;
        EXPECT_EQ(e.defaultValue, range.default_value) << e.cmd;
        ASSERT_EQ(e.items.size(), range.items_cnt) << e.cmd;
        EXPECT_EQ(e.items, std::vector<uint32_t>(range.item, range.item + range.items_cnt));
    }
}

TEST_F(SimIspTest, MinMaxRangeGivesBoundsAndNoItems) {
    for (int cmd : {34, 2337, 2353, 2321}) {
        const ia_dynamic_params_attr_st range = rangeOf(cmd);
        EXPECT_EQ(1u, range.type) << cmd;
        EXPECT_EQ(50u, range.default_value) << cmd;
        EXPECT_EQ(0u, range.min_value) << cmd;
        EXPECT_EQ(100u, range.max_value) << cmd;
        EXPECT_EQ(0u, range.items_cnt) << cmd;
    }
}

TEST_F(SimIspTest, RangeOfCommandWithoutRangeFailsAndLeavesDataUntouched) {
    ia_dynamic_params_attr_st range;
    std::memset(&range, 0xEE, sizeof(range));
    EXPECT_EQ(-1, ia_ioctrl_v2(0, 777, IA_CMD_OPT_GET_PARAM_RNAGE, &range));
    EXPECT_EQ(0xEEEEEEEEu, range.type);
    EXPECT_EQ(0xEEEEEEEEu, range.item[63]);
}

TEST_F(SimIspTest, ClearedRangeIsGone) {
    isp().clearRange(34);
    ia_dynamic_params_attr_st range;
    EXPECT_EQ(-1, ia_ioctrl_v2(0, 34, IA_CMD_OPT_GET_PARAM_RNAGE, &range));
    EXPECT_EQ(250u, corrected(34, 250));
}

TEST_F(SimIspTest, SetRangesReplaceTheProfile) {
    isp().setListRange(2000, 5, {5, 10});
    isp().setMinMaxRange(2001, 3, 1, 9);
    EXPECT_EQ(0u, rangeOf(2000).type);
    EXPECT_EQ(2u, rangeOf(2000).items_cnt);
    EXPECT_EQ(9u, rangeOf(2001).max_value);
    EXPECT_EQ(9u, corrected(2001, 40));
}

TEST_F(SimIspTest, CorrectMovesValueToNearestListItem) {
    EXPECT_EQ(25u, corrected(49, 27));
    EXPECT_EQ(30u, corrected(49, 29));
    EXPECT_EQ(10000u, corrected(49, 90000));
    EXPECT_EQ(1u, corrected(49, 0));
    EXPECT_EQ(100u, corrected(1537, 100));
}

TEST_F(SimIspTest, CorrectTieGoesToLowerItem) {
    EXPECT_EQ(10u, corrected(1537, 20));
    EXPECT_EQ(2u, corrected(49, 3));
}

TEST_F(SimIspTest, CorrectClampsIntoMinMax) {
    EXPECT_EQ(100u, corrected(34, 250));
    EXPECT_EQ(0u, corrected(34, 0));
    EXPECT_EQ(42u, corrected(34, 42));
}

TEST_F(SimIspTest, CorrectWithoutRangeLeavesValueUnchanged) {
    EXPECT_EQ(123456u, corrected(777, 123456));
}

TEST_F(SimIspTest, DynamicListHasDefaultProfile) {
    ia_dynamic_params_cmds_st list;
    std::memset(&list, 0xEE, sizeof(list));
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &list));
    ASSERT_EQ(8u, list.cmd_cnt);
    EXPECT_EQ((std::vector<uint32_t>{49, 50, 96, 144, 768, 1537, 2305, 2368}),
              std::vector<uint32_t>(list.cmd_list, list.cmd_list + 8));
    EXPECT_EQ(0u, list.cmd_list[8]);
    EXPECT_EQ((std::vector<uint32_t>{49, 50, 96, 144, 768, 1537, 2305, 2368}),
              isp().dynamicCommands());
}

TEST_F(SimIspTest, AFixedLensModuleListsNoLensCommand) {
    isp().runModule("(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)");
    ia_dynamic_params_cmds_st list;
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &list));
    ASSERT_EQ(7u, list.cmd_cnt);
    EXPECT_EQ((std::vector<uint32_t>{49, 50, 96, 144, 768, 2305, 2368}),
              std::vector<uint32_t>(list.cmd_list, list.cmd_list + 7));
    // The focus near limit has no range either.
    ia_dynamic_params_attr_st range;
    EXPECT_NE(0, ia_ioctrl_v2(0, 1537, IA_CMD_OPT_GET_PARAM_RNAGE, &range));
    // The other commands keep theirs.
    EXPECT_EQ(17u, rangeOf(49).items_cnt);
}

TEST_F(SimIspTest, AModuleWithALensOrNoLensFieldKeepsTheLensCommands) {
    for (const char* szDetail :
         {"(sensor=IMX334)(lens=motor)(zoom=33X)", "(lens=vari)",
          "(sensor=T384)(focus=motor)(max_scheme=2)", "(lens=fixedfocus)", ""}) {
        isp().reset();
        isp().runModule(szDetail);
        EXPECT_EQ((std::vector<uint32_t>{49, 50, 96, 144, 768, 1537, 2305, 2368}),
                  isp().dynamicCommands())
            << szDetail;
        EXPECT_EQ(7u, rangeOf(1537).items_cnt) << szDetail;
    }
}

TEST_F(SimIspTest, SetDynamicCommandsReplacesTheList) {
    isp().setDynamicCommands({34});
    ia_dynamic_params_cmds_st list;
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &list));
    EXPECT_EQ(1u, list.cmd_cnt);
    EXPECT_EQ(34u, list.cmd_list[0]);
}

TEST_F(SimIspTest, LongDynamicListIsCutToCapacity) {
    std::vector<uint32_t> cmds;
    for (uint32_t cmd = 1; cmd <= 20; ++cmd)
        cmds.push_back(cmd);
    isp().setDynamicCommands(cmds);
    ia_dynamic_params_cmds_st list;
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &list));
    EXPECT_EQ(16u, list.cmd_cnt);
    EXPECT_EQ(16u, list.cmd_list[15]);
}

TEST_F(SimIspTest, RawCommandListIsHandedOutExactlyWithCountBeyondCapacity) {
    ia_dynamic_params_cmds_st raw;
    std::memset(&raw, 0, sizeof(raw));
    raw.cmd_cnt = 40;
    for (int i = 0; i < IA_DYNAMIC_CMDS_MAX; ++i)
        raw.cmd_list[i] = 1000 + i;
    isp().setRawCommandList(raw);
    ia_dynamic_params_cmds_st list;
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &list));
    EXPECT_EQ(0, std::memcmp(&raw, &list, sizeof(raw)));
    EXPECT_EQ(40u, list.cmd_cnt);
}

TEST_F(SimIspTest, RawRangeIsHandedOutExactlyWithCountBeyondCapacity) {
    ia_dynamic_params_attr_st raw;
    std::memset(&raw, 0, sizeof(raw));
    raw.type = 0;
    raw.default_value = 3;
    raw.items_cnt = 200;
    for (int i = 0; i < IA_DYNAMIC_ITEMS_MAX; ++i)
        raw.item[i] = 10 * i;
    isp().setRawRange(96, raw);
    const ia_dynamic_params_attr_st range = rangeOf(96);
    EXPECT_EQ(0, std::memcmp(&raw, &range, sizeof(raw)));
    // Correction reads only the items the record holds.
    EXPECT_EQ(630u, corrected(96, 5000));
}

TEST_F(SimIspTest, ExecStatusDefaultsToZeroAndIsSettable) {
    uint32_t status = 99;
    ASSERT_EQ(0, ia_ioctrl_v2(0, 1632, IA_CMD_OPT_GET_EXEC_STATUS, &status));
    EXPECT_EQ(0u, status);
    isp().setExecStatus(1632, 2);
    ASSERT_EQ(0, ia_ioctrl_v2(0, 1632, IA_CMD_OPT_GET_EXEC_STATUS, &status));
    EXPECT_EQ(2u, status);
    ASSERT_EQ(0, ia_ioctrl_v2(0, 1648, IA_CMD_OPT_GET_EXEC_STATUS, &status));
    EXPECT_EQ(0u, status);
}

TEST_F(SimIspTest, DayNightStateAnswersStateCommand) {
    uint32_t state = 99;
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DN_STATE, IA_CMD_OPT_GET, &state));
    EXPECT_EQ(0u, state);
    isp().setDayNight(0, 1);
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DN_STATE, IA_CMD_OPT_GET, &state));
    EXPECT_EQ(1u, state);
    ASSERT_EQ(0, ia_ioctrl_v2(1, IA_CMD_DN_STATE, IA_CMD_OPT_GET, &state));
    EXPECT_EQ(0u, state);
}

TEST_F(SimIspTest, VersionTextFillsExactlyFiftyBytes) {
    char text[IA_VERSION_TEXT_LEN + 4];
    std::memset(text, 'x', sizeof(text));
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_VERSION, IA_CMD_OPT_GET, text));
    EXPECT_STREQ("SIMISP V1.2.0 build 20261121", text);
    EXPECT_EQ('\0', text[IA_VERSION_TEXT_LEN - 1]);
    EXPECT_EQ('x', text[IA_VERSION_TEXT_LEN]);
}

TEST_F(SimIspTest, VersionTextIsSettableAndTracedAsThirteenWords) {
    isp().setVersionText(0, "ISP 2.0");
    char text[IA_VERSION_TEXT_LEN];
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_VERSION, IA_CMD_OPT_GET, text));
    EXPECT_STREQ("ISP 2.0", text);
    const std::vector<IspCall> calls = isp().callsOf(IA_CMD_VERSION);
    ASSERT_EQ(1u, calls.size());
    ASSERT_EQ(13u, calls[0].words.size());
    EXPECT_EQ(0, std::memcmp(calls[0].words.data(), "ISP 2.0", 8));
    EXPECT_EQ(0u, calls[0].words[12]);
}

TEST_F(SimIspTest, LongVersionTextIsCutAndTerminated) {
    isp().setVersionText(0, std::string(80, 'v'));
    char text[IA_VERSION_TEXT_LEN];
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_VERSION, IA_CMD_OPT_GET, text));
    EXPECT_EQ(std::string(IA_VERSION_TEXT_LEN - 1, 'v'), std::string(text));
}

TEST_F(SimIspTest, VersionTextSetThroughIspIsReadBack) {
    char in[IA_VERSION_TEXT_LEN] = "ISP FROM HOST";
    ASSERT_EQ(0, ia_ioctrl_v2(1, IA_CMD_VERSION, IA_CMD_OPT_SET, in));
    char out[IA_VERSION_TEXT_LEN];
    ASSERT_EQ(0, ia_ioctrl_v2(1, IA_CMD_VERSION, IA_CMD_OPT_GET, out));
    EXPECT_STREQ("ISP FROM HOST", out);
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_VERSION, IA_CMD_OPT_GET, out));
    EXPECT_STREQ("SIMISP V1.2.0 build 20261121", out);
}

TEST_F(SimIspTest, FailedRecordCallTracesWholeRecordPassedIn) {
    isp().failCommand(IA_CMD_DN_THR_N2D, -2);
    uint32_t record[3] = {4, 5, 6};
    EXPECT_EQ(-2, ia_ioctrl_v2(0, IA_CMD_DN_THR_N2D, IA_CMD_OPT_SET, record));
    const std::vector<IspCall> calls = isp().callsOf(IA_CMD_DN_THR_N2D);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ((std::vector<uint32_t>{4, 5, 6}), calls[0].words);
    EXPECT_EQ(-2, calls[0].result);
    EXPECT_TRUE(isp().getRecord(0, IA_CMD_DN_THR_N2D).empty());
}

TEST_F(SimIspTest, SensorCheckKeepsNumbersAndAnswersResult) {
    int32_t check[5] = {11, 22, 33, -5, 0x5A5A};
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_SENSOR_CHECK, IA_CMD_OPT_GET, check));
    EXPECT_EQ(11, check[0]);
    EXPECT_EQ(22, check[1]);
    EXPECT_EQ(33, check[2]);
    EXPECT_EQ(1, check[3]);
    EXPECT_EQ(0x5A5A, check[4]);
    isp().setValue(0, IA_CMD_SENSOR_CHECK, 0);
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_SENSOR_CHECK, IA_CMD_OPT_GET, check));
    EXPECT_EQ(0, check[3]);
}

TEST_F(SimIspTest, SensorCheckSetStoresFourWords) {
    int32_t check[4] = {1, 2, 3, 4};
    ASSERT_EQ(0, ia_ioctrl_v2(0, IA_CMD_SENSOR_CHECK, IA_CMD_OPT_SET, check));
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 4}), isp().getRecord(0, IA_CMD_SENSOR_CHECK));
}

TEST_F(SimIspTest, TraceRecordsWordsPassedInAndHandedOut) {
    uint32_t value = 60;
    ASSERT_EQ(0, ia_ioctrl_v2(2, 34, IA_CMD_OPT_SET, &value));
    uint32_t read = 0;
    ASSERT_EQ(0, ia_ioctrl_v2(2, 34, IA_CMD_OPT_GET, &read));
    ia_dynamic_params_attr_st range;
    ASSERT_EQ(0, ia_ioctrl_v2(2, 34, IA_CMD_OPT_GET_PARAM_RNAGE, &range));
    const std::vector<IspCall> trace = isp().trace();
    ASSERT_EQ(3u, trace.size());
    EXPECT_EQ(2, trace[0].channel);
    EXPECT_EQ(34, trace[0].cmd);
    EXPECT_EQ(IA_CMD_OPT_SET, trace[0].opt);
    EXPECT_EQ(std::vector<uint32_t>{60}, trace[0].words);
    EXPECT_EQ(0, trace[0].result);
    EXPECT_EQ(IA_CMD_OPT_GET, trace[1].opt);
    EXPECT_EQ(std::vector<uint32_t>{60}, trace[1].words);
    EXPECT_EQ(69u, trace[2].words.size());
    EXPECT_EQ(100u, trace[2].words[3]);
}

TEST_F(SimIspTest, TakeTraceHandsOutAndEmpties) {
    uint32_t value = 1;
    ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value);
    EXPECT_EQ(1u, isp().takeTrace().size());
    EXPECT_TRUE(isp().trace().empty());
    ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value);
    isp().clearTrace();
    EXPECT_TRUE(isp().trace().empty());
}

TEST_F(SimIspTest, CallsOfSelectsOneCommand) {
    uint32_t value = 1;
    ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value);
    ia_ioctrl_v2(0, 35, IA_CMD_OPT_SET, &value);
    ia_ioctrl_v2(0, 34, IA_CMD_OPT_GET, &value);
    const std::vector<IspCall> calls = isp().callsOf(34);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(IA_CMD_OPT_SET, calls[0].opt);
    EXPECT_EQ(IA_CMD_OPT_GET, calls[1].opt);
}

TEST_F(SimIspTest, FailedCommandChangesNothingWritesNothingAndIsTraced) {
    isp().setValue(0, 34, 10);
    isp().failCommand(34, -7);
    uint32_t value = 60;
    EXPECT_EQ(-7, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
    uint32_t read = 99;
    EXPECT_EQ(-7, ia_ioctrl_v2(0, 34, IA_CMD_OPT_GET, &read));
    EXPECT_EQ(99u, read);
    uint32_t stored = 0;
    ASSERT_TRUE(isp().getValue(0, 34, stored));
    EXPECT_EQ(10u, stored);
    const std::vector<IspCall> calls = isp().callsOf(34);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(-7, calls[0].result);
    EXPECT_EQ(std::vector<uint32_t>{60}, calls[0].words);
    EXPECT_EQ(std::vector<uint32_t>{99}, calls[1].words);
    // Other commands are not affected.
    EXPECT_EQ(0, ia_ioctrl_v2(0, 35, IA_CMD_OPT_SET, &value));
}

TEST_F(SimIspTest, ClearedFailureLetsCommandThrough) {
    isp().failCommand(34, -1);
    isp().clearFailure(34);
    uint32_t value = 60;
    EXPECT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
}

TEST_F(SimIspTest, FailAllFailsEveryCommandAndOption) {
    isp().failAll(-3);
    uint32_t value = 1;
    EXPECT_EQ(-3, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
    EXPECT_EQ(-3, ia_ioctrl_v2(1, 777, IA_CMD_OPT_GET, &value));
    ia_dynamic_params_attr_st range;
    std::memset(&range, 0xEE, sizeof(range));
    EXPECT_EQ(-3, ia_ioctrl_v2(0, 49, IA_CMD_OPT_GET_PARAM_RNAGE, &range));
    EXPECT_EQ(0xEEEEEEEEu, range.type);
    EXPECT_EQ(3u, isp().trace().size());
    isp().clearFailures();
    EXPECT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
}

TEST_F(SimIspTest, PerCommandFailureWinsOverFailAll) {
    isp().failAll(-3);
    isp().failCommand(34, 0);
    isp().failCommand(35, -9);
    uint32_t value = 60;
    EXPECT_EQ(0, ia_ioctrl_v2(0, 34, IA_CMD_OPT_SET, &value));
    EXPECT_EQ(-9, ia_ioctrl_v2(0, 35, IA_CMD_OPT_SET, &value));
    EXPECT_EQ(-3, ia_ioctrl_v2(0, 36, IA_CMD_OPT_SET, &value));
}

TEST_F(SimIspTest, ResetRestoresDefaultProfile) {
    isp().setValue(0, 34, 5);
    isp().setDynamicCommands({});
    isp().clearRange(49);
    isp().failAll(-1);
    isp().setDayNight(0, 1);
    isp().reset();
    uint32_t stored = 0;
    EXPECT_FALSE(isp().getValue(0, 34, stored));
    EXPECT_EQ(8u, isp().dynamicCommands().size());
    EXPECT_EQ(30u, rangeOf(49).default_value);
    uint32_t state = 9;
    EXPECT_EQ(0, ia_ioctrl_v2(0, IA_CMD_DN_STATE, IA_CMD_OPT_GET, &state));
    EXPECT_EQ(0u, state);
}

TEST_F(SimIspTest, UnknownOptionIsRefused) {
    uint32_t value = 5;
    EXPECT_EQ(-1, ia_ioctrl_v2(0, 34, 9, &value));
    EXPECT_EQ(5u, value);
}

TEST_F(SimIspTest, NullDataIsRefused) {
    EXPECT_EQ(-1, ia_ioctrl_v2(0, 34, IA_CMD_OPT_GET, nullptr));
    EXPECT_EQ(1u, isp().trace().size());
}

TEST_F(SimIspTest, EightThreadsCallAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kCalls = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kCalls; ++i) {
                uint32_t value = static_cast<uint32_t>(i);
                ia_ioctrl_v2(t, 34, IA_CMD_OPT_SET, &value);
                uint32_t read = 0;
                ia_ioctrl_v2(t, 34, IA_CMD_OPT_GET, &read);
                ia_dynamic_params_attr_st range;
                ia_ioctrl_v2(t, 49, IA_CMD_OPT_GET_PARAM_RNAGE, &range);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(size_t(kThreads) * kCalls * 3, isp().trace().size());
    for (int t = 0; t < kThreads; ++t) {
        uint32_t stored = 0;
        ASSERT_TRUE(isp().getValue(t, 34, stored));
        EXPECT_EQ(uint32_t(kCalls - 1), stored);
    }
}

} // namespace
