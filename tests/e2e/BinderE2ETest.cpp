// The daemon, tessel-peer and tesselctl on one temporary root, talking over
// the host binder.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "DaemonRoot.h"
#include "TempRoot.h"

namespace zelkor::tessel::testing {
namespace {

class BinderE2ETest : public ::testing::Test {
  protected:
    void SetUp() override { InstallDaemonManifest(mRoot.path()); }
    std::string out(const std::string& name) const { return mRoot.path() + "/" + name; }
    std::string ctl(std::vector<std::string> args, int* status = nullptr,
                    std::string* err = nullptr) {
        args.insert(args.begin(), {"tesselctl", "--root", mRoot.path()});
        Subprocess tool(args, out("ctl"));
        int rc = tool.wait();
        if (status != nullptr) *status = rc;
        if (err != nullptr) *err = tool.err();
        return tool.out();
    }
    std::unique_ptr<Subprocess> startPeer() {
        auto peer = StartPeer(mRoot.path());
        EXPECT_TRUE(PeerServing(*peer)) << peer->err();
        return peer;
    }
    std::unique_ptr<Subprocess> startDaemon() {
        auto daemon = std::make_unique<Subprocess>(
                std::vector<std::string>{"tesseld", "--root", mRoot.path()}, out("tesseld"));
        EXPECT_TRUE(WaitFor([&] {
            return daemon->err().find("Tessel is started!") != std::string::npos;
        })) << daemon->err();
        return daemon;
    }
    std::string peerMessages() { return ReadWholeFile(mRoot.path() + "/data/peer/messages.jsonl"); }

    TempRoot mRoot;
};

TEST_F(BinderE2ETest, DaemonRegistersItsThreeServicesAndAnswersDump) {
    auto daemon = startDaemon();
    const std::string log = daemon->err();
    size_t tessel = log.find("Tessel registered!");
    size_t blackbox = log.find("Blackbox registered!");
    ASSERT_NE(tessel, std::string::npos);
    ASSERT_NE(blackbox, std::string::npos);
    EXPECT_LT(tessel, blackbox);
    EXPECT_LT(blackbox, log.find("Tessel is started!"));
    EXPECT_EQ(log.find("HalvexInternal registered"), std::string::npos);

    int status = -1;
    const std::string list = ctl({"list"}, &status);
    EXPECT_EQ(status, 0);
    for (const char* instance : {"vendor.zelkor.hardware.tessel.common.ITesselImpl/default",
                                 "vendor.zelkor.hardware.blackbox.IBlackboxImpl/default",
                                 "vendor.zelkor.hardware.tessel.common.IHalvexIntl/default"}) {
        EXPECT_NE(list.find(instance), std::string::npos) << list;
    }

    const std::string dump = ctl({"dump", "ModuleManager", "dump"}, &status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(dump.find("Current Modules:"), std::string::npos) << dump;
}

TEST_F(BinderE2ETest, TransferReachesAnInternalReceiverAndComesBack) {
    auto peer = startPeer();
    auto daemon = startDaemon();
    int status = -1;
    ctl({"transfer", "zelkor.halvex.tessel.ping",
         R"({"extras":[{"key":"seq","value":41,"value_type":6}]})"},
        &status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(WaitFor([&] {
        return daemon->err().find(
                       "HalvexInternal: vendor received message: action "
                       "zelkor.halvex.tessel.ping json ") != std::string::npos;
    })) << daemon->err();
    // The daemon's receiver answered through the system peer with the same extras.
    ASSERT_TRUE(WaitFor([&] {
        return peerMessages().find("zelkor.halvex.tessel.pong") != std::string::npos;
    })) << daemon->err();
    EXPECT_NE(peerMessages().find(R"(\"key\":\"seq\",\"value\":41,\"value_type\":6)"),
              std::string::npos)
            << peerMessages();

    // A message nested deeper than the JSON reader goes is refused, and the
    // daemon keeps serving.
    ctl({"transfer", "zelkor.halvex.tessel.ping", std::string(5000, '[') + std::string(5000, ']')},
        &status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(WaitFor([&] {
        return daemon->err().find("ConvertStringToJson failed!") != std::string::npos;
    })) << daemon->err();
    const std::string dump = ctl({"dump", "ModuleManager", "dump"}, &status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(dump.find("Current Modules:"), std::string::npos);
}

TEST_F(BinderE2ETest, DeadPeerGivesAnErrorNotAHang) {
    auto peer = startPeer();
    auto daemon = startDaemon();
    // One round trip first, so the daemon holds the peer's binder: a first
    // lookup of a declared service waits for it to come up, as on a device.
    ctl({"transfer", "zelkor.halvex.tessel.ping", "{}"});
    ASSERT_TRUE(WaitFor([&] {
        return peerMessages().find("zelkor.halvex.tessel.pong") != std::string::npos;
    })) << daemon->err();
    // Frozen, the peer accepts the call but never answers; killing it then ends
    // the daemon's call in the middle.
    peer->signal(SIGSTOP);
    int status = -1;
    ctl({"transfer", "zelkor.halvex.tessel.ping", "{}"}, &status);
    EXPECT_EQ(status, 0);
    ASSERT_TRUE(WaitFor([&] {
        const std::string log = daemon->err();
        return log.find("action zelkor.halvex.tessel.ping") !=
               log.rfind("action zelkor.halvex.tessel.ping");
    })) << daemon->err();
    peer->signal(SIGKILL);
    EXPECT_TRUE(WaitFor([&] {
        const std::string log = daemon->err();
        return log.find("pong to the system peer failed") != std::string::npos ||
               log.find("no system peer to answer the ping") != std::string::npos;
    })) << daemon->err();

    // The daemon is still serving, and its module thread is free again.
    const std::string dump = ctl({"dump", "ModuleManager", "dump"}, &status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(dump.find("Current Modules:"), std::string::npos);
}

TEST_F(BinderE2ETest, RegistrationFailureEndsTheDaemonBeforeTheOtherServices) {
    // A file where the service folder should be: the first registration fails.
    std::filesystem::create_directories(mRoot.path() + "/dev/binderfs");
    { std::ofstream(mRoot.path() + "/dev/binderfs/sm") << "not a folder"; }
    Subprocess daemon({"tesseld", "--root", mRoot.path()}, out("tesseld"));
    EXPECT_EQ(daemon.wait(), 128 + SIGABRT);
    const std::string log = daemon.err();
    EXPECT_NE(log.find("Check failed: status == STATUS_OK (status="), std::string::npos) << log;
    EXPECT_EQ(log.find("registered!"), std::string::npos);
    EXPECT_EQ(log.find("BlackboxImpl: Ready!"), std::string::npos);
    EXPECT_EQ(log.find("Tessel is started!"), std::string::npos);
}

TEST_F(BinderE2ETest, CallsToAMissingDaemonFailClearly) {
    int status = -1;
    std::string err;
    ctl({"transfer", "a", "{}"}, &status, &err);
    EXPECT_EQ(status, 1);
    EXPECT_NE(err.find("transfer: vendor.zelkor.hardware.tessel.common.IHalvexIntl/default is "
                       "not running"),
              std::string::npos)
            << err;
    ctl({"dump"}, &status, &err);
    EXPECT_EQ(status, 1);
    EXPECT_NE(err.find("dump: vendor.zelkor.hardware.tessel.common.ITesselImpl/default is not "
                       "running"),
              std::string::npos)
            << err;
    EXPECT_EQ(ctl({"list"}, &status), "");
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace zelkor::tessel::testing
