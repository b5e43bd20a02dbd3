// A host root for the crash history tests: the minidump tests' root and byte
// helpers, plus blackbox images stamped byte by byte with the default layout,
// boot info nodes and the events the reporting client wrote.
#pragma once

#include <json/json.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "minidump/MinidumpTestSupport.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {

constexpr char kCrashHistory[] = "/dev/block/by-name/crash_history";
constexpr char kMdHistory[] = "/data/vendor/diag/md_history";
constexpr char kPowerup[] = "/sys/bootinfo/powerup_reason";
constexpr char kPoweroff[] = "/sys/bootinfo/poweroff_reason";
constexpr char kLastKmsgFile[] = "/data/vendor/diag/last_kmsg";

// The default blackbox map.
constexpr uint64_t kBlackboxSize = 0x9883000;
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
        MakeImage(kBlackbox, kBlackboxSize);
        Put64(kBlackbox, 0x0, 0x56775AF41BCDE0F0ull);
        Put32(kBlackbox, 0x8, 0x1000);
        Put32(kBlackbox, 0xC, 0x400);
        Put32(kBlackbox, 0x10, bootIndex);
        Put32(kBlackbox, 0x14, 0x400);      // log_content_offset
        Put32(kBlackbox, 0x18, 0x3000000);  // minidump_offset
        Put32(kBlackbox, 0x20, 0x9800000);  // control_content_offset
        Put64(kBlackbox, 0x400, 0xE99BB480DD25E1F0ull);
        Put32(kBlackbox, 0x408, 0x1000);
        Put32(kBlackbox, 0x40C, 0x400);
        Put32(kBlackbox, 0x410, 0x1000);    // log_offset
        Put32(kBlackbox, 0x414, 1);         // dump_count
        Put32(kBlackbox, 0x418, 0x800000);  // log_size
        Put64(kBlackbox, kSlot, 0xB5C4D2A5E936DB79ull);
        const uint32_t words[] = {0x1000, 0x1000,  0x1000,   0x1000,   0x4000,  0x7000,
                                  0xA000, 0x12000, 0x112000, 0x312000, 0x512000};
        for (size_t i = 0; i < std::size(words); ++i) Put32(kBlackbox, kSlot + 8 + 4 * i, words[i]);
        Put(kBlackbox, kSlot + 52, std::string("uefi_log\0", 9));
        Put(kBlackbox, kSlot + 72, std::string("dotting\0", 8));
        Put64(kBlackbox, kSlot + 92, 0x7C1C918ADF6BC8CCull);
        Put32(kBlackbox, kSlot + 100, 4096);
        Put32(kBlackbox, kSlot + 116, 0xFFFFFFFF);  // ring_start
        Put32(kBlackbox, kSlot + 120, 512);
        Put32(kBlackbox, kSlot + 124, 3000);
        Put64(kBlackbox, 0x9800000, 0x9DBFA34954526BECull);
        Put32(kBlackbox, 0x9800008, 0x1000);
        Put32(kBlackbox, 0x980000C, 0x1000);  // crash_history_offset
        Put32(kBlackbox, 0x9800010, 0x9801000);
        Put32(kBlackbox, 0x9800014, 0x9881000);
        Put32(kBlackbox, 0x9800018, 0x9882000);
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
            Json::Value event;
            std::istringstream text(line);
            std::string errors;
            EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &event, &errors))
                    << errors;
            events.push_back(event);
        }
        return events;
    }

    static std::vector<std::string> Lines(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    std::string Now() const { return Minidump::run_time_text(); }
};

}  // namespace zelkor::tessel::testing
