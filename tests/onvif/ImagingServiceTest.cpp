// The imaging service on a simulated camera, driven through SOAP requests:
// every mapped field both ways, every enum token, options from the style,
// the missing feature, the all-or-nothing rollback, presets and focus moves.
#include <atomic>
#include <chrono>
#include <regex>
#include <thread>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/SysConfig.h"
#include "tests/support/OnvifRequests.h"
#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"
#include "tests/support/Camera.h"
#include "tests/support/SoapCheck.h"

using namespace sensor_onvif;
using namespace onvif_test;

namespace {

const char* const kImg = ImagingService::kPath;
const std::string kStyleFile = SENSOR_STYLE_FOLDER "Style.xml";

class ImagingTest : public ::testing::Test {
protected:
    // A box camera (no lens) unless p_bDome.
    void start(bool p_bDome = false, ImagingConfig p_objConfig = ImagingConfig()) {
        if (p_bDome)
            cam.root.write(SENSOR_MACHINE_INFO_FILE, "[machine]\ndevice_type=11\n"
                                                     "hardware_model=Hi3519AV100\n"
                                                     "hardware_code=IPD-S3301\n");
        ASSERT_TRUE(cam.start());
        service.reset(new ImagingService(*cam.ctl, std::move(p_objConfig)));
        service->registerOn(endpoint);
        sim::Isp::instance().clearTrace();
    }

    HttpReply call(const std::string& p_strBody) {
        return endpoint.handle(
            kImg, authed("<timg:" + p_strBody.substr(0, p_strBody.find_first_of(" >/")) +
                         " xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\""
                         " xmlns:tt=\"http://www.onvif.org/ver10/schema\"" +
                         p_strBody.substr(p_strBody.find_first_of(" >/"))));
    }
    HttpReply settings() {
        return call(
            "GetImagingSettings><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
            "</timg:GetImagingSettings>");
    }
    HttpReply options() {
        return call("GetOptions><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                    "</timg:GetOptions>");
    }
    // SetImagingSettings with the ImagingSettings content given.
    HttpReply set(const std::string& p_strSettings, const std::string& p_strExtra = "") {
        return call(
            "SetImagingSettings><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
            "<timg:ImagingSettings>" +
            p_strSettings + "</timg:ImagingSettings>" + p_strExtra + "</timg:SetImagingSettings>");
    }
    int value(int p_nKey) {
        int n = -12345;
        EXPECT_TRUE(cam.ctl->getParameter(p_nKey, n)) << p_nKey;
        return n;
    }
    size_t setsOf(int p_nCmd) { return camtest::setCalls(p_nCmd).size(); }
    // A box camera whose service keeps the style's offers for p_nMaxAgeMs on
    // the fixture's own clock (tNow).
    void startWithClock(int p_nMaxAgeMs) {
        ImagingConfig config;
        config.styleMaxAge = std::chrono::milliseconds(p_nMaxAgeMs);
        config.clock = [this] { return tNow; };
        start(false, std::move(config));
    }
    // How often the style was read since the trace was cleared: every read
    // rebuilds it from the ISP's list of commands with a dynamic range.
    size_t styleReads() { return camtest::callsOf(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, 1); }

    camtest::Camera cam;
    SoapEndpoint endpoint{kUser, kPassword, [] { return kNow; }};
    std::unique_ptr<ImagingService> service;
    std::chrono::steady_clock::time_point tNow{};
};

// The text at a path below ImagingSettings in a GetImagingSettings answer,
// read as XML; "<absent>" when a step is missing.
std::string settingAt(const std::string& body, const std::string& path) {
    return soapcheck::Answer(body).textAt("ImagingSettings/" + path);
}

// The focus's move status in a GetStatus answer.
std::string moveStatusOf(const std::string& body) {
    return soapcheck::Answer(body).textAt("Status/FocusStatus20/MoveStatus");
}

bool hasElement(const std::string& p_strXml, const std::string& p_strName) {
    return p_strXml.find("<tt:" + p_strName + ">") != std::string::npos;
}

// Wraps a leaf value in the field's path: "Exposure/Iris" -> <tt:Exposure><tt:Iris>v...
std::string wrap(const std::string& p_strPath, const std::string& p_strValue) {
    std::vector<std::string> parts;
    size_t pos = 0;
    while (true) {
        const size_t e = p_strPath.find('/', pos);
        parts.push_back(p_strPath.substr(pos, e == std::string::npos ? e : e - pos));
        if (e == std::string::npos)
            break;
        pos = e + 1;
    }
    std::string out = p_strValue;
    for (auto it = parts.rbegin(); it != parts.rend(); ++it)
        out = "<tt:" + *it + ">" + out + "</tt:" + *it + ">";
    return out;
}

// The box camera's fields, written out by hand from the ONVIF schema and the
// sample style (sliders 0..100, the shutter lists in 1/N s), not taken from
// the service's mapping table.
struct HandField {
    const char* path; // under ImagingSettings
    unsigned key;
    int cmd;              // the ISP command the key goes out as
    int heldValue;        // a key value set through the controller ...
    const char* heldText; // ... and the text GetImagingSettings reports for it
    const char* setText;  // a text SetImagingSettings writes over the default ...
    int setValue;         // ... and the key value it gives
};

const HandField kBoxFields[] = {
    {"BacklightCompensation/Mode", KEY_BLC_SWITCH, 128, 1, "ON", "ON", 1},
    {"BacklightCompensation/Level", KEY_BLC_STRG, 130, 11, "11", "61", 61},
    {"Brightness", KEY_BRIGHTNESS, 34, 12, "12", "62", 62},
    {"ColorSaturation", KEY_SATURATION, 2337, 13, "13", "63", 63},
    {"Contrast", KEY_CONTRAST, 2353, 14, "14", "64", 64},
    {"Exposure/Mode", KEY_EXPOSE_MODE, 16, 2, "AUTO", "MANUAL", 3},
    {"Exposure/MaxExposureTime", KEY_MAX_SHUTTER, 49, 250, "4000", "2000", 500},
    {"Exposure/MaxGain", KEY_MAX_GAIN, 65, 15, "15", "65", 65},
    {"Exposure/ExposureTime", KEY_FIX_SHUTTER, 50, 100, "10000", "1000", 1000},
    {"Exposure/Gain", KEY_FIX_GAIN, 66, 16, "16", "66", 66},
    {"IrCutFilter", KEY_DN_MODE, 144, 2, "OFF", "ON", 1},
    {"Sharpness", KEY_SHARPNESS, 2321, 17, "17", "67", 67},
    {"WideDynamicRange/Mode", KEY_WDR_MODE, 2368, 2, "ON", "ON", 1},
    {"WideDynamicRange/Level", KEY_WDR_STRG, 2369, 18, "18", "68", 68},
    {"WhiteBalance/Mode", KEY_WB_MODE, 768, 4, "MANUAL", "MANUAL", 1},
    {"WhiteBalance/CrGain", KEY_R_GAIN, 770, 19, "19", "69", 69},
    {"WhiteBalance/CbGain", KEY_B_GAIN, 771, 21, "21", "70", 70},
    {"Extension/ImageStabilization/Mode", KEY_ANTI_SHAKE_SWITCH, 2416, 0, "OFF", "ON", 1},
    {"Extension/ImageStabilization/Level", KEY_ANTI_SHAKE_STRG, 2417, 22, "22", "71", 71},
    {"Extension/Extension/Extension/Defogging/Mode", KEY_DEFLG_SWITCH, 2400, 1, "ON", "ON", 1},
    {"Extension/Extension/Extension/Defogging/Level", KEY_DEFLG_STRG, 2401, 30, "0.3", "0.25", 25},
    {"Extension/Extension/Extension/NoiseReduction/Level", KEY_2D_NR_STRG_M, 2307, 45, "0.45",
     "0.8", 80},
};

// Fields a box camera lacks: the iris and the lens.
const char* const kBoxAbsent[] = {"Exposure/Iris", "Focus"};

// The key is an item of the style the camera hands its UI.
bool inStyle(ISensorController& p_objCtl, unsigned p_nKey) {
    return p_objCtl.getUIStyleFile().find("<item id=\"" + std::to_string(p_nKey) + "\"") !=
           std::string::npos;
}

} // namespace

TEST_F(ImagingTest, SettingsReportEveryFieldFromItsOwnKey) {
    start();
    // Every key a value of its own, so that two fields swapped show.
    for (const HandField& f : kBoxFields)
        ASSERT_EQ(0, cam.ctl->setParameter(f.key, f.heldValue, true)) << f.path;
    const soapcheck::Answer answer(settings().body);
    ASSERT_FALSE(answer.isFault());
    for (const HandField& f : kBoxFields)
        EXPECT_EQ(f.heldText, answer.textAt(std::string("ImagingSettings/") + f.path)) << f.path;
    for (const char* szPath : kBoxAbsent)
        EXPECT_EQ("<absent>", answer.textAt(std::string("ImagingSettings/") + szPath)) << szPath;
}

// The same both ways with answers written out by hand, so that a wrong key or
// scale in the mapping table cannot pass by agreeing with itself.
TEST_F(ImagingTest, FieldsReadAndWriteTheirKeysWithHandWrittenAnswers) {
    start();
    ASSERT_TRUE(inStyle(*cam.ctl, KEY_BRIGHTNESS) && inStyle(*cam.ctl, KEY_FIX_SHUTTER) &&
                inStyle(*cam.ctl, KEY_WB_MODE) && inStyle(*cam.ctl, KEY_2D_NR_STRG_M));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, 37, true));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_FIX_SHUTTER, 250, true));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_WB_MODE, 3, true));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_2D_NR_STRG_M, 30, true));
    const std::string body = settings().body;
    EXPECT_EQ("37", settingAt(body, "Brightness"));
    EXPECT_EQ("4000", settingAt(body, "Exposure/ExposureTime")); // 1/250 s in microseconds
    EXPECT_EQ("MANUAL", settingAt(body, "WhiteBalance/Mode"));
    EXPECT_EQ("0.3", settingAt(body, "Extension/Extension/Extension/NoiseReduction/Level"));

    ASSERT_EQ(200, set(wrap("Brightness", "61")).status);
    EXPECT_EQ(61, value(KEY_BRIGHTNESS));
    ASSERT_EQ(200, set(wrap("Exposure/ExposureTime", "10000")).status);
    EXPECT_EQ(100, value(KEY_FIX_SHUTTER)); // 10 ms is 1/100 s
    ASSERT_EQ(200, set(wrap("WhiteBalance/Mode", "AUTO")).status);
    EXPECT_EQ(0, value(KEY_WB_MODE));
    ASSERT_EQ(200, set(wrap("Extension/Extension/Extension/NoiseReduction/Level", "0.75")).status);
    EXPECT_EQ(75, value(KEY_2D_NR_STRG_M));
}

TEST_F(ImagingTest, EveryFieldIsSetThroughItsOwnKeyAlone) {
    start();
    for (const HandField& f : kBoxFields) {
        sim::Isp::instance().clearTrace();
        const HttpReply r = set(wrap(f.path, f.setText));
        ASSERT_EQ(200, r.status) << f.path << r.body;
        EXPECT_EQ(f.setValue, value(static_cast<int>(f.key))) << f.path;
        // One ISP call, of this key's command.
        const auto calls = camtest::setCalls();
        ASSERT_EQ(1u, calls.size()) << f.path;
        EXPECT_EQ(f.cmd, calls[0].cmd) << f.path;
        EXPECT_EQ(static_cast<uint32_t>(f.setValue), calls[0].words.at(0)) << f.path;
    }
}

TEST_F(ImagingTest, EveryEnumTokenIsSetAndReadBack) {
    start();
    struct Token {
        const char* path;
        unsigned key;
        const char* token;
        int value; // written from the value before
        int before;
    };
    // A token whose values hold already keeps the key; otherwise the first of
    // its values the ISP offers is written.
    const Token tokens[] = {
        {"BacklightCompensation/Mode", KEY_BLC_SWITCH, "ON", 1, 0},
        {"BacklightCompensation/Mode", KEY_BLC_SWITCH, "OFF", 0, 1},
        {"Exposure/Mode", KEY_EXPOSE_MODE, "MANUAL", 3, 1},
        {"Exposure/Mode", KEY_EXPOSE_MODE, "AUTO", 0, 3},
        {"Exposure/Mode", KEY_EXPOSE_MODE, "AUTO", 2, 2},
        {"IrCutFilter", KEY_DN_MODE, "ON", 1, 0},
        {"IrCutFilter", KEY_DN_MODE, "OFF", 2, 1},
        {"IrCutFilter", KEY_DN_MODE, "AUTO", 0, 2},
        {"IrCutFilter", KEY_DN_MODE, "AUTO", 3, 3},
        {"WideDynamicRange/Mode", KEY_WDR_MODE, "ON", 1, 0},
        {"WideDynamicRange/Mode", KEY_WDR_MODE, "OFF", 0, 2},
        {"WhiteBalance/Mode", KEY_WB_MODE, "MANUAL", 1, 0},
        {"WhiteBalance/Mode", KEY_WB_MODE, "MANUAL", 3, 3},
        {"WhiteBalance/Mode", KEY_WB_MODE, "AUTO", 0, 4},
        {"Extension/ImageStabilization/Mode", KEY_ANTI_SHAKE_SWITCH, "ON", 1, 0},
        {"Extension/ImageStabilization/Mode", KEY_ANTI_SHAKE_SWITCH, "OFF", 0, 1},
        {"Extension/Extension/Extension/Defogging/Mode", KEY_DEFLG_SWITCH, "ON", 1, 0},
        {"Extension/Extension/Extension/Defogging/Mode", KEY_DEFLG_SWITCH, "OFF", 0, 1},
    };
    for (const Token& t : tokens) {
        ASSERT_EQ(0, cam.ctl->setParameter(t.key, t.before, true)) << t.path;
        const HttpReply r = set(wrap(t.path, t.token));
        ASSERT_EQ(200, r.status) << t.path << " " << t.token << r.body;
        EXPECT_EQ(t.value, value(static_cast<int>(t.key))) << t.path << " " << t.token;
        const soapcheck::Answer answer(settings().body);
        EXPECT_EQ(t.token, answer.textAt(std::string("ImagingSettings/") + t.path)) << t.path;
        EXPECT_TRUE(soapcheck::isFaultWith(set(wrap(t.path, "SIDEWAYS")), "ter:SettingsInvalid"))
            << t.path;
    }
}

TEST_F(ImagingTest, OptionsGiveEachNumericFieldItsStyleRange) {
    start();
    struct Range {
        const char* path; // under ImagingOptions
        const char* min;
        const char* max;
    };
    const Range ranges[] = {
        {"BacklightCompensation/Level", "0", "100"},
        {"Brightness", "0", "100"},
        {"ColorSaturation", "0", "100"},
        {"Contrast", "0", "100"},
        // 1/10000 s to 1/1 s, the ISP's shutter list.
        {"Exposure/MaxExposureTime", "100", "1000000"},
        {"Exposure/ExposureTime", "100", "1000000"},
        {"Exposure/MaxGain", "0", "100"},
        {"Exposure/Gain", "0", "100"},
        {"Sharpness", "0", "100"},
        {"WideDynamicRange/Level", "0", "100"},
        {"WhiteBalance/YrGain", "0", "100"},
        {"WhiteBalance/YbGain", "0", "100"},
        {"Extension/ImageStabilization/Level", "0", "100"},
    };
    const soapcheck::Answer answer(options().body);
    ASSERT_FALSE(answer.isFault());
    for (const Range& r : ranges) {
        EXPECT_EQ(r.min, answer.textAt(std::string("ImagingOptions/") + r.path + "/Min")) << r.path;
        EXPECT_EQ(r.max, answer.textAt(std::string("ImagingOptions/") + r.path + "/Max")) << r.path;
    }
    EXPECT_EQ("<absent>", answer.textAt("ImagingOptions/Exposure/Iris"));
    EXPECT_EQ("<absent>", answer.textAt("ImagingOptions/Focus"));
}

TEST_F(ImagingTest, AnEnumTokenThatAlreadyHoldsKeepsTheKeyValue) {
    start();
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_WDR_MODE, 2));
    sim::Isp::instance().clearTrace();
    ASSERT_EQ(200, set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>").status);
    EXPECT_EQ(2, value(KEY_WDR_MODE));
    EXPECT_EQ(0u, setsOf(KEY_WDR_MODE));
    EXPECT_EQ("ON", settingAt(settings().body, "WideDynamicRange/Mode"));
}

TEST_F(ImagingTest, OptionsAreTheStylesRangesAndChoices) {
    start();
    const std::string body = options().body;
    EXPECT_NE(std::string::npos,
              body.find("<tt:Brightness><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Brightness>"));
    EXPECT_NE(std::string::npos, body.find("<tt:IrCutFilterModes>AUTO</tt:IrCutFilterModes>"
                                           "<tt:IrCutFilterModes>ON</tt:IrCutFilterModes>"
                                           "<tt:IrCutFilterModes>OFF</tt:IrCutFilterModes>"));
    EXPECT_NE(std::string::npos, body.find("<tt:ResponseTimeRange><tt:Min>PT3S</tt:Min>"
                                           "<tt:Max>PT120S</tt:Max></tt:ResponseTimeRange>"));
    // Both boundaries offered: one offset for both, then each on its own.
    EXPECT_NE(std::string::npos,
              body.find("<tt:IrCutFilterAutoAdjustment><tt:BoundaryType>Common</tt:BoundaryType>"
                        "<tt:BoundaryType>ToOn</tt:BoundaryType>"
                        "<tt:BoundaryType>ToOff</tt:BoundaryType>"
                        "<tt:BoundaryOffset>true</tt:BoundaryOffset>"))
        << body;
    // No lens on a box camera: no focus in the options or the settings.
    EXPECT_FALSE(hasElement(body, "Focus"));
    EXPECT_FALSE(hasElement(settings().body, "Focus"));
}

TEST_F(ImagingTest, OptionsFollowTheIspRangeRewrite) {
    // This ISP offers no wide dynamic range mode but off.
    sim::Isp::instance().setListRange(KEY_WDR_MODE, 0, {0});
    start();
    const std::string body = options().body;
    EXPECT_NE(std::string::npos, body.find("<tt:WideDynamicRange><tt:Mode>OFF</tt:Mode><tt:Level>"))
        << body;
    EXPECT_TRUE(soapcheck::isFaultWith(
        set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>"),
        "ter:SettingsInvalid"));
    EXPECT_EQ(0, value(KEY_WDR_MODE));
}

TEST_F(ImagingTest, AFeatureTheStyleDoesNotOfferIsAbsentEverywhere) {
    // This model's style has no wide dynamic range.
    std::string style = cam.root.read(kStyleFile);
    style = std::regex_replace(style, std::regex("<item id=\"2368\"[\\s\\S]*?</item>"), "");
    style = std::regex_replace(style, std::regex("<item id=\"2369\"[^>]*/>"), "");
    cam.root.write(kStyleFile, style);
    start();
    EXPECT_FALSE(hasElement(settings().body, "WideDynamicRange"));
    EXPECT_FALSE(hasElement(options().body, "WideDynamicRange"));
    EXPECT_TRUE(hasElement(settings().body, "Brightness"));
    const int nBrightness = value(KEY_BRIGHTNESS);
    const HttpReply r =
        set("<tt:Brightness>10</tt:Brightness><tt:WideDynamicRange><tt:Mode>ON</tt:Mode>"
            "</tt:WideDynamicRange>");
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:SettingsInvalid"));
    EXPECT_EQ(nBrightness, value(KEY_BRIGHTNESS));
}

TEST_F(ImagingTest, AnInvalidFieldAppliesNothing) {
    start();
    const int nBrightness = value(KEY_BRIGHTNESS);
    for (const char* bad : {"<tt:Contrast>101</tt:Contrast>", "<tt:Contrast>-1</tt:Contrast>",
                            "<tt:Contrast>abc</tt:Contrast>", "<tt:Contrast></tt:Contrast>",
                            "<tt:Contrast>1e999</tt:Contrast>"}) {
        const HttpReply r = set(std::string("<tt:Brightness>7</tt:Brightness>") + bad);
        EXPECT_EQ(400, r.status) << bad;
        EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:InvalidArgVal")) << bad;
        EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:SettingsInvalid")) << bad;
    }
    EXPECT_EQ(nBrightness, value(KEY_BRIGHTNESS));
    EXPECT_TRUE(camtest::setCalls().empty());
}

TEST_F(ImagingTest, AnIspRefusalPutsBackWhatWasApplied) {
    start();
    const int nBrightness = value(KEY_BRIGHTNESS);
    const int nSaturation = value(KEY_SATURATION);
    const int nContrast = value(KEY_CONTRAST);
    sim::Isp::instance().failCommand(KEY_CONTRAST, -1);
    const HttpReply r =
        set("<tt:Brightness>11</tt:Brightness><tt:ColorSaturation>12</tt:ColorSaturation>"
            "<tt:Contrast>13</tt:Contrast>");
    EXPECT_EQ(500, r.status);
    EXPECT_NE(std::string::npos, r.body.find("Contrast")) << r.body;
    EXPECT_EQ(nBrightness, value(KEY_BRIGHTNESS));
    EXPECT_EQ(nSaturation, value(KEY_SATURATION));
    EXPECT_EQ(nContrast, value(KEY_CONTRAST));
    // The ISP saw the new values and then the old ones again.
    const auto calls = camtest::setCalls(KEY_BRIGHTNESS);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(11u, calls[0].words.at(0));
    EXPECT_EQ(static_cast<uint32_t>(nBrightness), calls[1].words.at(0));
}

TEST_F(ImagingTest, ForcePersistenceSavesTheScheme) {
    start();
    const std::string file = camtest::schemeFile(0);
    const std::string before = cam.root.read(file);
    ASSERT_EQ(200, set("<tt:Brightness>21</tt:Brightness>",
                       "<timg:ForcePersistence>false</timg:ForcePersistence>")
                       .status);
    EXPECT_EQ(before, cam.root.read(file));
    ASSERT_EQ(200, set("<tt:Brightness>22</tt:Brightness>").status);
    EXPECT_NE(before, cam.root.read(file));
}

TEST_F(ImagingTest, IrCutAdjustmentMapsTheThresholdsAndTheDelay) {
    start();
    ASSERT_EQ(200,
              set("<tt:Extension><tt:Extension><tt:IrCutFilterAutoAdjustment>"
                  "<tt:BoundaryType>ToOff</tt:BoundaryType><tt:BoundaryOffset>0</tt:BoundaryOffset>"
                  "<tt:ResponseTime>PT10S</tt:ResponseTime></tt:IrCutFilterAutoAdjustment>"
                  "<tt:IrCutFilterAutoAdjustment><tt:BoundaryType>ToOn</tt:BoundaryType>"
                  "<tt:BoundaryOffset>0.5</tt:BoundaryOffset></tt:IrCutFilterAutoAdjustment>"
                  "</tt:Extension></tt:Extension>")
                  .status);
    EXPECT_EQ(50, value(KEY_DTN_THR));
    EXPECT_EQ(75, value(KEY_NTD_THR));
    EXPECT_EQ(10, value(KEY_DELAY));
    ASSERT_EQ(
        200,
        set("<tt:Extension><tt:Extension><tt:IrCutFilterAutoAdjustment>"
            "<tt:BoundaryType>Common</tt:BoundaryType><tt:BoundaryOffset>-1</tt:BoundaryOffset>"
            "</tt:IrCutFilterAutoAdjustment></tt:Extension></tt:Extension>")
            .status);
    EXPECT_EQ(0, value(KEY_DTN_THR));
    EXPECT_EQ(0, value(KEY_NTD_THR));
    EXPECT_NE(std::string::npos, settings().body.find("<tt:BoundaryOffset>-1</tt:BoundaryOffset>"));
    EXPECT_TRUE(soapcheck::isFaultWith(
        set("<tt:Extension><tt:Extension><tt:IrCutFilterAutoAdjustment>"
            "<tt:BoundaryType>ToOn</tt:BoundaryType><tt:BoundaryOffset>1.5"
            "</tt:BoundaryOffset></tt:IrCutFilterAutoAdjustment></tt:Extension>"
            "</tt:Extension>"),
        "ter:SettingsInvalid"));
}

TEST_F(ImagingTest, AWrongVideoSourceIsNoSource) {
    start();
    const HttpReply r =
        call("GetImagingSettings><timg:VideoSourceToken>nope</timg:VideoSourceToken>"
             "</timg:GetImagingSettings>");
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NoSource"));
}

TEST_F(ImagingTest, PresetsAreTheUserSchemes) {
    start();
    const std::string list =
        call("GetPresets><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
             "</timg:GetPresets>")
            .body;
    for (int s = 0; s < 4; ++s)
        EXPECT_NE(std::string::npos, list.find("<timg:Preset token=\"Scheme_" + std::to_string(s) +
                                               "\" type=\"Custom\">"));
    EXPECT_EQ(std::string::npos, list.find("Scheme_4"));
    ASSERT_EQ(200,
              call("SetCurrentPreset><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                   "<timg:PresetToken>Scheme_2</timg:PresetToken></timg:SetCurrentPreset>")
                  .status);
    int nScheme = -1;
    ASSERT_TRUE(cam.ctl->getParamScheme(nScheme));
    EXPECT_EQ(2, nScheme);
    EXPECT_NE(std::string::npos,
              call("GetCurrentPreset><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                   "</timg:GetCurrentPreset>")
                  .body.find("token=\"Scheme_2\""));
    for (const char* bad : {"Scheme_4", "Scheme_", "Scheme_-1", "x", "Scheme_1x"})
        EXPECT_TRUE(soapcheck::isFaultWith(
            call(std::string("SetCurrentPreset><timg:VideoSourceToken>VideoSource_1"
                             "</timg:VideoSourceToken><timg:PresetToken>") +
                 bad + "</timg:PresetToken></timg:SetCurrentPreset>"),
            "ter:NoImagingPreset"))
            << bad;
    ASSERT_TRUE(cam.ctl->getParamScheme(nScheme));
    EXPECT_EQ(2, nScheme);
}

TEST_F(ImagingTest, CapabilitiesAnnouncePresetsAndStabilisation) {
    start();
    const std::string body = call("GetServiceCapabilities/>").body;
    EXPECT_NE(std::string::npos, body.find("ImageStabilization=\"true\""));
    EXPECT_NE(std::string::npos, body.find(" Presets=\"true\""));
}

TEST_F(ImagingTest, SettingsChangeTheActivePresetSoPresetsAreAdaptable) {
    start();
    EXPECT_NE(std::string::npos,
              call("GetServiceCapabilities/>").body.find("AdaptablePreset=\"true\""));
    const auto preset = [this](const std::string& token) {
        return call("SetCurrentPreset><timg:VideoSourceToken>VideoSource_1"
                    "</timg:VideoSourceToken><timg:PresetToken>" +
                    token + "</timg:PresetToken></timg:SetCurrentPreset>")
            .status;
    };
    ASSERT_EQ(200, preset("Scheme_1"));
    ASSERT_EQ(200, set("<tt:Brightness>71</tt:Brightness>").status);
    ASSERT_EQ(200, preset("Scheme_2"));
    EXPECT_EQ("50", settingAt(settings().body, "Brightness"));
    // Back on the preset the settings went to: it holds them.
    ASSERT_EQ(200, preset("Scheme_1"));
    EXPECT_EQ("71", settingAt(settings().body, "Brightness"));
}

TEST_F(ImagingTest, PresetNamesAreInTheImagingNamespace) {
    start();
    // imaging.wsdl: ImagingPreset's Name is timg:Name (of type tt:Name).
    for (const char* op : {"GetPresets", "GetCurrentPreset"}) {
        const HttpReply r = call(std::string(op) +
                                 "><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                                 "</timg:" +
                                 op + ">");
        const soapcheck::Answer answer(r.body);
        const TiXmlElement* pPreset = soapcheck::child(answer.first(), "Preset");
        ASSERT_NE(nullptr, pPreset) << r.body;
        const TiXmlElement* pName = soapcheck::child(pPreset, "Name");
        ASSERT_NE(nullptr, pName) << r.body;
        EXPECT_EQ("http://www.onvif.org/ver20/imaging/wsdl", soapcheck::namespaceOf(pName))
            << r.body;
        EXPECT_STREQ("Scheme 0", pName->GetText()) << r.body;
    }
}

TEST_F(ImagingTest, DefogAndNoiseReductionOptionsCarryTheSchemasNames) {
    start();
    const std::string body = options().body;
    // ImagingOptions20Extension3 (under Extension/Extension/Extension):
    // DefoggingOptions with one Mode per mode and a boolean Level, then
    // NoiseReductionOptions with a boolean Level.
    EXPECT_NE(std::string::npos,
              body.find("<tt:Extension><tt:DefoggingOptions><tt:Mode>OFF</tt:Mode>"
                        "<tt:Mode>ON</tt:Mode><tt:Level>true</tt:Level></tt:DefoggingOptions>"
                        "<tt:NoiseReductionOptions><tt:Level>true</tt:Level>"
                        "</tt:NoiseReductionOptions></tt:Extension>"))
        << body;
    EXPECT_FALSE(hasElement(body, "Defogging"));
    EXPECT_FALSE(hasElement(body, "NoiseReduction"));
}

TEST_F(ImagingTest, ABoxCameraHasNoFocusMoves) {
    start();
    EXPECT_EQ(std::string::npos,
              call("GetMoveOptions><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                   "</timg:GetMoveOptions>")
                  .body.find("Continuous"));
    EXPECT_TRUE(soapcheck::isFaultWith(
        call("Move><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
             "<timg:Focus><tt:Continuous><tt:Speed>1</tt:Speed></tt:Continuous>"
             "</timg:Focus></timg:Move>"),
        "ter:NoImagingForSource"));
}

TEST_F(ImagingTest, FocusMovesAreLensCommands) {
    start(true);
    const std::string head =
        "Move><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken><timg:Focus>";
    const std::string status =
        "GetStatus><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
        "</timg:GetStatus>";
    EXPECT_NE(std::string::npos,
              call("GetMoveOptions><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                   "</timg:GetMoveOptions>")
                  .body.find("<tt:Continuous><tt:Speed><tt:Min>-1</tt:Min>"));
    ASSERT_EQ(
        200,
        call(head +
             "<tt:Continuous><tt:Speed>0.5</tt:Speed></tt:Continuous></timg:Focus></timg:Move>")
            .status);
    EXPECT_EQ(1u, setsOf(KEY_FOCUS_FAR));
    EXPECT_EQ("MOVING", moveStatusOf(call(status).body));
    ASSERT_EQ(
        200,
        call(head +
             "<tt:Continuous><tt:Speed>-0.5</tt:Speed></tt:Continuous></timg:Focus></timg:Move>")
            .status);
    EXPECT_EQ(1u, setsOf(KEY_FOCUS_NEAR));
    ASSERT_EQ(200,
              call("Stop><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken></timg:Stop>")
                  .status);
    EXPECT_EQ("IDLE", moveStatusOf(call(status).body));
    ASSERT_EQ(
        200,
        call(head +
             "<tt:Absolute><tt:Position>300</tt:Position></tt:Absolute></timg:Focus></timg:Move>")
            .status);
    const auto calls = camtest::setCalls(KEY_MF_POSITION);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(300u, calls[0].words.at(0));
    EXPECT_TRUE(soapcheck::isFaultWith(
        call(head +
             "<tt:Absolute><tt:Position>-3</tt:Position></tt:Absolute></timg:Focus></timg:Move>"),
        "ter:SettingsInvalid"));
    EXPECT_TRUE(hasElement(settings().body, "AutoFocusMode"));
    // The ISP offers near limits up to 600 cm: the style and the options stop there.
    const std::string full = cam.ctl->getUIStyleFile();
    std::smatch m;
    ASSERT_TRUE(std::regex_search(full, m, std::regex("<item id=\"1537\"[\\s\\S]*?</item>")));
    const std::string item = m[0];
    EXPECT_NE(std::string::npos, item.find("<option index=\"600\""));
    EXPECT_EQ(std::string::npos, item.find("<option index=\"1000\""));
    EXPECT_NE(std::string::npos,
              options().body.find("<tt:NearLimit><tt:Min>0.1</tt:Min><tt:Max>6</tt:Max>"));
}

TEST_F(ImagingTest, AFocusMoveTakesTheFocusOutOfAutomatic) {
    start(true);
    const std::string head =
        "Move><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken><timg:Focus>";
    const std::string tail = "</timg:Focus></timg:Move>";
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_AUTO_FOCUS_MODE, 0, true));
    sim::Isp::instance().clearTrace();
    // A continuous speed of 0 only stops: the mode stays.
    ASSERT_EQ(200,
              call(head + "<tt:Continuous><tt:Speed>0</tt:Speed></tt:Continuous>" + tail).status);
    EXPECT_EQ(0, value(KEY_AUTO_FOCUS_MODE));
    EXPECT_EQ("AUTO", settingAt(settings().body, "Focus/AutoFocusMode"));

    // An absolute move: the mode goes to manual (2) first, then the lens.
    ASSERT_EQ(
        200,
        call(head + "<tt:Absolute><tt:Position>300</tt:Position></tt:Absolute>" + tail).status);
    EXPECT_EQ(2, value(KEY_AUTO_FOCUS_MODE));
    EXPECT_EQ("MANUAL", settingAt(settings().body, "Focus/AutoFocusMode"));
    const auto calls = camtest::setCalls();
    size_t nMode = calls.size();
    size_t nLens = calls.size();
    for (size_t i = 0; i < calls.size(); ++i) {
        if (calls[i].cmd == 1536 && nMode == calls.size())
            nMode = i;
        if (calls[i].cmd == 1552 && nLens == calls.size())
            nLens = i;
    }
    ASSERT_LT(nMode, calls.size());
    EXPECT_EQ(2u, calls[nMode].words.at(0));
    EXPECT_LT(nMode, nLens);

    // From semi-automatic (1, also AUTO) a continuous move does the same.
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_AUTO_FOCUS_MODE, 1, true));
    ASSERT_EQ(200,
              call(head + "<tt:Continuous><tt:Speed>0.5</tt:Speed></tt:Continuous>" + tail).status);
    EXPECT_EQ(2, value(KEY_AUTO_FOCUS_MODE));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_AUTO_FOCUS_MODE, 0, true));
    ASSERT_EQ(200,
              call(head + "<tt:Relative><tt:Distance>5</tt:Distance></tt:Relative>" + tail).status);
    EXPECT_EQ(2, value(KEY_AUTO_FOCUS_MODE));
}

TEST_F(ImagingTest, AWrongPasswordChangesNothing) {
    start();
    const int nBrightness = value(KEY_BRIGHTNESS);
    const HttpReply r = endpoint.handle(
        kImg, envelope(securityHeader("n-bad", kNow, kUser, "wrong"),
                       "<SetImagingSettings xmlns=\"http://www.onvif.org/ver20/imaging/wsdl\">"
                       "<VideoSourceToken>VideoSource_1</VideoSourceToken><ImagingSettings>"
                       "<Brightness xmlns=\"http://www.onvif.org/ver10/schema\">3</Brightness>"
                       "</ImagingSettings></SetImagingSettings>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized"));
    EXPECT_EQ(nBrightness, value(KEY_BRIGHTNESS));
    EXPECT_TRUE(camtest::setCalls().empty());
}

TEST_F(ImagingTest, AnExposureTimeTakesTheNearestOfferedShutter) {
    start();
    ASSERT_EQ(200,
              set("<tt:Exposure><tt:ExposureTime>33000</tt:ExposureTime></tt:Exposure>").status);
    EXPECT_EQ(30, value(KEY_FIX_SHUTTER));
    EXPECT_EQ("33333.3", settingAt(settings().body, "Exposure/ExposureTime"));
    // 1/1 s is the longest shutter offered.
    EXPECT_NE(std::string::npos, options().body.find("<tt:MaxExposureTime><tt:Min>"));
    EXPECT_TRUE(soapcheck::isFaultWith(
        set("<tt:Exposure><tt:MaxExposureTime>2000000</tt:MaxExposureTime></tt:Exposure>"),
        "ter:SettingsInvalid"));
    EXPECT_TRUE(soapcheck::isFaultWith(
        set("<tt:Exposure><tt:MaxExposureTime>0</tt:MaxExposureTime></tt:Exposure>"),
        "ter:SettingsInvalid"));
}

TEST_F(ImagingTest, SixteenClientsSetAndGetWhileTheSchemeSwitches) {
    start();
    constexpr int kClients = 16;
    constexpr int kRounds = 10;
    std::atomic<int> nErrors{0};
    std::atomic<int> nAnswered{0};
    // One switch per request answered, a fixed number in all: the run is as
    // long as the requests, however the scheduler and the mutex favour the
    // threads.
    std::thread switcher([&] {
        for (int i = 0; i < kClients * kRounds; ++i) {
            while (nAnswered.load() < i)
                std::this_thread::yield();
            (void)cam.ctl->setParamScheme(i % 2);
        }
    });
    std::vector<std::thread> clients;
    for (int t = 0; t < kClients; ++t)
        clients.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const int v = (t * 10 + i) % 101;
                const HttpReply r =
                    t % 2 ? settings()
                          : set("<tt:Brightness>" + std::to_string(v) +
                                    "</tt:Brightness><tt:Contrast>" + std::to_string(v) +
                                    "</tt:Contrast>",
                                "<timg:ForcePersistence>false</timg:ForcePersistence>");
                if (r.status != 200)
                    ++nErrors;
                ++nAnswered;
            }
        });
    for (auto& c : clients)
        c.join();
    switcher.join();
    EXPECT_EQ(0, nErrors.load());
}

// The style's offers are kept for styleMaxAge ----------------------------------

TEST_F(ImagingTest, SettingsReadTheStyleOncePerMaxAge) {
    startWithClock(1000);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(1u, styleReads());
    ASSERT_EQ(200, settings().status);
    ASSERT_EQ(200, set("<tt:Brightness>30</tt:Brightness>",
                       "<timg:ForcePersistence>false</timg:ForcePersistence>")
                       .status);
    tNow += std::chrono::milliseconds(999);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(1u, styleReads());
    tNow += std::chrono::milliseconds(1);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(2u, styleReads());
}

TEST_F(ImagingTest, AMaxAgeOfZeroReadsTheStyleOnEveryRequest) {
    startWithClock(0);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(200, settings().status);
    EXPECT_EQ(3u, styleReads());
}

TEST_F(ImagingTest, AClockThatGoesBackReadsTheStyleAgain) {
    startWithClock(1000);
    tNow += std::chrono::seconds(10);
    ASSERT_EQ(200, settings().status);
    tNow -= std::chrono::seconds(5);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(2u, styleReads());
}

TEST_F(ImagingTest, OptionsAlwaysReadTheStyleAndRenewTheKeptOffers) {
    startWithClock(1000);
    ASSERT_EQ(200, settings().status);
    // The ISP now offers no wide dynamic range mode but off: the options say
    // so at once, however young the kept offers are.
    sim::Isp::instance().setListRange(KEY_WDR_MODE, 0, {0});
    const std::string body = options().body;
    EXPECT_NE(std::string::npos, body.find("<tt:WideDynamicRange><tt:Mode>OFF</tt:Mode><tt:Level>"))
        << body;
    EXPECT_EQ(2u, styleReads());
    // ... and a change that asks for more is refused.
    EXPECT_TRUE(soapcheck::isFaultWith(
        set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>"),
        "ter:SettingsInvalid"));
    EXPECT_EQ(0, value(KEY_WDR_MODE));
}

TEST_F(ImagingTest, AValueTheKeptOffersRefuseIsCheckedAgainstTheStyleReadAnew) {
    sim::Isp::instance().setListRange(KEY_WDR_MODE, 0, {0});
    startWithClock(1000);
    ASSERT_EQ(200, settings().status);
    // The ISP offers the mode again; the kept offers do not know it yet.
    sim::Isp::instance().setListRange(KEY_WDR_MODE, 0, {0, 1});
    ASSERT_EQ(200, set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>").status);
    EXPECT_EQ(1, value(KEY_WDR_MODE));
    EXPECT_EQ(2u, styleReads());
    // A value the style itself refuses is still refused, after one more read.
    EXPECT_TRUE(
        soapcheck::isFaultWith(set("<tt:Contrast>101</tt:Contrast>"), "ter:SettingsInvalid"));
    EXPECT_EQ(3u, styleReads());
}

TEST_F(ImagingTest, AShowFlagChangeAPresetSwitchAndARefusalDropTheKeptOffers) {
    startWithClock(1000);
    ASSERT_EQ(200, settings().status);
    cam.ctl->setShowWDRFalg(false);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(2u, styleReads());
    setshowBeawayFalg(false);
    ASSERT_EQ(200, settings().status);
    setshowBeawayFalg(true);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(4u, styleReads());
    ASSERT_EQ(200,
              call("SetCurrentPreset><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                   "<timg:PresetToken>Scheme_1</timg:PresetToken></timg:SetCurrentPreset>")
                  .status);
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(5u, styleReads());
    sim::Isp::instance().failCommand(KEY_CONTRAST, -1);
    EXPECT_EQ(500, set("<tt:Contrast>13</tt:Contrast>").status);
    EXPECT_EQ(5u, styleReads());
    ASSERT_EQ(200, settings().status);
    EXPECT_EQ(6u, styleReads());
}
