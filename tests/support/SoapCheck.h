// Answers for the ONVIF tests that do not come from libsensor-onvif: the
// UsernameToken digest computed with libcrypto on its own, and SOAP answers
// read with TinyXML, every name resolved against the namespace declarations
// in scope, so that a fault is a Fault element in the SOAP 1.2 envelope
// namespace, first child of the envelope's Body, and not any text that
// looks like one.
#pragma once

#include <openssl/evp.h>

#include <tinyxml.h>

#include <string>
#include <vector>

namespace soapcheck {

constexpr const char* kSoap12 = "http://www.w3.org/2003/05/soap-envelope";

inline std::string base64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                  reinterpret_cast<const unsigned char*>(bytes.data()),
                                  static_cast<int>(bytes.size()));
    out.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return out;
}

// Base64(SHA-1(nonce bytes + Created text + password)), the UsernameToken's
// PasswordDigest.
inline std::string wsseDigest(const std::string& nonce, const std::string& created,
                              const std::string& password) {
    const std::string all = nonce + created + password;
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int nLen = 0;
    EVP_Digest(all.data(), all.size(), md, &nLen, EVP_sha1(), nullptr);
    return base64(std::string(reinterpret_cast<const char*>(md), nLen));
}

// The local part of an element's name.
inline std::string localName(const TiXmlElement* e) {
    const std::string name = e->Value();
    const size_t colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

// The namespace URI of an element's name, from the declarations of the
// element and its ancestors; "" when none is in scope.
inline std::string namespaceOf(const TiXmlElement* e) {
    const std::string name = e->Value();
    const size_t colon = name.find(':');
    const std::string attr =
        colon == std::string::npos ? "xmlns" : "xmlns:" + name.substr(0, colon);
    for (const TiXmlNode* n = e; n != nullptr; n = n->Parent()) {
        const TiXmlElement* scope = n->ToElement();
        if (scope != nullptr && scope->Attribute(attr.c_str()) != nullptr)
            return scope->Attribute(attr.c_str());
    }
    return "";
}

inline const TiXmlElement* child(const TiXmlElement* e, const std::string& local) {
    for (const TiXmlElement* c = e ? e->FirstChildElement() : nullptr; c;
         c = c->NextSiblingElement())
        if (localName(c) == local)
            return c;
    return nullptr;
}

// A SOAP 1.2 answer, parsed.
class Answer {
public:
    explicit Answer(const std::string& body) {
        m_doc.Parse(body.c_str());
        const TiXmlElement* env = m_doc.RootElement();
        if (m_doc.Error() || env == nullptr || localName(env) != "Envelope" ||
            namespaceOf(env) != kSoap12)
            return;
        const TiXmlElement* pBody = child(env, "Body");
        if (pBody == nullptr || namespaceOf(pBody) != kSoap12)
            return;
        m_pFirst = pBody->FirstChildElement();
    }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    // The first element of the Body: the response or the fault.
    const TiXmlElement* first() const { return m_pFirst; }

    bool isFault() const {
        return m_pFirst != nullptr && localName(m_pFirst) == "Fault" &&
               namespaceOf(m_pFirst) == kSoap12;
    }

    // The fault's code value, then each nested subcode value, in order.
    std::vector<std::string> codes() const {
        std::vector<std::string> out;
        if (!isFault())
            return out;
        for (const TiXmlElement* c = child(m_pFirst, "Code"); c; c = child(c, "Subcode")) {
            const TiXmlElement* value = child(c, "Value");
            out.push_back(value && value->GetText() ? value->GetText() : "");
        }
        return out;
    }

    bool hasCode(const std::string& value) const {
        for (const std::string& c : codes())
            if (c == value)
                return true;
        return false;
    }

    // The text at a path of local names below the first element of the Body
    // ("ImagingSettings/Exposure/ExposureTime"), the first match at each
    // step; "<absent>" when a step is missing.
    std::string textAt(const std::string& path) const {
        const TiXmlElement* e = m_pFirst;
        size_t start = 0;
        while (e != nullptr && start <= path.size()) {
            const size_t end = path.find('/', start);
            e = child(e, path.substr(start, end == std::string::npos ? end : end - start));
            if (end == std::string::npos)
                break;
            start = end + 1;
        }
        if (e == nullptr)
            return "<absent>";
        return e->GetText() ? e->GetText() : "";
    }

private:
    TiXmlDocument m_doc;
    const TiXmlElement* m_pFirst = nullptr;
};

// A SOAP 1.2 fault whose code or one of whose subcodes is sub.
inline bool isFaultWith(const std::string& body, const std::string& sub) {
    const Answer answer(body);
    return answer.isFault() && answer.hasCode(sub);
}
// The same for a reply that carries its body.
template <class Reply> bool isFaultWith(const Reply& reply, const std::string& sub) {
    return isFaultWith(reply.body, sub);
}

} // namespace soapcheck
