// Service sockets: naming, publishing, lookup and waiting.
#include "platform/host/binder_ndk/ServiceRegistry.h"
#include "platform/host/binder_ndk/Wire.h"

#include <android-base/logging.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>

#include "platform/Platform.h"
#include "platform/host/binder_ndk/Dispatcher.h"
#include "platform/host/binder_ndk/LocalBinder.h"
#include "platform/host/binder_ndk/ProxyTable.h"
#include "platform/host/binder_ndk/RemoteBinder.h"

namespace zelkor::tessel::binder {
namespace {

using android::base::unique_fd;

constexpr size_t kMaxServiceName = 127;

struct Registration {
    dev_t dev;
    ino_t ino;
    BinderRef binder;
    uint64_t listener;
};

struct Registrations {
    std::mutex lock;
    std::map<std::string, Registration> byInstance;
};

Registrations& OwnRegistrations() {
    static auto* registrations = new Registrations();
    return *registrations;
}

bool ValidNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '-' || c == '/';
}

// The service manager's folder, as a device path.
constexpr char kServiceFolder[] = "/dev/binderfs/sm";

// The service folder, made if needed (private to its owner) and opened for
// *at() calls. It is made one level at a time from the open root, never above
// it: a root that has gone (a test's, say, while a lookup of the process was
// still waiting) is not made again, even when it goes between the steps.
unique_fd OpenServiceDirectory() {
    unique_fd dir(open(zelkor::tessel::platform::Root().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    std::string_view rest = std::string_view(kServiceFolder).substr(1);
    while (dir.get() >= 0 && !rest.empty()) {
        const size_t slash = rest.find('/');
        const std::string level(rest.substr(0, slash));
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        mkdirat(dir.get(), level.c_str(), 0700);
        if (rest.empty()) fchmodat(dir.get(), level.c_str(), 0700, 0);
        dir.reset(openat(dir.get(), level.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }
    return dir;
}

// A sockaddr naming `name` inside the folder open as `dirFd`.
sockaddr_un AddressIn(int dirFd, const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/%s", dirFd,
             name.c_str());
    return address;
}

std::string TemporaryName() {
    static std::atomic<uint64_t> counter{0};
    return ".bind-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
}

// This process's own object registered under `instance`, if the socket file
// (dev, ino) is still its registration.
BinderRef OwnService(const std::string& instance, dev_t dev, ino_t ino) {
    Registrations& own = OwnRegistrations();
    std::lock_guard<std::mutex> lock(own.lock);
    auto it = own.byInstance.find(instance);
    if (it == own.byInstance.end() || it->second.dev != dev || it->second.ino != ino) {
        return nullptr;
    }
    return it->second.binder;
}

}  // namespace

std::string ServiceDirectory() {
    if (zelkor::tessel::platform::Root().empty()) return {};
    return zelkor::tessel::platform::DevicePath(kServiceFolder);
}

std::string SocketNameFor(std::string_view instance) {
    if (instance.empty() || instance.size() > kMaxServiceName) return {};
    if (!std::all_of(instance.begin(), instance.end(), ValidNameChar)) return {};
    if (instance == "." || instance == "..") return {};
    std::string name;
    for (char c : instance) {
        if (c == '/') {
            name += "%2F";
        } else {
            name += c;
        }
    }
    return name;
}

binder_exception_t PublishService(const std::string& instance, LocalBinder* binder) {
    const std::string name = SocketNameFor(instance);
    if (name.empty()) return EX_ILLEGAL_ARGUMENT;
    const std::string dir = ServiceDirectory();
    if (dir.empty()) {
        LOG(ERROR) << "cannot register " << instance << ": no host root";
        return EX_ILLEGAL_STATE;
    }
    unique_fd dirFd = OpenServiceDirectory();
    unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (dirFd.get() < 0 || listener.get() < 0) {
        PLOG(ERROR) << "cannot register " << instance;
        return EX_ILLEGAL_STATE;
    }
    int one = 1;
    setsockopt(listener.get(), SOL_SOCKET, SO_PASSCRED, &one, sizeof(one));
    const std::string temporary = TemporaryName();
    unlinkat(dirFd.get(), temporary.c_str(), 0);
    sockaddr_un address = AddressIn(dirFd.get(), temporary);
    struct stat st {};
    if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        fchmodat(dirFd.get(), temporary.c_str(), 0600, 0) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0 ||
        fstatat(dirFd.get(), temporary.c_str(), &st, 0) != 0) {
        PLOG(ERROR) << "cannot register " << instance << " in " << dir;
        unlinkat(dirFd.get(), temporary.c_str(), 0);
        return EX_ILLEGAL_STATE;
    }
    Dispatcher& dispatcher = Dispatcher::Get();
    const uint64_t listenerId =
            dispatcher.serveListener(std::move(listener), BinderRef::Retain(binder));
    // Recorded before the socket becomes visible, so that a lookup from this
    // process right after finds its own object.
    Registration previous{0, 0, nullptr, 0};
    {
        Registrations& own = OwnRegistrations();
        std::lock_guard<std::mutex> lock(own.lock);
        auto it = own.byInstance.find(instance);
        if (it != own.byInstance.end()) previous = std::move(it->second);
        own.byInstance[instance] =
                Registration{st.st_dev, st.st_ino, BinderRef::Retain(binder), listenerId};
    }
    if (renameat(dirFd.get(), temporary.c_str(), dirFd.get(), name.c_str()) != 0) {
        PLOG(ERROR) << "cannot register " << instance << " in " << dir;
        unlinkat(dirFd.get(), temporary.c_str(), 0);
        dispatcher.stopListening(listenerId);
        // The earlier registration still serves the visible socket: it stays
        // on record, so that it can be found and replaced later.
        Registrations& own = OwnRegistrations();
        std::lock_guard<std::mutex> lock(own.lock);
        if (previous.listener != 0) {
            own.byInstance[instance] = std::move(previous);
        } else {
            own.byInstance.erase(instance);
        }
        return EX_ILLEGAL_STATE;
    }
    if (previous.listener != 0) dispatcher.stopListening(previous.listener);
    return EX_NONE;
}

BinderRef LookupService(const std::string& instance) {
    const std::string name = SocketNameFor(instance);
    const std::string dir = ServiceDirectory();
    if (name.empty() || dir.empty()) return nullptr;
    unique_fd dirFd(open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (dirFd.get() < 0) return nullptr;
    unique_fd file(openat(dirFd.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (file.get() < 0 || fstat(file.get(), &st) != 0 || !S_ISSOCK(st.st_mode)) return nullptr;
    if (BinderRef own = OwnService(instance, st.st_dev, st.st_ino)) return own;
    // Connect even when a proxy is known: a file without a listener (its
    // process died) refuses the connection, and that is how a dead service
    // is told from a live one.
    unique_fd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d", file.get());
    if (connection.get() < 0 ||
        connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        return nullptr;
    }
    ucred owner{};
    if (!PeerCredentials(connection.get(), &owner)) return nullptr;
    fcntl(connection.get(), F_SETFL, fcntl(connection.get(), F_GETFL) | O_NONBLOCK);
    SetUpConnectionEnd(connection.get(), ConnectionEnd::kCalling);
    // The owner's pid leads the key, as for objects received in parcels, and
    // keeps a reused inode number from matching an older service's proxy.
    const std::string key = std::to_string(owner.pid) + ":sm:" + std::to_string(st.st_dev) + ":" +
                            std::to_string(st.st_ino);
    BinderRef proxy = FindOrCreateProxy(
            key, [&] { return RemoteBinder::Create(key, std::move(connection), std::string()); });
    // An already known proxy can use the new connection for its calls.
    if (proxy && connection.get() >= 0) proxy->asRemote()->adoptConnection(std::move(connection));
    return proxy;
}

std::vector<std::string> RegisteredServices() {
    std::vector<std::string> instances;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(ServiceDirectory(), error)) {
        std::string instance = entry.path().filename().string();
        if (instance.rfind(".bind-", 0) == 0) continue;  // a registration in progress
        for (size_t at = instance.find("%2F"); at != std::string::npos;
             at = instance.find("%2F", at + 1)) {
            instance.replace(at, 3, "/");
        }
        if (SocketNameFor(instance) != entry.path().filename().string()) continue;
        if (LookupService(instance)) instances.push_back(instance);
    }
    std::sort(instances.begin(), instances.end());
    return instances;
}

BinderRef WaitForService(const std::string& instance, Deadline deadline) {
    const std::string dir = ServiceDirectory();
    if (SocketNameFor(instance).empty() || dir.empty()) return nullptr;
    unique_fd dirFd = OpenServiceDirectory();
    unique_fd notify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    // Watch first, then look: a registration between the two still wakes us.
    if (dirFd.get() < 0 || notify.get() < 0 ||
        inotify_add_watch(notify.get(), dir.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB) < 0) {
        PLOG(ERROR) << "cannot watch " << dir;
        return nullptr;
    }
    for (;;) {
        if (BinderRef service = LookupService(instance)) return service;
        if (!WaitReady(notify.get(), POLLIN, deadline)) return nullptr;
        alignas(inotify_event) char events[4096];
        while (read(notify.get(), events, sizeof(events)) > 0) {
        }
    }
}

}  // namespace zelkor::tessel::binder
