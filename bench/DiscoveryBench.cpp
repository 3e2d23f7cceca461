// The camera's WS-Discovery over loopback: a unicast Probe to the discovery
// service and its ProbeMatches back, beside its floor from the same run, a
// UDP echo on 127.0.0.1 that takes a datagram as large as the Probe on its
// own thread and sends one as large as the answer. Without a socket, the
// reading, matching and answer writing of one Probe stands beside TinyXML
// parsing the same datagram alone, the least any reader built on it pays.
//
// Each Probe carries a new MessageID (the service answers a repeated one
// only once), and the answer budget is lifted so that every Probe is answered.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iomanip>
#include <map>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <tinyxml.h>

#include "Discovery.h"
#include "bench/BenchmarkMain.h"

namespace {

using bench::Figure;

sensorctl::discovery::Target benchTarget() {
    sensorctl::discovery::Target t;
    t.strAddress = "urn:uuid:0f1e2d3c-4b5a-5968-8776-a5b4c3d2e1f0";
    t.types = sensorctl::discovery::cameraTypes();
    t.scopes = {
        "onvif://www.onvif.org/Profile/Streaming", "onvif://www.onvif.org/type/video_encoder",
        "onvif://www.onvif.org/location/simulated", "onvif://www.onvif.org/hardware/Hi3516DV300",
        "onvif://www.onvif.org/name/sensorctl"};
    t.xaddrs = {"http://127.0.0.1:8080/onvif/device_service"};
    return t;
}

// A Probe for a network video transmitter named "sensorctl", as a client
// sends it, numbered so that each is new.
std::string probeText(unsigned long long n) {
    char szId[64];
    std::snprintf(szId, sizeof(szId), "urn:uuid:c0ffee00-0000-4000-8000-%012llu",
                  n % 1000000000000ULL);
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                       "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
                       "xmlns:a=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
                       "xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
                       "xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\"><s:Header>"
                       "<a:MessageID>") +
           szId +
           "</a:MessageID><a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To>"
           "<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action>"
           "</s:Header><s:Body><d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types>"
           "<d:Scopes>onvif://www.onvif.org/name/sensorctl</d:Scopes></d:Probe></s:Body>"
           "</s:Envelope>";
}

int loopbackSocket() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    timeval tv{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    return fd;
}

int portOf(int fd) {
    sockaddr_in addr{};
    socklen_t nLen = sizeof(addr);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &nLen);
    return ntohs(addr.sin_port);
}

void sendTo(int fd, int port, const std::string& data) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::sendto(fd, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
}

// One datagram out, one back: false when none came within the timeout.
bool roundTrip(int fd, int port, const std::string& data, std::vector<char>& buffer,
               size_t& nReply) {
    sendTo(fd, port, data);
    const ssize_t n = ::recv(fd, buffer.data(), buffer.size(), 0);
    nReply = n > 0 ? static_cast<size_t>(n) : 0;
    return n > 0;
}

// The floor's server: every datagram answered with nReply bytes, from its
// own thread, like the discovery service.
class UdpEcho {
public:
    explicit UdpEcho(size_t nReply) : m_fd(loopbackSocket()), m_strReply(nReply, 'x') {
        m_thread = std::thread([this] {
            std::vector<char> buffer(65536);
            while (!m_bStop) {
                pollfd p{m_fd, POLLIN, 0};
                if (::poll(&p, 1, 100) <= 0)
                    continue;
                sockaddr_in from{};
                socklen_t nLen = sizeof(from);
                const ssize_t n = ::recvfrom(m_fd, buffer.data(), buffer.size(), 0,
                                             reinterpret_cast<sockaddr*>(&from), &nLen);
                if (n > 0)
                    ::sendto(m_fd, m_strReply.data(), m_strReply.size(), 0,
                             reinterpret_cast<sockaddr*>(&from), nLen);
            }
        });
    }
    ~UdpEcho() {
        m_bStop = true;
        m_thread.join();
        ::close(m_fd);
    }
    int port() const { return portOf(m_fd); }

private:
    int m_fd;
    std::string m_strReply;
    std::atomic<bool> m_bStop{false};
    std::thread m_thread;
};

void printSummary(std::ostream& out, const std::map<std::string, Figure>& figures) {
    auto real = [&](const std::string& name) {
        const auto it = figures.find(name);
        return it != figures.end() ? it->second.dReal : NAN;
    };
    out << "\nSummary (medians of wall time; each floor from this run)\n\n"
        << std::left << std::setw(44) << "figure" << std::right << std::setw(11) << "time"
        << std::setw(11) << "floor" << std::setw(8) << "ratio\n";
    auto row = [&](const char* label, const std::string& name, const std::string& floor) {
        const double dTime = real(name) / 1e3, dFloor = real(floor) / 1e3;
        out << std::left << std::setw(44) << label << std::right << std::fixed
            << std::setprecision(1) << std::setw(8) << dTime << " us" << std::setw(8) << dFloor
            << " us" << std::setw(8) << std::setprecision(2) << dTime / dFloor << "\n";
    };
    row("Probe -> ProbeMatches over loopback UDP", "ProbeRoundTrip",
        "ProbeRoundTrip/udp_echo_floor");
    row("  read, match and answer, no socket", "ProbeHandling", "ProbeHandling/tinyxml_floor");
}

} // namespace

int main(int argc, char** argv) {
    bench::BenchmarkMain objMain(argc, argv);
    if (!objMain.ok())
        return 1;
    std::ostream& out = objMain.figures();

    sensorctl::DiscoveryConfig config;
    config.strBindAddress = "127.0.0.1";
    config.nPort = 0;
    config.bJoinGroup = false;
    config.target = benchTarget();
    config.dAnswersPerSecond = 1e12;
    config.dBurst = 1e12;
    sensorctl::DiscoveryService service(config);
    std::string strWhy;
    if (!service.start(strWhy)) {
        out << "discovery_bench: " << strWhy << "\n";
        return 1;
    }
    const int fd = loopbackSocket();
    std::vector<char> buffer(65536);

    // The sizes the floor copies: one Probe and its answer.
    unsigned long long nNext = 0;
    size_t nAnswer = 0;
    const std::string strSample = probeText(nNext++);
    if (!roundTrip(fd, service.port(), strSample, buffer, nAnswer)) {
        out << "discovery_bench: the service did not answer\n";
        return 1;
    }
    UdpEcho echo(nAnswer);

    auto add = [](const char* name, const std::function<void(benchmark::State&)>& fn) {
        return benchmark::RegisterBenchmark(name, [fn](benchmark::State& state) { fn(state); })
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    };
    add("ProbeRoundTrip", [&](benchmark::State& s) {
        for (auto _ : s) {
            size_t n = 0;
            // The answer grows only with the digits of its MessageNumber.
            if (!roundTrip(fd, service.port(), probeText(nNext++), buffer, n) || n < nAnswer ||
                n > nAnswer + 10) {
                s.SkipWithError("no ProbeMatches of the expected size");
                break;
            }
        }
    });
    add("ProbeRoundTrip/udp_echo_floor", [&](benchmark::State& s) {
        for (auto _ : s) {
            size_t n = 0;
            // Built like the Probe, so both sides pay the same text work.
            if (!roundTrip(fd, echo.port(), probeText(nNext++), buffer, n) || n != nAnswer) {
                s.SkipWithError("no echo");
                break;
            }
        }
    });
    const sensorctl::discovery::Target target = benchTarget();
    add("ProbeHandling", [&](benchmark::State& s) {
        for (auto _ : s) {
            sensorctl::discovery::Inbound msg;
            std::string strError;
            if (!sensorctl::discovery::parseInbound(strSample.data(), strSample.size(), msg,
                                                    strError) ||
                sensorctl::discovery::matchProbe(msg, target) != sensorctl::discovery::Match::Yes) {
                s.SkipWithError("the Probe was not read");
                break;
            }
            std::string strAnswer = sensorctl::discovery::probeMatches(
                target, msg.strMessageId, sensorctl::discovery::randomUrnUuid(), {1, 1});
            benchmark::DoNotOptimize(strAnswer);
        }
    });
    add("ProbeHandling/tinyxml_floor", [&](benchmark::State& s) {
        for (auto _ : s) {
            TiXmlDocument doc;
            doc.Parse(strSample.c_str(), nullptr, TIXML_ENCODING_UTF8);
            benchmark::DoNotOptimize(doc.RootElement());
        }
    });

    bench::FigureReporter objReporter(out);
    benchmark::RunSpecifiedBenchmarks(&objReporter);
    printSummary(out, objReporter.figures());
    out.flush();
    ::close(fd);
    service.stop();
    return 0;
}
