// Where the dump area of an image lies, for the writer and the inspector.
#pragma once

#include <cstdint>

namespace zelkor::tessel::image {

struct DumpAreaBounds {
    uint64_t base;         // where the last-log header lies
    uint64_t limit;        // first byte past the area
    bool fromTableHeader;  // base read from a valid log_table_header
};

// In a blackbox image the area runs from the log_table_header's
// minidump_offset to its control_content_offset (the defaults when the header
// is not stamped yet, as the boot run would take them); a minidump partition
// image holds nothing else, from offset 0 to `fileLimit`.
DumpAreaBounds LocateDumpArea(int fd, bool inBlackbox, uint64_t fileLimit);

}  // namespace zelkor::tessel::image
