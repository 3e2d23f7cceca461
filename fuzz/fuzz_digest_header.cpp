// The Authorization field of an HTTP request as it comes from the network:
// read by the camera's digest reader, then checked by an authenticator. A
// field the reader takes must hold the five required parameters within
// their bounds; no field can be accepted without the camera's nonce.
#include <cstddef>
#include <cstdint>
#include <string>

#include "sensor-onvif/Digest.h"

namespace {

sensor_onvif::DigestAuthenticator& authenticator() {
    static sensor_onvif::DigestAuthenticator s_auth(
        {{"admin", "secret", sensor_onvif::UserLevel::Administrator}}, [] {
            sensor_onvif::DigestConfig config;
            config.maxNonces = 16;
            config.clock = [] { return 1000LL; };
            return config;
        }());
    return s_auth;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using sensor_onvif::DigestLimits;
    const std::string field(reinterpret_cast<const char*>(data), size);
    sensor_onvif::DigestFields f;
    std::string why;
    const bool bParsed = sensor_onvif::parseDigestAuthorization(field, f, &why);
    if (bParsed) {
        if (field.size() > DigestLimits::kMaxField)
            __builtin_trap();
        for (const std::string* p : {&f.username, &f.realm, &f.nonce, &f.uri, &f.response,
                                     &f.algorithm, &f.cnonce, &f.opaque, &f.qop, &f.nc})
            if (p->size() > DigestLimits::kMaxValue)
                __builtin_trap();
    } else if (why.empty()) {
        __builtin_trap(); // a refusal says why
    }
    const sensor_onvif::DigestVerdict v = authenticator().verify("GET", "/", field);
    if (v.accepted() || v.user != nullptr)
        __builtin_trap();
    if (!bParsed && v.outcome != sensor_onvif::DigestVerdict::Outcome::Malformed)
        __builtin_trap();
    // Challenges keep coming; the table stays within its bound.
    authenticator().challenge(v.outcome == sensor_onvif::DigestVerdict::Outcome::Stale);
    if (authenticator().nonceCount() > 16)
        __builtin_trap();
    return 0;
}
