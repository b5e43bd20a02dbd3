#include "common/default/service/TesselFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/default/service/TesselStatus.h"
#include "platform/ClientPath.h"

namespace zelkor::tessel {
namespace {

// A FIFO opened without O_NONBLOCK waits for its other end; a binder thread
// must not, so files are opened non-blocking and FIFOs and sockets turned
// away. Regular files and block devices ignore O_NONBLOCK.
android::base::unique_fd Checked(int fd) {
    android::base::unique_fd file(fd);
    struct stat st;
    if (file.ok() &&
        (fstat(file.get(), &st) != 0 || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode))) {
        file.reset();
        errno = ENXIO;
    }
    if (file.ok()) fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
    return file;
}

}  // namespace

binder_status_t handlePath(const std::string& path, const std::string& name, std::string* full) {
    if (path.empty() || name.empty()) {
        TLOGE("path or file_name is empty, return error");
        return TESSEL_EINVAL;
    }
    if (name[0] == '/') {
        TLOGE("file_name[0] is '/', return error");
        return TESSEL_EINVAL;
    }
    *full = path;
    if (full->back() != '/') *full += '/';
    *full += name;
    return STATUS_OK;
}

android::base::unique_fd OpenForRead(const std::string& full) {
    return Checked(platform::OpenClientPath(full, O_RDONLY | O_NONBLOCK));
}

android::base::unique_fd OpenForWrite(const std::string& full, bool append) {
    // Truncation waits until the file is known not to be a FIFO.
    android::base::unique_fd file =
            Checked(platform::OpenClientPath(full, O_WRONLY | O_CREAT | O_NONBLOCK, 0600));
    if (!file.ok()) return file;
    if (append ? lseek(file.get(), 0, SEEK_END) < 0 : ftruncate(file.get(), 0) != 0) {
        struct stat st;
        // A block device cannot be truncated and is written from its start.
        if (append || fstat(file.get(), &st) != 0 || !S_ISBLK(st.st_mode)) file.reset();
    }
    return file;
}

int64_t getFileSizeInternal(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) return -1;
    if (S_ISREG(st.st_mode)) return st.st_size;
    // A folder or a character device has no size to read up to.
    if (!S_ISBLK(st.st_mode)) return -1;
    // A block device reports its size only through seeking.
    off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0 || lseek(fd, 0, SEEK_SET) != 0) return -1;
    return end;
}

binder_status_t OpenSized(const std::string& path, const std::string& name, std::string* full,
                          android::base::unique_fd* fd, int64_t* size) {
    *size = -1;
    binder_status_t status = handlePath(path, name, full);
    if (status != STATUS_OK) return status;
    *fd = OpenForRead(*full);
    if (fd->ok()) *size = getFileSizeInternal(fd->get());
    return STATUS_OK;
}

ssize_t ReadFully(int fd, void* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = read(fd, static_cast<char*>(buffer) + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace zelkor::tessel
