#include "Scopes.h"

#include <algorithm>
#include <cctype>

namespace sensorctl {

namespace {

bool contains(const std::vector<std::string>& items, const std::string& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

} // namespace

bool isScopeItem(const std::string& p_strItem) {
    if (p_strItem.empty() || p_strItem.size() > ScopeList::kMaxLength)
        return false;
    // A scheme: a letter, then letters, digits, '+', '-', '.', then ':'.
    const size_t nColon = p_strItem.find(':');
    if (nColon == std::string::npos || nColon == 0 ||
        !std::isalpha(static_cast<unsigned char>(p_strItem[0])))
        return false;
    for (size_t i = 0; i < nColon; ++i) {
        const unsigned char ch = static_cast<unsigned char>(p_strItem[i]);
        if (!std::isalnum(ch) && ch != '+' && ch != '-' && ch != '.')
            return false;
    }
    for (const char ch : p_strItem)
        if (ch <= ' ' || ch >= 0x7f || ch == '<' || ch == '>' || ch == '"')
            return false;
    return nColon + 1 < p_strItem.size();
}

ScopeList::ScopeList(std::vector<std::string> p_objFixed) : m_objFixed(std::move(p_objFixed)) {}

std::vector<ScopeList::Scope> ScopeList::scopes() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Scope> out;
    for (const std::string& item : m_objFixed)
        out.push_back({item, true});
    for (const std::string& item : m_objConfigurable)
        out.push_back({item, false});
    return out;
}

std::vector<std::string> ScopeList::items() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> out = m_objFixed;
    out.insert(out.end(), m_objConfigurable.begin(), m_objConfigurable.end());
    return out;
}

unsigned ScopeList::version() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_nVersion;
}

bool ScopeList::isFixed(const std::string& p_strItem) const {
    return contains(m_objFixed, p_strItem);
}

ScopeList::Outcome ScopeList::set(const std::vector<std::string>& p_objItems) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> objNew;
        for (const std::string& item : p_objItems) {
            if (!isScopeItem(item))
                return Outcome::Invalid;
            if (isFixed(item))
                return Outcome::Fixed;
            if (!contains(objNew, item))
                objNew.push_back(item);
        }
        if (objNew.size() > kMaxConfigurable)
            return Outcome::TooMany;
        m_objConfigurable = std::move(objNew);
        ++m_nVersion;
    }
    changed();
    return Outcome::Done;
}

ScopeList::Outcome ScopeList::add(const std::vector<std::string>& p_objItems) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> objNew = m_objConfigurable;
        for (const std::string& item : p_objItems) {
            if (!isScopeItem(item))
                return Outcome::Invalid;
            // A fixed scope is there already: adding it changes nothing.
            if (!isFixed(item) && !contains(objNew, item))
                objNew.push_back(item);
        }
        if (objNew.size() > kMaxConfigurable)
            return Outcome::TooMany;
        m_objConfigurable = std::move(objNew);
        ++m_nVersion;
    }
    changed();
    return Outcome::Done;
}

ScopeList::Outcome ScopeList::remove(const std::vector<std::string>& p_objItems) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const std::string& item : p_objItems) {
            if (isFixed(item))
                return Outcome::Fixed;
            if (!contains(m_objConfigurable, item))
                return Outcome::Missing;
        }
        std::vector<std::string> objNew;
        for (const std::string& item : m_objConfigurable)
            if (!contains(p_objItems, item))
                objNew.push_back(item);
        m_objConfigurable = std::move(objNew);
        ++m_nVersion;
    }
    changed();
    return Outcome::Done;
}

void ScopeList::onChange(std::function<void()> p_fnListener) {
    std::lock_guard<std::mutex> lock(m_listenerMutex);
    m_fnListener = std::move(p_fnListener);
}

void ScopeList::changed() {
    std::lock_guard<std::mutex> lock(m_listenerMutex);
    if (m_fnListener)
        m_fnListener();
}

} // namespace sensorctl
