// Files named by clients of the file-system service.
//
// On a device a client's path is an ordinary path and the client's rights are
// its own business. On a host the service must never reach outside the root,
// whatever a client names: every path is resolved as if the root were "/".
// ".." at the top stays at the top, and symbolic links, absolute ones
// included, are followed inside the root by the kernel in the same step that
// opens the file (openat2 with RESOLVE_IN_ROOT), so a link swapped in between
// a check and a use cannot lead out either.
//
// Everything the service does to a file goes through a descriptor from here:
// opening, or an *at() call on the folder holding the last component.
#pragma once

#include <sys/types.h>

#include <string>

namespace zelkor::tessel::platform {

// open(2) of a client's path: a descriptor (close-on-exec), or -1 with errno.
int OpenClientPath(const std::string& path, int flags, mode_t mode = 0);

// The folder holding the path's last component, opened O_PATH, with that
// component in *name, for fstatat(), unlinkat(), mkdirat() and openat() with
// AT_SYMLINK_NOFOLLOW / O_NOFOLLOW, which act on a final link itself. A last
// component of "." or ".." is first resolved to the folder it names; the root
// itself comes back as the root's descriptor and ".". -1 with errno on
// failure.
int OpenClientParent(const std::string& path, std::string* name);

// The client-visible path of an open descriptor (on a host: without the root).
// Empty when it cannot be had.
std::string ClientPathOf(int fd);

}  // namespace zelkor::tessel::platform
