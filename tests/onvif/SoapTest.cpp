// The SOAP layer: envelopes in any prefixes, faults for bad input, the
// UsernameToken digest and its window and nonce, concurrent requests.
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/OnvifRequests.h"
#include "sensor-onvif/Soap.h"
#include "tests/support/SoapCheck.h"

using namespace sensor_onvif;
using namespace onvif_test;

namespace {

const char* kPath = "/onvif/test_service";

class SoapTest : public ::testing::Test {
protected:
    SoapTest() : m_endpoint(kUser, kPassword, [this] { return m_nClock.load(); }) {
        m_endpoint.addOperation(
            kPath, "Echo",
            [this](const Request& r) -> Result {
                ++m_nCalls;
                const XmlNode* pValue = r.op.child("Value");
                return "<tt:EchoResponse>" + xmlEscape(pValue ? pValue->text : "") +
                       "</tt:EchoResponse>";
            },
            AccessClass::ReadMedia);
        m_endpoint.addOperation(
            kPath, "Open", [](const Request&) -> Result { return "<tt:OpenResponse/>"; },
            AccessClass::PreAuth);
        m_endpoint.addOperation(
            kPath, "Refuse",
            [](const Request&) -> Result {
                return SoapFault::sender("ter:InvalidArgVal", "ter:SettingsInvalid", "no");
            },
            AccessClass::Actuate);
    }

    std::atomic<long long> m_nClock{kNow};
    std::atomic<int> m_nCalls{0};
    SoapEndpoint m_endpoint;
};

// The worked example of the ONVIF Application Programmer's Guide (user token
// profile): nonce, Created and password give this PasswordDigest.
const char* const kExampleNonce = "LKqI6G/AikKCQrN0zqZFlg==";
const char* const kExampleCreated = "2010-09-16T07:50:45Z";
const char* const kExamplePassword = "userpassword";
const char* const kExampleDigest = "tuOSpGlFlIXsozq4HFNeeGeFLEI=";
// kExampleCreated in seconds since 1970.
constexpr long long kExampleTime = 1284623445LL;

// The example's UsernameToken as a client sends it, with the digest given.
std::string exampleRequest(const std::string& p_strDigest) {
    return envelope("<s:Header><wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/"
                    "01/oasis-200401-wss-wssecurity-secext-1.0.xsd\" xmlns:wsu=\"http://"
                    "docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0."
                    "xsd\"><wsse:UsernameToken><wsse:Username>user</wsse:Username>"
                    "<wsse:Password Type=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-"
                    "wss-username-token-profile-1.0#PasswordDigest\">" +
                        p_strDigest + "</wsse:Password><wsse:Nonce>" + kExampleNonce +
                        "</wsse:Nonce><wsu:Created>" + kExampleCreated +
                        "</wsu:Created></wsse:UsernameToken></wsse:Security></s:Header>",
                    "<Echo xmlns=\"urn:x\"><Value>ok</Value></Echo>");
}

} // namespace

TEST_F(SoapTest, AnAuthenticatedOperationAnswersItsResponse) {
    const HttpReply r = m_endpoint.handle(
        kPath, authed("<t:Echo xmlns:t=\"urn:x\"><t:Value>a&amp;b</t:Value></t:Echo>"));
    EXPECT_EQ(200, r.status);
    EXPECT_NE(std::string::npos, r.body.find("<tt:EchoResponse>a&amp;b</tt:EchoResponse>"));
    EXPECT_NE(std::string::npos,
              r.body.find("xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\""));
    EXPECT_EQ(1, m_nCalls.load());
}

TEST_F(SoapTest, AnyPrefixAndDefaultNamespacesAreUnderstood) {
    const std::string nonce = "prefix-nonce";
    std::string header = securityHeader(nonce, kNow);
    // The same envelope with SOAP-ENV as the prefix and a default namespace body.
    std::string body = "<?xml version=\"1.0\"?><SOAP-ENV:Envelope "
                       "xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\">";
    for (size_t p = 0; (p = header.find("s:", p)) != std::string::npos;)
        header.replace(p, 2, "SOAP-ENV:");
    body += header + "<SOAP-ENV:Body><Echo xmlns=\"urn:x\"><Value>7</Value></Echo>"
                     "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
    const HttpReply r = m_endpoint.handle(kPath, body);
    EXPECT_EQ(200, r.status) << r.body;
    EXPECT_NE(std::string::npos, r.body.find("<tt:EchoResponse>7</tt:EchoResponse>"));
}

TEST_F(SoapTest, AnOpenOperationNeedsNoCredentials) {
    const HttpReply r = m_endpoint.handle(kPath, envelope("", "<Open xmlns=\"urn:x\"/>"));
    EXPECT_EQ(200, r.status);
    EXPECT_NE(std::string::npos, r.body.find("<tt:OpenResponse/>"));
}

TEST_F(SoapTest, NoCredentialsIsA401WithDigestChallenges) {
    const HttpReply r = m_endpoint.handle(kPath, envelope("", "<Echo xmlns=\"urn:x\"/>"));
    EXPECT_EQ(401, r.status);
    ASSERT_EQ(2u, r.wwwAuthenticate.size());
    EXPECT_EQ(0u, r.wwwAuthenticate[0].rfind("Digest ", 0));
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "env:Sender"));
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized"));
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, AWrongPasswordIsNotAuthorized) {
    const HttpReply r =
        m_endpoint.handle(kPath, envelope(securityHeader("n-wrong", kNow, kUser, "guess"),
                                          "<Echo xmlns=\"urn:x\"/>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized"));
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, AWrongUserIsNotAuthorized) {
    const HttpReply r =
        m_endpoint.handle(kPath, envelope(securityHeader("n-user", kNow, "root", kPassword),
                                          "<Echo xmlns=\"urn:x\"/>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized"));
}

TEST_F(SoapTest, ACreatedTimeOutsideTheWindowIsNotAuthorized) {
    EXPECT_EQ(400, m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\"/>", kNow - 301)).status);
    EXPECT_EQ(400, m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\"/>", kNow + 301)).status);
    EXPECT_EQ(200, m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\"/>", kNow - 300)).status);
    EXPECT_EQ(200, m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\"/>", kNow + 300)).status);
    EXPECT_EQ(2, m_nCalls.load());
}

TEST_F(SoapTest, TheWindowFollowsTheDeviceClock) {
    m_nClock = kNow + 3600;
    EXPECT_EQ(400, m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\"/>", kNow)).status);
    EXPECT_EQ(200, m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\"/>", kNow + 3600)).status);
}

TEST_F(SoapTest, AReplayedNonceIsNotAuthorized) {
    const std::string request =
        envelope(securityHeader("same-nonce", kNow), "<Echo xmlns=\"urn:x\"/>");
    EXPECT_EQ(200, m_endpoint.handle(kPath, request).status);
    const HttpReply r = m_endpoint.handle(kPath, request);
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized"));
    EXPECT_EQ(1, m_nCalls.load());
}

TEST_F(SoapTest, APlainTextPasswordIsRefused) {
    std::string header = securityHeader("n-text", kNow);
    const size_t a = header.find("#PasswordDigest\">") + 17;
    const size_t b = header.find("</Password>");
    header.replace(a, b - a, kPassword);
    header.replace(header.find("#PasswordDigest"), 15, "#PasswordText");
    EXPECT_EQ(400, m_endpoint.handle(kPath, envelope(header, "<Echo xmlns=\"urn:x\"/>")).status);
}

TEST_F(SoapTest, AnUnknownOperationIsActionNotSupported) {
    const HttpReply r = m_endpoint.handle(kPath, authed("<Nope xmlns=\"urn:x\"/>"));
    EXPECT_EQ(500, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "env:Receiver"));
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:ActionNotSupported"));
    EXPECT_FALSE(m_endpoint.hasService("/onvif/other"));
    EXPECT_TRUE(
        soapcheck::isFaultWith(m_endpoint.handle("/onvif/other", authed("<Echo xmlns=\"urn:x\"/>")),
                               "ter:ActionNotSupported"));
}

TEST_F(SoapTest, AnUnknownOperationWithoutCredentialsIsNotAuthorized) {
    EXPECT_TRUE(soapcheck::isFaultWith(
        m_endpoint.handle(kPath, envelope("", "<Nope xmlns=\"urn:x\"/>")), "ter:NotAuthorized"));
}

TEST_F(SoapTest, AHandlerFaultIsTheFaultEnvelope) {
    const HttpReply r = m_endpoint.handle(kPath, authed("<Refuse xmlns=\"urn:x\"/>"));
    EXPECT_EQ(400, r.status);
    EXPECT_NE(std::string::npos,
              r.body.find("<env:Code><env:Value>env:Sender</env:Value><env:Subcode><env:Value>"
                          "ter:InvalidArgVal</env:Value><env:Subcode><env:Value>ter:"
                          "SettingsInvalid</env:Value></env:Subcode></env:Subcode></env:Code>"));
}

TEST_F(SoapTest, MalformedXmlIsNotWellFormed) {
    for (const std::string& body :
         {std::string("<s:Envelope"), std::string("<a><b></a>"), std::string("not xml"),
          std::string("<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>"),
          std::string("<x/>"),
          std::string("<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/"
                      "soap-envelope\"><s:Body/></s:Envelope>")}) {
        const HttpReply r = m_endpoint.handle(kPath, body);
        EXPECT_EQ(400, r.status) << body;
        EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:WellFormed")) << body;
    }
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, AnEmptyBodyIsNotWellFormed) {
    EXPECT_TRUE(soapcheck::isFaultWith(m_endpoint.handle(kPath, ""), "ter:WellFormed"));
    EXPECT_TRUE(soapcheck::isFaultWith(m_endpoint.handle(kPath, " \r\n"), "ter:WellFormed"));
}

TEST_F(SoapTest, AnOversizeBodyIsRefusedUnparsedAsInvalidArgs) {
    std::string big = authed("<Echo xmlns=\"urn:x\"><Value>" +
                             std::string(m_endpoint.limits().maxBody, 'x') + "</Value></Echo>");
    const HttpReply r = m_endpoint.handle(kPath, big);
    EXPECT_EQ(400, r.status);
    // Core's generic fault for arguments a device will not take; nothing
    // was read, so nothing is said of the XML's form.
    EXPECT_EQ((std::vector<std::string>{"env:Sender", "ter:InvalidArgs"}),
              soapcheck::Answer(r.body).codes())
        << r.body;
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, DeepNestingIsRefused) {
    // As deep as fits under the size cap, so that the depth is what refuses it.
    std::string deep;
    for (int i = 0; i < 20000; ++i)
        deep += "<a>";
    ASSERT_LT(deep.size() + 1000, m_endpoint.limits().maxBody);
    const HttpReply r =
        m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\">" + deep + "</Echo>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:WellFormed"));
    // Nesting within the limit, with a '>' in an attribute and a comment, passes.
    EXPECT_EQ(200, m_endpoint
                       .handle(kPath, authed("<Echo xmlns=\"urn:x\" a=\"x>y\"><!-- <<< -->"
                                             "<Value><![CDATA[<<]]></Value></Echo>"))
                       .status);
}

TEST_F(SoapTest, ASoap11EnvelopeIsAVersionMismatch) {
    const HttpReply r = m_endpoint.handle(
        kPath, "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>"
               "<Open xmlns=\"urn:x\"/></s:Body></s:Envelope>");
    EXPECT_EQ(500, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "env:VersionMismatch"));
}

TEST_F(SoapTest, SixteenConcurrentClientsAreEachAnswered) {
    std::vector<std::thread> threads;
    std::atomic<int> nOk{0};
    for (int t = 0; t < 16; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                const std::string nonce = "c" + std::to_string(t) + "-" + std::to_string(i);
                const HttpReply r = m_endpoint.handle(
                    kPath, envelope(securityHeader(nonce, kNow), "<Echo xmlns=\"urn:x\"/>"));
                if (r.status == 200)
                    ++nOk;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(800, nOk.load());
    EXPECT_EQ(800, m_nCalls.load());
}

TEST(SoapText, DigestIsBase64OfSha1OfNonceCreatedPassword) {
    // The SHA-1 test vectors of FIPS 180 / RFC 3174, split over the three parts:
    // SHA-1("abc") is a9993e364706816aba3e25717850c26c9cd0d89d.
    EXPECT_EQ("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", passwordDigest("a", "b", "c"));
    // SHA-1 of the 56-byte message is 84983e441c3bd26ebaae4aa1f95129e5e54670f1.
    EXPECT_EQ("hJg+RBw70m66rkqh+VEp5eVGcPE=",
              passwordDigest("abcdbcdecdefdefgefgh", "fghighijhijkijkljklm", "klmnlmnomnopnopq"));
    std::string bytes;
    ASSERT_TRUE(base64Decode("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", bytes));
    EXPECT_EQ(std::string("\xa9\x99\x3e\x36\x47\x06\x81\x6a\xba\x3e\x25\x71\x78\x50\xc2"
                          "\x6c\x9c\xd0\xd8\x9d",
                          20),
              bytes);
    EXPECT_FALSE(base64Decode("Y===", bytes));
    EXPECT_FALSE(base64Decode("YQ=a", bytes));
    EXPECT_FALSE(base64Decode("Y!==", bytes));
}

TEST(SoapText, Base64FollowsTheRfc4648TestVectors) {
    const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"}};
    for (const auto& v : vectors) {
        EXPECT_EQ(v.second, base64Encode(v.first)) << v.first;
        std::string bytes = "stale";
        EXPECT_TRUE(base64Decode(v.second, bytes)) << v.second;
        EXPECT_EQ(v.first, bytes) << v.second;
    }
}

TEST(SoapText, DigestOfThePublishedExampleIsItsPasswordDigest) {
    std::string nonce;
    ASSERT_TRUE(base64Decode(kExampleNonce, nonce));
    EXPECT_EQ(16u, nonce.size());
    EXPECT_EQ(kExampleDigest, passwordDigest(nonce, kExampleCreated, kExamplePassword));
    // The tests' own digest, which every request of the suite carries, agrees.
    EXPECT_EQ(kExampleDigest, soapcheck::wsseDigest(nonce, kExampleCreated, kExamplePassword));
    long long n = 0;
    ASSERT_TRUE(parseDateTime(kExampleCreated, n));
    EXPECT_EQ(kExampleTime, n);
}

TEST(SoapText, ThePublishedExampleTokenIsAcceptedAndAChangedDigestIsNot) {
    SoapEndpoint endpoint("user", kExamplePassword, [] { return kExampleTime + 10; });
    endpoint.addOperation(
        kPath, "Echo",
        [](const Request&) -> Result { return "<tt:EchoResponse>ok</tt:EchoResponse>"; },
        AccessClass::ReadMedia);
    std::string wrong = kExampleDigest;
    wrong[0] = 'u';
    const HttpReply refused = endpoint.handle(kPath, exampleRequest(wrong));
    EXPECT_EQ(400, refused.status);
    EXPECT_TRUE(soapcheck::isFaultWith(refused.body, "ter:NotAuthorized")) << refused.body;
    const HttpReply r = endpoint.handle(kPath, exampleRequest(kExampleDigest));
    EXPECT_EQ(200, r.status) << r.body;
    EXPECT_FALSE(soapcheck::Answer(r.body).isFault()) << r.body;
}

TEST(SoapText, DateTimesRoundTrip) {
    long long n = 0;
    ASSERT_TRUE(parseDateTime("2026-11-23T08:00:00Z", n));
    EXPECT_EQ(kNow, n);
    EXPECT_EQ("2026-11-23T08:00:00Z", formatDateTime(kNow));
    ASSERT_TRUE(parseDateTime("2026-11-23T09:00:00.123+01:00", n));
    EXPECT_EQ(kNow, n);
    EXPECT_FALSE(parseDateTime("2026-11-23 08:00:00Z", n));
    EXPECT_FALSE(parseDateTime("2026-13-23T08:00:00Z", n));
    EXPECT_FALSE(parseDateTime("", n));
}

TEST(SoapText, NumbersAndEscapes) {
    double d = 0;
    EXPECT_TRUE(parseFloat(" 12.5 ", d));
    EXPECT_EQ(12.5, d);
    EXPECT_FALSE(parseFloat("abc", d));
    EXPECT_FALSE(parseFloat("INF", d));
    EXPECT_FALSE(parseFloat("NaN", d));
    EXPECT_FALSE(parseFloat("0x10", d));
    EXPECT_FALSE(parseFloat("", d));
    EXPECT_FALSE(parseFloat("1e999", d));
    EXPECT_EQ("50", formatFloat(50));
    EXPECT_EQ("0.5", formatFloat(0.5));
    EXPECT_EQ("-3", formatFloat(-3));
    EXPECT_EQ("0", formatFloat(-0.0));
    EXPECT_EQ("999999999999999", formatFloat(999999999999999.0));
    EXPECT_EQ("-999999999999999", formatFloat(-999999999999999.0));
    EXPECT_EQ("1e+15", formatFloat(1e15));
    EXPECT_EQ("0", formatFloat(std::nan("")));
    EXPECT_EQ("&lt;a&gt; &amp; &quot;&apos;", xmlEscape("<a> & \"'"));
    bool b = false;
    EXPECT_TRUE(parseBool("true", b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(parseBool("0", b));
    EXPECT_FALSE(b);
    EXPECT_FALSE(parseBool("yes", b));
}

TEST_F(SoapTest, ABodyCutInsideAUtf8SequenceIsNotWellFormed) {
    // A four-byte sequence's first byte as the last byte of the body.
    const std::string body = authed("<Echo xmlns=\"urn:x\"><Value>a") + "</Value></Echo>\xF0";
    const HttpReply r = m_endpoint.handle(kPath, body);
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:WellFormed"));
}

TEST(SoapCheck, OnlyASoap12FaultFirstInTheBodyIsAFault) {
    const std::string head =
        "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\"><e:Body>";
    const std::string tail = "</e:Body></e:Envelope>";
    const soapcheck::Answer fault(
        head +
        "<f:Fault xmlns:f=\"http://www.w3.org/2003/05/soap-envelope\"><f:Code><f:Value>f:Sender"
        "</f:Value><f:Subcode><f:Value>ter:InvalidArgVal</f:Value></f:Subcode></f:Code>"
        "</f:Fault>" +
        tail);
    EXPECT_TRUE(fault.isFault());
    EXPECT_EQ((std::vector<std::string>{"f:Sender", "ter:InvalidArgVal"}), fault.codes());
    // A default namespace does as well as a prefix.
    EXPECT_TRUE(soapcheck::Answer("<Envelope xmlns=\"http://www.w3.org/2003/05/soap-envelope\">"
                                  "<Body><Fault/></Body></Envelope>")
                    .isFault());
    for (const std::string& body :
         {head + "<tt:R xmlns:tt=\"urn:x\"><tt:Fault>no</tt:Fault></tt:R>" + tail,
          head + "<tt:Fault xmlns:tt=\"urn:x\"/>" + tail, head + "<r>x:Fault&gt;</r>" + tail,
          head + "<r/><e:Fault/>" + tail,
          std::string("<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                      "<e:Body><e:Fault/></e:Body></e:Envelope>"),
          std::string("<e:Fault xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\"/>"),
          std::string("not xml :Fault>")}) {
        EXPECT_FALSE(soapcheck::Answer(body).isFault()) << body;
    }
}
