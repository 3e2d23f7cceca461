// The SOAP layer: envelopes in any prefixes, faults for bad input, the
// UsernameToken digest and its window and nonce, concurrent requests.
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/OnvifRequests.h"
#include "sensor-onvif/Soap.h"

using namespace sensor_onvif;
using namespace onvif_test;

namespace {

const char* kPath = "/onvif/test_service";

class SoapTest : public ::testing::Test {
protected:
    SoapTest() : m_endpoint(kUser, kPassword, [this] { return m_nClock.load(); }) {
        m_endpoint.addOperation(kPath, "Echo", [this](const Request& r) -> Result {
            ++m_nCalls;
            const XmlNode* pValue = r.op.child("Value");
            return "<tt:EchoResponse>" + xmlEscape(pValue ? pValue->text : "") +
                   "</tt:EchoResponse>";
        });
        m_endpoint.addOperation(
            kPath, "Open", [](const Request&) -> Result { return "<tt:OpenResponse/>"; }, false);
        m_endpoint.addOperation(kPath, "Refuse", [](const Request&) -> Result {
            return SoapFault::sender("ter:InvalidArgVal", "ter:SettingsInvalid", "no");
        });
    }

    std::atomic<long long> m_nClock{kNow};
    std::atomic<int> m_nCalls{0};
    SoapEndpoint m_endpoint;
};

bool hasFault(const HttpReply& r, const std::string& p_strSub) {
    return r.body.find("<env:Fault>") != std::string::npos &&
           r.body.find("<env:Value>" + p_strSub + "</env:Value>") != std::string::npos;
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

TEST_F(SoapTest, AMissingHeaderIsNotAuthorized) {
    const HttpReply r = m_endpoint.handle(kPath, envelope("", "<Echo xmlns=\"urn:x\"/>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(hasFault(r, "env:Sender"));
    EXPECT_TRUE(hasFault(r, "ter:NotAuthorized"));
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, AWrongPasswordIsNotAuthorized) {
    const HttpReply r =
        m_endpoint.handle(kPath, envelope(securityHeader("n-wrong", kNow, kUser, "guess"),
                                          "<Echo xmlns=\"urn:x\"/>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(hasFault(r, "ter:NotAuthorized"));
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, AWrongUserIsNotAuthorized) {
    const HttpReply r =
        m_endpoint.handle(kPath, envelope(securityHeader("n-user", kNow, "root", kPassword),
                                          "<Echo xmlns=\"urn:x\"/>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(hasFault(r, "ter:NotAuthorized"));
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
    EXPECT_TRUE(hasFault(r, "ter:NotAuthorized"));
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
    EXPECT_TRUE(hasFault(r, "env:Receiver"));
    EXPECT_TRUE(hasFault(r, "ter:ActionNotSupported"));
    EXPECT_FALSE(m_endpoint.hasService("/onvif/other"));
    EXPECT_TRUE(hasFault(m_endpoint.handle("/onvif/other", authed("<Echo xmlns=\"urn:x\"/>")),
                         "ter:ActionNotSupported"));
}

TEST_F(SoapTest, AnUnknownOperationWithoutCredentialsIsNotAuthorized) {
    EXPECT_TRUE(hasFault(m_endpoint.handle(kPath, envelope("", "<Nope xmlns=\"urn:x\"/>")),
                         "ter:NotAuthorized"));
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
        EXPECT_TRUE(hasFault(r, "ter:WellFormed")) << body;
    }
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, AnEmptyBodyIsNotWellFormed) {
    EXPECT_TRUE(hasFault(m_endpoint.handle(kPath, ""), "ter:WellFormed"));
    EXPECT_TRUE(hasFault(m_endpoint.handle(kPath, " \r\n"), "ter:WellFormed"));
}

TEST_F(SoapTest, AnOversizeBodyIsRefusedUnparsed) {
    std::string big = authed("<Echo xmlns=\"urn:x\"><Value>" +
                             std::string(m_endpoint.limits().maxBody, 'x') + "</Value></Echo>");
    const HttpReply r = m_endpoint.handle(kPath, big);
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(hasFault(r, "ter:WellFormed"));
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(SoapTest, DeepNestingIsRefused) {
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "<a>";
    const HttpReply r =
        m_endpoint.handle(kPath, authed("<Echo xmlns=\"urn:x\">" + deep + "</Echo>"));
    EXPECT_EQ(400, r.status);
    EXPECT_TRUE(hasFault(r, "ter:WellFormed"));
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
    EXPECT_TRUE(hasFault(r, "env:VersionMismatch"));
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
    // SHA-1("abc") is a9993e364706816aba3e25717850c26c9cd0d89d.
    EXPECT_EQ("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", passwordDigest("a", "b", "c"));
    std::string bytes;
    ASSERT_TRUE(base64Decode("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", bytes));
    EXPECT_EQ(20u, bytes.size());
    EXPECT_EQ("YWJj", base64Encode("abc"));
    ASSERT_TRUE(base64Decode("YQ==", bytes));
    EXPECT_EQ("a", bytes);
    EXPECT_FALSE(base64Decode("Y===", bytes));
    EXPECT_FALSE(base64Decode("YQ=a", bytes));
    EXPECT_FALSE(base64Decode("Y!==", bytes));
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
    EXPECT_TRUE(hasFault(r, "ter:WellFormed"));
}
