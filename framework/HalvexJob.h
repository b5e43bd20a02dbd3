#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/Object.h"

namespace zelkor::tessel {

// A move-only callable taking an `Object*` (or nothing) that keeps small
// callables inline. Posted jobs usually capture a pointer or two and a shared
// handler; keeping those out of the heap is what lets a steady flow of posts
// run without allocating. Larger callables fall back to one heap allocation.
class HalvexJob {
  public:
    static constexpr size_t kInlineSize = 48;

    HalvexJob() = default;

    template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, HalvexJob>>>
    HalvexJob(F&& f) {  // NOLINT: implicit, so a lambda can be passed where a job is expected
        using Fn = std::decay_t<F>;
        static_assert(std::is_invocable_v<Fn&, Object*> || std::is_invocable_v<Fn&>,
                      "a job is callable with an Object* or with nothing");
        if constexpr (fitsInline<Fn>()) {
            new (mStorage) Fn(std::forward<F>(f));
            mOps = &kInlineOps<Fn>;
        } else {
            *reinterpret_cast<Fn**>(mStorage) = new Fn(std::forward<F>(f));
            mOps = &kHeapOps<Fn>;
        }
    }

    HalvexJob(HalvexJob&& other) noexcept { moveFrom(other); }
    HalvexJob& operator=(HalvexJob&& other) noexcept {
        if (this != &other) {
            reset();
            moveFrom(other);
        }
        return *this;
    }
    HalvexJob(const HalvexJob&) = delete;
    HalvexJob& operator=(const HalvexJob&) = delete;
    ~HalvexJob() { reset(); }

    explicit operator bool() const { return mOps != nullptr; }

    void operator()(Object* arg) { mOps->invoke(mStorage, arg); }

    // Calls the callable once and leaves the job empty. The callable moves
    // out of the job before it runs, so the job is already empty meanwhile
    // and may even be given a new callable. One indirect call in all: a
    // posted job runs this way once per message.
    void runOnce(Object* arg) {
        if (const Ops* ops = mOps) {
            mOps = nullptr;
            ops->runOnce(mStorage, arg);
        }
    }

    void reset() {
        if (mOps != nullptr) {
            mOps->destroy(mStorage);
            mOps = nullptr;
        }
    }

  private:
    struct Ops {
        void (*invoke)(void* storage, Object* arg);
        void (*move)(void* dst, void* src);  // move-constructs into dst, destroys src
        void (*destroy)(void* storage);
        void (*runOnce)(void* storage, Object* arg);  // moves out, destroys src, calls
    };

    template <typename Fn>
    static constexpr bool fitsInline() {
        return sizeof(Fn) <= kInlineSize && alignof(Fn) <= alignof(std::max_align_t) &&
               std::is_nothrow_move_constructible_v<Fn>;
    }

    template <typename Fn>
    static void call(Fn& fn, Object* arg) {
        if constexpr (std::is_invocable_v<Fn&, Object*>) {
            fn(arg);
        } else {
            fn();
        }
    }

    template <typename Fn>
    static constexpr Ops kInlineOps = {
            [](void* s, Object* arg) { call(*static_cast<Fn*>(s), arg); },
            [](void* dst, void* src) {
                new (dst) Fn(std::move(*static_cast<Fn*>(src)));
                static_cast<Fn*>(src)->~Fn();
            },
            [](void* s) { static_cast<Fn*>(s)->~Fn(); },
            [](void* s, Object* arg) {
                Fn* stored = static_cast<Fn*>(s);
                Fn fn(std::move(*stored));
                stored->~Fn();
                call(fn, arg);
            },
    };

    template <typename Fn>
    static constexpr Ops kHeapOps = {
            [](void* s, Object* arg) { call(**static_cast<Fn**>(s), arg); },
            [](void* dst, void* src) { *static_cast<Fn**>(dst) = *static_cast<Fn**>(src); },
            [](void* s) { delete *static_cast<Fn**>(s); },
            [](void* s, Object* arg) {
                std::unique_ptr<Fn> fn(*static_cast<Fn**>(s));
                call(*fn, arg);
            },
    };

    void moveFrom(HalvexJob& other) {
        if (other.mOps != nullptr) {
            other.mOps->move(mStorage, other.mStorage);
            mOps = other.mOps;
            other.mOps = nullptr;
        }
    }

    alignas(std::max_align_t) unsigned char mStorage[kInlineSize];
    const Ops* mOps = nullptr;
};

}  // namespace zelkor::tessel
