// File helpers shared by the file-system service's methods. Every file is
// reached through the client-path resolution of the platform, so on a host
// nothing outside the root is ever opened.
#pragma once

#include <android-base/unique_fd.h>
#include <android/binder_status.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelkor::tessel {

// The mode of a file written by a call that names none.
constexpr mode_t kWrittenFileMode = 0644;

// Joins a client's folder and name into *full: the path, a "/" unless it ends
// with one, and the name. TESSEL_EINVAL (logged) for an empty path or name or
// a name beginning with '/'; STATUS_OK otherwise. Further "/" and ".." in the
// name are the client's to use.
binder_status_t handlePath(const std::string& path, const std::string& name, std::string* full);

// Opens an existing file for reading. Never blocks: a FIFO is refused
// (ENXIO) instead of waiting for a writer.
android::base::unique_fd OpenForRead(const std::string& full);

// Opens a file for writing, created with owner-only rights when missing (the
// caller sets the final mode), truncated unless `append`. A FIFO is refused.
android::base::unique_fd OpenForWrite(const std::string& full, bool append);

// The size of an open regular file or block device; -1 for anything else or
// when it cannot be had.
int64_t getFileSizeInternal(int fd);

// handlePath(), then the joined file opened for reading into *fd and its
// size into *size (-1 when it has none or could not be opened: *fd tells
// which). Returns handlePath's status; the callers log in their own words.
binder_status_t OpenSized(const std::string& path, const std::string& name, std::string* full,
                          android::base::unique_fd* fd, int64_t* size);

// Reads until `size` bytes or end of file; the count read, or -1 on error.
ssize_t ReadFully(int fd, void* buffer, size_t size);

}  // namespace zelkor::tessel
