// Host stand-in for libcutils' android_get_control_file(), which the Debian
// port of libcutils leaves out. Same contract: init passes a service's "file"
// entries as descriptors named by ANDROID_FILE_<path> environment variables
// (every character that is not a letter or digit turned into '_'), and the
// descriptor counts only while it still names that file. On a host the file
// may be the device path itself or its place under the root.
#include <cutils/android_get_control_file.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/Platform.h"

namespace {

std::string LinkTarget(long fd) {
    char target[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = readlink(link.c_str(), target, sizeof(target) - 1);
    return n > 0 ? std::string(target, static_cast<size_t>(n)) : std::string();
}

}  // namespace

extern "C" int android_get_control_file(const char* path) {
    if (path == nullptr) return -1;
    std::string key = std::string(ANDROID_FILE_ENV_PREFIX) + path;
    for (char& c : key) {
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    const char* value = getenv(key.c_str());
    if (value == nullptr) return -1;
    errno = 0;
    char* end = nullptr;
    long fd = strtol(value, &end, 10);
    if (errno != 0 || end == value || fd < 0 || fd > INT_MAX) return -1;
    if (fcntl(static_cast<int>(fd), F_GETFD) < 0) return -1;

    const std::string target = LinkTarget(fd);
    const bool named = target == path || (!zelkor::tessel::platform::Root().empty() &&
                                          target == zelkor::tessel::platform::DevicePath(path));
    return named ? static_cast<int>(fd) : -1;
}
