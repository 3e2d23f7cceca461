// A copy of what the ISP holds for one channel, taken once per frame under
// the ISP's own lock (never the controller's mutex), read by every stage
// through the key list's names.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "controller/SensorKeys.h"

namespace sim {
namespace vsensor {

class IspView {
public:
    IspView() = default;
    // Takes the copy of ISP channel ispChannel now.
    static IspView capture(int ispChannel);

    // The value the ISP holds for a key (looked up by the command the key
    // goes out as), or fallback when it holds none.
    uint32_t value(SensorKey key, uint32_t fallback) const;
    bool has(SensorKey key) const;
    // The value of a command the key list does not name (the frame rate's
    // 2464 is named through KEY_SENSOR_FPS; this serves records).
    std::vector<uint32_t> record(int cmd) const;
    // Which of two commands the ISP received last (0 when neither).
    int newerOf(int cmdA, int cmdB) const;
    // The day/night state command 153 reports (forced or decided).
    uint32_t dayNightState() const { return m_nDayNight; }

    // For tests of the stages: a view with just these key values.
    void set(SensorKey key, uint32_t value);

private:
    std::map<int, std::vector<uint32_t>> m_mapValues;
    std::map<int, uint64_t> m_mapSerial;
    uint32_t m_nDayNight = 0;
};

} // namespace vsensor
} // namespace sim
