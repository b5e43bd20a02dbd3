// Drives the real tessel-image binary.
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>

#include <fstream>

#include "TempRoot.h"
#include "TestImage.h"
#include "e2e/Subprocess.h"

namespace zelkor::tessel::testing {
namespace {

class TesselImageE2ETest : public ::testing::Test {
  protected:
    int Run(std::vector<std::string> args, std::string* out = nullptr, std::string* err = nullptr) {
        args.insert(args.begin(), "tessel-image");
        Subprocess tool(std::move(args), mRoot.path() + "/tool");
        const int status = tool.wait();
        if (out != nullptr) *out = tool.out();
        if (err != nullptr) *err = tool.err();
        return status;
    }
    std::string File(const std::string& name) const { return mRoot.path() + "/" + name; }

    TempRoot mRoot;
};

// A created image holds the default headers, a --zeroed one none; inspect
// tells them apart by its exit status.
TEST_F(TesselImageE2ETest, CreatedImagesAndTheirInspection) {
    const std::string file = File("blackbox.img");
    const std::string zero = File("zero.img");
    ASSERT_EQ(Run({"blackbox", "create", file}), 0);
    ASSERT_EQ(Run({"blackbox", "create", "--zeroed", zero}), 0);

    TestImage created(file);
    TestImage zeroed(zero);
    TestImage expected(File("expected.img"), kImageSize);
    expected.PutDefaultHeaders();
    ASSERT_TRUE(created.ok() && zeroed.ok() && expected.ok());
    EXPECT_EQ(created.size(), kImageSize);
    EXPECT_EQ(zeroed.size(), kImageSize);
    struct stat st {};
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_LT(static_cast<uint64_t>(st.st_blocks) * 512, kImageSize / 16) << "sparse";
    for (uint64_t offset : {uint64_t(0), uint64_t(0x400), kSlot1, kControl}) {
        EXPECT_TRUE(created.Bytes(offset, 140) == expected.Bytes(offset, 140))
                << std::hex << offset;
        EXPECT_TRUE(zeroed.Bytes(offset, 140) == std::string(140, '\0')) << std::hex << offset;
    }

    std::string out;
    ASSERT_EQ(Run({"inspect", file, "--json"}, &out), 0);
    Json::Value tree;
    ASSERT_TRUE(Json::Reader().parse(out, tree)) << out;
    EXPECT_EQ(tree["size"].asUInt64(), kImageSize);
    EXPECT_TRUE(tree["blackbox"]["valid"].asBool());
    EXPECT_EQ(tree["blackbox"]["black_box_log_header"]["cur_name"].asString(), "dotting");
    ASSERT_EQ(Run({"inspect", file}, &out), 0);
    EXPECT_NE(out.find("\n    prev_name: uefi_log\n"), std::string::npos) << out;

    EXPECT_EQ(Run({"inspect", zero}, &out), 1);
    EXPECT_NE(out.find("log_table_header: bad magic 0x0"), std::string::npos) << out;
    EXPECT_NE(out.find("\n  valid: false\n"), std::string::npos);
}

// A bad argument exits with status 2 and one usage line; a refusal with status
// 1, naming the file and why. Nothing but a regular file or a block device is
// an image: a FIFO never holds a command up.
TEST_F(TesselImageE2ETest, RefusalsNameTheFileAndBadArgumentsTheUsage) {
    const std::string fifo = File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string dir = File("dir");
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
    const std::string empty = File("empty.img");
    const std::string random = File("random.img");
    {
        std::ofstream(empty, std::ios::binary);
        std::ofstream out(random, std::ios::binary);
        for (int i = 0; i < 4096; ++i) out.put(static_cast<char>(i * 131 + 17));
    }
    const std::string notImage = ": not a regular file or block device";
    const std::string notFile = ": is a folder, not a file";
    const auto add = [](const std::string& file, const char* slot, const std::string& kmsg) {
        const std::string section = "md_kmsg=" + kmsg;
        return std::vector<std::string>{"dump", "add", file, "--slot", slot, "--section", section};
    };
    const std::string image = File("x.img");
    const std::string missing = File("missing.img");
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    } cases[] = {
            {{}, 2, "usage: tessel-image COMMAND"},
            {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
            {{"inspect"}, 2, "usage: tessel-image inspect FILE [--json]"},
            {{"blackbox", "create", "a", "b"}, 2, ""},
            {{"--help"}, 0, ""},
            {{"inspect", missing}, 1, missing + ": No such file or directory"},
            {{"blackbox", "create", File("no/such/dir.img")}, 1, ""},
            {{"inspect", fifo}, 1, fifo + notImage},
            {{"inspect", dir}, 1, dir + notFile},
            {{"inspect", "/dev/null"}, 1, "/dev/null" + notImage},
            {{"inspect", "--minidump-partition", empty}, 1, ""},
            {{"inspect", "--minidump-partition", random}, 1, ""},
            {{"inspect", "--minidump-partition", dir}, 1, "is a folder"},
            {{"blackbox", "create", fifo}, 1, fifo + notImage},
            {add(fifo, "0", random), 1, fifo + notImage},
            {add(image, "0", dir), 1, dir + notFile},
            {add(image, "-1", random), 2, "--slot -1: must not be negative; --slot must be 0 .. 9"},
            {add(image, "10", random), 2, "--slot 10: --slot must be 0 .. 9"},
    };
    for (const Case& c : cases) {
        std::string command;
        for (const std::string& arg : c.args) command += arg + " ";
        SCOPED_TRACE(command);
        std::string err;
        EXPECT_EQ(Run(c.args, nullptr, &err), c.status);
        EXPECT_NE(err.find(c.message), std::string::npos) << err;
        const size_t usage = err.find("usage:");
        EXPECT_EQ(usage == std::string::npos
                          ? 0
                          : 1 + (err.find("usage:", usage + 1) != std::string::npos),
                  c.status == 2 ? 1 : 0)
                << err;
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
