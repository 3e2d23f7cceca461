// The web console's requests as read from the network: which call a path and
// method name, and whether its query and body are well formed. Pure text
// work, no socket and no camera, so that it can be tried on any bytes.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace sensorctl {

enum class ApiCall {
    None, // no call of this method on the path
    Page, // the settings page
    Style,
    Params,
    Set,
    GetScheme,
    SetScheme,
    GetMode,
    SetMode,
    Flush,
    Last,
    Reset,
    GetClock,
    SetClock,
    GetDayNight,
    SetDayNight,
    Fail,
    Trace,
    Status,
};

// The console's paths (the page's and the API's), each with its GET and POST
// call.
struct ApiRoute {
    const char* szPath;
    ApiCall get;
    ApiCall post;
};
const std::vector<ApiRoute>& apiRoutes();

// "GET", "GET, POST" or "POST": what a 405 answer allows on the route.
std::string allowedMethods(const ApiRoute& route);

struct ApiRequest {
    // "GET" (a HEAD is served as one), "POST", or any other method, which
    // no path takes.
    std::string strMethod = "GET";
    std::string strPath;
    // The query's parameters, the first value of each name, decoded.
    std::map<std::string, std::string> params;
    std::string strBody;
};

// A request read: either refused (nStatus 400, 404 or 405 and the reason)
// or the call with its arguments.
struct ApiParsed {
    int nStatus = 200;
    std::string strReason;
    // A 400 for a body or query value not of its form: where it goes wrong,
    // the 0-based offset of the offending byte in the body as sent (or in the
    // decoded query value); the length when the text ends too soon.
    bool bAt = false;
    size_t nAt = 0;
    std::string strAllow; // a 405: the methods the path takes
    ApiCall call = ApiCall::None;
    // Params: the id list ("" for all keys); Set: the pair list; SetDayNight:
    // "day" or "night".
    std::string strText;
    std::vector<long> keys; // Set: the keys of the pair list, in order
    // SetScheme, SetMode: the number; SetClock: hour and minute; Fail: the
    // command and its result; Trace: where to start.
    long nFirst = 0;
    long nSecond = 0;
    // Fail: "CMD off"; Trace: a start was given.
    bool bFlag = false;
};

// Reads a request the way the console answers it. schemes is the highest
// scheme number a POST to /api/scheme may name. Bodies and query values
// follow the tools' one grammar (ToolInput.h); a body may have blanks and
// line ends around it, and a call without arguments takes only those.
ApiParsed parseApiRequest(const ApiRequest& request, size_t schemes);

} // namespace sensorctl
