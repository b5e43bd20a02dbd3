// On a host no client path leads outside the root: not "..", not a link,
// absolute or relative, not a link swapped while calls run.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "FileServiceFixture.h"
#include "platform/ClientPath.h"

namespace zelkor::tessel::testing {
namespace {

TEST_F(FileServiceTest, ClientPathsResolveAsIfTheRootWereSlash) {
    Plant("/etc/hostname", "inside");
    ASSERT_EQ(symlink("/etc", Host("/data/abs").c_str()), 0);
    ASSERT_EQ(symlink("../../../../../../../etc", Host("/data/rel").c_str()), 0);
    ASSERT_EQ(symlink("/proc/self/root/etc", Host("/data/magic").c_str()), 0);
    for (const char* path : {"/../../../etc/hostname", "../etc/hostname", "/data/abs/hostname",
                             "/data/rel/hostname", "/data/vendor/../../etc/hostname"}) {
        android::base::unique_fd fd(platform::OpenClientPath(path, O_RDONLY));
        ASSERT_TRUE(fd.ok()) << path;
        std::string text(16, '\0');
        text.resize(static_cast<size_t>(read(fd.get(), text.data(), text.size())));
        EXPECT_EQ(text, "inside") << path;
    }
    // /proc inside the root does not exist, and magic links are refused.
    EXPECT_LT(platform::OpenClientPath("/data/magic/hostname", O_RDONLY), 0);
}

// A link flipped between a folder inside the root and the outside folder
// while writes and deletions run through it.
TEST_F(FileServiceTest, ALinkSwappedDuringCallsStillLeadsNowhereOutside) {
    std::filesystem::create_directories(Host("/data/real"));
    ASSERT_EQ(symlink("real", Host("/data/flip").c_str()), 0);
    std::atomic<bool> stop{false};
    std::thread flipper([&] {
        for (int i = 0; !stop; ++i) {
            // rename() replaces the link in one step, as an attacker would.
            const std::string next = Host(i % 2 ? "/data/flip.next" : "/data/flip.next2");
            unlink(next.c_str());
            if (symlink(i % 2 ? "real" : mOutside.path().c_str(), next.c_str()) == 0) {
                rename(next.c_str(), Host("/data/flip").c_str());
            }
        }
    });
    int inside = 0;
    for (int i = 0; i < 2000; ++i) {
        if (mService->TesselWriteFile("/data/flip", "secret", "pwned", 0666, 0).isOk()) ++inside;
        mService->EraseFileOrDirectory("/data/flip", "secret");
        mService->TesselCreateFolder("/data/flip", "made");
    }
    stop = true;
    flipper.join();
    EXPECT_GT(inside, 0) << "the link did point inside some of the time";
    ExpectOutsideUntouched();
}

}  // namespace
}  // namespace zelkor::tessel::testing
