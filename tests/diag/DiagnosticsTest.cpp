// The debug level follows the sign file at every decision; prints and checked
// expressions have their exact texts, colours, thresholds and error-log copies.
#define SNS_SOURCE_UNIT "SensorFile.cpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "diag/SensorDiag.h"
#include "tests/support/TestSupport.h"

namespace {

const char* const kErrorLog = "/mnt/mtd/log/SensorError.log";

std::string red() {
    return "\033[0m\033[31m";
}
const std::string kReset = "\033[0m";

class Diagnostics : public ::testing::Test {
protected:
    void SetUp() override {
        g_nDebugLevel = 1;
        g_bEnAssert = false;
    }
    testsupport::TempDeviceRoot root;
};

// Helpers whose line numbers the expectations can name.
int failingCheck(int& line, int value) {
    line = __LINE__ + 1;
    SNS_ASSERT(value == 42, "value(%d)\n", value);
    return value;
}

int failingCheckEmptyDetail(int& line) {
    line = __LINE__ + 1;
    SNS_ASSERT(1 == 2, "");
    return 0;
}

std::string header(const char* tag, const char* fun, int line) {
    return std::string(tag) + " file:SensorFile.cpp fun:" + fun + " line:" + std::to_string(line) +
           "\n";
}

} // namespace

TEST_F(Diagnostics, NoSignFileMeansLevelOneAndNoAbort) {
    g_nDebugLevel = 9;
    g_bEnAssert = true;
    updateDebugLevel();
    EXPECT_EQ(1, g_nDebugLevel.load());
    EXPECT_FALSE(g_bEnAssert.load());
}

// The sign file is found under the device root however the root is written:
// with trailing slashes, or very long (then the path is built on the heap).
TEST_F(Diagnostics, SignFileIsFoundUnderARootWithTrailingSlashesOrALongName) {
    root.setDebugSign("7\n");
    ::setenv("SENSOR_ROOT", (root.path() + "///").c_str(), 1);
    updateDebugLevel();
    EXPECT_EQ(7, g_nDebugLevel.load());

    std::string strLong = root.path();
    for (int i = 0; i < 12; ++i)
        strLong += "/" + std::string(60, 'd');
    ASSERT_EQ(0, std::system(("mkdir -p '" + strLong + "/mnt/mtd/sign'").c_str()));
    ASSERT_EQ(0, std::system(("echo 8 > '" + strLong + "/mnt/mtd/sign/Debug.sign'").c_str()));
    ::setenv("SENSOR_ROOT", strLong.c_str(), 1);
    updateDebugLevel();
    EXPECT_EQ(8, g_nDebugLevel.load());
    ::setenv("SENSOR_ROOT", root.path().c_str(), 1);
}

TEST_F(Diagnostics, NoSignFilePrintsOnlyAssertionReportsAndGoesOn) {
    testing::internal::CaptureStdout();
    SNS_DBG("dbg %d\n", 1);
    SNS_INFO("info\n");
    SNS_WARN("warn\n");
    SNS_ERR("err\n");
    int line = 0;
    const int after = failingCheck(line, 7); // returns: no abort
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(7, after);
    EXPECT_EQ(red() + header("[sensor assert]", "failingCheck", line) +
                  "value == 42   ~~~Assertion failed.\n" + kReset + red() + "value(7)\n" + kReset,
              out);
}

TEST_F(Diagnostics, AssertionReportIsCopiedToTheErrorLog) {
    int line = 0;
    testing::internal::CaptureStdout();
    failingCheck(line, 3);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(
        "[sensor assert] file:SensorFile.cpp fun:failingCheck line:" + std::to_string(line) +
            "\n[sensor assert] value == 42   ~~~Assertion failed.\n[sensor assert] value(3)\n",
        root.read(kErrorLog));
}

TEST_F(Diagnostics, EmptyFirstLineMeansLevelOne) {
    root.setDebugSign("\n1\n");
    g_nDebugLevel = 5;
    updateDebugLevel();
    EXPECT_EQ(1, g_nDebugLevel.load());
    EXPECT_TRUE(g_bEnAssert.load());
}

TEST_F(Diagnostics, NonNumericLevelReadsAsZero) {
    root.setDebugSign("verbose\n");
    updateDebugLevel();
    EXPECT_EQ(0, g_nDebugLevel.load());
    EXPECT_FALSE(g_bEnAssert.load());
}

TEST_F(Diagnostics, LevelSevenShowsInfoMessages) {
    root.setDebugSign("7\n");
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    SNS_INFO_C(35, "info %s\n", "text");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("\033[0m\033[35m" + header("[sensor info]", "TestBody", line) + "info text\n" +
                  kReset,
              out);
}

TEST_F(Diagnostics, LevelSixShowsDebugAndErrorButNotInfo) {
    root.setDebugSign("6\n");
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    SNS_DBG("a(%d)\n", 5);
    SNS_ERR("b\n");
    SNS_INFO("hidden\n");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("\033[0m\033[0m" + header("[sensor dbg]", "TestBody", line) + "a(5)\n" + kReset +
                  "\033[0m\033[0m" + header("[sensor err]", "TestBody", line + 1) + "b\n" + kReset,
              out);
}

TEST_F(Diagnostics, ErrorMessagesAreNotLogged) {
    root.setDebugSign("6\n");
    testing::internal::CaptureStdout();
    SNS_ERR("b\n");
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(root.exists(kErrorLog));
}

TEST_F(Diagnostics, WarningsFromLevelFourArePrintedAndLogged) {
    root.setDebugSign("4\n");
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    SNS_WARN("w(%u)\n", 8u);
    SNS_DBG("hidden\n");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("\033[0m\033[0m" + header("[sensor warn]", "TestBody", line) + "w(8)\n" + kReset,
              out);
    EXPECT_EQ("[sensor warn] file:SensorFile.cpp fun:TestBody line:" + std::to_string(line) +
                  "\n[sensor warn] w(8)\n",
              root.read(kErrorLog));
}

TEST_F(Diagnostics, LevelThreeHidesWarnings) {
    root.setDebugSign("3\n");
    testing::internal::CaptureStdout();
    SNS_WARN("w\n");
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_FALSE(root.exists(kErrorLog));
}

TEST_F(Diagnostics, BareLinesHaveNoHeader) {
    root.setDebugSign("6\n");
    testing::internal::CaptureStdout();
    SNS_BARE(32, "not find (%d) \n", 168);
    EXPECT_EQ("\033[0m\033[32mnot find (168) \n" + kReset, testing::internal::GetCapturedStdout());
    root.setDebugSign("5\n");
    testing::internal::CaptureStdout();
    SNS_BARE(32, "hidden\n");
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST_F(Diagnostics, NegativeLevelSilencesEvenAssertions) {
    root.setDebugSign("-1\n");
    int line = 0;
    testing::internal::CaptureStdout();
    SNS_WARN("w\n");
    failingCheck(line, 1);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_FALSE(root.exists(kErrorLog));
}

TEST_F(Diagnostics, SecondLineZeroLeavesAbortOff) {
    root.setDebugSign("1\n0\n");
    int line = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(5, failingCheck(line, 5));
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(g_bEnAssert.load());
}

TEST_F(Diagnostics, EmptyDetailStillWritesColoursAndAnEmptyLogEntry) {
    int line = 0;
    testing::internal::CaptureStdout();
    failingCheckEmptyDetail(line);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(red() + header("[sensor assert]", "failingCheckEmptyDetail", line) +
                  "1 == 2   ~~~Assertion failed.\n" + kReset + red() + kReset,
              out);
    const std::string log = root.read(kErrorLog);
    EXPECT_EQ("[sensor assert] file:SensorFile.cpp fun:failingCheckEmptyDetail line:" +
                  std::to_string(line) + "\n[sensor assert] 1 == 2   ~~~Assertion failed.\n" +
                  "[sensor assert] \n",
              log);
}

TEST_F(Diagnostics, LevelFollowsTheSignFileAtEveryDecision) {
    root.setDebugSign("6\n");
    testing::internal::CaptureStdout();
    SNS_DBG("one\n");
    root.setDebugSign("2\n");
    SNS_DBG("two\n");
    root.clearDebugSign();
    SNS_DBG("three\n");
    root.setDebugSign("6\n");
    SNS_DBG("four\n");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, out.find("one\n"));
    EXPECT_EQ(std::string::npos, out.find("two\n"));
    EXPECT_EQ(std::string::npos, out.find("three\n"));
    EXPECT_NE(std::string::npos, out.find("four\n"));
}

TEST_F(Diagnostics, UnchangedSignFileKeepsItsValuesAfterTheGlobalsMoved) {
    root.setDebugSign("7\n1\n");
    updateDebugLevel();
    g_nDebugLevel = 0;
    g_bEnAssert = false;
    updateDebugLevel(); // same file: the values it held come back
    EXPECT_EQ(7, g_nDebugLevel.load());
    EXPECT_TRUE(g_bEnAssert.load());
}

TEST_F(Diagnostics, UnreadableSignFileKeepsThePreviousValues) {
    // A socket in place of the file: it exists, but opening it fails (even
    // for root, whom file permissions would not stop).
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const std::string path = root.real("/mnt/mtd/sign/Debug.sign");
    ASSERT_LT(path.size(), sizeof(addr.sun_path));
    std::strcpy(addr.sun_path, path.c_str());
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    g_nDebugLevel = 6;
    g_bEnAssert = true;
    updateDebugLevel();
    EXPECT_EQ(6, g_nDebugLevel.load());
    EXPECT_TRUE(g_bEnAssert.load());
    ::close(fd);
}

TEST_F(Diagnostics, PipeInPlaceOfTheSignFileKeepsThePreviousValuesWithoutWaiting) {
    // Opening a pipe for reading would wait for a writer that never comes.
    const std::string path = root.real("/mnt/mtd/sign/Debug.sign");
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0644));
    g_nDebugLevel = 6;
    g_bEnAssert = true;
    updateDebugLevel();
    EXPECT_EQ(6, g_nDebugLevel.load());
    EXPECT_TRUE(g_bEnAssert.load());
    ::unlink(path.c_str());
    updateDebugLevel(); // gone: the defaults
    EXPECT_EQ(1, g_nDebugLevel.load());
    EXPECT_FALSE(g_bEnAssert.load());
}

using DiagnosticsDeathTest = Diagnostics;

// The death tests fork and check in the child directly ("fast"): no thread
// runs here, and re-executing the test program, as "threadsafe" does, is
// impossible when it runs under an emulator such as qemu-arm.
TEST_F(DiagnosticsDeathTest, SecondLineOneAbortsAfterTheReport) {
    GTEST_FLAG_SET(death_test_style, "fast");
    root.setDebugSign("1\n1\n");
    int line = 0;
    // The report goes to standard output; send it to the checked stream.
    EXPECT_DEATH((::dup2(2, 1), failingCheck(line, 9)),
                 "value == 42   ~~~Assertion failed\\.(.|\n)*value\\(9\\)(.|\n)*"
                 "SensorFile\\.cpp:[0-9]+: int \\{anonymous\\}::failingCheck\\(int&, int\\): "
                 "Assertion `bRet' failed");
}

TEST_F(DiagnosticsDeathTest, NegativeLevelWithAbortSwitchAbortsSilently) {
    GTEST_FLAG_SET(death_test_style, "fast");
    root.setDebugSign("-1\n1\n");
    int line = 0;
    EXPECT_DEATH((::dup2(2, 1), failingCheck(line, 9)), "^[^~]*Assertion `bRet' failed");
}
