// Calls through the generated test interface into a service in another
// process: every parameter type, shared memory, errors and identity.
#include <android/binder_ibinder.h>
#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "ServiceProcess.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::ITestService;
using aidl::tessel::test::Record;
using aidl::tessel::test::SharedBlock;

using RoundTripTest = ServiceTest;

Record MakeRecord(const std::string& name) {
    Record record;
    record.name = name;
    record.size = int64_t{1} << 40;
    record.mtime = -17;
    record.flag = true;
    record.ratio = 0.125;
    record.inner.id = 99;
    record.inner.label = "inner " + name;
    record.values = {1, -2, 3};
    record.tags = {"a", "", "ünï"};
    record.note = std::nullopt;
    return record;
}

void ExpectSameRecord(const Record& expected, const Record& actual) {
    EXPECT_EQ(expected.name, actual.name);
    EXPECT_EQ(expected.size, actual.size);
    EXPECT_EQ(expected.mtime, actual.mtime);
    EXPECT_EQ(expected.flag, actual.flag);
    EXPECT_EQ(expected.ratio, actual.ratio);
    EXPECT_EQ(expected.inner.id, actual.inner.id);
    EXPECT_EQ(expected.inner.label, actual.inner.label);
    EXPECT_EQ(expected.values, actual.values);
    EXPECT_EQ(expected.tags, actual.tags);
    EXPECT_EQ(expected.note, actual.note);
}

TEST_F(RoundTripTest, ScalarsAndStrings) {
    std::string text;
    ASSERT_TRUE(mService->echoString("héllo wörld € 𝄞", &text).isOk());
    EXPECT_EQ(text, "héllo wörld € 𝄞");
    ASSERT_TRUE(mService->echoString("", &text).isOk());
    EXPECT_EQ(text, "");
    ASSERT_TRUE(mService->echoUtf8(std::string("nul\0inside", 10), &text).isOk());
    EXPECT_EQ(text, std::string("nul\0inside", 10));

    int32_t i = 0;
    ASSERT_TRUE(mService->echoInt(std::numeric_limits<int32_t>::min(), &i).isOk());
    EXPECT_EQ(i, std::numeric_limits<int32_t>::min());
    int64_t l = 0;
    ASSERT_TRUE(mService->echoLong(std::numeric_limits<int64_t>::max(), &l).isOk());
    EXPECT_EQ(l, std::numeric_limits<int64_t>::max());
    bool b = false;
    ASSERT_TRUE(mService->echoBoolean(true, &b).isOk());
    EXPECT_TRUE(b);
    int8_t byte = 0;
    ASSERT_TRUE(mService->echoByte(-128, &byte).isOk());
    EXPECT_EQ(byte, -128);
    char16_t c = 0;
    ASSERT_TRUE(mService->echoChar(u'ß', &c).isOk());
    EXPECT_EQ(c, u'ß');
    float f = 0;
    ASSERT_TRUE(mService->echoFloat(-1.5e-20f, &f).isOk());
    EXPECT_EQ(f, -1.5e-20f);
    double d = 0;
    ASSERT_TRUE(mService->echoDouble(std::numeric_limits<double>::infinity(), &d).isOk());
    EXPECT_TRUE(std::isinf(d));
}

TEST_F(RoundTripTest, Arrays) {
    std::vector<int8_t> bytes(1 << 20);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<int8_t>(i * 7);
    std::vector<int8_t> bytesOut;
    ASSERT_TRUE(mService->echoBytes(bytes, &bytesOut).isOk());
    EXPECT_EQ(bytesOut, bytes);

    std::vector<int32_t> ints{0, 1, -1, 1 << 30};
    std::vector<int32_t> intsOut;
    ASSERT_TRUE(mService->echoInts(ints, &intsOut).isOk());
    EXPECT_EQ(intsOut, ints);
    std::vector<int64_t> longs{int64_t{1} << 60, -5};
    std::vector<int64_t> longsOut;
    ASSERT_TRUE(mService->echoLongs(longs, &longsOut).isOk());
    EXPECT_EQ(longsOut, longs);
    std::vector<bool> bools{true, false, true};
    std::vector<bool> boolsOut;
    ASSERT_TRUE(mService->echoBooleans(bools, &boolsOut).isOk());
    EXPECT_EQ(boolsOut, bools);
    std::vector<float> floats{1.f, -2.5f};
    std::vector<float> floatsOut;
    ASSERT_TRUE(mService->echoFloats(floats, &floatsOut).isOk());
    EXPECT_EQ(floatsOut, floats);
    std::vector<double> doubles{3.25, -0.0};
    std::vector<double> doublesOut;
    ASSERT_TRUE(mService->echoDoubles(doubles, &doublesOut).isOk());
    EXPECT_EQ(doublesOut, doubles);
    std::vector<char16_t> chars{u'a', u'Ω', 0};
    std::vector<char16_t> charsOut;
    ASSERT_TRUE(mService->echoChars(chars, &charsOut).isOk());
    EXPECT_EQ(charsOut, chars);
    std::vector<std::string> strings{"one", "", "three"};
    std::vector<std::string> stringsOut;
    ASSERT_TRUE(mService->echoStrings(strings, &stringsOut).isOk());
    EXPECT_EQ(stringsOut, strings);
    std::vector<int32_t> empty;
    ASSERT_TRUE(mService->echoInts({}, &empty).isOk());
    EXPECT_TRUE(empty.empty());
}

TEST_F(RoundTripTest, NullableValues) {
    std::optional<std::string> text = "x";
    ASSERT_TRUE(mService->echoNullableString(std::nullopt, &text).isOk());
    EXPECT_FALSE(text.has_value());
    ASSERT_TRUE(mService->echoNullableString("set", &text).isOk());
    EXPECT_EQ(text, "set");

    std::optional<std::vector<int32_t>> ints = std::vector<int32_t>{1};
    ASSERT_TRUE(mService->echoNullableInts(std::nullopt, &ints).isOk());
    EXPECT_FALSE(ints.has_value());

    std::optional<std::vector<std::optional<std::string>>> strings =
            std::vector<std::optional<std::string>>{"a", std::nullopt, ""};
    std::optional<std::vector<std::optional<std::string>>> stringsOut;
    ASSERT_TRUE(mService->echoNullableStrings(strings, &stringsOut).isOk());
    EXPECT_EQ(stringsOut, strings);
    ASSERT_TRUE(mService->echoNullableStrings(std::nullopt, &stringsOut).isOk());
    EXPECT_FALSE(stringsOut.has_value());
}

TEST_F(RoundTripTest, ParcelablesWithNestedFields) {
    Record record = MakeRecord("first");
    record.note = "a note";
    Record out;
    ASSERT_TRUE(mService->echoRecord(record, &out).isOk());
    ExpectSameRecord(record, out);

    std::vector<Record> records{MakeRecord("a"), MakeRecord("b"), MakeRecord("c")};
    std::vector<Record> recordsOut;
    ASSERT_TRUE(mService->echoRecords(records, &recordsOut).isOk());
    ASSERT_EQ(recordsOut.size(), records.size());
    for (size_t i = 0; i < records.size(); ++i) ExpectSameRecord(records[i], recordsOut[i]);
}

TEST_F(RoundTripTest, OutAndInoutArrays) {
    std::vector<int32_t> values(5);
    std::vector<std::string> names{"x", "y"};
    ASSERT_TRUE(mService->fillOut(5, &values, &names).isOk());
    EXPECT_EQ(values, (std::vector<int32_t>{0, 1, 4, 9, 16}));
    EXPECT_EQ(names, (std::vector<std::string>{"x!", "y!"}));
}

TEST_F(RoundTripTest, FileDescriptorsReachTheOtherProcess) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    ndk::ScopedFileDescriptor readEnd(fds[0]);
    ndk::ScopedFileDescriptor writeEnd(fds[1]);
    ndk::ScopedFileDescriptor echoed;
    ASSERT_TRUE(mService->echoFd(writeEnd, &echoed).isOk());
    ASSERT_GE(echoed.get(), 0);
    EXPECT_NE(echoed.get(), writeEnd.get());
    ASSERT_EQ(write(echoed.get(), "via", 3), 3);
    char buffer[4] = {};
    ASSERT_EQ(read(readEnd.get(), buffer, 3), 3);
    EXPECT_STREQ(buffer, "via");
}

TEST_F(RoundTripTest, SharedMemoryBothWays) {
    SharedBlock block;
    ASSERT_TRUE(mService->makeSharedBlock("from the service", &block).isOk());
    ASSERT_EQ(block.size, 16);
    void* map = mmap(nullptr, 16, PROT_READ, MAP_SHARED, block.fd.get(), 0);
    ASSERT_NE(map, MAP_FAILED);
    EXPECT_EQ(std::string(static_cast<const char*>(map), 16), "from the service");
    munmap(map, 16);

    const std::string content = "from the client";
    SharedBlock mine;
    mine.fd.set(ashmem_create_region("tessel-test", content.size()));
    ASSERT_GE(mine.fd.get(), 0);
    mine.size = static_cast<int64_t>(content.size());
    void* region =
            mmap(nullptr, content.size(), PROT_READ | PROT_WRITE, MAP_SHARED, mine.fd.get(), 0);
    ASSERT_NE(region, MAP_FAILED);
    memcpy(region, content.data(), content.size());
    munmap(region, content.size());
    std::string seen;
    ASSERT_TRUE(mService->readSharedBlock(mine, &seen).isOk());
    EXPECT_EQ(seen, content);
}

TEST_F(RoundTripTest, ServiceSpecificErrorsAndExceptions) {
    ndk::ScopedAStatus status =
            mService->throwServiceSpecific(ITestService::ERROR_REJECTED, "rejected here");
    EXPECT_FALSE(status.isOk());
    EXPECT_EQ(status.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(status.getServiceSpecificError(), ITestService::ERROR_REJECTED);
    EXPECT_STREQ(status.getMessage(), "rejected here");

    status = mService->throwException(EX_ILLEGAL_ARGUMENT, "bad argument");
    EXPECT_EQ(status.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(status.getServiceSpecificError(), 0);
    EXPECT_STREQ(status.getMessage(), "bad argument");
}

TEST_F(RoundTripTest, TransactionErrorReachesTheCaller) {
    ndk::ScopedAStatus status = mService->failTransaction(STATUS_PERMISSION_DENIED);
    EXPECT_EQ(status.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(status.getStatus(), STATUS_PERMISSION_DENIED);

    // The raw transaction result is that same value, with no reply parcel.
    ndk::SpAIBinder binder = mService->asBinder();
    AParcel* in = nullptr;
    ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(in, STATUS_NO_INIT), STATUS_OK);
    AParcel* out = reinterpret_cast<AParcel*>(0x1);
    // failTransaction is method 32 of the interface.
    EXPECT_EQ(AIBinder_transact(binder.get(), FIRST_CALL_TRANSACTION + 32, &in, &out, 0),
              STATUS_NO_INIT);
    EXPECT_EQ(in, nullptr);
    EXPECT_EQ(out, nullptr);
}

TEST_F(RoundTripTest, ProxyBasics) {
    ndk::SpAIBinder binder = mService->asBinder();
    EXPECT_TRUE(AIBinder_isRemote(binder.get()));
    EXPECT_TRUE(AIBinder_isAlive(binder.get()));
    EXPECT_EQ(AIBinder_ping(binder.get()), STATUS_OK);
    EXPECT_EQ(AIBinder_getUserData(binder.get()), nullptr);
    EXPECT_TRUE(mService->isRemote());
    // The same object looked up again is the same proxy.
    ndk::SpAIBinder again(ServiceProcess::WaitForBinder(TestServiceInstance()));
    EXPECT_EQ(again.get(), binder.get());
    // A class with another descriptor does not fit the remote object.
    EXPECT_EQ(aidl::tessel::test::ICallback::fromBinder(binder), nullptr);
}

TEST_F(RoundTripTest, CallerIdentity) {
    std::vector<int32_t> ids;
    ASSERT_TRUE(mService->callerIds(&ids).isOk());
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids[0], getpid());
    EXPECT_EQ(ids[1], static_cast<int32_t>(getuid()));
    EXPECT_NE(ids[2], getpid());
    // Outside a transaction a thread sees its own process.
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    EXPECT_FALSE(AIBinder_isHandlingTransaction());
}

TEST_F(RoundTripTest, DumpWithArgumentsAndDescriptor) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    ndk::ScopedFileDescriptor readEnd(fds[0]);
    ndk::ScopedFileDescriptor writeEnd(fds[1]);
    const char* args[] = {"--verbose", "modules"};
    ASSERT_EQ(AIBinder_dump(mService->asBinder().get(), writeEnd.get(), args, 2), STATUS_OK);
    writeEnd.set(-1);
    char buffer[128] = {};
    ssize_t n = read(readEnd.get(), buffer, sizeof(buffer) - 1);
    EXPECT_EQ(std::string(buffer, n > 0 ? static_cast<size_t>(n) : 0), "dump: --verbose modules\n");
}

TEST(DeepRootTest, ServicesWorkUnderARootLongerThanASocketPath) {
    TempRoot root;
    std::string deep = root.path();
    for (int i = 0; i < 4; ++i) deep += "/" + std::string(40, static_cast<char>('a' + i));
    std::error_code error;
    std::filesystem::create_directories(deep, error);
    ASSERT_GT(deep.size() + strlen("/dev/binderfs/sm/") + TestServiceInstance().size(), 108u);
    ASSERT_TRUE(platform::SetRoot(deep));
    ServiceProcess process(deep);
    std::shared_ptr<ITestService> service = process.connect();
    ASSERT_NE(service, nullptr) << process.errors();
    int32_t value = 0;
    ASSERT_TRUE(service->echoInt(31, &value).isOk());
    EXPECT_EQ(value, 31);
}

}  // namespace
}  // namespace zelkor::tessel::testing
