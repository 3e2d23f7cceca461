// The ONVIF services of the simulated camera on its HTTP server: the device
// and media services (OnvifDevice.h) and the imaging service of
// libsensor-onvif, behind one SOAP endpoint with WS-Security.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Discovery.h"
#include "OnvifDevice.h"
#include "Scopes.h"

class ISensorController;

namespace httplib {
class Server;
}

namespace sensor_onvif {
class SoapEndpoint;
class DigestAuthenticator;
} // namespace sensor_onvif

namespace sensorctl {

struct OnvifSetup {
    // The camera's users and nonces, shared with the console; when null, one
    // Administrator of strUser and strPassword.
    std::shared_ptr<sensor_onvif::DigestAuthenticator> pDigest;
    std::string strUser;
    std::string strPassword;
    onvif::DeviceFacts facts;
    int nSchemeCount = 4; // the user schemes, offered as imaging presets
    // The scopes, shared with WS-Discovery; when null, the facts' fixed ones.
    std::shared_ptr<ScopeList> pScopes;
    // Sets the device clock (SetSystemDateAndTime); when empty the operation
    // is not offered.
    std::function<void(const KPDateTime&)> setClock;
    // Shuts the controller down and starts it again, false with a reason
    // (SystemReboot); when empty the operation is not offered.
    std::function<bool(std::string&)> reboot;
};

class OnvifServices {
public:
    OnvifServices(ISensorController& controller, const OnvifSetup& setup);
    ~OnvifServices();
    OnvifServices(const OnvifServices&) = delete;
    OnvifServices& operator=(const OnvifServices&) = delete;

    struct Answer {
        int nStatus = 200;
        std::string strBody;
        std::vector<std::string> wwwAuthenticate; // a 401's challenges
    };
    // One POST to an ONVIF path; strHost is the client's Host header, from
    // which the service addresses are built; strTarget and strAuthorization
    // the request line's target and the Authorization header, for digest.
    Answer answer(const std::string& strPath, const std::string& strHost,
                  const std::string& strBody, const std::string& strTarget = std::string(),
                  const std::string& strAuthorization = std::string());

    // The endpoint, for what a benchmark adds beside the services.
    sensor_onvif::SoapEndpoint& endpoint();

    // Known once the server is bound and WS-Discovery started; set before
    // the server answers. Without discovery the camera is NonDiscoverable.
    void setHttpPort(int nPort);
    void setDiscovery(DiscoveryModeControl* pDiscovery);

    // The paths served.
    static const char* const kPaths[3];

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

// The body of the fault for a request over the size cap, refused unread.
std::string onvifTooLargeFault(size_t nLimit);

// POST on each ONVIF path answers through services under mutex, after
// before() (the console drains its trace there); another method is 405.
void installOnvifRoutes(httplib::Server& server, OnvifServices& services, std::mutex& mutex,
                        std::function<void()> before);

} // namespace sensorctl
