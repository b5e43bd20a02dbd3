#include "modules/blackbox/BlackBoxHwinfo.h"

#include "modules/blackbox/BlackBoxRead.h"

namespace zelkor::tessel::blackbox {

HwinfoLocation read_hwinfo_location(int fd) {
    HwinfoLocation where;
    log_table_header table;
    const HeaderRead tableRead = read_log_table_header(fd, &table);
    where.table_short_read = tableRead == HeaderRead::kShortRead;
    where.table_valid = tableRead == HeaderRead::kValid;
    where.control_content_offset = table.control_content_offset;
    where.boot_index = table.boot_index;

    control_content_header control;
    const HeaderRead controlRead =
            read_control_content_header(fd, where.control_content_offset, &control);
    where.control_short_read = controlRead == HeaderRead::kShortRead;
    where.control_valid = controlRead == HeaderRead::kValid;
    where.hwinfo_offset = control.hwinfo_offset;
    return where;
}

}  // namespace zelkor::tessel::blackbox
