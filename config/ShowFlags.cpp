#include "config/ShowFlags.h"

#include <atomic>

namespace {

// One byte, written at start-up and by the host, read on any thread.
std::atomic<bool> g_bShoWBeawayFalg{true};

} // namespace

void setshowBeawayFalg(bool p_bShow) {
    g_bShoWBeawayFalg = p_bShow;
}

bool getshowBeawayFalg() {
    return g_bShoWBeawayFalg;
}
