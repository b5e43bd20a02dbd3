// The ping receiver of the internal channel answers from a thread of its own:
// a system peer that is declared but not running makes the answer wait (until
// the peer comes up), never the thread that delivers every local broadcast.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TempRoot.h"
#include "common/default/InternalPing.h"
#include "framework/InternalBroadcastManager.h"
#include "framework/ModuleManager.h"
#include "framework/TestSupport.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

using testing::Latch;

TEST(InternalPingTest, APeerDeclaredButDownNeverHoldsTheBus) {
    testing::TempRoot root;
    ASSERT_TRUE(platform::SetRoot(root.path()));
    const std::string manifests = root.path() + "/system/etc/vintf/manifest";
    std::filesystem::create_directories(manifests);
    std::ofstream(manifests + "/peer.xml") << R"(<manifest version="1.0" type="framework">
    <hal format="aidl">
        <name>zelkor.system.halvex.common</name>
        <fqname>IHalvexSsiIntl/default</fqname>
    </hal>
</manifest>
)";
    InternalPing::Start();

    // Looking the peer up waits until it comes up; the bus goes on at once,
    // ping after ping.
    for (int ping = 0; ping < 2; ++ping) {
        InternalBroadcastManager::onHalvexIntlMessageReceived(InternalPing::kPingAction, "{}");
        Latch delivered;
        ModuleManager::GetManagerHandler()->postDelayed([&delivered] { delivered.open(); }, 0);
        EXPECT_TRUE(delivered.wait(std::chrono::seconds(2)));
    }
}

}  // namespace
}  // namespace zelkor::tessel
