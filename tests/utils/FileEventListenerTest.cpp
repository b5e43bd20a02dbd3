#include "utils/FileEventListener.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "LogCapture.h"
#include "TempRoot.h"
#include "WaitFor.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

using namespace std::chrono_literals;
using testing::LogCapture;

constexpr char kTag[] = "Halvex-FileEventListener";
constexpr uint32_t kMask = IN_CREATE | IN_DELETE | IN_DELETE_SELF;

// One delivered event as "mask name watched-folder"; "-" for no name.
std::string Ev(uint32_t mask, const std::optional<std::string>& name, const std::string& watched) {
    return std::to_string(mask) + " " + name.value_or("-") + " " + watched;
}

// Records the events it is given. A stalled one instead holds its first
// callback until released, so that the kernel's queue fills up.
class RecordingListener : public FileEventListener {
  public:
    RecordingListener(const std::vector<std::string>& paths, uint32_t mask = kMask,
                      bool stalled = false)
        : FileEventListener("TestListener", paths, mask, false), mStalled(stalled) {
        startListening();
    }
    ~RecordingListener() override { stopListening(); }

    void OnFileEvent(uint32_t mask, std::optional<std::string> name,
                     const std::string& watched) override {
        std::unique_lock<std::mutex> lock(mLock);
        mCond.wait(lock, [&] { return !mStalled; });
        mEvents.push_back(Ev(mask, name, watched));
        mCond.notify_all();
    }
    void OnQueueOverflow() override { set(mOverflowed); }
    void release() { set(mStalled, false); }
    bool overflowed() {
        std::lock_guard<std::mutex> lock(mLock);
        return mOverflowed;
    }
    bool waitForOverflow() {
        std::unique_lock<std::mutex> lock(mLock);
        return mCond.wait_for(lock, 20s, [&] { return mOverflowed; });
    }
    // The events once there are at least `count`, or what came within 10 s.
    std::vector<std::string> waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        mCond.wait_for(lock, 10s, [&] { return mEvents.size() >= count; });
        return mEvents;
    }

  private:
    void set(bool& flag, bool value = true) {
        std::lock_guard<std::mutex> lock(mLock);
        flag = value;
        mCond.notify_all();
    }
    std::mutex mLock;
    std::condition_variable mCond;
    std::vector<std::string> mEvents;
    bool mStalled;
    bool mOverflowed = false;
};

size_t CountEntries(const char* dir) {
    return std::distance(std::filesystem::directory_iterator(dir), {});
}

class FileEventListenerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        std::filesystem::create_directories(mRoot.path() + "/logs/a");
        std::filesystem::create_directories(mRoot.path() + "/logs/b");
    }
    void Touch(const std::string& devicePath) { std::ofstream(mRoot.path() + devicePath) << "x"; }
    // Waits (up to 10 s) until the log holds a line of the listener's.
    bool WaitForLine(const std::string& text) const {
        return testing::WaitFor([&] { return mLog.count(kTag, text) > 0; }, 10s);
    }
    void ExpectLogged(std::initializer_list<const char*> lines) const {
        for (const char* line : lines) EXPECT_TRUE(mLog.contains(kTag, line)) << line;
    }

    testing::TempRoot mRoot;
    LogCapture mLog{ANDROID_LOG_VERBOSE};
};

TEST_F(FileEventListenerTest, DeliversEventsInOrderWithNamesAndTheWatchedDevicePath) {
    RecordingListener listener({"/logs/a", "/logs/b"});
    Touch("/logs/a/kernel.log");
    Touch("/logs/b/0abc");  // a name starting with the digit 0 comes without a name
    std::filesystem::remove(mRoot.path() + "/logs/a/kernel.log");
    std::filesystem::remove_all(mRoot.path() + "/logs/b");
    // The folder's removal ends its watch: the kernel's IN_IGNORED still names
    // a watched descriptor and reaches the callback, as it would on a device.
    std::vector<std::string> expected = {
            Ev(IN_CREATE, "kernel.log", "/logs/a"),      Ev(IN_CREATE, std::nullopt, "/logs/b"),
            Ev(IN_DELETE, "kernel.log", "/logs/a"),      Ev(IN_DELETE, std::nullopt, "/logs/b"),
            Ev(IN_DELETE_SELF, std::nullopt, "/logs/b"), Ev(IN_IGNORED, std::nullopt, "/logs/b"),
    };
    for (int i = 0; i < 300; ++i) {  // far more than one 512-byte read holds
        Touch("/logs/a/f" + std::to_string(i) + ".log");
        expected.push_back(Ev(IN_CREATE, "f" + std::to_string(i) + ".log", "/logs/a"));
    }
    EXPECT_EQ(listener.waitFor(expected.size()), expected);
    EXPECT_FALSE(listener.overflowed()) << "no overflow without a full queue";
}

TEST_F(FileEventListenerTest, WatchesAreAddedOnceAndRemovedByPathOrDescriptor) {
    RecordingListener listener({"/logs/a", "/missing", "/logs/b"});
    EXPECT_EQ(listener.addWatching("/logs/a", kMask), -114);
    EXPECT_EQ(listener.addWatching("/nowhere", kMask), ENOENT);
    ExpectLogged(
            {"[FileEventListener] add file watch failed! path: /missing, error: No such "
             "file or directory",
             "[addWatching] addWatching for /missing failed! error: No such file or directory",
             "[addWatching] addWatching for /logs/a failed! error: Already Watched"});

    // The first watch of /logs/a still reports.
    Touch("/logs/a/one");
    ASSERT_EQ(listener.waitFor(1).front(), Ev(IN_CREATE, "one", "/logs/a"));

    EXPECT_TRUE(listener.removeWatching(std::string("/logs/a")));
    EXPECT_FALSE(listener.removeWatching(std::string("/logs/a")));
    EXPECT_FALSE(listener.removeWatching(std::string("/never")));
    EXPECT_FALSE(listener.removeWatching(12345)) << "no such descriptor in the map";
    // The kernel's IN_IGNORED for the removed watch names a descriptor the map
    // no longer holds: logged and dropped, never a callback.
    EXPECT_TRUE(WaitForLine("is not in our watching list, remove watching!"));
    Touch("/logs/a/two");
    Touch("/logs/b/three");
    // "two" came first; only the folder still watched reports.
    auto events = listener.waitFor(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1], Ev(IN_CREATE, "three", "/logs/b"));
}

TEST_F(FileEventListenerTest, AQueueOverflowIsAnnounced) {
    size_t limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    if (limit == 0 || limit > 100000) GTEST_SKIP() << "inotify queue limit " << limit;
    RecordingListener listener({"/logs/a"}, IN_CREATE, /*stalled=*/true);
    // More creations than the queue holds while the first callback waits,
    // with room for what the loop's first read took out of it.
    for (size_t i = 0; i < limit + 600; ++i) Touch("/logs/a/" + std::to_string(i));
    listener.release();
    EXPECT_TRUE(listener.waitForOverflow());
    // The overflow event names no watch: dropped like any unknown descriptor.
    EXPECT_TRUE(WaitForLine("wd -1 is not in our watching list, remove watching!"));
}

TEST_F(FileEventListenerTest, ListenersComeAndGoWithoutLeakingDescriptorsOrThreads) {
    // One listener first: a sanitizer runtime starts a thread of its own
    // with the process's first threads.
    { FileEventListener warm("Warm", {"/logs/a"}, kMask); }
    const size_t fdsBefore = CountEntries("/proc/self/fd");
    const size_t threadsBefore = CountEntries("/proc/self/task");
    for (int i = 0; i < 1000; ++i) {
        // Most watch nothing at all: no event ever arrives to end the read,
        // and the destructor must still return. Every tenth watches a folder
        // (the kernel takes milliseconds to drop a watch).
        std::vector<std::string> paths;
        if (i % 10 == 0) paths.push_back("/logs/a");
        FileEventListener listener("Churn", paths, kMask);
        if (i % 100 == 0) Touch("/logs/a/churn" + std::to_string(i));
    }
    EXPECT_EQ(CountEntries("/proc/self/fd"), fdsBefore);
    EXPECT_EQ(CountEntries("/proc/self/task"), threadsBefore);
}

TEST_F(FileEventListenerTest, WithoutAnInotifyDescriptorNothingIsWatched) {
    // One listener first, with descriptors to spare: a UBSan build checks an
    // object's dynamic type once per type, with a pipe of its own.
    { RecordingListener warm({}); }
    // With the lowest free descriptor number as the limit, every number below
    // it is taken: inotify_init1 fails with EMFILE.
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    const int lowestFree = dup(0);
    ASSERT_GE(lowestFree, 0);
    close(lowestFree);
    rlimit tight = old;
    tight.rlim_cur = lowestFree;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    auto listener = std::make_unique<RecordingListener>(std::vector<std::string>{"/logs/a"});
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);

    EXPECT_EQ(listener->addWatching("/logs/a", kMask), -9);
    EXPECT_FALSE(listener->removeWatching(std::string("/logs/a")));
    EXPECT_FALSE(listener->removeWatching(1));
    listener.reset();  // returns although no loop ever ran
    // A null listener ends the loop at once with the error line.
    FileEventListener::listenLoop(nullptr);
    ExpectLogged({"[FileEventListener] init new inotify fd failed!, error: Too many open files",
                  "[~FileEventListener] Cleanup Done!",
                  "[listenLoop] 'thiz' is nullptr while trying to trigger file event callback!"});
}

}  // namespace
}  // namespace zelkor::tessel
