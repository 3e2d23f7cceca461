// The SOAP faults: the kinds the layer raises, their envelope and their
// HTTP status. Their own unit because the endpoint and every service answer
// with them.
#include "sensor-onvif/Soap.h"
#include "soap/SoapEnvelope.h"

namespace sensor_onvif {

using soap::envelopeOpen;
using soap::kEnvelopeClose;

// Faults ----------------------------------------------------------------------

SoapFault SoapFault::sender(std::string p_strSub, std::string p_strSub2, std::string p_strReason) {
    return SoapFault{"env:Sender", std::move(p_strSub), std::move(p_strSub2),
                     std::move(p_strReason)};
}

SoapFault SoapFault::receiver(std::string p_strSub, std::string p_strSub2,
                              std::string p_strReason) {
    return SoapFault{"env:Receiver", std::move(p_strSub), std::move(p_strSub2),
                     std::move(p_strReason)};
}

SoapFault SoapFault::notWellFormed(std::string p_strReason) {
    return sender("ter:WellFormed", "", std::move(p_strReason));
}

SoapFault SoapFault::bodyTooLarge(size_t p_nLimit) {
    // Refused unread, so nothing is known of its XML: the arguments are what
    // the device will not take (more than any operation carries).
    return sender("ter:InvalidArgs", "",
                  "request body exceeds " + std::to_string(p_nLimit) + " bytes");
}

std::string faultEnvelope(const SoapFault& p_objFault) {
    std::string out = envelopeOpen();
    out += "<env:Fault><env:Code><env:Value>" + xmlEscape(p_objFault.code) + "</env:Value>";
    if (!p_objFault.subcode.empty()) {
        out += "<env:Subcode><env:Value>" + xmlEscape(p_objFault.subcode) + "</env:Value>";
        if (!p_objFault.subcode2.empty())
            out += "<env:Subcode><env:Value>" + xmlEscape(p_objFault.subcode2) +
                   "</env:Value></env:Subcode>";
        out += "</env:Subcode>";
    }
    out += "</env:Code><env:Reason><env:Text xml:lang=\"en\">" + xmlEscape(p_objFault.reason) +
           "</env:Text></env:Reason></env:Fault>";
    out += kEnvelopeClose;
    return out;
}

int faultStatus(const SoapFault& p_objFault) {
    return p_objFault.code == "env:Sender" ? 400 : 500;
}

} // namespace sensor_onvif
