#include "CommandLine.h"

#include <arpa/inet.h>

#include <climits>

#include "ToolInput.h"

#ifdef SENSORCTL_HAVE_ONVIF
#include "sensor-onvif/Access.h"
#endif

namespace sensorctl {

namespace {

// A camera keeps a handful of user schemes; a count beyond this is a typing
// slip, not a camera (each scheme is a file written at start).
constexpr int kMaxSchemes = 64;
// Beyond this a worker's second lasts over a quarter of an hour.
constexpr double kMaxTimeScale = 1000;

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
    "Numbers are decimal, written out whole (N: an integer, optionally negative;\n"
    "F: digits with an optional fraction, e.g. 0.01): a value out of its range or\n"
    "with anything after it is refused with exit code 2.\n"
    "\n"
    "camera options:\n"
    "  --root DIR          device root (default: a new temporary one, removed at exit)\n"
    "  --keep              keep a temporary root at exit (its path is printed then)\n"
    "  --channel N         camera channel from 1 (default 1)\n"
    "  --device-type N     machine device type of a new root\n"
    "  --model NAME        hardware model of a new root\n"
    "  --detail TEXT       module detail of a new root, e.g. (sensor=IMX327)(max_scheme=4)\n"
    "  --max-scheme N      number of schemes of a new root, 0 to 64\n"
    "  --debug N           write N into the debug sign file\n"
    "  --time-scale F      multiply the worker's waits by F, 0 to 1000 (default 1)\n"
    "  --clock HH:MM       the device clock stands at HH:MM (default: the wall clock)\n"
    "  --data DIR          the sample device tree to populate from\n"
    "\n"
    "users of serve (HTTP digest or WS-Security UsernameToken; without any\n"
    "user ONVIF is off and the settings page is open to anybody):\n"
    "  --user NAME:PASSWORD:LEVEL\n"
    "                      a user; LEVEL is Administrator, Operator or User\n"
    "                      (the password is everything between the first and\n"
    "                      the last colon); may be given more than once\n"
    "  --users FILE        one NAME:PASSWORD:LEVEL per line (blank lines and\n"
    "                      lines beginning with # are skipped)\n"
    "  --onvif-user U --onvif-password P\n"
    "  --onvif-credentials FILE\n"
    "                      an Administrator; FILE's first line is USER:PASSWORD\n"
    "                      (the password is everything after the first colon)\n"
    "\n"
    "WS-Discovery of serve (with ONVIF only; Probe and Resolve answered for\n"
    "this machine's clients, on the group 239.255.255.250 and by unicast):\n"
    "  --discovery-port N  UDP port, 0 to 65535 (default 3702; 0: any free port)\n"
    "  --discovery-bind A  IPv4 address to bind (default 0.0.0.0; on 127.x no group\n"
    "                      is joined and only unicast Probes arrive)\n"
    "  --no-discovery      answer no Probe or Resolve\n"
    "  --announce          send Hello at start and Bye at stop to\n"
    "                      239.255.255.250:3702 (default: no announcements)\n";

// The value after option i, taken out of the arguments with it.
bool takeValue(std::vector<std::string>& args, size_t i, std::string& value, std::string& error) {
    if (i + 1 >= args.size()) {
        error = "missing value for " + args[i];
        return false;
    }
    value = args[i + 1];
    args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
    return true;
}

bool readOptionInteger(const std::string& option, const std::string& text, long lo, long hi,
                       long& value, std::string& error) {
    InputError why;
    if (readInteger(text, lo, hi, value, why))
        return true;
    error = option + " takes an integer from " + std::to_string(lo) + " to " + std::to_string(hi) +
            ", not \"" + text + "\"";
    return false;
}

// Takes "--port N" out of the arguments; the rest are the camera's.
bool takePortOption(std::vector<std::string>& args, int& port, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "--port")
            continue;
        std::string strValue;
        long nPort = 0;
        if (!takeValue(args, i, strValue, error) ||
            !readOptionInteger("--port", strValue, 0, 65535, nPort, error))
            return false;
        port = static_cast<int>(nPort);
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
        if (!takeValue(args, i, *pOut, error))
            return false;
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

// Reads one user "NAME:PASSWORD:LEVEL"; the level's name comes back in the
// camera's spelling.
bool readUser(const std::string& text, ServeUser& user, std::string& error) {
#ifdef SENSORCTL_HAVE_ONVIF
    sensor_onvif::CameraUser parsed;
    if (!sensor_onvif::parseUserSpec(text, parsed, error))
        return false;
    user.strName = parsed.name;
    user.strPassword = parsed.password;
    user.strLevel = sensor_onvif::userLevelName(parsed.level);
    return true;
#else
    (void)text;
    (void)user;
    error = "built without libsensor-onvif, serve has no users";
    return false;
#endif
}

// Takes --user and --users out of the arguments, and adds the ONVIF
// credentials as an Administrator. A name given twice is refused.
bool takeUserOptions(std::vector<std::string>& args, ServeOptions& o, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const bool bOne = args[i] == "--user";
        if (!bOne && args[i] != "--users")
            continue;
        const std::string strOption = args[i];
        std::string strValue;
        if (!takeValue(args, i, strValue, error))
            return false;
        --i;
        if (bOne) {
            ServeUser user;
            if (!readUser(strValue, user, error)) {
                error = "--user: " + error;
                return false;
            }
            o.users.push_back(user);
            continue;
        }
        std::string strText;
        if (!sensorctl::readWholeFile(strValue, strText)) {
            error = "cannot read the users file " + strValue;
            return false;
        }
        size_t nLine = 0;
        for (size_t pos = 0; pos < strText.size();) {
            size_t nEnd = strText.find('\n', pos);
            if (nEnd == std::string::npos)
                nEnd = strText.size();
            std::string strLine = strText.substr(pos, nEnd - pos);
            pos = nEnd + 1;
            ++nLine;
            if (!strLine.empty() && strLine.back() == '\r')
                strLine.pop_back();
            if (strLine.empty() || strLine[0] == '#')
                continue;
            ServeUser user;
            if (!readUser(strLine, user, error)) {
                error =
                    "the users file " + strValue + ", line " + std::to_string(nLine) + ": " + error;
                return false;
            }
            o.users.push_back(user);
        }
    }
    if (!o.strOnvifUser.empty())
        o.users.push_back(ServeUser{o.strOnvifUser, o.strOnvifPassword, "Administrator"});
    for (size_t i = 0; i < o.users.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (o.users[i].strName == o.users[j].strName) {
                error = "the user " + o.users[i].strName + " is given twice";
                return false;
            }
#ifndef SENSORCTL_HAVE_ONVIF
    if (!o.users.empty()) {
        error = "built without libsensor-onvif, serve has no users";
        return false;
    }
#endif
    return true;
}

// Takes the WS-Discovery options of serve out of the arguments.
bool takeDiscoveryOptions(std::vector<std::string>& args, sensorctl::ServeOptions& o,
                          std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--no-discovery" || args[i] == "--announce") {
            if (args[i] == "--announce")
                o.bAnnounce = true;
            else
                o.bDiscovery = false;
            args.erase(args.begin() + static_cast<long>(i));
            --i;
        } else if (args[i] == "--discovery-bind") {
            std::string strValue;
            in_addr addr{};
            if (!takeValue(args, i, strValue, error))
                return false;
            if (::inet_pton(AF_INET, strValue.c_str(), &addr) != 1) {
                error = "--discovery-bind takes an IPv4 address, not \"" + strValue + "\"";
                return false;
            }
            o.strDiscoveryBind = strValue;
            --i;
        } else if (args[i] == "--discovery-port") {
            std::string strValue;
            long nPort = 0;
            if (!takeValue(args, i, strValue, error) ||
                !readOptionInteger("--discovery-port", strValue, 0, 65535, nPort, error))
                return false;
            o.nDiscoveryPort = static_cast<int>(nPort);
            --i;
        }
    }
    if (o.bAnnounce && !o.bDiscovery) {
        error = "--announce and --no-discovery do not go together";
        return false;
    }
    return true;
}

bool readCameraOptions(const std::vector<std::string>& args, CameraOptions& o, std::string& error) {
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
        auto integer = [&](long lo, long hi, int& out) {
            std::string v;
            long n = 0;
            if (!value(v) || !readOptionInteger(a, v, lo, hi, n, error))
                return false;
            out = static_cast<int>(n);
            return true;
        };
        bool ok = true;
        if (a == "--root")
            ok = value(o.strRoot);
        else if (a == "--keep")
            o.bKeep = true;
        else if (a == "--channel")
            ok = integer(1, INT_MAX, o.nChannel);
        else if (a == "--device-type")
            ok = integer(0, INT_MAX, o.nDeviceType);
        else if (a == "--model")
            ok = value(o.strModel);
        else if (a == "--detail")
            ok = value(o.strDetail);
        else if (a == "--max-scheme")
            ok = integer(0, kMaxSchemes, o.nMaxScheme);
        else if (a == "--debug") {
            ok = integer(INT_MIN, INT_MAX, o.nDebug);
            o.bDebug = ok;
        } else if (a == "--data")
            ok = value(o.strDataDir);
        else if (a == "--time-scale") {
            std::string v;
            InputError why;
            ok = value(v);
            if (ok && !readDecimal(v, 0, kMaxTimeScale, o.dTimeScale, why)) {
                error = "--time-scale takes a decimal number from 0 to 1000, not \"" + v + "\"";
                ok = false;
            }
        } else if (a == "--clock") {
            std::string v;
            InputError why;
            ok = value(v);
            if (ok && !readClock(v, o.nClockHour, o.nClockMinute, why)) {
                error = "--clock takes a time HH:MM, 00:00 to 23:59, not \"" + v + "\"";
                ok = false;
            }
        } else {
            error = "unknown option: " + a;
            ok = false;
        }
        if (!ok)
            return false;
    }
    return true;
}

} // namespace

const char* usageText() {
    return kUsage;
}

bool readCameraCommand(const std::string& command, const std::vector<std::string>& argsIn,
                       CameraCommand& out, std::string& error) {
    std::vector<std::string> args = argsIn;
    out.strCommand = command;
    if (command == "serve" &&
        (!takePortOption(args, out.serve.nPort, error) ||
         !takeOnvifOptions(args, out.serve, error) || !takeUserOptions(args, out.serve, error) ||
         !takeDiscoveryOptions(args, out.serve, error)))
        return false;
    out.bEcho = command == "shell" && takeEchoOption(args);
    return readCameraOptions(args, out.camera, error);
}

} // namespace sensorctl
