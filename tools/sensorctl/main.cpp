// sensorctl: the simulated camera. The real libsensor.so in the simulated
// host, over a device root populated from the sample device tree.
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Shell.h"
#include "Tool.h"

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::cerr << sensorctl::usageText();
        return 2;
    }
    const std::string strCommand = args.front();
    args.erase(args.begin());

    if (strCommand == "help" || strCommand == "--help" || strCommand == "-h") {
        std::cout << sensorctl::usageText() << "\nshell verbs (each answers one line \"= ...\"):\n"
                  << sensorctl::Shell::helpText();
        return 0;
    }
    if (strCommand == "dump")
        return sensorctl::runDump(args);
    if (strCommand == "merge")
        return sensorctl::runMerge(args);
    if (strCommand != "shell" && strCommand != "demo" && strCommand != "serve") {
        std::cerr << "sensorctl: unknown command " << strCommand << "\n" << sensorctl::usageText();
        return 2;
    }

    sensorctl::CameraCommand command;
    command.camera.strDataDir =
        std::getenv("SENSORCTL_DATA") ? std::getenv("SENSORCTL_DATA") : SENSORCTL_DATA_DIR;
    if (strCommand == "demo")
        command.camera.dTimeScale = 0.01;
    std::string error;
    if (!sensorctl::readCameraCommand(strCommand, args, command, error)) {
        std::cerr << "sensorctl: " << error << "\n";
        return 2;
    }
    return sensorctl::runCameraCommand(command);
}
