// One simulated camera: a device root populated from the sample tree, the
// simulated host, and the real controller running in it.
#pragma once

#include <memory>
#include <string>

#include "controller/ISensorController.h"
#include "sim/SimHost.h"

namespace sensorctl {

struct CameraOptions {
    std::string strRoot; // empty: a new temporary root
    bool bKeep = false;  // keep a temporary root at exit
    int nChannel = 1;
    int nDeviceType = -1;  // -1: as the sample machine information says
    std::string strModel;  // empty: as the sample says
    std::string strDetail; // empty: as the sample module says
    int nMaxScheme = -1;   // -1: as the detail says
    bool bDebug = false;   // write nDebug into the debug sign file
    int nDebug = 0;
    double dTimeScale = 1.0;
    int nClockHour = -1; // with nClockMinute: the device clock stands there; -1: the wall clock
    int nClockMinute = 0;
    std::string strDataDir; // the sample device tree
};

class Camera {
public:
    explicit Camera(const CameraOptions& options);
    ~Camera(); // uinit, and removes a temporary root unless kept

    // Prepares the root and starts the controller (construct, channel, video
    // pipeline, init). false with a reason when the root cannot be prepared
    // or the controller did not start (it then is shut down again).
    bool start(std::string& error);
    void stop();
    // A reboot: the controller shuts down (uinit) and starts again (init) in
    // the same object, so whoever holds controller() keeps a live one. false
    // with a reason as start's.
    bool restart(std::string& error);

    ISensorController& controller() { return *m_pController; }
    sim::SimVideoStreamModule& video() { return m_objVideo; }
    const std::string& root() const { return m_strRoot; }
    // A new temporary root that stays at exit (--keep without --root).
    bool keepsTemporaryRoot() const { return m_bTemporary && m_options.bKeep; }
    int channel() const { return m_options.nChannel; }
    // The ISP channel of this camera (the controller's channel counted from 0).
    int ispChannel() const;
    // The controller's channel (a device of type 13 always runs channel 2).
    int controllerChannel() const { return ispChannel() + 1; }
    // The number of user schemes the module detail gave at start (4 when it
    // names none); valid scheme indices run from 0 to this number (the
    // factory slot).
    unsigned schemeCount() const { return m_nSchemes; }

private:
    bool prepareRoot(std::string& error);
    // Reads the module, runs init and checks what it left.
    bool run(std::string& error);
    bool writeMachineInfo(std::string& error);
    bool writeModuleDetail(std::string& error);
    ModuleConfigure readModuleConfigure() const;

    CameraOptions m_options;
    std::string m_strRoot;
    bool m_bTemporary = false;
    bool m_bStarted = false;
    unsigned m_nSchemes = 0;
    sim::SimVideoStreamModule m_objVideo;
    std::unique_ptr<ISensorController> m_pController;
};

// Reads a whole file; false when it cannot be read.
bool readWholeFile(const std::string& path, std::string& out);

} // namespace sensorctl
