// The style rewrite from the ISP's run-time ranges, with arbitrary ISP
// records: the dynamic command list and each listed command's range record
// come from the input, counts beyond their arrays included. The style is the
// sample camera's merged style.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "config/DnaStyle.h"
#include "config/SysConfig.h"
#include "controller/SensorKeys.h"
#include "fuzz/FuzzSupport.h"

namespace {

const std::string& sampleStyle() {
    static const std::string strStyle = [] {
        fuzzsupport::setUp();
        return fuzzsupport::readFile(SENSOR_STYLE_FOLDER "Style.xml");
    }();
    return strStyle;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& strStyle = sampleStyle();
    FuzzedDataProvider provider(data, size);
    sim::Isp& isp = sim::Isp::instance();
    isp.reset();

    ia_dynamic_params_cmds_st stList;
    std::memset(&stList, 0, sizeof(stList));
    stList.cmd_cnt = provider.ConsumeIntegral<uint32_t>();
    for (uint32_t& nCmd : stList.cmd_list) {
        // Mostly commands the style knows, sometimes anything.
        nCmd = provider.ConsumeBool()
                   ? provider.PickValueInArray<uint32_t>(
                         {KEY_BRIGHTNESS, KEY_MAX_SHUTTER, KEY_FIX_SHUTTER, KEY_METER_AREA,
                          KEY_DN_MODE, KEY_WB_MODE, KEY_AUTO_FOCUS_NEAR_LIMIT, KEY_2D_NR_MODE,
                          KEY_WDR_MODE, KEY_GAMMA, KEY_IN_OUT_SIDE})
                   : provider.ConsumeIntegral<uint32_t>();
    }
    isp.setRawCommandList(stList);
    for (uint32_t nCmd : stList.cmd_list) {
        ia_dynamic_params_attr_st stRange;
        std::memset(&stRange, 0, sizeof(stRange));
        stRange.type = provider.ConsumeIntegralInRange<uint32_t>(0, 2);
        stRange.default_value = provider.ConsumeIntegral<uint32_t>();
        stRange.min_value = provider.ConsumeIntegral<uint32_t>();
        stRange.max_value = provider.ConsumeIntegral<uint32_t>();
        stRange.items_cnt = provider.ConsumeIntegral<uint32_t>();
        for (uint32_t& nItem : stRange.item)
            nItem = provider.ConsumeIntegralInRange<uint32_t>(0, 1200);
        isp.setRawRange(static_cast<int>(nCmd), stRange);
    }
    const bool bShowWdr = provider.ConsumeBool();
    if (provider.ConsumeBool())
        isp.failCommand(IA_CMD_DYNAMIC_PARAMS_CMDS_GET, -1);

    std::string strOut;
    (void)getDnaStyle(1, strStyle.c_str(), strOut, bShowWdr);
    std::vector<KeyVal> vecFct(SENSOR_FACTORY_CAPACITY);
    u32 nFct = 0;
    std::string strCopy = strStyle;
    (void)getFctData(1, &strCopy[0], vecFct.data(), &nFct, bShowWdr);
    if (nFct > SENSOR_FACTORY_CAPACITY)
        __builtin_trap();
    return 0;
}
