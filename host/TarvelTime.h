// The host's timed wait.
#pragma once

class TarvelTime {
public:
    TarvelTime(int seconds, int microseconds);
    void wait();

private:
    int m_nSeconds;
    int m_nMicroseconds;
};
