#include "OnvifDevice.h"

#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"

#include <cctype>
#include <cstdio>
#include <ctime>

namespace sensorctl {
namespace onvif {

const char* const kVideoSourceToken = "VideoSource_1";
const char* const kVideoSourceConfigToken = "VideoSourceConfig_1";
const char* const kProfileToken = "Profile_1";
const char* const kDevicePath = "/onvif/device_service";
const char* const kMediaPath = "/onvif/media_service";

namespace {

namespace ns = sensor_onvif::ns;

// The picture the simulated pipeline announces: its main stream.
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kFrameRate = 25;

// The versions of the service WSDLs whose operations these services answer
// and whose schemas their answers follow: devicemgmt.wsdl 26.06 (with Core
// 26.06) and media.wsdl 21.06. The imaging service states its own.
constexpr int kDeviceMajor = 26;
constexpr int kDeviceMinor = 6;
constexpr int kMediaMajor = 21;
constexpr int kMediaMinor = 6;

std::string open(const char* szElement, const char* szPrefix, const char* szNs) {
    return std::string("<") + szPrefix + ":" + szElement + " xmlns:" + szPrefix + "=\"" + szNs +
           "\" xmlns:tt=\"" + ns::kTt + "\">";
}

std::string close(const char* szElement, const char* szPrefix) {
    return std::string("</") + szPrefix + ":" + szElement + ">";
}

std::string tt(const char* szElement, const std::string& text) {
    return std::string("<tt:") + szElement + ">" + text + "</tt:" + szElement + ">";
}

std::string dateTime(const KPDateTime& t) {
    return "<tt:Time>" + tt("Hour", std::to_string(t.hour)) +
           tt("Minute", std::to_string(t.minute)) + tt("Second", std::to_string(t.second)) +
           "</tt:Time><tt:Date>" + tt("Year", std::to_string(t.year)) +
           tt("Month", std::to_string(t.month)) + tt("Day", std::to_string(t.day)) + "</tt:Date>";
}

// Nothing is claimed the camera does not do: its network, NTP servers and
// users are read, never set (NetworkConfigNotSupported, NTP="0",
// UserConfigNotSupported), and without WS-Discovery it has no discovery
// mode to set.
std::string deviceCapabilitiesOfService(bool bDiscovery) {
    return std::string("<tds:Capabilities>"
                       "<tds:Network IPFilter=\"false\" ZeroConfiguration=\"false\" "
                       "IPVersion6=\"false\" DynDNS=\"false\" Dot11Configuration=\"false\" "
                       "HostnameFromDHCP=\"false\" NTP=\"0\" DHCPv6=\"false\"/>"
                       "<tds:Security UsernameToken=\"true\" HttpDigest=\"true\" "
                       "TLS1.2=\"false\" DefaultAccessPolicy=\"true\" "
                       "HashingAlgorithms=\"SHA-256 MD5\"/>"
                       "<tds:System DiscoveryResolve=\"false\" DiscoveryBye=\"false\" ") +
           "RemoteDiscovery=\"false\" SystemBackup=\"false\" SystemLogging=\"false\" "
           "FirmwareUpgrade=\"false\" DiscoveryNotSupported=\"" +
           (bDiscovery ? "false" : "true") +
           "\" NetworkConfigNotSupported=\"true\" UserConfigNotSupported=\"true\"/>"
           "</tds:Capabilities>";
}

std::string mediaCapabilitiesOfService() {
    return std::string("<trt:Capabilities xmlns:trt=\"") + ns::kTrt +
           "\" SnapshotUri=\"false\" Rotation=\"false\">"
           "<trt:ProfileCapabilities MaximumNumberOfProfiles=\"1\"/>"
           "<trt:StreamingCapabilities RTPMulticast=\"false\" RTP_TCP=\"false\" "
           "RTP_RTSP_TCP=\"false\"/>"
           "</trt:Capabilities>";
}

std::string service(const char* szNs, const std::string& strAddress,
                    const std::string& strCapabilities, int nMajor, int nMinor) {
    return "<tds:Service>" + std::string("<tds:Namespace>") + szNs + "</tds:Namespace>" +
           "<tds:XAddr>" + sensor_onvif::xmlEscape(strAddress) + "</tds:XAddr>" +
           (strCapabilities.empty()
                ? ""
                : "<tds:Capabilities>" + strCapabilities + "</tds:Capabilities>") +
           "<tds:Version>" + tt("Major", std::to_string(nMajor)) +
           tt("Minor", std::to_string(nMinor)) + "</tds:Version></tds:Service>";
}

std::string resolution() {
    return "<tt:Resolution>" + tt("Width", std::to_string(kWidth)) +
           tt("Height", std::to_string(kHeight)) + "</tt:Resolution>";
}

} // namespace

std::string serviceAddress(const std::string& strHost, const char* szPath) {
    return "http://" + strHost + szPath;
}

namespace {

// Reads "[+-]hh[:mm[:ss]]" at p_nAt into seconds; hours up to p_nMaxHour.
bool readOffset(const std::string& s, size_t& p_nAt, int p_nMaxHour, long& p_nSeconds) {
    int nSign = 1;
    if (p_nAt < s.size() && (s[p_nAt] == '+' || s[p_nAt] == '-'))
        nSign = s[p_nAt++] == '-' ? -1 : 1;
    long nParts[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
        if (i > 0) {
            if (p_nAt >= s.size() || s[p_nAt] != ':')
                break;
            ++p_nAt;
        }
        const size_t nStart = p_nAt;
        while (p_nAt < s.size() && std::isdigit(static_cast<unsigned char>(s[p_nAt])) &&
               p_nAt - nStart < 3)
            nParts[i] = nParts[i] * 10 + (s[p_nAt++] - '0');
        if (p_nAt == nStart || p_nAt - nStart > (i == 0 ? 3u : 2u) || (i > 0 && nParts[i] > 59))
            return false;
    }
    if (nParts[0] > p_nMaxHour)
        return false;
    p_nSeconds = nSign * (nParts[0] * 3600 + nParts[1] * 60 + nParts[2]);
    return true;
}

// A zone name: three or more letters, or "<...>" of letters, digits, '+' and '-'.
bool readZoneName(const std::string& s, size_t& p_nAt) {
    const size_t nStart = p_nAt;
    if (p_nAt < s.size() && s[p_nAt] == '<') {
        ++p_nAt;
        while (p_nAt < s.size() && (std::isalnum(static_cast<unsigned char>(s[p_nAt])) ||
                                    s[p_nAt] == '+' || s[p_nAt] == '-'))
            ++p_nAt;
        if (p_nAt >= s.size() || s[p_nAt] != '>' || p_nAt - nStart - 1 < 3)
            return false;
        ++p_nAt;
        return true;
    }
    while (p_nAt < s.size() && std::isalpha(static_cast<unsigned char>(s[p_nAt])))
        ++p_nAt;
    return p_nAt - nStart >= 3;
}

bool readNumber(const std::string& s, size_t& p_nAt, long p_nMin, long p_nMax) {
    const size_t nStart = p_nAt;
    long n = 0;
    while (p_nAt < s.size() && std::isdigit(static_cast<unsigned char>(s[p_nAt])) &&
           p_nAt - nStart < 4)
        n = n * 10 + (s[p_nAt++] - '0');
    return p_nAt > nStart && n >= p_nMin && n <= p_nMax;
}

// A rule's date ("Jn", "n", "Mm.w.d") and optional "/time".
bool readRule(const std::string& s, size_t& p_nAt) {
    if (p_nAt < s.size() && s[p_nAt] == 'J') {
        ++p_nAt;
        if (!readNumber(s, p_nAt, 1, 365))
            return false;
    } else if (p_nAt < s.size() && s[p_nAt] == 'M') {
        ++p_nAt;
        if (!readNumber(s, p_nAt, 1, 12) || p_nAt >= s.size() || s[p_nAt++] != '.' ||
            !readNumber(s, p_nAt, 1, 5) || p_nAt >= s.size() || s[p_nAt++] != '.' ||
            !readNumber(s, p_nAt, 0, 6))
            return false;
    } else if (!readNumber(s, p_nAt, 0, 365)) {
        return false;
    }
    if (p_nAt < s.size() && s[p_nAt] == '/') {
        ++p_nAt;
        long nTime = 0;
        return readOffset(s, p_nAt, 167, nTime);
    }
    return true;
}

std::string dateTimeOf(long long nSeconds) {
    const std::time_t t = static_cast<std::time_t>(nSeconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    return dateTime(
        KPDateTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec});
}

} // namespace

bool parsePosixTimeZone(const std::string& p_strTz, long& p_nOffset, bool& p_bSummer) {
    const std::string& s = p_strTz;
    size_t nAt = 0;
    long nOffset = 0;
    if (!readZoneName(s, nAt) || !readOffset(s, nAt, 24, nOffset))
        return false;
    bool bSummer = false;
    if (nAt < s.size()) {
        if (!readZoneName(s, nAt))
            return false;
        bSummer = true;
        long nSummer = 0;
        if (nAt < s.size() && s[nAt] != ',' && !readOffset(s, nAt, 24, nSummer))
            return false;
        if (nAt < s.size()) {
            if (s[nAt++] != ',' || !readRule(s, nAt) || nAt >= s.size() || s[nAt++] != ',' ||
                !readRule(s, nAt))
                return false;
        }
    }
    if (nAt != s.size())
        return false;
    p_nOffset = nOffset;
    p_bSummer = bSummer;
    return true;
}

bool isValidDateTime(const KPDateTime& t) {
    if (t.year < 1970 || t.year > 2099 || t.month < 1 || t.month > 12 || t.day < 1 || t.hour < 0 ||
        t.hour > 23 || t.minute < 0 || t.minute > 59 || t.second < 0 || t.second > 59)
        return false;
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool bLeap = (t.year % 4 == 0 && t.year % 100 != 0) || t.year % 400 == 0;
    return t.day <= kDays[t.month - 1] + (t.month == 2 && bLeap ? 1 : 0);
}

long long utcSecondsOf(const KPDateTime& t) {
    std::tm tm{};
    tm.tm_year = t.year - 1900;
    tm.tm_mon = t.month - 1;
    tm.tm_mday = t.day;
    tm.tm_hour = t.hour;
    tm.tm_min = t.minute;
    tm.tm_sec = t.second;
    return timegm(&tm);
}

std::string systemDateAndTimeResponse(const KPDateTime& now, const TimeSetting& setting) {
    std::string strLocal;
    long nOffset = 0;
    bool bSummer = false;
    if (parsePosixTimeZone(setting.strTz, nOffset, bSummer) &&
        (!bSummer || !setting.bDaylightSavings)) {
        // POSIX offsets count west of Greenwich: local = UTC - offset.
        strLocal =
            "<tt:LocalDateTime>" + dateTimeOf(utcSecondsOf(now) - nOffset) + "</tt:LocalDateTime>";
    }
    return open("GetSystemDateAndTimeResponse", "tds", ns::kTds) + "<tds:SystemDateAndTime>" +
           tt("DateTimeType", "Manual") +
           tt("DaylightSavings", setting.bDaylightSavings ? "true" : "false") + "<tt:TimeZone>" +
           tt("TZ", sensor_onvif::xmlEscape(setting.strTz)) + "</tt:TimeZone>" +
           "<tt:UTCDateTime>" + dateTime(now) + "</tt:UTCDateTime>" + strLocal +
           "</tds:SystemDateAndTime>" + close("GetSystemDateAndTimeResponse", "tds");
}

bool capabilitiesResponse(const std::string& strHost, const std::vector<std::string>& categories,
                          std::string& strOut) {
    // No category asks for all of them; several ask for their union.
    bool bDevice = categories.empty();
    bool bMedia = categories.empty();
    bool bImaging = categories.empty();
    for (const std::string& strCategory : categories) {
        const bool bAll = strCategory == "All";
        if (!bAll && strCategory != "Device" && strCategory != "Media" && strCategory != "Imaging")
            return false;
        bDevice = bDevice || bAll || strCategory == "Device";
        bMedia = bMedia || bAll || strCategory == "Media";
        bImaging = bImaging || bAll || strCategory == "Imaging";
    }
    strOut = open("GetCapabilitiesResponse", "tds", ns::kTds) + "<tds:Capabilities>";
    if (bDevice)
        strOut += "<tt:Device>" +
                  tt("XAddr", sensor_onvif::xmlEscape(serviceAddress(strHost, kDevicePath))) +
                  "<tt:Network>" + tt("IPFilter", "false") + tt("ZeroConfiguration", "false") +
                  tt("IPVersion6", "false") + tt("DynDNS", "false") + "</tt:Network>" +
                  "<tt:System>" + tt("DiscoveryResolve", "false") + tt("DiscoveryBye", "false") +
                  tt("RemoteDiscovery", "false") + tt("SystemBackup", "false") +
                  tt("SystemLogging", "false") + tt("FirmwareUpgrade", "false") +
                  "<tt:SupportedVersions>" + tt("Major", std::to_string(kDeviceMajor)) +
                  tt("Minor", std::to_string(kDeviceMinor)) +
                  "</tt:SupportedVersions></tt:System>" + "<tt:Security>" + tt("TLS1.1", "false") +
                  tt("TLS1.2", "false") + tt("OnboardKeyGeneration", "false") +
                  tt("AccessPolicyConfig", "false") + tt("X.509Token", "false") +
                  tt("SAMLToken", "false") + tt("KerberosToken", "false") +
                  tt("RELToken", "false") + "</tt:Security>" + "</tt:Device>";
    if (bImaging)
        strOut += "<tt:Imaging>" +
                  tt("XAddr", sensor_onvif::xmlEscape(
                                  serviceAddress(strHost, sensor_onvif::ImagingService::kPath))) +
                  "</tt:Imaging>";
    if (bMedia)
        strOut += "<tt:Media>" +
                  tt("XAddr", sensor_onvif::xmlEscape(serviceAddress(strHost, kMediaPath))) +
                  "<tt:StreamingCapabilities>" + tt("RTPMulticast", "false") +
                  tt("RTP_TCP", "false") + tt("RTP_RTSP_TCP", "false") +
                  "</tt:StreamingCapabilities></tt:Media>";
    strOut += "</tds:Capabilities>" + close("GetCapabilitiesResponse", "tds");
    return true;
}

std::string servicesResponse(const std::string& strHost, bool bIncludeCapability,
                             const std::string& strImagingCapabilities, bool bDiscovery) {
    return open("GetServicesResponse", "tds", ns::kTds) +
           service(ns::kTds, serviceAddress(strHost, kDevicePath),
                   bIncludeCapability ? deviceCapabilitiesOfService(bDiscovery) : "", kDeviceMajor,
                   kDeviceMinor) +
           service(ns::kTrt, serviceAddress(strHost, kMediaPath),
                   bIncludeCapability ? mediaCapabilitiesOfService() : "", kMediaMajor,
                   kMediaMinor) +
           service(ns::kTimg, serviceAddress(strHost, sensor_onvif::ImagingService::kPath),
                   bIncludeCapability ? strImagingCapabilities : "",
                   sensor_onvif::ImagingService::kVersionMajor,
                   sensor_onvif::ImagingService::kVersionMinor) +
           close("GetServicesResponse", "tds");
}

std::string deviceServiceCapabilitiesResponse(bool bDiscovery) {
    return open("GetServiceCapabilitiesResponse", "tds", ns::kTds) +
           deviceCapabilitiesOfService(bDiscovery) + close("GetServiceCapabilitiesResponse", "tds");
}

std::string mediaServiceCapabilitiesResponse() {
    return open("GetServiceCapabilitiesResponse", "trt", ns::kTrt) + mediaCapabilitiesOfService() +
           close("GetServiceCapabilitiesResponse", "trt");
}

std::string wsdlUrlResponse() {
    return open("GetWsdlUrlResponse", "tds", ns::kTds) +
           "<tds:WsdlUrl>http://www.onvif.org/ver10/device/wsdl/devicemgmt.wsdl</tds:WsdlUrl>" +
           close("GetWsdlUrlResponse", "tds");
}

std::string hostnameResponse(const std::string& strName) {
    return open("GetHostnameResponse", "tds", ns::kTds) + "<tds:HostnameInformation>" +
           tt("FromDHCP", "false") + tt("Name", sensor_onvif::xmlEscape(strName)) +
           "</tds:HostnameInformation>" + close("GetHostnameResponse", "tds");
}

std::string setHostnameResponse() {
    return open("SetHostnameResponse", "tds", ns::kTds) + close("SetHostnameResponse", "tds");
}

std::string endpointReferenceResponse(const std::string& strGuid) {
    return open("GetEndpointReferenceResponse", "tds", ns::kTds) + "<tds:GUID>" +
           sensor_onvif::xmlEscape(strGuid) + "</tds:GUID>" +
           close("GetEndpointReferenceResponse", "tds");
}

std::string deviceInformationResponse(const DeviceFacts& facts) {
    return open("GetDeviceInformationResponse", "tds", ns::kTds) + "<tds:Manufacturer>" +
           sensor_onvif::xmlEscape(facts.strManufacturer) + "</tds:Manufacturer><tds:Model>" +
           sensor_onvif::xmlEscape(facts.strModel) + "</tds:Model><tds:FirmwareVersion>" +
           sensor_onvif::xmlEscape(facts.strFirmwareVersion) +
           "</tds:FirmwareVersion><tds:SerialNumber>" +
           sensor_onvif::xmlEscape(facts.strSerialNumber) + "</tds:SerialNumber><tds:HardwareId>" +
           sensor_onvif::xmlEscape(facts.strHardwareId) + "</tds:HardwareId>" +
           close("GetDeviceInformationResponse", "tds");
}

std::vector<std::string> deviceScopes(const DeviceFacts& facts) {
    // Scope items are URIs: the model goes in percent-free, blanks as '_'.
    std::string strModel;
    for (const char ch : facts.strModel)
        strModel += (ch == ' ' || ch == '/' || ch == '%') ? '_' : ch;
    return {"onvif://www.onvif.org/Profile/Streaming", "onvif://www.onvif.org/type/video_encoder",
            "onvif://www.onvif.org/location/simulated",
            "onvif://www.onvif.org/hardware/" + strModel, "onvif://www.onvif.org/name/sensorctl"};
}

std::string scopesResponse(const std::vector<ScopeList::Scope>& scopes) {
    std::string strOut = open("GetScopesResponse", "tds", ns::kTds);
    for (const ScopeList::Scope& scope : scopes)
        strOut += "<tds:Scopes>" + tt("ScopeDef", scope.bFixed ? "Fixed" : "Configurable") +
                  tt("ScopeItem", sensor_onvif::xmlEscape(scope.strItem)) + "</tds:Scopes>";
    return strOut + close("GetScopesResponse", "tds");
}

std::string removeScopesResponse(const std::vector<std::string>& items) {
    std::string strOut = open("RemoveScopesResponse", "tds", ns::kTds);
    for (const std::string& item : items)
        strOut += "<tds:ScopeItem>" + sensor_onvif::xmlEscape(item) + "</tds:ScopeItem>";
    return strOut + close("RemoveScopesResponse", "tds");
}

std::string emptyDeviceResponse(const char* szElement) {
    return open(szElement, "tds", ns::kTds) + close(szElement, "tds");
}

std::string discoveryModeResponse(const char* szMode) {
    return open("GetDiscoveryModeResponse", "tds", ns::kTds) + "<tds:DiscoveryMode>" + szMode +
           "</tds:DiscoveryMode>" + close("GetDiscoveryModeResponse", "tds");
}

std::string networkInterfacesResponse() {
    // The loopback interface: no hardware address, so the all-zero one.
    return open("GetNetworkInterfacesResponse", "tds", ns::kTds) +
           "<tds:NetworkInterfaces token=\"lo\">" + tt("Enabled", "true") + "<tt:Info>" +
           tt("Name", "lo") + tt("HwAddress", "00:00:00:00:00:00") + tt("MTU", "65536") +
           "</tt:Info><tt:IPv4>" + tt("Enabled", "true") + "<tt:Config><tt:Manual>" +
           tt("Address", "127.0.0.1") + tt("PrefixLength", "8") + "</tt:Manual>" +
           tt("DHCP", "false") + "</tt:Config></tt:IPv4></tds:NetworkInterfaces>" +
           close("GetNetworkInterfacesResponse", "tds");
}

std::string dnsResponse() {
    return open("GetDNSResponse", "tds", ns::kTds) + "<tds:DNSInformation>" +
           tt("FromDHCP", "false") + "</tds:DNSInformation>" + close("GetDNSResponse", "tds");
}

std::string ntpResponse() {
    return open("GetNTPResponse", "tds", ns::kTds) + "<tds:NTPInformation>" +
           tt("FromDHCP", "false") + "</tds:NTPInformation>" + close("GetNTPResponse", "tds");
}

std::string networkProtocolsResponse(int nHttpPort) {
    return open("GetNetworkProtocolsResponse", "tds", ns::kTds) + "<tds:NetworkProtocols>" +
           tt("Name", "HTTP") + tt("Enabled", "true") + tt("Port", std::to_string(nHttpPort)) +
           "</tds:NetworkProtocols>" + close("GetNetworkProtocolsResponse", "tds");
}

std::string networkDefaultGatewayResponse() {
    return open("GetNetworkDefaultGatewayResponse", "tds", ns::kTds) + "<tds:NetworkGateway/>" +
           close("GetNetworkDefaultGatewayResponse", "tds");
}

std::string usersResponse(const std::vector<std::pair<std::string, std::string>>& users) {
    std::string strOut = open("GetUsersResponse", "tds", ns::kTds);
    for (const auto& user : users)
        strOut += "<tds:User>" + tt("Username", sensor_onvif::xmlEscape(user.first)) +
                  tt("UserLevel", user.second) + "</tds:User>";
    return strOut + close("GetUsersResponse", "tds");
}

std::string systemRebootResponse(const std::string& strMessage) {
    return open("SystemRebootResponse", "tds", ns::kTds) + "<tds:Message>" +
           sensor_onvif::xmlEscape(strMessage) + "</tds:Message>" +
           close("SystemRebootResponse", "tds");
}

std::string profilesResponse() {
    // A client picks the profile whose video source configuration names the
    // source and which has an encoder: the profile carries both.
    return open("GetProfilesResponse", "trt", ns::kTrt) + "<trt:Profiles token=\"" + kProfileToken +
           "\" fixed=\"true\">" + tt("Name", "MainStream") +
           "<tt:VideoSourceConfiguration token=\"" + kVideoSourceConfigToken + "\">" +
           tt("Name", "VideoSourceConfig") + tt("UseCount", "1") +
           tt("SourceToken", kVideoSourceToken) + "<tt:Bounds x=\"0\" y=\"0\" width=\"" +
           std::to_string(kWidth) + "\" height=\"" + std::to_string(kHeight) + "\"/>" +
           "</tt:VideoSourceConfiguration>" +
           "<tt:VideoEncoderConfiguration token=\"VideoEncoderConfig_1\">" +
           tt("Name", "VideoEncoderConfig") + tt("UseCount", "1") + tt("Encoding", "H264") +
           resolution() + tt("Quality", "4") + "<tt:RateControl>" +
           tt("FrameRateLimit", std::to_string(kFrameRate)) + tt("EncodingInterval", "1") +
           tt("BitrateLimit", "4096") + "</tt:RateControl><tt:H264>" + tt("GovLength", "50") +
           tt("H264Profile", "Main") + "</tt:H264><tt:Multicast><tt:Address>" + tt("Type", "IPv4") +
           tt("IPv4Address", "0.0.0.0") + "</tt:Address>" + tt("Port", "0") + tt("TTL", "0") +
           tt("AutoStart", "false") + "</tt:Multicast>" + tt("SessionTimeout", "PT60S") +
           "</tt:VideoEncoderConfiguration></trt:Profiles>" + close("GetProfilesResponse", "trt");
}

std::string videoSourcesResponse() {
    return open("GetVideoSourcesResponse", "trt", ns::kTrt) + "<trt:VideoSources token=\"" +
           kVideoSourceToken + "\">" + tt("Framerate", std::to_string(kFrameRate)) + resolution() +
           "</trt:VideoSources>" + close("GetVideoSourcesResponse", "trt");
}

} // namespace onvif
} // namespace sensorctl
