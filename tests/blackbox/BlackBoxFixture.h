// A host root holding a blackbox partition image, for the blackbox tests.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "TempRoot.h"
#include "TestImage.h"
#include "modules/blackbox/BlackBoxHeaders.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {

class BlackBoxTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }

    std::string RootPath(const std::string& device_path) const {
        return mRoot.path() + device_path;
    }

    // A new partition image of `size` zero bytes.
    TestImage& MakeImage(uint64_t size = kImageSize) {
        mImage.reset();
        mImage = std::make_unique<TestImage>(RootPath("/dev/block/by-name/blackbox"), size);
        EXPECT_TRUE(mImage->ok());
        return *mImage;
    }

    // The header pass over the image, into mHeaders; what it printed goes to
    // `printed` when given.
    int RunPass(blackbox::HeaderPassMode mode = blackbox::HeaderPassMode::kRepair,
                std::string* printed = nullptr) {
        ::testing::internal::CaptureStdout();
        int fd = open(mImage->path().c_str(), O_RDWR | O_CLOEXEC);
        int result = blackbox::handle_black_box_headers(fd, &mHeaders, mode);
        close(fd);
        std::string out = ::testing::internal::GetCapturedStdout();
        if (printed != nullptr) *printed = std::move(out);
        return result;
    }

    TempRoot mRoot;
    std::unique_ptr<TestImage> mImage;
    blackbox::BlackBoxHeaders mHeaders;
};

}  // namespace zelkor::tessel::testing
