// Positioned access to the blackbox partition.
//
// Every offset used here comes out of a header on the partition and is not
// trusted: writes are refused outside the partition instead of growing an
// image file or running into whatever follows the block device.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace zelkor::tessel::blackbox {

// Bytes behind `fd`: a block device's size or a regular file's length; -1 with
// errno set when it cannot be told.
int64_t partition_size(int fd);

// Reads up to `len` bytes at `offset`, riding over short reads. Returns the
// bytes read (fewer at the end of the partition) or -1 with errno set.
ssize_t read_at(int fd, int64_t offset, void* buf, size_t len);

// Writes all `len` bytes at `offset`. Returns `len`, or -1 with errno set:
// EINVAL for a negative offset, ENOSPC for bytes past the partition's end.
ssize_t write_at(int fd, int64_t offset, const void* buf, size_t len);

// True when [pos, pos + len) lies inside [0, limit), overflow-safe: the check
// every offset and length read from a partition goes through.
inline bool range_fits(uint64_t pos, uint64_t len, uint64_t limit) {
    return pos <= limit && len <= limit - pos;
}

// Opens "/dev/block/by-name/blackbox" read-write for the boot run; a failure
// is logged and gives -1.
int open_black_box_partition();

}  // namespace zelkor::tessel::blackbox
