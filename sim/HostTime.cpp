// The simulated host's clock and timed waits: a settable device time and a
// scale on every wait, so that tests of time-driven behaviour run fast and
// deterministically.
#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <thread>

#include "host/KPDeviceTime.h"
#include "host/TarvelTime.h"
#include "sim/SimHost.h"

namespace {

std::atomic<double> g_dTimeScale{1.0};
std::atomic<unsigned long> g_nWaits{0};

struct DeviceClock {
    std::mutex mutex;
    bool simulated = false;
    bool dated = false; // a whole date and time was set, not just the hour
    KPDateTime time{};
};

DeviceClock& deviceClock() {
    static DeviceClock clock;
    return clock;
}

} // namespace

namespace sim {

void setTimeScale(double factor) {
    g_dTimeScale = factor < 0.0 ? 0.0 : factor;
}

double timeScale() {
    return g_dTimeScale;
}

unsigned long waitCount() {
    return g_nWaits;
}

void setDeviceTime(int hour, int minute) {
    DeviceClock& clock = deviceClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    clock.simulated = true;
    clock.dated = false;
    clock.time.hour = hour;
    clock.time.minute = minute;
}

void setDeviceDateTime(const KPDateTime& time) {
    DeviceClock& clock = deviceClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    clock.simulated = true;
    clock.dated = true;
    clock.time = time;
}

void clearDeviceTime() {
    DeviceClock& clock = deviceClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    clock.simulated = false;
    clock.dated = false;
}

} // namespace sim

TarvelTime::TarvelTime(int seconds, int microseconds)
    : m_nSeconds(seconds), m_nMicroseconds(microseconds) {}

void TarvelTime::wait() {
    ++g_nWaits;
    const double seconds = (m_nSeconds + m_nMicroseconds / 1e6) * sim::timeScale();
    if (seconds <= 0.0)
        return;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

KPDateTime KPDeviceTime::getCurrentTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    KPDateTime time{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                    local.tm_hour,        local.tm_min,     local.tm_sec};
    DeviceClock& clock = deviceClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    if (clock.dated) {
        time = clock.time;
    } else if (clock.simulated) {
        time.hour = clock.time.hour;
        time.minute = clock.time.minute;
        time.second = 0;
    }
    return time;
}
