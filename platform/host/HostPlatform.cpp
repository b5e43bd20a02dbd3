// Host side of the platform seam: a sandbox root folder stands in for "/".
#include <android-base/logging.h>
#include <android/log.h>
#include <limits.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/Platform.h"
#include "platform/host/LogKillSwitch.h"

namespace zelkor::tessel::platform {
namespace {

// `dir` resolved, when it is an existing folder; empty otherwise.
std::string ResolvedFolder(const char* dir) {
    char resolved[PATH_MAX];
    struct stat st;
    if (dir == nullptr || *dir == '\0' || realpath(dir, resolved) == nullptr ||
        stat(resolved, &st) != 0 || !S_ISDIR(st.st_mode)) {
        return {};
    }
    return resolved;
}

std::string& RootStorage() {
    // Never destroyed: threads still running while the process exits (a
    // binder thread, a lookup waiting for a peer) may read it to the end.
    static auto* root = new std::string(ResolvedFolder(getenv("TESSEL_ROOT")));
    return *root;
}

int LogLevelFromEnv() {
    const char* env = getenv("TESSEL_LOG_LEVEL");
    switch (env != nullptr ? env[0] : 'd') {
        case 'v':
            return ANDROID_LOG_VERBOSE;
        case 'i':
            return ANDROID_LOG_INFO;
        case 'w':
            return ANDROID_LOG_WARN;
        case 'e':
            return ANDROID_LOG_ERROR;
        default:
            return ANDROID_LOG_DEBUG;
    }
}

// Lexically resolves "." and ".." so that no device path can leave the root:
// as under chroot, ".." at the top stays at the top.
std::string NormalizeAbsolute(std::string_view path) {
    std::vector<std::string_view> parts;
    size_t pos = 0;
    while (pos <= path.size()) {
        size_t next = path.find('/', pos);
        if (next == std::string_view::npos) next = path.size();
        std::string_view part = path.substr(pos, next - pos);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        pos = next + 1;
    }
    std::string out;
    for (std::string_view part : parts) {
        out += '/';
        out += part;
    }
    if (out.empty() || (!path.empty() && path.back() == '/')) out += '/';
    return out;
}

// glibc returns the top of the heap to the kernel whenever more than twice
// the last large block is free there, and hands out blocks above its
// threshold as fresh mappings. A binder service that receives a byte array of
// a few MiB allocates and frees such blocks on every call, so each call
// faulted its pages in again (a 1 MiB echo ran three times slower on the
// calls served by the main thread). A device's allocator does not give pages
// back on each free either. Blocks up to glibc's largest threshold now come
// from the heap, and up to twice that may stay free at its top.
void KeepLargeBlocks() {
    constexpr int kLargestHeapBlock = 32 << 20;
    mallopt(M_MMAP_THRESHOLD, kLargestHeapBlock);
    mallopt(M_TRIM_THRESHOLD, 2 * kLargestHeapBlock);
}

}  // namespace

bool InitPlatform(int* argc, char** argv) {
    KeepLargeBlocks();
    // The base library's LOG() writes through liblog's logger too, so this
    // one call sends every line of the process to stderr in one format.
    InstallHostLogger();
    // The tag of lines logged without one, set before any thread logs: the
    // log library fills it in lazily under a shared lock, so two threads
    // logging untagged lines at once could write and read it together.
    __android_log_set_default_tag(program_invocation_short_name);
    __android_log_set_minimum_priority(LogLevelFromEnv());

    std::string root;
    int out = 1;
    for (int i = 1; i < *argc; ++i) {
        const char* arg = argv[i];
        const char* value = nullptr;  // the folder, when this is a --root option
        if (strncmp(arg, "--root=", 7) == 0) {
            value = arg + 7;
        } else if (strcmp(arg, "--root") == 0) {
            value = i + 1 < *argc ? argv[++i] : "";
        }
        if (value != nullptr) {
            // An empty folder is refused rather than falling back to TESSEL_ROOT.
            if (*value == '\0') {
                fprintf(stderr, "%s: --root needs a folder\n", argv[0]);
                return false;
            }
            root = value;
        } else {
            argv[out++] = argv[i];
        }
    }
    *argc = out;
    argv[out] = nullptr;

    if (!root.empty()) {
        if (!SetRoot(root)) {
            fprintf(stderr, "%s: --root %s: not a folder\n", argv[0], root.c_str());
            return false;
        }
        return true;
    }
    const char* env = getenv("TESSEL_ROOT");
    if (env == nullptr || *env == '\0') {
        fprintf(stderr, "%s: no host root: pass --root DIR or set TESSEL_ROOT\n", argv[0]);
        return false;
    }
    if (Root().empty()) {
        fprintf(stderr, "%s: TESSEL_ROOT %s: not a folder\n", argv[0], env);
        return false;
    }
    return true;
}

const std::string& Root() {
    return RootStorage();
}

bool SetRoot(const std::string& dir) {
    std::string resolved = ResolvedFolder(dir.c_str());
    if (resolved.empty()) return false;
    RootStorage() = std::move(resolved);
    return true;
}

std::string DevicePath(std::string_view device_path) {
    const std::string& root = Root();
    CHECK(!root.empty()) << "no host root: pass --root DIR or set TESSEL_ROOT";
    std::string normalized = NormalizeAbsolute(device_path);
    if (root == "/") return normalized;
    return root + normalized;
}

}  // namespace zelkor::tessel::platform
