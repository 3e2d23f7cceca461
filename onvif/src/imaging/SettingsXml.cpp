// The settings and options answers of the imaging service, field by field
// from the mapping table.
#include "imaging/SettingsXml.h"

#include <utility>
#include <vector>

#include "controller/ISensorController.h"
#include "controller/SensorKeys.h"
#include "imaging/Conversions.h"
#include "imaging/MappingTable.h"
#include "imaging/XmlNesting.h"

namespace sensor_onvif {
namespace imaging {

namespace {

// The IrCutFilterAutoAdjustment entries (ToOn, ToOff), each with the shared
// response time; empty when the style offers no threshold. When both
// boundaries sit at the same offset they are one entry of BoundaryType
// Common, as a client that set them as Common reads them back.
std::string irCutAdjustments(ISensorController& p_objController, const StyleOffers& p_objStyle) {
    const FieldMap* pDelay = fieldOfKey(KEY_DELAY);
    std::string delay;
    int nDelay = 0;
    if (pDelay && offered(*pDelay, p_objStyle) && p_objController.getParameter(KEY_DELAY, nDelay))
        delay = element("ResponseTime", toOnvif(*pDelay, *p_objStyle.find(KEY_DELAY), nDelay));
    std::vector<std::pair<std::string, std::string>> entries; // type, offset
    for (const Boundary& b : boundaries()) {
        const FieldMap& f = *b.field;
        int n = 0;
        if (!offered(f, p_objStyle) || !p_objController.getParameter(static_cast<int>(f.key), n))
            continue;
        entries.emplace_back(b.type, toOnvif(f, *p_objStyle.find(f.key), n));
    }
    if (entries.size() == 2 && entries[0].second == entries[1].second)
        entries = {{"Common", entries[0].second}};
    std::string out;
    for (const auto& [type, offset] : entries)
        out += "<tt:IrCutFilterAutoAdjustment>" + element("BoundaryType", type) +
               element("BoundaryOffset", offset) + delay + "</tt:IrCutFilterAutoAdjustment>";
    return out;
}

// The option element's path and name of a field under ImagingOptions20.
std::string optionPath(const FieldMap& p_objField) {
    std::string path = p_objField.path;
    const std::pair<const char*, const char*> renames[] = {
        {"Focus/AutoFocusMode", "Focus/AutoFocusModes"},
        {"IrCutFilter", "IrCutFilterModes"},
        {"WhiteBalance/CrGain", "WhiteBalance/YrGain"},
        {"WhiteBalance/CbGain", "WhiteBalance/YbGain"},
        {"Extension/Extension/Extension/Defogging/Mode",
         "Extension/Extension/Extension/DefoggingOptions/Mode"},
        {"Extension/Extension/Extension/Defogging/Level",
         "Extension/Extension/Extension/DefoggingOptions/Level"},
        {"Extension/Extension/Extension/NoiseReduction/Level",
         "Extension/Extension/Extension/NoiseReductionOptions/Level"},
    };
    for (const auto& r : renames)
        if (path == r.first)
            return r.second;
    return path;
}

} // namespace

// Every offered field's value, as the controller holds it, into out.
void readSettings(ISensorController& p_objController, const StyleOffers& style, std::string& out) {
    {
        Nester nest(out);
        bool bIrCutDone = false;
        for (const FieldMap& f : imagingFieldMap()) {
            if (isIrCutAdjustment(f)) {
                if (!bIrCutDone) {
                    const std::string irCut = irCutAdjustments(p_objController, style);
                    if (!irCut.empty())
                        nest.leaf(kIrCutPath, irCut);
                }
                bIrCutDone = true;
                continue;
            }
            if (!offered(f, style) || lacksItsMode(f, style))
                continue;
            int nValue = 0;
            if (!p_objController.getParameter(static_cast<int>(f.key), nValue))
                continue;
            const std::string text = toOnvif(f, *style.find(f.key), nValue);
            if (!text.empty())
                nest.leafText(f.path, text);
        }
    }
}

void writeOptions(const StyleOffers& style, std::string& out) {
    {
        Nester nest(out);
        bool bIrCutDone = false;
        for (const FieldMap& f : imagingFieldMap()) {
            if (isIrCutAdjustment(f)) {
                if (bIrCutDone)
                    continue;
                bIrCutDone = true;
                const FieldMap* pDelay = fieldOfKey(KEY_DELAY);
                std::string xml;
                size_t nOffered = 0;
                for (const Boundary& b : boundaries())
                    if (offered(*b.field, style)) {
                        xml += element("BoundaryType", b.type);
                        ++nOffered;
                    }
                // One offset for all boundaries, when every one is offered.
                if (nOffered > 1 && nOffered == boundaries().size())
                    xml = element("BoundaryType", "Common") + xml;
                if (xml.empty())
                    continue;
                xml += element("BoundaryOffset", "true");
                if (offered(*pDelay, style)) {
                    const Offer& o = *style.find(KEY_DELAY);
                    xml += "<tt:ResponseTimeRange>" +
                           element("Min", durationText(static_cast<int>(o.lo()))) +
                           element("Max", durationText(static_cast<int>(o.hi()))) +
                           "</tt:ResponseTimeRange>";
                }
                nest.leaf(kIrCutPath, "<tt:IrCutFilterAutoAdjustment>" + xml +
                                          "</tt:IrCutFilterAutoAdjustment>");
                continue;
            }
            if (lacksItsMode(f, style))
                continue;
            if (!offered(f, style)) {
                // DefoggingOptions says whether there is a level, also when not.
                if (f.key == KEY_DEFLG_STRG)
                    nest.leaf(optionPath(f), element("Level", "false"));
                continue;
            }
            const Offer& o = *style.find(f.key);
            const std::string path = optionPath(f);
            const std::string name = lastPart(path);
            std::string xml;
            switch (f.conversion) {
                case Conversion::Enum:
                    for (const EnumValue* ev : offeredTokens(f, o))
                        xml += element(name, ev->token);
                    break;
                case Conversion::Normalized:
                    xml = element(name, "true");
                    break;
                case Conversion::Number:
                    xml = range(name, o.lo() * f.scale, o.hi() * f.scale);
                    break;
                case Conversion::Reciprocal:
                    if (o.lo() <= 0 || o.bRange)
                        continue;
                    xml = range(name, f.scale / o.hi(), f.scale / o.lo());
                    break;
                default:
                    break;
            }
            nest.leaf(path, xml);
        }
    }
}

} // namespace imaging
} // namespace sensor_onvif
