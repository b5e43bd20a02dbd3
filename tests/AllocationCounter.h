// Counts heap allocations of the whole process while switched on, for tests
// and benchmarks that hold code to allocating nothing.
//
// The file replaces the global operator new and delete, so exactly one source
// file of a binary includes it.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace zelkor::tessel::testing {

inline std::atomic<bool> gCountAllocations{false};
inline std::atomic<uint64_t> gAllocations{0};

// Allocations made between construction and count(), from every thread.
class AllocationCounter {
  public:
    AllocationCounter() : mStart(gAllocations.load()) { gCountAllocations = true; }
    ~AllocationCounter() { gCountAllocations = false; }
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    uint64_t count() const { return gAllocations.load() - mStart; }

  private:
    uint64_t mStart;
};

inline void* CountedAlloc(std::size_t size) {
    // One relaxed load when off, so uncounted code pays next to nothing.
    if (gCountAllocations.load(std::memory_order_relaxed)) {
        gAllocations.fetch_add(1, std::memory_order_relaxed);
    }
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

}  // namespace zelkor::tessel::testing

void* operator new(std::size_t size) {
    return zelkor::tessel::testing::CountedAlloc(size);
}
void* operator new[](std::size_t size) {
    return zelkor::tessel::testing::CountedAlloc(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return zelkor::tessel::testing::CountedAlloc(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
