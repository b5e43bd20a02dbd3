// Drives the real tessel-image binary.
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>

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

TEST_F(TesselImageE2ETest, CreatedImageHasTheDefaultLayout) {
    const std::string file = File("blackbox.img");
    ASSERT_EQ(Run({"blackbox", "create", file}), 0);

    TestImage created(file);
    ASSERT_TRUE(created.ok());
    struct stat st {};
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_EQ(created.size(), kImageSize);
    EXPECT_LT(static_cast<uint64_t>(st.st_blocks) * 512, kImageSize / 16) << "sparse";
    EXPECT_EQ(created.U64(0), 0x56775AF41BCDE0F0u);
    EXPECT_EQ(created.U64(0x400), 0xE99BB480DD25E1F0u);
    EXPECT_EQ(created.U64(kSlot1), 0xB5C4D2A5E936DB79u);
    EXPECT_EQ(created.U64(kSlot1 + 92), 0x7C1C918ADF6BC8CCu);
    EXPECT_EQ(created.U64(kControl), 0x9DBFA34954526BECu);
    EXPECT_EQ(created.Bytes(kSlot1 + 52, 9), std::string("uefi_log\0", 9));

    std::string out;
    ASSERT_EQ(Run({"inspect", file, "--json"}, &out), 0);
    Json::Value tree;
    ASSERT_TRUE(Json::Reader().parse(out, tree)) << out;
    EXPECT_EQ(tree["size"].asUInt64(), kImageSize);
    EXPECT_TRUE(tree["blackbox"]["valid"].asBool());
    EXPECT_EQ(tree["blackbox"]["black_box_log_header"]["cur_name"].asString(), "dotting");

    ASSERT_EQ(Run({"inspect", file}, &out), 0);
    EXPECT_NE(out.find("\n    prev_name: uefi_log\n"), std::string::npos) << out;
}

TEST_F(TesselImageE2ETest, ZeroedImageIsReportedInvalid) {
    const std::string file = File("zero.img");
    ASSERT_EQ(Run({"blackbox", "create", "--zeroed", file}), 0);
    TestImage created(file);
    EXPECT_EQ(created.size(), kImageSize);
    for (uint64_t offset : {uint64_t(0), uint64_t(0x400), kSlot1, kControl}) {
        EXPECT_EQ(created.Bytes(offset, 140), std::string(140, '\0'));
    }

    std::string out;
    EXPECT_EQ(Run({"inspect", file}, &out), 1);
    EXPECT_NE(out.find("log_table_header: bad magic 0x0"), std::string::npos) << out;
    EXPECT_NE(out.find("\n  valid: false\n"), std::string::npos);
}

TEST_F(TesselImageE2ETest, UsageAndFileErrors) {
    std::string err;
    EXPECT_EQ(Run({}, nullptr, &err), 2);
    EXPECT_NE(err.find("usage: tessel-image COMMAND"), std::string::npos);
    EXPECT_EQ(Run({"frobnicate"}, nullptr, &err), 2);
    EXPECT_NE(err.find("unknown command 'frobnicate'"), std::string::npos);
    EXPECT_EQ(Run({"inspect"}, nullptr, &err), 2);
    EXPECT_NE(err.find("usage: tessel-image inspect FILE [--json]"), std::string::npos);
    EXPECT_EQ(Run({"blackbox", "create", "a", "b"}, nullptr, &err), 2);
    EXPECT_EQ(Run({"inspect", File("missing.img")}, nullptr, &err), 1);
    EXPECT_NE(err.find("cannot read"), std::string::npos);
    EXPECT_EQ(Run({"blackbox", "create", File("no/such/dir.img")}), 1);
    EXPECT_EQ(Run({"--help"}), 0);
}

}  // namespace
}  // namespace zelkor::tessel::testing
