#include "config/SensorXml.h"

#include <cstring>
#include <string>

namespace {

// TinyXML steps over a UTF-8 sequence by the length its first byte announces,
// before looking at the bytes it skips: a lead byte just before the end of
// the text (a cut or corrupted style document) takes it past the terminator.
// The copy it parses ends in enough NULs that any such step lands on one.
const size_t kParsePadding = 8;

} // namespace

bool SensorXmlDocument::LoadMem(const char* text, TiXmlEncoding encoding) {
    Clear();
    ClearError();
    if (text == nullptr)
        return false;
    std::string strPadded(text, std::strlen(text));
    strPadded.append(kParsePadding, '\0');
    Parse(strPadded.c_str(), nullptr, encoding);
    return !Error();
}

void SensorXmlDocument::getXmlString(std::string& out) const {
    TiXmlPrinter objPrinter;
    Accept(&objPrinter);
    out = objPrinter.Str();
}
