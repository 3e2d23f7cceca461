// The SOAP 1.2 layer: envelope parsing with TinyXML, UsernameToken checks with
// OpenSSL's SHA-1 and Base64, dispatch and the reply envelopes.
#include "sensor-onvif/Soap.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <unordered_map>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <tinyxml.h>

#include "PaddedParse.h"

namespace sensor_onvif {

// XmlNode -------------------------------------------------------------------

const XmlNode* XmlNode::child(const std::string& p_strName) const {
    for (const XmlNode& c : children)
        if (c.name == p_strName)
            return &c;
    return nullptr;
}

std::vector<const XmlNode*> XmlNode::childrenNamed(const std::string& p_strName) const {
    std::vector<const XmlNode*> out;
    for (const XmlNode& c : children)
        if (c.name == p_strName)
            out.push_back(&c);
    return out;
}

const XmlNode* XmlNode::find(const std::string& p_strPath) const {
    const XmlNode* pNode = this;
    size_t pos = 0;
    while (pNode && pos <= p_strPath.size()) {
        size_t nEnd = p_strPath.find('/', pos);
        if (nEnd == std::string::npos)
            nEnd = p_strPath.size();
        pNode = pNode->child(p_strPath.substr(pos, nEnd - pos));
        pos = nEnd + 1;
    }
    return pNode;
}

const std::string* XmlNode::attr(const std::string& p_strName) const {
    for (const auto& a : attrs)
        if (a.first == p_strName)
            return &a.second;
    return nullptr;
}

// Faults ----------------------------------------------------------------------

SoapFault SoapFault::sender(std::string p_strSub, std::string p_strSub2, std::string p_strReason) {
    return SoapFault{"env:Sender", std::move(p_strSub), std::move(p_strSub2),
                     std::move(p_strReason)};
}

SoapFault SoapFault::receiver(std::string p_strSub, std::string p_strSub2,
                              std::string p_strReason) {
    return SoapFault{"env:Receiver", std::move(p_strSub), std::move(p_strSub2),
                     std::move(p_strReason)};
}

SoapFault SoapFault::notWellFormed(std::string p_strReason) {
    return sender("ter:WellFormed", "", std::move(p_strReason));
}

SoapFault SoapFault::bodyTooLarge(size_t p_nLimit) {
    // Refused unread, so nothing is known of its XML: the arguments are what
    // the device will not take (more than any operation carries).
    return sender("ter:InvalidArgs", "",
                  "request body exceeds " + std::to_string(p_nLimit) + " bytes");
}

// Text helpers ------------------------------------------------------------------

std::string xmlEscape(const std::string& p_strText) {
    std::string out;
    out.reserve(p_strText.size());
    for (char c : p_strText) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string formatFloat(double p_dValue) {
    if (!std::isfinite(p_dValue))
        return "0";
    if (p_dValue == 0)
        return "0";
    char sz[64];
    // Whole numbers, most of what a camera answers, as the integer they are
    // (the same text "%.0f" prints, without the float formatting).
    if (std::fabs(p_dValue) < 1e15 && p_dValue == std::floor(p_dValue)) {
        const std::to_chars_result r =
            std::to_chars(sz, sz + sizeof(sz), static_cast<long long>(p_dValue));
        return std::string(sz, r.ptr);
    }
    std::snprintf(sz, sizeof(sz), "%.6g", p_dValue);
    return sz;
}

namespace {

std::string trim(const std::string& p_strText) {
    const char* blanks = " \t\r\n";
    const size_t nBegin = p_strText.find_first_not_of(blanks);
    if (nBegin == std::string::npos)
        return std::string();
    const size_t nEnd = p_strText.find_last_not_of(blanks);
    return p_strText.substr(nBegin, nEnd - nBegin + 1);
}

} // namespace

bool parseFloat(const std::string& p_strText, double& p_dValue) {
    const std::string text = trim(p_strText);
    if (text.empty() || text.size() > 64)
        return false;
    bool bDigit = false;
    for (char c : text) {
        if (c >= '0' && c <= '9')
            bDigit = true;
        else if (c != '+' && c != '-' && c != '.' && c != 'e' && c != 'E')
            return false;
    }
    if (!bDigit)
        return false;
    char* pEnd = nullptr;
    const double d = std::strtod(text.c_str(), &pEnd);
    if (pEnd != text.c_str() + text.size() || !std::isfinite(d))
        return false;
    p_dValue = d;
    return true;
}

bool parseBool(const std::string& p_strText, bool& p_bValue) {
    const std::string text = trim(p_strText);
    if (text == "true" || text == "1")
        p_bValue = true;
    else if (text == "false" || text == "0")
        p_bValue = false;
    else
        return false;
    return true;
}

namespace {

// Every reply declares the response prefixes of ns (see Soap.h).
const std::string& envelopeOpen() {
    static const std::string s_strOpen =
        std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                    "<env:Envelope xmlns:env=\"") +
        ns::kEnv + "\" xmlns:tt=\"" + ns::kTt + "\" xmlns:timg=\"" + ns::kTimg + "\" xmlns:tds=\"" +
        ns::kTds + "\" xmlns:trt=\"" + ns::kTrt + "\" xmlns:ter=\"" + ns::kTer + "\"><env:Body>";
    return s_strOpen;
}
const char* kEnvelopeClose = "</env:Body></env:Envelope>\n";

} // namespace

std::string responseEnvelope(const std::string& p_strBodyXml) {
    std::string out = envelopeOpen();
    out += p_strBodyXml;
    out += kEnvelopeClose;
    return out;
}

std::string faultEnvelope(const SoapFault& p_objFault) {
    std::string out = envelopeOpen();
    out += "<env:Fault><env:Code><env:Value>" + xmlEscape(p_objFault.code) + "</env:Value>";
    if (!p_objFault.subcode.empty()) {
        out += "<env:Subcode><env:Value>" + xmlEscape(p_objFault.subcode) + "</env:Value>";
        if (!p_objFault.subcode2.empty())
            out += "<env:Subcode><env:Value>" + xmlEscape(p_objFault.subcode2) +
                   "</env:Value></env:Subcode>";
        out += "</env:Subcode>";
    }
    out += "</env:Code><env:Reason><env:Text xml:lang=\"en\">" + xmlEscape(p_objFault.reason) +
           "</env:Text></env:Reason></env:Fault>";
    out += kEnvelopeClose;
    return out;
}

int faultStatus(const SoapFault& p_objFault) {
    return p_objFault.code == "env:Sender" ? 400 : 500;
}

// Digest, Base64, time ------------------------------------------------------------

std::string base64Encode(const std::string& p_strBytes) {
    std::string out(4 * ((p_strBytes.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                  reinterpret_cast<const unsigned char*>(p_strBytes.data()),
                                  static_cast<int>(p_strBytes.size()));
    out.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return out;
}

bool base64Decode(const std::string& p_strText, std::string& p_strBytes) {
    std::string text;
    for (char c : p_strText)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
            text += c;
    if (text.size() % 4 != 0 || text.size() > 4096)
        return false;
    size_t nPad = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool bAlpha = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                            (c >= '0' && c <= '9') || c == '+' || c == '/';
        if (c == '=') {
            if (i + 2 < text.size())
                return false;
            ++nPad;
        } else if (!bAlpha || nPad > 0) {
            return false;
        }
    }
    if (text.empty()) {
        p_strBytes.clear();
        return true;
    }
    std::string out(text.size() / 4 * 3, '\0');
    const int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                  reinterpret_cast<const unsigned char*>(text.data()),
                                  static_cast<int>(text.size()));
    if (n < 0 || static_cast<size_t>(n) < nPad)
        return false;
    out.resize(static_cast<size_t>(n) - nPad);
    p_strBytes = out;
    return true;
}

std::string passwordDigest(const std::string& p_strNonceBytes, const std::string& p_strCreated,
                           const std::string& p_strPassword) {
    const std::string input = p_strNonceBytes + p_strCreated + p_strPassword;
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int nLen = 0;
    if (EVP_Digest(input.data(), input.size(), md, &nLen, EVP_sha1(), nullptr) != 1)
        return std::string();
    return base64Encode(std::string(reinterpret_cast<const char*>(md), nLen));
}

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date.
long long daysFromCivil(long long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

bool readDigits(const std::string& s, size_t& pos, size_t n, int& value) {
    if (pos + n > s.size())
        return false;
    value = 0;
    for (size_t i = 0; i < n; ++i) {
        const char c = s[pos + i];
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + (c - '0');
    }
    pos += n;
    return true;
}

bool expect(const std::string& s, size_t& pos, char c) {
    if (pos >= s.size() || s[pos] != c)
        return false;
    ++pos;
    return true;
}

} // namespace

bool parseDateTime(const std::string& p_strText, long long& p_nSeconds) {
    const std::string s = trim(p_strText);
    size_t pos = 0;
    int y, mo, d, h, mi, se;
    if (!readDigits(s, pos, 4, y) || !expect(s, pos, '-') || !readDigits(s, pos, 2, mo) ||
        !expect(s, pos, '-') || !readDigits(s, pos, 2, d) || !expect(s, pos, 'T') ||
        !readDigits(s, pos, 2, h) || !expect(s, pos, ':') || !readDigits(s, pos, 2, mi) ||
        !expect(s, pos, ':') || !readDigits(s, pos, 2, se))
        return false;
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 60)
        return false;
    if (pos < s.size() && s[pos] == '.') {
        ++pos;
        const size_t nStart = pos;
        while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9')
            ++pos;
        if (pos == nStart)
            return false;
    }
    long long nOffset = 0;
    if (pos < s.size() && s[pos] == 'Z') {
        ++pos;
    } else if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) {
        const int nSign = s[pos] == '-' ? -1 : 1;
        ++pos;
        int oh, om;
        if (!readDigits(s, pos, 2, oh) || !expect(s, pos, ':') || !readDigits(s, pos, 2, om) ||
            oh > 14 || om > 59)
            return false;
        nOffset = nSign * (oh * 3600LL + om * 60LL);
    }
    if (pos != s.size())
        return false;
    p_nSeconds = daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d)) * 86400LL +
                 h * 3600LL + mi * 60LL + se - nOffset;
    return true;
}

std::string formatDateTime(long long p_nSeconds) {
    const time_t t = static_cast<time_t>(p_nSeconds);
    struct tm tmUtc;
    if (!gmtime_r(&t, &tmUtc))
        return "1970-01-01T00:00:00Z";
    char sz[96];
    std::snprintf(sz, sizeof(sz), "%04d-%02d-%02dT%02d:%02d:%02dZ", tmUtc.tm_year + 1900,
                  tmUtc.tm_mon + 1, tmUtc.tm_mday, tmUtc.tm_hour, tmUtc.tm_min, tmUtc.tm_sec);
    return sz;
}

// Parsing -----------------------------------------------------------------------

namespace {

// The deepest element nesting of a text, counted before TinyXML (which
// recurses) sees it. Comments, CDATA sections, declarations and processing
// instructions are skipped; a count that runs over the limit stops early.
bool nestingWithin(const std::string& p_strText, int p_nMax) {
    int nDepth = 0;
    size_t pos = 0;
    const size_t n = p_strText.size();
    while ((pos = p_strText.find('<', pos)) != std::string::npos) {
        if (p_strText.compare(pos, 4, "<!--") == 0) {
            const size_t e = p_strText.find("-->", pos + 4);
            if (e == std::string::npos)
                return true; // malformed: TinyXML reports it
            pos = e + 3;
        } else if (p_strText.compare(pos, 9, "<![CDATA[") == 0) {
            const size_t e = p_strText.find("]]>", pos + 9);
            if (e == std::string::npos)
                return true;
            pos = e + 3;
        } else if (pos + 1 < n && (p_strText[pos + 1] == '?' || p_strText[pos + 1] == '!')) {
            const size_t e = p_strText.find('>', pos + 1);
            if (e == std::string::npos)
                return true;
            pos = e + 1;
        } else if (pos + 1 < n && p_strText[pos + 1] == '/') {
            --nDepth;
            ++pos;
        } else {
            // A start tag: skip to its end, minding quoted attribute values.
            size_t e = pos + 1;
            char quote = 0;
            while (e < n) {
                const char c = p_strText[e];
                if (quote) {
                    if (c == quote)
                        quote = 0;
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '>') {
                    break;
                }
                ++e;
            }
            if (e >= n)
                return true;
            if (p_strText[e - 1] != '/' && ++nDepth > p_nMax)
                return false;
            pos = e + 1;
        }
    }
    return true;
}

using NsMap = std::map<std::string, std::string>;

void convert(const TiXmlElement* p_pElem, const NsMap& p_objParent, XmlNode& p_objOut) {
    // Most elements declare nothing and use their parent's scope as it is; an
    // element that declares a namespace gets a scope of its own.
    NsMap objOwn;
    const NsMap* pScope = &p_objParent;
    for (const TiXmlAttribute* a = p_pElem->FirstAttribute(); a; a = a->Next()) {
        const std::string name = a->Name();
        const bool bDefault = name == "xmlns";
        if (!bDefault && name.compare(0, 6, "xmlns:") != 0)
            continue;
        if (pScope != &objOwn) {
            objOwn = p_objParent;
            pScope = &objOwn;
        }
        objOwn[bDefault ? std::string() : name.substr(6)] = a->Value();
    }
    const NsMap& scope = *pScope;
    const std::string qname = p_pElem->Value();
    const size_t nColon = qname.find(':');
    const std::string prefix = nColon == std::string::npos ? "" : qname.substr(0, nColon);
    p_objOut.name = nColon == std::string::npos ? qname : qname.substr(nColon + 1);
    const auto it = scope.find(prefix);
    p_objOut.ns = it == scope.end() ? std::string() : it->second;
    for (const TiXmlAttribute* a = p_pElem->FirstAttribute(); a; a = a->Next()) {
        const std::string name = a->Name();
        if (name == "xmlns" || name.compare(0, 6, "xmlns:") == 0)
            continue;
        const size_t c = name.find(':');
        p_objOut.attrs.emplace_back(c == std::string::npos ? name : name.substr(c + 1), a->Value());
    }
    std::string text;
    for (const TiXmlNode* c = p_pElem->FirstChild(); c; c = c->NextSibling()) {
        if (const TiXmlElement* e = c->ToElement()) {
            p_objOut.children.emplace_back();
            convert(e, scope, p_objOut.children.back());
        } else if (const TiXmlText* t = c->ToText()) {
            text += t->Value();
        }
    }
    p_objOut.text = trim(text);
}

struct Operation {
    Handler handler;
    AccessClass eClass;
};

} // namespace

struct SoapEndpoint::Impl {
    std::shared_ptr<DigestAuthenticator> digest;
    Clock clock;
    std::map<std::string, std::map<std::string, Operation>> services;

    std::mutex nonceMutex;
    // Nonces seen, with the device time they were accepted; in arrival order.
    std::unordered_map<std::string, long long> nonces;
    std::deque<std::pair<std::string, long long>> nonceOrder;

    // The user of a valid token, or null with the fault's reason.
    const CameraUser* authenticate(const XmlNode* p_pSecurity, long long p_nWindow,
                                   size_t p_nMaxNonces, std::string& p_strWhy);
};

namespace {

// The request's WS-Security header block, or null.
const XmlNode* securityOf(const XmlNode* p_pHeader) {
    const XmlNode* pSecurity = nullptr;
    if (p_pHeader)
        for (const XmlNode& c : p_pHeader->children)
            if (c.name == "Security" && c.ns == ns::kWsse)
                pSecurity = &c;
    return pSecurity;
}

} // namespace

const CameraUser* SoapEndpoint::Impl::authenticate(const XmlNode* p_pSecurity, long long p_nWindow,
                                                   size_t p_nMaxNonces, std::string& p_strWhy) {
    auto refuse = [&p_strWhy](const char* p_szWhy) -> const CameraUser* {
        p_strWhy = p_szWhy;
        return nullptr;
    };
    const XmlNode* pToken = p_pSecurity->child("UsernameToken");
    if (!pToken)
        return refuse("no UsernameToken");
    const XmlNode* pUser = pToken->child("Username");
    const XmlNode* pPassword = pToken->child("Password");
    const XmlNode* pNonce = pToken->child("Nonce");
    const XmlNode* pCreated = pToken->child("Created");
    if (!pUser || !pPassword || !pNonce || !pCreated)
        return refuse("incomplete UsernameToken");
    const std::string* pType = pPassword->attr("Type");
    if (!pType || pType->size() < 15 ||
        pType->compare(pType->size() - 15, 15, "#PasswordDigest") != 0)
        return refuse("only PasswordDigest is accepted");
    std::string nonce;
    if (!base64Decode(pNonce->text, nonce) || nonce.empty())
        return refuse("bad nonce");
    long long nCreated = 0;
    if (!parseDateTime(pCreated->text, nCreated))
        return refuse("bad Created");
    const long long nNow = clock ? clock() : 0;
    if (nCreated < nNow - p_nWindow || nCreated > nNow + p_nWindow)
        return refuse("Created is outside the accepted window");
    // An unknown user costs the same hashing as a known one.
    const CameraUser* pCameraUser = digest->user(pUser->text);
    const std::string expected =
        passwordDigest(nonce, pCreated->text, pCameraUser ? pCameraUser->password : "");
    const std::string given = trim(pPassword->text);
    const bool bDigestOk = given.size() == expected.size() &&
                           CRYPTO_memcmp(given.data(), expected.data(), given.size()) == 0;
    if (!pCameraUser || !bDigestOk)
        return refuse("wrong user name or password");

    std::lock_guard<std::mutex> lock(nonceMutex);
    // Forget nonces that left the window: a replay of those fails on Created.
    while (!nonceOrder.empty() &&
           (nonceOrder.front().second < nNow - 2 * p_nWindow || nonceOrder.size() > p_nMaxNonces)) {
        nonces.erase(nonceOrder.front().first);
        nonceOrder.pop_front();
    }
    if (nonces.count(nonce))
        return refuse("nonce already used");
    nonces.emplace(nonce, nNow);
    nonceOrder.emplace_back(nonce, nNow);
    return pCameraUser;
}

SoapEndpoint::SoapEndpoint(std::string p_strUser, std::string p_strPassword, Clock p_fnClock,
                           SoapLimits p_objLimits)
    : SoapEndpoint(std::make_shared<DigestAuthenticator>(std::vector<CameraUser>{CameraUser{
                       std::move(p_strUser), std::move(p_strPassword), UserLevel::Administrator}}),
                   std::move(p_fnClock), p_objLimits) {}

SoapEndpoint::SoapEndpoint(std::shared_ptr<DigestAuthenticator> p_pDigest, Clock p_fnClock,
                           SoapLimits p_objLimits)
    : m_pImpl(new Impl), m_objLimits(p_objLimits) {
    m_pImpl->digest = p_pDigest ? std::move(p_pDigest)
                                : std::make_shared<DigestAuthenticator>(std::vector<CameraUser>());
    m_pImpl->clock = std::move(p_fnClock);
}

SoapEndpoint::~SoapEndpoint() = default;

DigestAuthenticator& SoapEndpoint::digest() {
    return *m_pImpl->digest;
}

void SoapEndpoint::addOperation(const std::string& p_strServicePath,
                                const std::string& p_strOperation, Handler p_fnHandler,
                                AccessClass p_eClass) {
    m_pImpl->services[p_strServicePath][p_strOperation] =
        Operation{std::move(p_fnHandler), p_eClass};
}

bool SoapEndpoint::accessClassOf(const std::string& p_strServicePath,
                                 const std::string& p_strOperation, AccessClass& p_eClass) const {
    const auto itService = m_pImpl->services.find(p_strServicePath);
    if (itService == m_pImpl->services.end())
        return false;
    const auto itOp = itService->second.find(p_strOperation);
    if (itOp == itService->second.end())
        return false;
    p_eClass = itOp->second.eClass;
    return true;
}

bool SoapEndpoint::hasService(const std::string& p_strServicePath) const {
    return m_pImpl->services.count(p_strServicePath) != 0;
}

namespace {

HttpReply faultReply(const SoapFault& p_objFault) {
    return HttpReply{faultStatus(p_objFault), faultEnvelope(p_objFault), {}};
}

HttpReply notWellFormed(const std::string& p_strReason) {
    return faultReply(SoapFault::notWellFormed(p_strReason));
}

} // namespace

HttpReply SoapEndpoint::handle(const std::string& p_strServicePath, const std::string& p_strBody) {
    return handle(p_strServicePath, p_strBody, HttpAuth());
}

HttpReply SoapEndpoint::handle(const std::string& p_strServicePath, const std::string& p_strBody,
                               const HttpAuth& p_objHttp) {
    if (p_strBody.size() > m_objLimits.maxBody)
        return faultReply(SoapFault::bodyTooLarge(m_objLimits.maxBody));
    if (trim(p_strBody).empty()) {
        // A digest client's first, empty request probes for the challenge.
        if (p_objHttp.authorization.empty()) {
            HttpReply reply = notWellFormed("empty request body");
            reply.status = 401;
            reply.wwwAuthenticate = m_pImpl->digest->challenge(false);
            return reply;
        }
        return notWellFormed("empty request body");
    }
    if (p_strBody.find('\0') != std::string::npos)
        return notWellFormed("NUL byte in the request body");
    if (!nestingWithin(p_strBody, m_objLimits.maxDepth))
        return notWellFormed("elements nested deeper than " + std::to_string(m_objLimits.maxDepth));

    XmlNode envelope;
    {
        TiXmlDocument doc;
        if (!parsePadded(p_strBody, doc))
            return notWellFormed(std::string("malformed XML: ") +
                                 (doc.Error() ? doc.ErrorDesc() : "no root element"));
        convert(doc.RootElement(), NsMap(), envelope);
    }
    if (envelope.name != "Envelope")
        return notWellFormed("the root element is not a SOAP Envelope");
    if (envelope.ns != ns::kEnv)
        return faultReply(
            SoapFault{"env:VersionMismatch", "", "", "only SOAP 1.2 envelopes are understood"});
    const XmlNode* pHeader = nullptr;
    const XmlNode* pBody = nullptr;
    for (const XmlNode& c : envelope.children) {
        if (c.ns != ns::kEnv)
            continue;
        if (c.name == "Header" && !pHeader)
            pHeader = &c;
        else if (c.name == "Body" && !pBody)
            pBody = &c;
    }
    if (!pBody || pBody->children.empty())
        return notWellFormed("no operation in the SOAP Body");
    const XmlNode& op = pBody->children.front();

    const Operation* pOperation = nullptr;
    const auto itService = m_pImpl->services.find(p_strServicePath);
    if (itService != m_pImpl->services.end()) {
        const auto itOp = itService->second.find(op.name);
        if (itOp != itService->second.end())
            pOperation = &itOp->second;
    }
    // Unknown operations need credentials too: nobody learns what the device
    // offers without them.
    const AccessClass eClass = pOperation ? pOperation->eClass : AccessClass::ReadSystem;
    const XmlNode* pSecurity = securityOf(pHeader);
    const CameraUser* pUser = nullptr;
    auto notAuthorized = [](const std::string& p_strWhy) {
        return SoapFault::sender("ter:NotAuthorized", "", "Sender not authorized: " + p_strWhy);
    };
    // The HTTP credentials first, then the WS ones (a client should not send
    // both; when it does, both must hold and the WS user is the one served).
    if (!p_objHttp.authorization.empty()) {
        const DigestVerdict verdict =
            m_pImpl->digest->verify(p_objHttp.method, p_objHttp.uri, p_objHttp.authorization);
        if (!verdict.accepted()) {
            HttpReply reply = faultReply(notAuthorized(verdict.reason));
            reply.status = 401;
            reply.wwwAuthenticate =
                m_pImpl->digest->challenge(verdict.outcome == DigestVerdict::Outcome::Stale);
            return reply;
        }
        pUser = verdict.user;
    }
    if (pSecurity && (pUser || eClass != AccessClass::PreAuth)) {
        std::string why;
        pUser =
            m_pImpl->authenticate(pSecurity, m_objLimits.timeWindow, m_objLimits.maxNonces, why);
        if (!pUser)
            return faultReply(notAuthorized(why));
    }
    if (!pUser && eClass != AccessClass::PreAuth) {
        // Without credentials a client is taken to mean digest.
        HttpReply reply = faultReply(notAuthorized("no credentials"));
        reply.status = 401;
        reply.wwwAuthenticate = m_pImpl->digest->challenge(false);
        return reply;
    }
    const UserLevel eLevel = pUser ? pUser->level : UserLevel::Anonymous;
    if (!pOperation)
        return faultReply(SoapFault::receiver("ter:ActionNotSupported", "",
                                              "operation " + op.name + " is not supported"));
    if (!levelMayAccess(eLevel, eClass))
        return faultReply(notAuthorized(std::string("a user of level ") + userLevelName(eLevel) +
                                        " may not call " + op.name + " (" +
                                        accessClassName(eClass) + ")"));
    const std::string user = pUser ? pUser->name : std::string();
    Request request{p_strServicePath, op.name, op, user, eLevel};
    try {
        const Result result = pOperation->handler(request);
        if (result.isFault())
            return faultReply(result.fault());
        return HttpReply{200, responseEnvelope(result.xml()), {}};
    } catch (const std::exception& e) {
        return faultReply(SoapFault::receiver("ter:Action", "", e.what()));
    }
}

} // namespace sensor_onvif
