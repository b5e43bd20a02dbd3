// The host platform: system properties, device paths and the allocator.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "TempRoot.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::platform {
namespace {

using namespace std::chrono_literals;

class PropertiesTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(SetRoot(mRoot.path())); }
    testing::TempRoot mRoot;
};

TEST_F(PropertiesTest, OversizedOrForeignFilesAreNotValues) {
    const std::string dir = mRoot.path() + "/dev/__properties__";
    EXPECT_EQ(GetProperty("vendor.test.any", "dflt"), "dflt") << "no store folder yet";
    ASSERT_TRUE(SetProperty("vendor.test.any", "1"));
    // Planted by hand: 1 MiB in a property file, a folder, a FIFO (an open
    // would block) and a link to a file outside the store in place of one.
    ASSERT_EQ(truncate((dir + "/vendor.test.any").c_str(), 1 << 20), 0);
    ASSERT_EQ(mkdir((dir + "/vendor.test.dir").c_str(), 0755), 0);
    ASSERT_EQ(mkfifo((dir + "/vendor.test.fifo").c_str(), 0644), 0);
    { std::ofstream(mRoot.path() + "/outside") << "secret"; }
    ASSERT_EQ(symlink((mRoot.path() + "/outside").c_str(), (dir + "/vendor.test.link").c_str()), 0);
    for (const char* key :
         {"vendor.test.any", "vendor.test.dir", "vendor.test.fifo", "vendor.test.link"}) {
        EXPECT_EQ(GetProperty(key, "dflt"), "dflt") << key;
    }
}

// Each value as true (1), false (0) or neither (-1, the default holds).
TEST_F(PropertiesTest, BoolValues) {
    const std::pair<const char*, int> cases[] = {{"1", 1},    {"y", 1},     {"yes", 1},   {"on", 1},
                                                 {"true", 1}, {"0", 0},     {"n", 0},     {"no", 0},
                                                 {"off", 0},  {"false", 0}, {"maybe", -1}};
    for (const auto& [value, meaning] : cases) {
        ASSERT_TRUE(SetProperty("persist.test.flag", value));
        EXPECT_EQ(GetBoolProperty("persist.test.flag", false), meaning == 1) << value;
        EXPECT_EQ(GetBoolProperty("persist.test.flag", true), meaning != 0) << value;
    }
}

TEST_F(PropertiesTest, SetAndGetAsOnADevice) {
    ASSERT_TRUE(SetProperty("vendor.minidump.is.valid", "1"));
    ASSERT_TRUE(SetProperty("vendor.minidump.is.valid", "0"));
    EXPECT_EQ(GetProperty("vendor.minidump.is.valid", ""), "0");
    // An empty value reads as unset.
    ASSERT_TRUE(SetProperty("vendor.test.empty", ""));
    EXPECT_EQ(GetProperty("vendor.test.empty", "dflt"), "dflt");
    for (const char* bad : {"", ".a", "a.", "a..b", "a/b", "../etc/passwd", "a b", "a\nb"}) {
        EXPECT_FALSE(SetProperty(bad, "1")) << bad;
        EXPECT_EQ(GetProperty(bad, "none"), "none") << bad;
    }
    EXPECT_TRUE(SetProperty("vendor.test.long", std::string(91, 'x')));
    EXPECT_FALSE(SetProperty("vendor.test.long", std::string(92, 'y')));
    EXPECT_EQ(GetProperty("vendor.test.long", ""), std::string(91, 'x'));

    // Read-only properties are set once, and may be long.
    EXPECT_TRUE(SetProperty("ro.build.version.incremental", std::string(200, 'v')));
    EXPECT_FALSE(SetProperty("ro.build.version.incremental", "other"));
    EXPECT_EQ(GetProperty("ro.build.version.incremental", ""), std::string(200, 'v'));
}

TEST_F(PropertiesTest, WaitersWakeOnSetAndTimeOutOtherwise) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(WaitForPropertyCreation("vendor.test.never", 50ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);

    std::atomic<bool> created{false}, valued{false};
    std::thread creationWaiter([&] { created = WaitForPropertyCreation("vendor.cam.ready"); });
    std::thread valueWaiter([&] { valued = WaitForProperty("vendor.cam.state", "up", 60s); });
    ASSERT_TRUE(SetProperty("vendor.cam.ready", "1"));
    ASSERT_TRUE(SetProperty("vendor.cam.state", "down"));
    ASSERT_TRUE(SetProperty("vendor.cam.state", "up"));
    creationWaiter.join();
    valueWaiter.join();
    EXPECT_TRUE(created);
    EXPECT_TRUE(valued);
}

TEST_F(PropertiesTest, ReadersNeverSeeATornValue) {
    const std::string a(91, 'a'), b(91, 'b');
    ASSERT_TRUE(SetProperty("vendor.test.torn", a));
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; !stop; ++i) SetProperty("vendor.test.torn", i % 2 ? a : b);
    });
    int bad = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string value = GetProperty("vendor.test.torn", "");
        if (value != a && value != b) ++bad;
    }
    stop = true;
    writer.join();
    EXPECT_EQ(bad, 0);
}

TEST(DevicePathTest, MapsUnderTheRootAndNeverLeavesIt) {
    testing::TempRoot root;
    ASSERT_TRUE(SetRoot(root.path()));
    const std::string& r = Root();
    EXPECT_EQ(DevicePath("/dev/block/by-name/blackbox"), r + "/dev/block/by-name/blackbox");
    EXPECT_EQ(DevicePath("/data/vendor/diag/"), r + "/data/vendor/diag/");
    EXPECT_EQ(DevicePath("/data/../../../etc/passwd"), r + "/etc/passwd");
    EXPECT_EQ(DevicePath("/a/./b//c/.."), r + "/a/b");
    EXPECT_EQ(DevicePath("relative/x"), r + "/relative/x");
    EXPECT_EQ(DevicePath("/"), r + "/");
    EXPECT_FALSE(SetRoot(root.path() + "/missing"));
    EXPECT_EQ(Root(), r) << "a failed SetRoot keeps the old root";
}

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

// A process set up by InitPlatform keeps large blocks it frees: a service
// that receives a few MiB per call must not fault the same pages in again on
// every call.
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
