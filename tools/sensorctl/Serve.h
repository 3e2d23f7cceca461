// sensorctl serve: the simulated camera behind a small HTTP API and its
// settings page, on the loopback interface only.
#pragma once

#include <string>
#include <vector>

#include "Camera.h"

namespace sensorctl {

// One of the camera's users; the level is "Administrator", "Operator" or
// "User".
struct ServeUser {
    std::string strName;
    std::string strPassword;
    std::string strLevel;
};

struct ServeOptions {
    int nPort = 8080; // 0: any free port; the one taken is printed at start
    // The camera's users (--user, --users, and the ONVIF credentials as an
    // Administrator). With none, ONVIF is off and the console is open; with
    // any, ONVIF answers and the console asks for HTTP digest credentials.
    std::vector<ServeUser> users;
    std::string strOnvifUser;
    std::string strOnvifPassword;
    // WS-Discovery beside ONVIF: answers Probe and Resolve on this UDP port
    // (3702; 0: any free port, printed at start), joined to 239.255.255.250.
    bool bDiscovery = true;
    int nDiscoveryPort = 3702;
    // The address the discovery service binds; on a 127.x address it joins
    // no group and serves this machine's unicast Probes alone.
    std::string strDiscoveryBind = "0.0.0.0";
    // Hello at start and Bye at stop to 239.255.255.250:3702.
    bool bAnnounce = false;
};

// Blocks SIGINT and SIGTERM in the calling thread, so that every thread
// started afterwards (the controller's worker, the server's pool) inherits
// the mask and the server's own waiter alone receives them. Call before the
// camera starts.
void blockStopSignals();

// Serves the camera until SIGINT or SIGTERM. 0 after a clean end, 1 when the
// port cannot be bound. The caller stops the camera afterwards.
int runServe(Camera& camera, const ServeOptions& options);

// The settings page, built into the binary.
extern const char* const kWebPage;

} // namespace sensorctl
