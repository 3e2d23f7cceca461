// What the camera's style document offers the imaging service: each key's
// slider range or list of choices and the buttons, read from the document
// the controller hands its UI, and which table fields that makes offered.
// Its own unit because every operation asks it and only it reads the style.
#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "controller/SensorKeys.h"
#include "sensor-onvif/ImagingService.h"

namespace sensor_onvif {
namespace imaging {

// What the style offers for one key.
struct Offer {
    bool bRange = false; // a slider: min..max
    double min = 0;
    double max = 0;
    std::vector<int> choices; // a list: the option indexes
    double lo() const {
        return bRange ? min
                      : (choices.empty() ? 0 : *std::min_element(choices.begin(), choices.end()));
    }
    double hi() const {
        return bRange ? max
                      : (choices.empty() ? 0 : *std::max_element(choices.begin(), choices.end()));
    }
    bool allows(int v) const {
        if (bRange)
            return v >= min && v <= max;
        return std::find(choices.begin(), choices.end(), v) != choices.end();
    }
};

} // namespace imaging

// The style document the UI draws: every item and button by key.
struct StyleOffers {
    std::map<unsigned, imaging::Offer> items;
    std::set<unsigned> buttons;

    const imaging::Offer* find(unsigned p_nKey) const {
        const auto it = items.find(p_nKey);
        return it == items.end() ? nullptr : &it->second;
    }
    bool hasLens() const {
        return buttons.count(KEY_FOCUS_NEAR) || buttons.count(KEY_FOCUS_FAR) ||
               items.count(KEY_AUTO_FOCUS_MODE);
    }
};

namespace imaging {

// Every item and button of the controller's style document; empty when the
// document does not parse.
StyleOffers readStyle(ISensorController& p_objController);

// The enum tokens the style offers for a field: those with an offered value.
std::vector<const EnumValue*> offeredTokens(const FieldMap& p_objField, const Offer& p_objOffer);

// A field is offered when its key is in the style, and for an enum when at
// least two tokens are.
bool offered(const FieldMap& p_objField, const StyleOffers& p_objStyle);

// A field beside a mode the style does not offer (a level without its
// switch): the schema requires the mode in the element that holds both, so
// the field is left out with it.
bool lacksItsMode(const FieldMap& p_objField, const StyleOffers& p_objStyle);

} // namespace imaging
} // namespace sensor_onvif
