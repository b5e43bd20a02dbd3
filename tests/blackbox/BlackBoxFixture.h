// A host root holding a blackbox partition image, for the blackbox tests.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "TempRoot.h"
#include "TestImage.h"
#include "modules/blackbox/BlackBoxHeaders.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {

// The tag of every log line the blackbox code writes.
constexpr char kTag[] = "BSPLogProcessor-BlackBox";

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

    // What `run` returns; what it printed goes to mPrinted.
    template <typename Run>
    auto Printing(Run run) {
        ::testing::internal::CaptureStdout();
        auto result = run();
        mPrinted = ::testing::internal::GetCapturedStdout();
        return result;
    }

    // The header pass over the image, into mHeaders.
    int RunPass(blackbox::HeaderPassMode mode = blackbox::HeaderPassMode::kRepair) {
        return Printing([&] {
            int fd = open(mImage->path().c_str(), O_RDWR | O_CLOEXEC);
            int result = blackbox::handle_black_box_headers(fd, &mHeaders, mode);
            close(fd);
            return result;
        });
    }

    // A partition with the default headers, through the header pass.
    void MakeDefaultImage() {
        MakeImage().PutDefaultHeaders();
        ASSERT_TRUE(mImage->ok());
        RunPass();
    }

    TempRoot mRoot;
    std::unique_ptr<TestImage> mImage;
    blackbox::BlackBoxHeaders mHeaders;
    std::string mPrinted;
};

inline ::testing::AssertionResult Contains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "no \"" << part << "\" in:\n" << text;
}

}  // namespace zelkor::tessel::testing
