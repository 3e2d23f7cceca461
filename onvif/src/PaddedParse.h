// Parsing a text with TinyXML safely, for the requests and the camera's style.
#pragma once

#include <string>

#include <tinyxml.h>

namespace sensor_onvif {

// TinyXML steps over a multi-byte UTF-8 sequence by the length its first byte
// announces, even past the terminator: the text it parses ends in NUL padding
// longer than any sequence (at most four bytes). The text is taken by value,
// so that a temporary is padded where it lies. True when the document parsed
// and has a root.
inline bool parsePadded(std::string p_strText, TiXmlDocument& p_objDoc) {
    const size_t kPadding = 8;
    p_strText.append(kPadding, '\0');
    p_objDoc.Parse(p_strText.c_str(), nullptr, TIXML_ENCODING_UTF8);
    return !p_objDoc.Error() && p_objDoc.RootElement() != nullptr;
}

} // namespace sensor_onvif
