// The client side of HTTP digest as the tests compute it: RFC 7616's formula
// over libcrypto's hashes, written here and not taken from the camera, and
// checked against the RFC's own examples (DigestTest).
#pragma once

#include <openssl/evp.h>

#include <cstdio>
#include <string>
#include <utility>

namespace digestcheck {

inline std::string hexHash(const std::string& algorithm, const std::string& data) {
    const EVP_MD* md = algorithm == "SHA-256" ? EVP_sha256() : EVP_md5();
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    EVP_Digest(data.data(), data.size(), out, &n, md, nullptr);
    std::string hex;
    char sz[3];
    for (unsigned int i = 0; i < n; ++i) {
        std::snprintf(sz, sizeof(sz), "%02x", out[i]);
        hex += sz;
    }
    return hex;
}

// response = H(H(user:realm:password):nonce:nc:cnonce:qop:H(method:uri)).
inline std::string response(const std::string& algorithm, const std::string& user,
                            const std::string& realm, const std::string& password,
                            const std::string& method, const std::string& uri,
                            const std::string& nonce, const std::string& nc,
                            const std::string& cnonce, const std::string& qop = "auth") {
    const std::string ha1 = hexHash(algorithm, user + ":" + realm + ":" + password);
    const std::string ha2 = hexHash(algorithm, method + ":" + uri);
    return hexHash(algorithm, ha1 + ":" + nonce + ":" + nc + ":" + cnonce + ":" + qop + ":" + ha2);
}

// A parameter of a challenge, quoted or not; "" when absent. Read by hand:
// building a std::regex on several threads at once races inside the
// standard library's locale (the tests call this from many clients).
inline std::string param(const std::string& challenge, const std::string& name) {
    const std::string key = name + "=";
    for (size_t at = challenge.find(key); at != std::string::npos;
         at = challenge.find(key, at + 1)) {
        if (at != 0 && challenge[at - 1] != ' ' && challenge[at - 1] != ',')
            continue;
        const size_t from = at + key.size();
        if (from < challenge.size() && challenge[from] == '"') {
            const size_t end = challenge.find('"', from + 1);
            if (end != std::string::npos)
                return challenge.substr(from + 1, end - from - 1);
            continue;
        }
        const size_t end = challenge.find_first_of("\", ", from);
        const std::string value =
            challenge.substr(from, end == std::string::npos ? std::string::npos : end - from);
        if (!value.empty())
            return value;
    }
    return "";
}

struct Answer {
    Answer(std::string u, std::string p, std::string m = "POST", std::string path = "")
        : user(std::move(u)), password(std::move(p)), method(std::move(m)), uri(std::move(path)) {}
    std::string user;
    std::string password;
    std::string method;
    std::string uri;
    std::string nc = "00000001";
    std::string cnonce = "0a4f113b";
    std::string realm; // empty: the challenge's
};

// The Authorization value answering a challenge (its algorithm, realm,
// nonce and opaque).
inline std::string authorization(const std::string& challenge, const Answer& a) {
    std::string algorithm = param(challenge, "algorithm");
    if (algorithm.empty())
        algorithm = "MD5";
    const std::string realm = a.realm.empty() ? param(challenge, "realm") : a.realm;
    const std::string nonce = param(challenge, "nonce");
    return "Digest username=\"" + a.user + "\", realm=\"" + realm + "\", nonce=\"" + nonce +
           "\", uri=\"" + a.uri + "\", algorithm=" + algorithm + ", qop=auth, nc=" + a.nc +
           ", cnonce=\"" + a.cnonce + "\", response=\"" +
           response(algorithm, a.user, realm, a.password, a.method, a.uri, nonce, a.nc, a.cnonce) +
           "\", opaque=\"" + param(challenge, "opaque") + "\"";
}

} // namespace digestcheck
