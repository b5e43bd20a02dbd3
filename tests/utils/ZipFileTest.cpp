#include "utils/ZipFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include "LogCapture.h"
#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

using testing::LogCapture;

constexpr char kTag[] = "Halvex-ZipFile";

// Python's zipfile reads the archive back: "ok" when testzip finds nothing,
// then one line per entry: name, UTF-8 flag, method, whether it is dated
// today, and its bytes: "-" for an empty folder entry, "same" as those of the
// file it names under BASE, "lost" empty with no such file there.
constexpr char kReader[] = R"PY(
import os, sys, time, zipfile
path, base = sys.argv[1], sys.argv[2]
with zipfile.ZipFile(path) as z:
    print("ok" if z.testzip() is None else "corrupt")
    for i in z.infolist():
        source, data = base + "/" + i.filename.lstrip("/"), z.read(i)
        same = ("-" if i.filename.endswith("/") and not data
                else "lost" if not os.path.isfile(source) and not data
                else "same" if open(source, "rb").read() == data else "differs")
        print("%s|%d|%d|%d|%s" % (i.filename, (i.flag_bits >> 11) & 1, i.compress_type,
              i.date_time[:3] == time.localtime()[:3], same))
)PY";

// The name of an entry line.
std::string NameOf(const std::string& line) {
    return line.substr(0, line.find('|'));
}

class ZipFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        std::mt19937 rng(7);
        std::string binary(1 << 20, '\0');
        for (auto& c : binary) c = static_cast<char>(rng());
        Write("/data/log/entry/a.txt", "kernel: hello\n");
        Write("/data/log/entry/sub/b.bin", binary);
        Write("/data/log/entry/sub/deeper/c.log", std::string(300000, 'c'));
        Write("/data/log/entry/empty", "");
        Write("/data/log/single.txt", "one file\n");
        Write("/data/log/журнал.log", "utf-8\n");
        Write("/reader.py", kReader);
        std::filesystem::create_directories(mRoot.path() + "/data/out");
    }
    void Write(const std::string& devicePath, const std::string& data) {
        const std::string path = mRoot.path() + devicePath;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << data;
    }
    // Writes an archive of `inputs` and reads it back with Python, one line
    // per entry; entry contents compared with the files under `base`.
    std::vector<std::string> Zip(const std::vector<std::string>& inputs, int depth,
                                 const std::string& base = "/") {
        {
            ZipFile zip(inputs, depth);
            EXPECT_TRUE(zip.create("/data/out/test.zip"));
            EXPECT_TRUE(zip.close());
        }
        return Read("/data/out/test.zip", base);
    }
    std::vector<std::string> Read(const std::string& devicePath, const std::string& base = "/") {
        const std::string& root = mRoot.path();
        const int rc = std::system(("python3 " + root + "/reader.py " + root + devicePath + " " +
                                    root + base + " >" + root + "/read.txt 2>&1")
                                           .c_str());
        std::ifstream lines(root + "/read.txt");
        std::string line;
        std::getline(lines, line);
        EXPECT_EQ(line, "ok") << "Python's zipfile rejects the archive, exit " << rc;
        std::vector<std::string> entries;
        while (std::getline(lines, line)) entries.push_back(line);
        return entries;
    }
    // Every entry is flagged UTF-8, deflated (8) and dated today; a folder's
    // is empty, a file's holds the bytes of the file it names, but those of
    // `failed`, which are empty.
    static void ExpectWhole(const std::vector<std::string>& entries,
                            const std::set<std::string>& failed = {}) {
        for (const auto& e : entries) {
            const std::string name = NameOf(e);
            EXPECT_EQ(e, name + "|1|8|1|" +
                                 (name.back() == '/'       ? "-"
                                  : failed.count(name) > 0 ? "lost"
                                                           : "same"));
        }
    }

    testing::TempRoot mRoot;
    LogCapture mLog{ANDROID_LOG_VERBOSE};
};

TEST_F(ZipFileTest, FolderGivesItsEntryThenItsFilesNamedByTheTailDepth) {
    const std::vector<std::string> both = {"/data/log/single.txt", "/data/log/entry"};
    const struct {
        std::vector<std::string> inputs;
        int depth;
        std::string base;    // where the named files lie
        std::string prefix;  // of every name
    } cases[] = {
            {{"/data/log/entry"}, 0, "/", "/data/log/"},
            {both, -1, "/", "/data/log/"},
            {both, 1, "/data/log", ""},
            {both, 2, "/data", "log/"},
            // A folder named with a trailing slash has no last component of
            // its own: no folder entry, its files still named from the folder.
            {{"/data/log/entry/"}, 1, "/data/log", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.prefix + " " + std::to_string(c.depth));
        // The inputs' own entries come first, in input order.
        std::vector<std::string> expected;
        if (c.inputs.size() == 2) expected = {c.prefix + "single.txt"};
        if (c.inputs.back().back() != '/') expected.push_back(c.prefix + "entry/");
        for (const char* file : {"a.txt", "sub/b.bin", "sub/deeper/c.log", "empty"}) {
            expected.push_back(c.prefix + "entry/" + file);
        }
        auto entries = Zip(c.inputs, c.depth, c.base);
        std::vector<std::string> names;
        for (const auto& e : entries) names.push_back(NameOf(e));
        ASSERT_EQ(names.size(), expected.size());
        EXPECT_EQ(std::vector(names.begin(), names.end() - 4),
                  std::vector(expected.begin(), expected.end() - 4));
        EXPECT_EQ(std::set(names.begin(), names.end()), std::set(expected.begin(), expected.end()));
        ExpectWhole(entries);
    }
}

TEST_F(ZipFileTest, InputsGoInBatchesOfFifty) {
    std::vector<std::string> inputs;
    for (int i = 0; i < 120; ++i) {
        inputs.push_back("/data/many/f" + std::to_string(i));
        Write(inputs.back(), std::to_string(i));
    }
    inputs.push_back("/data/log/журнал.log");
    ZipFile zip(inputs, 0);
    ASSERT_TRUE(zip.create("/data/out/many.zip"));
    auto written = [&] { return mLog.count(kTag, "Adding File To Zip, file path: /data/"); };
    // The third flush leaves 21 pending to wait for more.
    for (int expected : {50, 100, 100}) {
        EXPECT_TRUE(zip.FlushFilesIfNeeded(false));
        EXPECT_EQ(written(), expected);
    }
    EXPECT_TRUE(zip.close());
    EXPECT_EQ(written(), 121);
    auto entries = Read("/data/out/many.zip");
    ASSERT_EQ(entries.size(), 121u);
    // UTF-8 names read back as written.
    for (size_t i = 0; i < inputs.size(); ++i) EXPECT_EQ(NameOf(entries[i]), inputs[i]);
    ExpectWhole(entries);
}

TEST_F(ZipFileTest, FailingInputsFailTheFlushWhileTheArchiveStillCloses) {
    ASSERT_EQ(mkfifo((mRoot.path() + "/data/log/fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink("/nowhere", mRoot.path() + "/data/log/entry/dangling");
    ZipFile zip(
            {"/data/log/single.txt", "/data/log/vanished.txt", "/data/log/fifo", "/data/log/entry"},
            0);
    ASSERT_TRUE(zip.create("/data/out/partial.zip"));
    EXPECT_FALSE(zip.close());
    // Closing again is a no-op; a folder that is not there cannot hold an archive.
    EXPECT_TRUE(zip.close());
    EXPECT_FALSE(zip.create("/missing/x.zip"));
    EXPECT_TRUE(zip.close());
    for (const char* line : {
                 "[AddFileContentToZip] file not exist /data/log/vanished.txt",
                 "[FlushFilesIfNeeded] Failed to write file /data/log/vanished.txt",
                 "[AddFileContentToZip] open file /data/log/fifo failed",
                 "[FlushFilesIfNeeded] Failed to write file /data/log/fifo",
                 "[AddFileContentToZip] file not exist /data/log/entry/dangling",
                 "[close] force flush files failed",
                 "[close] zipfile already closed!",
                 "[create] Couldn't create ZIP file at path /missing/x.zip",
         }) {
        EXPECT_TRUE(mLog.contains(kTag, line)) << line;
    }
    // Every other input is there and whole; the failed ones are empty entries.
    auto entries = Read("/data/out/partial.zip");
    EXPECT_EQ(entries.size(), 9u);
    ExpectWhole(entries, {"/data/log/vanished.txt", "/data/log/fifo", "/data/log/entry/dangling"});
    // One failing input alone, loose or in a folder, fails the close too.
    for (const char* input : {"/data/log/vanished.txt", "/data/log/entry"}) {
        ZipFile alone({input}, 0);
        ASSERT_TRUE(alone.create("/data/out/alone.zip"));
        EXPECT_FALSE(alone.close()) << input;
    }
}

}  // namespace
}  // namespace zelkor::tessel
