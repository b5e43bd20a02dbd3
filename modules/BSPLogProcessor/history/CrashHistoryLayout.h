// On-flash layout of the crash history and of the older dump history
// ("MNDPHIST") that stands in for it when the history cannot be opened.
//
// The crash history is a 1024-byte header area followed by a ring of 512
// record slots of 1024 bytes each. It lies in the blackbox partition at
// control_content_offset + crash_history_offset, or at offset 0 of the
// "crash_history" partition on devices without a blackbox. The boot run, the
// tessel-image inspector and anything else that reads it share these structs.
//
// All integers are little-endian; the structs are packed and used only on
// little-endian machines, as the blackbox layout is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::Minidump {

constexpr char kCrashHistoryMagic[] = "TH_HSARC";  // 8 characters, no terminator on flash
constexpr uint32_t kCrashHistoryVersion = 0x1001;
constexpr uint32_t kCrashHistoryMagic2 = 0x97B86ADD;
constexpr size_t kCrashMainTypeSlots = 32;
constexpr size_t kCrashSubTypeSlots = 64;
// Longest record text; a stored length of 512 or more marks a damaged record.
constexpr size_t kCrashHistoryTextMax = 511;
// Header area plus every record slot.
constexpr uint64_t kCrashHistoryRegionSize =
        uint64_t(blackbox::kCrashHistoryHeaderSize) +
        uint64_t(blackbox::kCrashHistoryRecords) * blackbox::kCrashHistoryRecordSize;

#pragma pack(push, 1)

// At the history offset; the rest of the 1024-byte header area is unused.
struct crash_history_header {
    char magic[8];  // "TH_HSARC"
    uint32_t version;
    uint32_t record_slots;
    uint32_t current_num;    // crashes recorded so far, never wrapped
    uint32_t next_position;  // slot of the next record; may read 512 right after a full lap
    uint32_t magic2;
    uint32_t main_type_count;
    uint16_t main_type_counters[kCrashMainTypeSlots];  // index: main type
    uint32_t sub_type_count;
    uint16_t sub_type_counters[kCrashSubTypeSlots];  // index: sub type
};

// At the start of a record slot; the rest of the slot is left as it was.
struct crash_history_record {
    uint32_t main_type;
    uint32_t sub_type;
    uint64_t length;  // of the text
    uint8_t reserved16[16];
    char text[516];
};

// The dump history inside the dump area, at kMdHistoryOffset.
struct md_his_header {
    uint32_t version;
    char magic[8];  // "MNDPHIST"
    uint32_t item_count;
    uint32_t item_len_max;  // bytes of item space
    uint32_t next_off;      // absolute partition offset of the next item
    uint8_t full;           // 1 once the item space has wrapped
};

#pragma pack(pop)

static_assert(sizeof(crash_history_header) == 228);
static_assert(offsetof(crash_history_header, main_type_counters) == 32);
static_assert(offsetof(crash_history_header, sub_type_count) == 96);
static_assert(offsetof(crash_history_header, sub_type_counters) == 100);
static_assert(sizeof(crash_history_record) == 548);
static_assert(offsetof(crash_history_record, text) == 32);
static_assert(sizeof(md_his_header) == 25);
static_assert(offsetof(md_his_header, next_off) == 20);

// Whether `header` carries the history's magic; nothing else in it can be
// believed without.
inline bool crash_history_magic_ok(const crash_history_header& header) {
    return memcmp(header.magic, kCrashHistoryMagic, sizeof(header.magic)) == 0;
}

// Offset of record slot `slot` from the history offset.
constexpr uint64_t crash_history_slot_offset(uint32_t slot) {
    return uint64_t(blackbox::kCrashHistoryHeaderSize) +
           uint64_t(slot) * blackbox::kCrashHistoryRecordSize;
}

// The slots holding records, oldest first. Before the first lap these are
// 0 .. current_num - 1; once current_num reaches 512 the oldest record sits
// in the slot the next crash overwrites (current_num mod 512) and the order
// runs from there to 511 and round from 0.
inline std::vector<uint32_t> crash_history_ring_order(uint32_t current_num) {
    const uint32_t slots = blackbox::kCrashHistoryRecords;
    std::vector<uint32_t> order;
    if (current_num < slots) {
        for (uint32_t slot = 0; slot < current_num; ++slot) order.push_back(slot);
        return order;
    }
    const uint32_t oldest = current_num % slots;
    for (uint32_t i = 0; i < slots; ++i) order.push_back((oldest + i) % slots);
    return order;
}

// The dump history ("MNDPHIST"): a 25-byte header, then item text from
// kMdHistoryItemsOffset, kMdHistoryItemSpace bytes of it, overwritten from
// the start once full.
constexpr char kMdHistoryMagic[] = "MNDPHIST";
constexpr uint32_t kMdHistoryVersion = 4096;
constexpr uint32_t kMdHistoryOffset = 0x4000000;
constexpr uint32_t kMdHistoryItemsOffset = 0x4000400;
constexpr uint32_t kMdHistoryItemSpace = 15360;
constexpr uint32_t kMdHistoryItemsEnd = kMdHistoryItemsOffset + kMdHistoryItemSpace;
// Longest item, its "N) " prefix and line end included.
constexpr size_t kMdHistoryItemMax = 512;

}  // namespace zelkor::tessel::Minidump
