// A small ONVIF client for the tests: SOAP 1.2 envelopes with a WS-Security
// UsernameToken whose PasswordDigest is Base64(SHA-1(nonce + created +
// password)), computed with OpenSSL's libcrypto, sent over loopback HTTP.
#pragma once

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/SoapCheck.h"

namespace testsupport {

inline std::string base64(const unsigned char* data, size_t size) {
    return soapcheck::base64(std::string(reinterpret_cast<const char*>(data), size));
}

inline std::string passwordDigest(const std::string& nonce, const std::string& created,
                                  const std::string& password) {
    return soapcheck::wsseDigest(nonce, created, password);
}

inline std::string isoTime(std::time_t t) {
    std::tm tm{};
    gmtime_r(&t, &tm);
    char sz[32];
    std::strftime(sz, sizeof(sz), "%Y-%m-%dT%H:%M:%SZ", &tm);
    return sz;
}

struct OnvifReply {
    int status = 0; // 0: no answer
    std::string body;
    // A Fault element in the SOAP 1.2 namespace, first in the envelope's Body.
    bool isFault() const { return soapcheck::Answer(body).isFault(); }
    // The first subcode value of a fault, e.g. "ter:NotAuthorized".
    std::string subcode() const {
        const std::vector<std::string> codes = soapcheck::Answer(body).codes();
        return codes.size() > 1 ? codes[1] : "";
    }
    // Every subcode value of a fault, in order.
    std::string subcodes() const {
        const std::vector<std::string> codes = soapcheck::Answer(body).codes();
        std::string out;
        for (size_t i = 1; i < codes.size(); ++i)
            out += (out.empty() ? "" : " ") + codes[i];
        return out;
    }
    // The text of the first element with this local name.
    // Scanned by hand: the load test's clients call it from many threads at
    // once, and building a std::regex there races inside libstdc++'s locale.
    std::string text(const std::string& local) const {
        for (size_t nOpen = body.find('<'); nOpen != std::string::npos;
             nOpen = body.find('<', nOpen + 1)) {
            size_t nName = nOpen + 1;
            const size_t nEnd = body.find_first_of(" \t\r\n/>", nName);
            if (nEnd == std::string::npos)
                break;
            const size_t nColon = body.find(':', nName);
            if (nColon != std::string::npos && nColon < nEnd)
                nName = nColon + 1;
            if (body.compare(nName, nEnd - nName, local) != 0 || nEnd - nName != local.size())
                continue;
            const size_t nClose = body.find('>', nEnd);
            if (nClose == std::string::npos || body[nClose - 1] == '/')
                continue;
            const size_t nText = nClose + 1;
            const size_t nNext = body.find('<', nText);
            if (nNext == std::string::npos)
                break;
            return body.substr(nText, nNext - nText);
        }
        return "";
    }
};

class OnvifClient {
public:
    OnvifClient(int port, std::string user, std::string password)
        : m_http("127.0.0.1", port), m_strUser(std::move(user)),
          m_strPassword(std::move(password)) {
        m_http.set_keep_alive(true);
        // Headers and body leave in separate writes: without this each request
        // waits out the peer's delayed acknowledgement.
        m_http.set_tcp_nodelay(true);
        m_http.set_connection_timeout(10, 0);
        m_http.set_read_timeout(10, 0);
        m_http.set_write_timeout(10, 0);
    }

    // The envelope prefix: clients use different ones.
    void setPrefix(const std::string& prefix) { m_strPrefix = prefix; }
    // Seconds the device clock is ahead of ours (from GetSystemDateAndTime).
    void setClockOffset(long seconds) { m_nOffset = seconds; }

    std::string securityHeader() const {
        unsigned char nonce[16];
        RAND_bytes(nonce, sizeof(nonce));
        const std::string strNonce(reinterpret_cast<const char*>(nonce), sizeof(nonce));
        const std::string strCreated = isoTime(std::time(nullptr) + m_nOffset);
        return "<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-wssecurity-secext-1.0.xsd\" "
               "xmlns:wsu=\"http://docs.oasis-open.org/"
               "wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd\"><wsse:UsernameToken>"
               "<wsse:Username>" +
               m_strUser +
               "</wsse:Username><wsse:Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">" +
               passwordDigest(strNonce, strCreated, m_strPassword) +
               "</wsse:Password><wsse:Nonce EncodingType=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-soap-message-security-1.0#Base64Binary\">" +
               base64(nonce, sizeof(nonce)) + "</wsse:Nonce><wsu:Created>" + strCreated +
               "</wsu:Created></wsse:UsernameToken></wsse:Security>";
    }

    std::string envelope(const std::string& body, bool bAuth) const {
        const std::string& p = m_strPrefix;
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><" + p + ":Envelope xmlns:" + p +
               "=\"http://www.w3.org/2003/05/soap-envelope\"><" + p + ":Header>" +
               (bAuth ? securityHeader() : "") + "</" + p + ":Header><" + p + ":Body>" + body +
               "</" + p + ":Body></" + p + ":Envelope>";
    }

    OnvifReply post(const std::string& path, const std::string& text) {
        OnvifReply reply;
        auto res = m_http.Post(path.c_str(), text, "application/soap+xml; charset=utf-8");
        if (!res)
            return reply;
        reply.status = res->status;
        reply.body = res->body;
        return reply;
    }

    OnvifReply call(const std::string& path, const std::string& body, bool bAuth = true) {
        return post(path, envelope(body, bAuth));
    }

    // Reads the device clock and sets the offset from it, as clients do.
    bool syncClock() {
        const OnvifReply r =
            call("/onvif/device_service",
                 "<GetSystemDateAndTime xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/>", false);
        if (r.status != 200)
            return false;
        const size_t nUtc = r.body.find("UTCDateTime");
        if (nUtc == std::string::npos)
            return false;
        const OnvifReply utc{200, r.body.substr(nUtc)};
        std::tm tm{};
        tm.tm_year = std::atoi(utc.text("Year").c_str()) - 1900;
        tm.tm_mon = std::atoi(utc.text("Month").c_str()) - 1;
        tm.tm_mday = std::atoi(utc.text("Day").c_str());
        tm.tm_hour = std::atoi(utc.text("Hour").c_str());
        tm.tm_min = std::atoi(utc.text("Minute").c_str());
        tm.tm_sec = std::atoi(utc.text("Second").c_str());
        m_nOffset = static_cast<long>(timegm(&tm) - std::time(nullptr));
        return true;
    }

private:
    httplib::Client m_http;
    std::string m_strUser;
    std::string m_strPassword;
    std::string m_strPrefix = "s";
    long m_nOffset = 0;
};

} // namespace testsupport
