// The SOAP 1.2 layer of the camera's ONVIF services: envelope parsing,
// WS-Security UsernameToken (PasswordDigest) checks, dispatch of an operation
// to its handler, and the fault and response envelopes.
//
// The header names no XML library type: a request's operation element is
// handed to a handler as an XmlNode tree whose names are local names with the
// namespace URI resolved from the document's xmlns declarations, so handlers
// never depend on the prefixes a client chose.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sensor-onvif/Access.h"
#include "sensor-onvif/Digest.h"

namespace sensor_onvif {

// The namespaces of the responses (declared on every response envelope with
// these prefixes, so handler XML may use env:, tt:, timg:, tds:, trt:, ter:).
namespace ns {
constexpr const char* kEnv = "http://www.w3.org/2003/05/soap-envelope";
constexpr const char* kTt = "http://www.onvif.org/ver10/schema";
constexpr const char* kTimg = "http://www.onvif.org/ver20/imaging/wsdl";
constexpr const char* kTds = "http://www.onvif.org/ver10/device/wsdl";
constexpr const char* kTrt = "http://www.onvif.org/ver10/media/wsdl";
constexpr const char* kTer = "http://www.onvif.org/ver10/error";
constexpr const char* kWsse =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd";
constexpr const char* kWsu =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd";
} // namespace ns

// The content type of every reply.
constexpr const char* kSoapContentType = "application/soap+xml; charset=utf-8";

// One element of a request: namespace URI, local name, attributes by local
// name, its text (the concatenated text children, blanks trimmed) and its
// element children in document order.
struct SENSOR_ONVIF_API XmlNode {
    std::string ns;
    std::string name;
    std::string text;
    std::vector<std::pair<std::string, std::string>> attrs;
    std::vector<XmlNode> children;

    // The first child with this local name (any namespace), or null.
    const XmlNode* child(const std::string& p_strName) const;
    // Every child with this local name.
    std::vector<const XmlNode*> childrenNamed(const std::string& p_strName) const;
    // A path of local names separated by '/': "Exposure/Iris".
    const XmlNode* find(const std::string& p_strPath) const;
    // An attribute by local name, or null.
    const std::string* attr(const std::string& p_strName) const;
};

// A SOAP 1.2 fault. code: "env:Sender" or "env:Receiver"; subcode
// "ter:InvalidArgVal"; subcode2 optional ("ter:SettingsInvalid").
struct SENSOR_ONVIF_API SoapFault {
    std::string code;
    std::string subcode;
    std::string subcode2;
    std::string reason;

    static SoapFault sender(std::string p_strSub, std::string p_strSub2, std::string p_strReason);
    static SoapFault receiver(std::string p_strSub, std::string p_strSub2, std::string p_strReason);
    // A request that is not a well-formed SOAP message, with the reason.
    static SoapFault notWellFormed(std::string p_strReason);
    // A request body over p_nLimit bytes, refused unparsed: env:Sender /
    // ter:InvalidArgs.
    static SoapFault bodyTooLarge(size_t p_nLimit);
};

// An HTTP answer: status and body; the content type is always kSoapContentType.
// A 401 carries the values of its WWW-Authenticate headers.
struct HttpReply {
    int status;
    std::string body;
    std::vector<std::string> wwwAuthenticate;
};

// What the HTTP layer saw of a request, for digest authentication: the method
// and target of its request line and its Authorization header (empty when
// none).
struct HttpAuth {
    std::string method = "POST";
    std::string uri;
    std::string authorization;
};

// What a handler sees.
struct Request {
    std::string servicePath; // "/onvif/imaging_service"
    std::string operation;   // the operation's local name, "GetImagingSettings"
    const XmlNode& op;       // the operation element (the Body's only child)
    std::string user;        // the authenticated user, empty without credentials
    UserLevel level = UserLevel::Anonymous;
};

// A handler's answer: the response element's XML (e.g.
// "<timg:GetStatusResponse>...</timg:GetStatusResponse>"), or a fault.
class SENSOR_ONVIF_API Result {
public:
    Result(std::string p_strXml) : m_bFault(false), m_strXml(std::move(p_strXml)) {}
    Result(const char* p_szXml) : m_bFault(false), m_strXml(p_szXml) {}
    Result(SoapFault p_objFault) : m_bFault(true), m_objFault(std::move(p_objFault)) {}
    bool isFault() const { return m_bFault; }
    const std::string& xml() const { return m_strXml; }
    const SoapFault& fault() const { return m_objFault; }

private:
    bool m_bFault;
    std::string m_strXml;
    SoapFault m_objFault;
};

using Handler = std::function<Result(const Request&)>;
// Device time in seconds since the epoch (the simulated clock in sensorctl).
using Clock = std::function<long long()>;

// The bounds of a request.
struct SoapLimits {
    size_t maxBody = 64 * 1024; // bytes; a larger body is refused unparsed
    int maxDepth = 32;          // element nesting
    long long timeWindow = 300; // seconds of Created around the device clock
    size_t maxNonces = 100000;  // remembered nonces (oldest dropped first)
};

// The SOAP endpoint of one device: every service path and operation with its
// access class, and the device's users. handle() may be called from any
// number of threads at once.
//
// A request is authenticated by HTTP digest (its Authorization header) or by
// a WS-Security UsernameToken, and then authorized by its user's level and
// the operation's access class (levelMayAccess):
// - no credentials for an operation that needs them: 401 with the digest
//   challenges and an env:Sender / ter:NotAuthorized fault;
// - a digest that fails: 401 with fresh challenges (stale=true when only the
//   nonce had expired);
// - a UsernameToken that fails: 400, env:Sender / ter:NotAuthorized;
// - a user whose level may not call the operation: 400, env:Sender /
//   ter:NotAuthorized (new credentials of the same user would not help).
class SENSOR_ONVIF_API SoapEndpoint {
public:
    // One user, an Administrator; digest with the default configuration.
    SoapEndpoint(std::string p_strUser, std::string p_strPassword, Clock p_fnClock,
                 SoapLimits p_objLimits = SoapLimits());
    // The users and nonces of p_pDigest, which a host may share with its other
    // HTTP paths.
    SoapEndpoint(std::shared_ptr<DigestAuthenticator> p_pDigest, Clock p_fnClock,
                 SoapLimits p_objLimits = SoapLimits());
    ~SoapEndpoint();
    SoapEndpoint(const SoapEndpoint&) = delete;
    SoapEndpoint& operator=(const SoapEndpoint&) = delete;

    // Registers (or replaces) an operation of a service with its access class.
    // Not thread-safe against handle(): register everything before serving.
    void addOperation(const std::string& p_strServicePath, const std::string& p_strOperation,
                      Handler p_fnHandler, AccessClass p_eClass);
    // True when at least one operation is registered under this path.
    bool hasService(const std::string& p_strServicePath) const;
    // The access class of an operation; false when it is not registered.
    bool accessClassOf(const std::string& p_strServicePath, const std::string& p_strOperation,
                       AccessClass& p_eClass) const;

    // One HTTP POST: parse, authenticate, authorize, dispatch. Faults:
    // env:Sender -> HTTP 400, env:Receiver -> HTTP 500; success -> HTTP 200;
    // missing or failed digest credentials -> 401 (see above).
    HttpReply handle(const std::string& p_strServicePath, const std::string& p_strBody,
                     const HttpAuth& p_objHttp);
    // The same without HTTP credentials.
    HttpReply handle(const std::string& p_strServicePath, const std::string& p_strBody);

    const SoapLimits& limits() const { return m_objLimits; }
    DigestAuthenticator& digest();

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
    SoapLimits m_objLimits;
};

// Helpers for building responses --------------------------------------------

// &, <, >, " and ' as entities.
SENSOR_ONVIF_API std::string xmlEscape(const std::string& p_strText);
// A float as xs:float text: integral values without a fraction ("50"), others
// with up to 6 significant digits ("0.5").
SENSOR_ONVIF_API std::string formatFloat(double p_dValue);
// Parses an xs:float / xs:int text (blanks around allowed); false for anything
// else, NaN and infinities included.
SENSOR_ONVIF_API bool parseFloat(const std::string& p_strText, double& p_dValue);
// xs:boolean: "true"/"false"/"1"/"0".
SENSOR_ONVIF_API bool parseBool(const std::string& p_strText, bool& p_bValue);
// The whole envelope around a response element.
SENSOR_ONVIF_API std::string responseEnvelope(const std::string& p_strBodyXml);
// The whole envelope of a fault.
SENSOR_ONVIF_API std::string faultEnvelope(const SoapFault& p_objFault);
// The HTTP status of a fault: 400 for env:Sender, 500 otherwise.
SENSOR_ONVIF_API int faultStatus(const SoapFault& p_objFault);

// The PasswordDigest of a UsernameToken: Base64(SHA-1(nonce + created +
// password)), nonce being the decoded bytes. Exposed for clients and tests.
SENSOR_ONVIF_API std::string passwordDigest(const std::string& p_strNonceBytes,
                                            const std::string& p_strCreated,
                                            const std::string& p_strPassword);
SENSOR_ONVIF_API std::string base64Encode(const std::string& p_strBytes);
// False for text that is not Base64.
SENSOR_ONVIF_API bool base64Decode(const std::string& p_strText, std::string& p_strBytes);
// xs:dateTime "2026-11-23T08:30:00Z" (fraction and offset allowed) -> seconds
// since the epoch; false when the text is not one.
SENSOR_ONVIF_API bool parseDateTime(const std::string& p_strText, long long& p_nSeconds);
// Seconds since the epoch -> "2026-11-23T08:30:00Z".
SENSOR_ONVIF_API std::string formatDateTime(long long p_nSeconds);

} // namespace sensor_onvif
