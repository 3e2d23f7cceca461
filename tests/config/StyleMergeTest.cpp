// The style merge: which diversity rules apply to a module, and what their
// operations do to the style's tabs.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "config/SensorXml.h"
#include "config/StyleMerge.h"
#include "tests/support/FilesTestSupport.h"
#include "tests/support/TestSupport.h"

using filestest::canonicalXml;
using filestest::captureStdout;
using filestest::failed;

namespace {

const char* const kStyle = "<style>"
                           "<tab key=\"image\"><item id=\"34\" value=\"50\"/></tab>"
                           "<tab key=\"wdr\"><item id=\"2368\" value=\"0\"/></tab>"
                           "<tab key=\"mirror\"><item id=\"2384\" value=\"0\"/></tab>"
                           "</style>";

ModuleConfig moduleWithDetail(const std::string& detail) {
    ModuleConfig stModule;
    std::memset(&stModule, 0, sizeof(stModule));
    std::strncpy(stModule.szDetail, detail.c_str(), sizeof(stModule.szDetail) - 1);
    return stModule;
}

// Merges diversity into kStyle (or the given style) for the detail; returns
// the merged text and, through out, what was printed.
std::string merge(const std::string& detail, const std::string& diversity,
                  std::string* out = nullptr, const char* style = kStyle, int* result = nullptr) {
    ModuleConfig stModule = moduleWithDetail(detail);
    char* szStyle = strdup(style);
    std::string strDiv = diversity;
    int nRet = -1;
    const std::string strOut =
        captureStdout([&] { nRet = mergeStyle(&stModule, &szStyle, &strDiv[0]); });
    if (out != nullptr)
        *out = strOut;
    if (result != nullptr)
        *result = nRet;
    std::string strMerged = szStyle != nullptr ? szStyle : "<null>";
    std::free(szStyle);
    return strMerged;
}

const std::string kDeleteMirror = "<Delete tab_key=\"mirror\"/>";
const std::string kWithoutMirror = "<style>"
                                   "<tab key=\"image\"><item id=\"34\" value=\"50\"/></tab>"
                                   "<tab key=\"wdr\"><item id=\"2368\" value=\"0\"/></tab>"
                                   "</style>";

std::string rule(const std::string& attrs, const std::string& ops = kDeleteMirror) {
    return "<rule " + attrs + ">" + ops + "</rule>";
}

} // namespace

// --- which rules apply ------------------------------------------------------------

TEST(StyleMerge, RuleValueListContainingTheDetailValueApplies) {
    testsupport::TempDeviceRoot root;
    EXPECT_EQ(canonicalXml(kWithoutMirror),
              canonicalXml(merge("(sensor=ABCDE1)", rule("sensor=\"XYZ,ABCDE1\""))));
}

TEST(StyleMerge, ValueAgreeingInTheFirstFiveCharactersApplies) {
    testsupport::TempDeviceRoot root;
    EXPECT_EQ(canonicalXml(kWithoutMirror),
              canonicalXml(merge("(sensor=ABCDE1)", rule("sensor=\"ABCDE9\""))));
}

TEST(StyleMerge, ValueShorterThanFiveCharactersDoesNotApply) {
    testsupport::TempDeviceRoot root;
    EXPECT_EQ(canonicalXml(kStyle),
              canonicalXml(merge("(sensor=ABCDE1)", rule("sensor=\"ABCD\""))));
}

TEST(StyleMerge, RuleWhoseAttributesAreAllAbsentFromTheDetailIsSkipped) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    std::string out;
    EXPECT_EQ(canonicalXml(kStyle),
              canonicalXml(merge("(sensor=ABCDE1)", rule("lens=\"motor\" zoom=\"30X\""), &out)));
    EXPECT_NE(std::string::npos,
              out.find("modi_attr->Name()(lens), modi_attr->Value()(motor) nVal()\n"));
    EXPECT_NE(std::string::npos,
              out.find("modi_attr->Name()(zoom), modi_attr->Value()(30X) nVal()\n"));
}

// The attribute prints are the merge's own: their header names mergeStyle.
TEST(StyleMerge, AttributePrintsCarryTheMergesFunctionName) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    std::string out;
    merge("(sensor=ABCDE1)(lens=fixed)", rule("sensor=\"IMX290\" lens=\"motor,fixed\""), &out);
    EXPECT_EQ(std::string::npos, out.find("fun:attributeAgrees")) << out;
    // Two attributes looked at, one not agreeing, one agreeing and printed
    // again with the rule and around its one operation.
    const std::string strHeader = "[sensor dbg] file:SensorFile.cpp fun:mergeStyle line:";
    EXPECT_EQ(6u, testsupport::occurrences(out, strHeader)) << out;
    const std::string::size_type nAt =
        out.find("modi_attr->Name()(sensor), modi_attr->Value()(IMX290) nVal(ABCDE1)\n");
    ASSERT_NE(std::string::npos, nAt);
    EXPECT_NE(std::string::npos, out.rfind(strHeader, nAt));
    EXPECT_EQ(out.rfind("fun:", nAt), out.rfind(strHeader, nAt) + strHeader.find("fun:"));
}

TEST(StyleMerge, RuleWithoutAttributesIsSkipped) {
    testsupport::TempDeviceRoot root;
    EXPECT_EQ(canonicalXml(kStyle), canonicalXml(merge("(sensor=ABCDE1)", rule(""))));
}

TEST(StyleMerge, OneAgreeingAttributeIsEnough) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    std::string out;
    EXPECT_EQ(canonicalXml(kWithoutMirror),
              canonicalXml(merge("(sensor=ABCDE1)(lens=fixed)",
                                 rule("sensor=\"IMX290\" lens=\"motor,fixed\""), &out)));
    EXPECT_NE(std::string::npos,
              out.find("modi_attr->Name()(sensor), modi_attr->Value()(IMX290) nVal(ABCDE1)\n"));
    EXPECT_NE(std::string::npos,
              out.find("modi_attr->Name()(lens), modi_attr->Value()(motor,fixed)\n"));
}

TEST(StyleMerge, WholeAttributeValueAgreesWhenNoSingleValueDoes) {
    testsupport::TempDeviceRoot root;
    EXPECT_EQ(canonicalXml(kWithoutMirror),
              canonicalXml(merge("(board=AB,CD)", rule("board=\"AB,CD\""))));
}

// Detail values longer than the comparison buffer are cut, not copied past it.
TEST(StyleMerge, LongDetailValueIsComparedByItsFirstFiveCharacters) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("6\n");
    std::string out;
    EXPECT_EQ(canonicalXml(kStyle),
              canonicalXml(merge("(sensor=IMX3ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789)",
                                 rule("sensor=\"IMX327\""), &out)));
    EXPECT_NE(std::string::npos, out.find("nVal(IMX3ABC)\n"));
    EXPECT_EQ(canonicalXml(kWithoutMirror),
              canonicalXml(merge("(sensor=IMX32ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789)",
                                 rule("sensor=\"IMX327\""))));
}

TEST(StyleMerge, FieldNameMatchesInsideALongerDetailName) {
    testsupport::TempDeviceRoot root;
    EXPECT_EQ(canonicalXml(kWithoutMirror),
              canonicalXml(merge("(mainsensor=ABCDE)", rule("sensor=\"ABCDE\""))));
}

TEST(StyleMerge, RulesApplyInDocumentOrderOnEarlierResults) {
    testsupport::TempDeviceRoot root;
    const std::string strDiv =
        rule("a=\"1\"", "<AddAfter tab_key=\"wdr\"><tab key=\"dis\"/></AddAfter>") +
        rule("b=\"2\"", "<Modify tab_key=\"dis\"><tab key=\"defog\"/></Modify>");
    EXPECT_EQ(canonicalXml("<style>"
                           "<tab key=\"image\"><item id=\"34\" value=\"50\"/></tab>"
                           "<tab key=\"wdr\"><item id=\"2368\" value=\"0\"/></tab>"
                           "<tab key=\"defog\"/>"
                           "<tab key=\"mirror\"><item id=\"2384\" value=\"0\"/></tab>"
                           "</style>"),
              canonicalXml(merge("(a=1)(b=2)", strDiv)));
}

TEST(StyleMerge, RuleWithoutOperationsIsReportedAndTheNextRuleStillApplies) {
    testsupport::TempDeviceRoot root;
    std::string out;
    const std::string strDiv = "<rule a=\"1\"/>" + rule("b=\"2\"");
    EXPECT_EQ(canonicalXml(kWithoutMirror), canonicalXml(merge("(a=1)(b=2)", strDiv, &out)));
    EXPECT_NE(std::string::npos,
              out.find(failed("NULL != (node_second = node_first->FirstChildElement())")));
}

// --- the operations ---------------------------------------------------------------

TEST(StyleMerge, ModifyKeepsTheTabsPosition) {
    testsupport::TempDeviceRoot root;
    const std::string strDiv =
        rule("a=\"1\"", "<Modify tab_key=\"wdr\"><tab key=\"wdr2\"><item id=\"2369\" "
                        "value=\"9\"/></tab></Modify>");
    EXPECT_EQ(canonicalXml("<style>"
                           "<tab key=\"image\"><item id=\"34\" value=\"50\"/></tab>"
                           "<tab key=\"wdr2\"><item id=\"2369\" value=\"9\"/></tab>"
                           "<tab key=\"mirror\"><item id=\"2384\" value=\"0\"/></tab>"
                           "</style>"),
              canonicalXml(merge("(a=1)", strDiv)));
}

TEST(StyleMerge, AddAfterInsertsRightAfterTheTab) {
    testsupport::TempDeviceRoot root;
    const std::string strDiv =
        rule("a=\"1\"", "<AddAfter tab_key=\"image\"><tab key=\"lens\"/><tab key=\"x\"/>"
                        "</AddAfter>");
    EXPECT_EQ(canonicalXml("<style>"
                           "<tab key=\"image\"><item id=\"34\" value=\"50\"/></tab>"
                           "<tab key=\"lens\"/>"
                           "<tab key=\"wdr\"><item id=\"2368\" value=\"0\"/></tab>"
                           "<tab key=\"mirror\"><item id=\"2384\" value=\"0\"/></tab>"
                           "</style>"),
              canonicalXml(merge("(a=1)", strDiv)));
}

TEST(StyleMerge, DeleteRemovesOnlyTheFirstTabOfThatKey) {
    testsupport::TempDeviceRoot root;
    const char* szStyle = "<s><tab key=\"a\" n=\"1\"/><tab key=\"a\" n=\"2\"/></s>";
    EXPECT_EQ(
        canonicalXml("<s><tab key=\"a\" n=\"2\"/></s>"),
        canonicalXml(merge("(x=1)", rule("x=\"1\"", "<Delete tab_key=\"a\"/>"), nullptr, szStyle)));
}

TEST(StyleMerge, UnknownTabKeyOrOperationChangesNothingSilently) {
    testsupport::TempDeviceRoot root;
    std::string out;
    const std::string strDiv =
        rule("a=\"1\"", "<Delete tab_key=\"nosuch\"/><Delete tab_key=\"Mirror\"/>"
                        "<Replace tab_key=\"image\"><tab key=\"q\"/></Replace>"
                        "<Modify tab_key=\"image\"/>");
    EXPECT_EQ(canonicalXml(kStyle), canonicalXml(merge("(a=1)", strDiv, &out)));
    EXPECT_EQ("", out);
}

TEST(StyleMerge, UpdateStyleTabOnDocumentWithoutTabsReports) {
    testsupport::TempDeviceRoot root;
    SensorXmlDocument doc;
    ASSERT_TRUE(doc.LoadMem("<style/>", TIXML_ENCODING_UTF8));
    int nRet = -1;
    const std::string out =
        captureStdout([&] { nRet = updateStyleTab(&doc, "Delete", "image", nullptr); });
    EXPECT_EQ(0, nRet);
    EXPECT_NE(std::string::npos, out.find("fun:updateStyleTab"));
    EXPECT_NE(
        std::string::npos,
        out.find(failed("NULL != (tab_node = doc_style->RootElement()->FirstChildElement())")));
}

// --- the text round trip ------------------------------------------------------------

TEST(StyleMerge, EmptyDiversityTextReportsAndPassesTheStyleThrough) {
    testsupport::TempDeviceRoot root;
    std::string out;
    int nRet = -1;
    const std::string strMerged = merge("(sensor=IMX327)", "", &out, kStyle, &nRet);
    EXPECT_EQ(0, nRet);
    EXPECT_EQ(canonicalXml(kStyle), canonicalXml(strMerged));
    // The text is TinyXML's serialisation, not the input as it was.
    EXPECT_NE(std::string(kStyle), strMerged);
    EXPECT_NE(std::string::npos,
              out.find(failed("doc_style_div.LoadMem(ui_styleDiversity, TIXML_ENCODING_UTF8)")));
    EXPECT_NE(std::string::npos,
              out.find(failed("NULL != (node_first = doc_style_div.RootElement())")));
    EXPECT_EQ(std::string::npos, out.find("doc_style.LoadMem"));
}

// The merge file holds exactly what TinyXML's SaveFile writes, whatever the
// document holds and whatever the file held before: a longer older merge,
// the same merge again, a different one.
TEST(StyleMerge, MergeFileIsExactlyWhatSaveFileWrites) {
    const std::vector<std::string> vecStyles = {
        kStyle,
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?><!-- note --><style>"
        "<tab key=\"a\" q='say \"hi\"' amp=\"a&amp;b&lt;\">mixed<b/>text &amp; more<c>t</c>"
        "<![CDATA[raw <x>]]></tab><!DOCTYPE odd><tab key=\"b\"><i id=\"1\"/><!--c--></tab>"
        "</style>",
        "<style><tab key=\"x\"><![CDATA[only]]></tab><tab key=\"y\">  spaced  </tab></style>",
        "<?xml version=\"1.0\" standalone=\"yes\"?><!--top--><!DOCTYPE s><style a=\"1\">"
        "<!--in--><tab key=\"t\" v='a\"b' w=\"x&apos;y&gt;\"><i id=\"1\"><j><k/></j></i>"
        "<!DOCTYPE inner></tab><tab key=\"e\"/></style><!--after-->",
        "<style/>",
        "<a><b><c><d><e f=\"&#x41;&#66;\"/></d></c></b></a>"};
    std::vector<std::string> vecAll = vecStyles;
    for (const char* szName : {"style/Style.xml", "style/Style_dome.xml", "style/Style_Thermal.xml",
                               "styleDiversity/StyleDiversity.xml"}) {
        const std::string strText =
            testsupport::readFile(testsupport::kSampleSensorConfig + szName);
        ASSERT_FALSE(strText.empty()) << szName;
        vecAll.push_back(strText);
    }
    for (const std::string& strStyle : vecAll) {
        testsupport::TempDeviceRoot root;
        SensorXmlDocument objDoc;
        objDoc.LoadMem(strStyle.c_str(), TIXML_ENCODING_UTF8);
        ASSERT_TRUE(objDoc.SaveFile(root.real("/tmp/expected.xml").c_str()));
        const std::string strExpected = root.read("/tmp/expected.xml");
        root.write(SENSOR_MERGE_STYLE_FILE, strExpected + strExpected + "older and longer");
        for (int i = 0; i < 2; ++i) {
            merge("(sensor=IMX327)", rule("never=\"1\""), nullptr, strStyle.c_str());
            EXPECT_EQ(strExpected, root.read(SENSOR_MERGE_STYLE_FILE)) << strStyle;
        }
        merge("(sensor=IMX327)", "", nullptr, kStyle);
        SensorXmlDocument objOther;
        objOther.LoadMem(kStyle, TIXML_ENCODING_UTF8);
        ASSERT_TRUE(objOther.SaveFile(root.real("/tmp/expected.xml").c_str()));
        EXPECT_EQ(root.read("/tmp/expected.xml"), root.read(SENSOR_MERGE_STYLE_FILE));
    }
}

// A style may hold an XML declaration inside an element, and a rule may
// bring one in: SaveFile writes such a declaration at the start of its line,
// not indented as the elements around it. The merge file is those bytes
// exactly, and so is the style the camera keeps.
TEST(StyleMerge, MergeFileWritesANestedDeclarationAsSaveFileDoes) {
    testsupport::TempDeviceRoot root;
    const char* const szStyle =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
        "<style><tab key=\"image\"><?xml version=\"1.0\"?><item id=\"34\" value=\"50\"/></tab>"
        "<tab key=\"mirror\"><item id=\"2384\" value=\"0\"/></tab></style>";
    const std::string strNewTab = "<tab key=\"mirror2\"><?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                                  "<item id=\"2385\" value=\"1\"/></tab>";
    const std::string strMerged =
        merge("(a=1)", rule("a=\"1\"", "<Modify tab_key=\"mirror\">" + strNewTab + "</Modify>"),
              nullptr, szStyle);
    const std::string strExpected = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                    "<style>\n"
                                    "    <tab key=\"image\">\n"
                                    "<?xml version=\"1.0\" ?>\n"
                                    "        <item id=\"34\" value=\"50\" />\n"
                                    "    </tab>\n"
                                    "    <tab key=\"mirror2\">\n"
                                    "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                    "        <item id=\"2385\" value=\"1\" />\n"
                                    "    </tab>\n"
                                    "</style>\n";
    EXPECT_EQ(strExpected, root.read(SENSOR_MERGE_STYLE_FILE));
    EXPECT_EQ(strExpected, strMerged);

    // TinyXML's own SaveFile of the same document, built with TinyXML alone.
    TiXmlDocument objDoc;
    objDoc.Parse(szStyle, nullptr, TIXML_ENCODING_UTF8);
    TiXmlDocument objTab;
    objTab.Parse(strNewTab.c_str(), nullptr, TIXML_ENCODING_UTF8);
    ASSERT_FALSE(objDoc.Error());
    ASSERT_FALSE(objTab.Error());
    TiXmlElement* pMirror = objDoc.RootElement()->FirstChildElement()->NextSiblingElement();
    ASSERT_NE(nullptr, pMirror);
    objDoc.RootElement()->ReplaceChild(pMirror, *objTab.RootElement());
    ASSERT_TRUE(objDoc.SaveFile(root.real("/tmp/expected.xml").c_str()));
    EXPECT_EQ(root.read("/tmp/expected.xml"), root.read(SENSOR_MERGE_STYLE_FILE));
}

TEST(StyleMerge, MergedStyleIsLeftInTheMergeFile) {
    testsupport::TempDeviceRoot root;
    const std::string strMerged = merge("(a=1)", rule("a=\"1\""));
    EXPECT_EQ(strMerged, root.read(SENSOR_MERGE_STYLE_FILE));
    EXPECT_EQ(canonicalXml(kWithoutMirror), canonicalXml(strMerged));
}

TEST(StyleMerge, MissingTmpFolderIsCreatedForTheMergeFile) {
    testsupport::TempDeviceRoot root;
    ASSERT_EQ(0, std::system(("rm -rf '" + root.real("/tmp") + "'").c_str()));
    std::string out;
    const std::string strMerged = merge("(a=1)", rule("a=\"1\""), &out);
    EXPECT_EQ(canonicalXml(kWithoutMirror), canonicalXml(strMerged));
    EXPECT_TRUE(root.exists(SENSOR_MERGE_STYLE_FILE));
    EXPECT_EQ("", out);
}

// A folder in the merge file's place can be neither written nor read back:
// the read-back is reported and the style the camera keeps is empty.
TEST(StyleMerge, MergeFileThatCannotBeReadBackIsReported) {
    testsupport::TempDeviceRoot root;
    ASSERT_EQ(0, ::mkdir(root.real(SENSOR_MERGE_STYLE_FILE).c_str(), 0755));
    std::string out;
    int nRet = -1;
    const std::string strMerged = merge("(a=1)", rule("a=\"1\""), &out, kStyle, &nRet);
    EXPECT_EQ(0, nRet);
    EXPECT_NE(std::string::npos,
              out.find(failed("loadFromFile(\"/tmp/merge_style.xml\", *ui_style, file_len) > 0")))
        << out;
    EXPECT_EQ("", strMerged);
}

TEST(StyleMerge, UnparsableStyleIsReported) {
    testsupport::TempDeviceRoot root;
    std::string out;
    int nRet = -1;
    merge("(a=1)", rule("a=\"1\""), &out, "<style><tab", &nRet);
    EXPECT_EQ(0, nRet);
    EXPECT_NE(std::string::npos,
              out.find(failed("doc_style.LoadMem(*ui_style, TIXML_ENCODING_UTF8)")));
    EXPECT_NE(std::string::npos, out.find("fun:mergeStyle"));
}

TEST(StyleMerge, MergedDocumentIsPrintedAtInfoLevel) {
    testsupport::TempDeviceRoot root;
    root.setDebugSign("7\n");
    std::string out;
    const std::string strMerged = merge("(a=1)", rule("a=\"1\""), &out);
    EXPECT_NE(std::string::npos, out.find("[sensor info] file:SensorFile.cpp fun:mergeStyle"));
    EXPECT_NE(std::string::npos, out.find("<tab key=\"wdr\">"));
}
