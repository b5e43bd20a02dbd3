// C++ owners for the libbinder_ndk handles, host build: each class holds one
// handle (or one strong reference) and gives it back when it goes away.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_internal_logging.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>

namespace ndk {

namespace internal {

// Misuse that would corrupt reference counts ends the process, as on a device.
[[noreturn]] inline void abortWithMessage(const char* file, int line, const char* what) {
    syslog(LOG_ERR, "%s:%d: %s", file, line, what);
    std::abort();
}

}  // namespace internal

// Owns one strong reference to an AIBinder (or nothing).
class SpAIBinder {
  public:
    SpAIBinder() = default;
    // Adopts the reference the caller holds.
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    SpAIBinder(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): owns nothing
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) { AIBinder_incStrong(mBinder); }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(other.mBinder) { other.mBinder = nullptr; }
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this != &other) {
            AIBinder_incStrong(other.mBinder);
            set(other.mBinder);
        }
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        if (this != &other) {
            set(other.mBinder);
            other.mBinder = nullptr;
        }
        return *this;
    }

    // Drops the reference held so far and adopts `binder`'s.
    void set(AIBinder* binder) {
        AIBinder* previous = mBinder;
        mBinder = binder;
        if (previous != nullptr) AIBinder_decStrong(previous);
    }

    // The object, reference unchanged.
    AIBinder* get() const { return mBinder; }

    // For out-parameters that hand over a reference: Foo(sp.getR()). Whatever
    // is stored through it is owned from then on.
    AIBinder** getR() { return &mBinder; }

  private:
    AIBinder* mBinder = nullptr;
};

#define TESSEL_SP_AIBINDER_COMPARE(op)                                      \
    inline bool operator op(const SpAIBinder& lhs, const SpAIBinder& rhs) { \
        return lhs.get() op rhs.get();                                      \
    }                                                                       \
    inline bool operator op(const SpAIBinder& lhs, const AIBinder* rhs) {   \
        return lhs.get() op rhs;                                            \
    }                                                                       \
    inline bool operator op(const AIBinder* lhs, const SpAIBinder& rhs) {   \
        return lhs op rhs.get();                                            \
    }
TESSEL_SP_AIBINDER_COMPARE(==)
TESSEL_SP_AIBINDER_COMPARE(!=)
TESSEL_SP_AIBINDER_COMPARE(<)
TESSEL_SP_AIBINDER_COMPARE(<=)
TESSEL_SP_AIBINDER_COMPARE(>)
TESSEL_SP_AIBINDER_COMPARE(>=)
#undef TESSEL_SP_AIBINDER_COMPARE

namespace impl {

// Owns one handle of type T, released with Destroy; DEFAULT means "none".
// Movable, not copyable.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
  public:
    explicit ScopedAResource(T t = DEFAULT) : mT(t) {}
    ~ScopedAResource() { set(DEFAULT); }

    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;

    ScopedAResource(ScopedAResource&& other) noexcept : mT(other.mT) { other.mT = DEFAULT; }
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) {
            set(other.mT);
            other.mT = DEFAULT;
        }
        return *this;
    }

    // Releases the handle held so far and takes `t`.
    void set(T t) {
        T previous = mT;
        mT = t;
        if (previous != DEFAULT) Destroy(previous);
    }

    T get() { return mT; }
    const T get() const { return mT; }

    // Gives the handle up without releasing it.
    [[nodiscard]] T release() {
        T t = mT;
        mT = DEFAULT;
        return t;
    }

    // For out-parameters: Init(resource.getR()).
    T* getR() { return &mT; }

  private:
    T mT;
};

}  // namespace impl

// Owns an AParcel.
class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
  public:
    explicit ScopedAParcel(AParcel* a = nullptr) : ScopedAResource(a) {}
    ~ScopedAParcel() {}
    ScopedAParcel(ScopedAParcel&&) = default;
    ScopedAParcel& operator=(ScopedAParcel&&) = default;

    bool operator==(const ScopedAParcel& rhs) const { return get() == rhs.get(); }
    bool operator!=(const ScopedAParcel& rhs) const { return get() != rhs.get(); }
    bool operator<(const ScopedAParcel& rhs) const { return get() < rhs.get(); }
    bool operator<=(const ScopedAParcel& rhs) const { return get() <= rhs.get(); }
    bool operator>(const ScopedAParcel& rhs) const { return get() > rhs.get(); }
    bool operator>=(const ScopedAParcel& rhs) const { return get() >= rhs.get(); }
};

// Owns an AStatus; the usual return type of generated interface methods.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    // Adopts `a`; prefer the named constructors below for new statuses.
    explicit ScopedAStatus(AStatus* a = nullptr) : ScopedAResource(a) {}
    ~ScopedAStatus() {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    // An empty holder is not ok: it was never given a result.
    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }

    std::string getDescription() const {
        const char* text = AStatus_getDescription(get());
        std::string description = text;
        AStatus_deleteDescription(text);
        return description;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
};

inline std::ostream& operator<<(std::ostream& os, const ScopedAStatus& status) {
    return os << status.getDescription();
}

// Owns an AIBinder_DeathRecipient (deleting it unlinks it everywhere).
class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                   nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* a = nullptr)
        : ScopedAResource(a) {}
    ~ScopedAIBinder_DeathRecipient() {}
    ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
    ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

// Owns an AIBinder_Weak.
class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* a = nullptr) : ScopedAResource(a) {}
    ~ScopedAIBinder_Weak() {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;

    // A strong reference, or null once the object is gone.
    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

namespace internal {

inline void closeWithError(int fd) {
    if (fd < 0) return;
    if (close(fd) != 0) syslog(LOG_ERR, "Could not close FD %d: %s", fd, strerror(errno));
}

}  // namespace internal

// Owns a file descriptor; -1 means none. The AIDL type of ParcelFileDescriptor.
class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeWithError, -1> {
  public:
    ScopedFileDescriptor() : ScopedFileDescriptor(-1) {}
    explicit ScopedFileDescriptor(int a) : ScopedAResource(a) {}
    ~ScopedFileDescriptor() {}
    ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;

    ScopedFileDescriptor dup() const { return ScopedFileDescriptor(::dup(get())); }

    bool operator==(const ScopedFileDescriptor& rhs) const { return get() == rhs.get(); }
    bool operator!=(const ScopedFileDescriptor& rhs) const { return get() != rhs.get(); }
    bool operator<(const ScopedFileDescriptor& rhs) const { return get() < rhs.get(); }
    bool operator<=(const ScopedFileDescriptor& rhs) const { return get() <= rhs.get(); }
    bool operator>(const ScopedFileDescriptor& rhs) const { return get() > rhs.get(); }
    bool operator>=(const ScopedFileDescriptor& rhs) const { return get() >= rhs.get(); }
};

}  // namespace ndk
