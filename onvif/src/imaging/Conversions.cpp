// The conversions of the imaging service between key values and ONVIF texts.
#include "imaging/Conversions.h"

#include <cmath>

namespace sensor_onvif {
namespace imaging {

namespace {

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

} // namespace

std::string durationText(int p_nSeconds) {
    return "PT" + std::to_string(p_nSeconds) + "S";
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
    int n = static_cast<int>(std::lround(dKey));
    // A value within a list's span takes the nearest choice of the list, as
    // a time takes the nearest shutter: the options offer the span.
    if (!p_objOffer.bRange && !p_objOffer.choices.empty() && dKey >= p_objOffer.lo() - 0.5 &&
        dKey <= p_objOffer.hi() + 0.5) {
        for (int c : p_objOffer.choices)
            if (std::fabs(c - dKey) < std::fabs(n - dKey) || !p_objOffer.allows(n))
                n = c;
    }
    if (!p_objOffer.allows(n)) {
        p_strWhy = "'" + p_strText + "' is out of range";
        return false;
    }
    p_nValue = n;
    return true;
}

} // namespace imaging
} // namespace sensor_onvif
