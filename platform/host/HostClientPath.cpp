// Client paths on a host: resolved by the kernel beneath the root.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

#include <cerrno>
#include <cstring>

#include "platform/ClientPath.h"
#include "platform/Platform.h"

namespace zelkor::tessel::platform {

int OpenClientPath(const std::string& path, int flags, mode_t mode) {
    const std::string& root = Root();
    if (root.empty()) {
        errno = ENOENT;
        return -1;
    }
    android::base::unique_fd rootFd(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!rootFd.ok()) return -1;
    size_t start = path.find_first_not_of('/');
    const char* relative = start == std::string::npos ? "." : path.c_str() + start;
    struct open_how how;
    memset(&how, 0, sizeof(how));
    how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
    // openat2 refuses a mode without a flag that creates.
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) how.mode = mode;
    // Magic links (/proc/self/fd/N, /proc/PID/root) would jump anywhere.
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    long fd;
    int attempts = 0;
    do {
        fd = syscall(SYS_openat2, rootFd.get(), relative, &how, sizeof(how));
        // EAGAIN: a rename elsewhere in the root raced the lookup of "..";
        // the kernel asks for a retry, which a busy renamer may keep causing.
    } while (fd < 0 && (errno == EINTR || errno == EAGAIN) && ++attempts < 64);
    return static_cast<int>(fd);
}

}  // namespace zelkor::tessel::platform
