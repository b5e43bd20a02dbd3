// The file-system service's whole-file calls, properties, partition sizes and
// the virtual-camera stubs, called in process.
#include <aidl/vendor/zelkor/hardware/tessel/core/BnTesselCore.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FileServiceFixture.h"
#include "LogCapture.h"
#include "framework/HalvexUtil.h"

namespace zelkor::tessel::testing {
namespace {

TEST_F(FileServiceTest, NamesAreJoinedOnceAndALeadingSlashOrEmptyPartIsRefused) {
    LogCapture log;
    for (const char* folder : {"/data/vendor/", "/data/vendor"}) {
        EXPECT_EQ(StatusOf(mService->TesselWriteFile(folder, "a.txt", folder, 0644, 0)), STATUS_OK);
        EXPECT_EQ(Slurp(Host("/data/vendor/a.txt")), folder);
    }
    // Further '/' and ".." inside a name are the client's to use.
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data/vendor", "../c.txt", "C", 0644, 0)),
              STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/c.txt")), "C");

    std::string text;
    EXPECT_EQ(StatusOf(mService->TesselReadFile("/data/vendor", "/a.txt", &text)), kInval);
    EXPECT_TRUE(log.contains("tessel.impl", "file_name[0] is '/', return error"));
    EXPECT_TRUE(log.contains("tessel.impl", "handPath function return error(-22)\n"));
    EXPECT_EQ(StatusOf(mService->TesselReadFile("/data/vendor", "", &text)), kInval);
    EXPECT_EQ(StatusOf(mService->TesselReadFile("", "a.txt", &text)), kInval);
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data", "/x", "X", 0644, 0)), kInval);
    EXPECT_FALSE(std::filesystem::exists(Host("/x")));
}

TEST_F(FileServiceTest, TextWritesTruncateOrAppendAndTakeTheExactMode) {
    const mode_t old = umask(022);
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data", "t", "abc", 0666, 0)), STATUS_OK);
    EXPECT_EQ(ModeOf(Host("/data/t")), 0666u) << "the umask does not narrow the mode";
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data", "t", "def", 0600, 1)), STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/t")), "abcdef");
    EXPECT_EQ(ModeOf(Host("/data/t")), 0600u);
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data", "t", "x", 0640, 0)), STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/t")), "x");
    umask(old);
    // A folder in the way, or a missing parent, is a failing write.
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data", "vendor", "x", 0644, 0)), kInval);
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data/none", "t", "x", 0644, 0)), kInval);
}

TEST_F(FileServiceTest, ReadsGiveTheBytesOrTheirStatus) {
    std::string text;
    EXPECT_EQ(StatusOf(mService->TesselReadFile("/data", "missing", &text)), kOpenFailed);
    std::vector<int8_t> bytes;
    EXPECT_EQ(StatusOf(mService->TesselReadBuffer("/data", "missing", &bytes)), kOpenFailed);

    const std::string binary("a\0b\xff", 4);
    Plant("/data/bin", binary);
    ASSERT_EQ(StatusOf(mService->TesselReadBuffer("/data", "bin", &bytes)), STATUS_OK);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), binary);
    ASSERT_EQ(StatusOf(mService->TesselReadFile("/data", "bin", &text)), STATUS_OK);
    EXPECT_EQ(text, binary);
    Plant("/data/empty", "");
    ASSERT_EQ(StatusOf(mService->TesselReadFile("/data", "empty", &text)), STATUS_OK);
    EXPECT_EQ(text, "");

    // The byte read stops just below 512 KiB.
    Plant("/data/big", std::string(0x80000 - 1, 'b'));
    ASSERT_EQ(StatusOf(mService->TesselReadBuffer("/data", "big", &bytes)), STATUS_OK);
    EXPECT_EQ(bytes.size(), 0x80000u - 1);
    Plant("/data/big", std::string(0x80000, 'b'));
    EXPECT_EQ(StatusOf(mService->TesselReadBuffer("/data", "big", &bytes)), kInval);
    ASSERT_EQ(StatusOf(mService->TesselReadFile("/data", "big", &text)), STATUS_OK);
    EXPECT_EQ(text.size(), 0x80000u);

    // A folder has no text to give.
    EXPECT_EQ(StatusOf(mService->TesselReadFile("/", "data", &text)), kInval);
    // A FIFO is refused at once instead of holding a binder thread forever.
    ASSERT_EQ(mkfifo(Host("/data/fifo").c_str(), 0600), 0);
    EXPECT_EQ(StatusOf(mService->TesselReadFile("/data", "fifo", &text)), kOpenFailed);
    EXPECT_EQ(StatusOf(mService->TesselWriteFile("/data", "fifo", "x", 0600, 0)), kInval);
}

TEST_F(FileServiceTest, ByteWritesTakeTheGivenLengthOfTheBuffer) {
    const std::vector<int8_t> buffer{1, 2, 3, 4};
    EXPECT_EQ(StatusOf(mService->TesselWriteBuffer("/data", "b", buffer, 3)), STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/b")), std::string("\1\2\3", 3));
    EXPECT_EQ(ModeOf(Host("/data/b")), 0644u);
    LogCapture log;
    for (int64_t length : {int64_t{5}, int64_t{-1}}) {
        EXPECT_EQ(StatusOf(mService->TesselWriteBuffer("/data", "b", buffer, length)), kInval);
    }
    EXPECT_EQ(StatusOf(mService->TesselWriteBuffer("/data", "/b", buffer, 1)), kInval);
    EXPECT_EQ(log.count("tessel.impl", "parameter is invalid, return error"), 3);
    EXPECT_EQ(Slurp(Host("/data/b")), std::string("\1\2\3", 3))
            << "a refused write changes nothing";
}

// Files, missing names and an empty folder argument are answered through
// tesselctl in FsE2ETest; here the cases the tool cannot send.
TEST_F(FileServiceTest, ExistsAndSizeAnswerForFoldersAndRefuseBadNames) {
    Plant("/data/vendor/f", "12345");
    bool exists = false;
    EXPECT_EQ(StatusOf(mService->IsExists("/data", "/f", &exists)), kInval);
    EXPECT_EQ(StatusOf(mService->IsExists("/data", "vendor", &exists)), STATUS_OK);
    EXPECT_TRUE(exists);

    int64_t size = -1;
    EXPECT_EQ(StatusOf(mService->GetFileSize("/data/vendor", "", &size)), kInval);
    EXPECT_EQ(StatusOf(mService->GetFileSize("/data/vendor", "/f", &size)), kInval);
}

TEST_F(FileServiceTest, CopyIsByteForByteAndNeverOntoItself) {
    std::string content(300 * 1024, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
    Plant("/data/src", content);
    Plant("/data/dst", "longer old content that must not survive as a tail");
    ASSERT_EQ(StatusOf(mService->CopyFile("/data/src", "/data/dst")), STATUS_OK);
    EXPECT_TRUE(Slurp(Host("/data/dst")) == content);
    ASSERT_EQ(StatusOf(mService->CopyFile("/data/src", "/data/new")), STATUS_OK);
    EXPECT_TRUE(Slurp(Host("/data/new")) == content);
    EXPECT_EQ(ModeOf(Host("/data/new")), 0600u) << "a new copy is the daemon's own";

    EXPECT_EQ(StatusOf(mService->CopyFile("/data/src", "/data/../data/src")), kInval);
    EXPECT_TRUE(Slurp(Host("/data/src")) == content) << "the source survives a copy onto itself";
    EXPECT_EQ(StatusOf(mService->CopyFile("/data/missing", "/data/x")), kInval);
    EXPECT_EQ(StatusOf(mService->CopyFile("/data", "/data/new")), kInval);
    EXPECT_TRUE(Slurp(Host("/data/new")) == content) << "a folder as source cuts nothing";
    EXPECT_EQ(StatusOf(mService->CopyFile("", "/data/x")), kInval);
    EXPECT_EQ(StatusOf(mService->CopyFile("/data/src", "")), kInval);
    EXPECT_FALSE(std::filesystem::exists(Host("/data/x")));
    Plant("/data/empty", "");
    EXPECT_EQ(StatusOf(mService->CopyFile("/data/empty", "/data/new")), STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/new")), "") << "an empty file is copied too";
}

TEST_F(FileServiceTest, SetPropNeedsKeyAndValueAndIgnoresTheAnswer) {
    EXPECT_EQ(StatusOf(mService->TesselSetProp("", "v")), kInval);
    EXPECT_EQ(StatusOf(mService->TesselSetProp("vendor.k", "")), kInval);
    // A name the property store refuses is still answered OK.
    EXPECT_EQ(StatusOf(mService->TesselSetProp("bad name", "v")), STATUS_OK);
}

using ::aidl::vendor::zelkor::hardware::tessel::core::BnTesselCore;

class FakeCore : public BnTesselCore {
  public:
    ndk::ScopedAStatus ChangeMode(const std::string&, int32_t, std::vector<std::string>*,
                                  bool* result) override {
        *result = false;
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus GetPartitionSize(const std::string&, const std::string& name,
                                        int64_t* result) override {
        if (name != "blackbox") return ndk::ScopedAStatus::fromServiceSpecificError(2);
        *result = int64_t{5} << 32;
        return ndk::ScopedAStatus::ok();
    }
};

// Without a core service the size is refused: FsE2ETest, before the peer runs.
TEST_F(FileServiceTest, PartitionSizeComesFromTheCoreService) {
    LogCapture log;
    int64_t size = 0;
    HalvexUtil::SetTesselCore(ndk::SharedRefBase::make<FakeCore>());
    EXPECT_EQ(StatusOf(mService->GetPartitionSize("test", "blackbox", &size)), STATUS_OK);
    EXPECT_EQ(size, int64_t{5} << 32) << "sizes beyond 4 GiB pass whole";
    EXPECT_EQ(StatusOf(mService->GetPartitionSize("test", "nothing", &size)), kInvalidOp);
    EXPECT_TRUE(log.contains("tessel.impl", "Couldn't getPartitionSize internal."));
    HalvexUtil::SetTesselCore(nullptr);
}

TEST_F(FileServiceTest, VirtualCameraCallsAnswerOkAndDoNothing) {
    const auto entries = [&] {
        return std::distance(std::filesystem::recursive_directory_iterator(mRoot.path()), {});
    };
    const auto before = entries();
    bool results[] = {true, true, true, true};
    EXPECT_EQ(StatusOf(mService->OnFrameData({1, 2, 3}, 3, &results[0])), STATUS_OK);
    EXPECT_EQ(StatusOf(mService->ConnectVirtualCamera(&results[1])), STATUS_OK);
    EXPECT_EQ(StatusOf(mService->SetVirtualCameraConfig(1920, 1080, 30.0, &results[2])), STATUS_OK);
    EXPECT_EQ(StatusOf(mService->DisconnectVirtualCamera(&results[3])), STATUS_OK);
    EXPECT_EQ(StatusOf(mService->RegisterVCameraCallback(nullptr)), STATUS_OK);
    EXPECT_EQ(StatusOf(mService->UnregisterVCameraCallback()), STATUS_OK);
    for (bool result : results) EXPECT_FALSE(result);
    EXPECT_EQ(entries(), before);
}

}  // namespace
}  // namespace zelkor::tessel::testing
