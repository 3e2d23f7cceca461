// The ONVIF imaging service over the controller's public interface.
#include "sensor-onvif/ImagingService.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include <tinyxml.h>

#include "controller/ISensorController.h"
#include "controller/SensorKeys.h"
#include "PaddedParse.h"

namespace sensor_onvif {

// The mapping table ------------------------------------------------------------

// A key and its table name, written once.
#define SENSOR_ONVIF_KEY(name) name, #name

const std::vector<FieldMap>& imagingFieldMap() {
    // clang-format off
    static const std::vector<FieldMap> s_vecMap = {
        {"BacklightCompensation/Mode", SENSOR_ONVIF_KEY(KEY_BLC_SWITCH), Conversion::Enum, {{"OFF", {0}}, {"ON", {1}}}, 1},
        {"BacklightCompensation/Level", SENSOR_ONVIF_KEY(KEY_BLC_STRG), Conversion::Number, {}, 1},
        {"Brightness", SENSOR_ONVIF_KEY(KEY_BRIGHTNESS), Conversion::Number, {}, 1},
        {"ColorSaturation", SENSOR_ONVIF_KEY(KEY_SATURATION), Conversion::Number, {}, 1},
        {"Contrast", SENSOR_ONVIF_KEY(KEY_CONTRAST), Conversion::Number, {}, 1},
        {"Exposure/Mode", SENSOR_ONVIF_KEY(KEY_EXPOSE_MODE), Conversion::Enum, {{"AUTO", {0, 1, 2}}, {"MANUAL", {3}}}, 1},
        // The shutter lists hold N of 1/N s; ONVIF speaks microseconds.
        {"Exposure/MaxExposureTime", SENSOR_ONVIF_KEY(KEY_MAX_SHUTTER), Conversion::Reciprocal, {}, 1e6},
        {"Exposure/MaxGain", SENSOR_ONVIF_KEY(KEY_MAX_GAIN), Conversion::Number, {}, 1},
        {"Exposure/ExposureTime", SENSOR_ONVIF_KEY(KEY_FIX_SHUTTER), Conversion::Reciprocal, {}, 1e6},
        {"Exposure/Gain", SENSOR_ONVIF_KEY(KEY_FIX_GAIN), Conversion::Number, {}, 1},
        {"Exposure/Iris", SENSOR_ONVIF_KEY(KEY_IRIS_POSITION), Conversion::Number, {}, 1},
        {"Focus/AutoFocusMode", SENSOR_ONVIF_KEY(KEY_AUTO_FOCUS_MODE), Conversion::Enum, {{"AUTO", {0, 1}}, {"MANUAL", {2}}}, 1},
        {"Focus/DefaultSpeed", SENSOR_ONVIF_KEY(KEY_FOCUS_SPEED_LEVEL), Conversion::Number, {}, 1},
        // The style lists the near limit in centimetres; ONVIF speaks metres.
        {"Focus/NearLimit", SENSOR_ONVIF_KEY(KEY_AUTO_FOCUS_NEAR_LIMIT), Conversion::Number, {}, 0.01},
        // ON: the filter is in (day picture); OFF: out (night picture). By
        // time and by alarm input are the camera's own automatic modes.
        {"IrCutFilter", SENSOR_ONVIF_KEY(KEY_DN_MODE), Conversion::Enum, {{"AUTO", {0, 3, 4}}, {"ON", {1}}, {"OFF", {2}}}, 1},
        {"Sharpness", SENSOR_ONVIF_KEY(KEY_SHARPNESS), Conversion::Number, {}, 1},
        {"WideDynamicRange/Mode", SENSOR_ONVIF_KEY(KEY_WDR_MODE), Conversion::Enum, {{"OFF", {0}}, {"ON", {1, 2, 3}}}, 1},
        {"WideDynamicRange/Level", SENSOR_ONVIF_KEY(KEY_WDR_STRG), Conversion::Number, {}, 1},
        {"WhiteBalance/Mode", SENSOR_ONVIF_KEY(KEY_WB_MODE), Conversion::Enum, {{"AUTO", {0}}, {"MANUAL", {1, 2, 3, 4, 5, 6}}}, 1},
        {"WhiteBalance/CrGain", SENSOR_ONVIF_KEY(KEY_R_GAIN), Conversion::Number, {}, 1},
        {"WhiteBalance/CbGain", SENSOR_ONVIF_KEY(KEY_B_GAIN), Conversion::Number, {}, 1},
        {"Extension/ImageStabilization/Mode", SENSOR_ONVIF_KEY(KEY_ANTI_SHAKE_SWITCH), Conversion::Enum, {{"OFF", {0}}, {"ON", {1}}}, 1},
        {"Extension/ImageStabilization/Level", SENSOR_ONVIF_KEY(KEY_ANTI_SHAKE_STRG), Conversion::Number, {}, 1},
        // Switching the filter in (ToOn) follows the night-to-day threshold,
        // taking it out (ToOff) the day-to-night one; the response time is
        // the switch delay in seconds.
        {"Extension/Extension/IrCutFilterAutoAdjustment[ToOn]/BoundaryOffset", SENSOR_ONVIF_KEY(KEY_NTD_THR), Conversion::Offset, {}, 1},
        {"Extension/Extension/IrCutFilterAutoAdjustment[ToOff]/BoundaryOffset", SENSOR_ONVIF_KEY(KEY_DTN_THR), Conversion::Offset, {}, 1},
        {"Extension/Extension/IrCutFilterAutoAdjustment/ResponseTime", SENSOR_ONVIF_KEY(KEY_DELAY), Conversion::Seconds, {}, 1},
        {"Extension/Extension/Extension/Defogging/Mode", SENSOR_ONVIF_KEY(KEY_DEFLG_SWITCH), Conversion::Enum, {{"OFF", {0}}, {"ON", {1}}}, 1},
        {"Extension/Extension/Extension/Defogging/Level", SENSOR_ONVIF_KEY(KEY_DEFLG_STRG), Conversion::Normalized, {}, 1},
        {"Extension/Extension/Extension/NoiseReduction/Level", SENSOR_ONVIF_KEY(KEY_2D_NR_STRG_M), Conversion::Normalized, {}, 1},
    };
    // clang-format on
    return s_vecMap;
}
#undef SENSOR_ONVIF_KEY

namespace {

const char* kPresetPrefix = "Scheme_";

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

} // namespace

// The style document the UI draws: every item and button by key.
struct StyleOffers {
    std::map<unsigned, Offer> items;
    std::set<unsigned> buttons;

    const Offer* find(unsigned p_nKey) const {
        const auto it = items.find(p_nKey);
        return it == items.end() ? nullptr : &it->second;
    }
    bool hasLens() const {
        return buttons.count(KEY_FOCUS_NEAR) || buttons.count(KEY_FOCUS_FAR) ||
               items.count(KEY_AUTO_FOCUS_MODE);
    }
};

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

std::string durationText(int p_nSeconds) {
    return "PT" + std::to_string(p_nSeconds) + "S";
}

// xs:duration with seconds, minutes and hours only ("PT1M30S"); false for
// anything else.
bool parseDuration(const std::string& p_strText, double& p_dSeconds) {
    const std::string s = p_strText;
    if (s.size() < 3 || s.compare(0, 2, "PT") != 0)
        return false;
    double dTotal = 0;
    size_t pos = 2;
    bool bAny = false;
    while (pos < s.size()) {
        size_t e = pos;
        while (e < s.size() && ((s[e] >= '0' && s[e] <= '9') || s[e] == '.'))
            ++e;
        if (e == pos || e >= s.size())
            return false;
        double d = 0;
        if (!parseFloat(s.substr(pos, e - pos), d))
            return false;
        const char unit = s[e];
        if (unit == 'H')
            d *= 3600;
        else if (unit == 'M')
            d *= 60;
        else if (unit != 'S')
            return false;
        dTotal += d;
        bAny = true;
        pos = e + 1;
    }
    if (!bAny)
        return false;
    p_dSeconds = dTotal;
    return true;
}

// The ONVIF text of a key value, or empty when the value has none.
std::string toOnvif(const FieldMap& p_objField, const Offer& p_objOffer, int p_nValue) {
    switch (p_objField.conversion) {
        case Conversion::Number:
            return formatFloat(p_nValue * p_objField.scale);
        case Conversion::Enum:
            for (const EnumValue& ev : p_objField.values)
                for (int v : ev.keyValues)
                    if (v == p_nValue)
                        return ev.token;
            return std::string();
        case Conversion::Normalized: {
            const double span = p_objOffer.hi() - p_objOffer.lo();
            return formatFloat(span > 0 ? (p_nValue - p_objOffer.lo()) / span : 0);
        }
        case Conversion::Offset: {
            const double half = (p_objOffer.hi() - p_objOffer.lo()) / 2;
            const double mid = (p_objOffer.hi() + p_objOffer.lo()) / 2;
            return formatFloat(half > 0 ? (p_nValue - mid) / half : 0);
        }
        case Conversion::Seconds:
            return durationText(p_nValue);
        case Conversion::Reciprocal:
            return p_nValue > 0 ? formatFloat(p_objField.scale / p_nValue) : std::string();
    }
    return std::string();
}

// The key value of an ONVIF text, validated against the style's offer.
// p_nCurrent keeps an enum token that already holds. False with a reason.
bool fromOnvif(const FieldMap& p_objField, const Offer& p_objOffer, const std::string& p_strText,
               int p_nCurrent, int& p_nValue, std::string& p_strWhy) {
    double d = 0;
    switch (p_objField.conversion) {
        case Conversion::Enum:
            for (const EnumValue* ev : offeredTokens(p_objField, p_objOffer)) {
                if (p_strText != ev->token)
                    continue;
                for (int v : ev->keyValues)
                    if (v == p_nCurrent) {
                        p_nValue = v;
                        return true;
                    }
                for (int v : ev->keyValues)
                    if (p_objOffer.allows(v)) {
                        p_nValue = v;
                        return true;
                    }
            }
            p_strWhy = "'" + p_strText + "' is not offered";
            return false;
        case Conversion::Seconds:
            if (!parseDuration(p_strText, d)) {
                p_strWhy = "'" + p_strText + "' is not a duration in seconds";
                return false;
            }
            break;
        default:
            if (!parseFloat(p_strText, d)) {
                p_strWhy = "'" + p_strText + "' is not a number";
                return false;
            }
    }
    if (p_objField.conversion == Conversion::Reciprocal) {
        // Any time within the offered range; the nearest offered shutter is taken.
        const double dLo = p_objOffer.hi() > 0 ? p_objField.scale / p_objOffer.hi() : 0;
        const double dHi = p_objOffer.lo() > 0 ? p_objField.scale / p_objOffer.lo() : 0;
        if (p_objOffer.bRange || d <= 0 || d < dLo * (1 - 1e-6) || d > dHi * (1 + 1e-6)) {
            p_strWhy = "'" + p_strText + "' is out of range";
            return false;
        }
        int nBest = 0;
        double dBest = -1;
        for (int c : p_objOffer.choices) {
            if (c <= 0)
                continue;
            const double diff = std::fabs(p_objField.scale / c - d);
            if (dBest < 0 || diff < dBest) {
                dBest = diff;
                nBest = c;
            }
        }
        if (dBest < 0) {
            p_strWhy = "no shutter is offered";
            return false;
        }
        p_nValue = nBest;
        return true;
    }
    double dKey = d;
    if (p_objField.conversion == Conversion::Number) {
        dKey = d / p_objField.scale;
    } else if (p_objField.conversion == Conversion::Normalized) {
        if (d < 0 || d > 1) {
            p_strWhy = "'" + p_strText + "' is outside 0..1";
            return false;
        }
        dKey = p_objOffer.lo() + d * (p_objOffer.hi() - p_objOffer.lo());
    } else if (p_objField.conversion == Conversion::Offset) {
        if (d < -1 || d > 1) {
            p_strWhy = "'" + p_strText + "' is outside -1..1";
            return false;
        }
        dKey =
            (p_objOffer.hi() + p_objOffer.lo()) / 2 + d * (p_objOffer.hi() - p_objOffer.lo()) / 2;
    }
    if (!(dKey > -2147483648.0 && dKey < 2147483647.0)) {
        p_strWhy = "'" + p_strText + "' is out of range";
        return false;
    }
    const int n = static_cast<int>(std::lround(dKey));
    if (!p_objOffer.allows(n)) {
        p_strWhy = "'" + p_strText + "' is out of range";
        return false;
    }
    p_nValue = n;
    return true;
}

// Writes nested elements from (path, leaf XML) pairs in document order:
// consecutive paths share their common containers.
class Nester {
public:
    explicit Nester(std::string& p_strOut) : m_strOut(p_strOut) {}
    ~Nester() { closeTo(0); }
    // Opens the parents of the last part of p_strPath, closing those of the
    // previous leaf it does not share, and appends p_strXml.
    void leaf(const std::string& p_strPath, const std::string& p_strXml) {
        openParentsOf(p_strPath);
        m_strOut += p_strXml;
    }
    // The same with the last part's element around the escaped p_strText.
    void leafText(const std::string& p_strPath, const std::string& p_strText) {
        const std::string_view name = openParentsOf(p_strPath);
        m_strOut.append("<tt:").append(name).append(">");
        m_strOut += xmlEscape(p_strText);
        m_strOut.append("</tt:").append(name).append(">");
    }

private:
    // Answers the path's last part; the parts are views into p_strPath, and
    // the open names are short enough to live inside their strings, so a
    // whole answer is nested without allocating.
    std::string_view openParentsOf(const std::string& p_strPath) {
        m_vecParts.clear();
        std::string_view rest(p_strPath);
        for (size_t e = rest.find('/'); e != std::string_view::npos; e = rest.find('/')) {
            m_vecParts.push_back(rest.substr(0, e));
            rest.remove_prefix(e + 1);
        }
        size_t nCommon = 0;
        while (nCommon < m_vecOpen.size() && nCommon < m_vecParts.size() &&
               m_vecOpen[nCommon] == m_vecParts[nCommon])
            ++nCommon;
        closeTo(nCommon);
        for (size_t i = nCommon; i < m_vecParts.size(); ++i) {
            m_strOut.append("<tt:").append(m_vecParts[i]).append(">");
            m_vecOpen.emplace_back(m_vecParts[i]);
        }
        return rest;
    }
    void closeTo(size_t p_nDepth) {
        while (m_vecOpen.size() > p_nDepth) {
            m_strOut.append("</tt:").append(m_vecOpen.back()).append(">");
            m_vecOpen.pop_back();
        }
    }
    std::string& m_strOut;
    std::vector<std::string> m_vecOpen;
    std::vector<std::string_view> m_vecParts;
};

std::string lastPart(const std::string& p_strPath) {
    const size_t n = p_strPath.rfind('/');
    return n == std::string::npos ? p_strPath : p_strPath.substr(n + 1);
}

std::string element(const std::string& p_strName, const std::string& p_strText) {
    return "<tt:" + p_strName + ">" + xmlEscape(p_strText) + "</tt:" + p_strName + ">";
}

std::string range(const std::string& p_strName, double p_dMin, double p_dMax) {
    return "<tt:" + p_strName + "><tt:Min>" + formatFloat(p_dMin) + "</tt:Min><tt:Max>" +
           formatFloat(p_dMax) + "</tt:Max></tt:" + p_strName + ">";
}

const FieldMap* fieldOfKey(unsigned p_nKey) {
    for (const FieldMap& f : imagingFieldMap())
        if (f.key == p_nKey)
            return &f;
    return nullptr;
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

// The element that holds the day/night boundaries and the response time.
const char* const kIrCutPath = "Extension/Extension/IrCutFilterAutoAdjustment";

bool isIrCutAdjustment(const FieldMap& p_objField) {
    return std::strncmp(p_objField.path, kIrCutPath, std::strlen(kIrCutPath)) == 0;
}

// The boundary rows of the table, in its order: each names its BoundaryType
// in brackets ("...IrCutFilterAutoAdjustment[ToOn]/BoundaryOffset").
struct Boundary {
    std::string type;
    const FieldMap* field;
};

const std::vector<Boundary>& boundaries() {
    static const std::vector<Boundary> s_vecBoundaries = [] {
        std::vector<Boundary> out;
        for (const FieldMap& f : imagingFieldMap()) {
            const char* szOpen = std::strchr(f.path, '[');
            const char* szClose = szOpen ? std::strchr(szOpen, ']') : nullptr;
            if (isIrCutAdjustment(f) && szClose)
                out.push_back({std::string(szOpen + 1, szClose), &f});
        }
        return out;
    }();
    return s_vecBoundaries;
}

SoapFault invalidSettings(const std::string& p_strReason) {
    return SoapFault::sender("ter:InvalidArgVal", "ter:SettingsInvalid", p_strReason);
}

SoapFault noSource() {
    return SoapFault::sender("ter:InvalidArgVal", "ter:NoSource", "no such video source");
}

} // namespace

// The service -------------------------------------------------------------------

ImagingService::ImagingService(ISensorController& p_objController, ImagingConfig p_objConfig)
    : m_objController(p_objController), m_objConfig(std::move(p_objConfig)) {}

std::shared_ptr<const StyleOffers> ImagingService::offers(bool p_bFresh) {
    // The style is rebuilt from the ISP's ranges on every read, which costs
    // several times a whole ONVIF request; its offers change only with those
    // ranges and the two show flags, so a young copy read under the same
    // flags is used instead.
    bool bWdr = false;
    bool bBeaway = false;
    (void)m_objController.getShowWDRFalg(bWdr);
    (void)m_objController.getShowBeawayFalg(bBeaway);
    const auto now = m_objConfig.clock ? m_objConfig.clock() : std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(m_objStyleMutex);
    if (!p_bFresh && m_pOffers && bWdr == m_bOffersWdr && bBeaway == m_bOffersBeaway &&
        now >= m_tOffersRead && now - m_tOffersRead < m_objConfig.styleMaxAge)
        return m_pOffers;
    m_pOffers = std::make_shared<const StyleOffers>(readStyle(m_objController));
    m_tOffersRead = now;
    m_bOffersWdr = bWdr;
    m_bOffersBeaway = bBeaway;
    return m_pOffers;
}

void ImagingService::forgetOffers() {
    std::lock_guard<std::mutex> lock(m_objStyleMutex);
    m_pOffers.reset();
}

void ImagingService::registerOn(SoapEndpoint& p_objEndpoint) {
    using Member = Result (ImagingService::*)(const XmlNode&);
    struct Op {
        const char* name;
        Member fn;
        AccessClass eClass; // who may call it (levelMayAccess)
    };
    const Op ops[] = {
        {"GetServiceCapabilities", &ImagingService::getServiceCapabilities, AccessClass::PreAuth},
        {"GetImagingSettings", &ImagingService::getImagingSettings, AccessClass::ReadMedia},
        {"SetImagingSettings", &ImagingService::setImagingSettings, AccessClass::Actuate},
        {"GetOptions", &ImagingService::getOptions, AccessClass::ReadMedia},
        {"GetMoveOptions", &ImagingService::getMoveOptions, AccessClass::ReadMedia},
        {"Move", &ImagingService::move, AccessClass::Actuate},
        {"Stop", &ImagingService::stop, AccessClass::Actuate},
        {"GetStatus", &ImagingService::getStatus, AccessClass::ReadMedia},
        {"GetPresets", &ImagingService::getPresets, AccessClass::ReadMedia},
        {"GetCurrentPreset", &ImagingService::getCurrentPreset, AccessClass::ReadMedia},
        {"SetCurrentPreset", &ImagingService::setCurrentPreset, AccessClass::Actuate},
    };
    for (const Op& op : ops) {
        const Member fn = op.fn;
        p_objEndpoint.addOperation(
            kPath, op.name, [this, fn](const Request& r) { return (this->*fn)(r.op); }, op.eClass);
    }
}

namespace {

bool sourceMatches(const XmlNode& p_objOp, const std::string& p_strToken) {
    const XmlNode* pToken = p_objOp.child("VideoSourceToken");
    return pToken && pToken->text == p_strToken;
}

} // namespace

std::string ImagingService::capabilitiesXml() {
    const FieldMap* pDis = fieldOfKey(KEY_ANTI_SHAKE_SWITCH);
    const bool bDis = pDis && offered(*pDis, *offers());
    // The presets are the schemes, and SetImagingSettings writes into the
    // current one: the active preset takes the new settings (adaptable).
    const bool bPresets = m_objConfig.schemeCount > 0;
    return std::string("<timg:Capabilities ImageStabilization=\"") + (bDis ? "true" : "false") +
           "\" Presets=\"" + (bPresets ? "true" : "false") + "\" AdaptablePreset=\"" +
           (bPresets ? "true" : "false") + "\"/>";
}

Result ImagingService::getServiceCapabilities(const XmlNode&) {
    return "<timg:GetServiceCapabilitiesResponse>" + capabilitiesXml() +
           "</timg:GetServiceCapabilitiesResponse>";
}

namespace {

// The two IrCutFilterAutoAdjustment entries (ToOn, ToOff), each with the
// shared response time; empty when the style offers no threshold.
std::string irCutAdjustments(ISensorController& p_objController, const StyleOffers& p_objStyle) {
    const FieldMap* pDelay = fieldOfKey(KEY_DELAY);
    std::string delay;
    int nDelay = 0;
    if (pDelay && offered(*pDelay, p_objStyle) && p_objController.getParameter(KEY_DELAY, nDelay))
        delay = element("ResponseTime", toOnvif(*pDelay, *p_objStyle.find(KEY_DELAY), nDelay));
    std::string out;
    for (const Boundary& b : boundaries()) {
        const FieldMap& f = *b.field;
        int n = 0;
        if (!offered(f, p_objStyle) || !p_objController.getParameter(static_cast<int>(f.key), n))
            continue;
        out += "<tt:IrCutFilterAutoAdjustment>" + element("BoundaryType", b.type) +
               element("BoundaryOffset", toOnvif(f, *p_objStyle.find(f.key), n)) + delay +
               "</tt:IrCutFilterAutoAdjustment>";
    }
    return out;
}

} // namespace

namespace {

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

} // namespace

Result ImagingService::getImagingSettings(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    // Read while no change of this service is under way, so that an answer
    // never shows one client's change half applied. (A scheme switch by the
    // worker between two reads can still show two schemes' values; the public
    // interface has no locked read of several keys.)
    std::lock_guard<std::mutex> lock(m_objChangeMutex);
    const std::shared_ptr<const StyleOffers> pStyle = offers();
    const StyleOffers& style = *pStyle;
    // The keys are read one by one; a scheme switch by the worker between two
    // reads would mix two schemes in one answer. The current scheme is read
    // before and after (a switch holds the controller's lock throughout), and
    // the values are read again when it changed.
    std::string out;
    for (int nTry = 0; nTry < 3; ++nTry) {
        int nSchemeBefore = -1;
        int nSchemeAfter = -2;
        (void)m_objController.getParamScheme(nSchemeBefore);
        out = "<timg:GetImagingSettingsResponse><timg:ImagingSettings>";
        readSettings(m_objController, style, out);
        (void)m_objController.getParamScheme(nSchemeAfter);
        if (nSchemeBefore == nSchemeAfter)
            break;
    }
    out += "</timg:ImagingSettings></timg:GetImagingSettingsResponse>";
    return out;
}

namespace {

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

Result ImagingService::getOptions(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    // Always from the style itself, so that the options equal what the UI
    // offers at this moment; the copy kept for the other operations is renewed.
    const std::shared_ptr<const StyleOffers> pStyle = offers(true);
    const StyleOffers& style = *pStyle;
    std::string out = "<timg:GetOptionsResponse><timg:ImagingOptions>";
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
    out += "</timg:ImagingOptions></timg:GetOptionsResponse>";
    return out;
}

namespace {

struct Change {
    const FieldMap* field;
    int oldValue;
    int newValue;
};

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

} // namespace

Result ImagingService::setImagingSettings(const XmlNode& p_objOp) {
    std::lock_guard<std::mutex> lock(m_objChangeMutex);
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    const XmlNode* pSettings = p_objOp.child("ImagingSettings");
    if (!pSettings)
        return invalidSettings("no ImagingSettings");
    bool bPersist = true;
    if (const XmlNode* pForce = p_objOp.child("ForcePersistence"))
        if (!parseBool(pForce->text, bPersist))
            return invalidSettings("ForcePersistence is not a boolean");

    // Every field is decoded and checked before any is applied: against the
    // kept offers first and, when they refuse it while possibly old, against
    // the style read anew, so that no value the camera now offers is refused.
    std::vector<Change> changes;
    std::string why;
    std::shared_ptr<const StyleOffers> pStyle = offers();
    if (!decodeChanges(m_objController, *pStyle, *pSettings, changes, why)) {
        pStyle = offers(true);
        changes.clear();
        if (!decodeChanges(m_objController, *pStyle, *pSettings, changes, why))
            return invalidSettings(why);
    }

    // Applied as one pair text through the cache, as the web console applies
    // a change: the controller takes its lock once for all of them, so a
    // scheme switch never lands between two fields of one request. The text
    // stops at the first pair the ISP refuses and answers -key; the pairs
    // before it are put back, last first, in one more text.
    std::vector<const Change*> pending;
    std::string strPairs;
    for (const Change& c : changes) {
        if (c.newValue == c.oldValue)
            continue;
        pending.push_back(&c);
        strPairs += "(" + std::to_string(c.field->key) + "," + std::to_string(c.newValue) + ")";
    }
    std::vector<const Change*> applied;
    const int nResult = pending.empty() ? 0 : m_objController.setParameters(strPairs, true);
    if (nResult != 0) {
        const Change* pRefused = nullptr;
        for (const Change* c : pending) {
            if (nResult == -static_cast<int>(c->field->key)) {
                pRefused = c;
                break;
            }
            applied.push_back(c);
        }
        std::string strBack;
        for (auto it = applied.rbegin(); it != applied.rend(); ++it)
            strBack += "(" + std::to_string((*it)->field->key) + "," +
                       std::to_string((*it)->oldValue) + ")";
        if (!strBack.empty())
            (void)m_objController.setParameters(strBack, true);
        // The ISP may have narrowed what it accepts: read the style anew next time.
        forgetOffers();
        const std::string strField = pRefused != nullptr
                                         ? std::string(pRefused->field->path) + " (key " +
                                               std::to_string(pRefused->field->key) + " " +
                                               pRefused->field->keyName + ")"
                                         : "a field (result " + std::to_string(nResult) + ")";
        return SoapFault::receiver("ter:Action", "",
                                   "the camera refused " + strField + "; nothing was changed");
    }
    applied = pending;
    if (bPersist && !applied.empty())
        (void)m_objController.flush();
    return "<timg:SetImagingSettingsResponse/>";
}

Result ImagingService::getMoveOptions(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    std::string out = "<timg:GetMoveOptionsResponse><timg:MoveOptions>";
    if (offers()->hasLens())
        out += "<tt:Absolute>" + range("Position", kFocusMin, kFocusMax) +
               "</tt:Absolute><tt:Relative>" + range("Distance", -kFocusMax, kFocusMax) +
               "</tt:Relative><tt:Continuous>" + range("Speed", -1, 1) + "</tt:Continuous>";
    out += "</timg:MoveOptions></timg:GetMoveOptionsResponse>";
    return out;
}

Result ImagingService::move(const XmlNode& p_objOp) {
    std::lock_guard<std::mutex> lock(m_objChangeMutex);
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    const std::shared_ptr<const StyleOffers> pStyle = offers();
    if (!pStyle->hasLens())
        return SoapFault::receiver("ter:ActionNotSupported", "ter:NoImagingForSource",
                                   "this camera has no focus lens");
    const XmlNode* pFocus = p_objOp.child("Focus");
    if (!pFocus)
        return invalidSettings("no Focus move");
    // The move is read whole before the lens is touched.
    const XmlNode* pAbs = pFocus->child("Absolute");
    const XmlNode* pRel = pAbs ? nullptr : pFocus->child("Relative");
    const XmlNode* pCont = pAbs || pRel ? nullptr : pFocus->child("Continuous");
    double d = 0;
    if (pAbs) {
        const XmlNode* pPos = pAbs->child("Position");
        if (!pPos || !parseFloat(pPos->text, d) || d < kFocusMin || d > kFocusMax)
            return invalidSettings("Absolute Position is missing or out of range");
    } else if (pRel) {
        const XmlNode* pDist = pRel->child("Distance");
        if (!pDist || !parseFloat(pDist->text, d) || d < -kFocusMax || d > kFocusMax)
            return invalidSettings("Relative Distance is missing or out of range");
    } else if (pCont) {
        const XmlNode* pSpeed = pCont->child("Speed");
        if (!pSpeed || !parseFloat(pSpeed->text, d) || d < -1 || d > 1)
            return invalidSettings("Continuous Speed is missing or out of range");
    } else {
        return invalidSettings("no Absolute, Relative or Continuous move");
    }
    // A move through the service takes the focus out of automatic, as ONVIF
    // Imaging has it, so that the automatic focus does not undo the move; a
    // continuous speed of 0 only stops and leaves the mode.
    if (!(pCont && d == 0) && !manualFocus(*pStyle))
        return SoapFault::receiver("ter:Action", "", "the focus mode could not be set to manual");
    bool bOk = false;
    if (pAbs) {
        bOk = m_objController.setFocusValue(static_cast<int>(std::lround(d)));
    } else if (pRel) {
        int nPos = 0;
        if (m_objController.getFocusValue(nPos)) {
            long nTarget = nPos + std::lround(d);
            nTarget = std::max<long>(kFocusMin, std::min<long>(kFocusMax, nTarget));
            bOk = m_objController.setFocusValue(static_cast<int>(nTarget));
        }
    } else if (d == 0) {
        m_bMoving = false;
        bOk = m_objController.setPTZRunState(0);
    } else {
        bOk = d > 0 ? m_objController.focusFar() : m_objController.focusNear();
        m_bMoving = bOk;
    }
    if (!bOk)
        return SoapFault::receiver("ter:Action", "", "the lens refused the move");
    return "<timg:MoveResponse/>";
}

bool ImagingService::manualFocus(const StyleOffers& p_objStyle) {
    const FieldMap* pMode = fieldOfKey(KEY_AUTO_FOCUS_MODE);
    if (!pMode || !offered(*pMode, p_objStyle))
        return true; // no focus mode to leave
    int nOld = 0;
    if (!m_objController.getParameter(KEY_AUTO_FOCUS_MODE, nOld))
        return false;
    int nManual = 0;
    std::string why;
    if (!fromOnvif(*pMode, *p_objStyle.find(KEY_AUTO_FOCUS_MODE), "MANUAL", nOld, nManual, why))
        return true; // the camera offers no manual mode: the lens moves as it is
    if (nManual == nOld)
        return true;
    // As SetImagingSettings writes a field: one pair text through the cache.
    return m_objController.setParameters("(" + std::to_string(KEY_AUTO_FOCUS_MODE) + "," +
                                             std::to_string(nManual) + ")",
                                         true) == 0;
}

Result ImagingService::stop(const XmlNode& p_objOp) {
    std::lock_guard<std::mutex> lock(m_objChangeMutex);
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    m_bMoving = false;
    (void)m_objController.setPTZRunState(0);
    return "<timg:StopResponse/>";
}

Result ImagingService::getStatus(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    std::string out = "<timg:GetStatusResponse><timg:Status>";
    int nPos = 0;
    if (offers()->hasLens() && m_objController.getFocusValue(nPos))
        out += "<tt:FocusStatus20>" + element("Position", formatFloat(nPos)) +
               element("MoveStatus", m_bMoving ? "MOVING" : "IDLE") + "</tt:FocusStatus20>";
    out += "</timg:Status></timg:GetStatusResponse>";
    return out;
}

namespace {

std::string presetXml(int p_nScheme) {
    return "<timg:Preset token=\"" + std::string(kPresetPrefix) + std::to_string(p_nScheme) +
           "\" type=\"Custom\"><timg:Name>Scheme " + std::to_string(p_nScheme) +
           "</timg:Name></timg:Preset>";
}

} // namespace

Result ImagingService::getPresets(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    std::string out = "<timg:GetPresetsResponse>";
    for (int s = 0; s < m_objConfig.schemeCount; ++s)
        out += presetXml(s);
    out += "</timg:GetPresetsResponse>";
    return out;
}

Result ImagingService::getCurrentPreset(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    int nScheme = -1;
    std::string out = "<timg:GetCurrentPresetResponse>";
    if (m_objController.getParamScheme(nScheme) && nScheme >= 0 &&
        nScheme < m_objConfig.schemeCount)
        out += presetXml(nScheme);
    out += "</timg:GetCurrentPresetResponse>";
    return out;
}

Result ImagingService::setCurrentPreset(const XmlNode& p_objOp) {
    std::lock_guard<std::mutex> lock(m_objChangeMutex);
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    const XmlNode* pToken = p_objOp.child("PresetToken");
    const std::string prefix = kPresetPrefix;
    int nScheme = -1;
    if (pToken && pToken->text.size() > prefix.size() && pToken->text.size() < prefix.size() + 4 &&
        pToken->text.compare(0, prefix.size(), prefix) == 0) {
        const std::string digits = pToken->text.substr(prefix.size());
        if (digits.find_first_not_of("0123456789") == std::string::npos)
            nScheme = std::atoi(digits.c_str());
    }
    if (nScheme < 0 || nScheme >= m_objConfig.schemeCount)
        return SoapFault::sender("ter:InvalidArgVal", "ter:NoImagingPreset", "no such preset");
    if (!m_objController.setParamScheme(nScheme))
        return SoapFault::receiver("ter:Action", "", "the scheme switch failed");
    // Another scheme may bring the ISP other ranges.
    forgetOffers();
    return "<timg:SetCurrentPresetResponse/>";
}

} // namespace sensor_onvif
