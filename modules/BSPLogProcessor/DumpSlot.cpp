// Taking one dump slot: check its header, mark it taken, walk its sections.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "modules/BSPLogProcessor/BlackBoxIo.h"
#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/MinidumpState.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

using namespace blackbox;

namespace {

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
    if (state.dump.version == kDumpVersion2 && state.dumpV2.time[0] == '\0') {
        strncpy(state.dumpV2.time, state.timeText.c_str(), sizeof(state.dumpV2.time) - 1);
        if (write_at(fd, slot + sizeof(dump_header), state.dumpV2.time, sizeof(state.dumpV2.time)) <
            0) {
            MD_LOGE("write dump time fail %d(%s)\n", errno, strerror(errno));
            return false;
        }
    }
    return true;
}

// How many section headers of the dump at `slot` can be read: the header's
// count (0 means 20), but none past the slot's end or the partition's.
uint64_t SectionHeadersToWalk(int64_t first, int64_t slot, uint64_t slotDistance,
                              uint64_t partitionSize) {
    uint32_t count = State().dump.section_count;
    if (count == 0) count = kDefaultSectionCount;
    uint64_t limit = partitionSize;
    if (slotDistance != 0 && blackbox::range_fits(slot, slotDistance, partitionSize)) {
        limit = slot + slotDistance;
    }
    uint64_t room = uint64_t(first) < limit ? (limit - first) / sizeof(section_header) : 0;
    if (count > room) {
        MD_LOGE("dump says %u sections, only %lu fit in its slot\n", count,
                static_cast<unsigned long>(room));
    }
    return std::min<uint64_t>(count, room);
}

}  // namespace

int handle_minidump_partition(uint32_t store_index, uint32_t late_index) {
    RunState& state = State();
    int fd = OpenDumpPartition(O_RDWR);
    if (fd < 0) return -1;
    const bool inBlackbox = dump_area_in_blackbox();
    const int64_t size = partition_size(fd);
    const int64_t slot =
            dump_slot_offset(state.lastlog, DumpAreaOffset(fd), inBlackbox, store_index);
    if (size < 0 || slot < 0 || !blackbox::range_fits(slot, sizeof(dump_header), size)) {
        MD_LOGE("dump slot %u at 0x%lx lies outside %s (0x%lx bytes)\n", store_index,
                static_cast<unsigned long>(slot), dump_partition_path(),
                static_cast<unsigned long>(size));
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
    if (strncmp(state.dump.parse_mark, kParsedMark, sizeof(state.dump.parse_mark)) != 0 &&
        !MarkTaken(fd, slot)) {
        close(fd);
        return -1;
    }
    if (state.dump.version == kDumpVersion2) {
        MD_PRINT("[2]timestamp=%s\n", state.dumpV2.time);
        MD_LOGI("[2]timestamp=%s", state.dumpV2.time);
    }

    const uint64_t distance = inBlackbox ? state.lastlog.blackbox_slot_distance
                                         : state.lastlog.minidump_slot_distance;
    const uint64_t walk = SectionHeadersToWalk(sections, slot, distance, size);
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
