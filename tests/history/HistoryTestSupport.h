// A host root for the crash history tests: the minidump tests' root and byte
// helpers, plus blackbox images stamped byte by byte with the default layout,
// boot info nodes and the events the reporting client wrote.
#pragma once

#include <json/json.h>

#include <fstream>
#include <string>
#include <vector>

#include "blackbox/TestImage.h"
#include "minidump/MinidumpTestSupport.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {

using U64s = std::vector<uint64_t>;

constexpr char kCrashHistory[] = "/dev/block/by-name/crash_history";
constexpr char kMdHistory[] = "/data/vendor/diag/md_history";
constexpr char kPowerup[] = "/sys/bootinfo/powerup_reason";
constexpr char kPoweroff[] = "/sys/bootinfo/poweroff_reason";
constexpr char kLastKmsgFile[] = "/data/vendor/diag/last_kmsg";

// The default blackbox map.
constexpr uint64_t kBlackboxSize = kImageSize;
constexpr uint64_t kSlot = 0x1000;            // slot 1
constexpr uint64_t kRing = kSlot + 0x512000;  // its dotting area
constexpr uint64_t kHistoryAt = 0x9801000;    // control + crash_history_offset
constexpr uint64_t kHistoryRegion = 0x400 + 512 * 0x400;
constexpr uint64_t RecordAt(uint64_t history, uint64_t slot) {
    return history + 0x400 + slot * 0x400;
}

class HistoryTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        Minidump::time_init();
    }

    // The four headers of a freshly initialised blackbox, boot counter
    // `bootIndex`, current slot 1.
    void MakeBlackbox(uint32_t bootIndex = 7) {
        TestImage image(Host(kBlackbox), kBlackboxSize);
        image.PutDefaultHeaders();
        image.PutU32(0x10, bootIndex);
    }

    // `count` little-endian words of `width` bytes each, one after the other.
    U64s Words(const char* dev, uint64_t at, size_t count, int width = 4) const {
        U64s words;
        for (size_t i = 0; i < count; ++i) words.push_back(GetLE(dev, at + i * width, width));
        return words;
    }

    // A text file at a device path, its folders created.
    void WriteText(const std::string& devicePath, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Host(devicePath)).parent_path());
        std::ofstream out(Host(devicePath), std::ios::binary | std::ios::trunc);
        out << text;
    }

    // The events the reporting client wrote, one JSON object each.
    std::vector<Json::Value> Events() const {
        std::vector<Json::Value> events;
        std::ifstream in(Host("/data/vendor/pellora/events.jsonl"), std::ios::binary);
        for (std::string line; std::getline(in, line);) {
            EXPECT_TRUE(Json::Reader().parse(line, events.emplace_back())) << line;
        }
        return events;
    }

    std::string Now() const { return Minidump::run_time_text(); }
};

}  // namespace zelkor::tessel::testing
