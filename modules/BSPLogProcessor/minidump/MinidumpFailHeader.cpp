// Repair after the boot loader reported that it could not finish writing a
// dump (dump_process_fail in the blackbox slot header). The headers are
// rebuilt so that the partial dump reads as a dump with one section, the
// boot loader's log, copied from the blackbox slot.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "modules/blackbox/BlackBoxDefaults.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

using namespace blackbox;

namespace {

// The section the repair announces: the boot loader's log, 6 MiB, of which
// only the first 13000 bytes are copied from the blackbox slot.
constexpr char kXblSectionName[] = "md_XBL_LOG";
constexpr uint64_t kXblSectionSize = 0x600000;
constexpr size_t kXblCopySize = 13000;
constexpr uint32_t kSlotLogBack = 4096;

// Where the repaired dump lies: with the blackbox formula, whatever the
// partition.
int64_t RepairSlot(const BlackBoxHeaders& blackbox) {
    return dump_slot_offset(State().lastlog, blackbox.table.minidump_offset, true,
                            State().lastlog.store_index);
}

// Copies the boot loader's log of the current blackbox slot into the repaired
// dump, right behind its one section header.
int generate_xbl_ramdump_log(int fd, int64_t dataOffset, const BlackBoxHeaders& blackbox) {
    int source = OpenDumpPartition(O_RDWR);
    if (source < 0) return -1;
    MD_LOGE("begin parser generate_xbl_ramdump_log");
    MD_PRINT("begin parser generate_xbl_ramdump_log\n");
    int result = -1;
    auto* buffer = static_cast<char*>(calloc(1, kXblSectionSize));
    if (buffer == nullptr) {
        MD_LOGE("generate_xbl_ramdump_log malloc XBL_RAMDUMP_LOG buffer err=%d(%s)", errno,
                strerror(errno));
    } else {
        const log_content_header& c = blackbox.content;
        uint32_t from = blackbox.table.log_content_offset + c.log_offset +
                        (c.dump_count - 1u) * c.log_size + blackbox.log.region[4] - kSlotLogBack;
        if (read_at(source, from, buffer, kXblCopySize) < 0) {
            MD_LOGE("read blackbox_fd with offset to buffer err=%d(%s)", errno, strerror(errno));
        } else if (write_at(fd, dataOffset, buffer, kXblCopySize) < 0) {
            MD_LOGE("write buffer with section_offset to minidump Partition err=%d(%s)", errno,
                    strerror(errno));
        } else {
            MD_LOGE("finish parser generate_xbl_ramdump_log");
            MD_PRINT("finish parser generate_xbl_ramdump_log\n");
            result = 0;
        }
        free(buffer);
    }
    close(source);
    return result;
}

}  // namespace

int headle_laster_log_fail_header(int fd, const BlackBoxHeaders& blackbox) {
    last_log_header& header = State().lastlog;
    const int64_t at = blackbox.table.minidump_offset;
    if (read_at(fd, at, &header, sizeof(header)) != sizeof(header)) {
        MD_LOGE("[headle_laster_log_fail_header]read laster log header fail %d(%s)\n", errno,
                strerror(errno));
        return -1;
    }
    if (header.magic == kLastLogMagic) return 0;
    // The store index and counts stay as the boot loader left them.
    header.magic = kLastLogMagic;
    stamp_default_last_log_geometry(&header);
    if (write_at(fd, at, &header, sizeof(header)) < 0) {
        MD_LOGE("[headle_laster_log_fail_header]write laster log header fail %d(%s)\n", errno,
                strerror(errno));
        return -1;
    }
    return 0;
}

int handle_dump_fail_header(int fd, const BlackBoxHeaders& blackbox) {
    const int64_t slot = RepairSlot(blackbox);
    const int64_t sectionAt = slot + sizeof(dump_header) + sizeof(dump_header_v2);
    const int64_t dataAt = sectionAt + sizeof(section_header);
    // The store index comes from flash as it is (all ones when erased): the
    // headers and the copied log are written only when all of them land inside
    // the dump area, never over the blackbox's headers, log slots or crash
    // history. A slot outside is refused like a failed dump header write.
    const int64_t size = partition_size(fd);
    const DumpAreaSpan area =
            dump_area_span(dump_area_in_blackbox(), blackbox.table, size < 0 ? 0 : size);
    if (!area.holds_slot_bytes(slot, dataAt - slot + kXblCopySize)) {
        MD_LOGE("[handle_minidump_fail_header]dump slot at 0x%lx outside the dump area [0x%lx, "
                "0x%lx)\n",
                static_cast<unsigned long>(slot), static_cast<unsigned long>(area.begin),
                static_cast<unsigned long>(area.end));
        MD_LOGE("[handle_minidump_fail_header]write dump_header  err=%d(%s)\n", ERANGE,
                strerror(ERANGE));
        errno = ERANGE;  // for the caller's log line
        return -1;
    }

    dump_header dump{};
    read_at(fd, slot, &dump, sizeof(dump));
    dump.signature = kRawDumpMagic;
    MD_PRINT(" memcpy dump_header.signature handle_minidump_fail_header ret is %.8s!\n",
             reinterpret_cast<const char*>(&dump.signature));
    dump.version = kDumpVersion2;
    memset(dump.parse_mark, 0, sizeof(dump.parse_mark));  // not taken yet
    dump.reserved36 = kXblSectionSize;
    dump.section_count = 1;
    if (write_at(fd, slot, &dump, sizeof(dump)) < 0) {
        MD_LOGE("[handle_minidump_fail_header]write dump_header  err=%d(%s)\n", errno,
                strerror(errno));
        return -1;
    }

    dump_header_v2 v2{};
    read_at(fd, slot + sizeof(dump), &v2, sizeof(v2));
    v2.boot_index = blackbox.log.reserved132;
    v2.reserved24 = blackbox.log.dump_process_fail;
    if (write_at(fd, slot + sizeof(dump), &v2, sizeof(v2)) < 0) {
        MD_LOGE("[handle_minidump_fail_header]write dump_header_v2  err=%d(%s)\n", errno,
                strerror(errno));
        return -1;
    }

    section_header section{};
    read_at(fd, sectionAt, &section, sizeof(section));
    section.flags = 1;
    memset(section.name, 0, sizeof(section.name));
    memcpy(section.name, kXblSectionName, sizeof(kXblSectionName));
    section.size = kXblSectionSize;
    section.position = static_cast<uint64_t>(dataAt);
    if (write_at(fd, sectionAt, &section, sizeof(section)) < 0) {
        MD_LOGE("[handle_minidump_fail_header]write section_header  err=%d(%s)\n", errno,
                strerror(errno));
        return -1;
    }

    if (generate_xbl_ramdump_log(fd, dataAt, blackbox) < 0) {
        MD_LOGE("[handle_minidump_fail_header]generate xbl ramdump log  err=%d(%s)\n", errno,
                strerror(errno));
        return -1;
    }
    return 0;
}

int update_lastlog_header(int fd, const BlackBoxHeaders& blackbox) {
    last_log_header& header = State().lastlog;
    const int64_t at = blackbox.table.minidump_offset;
    if (read_at(fd, at, &header, sizeof(header)) != sizeof(header)) {
        MD_LOGE("[update_lastlog_header]read lastlog_header  err=%d(%s)\n", errno, strerror(errno));
        return -1;
    }
    if (header.store_index == kMaxStoredDumps - 1) {
        header.store_index = 0;
        header.counts = kMaxStoredDumps;
    } else {
        header.store_index++;
        // The count follows the index until the ring is full.
        if (header.counts <= kMaxStoredDumps - 1) header.counts = header.store_index;
    }
    if (write_at(fd, at, &header, sizeof(header)) < 0) {
        MD_LOGE("[update_lastlog_header]write lastlog_header  err=%d(%s)\n", errno,
                strerror(errno));
        return -1;
    }
    return 0;
}

int handle_minidump_fail_header(const BlackBoxHeaders& blackbox) {
    int fd = open(platform::DevicePath(dump_partition_path()).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        MD_LOGE("open blackbox partition fail %d(%s)\n", errno, strerror(errno));
        return -1;
    }
    MD_PRINT("[blackbox]black_box_log_header.dump_process_fail is %u\n",
             blackbox.log.dump_process_fail);
    int result = headle_laster_log_fail_header(fd, blackbox);
    if (result < 0) {
        MD_LOGE("headle laster log header fail %d(%s)\n", errno, strerror(errno));
    } else if ((result = handle_dump_fail_header(fd, blackbox)) < 0) {
        MD_LOGE("handle dump fail header fail %d(%s)\n", errno, strerror(errno));
    } else if ((result = update_lastlog_header(fd, blackbox)) < 0) {
        MD_LOGE("update lastlog header fail %d(%s)\n", errno, strerror(errno));
    }
    close(fd);
    return result;
}

}  // namespace zelkor::tessel::Minidump
