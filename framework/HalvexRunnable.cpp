#include "framework/HalvexRunnable.h"

#include <mutex>

namespace zelkor::tessel {
namespace {

// Free blocks of exactly sizeof(HalvexRunnable), linked through their first word.
struct FreeBlock {
    FreeBlock* next;
};

std::mutex& PoolLock() {
    static auto* lock = new std::mutex;
    return *lock;
}

FreeBlock*& PoolHead() {
    static FreeBlock* head = nullptr;
    return head;
}

}  // namespace

void HalvexRunnable::operator()(Object* arg) {
    if (!mJob) return;
    // Moved out first so the job is gone even if it posts itself again.
    HalvexJob job = std::move(mJob);
    job(arg);
}

void* HalvexRunnable::operator new(size_t size) {
    // Subclasses of another size go to the global heap.
    if (size == sizeof(HalvexRunnable)) {
        std::lock_guard<std::mutex> lock(PoolLock());
        if (FreeBlock* block = PoolHead()) {
            PoolHead() = block->next;
            return block;
        }
    }
    return ::operator new(size);
}

void HalvexRunnable::operator delete(void* p, size_t size) {
    if (p == nullptr) return;
    if (size != sizeof(HalvexRunnable)) {
        ::operator delete(p);
        return;
    }
    std::lock_guard<std::mutex> lock(PoolLock());
    auto* block = static_cast<FreeBlock*>(p);
    block->next = PoolHead();
    PoolHead() = block;
}

}  // namespace zelkor::tessel
