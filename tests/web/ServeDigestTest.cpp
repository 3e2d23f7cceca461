// `sensorctl serve` with users of each level, driven by curl's own digest
// (`curl --digest`, a client nobody here wrote): ONVIF operations of each
// access class as each level may call them, a wrong password in each class,
// the console's page, API and picture behind the same users. Skipped when
// curl is not installed.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#if SENSORCTL_HAS_ONVIF
#include "tests/support/ServeProcess.h"
#include "tests/support/SoapCheck.h"
#endif

namespace {

#if SENSORCTL_HAS_ONVIF

const char* const kDevice = "/onvif/device_service";
const char* const kImaging = "/onvif/imaging_service";

struct Call {
    const char* szPath;
    const char* szClass; // for the messages
    std::string body;
};

std::string envelope(const std::string& op) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope "
           "xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>" +
           op + "</s:Body></s:Envelope>";
}

std::string deviceOp(const std::string& op, const std::string& inner = "") {
    return envelope("<tds:" + op + " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">" +
                    inner + "</tds:" + op + ">");
}

std::string imagingOp(const std::string& op, const std::string& inner) {
    return envelope("<timg:" + op +
                    " xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\" "
                    "xmlns:tt=\"http://www.onvif.org/ver10/schema\"><timg:VideoSourceToken>"
                    "VideoSource_1</timg:VideoSourceToken>" +
                    inner + "</timg:" + op + ">");
}

// One operation of each access class the camera has.
const std::vector<Call>& calls() {
    static const std::vector<Call> s_calls = {
        {kDevice, "PRE_AUTH", deviceOp("GetHostname")},
        {kDevice, "READ_SYSTEM", deviceOp("GetDeviceInformation")},
        {kImaging, "READ_MEDIA", imagingOp("GetImagingSettings", "")},
        {kImaging, "ACTUATE",
         imagingOp("SetImagingSettings", "<timg:ImagingSettings><tt:Brightness>61</tt:Brightness>"
                                         "</timg:ImagingSettings><timg:ForcePersistence>false"
                                         "</timg:ForcePersistence>")},
        {kDevice, "WRITE_SYSTEM", deviceOp("SetHostname", "<tds:Name>cam-7</tds:Name>")},
    };
    return s_calls;
}

// Which of calls() each level may make: Administrator, Operator, User.
const bool kAllowed[3][5] = {
    {true, true, true, true, true},
    {true, true, true, true, false},
    {true, true, true, false, false},
};

bool haveCurl() {
    return std::system("curl --version >/dev/null 2>&1") == 0;
}

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

struct CurlAnswer {
    int nStatus = 0;
    std::string strBody;
};

// curl with these arguments against 127.0.0.1:port; at most 20 s.
CurlAnswer curl(int port, const std::string& path, const std::vector<std::string>& args) {
    char szBody[] = "/tmp/serve-digest-body-XXXXXX";
    const int fd = ::mkstemp(szBody);
    ::close(fd);
    std::string cmd = "curl -s -m 20 -o " + quoted(szBody) + " -w '%{http_code}'";
    for (const std::string& a : args)
        cmd += " " + quoted(a);
    cmd += " " + quoted("http://127.0.0.1:" + std::to_string(port) + path);
    CurlAnswer answer;
    if (FILE* p = ::popen(cmd.c_str(), "r")) {
        char sz[16] = {};
        if (std::fgets(sz, sizeof(sz), p))
            answer.nStatus = std::atoi(sz);
        ::pclose(p);
    }
    std::ifstream in(szBody, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    answer.strBody = text.str();
    ::unlink(szBody);
    return answer;
}

std::vector<std::string> soapArgs(const std::string& user, const std::string& body) {
    std::vector<std::string> args = {"-H", "Content-Type: application/soap+xml; charset=utf-8",
                                     "--data-binary", body};
    if (!user.empty()) {
        args.push_back("--digest");
        args.push_back("-u");
        args.push_back(user);
    }
    return args;
}

class ServeDigest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveCurl())
            GTEST_SKIP() << "curl is not installed";
        std::string strError;
        ASSERT_TRUE(m_serve.start({"--time-scale", "0.01", "--user", "boss:b0ss pw:Administrator",
                                   "--user", "oper:0per:operator", "--user", "eye:3ye:User"},
                                  strError))
            << strError;
    }

    testsupport::ServeProcess m_serve;
};

const char* const kUsers[3] = {"boss:b0ss pw", "oper:0per", "eye:3ye"};

TEST_F(ServeDigest, CurlDigestReachesEachClassAsTheLevelAllows) {
    for (int l = 0; l < 3; ++l) {
        for (size_t c = 0; c < calls().size(); ++c) {
            const Call& call = calls()[c];
            const CurlAnswer a = curl(m_serve.port(), call.szPath, soapArgs(kUsers[l], call.body));
            if (kAllowed[l][c]) {
                EXPECT_EQ(200, a.nStatus) << kUsers[l] << " " << call.szClass << "\n" << a.strBody;
            } else {
                EXPECT_EQ(400, a.nStatus) << kUsers[l] << " " << call.szClass;
                EXPECT_TRUE(soapcheck::Answer(a.strBody).hasCode("ter:NotAuthorized")) << a.strBody;
            }
        }
    }
}

TEST_F(ServeDigest, AWrongPasswordIsRefusedInEveryClass) {
    for (const char* szUser : {"boss:b0ss", "oper:0perx", "eye:"}) {
        for (const Call& call : calls()) {
            const CurlAnswer a = curl(m_serve.port(), call.szPath, soapArgs(szUser, call.body));
            EXPECT_EQ(401, a.nStatus) << szUser << " " << call.szClass << "\n" << a.strBody;
            EXPECT_TRUE(soapcheck::Answer(a.strBody).hasCode("ter:NotAuthorized")) << a.strBody;
        }
    }
}

TEST_F(ServeDigest, WithoutCredentialsOnlyPreAuthAnswers) {
    for (const Call& call : calls()) {
        const CurlAnswer a = curl(m_serve.port(), call.szPath, soapArgs("", call.body));
        EXPECT_EQ(std::string(call.szClass) == "PRE_AUTH" ? 200 : 401, a.nStatus)
            << call.szClass << "\n"
            << a.strBody;
    }
}

TEST_F(ServeDigest, OversizedAndTruncatedAuthorizationGet401AndAChallenge) {
    const std::string strBody = deviceOp("GetDeviceInformation");
    const std::string fields[] = {
        "Digest username=\"eye\", realm=\"sensorctl\", nonce=\"" + std::string(5000, 'a') +
            "\", uri=\"/onvif/device_service\", response=\"00\"",
        "Digest username=\"eye\", realm=\"sensorctl\", nonce=\"abc",
        "Digest username=\"eye\", realm=",
    };
    for (const std::string& field : fields) {
        for (const char* szPath : {kDevice, "/api/status"}) {
            std::vector<std::string> args = {"-H", "Authorization: " + field};
            if (std::string(szPath) == kDevice)
                args.insert(args.end(),
                            {"-H", "Content-Type: application/soap+xml", "--data-binary", strBody});
            const CurlAnswer a = curl(m_serve.port(), szPath, args);
            EXPECT_EQ(401, a.nStatus) << szPath << " " << field.substr(0, 60);
        }
    }
    // The server still answers a right digest afterwards.
    EXPECT_EQ(200, curl(m_serve.port(), kDevice, soapArgs("eye:3ye", strBody)).nStatus);
}

TEST_F(ServeDigest, TheConsolePageApiAndPictureAskForTheSameUsers) {
    for (const char* szPath : {"/", "/api/status", "/snapshot.jpg", "/api/picture"}) {
        EXPECT_EQ(401, curl(m_serve.port(), szPath, {}).nStatus) << szPath;
        EXPECT_EQ(401, curl(m_serve.port(), szPath, {"--digest", "-u", "eye:x"}).nStatus) << szPath;
        EXPECT_EQ(200, curl(m_serve.port(), szPath, {"--digest", "-u", "eye:3ye"}).nStatus)
            << szPath;
    }
    const CurlAnswer shot =
        curl(m_serve.port(), "/snapshot.jpg", {"--digest", "-u", "boss:b0ss pw"});
    ASSERT_GE(shot.strBody.size(), 2u);
    EXPECT_EQ('\xff', shot.strBody[0]); // a JPEG's first marker
    EXPECT_EQ('\xd8', shot.strBody[1]);
    // Looking takes any user; a change takes an Operator.
    const std::vector<std::string> set = {"-X", "POST", "--data-binary", "(34,57)"};
    auto with = [&set](const char* szUser) {
        std::vector<std::string> args = set;
        args.insert(args.end(), {"--digest", "-u", szUser});
        return args;
    };
    EXPECT_EQ(401, curl(m_serve.port(), "/api/set", set).nStatus);
    EXPECT_EQ(403, curl(m_serve.port(), "/api/set", with("eye:3ye")).nStatus);
    const CurlAnswer done = curl(m_serve.port(), "/api/set", with("oper:0per"));
    EXPECT_EQ(200, done.nStatus) << done.strBody;
    EXPECT_NE(std::string::npos, done.strBody.find("(34,57)")) << done.strBody;
}

#else

TEST(ServeDigest, NotBuilt) {
    GTEST_SKIP() << "sensorctl was built without its ONVIF services";
}

#endif

} // namespace
