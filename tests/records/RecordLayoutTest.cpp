// The records that cross a boundary (scheme files on flash, the ISP's calls,
// the host's configuration) have one layout on the camera (32-bit ARM) and on
// a PC (x86-64): the same sizes and field offsets wherever the fields are
// fixed-width, and pointer-sized fields exactly where the pointer size says.
#include <gtest/gtest.h>

#include <cstddef>

#include "controller/SensorKeys.h"
#include "config/SysConfig.h"
#include "controller/ISensorController.h"
#include "host/ia_ioctrl_v2.h"
#include "keyval/KeyVal.h"

namespace {

constexpr size_t alignUp(size_t n, size_t a) {
    return (n + a - 1) / a * a;
}

} // namespace

TEST(RecordLayout, KeyValIsTwoWordsKeyFirst) {
    EXPECT_EQ(8u, sizeof(KeyVal));
    EXPECT_EQ(4u, alignof(KeyVal));
    EXPECT_EQ(0u, offsetof(KeyVal, key));
    EXPECT_EQ(4u, offsetof(KeyVal, value));
}

TEST(RecordLayout, KeyValArrayIsPackedLikeTheSchemeFile) {
    KeyVal aPairs[3] = {{KEY_BRIGHTNESS, 60}, {KEY_SATURATION, 0xfffffffbu}, {9, 1}};
    const unsigned char* p = reinterpret_cast<const unsigned char*>(aPairs);
    // Little-endian words back to back, as the file stores them.
    const unsigned char aExpected[24] = {
        34,   0,    0,    0,    60, 0, 0, 0, // (34, 60)
        0x21, 0x09, 0,    0,                 // 2337
        0xfb, 0xff, 0xff, 0xff,              // -5
        9,    0,    0,    0,    1,  0, 0, 0, // (9, 1)
    };
    EXPECT_EQ(24u, sizeof(aPairs));
    for (size_t i = 0; i < sizeof(aExpected); ++i)
        EXPECT_EQ(aExpected[i], p[i]) << "byte " << i;
}

TEST(RecordLayout, DynamicCommandListIsACountAndSixteenCommands) {
    EXPECT_EQ(68u, sizeof(ia_dynamic_params_cmds_st));
    EXPECT_EQ(0u, offsetof(ia_dynamic_params_cmds_st, cmd_cnt));
    EXPECT_EQ(4u, offsetof(ia_dynamic_params_cmds_st, cmd_list));
    EXPECT_EQ(64u, sizeof(ia_dynamic_params_cmds_st::cmd_list));
}

TEST(RecordLayout, RangeRecordHasDefaultSecondCountFifthAndSixtyFourItems) {
    EXPECT_EQ(276u, sizeof(ia_dynamic_params_attr_st));
    EXPECT_EQ(0u, offsetof(ia_dynamic_params_attr_st, type));
    EXPECT_EQ(4u, offsetof(ia_dynamic_params_attr_st, default_value));
    EXPECT_EQ(8u, offsetof(ia_dynamic_params_attr_st, min_value));
    EXPECT_EQ(12u, offsetof(ia_dynamic_params_attr_st, max_value));
    EXPECT_EQ(16u, offsetof(ia_dynamic_params_attr_st, items_cnt));
    EXPECT_EQ(20u, offsetof(ia_dynamic_params_attr_st, item));
    EXPECT_EQ(256u, sizeof(ia_dynamic_params_attr_st::item));
}

TEST(RecordLayout, DayNightThresholdsAreThreeWords) {
    EXPECT_EQ(12u, sizeof(dn_thr_st));
    EXPECT_EQ(0u, offsetof(dn_thr_st, d2n_thr));
    EXPECT_EQ(4u, offsetof(dn_thr_st, n2d_thr));
    EXPECT_EQ(8u, offsetof(dn_thr_st, dn_sensitivity));
}

TEST(RecordLayout, DayNightTimesAreFourWords) {
    EXPECT_EQ(16u, sizeof(dn_time_st));
    EXPECT_EQ(0u, offsetof(dn_time_st, d2n_hour));
    EXPECT_EQ(4u, offsetof(dn_time_st, d2n_min));
    EXPECT_EQ(8u, offsetof(dn_time_st, n2d_hour));
    EXPECT_EQ(12u, offsetof(dn_time_st, n2d_min));
}

TEST(RecordLayout, ModuleConfigFieldsFollowEachOtherWithoutGaps) {
    EXPECT_EQ(0u, offsetof(ModuleConfig, nModuleId));
    EXPECT_EQ(4u, offsetof(ModuleConfig, szLabel));
    EXPECT_EQ(36u, offsetof(ModuleConfig, szTag));
    EXPECT_EQ(46u, offsetof(ModuleConfig, szParameters));
    EXPECT_EQ(302u, offsetof(ModuleConfig, szDetail));
    EXPECT_EQ(512u, sizeof(ModuleConfig::szDetail));
    EXPECT_EQ(816u, sizeof(ModuleConfig)); // 814 bytes, padded to a word
}

TEST(RecordLayout, SysConfigStartsWithTheModuleThenCountsThenPointers) {
    EXPECT_EQ(0u, offsetof(SysConfig, moduleConfig));
    EXPECT_EQ(816u, offsetof(SysConfig, nSchemeSum));
    EXPECT_EQ(820u, offsetof(SysConfig, nLanguageNum));
    // 824 is aligned for 4- and 8-byte pointers alike.
    EXPECT_EQ(824u, offsetof(SysConfig, pLanguageTab));
    EXPECT_EQ(824u + sizeof(void*), offsetof(SysConfig, szUIStyle));
    EXPECT_EQ(824u + 2 * sizeof(void*), offsetof(SysConfig, nDeviceType));
}

TEST(RecordLayout, LanguageEntryHasIdTextThenTwoFileTexts) {
    EXPECT_EQ(0u, offsetof(UILanguageEntry, nLanguageId));
    EXPECT_EQ(4u, offsetof(UILanguageEntry, szReserved));
    EXPECT_EQ(32u, sizeof(UILanguageEntry::szReserved));
    const size_t nFiles = alignUp(36, alignof(char*));
    EXPECT_EQ(nFiles, offsetof(UILanguageEntry, szLanguageFile));
    EXPECT_EQ(nFiles + sizeof(char*), offsetof(UILanguageEntry, szCommonFile));
}

TEST(RecordLayout, KeyCmdRowIsKeyCommandHandlerAndTwoNames) {
    // A pointer to member function is two pointer-sized words on both ABIs.
    EXPECT_EQ(2 * sizeof(void*), sizeof(SensorHandler));
    EXPECT_EQ(0u, offsetof(keycmd, key));
    EXPECT_EQ(4u, offsetof(keycmd, cmd));
    EXPECT_EQ(8u, offsetof(keycmd, handler));
    EXPECT_EQ(8u + sizeof(SensorHandler), offsetof(keycmd, szKeyName));
    EXPECT_EQ(40u + sizeof(SensorHandler), offsetof(keycmd, szHandlerName));
    EXPECT_EQ(32u, sizeof(keycmd::szKeyName));
    EXPECT_EQ(64u, sizeof(keycmd::szHandlerName));
    // 112 bytes on the camera, 120 on a PC.
    EXPECT_EQ(alignUp(104 + sizeof(SensorHandler), alignof(keycmd)), sizeof(keycmd));
    EXPECT_EQ(sizeof(void*) == 4 ? 112u : 120u, sizeof(keycmd));
}
