// The header pass over the blackbox partition: read the four headers, repair
// the ones whose magic is wrong, publish the boot index.
//
// Callers keep their own copy of the headers (BlackBoxHeaders) next to the
// open descriptor: the boot run holds one for the whole run, the blackbox
// service one per call. Nothing is shared between them; the last writer of the
// slot header wins.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::blackbox {

constexpr char kBootIndexProperty[] = "vendor.blackbox.boot_index";

struct BlackBoxHeaders {
    log_table_header table{};
    log_content_header content{};
    black_box_log_header log{};  // the current slot's header
    control_content_header control{};

    int64_t slot_offset() const { return SlotOffset(content); }
};

enum class HeaderPassMode {
    // The boot run: repairs are written back and "vendor.blackbox.boot_index"
    // is published.
    kRepair,
    // The blackbox service: the same repairs in memory only, with "boot_kmesg"
    // as the default cur_name; short reads go to the Android log.
    kReadOnly,
};

// Runs the pass over `fd` (opened read-write for kRepair). Returns the bytes of
// the current slot header read (140), or -1 when that read came back short.
// Short reads are reported and the pass goes on with what the buffers hold.
int handle_black_box_headers(int fd, BlackBoxHeaders* headers,
                             HeaderPassMode mode = HeaderPassMode::kRepair);

// Writes the 140-byte slot header at the current slot's start; a failure is
// logged as "write black_box_log_header failed". Returns 140 or -1.
ssize_t write_black_box_log_header(int fd, const BlackBoxHeaders& headers);

}  // namespace zelkor::tessel::blackbox
