// The style and language texts handed to the host's UI.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "startup/CameraFixture.h"

using namespace camtest;

namespace {

struct UiCamera : Camera {
    UiCamera() {
        EXPECT_TRUE(start());
        stopWorker();
    }
    // A language table the way a configuration would hold it; the texts are
    // the configuration's to free at shut-down.
    void setLanguages() {
        // Outlives the camera: shut-down walks the table.
        static UILanguageEntry m_aTab[2];
        for (u32 i = 0; i < 2; ++i) {
            std::memset(&m_aTab[i], 0, sizeof(m_aTab[i]));
            m_aTab[i].nLanguageId = 10 + i;
            m_aTab[i].szLanguageFile = strdup(("language " + std::to_string(10 + i)).c_str());
            m_aTab[i].szCommonFile = strdup(("common " + std::to_string(10 + i)).c_str());
        }
        acc->sysConf().pLanguageTab = m_aTab;
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

TEST(UIStyle, AfterShutDownTheStyleRequestIsSafe) {
    UiCamera cam;
    cam.ctl->uinit();
    (void)cam.ctl->getUIStyleFile();
    EXPECT_TRUE(contains(cam.errorLog(), "SNS_SUCCESS == getDnaStyle(m_nCameraID,"
                                         "m_stSysConf.szUIStyle, strTmp,m_bShowWDRFalg)"));
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
