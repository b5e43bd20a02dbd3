// Local objects and the transactions the runtime answers on their behalf.
#include "platform/host/binder_ndk/LocalBinder.h"

#include <android-base/unique_fd.h>

#include <vector>

#include "platform/host/binder_ndk/InterfaceToken.h"
#include "platform/host/binder_ndk/Status.h"
#include "platform/host/binder_ndk/TransactionCodes.h"

namespace zelkor::tessel::binder {

LocalBinder::LocalBinder(const AIBinder_Class* clazz, void* args)
    : AIBinder(clazz), mUserData(clazz->onCreate(args)) {}

LocalBinder::~LocalBinder() {
    mClass->onDestroy(mUserData);
}

BinderRef LocalBinder::extension() const {
    std::lock_guard<std::mutex> lock(mExtensionLock);
    return mExtension;
}

void LocalBinder::setExtension(BinderRef extension) {
    BinderRef previous;
    std::lock_guard<std::mutex> lock(mExtensionLock);
    previous = std::move(mExtension);
    mExtension = std::move(extension);
}

binder_status_t LocalBinder::dispatch(transaction_code_t code, const AParcel& in, AParcel* out) {
    if (IsUserTransaction(code)) {
        if (mClass->writeHeader && !EnforceInterfaceToken(in, mClass->descriptor)) {
            return STATUS_BAD_TYPE;
        }
        return PruneStatus(mClass->onTransact(this, code, &in, out));
    }
    switch (code) {
        case kPingTransaction:
            return STATUS_OK;
        case kInterfaceTransaction:
            return WriteString16(out, mClass->descriptor.data(), mClass->descriptor.size());
        case kDumpTransaction:
            return dispatchDump(in);
        case kExtensionTransaction:
            return AParcel_writeStrongBinder(out, extension().get());
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

// The dump request: the descriptor to write to, then the arguments.
binder_status_t LocalBinder::dispatchDump(const AParcel& in) {
    int rawFd = -1;
    binder_status_t status = AParcel_readParcelFileDescriptor(&in, &rawFd);
    android::base::unique_fd fd(rawFd);
    if (status != STATUS_OK) return status;
    if (fd.get() < 0) return STATUS_BAD_VALUE;
    int32_t count = 0;
    status = ReadArrayLength(&in, sizeof(int32_t), &count);
    if (status != STATUS_OK) return status;
    std::vector<std::string> args;
    for (int32_t i = 0; i < count; ++i) {
        std::string arg;
        bool isNull = false;
        status = ReadString16(&in, &arg, &isNull);
        if (status != STATUS_OK) return status;
        args.push_back(std::move(arg));
    }
    if (mClass->onDump == nullptr) return STATUS_OK;
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    return PruneStatus(
            mClass->onDump(this, fd.get(), argv.data(), static_cast<uint32_t>(argv.size())));
}

}  // namespace zelkor::tessel::binder
