#include "utils/FileUtil.h"

#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "LogCapture.h"
#include "TempRoot.h"

namespace zelkor::tessel {
namespace {

class FileUtilTest : public ::testing::Test {
  protected:
    // Known modes on whatever the umask of the runner is.
    void SetUp() override { oldMask_ = umask(0); }
    void TearDown() override { umask(oldMask_); }

    std::string Path(const std::string& rel) const { return root_.path() + "/" + rel; }

    // FileUtil's error lines, in order.
    std::vector<std::string> Errors() const {
        std::vector<std::string> errors;
        for (const auto& line : log_.all()) {
            if (line.tag == "Halvex-FileUtil" && line.priority == ANDROID_LOG_ERROR) {
                errors.push_back(line.message);
            }
        }
        return errors;
    }

    void WriteFile(const std::string& rel, const std::string& data) const {
        std::ofstream(Path(rel), std::ios::binary) << data;
    }

    static std::string ReadFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    static mode_t ModeOf(const std::string& path) {
        struct stat st {};
        EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
        return st.st_mode & 07777;
    }

    static int64_t LstatSize(const std::string& path) {
        struct stat st {};
        EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
        return st.st_size;
    }

    testing::TempRoot root_;
    testing::LogCapture log_;
    mode_t oldMask_ = 0;
};

TEST_F(FileUtilTest, CreateDirectoryGivesModeOnlyToNewLevels) {
    ASSERT_EQ(mkdir(Path("x").c_str(), 0700), 0);
    // Relative and slash-padded on purpose: the path is always taken from "/".
    EXPECT_TRUE(FileUtil::CreateDirectory(Path("x/y/z/").substr(1), 0750));
    EXPECT_EQ(ModeOf(Path("x")), 0700u);
    EXPECT_EQ(ModeOf(Path("x/y")), 0750u);
    EXPECT_EQ(ModeOf(Path("x/y/z")), 0750u);

    // An existing path is accepted as it is.
    EXPECT_TRUE(FileUtil::CreateDirectory(Path("x"), 0755));
    EXPECT_EQ(ModeOf(Path("x")), 0700u);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(FileUtilTest, CreateDirectoryUnderFileFailsAndLogs) {
    WriteFile("f", "x");
    EXPECT_FALSE(FileUtil::CreateDirectory(Path("f/sub"), 0755));
    ASSERT_EQ(Errors().size(), 1u);
    EXPECT_EQ(Errors()[0], "[CreateDirectory] mkdir " + Path("f/sub") + " failed, " +
                                   Path("f/sub") + ", err:Not a directory");
}

TEST_F(FileUtilTest, GetFileSizeKeepsLow32Bits) {
    int fd = open(Path("big").c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 5LL << 30), 0);  // sparse: no real 5 GiB written
    close(fd);
    EXPECT_EQ(FileUtil::GetFileSize(Path("big")), 1u << 30);
    EXPECT_EQ(FileUtil::GetFileSize(Path("missing")), 0u);
}

TEST_F(FileUtilTest, GetDirectorySizeCountsTreeWithoutFollowingLinks) {
    EXPECT_EQ(FileUtil::GetDirectorySize(Path("missing")), -1);
    EXPECT_EQ(Errors().size(), 1u);
    ASSERT_EQ(mkdir(Path("d").c_str(), 0755), 0);
    EXPECT_EQ(FileUtil::GetDirectorySize(Path("d")), LstatSize(Path("d")));

    ASSERT_EQ(mkdir(Path("d/sub").c_str(), 0755), 0);
    WriteFile("d/a", std::string(100, 'a'));
    WriteFile("d/sub/b", std::string(10, 'b'));
    WriteFile("outside", std::string(5000, 'o'));
    ASSERT_EQ(symlink(Path("outside").c_str(), Path("d/link").c_str()), 0);
    EXPECT_EQ(
            FileUtil::GetDirectorySize(Path("d")),
            LstatSize(Path("d")) + LstatSize(Path("d/sub")) + 100 + 10 + LstatSize(Path("d/link")));
}

TEST_F(FileUtilTest, DeleteFileSetsCounter) {
    WriteFile("f", std::string(123, 'f'));
    uint64_t freed = 999;
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("f"), &freed), 0);
    EXPECT_EQ(freed, 123u);
    EXPECT_FALSE(FileUtil::FileExist(Path("f")));

    freed = 7;
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("f"), &freed), -1);
    EXPECT_EQ(freed, 7u);
}

TEST_F(FileUtilTest, DeleteTreeAddsToCounter) {
    ASSERT_EQ(mkdir(Path("empty").c_str(), 0755), 0);
    const uint64_t emptyDirSize = LstatSize(Path("empty"));
    ASSERT_EQ(mkdir(Path("d").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Path("d/sub").c_str(), 0755), 0);
    WriteFile("d/a", std::string(100, 'a'));
    WriteFile("d/sub/b", std::string(10, 'b'));

    uint64_t freed = 5;
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("d"), &freed), 0);
    // Each directory is measured once emptied.
    EXPECT_EQ(freed, 5 + 100 + 10 + 2 * emptyDirSize);
    EXPECT_FALSE(FileUtil::FileExist(Path("d")));
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("empty"), nullptr), 0);
}

TEST_F(FileUtilTest, DeleteWalksIntoLinkedDirectoryAndStops) {
    ASSERT_EQ(mkdir(Path("target").c_str(), 0755), 0);
    WriteFile("target/t", "t");
    ASSERT_EQ(mkdir(Path("d").c_str(), 0755), 0);
    ASSERT_EQ(symlink(Path("target").c_str(), Path("d/link").c_str()), 0);

    EXPECT_NE(FileUtil::DeleteDirectoryOrFile(Path("d"), nullptr), 0);
    EXPECT_FALSE(FileUtil::FileExist(Path("target/t")));
    EXPECT_TRUE(FileUtil::IsDirectory(Path("target")));
    EXPECT_TRUE(FileUtil::FileExist(Path("d/link")));
}

TEST_F(FileUtilTest, CopyFileOrDirectoryCopiesTree) {
    // Not a multiple of the copy chunk, so the short last read is exercised.
    std::string big(10000, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7);
    ASSERT_EQ(mkdir(Path("src").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Path("src/sub").c_str(), 0755), 0);
    WriteFile("src/sub/big", big);
    WriteFile("src/empty", "");

    EXPECT_TRUE(FileUtil::CopyFileOrDirectory(Path("src"), Path("dst")));
    EXPECT_EQ(ReadFile(Path("dst/sub/big")), big);
    EXPECT_TRUE(FileUtil::FileExist(Path("dst/empty")));
    EXPECT_EQ(FileUtil::GetFileSize(Path("dst/empty")), 0u);

    // A file onto a longer one replaces it entirely.
    WriteFile("small", "abc");
    EXPECT_TRUE(FileUtil::CopyFileOrDirectory(Path("small"), Path("dst/sub/big")));
    EXPECT_EQ(ReadFile(Path("dst/sub/big")), "abc");
    EXPECT_TRUE(Errors().empty());
}

TEST_F(FileUtilTest, CopyFileOrDirectoryRefusesExistingDirectoryAndMissingSource) {
    ASSERT_EQ(mkdir(Path("src").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Path("dst").c_str(), 0755), 0);
    EXPECT_FALSE(FileUtil::CopyFileOrDirectory(Path("src"), Path("dst")));
    EXPECT_FALSE(FileUtil::CopyFileOrDirectory(Path("missing"), Path("out")));
    EXPECT_FALSE(FileUtil::FileExist(Path("out")));
    ASSERT_EQ(Errors().size(), 2u);
    EXPECT_EQ(Errors()[0], "[CopyFileOrDirectory] Error creating directory: " + Path("dst"));
    EXPECT_EQ(Errors()[1], "[CopyFileOrDirectory] Error checking path: No such file or directory");
}

TEST_F(FileUtilTest, CopyOntoAFullDeviceFails) {
    WriteFile("src", std::string(10000, 's'));
    // /dev/full accepts the open and fails every write with ENOSPC.
    EXPECT_FALSE(FileUtil::CopyFileOrDirectory(Path("src"), "/dev/full"));
    EXPECT_EQ(Errors(), std::vector<std::string>{
                                "[CopyFileOrDirectory] Error writing destination file: /dev/full"});
}

TEST_F(FileUtilTest, GetFileListOnDirectoryListsFilesAndLinksOfWholeTree) {
    ASSERT_EQ(mkdir(Path("d").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Path("d/sub").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Path("d/sub/emptydir").c_str(), 0755), 0);
    WriteFile("d/f", "f");
    WriteFile("d/sub/g", "g");
    ASSERT_EQ(symlink("nowhere", Path("d/link").c_str()), 0);

    std::vector<std::string> files = {"kept"};
    EXPECT_TRUE(FileUtil::GetFileListOnDirectory(Path("d"), files));
    ASSERT_FALSE(files.empty());
    EXPECT_EQ(files[0], "kept");
    std::sort(files.begin() + 1, files.end());
    EXPECT_EQ(files,
              (std::vector<std::string>{"kept", Path("d/f"), Path("d/link"), Path("d/sub/g")}));

    EXPECT_FALSE(FileUtil::GetFileListOnDirectory(Path("missing"), files));
    EXPECT_EQ(Errors(), std::vector<std::string>{"[GetFileListOnDirectory] Open dir error..."});
}

}  // namespace
}  // namespace zelkor::tessel
