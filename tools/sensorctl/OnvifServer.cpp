#include "OnvifServer.h"

#include <cctype>
#include <cstring>
#include <ctime>

#include <httplib.h>

#include "controller/ISensorController.h"
#include "host/KPDeviceTime.h"
#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"

namespace sensorctl {

namespace {

using onvif::kDevicePath;
using onvif::kMediaPath;
const char* const kImagingPath = sensor_onvif::ImagingService::kPath;

// The text of a request element's child, or "".
std::string childText(const sensor_onvif::XmlNode& op, const char* szLocal) {
    const sensor_onvif::XmlNode* p = op.child(szLocal);
    return p ? p->text : "";
}

// A Host header fit to build addresses from: a name or address and a port,
// nothing that could break out of a URL.
bool isHostName(const std::string& text) {
    if (text.empty() || text.size() > 255)
        return false;
    for (const char ch : text)
        if (!std::isalnum(static_cast<unsigned char>(ch)) && std::strchr(".-:[]", ch) == nullptr)
            return false;
    return true;
}

// The device clock in seconds since 1970, read as UTC: what
// GetSystemDateAndTime reports and what a UsernameToken's Created is held to.
long long deviceSeconds() {
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    std::tm tm{};
    tm.tm_year = now.year - 1900;
    tm.tm_mon = now.month - 1;
    tm.tm_mday = now.day;
    tm.tm_hour = now.hour;
    tm.tm_min = now.minute;
    tm.tm_sec = now.second;
    return timegm(&tm);
}

sensor_onvif::ImagingConfig imagingConfig(const OnvifSetup& setup) {
    sensor_onvif::ImagingConfig config;
    config.videoSourceToken = onvif::kVideoSourceToken;
    config.schemeCount = setup.nSchemeCount;
    return config;
}

} // namespace

const char* const OnvifServices::kPaths[3] = {kDevicePath, kMediaPath, kImagingPath};

struct OnvifServices::Impl {
    Impl(ISensorController& controller, const OnvifSetup& setup)
        : facts(setup.facts), endpoint(setup.strUser, setup.strPassword, &deviceSeconds),
          imaging(controller, imagingConfig(setup)) {
        addDevice();
        addMedia();
        imaging.registerOn(endpoint);
    }

    void addDevice();
    void addMedia();

    onvif::DeviceFacts facts;
    std::string strHost; // of the request being answered
    sensor_onvif::SoapEndpoint endpoint;
    sensor_onvif::ImagingService imaging;
};

void OnvifServices::Impl::addDevice() {
    using sensor_onvif::Request;
    using sensor_onvif::Result;
    // The one operation open to anybody: a client reads the clock before it
    // can date its UsernameToken.
    endpoint.addOperation(
        kDevicePath, "GetSystemDateAndTime",
        [](const Request&) -> Result {
            return onvif::systemDateAndTimeResponse(KPDeviceTime::getCurrentTime());
        },
        false);
    endpoint.addOperation(kDevicePath, "GetCapabilities", [this](const Request& req) -> Result {
        std::vector<std::string> categories;
        for (const sensor_onvif::XmlNode* pCategory : req.op.childrenNamed("Category"))
            categories.push_back(pCategory->text);
        std::string strOut;
        if (!onvif::capabilitiesResponse(strHost, categories, strOut))
            return sensor_onvif::SoapFault::receiver("ter:ActionNotSupported", "ter:NoSuchService",
                                                     "The camera has no such service");
        return strOut;
    });
    endpoint.addOperation(kDevicePath, "GetServices", [this](const Request& req) -> Result {
        bool bInclude = false;
        sensor_onvif::parseBool(childText(req.op, "IncludeCapability"), bInclude);
        // The capabilities read the style: only when the client asks for them.
        return onvif::servicesResponse(strHost, bInclude,
                                       bInclude ? imaging.capabilitiesXml() : std::string());
    });
    endpoint.addOperation(kDevicePath, "GetDeviceInformation", [this](const Request&) -> Result {
        return onvif::deviceInformationResponse(facts);
    });
    endpoint.addOperation(kDevicePath, "GetScopes", [this](const Request&) -> Result {
        return onvif::scopesResponse(facts);
    });
}

void OnvifServices::Impl::addMedia() {
    using sensor_onvif::Request;
    using sensor_onvif::Result;
    endpoint.addOperation(kMediaPath, "GetProfiles",
                          [](const Request&) -> Result { return onvif::profilesResponse(); });
    endpoint.addOperation(kMediaPath, "GetVideoSources",
                          [](const Request&) -> Result { return onvif::videoSourcesResponse(); });
}

OnvifServices::OnvifServices(ISensorController& controller, const OnvifSetup& setup)
    : m_pImpl(new Impl(controller, setup)) {}

OnvifServices::~OnvifServices() = default;

OnvifServices::Answer OnvifServices::answer(const std::string& strPath, const std::string& strHost,
                                            const std::string& strBody) {
    m_pImpl->strHost = strHost;
    const sensor_onvif::HttpReply reply = m_pImpl->endpoint.handle(strPath, strBody);
    Answer a;
    a.nStatus = reply.status;
    a.strBody = reply.body;
    return a;
}

sensor_onvif::SoapEndpoint& OnvifServices::endpoint() {
    return m_pImpl->endpoint;
}

std::string onvifTooLargeFault(size_t nLimit) {
    // As the endpoint itself answers a body over its limit.
    return sensor_onvif::faultEnvelope(sensor_onvif::SoapFault::bodyTooLarge(nLimit));
}

void installOnvifRoutes(httplib::Server& server, OnvifServices& services, std::mutex& mutex,
                        std::function<void()> before) {
    for (const char* szPath : OnvifServices::kPaths) {
        const std::string strPath = szPath;
        server.Post(strPath, [&services, &mutex, before, strPath](const httplib::Request& req,
                                                                  httplib::Response& res) {
            std::string strHost = req.get_header_value("Host");
            if (!isHostName(strHost))
                strHost = "127.0.0.1:" + std::to_string(req.local_port);
            std::lock_guard<std::mutex> lock(mutex);
            if (before)
                before();
            const OnvifServices::Answer a = services.answer(strPath, strHost, req.body);
            res.status = a.nStatus;
            res.set_content(a.strBody, sensor_onvif::kSoapContentType);
        });
        server.Get(strPath, [](const httplib::Request&, httplib::Response& res) {
            res.status = 405;
            res.set_header("Allow", "POST");
            res.set_content(sensor_onvif::faultEnvelope(sensor_onvif::SoapFault::sender(
                                "ter:InvalidArgs", "", "SOAP requests are POSTed")),
                            sensor_onvif::kSoapContentType);
        });
    }
}

} // namespace sensorctl
