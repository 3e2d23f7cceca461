// The style merge with arbitrary module details, style and diversity texts.
// Input: detail, style and diversity, separated by the first two NUL bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "config/StyleMerge.h"
#include "config/SysConfig.h"
#include "fuzz/FuzzSupport.h"

namespace {

std::string takePart(std::string& p_strRest) {
    const std::string::size_type nEnd = p_strRest.find('\0');
    std::string strPart = p_strRest.substr(0, nEnd);
    p_strRest = nEnd == std::string::npos ? std::string() : p_strRest.substr(nEnd + 1);
    return strPart;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::setUp();
    std::string strRest(reinterpret_cast<const char*>(data), size);
    const std::string strDetail = takePart(strRest);
    const std::string strStyle = takePart(strRest);
    const std::string strDiversity = takePart(strRest);

    ModuleConfig stModule;
    std::memset(&stModule, 0, sizeof(stModule));
    std::strncpy(stModule.szDetail, strDetail.c_str(), sizeof(stModule.szDetail) - 1);
    char* szStyle = static_cast<char*>(std::calloc(strStyle.size() + 1, 1));
    std::memcpy(szStyle, strStyle.data(), strStyle.size());
    std::string strDiv = strDiversity;
    (void)mergeStyle(&stModule, &szStyle, &strDiv[0]);
    std::free(szStyle);
    return 0;
}
