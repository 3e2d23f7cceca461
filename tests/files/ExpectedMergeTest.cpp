// The merged styles under tests/files/expected/ are checked against the
// merge itself elsewhere; here each is checked against the rules it shows,
// worked out from the inputs alone: which diversity rules the module's
// detail selects (an attribute agreeing in its first five characters with
// the detail field of that name, one piece of a "," list being enough), and
// what each of their operations does to the base style's list of tabs (Modify
// puts its tab in the old one's place, AddAfter puts its tab right after the
// named one, Delete takes the named one away; a key not there changes
// nothing). Every tab of the expected document must be the one this
// reasoning puts there, in its place.
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tinyxml.h>

#include "tests/support/TestSupport.h"

namespace {

using testsupport::readFile;
const std::string& kStyles = testsupport::kSampleSensorConfig;
const std::string& kExpected = testsupport::kExpectedMerges;

std::string printed(const TiXmlElement* element) {
    TiXmlPrinter printer;
    element->Accept(&printer);
    return printer.Str();
}

struct Tab {
    std::string key;
    std::string text; // the whole tab as TinyXML prints it
};

std::vector<Tab> tabsOf(const TiXmlElement* root) {
    std::vector<Tab> tabs;
    for (const TiXmlElement* tab = root->FirstChildElement(); tab != nullptr;
         tab = tab->NextSiblingElement())
        tabs.push_back({tab->Attribute("key") ? tab->Attribute("key") : "", printed(tab)});
    return tabs;
}

std::vector<std::string> keysOf(const std::vector<Tab>& tabs) {
    std::vector<std::string> keys;
    for (const Tab& tab : tabs)
        keys.push_back(tab.key);
    return keys;
}

// "(name=value)(name=value)..." as a map.
std::map<std::string, std::string> detailFields(const std::string& detail) {
    std::map<std::string, std::string> fields;
    size_t pos = 0;
    while ((pos = detail.find('(', pos)) != std::string::npos) {
        const size_t end = detail.find(')', pos);
        const size_t eq = detail.find('=', pos);
        if (end == std::string::npos || eq == std::string::npos || eq > end)
            break;
        fields[detail.substr(pos + 1, eq - pos - 1)] = detail.substr(eq + 1, end - eq - 1);
        pos = end + 1;
    }
    return fields;
}

bool agreeInFive(const std::string& a, const std::string& b) {
    return a.substr(0, 5) == b.substr(0, 5);
}

// The attribute that selects the rule for this detail, or "" for none.
std::string selectingAttribute(const TiXmlElement* rule,
                               const std::map<std::string, std::string>& fields) {
    for (const TiXmlAttribute* attr = rule->FirstAttribute(); attr != nullptr;
         attr = attr->Next()) {
        const auto field = fields.find(attr->Name());
        if (field == fields.end())
            continue;
        std::stringstream pieces(attr->Value());
        std::string piece;
        while (std::getline(pieces, piece, ','))
            if (agreeInFive(piece, field->second))
                return std::string(attr->Name()) + "=" + attr->Value();
        if (agreeInFive(attr->Value(), field->second))
            return std::string(attr->Name()) + "=" + attr->Value();
    }
    return "";
}

// What the merge of this case must do, and the tabs it must leave.
struct Reasoned {
    std::vector<std::string> changes; // one line per operation that changed something
    std::vector<Tab> tabs;
};

Reasoned reason(const TiXmlElement* styleRoot, const TiXmlElement* firstRule,
                const std::string& detail) {
    Reasoned out;
    out.tabs = tabsOf(styleRoot);
    const auto fields = detailFields(detail);
    for (const TiXmlElement* rule = firstRule; rule != nullptr; rule = rule->NextSiblingElement()) {
        const std::string why = selectingAttribute(rule, fields);
        if (why.empty())
            continue;
        for (const TiXmlElement* op = rule->FirstChildElement(); op != nullptr;
             op = op->NextSiblingElement()) {
            const std::string name = op->Value();
            const std::string key = op->Attribute("tab_key") ? op->Attribute("tab_key") : "";
            size_t at = 0;
            while (at < out.tabs.size() && out.tabs[at].key != key)
                ++at;
            if (at == out.tabs.size())
                continue;
            const TiXmlElement* content = op->FirstChildElement();
            const auto where = out.tabs.begin() + static_cast<long>(at);
            if (name == "Delete") {
                out.tabs.erase(where);
                out.changes.push_back(why + ": tab " + key + " deleted");
            } else if (name == "Modify" && content != nullptr) {
                *where = {content->Attribute("key") ? content->Attribute("key") : "",
                          printed(content)};
                out.changes.push_back(why + ": tab " + key + " replaced in place");
            } else if (name == "AddAfter" && content != nullptr) {
                const std::string added =
                    content->Attribute("key") ? content->Attribute("key") : "";
                out.tabs.insert(where + 1, {added, printed(content)});
                out.changes.push_back(why + ": tab " + added + " added after " + key);
            }
        }
    }
    return out;
}

struct Case {
    const char* expected;
    const char* style;
    const char* diversity;
    const char* detail;
    // What the reasoning finds, written here so that a reader sees it and a
    // change of the inputs that changes it shows up.
    std::vector<std::string> changes;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.expected;
}

class ExpectedMerge : public ::testing::TestWithParam<Case> {};

TEST_P(ExpectedMerge, ShowsExactlyTheRulesTheDetailSelects) {
    const Case& c = GetParam();
    TiXmlDocument style, diversity, expected;
    style.Parse(readFile(kStyles + "style/" + c.style).c_str(), nullptr, TIXML_ENCODING_UTF8);
    diversity.Parse(readFile(kStyles + "styleDiversity/" + c.diversity).c_str(), nullptr,
                    TIXML_ENCODING_UTF8);
    expected.Parse(readFile(kExpected + c.expected).c_str(), nullptr, TIXML_ENCODING_UTF8);
    ASSERT_FALSE(style.Error()) << style.ErrorDesc();
    ASSERT_FALSE(diversity.Error()) << diversity.ErrorDesc();
    ASSERT_FALSE(expected.Error()) << expected.ErrorDesc();

    const Reasoned reasoned = reason(style.RootElement(), diversity.RootElement(), c.detail);
    EXPECT_EQ(c.changes, reasoned.changes);

    // The root stays the base style's, with its attributes.
    TiXmlElement styleRoot(*style.RootElement());
    TiXmlElement expectedRoot(*expected.RootElement());
    styleRoot.Clear();
    expectedRoot.Clear();
    EXPECT_EQ(printed(&styleRoot), printed(&expectedRoot));

    const std::vector<Tab> tabs = tabsOf(expected.RootElement());
    ASSERT_EQ(keysOf(reasoned.tabs), keysOf(tabs)) << "the tabs or their order differ";
    for (size_t i = 0; i < tabs.size(); ++i)
        EXPECT_EQ(reasoned.tabs[i].text, tabs[i].text) << "tab " << tabs[i].key;
}

INSTANTIATE_TEST_SUITE_P(
    SampleTree, ExpectedMerge,
    ::testing::Values(
        Case{"ipc_imx327_fixed.xml",
             "Style.xml",
             "StyleDiversity.xml",
             "(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)",
             {"sensor=IMX327,IMX307: tab image replaced in place", "lens=fixed: tab iris deleted"}},
        Case{"ipc_os04a10_motor.xml",
             "Style.xml",
             "StyleDiversity.xml",
             "(sensor=OS04A10)(lens=motor)(max_scheme=4)(isInfrared=0)(wdr=line)",
             {"lens=motor,vari: tab lens added after exposure", "isInfrared=0: tab ir deleted",
              "sensor=OS04A10: tab wdr replaced in place"}},
        Case{"dome_imx334_whitelight.xml",
             "Style_dome.xml",
             "StyleDiversity_dome.xml",
             "(sensor=IMX334)(lens=motor)(zoom=33X)(max_scheme=4)(isInfrared=1)(whiteLight=1)",
             {"whiteLight=1: tab whitelight added after ir"}},
        Case{"dome_imx462_4x_noir.xml",
             "Style_dome.xml",
             "StyleDiversity_dome.xml",
             "(sensor=IMX462)(zoom=4X)(isInfrared=0)",
             {"sensor=IMX327,IMX307,IMX462: tab image replaced in place",
              "zoom=4X: tab lens replaced in place", "isInfrared=0: tab ir deleted"}},
        Case{"thermal_t384_motor.xml",
             "Style_Thermal.xml",
             "StyleDiversity_Thermal.xml",
             "(sensor=T384)(focus=motor)(max_scheme=2)",
             {"sensor=T384,T640: tab thermal replaced in place",
              "focus=motor: tab focus added after thermal"}}),
    [](const ::testing::TestParamInfo<Case>& p_info) {
        std::string name = p_info.param.expected;
        name = name.substr(0, name.find('.'));
        for (char& ch : name)
            if (ch == '_')
                ch = 'X';
        return name;
    });

} // namespace
