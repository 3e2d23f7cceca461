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

// The API's paths, each with its GET and POST call.
struct ApiRoute {
    const char* szPath;
    ApiCall get;
    ApiCall post;
};
const std::vector<ApiRoute>& apiRoutes();

// "GET", "GET, POST" or "POST": what a 405 answer allows on the route.
std::string allowedMethods(const ApiRoute& route);

struct ApiRequest {
    bool bPost = false; // POST, else GET (a HEAD is served as a GET)
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
// scheme number a POST to /api/scheme may name.
ApiParsed parseApiRequest(const ApiRequest& request, size_t schemes);

// The pieces, for the console and its tests.
std::string trimmed(const std::string& text);
// A decimal integer, optionally negative, nothing else around it, in [lo, hi].
bool parseStrictInt(const std::string& text, long lo, long hi, long& value);
// A pair list "(k,v)(k,v)..." written exactly so; the keys in order.
bool parsePairList(const std::string& text, std::vector<long>& keys, std::string& reason);
// An id list "(k,k,...)".
bool isIdList(const std::string& text);

} // namespace sensorctl
