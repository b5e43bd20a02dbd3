#include "tools/tessel-image/ImageFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::image {

bool ImageFile::Read(uint64_t offset, void* out, size_t length) const {
    if (!Contains(offset, length)) return false;
    return blackbox::read_at(mFd, static_cast<int64_t>(offset), out, length) ==
           static_cast<ssize_t>(length);
}

std::string ImageFile::ReadSpan(uint64_t offset, size_t length) const {
    std::string bytes(length, '\0');
    if (!Read(offset, bytes.data(), length)) bytes.clear();
    return bytes;
}

namespace {

// Why a file of mode `mode` is no image, or null when it is one.
const char* NotAnImage(mode_t mode, bool pipes) {
    if (S_ISREG(mode) || S_ISBLK(mode) || (pipes && S_ISFIFO(mode))) return nullptr;
    return S_ISDIR(mode) ? "is a folder, not a file" : "not a regular file or block device";
}

}  // namespace

int OpenImageFile(const std::string& path, int flags, std::string* error, mode_t mode, bool pipes) {
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) {
        if (const char* why = NotAnImage(st.st_mode, pipes)) {
            *error = path + ": " + why;
            return -1;
        }
    } else if (errno != ENOENT || (flags & O_CREAT) == 0) {
        *error = path + ": " + strerror(errno);
        return -1;
    }
    const int fd = open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, mode);
    if (fd < 0) {
        *error = path + ": " + strerror(errno);
        return -1;
    }
    // Swapped for something else since the check: refused all the same.
    const char* why = fstat(fd, &st) != 0 ? strerror(errno) : NotAnImage(st.st_mode, pipes);
    if (why != nullptr ||
        (!S_ISFIFO(st.st_mode) && fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0)) {
        *error = path + ": " + (why != nullptr ? why : strerror(errno));
        close(fd);
        return -1;
    }
    return fd;
}

ssize_t ReadSome(int fd, void* buf, size_t size, int waitMs) {
    for (;;) {
        // A pipe with no writer yet also reads as its end: wait for a writer
        // (or its bytes) first.
        pollfd p{fd, POLLIN, 0};
        const int ready = poll(&p, 1, waitMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) {
            errno = ETIMEDOUT;
            return -1;
        }
        const ssize_t got = read(fd, buf, size);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        return got;
    }
}

std::string Hex(uint64_t value) {
    char text[24];
    snprintf(text, sizeof(text), "0x%" PRIX64, value);
    return text;
}

std::string Printable(std::string_view bytes) {
    std::string text;
    for (unsigned char c : bytes) {
        if ((c >= 0x20 && c < 0x7f) || c == '\t') {
            text += static_cast<char>(c);
        } else {
            char escaped[5];
            snprintf(escaped, sizeof(escaped), "\\x%02x", c);
            text += escaped;
        }
    }
    return text;
}

}  // namespace zelkor::tessel::image
