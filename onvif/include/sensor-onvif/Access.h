// Who may do what on the camera: the user levels and access classes of ONVIF
// and the default access policy between them, and the camera's users.
#pragma once

#include <string>

#if defined(SENSOR_ONVIF_BUILD)
#define SENSOR_ONVIF_API __attribute__((visibility("default")))
#else
#define SENSOR_ONVIF_API
#endif

namespace sensor_onvif {

// A user's level. Anonymous is everybody who gave no credentials; no user is
// configured with it.
enum class UserLevel { Administrator, Operator, User, Anonymous };

// What an operation does, by its impact.
enum class AccessClass {
    PreAuth,             // answers without credentials (the clock, the services)
    ReadSystem,          // reads the device's configuration
    ReadSystemSensitive, // reads configuration that is sensitive
    ReadSystemSecret,    // reads confidential configuration
    WriteSystem,         // changes the device's configuration
    Unrecoverable,       // changes that cannot be undone (factory default)
    ReadMedia,           // reads media and imaging state
    Actuate,             // changes how the camera runs (imaging settings, moves)
};

// The default access policy: true when a user of this level may call an
// operation of this class.
SENSOR_ONVIF_API bool levelMayAccess(UserLevel p_eLevel, AccessClass p_eClass);

// "Administrator", "Operator", "User", "Anonymous".
SENSOR_ONVIF_API const char* userLevelName(UserLevel p_eLevel);
// The level of a name (any letter case); Anonymous is not a level a user can
// be given, so it is refused too.
SENSOR_ONVIF_API bool userLevelFromName(const std::string& p_strName, UserLevel& p_eLevel);
// "PRE_AUTH", "READ_SYSTEM", ...: how the access class is written in ONVIF.
SENSOR_ONVIF_API const char* accessClassName(AccessClass p_eClass);

// One of the camera's users.
struct CameraUser {
    std::string name;
    std::string password;
    UserLevel level = UserLevel::User;
};

// Reads "name:password:level" (the password is everything between the first
// and the last colon). false with the reason for an empty name or password or
// an unknown level.
SENSOR_ONVIF_API bool parseUserSpec(const std::string& p_strText, CameraUser& p_objUser,
                                    std::string& p_strWhy);

} // namespace sensor_onvif
