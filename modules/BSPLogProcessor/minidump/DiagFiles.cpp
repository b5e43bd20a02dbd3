#include "modules/BSPLogProcessor/minidump/DiagFiles.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

std::string DiagFilePath(const char* base, uint32_t lateIndex) {
    std::string path = std::string(kDiagDir) + "/" + base;
    if (lateIndex >= 1) path += "_" + std::to_string(lateIndex);
    return path;
}

int OpenDiagFile(const std::string& devicePath, int flags) {
    // Private while it is being written; readable by all once complete.
    int fd = open(platform::DevicePath(devicePath).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags,
                  0600);
    if (fd < 0) MD_LOGE("open %s fail %d(%s)\n", devicePath.c_str(), errno, strerror(errno));
    return fd;
}

void CloseDiagFile(int fd, const std::string& devicePath) {
    if (fchmod(fd, 0644) != 0) {
        MD_LOGE("chmod %s fail %d(%s)\n", devicePath.c_str(), errno, strerror(errno));
    }
    close(fd);
}

}  // namespace zelkor::tessel::Minidump
