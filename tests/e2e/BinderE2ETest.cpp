// The daemon, tessel-peer and tesselctl on one temporary root, talking over
// the host binder.
#include <gtest/gtest.h>

#include "DaemonTest.h"

namespace zelkor::tessel::testing {
namespace {

using BinderE2ETest = DaemonTest;

// The daemon registers its services in order, starts its modules and parks.
// A ping reaches its internal receiver, which answers through the system
// peer; a message nested deeper than the JSON reader goes is refused; a peer
// that dies while the daemon calls it costs an error, not a hang.
TEST_F(BinderE2ETest, DaemonServesTransfersAndADeadPeerGivesAnErrorNotAHang) {
    auto peer = StartPeer(mRoot.path());
    ASSERT_TRUE(PeerServing(*peer)) << peer->err();
    auto daemon = StartDaemon();
    // Modules load on the manager's thread while main goes on: wait for both.
    ASSERT_TRUE(Logged(*daemon, "[_loadModules] Loaded")) << daemon->err();
    const std::string log = daemon->err();
    // In this order, each line once at least.
    size_t at = 0;
    for (const char* line : {"Tessel is starting...", "Tessel registered!", "Blackbox registered!",
                             "Tessel is started!"}) {
        at = log.find(line, at);
        ASSERT_NE(at, npos) << line << " in order in\n" << log;
    }
    EXPECT_EQ(log.find("HalvexInternal registered"), npos);
    EXPECT_NE(log.find("[run] ModuleManager("), npos);
    const ToolRun list = Ctl({"list"});
    EXPECT_EQ(list.status, 0);
    for (const char* instance : {"vendor.zelkor.hardware.tessel.common.ITesselImpl/default",
                                 "vendor.zelkor.hardware.blackbox.IBlackboxImpl/default",
                                 "vendor.zelkor.hardware.tessel.common.IHalvexIntl/default"}) {
        EXPECT_NE(list.out.find(instance), npos) << list.out;
    }

    const auto messages = [&] { return ReadWholeFile(Host("/data/peer/messages.jsonl")); };
    const std::string ping = "zelkor.halvex.tessel.ping";
    EXPECT_EQ(Ctl({"transfer", ping, R"({"extras":[{"key":"seq","value":41,"value_type":6}]})"})
                      .status,
              0);
    EXPECT_TRUE(
            Logged(*daemon, "HalvexInternal: vendor received message: action " + ping + " json "))
            << daemon->err();
    // The answer carries the same extras; the daemon now holds the peer's
    // binder (a first lookup of a declared service waits for it to come up).
    ASSERT_TRUE(WaitFor([&] { return messages().find("zelkor.halvex.tessel.pong") != npos; }))
            << daemon->err();
    EXPECT_NE(messages().find(R"(\"key\":\"seq\",\"value\":41,\"value_type\":6)"), npos)
            << messages();

    EXPECT_EQ(Ctl({"transfer", ping, std::string(5000, '[') + std::string(5000, ']')}).status, 0);
    EXPECT_TRUE(Logged(*daemon, "ConvertStringToJson failed!")) << daemon->err();

    // Frozen, the peer accepts the call but never answers; killing it then ends
    // the daemon's call in the middle.
    const size_t received = Count(daemon->err(), "action " + ping);
    ASSERT_TRUE(peer->stop());
    EXPECT_EQ(Ctl({"transfer", ping, "{}"}).status, 0);
    ASSERT_TRUE(WaitFor([&] { return Count(daemon->err(), "action " + ping) > received; }))
            << daemon->err();
    peer->signal(SIGKILL);
    EXPECT_TRUE(WaitFor([&] {
        const std::string now = daemon->err();
        return now.find("pong to the system peer failed") != npos ||
               now.find("no system peer to answer the ping") != npos;
    })) << daemon->err();

    // The daemon is still serving, and its module thread is free again.
    const ToolRun dump = Ctl({"dump", "ModuleManager", "dump"});
    EXPECT_EQ(dump.status, 0);
    EXPECT_NE(dump.out.find("Current Modules:"), npos) << dump.out;
    EXPECT_TRUE(daemon->running()) << "the daemon parks instead of returning";
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 128 + SIGTERM);
}

TEST_F(BinderE2ETest, RegistrationFailureEndsTheDaemonBeforeTheOtherServices) {
    // A file where the service folder should be: the first registration fails.
    Put("/dev/binderfs/sm", "not a folder");
    Subprocess daemon({"tesseld", "--root", mRoot.path()}, Host("/tesseld"));
    EXPECT_EQ(daemon.wait(), 128 + SIGABRT);
    const std::string log = daemon.err();
    EXPECT_NE(log.find("Check failed: status == STATUS_OK (status="), npos) << log;
    EXPECT_EQ(log.find("registered!"), npos);
    EXPECT_EQ(log.find("BlackboxImpl: Ready!"), npos);
    EXPECT_EQ(log.find("Tessel is started!"), npos);
}

}  // namespace
}  // namespace zelkor::tessel::testing
