#include "DiscoveryMessage.h"

#include <openssl/evp.h>
#include <tinyxml.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <random>

#include "sensor-onvif/Soap.h"

namespace sensorctl {
namespace discovery {

namespace {

constexpr const char* kActionProbe = "http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe";
constexpr const char* kActionResolve = "http://schemas.xmlsoap.org/ws/2005/04/discovery/Resolve";
constexpr const char* kActionPrefix = "http://schemas.xmlsoap.org/ws/2005/04/discovery/";
// Answers go back to whoever sent the request; announcements to every client.
constexpr const char* kToAnonymous =
    "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";
constexpr const char* kToDiscovery = "urn:schemas-xmlsoap-org:ws:2005:04:discovery";
constexpr const char* kUrlNamespace = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";

using sensor_onvif::xmlEscape;

bool isXmlBlank(char ch) {
    return ch == ' ' || ch == '\t' || ch == '\n' || ch == '\r';
}

std::string trim(const std::string& p_str) {
    size_t b = 0, e = p_str.size();
    while (b < e && isXmlBlank(p_str[b]))
        ++b;
    while (e > b && isXmlBlank(p_str[e - 1]))
        --e;
    return p_str.substr(b, e - b);
}

// An XML list (xs:list): items separated by blanks.
std::vector<std::string> splitList(const std::string& p_strText) {
    std::vector<std::string> items;
    std::string strItem;
    for (const char ch : p_strText) {
        if (isXmlBlank(ch)) {
            if (!strItem.empty())
                items.push_back(strItem);
            strItem.clear();
        } else {
            strItem += ch;
        }
    }
    if (!strItem.empty())
        items.push_back(strItem);
    return items;
}

// Counts element nesting before TinyXML, which recurses, sees the text.
// Markup that is not an element start is stepped over to its first '>', so
// the count errs towards refusing.
bool nestingWithin(const char* p_pData, size_t p_nSize, int p_nMax) {
    int nDepth = 0;
    for (size_t i = 0; i < p_nSize; ++i) {
        if (p_pData[i] != '<')
            continue;
        const char* pEnd = static_cast<const char*>(std::memchr(p_pData + i, '>', p_nSize - i));
        if (!pEnd)
            return true; // unterminated: TinyXML refuses it
        const size_t e = static_cast<size_t>(pEnd - p_pData);
        const char next = i + 1 < p_nSize ? p_pData[i + 1] : '\0';
        if (next == '/')
            --nDepth;
        else if (next != '?' && next != '!' && p_pData[e - 1] != '/' && ++nDepth > p_nMax)
            return false;
        i = e;
    }
    return true;
}

// Well-formed UTF-8 (no stray continuation byte, no sequence cut short, no
// lead byte beyond U+10FFFF): TinyXML steps over a sequence by the length its
// first byte announces, so a broken one would swallow the markup after it, and
// the answer repeats the MessageID.
bool isUtf8(const char* p_pData, size_t p_nSize) {
    for (size_t i = 0; i < p_nSize;) {
        const unsigned char lead = static_cast<unsigned char>(p_pData[i]);
        const size_t nLen = lead < 0x80   ? 1
                            : lead < 0xC2 ? 0
                            : lead < 0xE0 ? 2
                            : lead < 0xF0 ? 3
                            : lead < 0xF5 ? 4
                                          : 0;
        if (nLen == 0 || i + nLen > p_nSize)
            return false;
        for (size_t k = 1; k < nLen; ++k)
            if ((static_cast<unsigned char>(p_pData[i + k]) & 0xC0) != 0x80)
                return false;
        i += nLen;
    }
    return true;
}

std::string prefixOf(const std::string& p_strQName) {
    const size_t n = p_strQName.find(':');
    return n == std::string::npos ? std::string() : p_strQName.substr(0, n);
}

std::string localOf(const std::string& p_strQName) {
    const size_t n = p_strQName.find(':');
    return n == std::string::npos ? p_strQName : p_strQName.substr(n + 1);
}

// The namespace a prefix ("" for the default one) stands for at an element,
// from the declarations on it and its ancestors. false when none declares it.
bool resolvePrefix(const TiXmlElement* p_pAt, const std::string& p_strPrefix,
                   std::string& p_strNs) {
    const std::string strAttr = p_strPrefix.empty() ? "xmlns" : "xmlns:" + p_strPrefix;
    for (const TiXmlNode* p = p_pAt; p; p = p->Parent()) {
        const TiXmlElement* pElem = p->ToElement();
        if (!pElem)
            continue;
        if (const char* sz = pElem->Attribute(strAttr.c_str())) {
            p_strNs = sz;
            return true;
        }
    }
    if (p_strPrefix.empty()) {
        p_strNs.clear(); // no default namespace: names are in none
        return true;
    }
    if (p_strPrefix == "xml") {
        p_strNs = "http://www.w3.org/XML/1998/namespace";
        return true;
    }
    return false;
}

// An element's name as namespace URI and local name.
bool elementName(const TiXmlElement* p_pElem, QName& p_objName) {
    const std::string strName = p_pElem->ValueStr();
    p_objName.strLocal = localOf(strName);
    return resolvePrefix(p_pElem, prefixOf(strName), p_objName.strNs);
}

bool is(const TiXmlElement* p_pElem, const char* p_szNs, const char* p_szLocal) {
    QName name;
    return p_pElem && elementName(p_pElem, name) && name.strNs == p_szNs &&
           name.strLocal == p_szLocal;
}

const TiXmlElement* childNamed(const TiXmlElement* p_pParent, const char* p_szNs,
                               const char* p_szLocal) {
    if (!p_pParent)
        return nullptr;
    for (const TiXmlElement* p = p_pParent->FirstChildElement(); p; p = p->NextSiblingElement())
        if (is(p, p_szNs, p_szLocal))
            return p;
    return nullptr;
}

// The text children of an element, joined.
std::string textOf(const TiXmlElement* p_pElem) {
    std::string strText;
    for (const TiXmlNode* p = p_pElem->FirstChild(); p; p = p->NextSibling())
        if (const TiXmlText* pText = p->ToText())
            strText += pText->ValueStr();
    return strText;
}

bool equalNoCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

int hexValue(char ch) {
    if (ch >= '0' && ch <= '9')
        return ch - '0';
    if (ch >= 'a' && ch <= 'f')
        return ch - 'a' + 10;
    if (ch >= 'A' && ch <= 'F')
        return ch - 'A' + 10;
    return -1;
}

// Percent escapes undone; false for a '%' without two hex digits.
bool unescape(const std::string& p_strIn, std::string& p_strOut) {
    p_strOut.clear();
    for (size_t i = 0; i < p_strIn.size(); ++i) {
        if (p_strIn[i] != '%') {
            p_strOut += p_strIn[i];
            continue;
        }
        if (i + 2 >= p_strIn.size())
            return false;
        const int hi = hexValue(p_strIn[i + 1]), lo = hexValue(p_strIn[i + 2]);
        if (hi < 0 || lo < 0)
            return false;
        p_strOut += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return true;
}

// A URI cut as the rfc2396/rfc3986 rule compares it: scheme, authority and
// the path's segments (unescaped each); query and fragment are left out.
struct UriParts {
    std::string strScheme;
    std::string strAuthority;
    std::vector<std::string> segments;
};

bool splitUri(const std::string& p_strUri, UriParts& p_objOut) {
    const size_t nColon = p_strUri.find(':');
    if (nColon == std::string::npos || nColon == 0 ||
        !std::isalpha(static_cast<unsigned char>(p_strUri[0])))
        return false;
    for (size_t i = 0; i < nColon; ++i) {
        const char ch = p_strUri[i];
        if (!std::isalnum(static_cast<unsigned char>(ch)) && ch != '+' && ch != '-' && ch != '.')
            return false;
    }
    p_objOut.strScheme = p_strUri.substr(0, nColon);
    std::string strRest = p_strUri.substr(nColon + 1);
    strRest = strRest.substr(0, strRest.find_first_of("?#"));
    if (strRest.compare(0, 2, "//") == 0) {
        const size_t nPath = strRest.find('/', 2);
        p_objOut.strAuthority = strRest.substr(2, nPath == std::string::npos ? nPath : nPath - 2);
        strRest = nPath == std::string::npos ? std::string() : strRest.substr(nPath);
    }
    p_objOut.segments.clear();
    if (!strRest.empty()) {
        size_t nFrom = strRest[0] == '/' ? 1 : 0;
        while (true) {
            const size_t nSlash = strRest.find('/', nFrom);
            std::string strSegment;
            if (!unescape(
                    strRest.substr(nFrom, nSlash == std::string::npos ? nSlash : nSlash - nFrom),
                    strSegment))
                return false;
            if (strSegment == "." || strSegment == "..")
                return false;
            p_objOut.segments.push_back(strSegment);
            if (nSlash == std::string::npos)
                break;
            nFrom = nSlash + 1;
        }
    }
    // "onvif://www.onvif.org/" and ".../location/" name what they would
    // without the closing slash.
    if (!p_objOut.segments.empty() && p_objOut.segments.back().empty())
        p_objOut.segments.pop_back();
    return true;
}

bool rfc3986Matches(const std::string& p_strProbe, const std::string& p_strTarget) {
    UriParts probe, target;
    if (!splitUri(p_strProbe, probe) || !splitUri(p_strTarget, target))
        return false;
    if (!equalNoCase(probe.strScheme, target.strScheme) ||
        !equalNoCase(probe.strAuthority, target.strAuthority) ||
        probe.segments.size() > target.segments.size())
        return false;
    for (size_t i = 0; i < probe.segments.size(); ++i)
        if (probe.segments[i] != target.segments[i])
            return false;
    return true;
}

std::string prefixFor(const std::string& p_strNs) {
    if (p_strNs == ns::kDevice)
        return "tds";
    if (p_strNs == ns::kNetwork)
        return "tdn";
    return "";
}

// The Types element of an answer: the camera's two namespaces are declared
// on the envelope, any other on the element itself.
std::string typesElement(const std::vector<QName>& p_types) {
    std::string strDecl, strList;
    for (size_t i = 0; i < p_types.size(); ++i) {
        std::string strPrefix = prefixFor(p_types[i].strNs);
        if (strPrefix.empty()) {
            strPrefix = "t" + std::to_string(i);
            strDecl += " xmlns:" + strPrefix + "=\"" + xmlEscape(p_types[i].strNs) + "\"";
        }
        strList += (i ? " " : "") + strPrefix + ":" + p_types[i].strLocal;
    }
    return "<d:Types" + strDecl + ">" + xmlEscape(strList) + "</d:Types>";
}

std::string listText(const std::vector<std::string>& p_items) {
    std::string strOut;
    for (size_t i = 0; i < p_items.size(); ++i)
        strOut += (i ? " " : "") + xmlEscape(p_items[i]);
    return strOut;
}

std::string endpointReference(const Target& p_objTarget) {
    return "<wsa:EndpointReference><wsa:Address>" + xmlEscape(p_objTarget.strAddress) +
           "</wsa:Address></wsa:EndpointReference>";
}

// EndpointReference, Types, Scopes, XAddrs, MetadataVersion: the body of a
// ProbeMatch, a ResolveMatch and a Hello.
std::string targetFields(const Target& p_objTarget) {
    return endpointReference(p_objTarget) + typesElement(p_objTarget.types) + "<d:Scopes>" +
           listText(p_objTarget.scopes) + "</d:Scopes><d:XAddrs>" + listText(p_objTarget.xaddrs) +
           "</d:XAddrs><d:MetadataVersion>" + std::to_string(p_objTarget.nMetadataVersion) +
           "</d:MetadataVersion>";
}

std::string envelope(const std::string& p_strAction, const std::string& p_strMessageId,
                     const std::string* p_pRelatesTo, const char* p_szTo, const Sequence* p_pSeq,
                     const std::string& p_strBody) {
    std::string strOut = std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                                     "<env:Envelope xmlns:env=\"") +
                         ns::kSoap + "\" xmlns:wsa=\"" + ns::kAddressing + "\" xmlns:d=\"" +
                         ns::kDiscovery + "\" xmlns:tds=\"" + ns::kDevice + "\" xmlns:tdn=\"" +
                         ns::kNetwork + "\"><env:Header><wsa:MessageID>" +
                         xmlEscape(p_strMessageId) + "</wsa:MessageID>";
    if (p_pRelatesTo)
        strOut += "<wsa:RelatesTo>" + xmlEscape(*p_pRelatesTo) + "</wsa:RelatesTo>";
    strOut +=
        std::string("<wsa:To>") + p_szTo + "</wsa:To><wsa:Action>" + p_strAction + "</wsa:Action>";
    if (p_pSeq)
        strOut += "<d:AppSequence InstanceId=\"" + std::to_string(p_pSeq->nInstanceId) +
                  "\" MessageNumber=\"" + std::to_string(p_pSeq->nMessageNumber) + "\"/>";
    return strOut + "</env:Header><env:Body>" + p_strBody + "</env:Body></env:Envelope>";
}

std::string uuidText(const unsigned char* p_pBytes) {
    char sz[37];
    std::snprintf(sz, sizeof(sz),
                  "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  p_pBytes[0], p_pBytes[1], p_pBytes[2], p_pBytes[3], p_pBytes[4], p_pBytes[5],
                  p_pBytes[6], p_pBytes[7], p_pBytes[8], p_pBytes[9], p_pBytes[10], p_pBytes[11],
                  p_pBytes[12], p_pBytes[13], p_pBytes[14], p_pBytes[15]);
    return sz;
}

} // namespace

bool parseInbound(const char* p_pData, size_t p_nSize, Inbound& p_objOut, std::string& p_strWhy) {
    p_objOut = Inbound();
    if (p_nSize > kMaxDatagram) {
        p_strWhy = "datagram over " + std::to_string(kMaxDatagram) + " bytes";
        return false;
    }
    if (p_nSize == 0 || std::memchr(p_pData, '\0', p_nSize)) {
        p_strWhy = p_nSize == 0 ? "empty datagram" : "NUL byte in the datagram";
        return false;
    }
    if (!isUtf8(p_pData, p_nSize)) {
        p_strWhy = "not UTF-8";
        return false;
    }
    if (!nestingWithin(p_pData, p_nSize, kMaxDepth)) {
        p_strWhy = "elements nested deeper than " + std::to_string(kMaxDepth);
        return false;
    }
    // TinyXML steps over a multi-byte UTF-8 sequence by the length its first
    // byte announces, even past the terminator: the copy ends in NUL padding.
    std::string strText(p_pData, p_nSize);
    strText.append(8, '\0');
    TiXmlDocument doc;
    doc.Parse(strText.c_str(), nullptr, TIXML_ENCODING_UTF8);
    const TiXmlElement* pRoot = doc.RootElement();
    if (doc.Error() || !pRoot) {
        p_strWhy = "not well-formed XML";
        return false;
    }
    if (!is(pRoot, ns::kSoap, "Envelope")) {
        p_strWhy = "not a SOAP 1.2 envelope";
        return false;
    }
    const TiXmlElement* pHeader = childNamed(pRoot, ns::kSoap, "Header");
    const TiXmlElement* pBody = childNamed(pRoot, ns::kSoap, "Body");
    const TiXmlElement* pMessage = pBody ? pBody->FirstChildElement() : nullptr;
    if (is(pMessage, ns::kDiscovery, "Probe")) {
        p_objOut.kind = MessageKind::Probe;
    } else if (is(pMessage, ns::kDiscovery, "Resolve")) {
        p_objOut.kind = MessageKind::Resolve;
    } else {
        p_strWhy = "no Probe or Resolve in the body";
        return false;
    }
    const TiXmlElement* pId = childNamed(pHeader, ns::kAddressing, "MessageID");
    p_objOut.strMessageId = pId ? trim(textOf(pId)) : std::string();
    if (p_objOut.strMessageId.empty()) {
        p_strWhy = "no MessageID";
        return false;
    }
    // The answer repeats it: a control character would make that answer no
    // XML a strict client reads.
    for (const char ch : p_objOut.strMessageId) {
        if (static_cast<unsigned char>(ch) < 0x20) {
            p_strWhy = "control character in the MessageID";
            return false;
        }
    }
    if (const TiXmlElement* pAction = childNamed(pHeader, ns::kAddressing, "Action")) {
        const std::string strAction = trim(textOf(pAction));
        const char* szWanted = p_objOut.kind == MessageKind::Probe ? kActionProbe : kActionResolve;
        if (!strAction.empty() && strAction != szWanted) {
            p_strWhy = "Action " + strAction + " with a " + localOf(pMessage->ValueStr());
            return false;
        }
    }

    if (p_objOut.kind == MessageKind::Resolve) {
        const TiXmlElement* pRef = childNamed(pMessage, ns::kAddressing, "EndpointReference");
        const TiXmlElement* pAddress = childNamed(pRef, ns::kAddressing, "Address");
        if (!pAddress) {
            p_strWhy = "Resolve without an endpoint reference address";
            return false;
        }
        p_objOut.strAddress = trim(textOf(pAddress));
        return true;
    }
    if (const TiXmlElement* pTypes = childNamed(pMessage, ns::kDiscovery, "Types")) {
        for (const std::string& strItem : splitList(textOf(pTypes))) {
            QName name;
            name.strLocal = localOf(strItem);
            if (!resolvePrefix(pTypes, prefixOf(strItem), name.strNs))
                p_objOut.bTypesResolved = false;
            p_objOut.types.push_back(name);
        }
    }
    if (const TiXmlElement* pScopes = childNamed(pMessage, ns::kDiscovery, "Scopes")) {
        p_objOut.scopes = splitList(textOf(pScopes));
        if (const char* sz = pScopes->Attribute("MatchBy"))
            p_objOut.strMatchBy = trim(sz);
    }
    return true;
}

std::vector<QName> cameraTypes() {
    return {{ns::kNetwork, "NetworkVideoTransmitter"}, {ns::kDevice, "Device"}};
}

bool scopeMatches(const std::string& p_strRule, const std::string& p_strProbe,
                  const std::string& p_strTarget) {
    if (p_strRule == rule::kRfc3986 || p_strRule == rule::kRfc2396)
        return rfc3986Matches(p_strProbe, p_strTarget);
    if (p_strRule == rule::kStrcmp0)
        return p_strProbe == p_strTarget;
    return false;
}

Match matchProbe(const Inbound& p_objProbe, const Target& p_objTarget) {
    const std::string strRule =
        p_objProbe.strMatchBy.empty() ? std::string(rule::kRfc2396) : p_objProbe.strMatchBy;
    if (strRule != rule::kRfc3986 && strRule != rule::kRfc2396 && strRule != rule::kStrcmp0)
        return Match::RuleNotSupported;
    if (!p_objProbe.bTypesResolved)
        return Match::No;
    for (const QName& wanted : p_objProbe.types) {
        bool bFound = false;
        for (const QName& have : p_objTarget.types)
            bFound = bFound || (have.strNs == wanted.strNs && have.strLocal == wanted.strLocal);
        if (!bFound)
            return Match::No;
    }
    for (const std::string& strWanted : p_objProbe.scopes) {
        bool bFound = false;
        for (const std::string& strHave : p_objTarget.scopes)
            bFound = bFound || scopeMatches(strRule, strWanted, strHave);
        if (!bFound)
            return Match::No;
    }
    return Match::Yes;
}

bool matchResolve(const Inbound& p_objResolve, const Target& p_objTarget) {
    // urn:uuid: addresses: scheme, namespace and hex digits ignore case.
    const std::string& a = p_objResolve.strAddress;
    const std::string& b = p_objTarget.strAddress;
    if (equalNoCase(a.substr(0, 9), "urn:uuid:"))
        return equalNoCase(a, b);
    return a == b;
}

std::string probeMatches(const Target& p_objTarget, const std::string& p_strRelatesTo,
                         const std::string& p_strMessageId, const Sequence& p_objSeq) {
    return envelope(std::string(kActionPrefix) + "ProbeMatches", p_strMessageId, &p_strRelatesTo,
                    kToAnonymous, &p_objSeq,
                    "<d:ProbeMatches><d:ProbeMatch>" + targetFields(p_objTarget) +
                        "</d:ProbeMatch></d:ProbeMatches>");
}

std::string resolveMatches(const Target& p_objTarget, const std::string& p_strRelatesTo,
                           const std::string& p_strMessageId, const Sequence& p_objSeq) {
    return envelope(std::string(kActionPrefix) + "ResolveMatches", p_strMessageId, &p_strRelatesTo,
                    kToAnonymous, &p_objSeq,
                    "<d:ResolveMatches><d:ResolveMatch>" + targetFields(p_objTarget) +
                        "</d:ResolveMatch></d:ResolveMatches>");
}

std::string hello(const Target& p_objTarget, const std::string& p_strMessageId,
                  const Sequence& p_objSeq) {
    return envelope(std::string(kActionPrefix) + "Hello", p_strMessageId, nullptr, kToDiscovery,
                    &p_objSeq, "<d:Hello>" + targetFields(p_objTarget) + "</d:Hello>");
}

std::string bye(const Target& p_objTarget, const std::string& p_strMessageId,
                const Sequence& p_objSeq) {
    return envelope(std::string(kActionPrefix) + "Bye", p_strMessageId, nullptr, kToDiscovery,
                    &p_objSeq, "<d:Bye>" + endpointReference(p_objTarget) + "</d:Bye>");
}

std::string matchingRuleFault(const std::string& p_strRelatesTo,
                              const std::string& p_strMessageId) {
    return envelope(std::string(kActionPrefix) + "fault", p_strMessageId, &p_strRelatesTo,
                    kToAnonymous, nullptr,
                    std::string("<env:Fault><env:Code><env:Value>env:Sender</env:Value>"
                                "<env:Subcode><env:Value>d:MatchingRuleNotSupported</env:Value>"
                                "</env:Subcode></env:Code><env:Reason><env:Text xml:lang=\"en\">"
                                "the matching rule specified is not supported</env:Text>"
                                "</env:Reason><env:Detail><d:SupportedMatchingRules>") +
                        rule::kRfc3986 + " " + rule::kRfc2396 + " " + rule::kStrcmp0 +
                        "</d:SupportedMatchingRules></env:Detail></env:Fault>");
}

std::string randomUrnUuid() {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    unsigned char bytes[16];
    for (int i = 0; i < 16; i += 8) {
        const uint64_t n = engine();
        std::memcpy(bytes + i, &n, 8);
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
    return "urn:uuid:" + uuidText(bytes);
}

std::string nameUuid(const std::string& p_strNamespaceUuid, const std::string& p_strName) {
    std::string strInput;
    for (size_t i = 0; i + 1 < p_strNamespaceUuid.size(); ++i) {
        if (p_strNamespaceUuid[i] == '-')
            continue;
        const int hi = hexValue(p_strNamespaceUuid[i]), lo = hexValue(p_strNamespaceUuid[i + 1]);
        strInput += static_cast<char>(hi * 16 + lo);
        ++i;
    }
    strInput += p_strName;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int nLen = 0;
    EVP_Digest(strInput.data(), strInput.size(), digest, &nLen, EVP_sha1(), nullptr);
    digest[6] = static_cast<unsigned char>((digest[6] & 0x0f) | 0x50);
    digest[8] = static_cast<unsigned char>((digest[8] & 0x3f) | 0x80);
    return uuidText(digest);
}

std::string nameUrnUuid(const std::string& p_strName) {
    return "urn:uuid:" + nameUuid(kUrlNamespace, p_strName);
}

} // namespace discovery
} // namespace sensorctl
