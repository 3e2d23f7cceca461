// sensorctl's command line as a user types it: a number out of its range or
// form is refused with a reason and exit code 2 before any camera starts; a
// camera that cannot start says so and exits 1; a kept temporary root is
// named.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/ToolProcess.h"

namespace {

using testsupport::runSensorctl;
using testsupport::ToolRun;

struct BadLine {
    std::vector<std::string> args;
    std::string strMessage; // the whole line on standard error
};

TEST(SensorctlCommandLine, BadNumbersAreRefusedWithExitCode2) {
    const BadLine lines[] = {
        {{"shell", "--channel", "4294967297"},
         "sensorctl: --channel takes an integer from 1 to 2147483647, not \"4294967297\""},
        {{"shell", "--channel", "0"},
         "sensorctl: --channel takes an integer from 1 to 2147483647, not \"0\""},
        {{"shell", "--channel", "1x"},
         "sensorctl: --channel takes an integer from 1 to 2147483647, not \"1x\""},
        {{"shell", "--time-scale", "nan"},
         "sensorctl: --time-scale takes a decimal number from 0 to 1000, not \"nan\""},
        {{"shell", "--time-scale", "inf"},
         "sensorctl: --time-scale takes a decimal number from 0 to 1000, not \"inf\""},
        {{"demo", "--time-scale", "0.5s"},
         "sensorctl: --time-scale takes a decimal number from 0 to 1000, not \"0.5s\""},
        {{"shell", "--time-scale", "-1"},
         "sensorctl: --time-scale takes a decimal number from 0 to 1000, not \"-1\""},
        {{"shell", "--time-scale", "1e400"},
         "sensorctl: --time-scale takes a decimal number from 0 to 1000, not \"1e400\""},
        {{"shell", "--clock", "24:00"},
         "sensorctl: --clock takes a time HH:MM, 00:00 to 23:59, not \"24:00\""},
        {{"shell", "--clock", "7:30"},
         "sensorctl: --clock takes a time HH:MM, 00:00 to 23:59, not \"7:30\""},
        {{"shell", "--max-scheme", "99999999999"},
         "sensorctl: --max-scheme takes an integer from 0 to 64, not \"99999999999\""},
        {{"shell", "--max-scheme", "65"},
         "sensorctl: --max-scheme takes an integer from 0 to 64, not \"65\""},
        {{"shell", "--device-type", "-3"},
         "sensorctl: --device-type takes an integer from 0 to 2147483647, not \"-3\""},
        {{"shell", "--debug", "1 "},
         "sensorctl: --debug takes an integer from -2147483648 to 2147483647, not \"1 \""},
        {{"serve", "--port", "-1"},
         "sensorctl: --port takes an integer from 0 to 65535, not \"-1\""},
        {{"serve", "--port", "65536"},
         "sensorctl: --port takes an integer from 0 to 65535, not \"65536\""},
        {{"serve", "--port", "80abc"},
         "sensorctl: --port takes an integer from 0 to 65535, not \"80abc\""},
        {{"serve", "--port", "+80"},
         "sensorctl: --port takes an integer from 0 to 65535, not \"+80\""},
        {{"serve", "--port"}, "sensorctl: missing value for --port"},
        {{"serve", "--discovery-port", "65536"},
         "sensorctl: --discovery-port takes an integer from 0 to 65535, not \"65536\""},
        {{"serve", "--discovery-port"}, "sensorctl: missing value for --discovery-port"},
        {{"serve", "--discovery-bind", "localhost"},
         "sensorctl: --discovery-bind takes an IPv4 address, not \"localhost\""},
        {{"serve", "--announce", "--no-discovery"},
         "sensorctl: --announce and --no-discovery do not go together"},
    };
    for (const BadLine& line : lines) {
        std::string strLine;
        for (const std::string& a : line.args)
            strLine += a + " ";
        const ToolRun run = runSensorctl(line.args, "quit\n");
        ASSERT_TRUE(run.bExited) << strLine;
        EXPECT_EQ(run.nExitCode, 2) << strLine;
        EXPECT_EQ(run.strOutput, line.strMessage + "\n") << strLine;
    }
}

#if SENSORCTL_HAS_ONVIF
TEST(SensorctlCommandLine, BadUsersAreRefusedWithExitCode2) {
    char szFile[] = "/tmp/sensorctl-users-XXXXXX";
    const int fd = ::mkstemp(szFile);
    ASSERT_GE(fd, 0);
    const std::string strText = "# users\r\nanna:pw:Operator\r\n\nbert:pw:Boss\n";
    ASSERT_EQ(::write(fd, strText.data(), strText.size()), static_cast<ssize_t>(strText.size()));
    ::close(fd);
    const std::string strFile = szFile;
    const BadLine lines[] = {
        {{"serve", "--user", "anna:pw"},
         "sensorctl: --user: a user is written name:password:level"},
        {{"serve", "--user", "anna:pw:Root"},
         "sensorctl: --user: unknown user level \"Root\" (Administrator, Operator or User)"},
        {{"serve", "--user", "anna::User"},
         "sensorctl: --user: a user's name and password must not be empty"},
        {{"serve", "--user", "anna:p:User", "--onvif-user", "anna", "--onvif-password", "q"},
         "sensorctl: the user anna is given twice"},
        {{"serve", "--users", strFile},
         "sensorctl: the users file " + strFile +
             ", line 4: unknown user level \"Boss\" (Administrator, Operator or User)"},
        {{"serve", "--users"}, "sensorctl: missing value for --users"},
    };
    for (const BadLine& line : lines) {
        const ToolRun run = runSensorctl(line.args, "");
        ASSERT_TRUE(run.bExited);
        EXPECT_EQ(run.nExitCode, 2) << line.args.back();
        EXPECT_EQ(run.strOutput, line.strMessage + "\n");
    }
    ::unlink(szFile);
}
#endif

// A module detail asking for four thousand million schemes: the controller
// finds no room for them and reports it. The detail is the library's to
// read, so the command line lets it through; the camera then must not run.
const char* const kNoRoomDetail = "(sensor=IMX327)(lens=fixed)(max_scheme=4000000000)";
// Under a sanitizer the refused allocation must come back empty, as it does
// from the C library, rather than end the process.
std::string withNullOnNoRoom(const char* p_szVariable) {
    const char* szNow = std::getenv(p_szVariable);
    return std::string(p_szVariable) + "=" + (szNow ? szNow : "") + ":allocator_may_return_null=1";
}
const std::vector<std::string> kNullOnNoRoom = {withNullOnNoRoom("ASAN_OPTIONS"),
                                                withNullOnNoRoom("TSAN_OPTIONS")};

TEST(SensorctlCommandLine, ShellOfACameraThatDidNotStartSaysSoAndAnswersNothing) {
    const ToolRun run = runSensorctl({"shell", "--time-scale", "0.001", "--detail", kNoRoomDetail},
                                     "scheme\nset (34,60)\n", kNullOnNoRoom);
    ASSERT_TRUE(run.bExited) << run.strOutput;
    EXPECT_EQ(run.nExitCode, 1) << run.strOutput;
    EXPECT_NE(run.strOutput.find("sensorctl: the camera did not start"), std::string::npos)
        << run.strOutput;
    EXPECT_EQ(run.strOutput.find("\n= "), std::string::npos) << run.strOutput;
}

TEST(SensorctlCommandLine, ServeOfACameraThatDidNotStartNeverListens) {
    if (!SENSORCTL_HAS_SERVE)
        GTEST_SKIP() << "sensorctl was built without cpp-httplib: no web console here";
    const ToolRun run =
        runSensorctl({"serve", "--port", "0", "--time-scale", "0.001", "--detail", kNoRoomDetail},
                     "", kNullOnNoRoom);
    ASSERT_TRUE(run.bExited) << run.strOutput;
    EXPECT_EQ(run.nExitCode, 1) << run.strOutput;
    EXPECT_NE(run.strOutput.find("sensorctl: the camera did not start"), std::string::npos)
        << run.strOutput;
    EXPECT_EQ(run.strOutput.find("listening on"), std::string::npos) << run.strOutput;
}

// The device clock stands where --clock puts it: the scene's light follows
// the day curve there (a moonlit 0.1 lux at 23:30, 50000 lux at noon).
TEST(SensorctlCommandLine, ClockOptionSetsTheDeviceTimeTheLightFollows) {
    ToolRun run =
        runSensorctl({"shell", "--clock", "23:30", "--time-scale", "0.001"}, "light\nquit\n");
    ASSERT_TRUE(run.bExited) << run.strOutput;
    EXPECT_NE(run.strOutput.find("= 0.1 lux (clock)"), std::string::npos) << run.strOutput;
    run = runSensorctl({"shell", "--clock", "12:00", "--time-scale", "0.001"}, "light\nquit\n");
    EXPECT_NE(run.strOutput.find("= 50000.0 lux (clock)"), std::string::npos) << run.strOutput;
}

TEST(SensorctlCommandLine, KeepWithoutRootNamesTheRootItKept) {
    const ToolRun run = runSensorctl({"shell", "--keep", "--time-scale", "0.001"}, "quit\n");
    ASSERT_TRUE(run.bExited);
    EXPECT_EQ(run.nExitCode, 0);
    std::smatch m;
    const std::regex kept("sensorctl: kept the device root (/tmp/sensorctl-[A-Za-z0-9]{6})\n");
    ASSERT_TRUE(std::regex_search(run.strOutput, m, kept)) << run.strOutput;
    const std::string strRoot = m[1];
    struct stat st;
    EXPECT_EQ(::stat((strRoot + "/mnt/mtd/code/config_file").c_str(), &st), 0) << strRoot;
    (void)std::system(("rm -rf '" + strRoot + "'").c_str());
}

TEST(SensorctlCommandLine, TemporaryRootNotKeptIsNotNamedAtExit) {
    const ToolRun run = runSensorctl({"shell", "--time-scale", "0.001"}, "quit\n");
    ASSERT_TRUE(run.bExited);
    EXPECT_EQ(run.nExitCode, 0);
    EXPECT_EQ(run.strOutput.find("kept the device root"), std::string::npos) << run.strOutput;
}

} // namespace
