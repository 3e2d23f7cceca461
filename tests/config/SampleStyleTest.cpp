// The factory values of the sample device tree's styles, as the simulated
// ISP's default profile rewrites them, raw and merged for a sample module.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "config/DnaStyle.h"
#include "config/StyleMerge.h"
#include "controller/ISensorController.h"
#include "tests/support/DnaTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace dnatest;

namespace {

std::string readSample(const std::string& relative) {
    return testsupport::readFile(testsupport::kSampleSensorConfig + relative);
}

// The simulated ISP's default profile: accepted values and default per command.
struct IspList {
    std::vector<u32> items;
    u32 defaultValue;
};

const std::vector<u32> kShutters = {1,   2,   4,   8,   16,   25,   30,   50,   60,
                                    100, 120, 250, 500, 1000, 2000, 5000, 10000};

const std::map<int, IspList>& ispProfile() {
    static const std::map<int, IspList> profile = {
        {49, {kShutters, 30}},       {50, {kShutters, 50}},
        {96, {{0, 1, 2, 3}, 0}},     {144, {{0, 1, 2, 3}, 0}},
        {768, {{0, 1, 2, 3, 4}, 0}}, {1537, {{10, 30, 50, 100, 150, 300, 600}, 30}},
        {2305, {{0, 1}, 0}},         {2368, {{0, 1, 2}, 0}},
    };
    return profile;
}

bool offered(const IspList& list, u32 value) {
    return std::find(list.items.begin(), list.items.end(), value) != list.items.end();
}

// Shutters and the focus near limit keep the style's own value when the ISP
// offers it (100 excepted); every other dynamic command takes the ISP default.
u32 expectedDynamicValue(int id, u32 styleValue, const IspList& list) {
    const bool bKeeps = id == 49 || id == 50 || id == 1537;
    if (bKeeps && styleValue != 100 && offered(list, styleValue))
        return styleValue;
    return list.defaultValue;
}

std::string keysOf(const KeyVal* p, u32 n) {
    std::string s;
    for (u32 i = 0; i < n; ++i)
        s += (i ? "," : "") + std::to_string(p[i].key);
    return s;
}

// Checks the factory values derived from styleText against the expected key
// order, the style's own values and the ISP's lists.
void checkFactoryValues(const std::string& styleText, const std::string& expectedKeys) {
    std::string strStyle = styleText;
    std::vector<KeyVal> vecOut(SENSOR_FACTORY_CAPACITY);
    u32 nCount = 0;
    ASSERT_EQ(0, getFctData(1, &strStyle[0], vecOut.data(), &nCount, false));

    EXPECT_EQ(expectedKeys, keysOf(vecOut.data(), nCount));
    EXPECT_LE(nCount, static_cast<u32>(SENSOR_FACTORY_CAPACITY));
    ASSERT_GE(nCount, 5u);
    for (u32 i = 0; i < 5; ++i)
        EXPECT_EQ(8000 + i, vecOut[i].key);

    Doc objStyle(styleText);
    ASSERT_TRUE(objStyle.loaded());
    for (u32 i = 0; i < nCount; ++i) {
        const int nId = static_cast<int>(vecOut[i].key);
        const u32 nStyleValue = static_cast<u32>(std::atoi(objStyle.value(nId).c_str()));
        const auto it = ispProfile().find(nId);
        if (it == ispProfile().end()) {
            EXPECT_EQ(nStyleValue, vecOut[i].value) << "key " << nId;
            continue;
        }
        EXPECT_TRUE(offered(it->second, vecOut[i].value)) << "key " << nId;
        EXPECT_EQ(expectedDynamicValue(nId, nStyleValue, it->second), vecOut[i].value)
            << "key " << nId;
    }

    // The rewritten style offers exactly the style's choices that the ISP accepts.
    std::string strDna;
    getDnaStyle(1, styleText.c_str(), strDna, false);
    Doc objDna(strDna);
    for (const auto& entry : ispProfile()) {
        if (objStyle.item(entry.first) == nullptr)
            continue;
        std::vector<std::string> vecExpected;
        for (const std::string& strIndex : objStyle.choices(entry.first))
            if (offered(entry.second, static_cast<u32>(std::atoi(strIndex.c_str()))))
                vecExpected.push_back(strIndex);
        EXPECT_EQ(vecExpected, objDna.choices(entry.first)) << "key " << entry.first;
    }
}

// The style merged with its diversity document for a module's detail text.
std::string merged(const std::string& style, const std::string& diversity, const char* detail) {
    ModuleConfig stModule{};
    std::snprintf(stModule.szDetail, sizeof(stModule.szDetail), "%s", detail);
    const std::string strStyle = readSample("style/" + style);
    char* szStyle = static_cast<char*>(std::malloc(strStyle.size() + 1));
    std::memcpy(szStyle, strStyle.c_str(), strStyle.size() + 1);
    std::string strDiversity = readSample("styleDiversity/" + diversity);
    EXPECT_EQ(0, mergeStyle(&stModule, &szStyle, &strDiversity[0]));
    const std::string strOut = szStyle ? szStyle : "";
    std::free(szStyle);
    return strOut;
}

class BeawayShown {
public:
    BeawayShown() : m_bSaved(getshowBeawayFalg()) { setshowBeawayFalg(true); }
    ~BeawayShown() { setshowBeawayFalg(m_bSaved); }

private:
    bool m_bSaved;
};

} // namespace

TEST(SampleStyle, BoxCameraStyleFactoryValues) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    checkFactoryValues(readSample("style/Style.xml"),
                       "8000,8001,8002,8003,8004,34,2337,2353,2321,2528,176,16,96,49,50,65,66,80,"
                       "81,82,83,768,770,771,144,147,145,146,154,149,150,151,152,160,161,162,163,"
                       "164,165,166,167,170,171,172,173,174,2304,2305,2306,2307,2308,2309,2312,"
                       "2313,10,2368,2369,112,113,128,129,130,2416,2417,2400,2401,2384,2385");
}

TEST(SampleStyle, DomeStyleFactoryValues) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    checkFactoryValues(readSample("style/Style_dome.xml"),
                       "8000,8001,8002,8003,8004,34,2337,2353,2321,2528,176,16,96,49,50,65,66,80,"
                       "81,82,83,1536,1537,1538,1571,1584,2560,768,770,771,144,147,145,146,154,"
                       "149,150,151,152,160,161,162,163,164,165,166,167,2304,2305,2306,2307,2308,"
                       "2309,2312,2313,10,2368,2369,112,113,128,129,130,2416,2417,2400,2401,2384,"
                       "2385");
}

TEST(SampleStyle, ThermalStyleFactoryValues) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    checkFactoryValues(readSample("style/Style_Thermal.xml"),
                       "8000,8001,8002,8003,8004,34,2353,2321,10,8201,8202,8208,8204,8203,8209,"
                       "8205,8206,8211,8217,2304,2305,2307,2308,2313,2416,2417,2384,2385");
}

TEST(SampleStyle, MergedBoxCameraStyleFactoryValues) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    checkFactoryValues(
        merged("Style.xml", "StyleDiversity.xml",
               "(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)"),
        "8000,8001,8002,8003,8004,34,2337,2353,2321,2528,176,16,96,49,50,65,66,768,770,771,144,"
        "147,145,146,154,149,150,151,152,160,161,162,163,164,165,166,167,170,171,172,173,174,2304,"
        "2305,2306,2307,2308,2309,2312,2313,10,2368,2369,112,113,128,129,130,2416,2417,2400,2401,"
        "2384,2385");
}

TEST(SampleStyle, MergedDomeStyleFactoryValues) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    checkFactoryValues(
        merged("Style_dome.xml", "StyleDiversity_dome.xml",
               "(sensor=IMX334)(lens=motor)(zoom=33X)(max_scheme=4)(isInfrared=1)(whiteLight=1)"),
        "8000,8001,8002,8003,8004,34,2337,2353,2321,2528,176,16,96,49,50,65,66,80,81,82,83,1536,"
        "1537,1538,1571,1584,2560,768,770,771,144,147,145,146,154,149,150,151,152,160,161,162,163,"
        "164,165,166,167,170,171,172,173,174,2304,2305,2306,2307,2308,2309,2312,2313,10,2368,2369,"
        "112,113,128,129,130,2416,2417,2400,2401,2384,2385");
}

TEST(SampleStyle, MergedThermalStyleFactoryValues) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    checkFactoryValues(merged("Style_Thermal.xml", "StyleDiversity_Thermal.xml",
                              "(sensor=T384)(focus=motor)(max_scheme=2)"),
                       "8000,8001,8002,8003,8004,34,2353,2321,10,8201,8202,8208,8204,8203,8209,"
                       "8205,8206,8211,8217,1536,8207,2304,2305,2307,2308,2313,2416,2417,2384,"
                       "2385");
}

TEST(SampleStyle, ShowWdrWithdrawsTheNoticeFromEverySample) {
    testsupport::TempDeviceRoot root;
    BeawayShown objBeaway;
    for (const char* szFile :
         {"style/Style.xml", "style/Style_dome.xml", "style/Style_Thermal.xml"}) {
        std::string strStyle = readSample(szFile);
        std::vector<KeyVal> vecOut(SENSOR_FACTORY_CAPACITY);
        u32 nCount = 0;
        getFctData(1, &strStyle[0], vecOut.data(), &nCount, true);
        const std::string strKeys = "," + keysOf(vecOut.data(), nCount) + ",";
        EXPECT_EQ(std::string::npos, strKeys.find(",10,")) << szFile;
        EXPECT_EQ(std::string::npos, strKeys.find(",11,")) << szFile;
        EXPECT_NE(std::string::npos, strKeys.find(",8004,")) << szFile;
    }
}
