// The web console's picture service: the live picture as MJPEG
// (GET /video.mjpg), a still (GET /snapshot.jpg), the picture's read-out
// (GET /api/picture) and the scene the virtual sensor films (POST /api/light,
// /api/fog, /api/shake, /api/size).
//
// Each stream viewer holds its own subscription to the channel's virtual
// sensor, so frames are rendered only while someone watches, and a viewer who
// leaves ends it. A viewer keeps one frame waiting at most: a slow one skips
// frames instead of queueing them. At most kMaxViewers streams run at once;
// more are refused with 503 so that the server's threads stay free for the
// settings API.
#pragma once

#include <cstddef>
#include <memory>

namespace httplib {
class Server;
}

namespace sensorctl {

class Camera;
class WebAuth;

class VideoService {
public:
    static constexpr size_t kMaxViewers = 8;

    explicit VideoService(Camera& camera);
    // Ends every subscription still open.
    ~VideoService();
    VideoService(const VideoService&) = delete;
    VideoService& operator=(const VideoService&) = delete;

    // Adds the paths to the server, each behind auth (which must outlive the
    // server's use of them). The server ends the streams when it stops
    // (between two frames), before it joins its threads.
    void install(httplib::Server& server, const WebAuth& auth);

    // Bounds a socket's kernel send buffer, so that a stalled viewer holds
    // about one frame in the kernel before frames are skipped. The server's
    // one socket-options hook calls it for the listening socket, whose
    // accepted connections take it.
    static void boundSendBuffer(int sock);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

} // namespace sensorctl
