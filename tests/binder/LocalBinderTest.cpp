// Local objects: reference counts, weak references, classes, in-process
// transactions and the C++ interface base classes.
#include <aidl/tessel/test/ITestService.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "TestService.h"

namespace zelkor::tessel::testing {
namespace {

// A class whose objects count their destruction and double an int32.
struct Counter {
    int destroyed = 0;
    int transactions = 0;
};

void* OnCreate(void* args) {
    return args;
}
void OnDestroy(void* userData) {
    ++static_cast<Counter*>(userData)->destroyed;
}
binder_status_t OnTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    auto* counter = static_cast<Counter*>(AIBinder_getUserData(binder));
    ++counter->transactions;
    if (code == FIRST_CALL_TRANSACTION + 1) return STATUS_PERMISSION_DENIED;
    int32_t value = 0;
    binder_status_t status = AParcel_readInt32(in, &value);
    if (status != STATUS_OK) return status;
    return AParcel_writeInt32(out, value * 2);
}
binder_status_t OnDump(AIBinder*, int fd, const char** args, uint32_t numArgs) {
    std::string text = std::to_string(numArgs) + ":" + (numArgs > 0 ? args[0] : "");
    return write(fd, text.data(), text.size()) > 0 ? STATUS_OK : STATUS_UNKNOWN_ERROR;
}

AIBinder_Class* DoublerClass() {
    static AIBinder_Class* clazz = [] {
        AIBinder_Class* c =
                AIBinder_Class_define("tessel.test.IDoubler", OnCreate, OnDestroy, OnTransact);
        AIBinder_Class_setOnDump(c, OnDump);
        return c;
    }();
    return clazz;
}

AIBinder_Class* OtherClass() {
    static AIBinder_Class* clazz =
            AIBinder_Class_define("tessel.test.IOther", OnCreate, OnDestroy, OnTransact);
    return clazz;
}

TEST(LocalBinderTest, ClassesAndOrder) {
    EXPECT_EQ(AIBinder_Class_define(nullptr, OnCreate, OnDestroy, OnTransact), nullptr);
    EXPECT_EQ(AIBinder_Class_define("x", OnCreate, nullptr, OnTransact), nullptr);

    Counter counter;
    ndk::SpAIBinder a(AIBinder_new(DoublerClass(), &counter));
    ndk::SpAIBinder b(AIBinder_new(DoublerClass(), &counter));
    EXPECT_TRUE(AIBinder_associateClass(a.get(), DoublerClass()));
    EXPECT_FALSE(AIBinder_associateClass(a.get(), OtherClass()));

    // The order is total, null first.
    EXPECT_TRUE(AIBinder_lt(nullptr, a.get()));
    EXPECT_FALSE(AIBinder_lt(a.get(), nullptr));
    EXPECT_NE(AIBinder_lt(a.get(), b.get()), AIBinder_lt(b.get(), a.get()));
    EXPECT_FALSE(AIBinder_lt(a.get(), a.get()));
}

TEST(LocalBinderTest, StrongReferencesKeepTheObjectAndWeakOnesPromoteOnlyWhileAlive) {
    Counter counter;
    AIBinder* raw = AIBinder_new(DoublerClass(), &counter);
    AIBinder_incStrong(raw);
    AIBinder_decStrong(raw);
    EXPECT_EQ(counter.destroyed, 0);
    AIBinder_decStrong(raw);
    EXPECT_EQ(counter.destroyed, 1);

    ndk::SpAIBinder binder(AIBinder_new(DoublerClass(), &counter));
    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    ndk::ScopedAIBinder_Weak clone(AIBinder_Weak_clone(weak.get()));
    EXPECT_EQ(weak.promote().get(), binder.get());
    EXPECT_FALSE(AIBinder_Weak_lt(weak.get(), clone.get()));
    EXPECT_FALSE(AIBinder_Weak_lt(clone.get(), weak.get()));
    binder.set(nullptr);
    EXPECT_EQ(counter.destroyed, 2) << "a promotion that ended holds nothing";
    EXPECT_EQ(weak.promote().get(), nullptr);
    EXPECT_EQ(clone.promote().get(), nullptr);
}

TEST(LocalBinderTest, OnlyWellFormedTransactionsReachOnTransact) {
    Counter counter;
    ndk::SpAIBinder binder(AIBinder_new(DoublerClass(), &counter));
    ndk::SpAIBinder other(AIBinder_new(DoublerClass(), &counter));
    struct Case {
        transaction_code_t code;
        binder_flags_t flags;
        bool toOther;            // prepared for `binder`, sent to `other`
        bool otherToken;         // the token names another interface
        binder_status_t status;  // OK or PERMISSION_DENIED only from OnTransact
    };
    for (const Case& c : {
                 Case{FIRST_CALL_TRANSACTION, 0, false, false, STATUS_OK},
                 // The service's own error comes back as the result, without a reply.
                 Case{FIRST_CALL_TRANSACTION + 1, 0, false, false, STATUS_PERMISSION_DENIED},
                 Case{LAST_CALL_TRANSACTION + 1, 0, false, false, STATUS_UNKNOWN_TRANSACTION},
                 Case{FIRST_CALL_TRANSACTION, 0x100, false, false, STATUS_BAD_VALUE},
                 Case{FIRST_CALL_TRANSACTION, 0, true, false, STATUS_BAD_VALUE},
                 Case{FIRST_CALL_TRANSACTION, 0, false, true, STATUS_BAD_TYPE},
         }) {
        AParcel* in = nullptr;
        ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
        if (c.otherToken) {
            // The descriptor follows the token's three int32 fields.
            ASSERT_EQ(AParcel_setDataPosition(in, 12), STATUS_OK);
            ASSERT_EQ(ndk::AParcel_writeString(in, std::string("tessel.test.IOtherr")), STATUS_OK);
        }
        ASSERT_EQ(AParcel_writeInt32(in, 21), STATUS_OK);
        AParcel* out = nullptr;
        const int before = counter.transactions;
        EXPECT_EQ(AIBinder_transact((c.toOther ? other : binder).get(), c.code, &in, &out, c.flags),
                  c.status)
                << c.code;
        EXPECT_EQ(in, nullptr);
        const bool reached = c.status == STATUS_OK || c.status == STATUS_PERMISSION_DENIED;
        EXPECT_EQ(counter.transactions - before, reached ? 1 : 0) << c.code;
        ndk::ScopedAParcel reply(out);
        if (c.status != STATUS_OK) {
            EXPECT_EQ(out, nullptr);
            continue;
        }
        int32_t value = 0;
        ASSERT_EQ(AParcel_readInt32(reply.get(), &value), STATUS_OK);
        EXPECT_EQ(value, 42);
    }
}

TEST(LocalBinderTest, LocalObjectsCannotDieButDumpAndHaveExtensions) {
    Counter counter;
    ndk::SpAIBinder binder(AIBinder_new(DoublerClass(), &counter));
    static int unlinked = 0;
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new([](void*) {}));
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), [](void*) { ++unlinked; });
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), nullptr),
              STATUS_INVALID_OPERATION);
    EXPECT_EQ(unlinked, 1);

    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    const char* args[] = {"all"};
    ASSERT_EQ(AIBinder_dump(binder.get(), fds[1], args, 1), STATUS_OK);
    close(fds[1]);
    char buffer[16] = {};
    ASSERT_GT(read(fds[0], buffer, sizeof(buffer) - 1), 0);
    close(fds[0]);
    EXPECT_STREQ(buffer, "1:all");

    ndk::SpAIBinder extension(AIBinder_new(OtherClass(), &counter));
    ASSERT_EQ(AIBinder_setExtension(binder.get(), extension.get()), STATUS_OK);
    ndk::SpAIBinder found;
    ASSERT_EQ(AIBinder_getExtension(binder.get(), found.getR()), STATUS_OK);
    EXPECT_EQ(found.get(), extension.get());
}

// The generated interface on the service side, used without any process
// boundary.
class TrackedService : public TestService {
  public:
    explicit TrackedService(bool* destroyed) : mDestroyed(destroyed) {}
    ~TrackedService() override { *mDestroyed = true; }

  private:
    bool* mDestroyed;
};

TEST(LocalBinderTest, InterfaceObjectAndItsBinderShareOneLifetime) {
    bool destroyed = false;
    {
        auto service = ndk::SharedRefBase::make<TrackedService>(&destroyed);
        ndk::SpAIBinder binder = service->asBinder();
        auto found = aidl::tessel::test::ITestService::fromBinder(binder);
        EXPECT_EQ(found, service);
        EXPECT_FALSE(found->isRemote());
        service.reset();
        found.reset();
        // The binder keeps the implementation alive.
        EXPECT_FALSE(destroyed);
        int32_t value = 0;
        ASSERT_TRUE(
                aidl::tessel::test::ITestService::fromBinder(binder)->echoInt(6, &value).isOk());
        EXPECT_EQ(value, 6);
    }
    EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace zelkor::tessel::testing
