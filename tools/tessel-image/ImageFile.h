// Bounded reads of a partition image for the inspectors: every span is checked
// against the real size of the file before it is read, whatever a header says.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::image {

class ImageFile {
  public:
    ImageFile(int fd, uint64_t size) : mFd(fd), mSize(size) {}

    uint64_t size() const { return mSize; }
    int fd() const { return mFd; }
    bool Contains(uint64_t offset, uint64_t length) const {
        return blackbox::range_fits(offset, length, mSize);
    }
    // Exactly `length` bytes at `offset`; false when the span leaves the file
    // or the read comes back short.
    bool Read(uint64_t offset, void* out, size_t length) const;
    // The bytes of a span inside the file; empty when it is not.
    std::string ReadSpan(uint64_t offset, size_t length) const;

  private:
    int mFd;
    uint64_t mSize;
};

// Opens `path` with `flags` (close-on-exec added) for an image command. Only
// a regular file or a block device is taken, checked before the open and
// again on the descriptor; the open itself never waits (a FIFO or a terminal
// cannot hold the command), and reads and writes block as usual after it.
// With `pipes`, a FIFO or pipe is taken too (a section's bytes may come from
// another command) and stays non-blocking: read it with ReadSome. -1 with
// `*error` ("PATH: reason") otherwise.
int OpenImageFile(const std::string& path, int flags, std::string* error, mode_t mode = 0644,
                  bool pipes = false);

// One read(2) of up to `size` bytes; on a non-blocking pipe, waits up to
// `waitMs` for a writer and its bytes first. -1 with errno ETIMEDOUT when
// none came.
ssize_t ReadSome(int fd, void* buf, size_t size, int waitMs);

// "0x" and upper-case hex digits.
std::string Hex(uint64_t value);

// Texts on a partition are ASCII; anything else is shown as \xNN so that the
// output stays valid UTF-8 whatever the partition holds.
std::string Printable(std::string_view bytes);

}  // namespace zelkor::tessel::image
