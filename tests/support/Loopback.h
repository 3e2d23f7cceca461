// Plain sockets to a server of ours on the loopback interface, every wait
// bounded, for tests that must send what a well-behaved client never would.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
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

} // namespace testsupport
