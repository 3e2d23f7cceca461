// sensorctl: the simulated camera. The real libsensor.so in the simulated
// host, over a device root populated from the sample device tree.
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Camera.h"
#include "Serve.h"
#include "Shell.h"
#include "Tool.h"

namespace {

const char* const kUsage =
    "usage: sensorctl COMMAND [options]\n"
    "\n"
    "commands:\n"
    "  shell [options] [--echo]\n"
    "                      run a simulated camera, reading commands from standard input\n"
    "                      (--echo: print each command after \"> \" before its answer)\n"
    "  demo [options]      a short guided tour on a fresh temporary root\n"
    "  serve [options] [--port N] [ONVIF credentials]\n"
    "                      the settings page and its HTTP API on 127.0.0.1:N\n"
    "                      (default 8080; 0: any free port, printed at start),\n"
    "                      and with credentials the ONVIF device, media and\n"
    "                      imaging services on the same port (/onvif/...)\n"
    "  dump FILE           decode a scheme file, one line per record\n"
    "  merge --detail TEXT STYLE DIVERSITY\n"
    "                      print the style a module with that detail text gets\n"
    "  help                this text and the shell's verbs\n"
    "\n"
    "camera options:\n"
    "  --root DIR          device root (default: a new temporary one, removed at exit)\n"
    "  --keep              keep a temporary root at exit\n"
    "  --channel N         camera channel from 1 (default 1)\n"
    "  --device-type N     machine device type of a new root\n"
    "  --model NAME        hardware model of a new root\n"
    "  --detail TEXT       module detail of a new root, e.g. (sensor=IMX327)(max_scheme=4)\n"
    "  --max-scheme N      number of schemes of a new root\n"
    "  --debug N           write N into the debug sign file\n"
    "  --time-scale F      multiply the worker's waits by F (default 1)\n"
    "  --data DIR          the sample device tree to populate from\n"
    "\n"
    "ONVIF credentials of serve (WS-Security UsernameToken, PasswordDigest;\n"
    "without them ONVIF is off):\n"
    "  --onvif-user U --onvif-password P\n"
    "  --onvif-credentials FILE\n"
    "                      FILE's first line is USER:PASSWORD (the password is\n"
    "                      everything after the first colon)\n";

bool parseCameraOptions(const std::vector<std::string>& args, sensorctl::CameraOptions& o,
                        std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= args.size()) {
                error = "missing value for " + a;
                return false;
            }
            out = args[++i];
            return true;
        };
        auto number = [&](int& out) {
            std::string v;
            if (!value(v))
                return false;
            char* end = nullptr;
            const long n = std::strtol(v.c_str(), &end, 10);
            if (v.empty() || *end != '\0') {
                error = "not a number for " + a + ": " + v;
                return false;
            }
            out = static_cast<int>(n);
            return true;
        };
        bool ok = true;
        if (a == "--root")
            ok = value(o.strRoot);
        else if (a == "--keep")
            o.bKeep = true;
        else if (a == "--channel")
            ok = number(o.nChannel);
        else if (a == "--device-type")
            ok = number(o.nDeviceType);
        else if (a == "--model")
            ok = value(o.strModel);
        else if (a == "--detail")
            ok = value(o.strDetail);
        else if (a == "--max-scheme")
            ok = number(o.nMaxScheme);
        else if (a == "--debug") {
            ok = number(o.nDebug);
            o.bDebug = ok;
        } else if (a == "--data")
            ok = value(o.strDataDir);
        else if (a == "--time-scale") {
            std::string v;
            ok = value(v);
            char* end = nullptr;
            if (ok)
                o.dTimeScale = std::strtod(v.c_str(), &end);
            if (ok && (v.empty() || *end != '\0' || o.dTimeScale < 0)) {
                error = "not a time scale: " + v;
                ok = false;
            }
        } else {
            error = "unknown option: " + a;
            ok = false;
        }
        if (!ok)
            return false;
    }
    if (o.nChannel < 1) {
        error = "the channel counts from 1";
        return false;
    }
    return true;
}

// Takes "--port N" out of the arguments; the rest are the camera's.
bool takePortOption(std::vector<std::string>& args, int& port, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "--port")
            continue;
        char* end = nullptr;
        const long n = i + 1 < args.size() ? std::strtol(args[i + 1].c_str(), &end, 10) : -1;
        if (i + 1 >= args.size() || args[i + 1].empty() || *end != '\0' || n < 0 || n > 65535) {
            error = "--port takes a port number from 0 to 65535";
            return false;
        }
        port = static_cast<int>(n);
        args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
        --i;
    }
    return true;
}

// Takes "--echo" out of the arguments: true when it was there.
bool takeEchoOption(std::vector<std::string>& args) {
    bool bFound = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--echo") {
            args.erase(args.begin() + static_cast<long>(i));
            --i;
            bFound = true;
        }
    }
    return bFound;
}

// Takes the ONVIF credentials out of the arguments: a user and a password
// given together, or a file holding "USER:PASSWORD", not both.
bool takeOnvifOptions(std::vector<std::string>& args, sensorctl::ServeOptions& o,
                      std::string& error) {
    std::string strFile;
    bool bUser = false, bPassword = false, bFile = false;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string* pOut = nullptr;
        if (args[i] == "--onvif-user") {
            pOut = &o.strOnvifUser;
            bUser = true;
        } else if (args[i] == "--onvif-password") {
            pOut = &o.strOnvifPassword;
            bPassword = true;
        } else if (args[i] == "--onvif-credentials") {
            pOut = &strFile;
            bFile = true;
        } else {
            continue;
        }
        if (i + 1 >= args.size()) {
            error = "missing value for " + args[i];
            return false;
        }
        *pOut = args[i + 1];
        args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
        --i;
    }
    if (bFile && (bUser || bPassword)) {
        error = "--onvif-credentials takes the place of --onvif-user and --onvif-password";
        return false;
    }
    if (bFile) {
        std::string strText;
        if (!sensorctl::readWholeFile(strFile, strText)) {
            error = "cannot read the ONVIF credentials file " + strFile;
            return false;
        }
        const std::string strLine = strText.substr(0, strText.find('\n'));
        const size_t nColon = strLine.find(':');
        if (nColon == std::string::npos) {
            error = "the ONVIF credentials file " + strFile + " does not begin with USER:PASSWORD";
            return false;
        }
        o.strOnvifUser = strLine.substr(0, nColon);
        o.strOnvifPassword = strLine.substr(nColon + 1);
        if (!o.strOnvifPassword.empty() && o.strOnvifPassword.back() == '\r')
            o.strOnvifPassword.pop_back();
    } else if (bUser != bPassword) {
        error = "--onvif-user and --onvif-password go together";
        return false;
    }
    if ((bFile || bUser) && (o.strOnvifUser.empty() || o.strOnvifPassword.empty())) {
        error = "the ONVIF user and password must not be empty";
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::cerr << kUsage;
        return 2;
    }
    const std::string strCommand = args.front();
    args.erase(args.begin());

    if (strCommand == "help" || strCommand == "--help" || strCommand == "-h") {
        std::cout << kUsage << "\nshell verbs (each answers one line \"= ...\"):\n"
                  << sensorctl::Shell::helpText();
        return 0;
    }
    if (strCommand == "dump")
        return sensorctl::runDump(args);
    if (strCommand == "merge")
        return sensorctl::runMerge(args);
    if (strCommand != "shell" && strCommand != "demo" && strCommand != "serve") {
        std::cerr << "sensorctl: unknown command " << strCommand << "\n" << kUsage;
        return 2;
    }

    sensorctl::CameraOptions options;
    options.strDataDir =
        std::getenv("SENSORCTL_DATA") ? std::getenv("SENSORCTL_DATA") : SENSORCTL_DATA_DIR;
    std::string error;
    if (strCommand == "demo")
        options.dTimeScale = 0.01;
    sensorctl::ServeOptions serveOptions;
    if (strCommand == "serve" && (!takePortOption(args, serveOptions.nPort, error) ||
                                  !takeOnvifOptions(args, serveOptions, error))) {
        std::cerr << "sensorctl: " << error << "\n";
        return 2;
    }
    const bool bEcho = strCommand == "shell" && takeEchoOption(args);
    if (!parseCameraOptions(args, options, error)) {
        std::cerr << "sensorctl: " << error << "\n";
        return 2;
    }
    if (strCommand == "demo") {
        options.strRoot.clear();
        return sensorctl::runDemo(options);
    }
    if (strCommand == "serve")
        sensorctl::blockStopSignals();
    sensorctl::Camera camera(options);
    if (!camera.start(error)) {
        std::cerr << "sensorctl: " << error << "\n";
        return 1;
    }
    if (strCommand == "serve") {
        const int nRet = sensorctl::runServe(camera, serveOptions);
        camera.stop();
        return nRet;
    }
    sensorctl::Shell shell(camera, std::cout);
    shell.setEcho(bEcho);
    shell.run(std::cin);
    camera.stop();
    return 0;
}
