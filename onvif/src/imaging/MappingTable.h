// The one table that maps ONVIF imaging fields to the controller's keys
// (imagingFieldMap(), declared in the public header) and the lookups the
// service derives from it. Its own unit so that every other part of the
// service reads the table and none holds a copy of it.
#pragma once

#include <string>
#include <vector>

#include "sensor-onvif/ImagingService.h"

namespace sensor_onvif {
namespace imaging {

// The row of a key, or null.
const FieldMap* fieldOfKey(unsigned p_nKey);

// The element that holds the day/night boundaries and the response time.
constexpr const char* kIrCutPath = "Extension/Extension/IrCutFilterAutoAdjustment";

bool isIrCutAdjustment(const FieldMap& p_objField);

// The boundary rows of the table, in its order: each names its BoundaryType
// in brackets ("...IrCutFilterAutoAdjustment[ToOn]/BoundaryOffset").
struct Boundary {
    std::string type;
    const FieldMap* field;
};

const std::vector<Boundary>& boundaries();

} // namespace imaging
} // namespace sensor_onvif
