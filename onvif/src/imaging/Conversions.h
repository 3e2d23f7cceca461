// The conversions between a key's value and its ONVIF text (numbers,
// tokens, 0..1 levels, offsets, durations, shutter times), each checked
// against what the style offers. Their own unit so that reading and writing
// settings share one definition of every conversion.
#pragma once

#include <string>

#include "imaging/StyleReader.h"
#include "sensor-onvif/ImagingService.h"

namespace sensor_onvif {
namespace imaging {

// xs:duration of whole seconds: "PT<n>S".
std::string durationText(int p_nSeconds);

// The ONVIF text of a key value, or empty when the value has none.
std::string toOnvif(const FieldMap& p_objField, const Offer& p_objOffer, int p_nValue);

// The key value of an ONVIF text, validated against the style's offer.
// p_nCurrent keeps an enum token that already holds. False with a reason.
bool fromOnvif(const FieldMap& p_objField, const Offer& p_objOffer, const std::string& p_strText,
               int p_nCurrent, int& p_nValue, std::string& p_strWhy);

} // namespace imaging
} // namespace sensor_onvif
