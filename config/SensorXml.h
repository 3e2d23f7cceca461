// The two document operations the controller needs beyond TinyXML's own.
#pragma once

#include <string>

#include <tinyxml.h>

#include "diag/SensorDefs.h"

class SENSOR_API SensorXmlDocument : public TiXmlDocument {
public:
    // No row and column tracking: nothing reads a node's place in the
    // library's documents, and TinyXML's tracking costs a tenth of a parse.
    SensorXmlDocument() { SetTabSize(0); }
    // Parses a NUL-terminated text; true on success.
    bool LoadMem(const char* text, TiXmlEncoding encoding);
    // The whole document as TinyXML prints it.
    void getXmlString(std::string& out) const;
};
