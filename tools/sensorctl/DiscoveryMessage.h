// The WS-Discovery (2005/04) messages of the simulated camera as a target
// service: reading a Probe or a Resolve datagram, deciding whether it names
// this camera, and writing the SOAP 1.2 answers and announcements. No socket
// here: the UDP service (Discovery.h) and the fuzz target both drive it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sensorctl {
namespace discovery {

namespace ns {
constexpr const char* kSoap = "http://www.w3.org/2003/05/soap-envelope";
constexpr const char* kAddressing = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
constexpr const char* kDiscovery = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
constexpr const char* kDevice = "http://www.onvif.org/ver10/device/wsdl";
constexpr const char* kNetwork = "http://www.onvif.org/ver10/network/wsdl";
} // namespace ns

// The scope matching rules the camera applies (MatchBy). Without MatchBy a
// Probe means rfc2396, which ONVIF reads as rfc3986.
namespace rule {
constexpr const char* kRfc3986 = "http://schemas.xmlsoap.org/ws/2005/04/discovery/rfc3986";
constexpr const char* kRfc2396 = "http://schemas.xmlsoap.org/ws/2005/04/discovery/rfc2396";
constexpr const char* kStrcmp0 = "http://schemas.xmlsoap.org/ws/2005/04/discovery/strcmp0";
} // namespace rule

// Bounds of a datagram the camera reads at all.
constexpr size_t kMaxDatagram = 16 * 1024;
constexpr int kMaxDepth = 32;

// A qualified name with its prefix resolved: namespace URI and local name.
struct QName {
    std::string strNs;
    std::string strLocal;
};

enum class MessageKind { Probe, Resolve };

// What the camera needs of a Probe or a Resolve.
struct Inbound {
    MessageKind kind = MessageKind::Probe;
    std::string strMessageId;
    // Probe: the types asked for; false when one of them names a prefix the
    // message never declared (such a type names nothing this camera is).
    std::vector<QName> types;
    bool bTypesResolved = true;
    std::vector<std::string> scopes;
    std::string strMatchBy; // as written; empty when absent
    // Resolve: the endpoint reference's address.
    std::string strAddress;
};

// Reads one datagram. false with the reason when it is no Probe or Resolve
// in a SOAP 1.2 envelope with a MessageID (no control characters): over
// kMaxDatagram, holding a NUL, not UTF-8, nested deeper than kMaxDepth, not
// XML, another envelope or message, an Action that contradicts the body.
bool parseInbound(const char* p_pData, size_t p_nSize, Inbound& p_objOut, std::string& p_strWhy);

// What the camera says of itself.
struct Target {
    std::string strAddress; // "urn:uuid:..."
    std::vector<QName> types;
    std::vector<std::string> scopes;
    std::vector<std::string> xaddrs;
    unsigned nMetadataVersion = 1;
};

// The camera's types: tdn:NetworkVideoTransmitter and tds:Device.
std::vector<QName> cameraTypes();

enum class Match { Yes, No, RuleNotSupported };

// Whether a Probe names this target: every type asked for is one of the
// target's, and every scope asked for matches one of the target's by the
// Probe's rule.
Match matchProbe(const Inbound& p_objProbe, const Target& p_objTarget);
// Whether a Resolve names this target's endpoint reference.
bool matchResolve(const Inbound& p_objResolve, const Target& p_objTarget);

// One scope of a Probe against one of the target's under a rule (a full
// rule URI); false for an unknown rule.
bool scopeMatches(const std::string& p_strRule, const std::string& p_strProbe,
                  const std::string& p_strTarget);

// The AppSequence header of each message the camera sends.
struct Sequence {
    uint32_t nInstanceId = 0;
    uint32_t nMessageNumber = 0;
};

std::string probeMatches(const Target& p_objTarget, const std::string& p_strRelatesTo,
                         const std::string& p_strMessageId, const Sequence& p_objSeq);
std::string resolveMatches(const Target& p_objTarget, const std::string& p_strRelatesTo,
                           const std::string& p_strMessageId, const Sequence& p_objSeq);
std::string hello(const Target& p_objTarget, const std::string& p_strMessageId,
                  const Sequence& p_objSeq);
std::string bye(const Target& p_objTarget, const std::string& p_strMessageId,
                const Sequence& p_objSeq);
// The fault a unicast Probe with a rule the camera lacks gets.
std::string matchingRuleFault(const std::string& p_strRelatesTo, const std::string& p_strMessageId);

// A fresh "urn:uuid:" of random bits (version 4).
std::string randomUrnUuid();
// A name-based "urn:uuid:" (version 5, SHA-1) of p_strName in the URL
// namespace: the same name gives the same camera address at every start.
std::string nameUrnUuid(const std::string& p_strName);
// The version-5 UUID text of a name in a namespace given as UUID text.
std::string nameUuid(const std::string& p_strNamespaceUuid, const std::string& p_strName);

} // namespace discovery
} // namespace sensorctl
