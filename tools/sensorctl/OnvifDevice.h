// The ONVIF device and media services of the simulated camera: just what a
// client needs to find and reach the imaging service. Each answer is the
// body element of the response, with its own namespace declarations, so it
// reads the same whatever envelope carries it.
#pragma once

#include <string>
#include <vector>

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

// The device clock as the camera's UTC time (it keeps no time zone).
std::string systemDateAndTimeResponse(const KPDateTime& now);

// The capabilities of every category asked for ("All", "Device", "Media",
// "Imaging"; none asked means all). A category among them that names a
// service this camera does not have (PTZ, Events, Analytics): false.
bool capabilitiesResponse(const std::string& strHost, const std::vector<std::string>& categories,
                          std::string& strOut);

// The device, media and imaging services; with their capabilities when asked.
// strImagingCapabilities is the imaging service's capabilities element.
std::string servicesResponse(const std::string& strHost, bool bIncludeCapability,
                             const std::string& strImagingCapabilities);

// The device and media services' own capabilities (GetServiceCapabilities).
std::string deviceServiceCapabilitiesResponse();
std::string mediaServiceCapabilitiesResponse();

std::string wsdlUrlResponse();
std::string hostnameResponse(const std::string& strName);
std::string setHostnameResponse();
std::string endpointReferenceResponse(const std::string& strGuid);

std::string deviceInformationResponse(const DeviceFacts& facts);
// The camera's fixed scopes, which GetScopes lists and WS-Discovery offers.
std::vector<std::string> deviceScopes(const DeviceFacts& facts);
std::string scopesResponse(const DeviceFacts& facts);

// The media service: one fixed profile over the one video source.
std::string profilesResponse();
std::string videoSourcesResponse();

} // namespace onvif
} // namespace sensorctl
