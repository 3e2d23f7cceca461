// The XML Schema texts of the SOAP layer: escaping, xs:float, xs:boolean,
// xs:dateTime (declared in the public header) and the blank trimming they
// and the envelope share. Their own unit because every other part of the
// layer and the services read and write these texts.
#pragma once

#include <string>

namespace sensor_onvif {
namespace soap {

// The text without blanks (space, tab, CR, LF) at either end.
std::string trim(const std::string& p_strText);

} // namespace soap
} // namespace sensor_onvif
