// The style and language texts handed to the host's UI.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/Camera.h"

using namespace camtest;

namespace {

struct UiCamera : Camera {
    UiCamera() {
        EXPECT_TRUE(start());
        stopWorker();
    }
    // A language table the way a configuration would hold it: allocated,
    // and the configuration's to free at shut-down.
    void setLanguages() {
        auto* pTab = static_cast<UILanguageEntry*>(std::calloc(2, sizeof(UILanguageEntry)));
        for (u32 i = 0; i < 2; ++i) {
            pTab[i].nLanguageId = 10 + i;
            pTab[i].szLanguageFile = strdup(("language " + std::to_string(10 + i)).c_str());
            pTab[i].szCommonFile = strdup(("common " + std::to_string(10 + i)).c_str());
        }
        acc->sysConf().pLanguageTab = pTab;
        acc->sysConf().nLanguageNum = 2;
    }
};

} // namespace

TEST(UIStyle, TwoRequestsGiveEqualTexts) {
    UiCamera cam;
    const std::string strFirst = cam.ctl->getUIStyleFile();
    EXPECT_FALSE(strFirst.empty());
    EXPECT_TRUE(contains(strFirst, "<")) << strFirst.substr(0, 200);
    EXPECT_EQ(strFirst, cam.ctl->getUIStyleFile());
}

TEST(UIStyle, TextIsRebuiltFromTheCurrentIspRanges) {
    UiCamera cam;
    const std::string strFirst = cam.ctl->getUIStyleFile();
    sim::Isp::instance().setListRange(96, 3, {0, 3});
    const std::string strSecond = cam.ctl->getUIStyleFile();
    EXPECT_NE(strFirst, strSecond);
}

TEST(UIStyle, AfterShutDownTheStyleRequestHoldsNoItem) {
    UiCamera cam;
    cam.ctl->uinit();
    EXPECT_FALSE(contains(cam.ctl->getUIStyleFile(), "id=\"34\""));
}

TEST(UILanguage, EmptyTableGivesEmptyTexts) {
    UiCamera cam;
    EXPECT_EQ(0u, cam.acc->sysConf().nLanguageNum);
    EXPECT_EQ("", cam.ctl->getUILanguageFile(1));
    EXPECT_EQ("", cam.ctl->getUICommonFile(1));
}

TEST(UILanguage, KnownIdGivesItsEntry) {
    UiCamera cam;
    cam.setLanguages();
    EXPECT_EQ("language 11", cam.ctl->getUILanguageFile(11));
    EXPECT_EQ("common 11", cam.ctl->getUICommonFile(11));
}

TEST(UILanguage, UnknownIdGivesTheFirstEntry) {
    UiCamera cam;
    cam.setLanguages();
    EXPECT_EQ("language 10", cam.ctl->getUILanguageFile(99));
    EXPECT_EQ("common 10", cam.ctl->getUICommonFile(-1));
}

TEST(UILanguage, BeforeStartUpTextsAreEmpty) {
    Camera cam;
    cam.construct();
    EXPECT_EQ("", cam.ctl->getUILanguageFile(1));
    EXPECT_EQ("", cam.ctl->getUICommonFile(1));
}
