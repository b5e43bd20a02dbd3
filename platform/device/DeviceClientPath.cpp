// Client paths on a device: ordinary paths, opened as given.
#include <fcntl.h>

#include <cerrno>

#include "platform/ClientPath.h"

namespace zelkor::tessel::platform {

int OpenClientPath(const std::string& path, int flags, mode_t mode) {
    int fd;
    do {
        fd = open(path.empty() ? "/" : path.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

}  // namespace zelkor::tessel::platform
