// The sample device tree the simulated camera starts from: its style
// documents keep the rules the controller relies on, and each product family
// starts up with the expected configuration and merged style.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tinyxml.h>

#include "config/SensorXml.h"
#include "config/StyleMerge.h"
#include "config/SysConfig.h"
#include "tests/support/FilesTestSupport.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "tests/support/TestSupport.h"

using filestest::canonicalXml;
using filestest::captureStdout;

namespace {

using testsupport::readFile;
const std::string& kData = testsupport::kSampleTree;
const std::string& kExpected = testsupport::kExpectedMerges;
const std::string kStyleDir = SENSOR_STYLE_FOLDER;
const std::string kDivDir = SENSOR_STYLE_DIVERSITY_FOLDER;

// The ISP's default dynamic commands and the values it accepts for each.
const std::map<int, std::set<int>>& ispAccepted() {
    static const std::set<int> shutters = {1,   2,   4,   8,   16,   25,   30,   50,   60,
                                           100, 120, 250, 500, 1000, 2000, 5000, 10000};
    static const std::map<int, std::set<int>> accepted = {
        {49, shutters},      {50, shutters},         {96, {0, 1, 2, 3}},
        {144, {0, 1, 2, 3}}, {768, {0, 1, 2, 3, 4}}, {1537, {10, 30, 50, 100, 150, 300, 600}},
        {2305, {0, 1}},      {2368, {0, 1, 2}},
    };
    return accepted;
}

struct Item {
    int id;
    const TiXmlElement* element;
};

// Every element with both "id" and "value", in document order.
void collectItems(const TiXmlElement* element, std::vector<Item>& items) {
    for (const TiXmlElement* child = element->FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (child->Attribute("id") != nullptr && child->Attribute("value") != nullptr)
            items.push_back({std::atoi(child->Attribute("id")), child});
        collectItems(child, items);
    }
}

std::set<int> idsOf(const std::vector<Item>& items) {
    std::set<int> ids;
    for (const Item& item : items)
        ids.insert(item.id);
    return ids;
}

// Checks the rules every style document (base or merged) must keep.
void checkStyleRules(const std::string& name, const std::string& text) {
    SCOPED_TRACE(name);
    TiXmlDocument doc;
    doc.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    ASSERT_FALSE(doc.Error()) << doc.ErrorDesc();
    const TiXmlElement* root = doc.RootElement();
    ASSERT_NE(nullptr, root);
    ASSERT_EQ(nullptr, root->NextSiblingElement()) << "one root element";

    for (const TiXmlElement* tab = root->FirstChildElement(); tab != nullptr;
         tab = tab->NextSiblingElement()) {
        EXPECT_STREQ("tab", tab->Value());
        EXPECT_NE(nullptr, tab->Attribute("key"));
        EXPECT_NE(nullptr, tab->Attribute("name"));
    }

    std::vector<Item> items;
    collectItems(root, items);
    EXPECT_LE(items.size(), 150u);
    ASSERT_GE(items.size(), 5u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(8000 + i, items[i].id) << "scheme key at position " << i;

    std::set<int> seen;
    for (const Item& item : items) {
        EXPECT_TRUE(seen.insert(item.id).second) << "id " << item.id << " twice";
        EXPECT_NE(nullptr, item.element->Attribute("name")) << "id " << item.id;
        const int nValue = std::atoi(item.element->Attribute("value"));
        const TiXmlElement* choice = item.element->FirstChildElement();
        if (choice != nullptr) {
            std::set<int> indices;
            for (; choice != nullptr; choice = choice->NextSiblingElement()) {
                ASSERT_NE(nullptr, choice->Attribute("index")) << "choice of id " << item.id;
                EXPECT_NE(nullptr, choice->Attribute("name")) << "choice of id " << item.id;
                indices.insert(std::atoi(choice->Attribute("index")));
            }
            EXPECT_EQ(1u, indices.count(nValue)) << "value of id " << item.id;
            auto it = ispAccepted().find(item.id);
            if (it != ispAccepted().end()) {
                for (int accepted : it->second)
                    EXPECT_EQ(1u, indices.count(accepted))
                        << "id " << item.id << " lacks choice " << accepted;
            }
        } else if (item.id != 10 && item.id != 11) {
            ASSERT_NE(nullptr, item.element->Attribute("min")) << "id " << item.id;
            ASSERT_NE(nullptr, item.element->Attribute("max")) << "id " << item.id;
            EXPECT_LE(std::atoi(item.element->Attribute("min")), nValue) << "id " << item.id;
            EXPECT_GE(std::atoi(item.element->Attribute("max")), nValue) << "id " << item.id;
        }
    }
    for (int id : {10, 11}) {
        bool bFound = false;
        for (const Item& item : items) {
            if (item.id == id) {
                bFound = true;
                EXPECT_STREQ("0", item.element->Attribute("value"));
            }
        }
        EXPECT_TRUE(bFound) << "notice " << id;
    }
}

std::vector<Item> itemsOf(const std::string& text) {
    TiXmlDocument doc;
    doc.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    std::vector<Item> items;
    if (doc.RootElement() != nullptr)
        collectItems(doc.RootElement(), items);
    return items;
}

void expectKeys(const std::string& text, const std::set<int>& keys) {
    const std::set<int> ids = idsOf(itemsOf(text));
    for (int key : keys)
        EXPECT_EQ(1u, ids.count(key)) << "key " << key;
}

const std::set<int> kCameraKeys = {
    34,  2337, 2353, 2321, 2528, 176,  16,   96,   49,   50,   65,   66,   768, 770, 771,
    144, 147,  145,  146,  154,  149,  150,  151,  152,  160,  161,  162,  163, 164, 165,
    166, 167,  2304, 2305, 2306, 2307, 2308, 2309, 2312, 2313, 2368, 2369, 112, 113, 128,
    129, 130,  2416, 2417, 2400, 2401, 2384, 2385, 80,   81,   82,   83};

// Runs mergeStyle on the sample documents of one family for a module detail.
std::string mergeSample(const std::string& style, const std::string& diversity,
                        const std::string& detail) {
    testsupport::TempDeviceRoot root;
    ModuleConfig stModule{};
    std::snprintf(stModule.szDetail, sizeof(stModule.szDetail), "%s", detail.c_str());
    char* szStyle = strdup(readFile(kData + kStyleDir + style).c_str());
    std::string strDiv = readFile(kData + kDivDir + diversity);
    captureStdout([&] { mergeStyle(&stModule, &szStyle, &strDiv[0]); });
    const std::string strMerged = szStyle;
    std::free(szStyle);
    return strMerged;
}

struct Family {
    int cameraId;
    int deviceType;
    std::string detail;
};

// Starts a channel on the sample tree with the given machine and module.
SysConfig startChannel(const testsupport::TempDeviceRoot& root, const Family& family,
                       std::string* out) {
    root.write(SENSOR_MACHINE_INFO_FILE,
               "[machine]\ndevice_type=" + std::to_string(family.deviceType) +
                   "\nhardware_model=Hi3516DV300\n"
                   "hardware_code=IPC-B2204\n");
    ModuleConfigure objModule;
    objModule.setModuleId(3);
    objModule.setDetail(family.detail);
    SysConfig stConf;
    *out = captureStdout([&] { initSysConf(family.cameraId, objModule, &stConf); });
    return stConf;
}

} // namespace

// --- the sample documents ----------------------------------------------------------

TEST(SampleDeviceTree, EachStyleKeepsTheStyleRules) {
    for (const char* name : {"Style.xml", "Style_dome.xml", "Style_Thermal.xml"})
        checkStyleRules(name, readFile(kData + kStyleDir + name));
}

TEST(SampleDeviceTree, BoxCameraStyleCoversTheCameraKeys) {
    expectKeys(readFile(kData + kStyleDir + "Style.xml"), kCameraKeys);
    expectKeys(readFile(kData + kStyleDir + "Style.xml"), {170, 171, 172, 173, 174});
}

TEST(SampleDeviceTree, DomeStyleAddsTheLensKeys) {
    const std::string strDome = readFile(kData + kStyleDir + "Style_dome.xml");
    expectKeys(strDome, kCameraKeys);
    expectKeys(strDome, {1536, 1537, 1538, 1571, 1584, 2560});
    for (const char* button : {"1539", "1569", "1570", "1553", "1554", "1616"})
        EXPECT_NE(std::string::npos, strDome.find(std::string("<button id=\"") + button + "\""));
}

TEST(SampleDeviceTree, ThermalStyleCoversTheThermalKeys) {
    const std::string strThermal = readFile(kData + kStyleDir + "Style_Thermal.xml");
    expectKeys(strThermal, {8201, 8202, 8203, 8204, 8205, 8206, 8208, 8209, 8211, 8217, 34, 2353,
                            2384, 2385, 2416, 2304, 2305});
    EXPECT_NE(std::string::npos, strThermal.find("<button id=\"8231\""));
    EXPECT_NE(std::string::npos, strThermal.find("<button id=\"8212\""));
    // Fewer optical items than a box camera.
    EXPECT_LT(itemsOf(strThermal).size(),
              itemsOf(readFile(kData + kStyleDir + "Style.xml")).size());
}

TEST(SampleDeviceTree, SomeDynamicChoicesOfferMoreThanTheIspAccepts) {
    // The run-time rewrite prunes these extra choices.
    const std::string strStyle = readFile(kData + kStyleDir + "Style.xml");
    EXPECT_NE(std::string::npos, strStyle.find("<option index=\"20000\""));
    EXPECT_NE(std::string::npos, strStyle.find("<option index=\"3\" name=\"Frame\""));
}

// Every operation names a tab its style has (or an earlier rule added), so no
// rule is silently void.
TEST(SampleDeviceTree, EveryDiversityOperationNamesAnExistingTab) {
    const std::vector<std::pair<std::string, std::string>> pairs = {
        {"Style.xml", "StyleDiversity.xml"},
        {"Style_dome.xml", "StyleDiversity_dome.xml"},
        {"Style_Thermal.xml", "StyleDiversity_Thermal.xml"}};
    for (const auto& pair : pairs) {
        SCOPED_TRACE(pair.second);
        TiXmlDocument style;
        style.Parse(readFile(kData + kStyleDir + pair.first).c_str());
        std::set<std::string> tabs;
        for (const TiXmlElement* tab = style.RootElement()->FirstChildElement(); tab != nullptr;
             tab = tab->NextSiblingElement())
            tabs.insert(tab->Attribute("key"));
        TiXmlDocument div;
        div.Parse(readFile(kData + kDivDir + pair.second).c_str());
        ASSERT_FALSE(div.Error()) << div.ErrorDesc();
        int nRules = 0;
        for (const TiXmlElement* rule = div.RootElement(); rule != nullptr;
             rule = rule->NextSiblingElement(), ++nRules) {
            EXPECT_NE(nullptr, rule->FirstAttribute());
            for (const TiXmlElement* op = rule->FirstChildElement(); op != nullptr;
                 op = op->NextSiblingElement()) {
                ASSERT_NE(nullptr, op->Attribute("tab_key"));
                EXPECT_EQ(1u, tabs.count(op->Attribute("tab_key"))) << op->Attribute("tab_key");
                if (std::string(op->Value()) != "Delete") {
                    EXPECT_NE(nullptr, op->FirstChildElement("tab"));
                }
            }
        }
        EXPECT_GE(nRules, 3);
    }
}

TEST(SampleDeviceTree, DiversityDocumentsUseAllThreeOperations) {
    const std::string strAll = readFile(kData + kDivDir + "StyleDiversity.xml") +
                               readFile(kData + kDivDir + "StyleDiversity_dome.xml") +
                               readFile(kData + kDivDir + "StyleDiversity_Thermal.xml");
    for (const char* op : {"<Modify tab_key=", "<AddAfter tab_key=", "<Delete tab_key="})
        EXPECT_NE(std::string::npos, strAll.find(op)) << op;
}

TEST(SampleDeviceTree, MachineModuleIsFoundInTheModuleConfiguration) {
    testsupport::TempDeviceRoot root(true);
    MachineInfo info;
    ASSERT_TRUE(SystemInfoParser::parseMachineInfo(root.real(SENSOR_MACHINE_INFO_FILE), info));
    EXPECT_EQ(1, info.getDeviceType());
    std::vector<ModuleConfigure> modules;
    ASSERT_TRUE(ModuleConfigureParser::parse(root.real(SENSOR_MODULE_CONFIG_FILE),
                                             info.getHardwareModel(), info.getHardwareCode(),
                                             modules));
    ASSERT_EQ(1u, modules.size());
    EXPECT_EQ("(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)", modules[0].getDetail());
}

// --- merges of the sample documents, against documents written out by hand ---------

TEST(SampleDeviceTree, BoxCameraImx327FixedLensMerge) {
    const std::string strMerged = mergeSample("Style.xml", "StyleDiversity.xml",
                                              "(sensor=IMX327)(lens=fixed)(max_scheme=4)"
                                              "(isInfrared=1)");
    EXPECT_EQ(canonicalXml(readFile(kExpected + "ipc_imx327_fixed.xml")), canonicalXml(strMerged));
    checkStyleRules("merged", strMerged);
}

TEST(SampleDeviceTree, BoxCameraOs04a10MotorLensMerge) {
    const std::string strMerged =
        mergeSample("Style.xml", "StyleDiversity.xml",
                    "(sensor=OS04A10)(lens=motor)(max_scheme=4)(isInfrared=0)(wdr=line)");
    EXPECT_EQ(canonicalXml(readFile(kExpected + "ipc_os04a10_motor.xml")), canonicalXml(strMerged));
    checkStyleRules("merged", strMerged);
}

TEST(SampleDeviceTree, DomeImx334WhiteLightMerge) {
    const std::string strMerged = mergeSample(
        "Style_dome.xml", "StyleDiversity_dome.xml",
        "(sensor=IMX334)(lens=motor)(zoom=33X)(max_scheme=4)(isInfrared=1)(whiteLight=1)");
    EXPECT_EQ(canonicalXml(readFile(kExpected + "dome_imx334_whitelight.xml")),
              canonicalXml(strMerged));
    checkStyleRules("merged", strMerged);
}

TEST(SampleDeviceTree, DomeImx462ShortZoomWithoutInfraredMerge) {
    const std::string strMerged = mergeSample("Style_dome.xml", "StyleDiversity_dome.xml",
                                              "(sensor=IMX462)(zoom=4X)(isInfrared=0)");
    EXPECT_EQ(canonicalXml(readFile(kExpected + "dome_imx462_4x_noir.xml")),
              canonicalXml(strMerged));
    checkStyleRules("merged", strMerged);
}

TEST(SampleDeviceTree, ThermalT384MotorFocusMerge) {
    const std::string strMerged = mergeSample("Style_Thermal.xml", "StyleDiversity_Thermal.xml",
                                              "(sensor=T384)(focus=motor)(max_scheme=2)");
    EXPECT_EQ(canonicalXml(readFile(kExpected + "thermal_t384_motor.xml")),
              canonicalXml(strMerged));
    checkStyleRules("merged", strMerged);
}

TEST(SampleDeviceTree, ModuleMatchingNoRuleKeepsTheBaseStyle) {
    const std::string strMerged =
        mergeSample("Style.xml", "StyleDiversity.xml", "(sensor=GC2053)(max_scheme=4)");
    EXPECT_EQ(canonicalXml(readFile(kData + kStyleDir + "Style.xml")), canonicalXml(strMerged));
}

// --- start-up on the sample tree, one channel per product family ----------------------

TEST(SampleDeviceTree, BoxCameraStartsWithItsConfiguration) {
    testsupport::TempDeviceRoot root(true);
    std::string out;
    SysConfig stConf =
        startChannel(root, {1, 1, "(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)"}, &out);
    EXPECT_EQ("", out);
    EXPECT_EQ(4u, stConf.nSchemeSum);
    EXPECT_EQ(1u, stConf.nDeviceType);
    EXPECT_EQ(canonicalXml(readFile(kExpected + "ipc_imx327_fixed.xml")),
              canonicalXml(stConf.szUIStyle));
    EXPECT_EQ(std::string(stConf.szUIStyle), root.read(SENSOR_MERGE_STYLE_FILE));
    uinitSysConf(&stConf);
}

TEST(SampleDeviceTree, DomeStartsWithItsConfiguration) {
    testsupport::TempDeviceRoot root(true);
    std::string out;
    SysConfig stConf = startChannel(
        root,
        {1, 4, "(sensor=IMX334)(lens=motor)(zoom=33X)(max_scheme=4)(isInfrared=1)(whiteLight=1)"},
        &out);
    EXPECT_EQ("", out);
    EXPECT_EQ(4u, stConf.nSchemeSum);
    EXPECT_EQ(4u, stConf.nDeviceType);
    EXPECT_EQ(canonicalXml(readFile(kExpected + "dome_imx334_whitelight.xml")),
              canonicalXml(stConf.szUIStyle));
    uinitSysConf(&stConf);
}

TEST(SampleDeviceTree, ThermalChannelStartsWithItsConfiguration) {
    testsupport::TempDeviceRoot root(true);
    std::string out;
    SysConfig stConf =
        startChannel(root, {2, 13, "(sensor=T384)(focus=motor)(max_scheme=2)"}, &out);
    EXPECT_EQ("", out);
    EXPECT_EQ(2u, stConf.nSchemeSum);
    EXPECT_EQ(13u, stConf.nDeviceType);
    EXPECT_EQ(canonicalXml(readFile(kExpected + "thermal_t384_motor.xml")),
              canonicalXml(stConf.szUIStyle));
    uinitSysConf(&stConf);
}
