// The flash refuses writes: full (a file-size limit in a forked child, as
// tests/files does) or read-only (the flash's folders unwritable to a child
// that is no longer root). Every case: no crash, init true, the controller
// answers single keys, and no saved file is damaged by a failed save.
//
// Each child starts its own controller: a forked child never inherits the
// parent's worker thread.
#include <gtest/gtest.h>

#include <grp.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/support/HardeningSupport.h"

using namespace camtest;
using namespace hardening;

namespace {

const uid_t kNobody = 65534;

// A camera that ran before: stamp and scheme files on its flash.
void runOnce(Camera& cam) {
    ASSERT_TRUE(cam.start());
    cam.ctl->uinit();
}

std::string real(const Camera& cam, const std::string& p_strDevicePath) {
    return cam.root.real(p_strDevicePath);
}

// In a child: fails with a message on stderr.
int fail(int p_nCode, const std::string& p_strWhy) {
    std::fprintf(stderr, "child: %s\n", p_strWhy.c_str());
    return p_nCode;
}

// In a child: the scheme files are absent or whole schemes.
bool schemesAbsentOrWhole(const Camera& cam) {
    const size_t nWhole = cam.acc->keyValSum() * sizeof(KeyVal);
    for (int s = 0; s < 4; ++s) {
        struct stat st;
        if (::stat(real(cam, schemeFile(s)).c_str(), &st) == 0 &&
            static_cast<size_t>(st.st_size) != nWhole)
            return false;
        if (::stat((real(cam, schemeFile(s)) + ".tmp").c_str(), &st) == 0)
            return false;
    }
    return true;
}

// In a child: the controller answers single keys.
int childAnswers(Camera& cam) {
    const testing::AssertionResult result = answers(*cam.ctl);
    return result ? 0 : fail(9, result.message());
}

// Makes the flash's folders unwritable and the process an ordinary user, for
// whom permissions hold (root passes them). The tree stays readable.
void becomeReadOnlyFlashUser(const Camera& cam) {
    (void)std::system(("chmod -R a+rX '" + cam.root.path() + "'").c_str());
    (void)std::system(("chmod -R a-w '" + real(cam, "/mnt/mtd") + "'").c_str());
    if (::geteuid() == 0) {
        (void)::setgroups(0, nullptr);
        (void)::setgid(kNobody);
        (void)::setuid(kNobody);
    }
}

} // namespace

// The save is cut at every byte count up to a whole scheme: the file holds
// the previous scheme until a save completes, then the new one.
TEST(FlashFault, FlushOnFullFlashAtEveryLimitKeepsTheLastWholeScheme) {
    Camera cam;
    runOnce(cam);
    const size_t nWhole = cam.root.read(schemeFile(0)).size();
    ASSERT_GT(nWhole, 40u);
    const int nCode = runInChild([&]() -> int {
        if (!cam.start())
            return fail(1, "init");
        std::string strLast = cam.root.read(schemeFile(0));
        for (size_t nLimit = 0; nLimit <= nWhole + 8; ++nLimit) {
            limitFileSize(nLimit);
            if (cam.ctl->setParameter(KEY_BRIGHTNESS, static_cast<int>(1000 + nLimit)) != 0)
                return fail(2, "set at limit " + std::to_string(nLimit));
            (void)cam.ctl->flush();
            limitFileSize(RLIM_INFINITY);
            const std::string strNow = cam.root.read(schemeFile(0));
            const std::string strNew = toBytes(cam.scheme(0));
            if (nLimit < nWhole && strNow != strLast)
                return fail(3, "limit " + std::to_string(nLimit) + " changed the file");
            if (nLimit >= nWhole && strNow != strNew)
                return fail(4, "limit " + std::to_string(nLimit) + " did not save");
            if (cam.root.exists(schemeFile(0) + ".tmp"))
                return fail(5, "temporary left at limit " + std::to_string(nLimit));
            strLast = strNow;
        }
        return childAnswers(cam);
    });
    EXPECT_EQ(0, nCode);
    reportCases("flush on full flash, every limit", static_cast<long>(nWhole + 9));
}

TEST(FlashFault, StartUpOnFullFlashWithoutFilesStillStarts) {
    Camera cam;
    runOnce(cam);
    const size_t nWhole = cam.root.read(schemeFile(0)).size();
    long nCases = 0;
    for (size_t nLimit : {size_t(0), size_t(3), size_t(4), size_t(8), nWhole - 1, nWhole}) {
        (void)std::system(("rm -f '" + real(cam, "/mnt/mtd/code/config_file") + "'/*").c_str());
        const int nCode = runInChild([&]() -> int {
            limitFileSize(nLimit);
            if (!cam.start())
                return fail(1, "init");
            if (!schemesAbsentOrWhole(cam))
                return fail(2, "a scheme file is torn");
            return childAnswers(cam);
        });
        EXPECT_EQ(0, nCode) << "limit " << nLimit;
        ++nCases;
    }
    reportCases("start-up on full flash", nCases);
}

TEST(FlashFault, FactoryResetOnFullFlashStillRestarts) {
    Camera cam;
    runOnce(cam);
    const int nCode = runInChild([&]() -> int {
        if (!cam.start())
            return fail(1, "init");
        limitFileSize(8);
        if (!cam.ctl->resetParameters())
            return fail(2, "reset");
        if (!schemesAbsentOrWhole(cam))
            return fail(3, "a scheme file is torn");
        return childAnswers(cam);
    });
    EXPECT_EQ(0, nCode);
    reportCases("factory reset on full flash", 1);
}

TEST(FlashFault, FlushOnReadOnlyFlashKeepsEveryFile) {
    Camera cam;
    runOnce(cam);
    const std::string strBefore = cam.root.read(schemeFile(0));
    const int nCode = runInChild([&]() -> int {
        becomeReadOnlyFlashUser(cam);
        if (!cam.start())
            return fail(1, "init");
        if (cam.ctl->setParameter(KEY_BRIGHTNESS, 77) != 0)
            return fail(2, "set");
        (void)cam.ctl->flush();
        if (cam.root.read(schemeFile(0)) != strBefore)
            return fail(3, "the scheme file changed");
        if (cam.root.exists(schemeFile(0) + ".tmp"))
            return fail(4, "temporary left");
        (void)cam.ctl->resetParameters();
        if (cam.root.read(schemeFile(0)) != strBefore)
            return fail(5, "the reset changed the scheme file");
        return childAnswers(cam);
    });
    EXPECT_EQ(0, nCode);
    EXPECT_EQ(strBefore, cam.root.read(schemeFile(0)));
    reportCases("flush and reset on read-only flash", 2);
}

TEST(FlashFault, StartUpOnReadOnlyFlashWithoutFilesStillStarts) {
    Camera cam;
    runOnce(cam);
    (void)std::system(("rm -f '" + real(cam, "/mnt/mtd/code/config_file") + "'/*").c_str());
    const int nCode = runInChild([&]() -> int {
        becomeReadOnlyFlashUser(cam);
        if (!cam.start())
            return fail(1, "init");
        if (cam.root.exists(schemeFile(0)))
            return fail(2, "a scheme file was written");
        if (cam.acc->keyValSum() == 0 || !sameKeyVals(cam.factory(), cam.scheme(0)))
            return fail(3, "scheme 0 is not the factory values");
        return childAnswers(cam);
    });
    EXPECT_EQ(0, nCode);
    reportCases("start-up on read-only flash", 1);
}
