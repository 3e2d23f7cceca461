// HTTP digest authentication: the Authorization field's reader, the
// challenges, and the nonce table. Hashes and random nonces come from
// OpenSSL's libcrypto.
#include "sensor-onvif/Digest.h"

#include <chrono>
#include <cstdint>
#include <cstring>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace sensor_onvif {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameIgnoringCase(const std::string& p_strA, const char* p_szB) {
    const size_t n = std::strlen(p_szB);
    if (p_strA.size() != n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (lower(p_strA[i]) != lower(p_szB[i]))
            return false;
    return true;
}

std::string hexOf(const unsigned char* p_pBytes, size_t p_nLen) {
    static const char kHex[] = "0123456789abcdef";
    std::string out(p_nLen * 2, '0');
    for (size_t i = 0; i < p_nLen; ++i) {
        out[2 * i] = kHex[p_pBytes[i] >> 4];
        out[2 * i + 1] = kHex[p_pBytes[i] & 15];
    }
    return out;
}

// The characters of an HTTP token.
bool isTokenChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// A byte a quoted string may hold: anything but the control characters
// (HTAB aside) and DEL.
bool isTextChar(char c) {
    const unsigned char u = static_cast<unsigned char>(c);
    return u == '\t' || (u >= 0x20 && u != 0x7f);
}

bool fail(std::string* p_pWhy, const char* p_szWhy) {
    if (p_pWhy)
        *p_pWhy = p_szWhy;
    return false;
}

// The lower-case hex nonce count of exactly eight digits, or false.
bool readNonceCount(const std::string& p_strText, unsigned long& p_nCount) {
    if (p_strText.size() != 8)
        return false;
    unsigned long n = 0;
    for (char c : p_strText) {
        const char l = lower(c);
        int d;
        if (l >= '0' && l <= '9')
            d = l - '0';
        else if (l >= 'a' && l <= 'f')
            d = l - 'a' + 10;
        else
            return false;
        n = n * 16 + static_cast<unsigned long>(d);
    }
    p_nCount = n;
    return true;
}

// A realm as a quoted string.
std::string quoted(const std::string& p_strText) {
    std::string out = "\"";
    for (char c : p_strText) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

// A target with its %XX escapes decoded: two spellings of one target (a
// client that escapes a comma on the request line but not in its uri) are
// the same request.
std::string percentDecoded(const std::string& p_strText) {
    auto hexValue = [](char c) {
        const char l = lower(c);
        return l >= '0' && l <= '9' ? l - '0' : (l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1);
    };
    std::string out;
    for (size_t i = 0; i < p_strText.size(); ++i) {
        if (p_strText[i] == '%' && i + 2 < p_strText.size() && hexValue(p_strText[i + 1]) >= 0 &&
            hexValue(p_strText[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(p_strText[i + 1]) * 16 + hexValue(p_strText[i + 2]));
            i += 2;
        } else {
            out += p_strText[i];
        }
    }
    return out;
}

std::string randomHex(size_t p_nBytes) {
    std::vector<unsigned char> bytes(p_nBytes);
    if (RAND_bytes(bytes.data(), static_cast<int>(p_nBytes)) != 1) {
        // No entropy is no reason to answer with a guessable nonce: the
        // clock and an address mixed through the hash are better than zeros.
        const auto t = std::chrono::steady_clock::now().time_since_epoch().count();
        const std::string seed =
            std::to_string(t) + std::to_string(reinterpret_cast<uintptr_t>(&t));
        return digestHex(DigestAlgorithm::Sha256, seed).substr(0, 2 * p_nBytes);
    }
    return hexOf(bytes.data(), bytes.size());
}

} // namespace

const char* digestAlgorithmName(DigestAlgorithm p_eAlgorithm) {
    return p_eAlgorithm == DigestAlgorithm::Sha256 ? "SHA-256" : "MD5";
}

bool digestAlgorithmFromName(const std::string& p_strName, DigestAlgorithm& p_eAlgorithm) {
    if (sameIgnoringCase(p_strName, "MD5"))
        p_eAlgorithm = DigestAlgorithm::Md5;
    else if (sameIgnoringCase(p_strName, "SHA-256"))
        p_eAlgorithm = DigestAlgorithm::Sha256;
    else
        return false;
    return true;
}

std::string digestHex(DigestAlgorithm p_eAlgorithm, const std::string& p_strData) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int nLen = 0;
    const EVP_MD* pMd = p_eAlgorithm == DigestAlgorithm::Sha256 ? EVP_sha256() : EVP_md5();
    if (EVP_Digest(p_strData.data(), p_strData.size(), md, &nLen, pMd, nullptr) != 1)
        return std::string();
    return hexOf(md, nLen);
}

bool parseDigestAuthorization(const std::string& p_strField, DigestFields& p_objOut,
                              std::string* p_pWhy) {
    const std::string& s = p_strField;
    const size_t n = s.size();
    if (n > DigestLimits::kMaxField)
        return fail(p_pWhy, "the Authorization field is too long");
    size_t pos = 0;
    while (pos < n && isBlank(s[pos]))
        ++pos;
    const size_t nScheme = pos;
    while (pos < n && isTokenChar(s[pos]))
        ++pos;
    if (!sameIgnoringCase(s.substr(nScheme, pos - nScheme), "Digest"))
        return fail(p_pWhy, "not a Digest authorization");
    if (pos < n && !isBlank(s[pos]))
        return fail(p_pWhy, "no blank after the scheme");

    struct Known {
        const char* szName;
        std::string DigestFields::*pField;
    };
    static const Known kKnown[] = {
        {"username", &DigestFields::username}, {"realm", &DigestFields::realm},
        {"nonce", &DigestFields::nonce},       {"uri", &DigestFields::uri},
        {"response", &DigestFields::response}, {"algorithm", &DigestFields::algorithm},
        {"cnonce", &DigestFields::cnonce},     {"opaque", &DigestFields::opaque},
        {"qop", &DigestFields::qop},           {"nc", &DigestFields::nc},
        {"userhash", &DigestFields::userhash},
    };
    constexpr size_t kKnownCount = sizeof(kKnown) / sizeof(kKnown[0]);
    bool bSeen[kKnownCount] = {};
    DigestFields out;
    size_t nParams = 0;
    for (;;) {
        while (pos < n && (isBlank(s[pos]) || s[pos] == ','))
            ++pos;
        if (pos >= n)
            break;
        if (++nParams > DigestLimits::kMaxParams)
            return fail(p_pWhy, "too many parameters");
        const size_t nName = pos;
        while (pos < n && isTokenChar(s[pos]))
            ++pos;
        if (pos == nName)
            return fail(p_pWhy, "a parameter without a name");
        const std::string name = s.substr(nName, pos - nName);
        while (pos < n && isBlank(s[pos]))
            ++pos;
        if (pos >= n || s[pos] != '=')
            return fail(p_pWhy, "a parameter without a value");
        ++pos;
        while (pos < n && isBlank(s[pos]))
            ++pos;
        std::string value;
        if (pos < n && s[pos] == '"') {
            ++pos;
            bool bClosed = false;
            while (pos < n) {
                char c = s[pos++];
                if (c == '"') {
                    bClosed = true;
                    break;
                }
                if (c == '\\') {
                    if (pos >= n)
                        break;
                    c = s[pos++];
                }
                if (!isTextChar(c))
                    return fail(p_pWhy, "a control character in a quoted value");
                if (value.size() >= DigestLimits::kMaxValue)
                    return fail(p_pWhy, "a parameter's value is too long");
                value += c;
            }
            if (!bClosed)
                return fail(p_pWhy, "an unterminated quoted value");
        } else {
            const size_t nValue = pos;
            while (pos < n && isTokenChar(s[pos]))
                ++pos;
            if (pos == nValue)
                return fail(p_pWhy, "a parameter without a value");
            if (pos - nValue > DigestLimits::kMaxValue)
                return fail(p_pWhy, "a parameter's value is too long");
            value = s.substr(nValue, pos - nValue);
        }
        while (pos < n && isBlank(s[pos]))
            ++pos;
        if (pos < n && s[pos] != ',')
            return fail(p_pWhy, "parameters must be separated by commas");
        for (size_t k = 0; k < kKnownCount; ++k) {
            if (!sameIgnoringCase(name, kKnown[k].szName))
                continue;
            if (bSeen[k])
                return fail(p_pWhy, "a parameter given twice");
            bSeen[k] = true;
            out.*(kKnown[k].pField) = std::move(value);
            break;
        }
    }
    // username, realm, nonce, uri, response: the first five of kKnown.
    for (size_t k = 0; k < 5; ++k)
        if (!bSeen[k])
            return fail(p_pWhy, "username, realm, nonce, uri and response are required");
    p_objOut = std::move(out);
    return true;
}

std::string digestResponse(DigestAlgorithm p_eAlgorithm, const DigestFields& p_objFields,
                           const std::string& p_strPassword, const std::string& p_strMethod) {
    const std::string ha1 = digestHex(p_eAlgorithm, p_objFields.username + ":" + p_objFields.realm +
                                                        ":" + p_strPassword);
    const std::string ha2 = digestHex(p_eAlgorithm, p_strMethod + ":" + p_objFields.uri);
    return digestHex(p_eAlgorithm, ha1 + ":" + p_objFields.nonce + ":" + p_objFields.nc + ":" +
                                       p_objFields.cnonce + ":" + p_objFields.qop + ":" + ha2);
}

// DigestAuthenticator ----------------------------------------------------------

DigestAuthenticator::DigestAuthenticator(std::vector<CameraUser> p_objUsers,
                                         DigestConfig p_objConfig)
    : m_objUsers(std::move(p_objUsers)), m_objConfig(std::move(p_objConfig)),
      m_strOpaque(randomHex(16)) {
    if (m_objConfig.algorithms.empty())
        m_objConfig.algorithms = DigestConfig().algorithms;
    if (m_objConfig.maxNonces == 0)
        m_objConfig.maxNonces = 1;
}

long long DigestAuthenticator::now() const {
    if (m_objConfig.clock)
        return m_objConfig.clock();
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

const CameraUser* DigestAuthenticator::user(const std::string& p_strName) const {
    for (const CameraUser& u : m_objUsers)
        if (u.name == p_strName)
            return &u;
    return nullptr;
}

size_t DigestAuthenticator::nonceCount() const {
    std::lock_guard<std::mutex> lock(m_objMutex);
    return m_objNonces.size();
}

std::vector<std::string> DigestAuthenticator::challenge(bool p_bStale) {
    const std::string nonce = randomHex(16);
    const long long nNow = now();
    {
        std::lock_guard<std::mutex> lock(m_objMutex);
        // The order is the order of issue: expired nonces are at the front,
        // and a flood of challenges drops the oldest rather than growing.
        while (!m_objNonceOrder.empty()) {
            const auto it = m_objNonces.find(m_objNonceOrder.front());
            const bool bExpired =
                it == m_objNonces.end() || nNow - it->second.issued >= m_objConfig.nonceLifetime;
            if (!bExpired && m_objNonces.size() < m_objConfig.maxNonces)
                break;
            if (it != m_objNonces.end())
                m_objNonces.erase(it);
            m_objNonceOrder.pop_front();
        }
        m_objNonces[nonce] = NonceState{nNow, 0};
        m_objNonceOrder.push_back(nonce);
    }
    std::vector<std::string> out;
    for (DigestAlgorithm eAlgorithm : m_objConfig.algorithms) {
        std::string text = "Digest realm=" + quoted(m_objConfig.realm) +
                           ", qop=\"auth\", algorithm=" + digestAlgorithmName(eAlgorithm) +
                           ", nonce=\"" + nonce + "\", opaque=\"" + m_strOpaque + "\"";
        if (p_bStale)
            text += ", stale=true";
        out.push_back(std::move(text));
    }
    return out;
}

DigestVerdict DigestAuthenticator::verify(const std::string& p_strMethod,
                                          const std::string& p_strUri,
                                          const std::string& p_strAuthorization) {
    using Outcome = DigestVerdict::Outcome;
    DigestVerdict v;
    auto refuse = [&v](Outcome e, std::string why) {
        v.outcome = e;
        v.reason = std::move(why);
        return v;
    };
    DigestFields f;
    std::string why;
    if (!parseDigestAuthorization(p_strAuthorization, f, &why))
        return refuse(Outcome::Malformed, why);
    if (f.realm != m_objConfig.realm)
        return refuse(Outcome::WrongRealm, "another realm");
    DigestAlgorithm eAlgorithm = DigestAlgorithm::Md5;
    bool bOffered = false;
    if (f.algorithm.empty() || digestAlgorithmFromName(f.algorithm, eAlgorithm))
        for (DigestAlgorithm e : m_objConfig.algorithms)
            bOffered = bOffered || e == eAlgorithm;
    if (!bOffered)
        return refuse(Outcome::Unsupported, "an algorithm the camera did not offer");
    if (!f.userhash.empty() && !sameIgnoringCase(f.userhash, "false"))
        return refuse(Outcome::Unsupported, "userhash is not offered");
    if (!sameIgnoringCase(f.qop, "auth"))
        return refuse(Outcome::Unsupported, "only qop=auth is accepted");
    unsigned long nCount = 0;
    if (!readNonceCount(f.nc, nCount) || f.cnonce.empty())
        return refuse(Outcome::Malformed, "qop=auth needs an 8-digit nc and a cnonce");
    if (f.opaque != m_strOpaque)
        return refuse(Outcome::WrongOpaque, "not the camera's opaque");
    if (f.uri != p_strUri && percentDecoded(f.uri) != percentDecoded(p_strUri))
        return refuse(Outcome::WrongUri, "the uri is not the request's");

    // An unknown user costs the same hashing as a known one.
    const CameraUser* pUser = user(f.username);
    const std::string expected =
        digestResponse(eAlgorithm, f, pUser ? pUser->password : std::string(), p_strMethod);
    std::string given = f.response;
    for (char& c : given)
        c = lower(c);
    const bool bMatch = given.size() == expected.size() &&
                        CRYPTO_memcmp(given.data(), expected.data(), given.size()) == 0;
    if (!pUser || !bMatch)
        return refuse(Outcome::Refused, "wrong user name or password");

    // Only a client that knows the password learns that its nonce is stale.
    {
        std::lock_guard<std::mutex> lock(m_objMutex);
        const auto it = m_objNonces.find(f.nonce);
        if (it == m_objNonces.end())
            return refuse(Outcome::Stale, "the nonce is unknown or expired");
        if (now() - it->second.issued >= m_objConfig.nonceLifetime) {
            m_objNonces.erase(it);
            return refuse(Outcome::Stale, "the nonce is unknown or expired");
        }
        if (nCount <= it->second.lastCount)
            return refuse(Outcome::Replayed, "a nonce count already used");
        it->second.lastCount = nCount;
    }
    v.outcome = Outcome::Accepted;
    v.user = pUser;
    return v;
}

} // namespace sensor_onvif
