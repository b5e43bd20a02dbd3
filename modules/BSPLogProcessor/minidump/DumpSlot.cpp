// Taking one dump slot: check its header, mark it taken, walk its sections.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackBoxRead.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

using namespace blackbox;

namespace {

// Whether the dump is a v2 one that has no time of its own yet.
bool TimeMissing() {
    const RunState& state = State();
    return state.dump.version == kDumpVersion2 && state.dumpV2.time[0] == '\0';
}

// Writes `time` into the v2 extension of the dump.
bool StampTime(int fd, int64_t slot, const std::string& time) {
    RunState& state = State();
    strncpy(state.dumpV2.time, time.c_str(), sizeof(state.dumpV2.time) - 1);
    if (write_at(fd, slot + sizeof(dump_header), state.dumpV2.time, sizeof(state.dumpV2.time)) <
        0) {
        MD_LOGE("write dump time fail %d(%s)\n", errno, strerror(errno));
        return false;
    }
    return true;
}

// Marks the dump as taken, so that the next boot does not report it again,
// and stamps the run's time into a v2 dump that came without one.
bool MarkTaken(int fd, int64_t slot) {
    RunState& state = State();
    char mark[sizeof(state.dump.parse_mark)] = {};
    memcpy(mark, kParsedMark, strlen(kParsedMark));
    MD_LOGI("uos_offset=%d", static_cast<int>(kParseMarkOffset));
    if (write_at(fd, slot + kParseMarkOffset, mark, sizeof(mark)) < 0) {
        MD_LOGE("write parse mark fail %d(%s)\n", errno, strerror(errno));
        return false;
    }
    memcpy(state.dump.parse_mark, mark, sizeof(mark));
    state.newCrash = true;
    if (!platform::SetProperty(kMinidumpValidProperty, "1")) {
        MD_LOGE("minidump set is.valid 1 fail %d(%s)\n", errno, strerror(errno));
    }
    return !TimeMissing() || StampTime(fd, slot, state.timeText);
}

// The dump being taken, as the note of a pending crash names it: with its
// own time, or `stampedTime` when it has none yet.
PendingCrash DumpBeingTaken(int64_t slot, const std::string& stampedTime) {
    const RunState& state = State();
    PendingCrash dump;
    dump.inBlackbox = dump_area_in_blackbox();
    dump.slot = slot;
    dump.bootIndex = state.dumpV2.boot_index;
    dump.time = TimeMissing() ? stampedTime : state.dumpV2.time;
    return dump;
}

// Takes the newest dump: notes it as pending before it is marked, and marks
// it durably. A dump already marked is taken up again when the note says the
// run that marked it did not record its crash.
bool TakeNewestDump(int fd, int64_t slot) {
    RunState& state = State();
    if (strncmp(state.dump.parse_mark, kParsedMark, sizeof(state.dump.parse_mark)) != 0) {
        const PendingCrash dump = DumpBeingTaken(slot, state.timeText);
        write_pending_crash(dump);
        set_run_pending_crash(dump);
        if (!MarkTaken(fd, slot)) return false;
        if (fdatasync(fd) != 0) MD_LOGE("sync parse mark fail %d(%s)\n", errno, strerror(errno));
        return true;
    }
    // A run that died between the mark and the time left a taken dump without
    // its time: the note holds the time that run was stamping.
    PendingCrash pending;
    if (!read_pending_crash(&pending) || !pending.sameDump(DumpBeingTaken(slot, pending.time))) {
        return true;
    }
    MD_LOGI("dump at 0x%lx was taken by a run that did not record its crash, recording it now\n",
            static_cast<unsigned long>(slot));
    // A failed stamp is logged and costs nothing else: the run records the
    // crash with the note's time all the same.
    if (TimeMissing()) StampTime(fd, slot, pending.time);
    set_run_pending_crash(pending);
    state.newCrash = true;
    if (!platform::SetProperty(kMinidumpValidProperty, "1")) {
        MD_LOGE("minidump set is.valid 1 fail %d(%s)\n", errno, strerror(errno));
    }
    return true;
}

// How many section headers of the dump being taken can be read: none past the
// end of its slot.
uint64_t SectionHeadersToWalk(int64_t first, uint64_t slotEnd) {
    const uint32_t count = announced_section_count(State().dump.section_count);
    const uint64_t walk = section_headers_to_walk(count, first, slotEnd);
    if (walk < count) {
        MD_LOGE("dump says %u sections, only %lu fit in its slot\n", count,
                static_cast<unsigned long>(walk));
    }
    return walk;
}

void LogSlotOutsideArea(uint32_t store_index, int64_t slot, const DumpAreaSpan& area) {
    MD_LOGE("dump slot %u at 0x%lx lies outside the dump area [0x%lx, 0x%lx) of %s\n", store_index,
            static_cast<unsigned long>(slot), static_cast<unsigned long>(area.begin),
            static_cast<unsigned long>(area.end), dump_partition_path());
}

}  // namespace

bool DumpAreaSpan::holds_slot_bytes(int64_t pos, uint64_t len) const {
    if (pos < 0) return false;
    const uint64_t at = static_cast<uint64_t>(pos);
    return at >= begin + sizeof(last_log_header) && blackbox::range_fits(at, len, end);
}

DumpAreaSpan dump_area_span(bool in_blackbox, const log_table_header& table,
                            uint64_t partition_size) {
    if (!in_blackbox) return {0, partition_size};
    const uint64_t begin = table.minidump_offset;
    const uint64_t end = std::min<uint64_t>(table.control_content_offset, partition_size);
    return {begin, std::max(begin, end)};
}

uint64_t dump_slot_end(int64_t slot, uint64_t distance, uint64_t area_end) {
    if (slot >= 0 && distance != 0 && blackbox::range_fits(slot, distance, area_end)) {
        return static_cast<uint64_t>(slot) + distance;
    }
    return area_end;
}

uint32_t announced_section_count(uint32_t header_count) {
    return header_count == 0 ? kDefaultSectionCount : header_count;
}

uint64_t section_headers_to_walk(uint32_t header_count, uint64_t first, uint64_t slot_end) {
    const uint64_t room = first < slot_end ? (slot_end - first) / sizeof(section_header) : 0;
    return std::min<uint64_t>(announced_section_count(header_count), room);
}

int handle_minidump_partition(uint32_t store_index, uint32_t late_index) {
    RunState& state = State();
    int fd = OpenDumpPartition(O_RDWR);
    if (fd < 0) return -1;
    const bool inBlackbox = dump_area_in_blackbox();
    const int64_t size = partition_size(fd);
    // The slot is found with distances read from flash; it is taken (and
    // marked) only inside the dump area, never in the blackbox's log slots or
    // control block.
    log_table_header table{};
    if (inBlackbox) read_log_table_header(fd, &table);
    const DumpAreaSpan area = dump_area_span(inBlackbox, table, size < 0 ? 0 : size);
    const int64_t slot =
            dump_slot_offset(state.lastlog, table.minidump_offset, inBlackbox, store_index);
    if (!area.holds_slot_bytes(slot, sizeof(dump_header))) {
        LogSlotOutsideArea(store_index, slot, area);
        close(fd);
        return -1;
    }

    state.dump = dump_header{};
    state.dumpV2 = dump_header_v2{};
    read_at(fd, slot, &state.dump, sizeof(state.dump));
    MD_LOGI("dump_header is version 0x%x", state.dump.version);
    int64_t sections = slot + sizeof(dump_header);
    if (state.dump.version == kDumpVersion2) {
        read_at(fd, sections, &state.dumpV2, sizeof(state.dumpV2));
        sections += sizeof(dump_header_v2);
    }
    MD_PRINT("[blackbox]boot_index in minidump is: %u\n", state.dumpV2.boot_index);
    state.dumpV2.time[sizeof(state.dumpV2.time) - 1] = '\0';

    if (state.dump.signature != kRawDumpMagic) {
        MD_LOGE("The %u's minidump signature error\n", late_index);
        close(fd);
        return -1;
    }
    // Marking may write the time into the extension: it must be in the area too.
    if (!area.holds_slot_bytes(slot, sections - slot)) {
        LogSlotOutsideArea(store_index, slot, area);
        close(fd);
        return -1;
    }
    const bool taken = late_index == 0 ? TakeNewestDump(fd, slot)
                                       : strncmp(state.dump.parse_mark, kParsedMark,
                                                 sizeof(state.dump.parse_mark)) == 0 ||
                                                 MarkTaken(fd, slot);
    if (!taken) {
        close(fd);
        return -1;
    }
    if (state.dump.version == kDumpVersion2) {
        MD_PRINT("[2]timestamp=%s\n", state.dumpV2.time);
        MD_LOGI("[2]timestamp=%s", state.dumpV2.time);
    }

    const uint64_t distance = inBlackbox ? state.lastlog.blackbox_slot_distance
                                         : state.lastlog.minidump_slot_distance;
    const uint64_t walk = SectionHeadersToWalk(sections, dump_slot_end(slot, distance, area.end));
    int64_t pos = sections;
    for (uint64_t i = 0; i < walk; ++i) {
        section_header section{};
        ssize_t n = read_at(fd, pos, &section, sizeof(section));
        if (n != static_cast<ssize_t>(sizeof(section))) {
            MD_LOGE("read section header %lu fail %d(%s)\n", static_cast<unsigned long>(i), errno,
                    strerror(errno));
            break;
        }
        section.name[sizeof(section.name) - 1] = '\0';
        if (section.flags & 1u) {
            parse_log(fd, section.name, section.position, section.size, late_index);
        }
        pos += n;
    }
    close(fd);
    return 0;
}

}  // namespace zelkor::tessel::Minidump
