// The ONVIF imaging service over the controller's public interface: the
// registration of its operations and their handlers. The mapping table, the
// style reader, the conversions and the XML they write live in imaging/.
#include "sensor-onvif/ImagingService.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "controller/ISensorController.h"
#include "controller/SensorKeys.h"
#include "imaging/Conversions.h"
#include "imaging/MappingTable.h"
#include "imaging/SettingsChanges.h"
#include "imaging/SettingsXml.h"
#include "imaging/StyleReader.h"
#include "imaging/XmlNesting.h"

namespace sensor_onvif {

using namespace imaging;

namespace {

const char* kPresetPrefix = "Scheme_";

SoapFault invalidSettings(const std::string& p_strReason) {
    return SoapFault::sender("ter:InvalidArgVal", "ter:SettingsInvalid", p_strReason);
}

bool sourceMatches(const XmlNode& p_objOp, const std::string& p_strToken) {
    const XmlNode* pToken = p_objOp.child("VideoSourceToken");
    return pToken && pToken->text == p_strToken;
}

// One "(key,value)" pair of the controller's pair text.
std::string pairText(unsigned p_nKey, int p_nValue) {
    return "(" + std::to_string(p_nKey) + "," + std::to_string(p_nValue) + ")";
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

Result ImagingService::getOptions(const XmlNode& p_objOp) {
    if (!sourceMatches(p_objOp, m_objConfig.videoSourceToken))
        return noSource();
    // Always from the style itself, so that the options equal what the UI
    // offers at this moment; the copy kept for the other operations is renewed.
    const std::shared_ptr<const StyleOffers> pStyle = offers(true);
    const StyleOffers& style = *pStyle;
    std::string out = "<timg:GetOptionsResponse><timg:ImagingOptions>";
    writeOptions(style, out);
    out += "</timg:ImagingOptions></timg:GetOptionsResponse>";
    return out;
}

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
        strPairs += pairText(c.field->key, c.newValue);
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
            strBack += pairText((*it)->field->key, (*it)->oldValue);
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
    return m_objController.setParameters(pairText(KEY_AUTO_FOCUS_MODE, nManual), true) == 0;
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
