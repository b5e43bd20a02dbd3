// The host service manager: a folder of Unix sockets under the host root,
// <root>/dev/binderfs/sm, one per registered instance. The folder is private
// to its owner (0700, sockets 0600).
//
// A socket is created under a temporary name and renamed into place, so a
// registration atomically replaces an earlier one, including the stale file
// of a process that died. A lookup opens the file and connects through
// /proc/self/fd, which keeps socket paths short however deep the root is.
#pragma once

#include <android/binder_status.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/binder_ndk/Binder.h"
#include "platform/host/binder_ndk/Wire.h"

namespace zelkor::tessel::binder {

class LocalBinder;

// The socket folder, or "" when no host root is set.
std::string ServiceDirectory();

// The socket file name for `instance` ("/" written as "%2F"), or "" when
// `instance` is not a valid service name (1 to 127 characters of
// [A-Za-z0-9_.-/], as the platform's service manager accepts).
std::string SocketNameFor(std::string_view instance);

binder_exception_t PublishService(const std::string& instance, LocalBinder* binder);

// The service registered under `instance` if it is up, without waiting: this
// process's own object for its own registrations, otherwise a proxy.
BinderRef LookupService(const std::string& instance);

// The instances registered on the root whose process is still serving, in
// name order. A host-only view: a device lists services through its own
// service manager.
std::vector<std::string> RegisteredServices();

// Waits until `instance` is up, woken by changes to the socket folder
// (inotify), or until `deadline` (none: for good).
BinderRef WaitForService(const std::string& instance, Deadline deadline);

}  // namespace zelkor::tessel::binder
