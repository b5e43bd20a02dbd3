// An object implemented in this process (AIBinder_new).
#pragma once

#include <mutex>
#include <string>

#include "platform/host/binder_ndk/Binder.h"
#include "platform/host/binder_ndk/Parcel.h"

namespace zelkor::tessel::binder {

class LocalBinder : public AIBinder {
  public:
    LocalBinder(const AIBinder_Class* clazz, void* args);

    LocalBinder* asLocal() override { return this; }
    // A local object keeps the class it was made with.
    bool associateClass(const AIBinder_Class* clazz) override { return clazz == mClass; }

    const AIBinder_Class& clazz() const { return *mClass; }
    void* userData() const { return mUserData; }

    // Serves one call as the receiving side does: checks the interface token
    // of user transactions and runs onTransact, or answers the runtime's own
    // codes (ping, dump, interface, extension).
    binder_status_t dispatch(transaction_code_t code, const AParcel& in, AParcel* out);

    BinderRef extension() const;
    void setExtension(BinderRef extension);

  private:
    ~LocalBinder() override;

    binder_status_t dispatchDump(const AParcel& in);

    void* const mUserData;
    mutable std::mutex mExtensionLock;
    BinderRef mExtension;
};

}  // namespace zelkor::tessel::binder
