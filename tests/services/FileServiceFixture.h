// A TesselImpl called in process on a temporary root, with a folder outside
// the root that no call may ever reach.
#pragma once

#include <android/binder_auto_utils.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "TempRoot.h"
#include "common/default/service/TesselImpl.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {

// Statuses the service answers with: -errno values and INVALID_OPERATION.
constexpr binder_status_t kNoent = -2, kInval = -22, kOpenFailed = -17, kInvalidOp = -38;

// The status a client sees: STATUS_OK or the binder status value.
inline binder_status_t StatusOf(const ndk::ScopedAStatus& status) {
    return status.isOk() ? STATUS_OK : status.getStatus();
}

inline std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline mode_t ModeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

class FileServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        std::filesystem::create_directories(Host("/data/vendor"));
        std::ofstream(mOutside.path() + "/secret") << "outside";
        mService = ndk::SharedRefBase::make<TesselImpl>();
    }
    std::string Host(const std::string& devicePath) const { return mRoot.path() + devicePath; }
    void Plant(const std::string& devicePath, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(Host(devicePath)).parent_path());
        std::ofstream(Host(devicePath), std::ios::binary) << content;
    }
    // The outside folder still holds exactly its one file, unchanged.
    void ExpectOutsideUntouched() const {
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mOutside.path()), {}), 1);
        EXPECT_EQ(Slurp(mOutside.path() + "/secret"), "outside");
    }

    TempRoot mRoot;
    TempRoot mOutside;
    std::shared_ptr<TesselImpl> mService;
};

}  // namespace zelkor::tessel::testing
