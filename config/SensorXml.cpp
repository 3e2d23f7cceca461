#include "config/SensorXml.h"

bool SensorXmlDocument::LoadMem(const char* text, TiXmlEncoding encoding) {
    Clear();
    ClearError();
    if (text == nullptr)
        return false;
    Parse(text, nullptr, encoding);
    return !Error();
}

void SensorXmlDocument::getXmlString(std::string& out) const {
    TiXmlPrinter objPrinter;
    Accept(&objPrinter);
    out = objPrinter.Str();
}
