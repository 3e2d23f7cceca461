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
#include <nlohmann/json.hpp>

#include "tests/support/Loopback.h"
#include "tests/support/ServeProcess.h"
#include "tests/support/ToolProcess.h"

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

using Reply = testsupport::HttpReply;

// One request on its own connection: raw bytes out, one answer back. Bounded by a 10 s receive
// timeout.
Reply roundTrip(int port, const std::string& request) {
    const int fd = testsupport::connectLoopback(port);
    if (fd < 0)
        return Reply();
    (void)testsupport::sendAll(fd, request);
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
    return testsupport::parseHttpReply(raw);
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

    // The field name of a JSON answer as JSON text ("0", "\"07:30\"",
    // "true"); "" when the answer is not JSON or has no such field.
    static std::string field(const std::string& body, const std::string& name) {
        const Json json = Json::parse(body, nullptr, false);
        if (!json.is_object() || !json.contains(name))
            return "";
        return json[name].dump();
    }

    // Whether a trace answer lists the ISP call cmd with option opt, these
    // words and this result.
    static bool hasIspCall(const std::string& body, int cmd, int opt, const std::vector<int>& words,
                           int ret) {
        const Json json = Json::parse(body, nullptr, false);
        if (!json.is_object() || !json.contains("entries"))
            return false;
        for (const Json& e : json["entries"])
            if (e.value("kind", "") == "isp" && e.value("cmd", -1) == cmd &&
                e.value("opt", -1) == opt && e["val"] == Json(words) && e.value("ret", -99) == ret)
                return true;
        return false;
    }

    // The error answer of a refused request, read as JSON: its reason must
    // be a text, and a 400 for a body names the offending byte.
    static Json refusal(const Reply& r) {
        const Json json = Json::parse(r.body, nullptr, false);
        EXPECT_TRUE(json.is_object() && json.contains("error") && json["error"].is_string())
            << r.body;
        return json;
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

// The page names keys by name; serve's copy has the numbers of the key list
// written in, and is otherwise the page as written.
TEST_F(ServeApi, PageCarriesTheKeyListsNumbers) {
    const Reply r = get("/");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(r.body.find("/*@KEY_LIST@*/"), std::string::npos);
    // Brightness, saturation and the scheme mode, as the controller numbers them.
    EXPECT_NE(r.body.find("const K = {KEY_BRIGHTNESS:34,KEY_SATURATION:2337,"), std::string::npos);
    EXPECT_NE(r.body.find("KEY_SCHEME_MODE:8000,"), std::string::npos);
    std::ifstream in(std::string(SENSOR_SOURCE_DIR) + "/tools/sensorctl/web/index.html",
                     std::ios::binary);
    std::stringstream source;
    source << in.rdbuf();
    const std::string page = source.str();
    const size_t at = page.find("/*@KEY_LIST@*/{}");
    ASSERT_NE(at, std::string::npos);
    const size_t filledEnd = r.body.find("};", at);
    ASSERT_NE(filledEnd, std::string::npos);
    EXPECT_EQ(r.body.substr(0, at), page.substr(0, at));
    EXPECT_EQ(r.body.substr(filledEnd + 1), page.substr(at + std::strlen("/*@KEY_LIST@*/{}")));
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
        EXPECT_TRUE(refusal(r).contains("at")) << bad;
    }
}

TEST_F(ServeApi, SetAppliesAtOnceAndTheIspSeesTheCommand) {
    get("/api/trace"); // start-up's calls are behind us
    const Reply r = post("/api/set", "(34,61)(2337,72)");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(field(r.body, "result"), "0");
    EXPECT_EQ(field(r.body, "values"), "\"(34,61)(2337,72)\"");

    const Reply trace = get("/api/trace");
    EXPECT_TRUE(hasIspCall(trace.body, 34, 0, {61}, 0)) << trace.body;
    EXPECT_TRUE(hasIspCall(trace.body, 2337, 0, {72}, 0)) << trace.body;
    EXPECT_EQ(get("/api/params?ids=(34)").body, "(34,61)");
}

TEST_F(ServeApi, TraceWithoutCursorGivesWhatCameSinceTheLastCall) {
    get("/api/trace");
    post("/api/set", "(34,44)");
    const Reply first = get("/api/trace");
    EXPECT_TRUE(hasIspCall(first.body, 34, 0, {44}, 0)) << first.body;
    const std::string strNext = field(first.body, "next");
    post("/api/set", "(34,45)");
    const Reply second = get("/api/trace");
    EXPECT_FALSE(hasIspCall(second.body, 34, 0, {44}, 0)) << second.body;
    EXPECT_TRUE(hasIspCall(second.body, 34, 0, {45}, 0)) << second.body;

    // With a cursor the same entries can be read again.
    const Reply again = get("/api/trace?since=" + strNext);
    EXPECT_TRUE(hasIspCall(again.body, 34, 0, {45}, 0)) << again.body;
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
        EXPECT_TRUE(refusal(r).contains("at")) << "body: " << bad;
    }
    // Nothing of it reached the controller: the camera still answers.
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(ServeApi, BodiesOver64KiBAreRefused) {
    // The headers alone announce it: refused before a byte of body is read.
    const Reply r = roundTrip(m_nPort, "POST /api/set HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                       "Connection: close\r\nContent-Length: 70000\r\n\r\n");
    EXPECT_EQ(r.status, 413);
    EXPECT_EQ(refusal(r)["error"], "body over 65536 bytes") << r.body;
    std::string strBig;
    while (strBig.size() <= 64 * 1024)
        strBig += "(34,60)";
    EXPECT_EQ(post("/api/set", strBig.substr(0, 64 * 1024)).status, 400); // cut mid-pair
    EXPECT_EQ(get("/api/status").status, 200);
}

TEST_F(ServeApi, UnknownPathsAre404AndWrongMethods405) {
    const Reply r = get("/api/nothing");
    EXPECT_EQ(r.status, 404);
    EXPECT_EQ(refusal(r)["error"], "no such path: /api/nothing");
    EXPECT_EQ(get("/etc/passwd").status, 404);
    EXPECT_EQ(post("/api/nothing", "1").status, 404);
    const Reply wrong = get("/api/set");
    EXPECT_EQ(wrong.status, 405);
    EXPECT_NE(wrong.headers.find("\r\nAllow: POST"), std::string::npos);
    EXPECT_EQ(post("/api/style", "x").status, 405);
}

// The header value of name in an answer's headers ("" when absent).
std::string headerValue(const Reply& r, const std::string& name) {
    std::smatch m;
    if (std::regex_search(r.headers, m, std::regex("\r\n" + name + ": ([^\r]*)")))
        return m[1];
    return "";
}

TEST_F(ServeApi, EveryOtherMethodOnAKnownPathIs405WithWhatItAllows) {
    struct Row {
        const char* szMethod;
        const char* szPath;
        bool bBody;
        const char* szAllow;
    };
    const Row rows[] = {
        {"PUT", "/api/set", true, "POST"},
        {"PUT", "/api/set", false, "POST"},
        {"DELETE", "/api/set", false, "POST"},
        {"PATCH", "/api/scheme", true, "GET, POST"},
        {"OPTIONS", "/api/status", false, "GET"},
        {"POST", "/", true, "GET"},
        {"POST", "/", false, "GET"},
        {"DELETE", "/index.html", false, "GET"},
        {"GET", "/api/flush", false, "POST"},
        {"GET", "/api/reset", false, "POST"},
        {"POST", "/api/status", true, "GET"},
        {"POST", "/api/trace", false, "GET"},
        {"PUT", "/api/clock", true, "GET, POST"},
    };
    for (const Row& row : rows) {
        const Reply r = roundTrip(m_nPort, request(row.szMethod, row.szPath, "1", row.bBody));
        EXPECT_EQ(r.status, 405) << row.szMethod << " " << row.szPath;
        EXPECT_EQ(headerValue(r, "Allow"), row.szAllow) << row.szMethod << " " << row.szPath;
        EXPECT_EQ(refusal(r)["error"], std::string("method not allowed; use ") + row.szAllow);
    }
    // The camera took none of them as a call.
    EXPECT_EQ(field(get("/api/scheme").body, "scheme"), "0");
}

TEST_F(ServeApi, ActionsTakeOnlyAnEmptyOrBlankBody) {
    post("/api/set", "(34,71)");
    for (const char* path : {"/api/flush", "/api/last", "/api/reset"}) {
        struct Row {
            const char* szBody;
            size_t nAt;
        };
        for (const Row& bad : {Row{"x", 0}, Row{"  0", 2}, Row{"\r\n{}", 2}, Row{"yes\n", 0}}) {
            const Reply r = post(path, bad.szBody);
            EXPECT_EQ(r.status, 400) << path << " " << bad.szBody;
            EXPECT_EQ(refusal(r)["at"], bad.nAt) << path << " " << bad.szBody;
        }
    }
    // None of them ran: the unsaved value is still there.
    EXPECT_EQ(get("/api/params?ids=(34)").body, "(34,71)");
    EXPECT_EQ(post("/api/flush", " \r\n").status, 200);
    EXPECT_EQ(post("/api/last", "").status, 200);
    // Without Content-Length a request has no body (curl -X POST URL sends so).
    const Reply bare = roundTrip(m_nPort, request("POST", "/api/flush", "", false));
    EXPECT_EQ(bare.status, 200) << bare.body;
    EXPECT_EQ(field(bare.body, "result"), "0");
}

TEST_F(ServeApi, RefusalsNameTheOffendingByteCountedFromZero) {
    struct Row {
        const char* szPath;
        const char* szBody;
        size_t nAt;
    };
    const Row rows[] = {
        {"/api/set", "(34,x)", 4},
        {"/api/set", "  (34,60", 8},
        {"/api/set", "(34,60)junk", 7},
        {"/api/set", "\n(34 ,60)", 4},
        {"/api/set", "", 0},
        {"/api/scheme", "1x", 1},
        {"/api/scheme", "9", 0},
        {"/api/mode", "\n2", 1},
        {"/api/clock", "7:30", 1},
        {"/api/clock", " 12:60", 4},
        {"/api/clock", "07:30:00", 5},
        {"/api/fail", "2353 x", 5},
        {"/api/fail", "2353", 4},
        {"/api/daynight", "dusk", 1},
        {"/api/daynight", "\tnights", 6},
    };
    for (const Row& row : rows) {
        const Reply r = post(row.szPath, row.szBody);
        EXPECT_EQ(r.status, 400) << row.szPath << " " << row.szBody;
        EXPECT_EQ(refusal(r)["at"], row.nAt) << row.szPath << " " << row.szBody << ": " << r.body;
    }
    // In a query the position is in the parameter's value.
    const Reply ids = get("/api/params?ids=(34)(1)");
    EXPECT_EQ(ids.status, 400);
    EXPECT_EQ(refusal(ids)["at"], 4u);
    const Reply since = get("/api/trace?since=12x");
    EXPECT_EQ(since.status, 400);
    EXPECT_EQ(refusal(since)["at"], 2u);
}

TEST_F(ServeApi, AnswersAreJsonWithTheDocumentedFields) {
    const Json status = Json::parse(get("/api/status").body);
    for (const char* name :
         {"scheme", "schemes", "mode", "clock", "daynight", "daynight_forced", "trace"})
        EXPECT_TRUE(status.contains(name)) << name;
    EXPECT_EQ(status["schemes"], 4);
    // The light meter decides at first (day or night by the wall clock's hour).
    EXPECT_TRUE(status["daynight"] == "day" || status["daynight"] == "night") << status;
    EXPECT_EQ(status["daynight_forced"], false);
    const Json set = Json::parse(post("/api/set", "(34,62)").body);
    EXPECT_EQ(set["result"], 0);
    EXPECT_EQ(set["values"], "(34,62)");
    EXPECT_TRUE(set["trace"]["from"].is_number() && set["trace"]["to"].is_number());
    EXPECT_EQ(Json::parse(post("/api/fail", "2353 -1").body), (Json{{"cmd", 2353}, {"fail", -1}}));
    EXPECT_EQ(Json::parse(post("/api/fail", "2353 off").body),
              (Json{{"cmd", 2353}, {"fail", nullptr}}));
    // A path that is not UTF-8 still gets a reason that is JSON.
    const Reply odd = get("/api/%FF%FE");
    EXPECT_EQ(odd.status, 404);
    EXPECT_TRUE(Json::parse(odd.body, nullptr, false).is_object()) << odd.body;
}

TEST_F(ServeApi, SecondServeOnATakenPortIsRefused) {
    const testsupport::ToolRun second = testsupport::runSensorctl(
        {"serve", "--port", std::to_string(m_nPort), "--time-scale", "0.01"}, "", {},
        std::chrono::seconds(30));
    ASSERT_TRUE(second.bExited) << "the second serve kept running:\n" << second.strOutput;
    EXPECT_EQ(second.nExitCode, 1);
    EXPECT_NE(second.strOutput.find("sensorctl: cannot listen on 127.0.0.1:" +
                                    std::to_string(m_nPort) + ": the port is taken"),
              std::string::npos)
        << second.strOutput;
    EXPECT_EQ(second.strOutput.find("listening on"), std::string::npos) << second.strOutput;
    // The first camera still answers every request.
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(get("/api/status").status, 200);
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
    bool bSwitched = false;
    const Json trace = Json::parse(get("/api/trace?since=0").body);
    for (const Json& e : trace["entries"])
        bSwitched =
            bSwitched || e == Json{{"seq", e["seq"]}, {"kind", "scheme"}, {"from", 0}, {"to", 1}};
    EXPECT_TRUE(bSwitched);
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
