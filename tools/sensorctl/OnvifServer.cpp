#include "OnvifServer.h"

#include <cctype>
#include <cstdlib>
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
    return onvif::utcSecondsOf(KPDeviceTime::getCurrentTime());
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

// The texts of a request element's children of one name.
std::vector<std::string> childTexts(const sensor_onvif::XmlNode& op, const char* szLocal) {
    std::vector<std::string> out;
    for (const sensor_onvif::XmlNode* p : op.childrenNamed(szLocal))
        out.push_back(p->text);
    return out;
}

bool readInt(const sensor_onvif::XmlNode* pParent, const char* szPath, int& nOut) {
    const sensor_onvif::XmlNode* p = pParent ? pParent->find(szPath) : nullptr;
    if (!p || p->text.empty() || p->text.size() > 6)
        return false;
    char* pEnd = nullptr;
    const long n = std::strtol(p->text.c_str(), &pEnd, 10);
    if (*pEnd != '\0')
        return false;
    nOut = static_cast<int>(n);
    return true;
}

// A tt:DateTime element: false when a field is missing or not a number.
bool readDateTime(const sensor_onvif::XmlNode* p, KPDateTime& t) {
    return readInt(p, "Date/Year", t.year) && readInt(p, "Date/Month", t.month) &&
           readInt(p, "Date/Day", t.day) && readInt(p, "Time/Hour", t.hour) &&
           readInt(p, "Time/Minute", t.minute) && readInt(p, "Time/Second", t.second);
}

sensor_onvif::SoapFault scopeFault(ScopeList::Outcome eOutcome) {
    using sensor_onvif::SoapFault;
    switch (eOutcome) {
        case ScopeList::Outcome::TooMany:
            return SoapFault::receiver("ter:Action", "ter:TooManyScopes",
                                       "more scopes than the camera keeps (" +
                                           std::to_string(ScopeList::kMaxConfigurable) + ")");
        case ScopeList::Outcome::Fixed:
            return SoapFault::sender("ter:OperationProhibited", "ter:FixedScope",
                                     "a fixed scope cannot be removed or overwritten");
        case ScopeList::Outcome::Missing:
            return SoapFault::sender("ter:InvalidArgVal", "ter:NoScope", "no such scope");
        default:
            return SoapFault::sender("ter:InvalidArgVal", "", "a scope item is not a URI");
    }
}

} // namespace

const char* const OnvifServices::kPaths[3] = {kDevicePath, kMediaPath, kImagingPath};

struct OnvifServices::Impl {
    Impl(ISensorController& objController, const OnvifSetup& setup)
        : controller(objController), facts(setup.facts),
          pScopes(setup.pScopes ? setup.pScopes
                                : std::make_shared<ScopeList>(onvif::deviceScopes(setup.facts))),
          setClock(setup.setClock), reboot(setup.reboot), pDigest(digestOf(setup)),
          endpoint(pDigest, &deviceSeconds), imaging(objController, imagingConfig(setup)) {
        addDevice();
        imaging.registerOn(endpoint);
    }

    // The device and media services' operations.
    void addDevice();

    // Back to what the camera was made with: the controller's factory
    // values, no configurable scopes, UTC, discoverable; a hard reset also
    // forgets the hostname, a soft one keeps the network settings.
    bool factoryDefault(bool bHard);

    ISensorController& controller;
    onvif::DeviceFacts facts;
    std::shared_ptr<ScopeList> pScopes;
    std::function<void(const KPDateTime&)> setClock;
    std::function<bool(std::string&)> reboot;
    std::shared_ptr<sensor_onvif::DigestAuthenticator> pDigest;
    std::string strHost; // of the request being answered
    std::string strHostname = kFactoryHostname;
    onvif::TimeSetting timeSetting;
    int nHttpPort = 80;
    DiscoveryModeControl* pDiscovery = nullptr;
    static constexpr const char* kFactoryHostname = "sensorctl";
    sensor_onvif::SoapEndpoint endpoint;
    sensor_onvif::ImagingService imaging;
};

bool OnvifServices::Impl::factoryDefault(bool bHard) {
    const bool bOk = controller.resetParameters();
    pScopes->set({});
    timeSetting = onvif::TimeSetting();
    if (pDiscovery)
        pDiscovery->setDiscoveryMode(DiscoveryMode::Discoverable);
    if (bHard)
        strHostname = kFactoryHostname;
    return bOk;
}

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
         [this](const Request&) -> Result {
             return onvif::systemDateAndTimeResponse(KPDeviceTime::getCurrentTime(), timeSetting);
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
                                            bInclude ? imaging.capabilitiesXml() : std::string(),
                                            pDiscovery != nullptr);
         }},
        {kDevicePath, "GetServiceCapabilities", AccessClass::PreAuth,
         [this](const Request&) -> Result {
             return onvif::deviceServiceCapabilitiesResponse(pDiscovery != nullptr);
         }},
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
         [this](const Request&) -> Result { return onvif::scopesResponse(pScopes->scopes()); }},
        {kDevicePath, "SetScopes", AccessClass::WriteSystem,
         [this](const Request& req) -> Result {
             const ScopeList::Outcome e = pScopes->set(childTexts(req.op, "Scopes"));
             if (e != ScopeList::Outcome::Done)
                 return scopeFault(e);
             return onvif::emptyDeviceResponse("SetScopesResponse");
         }},
        {kDevicePath, "AddScopes", AccessClass::WriteSystem,
         [this](const Request& req) -> Result {
             const ScopeList::Outcome e = pScopes->add(childTexts(req.op, "ScopeItem"));
             if (e != ScopeList::Outcome::Done)
                 return scopeFault(e);
             return onvif::emptyDeviceResponse("AddScopesResponse");
         }},
        {kDevicePath, "RemoveScopes", AccessClass::WriteSystem,
         [this](const Request& req) -> Result {
             const std::vector<std::string> items = childTexts(req.op, "ScopeItem");
             const ScopeList::Outcome e = pScopes->remove(items);
             if (e != ScopeList::Outcome::Done)
                 return scopeFault(e);
             return onvif::removeScopesResponse(items);
         }},
        {kDevicePath, "GetDiscoveryMode", AccessClass::ReadSystem,
         [this](const Request&) -> Result {
             // Without WS-Discovery nobody can find the camera.
             return onvif::discoveryModeResponse(discoveryModeName(
                 pDiscovery ? pDiscovery->discoveryMode() : DiscoveryMode::NonDiscoverable));
         }},
        {kDevicePath, "SetDiscoveryMode", AccessClass::WriteSystem,
         [this](const Request& req) -> Result {
             DiscoveryMode eMode = DiscoveryMode::Discoverable;
             if (!parseDiscoveryMode(childText(req.op, "DiscoveryMode"), eMode))
                 return sensor_onvif::SoapFault::sender("ter:InvalidArgVal", "",
                                                        "not a discovery mode");
             if (pDiscovery)
                 pDiscovery->setDiscoveryMode(eMode);
             else if (eMode == DiscoveryMode::Discoverable)
                 return sensor_onvif::SoapFault::receiver(
                     "ter:ActionNotSupported", "",
                     "WS-Discovery is off in this camera (DiscoveryNotSupported)");
             return onvif::emptyDeviceResponse("SetDiscoveryModeResponse");
         }},
        {kDevicePath, "GetNetworkInterfaces", AccessClass::ReadSystem,
         [](const Request&) -> Result { return onvif::networkInterfacesResponse(); }},
        {kDevicePath, "GetDNS", AccessClass::ReadSystem,
         [](const Request&) -> Result { return onvif::dnsResponse(); }},
        {kDevicePath, "GetNTP", AccessClass::ReadSystem,
         [](const Request&) -> Result { return onvif::ntpResponse(); }},
        {kDevicePath, "GetNetworkProtocols", AccessClass::ReadSystem,
         [this](const Request&) -> Result { return onvif::networkProtocolsResponse(nHttpPort); }},
        {kDevicePath, "GetNetworkDefaultGateway", AccessClass::ReadSystem,
         [](const Request&) -> Result { return onvif::networkDefaultGatewayResponse(); }},
        {kDevicePath, "GetUsers", AccessClass::ReadSystemSecret,
         [this](const Request&) -> Result {
             std::vector<std::pair<std::string, std::string>> users;
             for (const sensor_onvif::CameraUser& user : pDigest->users())
                 users.emplace_back(user.name, sensor_onvif::userLevelName(user.level));
             return onvif::usersResponse(users);
         }},
        {kDevicePath, "SetSystemFactoryDefault", AccessClass::Unrecoverable,
         [this](const Request& req) -> Result {
             const std::string strMode = childText(req.op, "FactoryDefault");
             if (strMode != "Hard" && strMode != "Soft")
                 return sensor_onvif::SoapFault::sender("ter:InvalidArgVal", "",
                                                        "FactoryDefault is Hard or Soft");
             if (!factoryDefault(strMode == "Hard"))
                 return sensor_onvif::SoapFault::receiver("ter:Action", "",
                                                          "the image controller did not reset");
             return onvif::emptyDeviceResponse("SetSystemFactoryDefaultResponse");
         }},
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

    if (setClock)
        endpoint.addOperation(
            kDevicePath, "SetSystemDateAndTime",
            [this](const Request& req) -> Result {
                using sensor_onvif::SoapFault;
                const std::string strType = childText(req.op, "DateTimeType");
                bool bDaylight = false;
                if ((strType != "Manual" && strType != "NTP") ||
                    !sensor_onvif::parseBool(childText(req.op, "DaylightSavings"), bDaylight))
                    return SoapFault::sender("ter:InvalidArgVal", "",
                                             "DateTimeType is Manual or NTP, DaylightSavings "
                                             "a boolean");
                onvif::TimeSetting setting = timeSetting;
                setting.bDaylightSavings = bDaylight;
                if (const sensor_onvif::XmlNode* pZone = req.op.child("TimeZone")) {
                    long nOffset = 0;
                    bool bSummer = false;
                    const std::string strTz = childText(*pZone, "TZ");
                    if (!onvif::parsePosixTimeZone(strTz, nOffset, bSummer))
                        return SoapFault::sender("ter:InvalidArgVal", "ter:InvalidTimeZone",
                                                 "not a POSIX time zone");
                    setting.strTz = strTz;
                }
                // The camera knows no NTP server (GetNTP lists none).
                if (strType == "NTP")
                    return SoapFault::sender("ter:InvalidArgVal", "ter:NtpServerUndefined",
                                             "no NTP server is defined");
                KPDateTime now{};
                if (!readDateTime(req.op.child("UTCDateTime"), now) || !onvif::isValidDateTime(now))
                    return SoapFault::sender("ter:InvalidArgVal", "ter:InvalidDateTime",
                                             "not a valid UTC date and time");
                setClock(now);
                timeSetting = setting;
                return onvif::emptyDeviceResponse("SetSystemDateAndTimeResponse");
            },
            AccessClass::WriteSystem);
    if (reboot)
        endpoint.addOperation(
            kDevicePath, "SystemReboot",
            [this](const Request&) -> Result {
                // The simulated controller restarts before the answer leaves:
                // a client that reads it finds the camera up again.
                std::string strWhy;
                if (!reboot(strWhy))
                    return sensor_onvif::SoapFault::receiver(
                        "ter:Action", "", "the camera did not restart: " + strWhy);
                return onvif::systemRebootResponse("Rebooted: the image controller restarted");
            },
            AccessClass::Unrecoverable);
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

void OnvifServices::setHttpPort(int nPort) {
    m_pImpl->nHttpPort = nPort;
}

void OnvifServices::setDiscovery(DiscoveryModeControl* pDiscovery) {
    m_pImpl->pDiscovery = pDiscovery;
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
