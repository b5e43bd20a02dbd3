// A process set up by InitPlatform keeps large blocks it frees: a service
// that receives a few MiB per call must not fault the same pages in again on
// every call.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::platform {
namespace {

long MinorFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// What a service does per call with a large array: the one received and the
// one sent back, written in full and let go.
void ReceiveAndAnswer(size_t size) {
    char* received = static_cast<char*>(malloc(size));
    char* answer = static_cast<char*>(malloc(size));
    ASSERT_NE(received, nullptr);
    ASSERT_NE(answer, nullptr);
    memset(received, 'r', size);
    memcpy(answer, received, size);
    asm volatile("" : : "r"(received), "r"(answer) : "memory");
    free(received);
    free(answer);
}

TEST(HostAllocatorTest, LargeBlocksLetGoAreNotFaultedInAgain) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers bring allocators of their own";
#endif
    testing::TempRoot root;
    std::string name = "allocator_test";
    std::string rootArg = "--root=" + root.path();
    char* argv[] = {name.data(), rootArg.data(), nullptr};
    int argc = 2;
    ASSERT_TRUE(InitPlatform(&argc, argv));

    constexpr size_t kBlock = size_t{4} << 20;
    ReceiveAndAnswer(kBlock);  // the first call faults its pages in
    const long before = MinorFaults();
    for (int call = 0; call < 10; ++call) ReceiveAndAnswer(kBlock);
    // Given back to the kernel, each call would fault both blocks in again:
    // 2,048 pages a call.
    EXPECT_LT(MinorFaults() - before, static_cast<long>(kBlock / getpagesize()));
}

}  // namespace
}  // namespace zelkor::tessel::platform
