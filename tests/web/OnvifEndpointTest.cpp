// The ONVIF device and media services of `sensorctl serve` over real HTTP:
// each test starts the simulated camera with ONVIF credentials on a free
// loopback port and sends SOAP 1.2 requests with a UsernameToken digest.
#include <unistd.h>

#include <cstdio>
#include <map>
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

const char* const kUser = "admin";
const char* const kPassword = "s3cret:with colon";
const char* const kDevice = "/onvif/device_service";
const char* const kMedia = "/onvif/media_service";
const char* const kImaging = "/onvif/imaging_service";

std::string deviceOp(const std::string& op, const std::string& inner = "") {
    return "<tds:" + op + " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">" + inner +
           "</tds:" + op + ">";
}
std::string mediaOp(const std::string& op) {
    return "<" + op + " xmlns=\"http://www.onvif.org/ver10/media/wsdl\"/>";
}

class OnvifEndpoint : public ::testing::Test {
protected:
    void SetUp() override { start({"--onvif-user", kUser, "--onvif-password", kPassword}); }

    void start(const std::vector<std::string>& extra) {
        std::vector<std::string> args = {"--time-scale", "0.01"};
        args.insert(args.end(), extra.begin(), extra.end());
        std::string strError;
        ASSERT_TRUE(m_serve.start(args, strError)) << strError;
        m_pClient.reset(new OnvifClient(m_serve.port(), kUser, kPassword));
        ASSERT_TRUE(m_pClient->syncClock());
    }

    OnvifClient& client() { return *m_pClient; }

    // A plain HTTP request to the same server.
    int plainStatus(const std::string& method, const std::string& path, std::string* body = nullptr,
                    const std::string& text = "") {
        httplib::Client http("127.0.0.1", m_serve.port());
        http.set_read_timeout(10, 0);
        auto res = method == "GET" ? http.Get(path.c_str())
                                   : http.Post(path.c_str(), text, "application/soap+xml");
        if (!res)
            return 0;
        if (body)
            *body = res->body;
        return res->status;
    }

    testsupport::ServeProcess m_serve;
    std::unique_ptr<OnvifClient> m_pClient;
};

TEST_F(OnvifEndpoint, SystemDateAndTimeAnswersWithoutCredentials) {
    const OnvifReply r = client().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    EXPECT_EQ(r.status, 200) << r.body;
    EXPECT_FALSE(r.isFault());
    EXPECT_NE(r.body.find("UTCDateTime"), std::string::npos) << r.body;
    EXPECT_FALSE(r.text("Year").empty());
    EXPECT_EQ(r.text("DateTimeType"), "Manual");
}

TEST_F(OnvifEndpoint, SystemDateAndTimeIsTheSimulatedClock) {
    httplib::Client http("127.0.0.1", m_serve.port());
    http.set_digest_auth(kUser, kPassword);
    ASSERT_TRUE(http.Post("/api/clock", "21:07", "text/plain"));
    const OnvifReply r = client().call(kDevice, deviceOp("GetSystemDateAndTime"), false);
    EXPECT_EQ(r.text("Hour"), "21");
    EXPECT_EQ(r.text("Minute"), "7");
}

TEST_F(OnvifEndpoint, EveryOtherOperationAsksForDigestCredentials) {
    for (const std::string& body : {deviceOp("GetDeviceInformation"), deviceOp("GetScopes"),
                                    deviceOp("SetHostname", "<tds:Name>cam</tds:Name>")}) {
        const OnvifReply r = client().call(kDevice, body, false);
        EXPECT_EQ(r.status, 401) << body;
        EXPECT_NE(r.subcodes().find("ter:NotAuthorized"), std::string::npos) << r.body;
    }
    for (const auto& call :
         {std::make_pair(kMedia, mediaOp("GetProfiles")),
          std::make_pair(kImaging, std::string("<GetImagingSettings xmlns=\"http://www.onvif.org/"
                                               "ver20/imaging/wsdl\"><VideoSourceToken>"
                                               "VideoSource_1</VideoSourceToken>"
                                               "</GetImagingSettings>"))}) {
        const OnvifReply r = client().call(call.first, call.second, false);
        EXPECT_EQ(r.status, 401) << call.second;
        EXPECT_NE(r.subcodes().find("ter:NotAuthorized"), std::string::npos) << r.body;
    }
}

TEST_F(OnvifEndpoint, PreAuthOperationsAnswerWithoutCredentials) {
    const std::pair<const char*, std::string> calls[] = {
        {kDevice, deviceOp("GetSystemDateAndTime")},
        {kDevice, deviceOp("GetCapabilities", "<tds:Category>All</tds:Category>")},
        {kDevice, deviceOp("GetServices", "<tds:IncludeCapability>true</tds:IncludeCapability>")},
        {kDevice, deviceOp("GetServiceCapabilities")},
        {kDevice, deviceOp("GetWsdlUrl")},
        {kDevice, deviceOp("GetHostname")},
        {kDevice, deviceOp("GetEndpointReference")},
        {kMedia, mediaOp("GetServiceCapabilities")},
        {kImaging, "<GetServiceCapabilities xmlns=\"http://www.onvif.org/ver20/imaging/wsdl\"/>"},
    };
    for (const auto& call : calls) {
        const OnvifReply r = client().call(call.first, call.second, false);
        EXPECT_EQ(r.status, 200) << call.second << "\n" << r.body;
        EXPECT_FALSE(r.isFault()) << r.body;
    }
    EXPECT_EQ(client().call(kDevice, deviceOp("GetHostname"), false).text("Name"), "sensorctl");
    EXPECT_EQ(client()
                  .call(kDevice, deviceOp("GetEndpointReference"), false)
                  .text("GUID")
                  .rfind("urn:uuid:", 0),
              0u);
    // The device says it takes digest.
    const OnvifReply caps = client().call(kDevice, deviceOp("GetServiceCapabilities"), false);
    EXPECT_NE(caps.body.find("HttpDigest=\"true\""), std::string::npos) << caps.body;
}

TEST_F(OnvifEndpoint, AWrongPasswordIsRefused) {
    OnvifClient intruder(m_serve.port(), kUser, std::string(kPassword) + "x");
    ASSERT_TRUE(intruder.syncClock());
    const OnvifReply r = intruder.call(kDevice, deviceOp("GetDeviceInformation"));
    EXPECT_EQ(r.status, 400);
    EXPECT_NE(r.subcodes().find("ter:NotAuthorized"), std::string::npos) << r.body;
    OnvifClient stranger(m_serve.port(), "guest", kPassword);
    ASSERT_TRUE(stranger.syncClock());
    EXPECT_EQ(stranger.call(kDevice, deviceOp("GetDeviceInformation")).status, 400);
}

TEST_F(OnvifEndpoint, DeviceInformationAndScopesDescribeTheCamera) {
    const OnvifReply info = client().call(kDevice, deviceOp("GetDeviceInformation"));
    EXPECT_EQ(info.status, 200) << info.body;
    EXPECT_FALSE(info.text("Manufacturer").empty());
    EXPECT_FALSE(info.text("Model").empty());
    EXPECT_FALSE(info.text("FirmwareVersion").empty());
    const OnvifReply scopes = client().call(kDevice, deviceOp("GetScopes"));
    EXPECT_EQ(scopes.status, 200);
    EXPECT_NE(scopes.body.find("onvif://www.onvif.org/Profile/Streaming"), std::string::npos);
    EXPECT_NE(scopes.body.find("onvif://www.onvif.org/hardware/"), std::string::npos);
}

TEST_F(OnvifEndpoint, CapabilitiesAndServicesNameTheAddressesOnThisPort) {
    const std::string strBase = "http://127.0.0.1:" + std::to_string(m_serve.port());
    const OnvifReply caps =
        client().call(kDevice, deviceOp("GetCapabilities", "<tds:Category>All</tds:Category>"));
    EXPECT_EQ(caps.status, 200) << caps.body;
    for (const char* szService : {"device", "media", "imaging"})
        EXPECT_NE(caps.body.find(strBase + "/onvif/" + szService + "_service"), std::string::npos)
            << szService << "\n"
            << caps.body;
    const OnvifReply ptz =
        client().call(kDevice, deviceOp("GetCapabilities", "<tds:Category>PTZ</tds:Category>"));
    EXPECT_TRUE(ptz.isFault()) << ptz.body;
    EXPECT_NE(ptz.subcodes().find("ter:NoSuchService"), std::string::npos) << ptz.body;

    const OnvifReply services = client().call(
        kDevice, deviceOp("GetServices", "<tds:IncludeCapability>true</tds:IncludeCapability>"));
    EXPECT_EQ(services.status, 200) << services.body;
    EXPECT_NE(services.body.find("http://www.onvif.org/ver20/imaging/wsdl"), std::string::npos);
    EXPECT_NE(services.body.find(strBase + "/onvif/imaging_service"), std::string::npos);
    EXPECT_NE(services.body.find("Presets="), std::string::npos) << services.body;
}

TEST_F(OnvifEndpoint, TwoCategoriesGetBothCapabilitiesAndNoOther) {
    const OnvifReply r =
        client().call(kDevice, deviceOp("GetCapabilities", "<tds:Category>Device</tds:Category>"
                                                           "<tds:Category>Imaging</tds:Category>"));
    ASSERT_EQ(r.status, 200) << r.body;
    const soapcheck::Answer answer(r.body);
    // tds:GetCapabilitiesResponse / tds:Capabilities / tt:Device, tt:Imaging
    const TiXmlElement* pCaps = soapcheck::child(answer.first(), "Capabilities");
    ASSERT_NE(pCaps, nullptr) << r.body;
    std::vector<std::string> names;
    for (const TiXmlElement* e = pCaps->FirstChildElement(); e; e = e->NextSiblingElement()) {
        EXPECT_EQ(soapcheck::namespaceOf(e), "http://www.onvif.org/ver10/schema");
        names.push_back(soapcheck::localName(e));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Device", "Imaging"})) << r.body;
    // One category the camera lacks among them refuses the whole request.
    const OnvifReply ptz =
        client().call(kDevice, deviceOp("GetCapabilities", "<tds:Category>Device</tds:Category>"
                                                           "<tds:Category>PTZ</tds:Category>"));
    EXPECT_NE(ptz.subcodes().find("ter:NoSuchService"), std::string::npos) << ptz.body;
}

TEST_F(OnvifEndpoint, ServicesAnnounceTheVersionsOfTheirWsdls) {
    // devicemgmt.wsdl, media.wsdl and imaging.wsdl carry version="26.06",
    // "21.06" and "19.06": Major 26 Minor 6, and so on.
    const OnvifReply r = client().call(
        kDevice, deviceOp("GetServices", "<tds:IncludeCapability>false</tds:IncludeCapability>"));
    ASSERT_EQ(r.status, 200) << r.body;
    const soapcheck::Answer answer(r.body);
    std::map<std::string, std::string> versions;
    ASSERT_NE(answer.first(), nullptr) << r.body;
    for (const TiXmlElement* e = answer.first()->FirstChildElement(); e;
         e = e->NextSiblingElement()) {
        if (soapcheck::localName(e) != "Service")
            continue;
        const TiXmlElement* pVersion = soapcheck::child(e, "Version");
        ASSERT_NE(pVersion, nullptr) << r.body;
        versions[soapcheck::child(e, "Namespace")->GetText()] =
            std::string(soapcheck::child(pVersion, "Major")->GetText()) + "." +
            soapcheck::child(pVersion, "Minor")->GetText();
    }
    EXPECT_EQ(versions, (std::map<std::string, std::string>{
                            {"http://www.onvif.org/ver10/device/wsdl", "26.6"},
                            {"http://www.onvif.org/ver10/media/wsdl", "21.6"},
                            {"http://www.onvif.org/ver20/imaging/wsdl", "19.6"}}))
        << r.body;
}

TEST_F(OnvifEndpoint, TheProfileNamesTheVideoSource) {
    const OnvifReply profiles = client().call(kMedia, mediaOp("GetProfiles"));
    EXPECT_EQ(profiles.status, 200) << profiles.body;
    EXPECT_EQ(profiles.text("SourceToken"), "VideoSource_1");
    EXPECT_NE(profiles.body.find("VideoEncoderConfiguration"), std::string::npos);
    const OnvifReply sources = client().call(kMedia, mediaOp("GetVideoSources"));
    EXPECT_EQ(sources.status, 200) << sources.body;
    EXPECT_NE(sources.body.find("token=\"VideoSource_1\""), std::string::npos) << sources.body;
}

TEST_F(OnvifEndpoint, ImagingSettingsOfTheSourceAnswer) {
    const OnvifReply r = client().call(
        kImaging, "<GetImagingSettings xmlns=\"http://www.onvif.org/ver20/imaging/wsdl\">"
                  "<VideoSourceToken>VideoSource_1</VideoSourceToken></GetImagingSettings>");
    EXPECT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(r.text("Brightness"), "50") << r.body;
}

TEST_F(OnvifEndpoint, OtherOperationsAreNotSupported) {
    for (const auto& call : {std::make_pair(std::string(kDevice), deviceOp("SetNTP")),
                             std::make_pair(std::string(kDevice), deviceOp("GetSystemLog")),
                             std::make_pair(std::string(kMedia), mediaOp("GetStreamUri"))}) {
        const OnvifReply r = client().call(call.first, call.second);
        EXPECT_TRUE(r.isFault()) << call.second;
        EXPECT_NE(r.subcodes().find("ter:ActionNotSupported"), std::string::npos) << r.body;
    }
}

TEST_F(OnvifEndpoint, AnyEnvelopePrefixWorks) {
    for (const char* szPrefix : {"soap", "env", "SOAP-ENV", "x"}) {
        client().setPrefix(szPrefix);
        const OnvifReply r = client().call(kDevice, deviceOp("GetDeviceInformation"));
        EXPECT_EQ(r.status, 200) << szPrefix << "\n" << r.body;
    }
}

TEST_F(OnvifEndpoint, BadBodiesGetFaultsAndTheServerKeepsAnswering) {
    std::string strBody;
    // An empty body without credentials is a digest client's probe: 401.
    EXPECT_EQ(plainStatus("POST", kDevice, &strBody, ""), 401);
    EXPECT_TRUE(soapcheck::Answer(strBody).isFault()) << strBody;
    EXPECT_EQ(plainStatus("POST", kDevice, &strBody, "<not xml"), 400);
    EXPECT_TRUE(soapcheck::Answer(strBody).hasCode("ter:WellFormed")) << strBody;
    // Over the console's 64 KiB cap: refused unread, a Sender fault with the
    // status SOAP 1.2 gives one, and the generic fault for arguments the
    // device will not take.
    const std::string strHuge =
        client().envelope(deviceOp("GetScopes", std::string(70 * 1024, ' ')), true);
    EXPECT_EQ(plainStatus("POST", kDevice, &strBody, strHuge), 400);
    EXPECT_EQ(soapcheck::Answer(strBody).codes(),
              (std::vector<std::string>{"env:Sender", "ter:InvalidArgs"}))
        << strBody;
    // Another method than POST.
    EXPECT_EQ(plainStatus("GET", kDevice), 405);
    EXPECT_EQ(client().call(kDevice, deviceOp("GetDeviceInformation")).status, 200);
}

TEST(OnvifEndpointOff, WithoutCredentialsTheOnvifPathsAreNotServed) {
    testsupport::ServeProcess serve;
    std::string strError;
    ASSERT_TRUE(serve.start({"--time-scale", "0.01"}, strError)) << strError;
    OnvifClient client(serve.port(), kUser, kPassword);
    EXPECT_EQ(client.call(kDevice, deviceOp("GetSystemDateAndTime"), false).status, 404);
    EXPECT_EQ(client.call(kImaging, "<GetImagingSettings/>").status, 404);
    EXPECT_NE(serve.output().find("ONVIF off"), std::string::npos) << serve.output();
    // Without users the console stays open.
    httplib::Client http("127.0.0.1", serve.port());
    auto res = http.Get("/api/status");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
}

TEST(OnvifEndpointOff, CredentialsComeFromAFile) {
    char szFile[] = "/tmp/onvif-credentials-XXXXXX";
    const int fd = ::mkstemp(szFile);
    ASSERT_GE(fd, 0);
    const std::string strLine = std::string(kUser) + ":" + kPassword + "\n";
    ASSERT_EQ(::write(fd, strLine.data(), strLine.size()), static_cast<ssize_t>(strLine.size()));
    ::close(fd);
    testsupport::ServeProcess serve;
    std::string strError;
    const bool bStarted =
        serve.start({"--time-scale", "0.01", "--onvif-credentials", szFile}, strError);
    ::unlink(szFile);
    ASSERT_TRUE(bStarted) << strError;
    OnvifClient client(serve.port(), kUser, kPassword);
    ASSERT_TRUE(client.syncClock());
    EXPECT_EQ(client.call(kDevice, deviceOp("GetDeviceInformation")).status, 200);
}

#else

TEST(OnvifEndpoint, NotBuilt) {
    GTEST_SKIP() << "sensorctl was built without its ONVIF services";
}

#endif

} // namespace
