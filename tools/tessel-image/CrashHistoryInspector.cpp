#include "tools/tessel-image/CrashHistoryInspector.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "modules/BSPLogProcessor/crash/CrashTypes.h"
#include "modules/BSPLogProcessor/history/CrashHistoryLayout.h"
#include "tools/tessel-image/ImageFile.h"

namespace zelkor::tessel::image {
namespace {

using namespace zelkor::tessel::Minidump;

// Where the daemon writes the next record after `current_num` crashes.
uint32_t ExpectedNextPosition(uint32_t current_num) {
    const uint32_t slots = blackbox::kCrashHistoryRecords;
    return current_num == 0 ? 0 : (current_num - 1) % slots + 1;
}

class Inspection {
  public:
    Inspection(int fd, uint64_t size, uint64_t offset) : mImage(fd, size), mOffset(offset) {}

    Json::Value Run() {
        mOut["offset"] = Json::UInt64(mOffset);
        crash_history_header header{};
        if (!mImage.Read(mOffset, &header, sizeof(header)) ||
            !mImage.Contains(mOffset, kCrashHistoryRegionSize)) {
            Error("crash history " + Hex(mOffset) + "+" + Hex(kCrashHistoryRegionSize) +
                  " lies outside the file (size " + Hex(mImage.size()) + ")");
        } else if (IsZero(header)) {
            mOut["initialised"] = false;
        } else {
            mOut["initialised"] = true;
            if (Header(header)) {
                Counters(header);
                Records(header);
            }
        }
        mOut["valid"] = mErrors.empty();
        mOut["errors"] = std::move(mErrors);
        return mOut;
    }

  private:
    void Error(const std::string& text) { mErrors.append(text); }

    static bool IsZero(const crash_history_header& header) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&header);
        return std::all_of(bytes, bytes + sizeof(header), [](unsigned char b) { return b == 0; });
    }

    // False when the magic is wrong and nothing else can be believed.
    bool Header(const crash_history_header& header) {
        Json::Value& out = mOut["header"];
        out["magic"] = Printable(std::string_view(header.magic, sizeof(header.magic)));
        if (!crash_history_magic_ok(header)) {
            Error("crash_history_header: bad magic " + out["magic"].asString() + ", expected " +
                  kCrashHistoryMagic);
            return false;
        }
        out["version"] = Hex(header.version);
        out["record_slots"] = header.record_slots;
        out["current_num"] = header.current_num;
        out["next_position"] = header.next_position;
        out["magic2"] = Hex(header.magic2);
        out["main_type_count"] = header.main_type_count;
        out["sub_type_count"] = header.sub_type_count;
        if (header.magic2 != kCrashHistoryMagic2) {
            Error("crash_history_header: bad magic2 " + Hex(header.magic2) + ", expected " +
                  Hex(kCrashHistoryMagic2));
        }
        const uint32_t expected = ExpectedNextPosition(header.current_num);
        if (header.next_position != expected) {
            Error("crash_history_header: next_position " + std::to_string(header.next_position) +
                  " does not follow current_num " + std::to_string(header.current_num) +
                  " (expected " + std::to_string(expected) + ")");
        }
        return true;
    }

    // Only the types that have been counted.
    void Counters(const crash_history_header& header) {
        Json::Value main(Json::arrayValue);
        for (uint32_t type = 0; type < kCrashMainTypeSlots; ++type) {
            if (header.main_type_counters[type] == 0) continue;
            Json::Value entry;
            entry["main_type"] = type;
            entry["count"] = header.main_type_counters[type];
            main.append(std::move(entry));
        }
        Json::Value sub(Json::arrayValue);
        for (uint32_t type = 0; type < kCrashSubTypeSlots; ++type) {
            if (header.sub_type_counters[type] == 0) continue;
            Json::Value entry;
            entry["sub_type"] = type;
            entry["name"] = crash_type_name(type);
            entry["count"] = header.sub_type_counters[type];
            sub.append(std::move(entry));
        }
        mOut["main_type_counters"] = std::move(main);
        mOut["sub_type_counters"] = std::move(sub);
    }

    void Records(const crash_history_header& header) {
        Json::Value records(Json::arrayValue);
        for (uint32_t slot : crash_history_ring_order(header.current_num)) {
            crash_history_record record{};
            mImage.Read(mOffset + crash_history_slot_offset(slot), &record, sizeof(record));
            Json::Value out;
            out["slot"] = slot;
            out["main_type"] = record.main_type;
            out["sub_type"] = record.sub_type;
            out["length"] = Json::UInt64(record.length);
            if (record.length > kCrashHistoryTextMax) {
                Error("record in slot " + std::to_string(slot) + ": length " +
                      std::to_string(record.length) + " does not fit its text");
            } else {
                std::string_view text(record.text, static_cast<size_t>(record.length));
                if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
                out["text"] = Printable(text);
            }
            records.append(std::move(out));
        }
        mOut["records"] = std::move(records);
    }

    ImageFile mImage;
    uint64_t mOffset;
    Json::Value mOut{Json::objectValue};
    Json::Value mErrors{Json::arrayValue};
};

}  // namespace

Json::Value InspectCrashHistory(int fd, uint64_t file_size, uint64_t offset) {
    return Inspection(fd, file_size, offset).Run();
}

}  // namespace zelkor::tessel::image
