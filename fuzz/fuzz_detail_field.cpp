// Module detail texts "(name=value)..." and the field lookups over them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "storage/SensorFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider provider(data, size);
    const std::string strName = provider.ConsumeRandomLengthString(32);
    const std::string strDetail = provider.ConsumeRemainingBytesAsString();

    u32 nValue = 0;
    const int nU32 = getDetailFieldTou32(strDetail.c_str(), strName.c_str(), &nValue);
    // The caller's zeroed buffer: no value is longer than the detail.
    std::vector<char> vecOut(strDetail.size() + 1, '\0');
    const int nStr = getDetailFieldToStr(strDetail.c_str(), strName.c_str(), vecOut.data());
    char szBounded[8] = {0};
    const int nStrN =
        getDetailFieldToStrN(strDetail.c_str(), strName.c_str(), szBounded, sizeof(szBounded) - 1);
    if (nU32 != nStr || nStr != nStrN)
        __builtin_trap();
    return 0;
}
