#include "WebAuth.h"

#if defined(SENSORCTL_HAVE_HTTPLIB) && defined(SENSORCTL_HAVE_ONVIF)

#include <string>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "sensor-onvif/Digest.h"

namespace sensorctl {

namespace {

void refuse(httplib::Response& res, int nStatus, const std::string& strWhy) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    json["error"] = strWhy;
    res.status = nStatus;
    res.set_content(json.dump() + "\n", "application/json");
}

} // namespace

bool WebAuth::admit(const httplib::Request& req, httplib::Response& res) const {
    if (!m_pDigest)
        return true;
    const std::string strAuthorization = req.get_header_value("Authorization");
    sensor_onvif::DigestVerdict verdict;
    if (!strAuthorization.empty())
        verdict = m_pDigest->verify(req.method, req.target, strAuthorization);
    if (!verdict.accepted()) {
        for (const std::string& challenge :
             m_pDigest->challenge(verdict.outcome == sensor_onvif::DigestVerdict::Outcome::Stale))
            res.set_header("WWW-Authenticate", challenge);
        refuse(res, 401,
               strAuthorization.empty() ? "credentials needed"
                                        : "not authorized: " + verdict.reason);
        return false;
    }
    // Looking takes any user; changing the camera, an Operator.
    const bool bRead = req.method == "GET" || req.method == "HEAD";
    const sensor_onvif::AccessClass eClass =
        bRead ? sensor_onvif::AccessClass::ReadMedia : sensor_onvif::AccessClass::Actuate;
    if (!sensor_onvif::levelMayAccess(verdict.user->level, eClass)) {
        refuse(res, 403,
               std::string("a user of level ") + sensor_onvif::userLevelName(verdict.user->level) +
                   " may not change the camera");
        return false;
    }
    return true;
}

} // namespace sensorctl

#else

namespace sensorctl {

bool WebAuth::admit(const httplib::Request&, httplib::Response&) const {
    return true;
}

} // namespace sensorctl

#endif
