// Process-wide state of the minidump steps of one boot run (see Minidump.h).
#pragma once

#include <string>

#include "modules/BSPLogProcessor/BlackboxLayout.h"

namespace zelkor::tessel::Minidump {

struct RunState {
    // As read by handle_mini_lastlog_header(), or as the repair left it.
    blackbox::last_log_header lastlog{};
    // The dump being taken by handle_minidump_partition().
    blackbox::dump_header dump{};
    blackbox::dump_header_v2 dumpV2{};
    bool newCrash = false;
    std::string timeText;
};

RunState& State();

// The partition that holds the dump area and where the area starts in it.
struct DumpArea {
    const char* path;  // device path
    bool inBlackbox;
    uint32_t offset;  // blackbox minidump_offset, 0 for the minidump partition
};
DumpArea CurrentDumpArea();

// Opens the dump area's partition with `flags`; logs "open minidump partition
// fail %d(%s)\n" and gives -1 on failure.
int OpenDumpPartition(const DumpArea& area, int flags);

}  // namespace zelkor::tessel::Minidump
