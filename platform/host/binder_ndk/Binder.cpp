// Reference counting shared by local objects and proxies.
#include "platform/host/binder_ndk/Binder.h"

namespace zelkor::tessel::binder {
namespace {

std::atomic<uint64_t> gNextSerial{1};

}  // namespace

AIBinder* WeakLink::promote() {
    std::lock_guard<std::mutex> guard(lock);
    if (object == nullptr || !object->tryIncStrong()) return nullptr;
    return object;
}

}  // namespace zelkor::tessel::binder

using zelkor::tessel::binder::WeakLink;

AIBinder::AIBinder(const AIBinder_Class* clazz)
    : mClass(clazz), mWeak(std::make_shared<WeakLink>()) {
    mWeak->object = this;
    mWeak->serial = zelkor::tessel::binder::gNextSerial.fetch_add(1, std::memory_order_relaxed);
}

AIBinder::~AIBinder() = default;

void AIBinder::decStrong() {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    {
        // From here on no weak reference can bring the object back.
        std::lock_guard<std::mutex> guard(mWeak->lock);
        mWeak->object = nullptr;
    }
    delete this;
}

bool AIBinder::tryIncStrong() {
    int32_t count = mStrong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mStrong.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) return true;
    }
    return false;
}
