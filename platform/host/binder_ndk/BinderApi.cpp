// AIBinder_* and AIBinder_Class_*: the public face of local objects and
// proxies.
#include <android/binder_ibinder.h>
#include <android/binder_ibinder_platform.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "platform/host/binder_ndk/Binder.h"
#include "platform/host/binder_ndk/CallingContext.h"
#include "platform/host/binder_ndk/InterfaceToken.h"
#include "platform/host/binder_ndk/LocalBinder.h"
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/RemoteBinder.h"
#include "platform/host/binder_ndk/TransactionCodes.h"

using namespace zelkor::tessel::binder;

struct AIBinder_Weak {
    std::shared_ptr<WeakLink> link;
};

namespace {

// Flags a user transaction may carry: one-way, clear-buffer and the
// vendor-private bit of the platform's stability header.
constexpr binder_flags_t kPrivateVendorFlag = 0x10000000;
constexpr binder_flags_t kAllowedFlags = FLAG_ONEWAY | FLAG_CLEAR_BUF | kPrivateVendorFlag;

// Runs a call on a local object in the calling thread, or sends it to the
// remote one.
binder_status_t Call(AIBinder* binder, transaction_code_t code, const AParcel& in, AParcel* out,
                     binder_flags_t flags) {
    if (LocalBinder* local = binder->asLocal()) {
        // The receiving side reads the request from its start.
        in.position = 0;
        binder_status_t status = local->dispatch(code, in, out);
        out->position = 0;
        return status;
    }
    return binder->asRemote()->transact(code, in, out, flags);
}

}  // namespace

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    auto* clazz = new AIBinder_Class();
    clazz->descriptor = interfaceDescriptor;
    clazz->onCreate = onCreate;
    clazz->onDestroy = onDestroy;
    clazz->onTransact = onTransact;
    return clazz;
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    if (clazz != nullptr) clazz->onDump = onDump;
}

void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz) {
    if (clazz != nullptr) clazz->writeHeader = false;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz->descriptor.c_str();
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) return nullptr;
    return new LocalBinder(clazz, args);
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && const_cast<AIBinder*>(binder)->asRemote() != nullptr;
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    RemoteBinder* remote = const_cast<AIBinder*>(binder)->asRemote();
    return remote == nullptr || remote->isAlive();
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    AParcel in(binder);
    AParcel out(binder);
    return Call(binder, kPingTransaction, in, &out, 0);
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (LocalBinder* local = binder->asLocal()) {
        AIBinder_onDump onDump = local->clazz().onDump;
        return onDump != nullptr ? onDump(binder, fd, args, numArgs) : STATUS_OK;
    }
    if (numArgs > static_cast<uint32_t>(INT32_MAX)) return STATUS_BAD_VALUE;
    AParcel in(binder);
    binder_status_t status = AParcel_writeParcelFileDescriptor(&in, fd);
    if (status == STATUS_OK) status = in.write<int32_t>(static_cast<int32_t>(numArgs));
    for (uint32_t i = 0; status == STATUS_OK && i < numArgs; ++i) {
        const std::string arg = args[i] != nullptr ? args[i] : "";
        status = WriteString16(&in, arg.data(), arg.size());
    }
    if (status != STATUS_OK) return status;
    AParcel out(binder);
    return Call(binder, kDumpTransaction, in, &out, 0);
}

uid_t AIBinder_getCallingUid() {
    const CallerIdentity* caller = CurrentCaller();
    return caller != nullptr ? caller->uid : getuid();
}

pid_t AIBinder_getCallingPid() {
    const CallerIdentity* caller = CurrentCaller();
    return caller != nullptr ? caller->pid : getpid();
}

bool AIBinder_isHandlingTransaction() {
    return CurrentCaller() != nullptr;
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->incStrong();
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr) binder->decStrong();
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder != nullptr ? binder->strongCount() : -1;
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    return binder != nullptr && clazz != nullptr && binder->associateClass(clazz);
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder != nullptr ? binder->getClass() : nullptr;
}

void* AIBinder_getUserData(AIBinder* binder) {
    LocalBinder* local = binder != nullptr ? binder->asLocal() : nullptr;
    return local != nullptr ? local->userData() : nullptr;
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    const AIBinder_Class* clazz = binder->getClass();
    if (clazz == nullptr) return STATUS_INVALID_OPERATION;
    auto parcel = std::make_unique<AParcel>(binder);
    if (clazz->writeHeader) {
        binder_status_t status = WriteInterfaceToken(parcel.get(), clazz->descriptor);
        if (status != STATUS_OK) return status;
    }
    *in = parcel.release();
    return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    // The input parcel is consumed whatever happens.
    std::unique_ptr<AParcel> request(*in);
    *in = nullptr;
    if (!IsUserTransaction(code)) return STATUS_UNKNOWN_TRANSACTION;
    if ((flags & ~kAllowedFlags) != 0) return STATUS_BAD_VALUE;
    if (binder == nullptr || request == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
    if (request->binder != binder) return STATUS_BAD_VALUE;
    auto reply = std::make_unique<AParcel>(binder);
    binder_status_t status = Call(binder, code, *request, reply.get(), flags);
    *out = status == STATUS_OK ? reply.release() : nullptr;
    return status;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    return new AIBinder_Weak{binder->weakLink()};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    return weakBinder != nullptr ? weakBinder->link->promote() : nullptr;
}

AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) {
    return weak != nullptr ? new AIBinder_Weak{weak->link} : nullptr;
}

bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) {
    if (lhs == nullptr || rhs == nullptr) return lhs == nullptr && rhs != nullptr;
    return lhs->link->serial < rhs->link->serial;
}

bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) {
    if (lhs == nullptr || rhs == nullptr) return lhs == nullptr && rhs != nullptr;
    return lhs->serial() < rhs->serial();
}

binder_status_t AIBinder_getExtension(AIBinder* binder, AIBinder** outExt) {
    if (binder == nullptr || outExt == nullptr) return STATUS_UNEXPECTED_NULL;
    if (LocalBinder* local = binder->asLocal()) {
        *outExt = local->extension().release();
        return STATUS_OK;
    }
    AParcel in(binder);
    AParcel out(binder);
    binder_status_t status = Call(binder, kExtensionTransaction, in, &out, 0);
    if (status != STATUS_OK) return status;
    return AParcel_readStrongBinder(&out, outExt);
}

binder_status_t AIBinder_setExtension(AIBinder* binder, AIBinder* ext) {
    if (binder == nullptr || ext == nullptr) return STATUS_UNEXPECTED_NULL;
    LocalBinder* local = binder->asLocal();
    if (local == nullptr) return STATUS_INVALID_OPERATION;
    local->setExtension(BinderRef::Retain(ext));
    return STATUS_OK;
}

void AIBinder_setRequestingSid(AIBinder* /*binder*/, bool /*requestingSid*/) {}

const char* AIBinder_getCallingSid() {
    return nullptr;
}

void AIBinder_setMinSchedulerPolicy(AIBinder* /*binder*/, int /*policy*/, int /*priority*/) {}

void AIBinder_setInheritRt(AIBinder* /*binder*/, bool /*inheritRt*/) {}
