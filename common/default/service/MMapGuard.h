// Scope guard of a mapping: unmapped when the guard goes, on every path.
#pragma once

#include <sys/mman.h>

#include <cstddef>

namespace zelkor::tessel {

class MMapGuard {
  public:
    MMapGuard(void* address, size_t length) : mAddress(address), mLength(length) {}
    ~MMapGuard() {
        if (ok()) munmap(mAddress, mLength);
    }
    MMapGuard(const MMapGuard&) = delete;
    MMapGuard& operator=(const MMapGuard&) = delete;

    bool ok() const { return mAddress != MAP_FAILED && mAddress != nullptr; }
    void* get() const { return mAddress; }

  private:
    void* mAddress;
    size_t mLength;
};

}  // namespace zelkor::tessel
