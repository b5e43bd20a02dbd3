// Positioned reads and writes on the raw dump partitions, and the size checks
// every offset taken from a partition header goes through before it is used.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace zelkor::tessel::Minidump {

// Bytes behind `fd`: a block device's size (BLKGETSIZE64) or a file's length;
// -1 with errno set when neither can be told.
int64_t PartitionSize(int fd);

// Reads up to `len` bytes at `offset`, riding over short reads and EINTR.
// Returns the bytes read (fewer at the end of the data) or -1 with errno set.
ssize_t ReadAt(int fd, int64_t offset, void* buf, size_t len);

// Writes all `len` bytes at `offset`; returns `len` or -1 with errno set.
ssize_t WriteAt(int fd, int64_t offset, const void* buf, size_t len);

// Writes all `len` bytes at the descriptor's position; false on failure.
bool WriteAll(int fd, const void* buf, size_t len);

// True when [pos, pos + len) lies inside [0, limit), overflow-safe.
inline bool RangeFits(uint64_t pos, uint64_t len, uint64_t limit) {
    return pos <= limit && len <= limit - pos;
}

}  // namespace zelkor::tessel::Minidump
