// A style update may add, drop or reorder factory keys without a new version
// stamp. The stored scheme files then no longer fit the factory layout;
// start-up takes their records by key, so that every saved value whose key
// still exists survives.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "config/SysConfig.h"
#include "tests/support/Camera.h"

using namespace camtest;

namespace {

const u32 kSavedScheme = 2;
const char* const kRemapReport = "does not fit the factory layout";

// A saved scheme in which every value but the scheme window differs from
// the factory's, so that a value found in its place proves it was kept.
std::vector<KeyVal> savedScheme(const std::vector<KeyVal>& p_vecFactory) {
    std::vector<KeyVal> vecSaved = p_vecFactory;
    for (size_t i = 5; i < vecSaved.size(); ++i)
        vecSaved[i].value = vecSaved[i].value + 1000 + static_cast<u32>(i);
    return vecSaved;
}

// The value of the first record with the key, or the fallback.
u32 valueOf(const std::vector<KeyVal>& p_vecRecords, u32 p_nKey, u32 p_nFallback) {
    for (const KeyVal& stRecord : p_vecRecords) {
        if (stRecord.key == p_nKey)
            return stRecord.value;
    }
    return p_nFallback;
}

size_t indexIn(const std::vector<KeyVal>& p_vecRecords, u32 p_nKey) {
    for (size_t i = 0; i < p_vecRecords.size(); ++i) {
        if (p_vecRecords[i].key == p_nKey)
            return i;
    }
    ADD_FAILURE() << "no key " << p_nKey;
    return 0;
}

// Every factory key of the scheme holds the stored value of that key, or
// the factory value when the file did not have it.
void expectValuesByKey(const Camera& cam, const std::vector<KeyVal>& p_vecStored) {
    const std::vector<KeyVal> vecFactory = cam.factory();
    const std::vector<KeyVal> vecScheme = cam.scheme(kSavedScheme);
    ASSERT_EQ(vecFactory.size(), vecScheme.size());
    for (size_t i = 0; i < vecFactory.size(); ++i) {
        EXPECT_EQ(vecFactory[i].key, vecScheme[i].key) << i;
        EXPECT_EQ(valueOf(p_vecStored, vecFactory[i].key, vecFactory[i].value), vecScheme[i].value)
            << "key " << vecFactory[i].key;
    }
}

// Starts once to learn the factory layout, then stops.
std::vector<KeyVal> factoryLayout(Camera& cam) {
    EXPECT_TRUE(cam.start());
    std::vector<KeyVal> vecFactory = cam.factory();
    cam.ctl->uinit();
    return vecFactory;
}

} // namespace

TEST(SchemeLayout, FileThatFitsIsLoadedAsStoredWithoutReport) {
    Camera cam;
    const std::vector<KeyVal> vecSaved = savedScheme(factoryLayout(cam));
    cam.root.write(schemeFile(kSavedScheme), toBytes(vecSaved));
    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(sameKeyVals(vecSaved, cam.scheme(kSavedScheme)));
    EXPECT_FALSE(contains(cam.errorLog(), kRemapReport));
}

TEST(SchemeLayout, KeyAddedToTheStyleTakesItsFactoryValueAndOthersKeepTheirs) {
    Camera cam;
    std::vector<KeyVal> vecStored = savedScheme(factoryLayout(cam));
    // The file was saved before the style had brightness.
    const auto itNew = std::find_if(vecStored.begin(), vecStored.end(),
                                    [](const KeyVal& kv) { return kv.key == KEY_BRIGHTNESS; });
    ASSERT_NE(vecStored.end(), itNew);
    vecStored.erase(itNew);
    cam.root.write(schemeFile(kSavedScheme), toBytes(vecStored));

    ASSERT_TRUE(cam.start());
    expectValuesByKey(cam, vecStored);
    EXPECT_EQ(cam.factory()[cam.indexOf(KEY_BRIGHTNESS)].value,
              cam.value(kSavedScheme, KEY_BRIGHTNESS));
}

TEST(SchemeLayout, KeyRemovedFromTheStyleIsDroppedAndOthersKeepTheirs) {
    Camera cam;
    std::vector<KeyVal> vecStored = savedScheme(factoryLayout(cam));
    // A key the style no longer has, in the middle of the file.
    vecStored.insert(vecStored.begin() + 7, KeyVal{9999, 77});
    cam.root.write(schemeFile(kSavedScheme), toBytes(vecStored));

    ASSERT_TRUE(cam.start());
    expectValuesByKey(cam, vecStored);
    EXPECT_EQ(-1, cam.indexOf(9999));
}

TEST(SchemeLayout, ReorderedKeysKeepTheirValues) {
    Camera cam;
    std::vector<KeyVal> vecStored = savedScheme(factoryLayout(cam));
    std::reverse(vecStored.begin() + 5, vecStored.end());
    cam.root.write(schemeFile(kSavedScheme), toBytes(vecStored));

    ASSERT_TRUE(cam.start());
    expectValuesByKey(cam, vecStored);
}

TEST(SchemeLayout, RemappedFileIsReportedAtWarnLevelWithTheCountKept) {
    Camera cam;
    std::vector<KeyVal> vecStored = savedScheme(factoryLayout(cam));
    const size_t nStored = vecStored.size();
    vecStored.push_back(KeyVal{9999, 1});
    std::reverse(vecStored.begin() + 5, vecStored.end());
    cam.root.write(schemeFile(kSavedScheme), toBytes(vecStored));
    cam.root.setDebugSign("4\n");

    ASSERT_TRUE(cam.start());
    const std::string strExpected =
        "/mnt/mtd/code/config_file/sensor2.cfg " + std::string(kRemapReport) + ": " +
        std::to_string(nStored) + " of its " + std::to_string(nStored + 1) + " records kept by key";
    EXPECT_TRUE(contains(cam.errorLog(), strExpected)) << cam.errorLog();
}

TEST(SchemeLayout, SchemeModeMovedInTheFileStillSelectsTheSchemes) {
    Camera cam;
    std::vector<KeyVal> vecStored = factoryLayout(cam);
    vecStored[0].value = 2; // day/night schemes
    std::rotate(vecStored.begin(), vecStored.begin() + 1, vecStored.end());
    cam.root.write(schemeFile(0), toBytes(vecStored));

    ASSERT_TRUE(cam.start());
    EXPECT_EQ(KEY_SCHEME_MODE, cam.scheme(0)[0].key);
    EXPECT_EQ(2u, cam.scheme(0)[0].value);
    EXPECT_TRUE(cam.acc->dnScheme());
}

TEST(SchemeLayout, FileOfAnotherSizeKeepsEveryWholeRecord) {
    Camera cam;
    const std::vector<KeyVal> vecFactory = factoryLayout(cam);
    std::vector<KeyVal> vecStored = savedScheme(vecFactory);
    vecStored.resize(vecStored.size() - 4);
    std::reverse(vecStored.begin() + 5, vecStored.end());
    // Three bytes of a record cut short stay unread.
    std::string strBytes = toBytes(vecStored) + std::string("\x22\0\0", 3);
    cam.root.write(schemeFile(kSavedScheme), strBytes);

    ASSERT_TRUE(cam.start());
    expectValuesByKey(cam, vecStored);
    // The last four keys were not in the file: factory values.
    for (size_t i = vecFactory.size() - 4; i < vecFactory.size(); ++i)
        EXPECT_EQ(vecFactory[i].value, cam.scheme(kSavedScheme)[i].value) << i;
}

TEST(SchemeLayout, DuplicateRecordsFillTheFactoryEntriesInTurn) {
    Camera cam;
    std::vector<KeyVal> vecStored = savedScheme(factoryLayout(cam));
    const KeyVal stFirst = vecStored[indexIn(vecStored, KEY_BRIGHTNESS)];
    // An old file listing brightness twice: the style held one entry.
    vecStored.push_back(KeyVal{KEY_BRIGHTNESS, 3});
    cam.root.write(schemeFile(kSavedScheme), toBytes(vecStored));

    ASSERT_TRUE(cam.start());
    EXPECT_EQ(stFirst.value, cam.value(kSavedScheme, KEY_BRIGHTNESS));
}

TEST(SchemeLayout, RecordsOfRandomBytesLeaveFactoryValues) {
    Camera cam;
    const std::vector<KeyVal> vecFactory = factoryLayout(cam);
    std::string strBytes;
    for (size_t i = 0; i < vecFactory.size() * sizeof(KeyVal); ++i)
        strBytes += static_cast<char>((i * 131 + 17) % 251);
    cam.root.write(schemeFile(kSavedScheme), strBytes);

    ASSERT_TRUE(cam.start());
    EXPECT_TRUE(sameKeyVals(vecFactory, cam.scheme(kSavedScheme)));
}

TEST(SchemeLayout, RemappedSchemeIsWrittenInTheNewLayoutAtTheNextFlush) {
    Camera cam;
    std::vector<KeyVal> vecStored = factoryLayout(cam);
    vecStored[indexIn(vecStored, KEY_BRIGHTNESS)].value = 61;
    std::reverse(vecStored.begin() + 5, vecStored.end());
    cam.root.write(schemeFile(0), toBytes(vecStored));

    ASSERT_TRUE(cam.start());
    // Until the next flush the file keeps its old layout.
    EXPECT_TRUE(sameKeyVals(vecStored, cam.file(schemeFile(0))));
    ASSERT_EQ(0, cam.ctl->flush());
    EXPECT_TRUE(sameKeyVals(cam.scheme(0), cam.file(schemeFile(0))));
    EXPECT_EQ(61u, cam.value(0, KEY_BRIGHTNESS));

    // The rewritten file fits: the next start-up loads it without a report.
    cam.ctl->uinit();
    cam.root.remove("/mnt/mtd/log/SensorError.log");
    ASSERT_TRUE(cam.start());
    EXPECT_EQ(61u, cam.value(0, KEY_BRIGHTNESS));
    EXPECT_FALSE(contains(cam.errorLog(), kRemapReport));
}

TEST(SchemeLayout, SavedSettingsSurviveAnUpdateOfTheStyleDocument) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    ASSERT_TRUE(cam.ctl->setParamScheme(kSavedScheme));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, 71));
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_SATURATION, 29));
    ASSERT_EQ(0, cam.ctl->flush());
    cam.ctl->uinit();

    // The update adds an item before brightness and drops contrast (2353),
    // in the style and in the diversity rule that replaces its image tab.
    for (const char* szDoc :
         {SENSOR_STYLE_FOLDER "Style.xml", SENSOR_STYLE_DIVERSITY_FOLDER "StyleDiversity.xml"}) {
        std::string strXml = cam.root.read(szDoc);
        const size_t nAt = strXml.find("<item id=\"34\"");
        ASSERT_NE(std::string::npos, nAt) << szDoc;
        strXml.insert(nAt, "<item id=\"2990\" value=\"5\" name=\"New\" type=\"slider\"/>\n");
        const size_t nContrast = strXml.find("<item id=\"2353\"");
        ASSERT_NE(std::string::npos, nContrast) << szDoc;
        strXml.erase(nContrast, strXml.find("/>", nContrast) + 2 - nContrast);
        cam.root.write(szDoc, strXml);
    }

    ASSERT_TRUE(cam.start());
    EXPECT_EQ(-1, cam.indexOf(KEY_CONTRAST));
    ASSERT_GE(cam.indexOf(2990), 0);
    EXPECT_EQ(71u, cam.value(kSavedScheme, KEY_BRIGHTNESS));
    EXPECT_EQ(29u, cam.value(kSavedScheme, KEY_SATURATION));
    EXPECT_EQ(5u, cam.value(kSavedScheme, 2990));
}

// The layout the dispatch, handler and lens fixtures start on is the one
// init() builds for the sample camera, restricted to the keys a test names:
// the same scheme count, every array the factory's keys in the factory's
// order, the first scratch array holding scheme 0, and the time and
// day/night flags taken from the mode key.
TEST(SchemeLayout, LayoutOfAStyleListingTheKeysIsTheSampleCamerasLayout) {
    // One camera at a time: each owns the device root while it lives.
    std::vector<KeyVal> vecSample;
    u32 nSampleSchemes = 0;
    {
        Camera sample;
        ASSERT_TRUE(sample.start());
        vecSample = sample.factory();
        nSampleSchemes = sample.acc->schemeSum();
    }
    ASSERT_GT(vecSample.size(), 5u);

    Camera listed;
    ASSERT_TRUE(listed.startWithFactory(vecSample));
    EXPECT_EQ(nSampleSchemes, listed.acc->schemeSum());
    ASSERT_EQ(vecSample.size(), listed.acc->keyValSum());
    for (u32 s = 0; s <= listed.acc->schemeSum(); ++s) {
        const std::vector<KeyVal> vecScheme = listed.scheme(s);
        for (size_t i = 0; i < vecScheme.size(); ++i)
            EXPECT_EQ(vecSample[i].key, vecScheme[i].key) << "scheme " << s << " entry " << i;
    }

    // A mode of 2 stored in scheme 0 selects the day/night schemes at the
    // next start-up, exactly as on the sample camera.
    listed.setValue(0, KEY_SCHEME_MODE, 2);
    listed.root.write(schemeFile(0), toBytes(listed.scheme(0)));
    listed.ctl->uinit();
    ASSERT_TRUE(listed.init(listed.module()));
    EXPECT_TRUE(listed.acc->dnScheme());
    EXPECT_FALSE(listed.acc->timeScheme());
}
