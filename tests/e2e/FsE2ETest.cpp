// The file-system service of the real daemon, driven as a user drives it:
// tesselctl fs, and a binder client for what the tool never sends.
#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>
#include <android/binder_manager.h>
#include <cutils/ashmem.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "DaemonRoot.h"
#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {
namespace {

namespace fs = std::filesystem;
using ::aidl::vendor::zelkor::hardware::tessel::common::Ashmem;
using ::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl;

class FsE2ETest : public ::testing::Test {
  protected:
    void SetUp() override {
        InstallDaemonManifest(mRoot.path());
        fs::create_directories(Host("/data/vendor"));
        std::ofstream(mOutside.path() + "/secret") << "outside";
        mDaemon = std::make_unique<Subprocess>(
                std::vector<std::string>{"tesseld", "--root", mRoot.path()}, Host("/tesseld"));
        ASSERT_TRUE(WaitFor([&] { return mDaemon->err().find("Tessel is started!") != npos; }))
                << mDaemon->err();
    }
    std::string Host(const std::string& path) const { return mRoot.path() + path; }
    std::string Scratch(const std::string& name) const { return mScratch.path() + "/" + name; }

    struct Result {
        int status;
        std::string out, err;
    };
    // tesselctl fs ARGS, standard input from `input` when given.
    Result Fs(std::vector<std::string> args, const std::string& input = "") {
        args.insert(args.begin(), {"tesselctl", "--root", mRoot.path(), "fs"});
        const std::string prefix = Scratch("ctl" + std::to_string(++mRuns));
        std::string stdinPath;
        if (!input.empty()) {
            stdinPath = prefix + ".in";
            std::ofstream(stdinPath, std::ios::binary) << input;
        }
        Subprocess tool(args, prefix, {}, stdinPath);
        int status = tool.wait();
        return {status, tool.out(), tool.err()};
    }
    std::shared_ptr<ITesselImpl> Client() {
        EXPECT_TRUE(platform::SetRoot(mRoot.path()));
        const std::string instance = std::string(ITesselImpl::descriptor) + "/default";
        return ITesselImpl::fromBinder(
                ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    }

    static constexpr size_t npos = std::string::npos;
    TempRoot mRoot, mOutside, mScratch;
    std::unique_ptr<Subprocess> mDaemon;
    int mRuns = 0;
};

std::string RandomBytes(size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        seed = seed * 1103515245u + 12345u;
        bytes[i] = static_cast<char>(seed >> 16);
    }
    return bytes;
}

TEST_F(FsE2ETest, FilesRoundTripThroughEveryCommand) {
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
    Result list = Fs({"ls", "/data/vendor", "--full"});
    ASSERT_EQ(list.status, 0) << list.err;
    EXPECT_EQ(list.out.rfind("/data/vendor/blob\t1048576\t", 0), 0u) << list.out;
    EXPECT_NE(list.out.find("\n/data/vendor/logs/old/note\t13\t"), npos) << list.out;
    EXPECT_EQ(Fs({"exists", "/data/vendor", "logs/old/note"}).out, "true\n");
    ASSERT_EQ(Fs({"rm", "/data/vendor", "logs"}).status, 0);
    EXPECT_EQ(Fs({"exists", "/data/vendor", "logs"}).out, "false\n");

    ASSERT_EQ(Fs({"setprop", "vendor.fs.test", "on"}).status, 0);
    EXPECT_EQ(ReadWholeFile(Host("/tesseld.err")).find("set property"), npos);
    Subprocess getprop({"tesselctl", "--root", mRoot.path(), "getprop", "vendor.fs.test"},
                       Scratch("getprop"));
    getprop.wait();
    EXPECT_EQ(getprop.out(), "on\n");
}

TEST_F(FsE2ETest, StatusesReachTheClientByNameAndNumber) {
    struct Case {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
            {{"cat", "/data/vendor", "missing"}, "fs cat: OPEN_FAILED (-17)"},
            {{"size", "/data/vendor", "missing"}, "fs size: TESSEL_NOENT (-2)"},
            {{"rm", "/data/vendor", "missing"}, "fs rm: TESSEL_NOENT (-2)"},
            {{"rm", "/data/vendor", "/etc"}, "fs rm: TESSEL_EINVAL (-22)"},
            {{"write", "/data/vendor", ""}, "fs write: TESSEL_EINVAL (-22)"},
            {{"setprop", "vendor.x", ""}, "fs setprop: TESSEL_EINVAL (-22)"},
            {{"exists", "", "x"}, "fs exists: INVALID_OPERATION (-38)"},
            {{"partsize", "test", "blackbox"}, "fs partsize: INVALID_OPERATION (-38)"},
            {{"get", "/data/vendor", "missing", Scratch("never")}, "fs get: TESSEL_NOENT (-2)"},
    };
    for (const Case& c : cases) {
        Result r = Fs(c.args, c.args[0] == "write" ? "data" : "");
        EXPECT_EQ(r.status, 1) << c.message;
        EXPECT_EQ(r.err, c.message + "\n");
    }
    EXPECT_FALSE(fs::exists(Scratch("never")));
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"mkdir", "/data", "x", "--mode", "9"},
          {"write", "/data"},
          {"ls", "/data", "--fast"},
          {"cp", "/data/a"}}) {
        Result usage = Fs(args);
        EXPECT_EQ(usage.status, 2) << args[0];
        EXPECT_NE(usage.err.find("fs " + args[0] + ": wrong arguments"), npos);
    }

    // What the tool never sends, straight from a binder client: the number
    // the service answered is the number the client sees.
    std::shared_ptr<ITesselImpl> client = Client();
    ASSERT_NE(client, nullptr);
    Ashmem empty;
    empty.fd = ndk::ScopedFileDescriptor(ashmem_create_region("e2e", 4096));
    empty.mSize = 0;
    EXPECT_EQ(client->WriteToFile(empty, "/data", "f", 0).getStatus(), -2);
    Ashmem region;
    region.fd = ndk::ScopedFileDescriptor(ashmem_create_region("e2e", 4096));
    region.mSize = 4096;
    EXPECT_EQ(client->WriteToFile(region, "/data", "f", 134217728 + 1).getStatus(), -22);
    EXPECT_EQ(client->WriteToFile(region, "/data", "f", -1).getStatus(), -22);
    EXPECT_EQ(client->TesselWriteBuffer("/data", "f", {1, 2}, 3).getStatus(), -22);
    Ashmem lying;
    lying.fd = ndk::ScopedFileDescriptor(ashmem_create_region("e2e", 4096));
    lying.mSize = 1 << 20;
    EXPECT_EQ(client->WriteToFile(lying, "/data", "f", 1 << 20).getStatus(), -2);
    EXPECT_FALSE(fs::exists(Host("/data/f")));
    EXPECT_TRUE(mDaemon->running()) << "bad input never takes the daemon down";
}

TEST_F(FsE2ETest, PartitionSizesComeFromTheSystemSide) {
    fs::create_directories(Host("/dev/block/by-name"));
    { std::ofstream(Host("/dev/block/by-name/blackbox")); }
    fs::resize_file(Host("/dev/block/by-name/blackbox"), 20 * 4096);
    EXPECT_EQ(Fs({"partsize", "e2e", "blackbox"}).err, "fs partsize: INVALID_OPERATION (-38)\n")
            << "no core service yet";
    std::unique_ptr<Subprocess> peer = StartPeer(mRoot.path());
    ASSERT_TRUE(PeerServing(*peer)) << peer->err();
    Result size = Fs({"partsize", "e2e", "blackbox"});
    EXPECT_EQ(size.status, 0) << size.err;
    EXPECT_EQ(size.out, "81920\n");
    EXPECT_EQ(Fs({"partsize", "e2e", "../blackbox"}).err, "fs partsize: INVALID_OPERATION (-38)\n");
}

TEST_F(FsE2ETest, AFolderOfTenTwentyFourFilesCannotBeListed) {
    fs::create_directories(Host("/data/full"));
    for (int i = 0; i < 1023; ++i) std::ofstream(Host("/data/full/f" + std::to_string(i)));
    Result listed = Fs({"ls", "/data/full"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), 1023);
    std::ofstream(Host("/data/full/f1023"));
    Result refused = Fs({"ls", "/data/full"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "fs ls: INVALID_OPERATION (-38)\n");
    EXPECT_EQ(refused.out, "");
}

TEST_F(FsE2ETest, TwoClientsTransferAtOnceWithoutMixingData) {
    const std::string a = RandomBytes(8 << 20, 2), b = RandomBytes(8 << 20, 3);
    std::ofstream(Scratch("a"), std::ios::binary) << a;
    std::ofstream(Scratch("b"), std::ios::binary) << b;
    for (int round = 0; round < 3; ++round) {
        std::vector<std::string> puts[] = {
                {"tesselctl", "--root", mRoot.path(), "fs", "put", Scratch("a"), "/data", "a"},
                {"tesselctl", "--root", mRoot.path(), "fs", "put", Scratch("b"), "/data", "b"}};
        Subprocess putA(puts[0], Scratch("putA")), putB(puts[1], Scratch("putB"));
        ASSERT_EQ(putA.wait(), 0) << putA.err();
        ASSERT_EQ(putB.wait(), 0) << putB.err();
        Subprocess getA(
                {"tesselctl", "--root", mRoot.path(), "fs", "get", "/data", "a", Scratch("a.out")},
                Scratch("getA"));
        Subprocess getB(
                {"tesselctl", "--root", mRoot.path(), "fs", "get", "/data", "b", Scratch("b.out")},
                Scratch("getB"));
        ASSERT_EQ(getA.wait(), 0) << getA.err();
        ASSERT_EQ(getB.wait(), 0) << getB.err();
        EXPECT_TRUE(ReadWholeFile(Scratch("a.out")) == a) << "round " << round;
        EXPECT_TRUE(ReadWholeFile(Scratch("b.out")) == b) << "round " << round;
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
    std::shared_ptr<ITesselImpl> client = Client();
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
