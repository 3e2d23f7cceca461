// The camera's WS-Discovery service over UDP on 127.0.0.1 only: a client
// socket sends unicast Probes and Resolves to the service's ephemeral port
// and reads what comes back. Nothing is ever sent to a multicast group or
// any other address. The service counts each datagram once it has dealt
// with it (any answer already sent), so a test that expects no answer waits
// for the count, not for a timeout. The answer budget runs on a clock the
// test holds still or moves.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Discovery.h"
#include "tests/support/Loopback.h"
#include "tests/support/ServeProcess.h"
#include "tests/support/SoapCheck.h"

namespace {

using sensorctl::DiscoveryConfig;
using sensorctl::DiscoveryMode;
using sensorctl::DiscoveryService;

const char* const kWsa = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
const char* const kWsd = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
const char* const kCamera = "urn:uuid:0f1e2d3c-4b5a-5968-8776-a5b4c3d2e1f0";

// A UDP socket on 127.0.0.1 that talks to one port of 127.0.0.1.
class LoopbackUdp {
public:
    LoopbackUdp() {
        m_fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    }
    ~LoopbackUdp() { ::close(m_fd); }
    LoopbackUdp(const LoopbackUdp&) = delete;
    LoopbackUdp& operator=(const LoopbackUdp&) = delete;

    void send(int port, const std::string& text) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::sendto(m_fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
    }

    // One datagram within the timeout, or "" when none came.
    std::string receive(int timeoutMs) {
        timeval tv{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        std::vector<char> buffer(65536);
        const ssize_t n = ::recv(m_fd, buffer.data(), buffer.size(), 0);
        return n > 0 ? std::string(buffer.data(), static_cast<size_t>(n)) : std::string();
    }

    int port() const {
        sockaddr_in addr{};
        socklen_t nLen = sizeof(addr);
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&addr), &nLen);
        return ntohs(addr.sin_port);
    }

    // Every datagram already waiting.
    std::vector<std::string> drain() {
        std::vector<std::string> out;
        std::vector<char> buffer(65536);
        for (int i = 0; i < 10000; ++i) {
            const ssize_t n = ::recv(m_fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (n <= 0)
                break;
            out.emplace_back(buffer.data(), static_cast<size_t>(n));
        }
        return out;
    }

private:
    int m_fd = -1;
};

std::string envelope(const std::string& messageId, const std::string& action,
                     const std::string& body) {
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                       "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\" "
                       "xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
                       "xmlns:wd=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
                       "xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\" "
                       "xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\"><e:Header>"
                       "<w:MessageID>") +
           messageId +
           "</w:MessageID><w:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>"
           "<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/" +
           action + "</w:Action></e:Header><e:Body>" + body + "</e:Body></e:Envelope>";
}

std::string probe(const std::string& messageId, const std::string& inner = "") {
    return envelope(messageId, "Probe", "<wd:Probe>" + inner + "</wd:Probe>");
}

std::string resolve(const std::string& messageId, const std::string& address) {
    return envelope(messageId, "Resolve",
                    "<wd:Resolve><w:EndpointReference><w:Address>" + address +
                        "</w:Address></w:EndpointReference></wd:Resolve>");
}

std::string uuidNumbered(int n) {
    char sz[64];
    std::snprintf(sz, sizeof(sz), "urn:uuid:c0ffee00-0000-4000-8000-%012d", n);
    return sz;
}

// An element child by namespace URI and local name.
const TiXmlElement* childNs(const TiXmlElement* parent, const char* ns, const char* local) {
    for (const TiXmlElement* c = parent ? parent->FirstChildElement() : nullptr; c;
         c = c->NextSiblingElement())
        if (soapcheck::localName(c) == local && soapcheck::namespaceOf(c) == ns)
            return c;
    return nullptr;
}

std::string textOf(const TiXmlElement* e) {
    return e && e->GetText() ? e->GetText() : "<absent>";
}

// A discovery answer read with TinyXML, names resolved by their namespaces.
struct Reply {
    explicit Reply(const std::string& text) {
        doc.Parse(text.c_str());
        const TiXmlElement* env = doc.RootElement();
        if (!env || soapcheck::namespaceOf(env) != soapcheck::kSoap12 ||
            soapcheck::localName(env) != "Envelope")
            return;
        header = childNs(env, soapcheck::kSoap12, "Header");
        const TiXmlElement* body = childNs(env, soapcheck::kSoap12, "Body");
        message = body ? body->FirstChildElement() : nullptr;
    }
    std::string headerText(const char* local) const { return textOf(childNs(header, kWsa, local)); }
    TiXmlDocument doc;
    const TiXmlElement* header = nullptr;
    const TiXmlElement* message = nullptr;
};

// The namespace a prefixed name of an element's text is bound to there.
std::string namespaceOfPrefix(const TiXmlElement* at, const std::string& prefix) {
    const std::string attr = "xmlns:" + prefix;
    for (const TiXmlNode* n = at; n; n = n->Parent())
        if (const TiXmlElement* e = n->ToElement())
            if (e->Attribute(attr.c_str()))
                return e->Attribute(attr.c_str());
    return "";
}

class DiscoveryServiceTest : public ::testing::Test {
protected:
    void SetUp() override { start(); }

    // The camera under test; announcements, when asked for, go to the
    // test's own loopback socket.
    DiscoveryConfig config() {
        DiscoveryConfig config;
        config.strBindAddress = "127.0.0.1";
        config.nPort = 0;
        config.bJoinGroup = false;
        config.strAnnounceAddress = "127.0.0.1";
        config.nAnnouncePort = m_listener.port();
        config.target.strAddress = kCamera;
        config.target.types = sensorctl::discovery::cameraTypes();
        config.target.scopes = {
            "onvif://www.onvif.org/Profile/Streaming", "onvif://www.onvif.org/type/video_encoder",
            "onvif://www.onvif.org/hardware/SIM-BOX", "onvif://www.onvif.org/name/sensorctl",
            "onvif://www.onvif.org/location/simulated"};
        config.target.xaddrs = {"http://127.0.0.1:8080/onvif/device_service"};
        config.nInstanceId = 77;
        config.dAnswersPerSecond = 5;
        config.dBurst = 5;
        config.clock = [this] { return m_dNow.load(); };
        config.log = [this](const std::string& line) {
            std::lock_guard<std::mutex> lock(m_logMutex);
            m_log.push_back(line);
        };
        return config;
    }

    void start() {
        m_pService.reset(new DiscoveryService(config()));
        std::string why;
        ASSERT_TRUE(m_pService->start(why)) << why;
    }

    // Sends datagrams and returns what came back once the service has
    // dealt with all of them (at most 10 s).
    std::vector<std::string> exchange(const std::vector<std::string>& datagrams) {
        const uint64_t nBefore = m_pService->counters().nReceived;
        for (const std::string& d : datagrams)
            m_client.send(m_pService->port(), d);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (m_pService->counters().nReceived < nBefore + datagrams.size() &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(m_pService->counters().nReceived, nBefore + datagrams.size());
        return m_client.drain();
    }
    std::vector<std::string> exchange(const std::string& datagram) {
        return exchange(std::vector<std::string>{datagram});
    }

    std::vector<std::string> log() {
        std::lock_guard<std::mutex> lock(m_logMutex);
        return m_log;
    }

    std::atomic<double> m_dNow{1000.0};
    std::mutex m_logMutex;
    std::vector<std::string> m_log;
    LoopbackUdp m_client;
    LoopbackUdp m_listener; // where announcements go
    std::unique_ptr<DiscoveryService> m_pService;
};

// Checks a ProbeMatches or ResolveMatches answer against what the camera
// is, every name by its namespace.
void expectMatchOfTheCamera(const std::string& text, const char* match,
                            const std::string& relatesTo, const std::string& xaddr) {
    const Reply r(text);
    ASSERT_NE(r.message, nullptr) << text;
    EXPECT_EQ(r.headerText("Action"),
              std::string("http://schemas.xmlsoap.org/ws/2005/04/discovery/") + match + "es");
    EXPECT_EQ(r.headerText("RelatesTo"), relatesTo);
    EXPECT_EQ(r.headerText("To"),
              "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous");
    EXPECT_TRUE(std::regex_match(r.headerText("MessageID"),
                                 std::regex("urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-"
                                            "[0-9a-f]{4}-[0-9a-f]{12}")))
        << r.headerText("MessageID");
    const TiXmlElement* seq = childNs(r.header, kWsd, "AppSequence");
    ASSERT_NE(seq, nullptr) << text;
    EXPECT_EQ(soapcheck::localName(r.message), std::string(match) + "es");
    EXPECT_EQ(soapcheck::namespaceOf(r.message), kWsd);
    const TiXmlElement* m = childNs(r.message, kWsd, match);
    ASSERT_NE(m, nullptr) << text;
    EXPECT_EQ(textOf(childNs(childNs(m, kWsa, "EndpointReference"), kWsa, "Address")), kCamera);
    const TiXmlElement* types = childNs(m, kWsd, "Types");
    ASSERT_NE(types, nullptr) << text;
    // Two QNames: the network video transmitter and the device.
    std::vector<std::string> seen;
    std::string list = textOf(types);
    for (size_t from = 0; from < list.size();) {
        const size_t end = std::min(list.find(' ', from), list.size());
        const std::string item = list.substr(from, end - from);
        const size_t colon = item.find(':');
        seen.push_back(namespaceOfPrefix(types, item.substr(0, colon)) + " " +
                       item.substr(colon + 1));
        from = end + 1;
    }
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "http://www.onvif.org/ver10/network/wsdl NetworkVideoTransmitter",
                        "http://www.onvif.org/ver10/device/wsdl Device"}));
    EXPECT_EQ(textOf(childNs(m, kWsd, "Scopes")),
              "onvif://www.onvif.org/Profile/Streaming onvif://www.onvif.org/type/video_encoder "
              "onvif://www.onvif.org/hardware/SIM-BOX onvif://www.onvif.org/name/sensorctl "
              "onvif://www.onvif.org/location/simulated");
    EXPECT_EQ(textOf(childNs(m, kWsd, "XAddrs")), xaddr);
    EXPECT_EQ(textOf(childNs(m, kWsd, "MetadataVersion")), "1");
}

TEST_F(DiscoveryServiceTest, ProbeGetsProbeMatchesRelatedToItsMessageId) {
    const std::vector<std::string> replies =
        exchange(probe(uuidNumbered(1), "<wd:Types>dn:NetworkVideoTransmitter tds:Device</wd:Types>"
                                        "<wd:Scopes>onvif://www.onvif.org/name</wd:Scopes>"));
    ASSERT_EQ(replies.size(), 1u);
    expectMatchOfTheCamera(replies[0], "ProbeMatch", uuidNumbered(1),
                           "http://127.0.0.1:8080/onvif/device_service");
}

TEST_F(DiscoveryServiceTest, EveryMessageCarriesTheInstanceAndTheNextMessageNumber) {
    const std::vector<std::string> first = exchange(probe(uuidNumbered(1)));
    const std::vector<std::string> second = exchange(resolve(uuidNumbered(2), kCamera));
    ASSERT_EQ(first.size(), 1u);
    ASSERT_EQ(second.size(), 1u);
    const Reply a(first[0]), b(second[0]);
    const TiXmlElement* seqA = childNs(a.header, kWsd, "AppSequence");
    const TiXmlElement* seqB = childNs(b.header, kWsd, "AppSequence");
    ASSERT_TRUE(seqA && seqB);
    EXPECT_STREQ(seqA->Attribute("InstanceId"), "77");
    EXPECT_STREQ(seqA->Attribute("MessageNumber"), "1");
    EXPECT_STREQ(seqB->Attribute("InstanceId"), "77");
    EXPECT_STREQ(seqB->Attribute("MessageNumber"), "2");
    EXPECT_NE(a.headerText("MessageID"), b.headerText("MessageID"));
}

TEST_F(DiscoveryServiceTest, ProbeForAnotherTypeOrScopeGetsNoAnswer) {
    EXPECT_TRUE(exchange(probe(uuidNumbered(1), "<wd:Types>tds:Printer</wd:Types>")).empty());
    EXPECT_TRUE(
        exchange(probe(uuidNumbered(2), "<wd:Scopes>onvif://www.onvif.org/name/other</wd:Scopes>"))
            .empty());
    EXPECT_TRUE(exchange(probe(uuidNumbered(3),
                               "<wd:Scopes>onvif://www.onvif.org/hardware/SIM</wd:Scopes>"))
                    .empty());
    // The camera is still there for a Probe that names it.
    EXPECT_EQ(exchange(probe(uuidNumbered(4), "<wd:Types>tds:Device</wd:Types>")).size(), 1u);
}

TEST_F(DiscoveryServiceTest, ResolveOfTheCameraGetsResolveMatchesAndOfAnotherNone) {
    const std::vector<std::string> replies = exchange(resolve(uuidNumbered(1), kCamera));
    ASSERT_EQ(replies.size(), 1u);
    expectMatchOfTheCamera(replies[0], "ResolveMatch", uuidNumbered(1),
                           "http://127.0.0.1:8080/onvif/device_service");
    EXPECT_TRUE(exchange(resolve(uuidNumbered(2), "urn:uuid:0f1e2d3c-4b5a-5968-8776-a5b4c3d2e1f1"))
                    .empty());
}

TEST_F(DiscoveryServiceTest, UnicastProbeWithAnUnknownRuleGetsTheMatchingRuleFault) {
    const std::vector<std::string> replies =
        exchange(probe(uuidNumbered(1), "<wd:Scopes MatchBy=\"http://example.com/rule\">"
                                        "onvif://www.onvif.org</wd:Scopes>"));
    ASSERT_EQ(replies.size(), 1u);
    const Reply r(replies[0]);
    EXPECT_EQ(r.headerText("Action"), "http://schemas.xmlsoap.org/ws/2005/04/discovery/fault");
    EXPECT_EQ(r.headerText("RelatesTo"), uuidNumbered(1));
    const soapcheck::Answer fault(replies[0]);
    ASSERT_TRUE(fault.isFault()) << replies[0];
    EXPECT_EQ(fault.codes(),
              (std::vector<std::string>{"env:Sender", "d:MatchingRuleNotSupported"}));
    const TiXmlElement* detail = childNs(r.message, soapcheck::kSoap12, "Detail");
    EXPECT_EQ(textOf(childNs(detail, kWsd, "SupportedMatchingRules")),
              "http://schemas.xmlsoap.org/ws/2005/04/discovery/rfc3986 "
              "http://schemas.xmlsoap.org/ws/2005/04/discovery/rfc2396 "
              "http://schemas.xmlsoap.org/ws/2005/04/discovery/strcmp0");
}

TEST_F(DiscoveryServiceTest, NonDiscoverableAnswersNothingUntilDiscoverableAgain) {
    EXPECT_EQ(m_pService->discoveryMode(), DiscoveryMode::Discoverable);
    m_pService->setDiscoveryMode(DiscoveryMode::NonDiscoverable);
    EXPECT_EQ(m_pService->discoveryMode(), DiscoveryMode::NonDiscoverable);
    EXPECT_TRUE(exchange(probe(uuidNumbered(1))).empty());
    EXPECT_TRUE(exchange(resolve(uuidNumbered(2), kCamera)).empty());
    EXPECT_TRUE(exchange(probe(uuidNumbered(3), "<wd:Scopes MatchBy=\"http://example.com/r\">"
                                                "onvif://www.onvif.org</wd:Scopes>"))
                    .empty());
    EXPECT_TRUE(log().empty()); // not listening: nothing to report either
    m_pService->setDiscoveryMode(DiscoveryMode::Discoverable);
    EXPECT_EQ(exchange(probe(uuidNumbered(4))).size(), 1u);
}

TEST_F(DiscoveryServiceTest, DiscoveryModeNamesAreTheDeviceServices) {
    DiscoveryMode mode = DiscoveryMode::Discoverable;
    EXPECT_TRUE(sensorctl::parseDiscoveryMode("NonDiscoverable", mode));
    EXPECT_EQ(mode, DiscoveryMode::NonDiscoverable);
    EXPECT_TRUE(sensorctl::parseDiscoveryMode("Discoverable", mode));
    EXPECT_EQ(mode, DiscoveryMode::Discoverable);
    EXPECT_FALSE(sensorctl::parseDiscoveryMode("discoverable", mode));
    EXPECT_STREQ(sensorctl::discoveryModeName(DiscoveryMode::NonDiscoverable), "NonDiscoverable");
    EXPECT_STREQ(sensorctl::discoveryModeName(DiscoveryMode::Discoverable), "Discoverable");
}

TEST_F(DiscoveryServiceTest, MalformedDatagramsAreIgnoredReportedOnceAndServingGoesOn) {
    std::string deep = probe(uuidNumbered(9));
    for (int i = 0; i < 200; ++i)
        deep.insert(deep.find("<wd:Probe>") + 10, "<a>");
    const std::vector<std::string> bad = {
        "garbage",
        std::string("<x>\0</x>", 8),
        probe(uuidNumbered(1)).substr(0, 200),
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>"
        "<d:Probe xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\"/></s:Body>"
        "</s:Envelope>",
        envelope(uuidNumbered(2), "Probe", "<wd:Hello/>"),
        deep,
        probe(uuidNumbered(3)) + std::string(20000, ' '),
        std::string(60000, '<'),
    };
    EXPECT_TRUE(exchange(bad).empty());
    const uint64_t nRefused = m_pService->counters().nRefused;
    EXPECT_EQ(nRefused, bad.size());
    // The clock stands still: one report, the rest counted into the next.
    const std::vector<std::string> lines = log();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("ignored a datagram from 127.0.0.1:"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("not well-formed XML"), std::string::npos) << lines[0];
    m_dNow = m_dNow + 1.5;
    EXPECT_TRUE(exchange("more garbage").empty());
    ASSERT_EQ(log().size(), 2u);
    EXPECT_NE(log()[1].find("(7 more ignored since the last report)"), std::string::npos)
        << log()[1];
    EXPECT_EQ(exchange(probe(uuidNumbered(4))).size(), 1u);
}

TEST_F(DiscoveryServiceTest, RepeatedMessageIdIsAnsweredOnce) {
    const std::string p = probe(uuidNumbered(1));
    EXPECT_EQ(exchange(std::vector<std::string>{p, p, p}).size(), 1u);
    EXPECT_EQ(exchange(p).size(), 0u);
    EXPECT_EQ(exchange(probe(uuidNumbered(2))).size(), 1u);
}

TEST_F(DiscoveryServiceTest, FloodIsAnsweredWithinTheBudgetAndServingGoesOn) {
    std::vector<std::string> flood;
    for (int i = 0; i < 30; ++i)
        flood.push_back(probe(uuidNumbered(i)));
    // The clock stands still: five answers, the budget, and no more.
    EXPECT_EQ(exchange(flood).size(), 5u);
    EXPECT_EQ(m_pService->counters().nOverBudget, 25u);
    EXPECT_EQ(m_pService->counters().nAnswered, 5u);
    EXPECT_EQ(log().size(), 1u);
    EXPECT_TRUE(exchange(probe(uuidNumbered(100))).empty());
    // A fifth of a second later one more answer is due (five a second).
    m_dNow = m_dNow + 0.2;
    EXPECT_EQ(exchange(std::vector<std::string>{probe(uuidNumbered(101)), probe(uuidNumbered(102))})
                  .size(),
              1u);
}

TEST_F(DiscoveryServiceTest, AnnouncementsSayHelloAndByeAsTheModeAndServiceGo) {
    DiscoveryConfig announcing = config();
    announcing.bAnnounce = true;
    announcing.nInstanceId = 78;
    DiscoveryService service(announcing);
    std::string why;
    ASSERT_TRUE(service.start(why)) << why;
    // Each announcement leaves before the call that causes it returns.
    std::vector<std::string> seen = m_listener.drain();
    service.setDiscoveryMode(DiscoveryMode::NonDiscoverable);
    service.setDiscoveryMode(DiscoveryMode::NonDiscoverable); // no change: nothing
    for (const std::string& d : m_listener.drain())
        seen.push_back(d);
    service.setDiscoveryMode(DiscoveryMode::Discoverable);
    service.stop();
    for (const std::string& d : m_listener.drain())
        seen.push_back(d);
    ASSERT_EQ(seen.size(), 4u);
    const char* const kinds[] = {"Hello", "Bye", "Hello", "Bye"};
    for (size_t i = 0; i < 4; ++i) {
        const Reply r(seen[i]);
        ASSERT_NE(r.message, nullptr) << seen[i];
        EXPECT_EQ(r.headerText("Action"),
                  std::string("http://schemas.xmlsoap.org/ws/2005/04/discovery/") + kinds[i]);
        EXPECT_EQ(r.headerText("To"), "urn:schemas-xmlsoap-org:ws:2005:04:discovery");
        EXPECT_EQ(r.headerText("RelatesTo"), "<absent>");
        const TiXmlElement* seq = childNs(r.header, kWsd, "AppSequence");
        ASSERT_NE(seq, nullptr);
        EXPECT_STREQ(seq->Attribute("InstanceId"), "78");
        EXPECT_EQ(seq->Attribute("MessageNumber"), std::to_string(i + 1));
        EXPECT_EQ(soapcheck::localName(r.message), kinds[i]);
        EXPECT_EQ(soapcheck::namespaceOf(r.message), kWsd);
        EXPECT_EQ(textOf(childNs(childNs(r.message, kWsa, "EndpointReference"), kWsa, "Address")),
                  kCamera);
    }
    const Reply hello(seen[0]);
    EXPECT_EQ(textOf(childNs(hello.message, kWsd, "XAddrs")),
              "http://127.0.0.1:8080/onvif/device_service");
    EXPECT_EQ(textOf(childNs(hello.message, kWsd, "MetadataVersion")), "1");
}

TEST_F(DiscoveryServiceTest, ProbeMatchesTheScopesDeviceManagementSets) {
    auto pScopes = std::make_shared<sensorctl::ScopeList>(
        std::vector<std::string>{"onvif://www.onvif.org/name/sensorctl"});
    DiscoveryConfig shared = config();
    shared.pScopes = pScopes;
    m_pService.reset(new DiscoveryService(shared));
    std::string why;
    ASSERT_TRUE(m_pService->start(why)) << why;
    const std::string byGarden = "<wd:Scopes>onvif://www.onvif.org/location/garden</wd:Scopes>";
    EXPECT_TRUE(exchange(probe(uuidNumbered(1), byGarden)).empty());
    ASSERT_EQ(pScopes->add({"onvif://www.onvif.org/location/garden"}),
              sensorctl::ScopeList::Outcome::Done);
    const std::vector<std::string> found = exchange(probe(uuidNumbered(2), byGarden));
    ASSERT_EQ(found.size(), 1u);
    const Reply r(found[0]);
    const TiXmlElement* m = childNs(r.message, kWsd, "ProbeMatch");
    ASSERT_NE(m, nullptr) << found[0];
    EXPECT_EQ(textOf(childNs(m, kWsd, "Scopes")),
              "onvif://www.onvif.org/name/sensorctl onvif://www.onvif.org/location/garden");
    EXPECT_EQ(textOf(childNs(m, kWsd, "MetadataVersion")), "2");
    ASSERT_EQ(pScopes->remove({"onvif://www.onvif.org/location/garden"}),
              sensorctl::ScopeList::Outcome::Done);
    EXPECT_TRUE(exchange(probe(uuidNumbered(3), byGarden)).empty());
}

TEST_F(DiscoveryServiceTest, ChangedScopesAreAnnouncedWithHello) {
    auto pScopes = std::make_shared<sensorctl::ScopeList>(
        std::vector<std::string>{"onvif://www.onvif.org/name/sensorctl"});
    DiscoveryConfig announcing = config();
    announcing.bAnnounce = true;
    announcing.pScopes = pScopes;
    DiscoveryService service(announcing);
    std::string why;
    ASSERT_TRUE(service.start(why)) << why;
    ASSERT_EQ(m_listener.drain().size(), 1u); // the Hello of the start
    pScopes->set({"onvif://www.onvif.org/location/shed"});
    const std::vector<std::string> seen = m_listener.drain();
    service.stop();
    ASSERT_EQ(seen.size(), 1u);
    const Reply hello(seen[0]);
    ASSERT_NE(hello.message, nullptr) << seen[0];
    EXPECT_EQ(soapcheck::localName(hello.message), "Hello");
    EXPECT_EQ(textOf(childNs(hello.message, kWsd, "Scopes")),
              "onvif://www.onvif.org/name/sensorctl onvif://www.onvif.org/location/shed");
    EXPECT_EQ(textOf(childNs(hello.message, kWsd, "MetadataVersion")), "2");
    // Once stopped, a change announces nothing.
    pScopes->set({});
    EXPECT_EQ(m_listener.drain().size(), 1u); // the Bye of the stop alone
}

TEST_F(DiscoveryServiceTest, NothingIsAnnouncedWithoutTheOption) {
    m_pService->setDiscoveryMode(DiscoveryMode::NonDiscoverable);
    m_pService->setDiscoveryMode(DiscoveryMode::Discoverable);
    m_pService->stop();
    EXPECT_TRUE(m_listener.drain().empty());
}

TEST_F(DiscoveryServiceTest, AnswersAndHelloAreValidAgainstTheDiscoverySchema) {
    const std::string reference = SENSOR_ONVIF_REFERENCE;
    if (::access((reference + "/ext/ws-discovery.xsd").c_str(), R_OK) != 0)
        GTEST_SKIP() << "no ONVIF reference files at " << reference;
    std::vector<std::string> messages = exchange(probe(uuidNumbered(1)));
    for (const std::string& d : exchange(resolve(uuidNumbered(2), kCamera)))
        messages.push_back(d);
    DiscoveryConfig announcing = config();
    announcing.bAnnounce = true;
    DiscoveryService service(announcing);
    std::string why;
    ASSERT_TRUE(service.start(why)) << why;
    service.stop();
    for (const std::string& d : m_listener.drain())
        messages.push_back(d);
    ASSERT_EQ(messages.size(), 4u); // ProbeMatches, ResolveMatches, Hello, Bye
    for (const std::string& message : messages) {
        char path[] = "/tmp/discovery-answer-XXXXXX";
        const int fd = ::mkstemp(path);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::write(fd, message.data(), message.size()),
                  static_cast<ssize_t>(message.size()));
        ::close(fd);
        // Debian's interpreter, where python3-lxml is installed.
        const std::string command = "/usr/bin/python3 " + std::string(SENSOR_SOURCE_DIR) +
                                    "/tests/sensorctl/validate-discovery.py '" + reference + "' " +
                                    path + " 2>&1";
        const int status = std::system(command.c_str());
        ::unlink(path);
        ASSERT_TRUE(WIFEXITED(status));
        if (WEXITSTATUS(status) == 77)
            GTEST_SKIP() << "python3-lxml is not installed";
        EXPECT_EQ(WEXITSTATUS(status), 0) << message;
    }
}

#if SENSORCTL_HAS_ONVIF

// sensorctl serve with ONVIF and discovery on an ephemeral loopback port
// (ServeProcess asks for one).
class ServeDiscovery : public ::testing::Test {
protected:
    void start(const std::vector<std::string>& extra) {
        std::vector<std::string> args = {"--time-scale",     "0.01",  "--onvif-user", "admin",
                                         "--onvif-password", "secret"};
        args.insert(args.end(), extra.begin(), extra.end());
        std::string error;
        ASSERT_TRUE(m_serve.start(args, error)) << error;
        // The discovery line follows the port's.
        const std::regex line("WS-Discovery (on UDP port ([0-9]+), endpoint (\\S+)|off)");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        std::smatch m;
        std::string out;
        while (std::chrono::steady_clock::now() < deadline) {
            out = m_serve.output();
            if (std::regex_search(out, m, line))
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(std::regex_search(out, m, line)) << out;
        if (m[2].matched) {
            m_nPort = std::stoi(m[2]);
            m_strEndpoint = m[3];
        }
    }

    testsupport::ServeProcess m_serve;
    int m_nPort = 0;
    std::string m_strEndpoint;
};

TEST_F(ServeDiscovery, ProbeFindsTheDeviceServiceOfServe) {
    start({});
    ASSERT_NE(m_nPort, 0);
    LoopbackUdp client;
    client.send(m_nPort, probe(uuidNumbered(1), "<wd:Types>dn:NetworkVideoTransmitter</wd:Types>"
                                                "<wd:Scopes>onvif://www.onvif.org/name/sensorctl "
                                                "onvif://www.onvif.org/Profile/Streaming"
                                                "</wd:Scopes>"));
    const std::string text = client.receive(10000);
    const Reply r(text);
    ASSERT_NE(r.message, nullptr) << text;
    EXPECT_EQ(r.headerText("RelatesTo"), uuidNumbered(1));
    const TiXmlElement* m = childNs(r.message, kWsd, "ProbeMatch");
    EXPECT_EQ(textOf(childNs(m, kWsd, "XAddrs")),
              "http://127.0.0.1:" + std::to_string(m_serve.port()) + "/onvif/device_service");
    EXPECT_EQ(textOf(childNs(childNs(m, kWsa, "EndpointReference"), kWsa, "Address")),
              m_strEndpoint);
    EXPECT_TRUE(
        std::regex_match(m_strEndpoint, std::regex("urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-5[0-9a-f]{3}-"
                                                   "[89ab][0-9a-f]{3}-[0-9a-f]{12}")))
        << m_strEndpoint;
    // The scopes GetScopes lists for the sample camera, model Hi3516DV300.
    EXPECT_EQ(textOf(childNs(m, kWsd, "Scopes")),
              "onvif://www.onvif.org/Profile/Streaming onvif://www.onvif.org/type/video_encoder "
              "onvif://www.onvif.org/location/simulated onvif://www.onvif.org/hardware/Hi3516DV300 "
              "onvif://www.onvif.org/name/sensorctl");
}

// A client that found the camera by a Probe and then asks the device for
// its endpoint reference hears the same name.
TEST_F(ServeDiscovery, ProbeAndGetEndpointReferenceNameTheSameDevice) {
    start({});
    ASSERT_FALSE(m_strEndpoint.empty());
    const std::string body =
        "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">"
        "<s:Body><GetEndpointReference xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/>"
        "</s:Body></s:Envelope>";
    const int fd = testsupport::connectLoopback(m_serve.port());
    ASSERT_GE(fd, 0);
    testsupport::sendAll(fd, "POST /onvif/device_service HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                             "Content-Type: application/soap+xml\r\nConnection: close\r\n"
                             "Content-Length: " +
                                 std::to_string(body.size()) + "\r\n\r\n" + body);
    std::string raw;
    char buf[4096];
    timeval tv{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    for (ssize_t n; (n = ::recv(fd, buf, sizeof(buf), 0)) > 0;)
        raw.append(buf, static_cast<size_t>(n));
    ::close(fd);
    const testsupport::HttpReply reply = testsupport::parseHttpReply(raw);
    ASSERT_EQ(reply.status, 200) << raw;
    EXPECT_NE(reply.body.find("<tds:GUID>" + m_strEndpoint + "</tds:GUID>"), std::string::npos)
        << reply.body;
}

TEST_F(ServeDiscovery, EndpointReferenceIsTheSameAtEveryStart) {
    start({});
    const std::string first = m_strEndpoint;
    ASSERT_FALSE(first.empty());
    m_serve.kill();
    start({});
    EXPECT_EQ(m_strEndpoint, first);
}

TEST_F(ServeDiscovery, NoDiscoveryOptionTurnsItOff) {
    start({"--no-discovery"});
    EXPECT_EQ(m_nPort, 0);
    EXPECT_NE(m_serve.output().find("sensorctl serve: WS-Discovery off\n"), std::string::npos)
        << m_serve.output();
}

#endif

} // namespace
