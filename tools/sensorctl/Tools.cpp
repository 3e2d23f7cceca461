#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>

#include "Serve.h"
#include "Shell.h"
#include "Tool.h"
#include "config/StyleMerge.h"
#include "config/SysConfig.h"
#include "controller/SensorKeys.h"
#include "sim/SimIsp.h"

namespace sensorctl {

int runCameraCommand(const CameraCommand& command) {
    if (command.strCommand == "demo") {
        CameraOptions options = command.camera;
        options.strRoot.clear(); // the tour always starts afresh
        return runDemo(options);
    }
    if (command.strCommand == "serve")
        blockStopSignals();
    Camera camera(command.camera);
    std::string error;
    int nRet = 0;
    if (!camera.start(error)) {
        std::cerr << "sensorctl: " << error << "\n";
        nRet = 1;
    } else if (command.strCommand == "serve") {
        nRet = runServe(camera, command.serve);
    } else {
        Shell shell(camera, std::cout);
        shell.setEcho(command.bEcho);
        shell.run(std::cin);
    }
    camera.stop();
    // A temporary root kept is of use only to one who knows where it is.
    if (camera.keepsTemporaryRoot())
        std::cerr << "sensorctl: kept the device root " << camera.root() << "\n";
    return nRet;
}

int runDump(const std::vector<std::string>& args) {
    if (args.size() != 1) {
        std::cerr << "usage: sensorctl dump FILE\n";
        return 2;
    }
    std::string error;
    if (!Shell::dumpSchemeFile(args[0], std::cout, error)) {
        std::cerr << "sensorctl: " << error << "\n";
        return 1;
    }
    return 0;
}

int runMerge(const std::vector<std::string>& args) {
    std::string strDetail;
    std::vector<std::string> files;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--detail" && i + 1 < args.size())
            strDetail = args[++i];
        else
            files.push_back(args[i]);
    }
    if (files.size() != 2) {
        std::cerr << "usage: sensorctl merge --detail TEXT STYLE DIVERSITY\n";
        return 2;
    }
    std::string strStyle, strDiversity;
    if (!readWholeFile(files[0], strStyle) || !readWholeFile(files[1], strDiversity)) {
        std::cerr << "sensorctl: cannot read " << files[0] << " or " << files[1] << "\n";
        return 1;
    }
    // The merge leaves its copy in "/tmp/merge_style.xml" of the device:
    // give it a root of its own.
    char szRoot[] = "/tmp/sensorctl-merge-XXXXXX";
    if (::mkdtemp(szRoot) == nullptr) {
        std::cerr << "sensorctl: cannot create a temporary root\n";
        return 1;
    }
    std::filesystem::create_directories(std::string(szRoot) + "/tmp");
    ::setenv("SENSOR_ROOT", szRoot, 1);

    ModuleConfig module;
    std::memset(&module, 0, sizeof(module));
    std::strncpy(module.szDetail, strDetail.c_str(), sizeof(module.szDetail) - 1);
    char* szStyle = static_cast<char*>(std::calloc(strStyle.size() + 1, 1));
    std::memcpy(szStyle, strStyle.data(), strStyle.size());
    std::string strDiv = strDiversity; // mergeStyle takes a writable text
    mergeStyle(&module, &szStyle, &strDiv[0]);
    std::cout << szStyle;
    std::free(szStyle);
    std::error_code ec;
    std::filesystem::remove_all(szRoot, ec);
    return 0;
}

int runDemo(const CameraOptions& options) {
    Camera camera(options);
    std::string error;
    std::cout << "# Starting a simulated camera on a fresh device root (the sample device tree).\n";
    if (!camera.start(error)) {
        std::cerr << "sensorctl: " << error << "\n";
        return 1;
    }
    sim::Isp::instance().clearTrace(); // start-up's own calls are not the tour's
    camera.video().clearNotices();
    Shell shell(camera, std::cout);
    shell.setEcho(true); // each command is shown before its answer
    auto say = [](const std::string& text) { std::cout << "\n# " << text << "\n"; };
    auto run = [&](const std::string& line) { shell.execute(line); };
    const std::string strBrightness = std::to_string(KEY_BRIGHTNESS);
    const std::string strSchemeMode = std::to_string(KEY_SCHEME_MODE);

    say("1. Set the brightness (key " + strBrightness + ") to 60: one ISP call, command " +
        std::to_string(sensor_keys::commandOf(KEY_BRIGHTNESS)) + ", and the value is cached.");
    run("set (" + strBrightness + ",60)");
    run("isp");
    run("get (" + strBrightness + ")");

    say("2. Switch to scheme 1: only the keys that differ from scheme 0 are pushed (brightness).");
    run("scheme 1");
    run("isp");
    run("scheme 0");
    run("isp");

    say("3. Day/night schemes: scheme 0 by day, scheme 1 by night, chosen by the worker.");
    run("set (" + strSchemeMode + ",2)");
    run("dn night");
    run("wait 3");
    run("scheme");
    run("dn day");
    run("wait 3");
    run("scheme");
    run("set (" + strSchemeMode + ",0)");

    say("4. flush saves the current scheme; its file holds raw 8-byte records.");
    run("set (" + strBrightness + ",75)");
    run("flush");
    run("dump 0");

    say("5. A factory reset pushes the factory values, deletes the files and starts again.");
    run("reset");
    run("scheme");
    run("get (" + strBrightness + ")");

    // Said only once the camera has stopped, so that a test reading this line
    // also knows the shut-down went through.
    camera.stop();
    std::cout << "\n# The tour is over: the camera has stopped.\n";
    return 0;
}

} // namespace sensorctl
