// Plain sockets to a server of ours on the loopback interface, every wait
// bounded, for tests that must send what a well-behaved client never would.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace testsupport {

// A connection to 127.0.0.1:port with 10 s send and receive timeouts; -1
// when none can be made.
inline int connectLoopback(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return -1;
    timeval tv{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Sends every byte; false when the peer stopped taking them.
inline bool sendAll(int fd, const std::string& data) {
    size_t nSent = 0;
    while (nSent < data.size()) {
        const ssize_t n = ::send(fd, data.data() + nSent, data.size() - nSent, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        nSent += static_cast<size_t>(n);
    }
    return true;
}

// One HTTP answer as the wire carried it.
struct HttpReply {
    int status = 0; // 0: no answer at all
    std::string headers;
    std::string body;
};

// Splits a whole answer; status 0 when it is not one.
inline HttpReply parseHttpReply(const std::string& raw) {
    HttpReply reply;
    const size_t nHeadEnd = raw.find("\r\n\r\n");
    if (raw.compare(0, 9, "HTTP/1.1 ") != 0 || nHeadEnd == std::string::npos)
        return reply;
    reply.status = std::atoi(raw.c_str() + 9);
    reply.headers = raw.substr(0, nHeadEnd);
    reply.body = raw.substr(nHeadEnd + 4);
    return reply;
}

} // namespace testsupport
