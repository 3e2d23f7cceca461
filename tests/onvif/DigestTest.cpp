// HTTP digest of the camera: the published examples of RFC 7616 and RFC 2617
// (their responses recomputed with Python's hashlib before they were written
// here), the Authorization field's reader on odd input, and the
// authenticator's nonces on a simulated clock: expiry, replay, a wrong realm,
// a flood.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "sensor-onvif/Digest.h"
#include "tests/support/DigestCheck.h"

using namespace sensor_onvif;

namespace {

// RFC 7616, section 3.9.1.
const char* const kRfcUser = "Mufasa";
const char* const kRfcPassword = "Circle of Life";
const char* const kRfcRealm = "http-auth@example.org";
const char* const kRfcNonce = "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v";
const char* const kRfcCnonce = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ";
const char* const kRfcOpaque = "FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS";
const char* const kRfcMd5Response = "8ca523f5e9506fed4657c9700eebdbec";
const char* const kRfcSha256Response =
    "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1";

std::string rfcAuthorization(const char* szAlgorithm, const char* szResponse) {
    return std::string("Digest username=\"Mufasa\",\r\n realm=\"http-auth@example.org\",\r\n "
                       "uri=\"/dir/index.html\",\r\n algorithm=") +
           szAlgorithm + ",\r\n nonce=\"" + kRfcNonce + "\",\r\n nc=00000001,\r\n cnonce=\"" +
           kRfcCnonce + "\",\r\n qop=auth,\r\n response=\"" + szResponse + "\",\r\n opaque=\"" +
           kRfcOpaque + "\"";
}

// The RFC folds its example over lines; on the wire it is one line.
std::string unfolded(std::string text) {
    std::string out;
    for (char c : text)
        if (c != '\r' && c != '\n')
            out += c;
    return out;
}

TEST(DigestExamples, Rfc7616Md5ExampleGivesItsResponse) {
    DigestFields f;
    std::string why;
    ASSERT_TRUE(
        parseDigestAuthorization(unfolded(rfcAuthorization("MD5", kRfcMd5Response)), f, &why))
        << why;
    EXPECT_EQ(kRfcUser, f.username);
    EXPECT_EQ(kRfcRealm, f.realm);
    EXPECT_EQ("/dir/index.html", f.uri);
    EXPECT_EQ(kRfcNonce, f.nonce);
    EXPECT_EQ(kRfcCnonce, f.cnonce);
    EXPECT_EQ("00000001", f.nc);
    EXPECT_EQ("auth", f.qop);
    EXPECT_EQ(kRfcOpaque, f.opaque);
    EXPECT_EQ(kRfcMd5Response, digestResponse(DigestAlgorithm::Md5, f, kRfcPassword, "GET"));
    EXPECT_EQ(kRfcMd5Response, f.response);
}

TEST(DigestExamples, Rfc7616Sha256ExampleGivesItsResponse) {
    DigestFields f;
    ASSERT_TRUE(
        parseDigestAuthorization(unfolded(rfcAuthorization("SHA-256", kRfcSha256Response)), f));
    DigestAlgorithm e = DigestAlgorithm::Md5;
    ASSERT_TRUE(digestAlgorithmFromName(f.algorithm, e));
    EXPECT_EQ(DigestAlgorithm::Sha256, e);
    EXPECT_EQ(kRfcSha256Response, digestResponse(DigestAlgorithm::Sha256, f, kRfcPassword, "GET"));
}

TEST(DigestExamples, Rfc2617ExampleGivesItsResponse) {
    DigestFields f;
    ASSERT_TRUE(parseDigestAuthorization(
        "Digest username=\"Mufasa\", realm=\"testrealm@host.com\", "
        "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", uri=\"/dir/index.html\", qop=auth, "
        "nc=00000001, cnonce=\"0a4f113b\", response=\"6629fae49393a05397450978507c4ef1\", "
        "opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"",
        f));
    EXPECT_EQ("", f.algorithm); // MD5 by default
    EXPECT_EQ("6629fae49393a05397450978507c4ef1",
              digestResponse(DigestAlgorithm::Md5, f, "Circle Of Life", "GET"));
}

TEST(DigestExamples, TheTestsOwnClientAgreesWithTheExamples) {
    EXPECT_EQ(kRfcMd5Response,
              digestcheck::response("MD5", kRfcUser, kRfcRealm, kRfcPassword, "GET",
                                    "/dir/index.html", kRfcNonce, "00000001", kRfcCnonce));
    EXPECT_EQ(kRfcSha256Response,
              digestcheck::response("SHA-256", kRfcUser, kRfcRealm, kRfcPassword, "GET",
                                    "/dir/index.html", kRfcNonce, "00000001", kRfcCnonce));
}

// The field's reader -----------------------------------------------------------

bool parses(const std::string& text, DigestFields* pOut = nullptr) {
    DigestFields f;
    const bool b = parseDigestAuthorization(text, f);
    if (pOut)
        *pOut = f;
    return b;
}

const std::string kMinimal = "Digest username=\"u\", realm=\"r\", nonce=\"n\", uri=\"/\", "
                             "response=\"0123\"";

TEST(DigestField, QuotedPairsTokensCaseAndUnknownParameters) {
    DigestFields f;
    ASSERT_TRUE(parses("dIgEsT  USERNAME = \"Mu\\\"fa\\\\sa\" ,, realm=\"r\",nonce=abc, "
                       "future=\"x, y\", uri=\"/a?b=c\", response=\"ff\"",
                       &f));
    EXPECT_EQ("Mu\"fa\\sa", f.username);
    EXPECT_EQ("abc", f.nonce);
    EXPECT_EQ("/a?b=c", f.uri);
    EXPECT_EQ("ff", f.response);
    EXPECT_TRUE(parses(kMinimal));
}

TEST(DigestField, MalformedFieldsAreRefused) {
    const std::string bad[] = {
        "",
        "Basic dXNlcjpwYXNz",
        "Digest",
        "Digestusername=\"u\"",
        // a required parameter missing
        "Digest realm=\"r\", nonce=\"n\", uri=\"/\", response=\"0123\"",
        "Digest username=\"u\", realm=\"r\", nonce=\"n\", uri=\"/\"",
        // given twice
        kMinimal + ", realm=\"r\"",
        // no comma between two
        "Digest username=\"u\" realm=\"r\", nonce=\"n\", uri=\"/\", response=\"0123\"",
        // no value, no name
        kMinimal + ", qop=",
        kMinimal + ", =x",
        // a control character inside quotes, even escaped
        "Digest username=\"u\nv\", realm=\"r\", nonce=\"n\", uri=\"/\", response=\"0123\"",
        "Digest username=\"u\\\x01\", realm=\"r\", nonce=\"n\", uri=\"/\", response=\"0123\"",
        std::string("Digest username=\"u") + '\0' +
            "\", realm=\"r\", nonce=\"n\", uri=\"/\", response=\"0123\"",
    };
    for (const std::string& text : bad)
        EXPECT_FALSE(parses(text)) << text;
}

TEST(DigestField, TruncatedFieldsAreRefused) {
    const std::string full = unfolded(rfcAuthorization("MD5", kRfcMd5Response));
    ASSERT_TRUE(parses(full));
    // Cut anywhere before the response is complete: something required is
    // missing or a quote is left open.
    const size_t nResponseEnd = full.find(kRfcMd5Response) + 32;
    for (size_t n = 0; n <= nResponseEnd; ++n)
        EXPECT_FALSE(parses(full.substr(0, n))) << full.substr(0, n);
    // Cut inside the last quoted value.
    EXPECT_FALSE(parses(full.substr(0, full.size() - 1)));
}

TEST(DigestField, OversizedFieldsAreRefused) {
    // One value over 1024 bytes, quoted or as a token.
    EXPECT_FALSE(parses(kMinimal + ", cnonce=\"" + std::string(1025, 'a') + "\""));
    EXPECT_FALSE(parses(kMinimal + ", cnonce=" + std::string(1025, 'a')));
    EXPECT_TRUE(parses(kMinimal + ", cnonce=\"" + std::string(1024, 'a') + "\""));
    // The whole field over 4096 bytes.
    std::string many = kMinimal;
    while (many.size() <= 4096)
        many += ", x=\"" + std::string(100, 'b') + "\"";
    EXPECT_FALSE(parses(many));
    // More than 24 parameters, each small.
    std::string params = kMinimal;
    for (int i = 0; i < 20; ++i)
        params += ", p" + std::to_string(i) + "=1";
    EXPECT_FALSE(parses(params));
}

// The authenticator on a simulated clock ------------------------------------------

class DigestAuth : public ::testing::Test {
protected:
    DigestAuth() : m_auth(users(), config()) {}

    static std::vector<CameraUser> users() {
        return {{"admin", "adm1n:pass", UserLevel::Administrator},
                {"viewer", "look", UserLevel::User}};
    }
    DigestConfig config() {
        DigestConfig c;
        c.realm = "cam@test";
        c.clock = [this] { return m_nNow.load(); };
        return c;
    }

    // The first (preferred) challenge of a fresh 401.
    std::string challenge(size_t i = 0) { return m_auth.challenge().at(i); }

    DigestVerdict verify(const std::string& challenge, digestcheck::Answer a) {
        if (a.uri.empty())
            a.uri = "/onvif/device_service";
        return m_auth.verify(a.method, a.uri, digestcheck::authorization(challenge, a));
    }

    std::atomic<long long> m_nNow{1000};
    DigestAuthenticator m_auth;
};

using Outcome = DigestVerdict::Outcome;

TEST_F(DigestAuth, AChallengeOffersSha256ThenMd5WithOneNonce) {
    const std::vector<std::string> c = m_auth.challenge();
    ASSERT_EQ(2u, c.size());
    EXPECT_EQ(0u, c[0].rfind("Digest ", 0));
    EXPECT_EQ("SHA-256", digestcheck::param(c[0], "algorithm"));
    EXPECT_EQ("MD5", digestcheck::param(c[1], "algorithm"));
    for (const std::string& one : c) {
        EXPECT_EQ("cam@test", digestcheck::param(one, "realm"));
        EXPECT_EQ("auth", digestcheck::param(one, "qop"));
        EXPECT_GE(digestcheck::param(one, "nonce").size(), 32u);
        EXPECT_FALSE(digestcheck::param(one, "opaque").empty());
        EXPECT_EQ(std::string::npos, one.find("stale"));
    }
    EXPECT_EQ(digestcheck::param(c[0], "nonce"), digestcheck::param(c[1], "nonce"));
    EXPECT_NE(digestcheck::param(c[0], "nonce"), digestcheck::param(challenge(), "nonce"));
}

TEST_F(DigestAuth, TheRightPasswordIsAcceptedWithEitherAlgorithm) {
    for (size_t i = 0; i < 2; ++i) {
        const DigestVerdict v = verify(challenge(i), {"admin", "adm1n:pass"});
        EXPECT_TRUE(v.accepted()) << i << " " << v.reason;
        ASSERT_NE(nullptr, v.user);
        EXPECT_EQ("admin", v.user->name);
        EXPECT_EQ(UserLevel::Administrator, v.user->level);
    }
}

TEST_F(DigestAuth, AWrongPasswordOrUnknownUserIsRefused) {
    EXPECT_EQ(Outcome::Refused, verify(challenge(), {"admin", "adm1n:pas"}).outcome);
    EXPECT_EQ(Outcome::Refused, verify(challenge(), {"viewer", "adm1n:pass"}).outcome);
    EXPECT_EQ(Outcome::Refused, verify(challenge(), {"root", "adm1n:pass"}).outcome);
}

TEST_F(DigestAuth, AnExpiredNonceIsStaleAndTheNextChallengeSaysSo) {
    const std::string c = challenge();
    m_nNow += 299;
    EXPECT_TRUE(verify(c, {"viewer", "look"}).accepted());
    m_nNow += 1; // 300 s after it was issued
    digestcheck::Answer a{"viewer", "look"};
    a.nc = "00000002";
    const DigestVerdict v = verify(c, a);
    EXPECT_EQ(Outcome::Stale, v.outcome) << v.reason;
    const std::vector<std::string> next = m_auth.challenge(true);
    EXPECT_NE(std::string::npos, next[0].find(", stale=true"));
    // A wrong password on an expired nonce is just wrong: no stale hint.
    EXPECT_EQ(Outcome::Refused, verify(c, {"viewer", "guess"}).outcome);
    // The fresh nonce works.
    EXPECT_TRUE(verify(next[1], {"viewer", "look"}).accepted());
}

TEST_F(DigestAuth, ANonceTheCameraNeverIssuedIsStale) {
    const std::string forged =
        "Digest realm=\"cam@test\", nonce=\"00112233445566778899aabbccddeeff\", opaque=\"" +
        digestcheck::param(challenge(), "opaque") + "\", algorithm=MD5";
    EXPECT_EQ(Outcome::Stale, verify(forged, {"viewer", "look"}).outcome);
}

TEST_F(DigestAuth, AWrongRealmIsRefused) {
    digestcheck::Answer a{"admin", "adm1n:pass"};
    a.realm = "another@test";
    EXPECT_EQ(Outcome::WrongRealm, verify(challenge(), a).outcome);
}

TEST_F(DigestAuth, AReplayedOrFallingNonceCountIsRefused) {
    const std::string c = challenge();
    digestcheck::Answer a{"viewer", "look"};
    EXPECT_TRUE(verify(c, a).accepted());
    EXPECT_EQ(Outcome::Replayed, verify(c, a).outcome); // the same request again
    a.nc = "00000003";
    EXPECT_TRUE(verify(c, a).accepted()); // counts may skip
    a.nc = "00000002";
    EXPECT_EQ(Outcome::Replayed, verify(c, a).outcome);
    a.nc = "0000000A";
    EXPECT_TRUE(verify(c, a).accepted());
    // Another nonce has its own count: a client's counter need not start at 1.
    a.nc = "00000004";
    EXPECT_TRUE(verify(challenge(), a).accepted());
}

TEST_F(DigestAuth, AnotherUriOpaqueAlgorithmOrQopIsRefused) {
    const std::string c = challenge(1);
    digestcheck::Answer a{"viewer", "look"};
    a.uri = "/onvif/device_service";
    std::string field = digestcheck::authorization(c, a);
    EXPECT_EQ(Outcome::WrongUri, m_auth.verify("POST", "/onvif/media_service", field).outcome);
    std::string wrongOpaque = field;
    wrongOpaque.replace(wrongOpaque.find("opaque=\"") + 8, 1, "!");
    EXPECT_EQ(Outcome::WrongOpaque,
              m_auth.verify("POST", "/onvif/device_service", wrongOpaque).outcome);
    std::string sess = field;
    sess.replace(sess.find("algorithm=MD5"), 13, "algorithm=MD5-sess");
    EXPECT_EQ(Outcome::Unsupported, m_auth.verify("POST", "/onvif/device_service", sess).outcome);
    std::string noQop = field;
    noQop.replace(noQop.find("qop=auth"), 8, "qop=auth-int");
    EXPECT_EQ(Outcome::Unsupported, m_auth.verify("POST", "/onvif/device_service", noQop).outcome);
    std::string badNc = field;
    badNc.replace(badNc.find("nc=00000001"), 11, "nc=1");
    EXPECT_EQ(Outcome::Malformed, m_auth.verify("POST", "/onvif/device_service", badNc).outcome);
    // The same target with an escape decoded is the same request.
    EXPECT_TRUE(m_auth.verify("POST", "/onvif/device%5Fservice", field).accepted());
}

TEST_F(DigestAuth, OversizedAndTruncatedFieldsAreMalformed) {
    const std::string c = challenge();
    const std::string field = digestcheck::authorization(c, {"viewer", "look", "POST", "/x"});
    EXPECT_EQ(Outcome::Malformed, m_auth.verify("POST", "/x", field.substr(0, 60)).outcome);
    EXPECT_EQ(
        Outcome::Malformed,
        m_auth.verify("POST", "/x", field + ", pad=\"" + std::string(5000, 'z') + "\"").outcome);
    EXPECT_TRUE(m_auth.verify("POST", "/x", field).accepted());
}

TEST(DigestNonces, AFloodOfChallengesKeepsTheTableBounded) {
    long long nNow = 0;
    DigestConfig config;
    config.maxNonces = 64;
    config.clock = [&nNow] { return nNow; };
    DigestAuthenticator auth({{"u", "p", UserLevel::User}}, config);
    const std::string first = auth.challenge()[0];
    std::string last;
    for (int i = 0; i < 20000; ++i)
        last = auth.challenge()[0];
    EXPECT_LE(auth.nonceCount(), 64u);
    digestcheck::Answer a{"u", "p", "GET", "/"};
    // The newest still works; the first was dropped and reads as stale.
    EXPECT_TRUE(auth.verify("GET", "/", digestcheck::authorization(last, a)).accepted());
    EXPECT_EQ(Outcome::Stale,
              auth.verify("GET", "/", digestcheck::authorization(first, a)).outcome);
    // Expired nonces leave the table as new ones come.
    nNow += 301;
    auth.challenge();
    EXPECT_EQ(1u, auth.nonceCount());
}

} // namespace

namespace {

TEST(DigestNonces, ClientsAtOnceEachKeepTheirOwnCount) {
    DigestConfig config;
    config.maxNonces = 64;
    config.clock = [] { return 7LL; };
    DigestAuthenticator auth({{"u", "p", UserLevel::User}, {"w", "q", UserLevel::Operator}},
                             config);
    constexpr int kThreads = 8;
    constexpr int kRequests = 100;
    std::atomic<int> nAccepted{0};
    std::atomic<int> nReplaysRefused{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string challenge = auth.challenge()[t % 2];
            digestcheck::Answer a(t % 2 ? "w" : "u", t % 2 ? "q" : "p", "GET", "/video.mjpg");
            for (int i = 1; i <= kRequests; ++i) {
                char szNc[9];
                std::snprintf(szNc, sizeof(szNc), "%08x", i);
                a.nc = szNc;
                const std::string field = digestcheck::authorization(challenge, a);
                if (auth.verify("GET", "/video.mjpg", field).accepted())
                    ++nAccepted;
                // The same request twice: the second is a replay.
                if (auth.verify("GET", "/video.mjpg", field).outcome == Outcome::Replayed)
                    ++nReplaysRefused;
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(kThreads * kRequests, nAccepted.load());
    EXPECT_EQ(kThreads * kRequests, nReplaysRefused.load());
    EXPECT_EQ(static_cast<size_t>(kThreads), auth.nonceCount());
}

} // namespace
