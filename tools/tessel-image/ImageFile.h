// Bounded reads of a partition image for the inspectors: every span is checked
// against the real size of the file before it is read, whatever a header says.
#pragma once

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

// "0x" and upper-case hex digits.
std::string Hex(uint64_t value);

// Texts on a partition are ASCII; anything else is shown as \xNN so that the
// output stays valid UTF-8 whatever the partition holds.
std::string Printable(std::string_view bytes);

}  // namespace zelkor::tessel::image
