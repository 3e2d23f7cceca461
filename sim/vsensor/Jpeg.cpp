// JPEG through libjpeg-turbo's TurboJPEG API, when the build found it.
#include "sim/VirtualSensor.h"

#ifdef SENSOR_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace sim {

bool jpegAvailable() {
#ifdef SENSOR_HAVE_TURBOJPEG
    return true;
#else
    return false;
#endif
}

bool encodeJpeg(const Frame& frame, int quality, std::vector<uint8_t>& out, std::string& error) {
    if (quality < 1 || quality > 100) {
        error = "JPEG quality " + std::to_string(quality) + " refused: it must lie from 1 to 100";
        return false;
    }
    if (frame.width <= 0 || frame.height <= 0 ||
        frame.rgb.size() < static_cast<size_t>(frame.width) * frame.height * 3) {
        error = "no picture to encode";
        return false;
    }
#ifdef SENSOR_HAVE_TURBOJPEG
    tjhandle handle = tjInitCompress();
    if (handle == nullptr) {
        error = "the JPEG encoder could not start";
        return false;
    }
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(handle, frame.rgb.data(), frame.width, 0, frame.height, TJPF_RGB,
                                   &buffer, &size, TJSAMP_420, quality, TJFLAG_FASTDCT);
    if (result != 0) {
        error = std::string("JPEG encoding failed: ") + tjGetErrorStr2(handle);
    } else {
        out.assign(buffer, buffer + size);
        error.clear();
    }
    tjFree(buffer);
    tjDestroy(handle);
    return result == 0;
#else
    (void)out;
    error = "this build has no JPEG encoder (libturbojpeg was not found)";
    return false;
#endif
}

} // namespace sim
