// The single elements and ranges of the imaging answers.
#include "imaging/XmlNesting.h"

namespace sensor_onvif {
namespace imaging {

std::string lastPart(const std::string& p_strPath) {
    const size_t n = p_strPath.rfind('/');
    return n == std::string::npos ? p_strPath : p_strPath.substr(n + 1);
}

std::string element(const std::string& p_strName, const std::string& p_strText) {
    return "<tt:" + p_strName + ">" + xmlEscape(p_strText) + "</tt:" + p_strName + ">";
}

std::string range(const std::string& p_strName, double p_dMin, double p_dMax) {
    return "<tt:" + p_strName + "><tt:Min>" + formatFloat(p_dMin) + "</tt:Min><tt:Max>" +
           formatFloat(p_dMax) + "</tt:Max></tt:" + p_strName + ">";
}

} // namespace imaging
} // namespace sensor_onvif
