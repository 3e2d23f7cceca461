#include "OnvifDevice.h"

#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"

#include <cstdio>

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

std::string deviceCapabilitiesOfService() {
    return "<tds:Capabilities>"
           "<tds:Network IPFilter=\"false\" ZeroConfiguration=\"false\" IPVersion6=\"false\" "
           "DynDNS=\"false\"/>"
           "<tds:Security UsernameToken=\"true\" HttpDigest=\"true\" TLS1.2=\"false\" "
           "DefaultAccessPolicy=\"true\" HashingAlgorithms=\"SHA-256 MD5\"/>"
           "<tds:System DiscoveryResolve=\"false\" DiscoveryBye=\"false\" "
           "RemoteDiscovery=\"false\" SystemBackup=\"false\" SystemLogging=\"false\" "
           "FirmwareUpgrade=\"false\"/>"
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

std::string systemDateAndTimeResponse(const KPDateTime& now) {
    return open("GetSystemDateAndTimeResponse", "tds", ns::kTds) + "<tds:SystemDateAndTime>" +
           tt("DateTimeType", "Manual") + tt("DaylightSavings", "false") + "<tt:TimeZone>" +
           tt("TZ", "UTC0") + "</tt:TimeZone>" + "<tt:UTCDateTime>" + dateTime(now) +
           "</tt:UTCDateTime><tt:LocalDateTime>" + dateTime(now) +
           "</tt:LocalDateTime></tds:SystemDateAndTime>" +
           close("GetSystemDateAndTimeResponse", "tds");
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
                             const std::string& strImagingCapabilities) {
    return open("GetServicesResponse", "tds", ns::kTds) +
           service(ns::kTds, serviceAddress(strHost, kDevicePath),
                   bIncludeCapability ? deviceCapabilitiesOfService() : "", kDeviceMajor,
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

std::string deviceServiceCapabilitiesResponse() {
    return open("GetServiceCapabilitiesResponse", "tds", ns::kTds) + deviceCapabilitiesOfService() +
           close("GetServiceCapabilitiesResponse", "tds");
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

std::string scopesResponse(const DeviceFacts& facts) {
    std::string strOut = open("GetScopesResponse", "tds", ns::kTds);
    for (const std::string& item : deviceScopes(facts))
        strOut += "<tds:Scopes>" + tt("ScopeDef", "Fixed") +
                  tt("ScopeItem", sensor_onvif::xmlEscape(item)) + "</tds:Scopes>";
    return strOut + close("GetScopesResponse", "tds");
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
