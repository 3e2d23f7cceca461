#include "diag/DeviceRoot.h"

#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

namespace {

// How much of SENSOR_ROOT is the root: trailing slashes dropped, and "/"
// alone (or no root) is the real root, length 0.
size_t rootLength(const char* root) {
    size_t nRoot = root != nullptr ? std::strlen(root) : 0;
    while (nRoot > 1 && root[nRoot - 1] == '/')
        --nRoot;
    return nRoot == 1 && root[0] == '/' ? 0 : nRoot;
}

} // namespace

std::string sensorDeviceRoot() {
    const char* root = std::getenv("SENSOR_ROOT");
    return std::string(root != nullptr ? root : "", rootLength(root));
}

std::string sensorDevicePath(const std::string& devicePath) {
    return sensorDeviceRoot() + devicePath;
}

// Allocates nothing: the diagnostics build the sign file's path with it
// before every decision.
bool sensorDevicePathInto(const char* devicePath, char* out, size_t outSize) {
    const char* root = std::getenv("SENSOR_ROOT");
    const size_t nRoot = rootLength(root);
    const size_t nPath = std::strlen(devicePath);
    if (nRoot + nPath + 1 > outSize)
        return false;
    if (nRoot > 0) // root may be null, and memcpy takes no null even for 0 bytes
        std::memcpy(out, root, nRoot);
    std::memcpy(out + nRoot, devicePath, nPath + 1);
    return true;
}

std::string sensorRemoveSchemeFilesCommand() {
    const std::string strRoot = sensorDeviceRoot();
    if (strRoot.empty())
        return "rm -rf /mnt/mtd/code/config*/sensor*";
    // Quote the root so that blanks in it survive; the pattern stays unquoted
    // so that the shell expands it.
    std::string strQuoted = "'";
    for (char c : strRoot) {
        if (c == '\'')
            strQuoted += "'\\''";
        else
            strQuoted += c;
    }
    strQuoted += "'";
    return "rm -rf " + strQuoted + "/mnt/mtd/code/config*/sensor*";
}

bool sensorIsSpecialMode(unsigned int mode) {
    return S_ISFIFO(mode) || S_ISSOCK(mode) || S_ISCHR(mode) || S_ISBLK(mode);
}

bool sensorIsSpecialFile(const std::string& realPath) {
    struct stat st;
    return ::stat(realPath.c_str(), &st) == 0 && sensorIsSpecialMode(st.st_mode);
}
