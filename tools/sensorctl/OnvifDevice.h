// The ONVIF device and media services of the simulated camera: just what a
// client needs to find and reach the imaging service. Each answer is the
// body element of the response, with its own namespace declarations, so it
// reads the same whatever envelope carries it.
#pragma once

#include <string>
#include <vector>

#include "Scopes.h"
#include "host/KPDeviceTime.h"

namespace sensorctl {
namespace onvif {

// The camera's one video source, its configuration and its one profile.
extern const char* const kVideoSourceToken;
extern const char* const kVideoSourceConfigToken;
extern const char* const kProfileToken;

// What the device says of itself.
struct DeviceFacts {
    std::string strManufacturer;
    std::string strModel;
    std::string strFirmwareVersion;
    std::string strSerialNumber;
    std::string strHardwareId;
    std::string strEndpointReference; // "urn:uuid:...", the device's lasting name
};

// The paths of the device and media services (the imaging service's is
// sensor_onvif::ImagingService::kPath).
extern const char* const kDevicePath;
extern const char* const kMediaPath;

// A service's address: "http://HOST" and its path, HOST as the client
// reached the camera (its Host header).
std::string serviceAddress(const std::string& strHost, const char* szPath);

// The time zone and daylight saving a client set; the device clock itself
// runs in UTC.
struct TimeSetting {
    std::string strTz = "UTC0"; // POSIX 1003.1 section 8.3
    bool bDaylightSavings = false;
};

// The device clock as the camera's UTC time, with the time zone set. The
// local time is given when the zone alone fixes it: a zone without a summer
// time, or daylight saving off (its rules then do not apply); the camera
// does not evaluate summer time rules, so otherwise it leaves the optional
// LocalDateTime out rather than state a wrong one.
std::string systemDateAndTimeResponse(const KPDateTime& now, const TimeSetting& setting);

// Reads a POSIX time zone ("CET-1CEST,M3.5.0,M10.5.0/3", "<+0530>-5:30",
// "UTC0"): a standard name and offset, optionally a summer name, its offset
// and the two rules. false for anything else. p_nOffset is the standard
// time's seconds west of UTC, p_bSummer whether a summer time is named.
bool parsePosixTimeZone(const std::string& p_strTz, long& p_nOffset, bool& p_bSummer);

// A UTC date and time that exists (the Gregorian calendar from 1970 to 2099).
bool isValidDateTime(const KPDateTime& t);

// A device time read as UTC, in seconds since 1970.
long long utcSecondsOf(const KPDateTime& t);

// The capabilities of every category asked for ("All", "Device", "Media",
// "Imaging"; none asked means all). A category among them that names a
// service this camera does not have (PTZ, Events, Analytics): false.
bool capabilitiesResponse(const std::string& strHost, const std::vector<std::string>& categories,
                          std::string& strOut);

// The device, media and imaging services; with their capabilities when asked.
// strImagingCapabilities is the imaging service's capabilities element.
std::string servicesResponse(const std::string& strHost, bool bIncludeCapability,
                             const std::string& strImagingCapabilities, bool bDiscovery);

// The device and media services' own capabilities (GetServiceCapabilities);
// bDiscovery: WS-Discovery runs (otherwise DiscoveryNotSupported).
std::string deviceServiceCapabilitiesResponse(bool bDiscovery);
std::string mediaServiceCapabilitiesResponse();

std::string wsdlUrlResponse();
std::string hostnameResponse(const std::string& strName);
std::string setHostnameResponse();
std::string endpointReferenceResponse(const std::string& strGuid);

std::string deviceInformationResponse(const DeviceFacts& facts);
// The camera's fixed scopes, which GetScopes lists and WS-Discovery offers.
std::vector<std::string> deviceScopes(const DeviceFacts& facts);
std::string scopesResponse(const std::vector<ScopeList::Scope>& scopes);
std::string removeScopesResponse(const std::vector<std::string>& items);

// A response without content ("SetScopesResponse", ...) of the device service.
std::string emptyDeviceResponse(const char* szElement);

std::string discoveryModeResponse(const char* szMode);

// The network as the simulated camera has it: it serves on the loopback
// interface alone, at a fixed address, without DHCP, DNS servers, NTP
// servers or a gateway; HTTP on nHttpPort is its one protocol.
std::string networkInterfacesResponse();
std::string dnsResponse();
std::string ntpResponse();
std::string networkProtocolsResponse(int nHttpPort);
std::string networkDefaultGatewayResponse();

// The users by name and level ("Administrator", ...); never their passwords.
std::string usersResponse(const std::vector<std::pair<std::string, std::string>>& users);

std::string systemRebootResponse(const std::string& strMessage);

// The media service: one fixed profile over the one video source.
std::string profilesResponse();
std::string videoSourcesResponse();

} // namespace onvif
} // namespace sensorctl
