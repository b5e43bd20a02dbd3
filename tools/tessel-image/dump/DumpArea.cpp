#include "tools/tessel-image/dump/DumpArea.h"

#include "modules/BSPLogProcessor/BlackBoxIo.h"
#include "modules/BSPLogProcessor/BlackboxLayout.h"

namespace zelkor::tessel::image {

using namespace blackbox;

DumpAreaBounds LocateDumpArea(int fd, bool inBlackbox, uint64_t fileLimit) {
    if (!inBlackbox) return {0, fileLimit, false};
    log_table_header table{};
    if (read_at(fd, 0, &table, sizeof(table)) == sizeof(table) && table.magic == kLogTableMagic) {
        return {table.minidump_offset, table.control_content_offset, true};
    }
    return {kDefaultMinidumpOffset, kDefaultControlContentOffset, false};
}

}  // namespace zelkor::tessel::image
