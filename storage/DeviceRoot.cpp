#include "storage/DeviceRoot.h"

#include <cstdlib>

#include <sys/stat.h>

std::string sensorDeviceRoot() {
    const char* root = std::getenv("SENSOR_ROOT");
    if (root == nullptr)
        return std::string();
    std::string strRoot(root);
    while (strRoot.size() > 1 && strRoot.back() == '/')
        strRoot.pop_back();
    return strRoot == "/" ? std::string() : strRoot;
}

std::string sensorDevicePath(const std::string& devicePath) {
    return sensorDeviceRoot() + devicePath;
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
