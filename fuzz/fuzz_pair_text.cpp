// Pair-list texts "(key,value)...": the parser, its count, and a started
// controller applying them (the host hands them on from a web page).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "keyval/SensorKeyVal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string strText(reinterpret_cast<const char*>(data), size);

    // The caller's room: one record per group the count finds.
    const u32 nCount = keyval_str_count(strText);
    std::vector<KeyVal> vecPairs(static_cast<size_t>(nCount) + 1);
    u32 nStored = 0;
    keyval_str2st(strText, vecPairs.data(), &nStored);
    if (nStored != nCount)
        __builtin_trap();
    std::string strBack;
    keyval_st2str(strBack, vecPairs.data(), nStored);
    // The text form of what was parsed parses to the same pairs.
    std::vector<KeyVal> vecAgain(static_cast<size_t>(nStored) + 1);
    u32 nAgain = 0;
    keyval_str2st(strBack, vecAgain.data(), &nAgain);
    if (nAgain != nStored)
        __builtin_trap();
    for (u32 i = 0; i < nStored; ++i) {
        if (vecAgain[i].key != vecPairs[i].key || vecAgain[i].value != vecPairs[i].value)
            __builtin_trap();
    }

    fuzzsupport::FreshController objFresh;
    ISensorController& ctl = *objFresh;
    (void)ctl.setParameters(strText, size % 2 == 0);
    int nValue = 0;
    (void)ctl.getParameter(34, nValue);
    return 0;
}
