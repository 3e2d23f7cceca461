#include "config/SensorXml.h"

#include <cstring>
#include <string>

namespace {

// TinyXML steps over a UTF-8 sequence by the length its first byte announces,
// before looking at the bytes it skips: a lead byte just before the end of
// the text (a cut or corrupted style document) takes it past the terminator.
// The copy it parses ends in enough NULs that any such step lands on one.
const size_t kParsePadding = 8;

// Whether TinyXML can parse the text where it lies: no byte of a multi-byte
// sequence among its last kParsePadding bytes, so no step can pass its end.
bool endsSafely(const char* text, size_t length) {
    const size_t nTail = length < kParsePadding ? length : kParsePadding;
    for (size_t i = length - nTail; i < length; ++i)
        if (static_cast<unsigned char>(text[i]) >= 0x80)
            return false;
    return true;
}

} // namespace

bool SensorXmlDocument::LoadMem(const char* text, TiXmlEncoding encoding) {
    Clear();
    ClearError();
    if (text == nullptr)
        return false;
    const size_t nLength = std::strlen(text);
    if (endsSafely(text, nLength)) {
        Parse(text, nullptr, encoding);
        return !Error();
    }
    std::string strPadded(text, nLength);
    strPadded.append(kParsePadding, '\0');
    Parse(strPadded.c_str(), nullptr, encoding);
    return !Error();
}

void SensorXmlDocument::getXmlString(std::string& out) const {
    TiXmlPrinter objPrinter;
    Accept(&objPrinter);
    out = objPrinter.Str();
}
