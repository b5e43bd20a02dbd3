// Device side of the platform seam: device paths are real paths.
#include "platform/Platform.h"

namespace zelkor::tessel::platform {

bool InitPlatform(int*, char**) {
    return true;
}

const std::string& Root() {
    static const std::string root = "/";
    return root;
}

bool SetRoot(const std::string&) {
    return false;
}

std::string DevicePath(std::string_view device_path) {
    return std::string(device_path);
}

}  // namespace zelkor::tessel::platform
