// On-partition layout of the blackbox partition and of the minidump area it
// carries. Every writer (the boot run, the blackbox service, the hardware-info
// module, tessel-image) stamps the same defaults, so they all live here.
//
// All integers are little-endian on the partition; the structs are packed and
// only ever used on little-endian machines (AArch64 handsets, x86-64 hosts).
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelkor::tessel::blackbox {

constexpr const char kBlackboxPartition[] = "/dev/block/by-name/blackbox";
constexpr const char kMinidumpPartition[] = "/dev/block/by-name/minidump";

#pragma pack(push, 1)

// At partition offset 0.
struct log_table_header {
    uint64_t magic;
    uint32_t version;
    uint32_t reserved0;  // boot loader's word, carried unchanged
    uint32_t boot_index;
    uint32_t log_content_offset;
    uint32_t minidump_offset;
    uint32_t minidump_is_valid;
    uint32_t control_content_offset;
};

// At log_table_header.log_content_offset.
struct log_content_header {
    uint64_t magic;
    uint32_t version;
    uint32_t reserved0;  // carried unchanged
    uint32_t log_offset;
    uint32_t dump_count;  // number of the current slot, from 1
    uint32_t log_size;
};

constexpr size_t kLabelSize = 20;
constexpr size_t kRegionWords = 7;

// At the start of the current slot. Offsets inside are relative to the slot.
struct black_box_log_header {
    uint64_t magic;
    uint32_t region[kRegionWords];  // boot loader's region words 0-6
    uint32_t kmsg_offset;
    uint32_t region8;
    uint32_t region9;
    uint32_t dotting_offset;
    char prev_name[kLabelSize];
    char cur_name[kLabelSize];
    uint64_t dotting_magic;
    uint32_t dotting_reserved;  // offset 100, 4096 when stamped
    uint64_t dotting_count;
    uint32_t boot_dotting_end;
    int32_t ring_start;  // -1 while the boot phase is open
    uint32_t dotting_max_len;
    uint32_t boot_dotting_max;
    uint32_t log_dotting_write_offset;
    uint32_t reserved132;  // offset 132
    uint32_t dump_process_fail;
};

// At log_table_header.control_content_offset.
struct control_content_header {
    uint64_t magic;
    uint32_t version;
    uint32_t crash_history_offset;  // relative to control_content_offset
    uint32_t reserved0;             // absolute offset, never read
    uint32_t config_offset;
    uint32_t hwinfo_offset;
};

// At control_content_header.config_offset.
struct blackbox_partition_config {
    uint32_t isUartEnable;
    uint32_t isForceQpstWhenFulldump;
    uint32_t isOEMDebugUartLogLevel;
};

// At the start of the dump area (blackbox minidump_offset, or offset 0 of the
// minidump partition).
struct last_log_header {
    uint64_t magic;  // "cigamgol" or "Raw_Dmp!"
    uint32_t store_index;
    uint32_t counts;
    uint64_t slot0_offset;
    uint64_t reserved0;
    uint64_t reserved1;
    uint64_t blackbox_slot_distance;
    uint64_t minidump_slot_distance;
};

// At the start of a dump slot.
struct dump_header {
    uint64_t signature;  // "Raw_Dmp!"
    uint32_t version;
    uint32_t reserved12;
    char parse_mark[8];  // "DESRAP\0\0" once taken
    uint8_t reserved24[12];
    uint64_t reserved36;  // size given to the boot-loader log by the repair
    uint8_t reserved44[8];
    uint32_t section_count;  // 0 means 20
};

// Follows dump_header when version is kDumpVersion2.
struct dump_header_v2 {
    char time[20];
    uint32_t boot_index;
    uint32_t reserved24;
    uint32_t reserved28;
};

struct section_header {
    uint32_t flags;  // bit 0: holds data
    uint8_t reserved4[8];
    uint64_t position;
    uint64_t size;
    uint8_t reserved28[16];
    char name[20];
};

#pragma pack(pop)

static_assert(sizeof(log_table_header) == 36);
static_assert(sizeof(log_content_header) == 28);
static_assert(sizeof(black_box_log_header) == 140);
static_assert(offsetof(black_box_log_header, kmsg_offset) == 36);
static_assert(offsetof(black_box_log_header, dotting_offset) == 48);
static_assert(offsetof(black_box_log_header, dotting_magic) == 92);
static_assert(offsetof(black_box_log_header, dotting_count) == 104);
static_assert(offsetof(black_box_log_header, ring_start) == 116);
static_assert(offsetof(black_box_log_header, dump_process_fail) == 136);
static_assert(sizeof(control_content_header) == 28);
static_assert(sizeof(blackbox_partition_config) == 12);
static_assert(sizeof(last_log_header) == 56);
static_assert(sizeof(dump_header) == 56);
static_assert(offsetof(dump_header, section_count) == 52);
static_assert(sizeof(dump_header_v2) == 32);
static_assert(sizeof(section_header) == 64);
static_assert(offsetof(section_header, position) == 12);
static_assert(offsetof(section_header, name) == 44);

// Magics.
constexpr uint64_t kLogTableMagic = 0x56775AF41BCDE0F0ull;
constexpr uint64_t kLogContentMagic = 0xE99BB480DD25E1F0ull;
constexpr uint64_t kSlotHeaderMagic = 0xB5C4D2A5E936DB79ull;
constexpr uint64_t kDottingMagic = 0x7C1C918ADF6BC8CCull;
constexpr uint64_t kControlContentMagic = 0x9DBFA34954526BECull;

// The eight-character magics of the dump area, read as little-endian u64.
constexpr uint64_t CharMagic(const char (&text)[9]) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = (value << 8) | static_cast<uint8_t>(text[i]);
    return value;
}
constexpr uint64_t kLastLogMagic = CharMagic("cigamgol");
constexpr uint64_t kRawDumpMagic = CharMagic("Raw_Dmp!");
constexpr uint32_t kDumpVersion2 = 0x2000;

// Defaults stamped into a header whose magic is wrong.
constexpr uint32_t kDefaultVersion = 0x1000;
constexpr uint32_t kDefaultReservedWord = 0x400;
constexpr uint32_t kDefaultBootIndex = 1;
constexpr uint32_t kDefaultLogContentOffset = 0x400;
constexpr uint32_t kDefaultMinidumpOffset = 0x3000000;
constexpr uint32_t kDefaultControlContentOffset = 0x9800000;
constexpr uint32_t kDefaultLogOffset = 0x1000;
constexpr uint32_t kDefaultDumpCount = 1;
constexpr uint32_t kDefaultLogSize = 0x800000;
constexpr uint32_t kDefaultRegionWords[kRegionWords] = {0x1000, 0x1000, 0x1000, 0x1000,
                                                        0x4000, 0x7000, 0xA000};
constexpr uint32_t kDefaultKmsgOffset = 0x12000;
constexpr uint32_t kDefaultRegion8 = 0x112000;
constexpr uint32_t kDefaultRegion9 = 0x312000;
constexpr uint32_t kDefaultDottingOffset = 0x512000;
constexpr const char kDefaultPrevName[] = "uefi_log";
constexpr const char kDefaultCurName[] = "dotting";
constexpr const char kServiceCurName[] = "boot_kmesg";  // the blackbox service's default
constexpr uint32_t kDefaultDottingReserved = 4096;
constexpr int32_t kRingNotStarted = -1;
constexpr uint32_t kDefaultDottingMaxLen = 512;
constexpr uint32_t kDefaultBootDottingMax = 3000;
constexpr uint32_t kDefaultCrashHistoryOffset = 0x1000;
constexpr uint32_t kDefaultControlReserved = 0x9801000;
constexpr uint32_t kDefaultConfigOffset = 0x9881000;
constexpr uint32_t kDefaultHwinfoOffset = 0x9882000;

// The kernel boot log area in a slot ends where the dotting area begins.
constexpr uint32_t kKmsgAreaMax = 0x500000;
// dotting_count runs 0 .. kDottingCountWrap and then restarts at 0.
constexpr uint64_t kDottingCountWrap = 2048;

// Crash history: a header, then a ring of fixed-size records.
constexpr uint32_t kCrashHistoryHeaderSize = 1024;
constexpr uint32_t kCrashHistoryRecordSize = 1024;
constexpr uint32_t kCrashHistoryRecords = 512;

// The smallest image that holds every region of the default map, with room
// after hwinfo_offset for the hardware-info module's eighteen 346-byte
// records (6228 bytes): two 4 KiB blocks.
constexpr uint64_t kDefaultHwinfoRegionSize = 0x2000;
constexpr uint64_t kDefaultImageSize = uint64_t(kDefaultHwinfoOffset) + kDefaultHwinfoRegionSize;

// Byte offset of slot `dump_count`, computed in 32 bits and sign-extended as
// the boot loader does.
inline int64_t SlotOffset(const log_content_header& content) {
    uint32_t offset = content.log_offset + (content.dump_count - 1u) * content.log_size;
    return static_cast<int64_t>(static_cast<int32_t>(offset));
}

}  // namespace zelkor::tessel::blackbox
