#include "modules/BSPLogProcessor/MinidumpIo.h"

#include <errno.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zelkor::tessel::Minidump {

int64_t PartitionSize(int fd) {
    struct stat st {};
    if (fstat(fd, &st) != 0) return -1;
    if (S_ISBLK(st.st_mode)) {
        uint64_t bytes = 0;
        if (ioctl(fd, BLKGETSIZE64, &bytes) != 0) return -1;
        return static_cast<int64_t>(bytes);
    }
    return st.st_size;
}

ssize_t ReadAt(int fd, int64_t offset, void* buf, size_t len) {
    if (offset < 0) {
        errno = EINVAL;
        return -1;
    }
    auto* out = static_cast<char*>(buf);
    size_t done = 0;
    while (done < len) {
        ssize_t n = pread(fd, out + done, len - done, offset + static_cast<int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

ssize_t WriteAt(int fd, int64_t offset, const void* buf, size_t len) {
    if (offset < 0) {
        errno = EINVAL;
        return -1;
    }
    const auto* in = static_cast<const char*>(buf);
    size_t done = 0;
    while (done < len) {
        ssize_t n = pwrite(fd, in + done, len - done, offset + static_cast<int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) {
            errno = ENOSPC;
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

bool WriteAll(int fd, const void* buf, size_t len) {
    const auto* in = static_cast<const char*>(buf);
    while (len > 0) {
        ssize_t n = write(fd, in, len);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) {
            errno = ENOSPC;
            return false;
        }
        in += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace zelkor::tessel::Minidump
