// Copies the sample device tree into a test's device root.
#include <filesystem>
#include <system_error>

#include "sim/SimHost.h"

namespace sim {

bool populateDeviceRoot(const std::string& root, const std::string& dataDir) {
    namespace fs = std::filesystem;
    std::error_code ec;
    if (root.empty() || !fs::is_directory(dataDir, ec))
        return false;
    fs::create_directories(root, ec);
    if (ec)
        return false;
    fs::copy(dataDir, root, fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
    return !ec;
}

} // namespace sim
