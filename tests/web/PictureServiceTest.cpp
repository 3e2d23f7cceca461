// The web console's picture service over real HTTP: the snapshot, the
// picture's read-out, the scene's bad input, the MJPEG stream, a viewer who
// leaves, a hundred viewers at once and a stop while one watches. Each test
// starts its own `sensorctl serve` on a free loopback port.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/Loopback.h"
#include "tests/support/ServeProcess.h"

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

using testsupport::sendAll;

// Reads until the text holds needle count times, the peer closes, or the
// deadline passes.
std::string readUntil(int fd, const std::string& needle, int count, std::chrono::seconds limit) {
    std::string raw;
    const auto deadline = Clock::now() + limit;
    char buf[65536];
    for (;;) {
        int nFound = 0;
        for (size_t at = raw.find(needle); at != std::string::npos;
             at = raw.find(needle, at + needle.size()))
            ++nFound;
        if (nFound >= count || Clock::now() > deadline)
            return raw;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 200) <= 0)
            continue;
        const ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
        if (n <= 0)
            return raw;
        raw.append(buf, static_cast<size_t>(n));
    }
}

using Reply = testsupport::HttpReply;

// One request on its own connection, the whole answer (the server closes).
Reply roundTrip(int port, const std::string& method, const std::string& path,
                const std::string& body = "") {
    const int fd = testsupport::connectLoopback(port);
    if (fd < 0)
        return Reply();
    std::string req = method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    if (method == "POST")
        req +=
            "Content-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    sendAll(fd, req + "\r\n" + body);
    const std::string raw = readUntil(fd, "\x01never", 1, std::chrono::seconds(10));
    ::close(fd);
    return testsupport::parseHttpReply(raw);
}

class PictureService : public ::testing::Test {
protected:
    void SetUp() override {
        if (!SENSORCTL_HAS_SERVE)
            GTEST_SKIP() << "sensorctl was built without cpp-httplib: no web console here";
        std::string strError;
        ASSERT_TRUE(m_serve.start({"--time-scale", "0.1"}, strError)) << strError;
        m_nPort = m_serve.port();
    }

    Reply get(const std::string& path) { return roundTrip(m_nPort, "GET", path); }
    Reply post(const std::string& path, const std::string& body) {
        return roundTrip(m_nPort, "POST", path, body);
    }
    json picture() {
        const Reply r = get("/api/picture");
        EXPECT_EQ(r.status, 200) << r.body;
        return json::parse(r.body, nullptr, false);
    }
    // Waits (at most 10 s) until nobody is subscribed to the sensor.
    bool subscriptionsEnd() {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (Clock::now() < deadline) {
            const json p = picture();
            if (p.is_object() && p["stream"]["subscribers"] == 0 && p["stream"]["viewers"] == 0)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }
    int openStream() {
        const int fd = testsupport::connectLoopback(m_nPort);
        if (fd >= 0)
            sendAll(fd, "GET /video.mjpg HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
        return fd;
    }

    testsupport::ServeProcess m_serve;
    int m_nPort = 0;
};

TEST_F(PictureService, SnapshotIsAJpeg) {
    const Reply r = get("/snapshot.jpg");
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_NE(r.headers.find("Content-Type: image/jpeg"), std::string::npos);
    // A JPEG starts with the start-of-image marker and ends with end-of-image.
    ASSERT_GT(r.body.size(), 4u);
    EXPECT_EQ(static_cast<unsigned char>(r.body[0]), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(r.body[1]), 0xD8);
    EXPECT_EQ(static_cast<unsigned char>(r.body[r.body.size() - 2]), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(r.body[r.body.size() - 1]), 0xD9);
}

TEST_F(PictureService, ReadoutCountsEveryPixelAndNamesTheThresholds) {
    const json p = picture();
    ASSERT_TRUE(p.is_object());
    EXPECT_EQ(p["frame"]["width"], 1280);
    EXPECT_EQ(p["frame"]["height"], 720);
    ASSERT_EQ(p["histogram"].size(), 256u);
    uint64_t nPixels = 0;
    for (const auto& n : p["histogram"])
        nPixels += n.get<uint64_t>();
    EXPECT_EQ(nPixels, 1280u * 720u);
    // The sample style's day-to-night and night-to-day thresholds.
    EXPECT_EQ(p["light"]["day_to_night"], 20);
    EXPECT_EQ(p["light"]["night_to_day"], 40);
    EXPECT_TRUE(p["light"]["state"] == "day" || p["light"]["state"] == "night");
    EXPECT_TRUE(p["ircut"] == "in" || p["ircut"] == "out");
    EXPECT_TRUE(p["exposure"].contains("shutter"));
    EXPECT_TRUE(p["exposure"].contains("gain"));
    EXPECT_TRUE(p["ir"]["on"].is_boolean());
    EXPECT_TRUE(p["white_light"]["on"].is_boolean());
}

// The ISP meters the light on its own: with the scheme chosen by day/night
// and nobody asking for a picture (only the status is read), darkness turns
// the ISP and the scheme to night and daylight turns them back.
TEST_F(PictureService, DarkSceneTurnsTheIspAndTheSchemeToNightWithNobodyWatching) {
    // Scheme by day/night (key 8000, mode 2).
    ASSERT_EQ(post("/api/set", "(8000,2)").status, 200);
    ASSERT_EQ(post("/api/daynight", "auto").status, 200);
    const auto waitFor = [&](const std::string& state, int scheme) {
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        json s;
        while (Clock::now() < deadline) {
            s = json::parse(get("/api/status").body, nullptr, false);
            if (s.is_object() && s["daynight"] == state && s["scheme"] == scheme)
                return s;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        ADD_FAILURE() << "still " << s.dump() << ", waiting for " << state << " and scheme "
                      << scheme;
        return s;
    };
    ASSERT_EQ(post("/api/light", "0.1").status, 200);
    json s = waitFor("night", 1);
    EXPECT_EQ(s["daynight_forced"], false);
    ASSERT_EQ(post("/api/light", "50000").status, 200);
    s = waitFor("day", 0);
    EXPECT_EQ(s["daynight_forced"], false);

    // A state set by hand holds against the light until handed back.
    Reply r = post("/api/daynight", "night");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(json::parse(r.body, nullptr, false), json({{"state", "night"}, {"forced", true}}));
    waitFor("night", 1);
    r = post("/api/daynight", "auto");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(json::parse(r.body, nullptr, false)["forced"], false);
    waitFor("day", 0);
    EXPECT_EQ(post("/api/daynight", "dusk").status, 400);
}

TEST_F(PictureService, LightIsSetAndFollowsTheClockAgain) {
    Reply r = post("/api/light", "250");
    ASSERT_EQ(r.status, 200) << r.body;
    json p = picture();
    EXPECT_EQ(p["light"]["lux"], 250.0);
    EXPECT_EQ(p["light"]["follows_clock"], false);
    r = post("/api/light", "clock");
    ASSERT_EQ(r.status, 200) << r.body;
    EXPECT_EQ(picture()["light"]["follows_clock"], true);
}

TEST_F(PictureService, SceneOutOfRangeIsRefusedAndTheCameraAnswers) {
    ASSERT_EQ(post("/api/light", "250").status, 200);
    ASSERT_EQ(post("/api/fog", "0.5").status, 200);
    ASSERT_EQ(post("/api/shake", "4").status, 200);
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"/api/light", "-1"},   {"/api/light", "200001"}, {"/api/light", "abc"},
        {"/api/light", "nan"},  {"/api/light", "1e999"},  {"/api/light", ""},
        {"/api/fog", "1.01"},   {"/api/fog", "-0.1"},     {"/api/fog", "thick"},
        {"/api/shake", "32.5"}, {"/api/shake", "-1"},     {"/api/shake", "inf"},
    };
    for (const auto& b : bad) {
        const Reply r = post(b.first, b.second);
        EXPECT_EQ(r.status, 400) << b.first << " " << b.second << ": " << r.body;
        const json e = json::parse(r.body, nullptr, false);
        EXPECT_TRUE(e.is_object() && e["error"].is_string() &&
                    !e["error"].get<std::string>().empty())
            << r.body;
    }
    const json p = picture();
    EXPECT_EQ(p["light"]["lux"], 250.0);
    EXPECT_EQ(p["scene"]["fog"], 0.5);
    EXPECT_EQ(p["scene"]["shake"], 4.0);
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(PictureService, AbsurdFrameSizeIsRefusedAndTheSizeKept) {
    for (const char* szBad : {"100000x100000", "1922x1080", "14x16", "17x16", "0x0", "-2x4", "axb",
                              "640", "640x", "x360", "99999999999x2"}) {
        const Reply r = post("/api/size", szBad);
        EXPECT_EQ(r.status, 400) << szBad << ": " << r.body;
    }
    json p = picture();
    EXPECT_EQ(p["frame"]["width"], 1280);
    EXPECT_EQ(p["frame"]["height"], 720);
    ASSERT_EQ(post("/api/size", "640x360").status, 200);
    p = picture();
    EXPECT_EQ(p["frame"]["width"], 640);
    EXPECT_EQ(p["frame"]["height"], 360);
}

TEST_F(PictureService, WrongMethodIsRefusedWithTheOneToUse) {
    const Reply r = get("/api/light");
    EXPECT_EQ(r.status, 405);
    EXPECT_NE(r.headers.find("Allow: POST"), std::string::npos);
    EXPECT_EQ(post("/api/picture", "").status, 405);
}

TEST_F(PictureService, StreamSendsJpegPartsAndEndsItsSubscriptionWhenTheViewerLeaves) {
    ASSERT_EQ(post("/api/size", "320x180").status, 200);
    const int fd = openStream();
    ASSERT_GE(fd, 0);
    const std::string raw = readUntil(fd, "--sensorctlframe\r\n", 3, std::chrono::seconds(20));
    EXPECT_EQ(raw.compare(0, 12, "HTTP/1.1 200"), 0) << raw.substr(0, 200);
    EXPECT_NE(raw.find("Content-Type: multipart/x-mixed-replace; boundary=sensorctlframe"),
              std::string::npos);
    const size_t nPart =
        raw.find("--sensorctlframe\r\nContent-Type: image/jpeg\r\nContent-Length: ");
    ASSERT_NE(nPart, std::string::npos);
    const size_t nData = raw.find("\r\n\r\n", nPart) + 4;
    EXPECT_EQ(static_cast<unsigned char>(raw[nData]), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(raw[nData + 1]), 0xD8);
    EXPECT_EQ(picture()["stream"]["viewers"], 1);
    // Leaves mid-stream: the subscription ends with it.
    ::close(fd);
    EXPECT_TRUE(subscriptionsEnd());
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(PictureService, SlowViewerSkipsFramesInsteadOfQueueingThem) {
    // Large frames into a small receive buffer that nobody reads: the
    // socket fills within a few frames, and the server must skip the rest.
    ASSERT_EQ(post("/api/size", "640x360").status, 200);
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    const int nSmall = 4096;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &nSmall, sizeof(nSmall));
    timeval tv{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(m_nPort));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_TRUE(sendAll(fd, "GET /video.mjpg HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    uint64_t nDropped = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (nDropped < 3 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        const json p = picture();
        if (p.is_object())
            nDropped = p["stream"]["dropped"].get<uint64_t>();
    }
    EXPECT_GE(nDropped, 3u) << "a viewer that does not read kept every frame";
    // Once it reads again, the stream goes on.
    const std::string raw = readUntil(fd, "--sensorctlframe\r\n", 3, std::chrono::seconds(20));
    EXPECT_EQ(raw.compare(0, 12, "HTTP/1.1 200"), 0);
    ::close(fd);
    EXPECT_TRUE(subscriptionsEnd());
}

TEST_F(PictureService, HundredViewersAtOnceAreServedOrRefused) {
    ASSERT_EQ(post("/api/size", "160x90").status, 200);
    std::vector<int> fds;
    for (int i = 0; i < 100; ++i) {
        const int fd = openStream();
        ASSERT_GE(fd, 0) << "connection " << i;
        fds.push_back(fd);
    }
    // Viewers whose writes stall past the server's limit leave, and later
    // connections may take their places: the bound is on viewers at once.
    int nServed = 0, nRefused = 0, nMostAtOnce = 0, nLooked = 0;
    for (const int fd : fds) {
        if (nLooked++ % 10 == 0) {
            const json p = picture();
            if (p.is_object())
                nMostAtOnce = std::max(nMostAtOnce, p["stream"]["viewers"].get<int>());
        }
        const std::string raw = readUntil(fd, "\r\n\r\n", 1, std::chrono::seconds(20));
        if (raw.compare(0, 12, "HTTP/1.1 200") == 0)
            ++nServed;
        else if (raw.compare(0, 12, "HTTP/1.1 503") == 0 &&
                 raw.find("Retry-After: ") != std::string::npos)
            ++nRefused;
    }
    EXPECT_EQ(nServed + nRefused, 100);
    EXPECT_GE(nServed, 1);
    EXPECT_GE(nRefused, 1);
    EXPECT_GE(nMostAtOnce, 1);
    EXPECT_LE(nMostAtOnce, 8);
    // The settings API answers while the streams run.
    EXPECT_EQ(get("/api/status").status, 200);
    for (const int fd : fds)
        ::close(fd);
    EXPECT_TRUE(subscriptionsEnd());
}

TEST_F(PictureService, ServerStopsCleanlyWhileAViewerWatches) {
    ASSERT_EQ(post("/api/size", "160x90").status, 200);
    const int fd = openStream();
    ASSERT_GE(fd, 0);
    const std::string raw = readUntil(fd, "--sensorctlframe\r\n", 1, std::chrono::seconds(20));
    ASSERT_NE(raw.find("--sensorctlframe"), std::string::npos);
    const int nStatus = m_serve.stop(SIGTERM);
    ::close(fd);
    ASSERT_NE(nStatus, -1) << "serve did not stop while a viewer watched";
    EXPECT_TRUE(WIFEXITED(nStatus));
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
}

} // namespace
