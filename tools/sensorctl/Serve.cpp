#include "Serve.h"

#include <pthread.h>
#include <signal.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#ifdef SENSORCTL_HAVE_HTTPLIB

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <httplib.h>

#include "controller/KeyCmdTable.h"
#include "host/KPDeviceTime.h"
#include "sim/SimIsp.h"

#endif

namespace sensorctl {

void blockStopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

#ifndef SENSORCTL_HAVE_HTTPLIB

int runServe(Camera&, const ServeOptions&) {
    std::cerr << "sensorctl: built without cpp-httplib, serve is not available\n";
    return 1;
}

#else

namespace {

// Bodies beyond this are refused unread (413): nothing the page sends comes near.
constexpr size_t kMaxBody = 64 * 1024;
// Trace entries kept for pollers; older ones are dropped and counted.
constexpr size_t kMaxTrace = 4000;

std::string trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n";
    const size_t nBegin = text.find_first_not_of(blanks);
    if (nBegin == std::string::npos)
        return "";
    return text.substr(nBegin, text.find_last_not_of(blanks) - nBegin + 1);
}

// A decimal integer, optionally negative, nothing else around it.
bool parseStrictInt(const std::string& text, long lo, long hi, long& value) {
    size_t i = text.size() > 0 && text[0] == '-' ? 1 : 0;
    if (i == text.size() || text.size() > 11)
        return false;
    for (; i < text.size(); ++i)
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return false;
    errno = 0;
    value = std::strtol(text.c_str(), nullptr, 10);
    return errno == 0 && value >= lo && value <= hi;
}

// Reads a signed decimal at pos up to one of the stop characters.
bool readNumberAt(const std::string& text, size_t& pos, const char* stops, long& value) {
    const size_t nEnd = text.find_first_of(stops, pos);
    if (nEnd == std::string::npos)
        return false;
    if (!parseStrictInt(text.substr(pos, nEnd - pos), INT_MIN, INT_MAX, value))
        return false;
    pos = nEnd;
    return true;
}

// A pair list "(k,v)(k,v)..." written exactly so; the keys in order.
bool parsePairList(const std::string& text, std::vector<long>& keys, std::string& reason) {
    size_t pos = 0;
    while (pos < text.size()) {
        long nKey = 0, nValue = 0;
        const size_t nStart = pos;
        if (text[pos] != '(' || !readNumberAt(text, ++pos, ",", nKey) ||
            !readNumberAt(text, ++pos, ")", nValue)) {
            reason = "not a pair list (key,value)(key,value)...: bad pair at byte " +
                     std::to_string(nStart);
            return false;
        }
        ++pos;
        keys.push_back(nKey);
    }
    if (keys.empty()) {
        reason = "empty pair list";
        return false;
    }
    return true;
}

// An id list "(k,k,...)".
bool isIdList(const std::string& text) {
    if (text.size() < 3 || text.front() != '(' || text.back() != ')')
        return false;
    size_t pos = 1;
    for (;;) {
        long nId = 0;
        if (!readNumberAt(text, pos, ",)", nId))
            return false;
        if (pos == text.size() - 1)
            return true;
        if (text[pos] == ')')
            return false;
        ++pos;
    }
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (const char ch : text) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += ch;
        } else if (c < 0x20) {
            char sz[8];
            std::snprintf(sz, sizeof(sz), "\\u%04x", c);
            out += sz;
        } else {
            out += ch;
        }
    }
    return out + "\"";
}

std::string clockText(int hour, int minute) {
    char sz[8];
    std::snprintf(sz, sizeof(sz), "%02d:%02d", hour, minute);
    return sz;
}

// The key name of every ISP command that carries a key, for the trace.
const std::map<int, std::string>& commandNames() {
    static const std::map<int, std::string> names = [] {
        std::map<int, std::string> m;
        u32 key = 0, cmd = 0;
        const char* szKey = nullptr;
        const char* szHandler = nullptr;
        for (u32 row = 0; sensorKeyRow(row, key, cmd, szKey, szHandler); ++row)
            m.emplace(static_cast<int>(cmd), szKey ? szKey : "");
        return m;
    }();
    return names;
}

std::string nameOf(int cmd) {
    const auto it = commandNames().find(cmd);
    return it == commandNames().end() ? "" : it->second;
}

// The API over one camera. Every request runs under one mutex, as a host's
// single calling thread would: the controller would cope with concurrent
// calls, but the simulated clock, day/night state and trace would not read
// coherently (a set's ISP calls interleaved with another request's).
class Console {
public:
    explicit Console(Camera& camera) : m_camera(camera) {}

    void install(httplib::Server& server);
    void startDrain();
    void stopDrain();

private:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    // Caller holds m_mutex.
    void drainTrace();
    std::string statusJson();

    void route(httplib::Server& server, const std::string& path, Handler get, Handler post);
    Handler on(void (Console::*fn)(const httplib::Request&, httplib::Response&)) {
        return [this, fn](const httplib::Request& req, httplib::Response& res) {
            (this->*fn)(req, res);
        };
    }

    void getStyle(const httplib::Request&, httplib::Response&);
    void getParams(const httplib::Request&, httplib::Response&);
    void postSet(const httplib::Request&, httplib::Response&);
    void getScheme(const httplib::Request&, httplib::Response&);
    void postScheme(const httplib::Request&, httplib::Response&);
    void getMode(const httplib::Request&, httplib::Response&);
    void postMode(const httplib::Request&, httplib::Response&);
    void postFlush(const httplib::Request&, httplib::Response&);
    void postLast(const httplib::Request&, httplib::Response&);
    void postReset(const httplib::Request&, httplib::Response&);
    void getClock(const httplib::Request&, httplib::Response&);
    void postClock(const httplib::Request&, httplib::Response&);
    void getDayNight(const httplib::Request&, httplib::Response&);
    void postDayNight(const httplib::Request&, httplib::Response&);
    void postFail(const httplib::Request&, httplib::Response&);
    void getTrace(const httplib::Request&, httplib::Response&);
    void getStatus(const httplib::Request&, httplib::Response&);

    struct Entry {
        uint64_t nSeq;
        std::string strJson;
    };

    Camera& m_camera;
    std::mutex m_mutex;
    std::deque<Entry> m_trace;
    uint64_t m_nLastSeq = 0;    // the newest entry's number
    uint64_t m_nLastServed = 0; // where a trace call without a cursor starts
    // What the simulated ISP reports as day/night (command 153): only this
    // server sets it, and asking the controller would add a call to the trace.
    bool m_bNight = false;
    static constexpr int kNoScheme = -2; // before the first look
    int m_nTracedScheme = kNoScheme;

    std::thread m_drainer;
    std::condition_variable m_cvStop;
    bool m_bStop = false;
};

void sendJson(httplib::Response& res, const std::string& json, int status = 200) {
    res.status = status;
    res.set_content(json + "\n", "application/json");
}

void sendError(httplib::Response& res, int status, const std::string& reason) {
    sendJson(res, "{\"error\":" + jsonString(reason) + "}", status);
}

void Console::drainTrace() {
    const std::vector<sim::IspCall> calls = sim::Isp::instance().takeTrace();
    const auto notices = m_camera.video().takeNotices();
    for (const sim::IspCall& c : calls) {
        std::string strWords;
        for (size_t i = 0; i < c.words.size(); ++i)
            strWords += (i ? "," : "") + std::to_string(static_cast<int32_t>(c.words[i]));
        m_trace.push_back({++m_nLastSeq, ""});
        m_trace.back().strJson = "{\"seq\":" + std::to_string(m_nLastSeq) +
                                 ",\"kind\":\"isp\",\"ch\":" + std::to_string(c.channel) +
                                 ",\"cmd\":" + std::to_string(c.cmd) +
                                 ",\"opt\":" + std::to_string(c.opt) + ",\"val\":[" + strWords +
                                 "],\"ret\":" + std::to_string(c.result) +
                                 ",\"name\":" + jsonString(nameOf(c.cmd)) + "}";
    }
    for (const auto& n : notices) {
        m_trace.push_back({++m_nLastSeq, ""});
        m_trace.back().strJson =
            "{\"seq\":" + std::to_string(m_nLastSeq) +
            ",\"kind\":\"video\",\"ch\":" + std::to_string(n.channel) +
            ",\"key\":" + std::to_string(n.key) + ",\"val\":" + std::to_string(n.value) +
            ",\"name\":" + jsonString(sensorKeyName(n.key) ? sensorKeyName(n.key) : "") + "}";
    }
    // A scheme switch shows as an entry after the calls that applied it.
    int nScheme = -1;
    m_camera.controller().getParamScheme(nScheme);
    if (nScheme != m_nTracedScheme) {
        if (m_nTracedScheme != kNoScheme) {
            m_trace.push_back({++m_nLastSeq, ""});
            m_trace.back().strJson =
                "{\"seq\":" + std::to_string(m_nLastSeq) +
                ",\"kind\":\"scheme\",\"from\":" + std::to_string(m_nTracedScheme) +
                ",\"to\":" + std::to_string(nScheme) + "}";
        }
        m_nTracedScheme = nScheme;
    }
    while (m_trace.size() > kMaxTrace)
        m_trace.pop_front();
}

// The worker polls the ISP every second; draining in the background keeps
// the simulated trace from growing while nobody asks for it.
void Console::startDrain() {
    m_drainer = std::thread([this] {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_cvStop.wait_for(lock, std::chrono::milliseconds(250), [this] { return m_bStop; }))
            drainTrace();
    });
}

void Console::stopDrain() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStop = true;
    }
    m_cvStop.notify_all();
    if (m_drainer.joinable())
        m_drainer.join();
}

void Console::route(httplib::Server& server, const std::string& path, Handler get, Handler post) {
    const std::string strAllow =
        std::string(get ? "GET" : "") + (get && post ? ", " : "") + (post ? "POST" : "");
    auto wrap = [this, strAllow](Handler h) {
        return [this, h, strAllow](const httplib::Request& req, httplib::Response& res) {
            if (!h) {
                res.set_header("Allow", strAllow);
                sendError(res, 405, "method not allowed; use " + strAllow);
                return;
            }
            std::lock_guard<std::mutex> lock(m_mutex);
            drainTrace();
            h(req, res);
        };
    };
    server.Get(path, wrap(get));
    server.Post(path, wrap(post));
}

void Console::install(httplib::Server& server) {
    server.Get("/", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(kWebPage, "text/html; charset=utf-8");
    });
    server.Get("/index.html", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(kWebPage, "text/html; charset=utf-8");
    });
    route(server, "/api/style", on(&Console::getStyle), nullptr);
    route(server, "/api/params", on(&Console::getParams), nullptr);
    route(server, "/api/set", nullptr, on(&Console::postSet));
    route(server, "/api/scheme", on(&Console::getScheme), on(&Console::postScheme));
    route(server, "/api/mode", on(&Console::getMode), on(&Console::postMode));
    route(server, "/api/flush", nullptr, on(&Console::postFlush));
    route(server, "/api/last", nullptr, on(&Console::postLast));
    route(server, "/api/reset", nullptr, on(&Console::postReset));
    route(server, "/api/clock", on(&Console::getClock), on(&Console::postClock));
    route(server, "/api/daynight", on(&Console::getDayNight), on(&Console::postDayNight));
    route(server, "/api/fail", nullptr, on(&Console::postFail));
    route(server, "/api/trace", on(&Console::getTrace), nullptr);
    route(server, "/api/status", on(&Console::getStatus), nullptr);

    // Unknown paths (404) and refused bodies (413) get a reason too; an
    // answer that already has one keeps it.
    server.set_error_handler(httplib::Server::HandlerWithResponse(
        [](const httplib::Request& req, httplib::Response& res) {
            if (!res.body.empty())
                return httplib::Server::HandlerResponse::Unhandled;
            if (res.status == 404)
                sendError(res, 404, "no such path: " + req.path);
            else if (res.status == 413)
                sendError(res, 413, "body over " + std::to_string(kMaxBody) + " bytes");
            else
                sendError(res, res.status, "request refused");
            return httplib::Server::HandlerResponse::Handled;
        }));
    server.set_exception_handler([](const httplib::Request&, httplib::Response& res,
                                    std::exception_ptr) { sendError(res, 500, "internal error"); });
}

void Console::getStyle(const httplib::Request&, httplib::Response& res) {
    res.set_content(m_camera.controller().getUIStyleFile(), "application/xml; charset=utf-8");
}

void Console::getParams(const httplib::Request& req, httplib::Response& res) {
    std::string out;
    if (req.has_param("ids")) {
        const std::string strIds = req.get_param_value("ids");
        if (!isIdList(strIds)) {
            sendError(res, 400, "ids must be an id list like (34,2337)");
            return;
        }
        if (!m_camera.controller().getParameters(strIds, out)) {
            sendError(res, 400, "the controller refused the id list");
            return;
        }
    } else {
        m_camera.controller().getAllParameters(out);
    }
    res.set_content(out, "text/plain");
}

void Console::postSet(const httplib::Request& req, httplib::Response& res) {
    const std::string strText = trimmed(req.body);
    std::vector<long> keys;
    std::string strReason;
    if (!parsePairList(strText, keys, strReason)) {
        sendError(res, 400, strReason);
        return;
    }
    const uint64_t nFirst = m_nLastSeq + 1;
    const int nResult = m_camera.controller().setParameters(strText, true);
    drainTrace();
    const uint64_t nLast = m_nLastSeq;

    // What the controller holds now for the keys sent: the page shows these,
    // so a value the controller changed or refused is what the control shows.
    std::string strIds = "(";
    for (size_t i = 0; i < keys.size(); ++i)
        strIds += (i ? "," : "") + std::to_string(keys[i]);
    strIds += ")";
    std::string strValues;
    m_camera.controller().getParameters(strIds, strValues);
    sendJson(res, "{\"result\":" + std::to_string(nResult) + ",\"values\":" +
                      jsonString(strValues) + ",\"trace\":{\"from\":" + std::to_string(nFirst) +
                      ",\"to\":" + std::to_string(nLast) + "}}");
}

void Console::getScheme(const httplib::Request&, httplib::Response& res) {
    int nScheme = -1;
    m_camera.controller().getParamScheme(nScheme);
    sendJson(res, "{\"scheme\":" + std::to_string(nScheme) +
                      ",\"schemes\":" + std::to_string(m_camera.schemeCount()) + "}");
}

void Console::postScheme(const httplib::Request& req, httplib::Response& res) {
    long nScheme = 0;
    const long nMax = static_cast<long>(m_camera.schemeCount());
    if (!parseStrictInt(trimmed(req.body), 0, nMax, nScheme)) {
        sendError(res, 400, "the scheme is a number from 0 to " + std::to_string(nMax));
        return;
    }
    const bool bOk = m_camera.controller().setParamScheme(static_cast<int>(nScheme));
    int nNow = -1;
    m_camera.controller().getParamScheme(nNow);
    sendJson(res, std::string("{\"ok\":") + (bOk ? "true" : "false") +
                      ",\"scheme\":" + std::to_string(nNow) + "}");
}

void Console::getMode(const httplib::Request&, httplib::Response& res) {
    int nMode = -1;
    m_camera.controller().getParamMode(nMode);
    sendJson(res, "{\"mode\":" + std::to_string(nMode) + "}");
}

void Console::postMode(const httplib::Request& req, httplib::Response& res) {
    long nMode = 0;
    if (!parseStrictInt(trimmed(req.body), 0, 1, nMode)) {
        sendError(res, 400, "the mode is 0 (manual) or 1 (automatic)");
        return;
    }
    const bool bOk = m_camera.controller().setParamMode(static_cast<int>(nMode));
    sendJson(res, std::string("{\"ok\":") + (bOk ? "true" : "false") +
                      ",\"mode\":" + std::to_string(nMode) + "}");
}

void Console::postFlush(const httplib::Request&, httplib::Response& res) {
    sendJson(res, "{\"result\":" + std::to_string(m_camera.controller().flush()) + "}");
}

void Console::postLast(const httplib::Request&, httplib::Response& res) {
    const bool bOk = m_camera.controller().resetToLastParameters();
    sendJson(res, std::string("{\"ok\":") + (bOk ? "true" : "false") + "}");
}

void Console::postReset(const httplib::Request&, httplib::Response& res) {
    const bool bOk = m_camera.controller().resetParameters();
    sendJson(res, std::string("{\"ok\":") + (bOk ? "true" : "false") + "}");
}

void Console::getClock(const httplib::Request&, httplib::Response& res) {
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    sendJson(res, "{\"clock\":" + jsonString(clockText(now.hour, now.minute)) + "}");
}

void Console::postClock(const httplib::Request& req, httplib::Response& res) {
    const std::string strText = trimmed(req.body);
    long nHour = -1, nMinute = -1;
    const size_t nColon = strText.find(':');
    if (nColon == std::string::npos || nColon == 0 || nColon > 2 || strText.size() != nColon + 3 ||
        strText[0] == '-' || strText[nColon + 1] == '-' ||
        !parseStrictInt(strText.substr(0, nColon), 0, 23, nHour) ||
        !parseStrictInt(strText.substr(nColon + 1), 0, 59, nMinute)) {
        sendError(res, 400, "the clock is HH:MM, 00:00 to 23:59");
        return;
    }
    sim::setDeviceTime(static_cast<int>(nHour), static_cast<int>(nMinute));
    sendJson(res, "{\"clock\":" +
                      jsonString(clockText(static_cast<int>(nHour), static_cast<int>(nMinute))) +
                      "}");
}

void Console::getDayNight(const httplib::Request&, httplib::Response& res) {
    sendJson(res, "{\"state\":" + jsonString(m_bNight ? "night" : "day") + "}");
}

void Console::postDayNight(const httplib::Request& req, httplib::Response& res) {
    const std::string strText = trimmed(req.body);
    if (strText != "day" && strText != "night") {
        sendError(res, 400, "the state is day or night");
        return;
    }
    m_bNight = strText == "night";
    sim::Isp::instance().setDayNight(m_camera.ispChannel(), m_bNight ? 1 : 0);
    sendJson(res, "{\"state\":" + jsonString(strText) + "}");
}

// Fault injection of the simulated ISP: "CMD RET" makes every call of CMD
// answer RET, "CMD off" ends it. For trying how the page shows a refusal.
void Console::postFail(const httplib::Request& req, httplib::Response& res) {
    const std::string strText = trimmed(req.body);
    const size_t nBlank = strText.find(' ');
    long nCmd = 0, nRet = 0;
    const std::string strRet = nBlank == std::string::npos ? "" : strText.substr(nBlank + 1);
    if (nBlank == std::string::npos ||
        !parseStrictInt(strText.substr(0, nBlank), 0, INT_MAX, nCmd) ||
        (strRet != "off" && !parseStrictInt(strRet, INT_MIN, INT_MAX, nRet))) {
        sendError(res, 400, "expected \"CMD RET\" or \"CMD off\"");
        return;
    }
    if (strRet == "off")
        sim::Isp::instance().clearFailure(static_cast<int>(nCmd));
    else
        sim::Isp::instance().failCommand(static_cast<int>(nCmd), static_cast<int>(nRet));
    sendJson(res, "{\"cmd\":" + std::to_string(nCmd) + ",\"fail\":" +
                      (strRet == "off" ? std::string("null") : std::to_string(nRet)) + "}");
}

void Console::getTrace(const httplib::Request& req, httplib::Response& res) {
    uint64_t nSince = m_nLastServed;
    if (req.has_param("since")) {
        long nValue = 0;
        if (!parseStrictInt(req.get_param_value("since"), 0, LONG_MAX, nValue)) {
            sendError(res, 400, "since is a non-negative entry number");
            return;
        }
        nSince = static_cast<uint64_t>(nValue);
    } else {
        m_nLastServed = m_nLastSeq;
    }
    // Entries gone before the caller saw them are counted, not hidden.
    const uint64_t nOldest = m_trace.empty() ? m_nLastSeq + 1 : m_trace.front().nSeq;
    const uint64_t nLost = nSince + 1 < nOldest ? nOldest - nSince - 1 : 0;
    std::string strEntries;
    for (const Entry& e : m_trace) {
        if (e.nSeq <= nSince)
            continue;
        if (!strEntries.empty())
            strEntries += ",\n";
        strEntries += e.strJson;
    }
    sendJson(res, "{\"next\":" + std::to_string(m_nLastSeq) + ",\"lost\":" + std::to_string(nLost) +
                      ",\"entries\":[" + strEntries + "]}");
}

std::string Console::statusJson() {
    int nScheme = -1, nMode = -1;
    m_camera.controller().getParamScheme(nScheme);
    m_camera.controller().getParamMode(nMode);
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    return "{\"scheme\":" + std::to_string(nScheme) +
           ",\"schemes\":" + std::to_string(m_camera.schemeCount()) +
           ",\"mode\":" + std::to_string(nMode) +
           ",\"clock\":" + jsonString(clockText(now.hour, now.minute)) +
           ",\"daynight\":" + jsonString(m_bNight ? "night" : "day") +
           ",\"trace\":" + std::to_string(m_nLastSeq) + "}";
}

void Console::getStatus(const httplib::Request&, httplib::Response& res) {
    sendJson(res, statusJson());
}

} // namespace

int runServe(Camera& camera, const ServeOptions& options) {
    httplib::Server server;
    server.set_payload_max_length(kMaxBody);
    server.set_read_timeout(5, 0);
    server.set_write_timeout(5, 0);
    Console console(camera);
    console.install(server);

    const int nPort = options.nPort == 0
                          ? server.bind_to_any_port("127.0.0.1")
                          : (server.bind_to_port("127.0.0.1", options.nPort) ? options.nPort : -1);
    if (nPort < 0) {
        std::cerr << "sensorctl: cannot listen on 127.0.0.1:" << options.nPort << "\n";
        return 1;
    }
    std::cout << "sensorctl serve: device root " << camera.root() << "\n"
              << "sensorctl serve: listening on http://127.0.0.1:" << nPort << "/" << std::endl;

    // The signals stay blocked everywhere; this thread alone takes them and
    // stops the server, which returns from listen on the main thread.
    std::atomic<bool> bEnded{false};
    std::thread waiter([&server, &bEnded] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        int nSignal = 0;
        sigwait(&set, &nSignal);
        if (bEnded)
            return;
        std::cout << "sensorctl serve: " << (nSignal == SIGINT ? "SIGINT" : "SIGTERM")
                  << ", stopping" << std::endl;
        // stop() does nothing before listen runs: a signal that came early
        // waits for it.
        while (!bEnded && !server.is_running())
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        server.stop();
    });

    console.startDrain();
    const bool bListened = server.listen_after_bind();
    bEnded = true;
    console.stopDrain();
    if (!bListened) {
        // The server ended on its own: wake the waiter with a signal it takes.
        pthread_kill(waiter.native_handle(), SIGTERM);
    }
    waiter.join();
    return bListened ? 0 : 1;
}

#endif

} // namespace sensorctl
