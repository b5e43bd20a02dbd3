#include "modules/blackbox/BlackBoxHeaders.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "modules/blackbox/BlackBoxDefaults.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackBoxLog.h"
#include "platform/Properties.h"

namespace zelkor::tessel::blackbox {
namespace {

// Reads a whole header; a short read leaves the tail of `header` as it was.
bool read_header(int fd, int64_t offset, void* header, size_t size) {
    return read_at(fd, offset, header, size) == static_cast<ssize_t>(size);
}

ssize_t write_header(int fd, int64_t offset, const void* header, size_t size, const char* name) {
    ssize_t written = write_at(fd, offset, header, size);
    if (written < 0) BB_LOGE("write %s failed %d(%s)\n", name, errno, strerror(errno));
    return written;
}

// The boot run prints its short reads; the service logs them, and names the
// slot header in its own words.
void report_short_read(HeaderPassMode mode, const char* text, const char* service_text = nullptr) {
    if (mode == HeaderPassMode::kRepair) {
        puts(text);
    } else {
        LOG(ERROR) << (service_text != nullptr ? service_text : text);
    }
}

// Steps of the pass for the table, content and control headers: a short read
// is reported and the buffer taken as it is; a wrong magic gets the defaults,
// written back at the same place when repairing.
template <typename Header>
void pass_header(int fd, int64_t offset, const char* name, uint64_t magic, void (*stamp)(Header*),
                 Header* header, HeaderPassMode mode) {
    if (!read_header(fd, offset, header, sizeof(*header))) {
        report_short_read(mode, (std::string("Read ") + name + " error!!!").c_str());
    }
    if (header->magic == magic) return;
    stamp(header);
    if (mode == HeaderPassMode::kRepair) write_header(fd, offset, header, sizeof(*header), name);
}

void publish_boot_index(uint32_t boot_index) {
    if (!platform::SetProperty(kBootIndexProperty, android::base::StringPrintf("%u", boot_index))) {
        BB_LOGE("minidump set boot_index fail %d(%s)\n", errno, strerror(errno));
    }
}

}  // namespace

int handle_black_box_headers(int fd, BlackBoxHeaders* headers, HeaderPassMode mode) {
    const bool repair = mode == HeaderPassMode::kRepair;

    const log_table_header& table = headers->table;
    pass_header(fd, 0, "log_table_header", kLogTableMagic, stamp_default_log_table_header,
                &headers->table, mode);
    printf("log_table_header: header info before write: version = %d, minidump_is_valid = 0x%x, "
           "boot_index = %d \n",
           table.version, table.minidump_is_valid, table.boot_index);
    if (repair) publish_boot_index(table.boot_index);

    const log_content_header& content = headers->content;
    pass_header(fd, table.log_content_offset, "log_content_header", kLogContentMagic,
                stamp_default_log_content_header, &headers->content, mode);
    printf("log_content_header: header info before write: version = 0x%x, dump_count = %d \n",
           content.version, content.dump_count);

    const int64_t slot = headers->slot_offset();
    black_box_log_header& log = headers->log;
    int result = sizeof(log);
    if (!read_header(fd, slot, &log, sizeof(log))) {
        report_short_read(mode, "Read log_content_header error!!!", "Read log_header error!!!");
        result = -1;
    }
    if (log.magic != kSlotHeaderMagic) {
        stamp_default_black_box_log_header(&log, repair ? kDefaultCurName : kServiceCurName);
        if (repair) write_header(fd, slot, &log, sizeof(log), "black_box_log_header");
    } else if (log.dotting_magic != kDottingMagic) {
        reset_dotting_fields(&log);
        // Lands where the read left the file position, just past the header,
        // as with every writer of this layout; the header write that ends the
        // boot run puts the reset fields at the slot start.
        if (repair) {
            write_header(fd, slot + static_cast<int64_t>(sizeof(log)), &log, sizeof(log),
                         "black_box_log_header");
        }
    }

    pass_header(fd, table.control_content_offset, "control_content_header", kControlContentMagic,
                stamp_default_control_content_header, &headers->control, mode);
    return result;
}

ssize_t write_black_box_log_header(int fd, const BlackBoxHeaders& headers) {
    return write_header(fd, headers.slot_offset(), &headers.log, sizeof(headers.log),
                        "black_box_log_header");
}

}  // namespace zelkor::tessel::blackbox
