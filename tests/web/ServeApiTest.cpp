// sensorctl serve over real HTTP: each test starts the simulated camera's
// server on a free loopback port and talks to it with a plain socket client,
// so that it can send what a browser never would.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/ServeProcess.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Reply {
    int status = 0; // 0: no answer at all
    std::string headers;
    std::string body;
};

// One request on its own connection: raw bytes out, one answer back. Bounded by a 10 s receive
// timeout.
Reply roundTrip(int port, const std::string& request) {
    Reply reply;
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return reply;
    timeval tv{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        ::close(fd);
        return reply;
    }
    size_t nSent = 0;
    while (nSent < request.size()) {
        const ssize_t n = ::send(fd, request.data() + nSent, request.size() - nSent, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        nSent += static_cast<size_t>(n);
    }
    // Read one whole answer: a request without "Connection: close" would
    // otherwise wait out the server's keep-alive time.
    std::string raw;
    char buf[4096];
    for (;;) {
        const size_t nEnd = raw.find("\r\n\r\n");
        if (nEnd != std::string::npos) {
            std::smatch m;
            const std::string strHead = raw.substr(0, nEnd);
            if (std::regex_search(strHead, m, std::regex("Content-Length: ([0-9]+)")) &&
                raw.size() >= nEnd + 4 + std::stoul(m[1]))
                break;
        }
        const ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
        if (n <= 0)
            break;
        raw.append(buf, static_cast<size_t>(n));
    }
    ::close(fd);
    const size_t nHeadEnd = raw.find("\r\n\r\n");
    if (raw.compare(0, 9, "HTTP/1.1 ") != 0 || nHeadEnd == std::string::npos)
        return reply;
    reply.status = std::atoi(raw.c_str() + 9);
    reply.headers = raw.substr(0, nHeadEnd);
    reply.body = raw.substr(nHeadEnd + 4);
    return reply;
}

std::string request(const std::string& method, const std::string& path, const std::string& body,
                    bool withBody) {
    std::string r = method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    if (withBody)
        r += "Content-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    return r + "\r\n" + body;
}

class ServeApi : public ::testing::Test {
protected:
    void SetUp() override {
        if (!SENSORCTL_HAS_SERVE)
            GTEST_SKIP() << "sensorctl was built without cpp-httplib: no web console here";
        start({});
    }

    // serve on a scaled clock, so that its worker's rounds come quickly.
    void start(const std::vector<std::string>& extra) {
        std::vector<std::string> args = {"--time-scale", "0.01"};
        args.insert(args.end(), extra.begin(), extra.end());
        std::string strError;
        ASSERT_TRUE(m_serve.start(args, strError)) << strError;
        m_nPort = m_serve.port();
    }

    Reply get(const std::string& path) {
        return roundTrip(m_nPort, request("GET", path, "", false));
    }
    Reply post(const std::string& path, const std::string& body) {
        return roundTrip(m_nPort, request("POST", path, body, true));
    }

    // The status field "name":value of a flat JSON answer.
    static std::string field(const std::string& json, const std::string& name) {
        const std::regex re("\"" + name + "\":(\"[^\"]*\"|-?[0-9]+|true|false|null)");
        std::smatch m;
        return std::regex_search(json, m, re) ? m[1].str() : "";
    }

    testsupport::ServeProcess m_serve;
    int m_nPort = 0;
};

TEST_F(ServeApi, PageIsServedAtTheRoot) {
    const Reply r = get("/");
    EXPECT_EQ(r.status, 200);
    EXPECT_NE(r.headers.find("text/html"), std::string::npos);
    EXPECT_NE(r.body.find("<title>Image settings"), std::string::npos);
    // Nothing is fetched from elsewhere.
    EXPECT_EQ(r.body.find("http://"), std::string::npos);
    EXPECT_EQ(r.body.find("https://"), std::string::npos);
}

TEST_F(ServeApi, StyleIsTheControllersDocumentWithItsTabs) {
    const Reply r = get("/api/style");
    EXPECT_EQ(r.status, 200);
    EXPECT_NE(r.headers.find("application/xml"), std::string::npos);
    EXPECT_NE(r.body.find("<sensorStyle"), std::string::npos);
    EXPECT_NE(r.body.find("name=\"Image\""), std::string::npos);
    EXPECT_NE(r.body.find("id=\"34\""), std::string::npos);
    // Withdrawn while wide dynamic range is available: the notice item 10.
    EXPECT_EQ(r.body.find("id=\"10\""), std::string::npos);
}

TEST_F(ServeApi, ParamsListTheWholeSchemeOrTheKeysAsked) {
    const Reply all = get("/api/params");
    EXPECT_EQ(all.status, 200);
    EXPECT_EQ(all.body.rfind("(8000,", 0), 0u) << all.body;
    EXPECT_NE(all.body.find("(34,"), std::string::npos);

    const Reply some = get("/api/params?ids=(34,2337)");
    EXPECT_EQ(some.status, 200);
    EXPECT_TRUE(std::regex_match(some.body, std::regex("\\(34,-?[0-9]+\\)\\(2337,-?[0-9]+\\)")))
        << some.body;

    for (const char* bad : {"/api/params?ids=34", "/api/params?ids=()", "/api/params?ids=(34)(1)",
                            "/api/params?ids=(3x)"}) {
        const Reply r = get(bad);
        EXPECT_EQ(r.status, 400) << bad;
        EXPECT_NE(r.body.find("\"error\""), std::string::npos) << bad;
    }
}

TEST_F(ServeApi, SetAppliesAtOnceAndTheIspSeesTheCommand) {
    get("/api/trace"); // start-up's calls are behind us
    const Reply r = post("/api/set", "(34,61)(2337,72)");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(field(r.body, "result"), "0");
    EXPECT_EQ(field(r.body, "values"), "\"(34,61)(2337,72)\"");

    const Reply trace = get("/api/trace");
    EXPECT_NE(trace.body.find("\"cmd\":34,\"opt\":0,\"val\":[61],\"ret\":0"), std::string::npos)
        << trace.body;
    EXPECT_NE(trace.body.find("\"cmd\":2337,\"opt\":0,\"val\":[72]"), std::string::npos);
    EXPECT_EQ(get("/api/params?ids=(34)").body, "(34,61)");
}

TEST_F(ServeApi, TraceWithoutCursorGivesWhatCameSinceTheLastCall) {
    get("/api/trace");
    post("/api/set", "(34,44)");
    const Reply first = get("/api/trace");
    EXPECT_NE(first.body.find("\"cmd\":34,\"opt\":0,\"val\":[44]"), std::string::npos);
    const std::string strNext = field(first.body, "next");
    post("/api/set", "(34,45)");
    const Reply second = get("/api/trace");
    EXPECT_EQ(second.body.find("\"val\":[44]"), std::string::npos) << second.body;
    EXPECT_NE(second.body.find("\"cmd\":34,\"opt\":0,\"val\":[45]"), std::string::npos);

    // With a cursor the same entries can be read again.
    const Reply again = get("/api/trace?since=" + strNext);
    EXPECT_NE(again.body.find("\"val\":[45]"), std::string::npos);
    EXPECT_EQ(get("/api/trace?since=-1").status, 400);
    EXPECT_EQ(get("/api/trace?since=x").status, 400);
}

TEST_F(ServeApi, SetThatTheIspRefusesReturnsTheKeyAndKeepsTheValue) {
    const std::string strBefore = get("/api/params?ids=(2353)").body;
    ASSERT_EQ(post("/api/fail", "2353 -1").status, 200);
    const Reply r = post("/api/set", "(2353,87)");
    EXPECT_EQ(field(r.body, "result"), "-2353");
    EXPECT_EQ(field(r.body, "values"), "\"" + strBefore + "\"");
    ASSERT_EQ(post("/api/fail", "2353 off").status, 200);
    EXPECT_EQ(field(post("/api/set", "(2353,87)").body, "result"), "0");
}

TEST_F(ServeApi, SetRefusesBodiesThatAreNotAPairList) {
    for (const char* bad : {"", "   ", "(34,60", "(34,x)", "34,60", "(34,60)junk", "(34 ,60)",
                            "(34,60)(", "(+34,60)", "(99999999999,1)", "(34,--1)", "()"}) {
        const Reply r = post("/api/set", bad);
        EXPECT_EQ(r.status, 400) << "body: " << bad;
        EXPECT_NE(r.body.find("\"error\""), std::string::npos) << "body: " << bad;
    }
    // Nothing of it reached the controller: the camera still answers.
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(ServeApi, BodiesOver64KiBAreRefused) {
    // The headers alone announce it: refused before a byte of body is read.
    const Reply r = roundTrip(m_nPort, "POST /api/set HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                       "Connection: close\r\nContent-Length: 70000\r\n\r\n");
    EXPECT_EQ(r.status, 413);
    EXPECT_NE(r.body.find("65536"), std::string::npos) << r.body;
    std::string strBig;
    while (strBig.size() <= 64 * 1024)
        strBig += "(34,60)";
    EXPECT_EQ(post("/api/set", strBig.substr(0, 64 * 1024)).status, 400); // cut mid-pair
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(ServeApi, UnknownPathsAre404AndWrongMethods405) {
    const Reply r = get("/api/nothing");
    EXPECT_EQ(r.status, 404);
    EXPECT_NE(r.body.find("no such path: /api/nothing"), std::string::npos);
    EXPECT_EQ(get("/etc/passwd").status, 404);
    EXPECT_EQ(post("/api/nothing", "1").status, 404);
    const Reply wrong = get("/api/set");
    EXPECT_EQ(wrong.status, 405);
    EXPECT_NE(wrong.headers.find("Allow: POST"), std::string::npos);
    EXPECT_EQ(post("/api/style", "x").status, 405);
}

TEST_F(ServeApi, SchemeSwitchesWithinTheSchemesAndRefusesOthers) {
    EXPECT_EQ(field(get("/api/scheme").body, "scheme"), "0");
    EXPECT_EQ(field(get("/api/scheme").body, "schemes"), "4");
    const Reply r = post("/api/scheme", "2");
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(field(r.body, "scheme"), "2");
    EXPECT_EQ(field(get("/api/scheme").body, "scheme"), "2");
    EXPECT_EQ(post("/api/scheme", "4").status, 200); // the factory slot
    for (const char* bad : {"5", "-1", "1x", "", "0x1", "2147483648"})
        EXPECT_EQ(post("/api/scheme", bad).status, 400) << bad;
    EXPECT_EQ(field(get("/api/scheme").body, "scheme"), "4");
}

TEST_F(ServeApi, ModeIsManualOrAutomaticOnly) {
    EXPECT_EQ(field(get("/api/mode").body, "mode"), "1");
    EXPECT_EQ(post("/api/mode", "0").status, 200);
    EXPECT_EQ(field(get("/api/mode").body, "mode"), "0");
    for (const char* bad : {"2", "-1", "manual", ""})
        EXPECT_EQ(post("/api/mode", bad).status, 400) << bad;
    EXPECT_EQ(field(get("/api/mode").body, "mode"), "0");
}

TEST_F(ServeApi, ClockTakesHoursAndMinutes) {
    EXPECT_EQ(post("/api/clock", "07:30\n").status, 200);
    EXPECT_EQ(field(get("/api/clock").body, "clock"), "\"07:30\"");
    for (const char* bad : {"24:00", "12:60", "7:3", "ab:cd", "07:30:00", "-1:00", ":30", ""})
        EXPECT_EQ(post("/api/clock", bad).status, 400) << bad;
    EXPECT_EQ(field(get("/api/status").body, "clock"), "\"07:30\"");
}

TEST_F(ServeApi, NightSwitchesADayNightSchemeToScheme1) {
    ASSERT_EQ(field(post("/api/set", "(8000,2)").body, "result"), "0");
    EXPECT_EQ(post("/api/daynight", "dusk").status, 400);
    ASSERT_EQ(post("/api/daynight", "night").status, 200);
    EXPECT_EQ(field(get("/api/daynight").body, "state"), "\"night\"");
    // The worker (scaled waits) sees night within a few rounds.
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    std::string strScheme;
    while (Clock::now() < deadline && (strScheme = field(get("/api/status").body, "scheme")) != "1")
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(strScheme, "1");
    EXPECT_NE(get("/api/trace?since=0").body.find("\"kind\":\"scheme\",\"from\":0,\"to\":1"),
              std::string::npos);
    ASSERT_EQ(post("/api/daynight", "day").status, 200);
    while (Clock::now() < deadline && (strScheme = field(get("/api/status").body, "scheme")) != "0")
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(strScheme, "0");
}

TEST_F(ServeApi, FlushThenLastRestoresTheSavedValueAndResetTheFactoryOne) {
    const std::string strFactory = get("/api/params?ids=(34)").body;
    post("/api/set", "(34,71)");
    EXPECT_EQ(field(post("/api/flush", "").body, "result"), "0");
    post("/api/set", "(34,22)");
    EXPECT_EQ(field(post("/api/last", "").body, "ok"), "true");
    EXPECT_EQ(get("/api/params?ids=(34)").body, "(34,71)");
    EXPECT_EQ(field(post("/api/reset", "").body, "ok"), "true");
    EXPECT_EQ(get("/api/params?ids=(34)").body, strFactory);
}

TEST_F(ServeApi, GarbageOnTheWireLeavesTheServerAnswering) {
    const std::string strJunk[] = {
        "\r\n\r\n",
        "GARBAGE\r\n\r\n",
        "POST /api/set HTTP/1.1\r\nContent-Length: -5\r\n\r\n(34,1)",
        "POST /api/set HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n",
        "GET /" + std::string(20000, 'a') + " HTTP/1.1\r\n\r\n",
        std::string("\0\xff\xfe GET / HTTP/1.1\r\n\r\n", 22),
        "POST /api/set HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n",
    };
    for (const std::string& junk : strJunk) {
        const Reply r = roundTrip(m_nPort, junk);
        EXPECT_TRUE(r.status == 0 || r.status >= 400) << r.status;
    }
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(ServeApi, SigtermEndsCleanlyAndRemovesTheTemporaryRoot) {
    const std::string strRoot = m_serve.root();
    ASSERT_FALSE(strRoot.empty());
    struct stat st;
    ASSERT_EQ(::stat(strRoot.c_str(), &st), 0);
    const int nStatus = m_serve.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(nStatus)) << m_serve.output();
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
    EXPECT_NE(::stat(strRoot.c_str(), &st), 0) << "root left behind: " << strRoot;
}

TEST_F(ServeApi, SigintWithKeepLeavesTheRoot) {
    ASSERT_EQ(m_serve.stop(SIGTERM) >= 0, true);
    m_serve.kill();
    start({"--keep"});
    ASSERT_FALSE(m_serve.root().empty());
    post("/api/set", "(34,66)");
    EXPECT_EQ(field(post("/api/flush", "").body, "result"), "0");
    const int nStatus = m_serve.stop(SIGINT);
    ASSERT_TRUE(WIFEXITED(nStatus));
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
    struct stat st;
    EXPECT_EQ(::stat((m_serve.root() + "/mnt/mtd/code/config_file/sensor0.cfg").c_str(), &st), 0);
}

} // namespace
