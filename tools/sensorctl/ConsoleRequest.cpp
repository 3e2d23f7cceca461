#include "ConsoleRequest.h"

#include <string>

#include "ToolInput.h"
#include "controller/SensorKeys.h"

namespace sensorctl {

namespace {

ApiParsed refused(int nStatus, const std::string& strReason) {
    ApiParsed parsed;
    parsed.nStatus = nStatus;
    parsed.strReason = strReason;
    return parsed;
}

// A 400 for a text not of its form: the reason, what was expected at the
// offending byte, and where that byte is in the text as sent.
ApiParsed refusedAt(const std::string& strReason, const InputError& error, size_t nOffset) {
    ApiParsed parsed = refused(400, strReason + ": expected " + error.strWhat + " at byte " +
                                        std::to_string(nOffset + error.nAt));
    parsed.bAt = true;
    parsed.nAt = nOffset + error.nAt;
    return parsed;
}

const std::string* param(const ApiRequest& request, const char* szName) {
    const auto it = request.params.find(szName);
    return it == request.params.end() ? nullptr : &it->second;
}

std::string pairExample() {
    return "(" + std::to_string(KEY_BRIGHTNESS) + ",60)(" + std::to_string(KEY_SATURATION) + ",1)";
}

std::string idExample() {
    return "(" + std::to_string(KEY_BRIGHTNESS) + "," + std::to_string(KEY_SATURATION) + ")";
}

// The arguments of one call; the call is known to be served on its path.
ApiParsed parseCall(ApiCall call, const ApiRequest& request, size_t schemes) {
    ApiParsed parsed;
    parsed.call = call;
    const InnerText body = withoutBlanks(request.strBody);
    const std::string& strText = body.strText;
    InputError error;
    switch (call) {
        case ApiCall::Params:
            if (const std::string* pIds = param(request, "ids")) {
                std::vector<long> ids;
                if (!readIdList(*pIds, ids, error))
                    return refusedAt("ids must be an id list like " + idExample(), error, 0);
                parsed.strText = *pIds;
            }
            return parsed;
        case ApiCall::Set:
            if (!readPairList(strText, parsed.keys, error))
                return refusedAt("not a pair list like " + pairExample(), error, body.nOffset);
            parsed.strText = strText;
            return parsed;
        case ApiCall::SetScheme: {
            const long nMax = static_cast<long>(schemes);
            if (!readInteger(strText, 0, nMax, parsed.nFirst, error))
                return refusedAt("the scheme is a number from 0 to " + std::to_string(nMax), error,
                                 body.nOffset);
            return parsed;
        }
        case ApiCall::SetMode:
            if (!readInteger(strText, 0, 1, parsed.nFirst, error))
                return refusedAt("the mode is 0 (manual) or 1 (automatic)", error, body.nOffset);
            return parsed;
        case ApiCall::SetClock: {
            int nHour = 0, nMinute = 0;
            if (!readClock(strText, nHour, nMinute, error))
                return refusedAt("the clock is HH:MM, 00:00 to 23:59", error, body.nOffset);
            parsed.nFirst = nHour;
            parsed.nSecond = nMinute;
            return parsed;
        }
        case ApiCall::SetDayNight: {
            size_t nIndex = 0;
            if (!readChoice(strText, {"day", "night", "auto"}, nIndex, error))
                return refusedAt("the state is day, night or auto", error, body.nOffset);
            parsed.strText = strText;
            return parsed;
        }
        case ApiCall::Fail: {
            FaultSetting setting;
            if (!readFaultSetting(strText, setting, error))
                return refusedAt("expected \"CMD RET\" or \"CMD off\"", error, body.nOffset);
            parsed.nFirst = setting.nCmd;
            parsed.nSecond = setting.nRet;
            parsed.bFlag = setting.bOff;
            return parsed;
        }
        case ApiCall::Trace:
            if (const std::string* pSince = param(request, "since")) {
                if (!readTraceCursor(*pSince, parsed.nFirst, error))
                    return refusedAt("since is a non-negative entry number", error, 0);
                parsed.bFlag = true;
            }
            return parsed;
        case ApiCall::Flush:
        case ApiCall::Last:
        case ApiCall::Reset:
            // An action takes no arguments: anything but blanks is a mistake
            // of the caller, not something to ignore.
            if (!readNothing(request.strBody, error))
                return refusedAt("this action takes an empty body", error, 0);
            return parsed;
        default:
            return parsed;
    }
}

} // namespace

const std::vector<ApiRoute>& apiRoutes() {
    static const std::vector<ApiRoute> routes = {
        {"/", ApiCall::Page, ApiCall::None},
        {"/index.html", ApiCall::Page, ApiCall::None},
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
        ApiCall call = ApiCall::None;
        if (request.strMethod == "GET" || request.strMethod == "HEAD")
            call = route.get;
        else if (request.strMethod == "POST")
            call = route.post;
        if (call == ApiCall::None) {
            ApiParsed parsed = refused(405, "method not allowed; use " + allowedMethods(route));
            parsed.strAllow = allowedMethods(route);
            return parsed;
        }
        return parseCall(call, request, schemes);
    }
    return refused(404, "no such path: " + request.strPath);
}

} // namespace sensorctl
