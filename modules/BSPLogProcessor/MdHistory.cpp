// "/data/vendor/diag/md_history": the crash history as one readable file.
#include <android-base/file.h>
#include <fcntl.h>

#include <cstring>

#include "modules/BSPLogProcessor/BlackBoxIo.h"
#include "modules/BSPLogProcessor/CrashHistory.h"
#include "modules/BSPLogProcessor/DiagFiles.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"

namespace zelkor::tessel::Minidump {

namespace {

// Appends the records' texts to `out` in ring order; false when writing the
// file failed.
bool copy_records(const CrashHistoryPartition& history, const crash_history_header& header,
                  int out) {
    for (uint32_t slot : crash_history_ring_order(header.current_num)) {
        crash_history_record record{};
        if (blackbox::read_at(history.fd, history.offset + crash_history_slot_offset(slot), &record,
                              sizeof(record)) != sizeof(record)) {
            MD_LOGE("crash_history: read record %u fail %d(%s)\n", slot, errno, strerror(errno));
            continue;
        }
        // A length that does not fit the record's text is not a record.
        if (record.length > kCrashHistoryTextMax) {
            MD_LOGE("crash_history: record %u has length %llu, skipped\n", slot,
                    static_cast<unsigned long long>(record.length));
            continue;
        }
        if (!android::base::WriteFully(out, record.text, record.length)) {
            MD_LOGE("write %s fail %d(%s)\n", kMdHistoryFile, errno, strerror(errno));
            return false;
        }
    }
    return true;
}

}  // namespace

int sync_to_file_md_history(const CrashHistoryPartition& history) {
    int out = OpenDiagFile(kMdHistoryFile, O_TRUNC);
    if (out < 0) return -1;
    bool ok = true;
    crash_history_header header{};
    if (blackbox::read_at(history.fd, history.offset, &header, sizeof(header)) == sizeof(header) &&
        memcmp(header.magic, kCrashHistoryMagic, sizeof(header.magic)) == 0) {
        ok = copy_records(history, header, out);
    }
    CloseDiagFile(out, kMdHistoryFile);
    return ok ? 0 : -1;
}

}  // namespace zelkor::tessel::Minidump
