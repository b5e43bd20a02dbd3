// Host property store: one file per property in "<root>/dev/__properties__".
//
// A value is written to a private temporary file and renamed over the
// property's file, so readers see the old value or the new one, never a torn
// one, whichever process wrote it. Waiters watch the folder with inotify and
// wake when a file is renamed into it.
#include <android-base/parsebool.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::platform {
namespace {

using android::base::unique_fd;

// As on a device: values of mutable properties are shorter than PROP_VALUE_MAX.
constexpr size_t kPropValueMax = 92;
// A read-only property may be longer, but the store never reads more than this.
constexpr size_t kStoredValueMax = 64 * 1024;

bool IsLegalPropertyName(const std::string& name) {
    if (name.empty() || name.size() > 256 || name.front() == '.' || name.back() == '.') {
        return false;
    }
    for (size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        if (c == '.') {
            if (name[i - 1] == '.') return false;
            continue;
        }
        if (c == '_' || c == '-' || c == '@' || c == ':') continue;
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) continue;
        return false;
    }
    return true;
}

bool IsReadOnly(const std::string& key) {
    return key.compare(0, 3, "ro.") == 0;
}

std::string StoreDir() {
    return DevicePath("/dev/__properties__");
}

// Writers and waiters need the folder; readers of a missing one just find nothing.
bool EnsureStoreDir(const std::string& dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    return !ec;
}

std::optional<std::string> ReadValue(const std::string& key) {
    if (!IsLegalPropertyName(key)) return std::nullopt;
    // Values are regular files written by SetProperty: a link, a FIFO (which
    // would block the open) or anything larger than a value is not one.
    unique_fd fd(
            open((StoreDir() + "/" + key).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<size_t>(st.st_size) > kStoredValueMax) {
        return std::nullopt;
    }
    std::string value(st.st_size, '\0');
    size_t total = 0;
    while (total < value.size()) {
        ssize_t n = TEMP_FAILURE_RETRY(read(fd, value.data() + total, value.size() - total));
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        total += n;
    }
    value.resize(total);
    return value;
}

// Waits until `done()` holds, re-checking whenever a property file appears or
// is replaced. The watch is set up before the first check so no update is
// missed between the two.
bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const std::string dir = StoreDir();
    unique_fd ifd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (ifd < 0 || !EnsureStoreDir(dir) ||
        inotify_add_watch(ifd, dir.c_str(), IN_MOVED_TO | IN_CREATE) < 0) {
        return false;
    }
    using Clock = std::chrono::steady_clock;
    const bool forever = timeout == std::chrono::milliseconds::max();
    const Clock::time_point deadline = forever ? Clock::time_point::max() : Clock::now() + timeout;
    while (!done()) {
        int wait_ms = -1;
        if (!forever) {
            auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return false;
            wait_ms = static_cast<int>(std::min<long long>(left.count() + 1, INT32_MAX));
        }
        pollfd pfd{ifd.get(), POLLIN, 0};
        int ready = TEMP_FAILURE_RETRY(poll(&pfd, 1, wait_ms));
        if (ready < 0) return false;
        // Drain the events; which file changed does not matter, the check does.
        char events[4096];
        while (read(ifd, events, sizeof(events)) > 0) {
        }
    }
    return true;
}

}  // namespace

std::string GetProperty(const std::string& key, const std::string& default_value) {
    std::optional<std::string> value = ReadValue(key);
    return value && !value->empty() ? *value : default_value;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    switch (android::base::ParseBool(GetProperty(key, ""))) {
        case android::base::ParseBoolResult::kTrue:
            return true;
        case android::base::ParseBoolResult::kFalse:
            return false;
        default:
            return default_value;
    }
}

bool SetProperty(const std::string& key, const std::string& value) {
    if (!IsLegalPropertyName(key)) return false;
    const bool read_only = IsReadOnly(key);
    if (value.size() >= (read_only ? kStoredValueMax : kPropValueMax)) return false;

    static std::atomic<unsigned> counter{0};
    const std::string dir = StoreDir();
    if (!EnsureStoreDir(dir)) return false;
    const std::string tmp = dir + "/.tmp." + std::to_string(getpid()) + "." +
                            std::to_string(syscall(SYS_gettid)) + "." +
                            std::to_string(counter.fetch_add(1));
    {
        unique_fd fd(open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (fd < 0 || !android::base::WriteStringToFd(value, fd)) {
            unlink(tmp.c_str());
            return false;
        }
    }
    const std::string target = dir + "/" + key;
    // A read-only property is set once: link() refuses to replace, atomically.
    int rc = read_only ? link(tmp.c_str(), target.c_str()) : rename(tmp.c_str(), target.c_str());
    if (read_only || rc != 0) unlink(tmp.c_str());
    return rc == 0;
}

bool WaitForPropertyCreation(const std::string& key, std::chrono::milliseconds relative_timeout) {
    if (!IsLegalPropertyName(key)) return false;
    return WaitUntil([&] { return ReadValue(key).has_value(); }, relative_timeout);
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    if (!IsLegalPropertyName(key)) return false;
    return WaitUntil([&] { return ReadValue(key) == expected_value; }, relative_timeout);
}

}  // namespace zelkor::tessel::platform
