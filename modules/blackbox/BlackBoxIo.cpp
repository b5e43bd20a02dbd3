#include "modules/blackbox/BlackBoxIo.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "modules/blackbox/BlackBoxLog.h"
#include "modules/blackbox/BlackboxLayout.h"
#include "platform/Platform.h"

namespace zelkor::tessel::blackbox {

int64_t partition_size(int fd) {
    struct stat st {};
    if (fstat(fd, &st) != 0) return -1;
    if (S_ISBLK(st.st_mode)) {
        uint64_t bytes = 0;
        if (ioctl(fd, BLKGETSIZE64, &bytes) != 0) return -1;
        return static_cast<int64_t>(bytes);
    }
    return st.st_size;
}

ssize_t read_at(int fd, int64_t offset, void* buf, size_t len) {
    if (offset < 0) {
        errno = EINVAL;
        return -1;
    }
    size_t done = 0;
    while (done < len) {
        ssize_t n = pread(fd, static_cast<char*>(buf) + done, len - done,
                          static_cast<off_t>(offset + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            if (done == 0) return -1;
            break;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

ssize_t write_at(int fd, int64_t offset, const void* buf, size_t len) {
    if (offset < 0) {
        errno = EINVAL;
        return -1;
    }
    const int64_t size = partition_size(fd);
    if (size < 0) return -1;
    if (offset > size || static_cast<uint64_t>(size - offset) < len) {
        errno = ENOSPC;
        return -1;
    }
    size_t done = 0;
    while (done < len) {
        ssize_t n = pwrite(fd, static_cast<const char*>(buf) + done, len - done,
                           static_cast<off_t>(offset + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) {
            errno = EIO;
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

int open_black_box_partition() {
    const std::string path = platform::DevicePath(kBlackboxPartition);
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) BB_LOGE("open black_box_log partition fail %d(%s)\n", errno, strerror(errno));
    return fd;
}

}  // namespace zelkor::tessel::blackbox
