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
// start-up's stamp and the flush are written in place.
TEST(FlushTarget, FlushOfAWritableFileInAReadOnlyFolderSavesInPlace) {
    Camera cam;
    ASSERT_TRUE(cam.start());
    cam.ctl->uinit();
    cam.ctl.reset();
    cam.root.setDebugSign("4\n");
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
    EXPECT_NE(std::string::npos, cam.errorLog().find("sensor0.cfg) written in place"));
}
