// The whole-file helpers against real files in a private device root.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/FilesTestSupport.h"
#include "storage/SensorFile.h"
#include "tests/support/TestSupport.h"

using filestest::captureStdout;
using filestest::ChildRun;
using filestest::failed;
using filestest::runUnprivileged;

namespace {

// The first scheme file of channel 1.
const std::string kScheme0 = sensorSchemeFile(1, 0);
const char* const kOpenWrite = "file.open(file_name, KPFile::modeWrite | KPFile::modeTruncate)";

std::string bytesOf(const std::vector<KeyVal>& records) {
    return std::string(reinterpret_cast<const char*>(records.data()),
                       records.size() * sizeof(KeyVal));
}

std::string bytesOf(u32 value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::vector<KeyVal> sampleRecords(u32 base, size_t count) {
    std::vector<KeyVal> records;
    for (size_t i = 0; i < count; ++i)
        records.push_back({static_cast<u32>(8000 + i), static_cast<u32>(base + i)});
    return records;
}

// Runs f in a child whose files may grow to at most limit bytes, as on a
// full flash; returns what the child printed.
std::string runWithFileSizeLimit(rlim_t limit, const std::function<void()>& f) {
    int fds[2];
    if (::pipe(fds) != 0)
        return "<no pipe>";
    std::fflush(stdout);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        ::dup2(fds[1], STDOUT_FILENO);
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit rl;
        ::getrlimit(RLIMIT_FSIZE, &rl);
        rl.rlim_cur = limit;
        ::setrlimit(RLIMIT_FSIZE, &rl);
        f();
        std::fflush(stdout);
        ::_exit(0);
    }
    ::close(fds[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof(buf))) > 0)
        out.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return out;
}

} // namespace

// --- getFileLen ---------------------------------------------------------------

TEST(SensorFile, GetFileLenGivesTheSizeOfAFile) {
    testsupport::TempDeviceRoot root;
    root.write("/hd1/a.xml", std::string(13, 'x'));
    EXPECT_EQ(13, getFileLen("/hd1/a.xml"));
}

TEST(SensorFile, GetFileLenOfMissingFileReportsWithoutLineEndAndGivesZero) {
    testsupport::TempDeviceRoot root;
    int64_t nLen = -5;
    const std::string out = captureStdout([&] { nLen = getFileLen("/hd1/missing.xml"); });
    EXPECT_EQ(0, nLen);
    EXPECT_NE(std::string::npos,
              out.find("[sensor assert] file:SensorFile.cpp fun:getFileLen line:"));
    EXPECT_NE(std::string::npos, out.find(failed("file.open(file_name)")));
    // The detail is the only one without a line end: the colour reset follows it.
    EXPECT_NE(std::string::npos, out.find("file_name(/hd1/missing.xml)\033[0m"));
}

// --- loadFromFile --------------------------------------------------------------

TEST(SensorFile, LoadFromFileReadsTheWholeFileWithoutTerminating) {
    testsupport::TempDeviceRoot root;
    root.write("/hd1/a.txt", "abc");
    char szBuf[8];
    std::memset(szBuf, 'x', sizeof(szBuf));
    EXPECT_EQ(3, loadFromFile("/hd1/a.txt", szBuf, 3));
    EXPECT_EQ(0, std::memcmp(szBuf, "abcx", 4));
}

TEST(SensorFile, LoadFromMissingFileIsSilentAndFails) {
    testsupport::TempDeviceRoot root;
    char szBuf[4] = {0};
    int64_t nRet = 0;
    const std::string out = captureStdout([&] { nRet = loadFromFile("/hd1/none", szBuf, 4); });
    EXPECT_EQ(-1, nRet);
    EXPECT_EQ("", out);
}

TEST(SensorFile, LoadFromFileLongerThanRequestedReadsExactlyTheRequest) {
    testsupport::TempDeviceRoot root;
    root.write("/hd1/a.txt", "0123456789");
    char szBuf[16] = {0};
    EXPECT_EQ(4, loadFromFile("/hd1/a.txt", szBuf, 4));
    EXPECT_STREQ("0123", szBuf);
}

TEST(SensorFile, LoadFromFileShorterThanRequestedFailsSilently) {
    testsupport::TempDeviceRoot root;
    root.write("/hd1/a.txt", "0123456789");
    char szBuf[16] = {0};
    int64_t nRet = 0;
    const std::string out = captureStdout([&] { nRet = loadFromFile("/hd1/a.txt", szBuf, 12); });
    EXPECT_EQ(-1, nRet);
    EXPECT_EQ("", out);
}

TEST(SensorFile, LoadFromFilePrintsTheFileNameAtDebugLevel) {
    testsupport::TempDeviceRoot root;
    root.write("/hd1/a.txt", "ab");
    root.setDebugSign("6\n");
    char szBuf[4] = {0};
    const std::string out = captureStdout([&] { loadFromFile("/hd1/a.txt", szBuf, 2); });
    EXPECT_NE(std::string::npos, out.find("[sensor dbg] file:SensorFile.cpp fun:loadFromFile"));
    EXPECT_NE(std::string::npos, out.find("open file:/hd1/a.txt\n"));
}

// --- saveToFile ----------------------------------------------------------------

TEST(SensorFile, SaveToFileWritesTheBytesAndReturnsTheCount) {
    testsupport::TempDeviceRoot root;
    root.write("/tmp/a.txt", "old contents that are longer");
    EXPECT_EQ(5, saveToFile("/tmp/a.txt", "hello", 5));
    EXPECT_EQ("hello", root.read("/tmp/a.txt"));
    EXPECT_FALSE(root.exists("/tmp/a.txt.tmp"));
}

TEST(SensorFile, SaveToFileIntoMissingFolderReportsOpenAndWrite) {
    testsupport::TempDeviceRoot root;
    int nRet = 0;
    const std::string out =
        captureStdout([&] { nRet = saveToFile("/mnt/nowhere/a.txt", "hello", 5); });
    EXPECT_EQ(-1, nRet);
    EXPECT_NE(std::string::npos, out.find(failed(kOpenWrite)));
    EXPECT_NE(std::string::npos, out.find("file_name(/mnt/nowhere/a.txt)\n"));
    EXPECT_NE(std::string::npos,
              out.find(failed("file_len == (nSize=file.write(data, file_len))")));
    EXPECT_NE(std::string::npos, out.find("file_len(5)\n"));
    EXPECT_LT(out.find(failed(kOpenWrite)), out.find("file_len == (nSize"));
    EXPECT_FALSE(root.exists("/mnt/nowhere"));
}

// A folder standing where the file should be cannot be replaced: the caller
// sees the same reports as for a file that does not open, and the folder stays.
TEST(SensorFile, SaveToFileOverAFolderReportsOpenAndWriteAndKeepsTheFolder) {
    testsupport::TempDeviceRoot root;
    root.makeDirs("/tmp/a.txt");
    int nRet = 0;
    const std::string out = captureStdout([&] { nRet = saveToFile("/tmp/a.txt", "hello", 5); });
    EXPECT_EQ(-1, nRet);
    EXPECT_NE(std::string::npos, out.find(failed(kOpenWrite)));
    EXPECT_NE(std::string::npos, out.find("file_name(/tmp/a.txt)\n"));
    EXPECT_NE(std::string::npos, out.find("file_len(5)\n"));
    EXPECT_LT(out.find(failed(kOpenWrite)), out.find("file_len == (nSize"));
    struct stat st;
    ASSERT_EQ(0, ::stat(root.real("/tmp/a.txt").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_FALSE(root.exists("/tmp/a.txt.tmp"));
}

// A folder of someone else's at the temporary's name does not stop a save
// that opening the file itself would make: the bytes are saved, without a
// report, and the folder stays with what it holds.
TEST(SensorFile, SaveToFileBesideAFolderAtTheTemporaryNameSavesAndKeepsTheFolder) {
    testsupport::TempDeviceRoot root;
    root.write("/tmp/a.txt", "old");
    root.write("/tmp/a.txt.tmp/kept", "mine");
    int nRet = 0;
    const std::string out = captureStdout([&] { nRet = saveToFile("/tmp/a.txt", "new!", 4); });
    EXPECT_EQ(4, nRet);
    EXPECT_EQ("", out);
    EXPECT_EQ("new!", root.read("/tmp/a.txt"));
    struct stat st;
    ASSERT_EQ(0, ::stat(root.real("/tmp/a.txt.tmp").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ("mine", root.read("/tmp/a.txt.tmp/kept"));
    EXPECT_FALSE(root.exists("/tmp/a.txt.tmp1"));
}

// The stamp beside folders at the temporary's first names: saved all the same.
TEST(SensorFile, SetVersionBesideFoldersAtTheTemporaryNamesWritesTheStamp) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(7u));
    root.makeDirs(SENSOR_VERSION_FILE ".tmp");
    root.makeDirs(SENSOR_VERSION_FILE ".tmp1");
    int nRet = -1;
    const std::string out = captureStdout([&] { nRet = setVersion(9); });
    EXPECT_EQ(0, nRet);
    EXPECT_EQ("", out);
    EXPECT_EQ(bytesOf(9u), root.read(SENSOR_VERSION_FILE));
    u32 nVersion = 0;
    EXPECT_EQ(0, getVersion(&nVersion));
    EXPECT_EQ(9u, nVersion);
    struct stat st;
    ASSERT_EQ(0, ::stat(root.real(SENSOR_VERSION_FILE ".tmp").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    ASSERT_EQ(0, ::stat(root.real(SENSOR_VERSION_FILE ".tmp1").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_FALSE(root.exists(SENSOR_VERSION_FILE ".tmp2"));
}

// With every temporary name taken by folders, the file is opened itself, as
// its plain open would: an old file is saved, a missing one made, and the
// folders stay.
TEST(SensorFile, SaveWithEveryTemporaryNameTakenWritesTheFileItself) {
    testsupport::TempDeviceRoot root;
    root.write("/tmp/a.txt", "old");
    for (const std::string strName : {"/tmp/a.txt", "/tmp/b.txt"}) {
        root.makeDirs(strName + ".tmp");
        for (int i = 1; i <= 9; ++i)
            root.makeDirs(strName + ".tmp" + std::to_string(i));
    }
    int nRet = 0;
    const std::string out = captureStdout([&] {
        nRet = saveToFile("/tmp/a.txt", "new!", 4);
        EXPECT_EQ(4, saveToFile("/tmp/b.txt", "made", 4));
    });
    EXPECT_EQ(4, nRet);
    EXPECT_EQ("", out);
    EXPECT_EQ("new!", root.read("/tmp/a.txt"));
    EXPECT_EQ("made", root.read("/tmp/b.txt"));
    struct stat st;
    ASSERT_EQ(0, ::stat(root.real("/tmp/a.txt.tmp9").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    ASSERT_EQ(0, ::stat(root.real("/tmp/b.txt.tmp").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
}

// A file the writer may not write at the temporary's name: the stamp and a
// scheme file are saved all the same, and that file keeps its bytes.
TEST(SensorFile, SaveBesideAnUnwritableFileAtTheTemporaryNameWritesTheBytes) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(7u));
    root.write(SENSOR_VERSION_FILE ".tmp", "not the camera's");
    root.write(kScheme0 + ".tmp", "not the camera's either");
    const std::vector<KeyVal> records = sampleRecords(30, 3);
    const ChildRun run = runUnprivileged(root.path(), [&] {
        ::chmod(root.real(SENSOR_VERSION_FILE ".tmp").c_str(), 0444);
        ::chmod(root.real(kScheme0 + ".tmp").c_str(), 0444);
        if (setVersion(9) != 0)
            return 1;
        return keyValToFile(kScheme0.c_str(), records.data(), 3);
    });
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_EQ("", run.strOut);
    EXPECT_EQ(bytesOf(9u), root.read(SENSOR_VERSION_FILE));
    // (8000, 30) (8001, 31) (8002, 32), little-endian words.
    EXPECT_EQ(std::string("\x40\x1f\0\0\x1e\0\0\0\x41\x1f\0\0\x1f\0\0\0\x42\x1f\0\0\x20\0\0\0", 24),
              root.read(kScheme0));
    EXPECT_EQ("not the camera's", root.read(SENSOR_VERSION_FILE ".tmp"));
    EXPECT_EQ("not the camera's either", root.read(kScheme0 + ".tmp"));
}

// A link at the temporary's name is not followed, and not renamed into the
// target's place: the target becomes a plain file and the link stays.
TEST(SensorFile, SaveBesideALinkAtTheTemporaryNameLeavesTheLinkAlone) {
    testsupport::TempDeviceRoot root;
    root.write("/tmp/a.txt", "old");
    root.write("/tmp/elsewhere", "untouched");
    ASSERT_EQ(0, ::symlink("elsewhere", root.real("/tmp/a.txt.tmp").c_str()));
    EXPECT_EQ(4, saveToFile("/tmp/a.txt", "new!", 4));
    struct stat st;
    ASSERT_EQ(0, ::lstat(root.real("/tmp/a.txt").c_str(), &st));
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ("new!", root.read("/tmp/a.txt"));
    ASSERT_EQ(0, ::lstat(root.real("/tmp/a.txt.tmp").c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ("untouched", root.read("/tmp/elsewhere"));
}

// A read-only flash: the stamp and its folder are read-only to a writer that
// is not root. The save fails as its open does and the old stamp stays.
TEST(SensorFile, SaveToFileIntoReadOnlyFolderKeepsTheOldFile) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(7u));
    const std::string strFolder = root.real("/mnt/mtd/code/config_file");
    const ChildRun run = runUnprivileged(root.path(), [&] {
        ::chmod(root.real(SENSOR_VERSION_FILE).c_str(), 0444);
        ::chmod(strFolder.c_str(), 0555);
        return setVersion(9) == -1 ? 0 : 1;
    });
    ::chmod(strFolder.c_str(), 0755);
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_NE(std::string::npos, run.strOut.find(failed(kOpenWrite)));
    EXPECT_EQ(bytesOf(7u), root.read(SENSOR_VERSION_FILE));
    EXPECT_FALSE(root.exists(SENSOR_VERSION_FILE ".tmp"));
}

// A read-only file in a writable folder could be replaced by a rename; it is
// not: the save reports exactly what a failed open for writing reports (the
// same reports as a save into a missing folder), and the old contents stay.
TEST(SensorFile, SaveToReadOnlyFileInWritableFolderFailsAsItsOpenWould) {
    testsupport::TempDeviceRoot root;
    root.write("/tmp/ro/a.txt", "old");
    const ChildRun run = runUnprivileged(root.path(), [&] {
        ::chmod(root.real("/tmp/ro/a.txt").c_str(), 0444);
        return saveToFile("/tmp/ro/a.txt", "new!", 4) == -1 ? 0 : 1;
    });
    const ChildRun missing = runUnprivileged(
        root.path(), [&] { return saveToFile("/tmp/no/a.txt", "new!", 4) == -1 ? 0 : 1; });
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_EQ(0, missing.nCode) << missing.strOut;
    std::string strExpected = missing.strOut;
    for (std::string::size_type pos = strExpected.find("/tmp/no/"); pos != std::string::npos;
         pos = strExpected.find("/tmp/no/", pos))
        strExpected.replace(pos, 8, "/tmp/ro/");
    EXPECT_NE(std::string::npos, run.strOut.find(failed(kOpenWrite)));
    EXPECT_EQ(strExpected, run.strOut);
    EXPECT_EQ("old", root.read("/tmp/ro/a.txt"));
    EXPECT_FALSE(root.exists("/tmp/ro/a.txt.tmp"));
}

// A writable scheme file in a folder where no temporary can be made is still
// saved: written in place, as opening it would write it. Nothing is said
// about it, on the screen or in the error log, even at the warning level.
TEST(SensorFile, KeyValToWritableFileInReadOnlyFolderWritesInPlaceWithoutAWord) {
    testsupport::TempDeviceRoot root;
    const std::vector<KeyVal> oldRecords = sampleRecords(1, 4);
    const std::vector<KeyVal> newRecords = sampleRecords(50, 4);
    root.write(kScheme0, bytesOf(oldRecords));
    root.setDebugSign("7\n");
    struct stat stBefore;
    ASSERT_EQ(0, ::stat(root.real(kScheme0).c_str(), &stBefore));
    const std::string strFolder = root.real("/mnt/mtd/code/config_file");
    const ChildRun run = runUnprivileged(root.path(), [&] {
        ::chmod(strFolder.c_str(), 0555);
        return keyValToFile(kScheme0.c_str(), newRecords.data(), 4);
    });
    ::chmod(strFolder.c_str(), 0755);
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_EQ(bytesOf(newRecords), root.read(kScheme0));
    struct stat stAfter;
    ASSERT_EQ(0, ::stat(root.real(kScheme0).c_str(), &stAfter));
    EXPECT_EQ(stBefore.st_ino, stAfter.st_ino);
    EXPECT_EQ("", run.strOut);
    EXPECT_EQ("", root.read("/mnt/mtd/log/SensorError.log"));
}

// Bytes a file already holds cannot be torn by writing them over themselves:
// such a save writes in place (the file stays the same file), without a
// temporary and without a warning, even in a read-only folder.
TEST(SensorFile, SaveOfTheBytesAFileAlreadyHoldsWritesThemInPlace) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(8u));
    root.setDebugSign("4\n");
    struct stat stBefore;
    ASSERT_EQ(0, ::stat(root.real(SENSOR_VERSION_FILE).c_str(), &stBefore));
    const std::string strFolder = root.real("/mnt/mtd/code/config_file");
    const ChildRun run = runUnprivileged(root.path(), [&] {
        ::chmod(strFolder.c_str(), 0555);
        return setVersion(8);
    });
    ::chmod(strFolder.c_str(), 0755);
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_EQ("", run.strOut);
    struct stat stAfter;
    ASSERT_EQ(0, ::stat(root.real(SENSOR_VERSION_FILE).c_str(), &stAfter));
    EXPECT_EQ(stBefore.st_ino, stAfter.st_ino);
    EXPECT_EQ(bytesOf(8u), root.read(SENSOR_VERSION_FILE));
    // Other bytes take the crash-safe way: a new file in the target's place.
    EXPECT_EQ(0, setVersion(9));
    ASSERT_EQ(0, ::stat(root.real(SENSOR_VERSION_FILE).c_str(), &stAfter));
    EXPECT_NE(stBefore.st_ino, stAfter.st_ino);
    EXPECT_EQ(bytesOf(9u), root.read(SENSOR_VERSION_FILE));
}

// The saved file keeps the permissions the integrator gave it.
TEST(SensorFile, SaveKeepsTheTargetsPermissions) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(7u));
    root.write(kScheme0, bytesOf(sampleRecords(1, 2)));
    ::chmod(root.real(SENSOR_VERSION_FILE).c_str(), 0660);
    ::chmod(root.real(kScheme0).c_str(), 0600);
    EXPECT_EQ(0, setVersion(9));
    const std::vector<KeyVal> records = sampleRecords(5, 2);
    EXPECT_EQ(0, keyValToFile(kScheme0.c_str(), records.data(), 2));
    struct stat st;
    ASSERT_EQ(0, ::stat(root.real(SENSOR_VERSION_FILE).c_str(), &st));
    EXPECT_EQ(0660u, st.st_mode & 07777);
    EXPECT_EQ(bytesOf(9u), root.read(SENSOR_VERSION_FILE));
    ASSERT_EQ(0, ::stat(root.real(kScheme0).c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777);
    EXPECT_EQ(bytesOf(records), root.read(kScheme0));
}

// A file owned by another user stays that user's when root saves it.
TEST(SensorFile, SaveAsRootKeepsTheTargetsOwner) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root may give a file to another owner";
    testsupport::TempDeviceRoot root;
    root.write(kScheme0, bytesOf(sampleRecords(1, 2)));
    ASSERT_EQ(0, ::chown(root.real(kScheme0).c_str(), filestest::kNobody, filestest::kNobody));
    const std::vector<KeyVal> records = sampleRecords(5, 2);
    EXPECT_EQ(0, keyValToFile(kScheme0.c_str(), records.data(), 2));
    struct stat st;
    ASSERT_EQ(0, ::stat(root.real(kScheme0).c_str(), &st));
    EXPECT_EQ(filestest::kNobody, st.st_uid);
    EXPECT_EQ(filestest::kNobody, st.st_gid);
    EXPECT_EQ(bytesOf(records), root.read(kScheme0));
}

// Integrators link the scheme files and the stamp onto another partition: a
// save writes the file the link points at (relative or absolute), and the
// link stays a link.
TEST(SensorFile, SaveThroughASymbolicLinkWritesTheFileItPointsTo) {
    testsupport::TempDeviceRoot root;
    root.write("/mnt/data/sensor0.cfg", bytesOf(sampleRecords(1, 2)));
    root.write("/mnt/data/stamp", bytesOf(7u));
    ASSERT_EQ(0, ::symlink("../../../data/sensor0.cfg", root.real(kScheme0).c_str()));
    ASSERT_EQ(
        0, ::symlink(root.real("/mnt/data/stamp").c_str(), root.real(SENSOR_VERSION_FILE).c_str()));
    const std::vector<KeyVal> records = sampleRecords(5, 2);
    std::string out = captureStdout([&] {
        EXPECT_EQ(0, keyValToFile(kScheme0.c_str(), records.data(), 2));
        EXPECT_EQ(0, setVersion(9));
    });
    EXPECT_EQ("", out);
    struct stat st;
    ASSERT_EQ(0, ::lstat(root.real(kScheme0).c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(0, ::lstat(root.real(SENSOR_VERSION_FILE).c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(bytesOf(records), root.read("/mnt/data/sensor0.cfg"));
    EXPECT_EQ(bytesOf(9u), root.read("/mnt/data/stamp"));
    EXPECT_FALSE(root.exists("/mnt/data/sensor0.cfg.tmp"));
    EXPECT_FALSE(root.exists(kScheme0 + ".tmp"));
    // A link to a file not yet there creates it there.
    ASSERT_EQ(0, ::symlink("../../../data/sensor1.cfg", root.real(sensorSchemeFile(1, 1)).c_str()));
    EXPECT_EQ(0, keyValToFile(sensorSchemeFile(1, 1).c_str(), records.data(), 2));
    EXPECT_EQ(bytesOf(records), root.read("/mnt/data/sensor1.cfg"));
    ASSERT_EQ(0, ::lstat(root.real(sensorSchemeFile(1, 1)).c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
}

// A link that leads back to itself is a file that does not open.
TEST(SensorFile, SaveThroughALinkLoopFailsAsItsOpenWould) {
    testsupport::TempDeviceRoot root;
    ASSERT_EQ(0, ::symlink("sensor0.cfg", root.real(kScheme0).c_str()));
    const std::vector<KeyVal> records = sampleRecords(5, 2);
    const std::string out =
        captureStdout([&] { keyValToFile(kScheme0.c_str(), records.data(), 2); });
    EXPECT_NE(std::string::npos, out.find(failed(kOpenWrite)));
    struct stat st;
    ASSERT_EQ(0, ::lstat(root.real(kScheme0).c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
}

// A full flash: the file-size limit makes the temporary's write come up short
// on the very rename path a camera takes; the report names the length, the old
// file is untouched and the temporary is gone.
TEST(SensorFile, SaveToFileOnFullFlashReportsShortWriteAndKeepsTheOldFile) {
    testsupport::TempDeviceRoot root;
    root.write("/tmp/a.txt", "old");
    const std::string strData(40, 'n');
    const std::string out =
        runWithFileSizeLimit(20, [&] { saveToFile("/tmp/a.txt", strData.data(), 40); });
    EXPECT_NE(std::string::npos,
              out.find(failed("file_len == (nSize=file.write(data, file_len))")));
    EXPECT_NE(std::string::npos, out.find("file_len(40)\n"));
    EXPECT_EQ(std::string::npos, out.find(failed(kOpenWrite)));
    EXPECT_EQ("old", root.read("/tmp/a.txt"));
    EXPECT_FALSE(root.exists("/tmp/a.txt.tmp"));
}

// --- keyValFromFile / keyValToFile ---------------------------------------------

TEST(SensorFile, KeyValToFileWritesRawRecordsWithoutHeader) {
    testsupport::TempDeviceRoot root;
    const std::vector<KeyVal> records = sampleRecords(100, 5);
    std::string out;
    int nRet = -1;
    out = captureStdout([&] { nRet = keyValToFile(kScheme0.c_str(), records.data(), 5); });
    EXPECT_EQ(0, nRet);
    EXPECT_EQ("", out);
    EXPECT_EQ(bytesOf(records), root.read(kScheme0));
    EXPECT_EQ(40, getFileLen(kScheme0.c_str()));
    EXPECT_FALSE(root.exists(kScheme0 + ".tmp"));
}

TEST(SensorFile, KeyValFromFileReadsWhatKeyValToFileWrote) {
    testsupport::TempDeviceRoot root;
    const std::vector<KeyVal> records = sampleRecords(7, 4);
    keyValToFile(kScheme0.c_str(), records.data(), 4);
    std::vector<KeyVal> loaded(4, KeyVal{0, 0});
    EXPECT_EQ(0, keyValFromFile(kScheme0.c_str(), loaded.data(), 4));
    EXPECT_EQ(bytesOf(records), bytesOf(loaded));
}

TEST(SensorFile, ShortSchemeFileReportsSizeAndKeepsTheLastRecordPartlyOld) {
    testsupport::TempDeviceRoot root;
    const std::vector<KeyVal> records = sampleRecords(0x01020304, 3);
    root.write(kScheme0, bytesOf(records).substr(0, 3 * 8 - 1));
    std::vector<KeyVal> loaded(3, KeyVal{0xAAAAAAAA, 0xAAAAAAAA});
    int nRet = -1;
    const std::string out =
        captureStdout([&] { nRet = keyValFromFile(kScheme0.c_str(), loaded.data(), 3); });
    EXPECT_EQ(0, nRet);
    EXPECT_NE(std::string::npos, out.find("fun:keyValFromFile"));
    EXPECT_NE(std::string::npos, out.find(failed("nSize == sizeof(KeyVal)*p_nKeyValNum")));
    EXPECT_NE(std::string::npos,
              out.find("file_name(/mnt/mtd/code/config_file/sensor0.cfg) nSize(23) "
                       "sizeof(KeyVal) = 8, p_nKeyValNum(3)\n"));
    EXPECT_EQ(records[0].value, loaded[0].value);
    EXPECT_EQ(records[1].value, loaded[1].value);
    EXPECT_EQ(records[2].key, loaded[2].key);
    // Three bytes of the last value are new, its top byte is still the old one.
    EXPECT_EQ((records[2].value & 0x00FFFFFFu) | 0xAA000000u, loaded[2].value);
}

TEST(SensorFile, KeyValFromMissingFileReportsOpenAndSizeAndLeavesArray) {
    testsupport::TempDeviceRoot root;
    std::vector<KeyVal> loaded(2, KeyVal{1, 2});
    int nRet = -1;
    const std::string out = captureStdout(
        [&] { nRet = keyValFromFile(sensorSchemeFile(1, 3).c_str(), loaded.data(), 2); });
    EXPECT_EQ(0, nRet);
    EXPECT_NE(std::string::npos, out.find(failed("file.open(file_name)")));
    EXPECT_NE(std::string::npos, out.find("file_name(/mnt/mtd/code/config_file/sensor3.cfg)\n"));
    EXPECT_NE(std::string::npos, out.find(failed("nSize == sizeof(KeyVal)*p_nKeyValNum")));
    EXPECT_EQ(1u, loaded[1].key);
    EXPECT_EQ(2u, loaded[1].value);
}

TEST(SensorFile, KeyValToFileFailureReportsTheWriterTextsAndSucceeds) {
    testsupport::TempDeviceRoot root;
    const std::vector<KeyVal> records = sampleRecords(1, 2);
    int nRet = -1;
    const std::string out = captureStdout(
        [&] { nRet = keyValToFile("/mnt/mtd/code/gone/sensor0.cfg", records.data(), 2); });
    EXPECT_EQ(0, nRet);
    EXPECT_NE(std::string::npos, out.find("fun:keyValToFile"));
    EXPECT_NE(std::string::npos, out.find(failed(kOpenWrite)));
    EXPECT_NE(std::string::npos, out.find("file_name(/mnt/mtd/code/gone/sensor0.cfg)\n"));
    // The writer's expression names p_nKeyValSum, its detail p_nKeyValNum.
    EXPECT_NE(std::string::npos, out.find(failed("nSize == sizeof(KeyVal)*p_nKeyValSum")));
    EXPECT_NE(std::string::npos, out.find("nSize(-1) sizeof(KeyVal) = 8, p_nKeyValNum(2)\n"));
}

TEST(SensorFile, KeyValToFileOnFullFlashReportsAndKeepsTheOldSchemeFile) {
    testsupport::TempDeviceRoot root;
    const std::vector<KeyVal> oldRecords = sampleRecords(1, 4);
    const std::vector<KeyVal> newRecords = sampleRecords(50, 4);
    root.write(kScheme0, bytesOf(oldRecords));
    const std::string out =
        runWithFileSizeLimit(20, [&] { keyValToFile(kScheme0.c_str(), newRecords.data(), 4); });
    EXPECT_NE(std::string::npos, out.find(failed("nSize == sizeof(KeyVal)*p_nKeyValSum")));
    EXPECT_NE(std::string::npos, out.find("nSize(20) sizeof(KeyVal) = 8, p_nKeyValNum(4)\n"));
    EXPECT_EQ(bytesOf(oldRecords), root.read(kScheme0));
    EXPECT_FALSE(root.exists(kScheme0 + ".tmp"));
}

TEST(SensorFile, SchemeFileNamesOfIndexZero) {
    char szName[128];
    std::snprintf(szName, sizeof(szName), SENSOR_SCHEME_FILE, 0);
    EXPECT_STREQ("/mnt/mtd/code/config_file/sensor0.cfg", szName);
    std::snprintf(szName, sizeof(szName), SENSOR_THERMAL_SCHEME_FILE, 0);
    EXPECT_STREQ("/mnt/mtd/code/config_file/sensor-thermal0.cfg", szName);
}

// Every temporary a save may leave behind after a power cut is swept away by
// the removal pattern of a version change, which spares the stamp.
TEST(SensorFile, TemporariesMatchTheSchemeRemovalPattern) {
    testsupport::TempDeviceRoot root;
    root.write(kScheme0 + ".tmp", "torn");
    root.write(sensorSchemeFile(2, 1) + ".tmp", "torn");
    root.write(SENSOR_VERSION_FILE, bytesOf(3u));
    ASSERT_EQ(0, std::system(sensorRemoveSchemeFilesCommand().c_str()));
    EXPECT_FALSE(root.exists(kScheme0 + ".tmp"));
    EXPECT_FALSE(root.exists(sensorSchemeFile(2, 1) + ".tmp"));
    EXPECT_TRUE(root.exists(SENSOR_VERSION_FILE));
}

// --- version stamp -------------------------------------------------------------

TEST(SensorFile, GetVersionReadsTheFourByteStamp) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(0x12345678u));
    u32 nVersion = 0;
    EXPECT_EQ(0, getVersion(&nVersion));
    EXPECT_EQ(0x12345678u, nVersion);
}

TEST(SensorFile, GetVersionOfStampShorterThanFourBytesFails) {
    for (size_t nLen = 0; nLen < 4; ++nLen) {
        testsupport::TempDeviceRoot root;
        root.write(SENSOR_VERSION_FILE, bytesOf(0x12345678u).substr(0, nLen));
        u32 nVersion = 0;
        EXPECT_EQ(-1, getVersion(&nVersion)) << nLen << " bytes";
    }
}

TEST(SensorFile, GetVersionWithoutStampFileFailsSilently) {
    testsupport::TempDeviceRoot root;
    u32 nVersion = 0;
    int nRet = 0;
    const std::string out = captureStdout([&] { nRet = getVersion(&nVersion); });
    EXPECT_EQ(-1, nRet);
    EXPECT_EQ("", out);
}

TEST(SensorFile, GetVersionOfLongerStampReadsItsFirstFourBytes) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, bytesOf(5u) + "xx");
    u32 nVersion = 0;
    EXPECT_EQ(0, getVersion(&nVersion));
    EXPECT_EQ(5u, nVersion);
}

TEST(SensorFile, SetVersionWritesExactlyFourBytes) {
    testsupport::TempDeviceRoot root;
    root.write(SENSOR_VERSION_FILE, "an older, longer stamp");
    EXPECT_EQ(0, setVersion(0xCAFE0001u));
    EXPECT_EQ(bytesOf(0xCAFE0001u), root.read(SENSOR_VERSION_FILE));
    u32 nVersion = 0;
    EXPECT_EQ(0, getVersion(&nVersion));
    EXPECT_EQ(0xCAFE0001u, nVersion);
}

TEST(SensorFile, SetVersionWithoutFolderReportsAndFails) {
    testsupport::TempDeviceRoot root;
    ASSERT_EQ(0, std::system(("rm -rf '" + root.real("/mnt/mtd/code") + "'").c_str()));
    int nRet = 0;
    const std::string out = captureStdout([&] { nRet = setVersion(3); });
    EXPECT_EQ(-1, nRet);
    EXPECT_NE(std::string::npos, out.find("fun:saveToFile"));
    EXPECT_NE(std::string::npos, out.find("file_name(/mnt/mtd/code/config_file/snsversion.cfg)\n"));
    EXPECT_NE(std::string::npos, out.find("file_len(4)\n"));
}

TEST(SensorFile, FailedSaveIsLoggedToTheErrorLog) {
    testsupport::TempDeviceRoot root;
    captureStdout([&] { saveToFile("/mnt/nowhere/a.txt", "x", 1); });
    const std::string strLog = root.read("/mnt/mtd/log/SensorError.log");
    EXPECT_NE(std::string::npos, strLog.find(kOpenWrite));
    EXPECT_EQ(1u, testsupport::occurrences(strLog, "file_len(1)"));
}
