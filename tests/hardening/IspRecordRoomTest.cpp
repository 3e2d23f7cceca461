// A host's key may name an ISP command whose record is several words (the
// sensor check 2816: four; the version text 2496: 50 bytes; day/night
// times 149: four). Reading or setting such a key through the single-value
// entry points must give the ISP room for its whole record; the value is the
// record's first word. (Found by fuzz_id_text: "(...,2816,...)" made the ISP
// write past a four-byte value on the stack.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/HardeningSupport.h"

using namespace camtest;
using namespace hardening;

TEST(IspRecordRoom, ReadingTheSensorCheckCommandGivesTheRecordsFirstWord) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    int nValue = 12345;
    EXPECT_TRUE(cam.ctl->getParameter(2816, nValue));
    // The ISP reads into the caller's value, the record's first word, and
    // answers only the fourth: the caller's value stays as it was.
    EXPECT_EQ(12345, nValue);
    const std::vector<sim::IspCall> vecCalls = sim::Isp::instance().callsOf(IA_CMD_SENSOR_CHECK);
    ASSERT_FALSE(vecCalls.empty());
    EXPECT_EQ(4u, vecCalls.back().words.size());
}

TEST(IspRecordRoom, GetParametersListingMultiWordCommandsAnswersEveryId) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    sim::Isp::instance().setVersionText(0, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789abcdefghijklm");
    std::string strOut;
    testing::internal::CaptureStdout();
    const bool bRead = cam.ctl->getParameters("(2816,2496,34)", strOut);
    (void)testing::internal::GetCapturedStdout();
    EXPECT_TRUE(bRead);
    const int nAbcd = 'A' | ('B' << 8) | ('C' << 16) | ('D' << 24);
    EXPECT_EQ("(2816,0)(2496," + std::to_string(nAbcd) + ")(34," +
                  std::to_string(cam.value(0, KEY_BRIGHTNESS)) + ")",
              strOut);
}

TEST(IspRecordRoom, SettingAMultiWordCommandSendsTheValueAsTheFirstWordOfAZeroedRecord) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    sim::Isp::instance().clearTrace();
    EXPECT_EQ(0, cam.ctl->setParameter(2816, 5));
    EXPECT_EQ(0, cam.ctl->setParameters("(2816,7)", false));
    const std::vector<sim::IspCall> vecCalls = setCalls(IA_CMD_SENSOR_CHECK);
    ASSERT_EQ(2u, vecCalls.size());
    EXPECT_EQ((std::vector<uint32_t>{5, 0, 0, 0}), vecCalls[0].words);
    EXPECT_EQ((std::vector<uint32_t>{7, 0, 0, 0}), vecCalls[1].words);
}

TEST(IspRecordRoom, AFailedReadLeavesTheCallersValue) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    sim::Isp::instance().failCommand(IA_CMD_SENSOR_CHECK, -1);
    int nValue = 12345;
    EXPECT_FALSE(cam.ctl->getParameter(2816, nValue));
    EXPECT_EQ(12345, nValue);
}
