// The host event client: one JSON line per event under the root.
#include <gtest/gtest.h>
#include <json/json.h>
#include <pellora/Pellora.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {
namespace {

// Each event is one JSON line with its id and values: a key put twice keeps
// its last value, a line end stays inside the value, bytes that are not
// UTF-8 become replacement characters. An event with nowhere to go is an
// error.
TEST(PelloraTest, EachEventIsOneJsonLineWithIdAndValues) {
    TempRoot root;
    ASSERT_TRUE(platform::SetRoot(root.path()));
    android::PelloraEvent crash(901006001);
    crash.putString("Type", "kpanic");
    crash.putString("Stacktrace", "faulty_write+0x10;\nksys_write+0x68;");
    crash.putString("Summary", std::string("ok \xc3\xa9 bad \xff\xc3 end", 16));
    crash.putString("Type", "kpanic2");
    ASSERT_EQ(android::Pellora::sendEvent(crash), 0);
    android::PelloraEvent bare(901006029);
    ASSERT_EQ(android::Pellora::sendEvent(bare), 0);

    const std::string file = root.path() + "/data/vendor/pellora/events.jsonl";
    std::vector<Json::Value> events;
    std::ifstream in(file, std::ios::binary);
    for (std::string line; std::getline(in, line);) {
        EXPECT_TRUE(Json::Reader().parse(line, events.emplace_back())) << line;
    }
    ASSERT_EQ(events.size(), 2u);
    const Json::Value& first = events[0];
    EXPECT_EQ(first["id"].asUInt(), 901006001u);
    EXPECT_EQ(first["values"].size(), 3u);
    EXPECT_EQ(first["values"]["Type"].asString(), "kpanic2");
    EXPECT_EQ(first["values"]["Stacktrace"].asString(), "faulty_write+0x10;\nksys_write+0x68;");
    EXPECT_EQ(first["values"]["Summary"].asString(),
              "ok \xc3\xa9 bad \xef\xbf\xbd\xef\xbf\xbd end");
    EXPECT_EQ(events[1]["id"].asUInt(), 901006029u);
    EXPECT_TRUE(events[1]["values"].isObject());
    EXPECT_EQ(events[1]["values"].size(), 0u);

    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    EXPECT_LT(android::Pellora::sendEvent(bare), 0);
}

}  // namespace
}  // namespace zelkor::tessel::testing
