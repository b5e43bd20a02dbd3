// tessel-peer as the daemon sees it: a client in this process calls the
// services it serves on a temporary root.
#include <aidl/vendor/zelkor/hardware/tessel/core/ITesselCore.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "DaemonTest.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {
namespace {

using ::aidl::vendor::zelkor::hardware::tessel::core::ITesselCore;

using PeerE2ETest = DaemonTest;

// Modes change only inside the root; a partition's size is its image's, a
// name that leaves the by-name folder is the caller's fault, a missing
// partition the service's answer.
TEST_F(PeerE2ETest, ChangeModeAndPartitionsStayInsideTheRoot) {
    ASSERT_TRUE(platform::SetRoot(mRoot.path()));
    const auto peer = StartPeer(mRoot.path());
    const std::string instance = std::string(ITesselCore::descriptor) + "/default";
    const std::shared_ptr<ITesselCore> core = ITesselCore::fromBinder(
            ndk::SpAIBinder(AServiceManager_waitForService(instance.c_str())));
    ASSERT_NE(core, nullptr);
    Put("/data/vendor/diag/last_kmsg", "x");
    std::filesystem::create_symlink("/etc/hostname", Host("/data/vendor/diag/escape"));

    bool ok = false;
    std::vector<std::string> desc;
    ASSERT_TRUE(core->ChangeMode("/data/vendor/diag/last_kmsg", 0604, &desc, &ok).isOk());
    EXPECT_TRUE(ok);
    struct stat st {};
    ASSERT_EQ(stat(Host("/data/vendor/diag/last_kmsg").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);

    ASSERT_TRUE(core->ChangeMode("/data/vendor/diag/escape", 0666, &desc, &ok).isOk());
    EXPECT_FALSE(ok);
    ASSERT_EQ(desc.size(), 1u);
    EXPECT_EQ(desc[0], "path leads outside the root");
    ASSERT_TRUE(core->ChangeMode("/data/vendor/diag/../../../../etc/hostname", 0666, &desc, &ok)
                        .isOk());
    EXPECT_FALSE(ok) << "'..' cannot climb out of the root";
    ASSERT_TRUE(core->ChangeMode("/data/missing", 0600, &desc, &ok).isOk());
    EXPECT_FALSE(ok);
    EXPECT_EQ(desc[0].rfind("no such path", 0), 0u) << desc[0];

    Put("/dev/block/by-name/blackbox", "image");
    int64_t size = -1;
    ASSERT_TRUE(core->GetPartitionSize("test", "blackbox", &size).isOk());
    EXPECT_EQ(size, 5);
    for (const char* name : {"../blackbox", "..", "."}) {
        EXPECT_EQ(core->GetPartitionSize("test", name, &size).getExceptionCode(),
                  EX_ILLEGAL_ARGUMENT)
                << name;
    }
    EXPECT_EQ(core->GetPartitionSize("test", "missing", &size).getExceptionCode(),
              EX_SERVICE_SPECIFIC);
}

}  // namespace
}  // namespace zelkor::tessel::testing
