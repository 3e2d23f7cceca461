#include "VideoService.h"

#ifdef SENSORCTL_HAVE_VIDEO

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "Camera.h"
#include "WebAuth.h"
#include "PictureVerbs.h"
#include "ToolInput.h"
#include "controller/SensorKeys.h"
#include "sim/SimIsp.h"
#include "SceneInput.h"
#include "sim/VirtualSensor.h"

namespace sensorctl {

namespace {

using nlohmann::json;

// A stream frame is looked at once and replaced: a lighter quality than a
// snapshot's keeps the stream within a loopback's and a phone's means.
constexpr int kStreamQuality = 75;
constexpr const char* kBoundary = "sensorctlframe";
// How long a viewer waits for a frame before looking again; the server ends
// a stream between two looks when it stops.
// The kernel's send buffer of every connection (accepted sockets take the
// listening socket's): without a bound a stalled viewer's socket would grow
// to megabytes of frames before the server sees it is slow.
constexpr int kSendBufferBytes = 128 * 1024;
constexpr auto kViewerPoll = std::chrono::milliseconds(200);

void sendJson(httplib::Response& res, const json& body, int status = 200) {
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(body.dump() + "\n", "application/json");
}

void sendError(httplib::Response& res, int status, const std::string& reason) {
    sendJson(res, json{{"error", reason}}, status);
}

// Read-outs to a precision a person reads; the JSON stays short.
double rounded(double value, int digits) {
    const double scale = std::pow(10.0, digits);
    return std::round(value * scale) / scale;
}

// One encoded frame, shared by every viewer that sends it.
struct Encoded {
    uint64_t number = 0;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> jpeg;
};

} // namespace

struct VideoService::Impl {
    // One stream viewer: its subscription and the one frame waiting for it.
    struct Viewer {
        int nHandle = 0;
        std::mutex mutex;
        std::condition_variable cv;
        std::shared_ptr<const Encoded> pending;
    };

    explicit Impl(Camera& camera) : m_camera(camera) {}

    sim::VirtualSensor& sensor() { return sim::VirtualSensor::forChannel(m_camera.ispChannel()); }

    // The sensor's thread calls every viewer's callback for each frame in
    // turn: the first encodes it, the others share the result.
    std::shared_ptr<const Encoded> encodedFrame(const sim::Frame& frame) {
        std::lock_guard<std::mutex> lock(m_encodeMutex);
        if (m_pLastEncoded && m_pLastEncoded->number == frame.number &&
            m_pLastEncoded->width == frame.width && m_pLastEncoded->height == frame.height)
            return m_pLastEncoded;
        auto pEncoded = std::make_shared<Encoded>();
        pEncoded->number = frame.number;
        pEncoded->width = frame.width;
        pEncoded->height = frame.height;
        std::string strError;
        if (!sim::encodeJpeg(frame, kStreamQuality, pEncoded->jpeg, strError))
            return nullptr;
        m_pLastEncoded = pEncoded;
        return m_pLastEncoded;
    }

    // A new viewer with its subscription; nullptr when kMaxViewers watch.
    std::shared_ptr<Viewer> admit() {
        std::lock_guard<std::mutex> lock(m_viewersMutex);
        if (m_bStopping || m_viewers.size() >= kMaxViewers)
            return nullptr;
        auto pViewer = std::make_shared<Viewer>();
        Viewer* pRaw = pViewer.get();
        // The callback never takes m_viewersMutex: unsubscribe, which waits
        // for a callback in progress, may be called under it.
        pViewer->nHandle = sensor().subscribe([this, pRaw](const sim::Frame& frame) {
            std::shared_ptr<const Encoded> pEncoded = encodedFrame(frame);
            if (!pEncoded)
                return;
            std::lock_guard<std::mutex> viewerLock(pRaw->mutex);
            if (pRaw->pending)
                ++m_nDropped;
            pRaw->pending = std::move(pEncoded);
            pRaw->cv.notify_one();
        });
        m_viewers.insert(pViewer);
        return pViewer;
    }

    void leave(const std::shared_ptr<Viewer>& pViewer) {
        std::lock_guard<std::mutex> lock(m_viewersMutex);
        if (m_viewers.erase(pViewer) == 0)
            return;
        sensor().unsubscribe(pViewer->nHandle);
    }

    // Sends the next frame to a viewer. false ends the stream: the viewer
    // left (the write failed) or the server stops.
    bool pump(Viewer& viewer, httplib::DataSink& sink) {
        std::shared_ptr<const Encoded> pFrame;
        {
            std::unique_lock<std::mutex> lock(viewer.mutex);
            viewer.cv.wait_for(lock, kViewerPoll,
                               [&] { return viewer.pending != nullptr || m_bStopping; });
            if (m_bStopping)
                return false;
            if (!viewer.pending)
                return sink.is_writable();
            pFrame = std::move(viewer.pending);
        }
        const std::string strHead = std::string("--") + kBoundary +
                                    "\r\nContent-Type: image/jpeg\r\nContent-Length: " +
                                    std::to_string(pFrame->jpeg.size()) + "\r\n\r\n";
        return sink.write(strHead.data(), strHead.size()) &&
               sink.write(reinterpret_cast<const char*>(pFrame->jpeg.data()),
                          pFrame->jpeg.size()) &&
               sink.write("\r\n", 2);
    }

    void stopStreams() {
        std::lock_guard<std::mutex> lock(m_viewersMutex);
        m_bStopping = true;
        for (const auto& pViewer : m_viewers) {
            std::lock_guard<std::mutex> viewerLock(pViewer->mutex);
            pViewer->cv.notify_all();
        }
    }

    void endAll() {
        std::lock_guard<std::mutex> lock(m_viewersMutex);
        for (const auto& pViewer : m_viewers)
            sensor().unsubscribe(pViewer->nHandle);
        m_viewers.clear();
    }

    size_t viewerCount() {
        std::lock_guard<std::mutex> lock(m_viewersMutex);
        return m_viewers.size();
    }

    void getStream(const httplib::Request&, httplib::Response& res) {
        if (!sim::jpegAvailable()) {
            sendError(res, 503, "this build has no JPEG encoder");
            return;
        }
        std::shared_ptr<Viewer> pViewer = admit();
        if (!pViewer) {
            res.set_header("Retry-After", "2");
            sendError(res, 503,
                      "the picture has " + std::to_string(kMaxViewers) +
                          " viewers already; try again later");
            return;
        }
        res.set_header("Cache-Control", "no-store");
        res.set_content_provider(
            std::string("multipart/x-mixed-replace; boundary=") + kBoundary,
            [this, pViewer](size_t, httplib::DataSink& sink) { return pump(*pViewer, sink); },
            [this, pViewer](bool) { leave(pViewer); });
    }

    void getSnapshot(const httplib::Request&, httplib::Response& res) {
        const sim::Frame frame = sensor().renderFrame();
        std::vector<uint8_t> jpeg;
        std::string strError;
        if (!sim::encodeJpeg(frame, kSnapshotQuality, jpeg, strError)) {
            sendError(res, 503, strError);
            return;
        }
        res.set_header("Cache-Control", "no-store");
        res.set_content(std::string(jpeg.begin(), jpeg.end()), "image/jpeg");
    }

    // A controller value from its cache (no ISP call, nothing in the trace);
    // -1 when the controller has none.
    int cachedValue(SensorKey key) {
        int nValue = -1;
        if (!m_camera.controller().getParameter(key, nValue))
            nValue = -1;
        return nValue;
    }

    // What the ISP holds for a key's command (what lights the scene), else
    // the controller's value.
    int ispValue(SensorKey key) {
        uint32_t nValue = 0;
        if (sim::Isp::instance().getValue(m_camera.ispChannel(), sensor_keys::commandOf(key),
                                          nValue))
            return static_cast<int>(nValue);
        return cachedValue(key);
    }

    void getPicture(const httplib::Request&, httplib::Response& res) {
        sim::VirtualSensor& s = sensor();
        // While a stream runs its frames are fresh; otherwise draw one now.
        sim::Frame frame = s.subscriberCount() > 0 ? s.latestFrame() : sim::Frame();
        if (frame.width == 0)
            frame = s.renderFrame();
        const sim::FrameStats stats = sim::measureFrame(frame);
        const int nChannel = m_camera.ispChannel();
        const sim::Isp& isp = sim::Isp::instance();
        const bool bNight = isp.dayNightState(nChannel) != 0;

        json histogram = json::array();
        for (const uint32_t n : stats.histogram)
            histogram.push_back(n);
        const json body = {
            {"frame", {{"number", frame.number}, {"width", frame.width}, {"height", frame.height}}},
            {"stats",
             {{"mean", rounded(stats.mean, 2)},
              {"channels",
               {rounded(stats.channelMean[0], 2), rounded(stats.channelMean[1], 2),
                rounded(stats.channelMean[2], 2)}},
              {"colourfulness", rounded(stats.colourfulness, 2)},
              {"sharpness", rounded(stats.sharpness, 2)},
              {"noise", rounded(stats.noise, 3)},
              {"clipped", rounded(stats.clipped, 4)}}},
            {"histogram", histogram},
            {"light",
             {{"lux", rounded(frame.lux, 2)},
              {"follows_clock", s.followsDayCurve()},
              {"level", rounded(sim::VirtualSensor::lightLevelOf(frame.lux), 2)},
              {"measured", rounded(s.measuredLightLevel(), 2)},
              {"day_to_night", cachedValue(KEY_DTN_THR)},
              {"night_to_day", cachedValue(KEY_NTD_THR)},
              {"dn_mode", cachedValue(KEY_DN_MODE)},
              {"state", bNight ? "night" : "day"},
              {"forced", isp.dayNightForced(nChannel)}}},
            {"exposure",
             {{"mode", cachedValue(KEY_EXPOSE_MODE)},
              {"shutter", frame.shutter},
              {"shutter_text", shutterText(frame.shutter)},
              {"gain", frame.gain},
              {"iris", frame.iris},
              {"level", rounded(frame.measuredLevel, 4)}}},
            {"ircut", frame.irCutOut ? "out" : "in"},
            {"ir", {{"on", ispValue(KEY_IR_SWITCH) == 1}, {"mode", cachedValue(KEY_IR_MODE)}}},
            {"white_light",
             {{"on", ispValue(KEY_WHITE_SWITCH) == 1}, {"mode", cachedValue(KEY_WHITE_MODE)}}},
            {"scene", {{"fog", rounded(s.fog(), 3)}, {"shake", rounded(s.shake(), 2)}}},
            {"stream",
             {{"viewers", viewerCount()},
              {"dropped", m_nDropped.load()},
              {"max_viewers", kMaxViewers},
              {"subscribers", s.subscriberCount()},
              {"frame_rate", rounded(s.frameRate(), 2)}}},
        };
        sendJson(res, body);
    }

    // The scene the sensor films. Bodies are plain text like the settings
    // API's: a number, "clock" for the light, WIDTHxHEIGHT for the size.
    void postScene(const httplib::Request& req, httplib::Response& res, SceneValue which) {
        std::string strError;
        sim::VirtualSensor& s = sensor();
        if (!setSceneValue(s, which, withoutBlanks(req.body).strText, strError)) {
            sendError(res, 400, strError);
            return;
        }
        switch (which) {
            case SceneValue::Light:
                sendJson(res, {{"lux", rounded(s.illuminance(), 2)},
                               {"follows_clock", s.followsDayCurve()}});
                return;
            case SceneValue::Fog:
                sendJson(res, {{"fog", rounded(s.fog(), 3)}});
                return;
            case SceneValue::Shake:
                sendJson(res, {{"shake", rounded(s.shake(), 3)}});
                return;
        }
    }

    void postSize(const httplib::Request& req, httplib::Response& res) {
        std::string strError;
        if (!setSceneSize(sensor(), withoutBlanks(req.body).strText, strError)) {
            sendError(res, 400, strError);
            return;
        }
        sendJson(res, {{"width", sensor().width()}, {"height", sensor().height()}});
    }

    Camera& m_camera;
    std::mutex m_encodeMutex;
    std::shared_ptr<const Encoded> m_pLastEncoded;
    std::mutex m_viewersMutex;
    std::set<std::shared_ptr<Viewer>> m_viewers;
    std::atomic<bool> m_bStopping{false};
    // Frames skipped for slow viewers since serve started.
    std::atomic<uint64_t> m_nDropped{0};
};

VideoService::VideoService(Camera& camera) : m_pImpl(new Impl(camera)) {}

VideoService::~VideoService() {
    m_pImpl->stopStreams();
    m_pImpl->endAll();
}

void VideoService::install(httplib::Server& server, const WebAuth& auth) {
    Impl* p = m_pImpl.get();
    const WebAuth* pAuth = &auth;
    using Handler = void (Impl::*)(const httplib::Request&, httplib::Response&);
    const auto bind = [p, pAuth](Handler h) {
        return [p, pAuth, h](const httplib::Request& req, httplib::Response& res) {
            if (pAuth->admit(req, res))
                (p->*h)(req, res);
        };
    };
    // The other method on a path of ours gets 405 with the one it takes.
    const auto wrongMethod = [](const char* szAllow) {
        return [szAllow](const httplib::Request& req, httplib::Response& res) {
            res.set_header("Allow", szAllow);
            sendError(res, 405, req.path + " takes " + szAllow);
        };
    };
    server.Get("/video.mjpg", bind(&Impl::getStream));
    server.Get("/snapshot.jpg", bind(&Impl::getSnapshot));
    server.Get("/api/picture", bind(&Impl::getPicture));
    server.Post("/api/picture", wrongMethod("GET"));
    const auto scene = [p, pAuth](SceneValue which) {
        return [p, pAuth, which](const httplib::Request& req, httplib::Response& res) {
            if (pAuth->admit(req, res))
                p->postScene(req, res, which);
        };
    };
    server.Post("/api/light", scene(SceneValue::Light));
    server.Post("/api/fog", scene(SceneValue::Fog));
    server.Post("/api/shake", scene(SceneValue::Shake));
    server.Post("/api/size", bind(&Impl::postSize));
    for (const char* szPath : {"/api/light", "/api/fog", "/api/shake", "/api/size"})
        server.Get(szPath, wrongMethod("POST"));
}

void VideoService::boundSendBuffer(int sock) {
    const int nBytes = kSendBufferBytes;
    ::setsockopt(sock, SOL_SOCKET, SO_SNDBUF, &nBytes, sizeof(nBytes));
}

} // namespace sensorctl

#else

namespace sensorctl {

struct VideoService::Impl {};
VideoService::VideoService(Camera&) {}
VideoService::~VideoService() = default;
void VideoService::install(httplib::Server&, const WebAuth&) {}
void VideoService::boundSendBuffer(int) {}

} // namespace sensorctl

#endif
