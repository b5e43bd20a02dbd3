// AIBinder_Class, the AIBinder base shared by local objects and proxies, and
// the strong/weak reference machinery.
#pragma once

#include <android/binder_ibinder.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

struct AIBinder_Class {
    std::string descriptor;
    AIBinder_Class_onCreate onCreate = nullptr;
    AIBinder_Class_onDestroy onDestroy = nullptr;
    AIBinder_Class_onTransact onTransact = nullptr;
    AIBinder_onDump onDump = nullptr;
    bool writeHeader = true;
};

namespace zelkor::tessel::binder {

class LocalBinder;
class RemoteBinder;

// Shared by an object and everything that refers to it weakly (AIBinder_Weak,
// the process's lookup tables). `object` turns null when the object goes
// away; promotion happens under `lock` so it cannot race with that.
struct WeakLink {
    std::mutex lock;
    AIBinder* object = nullptr;
    // Unique within the process and never reused: the order of AIBinder_lt.
    uint64_t serial = 0;

    // A new strong reference, or null once the object is gone or going.
    AIBinder* promote();
};

}  // namespace zelkor::tessel::binder

struct AIBinder {
  public:
    AIBinder(const AIBinder&) = delete;
    AIBinder& operator=(const AIBinder&) = delete;

    void incStrong() { mStrong.fetch_add(1, std::memory_order_relaxed); }
    // The last reference destroys the object.
    void decStrong();
    int32_t strongCount() const { return mStrong.load(std::memory_order_relaxed); }
    // Adds a reference unless the count already reached zero.
    bool tryIncStrong();

    const std::shared_ptr<zelkor::tessel::binder::WeakLink>& weakLink() const { return mWeak; }
    uint64_t serial() const { return mWeak->serial; }

    const AIBinder_Class* getClass() const {
        std::lock_guard<std::mutex> lock(mClassLock);
        return mClass;
    }
    // AIBinder_associateClass.
    virtual bool associateClass(const AIBinder_Class* clazz) = 0;

    virtual zelkor::tessel::binder::LocalBinder* asLocal() { return nullptr; }
    virtual zelkor::tessel::binder::RemoteBinder* asRemote() { return nullptr; }

  protected:
    explicit AIBinder(const AIBinder_Class* clazz);
    virtual ~AIBinder();

    mutable std::mutex mClassLock;
    const AIBinder_Class* mClass;

  private:
    std::atomic<int32_t> mStrong{1};
    std::shared_ptr<zelkor::tessel::binder::WeakLink> mWeak;
};

namespace zelkor::tessel::binder {

// One strong reference, released on destruction.
class BinderRef {
  public:
    BinderRef() = default;
    BinderRef(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
    // Takes over a reference the caller already owns.
    static BinderRef Adopt(AIBinder* binder) { return BinderRef(binder); }
    // Adds a reference of its own.
    static BinderRef Retain(AIBinder* binder) {
        if (binder != nullptr) binder->incStrong();
        return BinderRef(binder);
    }

    BinderRef(const BinderRef& other) : mBinder(other.mBinder) {
        if (mBinder != nullptr) mBinder->incStrong();
    }
    BinderRef(BinderRef&& other) noexcept : mBinder(other.mBinder) { other.mBinder = nullptr; }
    BinderRef& operator=(BinderRef other) noexcept {
        std::swap(mBinder, other.mBinder);
        return *this;
    }
    ~BinderRef() {
        if (mBinder != nullptr) mBinder->decStrong();
    }

    AIBinder* get() const { return mBinder; }
    AIBinder* operator->() const { return mBinder; }
    explicit operator bool() const { return mBinder != nullptr; }
    // Hands the reference to the caller.
    AIBinder* release() {
        AIBinder* binder = mBinder;
        mBinder = nullptr;
        return binder;
    }

  private:
    explicit BinderRef(AIBinder* binder) : mBinder(binder) {}
    AIBinder* mBinder = nullptr;
};

// Promotes a weak link straight into a BinderRef.
inline BinderRef Promote(const std::shared_ptr<WeakLink>& link) {
    return link != nullptr ? BinderRef::Adopt(link->promote()) : BinderRef();
}

}  // namespace zelkor::tessel::binder
