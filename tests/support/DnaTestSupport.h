// Helpers of the style-rewrite and factory tests: small style documents,
// their items, and the captured console.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/DnaStyle.h"
#include "config/SensorXml.h"
#include "tests/support/TestSupport.h"

namespace dnatest {

using testsupport::contains;

using testsupport::occurrences;

// A parsed document that the tests can query by id.
class Doc {
public:
    explicit Doc(const std::string& text) {
        m_bLoaded = m_objDoc.LoadMem(text.c_str(), TIXML_ENCODING_UTF8);
    }
    bool loaded() const { return m_bLoaded; }
    TiXmlElement* root() { return m_objDoc.RootElement(); }
    std::string text() const {
        std::string strOut;
        m_objDoc.getXmlString(strOut);
        return strOut;
    }

    // Every element with the id, in document order.
    std::vector<TiXmlElement*> all(int id) {
        std::vector<TiXmlElement*> vecOut;
        collect(root(), id, vecOut);
        return vecOut;
    }
    TiXmlElement* item(int id) {
        const std::vector<TiXmlElement*> vec = all(id);
        return vec.empty() ? nullptr : vec.front();
    }
    std::string value(int id) {
        TiXmlElement* p = item(id);
        const char* sz = p ? p->Attribute("value") : nullptr;
        return sz ? sz : "<none>";
    }
    // The "index" of the item's choices, in order.
    std::vector<std::string> choices(int id) {
        std::vector<std::string> vecOut;
        TiXmlElement* p = item(id);
        for (TiXmlElement* c = p ? p->FirstChildElement() : nullptr; c != nullptr;
             c = c->NextSiblingElement()) {
            const char* sz = c->Attribute("index");
            vecOut.push_back(sz ? sz : "<none>");
        }
        return vecOut;
    }

private:
    static void collect(TiXmlElement* e, int id, std::vector<TiXmlElement*>& out) {
        for (; e != nullptr; e = e->NextSiblingElement()) {
            const char* sz = e->Attribute("id");
            if (sz != nullptr && std::atoi(sz) == id)
                out.push_back(e);
            collect(e->FirstChildElement(), id, out);
        }
    }

    SensorXmlDocument m_objDoc;
    bool m_bLoaded = false;
};

// A choice item: <item id=.. value=..> with one <option index=..> per choice.
inline std::string choiceItem(int id, int value, const std::vector<int>& indexes) {
    std::string s =
        "<item id=\"" + std::to_string(id) + "\" value=\"" + std::to_string(value) + "\">";
    for (int i : indexes)
        s += "<option index=\"" + std::to_string(i) + "\" />";
    return s + "</item>";
}

inline std::string plainItem(int id, int value) {
    return "<item id=\"" + std::to_string(id) + "\" value=\"" + std::to_string(value) + "\" />";
}

inline std::string style(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?><style>" + body + "</style>";
}

// The document as getDnaStyle serialises one it did not change.
inline std::string reserialised(const std::string& text) {
    return Doc(text).text();
}

} // namespace dnatest
