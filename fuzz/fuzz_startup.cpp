// Start-up over arbitrary stored files: the four scheme files and the
// version stamp come from the input (split at "\n--\n"; a missing part
// leaves that file absent), written into the private root before init.
// Every start must leave a controller that answers single keys.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "storage/SensorFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::setUp();
    static sim::SimVideoStreamModule objVideo;
    static const ModuleConfigure objModule = fuzzsupport::sampleModule();
    sim::Isp::instance().reset();

    const std::string strInput(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> vecParts;
    std::string::size_type nPos = 0;
    while (vecParts.size() < 5) {
        const std::string::size_type nEnd = strInput.find("\n--\n", nPos);
        vecParts.push_back(strInput.substr(nPos, nEnd == std::string::npos ? nEnd : nEnd - nPos));
        if (nEnd == std::string::npos)
            break;
        nPos = nEnd + 4;
    }
    static const std::string kPaths[] = {SENSOR_VERSION_FILE, sensorSchemeFile(1, 0),
                                         sensorSchemeFile(1, 1), sensorSchemeFile(1, 2),
                                         sensorSchemeFile(1, 3)};
    for (size_t i = 0; i < 5; ++i) {
        if (i < vecParts.size())
            fuzzsupport::writeFile(kPaths[i], vecParts[i]);
        else
            std::remove(fuzzsupport::real(kPaths[i]).c_str());
    }

    ISensorController objCtl;
    objCtl.setChannelID(1);
    objCtl.setVideoStreamModule(&objVideo);
    if (!objCtl.init(objModule))
        __builtin_trap();
    int nValue = -1;
    if (!objCtl.getParameter(34, nValue) || objCtl.setParameter(34, 42) != 0 ||
        !objCtl.getParameter(34, nValue) || nValue != 42)
        __builtin_trap();
    (void)objCtl.flush();
    objCtl.uinit();
    return 0;
}
