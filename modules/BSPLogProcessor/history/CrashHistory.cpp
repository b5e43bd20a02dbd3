// Where the crash history lies, and opening it.
#include "modules/BSPLogProcessor/history/CrashHistory.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackBoxRead.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

namespace {

// The history's place and the boot counter, from the blackbox headers. The
// header pass of this run has repaired them already; a header that is still
// wrong reads as the defaults that pass stamps, so both agree on the place.
void locate_in_blackbox(CrashHistoryPartition* history) {
    blackbox::log_table_header table;
    blackbox::read_log_table_header(history->fd, &table);
    blackbox::control_content_header control;
    blackbox::read_control_content_header(history->fd, table.control_content_offset, &control);
    history->offset = int64_t(table.control_content_offset) + control.crash_history_offset;
    history->boot_index = table.boot_index;
}

}  // namespace

bool open_crash_history(CrashHistoryPartition* history) {
    *history = CrashHistoryPartition{};
    history->in_blackbox = dump_area_in_blackbox();
    history->path = history->in_blackbox ? blackbox::kBlackboxPartition : kCrashHistoryPartition;
    history->fd = open(platform::DevicePath(history->path).c_str(), O_RDWR | O_CLOEXEC);
    if (history->fd < 0) {
        const int error = errno;
        MD_PRINT("open crash_history partition fail %d(%s)\n", error, strerror(error));
        errno = error;
        return false;
    }
    if (history->in_blackbox) locate_in_blackbox(history);
    MD_PRINT("g_crash_history_logic_offset:%d\n", static_cast<int>(history->offset));

    const int64_t size = blackbox::partition_size(history->fd);
    if (size < 0) {
        const int error = errno;
        MD_LOGE("crash history: size of %s unknown %d(%s)\n", history->path, error,
                strerror(error));
        close_crash_history(history);
        errno = error;
        return false;
    }
    history->size = static_cast<uint64_t>(size);
    // The offsets come from flash, and a small partition may not hold the
    // whole ring: each read and write is checked against the end instead.
    if (!blackbox::range_fits(static_cast<uint64_t>(history->offset), kCrashHistoryRegionSize,
                              history->size)) {
        MD_LOGE("crash history at 0x%llx does not fit whole in %s (0x%llx bytes)\n",
                static_cast<unsigned long long>(history->offset), history->path,
                static_cast<unsigned long long>(size));
    }
    return true;
}

bool CrashHistoryPartition::holds(uint64_t at, uint64_t len, const char* what) const {
    if (offset >= 0 && blackbox::range_fits(static_cast<uint64_t>(offset) + at, len, size)) {
        return true;
    }
    MD_LOGE("crash_history: %s at 0x%llx lies outside %s (0x%llx bytes)\n", what,
            static_cast<unsigned long long>(offset) + at, path,
            static_cast<unsigned long long>(size));
    return false;
}

void close_crash_history(CrashHistoryPartition* history) {
    if (history->fd >= 0) close(history->fd);
    history->fd = -1;
}

bool check_crash_history() {
    CrashHistoryPartition history;
    if (!open_crash_history(&history)) {
        const int error = errno;
        MD_LOGE("check crash history partition fail %d(%s)\n", error, strerror(error));
        return false;
    }
    close_crash_history(&history);
    return true;
}

}  // namespace zelkor::tessel::Minidump
