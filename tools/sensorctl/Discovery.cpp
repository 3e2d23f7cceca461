#include "Discovery.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <deque>
#include <iostream>
#include <random>
#include <set>
#include <vector>

namespace sensorctl {

namespace {

// A Probe that reached the camera through the group is answered after a
// random wait of up to this (WS-Discovery's APP_MAX_DELAY), so that the
// answers of many devices do not arrive at once.
constexpr double kAppMaxDelay = 0.5;
// Answers to multicast Probes waiting for their moment.
constexpr size_t kMaxPending = 64;
// MessageIDs remembered: a repeat of one of them is not answered again.
constexpr size_t kRememberedIds = 128;
// At most one report a second of what was ignored.
constexpr double kLogInterval = 1.0;

double steadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string addressText(const sockaddr_in& p_objAddr) {
    char sz[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &p_objAddr.sin_addr, sz, sizeof(sz));
    return std::string(sz) + ":" + std::to_string(ntohs(p_objAddr.sin_port));
}

} // namespace

const char* discoveryModeName(DiscoveryMode p_eMode) {
    return p_eMode == DiscoveryMode::Discoverable ? "Discoverable" : "NonDiscoverable";
}

bool parseDiscoveryMode(const std::string& p_strText, DiscoveryMode& p_eMode) {
    if (p_strText == "Discoverable")
        p_eMode = DiscoveryMode::Discoverable;
    else if (p_strText == "NonDiscoverable")
        p_eMode = DiscoveryMode::NonDiscoverable;
    else
        return false;
    return true;
}

struct DiscoveryService::Impl {
    explicit Impl(DiscoveryConfig p_objConfig) : config(std::move(p_objConfig)) {
        if (!config.clock)
            config.clock = steadySeconds;
        if (!config.log)
            config.log = [](const std::string& s) { std::cerr << s << std::endl; };
    }

    DiscoveryConfig config;
    int fd = -1;
    int wake[2] = {-1, -1};
    std::thread thread;
    std::atomic<bool> bRunning{false};
    std::atomic<DiscoveryMode> mode{DiscoveryMode::Discoverable};

    // The message numbers of the camera's one sequence; sends may come from
    // the service's thread and from a mode change.
    std::mutex sendMutex;
    uint32_t nMessageNumber = 0;

    mutable std::mutex countMutex;
    Counters counts;

    // The service's thread alone uses these.
    std::set<uint32_t> localAddresses; // network order
    std::deque<std::string> recentIds;
    std::set<std::string> recentIdSet;
    double dTokens = 0;
    double dRefilled = 0;
    double dLastLog = -1e300;
    uint64_t nUnreported = 0;
    std::mt19937 random{std::random_device{}()};
    struct Pending {
        double dDue; // steady seconds
        sockaddr_in to;
        std::string strRelatesTo;
        discovery::MessageKind kind;
    };
    std::vector<Pending> pending;

    discovery::Sequence nextSequence() {
        discovery::Sequence seq;
        seq.nInstanceId = config.nInstanceId;
        seq.nMessageNumber = ++nMessageNumber;
        return seq;
    }

    // Caller holds sendMutex (the socket closes under it).
    void sendTo(const std::string& p_strData, const sockaddr_in& p_objTo) {
        if (fd < 0)
            return;
        ::sendto(fd, p_strData.data(), p_strData.size(), 0,
                 reinterpret_cast<const sockaddr*>(&p_objTo), sizeof(p_objTo));
    }

    // What the camera says of itself now: the scopes are the shared list's,
    // which device management changes while the service runs.
    discovery::Target target() const {
        discovery::Target objTarget = config.target;
        if (config.pScopes) {
            objTarget.scopes = config.pScopes->items();
            objTarget.nMetadataVersion = config.pScopes->version();
        }
        return objTarget;
    }

    // Hello or Bye to the group (or where the configuration says).
    void announce(bool p_bHello) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(config.nAnnouncePort));
        ::inet_pton(AF_INET, config.strAnnounceAddress.c_str(), &to.sin_addr);
        std::lock_guard<std::mutex> lock(sendMutex);
        const discovery::Sequence seq = nextSequence();
        const std::string strId = discovery::randomUrnUuid();
        sendTo(p_bHello ? discovery::hello(target(), strId, seq)
                        : discovery::bye(target(), strId, seq),
               to);
    }

    // The answer to a Probe or Resolve that named the camera.
    void answer(const sockaddr_in& p_objTo, discovery::MessageKind p_eKind,
                const std::string& p_strRelatesTo) {
        std::lock_guard<std::mutex> lock(sendMutex);
        const discovery::Sequence seq = nextSequence();
        const std::string strId = discovery::randomUrnUuid();
        sendTo(p_eKind == discovery::MessageKind::Probe
                   ? discovery::probeMatches(target(), p_strRelatesTo, strId, seq)
                   : discovery::resolveMatches(target(), p_strRelatesTo, strId, seq),
               p_objTo);
    }

    void count(uint64_t Counters::*p_pField) {
        std::lock_guard<std::mutex> lock(countMutex);
        ++(counts.*p_pField);
    }

    // A datagram not answered, reported at most once a second with the
    // number left unreported since.
    void refuse(const sockaddr_in& p_objFrom, const std::string& p_strWhy,
                uint64_t Counters::*p_pField) {
        count(p_pField);
        const double dNow = config.clock();
        if (dNow - dLastLog < kLogInterval) {
            ++nUnreported;
            return;
        }
        std::string strLine = "sensorctl discovery: ignored a datagram from " +
                              addressText(p_objFrom) + ": " + p_strWhy;
        if (nUnreported)
            strLine += " (" + std::to_string(nUnreported) + " more ignored since the last report)";
        config.log(strLine);
        dLastLog = dNow;
        nUnreported = 0;
    }

    // True when the budget allows one more answer now, which it then spends.
    bool takeToken() {
        const double dNow = config.clock();
        dTokens = std::min(config.dBurst, dTokens + (dNow - dRefilled) * config.dAnswersPerSecond);
        dRefilled = dNow;
        if (dTokens < 1)
            return false;
        dTokens -= 1;
        return true;
    }

    // The camera serves this machine only (its HTTP server is on
    // 127.0.0.1): a datagram from any other host is not answered.
    bool isLocal(const sockaddr_in& p_objFrom) const {
        const uint32_t nHost = ntohl(p_objFrom.sin_addr.s_addr);
        return (nHost >> 24) == 127 || localAddresses.count(p_objFrom.sin_addr.s_addr) != 0;
    }

    void readLocalAddresses() {
        ifaddrs* pList = nullptr;
        if (::getifaddrs(&pList) != 0)
            return;
        for (ifaddrs* p = pList; p; p = p->ifa_next)
            if (p->ifa_addr && p->ifa_addr->sa_family == AF_INET)
                localAddresses.insert(
                    reinterpret_cast<const sockaddr_in*>(p->ifa_addr)->sin_addr.s_addr);
        ::freeifaddrs(pList);
    }

    // false when the MessageID was seen lately; remembers it otherwise.
    bool firstSight(const std::string& p_strId) {
        if (recentIdSet.count(p_strId))
            return false;
        recentIds.push_back(p_strId);
        recentIdSet.insert(p_strId);
        if (recentIds.size() > kRememberedIds) {
            recentIdSet.erase(recentIds.front());
            recentIds.pop_front();
        }
        return true;
    }

    void handle(const char* p_pData, size_t p_nSize, const sockaddr_in& p_objFrom, bool p_bGroup);
    void sendDue();
    void run();
};

void DiscoveryService::Impl::handle(const char* p_pData, size_t p_nSize,
                                    const sockaddr_in& p_objFrom, bool p_bGroup) {
    // A non-discoverable camera does not listen at all: nothing is answered
    // or reported, unicast or multicast alike.
    if (mode.load() == DiscoveryMode::NonDiscoverable)
        return;
    if (!isLocal(p_objFrom))
        return refuse(p_objFrom, "not from this machine", &Counters::nRefused);
    discovery::Inbound msg;
    std::string strWhy;
    if (!discovery::parseInbound(p_pData, p_nSize, msg, strWhy))
        return refuse(p_objFrom, strWhy, &Counters::nRefused);
    // SOAP over UDP repeats a message under the same MessageID: one answer.
    if (!firstSight(msg.strMessageId))
        return refuse(p_objFrom, "repeated MessageID " + msg.strMessageId, &Counters::nRefused);

    bool bFault = false;
    if (msg.kind == discovery::MessageKind::Probe) {
        const discovery::Match match = discovery::matchProbe(msg, target());
        if (match == discovery::Match::No)
            return;
        // A fault to the group would storm: only a unicast Probe gets one.
        if (match == discovery::Match::RuleNotSupported) {
            if (p_bGroup)
                return refuse(p_objFrom, "matching rule " + msg.strMatchBy + " not supported",
                              &Counters::nRefused);
            bFault = true;
        }
    } else if (!discovery::matchResolve(msg, target())) {
        return;
    }
    if (!takeToken())
        return refuse(p_objFrom, "more Probes than the answer budget", &Counters::nOverBudget);

    if (bFault) {
        std::lock_guard<std::mutex> lock(sendMutex);
        sendTo(discovery::matchingRuleFault(msg.strMessageId, discovery::randomUrnUuid()),
               p_objFrom);
    } else if (p_bGroup && msg.kind == discovery::MessageKind::Probe) {
        if (pending.size() >= kMaxPending)
            return refuse(p_objFrom, "too many answers waiting", &Counters::nOverBudget);
        std::uniform_real_distribution<double> delay(0, kAppMaxDelay);
        pending.push_back({steadySeconds() + delay(random), p_objFrom, msg.strMessageId, msg.kind});
        return;
    } else {
        answer(p_objFrom, msg.kind, msg.strMessageId);
    }
    count(&Counters::nAnswered);
}

void DiscoveryService::Impl::sendDue() {
    const double dNow = steadySeconds();
    for (size_t i = 0; i < pending.size();) {
        if (pending[i].dDue > dNow) {
            ++i;
            continue;
        }
        if (mode.load() == DiscoveryMode::Discoverable) {
            answer(pending[i].to, pending[i].kind, pending[i].strRelatesTo);
            count(&Counters::nAnswered);
        }
        pending.erase(pending.begin() + static_cast<long>(i));
    }
}

void DiscoveryService::Impl::run() {
    // One byte more than a datagram the camera reads, and MSG_TRUNC for the
    // true size of a larger one.
    std::vector<char> buffer(discovery::kMaxDatagram + 1);
    while (bRunning.load()) {
        int nTimeout = -1;
        if (!pending.empty()) {
            double dFirst = pending.front().dDue;
            for (const Pending& p : pending)
                dFirst = std::min(dFirst, p.dDue);
            nTimeout = std::max(0, static_cast<int>((dFirst - steadySeconds()) * 1000) + 1);
        }
        pollfd fds[2] = {{fd, POLLIN, 0}, {wake[0], POLLIN, 0}};
        const int nReady = ::poll(fds, 2, nTimeout);
        if (nReady < 0 && errno != EINTR)
            break;
        if (fds[1].revents)
            break;
        sendDue();
        if (nReady <= 0 || !(fds[0].revents & POLLIN))
            continue;

        sockaddr_in from{};
        iovec iov{buffer.data(), buffer.size()};
        char control[CMSG_SPACE(sizeof(in_pktinfo))];
        msghdr msg{};
        msg.msg_name = &from;
        msg.msg_namelen = sizeof(from);
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        const ssize_t n = ::recvmsg(fd, &msg, MSG_TRUNC | MSG_DONTWAIT);
        if (n < 0)
            continue;
        // Whether the datagram came to the group or to the camera alone.
        bool bGroup = false;
        for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
            if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
                in_pktinfo info;
                std::memcpy(&info, CMSG_DATA(c), sizeof(info));
                bGroup = IN_MULTICAST(ntohl(info.ipi_addr.s_addr));
            }
        }
        if (static_cast<size_t>(n) > discovery::kMaxDatagram) {
            if (mode.load() == DiscoveryMode::Discoverable)
                refuse(from,
                       "datagram of " + std::to_string(n) + " bytes, over " +
                           std::to_string(discovery::kMaxDatagram),
                       &Counters::nRefused);
        } else {
            handle(buffer.data(), static_cast<size_t>(n), from, bGroup);
        }
        count(&Counters::nReceived);
    }
}

DiscoveryService::DiscoveryService(DiscoveryConfig p_objConfig)
    : m_pImpl(new Impl(std::move(p_objConfig))) {}

DiscoveryService::~DiscoveryService() {
    stop();
}

bool DiscoveryService::start(std::string& p_strWhy) {
    Impl& d = *m_pImpl;
    if (d.bRunning)
        return true;
    if (d.config.nInstanceId == 0)
        d.config.nInstanceId = static_cast<uint32_t>(std::time(nullptr));
    d.fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (d.fd < 0) {
        p_strWhy = std::strerror(errno);
        return false;
    }
    // Other discovery services of this machine share the well-known port.
    int nYes = 1;
    ::setsockopt(d.fd, SOL_SOCKET, SO_REUSEADDR, &nYes, sizeof(nYes));
    ::setsockopt(d.fd, IPPROTO_IP, IP_PKTINFO, &nYes, sizeof(nYes));
    // Announcements stay on the local link.
    const unsigned char nTtl = 1;
    ::setsockopt(d.fd, IPPROTO_IP, IP_MULTICAST_TTL, &nTtl, sizeof(nTtl));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(d.config.nPort));
    if (::inet_pton(AF_INET, d.config.strBindAddress.c_str(), &addr.sin_addr) != 1) {
        p_strWhy = "not an IPv4 address: " + d.config.strBindAddress;
        ::close(d.fd);
        d.fd = -1;
        return false;
    }
    if (::bind(d.fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        p_strWhy = "cannot bind UDP " + d.config.strBindAddress + ":" +
                   std::to_string(d.config.nPort) + ": " + std::strerror(errno);
        ::close(d.fd);
        d.fd = -1;
        return false;
    }
    socklen_t nLen = sizeof(addr);
    ::getsockname(d.fd, reinterpret_cast<sockaddr*>(&addr), &nLen);
    m_nPort = ntohs(addr.sin_port);
    if (d.config.bJoinGroup) {
        ip_mreq group{};
        ::inet_pton(AF_INET, kDiscoveryGroup, &group.imr_multiaddr);
        group.imr_interface.s_addr = htonl(INADDR_ANY);
        if (::setsockopt(d.fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof(group)) != 0)
            d.config.log(std::string("sensorctl discovery: cannot join ") + kDiscoveryGroup + " (" +
                         std::strerror(errno) + "): unicast Probes only");
    }
    if (::pipe2(d.wake, O_CLOEXEC) != 0) {
        p_strWhy = std::strerror(errno);
        ::close(d.fd);
        d.fd = -1;
        return false;
    }
    d.readLocalAddresses();
    d.dTokens = d.config.dBurst;
    d.dRefilled = d.config.clock();
    d.bRunning = true;
    if (d.config.bAnnounce && d.mode.load() == DiscoveryMode::Discoverable)
        d.announce(true);
    // Changed scopes are new metadata: a discoverable camera says Hello again.
    if (d.config.pScopes && d.config.bAnnounce)
        d.config.pScopes->onChange([&d] {
            if (d.bRunning.load() && d.mode.load() == DiscoveryMode::Discoverable)
                d.announce(true);
        });
    d.thread = std::thread([&d] { d.run(); });
    return true;
}

void DiscoveryService::stop() {
    Impl& d = *m_pImpl;
    if (!d.bRunning.exchange(false))
        return;
    if (d.config.pScopes && d.config.bAnnounce)
        d.config.pScopes->onChange(nullptr);
    const char ch = 0;
    (void)::write(d.wake[1], &ch, 1);
    d.thread.join();
    if (d.config.bAnnounce && d.mode.load() == DiscoveryMode::Discoverable)
        d.announce(false);
    {
        std::lock_guard<std::mutex> lock(d.sendMutex);
        ::close(d.fd);
        d.fd = -1;
    }
    ::close(d.wake[0]);
    ::close(d.wake[1]);
    d.wake[0] = d.wake[1] = -1;
}

DiscoveryMode DiscoveryService::discoveryMode() const {
    return m_pImpl->mode.load();
}

void DiscoveryService::setDiscoveryMode(DiscoveryMode p_eMode) {
    Impl& d = *m_pImpl;
    const DiscoveryMode eOld = d.mode.exchange(p_eMode);
    if (eOld != p_eMode && d.config.bAnnounce && d.bRunning.load())
        d.announce(p_eMode == DiscoveryMode::Discoverable);
}

DiscoveryService::Counters DiscoveryService::counters() const {
    std::lock_guard<std::mutex> lock(m_pImpl->countMutex);
    return m_pImpl->counts;
}

} // namespace sensorctl
