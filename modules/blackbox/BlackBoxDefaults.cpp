#include "modules/blackbox/BlackBoxDefaults.h"

#include <cstring>

namespace zelkor::tessel::blackbox {

void stamp_default_log_table_header(log_table_header* header) {
    header->magic = kLogTableMagic;
    header->version = kDefaultVersion;
    header->reserved0 = kDefaultReservedWord;
    header->boot_index = kDefaultBootIndex;
    header->log_content_offset = kDefaultLogContentOffset;
    header->minidump_offset = kDefaultMinidumpOffset;
    header->minidump_is_valid = 0;
    header->control_content_offset = kDefaultControlContentOffset;
}

void stamp_default_log_content_header(log_content_header* header) {
    header->magic = kLogContentMagic;
    header->version = kDefaultVersion;
    header->reserved0 = kDefaultReservedWord;
    header->log_offset = kDefaultLogOffset;
    header->dump_count = kDefaultDumpCount;
    header->log_size = kDefaultLogSize;
}

void stamp_default_control_content_header(control_content_header* header) {
    header->magic = kControlContentMagic;
    header->version = kDefaultVersion;
    header->crash_history_offset = kDefaultCrashHistoryOffset;
    header->reserved0 = kDefaultControlReserved;
    header->config_offset = kDefaultConfigOffset;
    header->hwinfo_offset = kDefaultHwinfoOffset;
}

void stamp_default_black_box_log_header(black_box_log_header* header, const char* cur_name) {
    header->magic = kSlotHeaderMagic;
    for (size_t i = 0; i < kRegionWords; ++i) header->region[i] = kDefaultRegionWords[i];
    header->kmsg_offset = kDefaultKmsgOffset;
    header->region8 = kDefaultRegion8;
    header->region9 = kDefaultRegion9;
    header->dotting_offset = kDefaultDottingOffset;
    memset(header->prev_name, 0, kLabelSize);
    strncpy(header->prev_name, kDefaultPrevName, kLabelSize - 1);
    memset(header->cur_name, 0, kLabelSize);
    strncpy(header->cur_name, cur_name, kLabelSize - 1);
    reset_dotting_fields(header);
    header->reserved132 = 0;
    header->dump_process_fail = 0;
}

void stamp_default_last_log_geometry(last_log_header* header) {
    header->slot0_offset = kDefaultSlot0Offset;
    header->reserved0 = kDefaultLastLogReserved0;
    header->reserved1 = kDefaultLastLogReserved1;
    header->blackbox_slot_distance = kDefaultBlackboxSlotDistance;
    header->minidump_slot_distance = kDefaultMinidumpSlotDistance;
}

void reset_dotting_fields(black_box_log_header* header) {
    header->dotting_magic = kDottingMagic;
    header->dotting_reserved = kDefaultDottingReserved;
    header->dotting_count = 0;
    header->boot_dotting_end = 0;
    header->ring_start = kRingNotStarted;
    header->dotting_max_len = kDefaultDottingMaxLen;
    header->boot_dotting_max = kDefaultBootDottingMax;
    header->log_dotting_write_offset = 0;
}

}  // namespace zelkor::tessel::blackbox
