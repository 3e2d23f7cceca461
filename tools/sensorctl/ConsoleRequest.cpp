#include "ConsoleRequest.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "controller/SensorKeys.h"

namespace sensorctl {

namespace {

// Reads a signed decimal at pos up to one of the stop characters.
bool readNumberAt(const std::string& text, size_t& pos, const char* stops, long& value) {
    const size_t nEnd = text.find_first_of(stops, pos);
    if (nEnd == std::string::npos)
        return false;
    if (!parseStrictInt(text.substr(pos, nEnd - pos), INT_MIN, INT_MAX, value))
        return false;
    pos = nEnd;
    return true;
}

ApiParsed refused(int nStatus, const std::string& strReason) {
    ApiParsed parsed;
    parsed.nStatus = nStatus;
    parsed.strReason = strReason;
    return parsed;
}

const std::string* param(const ApiRequest& request, const char* szName) {
    const auto it = request.params.find(szName);
    return it == request.params.end() ? nullptr : &it->second;
}

// The arguments of one call; the call is known to be served on its path.
ApiParsed parseCall(ApiCall call, const ApiRequest& request, size_t schemes) {
    ApiParsed parsed;
    parsed.call = call;
    const std::string strText = trimmed(request.strBody);
    switch (call) {
        case ApiCall::Params:
            if (const std::string* pIds = param(request, "ids")) {
                if (!isIdList(*pIds))
                    return refused(400, "ids must be an id list like (" +
                                            std::to_string(KEY_BRIGHTNESS) + "," +
                                            std::to_string(KEY_SATURATION) + ")");
                parsed.strText = *pIds;
            }
            return parsed;
        case ApiCall::Set: {
            std::string strReason;
            if (!parsePairList(strText, parsed.keys, strReason))
                return refused(400, strReason);
            parsed.strText = strText;
            return parsed;
        }
        case ApiCall::SetScheme: {
            const long nMax = static_cast<long>(schemes);
            if (!parseStrictInt(strText, 0, nMax, parsed.nFirst))
                return refused(400, "the scheme is a number from 0 to " + std::to_string(nMax));
            return parsed;
        }
        case ApiCall::SetMode:
            if (!parseStrictInt(strText, 0, 1, parsed.nFirst))
                return refused(400, "the mode is 0 (manual) or 1 (automatic)");
            return parsed;
        case ApiCall::SetClock: {
            const size_t nColon = strText.find(':');
            if (nColon == std::string::npos || nColon == 0 || nColon > 2 ||
                strText.size() != nColon + 3 || strText[0] == '-' || strText[nColon + 1] == '-' ||
                !parseStrictInt(strText.substr(0, nColon), 0, 23, parsed.nFirst) ||
                !parseStrictInt(strText.substr(nColon + 1), 0, 59, parsed.nSecond))
                return refused(400, "the clock is HH:MM, 00:00 to 23:59");
            return parsed;
        }
        case ApiCall::SetDayNight:
            if (strText != "day" && strText != "night")
                return refused(400, "the state is day or night");
            parsed.strText = strText;
            return parsed;
        case ApiCall::Fail: {
            // "CMD RET" makes every call of CMD answer RET, "CMD off" ends it.
            const size_t nBlank = strText.find(' ');
            const std::string strRet =
                nBlank == std::string::npos ? "" : strText.substr(nBlank + 1);
            if (nBlank == std::string::npos ||
                !parseStrictInt(strText.substr(0, nBlank), 0, INT_MAX, parsed.nFirst) ||
                (strRet != "off" && !parseStrictInt(strRet, INT_MIN, INT_MAX, parsed.nSecond)))
                return refused(400, "expected \"CMD RET\" or \"CMD off\"");
            parsed.bFlag = strRet == "off";
            return parsed;
        }
        case ApiCall::Trace:
            if (const std::string* pSince = param(request, "since")) {
                if (!parseStrictInt(*pSince, 0, LONG_MAX, parsed.nFirst))
                    return refused(400, "since is a non-negative entry number");
                parsed.bFlag = true;
            }
            return parsed;
        default:
            return parsed;
    }
}

} // namespace

const std::vector<ApiRoute>& apiRoutes() {
    static const std::vector<ApiRoute> routes = {
        {"/api/style", ApiCall::Style, ApiCall::None},
        {"/api/params", ApiCall::Params, ApiCall::None},
        {"/api/set", ApiCall::None, ApiCall::Set},
        {"/api/scheme", ApiCall::GetScheme, ApiCall::SetScheme},
        {"/api/mode", ApiCall::GetMode, ApiCall::SetMode},
        {"/api/flush", ApiCall::None, ApiCall::Flush},
        {"/api/last", ApiCall::None, ApiCall::Last},
        {"/api/reset", ApiCall::None, ApiCall::Reset},
        {"/api/clock", ApiCall::GetClock, ApiCall::SetClock},
        {"/api/daynight", ApiCall::GetDayNight, ApiCall::SetDayNight},
        {"/api/fail", ApiCall::None, ApiCall::Fail},
        {"/api/trace", ApiCall::Trace, ApiCall::None},
        {"/api/status", ApiCall::Status, ApiCall::None},
    };
    return routes;
}

std::string allowedMethods(const ApiRoute& route) {
    const bool bGet = route.get != ApiCall::None;
    const bool bPost = route.post != ApiCall::None;
    return std::string(bGet ? "GET" : "") + (bGet && bPost ? ", " : "") + (bPost ? "POST" : "");
}

ApiParsed parseApiRequest(const ApiRequest& request, size_t schemes) {
    for (const ApiRoute& route : apiRoutes()) {
        if (request.strPath != route.szPath)
            continue;
        const ApiCall call = request.bPost ? route.post : route.get;
        if (call == ApiCall::None) {
            ApiParsed parsed = refused(405, "method not allowed; use " + allowedMethods(route));
            parsed.strAllow = allowedMethods(route);
            return parsed;
        }
        return parseCall(call, request, schemes);
    }
    return refused(404, "no such path: " + request.strPath);
}

std::string trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n";
    const size_t nBegin = text.find_first_not_of(blanks);
    if (nBegin == std::string::npos)
        return "";
    return text.substr(nBegin, text.find_last_not_of(blanks) - nBegin + 1);
}

bool parseStrictInt(const std::string& text, long lo, long hi, long& value) {
    size_t i = text.size() > 0 && text[0] == '-' ? 1 : 0;
    if (i == text.size() || text.size() > 11)
        return false;
    for (; i < text.size(); ++i)
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return false;
    errno = 0;
    value = std::strtol(text.c_str(), nullptr, 10);
    return errno == 0 && value >= lo && value <= hi;
}

bool parsePairList(const std::string& text, std::vector<long>& keys, std::string& reason) {
    size_t pos = 0;
    while (pos < text.size()) {
        long nKey = 0, nValue = 0;
        const size_t nStart = pos;
        if (text[pos] != '(' || !readNumberAt(text, ++pos, ",", nKey) ||
            !readNumberAt(text, ++pos, ")", nValue)) {
            reason = "not a pair list (key,value)(key,value)...: bad pair at byte " +
                     std::to_string(nStart);
            return false;
        }
        ++pos;
        keys.push_back(nKey);
    }
    if (keys.empty()) {
        reason = "empty pair list";
        return false;
    }
    return true;
}

bool isIdList(const std::string& text) {
    if (text.size() < 3 || text.front() != '(' || text.back() != ')')
        return false;
    size_t pos = 1;
    for (;;) {
        long nId = 0;
        if (!readNumberAt(text, pos, ",)", nId))
            return false;
        if (pos == text.size() - 1)
            return true;
        if (text[pos] == ')')
            return false;
        ++pos;
    }
}

} // namespace sensorctl
