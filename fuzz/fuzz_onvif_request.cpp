// The ONVIF imaging service over arbitrary requests: the input is fed once
// as a whole HTTP body (envelope parsing, limits, authentication) and once as
// the content of an authenticated SetImagingSettings (the settings decoding).
// A request that ends in a fault must leave every mapped key as it was.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"

namespace {

const long long kNow = 1795420800LL;

std::vector<int> mappedValues(ISensorController& p_objCtl) {
    std::vector<int> out;
    for (const sensor_onvif::FieldMap& f : sensor_onvif::imagingFieldMap()) {
        int n = -1;
        (void)p_objCtl.getParameter(static_cast<int>(f.key), n);
        out.push_back(n);
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A fresh controller, endpoint and service per input: what an input finds
    // replays from that input alone.
    fuzzsupport::FreshController objFresh;
    ISensorController& ctl = *objFresh;
    sensor_onvif::SoapEndpoint endpoint("admin", "secret", [] { return kNow; });
    sensor_onvif::ImagingService imaging(ctl);
    imaging.registerOn(endpoint);

    const std::string input(reinterpret_cast<const char*>(data), size);
    (void)endpoint.handle(sensor_onvif::ImagingService::kPath, input);

    const std::string nonce = "fuzz-nonce";
    const std::string created = sensor_onvif::formatDateTime(kNow);
    const std::string body =
        "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Header>"
        "<Security xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-wssecurity-secext-1.0.xsd\"><UsernameToken><Username>admin</Username>"
        "<Password Type=\"#PasswordDigest\">" +
        sensor_onvif::passwordDigest(nonce, created, "secret") + "</Password><Nonce>" +
        sensor_onvif::base64Encode(nonce) + "</Nonce><Created>" + created +
        "</Created></UsernameToken></Security></s:Header><s:Body>"
        "<SetImagingSettings xmlns=\"http://www.onvif.org/ver20/imaging/wsdl\">"
        "<VideoSourceToken>VideoSource_1</VideoSourceToken><ImagingSettings "
        "xmlns:tt=\"http://www.onvif.org/ver10/schema\">" +
        input +
        "</ImagingSettings><ForcePersistence>false</ForcePersistence></SetImagingSettings>"
        "</s:Body></s:Envelope>";
    const std::vector<int> before = mappedValues(ctl);
    const sensor_onvif::HttpReply reply =
        endpoint.handle(sensor_onvif::ImagingService::kPath, body);
    if (reply.status != 200 && mappedValues(ctl) != before)
        __builtin_trap();
    return 0;
}
