// Parsing a text with TinyXML safely, for the requests and the camera's style.
#pragma once

#include <string>

#include <tinyxml.h>

namespace sensor_onvif {

// TinyXML steps over a multi-byte UTF-8 sequence by the length its first byte
// announces, even past the terminator: the text it parses ends in NUL padding
// longer than any sequence. True when the document parsed and has a root.
inline bool parsePadded(const std::string& p_strText, TiXmlDocument& p_objDoc) {
    std::string strPadded = p_strText;
    strPadded.append(8, '\0');
    p_objDoc.Parse(strPadded.c_str(), nullptr, TIXML_ENCODING_UTF8);
    return !p_objDoc.Error() && p_objDoc.RootElement() != nullptr;
}

} // namespace sensor_onvif
