// Decodes a SetImagingSettings request into changes of keys, every field
// converted and checked against the style before any is applied. Its own
// unit so that the operation itself only applies, rolls back and answers.
#pragma once

#include <string>
#include <vector>

#include "imaging/StyleReader.h"

class ISensorController;

namespace sensor_onvif {
namespace imaging {

struct Change {
    const FieldMap* field;
    int oldValue;
    int newValue;
};

// Decodes and checks every field of a SetImagingSettings request into
// changes. False with a fault reason.
bool decodeChanges(ISensorController& p_objController, const StyleOffers& p_objStyle,
                   const XmlNode& p_objSettings, std::vector<Change>& p_vecChanges,
                   std::string& p_strWhy);

} // namespace imaging
} // namespace sensor_onvif
