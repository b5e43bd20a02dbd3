// "/data/vendor/diag/md_history": the crash history as one readable file.
#include <android-base/file.h>
#include <fcntl.h>

#include <cstring>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/minidump/DiagFiles.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

// The records' texts in ring order.
std::string record_texts(const CrashHistoryPartition& history, const crash_history_header& header) {
    std::string text;
    for (uint32_t slot : crash_history_ring_order(header.current_num)) {
        crash_history_record record{};
        const uint64_t at = crash_history_slot_offset(slot);
        if (!history.holds(at, sizeof(record), "record")) continue;
        if (blackbox::read_at(history.fd, history.offset + at, &record, sizeof(record)) !=
            sizeof(record)) {
            MD_LOGE("crash_history: read record %u fail %d(%s)\n", slot, errno, strerror(errno));
            continue;
        }
        // A length that does not fit the record's text is not a record.
        if (record.length > kCrashHistoryTextMax) {
            MD_LOGE("crash_history: record %u has length %llu, skipped\n", slot,
                    static_cast<unsigned long long>(record.length));
            continue;
        }
        text.append(record.text, record.length);
    }
    return text;
}

}  // namespace

bool write_md_history_file(const std::string& text) {
    int out = OpenDiagFile(kMdHistoryFile, O_TRUNC);
    if (out < 0) return false;
    const bool ok = android::base::WriteFully(out, text.data(), text.size());
    if (!ok) MD_LOGE("write %s fail %d(%s)\n", kMdHistoryFile, errno, strerror(errno));
    CloseDiagFile(out, kMdHistoryFile);
    return ok;
}

int sync_to_file_md_history(const CrashHistoryPartition& history) {
    std::string text;
    crash_history_header header{};
    if (history.holds(0, sizeof(header), "header") &&
        blackbox::read_at(history.fd, history.offset, &header, sizeof(header)) == sizeof(header) &&
        crash_history_magic_ok(header)) {
        text = record_texts(history, header);
    }
    return write_md_history_file(text) ? 0 : -1;
}

}  // namespace zelkor::tessel::Minidump
