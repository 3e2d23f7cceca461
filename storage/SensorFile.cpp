#define SNS_SOURCE_UNIT "SensorFile.cpp"
#include "diag/SensorDiag.h"

#include "storage/SensorFile.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/KPFile.h"
#include "diag/SensorNumber.h"
#include "diag/DeviceRoot.h"

namespace {

const char* const kOpenReadText = "file.open(file_name)";
const char* const kOpenWriteText = "file.open(file_name, KPFile::modeWrite | KPFile::modeTruncate)";
const int kModeRead = KPFile::modeRead;                          // 1
const int kModeWrite = KPFile::modeWrite | KPFile::modeTruncate; // 66
// Further temporary names tried when something else stands at the first.
const int kMaxAltTemps = 9;

// The folder that holds a resolved path.
std::string folderOf(const std::string& strPath) {
    const std::string::size_type pos = strPath.rfind('/');
    if (pos == std::string::npos)
        return ".";
    return pos == 0 ? std::string("/") : strPath.substr(0, pos);
}

// The file a device path stands for: a symbolic link in its place (an
// integrator may link a scheme file onto another partition) is followed to
// the file it points at, so that a save writes there and the link stays.
// False for a chain of links that never ends.
bool resolveLinks(std::string& p_strPath) {
    for (int nDepth = 0; nDepth < 40; ++nDepth) {
        struct stat st;
        if (::lstat(p_strPath.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            return true;
        std::vector<char> vecTarget(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1);
        const ssize_t n = ::readlink(p_strPath.c_str(), vecTarget.data(), vecTarget.size());
        if (n < 0 || static_cast<size_t>(n) >= vecTarget.size())
            return false;
        const std::string strTarget(vecTarget.data(), static_cast<size_t>(n));
        p_strPath = strTarget[0] == '/' ? strTarget : folderOf(p_strPath) + "/" + strTarget;
    }
    return false;
}

// A file on flash replaced as a whole: the bytes go to a temporary beside the
// target, reach the flash (fsync), and only then take the target's name by one
// rename, after which the folder is synced too. A power cut at any instant
// leaves either the old file or the new one, never a torn or empty one. The
// temporary's name is the target's plus ".tmp", so that it still matches the
// removal pattern "/mnt/mtd/code/config*/sensor*" of a version change; when
// something of someone else's stands at that name (a folder, a link, a file
// this process may not write), one of a few further names (".tmp1" to
// ".tmp9") serves, and what stands there is left alone; with every name
// taken, the target is opened itself. The temporary gets the
// target's permissions and, where the process may, its owner. A target its
// writer may not write is not replaced: the save fails as opening it for
// writing fails. A writable target in a folder where no temporary can be made
// is written in place, as a plain open-truncate-write, without a word: the
// save does what opening the file itself does.
class ReplacingFile {
public:
    explicit ReplacingFile(const char* devicePath)
        : m_strTarget(sensorDevicePath(devicePath ? devicePath : "")) {
        m_bResolved = resolveLinks(m_strTarget);
    }
    ~ReplacingFile() { abandon(); }
    ReplacingFile(const ReplacingFile&) = delete;
    ReplacingFile& operator=(const ReplacingFile&) = delete;

    // Opens for saving data (length bytes).
    bool open(const void* data, int length) {
        if (!m_bResolved)
            return false;
        struct stat stTarget;
        const bool bTargetIsFile =
            ::stat(m_strTarget.c_str(), &stTarget) == 0 && S_ISREG(stTarget.st_mode);
        if (bTargetIsFile && !mayWrite(m_strTarget))
            return false;
        // A file that already holds exactly these bytes cannot be torn by
        // writing them again over themselves: after a cut it holds them
        // either way. Written in place, without a temporary or a sync.
        if (bTargetIsFile && stTarget.st_size == length && holds(data, length)) {
            if (m_objFile.open(m_strTarget.c_str(), KPFile::modeWrite)) {
                m_eOpen = Open::Same;
                return true;
            }
        }
        bool bNamesTaken = false;
        if (openTemporary(bNamesTaken)) {
            if (bTargetIsFile)
                takeOwnerAndMode(stTarget);
            return true;
        }
        // No temporary: the target is opened itself when every temporary
        // name is taken, or when it is a file in a folder that allows none.
        if (!bNamesTaken && (!bTargetIsFile || mayCreateIn(folderOf(m_strTarget))))
            return false;
        if (!m_objFile.open(m_strTarget.c_str(), kModeWrite))
            return false;
        m_eOpen = Open::InPlace;
        return true;
    }

    // The count written, as KPFile reports it; a complete write that did not
    // reach the flash counts as nothing written.
    int write(const void* data, int length) {
        const int nSize = m_objFile.write(data, length);
        if (nSize == length && (m_eOpen == Open::Temporary || m_eOpen == Open::InPlace) &&
            ::fsync(m_objFile.getFileHandle()) != 0)
            return -1;
        return nSize;
    }

    // Puts the complete temporary in the target's place; false when the
    // target cannot be replaced (for instance a folder stands in its place).
    bool commit() {
        if (m_eOpen == Open::InPlace || m_eOpen == Open::Same) {
            m_objFile.close();
            m_eOpen = Open::None;
            return true;
        }
        if (m_eOpen != Open::Temporary)
            return false;
        m_objFile.close();
        if (::rename(m_strTemp.c_str(), m_strTarget.c_str()) != 0)
            return false; // the temporary goes with abandon()
        m_eOpen = Open::None;
        syncFolder();
        return true;
    }

private:
    // Opens the first temporary name that can be written. A pipe, socket or
    // device at one of these names is a leftover of ours and goes (a pipe
    // would block the open until someone reads it); a folder, a link or a
    // file the process may not write is someone else's and stays: the next
    // name serves. p_bNamesTaken: every name was taken so.
    bool openTemporary(bool& p_bNamesTaken) {
        p_bNamesTaken = false;
        const std::string strBase = m_strTarget + ".tmp";
        for (int nAlt = 0; nAlt <= kMaxAltTemps; ++nAlt) {
            const std::string strTemp = nAlt == 0 ? strBase : strBase + std::to_string(nAlt);
            struct stat stTemp;
            const bool bTaken = ::lstat(strTemp.c_str(), &stTemp) == 0;
            if (bTaken && S_ISLNK(stTemp.st_mode))
                continue; // the rename would put the link in the target's place
            if (bTaken && sensorIsSpecialMode(stTemp.st_mode) && ::unlink(strTemp.c_str()) != 0)
                continue; // a pipe that stays would block the open
            if (m_objFile.open(strTemp.c_str(), kModeWrite)) {
                m_strTemp = strTemp;
                m_eOpen = Open::Temporary;
                return true;
            }
            // Only a name taken by something else is worth another try; any
            // other failure (no room, a read-only folder) fails every name.
            if (::lstat(strTemp.c_str(), &stTemp) != 0)
                return false;
        }
        p_bNamesTaken = true;
        return false;
    }

    // Whether this process may open an existing file for writing, by its
    // effective ids, as the open itself would decide.
    static bool mayWrite(const std::string& p_strPath) {
        return ::faccessat(AT_FDCWD, p_strPath.c_str(), W_OK, AT_EACCESS) == 0;
    }

    // Whether the target's bytes are exactly data's (its size was checked).
    bool holds(const void* data, int length) const {
        if (length <= 0 || data == nullptr)
            return length == 0;
        KPFile objFile;
        if (!objFile.open(m_strTarget.c_str(), kModeRead))
            return false;
        std::vector<char> vecOld(static_cast<size_t>(length) + 1);
        return objFile.read(vecOld.data(), length + 1) == length &&
               std::memcmp(vecOld.data(), data, static_cast<size_t>(length)) == 0;
    }

    static bool mayCreateIn(const std::string& p_strFolder) {
        return ::faccessat(AT_FDCWD, p_strFolder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
    }

    // The temporary becomes what the target was: owner first (a change of
    // owner clears the set-id bits), then the permission bits.
    void takeOwnerAndMode(const struct stat& p_stTarget) {
        const int fd = m_objFile.getFileHandle();
        if (::fchown(fd, p_stTarget.st_uid, p_stTarget.st_gid) != 0)
            (void)::fchown(fd, static_cast<uid_t>(-1), p_stTarget.st_gid);
        (void)::fchmod(fd, p_stTarget.st_mode & 07777);
    }

    // An incomplete temporary never survives; the target stays as it was.
    void abandon() {
        if (m_eOpen == Open::None)
            return;
        m_objFile.close();
        if (m_eOpen == Open::Temporary)
            ::unlink(m_strTemp.c_str());
        m_eOpen = Open::None;
    }

    // The rename itself is on flash only once the folder is.
    void syncFolder() const {
        const int fd = ::open(folderOf(m_strTarget).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            return;
        (void)::fsync(fd);
        ::close(fd);
    }

    KPFile m_objFile;
    std::string m_strTarget;
    std::string m_strTemp;
    bool m_bResolved = false;
    // What is open for the save: nothing, the temporary, the target written
    // in place (no temporary can be made), or the target that already holds
    // the bytes.
    enum class Open { None, Temporary, InPlace, Same };
    Open m_eOpen = Open::None;
};

// Finds "name", then "=", then ")" as the camera's detail texts are searched:
// plain substring search, so a name also matches inside a longer one.
bool findDetailField(const char* p_szDetail, const char* p_szName, const char*& p_pBegin,
                     size_t& p_nLen) {
    if (p_szDetail == nullptr || p_szName == nullptr)
        return false;
    const char* pName = std::strstr(p_szDetail, p_szName);
    if (pName == nullptr)
        return false;
    const char* pEqual = std::strstr(pName, "=");
    if (pEqual == nullptr)
        return false;
    const char* pClose = std::strstr(pEqual, ")");
    if (pClose == nullptr)
        return false;
    p_pBegin = pEqual + 1;
    p_nLen = pClose > p_pBegin ? static_cast<size_t>(pClose - p_pBegin) : 0;
    return true;
}

// Opens a device file for reading; a pipe, socket or device in its place
// counts as a file that does not open.
bool openForReading(KPFile& file, const char* file_name) {
    const std::string strPath = sensorDevicePath(file_name ? file_name : "");
    return !sensorIsSpecialFile(strPath) && file.open(strPath.c_str(), kModeRead);
}

} // namespace

int64_t getFileLen(const char* file_name) {
    KPFile file;
    SNS_ASSERT_TEXT(openForReading(file, file_name), kOpenReadText, "file_name(%s)", file_name);
    return file.getLength();
}

int64_t loadFromFile(const char* file_name, void* data, int64_t file_len) {
    SNS_DBG("open file:%s\n", file_name);
    KPFile file;
    if (!openForReading(file, file_name))
        return -1;
    const int nSize = file.read(data, static_cast<int>(file_len));
    if (static_cast<int64_t>(nSize) != file_len)
        return -1;
    file.close();
    return nSize;
}

int saveToFile(const char* file_name, const void* data, int64_t file_len) {
    ReplacingFile file(file_name);
    SNS_ASSERT_TEXT(file.open(data, static_cast<int>(file_len)), kOpenWriteText, "file_name(%s)\n",
                    file_name);
    int nSize = file.write(data, static_cast<int>(file_len));
    if (nSize == file_len && !file.commit()) {
        // To the caller a target that cannot be replaced is one that did not
        // open for writing: nothing of it was written.
        SNS_ASSERT_TEXT(false, kOpenWriteText, "file_name(%s)\n", file_name);
        nSize = -1;
    }
    SNS_ASSERT_TEXT(file_len == nSize, "file_len == (nSize=file.write(data, file_len))",
                    "file_len(%d)\n", static_cast<int>(file_len));
    return nSize;
}

int keyValFromFile(const char* file_name, KeyVal* p_pKeyVal, u32 p_nKeyValNum) {
    KPFile file;
    SNS_ASSERT_TEXT(openForReading(file, file_name), kOpenReadText, "file_name(%s)\n", file_name);
    const int nWanted = static_cast<int>(sizeof(KeyVal) * p_nKeyValNum);
    const int nSize = file.read(p_pKeyVal, nWanted);
    SNS_ASSERT_TEXT(nSize == nWanted, "nSize == sizeof(KeyVal)*p_nKeyValNum",
                    "file_name(%s) nSize(%d) sizeof(KeyVal) = %d, p_nKeyValNum(%d)\n", file_name,
                    nSize, static_cast<int>(sizeof(KeyVal)), static_cast<int>(p_nKeyValNum));
    file.close();
    return SNS_SUCCESS;
}

int keyValToFile(const char* file_name, const KeyVal* p_pKeyVal, u32 p_nKeyValSum) {
    ReplacingFile file(file_name);
    const int nWanted = static_cast<int>(sizeof(KeyVal) * p_nKeyValSum);
    SNS_ASSERT_TEXT(file.open(p_pKeyVal, nWanted), kOpenWriteText, "file_name(%s)\n", file_name);
    int nSize = file.write(p_pKeyVal, nWanted);
    if (nSize == nWanted && !file.commit()) {
        // A target that cannot be replaced did not open for writing.
        SNS_ASSERT_TEXT(false, kOpenWriteText, "file_name(%s)\n", file_name);
        nSize = -1;
    }
    SNS_ASSERT_TEXT(nSize == nWanted, "nSize == sizeof(KeyVal)*p_nKeyValSum",
                    "nSize(%d) sizeof(KeyVal) = %d, p_nKeyValNum(%d)\n", nSize,
                    static_cast<int>(sizeof(KeyVal)), static_cast<int>(p_nKeyValSum));
    return SNS_SUCCESS;
}

int getVersion(u32* p_nVersion) {
    return loadFromFile(SENSOR_VERSION_FILE, p_nVersion, sizeof(u32)) >= 1 ? SNS_SUCCESS : -1;
}

int setVersion(u32 p_nVersion) {
    u32 nVersion = p_nVersion;
    return saveToFile(SENSOR_VERSION_FILE, &nVersion, sizeof(u32)) >= 1 ? SNS_SUCCESS : -1;
}

int getDetailFieldTou32(const char* p_szDetail, const char* p_szName, u32* p_nValue) {
    const char* pBegin = nullptr;
    size_t nLen = 0;
    if (!findDetailField(p_szDetail, p_szName, pBegin, nLen))
        return -1;
    // Values are short numbers; a longer one is cut, never copied past the buffer.
    char szVal[10] = {0};
    std::memcpy(szVal, pBegin, nLen < sizeof(szVal) - 1 ? nLen : sizeof(szVal) - 1);
    if (p_nValue != nullptr)
        *p_nValue = static_cast<u32>(sensorAtoi(szVal));
    return SNS_SUCCESS;
}

int getDetailFieldToStr(const char* p_szDetail, const char* p_szName, char* p_szOut) {
    const char* pBegin = nullptr;
    size_t nLen = 0;
    if (!findDetailField(p_szDetail, p_szName, pBegin, nLen))
        return -1;
    if (p_szOut != nullptr)
        std::memcpy(p_szOut, pBegin, nLen);
    return SNS_SUCCESS;
}

int getDetailFieldToStrN(const char* p_szDetail, const char* p_szName, char* p_szOut,
                         size_t p_nOutSize) {
    const char* pBegin = nullptr;
    size_t nLen = 0;
    if (!findDetailField(p_szDetail, p_szName, pBegin, nLen))
        return -1;
    if (p_szOut != nullptr)
        std::memcpy(p_szOut, pBegin, nLen < p_nOutSize ? nLen : p_nOutSize);
    return SNS_SUCCESS;
}
