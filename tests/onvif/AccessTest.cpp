// Who may call what: the default access policy written out by hand from the
// standard's table, and the SOAP endpoint deciding by it with users of each
// level, by HTTP digest (the tests' own client) and by UsernameToken.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "sensor-onvif/Soap.h"
#include "tests/support/DigestCheck.h"
#include "tests/support/OnvifRequests.h"
#include "tests/support/SoapCheck.h"

using namespace sensor_onvif;
using namespace onvif_test;

namespace {

const char* const kPath = "/onvif/test_service";

struct ClassCase {
    AccessClass eClass;
    const char* szOp; // the test operation of that class
    // Administrator, Operator, User, Anonymous.
    bool bAllowed[4];
};

// The default access policy, read off the standard's table.
const ClassCase kCases[] = {
    {AccessClass::PreAuth, "OpPreAuth", {true, true, true, true}},
    {AccessClass::ReadSystem, "OpReadSystem", {true, true, true, false}},
    {AccessClass::ReadSystemSensitive, "OpReadSensitive", {true, true, false, false}},
    {AccessClass::ReadSystemSecret, "OpReadSecret", {true, false, false, false}},
    {AccessClass::WriteSystem, "OpWriteSystem", {true, false, false, false}},
    {AccessClass::Unrecoverable, "OpUnrecoverable", {true, false, false, false}},
    {AccessClass::ReadMedia, "OpReadMedia", {true, true, true, false}},
    {AccessClass::Actuate, "OpActuate", {true, true, false, false}},
};

const UserLevel kLevels[] = {UserLevel::Administrator, UserLevel::Operator, UserLevel::User,
                             UserLevel::Anonymous};

TEST(AccessPolicy, EveryLevelAndClassAsTheStandardsTableSays) {
    for (const ClassCase& c : kCases)
        for (int l = 0; l < 4; ++l)
            EXPECT_EQ(c.bAllowed[l], levelMayAccess(kLevels[l], c.eClass))
                << accessClassName(c.eClass) << " " << userLevelName(kLevels[l]);
}

TEST(AccessPolicy, UsersAreReadAsNamePasswordLevel) {
    CameraUser u;
    std::string why;
    ASSERT_TRUE(parseUserSpec("anna:pa:ss:word:operator", u, why)) << why;
    EXPECT_EQ("anna", u.name);
    EXPECT_EQ("pa:ss:word", u.password);
    EXPECT_EQ(UserLevel::Operator, u.level);
    EXPECT_FALSE(parseUserSpec("anna:pw", u, why));
    EXPECT_FALSE(parseUserSpec(":pw:User", u, why));
    EXPECT_FALSE(parseUserSpec("anna::User", u, why));
    EXPECT_FALSE(parseUserSpec("anna:pw:Anonymous", u, why));
    EXPECT_FALSE(parseUserSpec("anna:pw:Root", u, why));
}

class EndpointAccess : public ::testing::Test {
protected:
    EndpointAccess() {
        DigestConfig config;
        config.realm = "cam@test";
        config.clock = [this] { return m_nSteady.load(); };
        m_pDigest = std::make_shared<DigestAuthenticator>(
            std::vector<CameraUser>{{"admin", "a-pw", UserLevel::Administrator},
                                    {"op", "o-pw", UserLevel::Operator},
                                    {"viewer", "v-pw", UserLevel::User}},
            config);
        m_pEndpoint.reset(new SoapEndpoint(m_pDigest, [] { return kNow; }));
        for (const ClassCase& c : kCases)
            m_pEndpoint->addOperation(
                kPath, c.szOp,
                [this](const Request& r) -> Result {
                    ++m_nCalls;
                    return "<tt:Done>" + r.user + "</tt:Done>";
                },
                c.eClass);
    }

    static std::string body(const char* szOp) {
        return envelope("", std::string("<") + szOp + " xmlns=\"urn:x\"/>");
    }

    // A digest request as a client makes it after a 401; an open operation
    // gives no 401, so the client answers a challenge it got elsewhere.
    HttpReply digestCall(const char* szOp, const std::string& user, const std::string& password) {
        const HttpReply first = m_pEndpoint->handle(kPath, body(szOp));
        const std::string challenge =
            first.wwwAuthenticate.empty() ? m_pDigest->challenge()[0] : first.wwwAuthenticate[0];
        HttpAuth http;
        http.uri = kPath;
        http.authorization = digestcheck::authorization(challenge, {user, password, "POST", kPath});
        return m_pEndpoint->handle(kPath, body(szOp), http);
    }

    std::atomic<long long> m_nSteady{50};
    std::atomic<int> m_nCalls{0};
    std::shared_ptr<DigestAuthenticator> m_pDigest;
    std::unique_ptr<SoapEndpoint> m_pEndpoint;
};

TEST_F(EndpointAccess, WithoutCredentialsOnlyPreAuthAnswersTheRestGet401WithChallenges) {
    for (const ClassCase& c : kCases) {
        const HttpReply r = m_pEndpoint->handle(kPath, body(c.szOp));
        if (c.eClass == AccessClass::PreAuth) {
            EXPECT_EQ(200, r.status) << r.body;
            EXPECT_TRUE(r.wwwAuthenticate.empty());
            continue;
        }
        EXPECT_EQ(401, r.status) << c.szOp;
        EXPECT_TRUE(soapcheck::isFaultWith(r.body, "env:Sender")) << r.body;
        EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized")) << r.body;
        ASSERT_EQ(2u, r.wwwAuthenticate.size());
        EXPECT_EQ("cam@test", digestcheck::param(r.wwwAuthenticate[0], "realm"));
        EXPECT_EQ("SHA-256", digestcheck::param(r.wwwAuthenticate[0], "algorithm"));
        EXPECT_EQ("MD5", digestcheck::param(r.wwwAuthenticate[1], "algorithm"));
    }
    EXPECT_EQ(1, m_nCalls.load());
}

TEST_F(EndpointAccess, EachLevelByDigestReachesWhatThePolicyAllows) {
    const std::pair<const char*, const char*> users[] = {
        {"admin", "a-pw"}, {"op", "o-pw"}, {"viewer", "v-pw"}};
    for (const ClassCase& c : kCases) {
        for (int l = 0; l < 3; ++l) {
            const HttpReply r = digestCall(c.szOp, users[l].first, users[l].second);
            if (c.bAllowed[l]) {
                EXPECT_EQ(200, r.status) << c.szOp << " " << users[l].first << "\n" << r.body;
                // An open operation called with credentials still knows who.
                EXPECT_NE(std::string::npos,
                          r.body.find(std::string("<tt:Done>") + users[l].first + "<"))
                    << r.body;
            } else {
                EXPECT_EQ(400, r.status) << c.szOp << " " << users[l].first;
                EXPECT_TRUE(soapcheck::isFaultWith(r.body, "env:Sender")) << r.body;
                EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized")) << r.body;
                EXPECT_TRUE(r.wwwAuthenticate.empty());
            }
        }
    }
}

TEST_F(EndpointAccess, AWrongPasswordIsRefusedWithANewChallengeInEveryClass) {
    for (const ClassCase& c : kCases) {
        for (const char* szUser : {"admin", "op", "viewer"}) {
            const HttpReply r = digestCall(c.szOp, szUser, "not-it");
            // Given credentials are checked even where none are needed.
            EXPECT_EQ(401, r.status) << c.szOp << " " << szUser;
            EXPECT_TRUE(soapcheck::isFaultWith(r.body, "ter:NotAuthorized")) << r.body;
            EXPECT_EQ(2u, r.wwwAuthenticate.size());
            EXPECT_EQ(std::string::npos, r.wwwAuthenticate[0].find("stale"));
        }
    }
    // Only the open operation's first, credential-free calls got through.
    EXPECT_EQ(3, m_nCalls.load());
}

TEST_F(EndpointAccess, AStaleNonceGetsAChallengeWithStaleTrue) {
    const HttpReply first = m_pEndpoint->handle(kPath, body("OpReadMedia"));
    ASSERT_EQ(401, first.status);
    HttpAuth http;
    http.uri = kPath;
    http.authorization =
        digestcheck::authorization(first.wwwAuthenticate[1], {"viewer", "v-pw", "POST", kPath});
    m_nSteady += 301;
    const HttpReply r = m_pEndpoint->handle(kPath, body("OpReadMedia"), http);
    EXPECT_EQ(401, r.status);
    ASSERT_FALSE(r.wwwAuthenticate.empty());
    EXPECT_NE(std::string::npos, r.wwwAuthenticate[0].find("stale=true")) << r.wwwAuthenticate[0];
    EXPECT_EQ(0, m_nCalls.load());
}

TEST_F(EndpointAccess, AReplayedDigestRequestIsRefused) {
    const HttpReply first = m_pEndpoint->handle(kPath, body("OpReadMedia"));
    HttpAuth http;
    http.uri = kPath;
    http.authorization =
        digestcheck::authorization(first.wwwAuthenticate[0], {"viewer", "v-pw", "POST", kPath});
    EXPECT_EQ(200, m_pEndpoint->handle(kPath, body("OpReadMedia"), http).status);
    EXPECT_EQ(401, m_pEndpoint->handle(kPath, body("OpReadMedia"), http).status);
    EXPECT_EQ(1, m_nCalls.load());
}

TEST_F(EndpointAccess, TheUsernameTokenStillWorksAndObeysTheLevels) {
    auto token = [](const char* szOp, const char* szUser, const char* szPassword) {
        return envelope(securityHeader(nextNonce(), kNow, szUser, szPassword),
                        std::string("<") + szOp + " xmlns=\"urn:x\"/>");
    };
    EXPECT_EQ(200, m_pEndpoint->handle(kPath, token("OpActuate", "op", "o-pw")).status);
    const HttpReply refused = m_pEndpoint->handle(kPath, token("OpWriteSystem", "op", "o-pw"));
    EXPECT_EQ(400, refused.status);
    EXPECT_TRUE(soapcheck::isFaultWith(refused.body, "ter:NotAuthorized")) << refused.body;
    EXPECT_EQ(200, m_pEndpoint->handle(kPath, token("OpWriteSystem", "admin", "a-pw")).status);
    // A wrong token is the legacy 400, without a challenge.
    const HttpReply wrong = m_pEndpoint->handle(kPath, token("OpReadMedia", "viewer", "x"));
    EXPECT_EQ(400, wrong.status);
    EXPECT_TRUE(wrong.wwwAuthenticate.empty());
    EXPECT_EQ(2, m_nCalls.load());
}

TEST_F(EndpointAccess, AnUnknownOperationWithoutCredentialsGetsTheChallengeNotItsName) {
    const HttpReply r = m_pEndpoint->handle(kPath, body("Nope"));
    EXPECT_EQ(401, r.status);
    EXPECT_FALSE(soapcheck::isFaultWith(r.body, "ter:ActionNotSupported"));
    const HttpReply known = digestCall("Nope", "viewer", "v-pw");
    EXPECT_EQ(500, known.status);
    EXPECT_TRUE(soapcheck::isFaultWith(known.body, "ter:ActionNotSupported")) << known.body;
}

} // namespace
