// The ONVIF imaging service of the simulated camera end to end over loopback:
// a client with a fresh UsernameToken digest per request, the camera's HTTP
// server with its ONVIF routes (the same ones `sensorctl serve` installs),
// the SOAP endpoint, the imaging service and the controller. Each figure
// stands beside its floor from the same run: a SOAP echo on the same server,
// as large as the request and the answer it stands for, going through the
// same HTTP, parsing and WS-Security, without the imaging work. The echo is
// added here only; the camera has no such operation.
//
// The library writes to standard output on its own; that output goes to
// /dev/null and the figures to the original standard output.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

#include <httplib.h>

#include "OnvifServer.h"
#include "bench/BenchCamera.h"
#include "bench/BenchmarkMain.h"
#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"
#include "tests/support/DigestCheck.h"
#include "tests/support/OnvifClient.h"

namespace {

const char* const kUser = "admin";
const char* const kPassword = "bench-secret";
const char* const kImaging = sensor_onvif::ImagingService::kPath;
const char* const kNsImaging = "http://www.onvif.org/ver20/imaging/wsdl";
const char* const kNsBench = "urn:sensor-bench:echo";
const char* const kDevice = "/onvif/device_service";

std::unique_ptr<testsupport::OnvifClient> g_pClient;

std::string echoBody(const std::string& strLike, size_t nAnswer);

// A client with HTTP digest as a browser or curl keeps it: one challenge,
// then each request with the next nonce count (a new challenge only when the
// nonce goes stale), so the figure is the camera's check and not a second
// round trip.
class DigestClient {
public:
    DigestClient(int nPort, std::string strUser, std::string strPassword)
        : m_http("127.0.0.1", nPort), m_strUser(std::move(strUser)),
          m_strPassword(std::move(strPassword)) {
        m_http.set_keep_alive(true);
        m_http.set_tcp_nodelay(true);
        m_http.set_read_timeout(10, 0);
    }

    // A POST of the envelope around body; with credentials unless bOpen.
    testsupport::OnvifReply call(const std::string& strPath, const std::string& strBody,
                                 bool bOpen = false) {
        const std::string strEnvelope =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope "
            "xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>" +
            strBody + "</s:Body></s:Envelope>";
        testsupport::OnvifReply reply;
        for (int nTry = 0; nTry < 2; ++nTry) {
            httplib::Headers headers;
            if (!bOpen && !m_strNonce.empty()) {
                char szNc[9];
                std::snprintf(szNc, sizeof(szNc), "%08x", ++m_nCount);
                const std::string strCnonce = "0a4f113b";
                headers.emplace("Authorization",
                                "Digest username=\"" + m_strUser + "\", realm=\"" + m_strRealm +
                                    "\", nonce=\"" + m_strNonce + "\", uri=\"" + strPath +
                                    "\", algorithm=" + m_strAlgorithm + ", qop=auth, nc=" + szNc +
                                    ", cnonce=\"" + strCnonce + "\", response=\"" +
                                    digestcheck::response(m_strAlgorithm, m_strUser, m_strRealm,
                                                          m_strPassword, "POST", strPath,
                                                          m_strNonce, szNc, strCnonce) +
                                    "\", opaque=\"" + m_strOpaque + "\"");
            }
            auto res = m_http.Post(strPath.c_str(), headers, strEnvelope,
                                   "application/soap+xml; charset=utf-8");
            if (!res)
                return reply;
            reply.status = res->status;
            reply.body = res->body;
            if (res->status != 401 || bOpen)
                break;
            // Read once per challenge, not per request.
            const std::string strChallenge = res->get_header_value("WWW-Authenticate");
            m_strRealm = digestcheck::param(strChallenge, "realm");
            m_strNonce = digestcheck::param(strChallenge, "nonce");
            m_strOpaque = digestcheck::param(strChallenge, "opaque");
            m_strAlgorithm = digestcheck::param(strChallenge, "algorithm");
            m_nCount = 0;
        }
        return reply;
    }

private:
    httplib::Client m_http;
    std::string m_strUser;
    std::string m_strPassword;
    std::string m_strRealm;
    std::string m_strNonce;
    std::string m_strOpaque;
    std::string m_strAlgorithm;
    unsigned m_nCount = 0;
};

std::unique_ptr<DigestClient> g_pDigest;

std::string servicesBody() {
    return "<tds:GetServices xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
           "<tds:IncludeCapability>true</tds:IncludeCapability></tds:GetServices>";
}

// The echo body whose whole answer is as long as the answer to strLike, both
// sent by the digest client (bOpen: without credentials, on strPath).
std::string matchingDigestEcho(const char* szPath, const std::string& strLike, bool bOpen) {
    const size_t nTarget = g_pDigest->call(szPath, strLike, bOpen).body.size();
    const size_t nEmpty = g_pDigest->call(szPath, echoBody(strLike, 0), bOpen).body.size();
    return echoBody(strLike, nTarget > nEmpty ? nTarget - nEmpty : 0);
}

void runDigest(benchmark::State& state, const char* szPath, const std::string& strBody,
               bool bOpen) {
    for (auto _ : state) {
        const testsupport::OnvifReply r = g_pDigest->call(szPath, strBody, bOpen);
        if (r.status != 200) {
            state.SkipWithError(("answer " + std::to_string(r.status) + ": " + r.body).c_str());
            return;
        }
        benchmark::DoNotOptimize(r.body.data());
    }
}

std::string getBody() {
    return std::string("<timg:GetImagingSettings xmlns:timg=\"") + kNsImaging +
           "\"><timg:VideoSourceToken>VideoSource_1</timg:VideoSourceToken>"
           "</timg:GetImagingSettings>";
}

std::string setBody(int nBrightness, bool bPersist) {
    return std::string("<timg:SetImagingSettings xmlns:timg=\"") + kNsImaging +
           "\" xmlns:tt=\"http://www.onvif.org/ver10/schema\"><timg:VideoSourceToken>"
           "VideoSource_1</timg:VideoSourceToken><timg:ImagingSettings><tt:Brightness>" +
           std::to_string(nBrightness) +
           "</tt:Brightness></timg:ImagingSettings><timg:ForcePersistence>" +
           (bPersist ? "true" : "false") + "</timg:ForcePersistence></timg:SetImagingSettings>";
}

// An echo request as long as strLike, asking for an answer of nAnswer
// padding characters.
std::string echoBody(const std::string& strLike, size_t nAnswer) {
    const std::string strHead = std::string("<Echo xmlns=\"") + kNsBench + "\"><Size>" +
                                std::to_string(nAnswer) + "</Size><Pad>";
    const std::string strTail = "</Pad></Echo>";
    const size_t nFixed = strHead.size() + strTail.size();
    return strHead + std::string(strLike.size() > nFixed ? strLike.size() - nFixed : 0, 'x') +
           strTail;
}

// The echo body whose whole answer is as long as the answer to strLike.
std::string matchingEcho(const std::string& strLike) {
    const size_t nTarget = g_pClient->call(kImaging, strLike).body.size();
    const size_t nEmpty = g_pClient->call(kImaging, echoBody(strLike, 0)).body.size();
    return echoBody(strLike, nTarget > nEmpty ? nTarget - nEmpty : 0);
}

void run(benchmark::State& state, const std::function<std::string()>& body) {
    for (auto _ : state) {
        const testsupport::OnvifReply r = g_pClient->call(kImaging, body());
        if (r.status != 200) {
            state.SkipWithError(("answer " + std::to_string(r.status) + ": " + r.body).c_str());
            return;
        }
        benchmark::DoNotOptimize(r.body.data());
    }
}

using bench::Figure;

void printSummary(std::ostream& out, const std::map<std::string, Figure>& figures) {
    auto real = [&](const std::string& name) {
        const auto it = figures.find(name);
        return it != figures.end() ? it->second.dReal : NAN;
    };
    out << "\nSummary (medians of wall time per request over loopback; floor = a SOAP echo of\n"
        << "the same request and answer sizes on the same server in this run)\n\n"
        << std::left << std::setw(40) << "figure" << std::right << std::setw(11) << "time"
        << std::setw(11) << "floor" << std::setw(8) << "ratio" << std::setw(9) << "target"
        << "  met\n";
    auto row = [&](const char* label, const std::string& name, double dTarget) {
        const double dTime = real(name) / 1e3;
        const double dFloor = real(name + "/echo_floor") / 1e3;
        const double dRatio = dTime / dFloor;
        out << std::left << std::setw(40) << label << std::right << std::fixed
            << std::setprecision(1) << std::setw(8) << dTime << " us" << std::setw(8) << dFloor
            << " us" << std::setw(8) << std::setprecision(2) << dRatio;
        if (dTarget > 0 && !std::isnan(dRatio))
            out << std::setw(9) << dTarget << "  " << (dRatio <= dTarget ? "yes" : "NO");
        out << "\n";
    };
    row("GetImagingSettings", "GetImagingSettings", 1.5);
    row("SetImagingSettings, Brightness", "SetImagingSettings", 1.5);
    row("  the same, ForcePersistence true", "SetImagingSettings_persist", 0);
    row("GetImagingSettings, HTTP digest", "GetImagingSettings_digest", 1.5);
    row("GetServices, no credentials", "GetServices_open", 1.5);
}

} // namespace

int main(int argc, char** argv) {
    bench::BenchmarkMain objMain(argc, argv);
    if (!objMain.ok())
        return 1;
    std::ostream& out = objMain.figures();

    bench::DeviceRoot objRoot;
    bench::Camera objCamera(objRoot);
    objCamera.start();

    sensorctl::OnvifSetup setup;
    setup.strUser = kUser;
    setup.strPassword = kPassword;
    setup.facts = {"bench", "bench", "1",
                   "1",     "1",     "urn:uuid:00000000-0000-5000-8000-000000000001"};
    sensorctl::OnvifServices services(*objCamera.ctl, setup);
    // The floor's operation, on the imaging path with the same security.
    services.endpoint().addOperation(
        kImaging, "Echo",
        [](const sensor_onvif::Request& req) -> sensor_onvif::Result {
            const sensor_onvif::XmlNode* pSize = req.op.child("Size");
            const size_t nSize = pSize ? std::strtoul(pSize->text.c_str(), nullptr, 10) : 0;
            return std::string("<EchoResponse xmlns=\"") + kNsBench + "\">" +
                   std::string(nSize, 'y') + "</EchoResponse>";
        },
        sensor_onvif::AccessClass::ReadMedia);
    // The same echo open to anybody on the device path: the floor of the
    // operations that need no credentials.
    services.endpoint().addOperation(
        kDevice, "Echo",
        [](const sensor_onvif::Request& req) -> sensor_onvif::Result {
            const sensor_onvif::XmlNode* pSize = req.op.child("Size");
            const size_t nSize = pSize ? std::strtoul(pSize->text.c_str(), nullptr, 10) : 0;
            return std::string("<EchoResponse xmlns=\"") + kNsBench + "\">" +
                   std::string(nSize, 'y') + "</EchoResponse>";
        },
        sensor_onvif::AccessClass::PreAuth);

    httplib::Server server;
    server.set_tcp_nodelay(true);
    std::mutex mutex;
    sensorctl::installOnvifRoutes(server, services, mutex, [] {});
    const int nPort = server.bind_to_any_port("127.0.0.1");
    if (nPort <= 0)
        return 1;
    std::thread listener([&server] { server.listen_after_bind(); });
    while (!server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));

    g_pClient.reset(new testsupport::OnvifClient(nPort, kUser, kPassword));
    if (!g_pClient->syncClock())
        return 1;

    g_pDigest.reset(new DigestClient(nPort, kUser, kPassword));
    const std::string strGet = getBody();
    const std::string strGetDigestEcho = matchingDigestEcho(kImaging, strGet, false);
    const std::string strServices = servicesBody();
    const std::string strServicesEcho = matchingDigestEcho(kDevice, strServices, true);
    const std::string strGetEcho = matchingEcho(strGet);
    const std::string strSet = setBody(41, false);
    const std::string strSetEcho = matchingEcho(strSet);
    const std::string strSetPersist = setBody(41, true);
    const std::string strSetPersistEcho = matchingEcho(strSetPersist);

    auto add = [](const std::string& name, const std::function<void(benchmark::State&)>& fn) {
        return benchmark::RegisterBenchmark(name.c_str(),
                                            [fn](benchmark::State& state) { fn(state); })
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    };
    // Each set changes the value, so each reaches the ISP.
    int nBrightness = 40;
    add("GetImagingSettings", [&](benchmark::State& s) { run(s, [&] { return strGet; }); });
    add("GetImagingSettings/echo_floor",
        [&](benchmark::State& s) { run(s, [&] { return strGetEcho; }); });
    add("SetImagingSettings",
        [&](benchmark::State& s) { run(s, [&] { return setBody(nBrightness ^= 1, false); }); });
    add("SetImagingSettings/echo_floor",
        [&](benchmark::State& s) { run(s, [&] { return strSetEcho; }); });
    add("SetImagingSettings_persist",
        [&](benchmark::State& s) { run(s, [&] { return setBody(nBrightness ^= 1, true); }); });
    add("SetImagingSettings_persist/echo_floor",
        [&](benchmark::State& s) { run(s, [&] { return strSetPersistEcho; }); });

    add("GetImagingSettings_digest",
        [&](benchmark::State& s) { runDigest(s, kImaging, strGet, false); });
    add("GetImagingSettings_digest/echo_floor",
        [&](benchmark::State& s) { runDigest(s, kImaging, strGetDigestEcho, false); });
    add("GetServices_open", [&](benchmark::State& s) { runDigest(s, kDevice, strServices, true); });
    add("GetServices_open/echo_floor",
        [&](benchmark::State& s) { runDigest(s, kDevice, strServicesEcho, true); });

    bench::FigureReporter objReporter(out);
    benchmark::RunSpecifiedBenchmarks(&objReporter);
    printSummary(out, objReporter.figures());
    out.flush();

    g_pClient.reset();
    g_pDigest.reset();
    server.stop();
    listener.join();
    objCamera.stop();
    return 0;
}
