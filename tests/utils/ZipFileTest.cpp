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

struct Entry {
    std::string name;
    std::string utf8, method, date, size, same;
};

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
    // The archive at `devicePath` as Python reads it; entry contents compared
    // with the files under `base` (a device folder).
    std::vector<Entry> Read(const std::string& devicePath, const std::string& base = "/") {
        std::ofstream(mRoot.path() + "/reader.py") << kReader;
        std::istringstream out(Output("python3 " + mRoot.path() + "/reader.py " + mRoot.path() +
                                      devicePath + " " + mRoot.path() + base + " 2>&1"));
        std::string line;
        std::getline(out, line);
        EXPECT_EQ(line, "ok") << "Python's zipfile rejects the archive";
        std::vector<Entry> entries;
        while (std::getline(out, line)) {
            Entry e;
            std::istringstream fields(line);
            std::getline(fields, e.name, '|');
            std::getline(fields, e.utf8, '|');
            std::getline(fields, e.method, '|');
            std::getline(fields, e.date, '|');
            std::getline(fields, e.size, '|');
            std::getline(fields, e.same, '|');
            entries.push_back(e);
        }
        return entries;
    }
    static std::vector<std::string> Names(const std::vector<Entry>& entries) {
        std::vector<std::string> names;
        for (const auto& e : entries) names.push_back(e.name);
        return names;
    }

    testing::TempRoot mRoot;
    LogCapture mLog{ANDROID_LOG_VERBOSE};
};

TEST_F(ZipFileTest, FolderGivesItsEntryThenEveryFileWithTheEntryFormat) {
    {
        ZipFile zip({"/data/log/entry"}, 0);
        ASSERT_TRUE(zip.create("/data/out/entry.zip"));
        EXPECT_TRUE(zip.close());
    }
    auto entries = Read("/data/out/entry.zip");
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(entries[0].name, "/data/log/entry/");
    const auto names = Names(entries);
    const std::set<std::string> files(names.begin() + 1, names.end());
    EXPECT_EQ(files,
              (std::set<std::string>{"/data/log/entry/a.txt", "/data/log/entry/sub/b.bin",
                                     "/data/log/entry/sub/deeper/c.log", "/data/log/entry/empty"}));
    char today[16];
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    strftime(today, sizeof(today), "%Y-%m-%d", &local);
    for (const auto& e : entries) {
        EXPECT_EQ(e.utf8, "1") << e.name;
        EXPECT_EQ(e.method, "8") << e.name;
        EXPECT_EQ(e.date, today) << e.name << ": the local date the entry was written";
        if (e.name.back() != '/') {
            EXPECT_EQ(e.same, "same") << e.name;
        }
    }
    if (system("command -v unzip >/dev/null 2>&1") == 0) {
        const std::string out = Output("unzip -t " + mRoot.path() + "/data/out/entry.zip 2>&1");
        EXPECT_NE(out.find("No errors detected"), std::string::npos) << out;
    }
}

TEST_F(ZipFileTest, TailDepthNamesEntriesByTheirLastComponents) {
    const struct {
        int depth;
        std::vector<std::string> names;
        std::string base;  // where the named files lie
    } cases[] = {
            {-1, {"/data/log/single.txt", "/data/log/entry/"}, "/"},
            {1, {"single.txt", "entry/", "entry/a.txt", "entry/sub/b.bin"}, "/data/log"},
            {2, {"log/single.txt", "log/entry/", "log/entry/sub/deeper/c.log"}, "/data"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.depth);
        {
            ZipFile zip({"/data/log/single.txt", "/data/log/entry"}, c.depth);
            ASSERT_TRUE(zip.create("/data/out/tail.zip"));
            ASSERT_TRUE(zip.close());
        }
        auto entries = Read("/data/out/tail.zip", c.base);
        ASSERT_EQ(entries.size(), 6u);
        const auto names = Names(entries);
        EXPECT_EQ(names[0], c.names[0]) << "inputs in the order given";
        EXPECT_EQ(names[1], c.names[1]);
        for (const auto& name : c.names) {
            EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
        }
        for (const auto& e : entries) {
            if (e.name.back() != '/') {
                EXPECT_EQ(e.same, "same") << e.name;
            }
        }
    }
    // A folder named with a trailing slash has no last component of its own:
    // no folder entry, its files still named from the folder down.
    {
        ZipFile zip({"/data/log/entry/"}, 1);
        ASSERT_TRUE(zip.create("/data/out/slash.zip"));
        ASSERT_TRUE(zip.close());
    }
    const auto names = Names(Read("/data/out/slash.zip", "/data/log"));
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
              (std::set<std::string>{"entry/a.txt", "entry/sub/b.bin", "entry/sub/deeper/c.log",
                                     "entry/empty"}));
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
    EXPECT_TRUE(zip.FlushFilesIfNeeded(false));
    EXPECT_EQ(written(), 50);
    EXPECT_TRUE(zip.FlushFilesIfNeeded(false));
    EXPECT_EQ(written(), 100);
    EXPECT_TRUE(zip.FlushFilesIfNeeded(false)) << "21 pending wait for more";
    EXPECT_EQ(written(), 100);
    EXPECT_TRUE(zip.close());
    EXPECT_EQ(written(), 121);
    EXPECT_TRUE(mLog.contains(kTag,
                              "[AddFileContentToZip] Adding File To Zip, file path: "
                              "/data/many/f0"));
    auto names = Names(Read("/data/out/many.zip"));
    ASSERT_EQ(names.size(), 121u);
    for (int i = 0; i < 120; ++i) EXPECT_EQ(names[i], inputs[i]);
    EXPECT_EQ(names[120], "/data/log/журнал.log") << "UTF-8 names read back as written";
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
    for (const auto& e : entries) {
        if (e.name == "/data/log/vanished.txt" || e.name == "/data/log/fifo" ||
            e.name == "/data/log/entry/dangling") {
            EXPECT_EQ(e.size, "0") << e.name;
        } else if (e.name.back() != '/') {
            EXPECT_EQ(e.same, "same") << e.name;
        }
    }

    // Closing again is a no-op; a folder that is not there cannot hold an archive.
    EXPECT_TRUE(zip.close());
    EXPECT_TRUE(mLog.contains(kTag, "[close] zipfile already closed!"));
    EXPECT_FALSE(zip.create("/missing/x.zip"));
    EXPECT_TRUE(mLog.contains(kTag, "[create] Couldn't create ZIP file at path /missing/x.zip"));
    EXPECT_TRUE(zip.close());
}

}  // namespace
}  // namespace zelkor::tessel
