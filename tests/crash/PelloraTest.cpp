// The host event client: one JSON line per event under the root.
#include <gtest/gtest.h>
#include <json/json.h>
#include <pellora/Pellora.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {
namespace {

class PelloraTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }

    // The events written so far, one JSON object a line.
    std::vector<Json::Value> Events() const {
        std::ifstream in(mRoot.path() + "/data/vendor/pellora/events.jsonl", std::ios::binary);
        std::vector<Json::Value> events;
        for (std::string line; std::getline(in, line);) {
            std::istringstream text(line);
            std::string errors;
            EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text,
                                              &events.emplace_back(), &errors))
                    << errors;
        }
        return events;
    }

    TempRoot mRoot;
};

TEST_F(PelloraTest, EachEventIsOneJsonLineWithIdAndValues) {
    android::PelloraEvent crash(901006001);
    crash.putString("Type", "kpanic");
    crash.putString("Stacktrace", "faulty_write+0x10;\nksys_write+0x68;");
    crash.putString("Type", "kpanic2");
    ASSERT_EQ(android::Pellora::sendEvent(crash), 0);
    android::PelloraEvent bare(901006029);
    ASSERT_EQ(android::Pellora::sendEvent(bare), 0);

    const std::vector<Json::Value> events = Events();
    ASSERT_EQ(events.size(), 2u);
    const Json::Value& first = events[0];
    EXPECT_EQ(first["id"].asUInt(), 901006001u);
    EXPECT_EQ(first["values"]["Type"].asString(), "kpanic2");
    EXPECT_EQ(first["values"]["Stacktrace"].asString(), "faulty_write+0x10;\nksys_write+0x68;");
    EXPECT_EQ(first["values"].size(), 2u);
    const Json::Value& second = events[1];
    EXPECT_EQ(second["id"].asUInt(), 901006029u);
    EXPECT_TRUE(second["values"].isObject());
    EXPECT_EQ(second["values"].size(), 0u);
}

TEST_F(PelloraTest, BytesThatAreNotUtf8BecomeReplacementCharacters) {
    android::PelloraEvent event(1);
    event.putString("Summary", std::string("ok \xc3\xa9 bad \xff\xc3 end", 16));
    ASSERT_EQ(android::Pellora::sendEvent(event), 0);
    ASSERT_EQ(Events().size(), 1u);
    EXPECT_EQ(Events()[0]["values"]["Summary"].asString(),
              "ok \xc3\xa9 bad \xef\xbf\xbd\xef\xbf\xbd end");
}

TEST_F(PelloraTest, UndeliverableEventIsAnError) {
    std::filesystem::create_directories(mRoot.path() + "/data/vendor/pellora/events.jsonl");
    android::PelloraEvent event(2);
    EXPECT_LT(android::Pellora::sendEvent(event), 0);
}

}  // namespace
}  // namespace zelkor::tessel::testing
