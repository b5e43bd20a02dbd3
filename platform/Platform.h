// The daemon's only view of what differs between a device and a Linux host:
// where device paths live and how the process is set up.
#pragma once

#include <string>
#include <string_view>

namespace zelkor::tessel::platform {

// Sets the process up for its platform. On a host it takes "--root DIR" (or
// "--root=DIR") out of argv, falling back to the TESSEL_ROOT environment
// variable, and sends the Android log to stderr at the level named by
// TESSEL_LOG_LEVEL (v, d, i, w, e; debug by default); large freed blocks
// stay with the process instead of going back to the kernel on every free.
// On a device it does nothing. Returns false, after printing why, when no usable root is given.
bool InitPlatform(int* argc, char** argv);

// The folder under which device paths live: "/" on a device.
const std::string& Root();

// Host only: uses `dir` as the root from now on. False if it is not a folder.
bool SetRoot(const std::string& dir);

// Maps an absolute device path ("/dev/block/by-name/blackbox") to the path the
// process opens: the identity on a device, the same path under the root on a
// host. Logs and messages keep naming the device path.
std::string DevicePath(std::string_view device_path);

}  // namespace zelkor::tessel::platform
