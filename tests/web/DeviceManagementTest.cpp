// Device management of `sensorctl serve`'s ONVIF device service: the clock,
// the discovery mode, the scopes, the network and users as read-only facts,
// reboot and factory default. Tests named after ONVIF's base device test
// cases do what those cases do; the expected values are the ones ONVIF
// Core's device management fixes, written out here.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#if SENSORCTL_HAS_ONVIF
#include "tests/support/OnvifClient.h"
#include "tests/support/ServeProcess.h"
#endif

namespace {

#if SENSORCTL_HAS_ONVIF

using testsupport::OnvifClient;
using testsupport::OnvifReply;

const char* const kDevice = "/onvif/device_service";
const char* const kImaging = "/onvif/imaging_service";

std::string deviceOp(const std::string& op, const std::string& inner = "") {
    return "<tds:" + op +
           " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" "
           "xmlns:tt=\"http://www.onvif.org/ver10/schema\">" +
           inner + "</tds:" + op + ">";
}

std::string setDateTime(const std::string& type, const std::string& tz, int year, int month,
                        int day, int hour, int minute, int second) {
    return deviceOp("SetSystemDateAndTime",
                    "<tds:DateTimeType>" + type +
                        "</tds:DateTimeType><tds:DaylightSavings>false</tds:DaylightSavings>"
                        "<tds:TimeZone><tt:TZ>" +
                        tz + "</tt:TZ></tds:TimeZone><tds:UTCDateTime><tt:Time><tt:Hour>" +
                        std::to_string(hour) + "</tt:Hour><tt:Minute>" + std::to_string(minute) +
                        "</tt:Minute><tt:Second>" + std::to_string(second) +
                        "</tt:Second></tt:Time><tt:Date><tt:Year>" + std::to_string(year) +
                        "</tt:Year><tt:Month>" + std::to_string(month) + "</tt:Month><tt:Day>" +
                        std::to_string(day) + "</tt:Day></tt:Date></tds:UTCDateTime>");
}

std::string imagingOp(const std::string& op, const std::string& inner) {
    return "<timg:" + op +
           " xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\" "
           "xmlns:tt=\"http://www.onvif.org/ver10/schema\"><timg:VideoSourceToken>VideoSource_1"
           "</timg:VideoSourceToken>" +
           inner + "</timg:" + op + ">";
}

std::string setBrightness(int value, bool persist) {
    return imagingOp("SetImagingSettings",
                     "<timg:ImagingSettings><tt:Brightness>" + std::to_string(value) +
                         "</tt:Brightness></timg:ImagingSettings>"
                         "<timg:ForcePersistence>" +
                         (persist ? "true" : "false") + "</timg:ForcePersistence>");
}

// The text of every element of this local name, in order.
std::vector<std::string> allTexts(const std::string& body, const std::string& local) {
    std::vector<std::string> out;
    for (size_t nAt = body.find(local + ">"); nAt != std::string::npos;
         nAt = body.find(local + ">", nAt + 1)) {
        const size_t nOpen = body.rfind('<', nAt);
        if (nOpen == std::string::npos || body[nOpen + 1] == '/')
            continue;
        // Nothing or a prefix between '<' and the name.
        const std::string prefix = body.substr(nOpen + 1, nAt - nOpen - 1);
        if (!prefix.empty() &&
            (prefix.back() != ':' || prefix.find_first_of(" \t\"/>") != std::string::npos))
            continue;
        const size_t nText = nAt + local.size() + 1;
        out.push_back(body.substr(nText, body.find('<', nText) - nText));
    }
    return out;
}

class DeviceManagement : public ::testing::Test {
protected:
    void SetUp() override {
        std::string strError;
        ASSERT_TRUE(m_serve.start({"--time-scale", "0.01", "--user", "boss:b0ss:Administrator",
                                   "--user", "oper:0per:Operator", "--user", "eye:3ye:User"},
                                  strError))
            << strError;
        m_pAdmin.reset(new OnvifClient(m_serve.port(), "boss", "b0ss"));
        ASSERT_TRUE(m_pAdmin->syncClock());
    }

    OnvifClient& admin() { return *m_pAdmin; }

    OnvifClient client(const char* user, const char* password) {
        OnvifClient c(m_serve.port(), user, password);
        EXPECT_TRUE(c.syncClock());
        return c;
    }

    std::vector<std::string> scopeItems() {
        return allTexts(admin().call(kDevice, deviceOp("GetScopes")).body, "ScopeItem");
    }

    testsupport::ServeProcess m_serve;
    std::unique_ptr<OnvifClient> m_pAdmin;
};

TEST_F(DeviceManagement, SystemCommandGetSystemDateAndTime) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(r.text("DateTimeType"), "Manual");
    EXPECT_EQ(r.text("DaylightSavings"), "false");
    EXPECT_EQ(r.text("TZ"), "UTC0");
    EXPECT_NE(r.body.find("UTCDateTime"), std::string::npos) << r.body;
}

TEST_F(DeviceManagement, SystemCommandSetSystemDateAndTime) {
    const OnvifReply r =
        admin().call(kDevice, setDateTime("Manual", "CET-1", 2031, 2, 28, 23, 5, 9));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_NE(r.body.find("SetSystemDateAndTimeResponse"), std::string::npos) << r.body;
    const OnvifReply now = admin().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    EXPECT_EQ(now.text("TZ"), "CET-1");
    const std::string utc = now.body.substr(now.body.find("UTCDateTime"));
    const OnvifReply u{200, utc};
    EXPECT_EQ(u.text("Year"), "2031");
    EXPECT_EQ(u.text("Month"), "2");
    EXPECT_EQ(u.text("Day"), "28");
    EXPECT_EQ(u.text("Hour"), "23");
    EXPECT_EQ(u.text("Minute"), "5");
    EXPECT_EQ(u.text("Second"), "9");
    // One hour east of Greenwich: past midnight, the first of March.
    const size_t nLocal = now.body.find("LocalDateTime");
    ASSERT_NE(nLocal, std::string::npos) << now.body;
    const OnvifReply local{200, now.body.substr(nLocal)};
    EXPECT_EQ(local.text("Month"), "3");
    EXPECT_EQ(local.text("Day"), "1");
    EXPECT_EQ(local.text("Hour"), "0");
}

TEST_F(DeviceManagement, SummerTimeRulesLeaveTheLocalTimeOut) {
    const std::string body = deviceOp(
        "SetSystemDateAndTime",
        "<tds:DateTimeType>Manual</tds:DateTimeType><tds:DaylightSavings>true"
        "</tds:DaylightSavings><tds:TimeZone><tt:TZ>PST8PDT,M3.2.0,M11.1.0</tt:TZ></tds:TimeZone>"
        "<tds:UTCDateTime><tt:Time><tt:Hour>12</tt:Hour><tt:Minute>0</tt:Minute><tt:Second>0"
        "</tt:Second></tt:Time><tt:Date><tt:Year>2030</tt:Year><tt:Month>7</tt:Month><tt:Day>1"
        "</tt:Day></tt:Date></tds:UTCDateTime>");
    ASSERT_EQ(admin().call(kDevice, body).status, 200);
    const OnvifReply now = admin().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    EXPECT_EQ(now.text("TZ"), "PST8PDT,M3.2.0,M11.1.0");
    EXPECT_EQ(now.text("DaylightSavings"), "true");
    EXPECT_EQ(now.body.find("LocalDateTime"), std::string::npos) << now.body;
}

TEST_F(DeviceManagement, SystemCommandSetSystemDateAndTimeTestForInvalidTimezone) {
    const OnvifReply r =
        admin().call(kDevice, setDateTime("Manual", "INVALIDTIMEZONE", 2030, 1, 2, 3, 4, 5));
    EXPECT_EQ(r.status, 400) << r.body;
    EXPECT_EQ(r.subcodes(), "ter:InvalidArgVal ter:InvalidTimeZone") << r.body;
    const OnvifReply now = admin().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    EXPECT_EQ(now.text("TZ"), "UTC0");
    EXPECT_NE(now.text("Year"), "2030");
}

TEST_F(DeviceManagement, SystemCommandSetSystemDateAndTimeTestForInvalidDate) {
    for (const std::string& body :
         {setDateTime("Manual", "PST8PDT,M3.2.0,M11.1.0", 2030, 2, 30, 10, 0, 0),
          setDateTime("Manual", "PST8PDT,M3.2.0,M11.1.0", 2030, 13, 1, 10, 0, 0),
          setDateTime("Manual", "PST8PDT,M3.2.0,M11.1.0", 2030, 1, 1, 24, 0, 0),
          setDateTime("Manual", "PST8PDT,M3.2.0,M11.1.0", 2030, 1, 1, 10, 60, 0)}) {
        const OnvifReply r = admin().call(kDevice, body);
        EXPECT_EQ(r.status, 400) << r.body;
        EXPECT_EQ(r.subcodes(), "ter:InvalidArgVal ter:InvalidDateTime") << body;
    }
    const OnvifReply now = admin().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    EXPECT_EQ(now.text("TZ"), "UTC0");
}

TEST_F(DeviceManagement, SystemCommandSetSystemDateAndTimeUsingNtp) {
    // The camera has no NTP server to switch to.
    const OnvifReply r = admin().call(kDevice, setDateTime("NTP", "UTC0", 2030, 1, 1, 0, 0, 0));
    EXPECT_EQ(r.status, 400) << r.body;
    EXPECT_EQ(r.subcodes(), "ter:InvalidArgVal ter:NtpServerUndefined") << r.body;
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetSystemDateAndTime"), false).text("DateTimeType"),
              "Manual");
}

TEST_F(DeviceManagement, DiscoveryModeConfiguration) {
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetDiscoveryMode")).text("DiscoveryMode"),
              "Discoverable");
    const OnvifReply set =
        admin().call(kDevice, deviceOp("SetDiscoveryMode",
                                       "<tds:DiscoveryMode>NonDiscoverable</tds:DiscoveryMode>"));
    ASSERT_EQ(set.status, 200) << set.body;
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetDiscoveryMode")).text("DiscoveryMode"),
              "NonDiscoverable");
    ASSERT_EQ(admin()
                  .call(kDevice, deviceOp("SetDiscoveryMode",
                                          "<tds:DiscoveryMode>Discoverable</tds:DiscoveryMode>"))
                  .status,
              200);
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetDiscoveryMode")).text("DiscoveryMode"),
              "Discoverable");
    const OnvifReply bad = admin().call(
        kDevice, deviceOp("SetDiscoveryMode", "<tds:DiscoveryMode>Hidden</tds:DiscoveryMode>"));
    EXPECT_EQ(bad.subcode(), "ter:InvalidArgVal") << bad.body;
}

TEST_F(DeviceManagement, DeviceScopesConfiguration) {
    const std::vector<std::string> fixed = scopeItems();
    ASSERT_FALSE(fixed.empty());
    const std::string one = "onvif://www.onvif.org/location/country/atlantis";
    const std::string two = "onvif://www.onvif.org/name/garden_gate";
    ASSERT_EQ(
        admin().call(kDevice, deviceOp("SetScopes", "<tds:Scopes>" + one + "</tds:Scopes>")).status,
        200);
    ASSERT_EQ(
        admin()
            .call(kDevice, deviceOp("AddScopes", "<tds:ScopeItem>" + two + "</tds:ScopeItem>"))
            .status,
        200);
    std::vector<std::string> expected = fixed;
    expected.push_back(one);
    expected.push_back(two);
    EXPECT_EQ(scopeItems(), expected);
    const OnvifReply scopes = admin().call(kDevice, deviceOp("GetScopes"));
    const std::vector<std::string> defs = allTexts(scopes.body, "ScopeDef");
    ASSERT_EQ(defs.size(), expected.size());
    EXPECT_EQ(defs.back(), "Configurable");
    EXPECT_EQ(defs.front(), "Fixed");

    const OnvifReply removed = admin().call(
        kDevice, deviceOp("RemoveScopes", "<tds:ScopeItem>" + two + "</tds:ScopeItem>"));
    ASSERT_EQ(removed.status, 200) << removed.body;
    EXPECT_EQ(removed.text("ScopeItem"), two);
    expected.pop_back();
    EXPECT_EQ(scopeItems(), expected);

    // SetScopes replaces the configurable scopes only.
    ASSERT_EQ(
        admin().call(kDevice, deviceOp("SetScopes", "<tds:Scopes>" + two + "</tds:Scopes>")).status,
        200);
    expected.back() = two;
    EXPECT_EQ(scopeItems(), expected);
}

TEST_F(DeviceManagement, FixedScopesCannotBeRemovedOrOverwritten) {
    const std::vector<std::string> fixed = scopeItems();
    ASSERT_FALSE(fixed.empty());
    const OnvifReply remove = admin().call(
        kDevice, deviceOp("RemoveScopes", "<tds:ScopeItem>" + fixed[0] + "</tds:ScopeItem>"));
    EXPECT_EQ(remove.status, 400) << remove.body;
    EXPECT_EQ(remove.subcodes(), "ter:OperationProhibited ter:FixedScope");
    const OnvifReply set =
        admin().call(kDevice, deviceOp("SetScopes", "<tds:Scopes>" + fixed[0] + "</tds:Scopes>"));
    EXPECT_EQ(set.subcodes(), "ter:OperationProhibited ter:FixedScope") << set.body;
    const OnvifReply missing = admin().call(
        kDevice, deviceOp("RemoveScopes", "<tds:ScopeItem>onvif://www.onvif.org/name/nobody"
                                          "</tds:ScopeItem>"));
    EXPECT_EQ(missing.subcodes(), "ter:InvalidArgVal ter:NoScope") << missing.body;
    EXPECT_EQ(scopeItems(), fixed);
}

TEST_F(DeviceManagement, TooManyScopesAreRefused) {
    std::string inner;
    for (int i = 0; i < 17; ++i)
        inner +=
            "<tds:Scopes>onvif://www.onvif.org/location/room" + std::to_string(i) + "</tds:Scopes>";
    const OnvifReply r = admin().call(kDevice, deviceOp("SetScopes", inner));
    EXPECT_EQ(r.status, 500) << r.body;
    EXPECT_EQ(r.subcodes(), "ter:Action ter:TooManyScopes");
}

TEST_F(DeviceManagement, GetNetworkInterfaceConfiguration) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetNetworkInterfaces"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_NE(r.body.find("token=\"lo\""), std::string::npos) << r.body;
    EXPECT_EQ(r.text("Address"), "127.0.0.1");
    EXPECT_EQ(r.text("PrefixLength"), "8");
    EXPECT_EQ(r.text("DHCP"), "false");
}

TEST_F(DeviceManagement, GetDnsConfiguration) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetDNS"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(r.text("FromDHCP"), "false");
    EXPECT_EQ(r.body.find("DNSManual"), std::string::npos);
}

TEST_F(DeviceManagement, GetNtpConfiguration) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetNTP"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(r.text("FromDHCP"), "false");
    EXPECT_EQ(r.body.find("NTPManual"), std::string::npos);
}

TEST_F(DeviceManagement, GetNetworkProtocolsConfiguration) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetNetworkProtocols"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(r.text("Name"), "HTTP");
    EXPECT_EQ(r.text("Enabled"), "true");
    EXPECT_EQ(r.text("Port"), std::to_string(m_serve.port()));
}

TEST_F(DeviceManagement, GetNetworkDefaultGatewayConfiguration) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetNetworkDefaultGateway"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_NE(r.body.find("NetworkGateway"), std::string::npos) << r.body;
    EXPECT_EQ(r.body.find("IPv4Address"), std::string::npos) << r.body;
}

TEST_F(DeviceManagement, NetworkAndUsersAreReadOnlyAndSaySo) {
    const OnvifReply caps = admin().call(kDevice, deviceOp("GetServiceCapabilities"), false);
    EXPECT_NE(caps.body.find("NetworkConfigNotSupported=\"true\""), std::string::npos) << caps.body;
    EXPECT_NE(caps.body.find("UserConfigNotSupported=\"true\""), std::string::npos);
    EXPECT_NE(caps.body.find("NTP=\"0\""), std::string::npos);
    EXPECT_NE(caps.body.find("DiscoveryNotSupported=\"false\""), std::string::npos);
    for (const std::string& body : {deviceOp("SetNTP", "<tds:FromDHCP>false</tds:FromDHCP>"),
                                    deviceOp("SetDNS", "<tds:FromDHCP>false</tds:FromDHCP>"),
                                    deviceOp("DeleteUsers", "<tds:Username>eye</tds:Username>")}) {
        const OnvifReply r = admin().call(kDevice, body);
        EXPECT_NE(r.subcodes().find("ter:ActionNotSupported"), std::string::npos) << r.body;
    }
}

TEST_F(DeviceManagement, SecurityCommandGetUsers) {
    const OnvifReply r = admin().call(kDevice, deviceOp("GetUsers"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(allTexts(r.body, "Username"), (std::vector<std::string>{"boss", "oper", "eye"}));
    EXPECT_EQ(allTexts(r.body, "UserLevel"),
              (std::vector<std::string>{"Administrator", "Operator", "User"}));
    EXPECT_EQ(r.body.find("Password"), std::string::npos) << r.body;
    EXPECT_EQ(r.body.find("b0ss"), std::string::npos) << r.body;
}

TEST_F(DeviceManagement, SystemCommandReboot) {
    // A change that was never saved is gone after the controller restarts.
    ASSERT_EQ(admin().call(kImaging, setBrightness(61, false)).status, 200);
    ASSERT_EQ(admin().call(kImaging, imagingOp("GetImagingSettings", "")).text("Brightness"), "61");
    const OnvifReply r = admin().call(kDevice, deviceOp("SystemReboot"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_FALSE(r.text("Message").empty()) << r.body;
    EXPECT_EQ(admin().call(kImaging, imagingOp("GetImagingSettings", "")).text("Brightness"), "50");
    // The server goes on answering.
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetHostname"), false).text("Name"), "sensorctl");
}

TEST_F(DeviceManagement, SystemCommandFactoryDefaultHard) {
    ASSERT_EQ(admin().call(kImaging, setBrightness(61, true)).status, 200);
    ASSERT_EQ(
        admin().call(kDevice, deviceOp("SetHostname", "<tds:Name>gate-cam</tds:Name>")).status,
        200);
    ASSERT_EQ(admin()
                  .call(kDevice, deviceOp("AddScopes", "<tds:ScopeItem>onvif://www.onvif.org/"
                                                       "location/shed</tds:ScopeItem>"))
                  .status,
              200);
    const std::vector<std::string> before = scopeItems();
    const OnvifReply r =
        admin().call(kDevice, deviceOp("SetSystemFactoryDefault",
                                       "<tds:FactoryDefault>Hard</tds:FactoryDefault>"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_NE(r.body.find("SetSystemFactoryDefaultResponse"), std::string::npos);
    EXPECT_EQ(admin().call(kImaging, imagingOp("GetImagingSettings", "")).text("Brightness"), "50");
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetHostname"), false).text("Name"), "sensorctl");
    EXPECT_EQ(scopeItems().size(), before.size() - 1);
}

TEST_F(DeviceManagement, SystemCommandFactoryDefaultSoft) {
    ASSERT_EQ(admin().call(kImaging, setBrightness(61, true)).status, 200);
    ASSERT_EQ(
        admin().call(kDevice, deviceOp("SetHostname", "<tds:Name>gate-cam</tds:Name>")).status,
        200);
    const OnvifReply r =
        admin().call(kDevice, deviceOp("SetSystemFactoryDefault",
                                       "<tds:FactoryDefault>Soft</tds:FactoryDefault>"));
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(admin().call(kImaging, imagingOp("GetImagingSettings", "")).text("Brightness"), "50");
    // The network settings stay.
    EXPECT_EQ(admin().call(kDevice, deviceOp("GetHostname"), false).text("Name"), "gate-cam");
}

// UNRECOVERABLE: an Administrator's alone.
TEST_F(DeviceManagement, AUserOrOperatorCannotRebootOrResetToFactoryDefaults) {
    for (const auto& who : {std::make_pair("eye", "3ye"), std::make_pair("oper", "0per")}) {
        OnvifClient c = client(who.first, who.second);
        for (const std::string& body :
             {deviceOp("SystemReboot"),
              deviceOp("SetSystemFactoryDefault",
                       "<tds:FactoryDefault>Hard</tds:FactoryDefault>")}) {
            const OnvifReply r = c.call(kDevice, body);
            EXPECT_EQ(r.status, 400) << who.first << " " << body;
            EXPECT_NE(r.subcodes().find("ter:NotAuthorized"), std::string::npos) << r.body;
        }
    }
}

// WRITE_SYSTEM: an Administrator's alone.
TEST_F(DeviceManagement, AUserOrOperatorCannotSetScopes) {
    const std::string set =
        deviceOp("SetScopes", "<tds:Scopes>onvif://www.onvif.org/location/x</tds:Scopes>");
    for (const auto& who : {std::make_pair("eye", "3ye"), std::make_pair("oper", "0per")}) {
        const OnvifReply r = client(who.first, who.second).call(kDevice, set);
        EXPECT_EQ(r.status, 400) << r.body;
        EXPECT_NE(r.subcodes().find("ter:NotAuthorized"), std::string::npos) << r.body;
    }
    EXPECT_EQ(admin().call(kDevice, set).status, 200);
}

// READ_SYSTEM_SECRET: the user list is an Administrator's alone.
TEST_F(DeviceManagement, OnlyAnAdministratorReadsTheUsers) {
    for (const auto& who : {std::make_pair("eye", "3ye"), std::make_pair("oper", "0per")}) {
        const OnvifReply r = client(who.first, who.second).call(kDevice, deviceOp("GetUsers"));
        EXPECT_NE(r.subcodes().find("ter:NotAuthorized"), std::string::npos) << r.body;
    }
    // READ_SYSTEM: any user reads the scopes and the discovery mode.
    OnvifClient eye = client("eye", "3ye");
    EXPECT_EQ(eye.call(kDevice, deviceOp("GetScopes")).status, 200);
    EXPECT_EQ(eye.call(kDevice, deviceOp("GetDiscoveryMode")).status, 200);
}

TEST(DeviceManagementWithoutDiscovery, TheCameraIsNonDiscoverableAndSaysDiscoveryIsNotSupported) {
    testsupport::ServeProcess serve;
    std::string strError;
    ASSERT_TRUE(serve.start(
        {"--time-scale", "0.01", "--user", "boss:b0ss:Administrator", "--no-discovery"}, strError))
        << strError;
    OnvifClient admin(serve.port(), "boss", "b0ss");
    ASSERT_TRUE(admin.syncClock());
    EXPECT_EQ(admin.call(kDevice, deviceOp("GetDiscoveryMode")).text("DiscoveryMode"),
              "NonDiscoverable");
    EXPECT_EQ(admin
                  .call(kDevice, deviceOp("SetDiscoveryMode",
                                          "<tds:DiscoveryMode>NonDiscoverable</tds:DiscoveryMode>"))
                  .status,
              200);
    const OnvifReply on =
        admin.call(kDevice, deviceOp("SetDiscoveryMode",
                                     "<tds:DiscoveryMode>Discoverable</tds:DiscoveryMode>"));
    EXPECT_NE(on.subcodes().find("ter:ActionNotSupported"), std::string::npos) << on.body;
    const OnvifReply caps = admin.call(kDevice, deviceOp("GetServiceCapabilities"), false);
    EXPECT_NE(caps.body.find("DiscoveryNotSupported=\"true\""), std::string::npos) << caps.body;
}

#else

TEST(DeviceManagement, NotBuilt) {
    GTEST_SKIP() << "sensorctl was built without its ONVIF services";
}

#endif

} // namespace
