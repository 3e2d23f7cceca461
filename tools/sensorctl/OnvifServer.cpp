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

std::shared_ptr<sensor_onvif::DigestAuthenticator> digestOf(const OnvifSetup& setup) {
    if (setup.pDigest)
        return setup.pDigest;
    return std::make_shared<sensor_onvif::DigestAuthenticator>(
        std::vector<sensor_onvif::CameraUser>{sensor_onvif::CameraUser{
            setup.strUser, setup.strPassword, sensor_onvif::UserLevel::Administrator}});
}

// A hostname SetHostname takes: labels of letters, digits and inner hyphens.
bool isValidHostname(const std::string& name) {
    if (name.empty() || name.size() > 253)
        return false;
    size_t nLabel = 0;
    for (size_t i = 0; i < name.size(); ++i) {
        const char ch = name[i];
        if (ch == '.') {
            if (nLabel == 0 || name[i - 1] == '-')
                return false;
            nLabel = 0;
        } else if (std::isalnum(static_cast<unsigned char>(ch)) || (ch == '-' && nLabel > 0)) {
            if (++nLabel > 63)
                return false;
        } else {
            return false;
        }
    }
    return nLabel > 0 && name.back() != '-';
}

} // namespace

const char* const OnvifServices::kPaths[3] = {kDevicePath, kMediaPath, kImagingPath};

struct OnvifServices::Impl {
    Impl(ISensorController& controller, const OnvifSetup& setup)
        : facts(setup.facts), endpoint(digestOf(setup), &deviceSeconds),
          imaging(controller, imagingConfig(setup)) {
        addDevice();
        imaging.registerOn(endpoint);
    }

    // The device and media services' operations.
    void addDevice();

    onvif::DeviceFacts facts;
    std::string strHost; // of the request being answered
    std::string strHostname = "sensorctl";
    sensor_onvif::SoapEndpoint endpoint;
    sensor_onvif::ImagingService imaging;
};

void OnvifServices::Impl::addDevice() {
    using sensor_onvif::AccessClass;
    using sensor_onvif::Request;
    using sensor_onvif::Result;
    struct Op {
        const char* path;
        const char* name;
        AccessClass eClass; // who may call it (levelMayAccess)
        sensor_onvif::Handler fn;
    };
    const Op ops[] = {
        // Open to anybody: a client reads the clock to date its
        // UsernameToken, and the services and capabilities to find its way.
        {kDevicePath, "GetSystemDateAndTime", AccessClass::PreAuth,
         [](const Request&) -> Result {
             return onvif::systemDateAndTimeResponse(KPDeviceTime::getCurrentTime());
         }},
        {kDevicePath, "GetCapabilities", AccessClass::PreAuth,
         [this](const Request& req) -> Result {
             std::vector<std::string> categories;
             for (const sensor_onvif::XmlNode* pCategory : req.op.childrenNamed("Category"))
                 categories.push_back(pCategory->text);
             std::string strOut;
             if (!onvif::capabilitiesResponse(strHost, categories, strOut))
                 return sensor_onvif::SoapFault::receiver("ter:ActionNotSupported",
                                                          "ter:NoSuchService",
                                                          "The camera has no such service");
             return strOut;
         }},
        {kDevicePath, "GetServices", AccessClass::PreAuth,
         [this](const Request& req) -> Result {
             bool bInclude = false;
             sensor_onvif::parseBool(childText(req.op, "IncludeCapability"), bInclude);
             // The capabilities read the style: only when the client asks.
             return onvif::servicesResponse(strHost, bInclude,
                                            bInclude ? imaging.capabilitiesXml() : std::string());
         }},
        {kDevicePath, "GetServiceCapabilities", AccessClass::PreAuth,
         [](const Request&) -> Result { return onvif::deviceServiceCapabilitiesResponse(); }},
        {kDevicePath, "GetWsdlUrl", AccessClass::PreAuth,
         [](const Request&) -> Result { return onvif::wsdlUrlResponse(); }},
        {kDevicePath, "GetHostname", AccessClass::PreAuth,
         [this](const Request&) -> Result { return onvif::hostnameResponse(strHostname); }},
        {kDevicePath, "GetEndpointReference", AccessClass::PreAuth,
         [this](const Request&) -> Result {
             return onvif::endpointReferenceResponse(facts.strEndpointReference);
         }},
        {kDevicePath, "GetDeviceInformation", AccessClass::ReadSystem,
         [this](const Request&) -> Result { return onvif::deviceInformationResponse(facts); }},
        {kDevicePath, "GetScopes", AccessClass::ReadSystem,
         [this](const Request&) -> Result { return onvif::scopesResponse(facts); }},
        {kDevicePath, "SetHostname", AccessClass::WriteSystem,
         [this](const Request& req) -> Result {
             const std::string strName = childText(req.op, "Name");
             if (!isValidHostname(strName))
                 return sensor_onvif::SoapFault::sender("ter:InvalidArgVal", "ter:InvalidHostname",
                                                        "not a valid hostname");
             strHostname = strName;
             return onvif::setHostnameResponse();
         }},
        {kMediaPath, "GetServiceCapabilities", AccessClass::PreAuth,
         [](const Request&) -> Result { return onvif::mediaServiceCapabilitiesResponse(); }},
        {kMediaPath, "GetProfiles", AccessClass::ReadMedia,
         [](const Request&) -> Result { return onvif::profilesResponse(); }},
        {kMediaPath, "GetVideoSources", AccessClass::ReadMedia,
         [](const Request&) -> Result { return onvif::videoSourcesResponse(); }},
    };
    for (const Op& op : ops)
        endpoint.addOperation(op.path, op.name, op.fn, op.eClass);
}

OnvifServices::OnvifServices(ISensorController& controller, const OnvifSetup& setup)
    : m_pImpl(new Impl(controller, setup)) {}

OnvifServices::~OnvifServices() = default;

OnvifServices::Answer OnvifServices::answer(const std::string& strPath, const std::string& strHost,
                                            const std::string& strBody,
                                            const std::string& strTarget,
                                            const std::string& strAuthorization) {
    m_pImpl->strHost = strHost;
    sensor_onvif::HttpAuth http;
    http.uri = strTarget.empty() ? strPath : strTarget;
    http.authorization = strAuthorization;
    sensor_onvif::HttpReply reply = m_pImpl->endpoint.handle(strPath, strBody, http);
    Answer a;
    a.nStatus = reply.status;
    a.strBody = std::move(reply.body);
    a.wwwAuthenticate = std::move(reply.wwwAuthenticate);
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
            const OnvifServices::Answer a = services.answer(strPath, strHost, req.body, req.target,
                                                            req.get_header_value("Authorization"));
            res.status = a.nStatus;
            for (const std::string& challenge : a.wwwAuthenticate)
                res.set_header("WWW-Authenticate", challenge);
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
