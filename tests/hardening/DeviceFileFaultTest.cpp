// Every file the camera reads at start-up may be missing, empty, cut short,
// of a size that is no whole number of records, random bytes, or not a file
// at all (a folder or a socket in its place). Every case: no crash, init
// true, the controller answers single keys and saves its scheme, and no
// scheme file is torn.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "config/StyleMerge.h"
#include "config/SysConfig.h"
#include "tests/support/HardeningSupport.h"
#include "tests/support/Watchdog.h"

using namespace camtest;
using namespace hardening;

namespace {

const char* const kStyle = SENSOR_STYLE_FOLDER "Style.xml";
const char* const kDiversity = SENSOR_STYLE_DIVERSITY_FOLDER "StyleDiversity.xml";
const char* const kDebugSign = "/mnt/mtd/sign/Debug.sign";

std::vector<std::string> deviceFiles() {
    return {schemeFile(0), schemeFile(1),       schemeFile(2),
            schemeFile(3), SENSOR_VERSION_FILE, SENSOR_MACHINE_INFO_FILE,
            kStyle,        kDiversity,          SENSOR_MODULE_CONFIG_FILE,
            kDebugSign};
}

// One camera whose device files go back, before each case, to those of a
// camera that ran before: the sample tree, the stamp, four saved schemes and
// a debug sign. Cheaper than a new device root per case.
class Rig {
public:
    Rig() {
        cam.root.write(kDebugSign, "1\n0\n");
        EXPECT_TRUE(cam.start());
        cam.ctl->uinit();
        for (const std::string& strPath : deviceFiles())
            m_vecOriginal.push_back(readRegular(cam.root.real(strPath)));
    }

    void reset() {
        if (cam.ctl)
            cam.ctl->uinit();
        sim::Isp::instance().reset();
        sim::clearSystemCommands();
        const std::vector<std::string> vecPaths = deviceFiles();
        for (size_t i = 0; i < vecPaths.size(); ++i)
            writeFile(cam.root.real(vecPaths[i]), m_vecOriginal[i]);
        cam.root.remove("/mnt/mtd/log/SensorError.log");
    }

    const std::string& original(const std::string& p_strPath) const {
        const std::vector<std::string> vecPaths = deviceFiles();
        const size_t i = std::find(vecPaths.begin(), vecPaths.end(), p_strPath) - vecPaths.begin();
        return m_vecOriginal.at(i);
    }
    const std::string& savedScheme(int p_nScheme) const { return m_vecOriginal.at(p_nScheme); }

    Camera cam;

private:
    std::vector<std::string> m_vecOriginal;
};

// Starts on the prepared camera with its faults in place and checks that it
// is a working camera. p_vecInjected: the scheme files as the test left them.
void startAndCheck(Camera& cam, const std::string& p_strCase,
                   const std::vector<std::string>& p_vecInjected = {}) {
    if (cam.ctl)
        cam.ctl->uinit();
    ASSERT_TRUE(cam.start()) << p_strCase;
    EXPECT_TRUE(sim::threadRunning(*cam.acc->sensorThread())) << p_strCase;
    EXPECT_TRUE(answers(*cam.ctl)) << p_strCase;
    std::string strAll;
    EXPECT_TRUE(cam.ctl->getAllParameters(strAll)) << p_strCase;
    (void)cam.ctl->flush();
    EXPECT_TRUE(schemeFilesWholeOrUntouched(cam, p_vecInjected)) << p_strCase;
}

std::vector<std::string> schemesAsFound(const Camera& cam) {
    std::vector<std::string> vecOut;
    for (int s = 0; s < 4; ++s)
        vecOut.push_back(readRegular(cam.root.real(schemeFile(s))));
    return vecOut;
}

} // namespace

TEST(DeviceFileFault, EveryFileMissingStillStarts) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath : deviceFiles()) {
        rig.reset();
        cam.root.remove(strPath);
        startAndCheck(cam, "missing " + strPath, schemesAsFound(cam));
        ++nCases;
    }
    reportCases("device file missing", nCases);
}

TEST(DeviceFileFault, EveryFileEmptyStillStarts) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath : deviceFiles()) {
        rig.reset();
        writeFile(cam.root.real(strPath), "");
        startAndCheck(cam, "empty " + strPath, schemesAsFound(cam));
        ++nCases;
    }
    reportCases("device file empty", nCases);
}

// Scheme files cut at every length: scheme s at L + s, L in steps of 4, so
// that every length of a scheme file (every remainder of 8 among them) is
// loaded once.
TEST(DeviceFileFault, SchemeFilesCutAtEveryLengthStillStart) {
    Rig rig;
    Camera& cam = rig.cam;
    const size_t nWhole = rig.savedScheme(0).size();
    ASSERT_GT(nWhole, 40u);
    long nCases = 0;
    for (size_t nLength = 0; nLength < nWhole; nLength += 4) {
        rig.reset();
        for (int s = 0; s < 4; ++s) {
            const size_t nCut = std::min(nWhole - 1, nLength + static_cast<size_t>(s));
            writeFile(cam.root.real(schemeFile(s)), rig.savedScheme(s).substr(0, nCut));
            ++nCases;
        }
        startAndCheck(cam, "schemes cut at " + std::to_string(nLength), schemesAsFound(cam));
        // Whole records survive a cut; the value cut in half does not.
        if (nLength >= 6 * sizeof(KeyVal)) {
            EXPECT_EQ(toKeyVals(rig.savedScheme(2)).at(5).value, cam.scheme(2)[5].value);
        }
    }
    reportCases("scheme files cut at every length", nCases);
}

TEST(DeviceFileFault, SchemeFilesOneToSevenBytesOffWholeRecordsStillStart) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (int nOff = 1; nOff < 8; ++nOff) {
        rig.reset();
        // Longer by nOff bytes in schemes 0 and 1, shorter in 2 and 3.
        writeFile(cam.root.real(schemeFile(0)), rig.savedScheme(0) + std::string(nOff, '\x5a'));
        writeFile(cam.root.real(schemeFile(1)), rig.savedScheme(1) + std::string(nOff, '\0'));
        writeFile(cam.root.real(schemeFile(2)), rig.savedScheme(2).substr(0, 8 * 9 + nOff));
        writeFile(cam.root.real(schemeFile(3)),
                  rig.savedScheme(3).substr(0, rig.savedScheme(3).size() - nOff));
        startAndCheck(cam, "schemes off by " + std::to_string(nOff), schemesAsFound(cam));
        EXPECT_TRUE(sameKeyVals(toKeyVals(rig.savedScheme(1)), cam.scheme(1)));
        nCases += 4;
    }
    reportCases("scheme files of a size not a multiple of 8", nCases);
}

TEST(DeviceFileFault, StampAndMachineInfoCutAtEveryLengthStillStart) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath :
         {std::string(SENSOR_VERSION_FILE), std::string(SENSOR_MACHINE_INFO_FILE),
          std::string(kDebugSign)}) {
        const std::string strWhole = rig.original(strPath);
        for (size_t nLength = 0; nLength < strWhole.size(); ++nLength) {
            rig.reset();
            writeFile(cam.root.real(strPath), strWhole.substr(0, nLength));
            startAndCheck(cam, strPath + " cut at " + std::to_string(nLength), schemesAsFound(cam));
            ++nCases;
        }
    }
    reportCases("stamp, machine information and debug sign cut at every length", nCases);
}

// The style documents are long: cut at every length of their first and last
// 24 bytes and in even steps between (the fuzz targets take every cut).
TEST(DeviceFileFault, StyleDocumentsCutShortStillStart) {
    const long nSteps = envCount("SENSOR_HARDENING_STYLE_CUTS", 24);
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath :
         {std::string(kStyle), std::string(kDiversity), std::string(SENSOR_MODULE_CONFIG_FILE)}) {
        const std::string strWhole = rig.original(strPath);
        std::vector<size_t> vecCuts;
        for (size_t n = 0; n < 24; ++n) {
            vecCuts.push_back(n);
            vecCuts.push_back(strWhole.size() - 1 - n);
        }
        for (long i = 1; i < nSteps; ++i)
            vecCuts.push_back(strWhole.size() * static_cast<size_t>(i) /
                              static_cast<size_t>(nSteps));
        for (size_t nCut : vecCuts) {
            rig.reset();
            writeFile(cam.root.real(strPath), strWhole.substr(0, nCut));
            startAndCheck(cam, strPath + " cut at " + std::to_string(nCut), schemesAsFound(cam));
            ++nCases;
        }
    }
    reportCases("style documents and module configuration cut short", nCases);
}

// Random bytes in every file but the debug sign, whose second line may
// legitimately ask failed checks to abort.
TEST(DeviceFileFault, EveryFileOfRandomBytesStillStarts) {
    std::mt19937 rng(20240612);
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath : deviceFiles()) {
        if (strPath == kDebugSign)
            continue;
        for (size_t nSize : {7u, 64u, 503u, 504u, 4096u}) {
            rig.reset();
            std::string strBytes(nSize, '\0');
            for (char& c : strBytes)
                c = static_cast<char>(rng());
            writeFile(cam.root.real(strPath), strBytes);
            startAndCheck(cam, "random " + std::to_string(nSize) + " bytes in " + strPath,
                          schemesAsFound(cam));
            ++nCases;
        }
    }
    reportCases("device file of random bytes", nCases);
}

TEST(DeviceFileFault, FolderInPlaceOfEveryFileStillStartsAndKeepsTheFolder) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath : deviceFiles()) {
        rig.reset();
        putFolder(cam, strPath);
        startAndCheck(cam, "folder at " + strPath, schemesAsFound(cam));
        struct stat st;
        EXPECT_EQ(0, ::stat(cam.root.real(strPath).c_str(), &st));
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << strPath;
        ++nCases;
    }
    reportCases("folder in place of a device file", nCases);
}

// At a debug level above 5 a reset reads the machine information and the
// module configuration again, through the host's parsers.
TEST(DeviceFileFault, ResetAtHighDebugLevelWithAFolderInPlaceOfAFileStillResets) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath : deviceFiles()) {
        if (strPath == kDebugSign)
            continue;
        rig.reset();
        startAndCheck(cam, "before reset, folder at " + strPath);
        cam.root.setDebugSign("6\n0\n");
        putFolder(cam, strPath);
        testing::internal::CaptureStdout();
        const bool bReset = cam.ctl->resetParameters();
        (void)testing::internal::GetCapturedStdout();
        EXPECT_TRUE(bReset) << strPath;
        cam.root.setDebugSign("1\n0\n");
        EXPECT_TRUE(answers(*cam.ctl)) << strPath;
        ++nCases;
    }
    reportCases("reset at debug level 6, folder in place of a device file", nCases);
}

TEST(DeviceFileFault, SocketInPlaceOfEveryFileStillStarts) {
    Rig rig;
    Camera& cam = rig.cam;
    long nCases = 0;
    for (const std::string& strPath : deviceFiles()) {
        rig.reset();
        ASSERT_TRUE(putSocket(cam, strPath)) << strPath;
        startAndCheck(cam, "socket at " + strPath, schemesAsFound(cam));
        ++nCases;
    }
    reportCases("socket in place of a device file", nCases);
}

// A pipe blocks whoever opens it until the other end is opened too. None
// stands in the camera's way: not in place of a device file, nor where it
// writes its temporaries, its merged style or its error log. A camera that
// waited on one would end the test through the watchdog.
TEST(DeviceFileFault, PipeInPlaceOfEveryFileStillStartsWithoutWaiting) {
    testsupport::Watchdog objWatchdog(std::chrono::seconds(120));
    Rig rig;
    Camera& cam = rig.cam;
    std::vector<std::string> vecPaths = deviceFiles();
    const std::vector<std::string> vecWritten = {
        schemeFile(0) + ".tmp", std::string(SENSOR_VERSION_FILE) + ".tmp", SENSOR_MERGE_STYLE_FILE,
        "/mnt/mtd/log/SensorError.log"};
    vecPaths.insert(vecPaths.end(), vecWritten.begin(), vecWritten.end());
    long nCases = 0;
    for (const std::string& strPath : vecPaths) {
        rig.reset();
        ASSERT_TRUE(putPipe(cam, strPath)) << strPath;
        startAndCheck(cam, "pipe at " + strPath, schemesAsFound(cam));
        // A failed check writes the error log.
        EXPECT_EQ(-1, cam.ctl->restore(99999)) << strPath;
        cam.root.remove(strPath);
        ++nCases;
    }
    reportCases("pipe in place of a file the camera reads or writes", nCases);
}

TEST(DeviceFileFault, ConfigFolderReplacedByAFileStillStarts) {
    Rig rig;
    Camera& cam = rig.cam;
    rig.reset();
    (void)std::system(("rm -rf '" + cam.root.real("/mnt/mtd/code/config_file") + "'").c_str());
    writeFile(cam.root.real("/mnt/mtd/code/config_file"), "not a folder");
    startAndCheck(cam, "config_file is a file");
    EXPECT_EQ("not a folder", cam.root.read("/mnt/mtd/code/config_file"));
    reportCases("scheme folder replaced by a file", 1);
}
