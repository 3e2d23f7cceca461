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
           "<tds:Security UsernameToken=\"true\" HttpDigest=\"false\" TLS1.2=\"false\"/>"
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

bool capabilitiesResponse(const std::string& strHost, const std::string& strCategory,
                          std::string& strOut) {
    const bool bAll = strCategory.empty() || strCategory == "All";
    const bool bDevice = bAll || strCategory == "Device";
    const bool bMedia = bAll || strCategory == "Media";
    const bool bImaging = bAll || strCategory == "Imaging";
    if (!bDevice && !bMedia && !bImaging)
        return false;
    strOut = open("GetCapabilitiesResponse", "tds", ns::kTds) + "<tds:Capabilities>";
    if (bDevice)
        strOut += "<tt:Device>" +
                  tt("XAddr", sensor_onvif::xmlEscape(serviceAddress(strHost, kDevicePath))) +
                  "<tt:Network>" + tt("IPFilter", "false") + tt("ZeroConfiguration", "false") +
                  tt("IPVersion6", "false") + tt("DynDNS", "false") + "</tt:Network>" +
                  "<tt:System>" + tt("DiscoveryResolve", "false") + tt("DiscoveryBye", "false") +
                  tt("RemoteDiscovery", "false") + tt("SystemBackup", "false") +
                  tt("SystemLogging", "false") + tt("FirmwareUpgrade", "false") +
                  "<tt:SupportedVersions>" + tt("Major", "2") + tt("Minor", "60") +
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
                   bIncludeCapability ? deviceCapabilitiesOfService() : "", 2, 60) +
           service(ns::kTrt, serviceAddress(strHost, kMediaPath),
                   bIncludeCapability ? mediaCapabilitiesOfService() : "", 2, 60) +
           service(ns::kTimg, serviceAddress(strHost, sensor_onvif::ImagingService::kPath),
                   bIncludeCapability ? strImagingCapabilities : "", 2, 60) +
           close("GetServicesResponse", "tds");
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
