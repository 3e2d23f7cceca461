#include "sim/vsensor/IspView.h"

#include "sim/SimIsp.h"

namespace sim {
namespace vsensor {

IspView IspView::capture(int ispChannel) {
    IspView view;
    Isp::ChannelSnapshot snap = Isp::instance().snapshot(ispChannel);
    view.m_mapValues = std::move(snap.values);
    view.m_mapSerial = std::move(snap.serials);
    view.m_nDayNight = snap.dayNight;
    return view;
}

uint32_t IspView::value(SensorKey key, uint32_t fallback) const {
    const auto it = m_mapValues.find(static_cast<int>(sensor_keys::commandOf(key)));
    if (it == m_mapValues.end() || it->second.empty())
        return fallback;
    return it->second[0];
}

bool IspView::has(SensorKey key) const {
    return m_mapValues.count(static_cast<int>(sensor_keys::commandOf(key))) != 0;
}

std::vector<uint32_t> IspView::record(int cmd) const {
    const auto it = m_mapValues.find(cmd);
    return it != m_mapValues.end() ? it->second : std::vector<uint32_t>();
}

int IspView::newerOf(int cmdA, int cmdB) const {
    const auto a = m_mapSerial.find(cmdA);
    const auto b = m_mapSerial.find(cmdB);
    if (a == m_mapSerial.end())
        return b == m_mapSerial.end() ? 0 : cmdB;
    if (b == m_mapSerial.end())
        return cmdA;
    return a->second >= b->second ? cmdA : cmdB;
}

void IspView::set(SensorKey key, uint32_t value) {
    const int cmd = static_cast<int>(sensor_keys::commandOf(key));
    m_mapValues[cmd] = {value};
    m_mapSerial[cmd] = m_mapSerial.size() + 1;
}

} // namespace vsensor
} // namespace sim
