// Appending one crash to the ring of the crash history.
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

// A history that was never written (or is damaged beyond its magic) starts
// over empty.
void init_header(crash_history_header* header) {
    *header = crash_history_header{};
    memcpy(header->magic, kCrashHistoryMagic, sizeof(header->magic));
    header->version = kCrashHistoryVersion;
    header->record_slots = blackbox::kCrashHistoryRecords;
    header->magic2 = kCrashHistoryMagic2;
    header->main_type_count = CRASH_MAIN_TYPE_COUNT;
    header->sub_type_count = CRASH_TYPE_COUNT;
}

void count_crash(crash_history_header* header, uint32_t main_type, uint32_t sub_type) {
    header->main_type_count = CRASH_MAIN_TYPE_COUNT;
    header->sub_type_count = CRASH_TYPE_COUNT;
    if (main_type >= kCrashMainTypeSlots) {
        puts("crash_history: crash main type overflowed ");
    } else {
        ++header->main_type_counters[main_type];
    }
    if (sub_type >= kCrashSubTypeSlots) {
        puts("crash_history: crash type overflowed ");
    } else {
        ++header->sub_type_counters[sub_type];
    }
}

}  // namespace

int write_to_partition_crash_history(const CrashHistoryPartition& history,
                                     crash_main_type_enum main_type, crash_type_enum sub_type,
                                     const std::string& reason, const std::string& detail) {
    if (sub_type == CRASH_NONE) {
        puts("crash_history: no crash occur, no need update crash_history partition ");
        return 0;
    }
    puts("crash_history: find crash, update crash_history partition ");

    crash_history_header header{};
    if (!history.holds(0, sizeof(header), "header")) return -1;
    if (blackbox::read_at(history.fd, history.offset, &header, sizeof(header)) != sizeof(header)) {
        MD_LOGE("crash_history: read header fail %d(%s)\n", errno, strerror(errno));
        return -1;
    }
    // A wrong magic starts the history over; a wrong second magic alone is
    // only restored.
    if (!crash_history_magic_ok(header)) init_header(&header);
    header.magic2 = kCrashHistoryMagic2;
    // A crash taken up again may have been recorded already by the run that
    // took it: its count then lies past the one noted before the write.
    PendingCrash* pending = run_pending_crash();
    if (pending != nullptr) {
        if (pending->historyBefore >= 0 && header.current_num > pending->historyBefore) {
            MD_LOGI("crash_history: crash %u already recorded\n", header.current_num);
            return 0;
        }
        pending->historyBefore = header.current_num;
        write_pending_crash(*pending);
    }
    MD_PRINT(
            "crash_history: header info before write: version = 0x%x, current_num = %d, "
            "next_position = %d \n",
            header.version, header.current_num, header.next_position);

    ++header.current_num;
    const std::string text = format_crash_history_text(history, header.current_num, reason, detail);
    // Also takes a position damaged on flash back into the ring.
    if (header.next_position >= blackbox::kCrashHistoryRecords) header.next_position = 0;
    MD_PRINT("crash_history: current_num = %d, reason = %s, detail = %s \n", header.current_num,
             reason.c_str(), detail.c_str());

    crash_history_record record{};
    record.main_type = main_type;
    record.sub_type = sub_type;
    record.length = text.size();
    memcpy(record.text, text.data(), text.size());
    // A record whose slot lies outside a small partition is counted but not
    // written.
    const uint64_t slot = crash_history_slot_offset(header.next_position);
    if (history.holds(slot, sizeof(record), "record") &&
        blackbox::write_at(history.fd, history.offset + slot, &record, sizeof(record)) < 0) {
        MD_LOGE("crash_history: write record %u fail %d(%s)\n", header.next_position, errno,
                strerror(errno));
        return -1;
    }

    count_crash(&header, main_type, sub_type);
    ++header.next_position;
    if (blackbox::write_at(history.fd, history.offset, &header, sizeof(header)) < 0) {
        MD_LOGE("crash_history: write header fail %d(%s)\n", errno, strerror(errno));
        return -1;
    }
    // On flash before anything counts it as recorded.
    if (fdatasync(history.fd) != 0) {
        MD_LOGE("crash_history: sync fail %d(%s)\n", errno, strerror(errno));
    }
    if (pending != nullptr) clear_pending_crash();
    return 0;
}

}  // namespace zelkor::tessel::Minidump
