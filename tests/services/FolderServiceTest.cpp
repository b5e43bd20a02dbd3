// Listing, creating and deleting folders through the file-system service.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "FileServiceFixture.h"
#include "LogCapture.h"

namespace zelkor::tessel::testing {
namespace {

using ::aidl::vendor::zelkor::hardware::tessel::common::FileInfo;

std::vector<std::string> Names(std::vector<FileInfo> files) {
    std::vector<std::string> names;
    for (const FileInfo& f : files) names.push_back(f.name);
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(FileServiceTest, ListingsNameRegularFilesBelowVisibleFolders) {
    Plant("/data/log/a", "aaa");
    Plant("/data/log/sub/b", "bb");
    Plant("/data/log/sub/deeper/c", "c");
    Plant("/data/log/.hidden/h", "h");
    Plant("/data/log/.dotfile", "d");
    ASSERT_EQ(symlink("a", Host("/data/log/link").c_str()), 0);
    ASSERT_EQ(mkfifo(Host("/data/log/fifo").c_str(), 0600), 0);
    struct timespec times[2] = {{1700000000, 0}, {1700000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Host("/data/log/a").c_str(), times, 0), 0);

    std::vector<FileInfo> files;
    ASSERT_EQ(StatusOf(mService->DirListFiles("/data/log", &files)), STATUS_OK);
    EXPECT_EQ(Names(files), (std::vector<std::string>{".dotfile", "a", "b", "c"}));
    auto a = std::find_if(files.begin(), files.end(), [](auto& f) { return f.name == "a"; });
    ASSERT_NE(a, files.end());
    EXPECT_EQ(a->size, 3);
    EXPECT_EQ(a->mtime, 1700000000);

    ASSERT_EQ(StatusOf(mService->DirIntgrFiles("/data/log/", &files)), STATUS_OK);
    EXPECT_EQ(Names(files),
              (std::vector<std::string>{"/data/log/.dotfile", "/data/log/a", "/data/log/sub/b",
                                        "/data/log/sub/deeper/c"}));

    // A path naming a file lists that file.
    ASSERT_EQ(StatusOf(mService->DirListFiles("/data/log/sub/b", &files)), STATUS_OK);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].name, "b");
    EXPECT_EQ(files[0].size, 2);
    ASSERT_EQ(StatusOf(mService->DirIntgrFiles("/data/log/sub/b", &files)), STATUS_OK);
    EXPECT_EQ(files[0].name, "/data/log/sub/b");

    EXPECT_EQ(StatusOf(mService->DirListFiles("/data/missing", &files)), kNoent);
    EXPECT_EQ(StatusOf(mService->DirListFiles("", &files)), kInval);
    EXPECT_TRUE(files.empty());
}

// Files spread over a folder and a sub-folder: the limit counts them all.
void PlantFiles(const std::string& folder, int count) {
    std::filesystem::create_directories(folder + "/sub");
    for (int i = 0; i < count; ++i) {
        std::ofstream(folder + (i % 3 == 0 ? "/sub/f" : "/f") + std::to_string(i)) << i;
    }
}

TEST_F(FileServiceTest, ListingsStopAtTheThousandTwentyFourthFile) {
    LogCapture log;
    std::vector<FileInfo> files;
    for (int count : {511, 512, 513, 1023}) {
        const std::string folder = "/data/n" + std::to_string(count);
        PlantFiles(Host(folder), count);
        ASSERT_EQ(StatusOf(mService->DirListFiles(folder, &files)), STATUS_OK) << count;
        ASSERT_EQ(files.size(), static_cast<size_t>(count));
        std::vector<std::string> names = Names(files);
        EXPECT_EQ(std::unique(names.begin(), names.end()), names.end()) << "every file once";
        EXPECT_TRUE(
                std::none_of(files.begin(), files.end(), [](auto& f) { return f.name.empty(); }));
    }
    PlantFiles(Host("/data/n1024"), 1024);
    EXPECT_EQ(StatusOf(mService->DirIntgrFiles("/data/n1024", &files)), kInvalidOp);
    EXPECT_TRUE(files.empty());
    EXPECT_TRUE(
            log.contains("tessel.impl", "Folder includes more than 1024 files, return FAILED\n"));
}

TEST_F(FileServiceTest, FoldersAreMadeAtEveryMissingLevelWithTheMode) {
    const mode_t old = umask(077);
    EXPECT_EQ(StatusOf(mService->TesselCreateFolderMode("/data", "a/b/c", 0750)), STATUS_OK);
    for (const char* level : {"/data/a", "/data/a/b", "/data/a/b/c"}) {
        EXPECT_EQ(ModeOf(Host(level)), 0750u) << level;
    }
    EXPECT_EQ(StatusOf(mService->TesselCreateFolder("/data/new", "x")), STATUS_OK);
    EXPECT_EQ(ModeOf(Host("/data/new")), 0755u);
    EXPECT_EQ(ModeOf(Host("/data/new/x")), 0755u);
    umask(old);
    // An existing folder keeps its mode; a file in the way fails.
    EXPECT_EQ(StatusOf(mService->TesselCreateFolderMode("/data", "a", 0700)), STATUS_OK);
    EXPECT_EQ(ModeOf(Host("/data/a")), 0750u);
    Plant("/data/file", "f");
    EXPECT_EQ(StatusOf(mService->TesselCreateFolder("/data", "file/x")), kInval);
    EXPECT_EQ(StatusOf(mService->TesselCreateFolder("/data", "")), kInval);
    EXPECT_EQ(StatusOf(mService->TesselCreateFolder("", "x")), kInval);
    EXPECT_EQ(StatusOf(mService->TesselCreateFolder("/data", "/x")), kInval);
}

TEST_F(FileServiceTest, EraseRemovesFilesAndWholeTreesButNotTheRoot) {
    Plant("/data/one", "1");
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data", "one")), STATUS_OK);
    EXPECT_FALSE(std::filesystem::exists(Host("/data/one")));
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data", "one")), kNoent);

    Plant("/data/tree/a/b/c/file", "x");
    Plant("/data/tree/.hidden/file", "x");
    Plant("/data/keep/file", "kept");
    // Links inside are removed themselves, never followed.
    ASSERT_EQ(symlink(Host("/data/keep").c_str(), Host("/data/tree/abs").c_str()), 0);
    ASSERT_EQ(symlink("../../keep", Host("/data/tree/a/rel").c_str()), 0);
    ASSERT_EQ(symlink(mOutside.path().c_str(), Host("/data/tree/out").c_str()), 0);
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data/", "tree")), STATUS_OK);
    EXPECT_FALSE(std::filesystem::exists(Host("/data/tree")));
    EXPECT_EQ(Slurp(Host("/data/keep/file")), "kept");
    ExpectOutsideUntouched();

    // A link named directly is removed, its folder kept.
    ASSERT_EQ(symlink("keep", Host("/data/tokeep").c_str()), 0);
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data", "tokeep")), STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/keep/file")), "kept");

    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/", ".")), kInval);
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data", "..")), kInval);
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data", "/keep")), kInval);
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data", "")), kInval);
    EXPECT_TRUE(std::filesystem::exists(Host("/data/keep/file")));
    // "x/.." names the folder x sits in.
    Plant("/data/gone/x/f", "f");
    EXPECT_EQ(StatusOf(mService->EraseFileOrDirectory("/data/gone", "x/..")), STATUS_OK);
    EXPECT_FALSE(std::filesystem::exists(Host("/data/gone")));
}

}  // namespace
}  // namespace zelkor::tessel::testing
