// Reading the partition-wide blackbox headers without repairing them, for the
// code that only needs to find a region (the dump area, the crash history,
// the hardware-information region). A header whose magic is wrong reads as
// the defaults the header pass would stamp into it, so the region is found
// whether or not that pass ran first.
#pragma once

#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::blackbox {

enum class HeaderRead {
    kValid,
    kWrongMagic,  // *out holds the defaults
    kShortRead,   // *out holds the defaults
};

HeaderRead read_log_table_header(int fd, log_table_header* out);
HeaderRead read_control_content_header(int fd, uint32_t offset, control_content_header* out);

}  // namespace zelkor::tessel::blackbox
