// tessel-peer as the daemon sees it: a client in this process calls the
// services it serves on a temporary root.
#include <aidl/vendor/zelkor/hardware/tessel/core/ITesselCore.h>
#include <aidl/zelkor/system/halvex/common/IHalvexSsi.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "Subprocess.h"
#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {
namespace {

using ::aidl::vendor::zelkor::hardware::tessel::core::ITesselCore;
using ::aidl::zelkor::system::halvex::common::IHalvexSsi;

template <typename I>
std::shared_ptr<I> Connect() {
    const std::string instance = std::string(I::descriptor) + "/default";
    return I::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(instance.c_str())));
}

class PeerE2ETest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        mPeer = std::make_unique<Subprocess>(
                std::vector<std::string>{"tessel-peer", "--root", mRoot.path()},
                mRoot.path() + "/peer");
        mCore = Connect<ITesselCore>();
        ASSERT_NE(mCore, nullptr);
    }
    std::string host(const std::string& path) const { return mRoot.path() + path; }

    TempRoot mRoot;
    std::unique_ptr<Subprocess> mPeer;
    std::shared_ptr<ITesselCore> mCore;
};

TEST_F(PeerE2ETest, ChangeModeStaysInsideTheRoot) {
    std::filesystem::create_directories(host("/data/vendor/diag"));
    std::ofstream(host("/data/vendor/diag/last_kmsg")) << "x";
    std::filesystem::create_symlink("/etc/hostname", host("/data/vendor/diag/escape"));

    bool ok = false;
    std::vector<std::string> desc;
    ASSERT_TRUE(mCore->ChangeMode("/data/vendor/diag/last_kmsg", 0604, &desc, &ok).isOk());
    EXPECT_TRUE(ok);
    struct stat st {};
    ASSERT_EQ(stat(host("/data/vendor/diag/last_kmsg").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);

    ASSERT_TRUE(mCore->ChangeMode("/data/vendor/diag/escape", 0666, &desc, &ok).isOk());
    EXPECT_FALSE(ok);
    ASSERT_EQ(desc.size(), 1u);
    EXPECT_EQ(desc[0], "path leads outside the root");

    ASSERT_TRUE(mCore->ChangeMode("/data/vendor/diag/../../../../etc/hostname", 0666, &desc, &ok)
                        .isOk());
    EXPECT_FALSE(ok) << "'..' cannot climb out of the root";
    ASSERT_TRUE(mCore->ChangeMode("/data/missing", 0600, &desc, &ok).isOk());
    EXPECT_FALSE(ok);
    EXPECT_EQ(desc[0].rfind("no such path", 0), 0u) << desc[0];
}

TEST_F(PeerE2ETest, PartitionSizeAndReports) {
    std::filesystem::create_directories(host("/dev/block/by-name"));
    { std::ofstream image(host("/dev/block/by-name/blackbox")); }
    std::filesystem::resize_file(host("/dev/block/by-name/blackbox"), 5 * 4096);
    int64_t size = -1;
    ASSERT_TRUE(mCore->GetPartitionSize("test", "blackbox", &size).isOk());
    EXPECT_EQ(size, 5 * 4096);
    for (const char* name : {"../blackbox", "..", "."}) {
        EXPECT_EQ(mCore->GetPartitionSize("test", name, &size).getExceptionCode(),
                  EX_ILLEGAL_ARGUMENT)
                << name;
    }
    EXPECT_EQ(mCore->GetPartitionSize("test", "missing", &size).getExceptionCode(),
              EX_SERVICE_SPECIFIC);

    std::shared_ptr<IHalvexSsi> ssi = Connect<IHalvexSsi>();
    ASSERT_NE(ssi, nullptr);
    int32_t status = -1;
    ASSERT_TRUE(ssi->reportEvent("31000401754", "Halvex.LogManager", "{\"dirSize\":1}", 0, &status)
                        .isOk());
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadWholeFile(host("/data/peer/reports.jsonl")),
              "{\"eventId\":\"31000401754\",\"flags\":0,\"json\":\"{\\\"dirSize\\\":1}\","
              "\"module\":\"Halvex.LogManager\"}\n");
}

}  // namespace
}  // namespace zelkor::tessel::testing
