// The SOAP endpoint of a device: the operations of its services with their
// access classes, and the path of a request from the HTTP body through the
// envelope, authentication (HTTP digest or UsernameToken) and authorization
// to its handler and back to an HTTP answer. Its own unit because it is the
// one place that orders those steps.
#include "sensor-onvif/Soap.h"

#include <map>

#include "soap/SoapEnvelope.h"
#include "soap/UsernameToken.h"
#include "soap/XsdText.h"

namespace sensor_onvif {

using namespace soap;

namespace {

struct Operation {
    Handler handler;
    AccessClass eClass;
};

} // namespace

struct SoapEndpoint::Impl {
    std::shared_ptr<DigestAuthenticator> digest;
    Clock clock;
    std::map<std::string, std::map<std::string, Operation>> services;
    // The UsernameTokens' nonces.
    UsernameTokenChecker tokens;
};

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

// A 401: the fault with fresh digest challenges (stale=true when only the
// client's nonce had expired).
HttpReply challengeReply(const SoapFault& p_objFault, DigestAuthenticator& p_objDigest,
                         bool p_bStale) {
    HttpReply reply = faultReply(p_objFault);
    reply.status = 401;
    reply.wwwAuthenticate = p_objDigest.challenge(p_bStale);
    return reply;
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
        if (p_objHttp.authorization.empty())
            return challengeReply(SoapFault::notWellFormed("empty request body"), *m_pImpl->digest,
                                  false);
        return notWellFormed("empty request body");
    }
    if (p_strBody.find('\0') != std::string::npos)
        return notWellFormed("NUL byte in the request body");
    if (!nestingWithin(p_strBody, m_objLimits.maxDepth))
        return notWellFormed("elements nested deeper than " + std::to_string(m_objLimits.maxDepth));

    XmlNode envelope;
    std::string strWhy;
    if (!parseEnvelope(p_strBody, envelope, strWhy))
        return notWellFormed(strWhy);
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
        if (!verdict.accepted())
            return challengeReply(notAuthorized(verdict.reason), *m_pImpl->digest,
                                  verdict.outcome == DigestVerdict::Outcome::Stale);
        pUser = verdict.user;
    }
    if (pSecurity && (pUser || eClass != AccessClass::PreAuth)) {
        std::string why;
        pUser = m_pImpl->tokens.authenticate(pSecurity, *m_pImpl->digest, m_pImpl->clock,
                                             m_objLimits.timeWindow, m_objLimits.maxNonces, why);
        if (!pUser)
            return faultReply(notAuthorized(why));
    }
    if (!pUser && eClass != AccessClass::PreAuth) {
        // Without credentials a client is taken to mean digest.
        return challengeReply(notAuthorized("no credentials"), *m_pImpl->digest, false);
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
