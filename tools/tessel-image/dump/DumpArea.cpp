#include "tools/tessel-image/dump/DumpArea.h"

#include "modules/blackbox/BlackBoxRead.h"
#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::image {

using namespace blackbox;

DumpAreaBounds LocateDumpArea(int fd, bool inBlackbox, uint64_t fileLimit) {
    if (!inBlackbox) return {0, fileLimit, false};
    // A table header that is short or has the wrong magic reads as the
    // defaults, as the boot run takes it.
    log_table_header table{};
    const bool valid = read_log_table_header(fd, &table) == HeaderRead::kValid;
    return {table.minidump_offset, table.control_content_offset, valid};
}

}  // namespace zelkor::tessel::image
