// The ONVIF services of the simulated camera on its HTTP server: the device
// and media services (OnvifDevice.h) and the imaging service of
// libsensor-onvif, behind one SOAP endpoint with WS-Security.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "OnvifDevice.h"

class ISensorController;

namespace httplib {
class Server;
}

namespace sensor_onvif {
class SoapEndpoint;
}

namespace sensorctl {

struct OnvifSetup {
    std::string strUser;
    std::string strPassword;
    onvif::DeviceFacts facts;
    int nSchemeCount = 4; // the user schemes, offered as imaging presets
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
    };
    // One POST to an ONVIF path; strHost is the client's Host header, from
    // which the service addresses are built.
    Answer answer(const std::string& strPath, const std::string& strHost,
                  const std::string& strBody);

    // The endpoint, for what a benchmark adds beside the services.
    sensor_onvif::SoapEndpoint& endpoint();

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
