#include "utils/ZipFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "LogCapture.h"
#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

using testing::LogCapture;

constexpr char kTag[] = "Halvex-ZipFile";

// Python's zipfile reads the archive back: "ok" when testzip finds nothing,
// then one line per entry: name, UTF-8 flag, method, date, size, and whether
// the bytes equal those of the file the entry names under BASE.
constexpr char kReader[] = R"PY(
import os, sys, zipfile
path, base = sys.argv[1], sys.argv[2]
with zipfile.ZipFile(path) as z:
    print("ok" if z.testzip() is None else "corrupt")
    for i in z.infolist():
        same = "-"
        source = base + "/" + i.filename.lstrip("/")
        if i.filename.endswith("/"):
            pass
        elif not os.path.isfile(source):
            same = "nofile"
        else:
            with open(source, "rb") as f:
                same = "same" if f.read() == z.read(i) else "differs"
        d = i.date_time
        print("%s|%d|%d|%04d-%02d-%02d|%d|%s" % (i.filename, (i.flag_bits >> 11) & 1,
              i.compress_type, d[0], d[1], d[2], i.file_size, same))
)PY";

std::string Output(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) out.append(buf, n);
    pclose(pipe);
    return out;
}

std::string Today() {
    char today[16];
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    strftime(today, sizeof(today), "%Y-%m-%d", &local);
    return today;
}

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
        std::filesystem::create_directories(mRoot.path() + "/data/out");
        Write("/data/log/журнал.log", "utf-8\n");
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
        std::ofstream(mRoot.path() + "/reader.py") << kReader;
        std::istringstream out(Output("python3 " + mRoot.path() + "/reader.py " + mRoot.path() +
                                      devicePath + " " + mRoot.path() + base + " 2>&1"));
        std::string line;
        std::getline(out, line);
        EXPECT_EQ(line, "ok") << "Python's zipfile rejects the archive";
        std::vector<std::string> entries;
        while (std::getline(out, line)) entries.push_back(line);
        return entries;
    }
    // Every file entry holds the bytes of the file it names.
    static void ExpectWhole(const std::vector<std::string>& entries) {
        for (const auto& e : entries) {
            if (NameOf(e).back() != '/') {
                EXPECT_EQ(e.substr(e.rfind('|')), "|same") << e;
            }
        }
    }

    testing::TempRoot mRoot;
    LogCapture mLog{ANDROID_LOG_VERBOSE};
};

TEST_F(ZipFileTest, FolderGivesItsEntryThenEveryFileWithTheEntryFormat) {
    // UTF-8 flag, deflate, the local date the entry was written, size.
    const std::string format = "|1|8|" + Today() + "|";
    auto entries = Zip({"/data/log/entry"}, 0);
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(entries[0], "/data/log/entry/" + format + "0|-");
    EXPECT_EQ(std::set<std::string>(entries.begin() + 1, entries.end()),
              (std::set<std::string>{"/data/log/entry/a.txt" + format + "14|same",
                                     "/data/log/entry/sub/b.bin" + format + "1048576|same",
                                     "/data/log/entry/sub/deeper/c.log" + format + "300000|same",
                                     "/data/log/entry/empty" + format + "0|same"}));
}

TEST_F(ZipFileTest, TailDepthNamesEntriesByTheirLastComponents) {
    const std::vector<std::string> both = {"/data/log/single.txt", "/data/log/entry"};
    const struct {
        std::vector<std::string> inputs;
        int depth;
        std::string base;                // where the named files lie
        std::vector<std::string> names;  // among them, the first two in input order
    } cases[] = {
            {both, -1, "/", {"/data/log/single.txt", "/data/log/entry/"}},
            {both, 1, "/data/log", {"single.txt", "entry/", "entry/a.txt", "entry/sub/b.bin"}},
            {both, 2, "/data", {"log/single.txt", "log/entry/", "log/entry/sub/deeper/c.log"}},
            // A folder named with a trailing slash has no last component of
            // its own: no folder entry, its files still named from the folder.
            {{"/data/log/entry/"}, 1, "/data/log", {"entry/a.txt", "entry/empty"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.names[0]);
        auto entries = Zip(c.inputs, c.depth, c.base);
        std::vector<std::string> names;
        for (const auto& e : entries) names.push_back(NameOf(e));
        ASSERT_EQ(names.size(), c.inputs.size() == 2 ? 6u : 4u);
        if (c.inputs.size() == 2) {
            EXPECT_EQ(names[0], c.names[0]);
            EXPECT_EQ(names[1], c.names[1]);
        }
        for (const auto& name : c.names) {
            EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
        }
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
    auto written = [&] { return mLog.count(kTag, "Adding File To Zip, file path: "); };
    // The third flush leaves 21 pending to wait for more.
    for (int expected : {50, 100, 100}) {
        EXPECT_TRUE(zip.FlushFilesIfNeeded(false));
        EXPECT_EQ(written(), expected);
    }
    EXPECT_TRUE(zip.close());
    EXPECT_EQ(written(), 121);
    EXPECT_TRUE(mLog.contains(kTag,
                              "[AddFileContentToZip] Adding File To Zip, file path: "
                              "/data/many/f0"));
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
    for (const char* line : {
                 "[AddFileContentToZip] file not exist /data/log/vanished.txt",
                 "[FlushFilesIfNeeded] Failed to write file /data/log/vanished.txt",
                 "[AddFileContentToZip] open file /data/log/fifo failed",
                 "[FlushFilesIfNeeded] Failed to write file /data/log/fifo",
                 "[AddFileContentToZip] file not exist /data/log/entry/dangling",
                 "[close] force flush files failed",
         }) {
        EXPECT_TRUE(mLog.contains(kTag, line)) << line;
    }
    // Every other input is there and whole; the failed ones are empty entries.
    auto entries = Read("/data/out/partial.zip");
    EXPECT_EQ(entries.size(), 9u);
    std::vector<std::string> whole;
    for (const auto& e : entries) {
        const std::string name = NameOf(e);
        if (name == "/data/log/vanished.txt" || name == "/data/log/fifo" ||
            name == "/data/log/entry/dangling") {
            EXPECT_EQ(e.substr(e.rfind("|", e.rfind('|') - 1)), "|0|nofile") << e;
        } else {
            whole.push_back(e);
        }
    }
    ExpectWhole(whole);

    // Closing again is a no-op; a folder that is not there cannot hold an archive.
    EXPECT_TRUE(zip.close());
    EXPECT_TRUE(mLog.contains(kTag, "[close] zipfile already closed!"));
    EXPECT_FALSE(zip.create("/missing/x.zip"));
    EXPECT_TRUE(mLog.contains(kTag, "[create] Couldn't create ZIP file at path /missing/x.zip"));
    EXPECT_TRUE(zip.close());
}

}  // namespace
}  // namespace zelkor::tessel
