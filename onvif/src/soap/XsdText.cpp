// The XML Schema texts of the SOAP layer.
#include "soap/XsdText.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "sensor-onvif/Soap.h"

namespace sensor_onvif {

namespace soap {

std::string trim(const std::string& p_strText) {
    const char* blanks = " \t\r\n";
    const size_t nBegin = p_strText.find_first_not_of(blanks);
    if (nBegin == std::string::npos)
        return std::string();
    const size_t nEnd = p_strText.find_last_not_of(blanks);
    return p_strText.substr(nBegin, nEnd - nBegin + 1);
}

} // namespace soap

using soap::trim;

std::string xmlEscape(const std::string& p_strText) {
    std::string out;
    out.reserve(p_strText.size());
    for (char c : p_strText) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string formatFloat(double p_dValue) {
    if (!std::isfinite(p_dValue))
        return "0";
    if (p_dValue == 0)
        return "0";
    char sz[64];
    // Whole numbers, most of what a camera answers, as the integer they are
    // (the same text "%.0f" prints, without the float formatting).
    if (std::fabs(p_dValue) < 1e15 && p_dValue == std::floor(p_dValue)) {
        const std::to_chars_result r =
            std::to_chars(sz, sz + sizeof(sz), static_cast<long long>(p_dValue));
        return std::string(sz, r.ptr);
    }
    std::snprintf(sz, sizeof(sz), "%.6g", p_dValue);
    return sz;
}

bool parseFloat(const std::string& p_strText, double& p_dValue) {
    const std::string text = trim(p_strText);
    if (text.empty() || text.size() > 64)
        return false;
    bool bDigit = false;
    for (char c : text) {
        if (c >= '0' && c <= '9')
            bDigit = true;
        else if (c != '+' && c != '-' && c != '.' && c != 'e' && c != 'E')
            return false;
    }
    if (!bDigit)
        return false;
    char* pEnd = nullptr;
    const double d = std::strtod(text.c_str(), &pEnd);
    if (pEnd != text.c_str() + text.size() || !std::isfinite(d))
        return false;
    p_dValue = d;
    return true;
}

bool parseBool(const std::string& p_strText, bool& p_bValue) {
    const std::string text = trim(p_strText);
    if (text == "true" || text == "1")
        p_bValue = true;
    else if (text == "false" || text == "0")
        p_bValue = false;
    else
        return false;
    return true;
}

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date.
long long daysFromCivil(long long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

bool readDigits(const std::string& s, size_t& pos, size_t n, int& value) {
    if (pos + n > s.size())
        return false;
    value = 0;
    for (size_t i = 0; i < n; ++i) {
        const char c = s[pos + i];
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + (c - '0');
    }
    pos += n;
    return true;
}

bool expect(const std::string& s, size_t& pos, char c) {
    if (pos >= s.size() || s[pos] != c)
        return false;
    ++pos;
    return true;
}

} // namespace

bool parseDateTime(const std::string& p_strText, long long& p_nSeconds) {
    const std::string s = trim(p_strText);
    size_t pos = 0;
    int y, mo, d, h, mi, se;
    if (!readDigits(s, pos, 4, y) || !expect(s, pos, '-') || !readDigits(s, pos, 2, mo) ||
        !expect(s, pos, '-') || !readDigits(s, pos, 2, d) || !expect(s, pos, 'T') ||
        !readDigits(s, pos, 2, h) || !expect(s, pos, ':') || !readDigits(s, pos, 2, mi) ||
        !expect(s, pos, ':') || !readDigits(s, pos, 2, se))
        return false;
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 60)
        return false;
    if (pos < s.size() && s[pos] == '.') {
        ++pos;
        const size_t nStart = pos;
        while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9')
            ++pos;
        if (pos == nStart)
            return false;
    }
    long long nOffset = 0;
    if (pos < s.size() && s[pos] == 'Z') {
        ++pos;
    } else if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) {
        const int nSign = s[pos] == '-' ? -1 : 1;
        ++pos;
        int oh, om;
        if (!readDigits(s, pos, 2, oh) || !expect(s, pos, ':') || !readDigits(s, pos, 2, om) ||
            oh > 14 || om > 59)
            return false;
        nOffset = nSign * (oh * 3600LL + om * 60LL);
    }
    if (pos != s.size())
        return false;
    p_nSeconds = daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d)) * 86400LL +
                 h * 3600LL + mi * 60LL + se - nOffset;
    return true;
}

std::string formatDateTime(long long p_nSeconds) {
    const time_t t = static_cast<time_t>(p_nSeconds);
    struct tm tmUtc;
    if (!gmtime_r(&t, &tmUtc))
        return "1970-01-01T00:00:00Z";
    char sz[96];
    std::snprintf(sz, sizeof(sz), "%04d-%02d-%02dT%02d:%02d:%02dZ", tmUtc.tm_year + 1900,
                  tmUtc.tm_mon + 1, tmUtc.tm_mday, tmUtc.tm_hour, tmUtc.tm_min, tmUtc.tm_sec);
    return sz;
}

} // namespace sensor_onvif
