// Id-list texts "(id,id,...)": the field splitter and reading the listed keys
// from a started controller.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::FreshController objFresh;
    ISensorController& ctl = *objFresh;
    const std::string strText(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> vecFields;
    const bool bParsed = ctl.parseSensorParameter(strText, vecFields);
    std::string strOut = "untouched";
    const bool bRead = ctl.getParameters(strText, strOut);
    // Both agree on what is a list; a refused list leaves the answer alone.
    if (bParsed != bRead || (!bRead && strOut != "untouched"))
        __builtin_trap();
    return 0;
}
