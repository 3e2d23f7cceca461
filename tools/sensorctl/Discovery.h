// WS-Discovery for the simulated camera: a target service on UDP (port 3702
// by default) that answers Probe and Resolve with the camera's endpoint
// reference, types, scopes and device service address, and, when asked to,
// announces the camera with Hello and Bye on the multicast group.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "DiscoveryMessage.h"
#include "Scopes.h"

namespace sensorctl {

// ONVIF's two discovery modes (tt:DiscoveryMode). Discoverable by default.
enum class DiscoveryMode { Discoverable, NonDiscoverable };

// "Discoverable" or "NonDiscoverable", as the device service writes them.
const char* discoveryModeName(DiscoveryMode p_eMode);
// The reverse; false for any other text.
bool parseDiscoveryMode(const std::string& p_strText, DiscoveryMode& p_eMode);

// What device management's GetDiscoveryMode and SetDiscoveryMode act on.
// Both may be called from any thread.
class DiscoveryModeControl {
public:
    virtual ~DiscoveryModeControl() = default;
    virtual DiscoveryMode discoveryMode() const = 0;
    virtual void setDiscoveryMode(DiscoveryMode p_eMode) = 0;
};

constexpr const char* kDiscoveryGroup = "239.255.255.250";
constexpr int kDiscoveryPort = 3702;

struct DiscoveryConfig {
    std::string strBindAddress = "0.0.0.0";
    int nPort = kDiscoveryPort; // 0: any free port (port() tells which)
    bool bJoinGroup = true;     // listen to the multicast group's Probes
    bool bAnnounce = false;     // Hello at start, Bye at stop, to the group
    // Where announcements go: the group, unless a test listens elsewhere.
    std::string strAnnounceAddress = kDiscoveryGroup;
    int nAnnouncePort = kDiscoveryPort;
    discovery::Target target;
    // When set, the scopes offered and their metadata version come from this
    // list (device management changes it), not from target.
    std::shared_ptr<ScopeList> pScopes;
    uint32_t nInstanceId = 0; // 0: the seconds since the epoch at start
    // The answer budget: at most nBurst answers at once, refilled at
    // dAnswersPerSecond. A Probe beyond it gets no answer.
    double dAnswersPerSecond = 20;
    double dBurst = 20;
    // Seconds on some steady scale, for the budget and the pace of the log
    // (steady_clock by default).
    std::function<double()> clock;
    // Where the service reports what it ignored (standard error by default).
    std::function<void(const std::string&)> log;
};

class DiscoveryService : public DiscoveryModeControl {
public:
    explicit DiscoveryService(DiscoveryConfig p_objConfig);
    ~DiscoveryService() override;
    DiscoveryService(const DiscoveryService&) = delete;
    DiscoveryService& operator=(const DiscoveryService&) = delete;

    // Binds the port, joins the group and starts answering; with bAnnounce
    // sends Hello while discoverable. false with the reason.
    bool start(std::string& p_strWhy);
    // Stops answering; with bAnnounce sends Bye while discoverable.
    void stop();
    // The UDP port bound (after start).
    int port() const { return m_nPort; }

    // A non-discoverable camera neither answers nor announces; with
    // bAnnounce, leaving discoverable mode says Bye and coming back Hello.
    DiscoveryMode discoveryMode() const override;
    void setDiscoveryMode(DiscoveryMode p_eMode) override;

    // What became of the datagrams so far. A datagram is counted once it is
    // dealt with, after any immediate answer to it has been sent.
    struct Counters {
        uint64_t nReceived = 0; // datagrams dealt with
        uint64_t nAnswered = 0; // ProbeMatches, ResolveMatches and faults sent
        uint64_t nRefused = 0;  // malformed, oversized, from elsewhere, duplicate
        uint64_t nOverBudget = 0;
    };
    Counters counters() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
    int m_nPort = 0;
};

} // namespace sensorctl
