#include "utils/FileUtil.h"

#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

    // Builds entries under the root, in order: "dir/" a folder (mode 0755),
    // "link->target" a symbolic link, "file=bytes" or "file:N" a file of N
    // bytes.
    void Make(std::initializer_list<std::string> entries) const {
        for (const std::string& entry : entries) {
            if (entry.back() == '/') {
                ASSERT_EQ(mkdir(Path(entry).c_str(), 0755), 0) << entry;
            } else if (size_t arrow = entry.find("->"); arrow != std::string::npos) {
                ASSERT_EQ(symlink(entry.substr(arrow + 2).c_str(),
                                  Path(entry.substr(0, arrow)).c_str()),
                          0);
            } else if (size_t colon = entry.find(':'); colon != std::string::npos) {
                WriteFile(entry.substr(0, colon),
                          std::string(std::stoul(entry.substr(colon + 1)), 'x'));
            } else {
                WriteFile(entry.substr(0, entry.find('=')), entry.substr(entry.find('=') + 1));
            }
        }
    }

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

    // The mode bits or the size of what is at rel itself.
    mode_t ModeOf(const std::string& rel) const { return Lstat(rel).st_mode & 07777; }
    int64_t SizeOf(const std::string& rel) const { return Lstat(rel).st_size; }
    struct stat Lstat(const std::string& rel) const {
        struct stat st {};
        EXPECT_EQ(lstat(Path(rel).c_str(), &st), 0) << rel;
        return st;
    }

    testing::TempRoot root_;
    testing::LogCapture log_;
    mode_t oldMask_ = 0;
};

TEST_F(FileUtilTest, CreateDirectoryGivesModeOnlyToNewLevels) {
    ASSERT_EQ(mkdir(Path("x").c_str(), 0700), 0);
    // Relative and slash-padded on purpose: the path is always taken from "/".
    EXPECT_TRUE(FileUtil::CreateDirectory(Path("x/y/z/").substr(1), 0750));
    EXPECT_EQ(ModeOf("x"), 0700u);
    EXPECT_EQ(ModeOf("x/y"), 0750u);
    EXPECT_EQ(ModeOf("x/y/z"), 0750u);

    // An existing path is accepted as it is.
    EXPECT_TRUE(FileUtil::CreateDirectory(Path("x"), 0755));
    EXPECT_EQ(ModeOf("x"), 0700u);
    EXPECT_TRUE(Errors().empty());

    Make({"f=x"});
    EXPECT_FALSE(FileUtil::CreateDirectory(Path("f/sub"), 0755));
    EXPECT_EQ(Errors(),
              std::vector<std::string>{"[CreateDirectory] mkdir " + Path("f/sub") + " failed, " +
                                       Path("f/sub") + ", err:Not a directory"});
}

TEST_F(FileUtilTest, SizesOfFilesKeepTheLow32BitsAndOfTreesCountLinksAsThemselves) {
    int fd = open(Path("big").c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 5LL << 30), 0);  // sparse: no real 5 GiB written
    close(fd);
    EXPECT_EQ(FileUtil::GetFileSize(Path("big")), 1u << 30);
    EXPECT_EQ(FileUtil::GetFileSize(Path("missing")), 0u);

    EXPECT_EQ(FileUtil::GetDirectorySize(Path("missing")), -1);
    EXPECT_EQ(Errors().size(), 1u);
    Make({"d/"});
    EXPECT_EQ(FileUtil::GetDirectorySize(Path("d")), SizeOf("d"));
    Make({"d/sub/", "d/a:100", "d/sub/b:10", "outside:5000", "d/link->" + Path("outside")});
    EXPECT_EQ(FileUtil::GetDirectorySize(Path("d")),
              SizeOf("d") + SizeOf("d/sub") + 100 + 10 + SizeOf("d/link"));
}

TEST_F(FileUtilTest, DeleteSetsTheCounterForAFileAndAddsToItForATree) {
    Make({"f:123", "empty/", "d/", "d/sub/", "d/a:100", "d/sub/b:10"});
    const uint64_t emptyDirSize = SizeOf("empty");
    uint64_t freed = 999;
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("f"), &freed), 0);
    EXPECT_EQ(freed, 123u);
    EXPECT_FALSE(FileUtil::FileExist(Path("f")));
    freed = 7;
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("f"), &freed), -1);
    EXPECT_EQ(freed, 7u);

    freed = 5;
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("d"), &freed), 0);
    // Each directory is measured once emptied.
    EXPECT_EQ(freed, 5 + 100 + 10 + 2 * emptyDirSize);
    EXPECT_FALSE(FileUtil::FileExist(Path("d")));
    EXPECT_EQ(FileUtil::DeleteDirectoryOrFile(Path("empty"), nullptr), 0);

    // A link to a folder is walked into: its target is emptied, the delete stops.
    Make({"target/", "target/t=t", "d/", "d/link->" + Path("target")});
    EXPECT_NE(FileUtil::DeleteDirectoryOrFile(Path("d"), nullptr), 0);
    EXPECT_FALSE(FileUtil::FileExist(Path("target/t")));
    EXPECT_TRUE(FileUtil::IsDirectory(Path("target")));
    EXPECT_TRUE(FileUtil::FileExist(Path("d/link")));
}

TEST_F(FileUtilTest, CopiesTreesWholeButNeverOntoAFolderFromNothingOrOntoAFullDevice) {
    // Not a multiple of the copy chunk, so the short last read is exercised.
    std::string big(10000, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7);
    Make({"src/", "src/sub/", "src/empty=", "small=abc"});
    WriteFile("src/sub/big", big);
    EXPECT_TRUE(FileUtil::CopyFileOrDirectory(Path("src"), Path("dst")));
    EXPECT_TRUE(ReadFile(Path("dst/sub/big")) == big) << "the copy differs";
    EXPECT_EQ(SizeOf("dst/empty"), 0);
    // A file onto a longer one replaces it entirely.
    EXPECT_TRUE(FileUtil::CopyFileOrDirectory(Path("small"), Path("dst/sub/big")));
    EXPECT_EQ(ReadFile(Path("dst/sub/big")), "abc");
    EXPECT_TRUE(Errors().empty());

    EXPECT_FALSE(FileUtil::CopyFileOrDirectory(Path("src"), Path("dst")));
    EXPECT_FALSE(FileUtil::CopyFileOrDirectory(Path("missing"), Path("out")));
    EXPECT_FALSE(FileUtil::FileExist(Path("out")));
    // /dev/full accepts the open and fails every write with ENOSPC.
    EXPECT_FALSE(FileUtil::CopyFileOrDirectory(Path("src/sub/big"), "/dev/full"));
    EXPECT_EQ(Errors(),
              (std::vector<std::string>{
                      "[CopyFileOrDirectory] Error creating directory: " + Path("dst"),
                      "[CopyFileOrDirectory] Error checking path: No such file or "
                      "directory",
                      "[CopyFileOrDirectory] Error writing destination file: /dev/full"}));
}

TEST_F(FileUtilTest, GetFileListOnDirectoryListsFilesAndLinksOfWholeTree) {
    Make({"d/", "d/sub/", "d/sub/emptydir/", "d/f=f", "d/sub/g=g", "d/link->nowhere"});
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
