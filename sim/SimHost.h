// Controls of the simulated camera host beyond the ISP: time, the video
// pipeline, the shell, the mutex record and the device tree.
#pragma once

#include <string>
#include <vector>

#include "host/GThread.h"
#include "host/KPDeviceTime.h"
#include "host/KPMutex.h"
#include "host/MachineInfo.h"
#include "host/ModuleConfigure.h"
#include "host/VideoStreamModule.h"

namespace sim {

// TarvelTime waits last their time multiplied by this factor (1: real time,
// 0: no wait at all).
void setTimeScale(double factor);
double timeScale();
// How many TarvelTime waits have begun in this process (a worker's round
// begins with one).
unsigned long waitCount();

// While paused, every GThread ends its round in progress and begins no new
// one until resumed; stop still returns promptly. A test or a scripted
// session then drives the rounds itself, deterministically.
void pauseThreads(bool pause);
bool threadsPaused();

// Whether a thread object's loop runs (started and not stopped). Sim-only: a
// camera's GThread offers start and stop alone.
bool threadRunning(const GThread& thread);

// The device clock: a set simulated time, or the real clock after clear.
void setDeviceTime(int hour, int minute);
// A whole simulated date and time (the clock stands there, as setDeviceTime's).
void setDeviceDateTime(const KPDateTime& time);
void clearDeviceTime();

// Every command handed to sy_system, in order.
std::vector<std::string> systemCommands();
void clearSystemCommands();

// What KPMutex saw: "Lock file:line" / "Unlock file:line" (and "TryLock
// file:line" from tryLockMutex), recorded only while enabled.
void recordMutexEvents(bool enable);
std::vector<std::string> mutexEvents();
void clearMutexEvents();

// Takes the mutex when that needs no wait (its holder may take it again).
// Sim-only, for tests of the simulated host: a camera's KPMutex offers Lock
// and Unlock alone, and the controller never tries it.
bool tryLockMutex(KPMutex& mutex, const char* file, int line);

// Copies the sample device tree (a mirror of the device's paths) into root.
bool populateDeviceRoot(const std::string& root, const std::string& dataDir);

// The module a device tree describes for its machine, as a host picks it
// before it starts a controller: the first module of the tree's module
// configuration that matches the hardware model and code of its machine
// information; an empty module when none does. root is the folder that holds
// the tree ("" for the real root).
ModuleConfigure machineModule(const std::string& root);

// The machine information of a device tree (defaults where its file is
// missing or says nothing). root as above.
MachineInfo machineInfo(const std::string& root);

// The simulated video pipeline: records every notification, answers a
// settable result, lists settable streams.
class SimVideoStreamModule : public VideoStreamModule {
public:
    struct Notice {
        int channel;
        int key;
        int value;
    };

    SimVideoStreamModule();
    ~SimVideoStreamModule() override;

    int notifySensorParam(int channel, int key, int value) const override;
    bool getAVStreamParams(std::vector<AVStreamParam>& streams) const override;

    void setResult(int result); // for every key
    void setResultForKey(int key, int result);
    void setStreams(const std::vector<AVStreamParam>& streams);
    std::vector<Notice> notices() const;
    std::vector<Notice> takeNotices();
    void clearNotices();

private:
    struct Impl;
    Impl* m_pImpl;
};

} // namespace sim
