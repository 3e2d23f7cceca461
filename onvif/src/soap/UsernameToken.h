// WS-Security UsernameToken (PasswordDigest): the token of a request's
// Security header checked against the camera's users, the device clock and
// the nonces accepted lately. Its own unit because it is the SOAP layer's
// second way to authenticate, beside HTTP digest, with a state of its own.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "sensor-onvif/Soap.h"

namespace sensor_onvif {
namespace soap {

// The request's WS-Security header block, or null.
const XmlNode* securityOf(const XmlNode* p_pHeader);

// The nonces of the tokens accepted lately, so that none is accepted twice.
// Thread-safe.
class UsernameTokenChecker {
public:
    // The user of a valid token, or null with the fault's reason.
    const CameraUser* authenticate(const XmlNode* p_pSecurity, DigestAuthenticator& p_objUsers,
                                   const Clock& p_fnClock, long long p_nWindow, size_t p_nMaxNonces,
                                   std::string& p_strWhy);

private:
    std::mutex nonceMutex;
    // Nonces seen, with the device time they were accepted; in arrival order.
    std::unordered_map<std::string, long long> nonces;
    std::deque<std::pair<std::string, long long>> nonceOrder;
};

} // namespace soap
} // namespace sensor_onvif
