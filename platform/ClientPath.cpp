// The platform-independent half of client path resolution: splitting a path
// into its folder and last component.
#include "platform/ClientPath.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/Platform.h"

namespace zelkor::tessel::platform {
namespace {

// Splits at the last '/', ignoring trailing ones: "a/b/" is "a" and "b",
// "/b" is "/" and "b", "b" is "." and "b".
void Split(const std::string& path, std::string* parent, std::string* name) {
    size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) {  // "" or only slashes: the root
        *parent = "/";
        *name = ".";
        return;
    }
    size_t slash = path.rfind('/', end);
    *name = path.substr(slash == std::string::npos ? 0 : slash + 1,
                        end - (slash == std::string::npos ? 0 : slash + 1) + 1);
    if (slash == std::string::npos) {
        *parent = ".";
    } else {
        size_t parentEnd = path.find_last_not_of('/', slash);
        *parent = parentEnd == std::string::npos ? "/" : path.substr(0, parentEnd + 1);
    }
}

}  // namespace

int OpenClientParent(const std::string& path, std::string* name) {
    std::string parent;
    Split(path, &parent, name);
    if (*name == "." || *name == "..") {
        // Resolve the folder itself, then name it by its real parent and name.
        int dir = OpenClientPath(path, O_PATH | O_DIRECTORY);
        if (dir < 0) return -1;
        std::string real = ClientPathOf(dir);
        close(dir);
        if (real.empty()) {
            errno = ENOENT;
            return -1;
        }
        Split(real, &parent, name);
    }
    return OpenClientPath(parent, O_PATH | O_DIRECTORY);
}

std::string ClientPathOf(int fd) {
    char resolved[PATH_MAX];
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    ssize_t length = readlink(self.c_str(), resolved, sizeof(resolved) - 1);
    if (length <= 0) return {};
    std::string path(resolved, static_cast<size_t>(length));
    // On a device the root is "/" and the path is already the client's.
    const std::string& root = Root();
    if (root == "/") return path;
    if (path.compare(0, root.size(), root) != 0) return {};
    if (path.size() == root.size()) return "/";
    if (path[root.size()] != '/') return {};
    return path.substr(root.size());
}

}  // namespace zelkor::tessel::platform
