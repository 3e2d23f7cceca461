// WS-Security UsernameToken checks, with OpenSSL's SHA-1 and Base64.
#include "soap/UsernameToken.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "soap/XsdText.h"

namespace sensor_onvif {

std::string base64Encode(const std::string& p_strBytes) {
    std::string out(4 * ((p_strBytes.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                  reinterpret_cast<const unsigned char*>(p_strBytes.data()),
                                  static_cast<int>(p_strBytes.size()));
    out.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return out;
}

bool base64Decode(const std::string& p_strText, std::string& p_strBytes) {
    std::string text;
    for (char c : p_strText)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
            text += c;
    if (text.size() % 4 != 0 || text.size() > 4096)
        return false;
    size_t nPad = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool bAlpha = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                            (c >= '0' && c <= '9') || c == '+' || c == '/';
        if (c == '=') {
            if (i + 2 < text.size())
                return false;
            ++nPad;
        } else if (!bAlpha || nPad > 0) {
            return false;
        }
    }
    if (text.empty()) {
        p_strBytes.clear();
        return true;
    }
    std::string out(text.size() / 4 * 3, '\0');
    const int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                  reinterpret_cast<const unsigned char*>(text.data()),
                                  static_cast<int>(text.size()));
    if (n < 0 || static_cast<size_t>(n) < nPad)
        return false;
    out.resize(static_cast<size_t>(n) - nPad);
    p_strBytes = out;
    return true;
}

std::string passwordDigest(const std::string& p_strNonceBytes, const std::string& p_strCreated,
                           const std::string& p_strPassword) {
    const std::string input = p_strNonceBytes + p_strCreated + p_strPassword;
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int nLen = 0;
    if (EVP_Digest(input.data(), input.size(), md, &nLen, EVP_sha1(), nullptr) != 1)
        return std::string();
    return base64Encode(std::string(reinterpret_cast<const char*>(md), nLen));
}

namespace soap {

// The request's WS-Security header block, or null.
const XmlNode* securityOf(const XmlNode* p_pHeader) {
    const XmlNode* pSecurity = nullptr;
    if (p_pHeader)
        for (const XmlNode& c : p_pHeader->children)
            if (c.name == "Security" && c.ns == ns::kWsse)
                pSecurity = &c;
    return pSecurity;
}

const CameraUser* UsernameTokenChecker::authenticate(const XmlNode* p_pSecurity,
                                                     DigestAuthenticator& p_objUsers,
                                                     const Clock& p_fnClock, long long p_nWindow,
                                                     size_t p_nMaxNonces, std::string& p_strWhy) {
    auto refuse = [&p_strWhy](const char* p_szWhy) -> const CameraUser* {
        p_strWhy = p_szWhy;
        return nullptr;
    };
    const XmlNode* pToken = p_pSecurity->child("UsernameToken");
    if (!pToken)
        return refuse("no UsernameToken");
    const XmlNode* pUser = pToken->child("Username");
    const XmlNode* pPassword = pToken->child("Password");
    const XmlNode* pNonce = pToken->child("Nonce");
    const XmlNode* pCreated = pToken->child("Created");
    if (!pUser || !pPassword || !pNonce || !pCreated)
        return refuse("incomplete UsernameToken");
    const std::string* pType = pPassword->attr("Type");
    if (!pType || pType->size() < 15 ||
        pType->compare(pType->size() - 15, 15, "#PasswordDigest") != 0)
        return refuse("only PasswordDigest is accepted");
    std::string nonce;
    if (!base64Decode(pNonce->text, nonce) || nonce.empty())
        return refuse("bad nonce");
    long long nCreated = 0;
    if (!parseDateTime(pCreated->text, nCreated))
        return refuse("bad Created");
    const long long nNow = p_fnClock ? p_fnClock() : 0;
    if (nCreated < nNow - p_nWindow || nCreated > nNow + p_nWindow)
        return refuse("Created is outside the accepted window");
    // An unknown user costs the same hashing as a known one.
    const CameraUser* pCameraUser = p_objUsers.user(pUser->text);
    const std::string expected =
        passwordDigest(nonce, pCreated->text, pCameraUser ? pCameraUser->password : "");
    const std::string given = trim(pPassword->text);
    const bool bDigestOk = given.size() == expected.size() &&
                           CRYPTO_memcmp(given.data(), expected.data(), given.size()) == 0;
    if (!pCameraUser || !bDigestOk)
        return refuse("wrong user name or password");

    std::lock_guard<std::mutex> lock(nonceMutex);
    // Forget nonces that left the window: a replay of those fails on Created.
    while (!nonceOrder.empty() &&
           (nonceOrder.front().second < nNow - 2 * p_nWindow || nonceOrder.size() > p_nMaxNonces)) {
        nonces.erase(nonceOrder.front().first);
        nonceOrder.pop_front();
    }
    if (nonces.count(nonce))
        return refuse("nonce already used");
    nonces.emplace(nonce, nNow);
    nonceOrder.emplace_back(nonce, nNow);
    return pCameraUser;
}

} // namespace soap
} // namespace sensor_onvif
