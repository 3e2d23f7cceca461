// The two document operations beyond TinyXML's own: parsing from memory and
// printing the whole document into a string.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "config/SensorXml.h"
#include "tests/support/TestSupport.h"

namespace {

const char* const kStyle =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
    "<style><tab key=\"image\" name=\"Image\">"
    "<item id=\"34\" value=\"50\" min=\"0\" max=\"100\" name=\"Brightness\"/>"
    "</tab></style>";

TEST(SensorXml, LoadMemParsesATextInMemory) {
    SensorXmlDocument doc;
    ASSERT_TRUE(doc.LoadMem(kStyle, TIXML_ENCODING_UTF8));
    ASSERT_NE(nullptr, doc.RootElement());
    EXPECT_STREQ("style", doc.RootElement()->Value());
    const TiXmlElement* item = doc.RootElement()->FirstChildElement()->FirstChildElement();
    ASSERT_NE(nullptr, item);
    EXPECT_STREQ("50", item->Attribute("value"));
}

TEST(SensorXml, LoadMemRefusesMalformedText) {
    SensorXmlDocument doc;
    EXPECT_FALSE(doc.LoadMem("<style><tab key=\"a\"></style>", TIXML_ENCODING_UTF8));
    EXPECT_TRUE(doc.Error());
}

TEST(SensorXml, LoadMemRefusesNoText) {
    SensorXmlDocument doc;
    EXPECT_FALSE(doc.LoadMem(nullptr, TIXML_ENCODING_UTF8));
    EXPECT_FALSE(doc.LoadMem("", TIXML_ENCODING_UTF8));
}

TEST(SensorXml, LoadMemReplacesTheDocumentItHeld) {
    SensorXmlDocument doc;
    ASSERT_TRUE(doc.LoadMem(kStyle, TIXML_ENCODING_UTF8));
    ASSERT_TRUE(doc.LoadMem("<other/>", TIXML_ENCODING_UTF8));
    EXPECT_STREQ("other", doc.RootElement()->Value());
    EXPECT_EQ(nullptr, doc.RootElement()->NextSiblingElement());
}

TEST(SensorXml, LoadMemAfterAFailureStartsClean) {
    SensorXmlDocument doc;
    EXPECT_FALSE(doc.LoadMem("<broken", TIXML_ENCODING_UTF8));
    EXPECT_TRUE(doc.LoadMem("<fine/>", TIXML_ENCODING_UTF8));
    EXPECT_FALSE(doc.Error());
}

TEST(SensorXml, GetXmlStringPrintsWhatSaveFileWrites) {
    testsupport::TempDeviceRoot root;
    SensorXmlDocument doc;
    ASSERT_TRUE(doc.LoadMem(kStyle, TIXML_ENCODING_UTF8));
    std::string text;
    doc.getXmlString(text);
    ASSERT_TRUE(doc.SaveFile(root.real("/tmp/saved.xml").c_str()));
    EXPECT_EQ(root.read("/tmp/saved.xml"), text);
}

TEST(SensorXml, GetXmlStringRoundTripsThroughLoadMem) {
    SensorXmlDocument first;
    ASSERT_TRUE(first.LoadMem(kStyle, TIXML_ENCODING_UTF8));
    std::string once, twice;
    first.getXmlString(once);
    SensorXmlDocument second;
    ASSERT_TRUE(second.LoadMem(once.c_str(), TIXML_ENCODING_UTF8));
    second.getXmlString(twice);
    EXPECT_EQ(once, twice);
    EXPECT_NE(std::string::npos, once.find("<item id=\"34\" value=\"50\""));
}

TEST(SensorXml, GetXmlStringOfAnEmptyDocumentIsEmpty) {
    SensorXmlDocument doc;
    std::string text = "stale";
    doc.getXmlString(text);
    EXPECT_EQ("", text);
}

} // namespace

namespace {

// TinyXML steps over a UTF-8 sequence by the length its first byte
// announces. A text cut just after such a byte (a cut or corrupted style on
// flash) must not make it read on past the terminator into whatever follows
// in memory; here what follows is a well-formed rest, which it must not see.
TEST(SensorXml, LoadMemNeverReadsPastTheTerminatorOfATextCutInsideAUtf8Sequence) {
    // The announcing byte one, two and three places before the end.
    for (const char* szCut : {"<a b=\"\xe0X", "<a b=\"\xf0XY", "<a b=\"\xe0"}) {
        std::string strMemory = szCut;
        strMemory += '\0';
        strMemory += "YYY\"/>";
        SensorXmlDocument doc;
        EXPECT_FALSE(doc.LoadMem(strMemory.c_str(), TIXML_ENCODING_UTF8)) << szCut;
        std::string strText;
        doc.getXmlString(strText);
        EXPECT_EQ(std::string::npos, strText.find("YYY")) << szCut << ": " << strText;
    }
}

// Multi-byte text near the end (parsed from a padded copy) and far from it
// (parsed where it lies) reads the same.
TEST(SensorXml, LoadMemReadsMultiByteTextNearAndFarFromTheEnd) {
    for (const char* szTail : {"", "  ", "          "}) {
        const std::string strText = std::string("<a b=\"\xc3\xa9t\xc3\xa9\"/>") + szTail;
        SensorXmlDocument doc;
        ASSERT_TRUE(doc.LoadMem(strText.c_str(), TIXML_ENCODING_UTF8)) << strText;
        ASSERT_NE(nullptr, doc.RootElement());
        EXPECT_STREQ("\xc3\xa9t\xc3\xa9", doc.RootElement()->Attribute("b"));
    }
}

} // namespace
