// The system configuration of a channel: detail fields, the machine's device
// type, and the choice of style documents by device type and channel.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/SysConfig.h"
#include "tests/support/FilesTestSupport.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "storage/SensorFile.h"
#include "tests/support/TestSupport.h"

using filestest::canonicalXml;
using filestest::captureStdout;
using filestest::failed;

namespace {

const char* const kStyleDir = SENSOR_STYLE_FOLDER;
const char* const kDivDir = SENSOR_STYLE_DIVERSITY_FOLDER;
const char* const kDeviceTypeExpr =
    "DeviceType::IPCAMERA == p_stSysConf->nDeviceType || DeviceType::FACE_DETECT == "
    "p_stSysConf->nDeviceType || DeviceType::VEHICLE_DETECT == p_stSysConf->nDeviceType || "
    "DeviceType::AIMULTI_OBJECT_DETECT == p_stSysConf->nDeviceType || DeviceType::IPDOME == "
    "p_stSysConf->nDeviceType || DeviceType::LPR == p_stSysConf->nDeviceType || DeviceType::IPP "
    "== p_stSysConf->nDeviceType || DeviceType::HUMAN_TEMPERATURE == p_stSysConf->nDeviceType || "
    "DeviceType::THERMAL_DEVICE == p_stSysConf->nDeviceType || "
    "DeviceType::THERMAL_DOUBLE_SENSOR_DEVICE == p_stSysConf->nDeviceType || DeviceType::FISHEYE "
    "== p_stSysConf->nDeviceType || DeviceType::DOMECORE == p_stSysConf->nDeviceType || "
    "DeviceType::THERMAL_DOUBLE_SENSOR_DOME_DEVICE == p_stSysConf->nDeviceType || "
    "DeviceType::DOMECORE_THERMAL_DEVICE == p_stSysConf->nDeviceType";

void writeMachine(const testsupport::TempDeviceRoot& root, int deviceType) {
    root.write(SENSOR_MACHINE_INFO_FILE, "[machine]\ndevice_type=" + std::to_string(deviceType) +
                                             "\nhardware_model=M\nhardware_code=C\n");
}

// Style documents that name their family, and diversity documents with one
// rule that never applies.
void writeMarkedStyles(const testsupport::TempDeviceRoot& root) {
    const std::string strDir = kStyleDir;
    const std::string strDiv = kDivDir;
    root.write(strDir + "Style.xml", "<style><tab key=\"camera\"/></style>");
    root.write(strDir + "Style_dome.xml", "<style><tab key=\"dome\"/></style>");
    root.write(strDir + "Style_Thermal.xml", "<style><tab key=\"thermal\"/></style>");
    for (const char* name :
         {"StyleDiversity.xml", "StyleDiversity_dome.xml", "StyleDiversity_Thermal.xml"})
        root.write(strDiv + name, "<rule never=\"1\"><Delete tab_key=\"camera\"/></rule>");
}

ModuleConfigure module(const std::string& detail, unsigned id = 3,
                       const std::string& parameters = "(fps=25)") {
    ModuleConfigure objModule;
    objModule.setModuleId(id);
    objModule.setDetail(detail);
    objModule.setParameters(parameters);
    return objModule;
}

// One initSysConf on the current device root: its result, what it printed,
// and the configuration, released with the object.
struct InitRun {
    explicit InitRun(const ModuleConfigure& p_objModule, int p_nCameraId = 1) {
        out = captureStdout([&] { nRet = initSysConf(p_nCameraId, p_objModule, &conf); });
    }
    ~InitRun() { uinitSysConf(&conf); }
    InitRun(const InitRun&) = delete;
    InitRun& operator=(const InitRun&) = delete;

    SysConfig conf;
    int nRet = -1;
    std::string out;
};

// Which family's style a channel got.
std::string styleFamily(int cameraId, int deviceType, std::string* out = nullptr) {
    testsupport::TempDeviceRoot root;
    writeMarkedStyles(root);
    writeMachine(root, deviceType);
    const InitRun run(module("(max_scheme=4)"), cameraId);
    if (out != nullptr)
        *out = run.out;
    std::string strFamily = "none";
    for (const char* family : {"camera", "dome", "thermal"}) {
        if (std::strstr(run.conf.szUIStyle, (std::string("key=\"") + family + "\"").c_str()))
            strFamily = family;
    }
    return strFamily;
}

} // namespace

// --- detail fields -------------------------------------------------------------------

TEST(DetailField, MissingFieldGivesMinusOne) {
    u32 nValue = 77;
    EXPECT_EQ(-1, getDetailFieldTou32("(sensor=IMX327)", "max_scheme", &nValue));
    EXPECT_EQ(77u, nValue);
    char szOut[8] = {0};
    EXPECT_EQ(-1, getDetailFieldToStr("(sensor=IMX327)", "lens", szOut));
}

TEST(DetailField, FieldWithoutClosingParenthesisIsAbsent) {
    u32 nValue = 77;
    EXPECT_EQ(-1, getDetailFieldTou32("(max_scheme=2", "max_scheme", &nValue));
    EXPECT_EQ(-1, getDetailFieldTou32("(max_scheme)", "max_scheme", &nValue));
    EXPECT_EQ(77u, nValue);
}

TEST(DetailField, NumberIsConvertedLikeAtoi) {
    u32 nValue = 0;
    EXPECT_EQ(0, getDetailFieldTou32("(a=1)(max_scheme=4abc)", "max_scheme", &nValue));
    EXPECT_EQ(4u, nValue);
    EXPECT_EQ(0, getDetailFieldTou32("(max_scheme=)", "max_scheme", &nValue));
    EXPECT_EQ(0u, nValue);
}

TEST(DetailField, LongNumberIsCutToTheNumberBuffer) {
    u32 nValue = 0;
    EXPECT_EQ(0, getDetailFieldTou32("(max_scheme=123456789012345678901234567890)", "max_scheme",
                                     &nValue));
    EXPECT_EQ(123456789u, nValue);
}

TEST(DetailField, StringIsCopiedWithoutTerminator) {
    char szOut[16];
    std::memset(szOut, 'x', sizeof(szOut));
    EXPECT_EQ(0, getDetailFieldToStr("(sensor=IMX327)(lens=fixed)", "lens", szOut));
    EXPECT_EQ(0, std::memcmp(szOut, "fixedx", 6));
}

TEST(DetailField, BoundedStringCopiesAtMostTheGivenSize) {
    char szOut[8];
    std::memset(szOut, 'x', sizeof(szOut));
    EXPECT_EQ(0, getDetailFieldToStrN("(sensor=IMX327LQR)", "sensor", szOut, 4));
    EXPECT_EQ(0, std::memcmp(szOut, "IMX3xxxx", 8));
}

// --- initSysConf -------------------------------------------------------------------

// The scheme count initSysConf reads from a module's detail text.
u32 schemeSumFor(const char* p_szDetail) {
    testsupport::TempDeviceRoot root(true);
    return InitRun(module(p_szDetail)).conf.nSchemeSum;
}

TEST(SysConfig, DetailWithoutMaxSchemeGivesFourSchemes) {
    EXPECT_EQ(4u, schemeSumFor("(sensor=IMX327)"));
}

TEST(SysConfig, MaxSchemeGroupGivesItsNumber) {
    EXPECT_EQ(2u, schemeSumFor("(sensor=IMX327)(max_scheme=2)"));
}

TEST(SysConfig, EmptyMaxSchemeGivesZeroSchemes) {
    EXPECT_EQ(0u, schemeSumFor("(max_scheme=)(sensor=IMX327)"));
}

TEST(SysConfig, ModuleFieldsAreCopied) {
    testsupport::TempDeviceRoot root(true);
    const InitRun run(module("(sensor=IMX327)", 9, "(width=1920)"));
    const SysConfig& stConf = run.conf;
    EXPECT_EQ(9u, stConf.moduleConfig.nModuleId);
    EXPECT_STREQ("xxx", stConf.moduleConfig.szLabel);
    EXPECT_STREQ("xxx", stConf.moduleConfig.szTag);
    EXPECT_STREQ("(sensor=IMX327)", stConf.moduleConfig.szDetail);
    EXPECT_STREQ("(width=1920)", stConf.moduleConfig.szParameters);
    EXPECT_EQ(0u, stConf.nLanguageNum);
    EXPECT_EQ(nullptr, stConf.pLanguageTab);
}

TEST(SysConfig, OverlongDetailAndParametersAreCutAndTerminated) {
    testsupport::TempDeviceRoot root(true);
    const std::string strDetail = "(max_scheme=3)" + std::string(700, 'd');
    const std::string strParams(400, 'p');
    const InitRun run(module(strDetail, 3, strParams));
    EXPECT_EQ(strDetail.substr(0, 511), std::string(run.conf.moduleConfig.szDetail));
    EXPECT_EQ(strParams.substr(0, 255), std::string(run.conf.moduleConfig.szParameters));
    EXPECT_EQ(3u, run.conf.nSchemeSum);
}

TEST(SysConfig, CameraOneOnBoxCameraTypesGetsStyle) {
    for (int type : {1, 8, 9, 11, 13, 14, 15, 16, 17, 18})
        EXPECT_EQ("camera", styleFamily(1, type)) << "device type " << type;
}

TEST(SysConfig, DomeTypesGetStyleDome) {
    for (int type : {4, 19, 20, 104})
        EXPECT_EQ("dome", styleFamily(1, type)) << "device type " << type;
}

TEST(SysConfig, CameraTwoOnDeviceTypeFourGetsStyleDome) {
    EXPECT_EQ("dome", styleFamily(2, 4));
}

TEST(SysConfig, CameraOneOnType13GetsStyleAndCameraTwoGetsStyleThermal) {
    EXPECT_EQ("camera", styleFamily(1, 13));
    EXPECT_EQ("thermal", styleFamily(2, 13));
}

TEST(SysConfig, CameraTwoGetsThermalOnlyOnTypes13_14_17_19) {
    for (int type : {13, 14, 17, 19})
        EXPECT_EQ("thermal", styleFamily(2, type)) << "device type " << type;
    EXPECT_EQ("camera", styleFamily(2, 1));
    EXPECT_EQ("camera", styleFamily(2, 16));
    EXPECT_EQ("dome", styleFamily(2, 20));
    EXPECT_EQ("dome", styleFamily(3, 19));
}

TEST(SysConfig, DeviceType104IsAcceptedAndUsesTheDomeDocuments) {
    std::string out;
    EXPECT_EQ("dome", styleFamily(1, 104, &out));
    EXPECT_EQ("", out);
}

TEST(SysConfig, EveryAcceptedDeviceTypePassesSilently) {
    for (int type : {1, 4, 8, 9, 11, 13, 14, 15, 16, 17, 18, 19, 20, 104}) {
        std::string out;
        styleFamily(1, type, &out);
        EXPECT_EQ("", out) << "device type " << type;
    }
}

TEST(SysConfig, UnacceptedDeviceTypeIsReportedAndUsesTheDomeDocuments) {
    std::string out;
    EXPECT_EQ("dome", styleFamily(1, 7, &out));
    EXPECT_NE(std::string::npos, out.find("[sensor assert] file:sensor.cpp fun:initSysConf"));
    EXPECT_NE(std::string::npos, out.find(failed(kDeviceTypeExpr)));
    EXPECT_NE(std::string::npos,
              out.find("machineinfo, devicetype(7) error, must be 1 or 4 or 8 or 9 or 13\n"));
}

TEST(SysConfig, MissingMachineInformationIsReportedAndStartUpGoesOn) {
    testsupport::TempDeviceRoot root;
    writeMarkedStyles(root);
    const InitRun run(module("(max_scheme=4)"));
    const std::string& out = run.out;
    const SysConfig& stConf = run.conf;
    EXPECT_EQ(0, run.nRet);
    EXPECT_NE(std::string::npos,
              out.find(failed("SystemInfoParser::parseMachineInfo(\"/mnt/mtd/code/"
                              "factory_setting/machineinfo.ini\", machineInfo)")));
    EXPECT_EQ(static_cast<u32>(MachineInfo().getDeviceType()), stConf.nDeviceType);
    ASSERT_NE(nullptr, stConf.szUIStyle);
}

TEST(SysConfig, MissingStyleIsReportedAndLeavesAnEmptyStyle) {
    testsupport::TempDeviceRoot root;
    writeMarkedStyles(root);
    writeMachine(root, 1);
    root.remove(std::string(kStyleDir) + "Style.xml");
    const InitRun run(module("(max_scheme=4)"));
    const std::string& out = run.out;
    const SysConfig& stConf = run.conf;
    EXPECT_NE(std::string::npos,
              out.find(failed("loadFromFile(strStyleFileName.c_str(), p_stSysConf->szUIStyle, "
                              "getFileLen(strStyleFileName.c_str())) > 0")));
    EXPECT_NE(std::string::npos, out.find("file_name(" SENSOR_STYLE_FOLDER "Style.xml)"));
    ASSERT_NE(nullptr, stConf.szUIStyle);
    EXPECT_STREQ("", stConf.szUIStyle);
}

TEST(SysConfig, MissingDiversityIsReportedAndTheStylePassesThrough) {
    testsupport::TempDeviceRoot root;
    writeMarkedStyles(root);
    writeMachine(root, 4);
    root.remove(std::string(kDivDir) + "StyleDiversity_dome.xml");
    const InitRun run(module("(max_scheme=4)"));
    const std::string& out = run.out;
    const SysConfig& stConf = run.conf;
    EXPECT_EQ(0, run.nRet);
    EXPECT_NE(std::string::npos,
              out.find(failed("loadFromFile(strStyleDivFileName.c_str(), ui_styleDiversity, "
                              "getFileLen(strStyleDivFileName.c_str())) > 0")));
    EXPECT_NE(std::string::npos,
              out.find(failed("doc_style_div.LoadMem(ui_styleDiversity, TIXML_ENCODING_UTF8)")));
    EXPECT_EQ(canonicalXml("<style><tab key=\"dome\"/></style>"), canonicalXml(stConf.szUIStyle));
}

// The length of a missing document is asked for each of its three uses (the
// block, its zeroing, the read), and each asking reports the failed open.
TEST(SysConfig, MissingStyleOrDiversityIsReportedOnceForEachOfItsThreeLengths) {
    for (const std::string& strMissing :
         {std::string(kStyleDir) + "Style.xml", std::string(kDivDir) + "StyleDiversity.xml"}) {
        testsupport::TempDeviceRoot root;
        writeMarkedStyles(root);
        writeMachine(root, 1);
        root.remove(strMissing);
        const InitRun run(module("(max_scheme=4)"));
        const std::string& out = run.out;
        EXPECT_EQ(3u, testsupport::occurrences(out, "fun:getFileLen line:")) << strMissing;
        EXPECT_EQ(3u, testsupport::occurrences(out, failed("file.open(file_name)"))) << strMissing;
        EXPECT_EQ(3u, testsupport::occurrences(out, "file_name(" + strMissing + ")\033[0m"))
            << strMissing;
    }
}

TEST(SysConfig, UinitReleasesTheStyleAndTheLanguageTable) {
    testsupport::TempDeviceRoot root(true);
    SysConfig stConf;
    captureStdout([&] { initSysConf(1, module("(max_scheme=4)"), &stConf); });
    stConf.nLanguageNum = 2;
    stConf.pLanguageTab = static_cast<UILanguageEntry*>(std::calloc(2, sizeof(UILanguageEntry)));
    stConf.pLanguageTab[0].szLanguageFile = strdup("en");
    stConf.pLanguageTab[0].szCommonFile = strdup("common");
    stConf.pLanguageTab[1].szLanguageFile = strdup("de");
    uinitSysConf(&stConf);
    EXPECT_EQ(nullptr, stConf.szUIStyle);
    EXPECT_EQ(nullptr, stConf.pLanguageTab);
    EXPECT_EQ(0u, stConf.nLanguageNum);
    // A second release finds nothing left to free.
    uinitSysConf(&stConf);
    EXPECT_EQ(nullptr, stConf.szUIStyle);
}
