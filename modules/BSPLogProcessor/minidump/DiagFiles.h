// The last-log files under "/data/vendor/diag": names, creation and modes.
#pragma once

#include <fcntl.h>

#include <cstdint>
#include <string>

namespace zelkor::tessel::Minidump {

// "/data/vendor/diag/<base>" for the newest dump (late index 0), and
// "/data/vendor/diag/<base>_<late>" for older ones. A device path.
std::string DiagFilePath(const char* base, uint32_t lateIndex);

// Opens a last-log file write-only with mode 0600 and `flags` (O_TRUNC or
// O_APPEND), creating it; -1 after logging when it cannot be opened.
int OpenDiagFile(const std::string& devicePath, int flags = O_TRUNC);

// Gives the file its final mode 0644 and closes it.
void CloseDiagFile(int fd, const std::string& devicePath);

}  // namespace zelkor::tessel::Minidump
