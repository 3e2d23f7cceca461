// The console's own paths (the page, its API, the picture) behind the
// camera's users: HTTP digest whenever the camera has users, open to anybody
// when it has none.
#pragma once

#include <memory>

namespace httplib {
struct Request;
struct Response;
} // namespace httplib

namespace sensor_onvif {
class DigestAuthenticator;
}

namespace sensorctl {

class WebAuth {
public:
    // Open: every request goes on.
    WebAuth() = default;
    // The users and nonces the ONVIF services use too.
    explicit WebAuth(std::shared_ptr<sensor_onvif::DigestAuthenticator> pDigest)
        : m_pDigest(std::move(pDigest)) {}

    bool isOpen() const { return !m_pDigest; }

    // True when the request may go on. Otherwise the answer is written: 401
    // with the digest challenges (stale=true for an expired nonce) without
    // valid credentials, 403 for a user whose level may not do it (reading
    // takes any user, a change an Operator or Administrator).
    bool admit(const httplib::Request& req, httplib::Response& res) const;

private:
    std::shared_ptr<sensor_onvif::DigestAuthenticator> m_pDigest;
};

} // namespace sensorctl
