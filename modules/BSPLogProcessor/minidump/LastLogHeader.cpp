// The last-log header at the start of the dump area, and the walk over the
// dumps it says are stored.
#include <fcntl.h>
#include <unistd.h>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

using namespace blackbox;

int handle_mini_lastlog_header() {
    last_log_header& header = State().lastlog;
    header = last_log_header{};
    int fd = OpenDumpPartition(O_RDONLY);
    if (fd < 0) return -1;
    ssize_t n = read_at(fd, DumpAreaOffset(fd), &header, sizeof(header));
    close(fd);
    if (n != static_cast<ssize_t>(sizeof(header))) {
        MD_PRINT("Read file %s error!!!\n", dump_partition_path());
        return -1;
    }
    if (header.magic != kLastLogMagic) {
        MD_LOGI("lastlog magic %lu , no match %lu\n", static_cast<unsigned long>(header.magic),
                static_cast<unsigned long>(kLastLogMagic));
        return header.magic == kRawDumpMagic ? 1 : -1;
    }
    if (header.store_index >= kMaxStoredDumps || header.counts > kMaxStoredDumps) {
        MD_LOGE("lastlog index:%u , counts:%u error", header.store_index, header.counts);
        return -1;
    }
    return 0;
}

void handle_stored_minidumps() {
    const last_log_header& header = State().lastlog;
    // A raw dump's header is not checked on reading; bound the walk here.
    if (header.store_index >= kMaxStoredDumps || header.counts > kMaxStoredDumps) {
        MD_LOGE("lastlog index:%u , counts:%u error", header.store_index, header.counts);
        return;
    }
    uint32_t store = header.store_index < 1 ? kMaxStoredDumps - 1 : header.store_index - 1;
    for (uint32_t late = 0; late < header.counts; ++late) {
        MD_LOGI("store_index %d, late_index %d", static_cast<int>(store), static_cast<int>(late));
        handle_minidump_partition(store, late);
        store = store == 0 ? kMaxStoredDumps - 1 : store - 1;
    }
}

}  // namespace zelkor::tessel::Minidump
