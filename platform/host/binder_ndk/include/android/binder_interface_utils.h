// C++ base classes behind AIDL-generated NDK interfaces, host build.
//
// Ownership model: an interface object (a SharedRefBase) is owned through
// std::shared_ptr. A local object's AIBinder keeps the interface alive through
// its user data, while the interface only keeps a weak reference to its
// AIBinder, so the pair lives as long as either side is referenced and there
// is never more than one AIBinder per object.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace ndk {

// An object owned by std::shared_ptr whose control block it creates itself on
// the first ref(), so that raw `this` can be turned back into an owner (as
// generated code does with `(new BpFoo(binder))->ref<IFoo>()`).
class SharedRefBase {
  public:
    SharedRefBase() {}
    virtual ~SharedRefBase() {
        bool neverOwned = false;
        std::call_once(mOwnedOnce, [&neverOwned] { neverOwned = true; });
        if (!neverOwned) return;
        internal::abortWithMessage(__FILE__, __LINE__,
                                   "SharedRefBase: destroyed without ever being owned");
    }

    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    // An owner of this object. The first call creates the owning shared_ptr,
    // so the object must be heap-allocated and not owned elsewhere.
    std::shared_ptr<SharedRefBase> ref() {
        std::shared_ptr<SharedRefBase> owner = mSelf.lock();
        std::call_once(mOwnedOnce, [&] {
            owner = std::shared_ptr<SharedRefBase>(this);
            mSelf = owner;
        });
        return owner;
    }

    template <typename CHILD>
    std::shared_ptr<CHILD> ref() {
        return std::static_pointer_cast<CHILD>(ref());
    }

    // The usual way to create one: SharedRefBase::make<MyService>(args...).
    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        T* object = new T(std::forward<Args>(args)...);
        return object->template ref<T>();
    }

    // Objects are allocated with malloc and freed with free; plain `new` stays
    // available because the interface code generator emits it.
    static void* operator new(size_t size) {
        void* memory = std::malloc(size);
        if (memory == nullptr) internal::abortWithMessage(__FILE__, __LINE__, "out of memory");
        return memory;
    }
    static void operator delete(void* memory) { std::free(memory); }

  private:
    std::once_flag mOwnedOnce;
    std::weak_ptr<SharedRefBase> mSelf;
};

// The common base of generated interfaces (the analogue of IInterface).
class ICInterface : public SharedRefBase {
  public:
    ICInterface() {}
    virtual ~ICInterface() {}

    // The object's single AIBinder (created on first use for a local object).
    virtual SpAIBinder asBinder() = 0;

    // Whether the object lives in another process.
    virtual bool isRemote() = 0;

    // Writes debugging state to `fd` (not owned). Nothing by default.
    virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
        return STATUS_OK;
    }

    // The interface stored as user data of a binder made by defineClass's
    // class, or null. No type check: use the generated IFoo::fromBinder.
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder) {
        return InterfaceHolder::interfaceOf(binder);
    }

    // Defines the class for a generated interface, with dump support.
    static AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                       AIBinder_Class_onTransact onTransact) {
        AIBinder_Class* clazz =
                AIBinder_Class_define(interfaceDescriptor, InterfaceHolder::onCreate,
                                      InterfaceHolder::onDestroy, onTransact);
        if (clazz != nullptr) AIBinder_Class_setOnDump(clazz, InterfaceHolder::onDump);
        return clazz;
    }

  private:
    // The user data of a local binder: one owner of its interface.
    struct InterfaceHolder {
        std::shared_ptr<ICInterface> interface;

        static std::shared_ptr<ICInterface> interfaceOf(AIBinder* binder) {
            if (binder == nullptr) return nullptr;
            auto* holder = static_cast<InterfaceHolder*>(AIBinder_getUserData(binder));
            return holder != nullptr ? holder->interface : nullptr;
        }
        static void* onCreate(void* args) {
            auto* interface = static_cast<ICInterface*>(args);
            return new InterfaceHolder{interface->ref<ICInterface>()};
        }
        static void onDestroy(void* userData) { delete static_cast<InterfaceHolder*>(userData); }
        static binder_status_t onDump(AIBinder* binder, int fd, const char** args,
                                      uint32_t numArgs) {
            std::shared_ptr<ICInterface> interface = interfaceOf(binder);
            return interface != nullptr ? interface->dump(fd, args, numArgs) : STATUS_DEAD_OBJECT;
        }
    };
};

// Server side (native) base of a generated BnFoo.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    BnCInterface() {}
    virtual ~BnCInterface() {}

    SpAIBinder asBinder() override final {
        std::lock_guard<std::mutex> lock(mBinderLock);
        SpAIBinder binder;
        if (mWeakBinder.get() != nullptr) binder.set(AIBinder_Weak_promote(mWeakBinder.get()));
        if (binder.get() == nullptr) {
            binder = createBinder();
            mWeakBinder.set(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }

    bool isRemote() override final { return false; }

    // "<descriptor>/<instance>", the name to register the service under.
    static std::string makeServiceName(std::string_view instance) {
        return std::string(INTERFACE::descriptor) + "/" + std::string(instance);
    }

  protected:
    // Makes the AIBinder; only asBinder may call it, so that an object never
    // gets two.
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mBinderLock;
    ScopedAIBinder_Weak mWeakBinder;
};

// Client side (proxy) base of a generated BpFoo.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
  public:
    explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}
    virtual ~BpCInterface() {}

    SpAIBinder asBinder() override final { return mBinder; }

    bool isRemote() override final { return AIBinder_isRemote(mBinder.get()); }

    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
        return AIBinder_dump(asBinder().get(), fd, args, numArgs);
    }

  private:
    SpAIBinder mBinder;
};

}  // namespace ndk

namespace ndk::internal {

template <typename T, typename = void>
struct is_complete_type : std::false_type {};
template <typename T>
struct is_complete_type<T, decltype(void(sizeof(T)))> : std::true_type {};

}  // namespace ndk::internal

namespace std {

// A SharedRefBase owns its control block; std::make_shared or make_unique
// would give it a second owner. These overloads turn such uses into build
// errors; SharedRefBase::make is the way.
template <typename T, typename... Args,
          std::enable_if_t<ndk::internal::is_complete_type<T>::value, bool> = true,
          std::enable_if_t<std::is_base_of<ndk::SharedRefBase, T>::value, bool> = true>
shared_ptr<T> make_shared(Args...) {
    static_assert(!std::is_base_of<ndk::SharedRefBase, T>::value,
                  "use ndk::SharedRefBase::make for SharedRefBase objects");
}

template <typename T, typename... Args,
          std::enable_if_t<ndk::internal::is_complete_type<T>::value, bool> = true,
          std::enable_if_t<std::is_base_of<ndk::SharedRefBase, T>::value, bool> = true>
unique_ptr<T> make_unique(Args...) {
    static_assert(!std::is_base_of<ndk::SharedRefBase, T>::value,
                  "use ndk::SharedRefBase::make for SharedRefBase objects");
}

}  // namespace std
