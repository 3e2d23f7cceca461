// The levels, the access classes and the default access policy between them.
#include "sensor-onvif/Access.h"

#include <cctype>

namespace sensor_onvif {

namespace {

struct ClassRow {
    AccessClass eClass;
    const char* szName;
    // Administrator, Operator, User, Anonymous.
    bool bAllowed[4];
};

// The default access policy, one row per class: the single truth of who may
// call what.
constexpr ClassRow kPolicy[] = {
    {AccessClass::PreAuth, "PRE_AUTH", {true, true, true, true}},
    {AccessClass::ReadSystem, "READ_SYSTEM", {true, true, true, false}},
    {AccessClass::ReadSystemSensitive, "READ_SYSTEM_SENSITIVE", {true, true, false, false}},
    {AccessClass::ReadSystemSecret, "READ_SYSTEM_SECRET", {true, false, false, false}},
    {AccessClass::WriteSystem, "WRITE_SYSTEM", {true, false, false, false}},
    {AccessClass::Unrecoverable, "UNRECOVERABLE", {true, false, false, false}},
    {AccessClass::ReadMedia, "READ_MEDIA", {true, true, true, false}},
    {AccessClass::Actuate, "ACTUATE", {true, true, false, false}},
};

const ClassRow* rowOf(AccessClass p_eClass) {
    for (const ClassRow& row : kPolicy)
        if (row.eClass == p_eClass)
            return &row;
    return nullptr;
}

const char* const kLevelNames[] = {"Administrator", "Operator", "User", "Anonymous"};

bool sameIgnoringCase(const std::string& p_strA, const char* p_szB) {
    size_t i = 0;
    for (; i < p_strA.size() && p_szB[i]; ++i)
        if (std::tolower(static_cast<unsigned char>(p_strA[i])) !=
            std::tolower(static_cast<unsigned char>(p_szB[i])))
            return false;
    return i == p_strA.size() && p_szB[i] == '\0';
}

} // namespace

bool levelMayAccess(UserLevel p_eLevel, AccessClass p_eClass) {
    const ClassRow* pRow = rowOf(p_eClass);
    const int nLevel = static_cast<int>(p_eLevel);
    return pRow && nLevel >= 0 && nLevel < 4 && pRow->bAllowed[nLevel];
}

const char* userLevelName(UserLevel p_eLevel) {
    const int nLevel = static_cast<int>(p_eLevel);
    return nLevel >= 0 && nLevel < 4 ? kLevelNames[nLevel] : "";
}

bool userLevelFromName(const std::string& p_strName, UserLevel& p_eLevel) {
    for (UserLevel e : {UserLevel::Administrator, UserLevel::Operator, UserLevel::User}) {
        if (sameIgnoringCase(p_strName, userLevelName(e))) {
            p_eLevel = e;
            return true;
        }
    }
    return false;
}

const char* accessClassName(AccessClass p_eClass) {
    const ClassRow* pRow = rowOf(p_eClass);
    return pRow ? pRow->szName : "";
}

bool parseUserSpec(const std::string& p_strText, CameraUser& p_objUser, std::string& p_strWhy) {
    const size_t nFirst = p_strText.find(':');
    const size_t nLast = p_strText.rfind(':');
    if (nFirst == std::string::npos || nFirst == nLast) {
        p_strWhy = "a user is written name:password:level";
        return false;
    }
    CameraUser user;
    user.name = p_strText.substr(0, nFirst);
    user.password = p_strText.substr(nFirst + 1, nLast - nFirst - 1);
    const std::string level = p_strText.substr(nLast + 1);
    if (user.name.empty() || user.password.empty()) {
        p_strWhy = "a user's name and password must not be empty";
        return false;
    }
    if (!userLevelFromName(level, user.level)) {
        p_strWhy = "unknown user level \"" + level + "\" (Administrator, Operator or User)";
        return false;
    }
    p_objUser = user;
    return true;
}

} // namespace sensor_onvif
