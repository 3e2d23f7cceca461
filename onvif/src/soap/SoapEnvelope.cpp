// The SOAP 1.2 envelope: reading a request with TinyXML into XmlNode trees,
// and the envelope around the replies.
#include "soap/SoapEnvelope.h"

#include <map>

#include <tinyxml.h>

#include "PaddedParse.h"
#include "soap/XsdText.h"

namespace sensor_onvif {

// XmlNode -------------------------------------------------------------------

const XmlNode* XmlNode::child(const std::string& p_strName) const {
    for (const XmlNode& c : children)
        if (c.name == p_strName)
            return &c;
    return nullptr;
}

std::vector<const XmlNode*> XmlNode::childrenNamed(const std::string& p_strName) const {
    std::vector<const XmlNode*> out;
    for (const XmlNode& c : children)
        if (c.name == p_strName)
            out.push_back(&c);
    return out;
}

const XmlNode* XmlNode::find(const std::string& p_strPath) const {
    const XmlNode* pNode = this;
    size_t pos = 0;
    while (pNode && pos <= p_strPath.size()) {
        size_t nEnd = p_strPath.find('/', pos);
        if (nEnd == std::string::npos)
            nEnd = p_strPath.size();
        pNode = pNode->child(p_strPath.substr(pos, nEnd - pos));
        pos = nEnd + 1;
    }
    return pNode;
}

const std::string* XmlNode::attr(const std::string& p_strName) const {
    for (const auto& a : attrs)
        if (a.first == p_strName)
            return &a.second;
    return nullptr;
}

namespace soap {

// The deepest element nesting of a text, counted before TinyXML (which
// recurses) sees it. Comments, CDATA sections, declarations and processing
// instructions are skipped; a count that runs over the limit stops early.
bool nestingWithin(const std::string& p_strText, int p_nMax) {
    int nDepth = 0;
    size_t pos = 0;
    const size_t n = p_strText.size();
    while ((pos = p_strText.find('<', pos)) != std::string::npos) {
        if (p_strText.compare(pos, 4, "<!--") == 0) {
            const size_t e = p_strText.find("-->", pos + 4);
            if (e == std::string::npos)
                return true; // malformed: TinyXML reports it
            pos = e + 3;
        } else if (p_strText.compare(pos, 9, "<![CDATA[") == 0) {
            const size_t e = p_strText.find("]]>", pos + 9);
            if (e == std::string::npos)
                return true;
            pos = e + 3;
        } else if (pos + 1 < n && (p_strText[pos + 1] == '?' || p_strText[pos + 1] == '!')) {
            const size_t e = p_strText.find('>', pos + 1);
            if (e == std::string::npos)
                return true;
            pos = e + 1;
        } else if (pos + 1 < n && p_strText[pos + 1] == '/') {
            --nDepth;
            ++pos;
        } else {
            // A start tag: skip to its end, minding quoted attribute values.
            size_t e = pos + 1;
            char quote = 0;
            while (e < n) {
                const char c = p_strText[e];
                if (quote) {
                    if (c == quote)
                        quote = 0;
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '>') {
                    break;
                }
                ++e;
            }
            if (e >= n)
                return true;
            if (p_strText[e - 1] != '/' && ++nDepth > p_nMax)
                return false;
            pos = e + 1;
        }
    }
    return true;
}

namespace {

using NsMap = std::map<std::string, std::string>;

void convert(const TiXmlElement* p_pElem, const NsMap& p_objParent, XmlNode& p_objOut) {
    // Most elements declare nothing and use their parent's scope as it is; an
    // element that declares a namespace gets a scope of its own.
    NsMap objOwn;
    const NsMap* pScope = &p_objParent;
    for (const TiXmlAttribute* a = p_pElem->FirstAttribute(); a; a = a->Next()) {
        const std::string name = a->Name();
        const bool bDefault = name == "xmlns";
        if (!bDefault && name.compare(0, 6, "xmlns:") != 0)
            continue;
        if (pScope != &objOwn) {
            objOwn = p_objParent;
            pScope = &objOwn;
        }
        objOwn[bDefault ? std::string() : name.substr(6)] = a->Value();
    }
    const NsMap& scope = *pScope;
    const std::string qname = p_pElem->Value();
    const size_t nColon = qname.find(':');
    const std::string prefix = nColon == std::string::npos ? "" : qname.substr(0, nColon);
    p_objOut.name = nColon == std::string::npos ? qname : qname.substr(nColon + 1);
    const auto it = scope.find(prefix);
    p_objOut.ns = it == scope.end() ? std::string() : it->second;
    for (const TiXmlAttribute* a = p_pElem->FirstAttribute(); a; a = a->Next()) {
        const std::string name = a->Name();
        if (name == "xmlns" || name.compare(0, 6, "xmlns:") == 0)
            continue;
        const size_t c = name.find(':');
        p_objOut.attrs.emplace_back(c == std::string::npos ? name : name.substr(c + 1), a->Value());
    }
    std::string text;
    for (const TiXmlNode* c = p_pElem->FirstChild(); c; c = c->NextSibling()) {
        if (const TiXmlElement* e = c->ToElement()) {
            p_objOut.children.emplace_back();
            convert(e, scope, p_objOut.children.back());
        } else if (const TiXmlText* t = c->ToText()) {
            text += t->Value();
        }
    }
    p_objOut.text = trim(text);
}

} // namespace

bool parseEnvelope(const std::string& p_strBody, XmlNode& p_objEnvelope, std::string& p_strWhy) {
    TiXmlDocument doc;
    if (!parsePadded(p_strBody, doc)) {
        p_strWhy =
            std::string("malformed XML: ") + (doc.Error() ? doc.ErrorDesc() : "no root element");
        return false;
    }
    convert(doc.RootElement(), NsMap(), p_objEnvelope);
    return true;
}

// Every reply declares the response prefixes of ns (see Soap.h).
const std::string& envelopeOpen() {
    static const std::string s_strOpen =
        std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                    "<env:Envelope xmlns:env=\"") +
        ns::kEnv + "\" xmlns:tt=\"" + ns::kTt + "\" xmlns:timg=\"" + ns::kTimg + "\" xmlns:tds=\"" +
        ns::kTds + "\" xmlns:trt=\"" + ns::kTrt + "\" xmlns:ter=\"" + ns::kTer + "\"><env:Body>";
    return s_strOpen;
}

} // namespace soap

using soap::envelopeOpen;
using soap::kEnvelopeClose;

std::string responseEnvelope(const std::string& p_strBodyXml) {
    std::string out = envelopeOpen();
    out += p_strBodyXml;
    out += kEnvelopeClose;
    return out;
}

} // namespace sensor_onvif
