// The host's file object. An object that is not open never crashes: read and
// write return -1, getLength returns 0.
#pragma once

#include <cstdint>
#include <string>

class KPFile {
public:
    enum {
        modeRead = 1,
        modeWrite = 2,
        modeTruncate = 64, // with modeWrite: create or truncate (mode 66)
    };

    KPFile();
    ~KPFile(); // closes
    KPFile(const KPFile&) = delete;
    KPFile& operator=(const KPFile&) = delete;

    bool open(const char* name, int mode = modeRead);
    int read(void* buffer, int length);
    int write(const void* data, int length);
    int64_t getLength();
    int getFileHandle() const; // the descriptor, -1 when not open
    // The next line without its line end; "" at the end of the file.
    std::string ReadOneLine();
    void close();

private:
    int m_nFd;
    std::string m_strPending; // bytes read past the last line handed out
};
