// Where the hardware-information region lies, for the hardware-info module.
// Only reads: the headers belong to the boot run's pass, so wrong magics are
// replaced by the defaults in memory and never written back.
#pragma once

#include <cstdint>

namespace zelkor::tessel::blackbox {

struct HwinfoLocation {
    bool table_short_read = false;  // log_table_header came back short
    bool table_valid = false;       // its magic was right
    bool control_short_read = false;
    bool control_valid = false;
    uint32_t control_content_offset = 0;
    uint32_t boot_index = 0;
    uint32_t hwinfo_offset = 0;
};

// The caller logs what the flags say in its own words.
HwinfoLocation read_hwinfo_location(int fd);

}  // namespace zelkor::tessel::blackbox
