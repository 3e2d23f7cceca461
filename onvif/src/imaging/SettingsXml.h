// The bodies of GetImagingSettings and GetOptions: every offered field of
// the mapping table, its value or its options, nested as the schema has it.
// Their own unit so that the operations only check the request, take the
// locks and wrap the answer.
#pragma once

#include <string>

#include "imaging/StyleReader.h"

class ISensorController;

namespace sensor_onvif {
namespace imaging {

// Every offered field's value, as the controller holds it, into out.
void readSettings(ISensorController& p_objController, const StyleOffers& style, std::string& out);

// Every offered field's options, under the names of ImagingOptions20, into out.
void writeOptions(const StyleOffers& style, std::string& out);

} // namespace imaging
} // namespace sensor_onvif
