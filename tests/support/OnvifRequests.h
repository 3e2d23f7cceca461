// Builds ONVIF request envelopes for the tests, with a UsernameToken whose
// digest is computed like a client computes it, with libcrypto and not with
// the service's own helpers.
#pragma once

#include <atomic>
#include <string>

#include "sensor-onvif/Soap.h"
#include "tests/support/SoapCheck.h"

namespace onvif_test {

constexpr const char* kUser = "admin";
constexpr const char* kPassword = "secret";
// The device clock of the tests: 2026-11-23T08:00:00Z.
constexpr long long kNow = 1795420800LL;

// A UsernameToken header; the prefixes are the ones a given client might use.
inline std::string securityHeader(const std::string& p_strNonce, long long p_nCreated,
                                  const std::string& p_strUser = kUser,
                                  const std::string& p_strPassword = kPassword) {
    const std::string created = sensor_onvif::formatDateTime(p_nCreated);
    const std::string digest = soapcheck::wsseDigest(p_strNonce, created, p_strPassword);
    return "<s:Header><Security s:mustUnderstand=\"1\" "
           "xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
           "oasis-200401-wss-wssecurity-secext-1.0.xsd\">"
           "<UsernameToken><Username>" +
           p_strUser +
           "</Username><Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
           "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">" +
           digest +
           "</Password><Nonce EncodingType=\"http://docs.oasis-open.org/wss/2004/01/"
           "oasis-200401-wss-soap-message-security-1.0#Base64Binary\">" +
           soapcheck::base64(p_strNonce) +
           "</Nonce><Created xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
           "oasis-200401-wss-wssecurity-utility-1.0.xsd\">" +
           created + "</Created></UsernameToken></Security></s:Header>";
}

// A whole envelope: header (may be empty) and the operation element's XML.
inline std::string envelope(const std::string& p_strHeader, const std::string& p_strBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
           "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">" +
           p_strHeader + "<s:Body>" + p_strBody + "</s:Body></s:Envelope>";
}

// A fresh nonce per call, so that no two requests of a test collide.
inline std::string nextNonce() {
    static std::atomic<int> s_nCount{0};
    return "nonce-" + std::to_string(++s_nCount) + "-0123456789";
}

// An authenticated envelope with a fresh nonce, Created at p_nCreated.
inline std::string authed(const std::string& p_strBody, long long p_nCreated = kNow) {
    return envelope(securityHeader(nextNonce(), p_nCreated), p_strBody);
}

} // namespace onvif_test
