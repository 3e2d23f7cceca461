// The simulated image signal processor.
//
// Its default profile (defaultProfile() below, installed by the constructor
// and by reset()): the shutter lists, the metering area, the day/night mode,
// the white-balance mode, the focus near limit, the 2D noise-reduction mode
// and the wide-dynamic-range mode are dynamic commands with list ranges (the
// focus near limit only while the ISP runs a module with a lens, runModule);
// brightness, saturation, contrast and sharpness have min/max ranges 0..100
// outside the dynamic list. The version text is the same on every channel,
// the sensor check reports 1, the day/night state is day (0) and every
// execution status 0.
#include "sim/SimIsp.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "controller/SensorKeys.h"

namespace sim {

namespace {

constexpr size_t kRangeWords = sizeof(ia_dynamic_params_attr_st) / 4;
constexpr size_t kCmdListWords = sizeof(ia_dynamic_params_cmds_st) / 4;
constexpr size_t kVersionWords = (IA_VERSION_TEXT_LEN + 3) / 4;

ia_dynamic_params_attr_st makeListRange(uint32_t defaultValue, const std::vector<uint32_t>& items) {
    ia_dynamic_params_attr_st range;
    std::memset(&range, 0, sizeof(range));
    range.type = 0;
    range.default_value = defaultValue;
    const size_t count = std::min<size_t>(items.size(), IA_DYNAMIC_ITEMS_MAX);
    range.items_cnt = static_cast<uint32_t>(count);
    for (size_t i = 0; i < count; ++i)
        range.item[i] = items[i];
    return range;
}

ia_dynamic_params_attr_st makeMinMaxRange(uint32_t defaultValue, uint32_t minValue,
                                          uint32_t maxValue) {
    ia_dynamic_params_attr_st range;
    std::memset(&range, 0, sizeof(range));
    range.type = 1;
    range.default_value = defaultValue;
    range.min_value = minValue;
    range.max_value = maxValue;
    range.items_cnt = 0;
    return range;
}

// The value a range accepts nearest to value: the nearest list item (ties go
// to the lower item) or the value clamped into min..max.
uint32_t correctedValue(const ia_dynamic_params_attr_st& range, uint32_t value) {
    if (range.type != 0)
        return std::clamp(value, std::min(range.min_value, range.max_value),
                          std::max(range.min_value, range.max_value));
    // A raw record may claim more items than it holds: use only those it holds.
    const uint32_t count = std::min<uint32_t>(range.items_cnt, IA_DYNAMIC_ITEMS_MAX);
    if (count == 0)
        return value;
    uint32_t best = range.item[0];
    uint64_t bestDistance = UINT64_MAX;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t item = range.item[i];
        const uint64_t distance = item > value ? uint64_t(item) - value : uint64_t(value) - item;
        if (distance < bestDistance || (distance == bestDistance && item < best)) {
            best = item;
            bestDistance = distance;
        }
    }
    return best;
}

std::vector<uint32_t> wordsFrom(const void* data, size_t bytes, size_t words) {
    std::vector<uint32_t> out(words, 0);
    if (data != nullptr)
        std::memcpy(out.data(), data, std::min(bytes, words * 4));
    return out;
}

// Bytes that a command's record occupies at data (the version text is not a
// whole number of words).
size_t recordBytes(int cmd, int opt) {
    if (opt == IA_CMD_OPT_SET || opt == IA_CMD_OPT_GET) {
        if (cmd == IA_CMD_VERSION)
            return IA_VERSION_TEXT_LEN;
    }
    return Isp::recordWords(cmd, opt) * 4;
}

} // namespace

struct Isp::Impl {
    mutable std::mutex mutex;
    std::map<std::pair<int, int>, std::vector<uint32_t>> values;
    // When each value was last set, so that the newest of two records that
    // both carry the day/night thresholds can be told.
    std::map<std::pair<int, int>, uint64_t> serials;
    uint64_t nextSerial = 1;
    std::map<int, std::string> versionTexts;
    std::map<int, uint32_t> dayNight; // forced states
    std::map<int, uint32_t> decidedDayNight;
    std::map<int, uint32_t> sensorCheckResults;
    std::map<int, uint32_t> execStatus;
    std::vector<uint32_t> dynamicCmds;
    std::optional<ia_dynamic_params_cmds_st> rawCmdList;
    std::map<int, ia_dynamic_params_attr_st> ranges;
    std::map<int, int> commandFailures;
    // Words an injected refusal of a command writes into the caller's record first.
    std::map<int, std::vector<uint32_t>> failureWrites;
    std::optional<int> allFailure;
    std::vector<IspCall> trace;

    // Caller holds mutex.
    void installDefaults() {
        values.clear();
        serials.clear();
        versionTexts.clear();
        dayNight.clear();
        decidedDayNight.clear();
        sensorCheckResults.clear();
        execStatus.clear();
        rawCmdList.reset();
        ranges.clear();
        commandFailures.clear();
        failureWrites.clear();
        allFailure.reset();
        trace.clear();

        const IspProfile& profile = defaultProfile();
        dynamicCmds = profile.dynamicCmds;
        for (const ProfileRange& range : profile.ranges)
            ranges[static_cast<int>(range.cmd)] =
                range.items.empty()
                    ? makeMinMaxRange(range.defaultValue, range.minValue, range.maxValue)
                    : makeListRange(range.defaultValue, range.items);
    }

    // Caller holds mutex.
    std::optional<int> injectedResult(int cmd) const {
        const auto it = commandFailures.find(cmd);
        if (it != commandFailures.end())
            return it->second;
        return allFailure;
    }

    // Caller holds mutex. The stored words of a command, padded to its size;
    // a value never set reads as its range's default, else 0.
    std::vector<uint32_t> storedWords(int channel, int cmd) const {
        const size_t words = Isp::recordWords(cmd, IA_CMD_OPT_GET);
        std::vector<uint32_t> out(words, 0);
        const auto it = values.find({channel, cmd});
        if (it != values.end()) {
            std::copy_n(it->second.begin(), std::min(words, it->second.size()), out.begin());
        } else {
            const auto range = ranges.find(cmd);
            if (range != ranges.end())
                out[0] = range->second.default_value;
        }
        return out;
    }

    // Caller holds mutex.
    uint32_t dayNightState(int channel) const {
        const auto forced = dayNight.find(channel);
        if (forced != dayNight.end())
            return forced->second;
        const auto decided = decidedDayNight.find(channel);
        return decided != decidedDayNight.end() ? decided->second : 0;
    }

    // Caller holds mutex.
    std::string versionText(int channel) const {
        const auto it = versionTexts.find(channel);
        return it != versionTexts.end() ? it->second : defaultProfile().versionText;
    }
};

const IspProfile& defaultProfile() {
    static const IspProfile profile = [] {
        const std::vector<uint32_t> shutterItems = {1,   2,   4,   8,   16,   25,   30,   50,   60,
                                                    100, 120, 250, 500, 1000, 2000, 5000, 10000};
        IspProfile p;
        p.ranges = {
            {KEY_MAX_SHUTTER, 30, shutterItems, 0, 0},
            {KEY_FIX_SHUTTER, 50, shutterItems, 0, 0},
            {KEY_METER_AREA, 0, {0, 1, 2, 3}, 0, 0},
            {KEY_DN_MODE, 0, {0, 1, 2, 3}, 0, 0},
            {KEY_WB_MODE, 0, {0, 1, 2, 3, 4}, 0, 0},
            {KEY_AUTO_FOCUS_NEAR_LIMIT, 30, {10, 30, 50, 100, 150, 300, 600}, 0, 0},
            {KEY_2D_NR_MODE, 0, {0, 1}, 0, 0},
            {KEY_WDR_MODE, 0, {0, 1, 2}, 0, 0},
        };
        // The list ranges make the dynamic command list, in this order.
        for (const ProfileRange& range : p.ranges)
            p.dynamicCmds.push_back(range.cmd);
        for (uint32_t cmd : {KEY_BRIGHTNESS, KEY_SATURATION, KEY_CONTRAST, KEY_SHARPNESS})
            p.ranges.push_back({cmd, 50, {}, 0, 100});
        p.versionText = "SIMISP V1.2.0 build 20261121";
        return p;
    }();
    return profile;
}

const std::vector<uint32_t>& lensCommands() {
    static const std::vector<uint32_t> cmds = {KEY_AUTO_FOCUS_NEAR_LIMIT};
    return cmds;
}

bool hasFixedLens(const std::string& detail) {
    const std::string field = "(lens=";
    const size_t start = detail.find(field);
    if (start == std::string::npos)
        return false;
    const size_t value = start + field.size();
    return detail.compare(value, 6, "fixed)") == 0;
}

// The one ISP of the process. Never destroyed, so that a worker thread still
// running at exit never finds it gone.
Isp& Isp::instance() {
    static Isp* isp = new Isp;
    return *isp;
}

Isp::Isp() : m_pImpl(new Impl) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->installDefaults();
}

void Isp::reset() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->installDefaults();
}

void Isp::runModule(const std::string& detail) {
    if (!hasFixedLens(detail))
        return;
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    for (uint32_t cmd : lensCommands()) {
        std::vector<uint32_t>& listed = m_pImpl->dynamicCmds;
        listed.erase(std::remove(listed.begin(), listed.end(), cmd), listed.end());
        m_pImpl->ranges.erase(static_cast<int>(cmd));
    }
}

// Command 2816 keeps the check's result apart from the record last set, so
// that a test can decide what the next check reports.
void Isp::setValue(int channel, int cmd, uint32_t value) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    if (cmd == IA_CMD_SENSOR_CHECK)
        m_pImpl->sensorCheckResults[channel] = value;
    else {
        m_pImpl->values[{channel, cmd}] = {value};
        m_pImpl->serials[{channel, cmd}] = m_pImpl->nextSerial++;
    }
}

bool Isp::getValue(int channel, int cmd, uint32_t& value) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    if (cmd == IA_CMD_SENSOR_CHECK) {
        const auto it = m_pImpl->sensorCheckResults.find(channel);
        if (it == m_pImpl->sensorCheckResults.end())
            return false;
        value = it->second;
        return true;
    }
    const auto it = m_pImpl->values.find({channel, cmd});
    if (it == m_pImpl->values.end() || it->second.empty())
        return false;
    value = it->second[0];
    return true;
}

void Isp::setRecord(int channel, int cmd, const std::vector<uint32_t>& words) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->values[{channel, cmd}] = words;
    m_pImpl->serials[{channel, cmd}] = m_pImpl->nextSerial++;
}

std::vector<uint32_t> Isp::getRecord(int channel, int cmd) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    const auto it = m_pImpl->values.find({channel, cmd});
    return it != m_pImpl->values.end() ? it->second : std::vector<uint32_t>();
}

void Isp::setVersionText(int channel, const std::string& text) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->versionTexts[channel] = text;
}

void Isp::setDayNight(int channel, uint32_t state) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->dayNight[channel] = state;
}

void Isp::releaseDayNight(int channel) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->dayNight.erase(channel);
}

bool Isp::dayNightForced(int channel) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    return m_pImpl->dayNight.count(channel) != 0;
}

void Isp::setDecidedDayNight(int channel, uint32_t state) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->decidedDayNight[channel] = state;
}

uint32_t Isp::decidedDayNight(int channel) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    const auto it = m_pImpl->decidedDayNight.find(channel);
    return it != m_pImpl->decidedDayNight.end() ? it->second : 0;
}

uint32_t Isp::dayNightState(int channel) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    return m_pImpl->dayNightState(channel);
}

Isp::ChannelSnapshot Isp::snapshot(int channel) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    ChannelSnapshot snap;
    for (auto it = m_pImpl->values.lower_bound({channel, INT32_MIN});
         it != m_pImpl->values.end() && it->first.first == channel; ++it)
        snap.values.emplace(it->first.second, it->second);
    for (auto it = m_pImpl->serials.lower_bound({channel, INT32_MIN});
         it != m_pImpl->serials.end() && it->first.first == channel; ++it)
        snap.serials.emplace(it->first.second, it->second);
    snap.dayNight = m_pImpl->dayNightState(channel);
    return snap;
}

void Isp::setExecStatus(int cmd, uint32_t status) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->execStatus[cmd] = status;
}

void Isp::setDynamicCommands(const std::vector<uint32_t>& cmds) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->dynamicCmds = cmds;
    m_pImpl->rawCmdList.reset();
}

std::vector<uint32_t> Isp::dynamicCommands() const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    return m_pImpl->dynamicCmds;
}

void Isp::setListRange(int cmd, uint32_t defaultValue, const std::vector<uint32_t>& items) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->ranges[cmd] = makeListRange(defaultValue, items);
}

void Isp::setMinMaxRange(int cmd, uint32_t defaultValue, uint32_t minValue, uint32_t maxValue) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->ranges[cmd] = makeMinMaxRange(defaultValue, minValue, maxValue);
}

void Isp::clearRange(int cmd) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->ranges.erase(cmd);
}

void Isp::setRawCommandList(const ia_dynamic_params_cmds_st& list) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->rawCmdList = list;
}

void Isp::setRawRange(int cmd, const ia_dynamic_params_attr_st& range) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->ranges[cmd] = range;
}

void Isp::failCommand(int cmd, int result) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->commandFailures[cmd] = result;
    m_pImpl->failureWrites.erase(cmd);
}

void Isp::failCommandAfterWriting(int cmd, int result, const std::vector<uint32_t>& words) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->commandFailures[cmd] = result;
    m_pImpl->failureWrites[cmd] = words;
}

void Isp::clearFailure(int cmd) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->commandFailures.erase(cmd);
    m_pImpl->failureWrites.erase(cmd);
}

void Isp::failAll(int result) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->allFailure = result;
}

void Isp::clearFailures() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->commandFailures.clear();
    m_pImpl->failureWrites.clear();
    m_pImpl->allFailure.reset();
}

std::vector<IspCall> Isp::trace() const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    return m_pImpl->trace;
}

std::vector<IspCall> Isp::takeTrace() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    std::vector<IspCall> out;
    out.swap(m_pImpl->trace);
    return out;
}

void Isp::clearTrace() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->trace.clear();
}

std::vector<IspCall> Isp::callsOf(int cmd) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    std::vector<IspCall> out;
    for (const IspCall& call : m_pImpl->trace)
        if (call.cmd == cmd)
            out.push_back(call);
    return out;
}

size_t Isp::recordWords(int cmd, int opt) {
    if (opt == IA_CMD_OPT_GET_PARAM_RNAGE)
        return kRangeWords;
    // A correction and a status are always one word, whatever the command.
    if (opt == IA_CMD_OPT_CORRECT_PARAM || opt == IA_CMD_OPT_GET_EXEC_STATUS)
        return 1;
    switch (cmd) {
        case IA_CMD_DYNAMIC_PARAMS_CMDS_GET:
            return kCmdListWords;
        case IA_CMD_DN_THR_D2N:
        case IA_CMD_DN_THR_N2D:
        case IA_CMD_DN_SENSITIVITY:
            return 3;
        case IA_CMD_SENSOR_CHECK:
            return 4;
        case IA_CMD_VERSION:
            return kVersionWords;
        default:
            break;
    }
    if (cmd >= IA_CMD_DN_TIME_FIRST && cmd <= IA_CMD_DN_TIME_LAST)
        return 4;
    return 1;
}

int Isp::call(int channel, int cmd, int opt, void* data) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    Impl& d = *m_pImpl;
    const size_t words = recordWords(cmd, opt);
    const size_t bytes = recordBytes(cmd, opt);
    IspCall entry{channel, cmd, opt, {}, 0};

    // An injected result changes nothing and writes nothing, unless it was
    // given words to write into the caller's record before refusing.
    if (const std::optional<int> injected = d.injectedResult(cmd)) {
        entry.words = wordsFrom(data, bytes, words);
        const auto itWrite = d.failureWrites.find(cmd);
        if (itWrite != d.failureWrites.end() && data != nullptr)
            std::memcpy(data, itWrite->second.data(), std::min(itWrite->second.size() * 4, bytes));
        entry.result = *injected;
        d.trace.push_back(std::move(entry));
        return *injected;
    }
    if (data == nullptr) {
        entry.result = -1;
        d.trace.push_back(std::move(entry));
        return -1;
    }

    switch (opt) {
        case IA_CMD_OPT_SET:
            entry.words = wordsFrom(data, bytes, words);
            if (cmd == IA_CMD_VERSION) {
                const char* text = static_cast<const char*>(data);
                d.versionTexts[channel] = std::string(text, strnlen(text, IA_VERSION_TEXT_LEN));
            } else {
                d.values[{channel, cmd}] = entry.words;
                d.serials[{channel, cmd}] = d.nextSerial++;
            }
            break;

        case IA_CMD_OPT_GET:
            if (cmd == IA_CMD_DYNAMIC_PARAMS_CMDS_GET) {
                ia_dynamic_params_cmds_st list;
                std::memset(&list, 0, sizeof(list));
                if (d.rawCmdList) {
                    list = *d.rawCmdList;
                } else {
                    const size_t count =
                        std::min<size_t>(d.dynamicCmds.size(), IA_DYNAMIC_CMDS_MAX);
                    list.cmd_cnt = static_cast<uint32_t>(count);
                    std::copy_n(d.dynamicCmds.begin(), count, list.cmd_list);
                }
                std::memcpy(data, &list, sizeof(list));
            } else if (cmd == IA_CMD_VERSION) {
                char text[IA_VERSION_TEXT_LEN];
                std::memset(text, 0, sizeof(text));
                // Always NUL-terminated within the 50 bytes.
                const std::string strText = d.versionText(channel);
                std::memcpy(text, strText.data(),
                            std::min<size_t>(strText.size(), IA_VERSION_TEXT_LEN - 1));
                std::memcpy(data, text, IA_VERSION_TEXT_LEN);
            } else if (cmd == IA_CMD_SENSOR_CHECK) {
                // The three numbers stay as the caller gave them; only the
                // result word is answered.
                const auto it = d.sensorCheckResults.find(channel);
                const uint32_t result = it != d.sensorCheckResults.end() ? it->second : 1;
                std::memcpy(static_cast<char*>(data) + 12, &result, 4);
            } else if (cmd == IA_CMD_DN_STATE) {
                const uint32_t state = d.dayNightState(channel);
                std::memcpy(data, &state, 4);
            } else {
                const std::vector<uint32_t> stored = d.storedWords(channel, cmd);
                std::memcpy(data, stored.data(), stored.size() * 4);
            }
            entry.words = wordsFrom(data, bytes, words);
            break;

        case IA_CMD_OPT_GET_PARAM_RNAGE: {
            const auto it = d.ranges.find(cmd);
            if (it == d.ranges.end()) {
                entry.result = -1;
                break;
            }
            std::memcpy(data, &it->second, sizeof(it->second));
            entry.words = wordsFrom(data, bytes, words);
            break;
        }

        case IA_CMD_OPT_CORRECT_PARAM: {
            uint32_t value;
            std::memcpy(&value, data, 4);
            const auto it = d.ranges.find(cmd);
            if (it != d.ranges.end())
                value = correctedValue(it->second, value);
            std::memcpy(data, &value, 4);
            entry.words = {value};
            break;
        }

        case IA_CMD_OPT_GET_EXEC_STATUS: {
            const auto it = d.execStatus.find(cmd);
            const uint32_t status = it != d.execStatus.end() ? it->second : 0;
            std::memcpy(data, &status, 4);
            entry.words = {status};
            break;
        }

        default:
            // An option the ISP does not know: refused, data untouched.
            entry.result = -1;
            break;
    }
    const int result = entry.result;
    d.trace.push_back(std::move(entry));
    return result;
}

} // namespace sim

extern "C" int ia_ioctrl_v2(int channel, int command, int option, void* data) {
    return sim::Isp::instance().call(channel, command, option, data);
}
