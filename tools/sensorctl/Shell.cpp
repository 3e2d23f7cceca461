#include "Shell.h"

#include "PictureVerbs.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <sstream>
#include <thread>

#include "ToolInput.h"
#include "controller/KeyCmdTable.h"
#include "controller/SensorKeys.h"
#include "sim/SimIsp.h"
#include "diag/DeviceRoot.h"
#include "storage/SensorFile.h"

namespace sensorctl {

namespace {

// The commands whose range a host may ask for, as the help names them:
// "49, 50, 82 or 1537".
std::string rangeKeysText() {
    std::string text;
    const size_t nCount = sizeof(sensor_keys::kRangeKeys) / sizeof(sensor_keys::kRangeKeys[0]);
    for (size_t i = 0; i < nCount; ++i) {
        if (i > 0)
            text += i + 1 == nCount ? " or " : ", ";
        text += std::to_string(sensor_keys::kRangeKeys[i]);
    }
    return text;
}

std::vector<std::string> splitBlanks(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    std::string word;
    while (in >> word)
        words.push_back(word);
    return words;
}

std::string joinWords(const std::vector<uint32_t>& words) {
    std::string s;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i)
            s += ",";
        s += std::to_string(static_cast<int32_t>(words[i]));
    }
    return s;
}

} // namespace

// A verb: its name, the arguments it takes, its help, and its work.
struct Shell::Verb {
    const char* szName;
    const char* szUsage;
    int nMinArgs;
    int nMaxArgs; // -1: the rest of the line is one text
    const char* szHelp;
    std::function<bool(Shell&, std::string&)> fn;
};

struct ShellVerbs {
    static bool number(Shell& s, size_t i, int& out) {
        long v = 0;
        InputError why;
        if (!readInteger(s.m_args.at(i), INT_MIN, INT_MAX, v, why)) {
            s.m_strError = "not a number: " + s.m_args[i];
            return false;
        }
        out = static_cast<int>(v);
        return true;
    }
    static ISensorController& c(Shell& s) { return s.m_camera.controller(); }

    // get V when no argument, set V with one: the shape of most direct operations.
    static bool getOrSet(Shell& s, std::string& res, const std::function<bool(int&)>& get,
                         const std::function<bool(int)>& set) {
        if (s.m_args.empty()) {
            int v = 0;
            res = get(v) ? std::to_string(v) : "false";
            return true;
        }
        int v = 0;
        if (!number(s, 0, v))
            return false;
        res = s.result(set(v));
        return true;
    }
    static bool action(Shell& s, std::string& res, bool (ISensorController::*fn)()) {
        res = s.result((c(s).*fn)());
        return true;
    }

    typedef std::function<bool(Shell&, std::string&)> Fn;
    // A verb that reads a value with get, or writes its one argument with set.
    static Fn getSet(bool (ISensorController::*get)(int&), bool (ISensorController::*set)(int)) {
        return [get, set](Shell& s, std::string& r) {
            return getOrSet(
                s, r, [&](int& v) { return (c(s).*get)(v); },
                [&](int v) { return (c(s).*set)(v); });
        };
    }
    // A verb that only reads a value.
    static Fn getOnly(bool (ISensorController::*get)(int&)) {
        return [get](Shell& s, std::string& r) {
            int v = 0;
            r = (c(s).*get)(v) ? std::to_string(v) : "false";
            return true;
        };
    }
    // A verb over one of the controller's show flags: read it, or set it from
    // its one argument (0 or not) first; answers 1 or 0.
    static Fn showFlag(bool (ISensorController::*get)(bool&),
                       void (ISensorController::*set)(bool)) {
        return [get, set](Shell& s, std::string& r) {
            if (!s.m_args.empty()) {
                int v = 0;
                if (!number(s, 0, v))
                    return false;
                (c(s).*set)(v != 0);
            }
            bool b = false;
            (c(s).*get)(b);
            r = b ? "1" : "0";
            return true;
        };
    }
    // A verb that runs one operation and answers its result.
    static Fn act(bool (ISensorController::*fn)()) {
        return [fn](Shell& s, std::string& r) { return action(s, r, fn); };
    }
};

const std::vector<Shell::Verb>& Shell::verbs() {
    using V = ShellVerbs;
    static const std::string kRangeHelp = "the ISP's list of values for " + rangeKeysText();
    const std::string strBrightness = std::to_string(KEY_BRIGHTNESS);
    const std::string strSaturation = std::to_string(KEY_SATURATION);
    static const std::string kSetHelp =
        "apply a pair list, e.g. (" + strBrightness + ",60)(" + strSaturation +
        ",1), caching it; = the library's answer: the first failed key negated, or 0";
    static const std::string kGetHelp = "read keys, e.g. (" + strBrightness + "," + strSaturation +
                                        "); = the library's answer: their pair list, or false";
    static const std::vector<Verb> table = {
        {"set", "set TEXT", 1, -1, kSetHelp.c_str(),
         [](Shell& s, std::string& r) { r = std::to_string(V::c(s).setParameters(s.m_strRest, true)); return true; }},
        {"push", "push TEXT", 1, -1,
         "apply a pair list to the ISP without the cache; = the library's answer",
         [](Shell& s, std::string& r) { r = std::to_string(V::c(s).setParameters(s.m_strRest, false)); return true; }},
        {"get", "get IDS", 1, -1, kGetHelp.c_str(),
         [](Shell& s, std::string& r) {
             std::string out;
             r = V::c(s).getParameters(s.m_strRest, out) ? out : "false";
             return true;
         }},
        {"all", "all", 0, 0, "every parameter of the current scheme as a pair list",
         [](Shell& s, std::string& r) { V::c(s).getAllParameters(r); return true; }},
        {"scheme", "scheme [N]", 0, 1, "the current scheme, or switch to scheme N",
         V::getSet(&ISensorController::getParamScheme, &ISensorController::setParamScheme)},
        {"mode", "mode [N]", 0, 1, "the parameter mode (0 manual, 1 automatic), or set it",
         V::getSet(&ISensorController::getParamMode, &ISensorController::setParamMode)},
        {"flush", "flush", 0, 0, "save the current scheme to its file; = 0 or the check's code",
         [](Shell& s, std::string& r) { r = std::to_string(V::c(s).flush()); return true; }},
        {"restore", "restore KEY", 1, 1, "push one key's value stored in the current scheme",
         [](Shell& s, std::string& r) {
             int k = 0;
             if (!V::number(s, 0, k))
                 return false;
             r = std::to_string(V::c(s).restore(k));
             return true;
         }},
        {"last", "last", 0, 0, "go back to the values last saved for the current scheme",
         V::act(&ISensorController::resetToLastParameters)},
        {"reset", "reset", 0, 0, "factory reset: factory values, files deleted, restart",
         V::act(&ISensorController::resetParameters)},
        {"round", "round", 0, 0, "run one round of the worker on this thread",
         [](Shell& s, std::string& r) { r = std::to_string(V::c(s).sensorThread()); return true; }},
        {"wait", "wait S", 1, 1, "let the running worker go on for S (scaled) seconds, 0 to 3600",
         [](Shell& s, std::string& r) {
             double d = 0;
             InputError why;
             if (!readDecimal(s.m_args[0], 0, 3600, d, why)) {
                 s.m_strError = "not a number of seconds: " + s.m_args[0];
                 return false;
             }
             std::this_thread::sleep_for(std::chrono::duration<double>(d * sim::timeScale()));
             r = s.m_args[0];
             return true;
         }},
        {"worker", "worker pause|run", 1, 1,
         "hold the running worker between rounds, or let it go on (rounds then only by round)",
         [](Shell& s, std::string& r) {
             const std::string& w = s.m_args[0];
             if (w != "pause" && w != "run") {
                 s.m_strError = "expected pause or run: " + w;
                 return false;
             }
             sim::pauseThreads(w == "pause");
             r = w;
             return true;
         }},
        {"clock", "clock HH:MM", 1, 1, "set the simulated device time",
         [](Shell& s, std::string& r) {
             const std::string& t = s.m_args[0];
             int h = 0, m = 0;
             InputError why;
             if (!readClock(t, h, m, why)) {
                 s.m_strError = "not a time HH:MM, 00:00 to 23:59: " + t;
                 return false;
             }
             sim::setDeviceTime(h, m);
             r = t;
             return true;
         }},
        {"dn", "dn day|night|auto", 1, 1,
         "hold the simulated ISP's day/night state, or let its light meter decide (auto)",
         [](Shell& s, std::string& r) {
             const std::string& w = s.m_args[0];
             if (w != "day" && w != "night" && w != "auto") {
                 s.m_strError = "expected day, night or auto: " + w;
                 return false;
             }
             sim::Isp& isp = sim::Isp::instance();
             if (w == "auto")
                 isp.releaseDayNight(s.m_camera.ispChannel());
             else
                 isp.setDayNight(s.m_camera.ispChannel(), w == "night" ? 1 : 0);
             r = w;
             return true;
         }},
        {"isp", "isp [clear]", 0, 1,
         "list the ISP calls since the last isp (clear: drop them unlisted); = their count",
         [](Shell& s, std::string& r) {
             if (!s.m_args.empty() && s.m_args[0] != "clear") {
                 s.m_strError = "expected clear: " + s.m_args[0];
                 return false;
             }
             const std::vector<sim::IspCall> calls = sim::Isp::instance().takeTrace();
             r = std::to_string(calls.size());
             if (!s.m_args.empty())
                 return true;
             for (const sim::IspCall& c : calls)
                 s.m_out << "isp ch=" << c.channel << " cmd=" << c.cmd << " opt=" << c.opt
                         << " val=" << joinWords(c.words) << " ret=" << c.result << "\n";
             return true;
         }},
        {"video", "video [clear]", 0, 1,
         "list the video notifications since the last video (clear: drop them); = their count",
         [](Shell& s, std::string& r) {
             if (!s.m_args.empty() && s.m_args[0] != "clear") {
                 s.m_strError = "expected clear: " + s.m_args[0];
                 return false;
             }
             const auto notices = s.m_camera.video().takeNotices();
             if (!s.m_args.empty()) {
                 r = std::to_string(notices.size());
                 return true;
             }
             for (const auto& n : notices)
                 s.m_out << "video ch=" << n.channel << " key=" << n.key << " val=" << n.value << "\n";
             r = std::to_string(notices.size());
             return true;
         }},
        {"fail", "fail CMD RET|off", 2, 2, "make the simulated ISP answer RET for CMD, or stop it",
         [](Shell& s, std::string& r) {
             FaultSetting f;
             InputError why;
             if (!readFaultSetting(s.m_strRest, f, why)) {
                 s.m_strError = "not CMD RET or CMD off: " + s.m_strRest;
                 return false;
             }
             if (f.bOff)
                 sim::Isp::instance().clearFailure(static_cast<int>(f.nCmd));
             else
                 sim::Isp::instance().failCommand(static_cast<int>(f.nCmd), static_cast<int>(f.nRet));
             r = s.m_args[0] + " " + s.m_args[1];
             return true;
         }},
        {"style", "style", 0, 0, "print the style document for the host's UI; = its bytes",
         [](Shell& s, std::string& r) {
             const std::string doc = V::c(s).getUIStyleFile();
             s.m_out << doc;
             if (!doc.empty() && doc.back() != '\n')
                 s.m_out << "\n";
             r = std::to_string(doc.size());
             return true;
         }},
        {"range", "range CMD", 1, 1, kRangeHelp.c_str(),
         [](Shell& s, std::string& r) {
             int cmd = 0, def = 0;
             if (!V::number(s, 0, cmd))
                 return false;
             std::string list;
             r = V::c(s).getSensorParamRange(cmd, def, list)
                     ? "true " + std::to_string(def) + " " + list
                     : "false";
             return true;
         }},
        {"check", "check TEXT", 1, -1,
         "the ISP's sensor check with (a,b,c); b = 2 reads; = the library's answer",
         [](Shell& s, std::string& r) {
             std::string text = s.m_strRest;
             const int ret = V::c(s).SensorCheck(text);
             r = std::to_string(ret) + " " + text;
             return true;
         }},
        {"dump", "dump N", 1, 1, "decode this camera's scheme file N",
         [](Shell& s, std::string& r) {
             int n = 0;
             if (!V::number(s, 0, n))
                 return false;
             const std::string strName = sensorSchemeFile(s.m_camera.controllerChannel(), n);
             const char* szName = strName.c_str();
             std::string err;
             if (!Shell::dumpSchemeFile(sensorDevicePath(szName), s.m_out, err, szName)) {
                 s.m_strError = err;
                 return false;
             }
             r = szName;
             return true;
         }},
        {"zoomin", "zoomin", 0, 0, "zoom one step in",
         V::act(&ISensorController::zoomIn)},
        {"zoomout", "zoomout", 0, 0, "zoom one step out",
         V::act(&ISensorController::zoomOut)},
        {"focusnear", "focusnear", 0, 0, "focus one step near",
         V::act(&ISensorController::focusNear)},
        {"focusfar", "focusfar", 0, 0, "focus one step far",
         V::act(&ISensorController::focusFar)},
        {"irisup", "irisup", 0, 0, "open the iris one step",
         V::act(&ISensorController::irisUp)},
        {"irisdown", "irisdown", 0, 0, "close the iris one step",
         V::act(&ISensorController::irisDown)},
        {"zoom", "zoom [POS]", 0, 1, "= the zoom position and ratio (thousandths), or move to POS",
         [](Shell& s, std::string& r) {
             if (s.m_args.empty()) {
                 int pos = 0, ratio = 0;
                 r = V::c(s).getZoomValue(pos, ratio)
                         ? std::to_string(pos) + " " + std::to_string(ratio)
                         : "false";
                 return true;
             }
             int v = 0;
             if (!V::number(s, 0, v))
                 return false;
             r = s.result(V::c(s).setZoomValue(v));
             return true;
         }},
        {"focus", "focus [POS]", 0, 1, "the focus position, or set it",
         V::getSet(&ISensorController::getFocusValue, &ISensorController::setFocusValue)},
        {"focusmode", "focusmode [M]", 0, 1, "the focus mode, or set it",
         V::getSet(&ISensorController::getFocusMode, &ISensorController::setFocusMode)},
        {"iris", "iris [V]", 0, 1, "the iris position, or set it (clamped)",
         V::getSet(&ISensorController::getIrisValue, &ISensorController::setIrisValue)},
        {"ir", "ir [0|1]", 0, 1, "the infrared switch, or set it (the white light goes off)",
         V::getSet(&ISensorController::getIRSwitch, &ISensorController::setIRSwitch)},
        {"white", "white [0|1]", 0, 1, "the white-light switch, or set it (the infrared goes off)",
         V::getSet(&ISensorController::getWhiteSwitch, &ISensorController::setWhiteSwitch)},
        {"whitemode", "whitemode [M]", 0, 1, "the white-light mode, or set it",
         V::getSet(&ISensorController::getWhiteMode, &ISensorController::setWhiteMode)},
        {"shutter", "shutter [I]", 0, 1, "the shutter's position in the ISP's list, or move to I",
         V::getSet(&ISensorController::getShutterValue, &ISensorController::setShutterValue)},
        {"shutterup", "shutterup", 0, 0, "the next shutter of the list",
         V::act(&ISensorController::shutterUp)},
        {"shutterdown", "shutterdown", 0, 0, "the previous shutter of the list",
         V::act(&ISensorController::shutterDown)},
        {"wdr", "wdr", 0, 0, "the ISP's wide-dynamic-range mode",
         V::getOnly(&ISensorController::getWDR)},
        {"af", "af", 0, 0, "the autofocus statistic",
         [](Shell& s, std::string& r) {
             unsigned int v = 0;
             r = V::c(s).getAFStatistic(v) ? std::to_string(v) : "false";
             return true;
         }},
        {"ptz", "ptz STATE", 1, 1, "tell the lens whether the pan-tilt unit moves",
         [](Shell& s, std::string& r) {
             int v = 0;
             if (!V::number(s, 0, v))
                 return false;
             r = s.result(V::c(s).setPTZRunState(v));
             return true;
         }},
        {"lock", "lock [0|1]", 0, 1, "the lens lock (lens commands swallowed while on)",
         [](Shell& s, std::string& r) {
             SensorZoomFocusParam p;
             V::c(s).getSensorZoomFocusParam(p);
             if (!s.m_args.empty()) {
                 int v = 0;
                 if (!V::number(s, 0, v))
                     return false;
                 p.setLockZoomFocusEnable(v != 0);
                 V::c(s).setSensorZoomFocusParam(p);
             }
             r = p.getLockZoomFocusEnable() ? "1" : "0";
             return true;
         }},
        {"mirror", "mirror [M]", 0, 1, "the mirror setting, or set and save it",
         V::getSet(&ISensorController::getMirrorValue, &ISensorController::setMirrorMode)},
        {"beaway", "beaway", 0, 0, "the beaway setting",
         V::getOnly(&ISensorController::getBeaway)},
        {"dnmode", "dnmode [M]", 0, 1, "the day/night mode, or set it",
         V::getSet(&ISensorController::getDNMode, &ISensorController::setDNMode)},
        {"dnstate", "dnstate", 0, 0, "the ISP's day/night state (non-zero: night)",
         V::getOnly(&ISensorController::getDNState)},
        {"showwdr", "showwdr [0|1]", 0, 1, "whether wide dynamic range is offered, or set it",
         V::showFlag(&ISensorController::getShowWDRFalg, &ISensorController::setShowWDRFalg)},
        {"showbeaway", "showbeaway [0|1]", 0, 1, "whether beaway is offered, or set it",
         V::showFlag(&ISensorController::getShowBeawayFalg, &ISensorController::setShowBeawayFalg)},
        {"version", "version", 0, 0, "the ISP's version text",
         [](Shell& s, std::string& r) {
             std::string v;
             r = V::c(s).getCameraVerInf(v) ? v : "false";
             return true;
         }},
        {"status", "status", 0, 0, "whether start-up completed",
         [](Shell& s, std::string& r) { r = s.result(V::c(s).getSensorStatus()); return true; }},
        {"help", "help", 0, 0, "this list",
         [](Shell& s, std::string& r) {
             s.m_out << Shell::helpText();
             r = std::to_string(Shell::verbs().size());
             return true;
         }},
        {"quit", "quit", 0, 0, "stop the camera and leave",
         [](Shell& s, std::string& r) {
             s.m_bQuit = true;
             r = "bye";
             return true;
         }},
    };
    // The picture's verbs come from their own unit, listed before help.
    static const std::vector<Verb> withPicture = [] {
        std::vector<Verb> all;
        for (const Verb& v : table) {
            if (std::strcmp(v.szName, "help") == 0)
                for (const PictureVerb& p : pictureVerbs())
                    all.push_back({p.szName, p.szUsage, p.nMinArgs, p.nMaxArgs, p.szHelp,
                                   [fn = p.fn](Shell& s, std::string& r) {
                                       VerbContext c{s.m_camera, s.m_args, s.m_strRest, s.m_out,
                                                     s.m_strError};
                                       return fn(c, r);
                                   }});
            all.push_back(v);
        }
        return all;
    }();
    return withPicture;
}

Shell::Shell(Camera& camera, std::ostream& out) : m_camera(camera), m_out(out) {}

std::string Shell::helpText() {
    std::string text;
    for (const Verb& v : verbs()) {
        std::string usage = v.szUsage;
        usage.resize(std::max<size_t>(usage.size() + 2, 20), ' ');
        text += "  " + usage + v.szHelp + "\n";
    }
    // The pair texts are the host's words to the library, not the shell's.
    text += "  set, push, get and check hand their text to the library exactly as typed,\n"
            "  as a host does; the answer after \"= \" is the library's own. The other\n"
            "  verbs' numbers are decimal integers (an optional -, then digits) and\n"
            "  times are HH:MM, two digits each.\n";
    return text;
}

bool Shell::execute(const std::string& rawLine) {
    std::string line = rawLine;
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
        line.pop_back();
    const size_t nStart = line.find_first_not_of(" \t");
    if (nStart == std::string::npos || line[nStart] == '#')
        return true;
    line = line.substr(nStart);
    if (m_bEcho) {
        std::cout.flush();
        m_out << "> " << line << "\n";
        m_out.flush();
    }

    const size_t nBlank = line.find_first_of(" \t");
    const std::string strVerb = line.substr(0, nBlank);
    m_strRest = nBlank == std::string::npos ? "" : line.substr(nBlank + 1);
    const size_t nRestStart = m_strRest.find_first_not_of(" \t");
    m_strRest = nRestStart == std::string::npos ? "" : m_strRest.substr(nRestStart);
    while (!m_strRest.empty() && (m_strRest.back() == ' ' || m_strRest.back() == '\t'))
        m_strRest.pop_back();
    m_args = splitBlanks(m_strRest);
    m_strError.clear();

    const Verb* pVerb = nullptr;
    for (const Verb& v : verbs())
        if (strVerb == v.szName)
            pVerb = &v;

    std::string strResult;
    bool bOk = false;
    if (pVerb == nullptr) {
        m_strError = "unknown verb: " + strVerb + " (try help)";
    } else if (static_cast<int>(m_args.size()) < pVerb->nMinArgs) {
        m_strError = std::string("missing argument: ") + pVerb->szUsage;
    } else if (pVerb->nMaxArgs >= 0 && static_cast<int>(m_args.size()) > pVerb->nMaxArgs) {
        m_strError = std::string("too many arguments: ") + pVerb->szUsage;
    } else {
        bOk = pVerb->fn(*this, strResult);
    }
    std::cout.flush();
    if (bOk)
        m_out << "= " << strResult << "\n";
    else
        m_out << "= error: " << m_strError << "\n";
    m_out.flush();
    return !m_bQuit;
}

void Shell::run(std::istream& in) {
    std::string line;
    while (std::getline(in, line))
        if (!execute(line))
            return;
}

bool Shell::dumpSchemeFile(const std::string& path, std::ostream& out, std::string& error,
                           const std::string& shownName) {
    const std::string& name = shownName.empty() ? path : shownName;
    std::string data;
    if (!readWholeFile(path, data)) {
        error = "cannot read " + name;
        return false;
    }
    const size_t nRecords = data.size() / sizeof(KeyVal);
    for (size_t i = 0; i < nRecords; ++i) {
        KeyVal kv;
        std::memcpy(&kv, data.data() + i * sizeof(KeyVal), sizeof(KeyVal));
        const char* szName = sensorKeyName(kv.key);
        char szLine[160];
        std::snprintf(szLine, sizeof(szLine), "%3zu %-30s %5u %d\n", i,
                      szName ? szName : "(unknown key)", kv.key, static_cast<int>(kv.value));
        out << szLine;
    }
    if (data.size() % sizeof(KeyVal) != 0) {
        error = name + ": " + std::to_string(data.size()) +
                " bytes is not a whole number of 8-byte records (" +
                std::to_string(data.size() % sizeof(KeyVal)) + " bytes left over)";
        return false;
    }
    return true;
}

} // namespace sensorctl
