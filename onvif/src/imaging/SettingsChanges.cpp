// The changes a SetImagingSettings request asks for, decoded and checked.
#include "imaging/SettingsChanges.h"

#include "controller/ISensorController.h"
#include "controller/SensorKeys.h"
#include "imaging/Conversions.h"
#include "imaging/MappingTable.h"

namespace sensor_onvif {
namespace imaging {

namespace {

// Adds a change of one field from its request text, validated. False with a
// fault reason.
bool addChange(ISensorController& p_objController, const StyleOffers& p_objStyle,
               const FieldMap& p_objField, const std::string& p_strText,
               std::vector<Change>& p_vecOut, std::string& p_strWhy) {
    const std::string name = p_objField.path;
    if (!offered(p_objField, p_objStyle)) {
        p_strWhy = name + " is not supported by this camera";
        return false;
    }
    int nOld = 0;
    if (!p_objController.getParameter(static_cast<int>(p_objField.key), nOld)) {
        p_strWhy = name + " cannot be read";
        return false;
    }
    int nNew = 0;
    std::string why;
    if (!fromOnvif(p_objField, *p_objStyle.find(p_objField.key), p_strText, nOld, nNew, why)) {
        p_strWhy = name + ": " + why;
        return false;
    }
    for (Change& c : p_vecOut)
        if (c.field->key == p_objField.key) {
            c.newValue = nNew;
            return true;
        }
    p_vecOut.push_back(Change{&p_objField, nOld, nNew});
    return true;
}

} // namespace

// Decodes and checks every field of a SetImagingSettings request into
// changes. False with a fault reason.
bool decodeChanges(ISensorController& p_objController, const StyleOffers& p_objStyle,
                   const XmlNode& p_objSettings, std::vector<Change>& p_vecChanges,
                   std::string& p_strWhy) {
    for (const FieldMap& f : imagingFieldMap()) {
        if (isIrCutAdjustment(f))
            continue;
        const XmlNode* pNode = p_objSettings.find(f.path);
        if (pNode &&
            !addChange(p_objController, p_objStyle, f, pNode->text, p_vecChanges, p_strWhy))
            return false;
    }
    if (const XmlNode* pExt = p_objSettings.find("Extension/Extension")) {
        for (const XmlNode* pAdj : pExt->childrenNamed("IrCutFilterAutoAdjustment")) {
            const XmlNode* pType = pAdj->child("BoundaryType");
            const XmlNode* pOffset = pAdj->child("BoundaryOffset");
            const XmlNode* pTime = pAdj->child("ResponseTime");
            if (!pType) {
                p_strWhy = "IrCutFilterAutoAdjustment without BoundaryType";
                return false;
            }
            std::vector<const FieldMap*> fields;
            for (const Boundary& b : boundaries())
                if (pType->text == b.type || pType->text == "Common")
                    fields.push_back(b.field);
            if (fields.empty()) {
                p_strWhy = "BoundaryType '" + pType->text + "' is not offered";
                return false;
            }
            for (const FieldMap* pField : fields)
                if (pOffset && !addChange(p_objController, p_objStyle, *pField, pOffset->text,
                                          p_vecChanges, p_strWhy))
                    return false;
            if (pTime && !addChange(p_objController, p_objStyle, *fieldOfKey(KEY_DELAY),
                                    pTime->text, p_vecChanges, p_strWhy))
                return false;
        }
    }
    return true;
}

} // namespace imaging
} // namespace sensor_onvif
