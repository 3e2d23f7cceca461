// The camera's WS-Discovery messages without a socket: which Probes and
// Resolves it reads, which name it, and the UUIDs of its endpoint reference.
// The messages are written out here by hand in the shapes the discovery
// schema and ONVIF's conformance cases use (default namespaces, unusual
// prefixes, one prefix bound twice).
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "DiscoveryMessage.h"

namespace {

using namespace sensorctl::discovery;

const char* const kHead =
    "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
    "xmlns:a=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
    "xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">"
    "<s:Header><a:MessageID>urn:uuid:0a6dc791-2be6-4991-9af1-454778a1917a</a:MessageID>"
    "<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To>"
    "<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action></s:Header>"
    "<s:Body>";
const char* const kTail = "</s:Body></s:Envelope>";

std::string probe(const std::string& body) {
    return std::string(kHead) + body + kTail;
}

bool parse(const std::string& text, Inbound& out, std::string* why = nullptr) {
    std::string strWhy;
    const bool ok = parseInbound(text.data(), text.size(), out, strWhy);
    if (why)
        *why = strWhy;
    return ok;
}

// The camera as the ONVIF Core's example of scopes describes one.
Target coreExample() {
    Target t;
    t.strAddress = "urn:uuid:5a1e2c3d-0000-5000-8000-0123456789ab";
    t.types = cameraTypes();
    t.scopes = {"onvif://www.onvif.org/Profile/Streaming",
                "onvif://www.onvif.org/hardware/D1-566",
                "onvif://www.onvif.org/location/country/china",
                "onvif://www.onvif.org/location/city/bejing",
                "onvif://www.onvif.org/location/building/headquarter",
                "onvif://www.onvif.org/location/floor/R5",
                "onvif://www.onvif.org/name/ARV-453"};
    t.xaddrs = {"http://127.0.0.1:8080/onvif/device_service"};
    return t;
}

Match matchOf(const std::string& body) {
    Inbound msg;
    if (!parse(probe(body), msg))
        ADD_FAILURE() << "not read: " << body;
    return matchProbe(msg, coreExample());
}

TEST(DiscoveryMessage, ProbeReadsItsMessageIdTypesScopesAndRule) {
    Inbound msg;
    ASSERT_TRUE(parse(probe("<d:Probe xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\">"
                            "<d:Types>dn:NetworkVideoTransmitter</d:Types>"
                            "<d:Scopes MatchBy=\"http://schemas.xmlsoap.org/ws/2005/04/discovery/"
                            "strcmp0\"> onvif://www.onvif.org/name/a\n onvif://x/y </d:Scopes>"
                            "</d:Probe>"),
                      msg));
    EXPECT_EQ(msg.kind, MessageKind::Probe);
    EXPECT_EQ(msg.strMessageId, "urn:uuid:0a6dc791-2be6-4991-9af1-454778a1917a");
    ASSERT_EQ(msg.types.size(), 1u);
    EXPECT_EQ(msg.types[0].strNs, "http://www.onvif.org/ver10/network/wsdl");
    EXPECT_EQ(msg.types[0].strLocal, "NetworkVideoTransmitter");
    ASSERT_EQ(msg.scopes.size(), 2u);
    EXPECT_EQ(msg.scopes[0], "onvif://www.onvif.org/name/a");
    EXPECT_EQ(msg.scopes[1], "onvif://x/y");
    EXPECT_EQ(msg.strMatchBy, "http://schemas.xmlsoap.org/ws/2005/04/discovery/strcmp0");
}

TEST(DiscoveryMessage, ProbeWithoutTypesOrScopesNamesEveryCamera) {
    EXPECT_EQ(matchOf("<d:Probe/>"), Match::Yes);
    EXPECT_EQ(matchOf("<d:Probe><d:Types/><d:Scopes/></d:Probe>"), Match::Yes);
}

TEST(DiscoveryMessage, EitherCameraTypeMatchesUnderAnyPrefix) {
    EXPECT_EQ(matchOf("<d:Probe xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
                      "<d:Types>tds:Device</d:Types></d:Probe>"),
              Match::Yes);
    EXPECT_EQ(matchOf("<d:Probe xmlns:zz=\"http://www.onvif.org/ver10/network/wsdl\" "
                      "xmlns:q=\"http://www.onvif.org/ver10/device/wsdl\">"
                      "<d:Types>zz:NetworkVideoTransmitter q:Device</d:Types></d:Probe>"),
              Match::Yes);
}

TEST(DiscoveryMessage, UnprefixedTypeTakesTheDefaultNamespaceOfItsElement) {
    EXPECT_EQ(matchOf("<Probe xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">"
                      "<Types xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
                      ">NetworkVideoTransmitter</Types></Probe>"),
              Match::No);
    EXPECT_EQ(matchOf("<d:Probe><d:Types xmlns=\"http://www.onvif.org/ver10/network/wsdl\">"
                      "NetworkVideoTransmitter</d:Types></d:Probe>"),
              Match::Yes);
}

TEST(DiscoveryMessage, PrefixBoundTwiceResolvesWhereTheTypesAre) {
    // "d" is the discovery namespace on the envelope and the network one on
    // the Types element: the element's own binding counts for its text.
    EXPECT_EQ(matchOf("<d:Probe><x:Types xmlns:x=\"http://schemas.xmlsoap.org/ws/2005/04/"
                      "discovery\" xmlns:d=\"http://www.onvif.org/ver10/network/wsdl\">"
                      "d:NetworkVideoTransmitter</x:Types></d:Probe>"),
              Match::Yes);
}

TEST(DiscoveryMessage, TypeOfAnotherKindOrUndeclaredPrefixMatchesNothing) {
    EXPECT_EQ(matchOf("<d:Probe xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
                      "<d:Types>tds:Printer</d:Types></d:Probe>"),
              Match::No);
    EXPECT_EQ(matchOf("<d:Probe xmlns:tds=\"http://example.com/other\">"
                      "<d:Types>tds:Device</d:Types></d:Probe>"),
              Match::No);
    EXPECT_EQ(matchOf("<d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe>"),
              Match::No);
    // One type the camera is and one it is not: every type must hold.
    EXPECT_EQ(matchOf("<d:Probe xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
                      "<d:Types>tds:Device tds:Printer</d:Types></d:Probe>"),
              Match::No);
}

TEST(DiscoveryMessage, ScopesMatchAsTheCoreExampleSays) {
    EXPECT_EQ(matchOf("<d:Probe><d:Scopes>onvif://www.onvif.org</d:Scopes></d:Probe>"), Match::Yes);
    EXPECT_EQ(matchOf("<d:Probe><d:Scopes>onvif://www.onvif.org/location/country/china"
                      "</d:Scopes></d:Probe>"),
              Match::Yes);
    EXPECT_EQ(matchOf("<d:Probe><d:Scopes>onvif://www.onvif.org/hardware/D1</d:Scopes></d:Probe>"),
              Match::No);
    // Every scope of the Probe must match one of the camera's.
    EXPECT_EQ(matchOf("<d:Probe><d:Scopes>onvif://www.onvif.org/name/ARV-453 "
                      "onvif://www.onvif.org/location/city/paris</d:Scopes></d:Probe>"),
              Match::No);
}

TEST(DiscoveryMessage, Rfc3986RuleComparesSegmentsAfterUnescaping) {
    const char* const kRule = rule::kRfc3986;
    const std::string t = "onvif://www.onvif.org/location/floor/R5";
    EXPECT_TRUE(scopeMatches(kRule, "ONVIF://WWW.onvif.ORG/location", t));
    EXPECT_TRUE(scopeMatches(kRule, "onvif://www.onvif.org/location/", t));
    EXPECT_TRUE(scopeMatches(kRule, "onvif://www.onvif.org/loc%61tion/floor", t));
    EXPECT_TRUE(scopeMatches(kRule, "onvif://www.onvif.org/location?q=1#f", t));
    EXPECT_TRUE(scopeMatches(kRule, t, t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://www.onvif.org/Location", t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://www.onvif.org/location/floor/R", t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://www.onvif.org/location/floor/R5/a", t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://www.onvif.org/location/./floor", t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://www.onvif.org/location/floor/../floor", t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://other.org/location", t));
    EXPECT_FALSE(scopeMatches(kRule, "http://www.onvif.org/location", t));
    EXPECT_FALSE(scopeMatches(kRule, "onvif://www.onvif.org/loc%6", t));
    EXPECT_FALSE(scopeMatches(kRule, "not a uri", t));
    // Without MatchBy a Probe means rfc2396, read the same way.
    EXPECT_TRUE(scopeMatches(rule::kRfc2396, "onvif://www.onvif.org/location", t));
}

TEST(DiscoveryMessage, Strcmp0RuleWantsTheSameText) {
    const std::string t = "onvif://www.onvif.org/name/ARV-453";
    EXPECT_TRUE(scopeMatches(rule::kStrcmp0, t, t));
    EXPECT_FALSE(scopeMatches(rule::kStrcmp0, "onvif://www.onvif.org/name", t));
    EXPECT_FALSE(scopeMatches(rule::kStrcmp0, "ONVIF://www.onvif.org/name/ARV-453", t));
    EXPECT_EQ(matchOf("<d:Probe><d:Scopes MatchBy=\"http://schemas.xmlsoap.org/ws/2005/04/"
                      "discovery/strcmp0\">onvif://www.onvif.org/name</d:Scopes></d:Probe>"),
              Match::No);
}

TEST(DiscoveryMessage, UnknownRuleIsNotSupported) {
    EXPECT_EQ(matchOf("<d:Probe><d:Scopes MatchBy=\"http://schemas.xmlsoap.org/ws/2005/04/"
                      "discovery/ldap\">ldap:///ou=x</d:Scopes></d:Probe>"),
              Match::RuleNotSupported);
}

TEST(DiscoveryMessage, ResolveNamesTheCameraByItsAddressInAnyCase) {
    const std::string head = std::string(kHead).replace(std::string(kHead).find("discovery/Probe"),
                                                        15, "discovery/Resolve");
    Inbound msg;
    ASSERT_TRUE(parse(head +
                          "<d:Resolve><a:EndpointReference><a:Address>"
                          "URN:UUID:5A1E2C3D-0000-5000-8000-0123456789AB"
                          "</a:Address></a:EndpointReference></d:Resolve>" +
                          kTail,
                      msg));
    EXPECT_EQ(msg.kind, MessageKind::Resolve);
    EXPECT_TRUE(matchResolve(msg, coreExample()));
    msg.strAddress = "urn:uuid:5a1e2c3d-0000-5000-8000-0123456789ac";
    EXPECT_FALSE(matchResolve(msg, coreExample()));
}

TEST(DiscoveryMessage, DatagramsThatAreNoProbeOrResolveAreRefusedWithAReason) {
    struct Case {
        std::string text;
        const char* szWhy;
    };
    const std::string soap11 =
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body/></s:Envelope>";
    std::string deep = probe("<d:Probe>");
    for (int i = 0; i < 40; ++i)
        deep.insert(deep.find("<d:Probe>") + 9, "<x>");
    const Case cases[] = {
        {"", "empty datagram"},
        {"not xml at all", "not well-formed XML"},
        {probe("<d:Probe>"), "not well-formed XML"},
        {std::string("<a>\0</a>", 8), "NUL byte in the datagram"},
        {probe("<d:Probe/>").replace(probe("").find("0a6dc791"), 1, "\xF0"), "not UTF-8"},
        {probe("<d:Probe/>").replace(probe("").find("0a6dc791"), 1, "\x80"), "not UTF-8"},
        {probe("<d:Probe/>") + "\xE2\x82", "not UTF-8"},
        {std::string(kMaxDatagram + 1, ' '), "datagram over 16384 bytes"},
        {deep, "elements nested deeper than 32"},
        {soap11, "not a SOAP 1.2 envelope"},
        {probe("<d:Hello/>"), "no Probe or Resolve in the body"},
        {"<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
         "xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\"><s:Header/><s:Body>"
         "<d:Probe/></s:Body></s:Envelope>",
         "no MessageID"},
        {probe("<d:Probe/>").replace(probe("").find("0a6dc791"), 8, "0a6&#x9;c79"),
         "control character in the MessageID"},
        {std::string(kHead).replace(std::string(kHead).find("discovery/Probe"), 15,
                                    "discovery/Hello") +
             "<d:Probe/>" + kTail,
         "Action http://schemas.xmlsoap.org/ws/2005/04/discovery/Hello with a Probe"},
    };
    for (const Case& c : cases) {
        Inbound msg;
        std::string strWhy;
        EXPECT_FALSE(parse(c.text, msg, &strWhy)) << c.text.substr(0, 200);
        EXPECT_EQ(strWhy, c.szWhy) << c.text.substr(0, 200);
    }
}

TEST(DiscoveryMessage, NameUuidIsRfc4122Version5) {
    // Python's uuid.uuid5(uuid.NAMESPACE_DNS, "python.org"), its documented example.
    EXPECT_EQ(nameUuid("6ba7b810-9dad-11d1-80b4-00c04fd430c8", "python.org"),
              "886313e1-3b8a-5372-9b90-0c9aee199e5d");
    // uuid.uuid5(uuid.NAMESPACE_URL, "http://www.onvif.org"), from Python's uuid module.
    EXPECT_EQ(nameUrnUuid("http://www.onvif.org"), "urn:uuid:a797db00-08b4-5c23-b43b-c6f38d94d645");
}

TEST(DiscoveryMessage, RandomUuidIsVersion4AndFreshEachTime) {
    const std::regex form(
        "urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    const std::string a = randomUrnUuid(), b = randomUrnUuid();
    EXPECT_TRUE(std::regex_match(a, form)) << a;
    EXPECT_TRUE(std::regex_match(b, form)) << b;
    EXPECT_NE(a, b);
}

} // namespace
