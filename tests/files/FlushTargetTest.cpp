// What a flush does to the scheme file the integrator set up: a link to
// another partition stays a link, and a writable file in a folder the
// camera's host may not write is still saved.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/FilesTestSupport.h"
#include "tests/support/Camera.h"

using namespace camtest;

TEST(FlushTarget, FlushThroughALinkedSchemeFileWritesTheLinkedFile) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.stopWorker();
    // The scheme file moves to another partition; a link takes its place.
    cam.root.makeDirs("/mnt/data");
    ASSERT_EQ(0, ::rename(cam.root.real(schemeFile(0)).c_str(),
                          cam.root.real("/mnt/data/sensor0.cfg").c_str()));
    ASSERT_EQ(0, ::symlink(cam.root.real("/mnt/data/sensor0.cfg").c_str(),
                           cam.root.real(schemeFile(0)).c_str()));
    const u32 nNew = cam.value(0, KEY_BRIGHTNESS) + 7;
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(nNew)));
    ASSERT_EQ(SNS_SUCCESS, cam.ctl->flush());

    struct stat st;
    ASSERT_EQ(0, ::lstat(cam.root.real(schemeFile(0)).c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_TRUE(sameKeyVals(cam.scheme(0), cam.file("/mnt/data/sensor0.cfg")));
    EXPECT_EQ(nNew, cam.file("/mnt/data/sensor0.cfg").at(cam.indexOf(KEY_BRIGHTNESS)).value);
}

// The configuration folder is read-only to the host, its files are not: the
// start-up's stamp and the flush are written in place, without a word on the
// screen or in the error log.
TEST(FlushTarget, FlushOfAWritableFileInAReadOnlyFolderSavesInPlace) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.ctl->uinit();
    cam.ctl.reset();
    cam.root.setDebugSign("4\n");
    cam.root.remove("/mnt/mtd/log/SensorError.log");
    const std::string strFolder = cam.root.real("/mnt/mtd/code/config_file");
    const filestest::ChildRun run = filestest::runUnprivileged(cam.root.path(), [&]() -> int {
        if (::chmod(strFolder.c_str(), 0555) != 0)
            return 1;
        if (!cam.start())
            return 2;
        const u32 nNew = cam.value(0, KEY_BRIGHTNESS) + 7;
        if (cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(nNew)) != 0)
            return 3;
        if (cam.ctl->flush() != SNS_SUCCESS)
            return 4;
        if (!sameKeyVals(cam.scheme(0), cam.file(schemeFile(0))))
            return 5;
        if (cam.file(schemeFile(0)).at(cam.indexOf(KEY_BRIGHTNESS)).value != nNew)
            return 6;
        if (cam.root.exists(schemeFile(0) + ".tmp"))
            return 7;
        cam.ctl->uinit();
        return 0;
    });
    ::chmod(strFolder.c_str(), 0755);
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_EQ(std::string::npos, run.strOut.find("Assertion failed")) << run.strOut;
    EXPECT_EQ(std::string::npos, run.strOut.find("[sensor warn]")) << run.strOut;
    EXPECT_EQ("", cam.errorLog());
}

namespace {

// Starts a camera, changes scheme 0's brightness and flushes it with
// whatever the test left at the temporary's name; the flush saves the
// scheme, bytes as in memory.
void expectFlushSaves(Camera& cam) {
    const u32 nNew = cam.value(0, KEY_BRIGHTNESS) + 7;
    ASSERT_EQ(0, cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(nNew)));
    std::string strOut;
    int nRet = -1;
    strOut = testsupport::captureStdout([&] { nRet = cam.ctl->flush(); });
    EXPECT_EQ(SNS_SUCCESS, nRet);
    EXPECT_EQ("", strOut);
    EXPECT_TRUE(sameKeyVals(cam.scheme(0), cam.file(schemeFile(0))));
    EXPECT_EQ(nNew, cam.file(schemeFile(0)).at(cam.indexOf(KEY_BRIGHTNESS)).value);
}

} // namespace

// A folder of someone else's at the temporary's name: the flush saves all the
// same, and the folder stays with what it holds.
TEST(FlushTarget, FlushBesideAFolderAtTheTemporaryNameSaves) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.stopWorker();
    cam.root.write(schemeFile(0) + ".tmp/kept", "mine");
    expectFlushSaves(cam);
    EXPECT_EQ("mine", cam.root.read(schemeFile(0) + ".tmp/kept"));
}

// A file the camera may not write at the temporary's name: the flush saves
// all the same, and that file keeps its bytes.
TEST(FlushTarget, FlushBesideAnUnwritableFileAtTheTemporaryNameSaves) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.ctl->uinit();
    cam.ctl.reset();
    cam.root.write(schemeFile(0) + ".tmp", "not the camera's");
    const filestest::ChildRun run = filestest::runUnprivileged(cam.root.path(), [&]() -> int {
        if (::chmod(cam.root.real(schemeFile(0) + ".tmp").c_str(), 0444) != 0)
            return 1;
        if (!cam.start())
            return 2;
        cam.stopWorker();
        expectFlushSaves(cam);
        const bool bFailed = ::testing::Test::HasFailure();
        cam.ctl->uinit();
        return bFailed ? 3 : 0;
    });
    EXPECT_EQ(0, run.nCode) << run.strOut;
    EXPECT_EQ("not the camera's", cam.root.read(schemeFile(0) + ".tmp"));
}
