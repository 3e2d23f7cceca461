// The web console's requests as they come from the network: the first line
// is "METHOD PATH?QUERY", the rest the body. Each is read the way the console
// reads it; one it accepts is then served by a controller started afresh, the
// way the console would serve it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ConsoleRequest.h"
#include "ToolInput.h"
#include "fuzz/FuzzSupport.h"
#include "keyval/SensorKeyVal.h"

namespace {

constexpr size_t kSchemes = 4;

sensorctl::ApiRequest requestOf(const std::string& strInput) {
    sensorctl::ApiRequest request;
    const size_t nEol = strInput.find('\n');
    const std::string strLine = strInput.substr(0, nEol);
    request.strBody = nEol == std::string::npos ? "" : strInput.substr(nEol + 1);
    const size_t nBlank = strLine.find(' ');
    request.strMethod = strLine.substr(0, nBlank);
    const std::string strTarget = nBlank == std::string::npos ? "" : strLine.substr(nBlank + 1);
    const size_t nQuery = strTarget.find('?');
    request.strPath = strTarget.substr(0, nQuery);
    // name=value&name=value; the first value of a name counts.
    size_t nPos = nQuery == std::string::npos ? strTarget.size() : nQuery + 1;
    while (nPos < strTarget.size()) {
        size_t nEnd = strTarget.find('&', nPos);
        if (nEnd == std::string::npos)
            nEnd = strTarget.size();
        const std::string strPair = strTarget.substr(nPos, nEnd - nPos);
        const size_t nEq = strPair.find('=');
        request.params.emplace(strPair.substr(0, nEq),
                               nEq == std::string::npos ? "" : strPair.substr(nEq + 1));
        nPos = nEnd + 1;
    }
    return request;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using sensorctl::ApiCall;
    const sensorctl::ApiRequest request =
        requestOf(std::string(reinterpret_cast<const char*>(data), size));
    const sensorctl::ApiParsed call = sensorctl::parseApiRequest(request, kSchemes);
    if (call.nStatus != 200) {
        // A refusal names its reason; a 405 what the path allows.
        if (call.strReason.empty() || (call.nStatus == 405) == call.strAllow.empty() ||
            (call.nStatus != 400 && call.nStatus != 404 && call.nStatus != 405))
            __builtin_trap();
        // A position, when given, is within the text refused or just past it.
        size_t nLongest = request.strBody.size();
        for (const auto& param : request.params)
            nLongest = std::max(nLongest, param.second.size());
        if (call.bAt && call.nAt > nLongest)
            __builtin_trap();
        return 0;
    }
    switch (call.call) {
        case ApiCall::Params:
            if (!call.strText.empty()) {
                fuzzsupport::FreshController objFresh;
                std::string strOut;
                (void)objFresh->getParameters(call.strText, strOut);
            }
            break;
        case ApiCall::Set: {
            // The console's pair list is one the library reads as the same
            // pairs, key by key; the controller then answers for its keys.
            const u32 nCount = keyval_str_count(call.strText);
            if (call.keys.empty() || nCount != call.keys.size())
                __builtin_trap();
            std::vector<KeyVal> vecPairs(nCount);
            u32 nStored = 0;
            keyval_str2st(call.strText, vecPairs.data(), &nStored);
            if (nStored != nCount)
                __builtin_trap();
            for (u32 i = 0; i < nStored; ++i)
                if (vecPairs[i].key != static_cast<u32>(call.keys[i]))
                    __builtin_trap();
            fuzzsupport::FreshController objFresh;
            (void)objFresh->setParameters(call.strText, true);
            std::string strIds = "(";
            for (size_t i = 0; i < call.keys.size(); ++i)
                strIds += (i ? "," : "") + std::to_string(call.keys[i]);
            std::string strValues;
            std::vector<long> ids;
            sensorctl::InputError why;
            if (!sensorctl::readIdList(strIds + ")", ids, why))
                __builtin_trap();
            (void)objFresh->getParameters(strIds + ")", strValues);
            break;
        }
        case ApiCall::SetScheme: {
            if (call.nFirst < 0 || call.nFirst > static_cast<long>(kSchemes))
                __builtin_trap();
            fuzzsupport::FreshController objFresh;
            (void)objFresh->setParamScheme(static_cast<int>(call.nFirst));
            break;
        }
        case ApiCall::SetMode:
            if (call.nFirst != 0 && call.nFirst != 1)
                __builtin_trap();
            break;
        case ApiCall::SetClock:
            if (call.nFirst < 0 || call.nFirst > 23 || call.nSecond < 0 || call.nSecond > 59)
                __builtin_trap();
            break;
        case ApiCall::SetDayNight:
            if (call.strText != "day" && call.strText != "night")
                __builtin_trap();
            break;
        case ApiCall::Fail:
            if (call.nFirst < 0)
                __builtin_trap();
            break;
        case ApiCall::Trace:
            if (call.bFlag && call.nFirst < 0)
                __builtin_trap();
            break;
        default:
            break;
    }
    return 0;
}
