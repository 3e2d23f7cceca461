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
#include "tests/support/OnvifClient.h"

namespace {

const char* const kUser = "admin";
const char* const kPassword = "bench-secret";
const char* const kImaging = sensor_onvif::ImagingService::kPath;
const char* const kNsImaging = "http://www.onvif.org/ver20/imaging/wsdl";
const char* const kNsBench = "urn:sensor-bench:echo";

std::unique_ptr<testsupport::OnvifClient> g_pClient;

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
    setup.facts = {"bench", "bench", "1", "1", "1"};
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

    const std::string strGet = getBody();
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

    bench::FigureReporter objReporter(out);
    benchmark::RunSpecifiedBenchmarks(&objReporter);
    printSummary(out, objReporter.figures());
    out.flush();

    g_pClient.reset();
    server.stop();
    listener.join();
    objCamera.stop();
    return 0;
}
