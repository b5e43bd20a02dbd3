// Which partition holds the dump area, and the blackbox fields that place it.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpIo.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/MinidumpState.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

using namespace blackbox;

namespace {

enum class BlackboxChoice { kNotTried, kPresent, kAbsent };

BlackboxChoice& Choice() {
    static BlackboxChoice choice = BlackboxChoice::kNotTried;
    return choice;
}

// A header whose magic is wrong reads as what the blackbox header pass stamps
// into it, so the dump code sees the same numbers whether or not that pass ran
// first.
void DefaultTable(log_table_header& t) {
    t.magic = kLogTableMagic;
    t.version = kDefaultVersion;
    t.reserved0 = kDefaultReservedWord;
    t.boot_index = kDefaultBootIndex;
    t.log_content_offset = kDefaultLogContentOffset;
    t.minidump_offset = kDefaultMinidumpOffset;
    t.minidump_is_valid = 0;
    t.control_content_offset = kDefaultControlContentOffset;
}

void DefaultContent(log_content_header& c) {
    c.magic = kLogContentMagic;
    c.version = kDefaultVersion;
    c.reserved0 = kDefaultReservedWord;
    c.log_offset = kDefaultLogOffset;
    c.dump_count = kDefaultDumpCount;
    c.log_size = kDefaultLogSize;
}

void DefaultSlot(black_box_log_header& s) {
    s = black_box_log_header{};
    s.magic = kSlotHeaderMagic;
    memcpy(s.region, kDefaultRegionWords, sizeof(s.region));
    s.kmsg_offset = kDefaultKmsgOffset;
    s.region8 = kDefaultRegion8;
    s.region9 = kDefaultRegion9;
    s.dotting_offset = kDefaultDottingOffset;
    memcpy(s.prev_name, kDefaultPrevName, sizeof(kDefaultPrevName));
    memcpy(s.cur_name, kDefaultCurName, sizeof(kDefaultCurName));
    s.dotting_magic = kDottingMagic;
    s.dotting_reserved = kDefaultDottingReserved;
    s.ring_start = kRingNotStarted;
    s.dotting_max_len = kDefaultDottingMaxLen;
    s.boot_dotting_max = kDefaultBootDottingMax;
}

}  // namespace

bool dump_area_in_blackbox() {
    if (Choice() == BlackboxChoice::kNotTried) {
        int fd = open(platform::DevicePath(kBlackboxPartition).c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            MD_LOGE("check blackbox partition fail %d(%s)\n", errno, strerror(errno));
            Choice() = BlackboxChoice::kAbsent;
        } else {
            close(fd);
            Choice() = BlackboxChoice::kPresent;
        }
    }
    return Choice() == BlackboxChoice::kPresent;
}

void reset_dump_partition_choice() {
    Choice() = BlackboxChoice::kNotTried;
}

const char* dump_partition_path() {
    return dump_area_in_blackbox() ? kBlackboxPartition : kMinidumpPartition;
}

BlackboxHeaders read_blackbox_headers() {
    BlackboxHeaders out;
    if (!dump_area_in_blackbox()) return out;
    int fd = open(platform::DevicePath(kBlackboxPartition).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        MD_LOGE("open blackbox partition fail %d(%s)\n", errno, strerror(errno));
        return out;
    }
    out.present = true;
    if (ReadAt(fd, 0, &out.table, sizeof(out.table)) != sizeof(out.table) ||
        out.table.magic != kLogTableMagic) {
        DefaultTable(out.table);
    }
    if (ReadAt(fd, out.table.log_content_offset, &out.content, sizeof(out.content)) !=
                sizeof(out.content) ||
        out.content.magic != kLogContentMagic) {
        DefaultContent(out.content);
    }
    int64_t slot = SlotOffset(out.content);
    if (slot < 0 || ReadAt(fd, slot, &out.slot, sizeof(out.slot)) != sizeof(out.slot) ||
        out.slot.magic != kSlotHeaderMagic) {
        DefaultSlot(out.slot);
    }
    close(fd);
    return out;
}

int64_t dump_slot_offset(const last_log_header& header, uint32_t area_offset, bool in_blackbox,
                         uint32_t index) {
    uint64_t sum = in_blackbox
                           ? header.slot0_offset + area_offset +
                                     uint64_t(index) * header.blackbox_slot_distance
                           : header.slot0_offset + uint64_t(index) * header.minidump_slot_distance;
    return static_cast<int64_t>(static_cast<int32_t>(static_cast<uint32_t>(sum)));
}

DumpArea CurrentDumpArea() {
    if (dump_area_in_blackbox()) {
        return {kBlackboxPartition, true, read_blackbox_headers().table.minidump_offset};
    }
    return {kMinidumpPartition, false, 0};
}

int OpenDumpPartition(const DumpArea& area, int flags) {
    int fd = open(platform::DevicePath(area.path).c_str(), flags | O_CLOEXEC);
    if (fd < 0) MD_LOGE("open minidump partition fail %d(%s)\n", errno, strerror(errno));
    return fd;
}

}  // namespace zelkor::tessel::Minidump
