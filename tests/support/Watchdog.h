// A bound on a test that could hang: a deadlock fails the test instead of
// stopping the suite.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace testsupport {

// Ends the process when the guarded work outlives its bound: a deadlock
// would otherwise hang the test instead of failing it.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds p_nBound)
        : m_objThread([this, p_nBound] {
              std::unique_lock<std::mutex> lock(m_objMutex);
              if (!m_objDone.wait_for(lock, p_nBound, [this] { return m_bDone; })) {
                  fprintf(stderr, "watchdog: the controller did not finish in time\n");
                  std::_Exit(3);
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(m_objMutex);
            m_bDone = true;
        }
        m_objDone.notify_all();
        m_objThread.join();
    }

private:
    std::mutex m_objMutex;
    std::condition_variable m_objDone;
    bool m_bDone = false;
    std::thread m_objThread;
};

} // namespace testsupport
