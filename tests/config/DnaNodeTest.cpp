// The style helpers that find, change and remove items by their id.
#include <gtest/gtest.h>

#include <string>

#include "config/DnaStyle.h"
#include "tests/support/DnaTestSupport.h"

using namespace dnatest;

namespace {

// Two items with id 5 in document order, the first holding a third one.
const char* const kNested = "<style>"
                            "<item id=\"5\" value=\"1\" name=\"outer\">"
                            "<item id=\"5\" value=\"2\" name=\"inner\" />"
                            "</item>"
                            "<page><item id=\"5\" value=\"3\" name=\"last\" /></page>"
                            "<item id=\"6\" value=\"4\" name=\"six\" />"
                            "</style>";

const char* nameOf(const TiXmlElement* p) {
    return p ? p->Attribute("name") : "<null>";
}

} // namespace

TEST(DnaNode, GetNodeFindsLastMatchInDocumentOrder) {
    Doc objDoc(kNested);
    TiXmlElement* pFound = nullptr;
    EXPECT_EQ(0, getNodebyCmdId(objDoc.root(), 5, pFound));
    EXPECT_STREQ("last", nameOf(pFound));
}

TEST(DnaNode, GetNodeDoesNotSearchInsideAMatch) {
    Doc objDoc("<style><item id=\"5\" name=\"outer\"><item id=\"5\" name=\"inner\" /></item>"
               "</style>");
    TiXmlElement* pFound = nullptr;
    getNodebyCmdId(objDoc.root(), 5, pFound);
    EXPECT_STREQ("outer", nameOf(pFound));
}

TEST(DnaNode, GetNodeMatchesTheStartingElement) {
    Doc objDoc("<style id=\"7\" name=\"root\"><item id=\"7\" name=\"child\" /></style>");
    TiXmlElement* pFound = nullptr;
    getNodebyCmdId(objDoc.root(), 7, pFound);
    EXPECT_STREQ("root", nameOf(pFound));
}

TEST(DnaNode, GetNodeWithoutMatchLeavesOutputUnchanged) {
    Doc objDoc(kNested);
    TiXmlElement* pFound = objDoc.root();
    EXPECT_EQ(0, getNodebyCmdId(objDoc.root(), 99, pFound));
    EXPECT_EQ(objDoc.root(), pFound);
}

TEST(DnaNode, GetNodeComparesIdsAsNumbers) {
    Doc objDoc("<style><item id=\"0049\" name=\"shutter\" /><item id=\"x\" name=\"x\" /></style>");
    TiXmlElement* pFound = nullptr;
    getNodebyCmdId(objDoc.root(), 49, pFound);
    EXPECT_STREQ("shutter", nameOf(pFound));
    // A non-numeric id reads as 0.
    getNodebyCmdId(objDoc.root(), 0, pFound);
    EXPECT_STREQ("x", nameOf(pFound));
}

TEST(DnaNode, GetNodeOfNullElementReturnsZero) {
    TiXmlElement* pFound = nullptr;
    EXPECT_EQ(0, getNodebyCmdId(nullptr, 5, pFound));
    EXPECT_EQ(nullptr, pFound);
}

TEST(DnaNode, GetValueTakesLastMatchWithValue) {
    Doc objDoc(kNested);
    int nValue = -1;
    EXPECT_EQ(0, getDnaValbyCmdId(objDoc.root(), 5, nValue));
    EXPECT_EQ(3, nValue);
}

TEST(DnaNode, GetValueSkipsLaterMatchWithoutValue) {
    Doc objDoc("<style><item id=\"5\" value=\"8\" /><item id=\"5\" /></style>");
    int nValue = -1;
    getDnaValbyCmdId(objDoc.root(), 5, nValue);
    EXPECT_EQ(8, nValue);
}

TEST(DnaNode, GetValueWithoutMatchLeavesOutputUnchanged) {
    Doc objDoc(kNested);
    int nValue = -1;
    EXPECT_EQ(0, getDnaValbyCmdId(objDoc.root(), 99, nValue));
    EXPECT_EQ(-1, nValue);
    EXPECT_EQ(0, getDnaValbyCmdId(nullptr, 5, nValue));
    EXPECT_EQ(-1, nValue);
}

TEST(DnaNode, HighLightCompensationExcludesBackLight) {
    Doc objDoc("<style><item id=\"112\" /><page><item id=\"112\" enable_list=\"1\" /></page>"
               "<item id=\"128\" /></style>");
    EXPECT_EQ(0, ModifyNodebyCmdId(objDoc.root(), 112));
    for (TiXmlElement* p : objDoc.all(112))
        EXPECT_STREQ("128", p->Attribute("enable_list"));
    EXPECT_EQ(nullptr, objDoc.item(128)->Attribute("enable_list"));
}

TEST(DnaNode, BackLightCompensationExcludesHighLight) {
    Doc objDoc("<style><item id=\"112\" /><item id=\"128\" /></style>");
    EXPECT_EQ(0, ModifyNodebyCmdId(objDoc.root(), 128));
    EXPECT_STREQ("112", objDoc.item(128)->Attribute("enable_list"));
    EXPECT_EQ(nullptr, objDoc.item(112)->Attribute("enable_list"));
}

TEST(DnaNode, ModifyOtherIdChangesNothing) {
    const std::string strStyle = "<style><item id=\"34\" enable_list=\"1\" /></style>";
    Doc objDoc(strStyle);
    EXPECT_EQ(0, ModifyNodebyCmdId(objDoc.root(), 34));
    EXPECT_EQ(reserialised(strStyle), objDoc.text());
    EXPECT_EQ(0, ModifyNodebyCmdId(nullptr, 112));
}

TEST(DnaNode, DeleteNodeRemovesTheNode) {
    Doc objDoc(kNested);
    TiXmlElement* pFound = nullptr;
    getNodebyCmdId(objDoc.root(), 6, pFound);
    EXPECT_EQ(0, DeleteNode(objDoc.root(), pFound));
    EXPECT_EQ(nullptr, objDoc.item(6));
    EXPECT_EQ(3u, objDoc.all(5).size());
}

TEST(DnaNode, DeleteNodeRemovesNestedNodeFromItsOwnParent) {
    Doc objDoc(kNested);
    TiXmlElement* pLast = nullptr;
    getNodebyCmdId(objDoc.root(), 5, pLast);
    EXPECT_EQ(0, DeleteNode(objDoc.root(), pLast));
    EXPECT_EQ(2u, objDoc.all(5).size());
    EXPECT_NE(nullptr, objDoc.root()->FirstChildElement("page"));
}

TEST(DnaNode, DeleteNodeWithNullArgumentsFails) {
    Doc objDoc(kNested);
    EXPECT_EQ(-1, DeleteNode(nullptr, objDoc.item(6)));
    EXPECT_EQ(-1, DeleteNode(objDoc.root(), nullptr));
    EXPECT_NE(nullptr, objDoc.item(6));
}

TEST(DnaNode, DeleteNodeKeepsTheRootElement) {
    Doc objDoc(kNested);
    EXPECT_EQ(0, DeleteNode(objDoc.root(), objDoc.root()));
    ASSERT_NE(nullptr, objDoc.root());
    EXPECT_NE(nullptr, objDoc.item(6));
}

TEST(DnaNode, DoDnaStyleOfNullElementReturnsZero) {
    ia_dynamic_params_attr_st stRange{};
    EXPECT_EQ(0, doDnaStyle(nullptr, 96, &stRange));
}

TEST(DnaNode, DoDnaStyleRemovesConsecutiveChoices) {
    Doc objDoc(style(choiceItem(96, 0, {0, 1, 2, 3, 4, 5})));
    ia_dynamic_params_attr_st stRange{};
    stRange.default_value = 5;
    stRange.items_cnt = 1;
    stRange.item[0] = 5;
    EXPECT_EQ(0, doDnaStyle(objDoc.root(), 96, &stRange));
    EXPECT_EQ(std::vector<std::string>{"5"}, objDoc.choices(96));
    EXPECT_EQ("5", objDoc.value(96));
}

TEST(DnaNode, DoDnaStyleIgnoresItemsBeyondTheCount) {
    Doc objDoc(style(choiceItem(96, 0, {0, 1, 2})));
    ia_dynamic_params_attr_st stRange{};
    stRange.items_cnt = 1;
    stRange.item[0] = 0;
    stRange.item[1] = 1;
    doDnaStyle(objDoc.root(), 96, &stRange);
    EXPECT_EQ(std::vector<std::string>{"0"}, objDoc.choices(96));
}

TEST(DnaNode, DoDnaStyleChoiceWithoutIndexFails) {
    Doc objDoc("<style><page><item id=\"96\"><option index=\"9\" /><option />"
               "<option index=\"8\" /></item></page><item id=\"96\" value=\"7\" /></style>");
    ia_dynamic_params_attr_st stRange{};
    stRange.default_value = 2;
    EXPECT_EQ(-1, doDnaStyle(objDoc.root(), 96, &stRange));
    // The choice before the bad one is gone; the later item was not reached.
    EXPECT_EQ((std::vector<std::string>{"<none>", "8"}), objDoc.choices(96));
    EXPECT_STREQ("7", objDoc.all(96)[1]->Attribute("value"));
}
