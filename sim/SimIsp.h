// The simulated image signal processor behind ia_ioctrl_v2.
//
// A value store per channel and command; run-time ranges (the dynamic command
// list of command 4112 and one range record per command); option 3 corrects a
// value into its range; option 4 answers an execution status; multi-word
// records for the day/night thresholds and times, the version text and the
// sensor check; a trace of every call; injected results. Thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/ia_ioctrl_v2.h"

namespace sim {

// One run-time range of a profile: a list range (type 0) when it has items,
// else a min/max range (type 1).
struct ProfileRange {
    uint32_t cmd;
    uint32_t defaultValue;
    std::vector<uint32_t> items;
    uint32_t minValue;
    uint32_t maxValue;
};

// What the ISP reports before a test or session changes it.
struct IspProfile {
    std::vector<uint32_t> dynamicCmds; // the dynamic command list (command 4112)
    std::vector<ProfileRange> ranges;  // the listed commands' ranges, then the others'
    std::string versionText;           // command 2496, on every channel
};

// The default profile, installed when the ISP is made and by reset(): the
// sample style documents, sensorctl's sessions and the tests rely on exactly
// it. It is the profile of an ISP that drives a lens; see Isp::runModule.
const IspProfile& defaultProfile();

// The commands of the default profile that drive a lens (the focus near
// limit): an ISP on a fixed-lens module has none of them.
const std::vector<uint32_t>& lensCommands();

// Whether a module's detail text ("(sensor=IMX327)(lens=fixed)...") names a
// fixed lens.
bool hasFixedLens(const std::string& detail);

struct IspCall {
    int channel;
    int cmd;
    int opt;
    std::vector<uint32_t> words; // the record as passed in (set) or handed out (get)
    int result;
};

class Isp {
public:
    static Isp& instance();

    // Back to the default profile: empty stores, default ranges, no faults, empty trace.
    void reset();

    // The module this ISP runs, by its detail text, as a host tells it before
    // it starts a controller for the module. On a fixed-lens module the lens
    // commands leave the dynamic command list and lose their ranges, so that
    // the ISP never lists a command the module's style and schemes lack; any
    // other module changes nothing. A test that needs that disagreement lists
    // the lens commands again after this.
    void runModule(const std::string& detail);

    // Values (records are stored as their words; a plain value is one word).
    void setValue(int channel, int cmd, uint32_t value);
    bool getValue(int channel, int cmd, uint32_t& value) const;
    void setRecord(int channel, int cmd, const std::vector<uint32_t>& words);
    std::vector<uint32_t> getRecord(int channel, int cmd) const;
    void setVersionText(int channel, const std::string& text);
    // Forces the day/night state that command 153 reports (non-zero: night).
    // A forced state wins over the ISP's own decision until released.
    void setDayNight(int channel, uint32_t state);
    // Ends a forced state: command 153 reports the ISP's own decision again.
    void releaseDayNight(int channel);
    bool dayNightForced(int channel) const;
    // The ISP's own day/night decision (the virtual sensor's light meter sets
    // it in the automatic mode); day (0) until decided.
    void setDecidedDayNight(int channel, uint32_t state);
    uint32_t decidedDayNight(int channel) const;
    // The state command 153 reports now: the forced one, else the decided one.
    uint32_t dayNightState(int channel) const;
    struct ChannelSnapshot {
        std::map<int, std::vector<uint32_t>> values;
        std::map<int, uint64_t> serials; // larger: set later (by a call or setValue/setRecord)
        uint32_t dayNight = 0;           // what command 153 reports
    };
    ChannelSnapshot snapshot(int channel) const;
    void setExecStatus(int cmd, uint32_t status);

    // Run-time ranges, the same on every channel.
    void setDynamicCommands(const std::vector<uint32_t>& cmds);
    std::vector<uint32_t> dynamicCommands() const;
    void setListRange(int cmd, uint32_t defaultValue, const std::vector<uint32_t>& items);
    void setMinMaxRange(int cmd, uint32_t defaultValue, uint32_t minValue, uint32_t maxValue);
    void clearRange(int cmd);
    // Records handed out exactly as given, counts beyond capacity included.
    void setRawCommandList(const ia_dynamic_params_cmds_st& list);
    void setRawRange(int cmd, const ia_dynamic_params_attr_st& range);

    // Injected results: for one command, or for every command (per-command wins).
    void failCommand(int cmd, int result);
    // A refusal that first writes words into the caller's record, as an ISP
    // may fill its answer before it finds it cannot serve it; the trace shows
    // the record as passed in.
    void failCommandAfterWriting(int cmd, int result, const std::vector<uint32_t>& words);
    void clearFailure(int cmd);
    void failAll(int result);
    void clearFailures();

    // The trace of every call since the last clear.
    std::vector<IspCall> trace() const;
    std::vector<IspCall> takeTrace();
    void clearTrace();
    // Calls of one command (any option) in the trace.
    std::vector<IspCall> callsOf(int cmd) const;

    // The number of 32-bit words a command's value occupies.
    static size_t recordWords(int cmd, int opt);

    int call(int channel, int cmd, int opt, void* data);

private:
    Isp();
    struct Impl;
    Impl* m_pImpl;
};

} // namespace sim
