// The host's log-file writer: a size-bounded log rotated over a number of files.
#pragma once

#include <string>

class KPLogger {
public:
    KPLogger();
    ~KPLogger();
    KPLogger(const KPLogger&) = delete;
    KPLogger& operator=(const KPLogger&) = delete;

    // maxSize: bytes per file before rotation; maxFiles: files kept (path, path.1, ...).
    bool init(const char* path, int maxSize, int maxFiles);
    int writeLog(const char* tag, const char* text);

private:
    std::string m_strPath;
    int m_nMaxSize;
    int m_nMaxFiles;
};
