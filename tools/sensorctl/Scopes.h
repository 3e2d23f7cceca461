// The camera's discovery scopes: the fixed ones it was made with and the
// configurable ones a client sets through device management. The device
// service and WS-Discovery share one list, so a Probe matches what GetScopes
// lists. Thread-safe.
#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace sensorctl {

class ScopeList {
public:
    // At most this many configurable scopes (SetScopes and AddScopes refuse more).
    static constexpr size_t kMaxConfigurable = 16;
    // A scope item longer than this is refused.
    static constexpr size_t kMaxLength = 256;

    explicit ScopeList(std::vector<std::string> p_objFixed);
    ScopeList(const ScopeList&) = delete;
    ScopeList& operator=(const ScopeList&) = delete;

    struct Scope {
        std::string strItem;
        bool bFixed;
    };
    // The fixed scopes, then the configurable ones in the order they came.
    std::vector<Scope> scopes() const;
    std::vector<std::string> items() const;
    // Counts the changes from 1: WS-Discovery's metadata version.
    unsigned version() const;

    enum class Outcome { Done, TooMany, Fixed, Missing, Invalid };
    // Replaces the configurable scopes. A fixed scope among them is Fixed
    // (it cannot be overwritten); duplicates count once.
    Outcome set(const std::vector<std::string>& p_objItems);
    // Adds configurable scopes; one already there stays once.
    Outcome add(const std::vector<std::string>& p_objItems);
    // Removes configurable scopes: all of them or none (Fixed, Missing).
    Outcome remove(const std::vector<std::string>& p_objItems);

    // Called after every change, outside the list's lock; an empty function
    // clears it. Once cleared, no call is in progress any more.
    void onChange(std::function<void()> p_fnListener);

private:
    bool isFixed(const std::string& p_strItem) const;
    void changed();

    mutable std::mutex m_mutex;
    std::vector<std::string> m_objFixed;
    std::vector<std::string> m_objConfigurable;
    unsigned m_nVersion = 1;

    std::mutex m_listenerMutex;
    std::function<void()> m_fnListener;
};

// A scope item a client may set: an absolute URI of printable ASCII without
// blanks, at most ScopeList::kMaxLength long.
bool isScopeItem(const std::string& p_strItem);

} // namespace sensorctl
