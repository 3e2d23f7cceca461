// Reads the style document the controller hands its UI into the offers of
// the imaging service, and decides which table fields they offer.
#include "imaging/StyleReader.h"

#include <string>

#include <tinyxml.h>

#include "controller/ISensorController.h"
#include "PaddedParse.h"

namespace sensor_onvif {
namespace imaging {

namespace {

void walkStyle(const TiXmlElement* p_pElem, StyleOffers& p_objOut) {
    for (const TiXmlElement* e = p_pElem->FirstChildElement(); e; e = e->NextSiblingElement()) {
        const std::string name = e->Value();
        int nId = -1;
        if (name == "item" && e->QueryIntAttribute("id", &nId) == TIXML_SUCCESS && nId >= 0) {
            Offer offer;
            const char* szType = e->Attribute("type");
            double dMin = 0, dMax = 0;
            if (szType && std::string(szType) == "slider" &&
                e->QueryDoubleAttribute("min", &dMin) == TIXML_SUCCESS &&
                e->QueryDoubleAttribute("max", &dMax) == TIXML_SUCCESS) {
                offer.bRange = true;
                offer.min = dMin;
                offer.max = dMax;
            }
            for (const TiXmlElement* o = e->FirstChildElement("option"); o;
                 o = o->NextSiblingElement("option")) {
                int nIndex = 0;
                if (o->QueryIntAttribute("index", &nIndex) == TIXML_SUCCESS)
                    offer.choices.push_back(nIndex);
            }
            if (offer.bRange || !offer.choices.empty())
                p_objOut.items.emplace(static_cast<unsigned>(nId), offer);
        } else if (name == "button" && e->QueryIntAttribute("id", &nId) == TIXML_SUCCESS &&
                   nId >= 0) {
            p_objOut.buttons.insert(static_cast<unsigned>(nId));
        }
        walkStyle(e, p_objOut);
    }
}

} // namespace

StyleOffers readStyle(ISensorController& p_objController) {
    StyleOffers offers;
    TiXmlDocument doc;
    if (parsePadded(p_objController.getUIStyleFile(), doc))
        walkStyle(doc.RootElement(), offers);
    return offers;
}

// The enum tokens the style offers for a field: those with an offered value.
std::vector<const EnumValue*> offeredTokens(const FieldMap& p_objField, const Offer& p_objOffer) {
    std::vector<const EnumValue*> out;
    for (const EnumValue& ev : p_objField.values)
        for (int v : ev.keyValues)
            if (p_objOffer.allows(v)) {
                out.push_back(&ev);
                break;
            }
    return out;
}

// A field is offered when its key is in the style, and for an enum when at
// least two tokens are.
bool offered(const FieldMap& p_objField, const StyleOffers& p_objStyle) {
    const Offer* pOffer = p_objStyle.find(p_objField.key);
    if (!pOffer)
        return false;
    if (p_objField.conversion == Conversion::Enum)
        return !offeredTokens(p_objField, *pOffer).empty();
    return true;
}

// A field beside a mode the style does not offer (a level without its
// switch): the schema requires the mode in the element that holds both, so
// the field is left out with it.
bool lacksItsMode(const FieldMap& p_objField, const StyleOffers& p_objStyle) {
    const std::string path = p_objField.path;
    const std::string parent = path.substr(0, path.rfind('/') + 1);
    if (parent.empty())
        return false;
    for (const FieldMap& f : imagingFieldMap()) {
        const std::string other = f.path;
        if (&f != &p_objField && other.compare(0, parent.size(), parent) == 0 &&
            (other.substr(parent.size()) == "Mode" ||
             other.substr(parent.size()) == "AutoFocusMode"))
            return !offered(f, p_objStyle);
    }
    return false;
}

} // namespace imaging
} // namespace sensor_onvif
