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

// The text of the first element with this local name, or "<absent>".
std::string textOf(const std::string& p_strXml, const std::string& p_strName) {
    std::smatch m;
    if (std::regex_search(p_strXml, m,
                          std::regex("<tt:" + p_strName + ">([^<]*)</tt:" + p_strName + ">")))
        return m[1];
    return "<absent>";
}

// The text at an element path: each part searched after the previous one.
std::string textAt(const std::string& p_strXml, const std::string& p_strPath) {
    size_t pos = 0;
    size_t start = 0;
    while (true) {
        const size_t e = p_strPath.find('/', start);
        const std::string part = p_strPath.substr(start, e == std::string::npos ? e : e - start);
        pos = p_strXml.find("<tt:" + part + ">", pos);
        if (pos == std::string::npos)
            return "<absent>";
        if (e == std::string::npos)
            return textOf(p_strXml.substr(pos), part);
        start = e + 1;
    }
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

bool isFault(const HttpReply& r, const std::string& p_strSub) {
    return r.body.find("<env:Value>" + p_strSub + "</env:Value>") != std::string::npos;
}

// The key is an item of the style the camera hands its UI.
bool inStyle(ISensorController& p_objCtl, unsigned p_nKey) {
    return p_objCtl.getUIStyleFile().find("<item id=\"" + std::to_string(p_nKey) + "\"") !=
           std::string::npos;
}

bool plainField(const FieldMap& f) {
    return std::string(f.path).find('[') == std::string::npos &&
           std::string(f.path).find("IrCutFilterAutoAdjustment") == std::string::npos;
}

} // namespace

TEST_F(ImagingTest, SettingsReportEveryOfferedFieldAsTheControllerHoldsIt) {
    start();
    const std::string body = settings().body;
    int nChecked = 0;
    for (const FieldMap& f : imagingFieldMap()) {
        if (!inStyle(*cam.ctl, f.key)) {
            EXPECT_EQ("<absent>", textAt(body, f.path)) << f.path;
            continue;
        }
        if (!plainField(f))
            continue;
        const int v = value(static_cast<int>(f.key));
        const std::string name = f.path;
        const std::string leaf = name.substr(name.rfind('/') + 1);
        const std::string text = textAt(body, f.path);
        if (f.conversion == Conversion::Number) {
            EXPECT_EQ(formatFloat(v * f.scale), text) << f.path;
        } else if (f.conversion == Conversion::Enum) {
            bool bFound = false;
            for (const EnumValue& ev : f.values)
                for (int kv : ev.keyValues)
                    if (kv == v)
                        bFound = text == ev.token;
            EXPECT_TRUE(bFound) << f.path << " " << v << " " << text;
        } else {
            EXPECT_NE("<absent>", text) << f.path;
        }
        ++nChecked;
    }
    EXPECT_GE(nChecked, 20);
    EXPECT_NE(std::string::npos, body.find("<tt:BoundaryType>ToOn</tt:BoundaryType>"));
    EXPECT_NE(std::string::npos, body.find("<tt:BoundaryType>ToOff</tt:BoundaryType>"));
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
    EXPECT_EQ("37", textAt(body, "Brightness"));
    EXPECT_EQ("4000", textAt(body, "Exposure/ExposureTime")); // 1/250 s in microseconds
    EXPECT_EQ("MANUAL", textAt(body, "WhiteBalance/Mode"));
    EXPECT_EQ("0.3", textAt(body, "Extension/Extension/Extension/NoiseReduction/Level"));

    ASSERT_EQ(200, set(wrap("Brightness", "61")).status);
    EXPECT_EQ(61, value(KEY_BRIGHTNESS));
    ASSERT_EQ(200, set(wrap("Exposure/ExposureTime", "10000")).status);
    EXPECT_EQ(100, value(KEY_FIX_SHUTTER)); // 10 ms is 1/100 s
    ASSERT_EQ(200, set(wrap("WhiteBalance/Mode", "AUTO")).status);
    EXPECT_EQ(0, value(KEY_WB_MODE));
    ASSERT_EQ(200, set(wrap("Extension/Extension/Extension/NoiseReduction/Level", "0.75")).status);
    EXPECT_EQ(75, value(KEY_2D_NR_STRG_M));
}

TEST_F(ImagingTest, EveryNumericFieldIsSetThroughItsKey) {
    start();
    int nChecked = 0;
    for (const FieldMap& f : imagingFieldMap()) {
        if (!plainField(f) || f.conversion == Conversion::Enum || !inStyle(*cam.ctl, f.key) ||
            std::string(f.path).find("Focus") == 0)
            continue;
        const int nOld = value(static_cast<int>(f.key));
        std::string text;
        int nExpected = 0;
        if (f.conversion == Conversion::Number) {
            nExpected = nOld == 40 ? 41 : 40;
            text = formatFloat(nExpected * f.scale);
        } else if (f.conversion == Conversion::Reciprocal) {
            nExpected = nOld == 100 ? 50 : 100;
            text = formatFloat(f.scale / nExpected);
        } else { // Normalized over 0..100
            nExpected = nOld == 25 ? 75 : 25;
            text = formatFloat(nExpected / 100.0);
        }
        sim::Isp::instance().clearTrace();
        const HttpReply r = set(wrap(f.path, text));
        ASSERT_EQ(200, r.status) << f.path << r.body;
        EXPECT_EQ(nExpected, value(static_cast<int>(f.key))) << f.path;
        EXPECT_EQ(1u, setsOf(static_cast<int>(sensor_keys::commandOf(f.key)))) << f.path;
        const std::string path = f.path;
        EXPECT_EQ(text, textAt(settings().body, path));
        ++nChecked;
    }
    EXPECT_GE(nChecked, 15);
}

TEST_F(ImagingTest, EveryOfferedEnumTokenIsSetAndReadBack) {
    start();
    int nChecked = 0;
    for (const FieldMap& f : imagingFieldMap()) {
        if (f.conversion != Conversion::Enum || !inStyle(*cam.ctl, f.key))
            continue;
        const std::string path = f.path;
        for (const EnumValue& ev : f.values) {
            const HttpReply r = set(wrap(path, ev.token));
            ASSERT_EQ(200, r.status) << path << " " << ev.token << r.body;
            const int v = value(static_cast<int>(f.key));
            EXPECT_NE(ev.keyValues.end(), std::find(ev.keyValues.begin(), ev.keyValues.end(), v))
                << path << " " << ev.token << " " << v;
            EXPECT_EQ(ev.token, textAt(settings().body, path));
            ++nChecked;
        }
        EXPECT_TRUE(isFault(set(wrap(path, "SIDEWAYS")), "ter:SettingsInvalid")) << path;
    }
    // Exposure 2, IR cut 3, and OFF/ON of BLC, WDR, white balance, stabilisation, defog.
    EXPECT_EQ(15, nChecked);
}

TEST_F(ImagingTest, AnEnumTokenThatAlreadyHoldsKeepsTheKeyValue) {
    start();
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_WDR_MODE, 2));
    sim::Isp::instance().clearTrace();
    ASSERT_EQ(200, set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>").status);
    EXPECT_EQ(2, value(KEY_WDR_MODE));
    EXPECT_EQ(0u, setsOf(KEY_WDR_MODE));
    EXPECT_EQ("ON", textAt(settings().body, "WideDynamicRange/Mode"));
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
    EXPECT_TRUE(isFault(set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>"),
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
    EXPECT_TRUE(isFault(r, "ter:SettingsInvalid"));
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
        EXPECT_TRUE(isFault(r, "ter:InvalidArgVal")) << bad;
        EXPECT_TRUE(isFault(r, "ter:SettingsInvalid")) << bad;
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
    EXPECT_TRUE(isFault(set("<tt:Extension><tt:Extension><tt:IrCutFilterAutoAdjustment>"
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
    EXPECT_TRUE(isFault(r, "ter:NoSource"));
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
        EXPECT_TRUE(isFault(call(std::string("SetCurrentPreset><timg:VideoSourceToken>VideoSource_1"
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
    EXPECT_NE(std::string::npos, body.find("Presets=\"true\""));
}

TEST_F(ImagingTest, ABoxCameraHasNoFocusMoves) {
    start();
    EXPECT_EQ(std::string::npos,
              call("GetMoveOptions><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
                   "</timg:GetMoveOptions>")
                  .body.find("Continuous"));
    EXPECT_TRUE(isFault(call("Move><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
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
    EXPECT_EQ("MOVING", textOf(call(status).body, "MoveStatus"));
    ASSERT_EQ(
        200,
        call(head +
             "<tt:Continuous><tt:Speed>-0.5</tt:Speed></tt:Continuous></timg:Focus></timg:Move>")
            .status);
    EXPECT_EQ(1u, setsOf(KEY_FOCUS_NEAR));
    ASSERT_EQ(200,
              call("Stop><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken></timg:Stop>")
                  .status);
    EXPECT_EQ("IDLE", textOf(call(status).body, "MoveStatus"));
    ASSERT_EQ(
        200,
        call(head +
             "<tt:Absolute><tt:Position>300</tt:Position></tt:Absolute></timg:Focus></timg:Move>")
            .status);
    const auto calls = camtest::setCalls(KEY_MF_POSITION);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(300u, calls[0].words.at(0));
    EXPECT_TRUE(isFault(
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
    EXPECT_TRUE(isFault(r, "ter:NotAuthorized"));
    EXPECT_EQ(nBrightness, value(KEY_BRIGHTNESS));
    EXPECT_TRUE(camtest::setCalls().empty());
}

TEST_F(ImagingTest, AnExposureTimeTakesTheNearestOfferedShutter) {
    start();
    ASSERT_EQ(200,
              set("<tt:Exposure><tt:ExposureTime>33000</tt:ExposureTime></tt:Exposure>").status);
    EXPECT_EQ(30, value(KEY_FIX_SHUTTER));
    EXPECT_EQ("33333.3", textAt(settings().body, "Exposure/ExposureTime"));
    // 1/1 s is the longest shutter offered.
    EXPECT_NE(std::string::npos, options().body.find("<tt:MaxExposureTime><tt:Min>"));
    EXPECT_TRUE(
        isFault(set("<tt:Exposure><tt:MaxExposureTime>2000000</tt:MaxExposureTime></tt:Exposure>"),
                "ter:SettingsInvalid"));
    EXPECT_TRUE(
        isFault(set("<tt:Exposure><tt:MaxExposureTime>0</tt:MaxExposureTime></tt:Exposure>"),
                "ter:SettingsInvalid"));
}

TEST_F(ImagingTest, SixteenClientsSetAndGetWhileTheSchemeSwitches) {
    start();
    std::atomic<bool> bStop{false};
    std::atomic<int> nErrors{0};
    std::thread switcher([&] {
        for (int i = 0; !bStop; ++i)
            (void)cam.ctl->setParamScheme(i % 2);
    });
    std::vector<std::thread> clients;
    for (int t = 0; t < 16; ++t)
        clients.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                const int v = (t * 10 + i) % 101;
                const HttpReply r =
                    t % 2 ? settings()
                          : set("<tt:Brightness>" + std::to_string(v) +
                                    "</tt:Brightness><tt:Contrast>" + std::to_string(v) +
                                    "</tt:Contrast>",
                                "<timg:ForcePersistence>false</timg:ForcePersistence>");
                if (r.status != 200)
                    ++nErrors;
            }
        });
    for (auto& c : clients)
        c.join();
    bStop = true;
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
    EXPECT_TRUE(isFault(set("<tt:WideDynamicRange><tt:Mode>ON</tt:Mode></tt:WideDynamicRange>"),
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
    EXPECT_TRUE(isFault(set("<tt:Contrast>101</tt:Contrast>"), "ter:SettingsInvalid"));
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
