#include "modules/BSPLogProcessor/BlackBoxHwinfo.h"

#include "modules/BSPLogProcessor/BlackBoxIo.h"
#include "modules/BSPLogProcessor/BlackboxLayout.h"

namespace zelkor::tessel::blackbox {

HwinfoLocation read_hwinfo_location(int fd) {
    HwinfoLocation where;
    log_table_header table{};
    where.table_short_read =
            read_at(fd, 0, &table, sizeof(table)) != static_cast<ssize_t>(sizeof(table));
    where.table_valid = table.magic == kLogTableMagic;
    where.control_content_offset =
            where.table_valid ? table.control_content_offset : kDefaultControlContentOffset;
    where.boot_index = where.table_valid ? table.boot_index : kDefaultBootIndex;

    control_content_header control{};
    where.control_short_read = read_at(fd, where.control_content_offset, &control,
                                       sizeof(control)) != static_cast<ssize_t>(sizeof(control));
    where.control_valid = control.magic == kControlContentMagic;
    where.hwinfo_offset = where.control_valid ? control.hwinfo_offset : kDefaultHwinfoOffset;
    return where;
}

}  // namespace zelkor::tessel::blackbox
