// Process-wide state of the minidump steps of one boot run (see Minidump.h).
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::Minidump {

// What the last finished compression of the run read and wrote.
struct CompressedDump {
    bool valid = false;
    dev_t inDev = 0;
    ino_t inIno = 0;
    dev_t inRdev = 0;
    int64_t size = 0;
    uint32_t adler = 0;  // of the raw dump's bytes, as the stream's trailer holds it
    dev_t outDev = 0;
    ino_t outIno = 0;
    off_t outSize = 0;
    struct timespec outMtime {};
};

struct RunState {
    // As read by handle_mini_lastlog_header(), or as the repair left it.
    blackbox::last_log_header lastlog{};
    // The dump being taken by handle_minidump_partition().
    blackbox::dump_header dump{};
    blackbox::dump_header_v2 dumpV2{};
    bool newCrash = false;
    std::string timeText;
    CompressedDump compressed;
};

RunState& State();

// Opens dump_partition_path() with `flags`; logs "open minidump partition
// fail %d(%s)\n" and gives -1 on failure.
int OpenDumpPartition(int flags);

// Where the dump area starts in the open dump partition `fd`: the blackbox
// minidump_offset (the default one while the log table header is not stamped)
// or 0 in the minidump partition.
uint32_t DumpAreaOffset(int fd);

}  // namespace zelkor::tessel::Minidump
