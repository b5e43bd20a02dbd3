// Positioned reads and writes on the raw dump partitions, and the size checks
// every offset taken from a partition header goes through before it is used.
// The dump code shares the blackbox partition's positioned I/O: both read
// untrusted offsets from the same kind of raw partition.
#pragma once

#include <android-base/file.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "modules/BSPLogProcessor/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

inline int64_t PartitionSize(int fd) {
    return blackbox::partition_size(fd);
}
inline ssize_t ReadAt(int fd, int64_t offset, void* buf, size_t len) {
    return blackbox::read_at(fd, offset, buf, len);
}
// Refuses bytes past the partition's end (ENOSPC) instead of growing a file.
inline ssize_t WriteAt(int fd, int64_t offset, const void* buf, size_t len) {
    return blackbox::write_at(fd, offset, buf, len);
}
// Writes all `len` bytes at the descriptor's position; false on failure.
inline bool WriteAll(int fd, const void* buf, size_t len) {
    return android::base::WriteFully(fd, buf, len);
}

// True when [pos, pos + len) lies inside [0, limit), overflow-safe.
inline bool RangeFits(uint64_t pos, uint64_t len, uint64_t limit) {
    return pos <= limit && len <= limit - pos;
}

}  // namespace zelkor::tessel::Minidump
