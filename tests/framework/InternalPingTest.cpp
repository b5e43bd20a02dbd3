// The ping receiver of the internal channel answers from a thread of its own:
// with no system peer declared it says so; a peer that is declared but not
// running makes the answer wait (until the peer comes up), never the thread
// that delivers every local broadcast.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "LogCapture.h"
#include "TempRoot.h"
#include "common/default/InternalPing.h"
#include "framework/InternalBroadcastManager.h"
#include "framework/TestSupport.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

TEST(InternalPingTest, NoPeerIsReportedAndAPeerDeclaredButDownNeverHoldsTheBus) {
    testing::LogCapture log;
    testing::TempRoot root;
    ASSERT_TRUE(platform::SetRoot(root.path()));
    InternalPing::Start();
    const auto ping = [] {
        InternalBroadcastManager::onHalvexIntlMessageReceived(InternalPing::kPingAction, "{}");
    };
    ping();
    EXPECT_TRUE(testing::WaitFor([&] {
        return log.count("Halvex-InternalPing", "no system peer to answer the ping") == 1;
    }));

    const std::string manifests = root.path() + "/system/etc/vintf/manifest";
    std::filesystem::create_directories(manifests);
    std::ofstream(manifests + "/peer.xml") << R"(<manifest version="1.0" type="framework">
    <hal format="aidl">
        <name>zelkor.system.halvex.common</name>
        <fqname>IHalvexSsiIntl/default</fqname>
    </hal>
</manifest>
)";
    // Looking the peer up now waits until it comes up; the bus goes on at
    // once, ping after ping.
    for (int round = 0; round < 2; ++round) {
        ping();
        EXPECT_TRUE(testing::DrainManagerThread());
    }
}

}  // namespace
}  // namespace zelkor::tessel
