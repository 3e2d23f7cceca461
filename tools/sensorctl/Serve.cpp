#include "Serve.h"

#include "ConsoleRequest.h"
#include "ToolInput.h"
#include "VideoService.h"
#include "WebAuth.h"

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
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "config/SysConfig.h"
#include "controller/KeyCmdTable.h"
#include "controller/SensorKeys.h"
#include "host/KPDeviceTime.h"
#include "host/MachineInfo.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "diag/DeviceRoot.h"

#ifdef SENSORCTL_HAVE_ONVIF
#include "Discovery.h"
#include "OnvifServer.h"
#include "sensor-onvif/Digest.h"
#include "sensor-onvif/Soap.h"
#endif

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
// Connections served at once: each keeps its thread while it is kept alive,
// so a page and 16 ONVIF clients must not wait for each other's threads.
constexpr size_t kServerThreads = 24;

// Answers keep their fields in the order the API documents.
using Json = nlohmann::ordered_json;

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
    Console(Camera& camera, const WebAuth& auth) : m_camera(camera), m_auth(auth) {}

    void install(httplib::Server& server);
#ifdef SENSORCTL_HAVE_ONVIF
    // The ONVIF paths, served one request at a time with the API's.
    void installOnvif(httplib::Server& server, OnvifServices& services) {
        installOnvifRoutes(server, services, m_mutex, [this] { drainTrace(); });
        m_bOnvif = true;
    }
#endif
    void startDrain();
    void stopDrain();

private:
    // Caller holds m_mutex.
    void drainTrace();

    // Reads and serves one request on a console path.
    void handle(const httplib::Request& req, httplib::Response& res);
    // Serves one call read by parseApiRequest. Caller holds m_mutex.
    void serve(const ApiParsed& call, httplib::Response& res);

    void getStyle(const ApiParsed&, httplib::Response&);
    void getParams(const ApiParsed&, httplib::Response&);
    void postSet(const ApiParsed&, httplib::Response&);
    void getScheme(const ApiParsed&, httplib::Response&);
    void postScheme(const ApiParsed&, httplib::Response&);
    void getMode(const ApiParsed&, httplib::Response&);
    void postMode(const ApiParsed&, httplib::Response&);
    void postFlush(const ApiParsed&, httplib::Response&);
    void postLast(const ApiParsed&, httplib::Response&);
    void postReset(const ApiParsed&, httplib::Response&);
    void getClock(const ApiParsed&, httplib::Response&);
    void postClock(const ApiParsed&, httplib::Response&);
    Json dayNightJson() const;
    void getDayNight(const ApiParsed&, httplib::Response&);
    void postDayNight(const ApiParsed&, httplib::Response&);
    void postFail(const ApiParsed&, httplib::Response&);
    void getTrace(const ApiParsed&, httplib::Response&);
    void getStatus(const ApiParsed&, httplib::Response&);

    struct Entry {
        uint64_t nSeq;
        Json json;
    };

    Camera& m_camera;
    const WebAuth& m_auth;
    std::mutex m_mutex;
    std::deque<Entry> m_trace;
    uint64_t m_nLastSeq = 0;             // the newest entry's number
    uint64_t m_nLastServed = 0;          // where a trace call without a cursor starts
    static constexpr int kNoScheme = -2; // before the first look
    int m_nTracedScheme = kNoScheme;
    bool m_bOnvif = false; // the ONVIF paths are served

    std::thread m_drainer;
    std::condition_variable m_cvStop;
    bool m_bStop = false;
};

void sendJson(httplib::Response& res, const Json& json, int status = 200) {
    res.status = status;
    // A reason may quote a path that is not UTF-8: such bytes become U+FFFD
    // rather than an answer that is not JSON.
    res.set_content(json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n",
                    "application/json");
}

void sendError(httplib::Response& res, int status, const std::string& reason) {
    Json json = Json::object();
    json["error"] = reason;
    sendJson(res, json, status);
}

// A refused request: its reason, where a 400 went wrong, what a 405 allows.
void sendRefusal(httplib::Response& res, const ApiParsed& call) {
    Json json = Json::object();
    json["error"] = call.strReason;
    if (call.bAt)
        json["at"] = call.nAt;
    if (call.nStatus == 405)
        res.set_header("Allow", call.strAllow);
    sendJson(res, json, call.nStatus);
}

void Console::drainTrace() {
    const std::vector<sim::IspCall> calls = sim::Isp::instance().takeTrace();
    const auto notices = m_camera.video().takeNotices();
    for (const sim::IspCall& c : calls) {
        Json words = Json::array();
        for (const uint32_t w : c.words)
            words.push_back(static_cast<int32_t>(w));
        Json entry = Json::object();
        entry["seq"] = ++m_nLastSeq;
        entry["kind"] = "isp";
        entry["ch"] = c.channel;
        entry["cmd"] = c.cmd;
        entry["opt"] = c.opt;
        entry["val"] = std::move(words);
        entry["ret"] = c.result;
        entry["name"] = nameOf(c.cmd);
        m_trace.push_back({m_nLastSeq, std::move(entry)});
    }
    for (const auto& n : notices) {
        Json entry = Json::object();
        entry["seq"] = ++m_nLastSeq;
        entry["kind"] = "video";
        entry["ch"] = n.channel;
        entry["key"] = n.key;
        entry["val"] = n.value;
        entry["name"] = sensorKeyName(n.key) ? sensorKeyName(n.key) : "";
        m_trace.push_back({m_nLastSeq, std::move(entry)});
    }
    // A scheme switch shows as an entry after the calls that applied it.
    int nScheme = -1;
    m_camera.controller().getParamScheme(nScheme);
    if (nScheme != m_nTracedScheme) {
        if (m_nTracedScheme != kNoScheme) {
            Json entry = Json::object();
            entry["seq"] = ++m_nLastSeq;
            entry["kind"] = "scheme";
            entry["from"] = m_nTracedScheme;
            entry["to"] = nScheme;
            m_trace.push_back({m_nLastSeq, std::move(entry)});
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

void Console::handle(const httplib::Request& req, httplib::Response& res) {
    if (!m_auth.admit(req, res))
        return;
    ApiRequest request;
    request.strMethod = req.method;
    request.strPath = req.path;
    // The first value of each name, as the console reads them.
    for (const auto& param : req.params)
        request.params.emplace(param.first, param.second);
    request.strBody = req.body;
    const ApiParsed call = parseApiRequest(request, m_camera.schemeCount());
    if (call.nStatus != 200) {
        sendRefusal(res, call);
        return;
    }
    if (call.call == ApiCall::Page) {
        res.set_content(kWebPage, "text/html; charset=utf-8");
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    drainTrace();
    serve(call, res);
}

void Console::install(httplib::Server& server) {
    // Every path of the console takes every method the server knows:
    // parseApiRequest says which it serves (405 with Allow for the others),
    // and why a request is refused.
    auto handler = [this](const httplib::Request& req, httplib::Response& res) {
        handle(req, res);
    };
    for (const ApiRoute& route : apiRoutes()) {
        // The route is a pattern to the server: its dots must be literal.
        std::string strPattern;
        for (const char* p = route.szPath; *p; ++p)
            strPattern += *p == '.' ? std::string("\\.") : std::string(1, *p);
        server.Get(strPattern, handler);
        server.Post(strPattern, handler);
        server.Put(strPattern, handler);
        server.Patch(strPattern, handler);
        server.Delete(strPattern, handler);
        server.Options(strPattern, handler);
    }
    // A request without Content-Length or chunks has no body (HTTP/1.1):
    // "curl -X POST .../api/flush" sends an empty body, which the server
    // would refuse unread. The console's paths take such a request here,
    // before the server looks for a body.
    server.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        if (req.has_header("Content-Length") || req.has_header("Transfer-Encoding"))
            return httplib::Server::HandlerResponse::Unhandled;
        for (const ApiRoute& route : apiRoutes()) {
            if (req.path == route.szPath) {
                handle(req, res);
                return httplib::Server::HandlerResponse::Handled;
            }
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    // Unknown paths (404) and refused bodies (413) get a reason too; an
    // answer that already has one keeps it.
    server.set_error_handler(httplib::Server::HandlerWithResponse(
        [this](const httplib::Request& req, httplib::Response& res) {
            if (!res.body.empty())
                return httplib::Server::HandlerResponse::Unhandled;
#ifdef SENSORCTL_HAVE_ONVIF
            // An ONVIF client gets its refusal as a SOAP fault, with the
            // status SOAP 1.2 gives a Sender fault (400), as the endpoint
            // answers a body over its own limit.
            if (m_bOnvif && res.status == 413 && req.path.rfind("/onvif/", 0) == 0) {
                res.status = 400;
                res.set_content(onvifTooLargeFault(kMaxBody), sensor_onvif::kSoapContentType);
                return httplib::Server::HandlerResponse::Handled;
            }
#endif
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

void Console::serve(const ApiParsed& call, httplib::Response& res) {
    switch (call.call) {
        case ApiCall::Style:
            return getStyle(call, res);
        case ApiCall::Params:
            return getParams(call, res);
        case ApiCall::Set:
            return postSet(call, res);
        case ApiCall::GetScheme:
            return getScheme(call, res);
        case ApiCall::SetScheme:
            return postScheme(call, res);
        case ApiCall::GetMode:
            return getMode(call, res);
        case ApiCall::SetMode:
            return postMode(call, res);
        case ApiCall::Flush:
            return postFlush(call, res);
        case ApiCall::Last:
            return postLast(call, res);
        case ApiCall::Reset:
            return postReset(call, res);
        case ApiCall::GetClock:
            return getClock(call, res);
        case ApiCall::SetClock:
            return postClock(call, res);
        case ApiCall::GetDayNight:
            return getDayNight(call, res);
        case ApiCall::SetDayNight:
            return postDayNight(call, res);
        case ApiCall::Fail:
            return postFail(call, res);
        case ApiCall::Trace:
            return getTrace(call, res);
        case ApiCall::Status:
            return getStatus(call, res);
        case ApiCall::Page:
        case ApiCall::None:
            break;
    }
    sendError(res, 500, "internal error");
}

void Console::getStyle(const ApiParsed&, httplib::Response& res) {
    res.set_content(m_camera.controller().getUIStyleFile(), "application/xml; charset=utf-8");
}

void Console::getParams(const ApiParsed& call, httplib::Response& res) {
    std::string out;
    if (!call.strText.empty()) {
        if (!m_camera.controller().getParameters(call.strText, out)) {
            sendError(res, 400, "the controller refused the id list");
            return;
        }
    } else {
        m_camera.controller().getAllParameters(out);
    }
    res.set_content(out, "text/plain");
}

void Console::postSet(const ApiParsed& call, httplib::Response& res) {
    const uint64_t nFirst = m_nLastSeq + 1;
    const int nResult = m_camera.controller().setParameters(call.strText, true);
    drainTrace();
    const uint64_t nLast = m_nLastSeq;

    // What the controller holds now for the keys sent: the page shows these,
    // so a value the controller changed or refused is what the control shows.
    std::string strIds = "(";
    for (size_t i = 0; i < call.keys.size(); ++i)
        strIds += (i ? "," : "") + std::to_string(call.keys[i]);
    strIds += ")";
    std::string strValues;
    m_camera.controller().getParameters(strIds, strValues);
    Json json = Json::object();
    json["result"] = nResult;
    json["values"] = strValues;
    json["trace"] = Json::object();
    json["trace"]["from"] = nFirst;
    json["trace"]["to"] = nLast;
    sendJson(res, json);
}

void Console::getScheme(const ApiParsed&, httplib::Response& res) {
    int nScheme = -1;
    m_camera.controller().getParamScheme(nScheme);
    Json json = Json::object();
    json["scheme"] = nScheme;
    json["schemes"] = m_camera.schemeCount();
    sendJson(res, json);
}

void Console::postScheme(const ApiParsed& call, httplib::Response& res) {
    const bool bOk = m_camera.controller().setParamScheme(static_cast<int>(call.nFirst));
    int nNow = -1;
    m_camera.controller().getParamScheme(nNow);
    Json json = Json::object();
    json["ok"] = bOk;
    json["scheme"] = nNow;
    sendJson(res, json);
}

void Console::getMode(const ApiParsed&, httplib::Response& res) {
    int nMode = -1;
    m_camera.controller().getParamMode(nMode);
    Json json = Json::object();
    json["mode"] = nMode;
    sendJson(res, json);
}

void Console::postMode(const ApiParsed& call, httplib::Response& res) {
    const bool bOk = m_camera.controller().setParamMode(static_cast<int>(call.nFirst));
    Json json = Json::object();
    json["ok"] = bOk;
    json["mode"] = call.nFirst;
    sendJson(res, json);
}

void Console::postFlush(const ApiParsed&, httplib::Response& res) {
    Json json = Json::object();
    json["result"] = m_camera.controller().flush();
    sendJson(res, json);
}

void Console::postLast(const ApiParsed&, httplib::Response& res) {
    const bool bOk = m_camera.controller().resetToLastParameters();
    Json json = Json::object();
    json["ok"] = bOk;
    sendJson(res, json);
}

void Console::postReset(const ApiParsed&, httplib::Response& res) {
    const bool bOk = m_camera.controller().resetParameters();
    Json json = Json::object();
    json["ok"] = bOk;
    sendJson(res, json);
}

void Console::getClock(const ApiParsed&, httplib::Response& res) {
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    Json json = Json::object();
    json["clock"] = clockText(now.hour, now.minute);
    sendJson(res, json);
}

void Console::postClock(const ApiParsed& call, httplib::Response& res) {
    const int nHour = static_cast<int>(call.nFirst);
    const int nMinute = static_cast<int>(call.nSecond);
    sim::setDeviceTime(nHour, nMinute);
    Json json = Json::object();
    json["clock"] = clockText(nHour, nMinute);
    sendJson(res, json);
}

// What the simulated ISP reports as day/night (command 153), read from the
// simulated ISP itself: asking the controller would add a call to the trace.
// "forced" while a state set here holds; otherwise the ISP's light meter
// decides it.
Json Console::dayNightJson() const {
    const int nChannel = m_camera.ispChannel();
    const sim::Isp& isp = sim::Isp::instance();
    Json json = Json::object();
    json["state"] = isp.dayNightState(nChannel) != 0 ? "night" : "day";
    json["forced"] = isp.dayNightForced(nChannel);
    return json;
}

void Console::getDayNight(const ApiParsed&, httplib::Response& res) {
    sendJson(res, dayNightJson());
}

// "day" or "night" holds the state; "auto" hands it back to the light meter.
void Console::postDayNight(const ApiParsed& call, httplib::Response& res) {
    sim::Isp& isp = sim::Isp::instance();
    if (call.strText == "auto")
        isp.releaseDayNight(m_camera.ispChannel());
    else
        isp.setDayNight(m_camera.ispChannel(), call.strText == "night" ? 1 : 0);
    sendJson(res, dayNightJson());
}

// Fault injection of the simulated ISP: "CMD RET" makes every call of CMD
// answer RET, "CMD off" ends it. For trying how the page shows a refusal.
void Console::postFail(const ApiParsed& call, httplib::Response& res) {
    const int nCmd = static_cast<int>(call.nFirst);
    if (call.bFlag)
        sim::Isp::instance().clearFailure(nCmd);
    else
        sim::Isp::instance().failCommand(nCmd, static_cast<int>(call.nSecond));
    Json json = Json::object();
    json["cmd"] = call.nFirst;
    json["fail"] = call.bFlag ? Json(nullptr) : Json(call.nSecond);
    sendJson(res, json);
}

void Console::getTrace(const ApiParsed& call, httplib::Response& res) {
    uint64_t nSince = m_nLastServed;
    if (call.bFlag)
        nSince = static_cast<uint64_t>(call.nFirst);
    else
        m_nLastServed = m_nLastSeq;
    // Entries gone before the caller saw them are counted, not hidden.
    const uint64_t nOldest = m_trace.empty() ? m_nLastSeq + 1 : m_trace.front().nSeq;
    const uint64_t nLost = nSince + 1 < nOldest ? nOldest - nSince - 1 : 0;
    Json entries = Json::array();
    for (const Entry& e : m_trace)
        if (e.nSeq > nSince)
            entries.push_back(e.json);
    Json json = Json::object();
    json["next"] = m_nLastSeq;
    json["lost"] = nLost;
    json["entries"] = std::move(entries);
    sendJson(res, json);
}

void Console::getStatus(const ApiParsed&, httplib::Response& res) {
    int nScheme = -1, nMode = -1;
    m_camera.controller().getParamScheme(nScheme);
    m_camera.controller().getParamMode(nMode);
    const KPDateTime now = KPDeviceTime::getCurrentTime();
    Json json = Json::object();
    json["scheme"] = nScheme;
    json["schemes"] = m_camera.schemeCount();
    json["mode"] = nMode;
    json["clock"] = clockText(now.hour, now.minute);
    const Json dayNight = dayNightJson();
    json["daynight"] = dayNight["state"];
    json["daynight_forced"] = dayNight["forced"];
    json["trace"] = m_nLastSeq;
    sendJson(res, json);
}

#ifdef SENSORCTL_HAVE_ONVIF
// What the simulated camera tells an ONVIF client about itself.
onvif::DeviceFacts deviceFacts(Camera& camera) {
    const MachineInfo objInfo = sim::machineInfo(sensorDeviceRoot());
    onvif::DeviceFacts facts;
    facts.strManufacturer = "libsensor simulated camera";
    facts.strModel = objInfo.getHardwareModel().empty() ? "sensorctl" : objInfo.getHardwareModel();
    facts.strFirmwareVersion = SENSORCTL_VERSION;
    facts.strSerialNumber = "SIM-" + std::to_string(camera.channel());
    facts.strHardwareId = objInfo.getHardwareCode().empty() ? "sim" : objInfo.getHardwareCode();
    // A name-based UUID of this machine and the camera: the same camera
    // always answers the same, to GetEndpointReference and to a Probe.
    std::string strMachine;
    readWholeFile("/etc/machine-id", strMachine);
    facts.strEndpointReference =
        discovery::nameUrnUuid("sensorctl:" + withoutBlanks(strMachine).strText + ":" +
                               facts.strHardwareId + ":" + facts.strSerialNumber);
    return facts;
}

// WS-Discovery for the device service at nPort, under the device's endpoint
// reference. Null when discovery is off or its port cannot be had; serve goes on.
std::unique_ptr<DiscoveryService> startDiscovery(const onvif::DeviceFacts& facts,
                                                 std::shared_ptr<ScopeList> pScopes, int nPort,
                                                 const ServeOptions& options) {
    if (!options.bDiscovery) {
        std::cout << "sensorctl serve: WS-Discovery off" << std::endl;
        return nullptr;
    }
    DiscoveryConfig config;
    config.strBindAddress = options.strDiscoveryBind;
    config.nPort = options.nDiscoveryPort;
    // A group's datagrams never reach a socket bound to a loopback address.
    config.bJoinGroup = options.strDiscoveryBind.compare(0, 4, "127.") != 0;
    config.bAnnounce = options.bAnnounce;
    config.target.strAddress = facts.strEndpointReference;
    config.target.types = discovery::cameraTypes();
    config.target.scopes = onvif::deviceScopes(facts);
    config.pScopes = std::move(pScopes); // as device management sets them
    config.target.xaddrs = {
        onvif::serviceAddress("127.0.0.1:" + std::to_string(nPort), onvif::kDevicePath)};
    std::unique_ptr<DiscoveryService> pService(new DiscoveryService(config));
    std::string strWhy;
    if (!pService->start(strWhy)) {
        std::cout << "sensorctl serve: WS-Discovery off: " << strWhy << std::endl;
        return nullptr;
    }
    std::cout << "sensorctl serve: WS-Discovery on UDP port " << pService->port() << ", endpoint "
              << config.target.strAddress << (options.bAnnounce ? ", announced" : "") << std::endl;
    return pService;
}
#endif

// Why the server could not bind the port: a bind of our own, with the same
// options, gives the system's reason.
std::string whyNotBound(int nPort) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return std::strerror(errno);
    int nYes = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &nYes, sizeof(nYes));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(nPort));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string strWhy = "the server could not bind it";
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        strWhy = errno == EADDRINUSE ? "the port is taken (is another serve running?)"
                                     : std::string(std::strerror(errno));
    ::close(fd);
    return strWhy;
}

} // namespace

int runServe(Camera& camera, const ServeOptions& options) {
    httplib::Server server;
    server.new_task_queue = [] { return new httplib::ThreadPool(kServerThreads); };
    // An answer's headers and body leave in separate writes: without this a
    // client waits out its delayed acknowledgement on every request.
    server.set_tcp_nodelay(true);
    server.set_payload_max_length(kMaxBody);
    server.set_read_timeout(5, 0);
    // One camera per port: without SO_REUSEPORT (the server's default sets
    // it) a second serve on a taken port is refused instead of sharing the
    // requests with the first. SO_REUSEADDR only lets a restart bind while
    // the last run's connections wait out their close.
    server.set_socket_options([](socket_t sock) {
        int nYes = 1;
        ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &nYes, sizeof(nYes));
        VideoService::boundSendBuffer(sock);
    });
    server.set_write_timeout(5, 0);
    const bool bOnvif = !options.users.empty();
    WebAuth auth;
#ifdef SENSORCTL_HAVE_ONVIF
    std::shared_ptr<sensor_onvif::DigestAuthenticator> pDigest;
    if (bOnvif) {
        std::vector<sensor_onvif::CameraUser> users;
        for (const ServeUser& u : options.users) {
            sensor_onvif::CameraUser user{u.strName, u.strPassword, sensor_onvif::UserLevel::User};
            sensor_onvif::userLevelFromName(u.strLevel, user.level);
            users.push_back(user);
        }
        sensor_onvif::DigestConfig config;
        config.realm = "sensorctl";
        pDigest = std::make_shared<sensor_onvif::DigestAuthenticator>(users, config);
        auth = WebAuth(pDigest);
    }
#endif
    Console console(camera, auth);
    console.install(server);
    VideoService video(camera);
    video.install(server, auth);
#ifdef SENSORCTL_HAVE_ONVIF
    std::unique_ptr<OnvifServices> pOnvif;
    std::shared_ptr<ScopeList> pScopes;
    if (bOnvif) {
        OnvifSetup setup;
        setup.pDigest = pDigest;
        setup.facts = deviceFacts(camera);
        pScopes = std::make_shared<ScopeList>(onvif::deviceScopes(setup.facts));
        setup.pScopes = pScopes;
        setup.setClock = [](const KPDateTime& now) { sim::setDeviceDateTime(now); };
        // Under the console's mutex, as every ONVIF request: nothing else
        // reaches the controller while it restarts.
        setup.reboot = [&camera](std::string& strWhy) { return camera.restart(strWhy); };
        setup.nSchemeCount = static_cast<int>(camera.schemeCount());
        pOnvif.reset(new OnvifServices(camera.controller(), setup));
        console.installOnvif(server, *pOnvif);
    }
#else
    if (bOnvif) {
        std::cerr << "sensorctl: built without libsensor-onvif, ONVIF is not available\n";
        return 1;
    }
#endif

    const int nPort = options.nPort == 0
                          ? server.bind_to_any_port("127.0.0.1")
                          : (server.bind_to_port("127.0.0.1", options.nPort) ? options.nPort : -1);
    if (nPort < 0) {
        std::cerr << "sensorctl: cannot listen on 127.0.0.1:" << options.nPort << ": "
                  << whyNotBound(options.nPort) << "\n";
        return 1;
    }
    std::cout << "sensorctl serve: device root " << camera.root() << "\n"
              << "sensorctl serve: listening on http://127.0.0.1:" << nPort << "/" << std::endl;
#ifdef SENSORCTL_HAVE_ONVIF
    std::unique_ptr<DiscoveryService> pDiscovery;
    if (bOnvif) {
        std::string strUsers;
        for (const ServeUser& u : options.users)
            strUsers += (strUsers.empty() ? "" : ", ") + u.strName;
        std::cout << "sensorctl serve: ONVIF at http://127.0.0.1:" << nPort << onvif::kDevicePath
                  << (options.users.size() == 1 ? ", user " : ", users ") << strUsers << std::endl
                  << "sensorctl serve: the settings page asks for HTTP digest credentials"
                  << std::endl;
        pOnvif->setHttpPort(nPort);
        pDiscovery = startDiscovery(deviceFacts(camera), pScopes, nPort, options);
        pOnvif->setDiscovery(pDiscovery.get());
    } else
#endif
        std::cout << "sensorctl serve: ONVIF off (no credentials)" << std::endl
                  << "sensorctl serve: the settings page is open to anybody" << std::endl;

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
#ifdef SENSORCTL_HAVE_ONVIF
    if (pDiscovery)
        pDiscovery->stop(); // Bye, when announced, before the camera goes
#endif
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
