// The key-command table: every row against the table as the camera's
// documentation lists it, the controller's copy of it, and the lookup.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include "controller/KeyCmdTable.h"
#include "tests/support/ControllerFixture.h"

namespace {

using coretest::captureStdout;
using coretest::ControllerTest;

// Row, key, key in hex, command, handler ("none" for no handler), key name.
const char* const kExpectedRows[] = {
    "0 34 0x0022 34 doIaCmd KEY_BRIGHTNESS",
    "1 2337 0x0921 2337 doIaCmd KEY_SATURATION",
    "2 2353 0x0931 2353 doIaCmd KEY_CONTRAST",
    "3 2321 0x0911 2321 doIaCmd KEY_SHARPNESS",
    "4 96 0x0060 96 doIaCmd KEY_METER_AREA",
    "5 16 0x0010 16 doIaCmd KEY_EXPOSE_MODE",
    "6 49 0x0031 49 doIaCmd KEY_MAX_SHUTTER",
    "7 50 0x0032 50 doIaCmd KEY_FIX_SHUTTER",
    "8 65 0x0041 65 doIaCmd KEY_MAX_GAIN",
    "9 66 0x0042 66 doIaCmd KEY_FIX_GAIN",
    "10 80 0x0050 80 doIaCmd KEY_IRIS_SWITCH",
    "11 81 0x0051 81 doIaCmd KEY_IRIS_SPEED",
    "12 82 0x0052 82 doIaCmd KEY_IRIS_POSITION",
    "13 83 0x0053 85 doIaCmd KEY_IRIS_SIZE",
    "14 17 0x0011 83 doIaCmd_User KEY_IRIS_UP",
    "15 18 0x0012 84 doIaCmd_User KEY_IRIS_DOWN",
    "16 768 0x0300 768 doIaCmd KEY_WB_MODE",
    "17 770 0x0302 770 doIaCmd KEY_R_GAIN",
    "18 771 0x0303 771 doIaCmd KEY_B_GAIN",
    "19 144 0x0090 144 doIaCmd KEY_DN_MODE",
    "20 147 0x0093 147 doIaCmd KEY_DELAY",
    "21 160 0x00A0 160 doIaCmd KEY_IR_SWITCH",
    "22 161 0x00A1 161 doIaCmd KEY_IR_MODE",
    "23 162 0x00A2 162 doIaCmd KEY_IR_AUTO_STRG_NEAR",
    "24 163 0x00A3 163 doIaCmd KEY_IR_MANUAL_STRG_NEAR",
    "25 164 0x00A4 164 doIaCmd KEY_IR_AUTO_STRG_MEDIUM",
    "26 165 0x00A5 165 doIaCmd KEY_IR_MANUAL_STRG_MEDIUM",
    "27 166 0x00A6 166 doIaCmd KEY_IR_AUTO_STRG_FAR",
    "28 167 0x00A7 167 doIaCmd KEY_IR_MANUAL_STRG_FAR",
    "29 170 0x00AA 168 doIaCmd KEY_WHITE_SWITCH",
    "30 171 0x00AB 169 doIaCmd KEY_WHITE_MODE",
    "31 172 0x00AC 170 doIaCmd KEY_WHITE_MANUAL_STRG",
    "32 173 0x00AD 171 doIaCmd KEY_WHITE_MANUAL_STRG_MEDIUM",
    "33 174 0x00AE 172 doIaCmd KEY_WHITE_MANUAL_STRG_FAR",
    "34 2304 0x0900 2304 doIaCmd KEY_2D_NR_SWITCH",
    "35 2305 0x0901 2305 doIaCmd KEY_2D_NR_MODE",
    "36 2306 0x0902 2306 doIaCmd KEY_2D_NR_STRG_A",
    "37 2307 0x0903 2307 doIaCmd KEY_2D_NR_STRG_M",
    "38 2308 0x0904 2308 doIaCmd KEY_3D_NR_SWITCH",
    "39 2309 0x0905 2309 doIaCmd KEY_3D_NR_MODE",
    "40 2312 0x0908 2312 doIaCmd KEY_3D_NR_STRG_A",
    "41 2313 0x0909 2313 doIaCmd KEY_3D_NR_STRG_M",
    "42 2368 0x0940 2368 doHwdr KEY_WDR_MODE",
    "43 2369 0x0941 2369 doIaCmd KEY_WDR_STRG",
    "44 112 0x0070 112 doIaCmd KEY_HLC_SWITCH",
    "45 113 0x0071 113 doIaCmd KEY_HLC_STRG",
    "46 128 0x0080 128 doIaCmd KEY_BLC_SWITCH",
    "47 129 0x0081 129 doIaCmd KEY_BLC_MODE",
    "48 130 0x0082 130 doIaCmd KEY_BLC_STRG",
    "49 2416 0x0970 2416 doDIS KEY_ANTI_SHAKE_SWITCH",
    "50 2417 0x0971 2417 doIaCmd KEY_ANTI_SHAKE_STRG",
    "51 2400 0x0960 2400 doIaCmd KEY_DEFLG_SWITCH",
    "52 2401 0x0961 2401 doIaCmd KEY_DEFLG_STRG",
    "53 176 0x00B0 176 doIaCmd KEY_IN_OUT_SIDE",
    "54 2384 0x0950 2384 doMirror KEY_MIRROR",
    "55 2385 0x0951 2385 doBeaway KEY_BEAWAY",
    "56 145 0x0091 145 doDNThr KEY_DTN_THR",
    "57 146 0x0092 146 doDNThr KEY_NTD_THR",
    "58 154 0x009A 154 doDNThr KEY_DN_SENSITIVITY",
    "59 149 0x0095 149 doDNTime KEY_DTN_H",
    "60 150 0x0096 150 doDNTime KEY_DTN_M",
    "61 151 0x0097 151 doDNTime KEY_NTD_H",
    "62 152 0x0098 152 doDNTime KEY_NTD_M",
    "63 1536 0x0600 1536 doIaCmd KEY_AUTO_FOCUS_MODE",
    "64 1537 0x0601 1537 doIaCmd KEY_AUTO_FOCUS_NEAR_LIMIT",
    "65 1538 0x0602 1538 doIaCmd KEY_AUTO_FOCUS_SENSITIVITY",
    "66 1539 0x0603 1539 doIaCmd_User KEY_AUTO_FOCUS_ONCE",
    "67 1616 0x0650 1616 doIaCmd_User KEY_LENS_RESET",
    "68 1570 0x0622 1570 doIaCmd_User KEY_ZOOM_OUT",
    "69 1569 0x0621 1569 doIaCmd_User KEY_ZOOM_IN",
    "70 1553 0x0611 1553 doIaCmd_User KEY_FOCUS_NEAR",
    "71 1554 0x0612 1554 doIaCmd_User KEY_FOCUS_FAR",
    "72 1584 0x0630 1584 doIaCmd KEY_DIGITAL_ZOOM",
    "73 1571 0x0623 1571 doIaCmd KEY_MZOOM_SPEED",
    "74 8000 0x1F40 0 none KEY_SCHEME_MODE",
    "75 8001 0x1F41 0 none KEY_SCHEME_START_HOUR",
    "76 8002 0x1F42 0 none KEY_SCHEME_START_MIN",
    "77 8003 0x1F43 0 none KEY_SCHEME_END_HOUR",
    "78 8004 0x1F44 0 none KEY_SCHEME_END_MIN",
    "79 10 0x000A 0 none KEY_EMPTY1",
    "80 11 0x000B 0 none KEY_EMPTY2",
    "81 1552 0x0610 1552 doIaCmd KEY_MF_POSITION",
    "82 1568 0x0620 1568 doIaCmd KEY_MZ_POSITION",
    "83 2432 0x0980 2432 doImageAdjust KEY_CAP_OFF_ADJ_DIRECTION",
    "84 2433 0x0981 2433 doIaCmd KEY_CAP_OFF_ADJ_STEP",
    "85 2434 0x0982 2434 doIaCmd KEY_CAP_OFF_ADJ_H_MIN",
    "86 2435 0x0983 2435 doIaCmd KEY_CAP_OFF_ADJ_H_MAX",
    "87 2436 0x0984 2436 doImageAdjust KEY_CAP_OFF_ADJ_H_CUR",
    "88 2437 0x0985 2437 doIaCmd KEY_CAP_OFF_ADJ_V_MIN",
    "89 2438 0x0986 2438 doIaCmd KEY_CAP_OFF_ADJ_V_MAX",
    "90 2439 0x0987 2439 doImageAdjust KEY_CAP_OFF_ADJ_V_CUR",
    "91 2497 0x09C1 2464 doIaCmd_User KEY_SENSOR_FPS",
    "92 2512 0x09D0 2512 doIaCmd KEY_FREEZE",
    "93 2528 0x09E0 2528 doIaCmd KEY_GAMMA",
    "94 2560 0x0A00 2560 doIaCmd KEY_DN_AF_MODE",
    "95 8201 0x2009 8201 doIaCmd KEY_NONE_COLOR_MODE",
    "96 8202 0x200A 8202 doIaCmd KEY_DVE_MODE",
    "97 8203 0x200B 8203 doIaCmd KEY_AUTO_TIME",
    "98 8209 0x2011 8209 doIaCmd KEY_AUTO_TEMPR",
    "99 8204 0x200C 8204 doIaCmd KEY_CONTROL_FFC_MODE",
    "100 8205 0x200D 8205 doIaCmd KEY_IMAGES_ADJUST",
    "101 8206 0x200E 8206 doIaCmd KEY_IMAGES_REGULATE",
    "102 8207 0x200F 8207 doIaCmd KEY_FOCUS_SPEED_LEVEL",
    "103 8208 0x2010 8208 doIaCmd KEY_DVE_TYPE",
    "104 8211 0x2013 8211 doIaCmd KEY_SHUTTER_ADJUST",
    "105 8212 0x2014 8212 doIaCmd_User KEY_BACKGROUND_ADJUST",
    "106 8217 0x2019 8217 doIaCmd KEY_TEMPERATURE_STRIP_SWITCH",
    "107 8231 0x2027 8231 doIaCmd_User IA_CMD_UI_SHUTTER_RESET",
    "108 9000 0x2328 9000 doIaCmd_PanoTuning KEY_PANO_STITCH_DIST",
    "109 9001 0x2329 9001 doIaCmd_PanoTuning KEY_PANO_SAVE",
    "110 9002 0x232A 9002 doIaCmd_PanoTuning KEY_PANO_RESET",
    "111 9003 0x232B 9003 doIaCmd_PanoTuning KEY_PANO_PREVIEW",
    "112 9004 0x232C 9004 doIaCmd_PanoTuning KEY_PANO_ADJUST_EN",
    "113 9005 0x232D 9005 doIaCmd_PanoTuning KEY_PANO_ID",
    "114 9101 0x238D 9101 doIaCmd_PanoTuning KEY_PANO_ADJUST_EN_1",
    "115 9102 0x238E 9102 doIaCmd_PanoTuning KEY_PANO_YAW_1",
    "116 9103 0x238F 9103 doIaCmd_PanoTuning KEY_PANO_PITCH_1",
    "117 9104 0x2390 9104 doIaCmd_PanoTuning KEY_PANO_ROLL_1",
    "118 9105 0x2391 9105 doIaCmd_PanoTuning KEY_PANO_OFFSETX_1",
    "119 9106 0x2392 9106 doIaCmd_PanoTuning KEY_PANO_OFFSETY_1",
    "120 9201 0x23F1 9201 doIaCmd_PanoTuning KEY_PANO_ADJUST_EN_2",
    "121 9202 0x23F2 9202 doIaCmd_PanoTuning KEY_PANO_YAW_2",
    "122 9203 0x23F3 9203 doIaCmd_PanoTuning KEY_PANO_PITCH_2",
    "123 9204 0x23F4 9204 doIaCmd_PanoTuning KEY_PANO_ROLL_2",
    "124 9205 0x23F5 9205 doIaCmd_PanoTuning KEY_PANO_OFFSETX_2",
    "125 9206 0x23F6 9206 doIaCmd_PanoTuning KEY_PANO_OFFSETY_2",
    "126 9301 0x2455 9301 doIaCmd_PanoTuning KEY_PANO_ADJUST_EN_3",
    "127 9302 0x2456 9302 doIaCmd_PanoTuning KEY_PANO_YAW_3",
    "128 9303 0x2457 9303 doIaCmd_PanoTuning KEY_PANO_PITCH_3",
    "129 9304 0x2458 9304 doIaCmd_PanoTuning KEY_PANO_ROLL_3",
    "130 9305 0x2459 9305 doIaCmd_PanoTuning KEY_PANO_OFFSETX_3",
    "131 9306 0x245A 9306 doIaCmd_PanoTuning KEY_PANO_OFFSETY_3",
    "132 9401 0x24B9 9401 doIaCmd_PanoTuning KEY_PANO_ADJUST_EN_4",
    "133 9402 0x24BA 9402 doIaCmd_PanoTuning KEY_PANO_YAW_4",
    "134 9403 0x24BB 9403 doIaCmd_PanoTuning KEY_PANO_PITCH_4",
    "135 9404 0x24BC 9404 doIaCmd_PanoTuning KEY_PANO_ROLL_4",
    "136 9405 0x24BD 9405 doIaCmd_PanoTuning KEY_PANO_OFFSETX_4",
    "137 9406 0x24BE 9406 doIaCmd_PanoTuning KEY_PANO_OFFSETY_4",
};

struct ExpectedRow {
    u32 row, key, keyHex, cmd;
    std::string handler, name;
};

ExpectedRow parseRow(const char* text) {
    std::istringstream in(text);
    ExpectedRow r;
    std::string hex;
    in >> r.row >> r.key >> hex >> r.cmd >> r.handler >> r.name;
    r.keyHex = static_cast<u32>(std::strtoul(hex.c_str(), nullptr, 16));
    return r;
}

const std::map<std::string, SensorHandler>& handlersByName() {
    static const std::map<std::string, SensorHandler> handlers = {
        {"doIaCmd", &ISensorController::doIaCmd},
        {"doIaCmd_User", &ISensorController::doIaCmd_User},
        {"doHwdr", &ISensorController::doHwdr},
        {"doImageAdjust", &ISensorController::doImageAdjust},
        {"doDIS", &ISensorController::doDIS},
        {"doIaCmd_PanoTuning", &ISensorController::doIaCmd_PanoTuning},
        {"doDNThr", &ISensorController::doDNThr},
        {"doDNTime", &ISensorController::doDNTime},
        {"doMirror", &ISensorController::doMirror},
        {"doBeaway", &ISensorController::doBeaway},
    };
    return handlers;
}

std::string expectedHandlerName(const ExpectedRow& r) {
    return r.handler == "none" ? "NULL" : "&ISensorController::" + r.handler;
}

class KeyCmdTableTest : public ControllerTest {
protected:
    void SetUp() override { prepare({}); }
    int find(u32 key, keycmd& out) {
        return ctl->findFromKeyCmdMap(access().keyCmdMap(), key, out);
    }
};

TEST(KeyCmdTableRows, ToolLookupsListEveryRowInTableOrder) {
    ASSERT_EQ(sizeof(kExpectedRows) / sizeof(kExpectedRows[0]), 138u);
    ASSERT_EQ(sensorKeyCount(), 138u);
    for (u32 i = 0; i < 138; ++i) {
        const ExpectedRow r = parseRow(kExpectedRows[i]);
        ASSERT_EQ(r.row, i);
        ASSERT_EQ(r.key, r.keyHex) << "row " << i;
        u32 key = 0, cmd = 0;
        const char* keyName = nullptr;
        const char* handlerName = nullptr;
        ASSERT_TRUE(sensorKeyRow(i, key, cmd, keyName, handlerName));
        EXPECT_EQ(key, r.key) << "row " << i;
        EXPECT_EQ(cmd, r.cmd) << "row " << i;
        EXPECT_STREQ(keyName, r.name.c_str()) << "row " << i;
        EXPECT_EQ(std::string(handlerName), expectedHandlerName(r)) << "row " << i;
        EXPECT_STREQ(sensorKeyName(r.key), r.name.c_str()) << "row " << i;
    }
}

TEST(KeyCmdTableRows, RowAccessorStopsAfterTheLastRow) {
    u32 key = 1, cmd = 1;
    const char* keyName = "x";
    const char* handlerName = "y";
    EXPECT_FALSE(sensorKeyRow(138, key, cmd, keyName, handlerName));
    EXPECT_EQ(key, 1u);
}

TEST(KeyCmdTableRows, KeyNameOfAKeyNotInTheTableIsNull) {
    EXPECT_EQ(sensorKeyName(168), nullptr);
    EXPECT_EQ(sensorKeyName(169), nullptr);
    EXPECT_EQ(sensorKeyName(0), nullptr);
    EXPECT_STREQ(sensorKeyName(8231), "IA_CMD_UI_SHUTTER_RESET");
}

TEST(KeyCmdTableRows, KeysAreUnique) {
    std::map<u32, u32> seen;
    for (const char* text : kExpectedRows) {
        const ExpectedRow r = parseRow(text);
        EXPECT_TRUE(seen.emplace(r.key, r.row).second) << "key " << r.key;
    }
    for (u32 i = 0; i < sensorKeyCount(); ++i) {
        u32 key = 0, cmd = 0;
        const char *keyName = nullptr, *handlerName = nullptr;
        sensorKeyRow(i, key, cmd, keyName, handlerName);
        EXPECT_EQ(seen.at(key), i);
    }
}

TEST_F(KeyCmdTableTest, ControllerCopyMatchesEveryRowWithItsHandler) {
    ASSERT_EQ(access().keyCmdNum(), 138u);
    const keycmd* map = access().keyCmdMap();
    for (u32 i = 0; i < 138; ++i) {
        const ExpectedRow r = parseRow(kExpectedRows[i]);
        EXPECT_EQ(map[i].key, r.key) << "row " << i;
        EXPECT_EQ(map[i].cmd, r.cmd) << "row " << i;
        EXPECT_STREQ(map[i].szKeyName, r.name.c_str()) << "row " << i;
        EXPECT_EQ(std::string(map[i].szHandlerName), expectedHandlerName(r)) << "row " << i;
        if (r.handler == "none")
            EXPECT_EQ(map[i].handler, nullptr) << "row " << i;
        else
            EXPECT_EQ(map[i].handler, handlersByName().at(r.handler)) << "row " << i;
    }
}

TEST_F(KeyCmdTableTest, RowsBeyondTheTableAreZeroUpToCapacity) {
    const keycmd* map = access().keyCmdMap();
    for (u32 i = 138; i < 150; ++i) {
        keycmd zero;
        std::memset(static_cast<void*>(&zero), 0, sizeof(zero));
        EXPECT_EQ(std::memcmp(&map[i], &zero, sizeof(keycmd)), 0) << "row " << i;
    }
}

TEST_F(KeyCmdTableTest, RebuildingReplacesTheTable) {
    ctl->buildKeyCmdMap();
    EXPECT_EQ(access().keyCmdNum(), 138u);
    keycmd out;
    EXPECT_EQ(find(9406, out), 137);
}

TEST(KeyCmdTableCapacity, ConstructedControllerCountsCapacityAndHasNoTable) {
    testsupport::TempDeviceRoot root;
    ISensorController ctl;
    ISensorControllerTestAccess access(ctl);
    EXPECT_EQ(access.keyCmdNum(), 150u);
    EXPECT_EQ(access.keyCmdMap(), nullptr);
}

TEST_F(KeyCmdTableTest, Key34IsRowZeroWithCommand34AndDoIaCmd) {
    keycmd out;
    ASSERT_EQ(find(34, out), 0);
    EXPECT_EQ(out.key, 34u);
    EXPECT_EQ(out.cmd, 34u);
    EXPECT_EQ(out.handler, &ISensorController::doIaCmd);
    EXPECT_STREQ(out.szKeyName, "KEY_BRIGHTNESS");
    EXPECT_STREQ(out.szHandlerName, "&ISensorController::doIaCmd");
}

TEST_F(KeyCmdTableTest, Key9406IsTheLastRow) {
    keycmd out;
    ASSERT_EQ(find(9406, out), 137);
    EXPECT_STREQ(out.szKeyName, "KEY_PANO_OFFSETY_4");
    EXPECT_EQ(out.handler, &ISensorController::doIaCmd_PanoTuning);
}

TEST_F(KeyCmdTableTest, Key83IsIrisSizeSentAsCommand85) {
    keycmd out;
    ASSERT_EQ(find(83, out), 13);
    EXPECT_STREQ(out.szKeyName, "KEY_IRIS_SIZE");
    EXPECT_EQ(out.cmd, 85u);
}

TEST_F(KeyCmdTableTest, Key17IsIrisUpSentAsCommand83) {
    keycmd out;
    ASSERT_EQ(find(17, out), 14);
    EXPECT_STREQ(out.szKeyName, "KEY_IRIS_UP");
    EXPECT_EQ(out.cmd, 83u);
    EXPECT_EQ(out.handler, &ISensorController::doIaCmd_User);
}

TEST_F(KeyCmdTableTest, Keys168And169AreNotInTheTable) {
    keycmd out;
    out.key = 77;
    EXPECT_EQ(find(168, out), -1);
    EXPECT_EQ(find(169, out), -1);
    EXPECT_EQ(out.key, 77u);
}

TEST_F(KeyCmdTableTest, Key8000IsRow74WithoutCommandOrHandler) {
    keycmd out;
    ASSERT_EQ(find(8000, out), 74);
    EXPECT_EQ(out.cmd, 0u);
    EXPECT_EQ(out.handler, nullptr);
    EXPECT_STREQ(out.szHandlerName, "NULL");
    EXPECT_STREQ(out.szKeyName, "KEY_SCHEME_MODE");
}

TEST_F(KeyCmdTableTest, Key0IsNotFoundAmongTheZeroRowsBeyondTheTable) {
    keycmd out;
    EXPECT_EQ(find(0, out), -1);
}

TEST_F(KeyCmdTableTest, FullKeyIsCompared) {
    keycmd out;
    EXPECT_EQ(find(0x10000u + 34u, out), -1);
}

TEST_F(KeyCmdTableTest, SearchWithoutATableMissesInsteadOfReading) {
    keycmd out;
    EXPECT_EQ(ctl->findFromKeyCmdMap(nullptr, 34, out), -1);
}

TEST_F(KeyCmdTableTest, MissPrintsItsLineAtDebugLevel6) {
    root.setDebugSign("6\n");
    keycmd out;
    const std::string text = captureStdout([&] { EXPECT_EQ(find(168, out), -1); });
    EXPECT_EQ(text, "\033[0m\033[0mcand not find key-cmd while key=168\n\033[0m");
}

TEST_F(KeyCmdTableTest, MissIsSilentAtDefaultLevel) {
    keycmd out;
    const std::string text = captureStdout([&] { find(168, out); });
    EXPECT_EQ(text, "");
}

} // namespace
