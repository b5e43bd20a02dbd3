// The file-system service of the real daemon, driven as a user drives it:
// tesselctl fs, and a binder client for the byte calls the tool never makes.
#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "DaemonTest.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {
namespace {

namespace fs = std::filesystem;
using ::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl;

class FsE2ETest : public DaemonTest {
  protected:
    void SetUp() override {
        fs::create_directories(Host("/data/vendor"));
        std::ofstream(mOutside.path() + "/secret") << "outside";
        mDaemon = StartDaemon();
    }
    // tesselctl fs ARGS, standard input from `input` when given.
    ToolRun Fs(std::vector<std::string> args, const std::string& input = "") {
        args.insert(args.begin(), "fs");
        return Ctl(std::move(args), input);
    }

    TempRoot mOutside;
    std::unique_ptr<Subprocess> mDaemon;
};

std::string RandomBytes(size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        seed = seed * 1103515245u + 12345u;
        bytes[i] = static_cast<char>(seed >> 16);
    }
    return bytes;
}

// Files go through every command and back; statuses reach the user by name;
// partition sizes need the system side.
TEST_F(FsE2ETest, FilesRoundTripAndStatusesReachTheUser) {
    const std::string binary = RandomBytes(1 << 20, 1);
    std::ofstream(Scratch("in.bin"), std::ios::binary) << binary;
    ASSERT_EQ(Fs({"put", Scratch("in.bin"), "/data/vendor", "blob"}).status, 0);
    ASSERT_EQ(Fs({"get", "/data/vendor", "blob", Scratch("out.bin")}).status, 0);
    EXPECT_TRUE(ReadWholeFile(Scratch("out.bin")) == binary) << "1 MiB back unchanged";
    EXPECT_EQ(Fs({"size", "/data/vendor", "blob"}).out, "1048576\n");

    ASSERT_EQ(Fs({"write", "/data/vendor", "note", "--mode", "600"}, "first\n").status, 0);
    ASSERT_EQ(Fs({"write", "/data/vendor", "note", "--append"}, "second\n").status, 0);
    EXPECT_EQ(Fs({"cat", "/data/vendor", "note"}).out, "first\nsecond\n");
    EXPECT_EQ(fs::status(Host("/data/vendor/note")).permissions(), fs::perms(0644));

    ASSERT_EQ(Fs({"mkdir", "/data/vendor", "logs/old", "--mode", "750"}).status, 0);
    EXPECT_EQ(fs::status(Host("/data/vendor/logs/old")).permissions(), fs::perms(0750));
    ASSERT_EQ(Fs({"cp", "/data/vendor/note", "/data/vendor/logs/old/note"}).status, 0);
    const ToolRun list = Fs({"ls", "/data/vendor", "--full"});
    ASSERT_EQ(list.status, 0) << list.err;
    EXPECT_EQ(list.out.rfind("/data/vendor/blob\t1048576\t", 0), 0u) << list.out;
    EXPECT_NE(list.out.find("\n/data/vendor/logs/old/note\t13\t"), npos) << list.out;
    EXPECT_EQ(Fs({"exists", "/data/vendor", "logs/old/note"}).out, "true\n");
    ASSERT_EQ(Fs({"rm", "/data/vendor", "logs"}).status, 0);
    EXPECT_EQ(Fs({"exists", "/data/vendor", "logs"}).out, "false\n");

    ASSERT_EQ(Fs({"setprop", "vendor.fs.test", "on"}).status, 0);
    EXPECT_EQ(mDaemon->err().find("set property"), npos);
    EXPECT_EQ(Ctl({"getprop", "vendor.fs.test"}).out, "on\n");

    // The status the service answered reaches the user by name and number;
    // arguments that do not fit are refused by the tool.
    const struct {
        std::vector<std::string> args;
        int status;
        std::string err;  // how it starts
    } cases[] = {
            {{"cat", "/data/vendor", "missing"}, 1, "fs cat: OPEN_FAILED (-17)\n"},
            {{"size", "/data/vendor", "missing"}, 1, "fs size: TESSEL_NOENT (-2)\n"},
            {{"rm", "/data/vendor", "missing"}, 1, "fs rm: TESSEL_NOENT (-2)\n"},
            {{"rm", "/data/vendor", "/etc"}, 1, "fs rm: TESSEL_EINVAL (-22)\n"},
            {{"write", "/data/vendor", ""}, 1, "fs write: TESSEL_EINVAL (-22)\n"},
            {{"setprop", "vendor.x", ""}, 1, "fs setprop: TESSEL_EINVAL (-22)\n"},
            {{"exists", "", "x"}, 1, "fs exists: INVALID_OPERATION (-38)\n"},
            {{"partsize", "test", "blackbox"}, 1, "fs partsize: INVALID_OPERATION (-38)\n"},
            {{"get", "/data/vendor", "missing", Scratch("never")},
             1,
             "fs get: TESSEL_NOENT (-2)\n"},
            {{"mkdir", "/data", "x", "--mode", "9"}, 2, "fs mkdir: wrong arguments"},
            {{"write", "/data"}, 2, "fs write: wrong arguments"},
            {{"ls", "/data", "--fast"}, 2, "fs ls: wrong arguments"},
            {{"cp", "/data/a"}, 2, "fs cp: wrong arguments"},
    };
    for (const auto& c : cases) {
        const ToolRun r = Fs(c.args, c.args[0] == "write" ? "data" : "");
        EXPECT_EQ(r.status, c.status) << c.err;
        EXPECT_EQ(r.err.substr(0, c.err.size()), c.err);
    }
    EXPECT_FALSE(fs::exists(Scratch("never")));

    Put("/dev/block/by-name/blackbox", "");
    fs::resize_file(Host("/dev/block/by-name/blackbox"), 20 * 4096);
    std::unique_ptr<Subprocess> peer = StartPeer(mRoot.path());
    ASSERT_TRUE(PeerServing(*peer)) << peer->err();
    EXPECT_EQ(Out(Fs({"partsize", "e2e", "blackbox"})), "81920\n");
    EXPECT_EQ(Fs({"partsize", "e2e", "../blackbox"}).err, "fs partsize: INVALID_OPERATION (-38)\n");
    EXPECT_TRUE(mDaemon->running());
}

TEST_F(FsE2ETest, TwoClientsTransferAtOnceWithoutMixingData) {
    const std::string data[] = {RandomBytes(8 << 20, 2), RandomBytes(8 << 20, 3)};
    const std::string names[] = {"a", "b"};
    for (int i = 0; i < 2; ++i) std::ofstream(Scratch(names[i]), std::ios::binary) << data[i];
    for (int round = 0; round < 3; ++round) {
        for (const char* command : {"put", "get"}) {
            std::unique_ptr<Subprocess> tools[2];
            for (int i = 0; i < 2; ++i) {
                std::vector<std::string> args{"tesselctl", "--root", mRoot.path(), "fs", command};
                if (command == std::string("put")) {
                    args.insert(args.end(), {Scratch(names[i]), "/data", names[i]});
                } else {
                    args.insert(args.end(), {"/data", names[i], Scratch(names[i] + ".out")});
                }
                tools[i] = std::make_unique<Subprocess>(args, Scratch(command + names[i]));
            }
            for (auto& tool : tools) ASSERT_EQ(tool->wait(), 0) << tool->err();
        }
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(ReadWholeFile(Scratch(names[i] + ".out")) == data[i]) << round;
        }
    }
}

// Every path-taking method aimed at a folder outside the root: through an
// absolute link, a relative one, and "..".
TEST_F(FsE2ETest, NoCommandReachesOutsideTheRoot) {
    const std::string outside = mOutside.path();
    fs::create_symlink(outside, Host("/data/vendor/abs"));
    fs::create_symlink("../../../../../../../.." + outside, Host("/data/vendor/rel"));
    const std::string climb = "../../../../../../../.." + outside;
    std::ofstream(Scratch("payload")) << "pwned";
    ASSERT_TRUE(platform::SetRoot(mRoot.path()));
    const std::string instance = std::string(ITesselImpl::descriptor) + "/default";
    const std::shared_ptr<ITesselImpl> client = ITesselImpl::fromBinder(
            ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    ASSERT_NE(client, nullptr);
    for (const std::string& folder :
         {std::string("/data/vendor/abs"), std::string("/data/vendor/rel"), "/data/" + climb}) {
        SCOPED_TRACE(folder);
        EXPECT_NE(Fs({"cat", folder, "secret"}).status, 0);
        EXPECT_NE(Fs({"get", folder, "secret", Scratch("stolen")}).status, 0);
        EXPECT_NE(Fs({"size", folder, "secret"}).status, 0);
        EXPECT_EQ(Fs({"exists", folder, "secret"}).out, "false\n");
        EXPECT_NE(Fs({"ls", folder}).status, 0);
        EXPECT_NE(Fs({"cp", folder + "/secret", "/data/copy"}).status, 0);
        Fs({"put", Scratch("payload"), folder, "secret"});
        Fs({"write", folder, "secret"}, "pwned");
        Fs({"mkdir", folder, "made"});
        Fs({"mkdir", folder, "made", "--mode", "777"});
        Fs({"cp", "/data/vendor/abs/../../vendor", folder + "/secret"});
        // The byte calls have no command; a binder client makes them.
        std::vector<int8_t> bytes;
        EXPECT_FALSE(client->TesselReadBuffer(folder, "secret", &bytes).isOk());
        client->TesselWriteBuffer(folder, "secret", {'p'}, 1);
        Fs({"rm", folder, "secret"});
        EXPECT_EQ(ReadWholeFile(outside + "/secret"), "outside");
        EXPECT_EQ(std::distance(fs::directory_iterator(outside), fs::directory_iterator()), 1);
    }
    EXPECT_FALSE(fs::exists(Scratch("stolen")));
    EXPECT_TRUE(mDaemon->running());
}

}  // namespace
}  // namespace zelkor::tessel::testing
