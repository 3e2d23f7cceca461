// The host's thread object: calls its round function over and over until stopped.
#pragma once

#include <functional>
#include <memory>

class GThread {
public:
    typedef std::function<int()> Fun;

    // A start or stop hook that does nothing.
    static int emptyFun();

    // run is called repeatedly on the thread; onStart once before the first
    // round, onStop once after the last.
    GThread(const Fun& run, const char* name, const Fun& onStart, const Fun& onStop);
    ~GThread();

    GThread(const GThread&) = delete;
    GThread& operator=(const GThread&) = delete;

    // false when the thread is already running or cannot be created.
    bool start();
    // Returns once the round in progress has ended; false when not running.
    bool stop();

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
