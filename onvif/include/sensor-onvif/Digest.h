// HTTP digest authentication of the camera (RFC 7616, qop=auth, MD5 and
// SHA-256): reading a client's Authorization: Digest field, the challenges of
// a 401 answer, and the check of a request against the camera's users with
// nonces that expire and nonce counts that may not repeat.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "sensor-onvif/Access.h"

namespace sensor_onvif {

enum class DigestAlgorithm { Md5, Sha256 };

// "MD5", "SHA-256".
SENSOR_ONVIF_API const char* digestAlgorithmName(DigestAlgorithm p_eAlgorithm);
// The algorithm of a name (any letter case); false for any other, the -sess
// variants included.
SENSOR_ONVIF_API bool digestAlgorithmFromName(const std::string& p_strName,
                                              DigestAlgorithm& p_eAlgorithm);
// The lower-case hex of the algorithm's hash of the bytes.
SENSOR_ONVIF_API std::string digestHex(DigestAlgorithm p_eAlgorithm, const std::string& p_strData);

// The bounds of what a client may send.
struct DigestLimits {
    static constexpr size_t kMaxField = 4096; // the whole Authorization value
    static constexpr size_t kMaxValue = 1024; // one parameter's value, unescaped
    static constexpr size_t kMaxParams = 24;  // parameters in one field
};

// The parameters of an Authorization: Digest field. Present tells which of
// the optional ones the client sent.
struct DigestFields {
    std::string username;
    std::string realm;
    std::string nonce;
    std::string uri;
    std::string response;
    std::string algorithm; // empty: MD5
    std::string cnonce;
    std::string opaque;
    std::string qop;
    std::string nc;
    std::string userhash;
};

// Reads the value of an Authorization header: the scheme "Digest" (any
// case), then name=value pairs separated by commas, each value a token or a
// quoted string with backslash escapes. Unknown parameters are skipped; a
// parameter given twice, a value or field over DigestLimits, a control
// character, an unterminated quote, or a missing username, realm, nonce, uri
// or response is refused, with the reason in p_pWhy.
SENSOR_ONVIF_API bool parseDigestAuthorization(const std::string& p_strField,
                                               DigestFields& p_objOut,
                                               std::string* p_pWhy = nullptr);

// The response a client computes (qop=auth): H(H(A1):nonce:nc:cnonce:qop:H(A2))
// with A1 = username:realm:password and A2 = method:uri.
SENSOR_ONVIF_API std::string digestResponse(DigestAlgorithm p_eAlgorithm,
                                            const DigestFields& p_objFields,
                                            const std::string& p_strPassword,
                                            const std::string& p_strMethod);

// Seconds on a clock that does not go back (a steady clock; tests pass their
// own, simulated one).
using SecondsClock = std::function<long long()>;

struct DigestConfig {
    std::string realm = "sensor camera";
    // In the order of preference they are offered in.
    std::vector<DigestAlgorithm> algorithms{DigestAlgorithm::Sha256, DigestAlgorithm::Md5};
    long long nonceLifetime = 300; // seconds a nonce is accepted after it was issued
    size_t maxNonces = 1024;       // nonces remembered; the oldest is dropped first
    SecondsClock clock;            // empty: std::chrono::steady_clock
};

// How a request fared.
struct DigestVerdict {
    enum class Outcome {
        Accepted,
        Malformed,   // the field could not be read
        WrongRealm,  // another realm than this camera's
        Unsupported, // an algorithm or qop this camera did not offer, userhash
        WrongUri,    // the uri is not the request's target
        WrongOpaque, // not the opaque this camera sends
        Refused,     // no such user or a wrong response (the same to the client)
        Stale,       // right credentials, but the nonce expired or was forgotten
        Replayed,    // a nonce count not above the last one accepted for the nonce
    };
    Outcome outcome = Outcome::Malformed;
    const CameraUser* user = nullptr; // when accepted
    std::string reason;
    bool accepted() const { return outcome == Outcome::Accepted; }
};

// The camera's users and the nonces it issued. Thread-safe.
class SENSOR_ONVIF_API DigestAuthenticator {
public:
    explicit DigestAuthenticator(std::vector<CameraUser> p_objUsers,
                                 DigestConfig p_objConfig = DigestConfig());
    DigestAuthenticator(const DigestAuthenticator&) = delete;
    DigestAuthenticator& operator=(const DigestAuthenticator&) = delete;

    // The values of the WWW-Authenticate headers of a 401 answer, one per
    // algorithm in order of preference, all with one fresh nonce; with
    // stale=true when p_bStale (the client's nonce expired, its password was
    // right).
    std::vector<std::string> challenge(bool p_bStale = false);

    // Checks an Authorization field of a request (its method and target, as
    // on the request line).
    DigestVerdict verify(const std::string& p_strMethod, const std::string& p_strUri,
                         const std::string& p_strAuthorization);

    // A user by name, or null.
    const CameraUser* user(const std::string& p_strName) const;
    const std::vector<CameraUser>& users() const { return m_objUsers; }
    const DigestConfig& config() const { return m_objConfig; }
    // The nonces remembered now.
    size_t nonceCount() const;

private:
    long long now() const;

    struct NonceState {
        long long issued;
        unsigned long lastCount; // 0: none accepted yet
    };

    std::vector<CameraUser> m_objUsers;
    DigestConfig m_objConfig;
    std::string m_strOpaque;

    mutable std::mutex m_objMutex;
    std::unordered_map<std::string, NonceState> m_objNonces;
    std::deque<std::string> m_objNonceOrder; // oldest first
};

} // namespace sensor_onvif
