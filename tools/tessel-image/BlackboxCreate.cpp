// tessel-image blackbox create FILE [--zeroed] [--boot-index N]: a sparse image
// of the default size, stamped the way the daemon's header pass stamps a blank
// partition; --boot-index sets the boot loader's boot counter, as after N boots.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "modules/blackbox/BlackBoxDefaults.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "tools/tessel-image/Commands.h"
#include "tools/tessel-image/ImageFile.h"

namespace zelkor::tessel::image {
namespace {

using namespace zelkor::tessel::blackbox;

bool Stamp(int fd, uint32_t bootIndex) {
    log_table_header table{};
    stamp_default_log_table_header(&table);
    table.boot_index = bootIndex;
    log_content_header content{};
    stamp_default_log_content_header(&content);
    black_box_log_header slot{};
    stamp_default_black_box_log_header(&slot);
    control_content_header control{};
    stamp_default_control_content_header(&control);
    // The configuration block stays as ftruncate() left it: all switches 0.
    return write_at(fd, 0, &table, sizeof(table)) >= 0 &&
           write_at(fd, table.log_content_offset, &content, sizeof(content)) >= 0 &&
           write_at(fd, SlotOffset(content), &slot, sizeof(slot)) >= 0 &&
           write_at(fd, table.control_content_offset, &control, sizeof(control)) >= 0;
}

}  // namespace

int RunBlackboxCreate(const Args& args) {
    const char* file = nullptr;
    bool zeroed = false;
    uint32_t bootIndex = kDefaultBootIndex;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--zeroed") {
            zeroed = true;
        } else if (arg == "--boot-index") {
            char* end = nullptr;
            const char* text = i + 1 < args.size() ? args[++i].c_str() : "";
            errno = 0;
            const unsigned long value = strtoul(text, &end, 0);
            if (*text == '\0' || *end != '\0' || errno != 0 || value > UINT32_MAX) {
                fprintf(stderr, "tessel-image blackbox create: --boot-index needs a number\n");
                return kExitUsage;
            }
            bootIndex = static_cast<uint32_t>(value);
        } else if (arg.rfind("--", 0) == 0 || file != nullptr) {
            fprintf(stderr, "tessel-image blackbox create: unexpected argument '%s'\n",
                    arg.c_str());
            return kExitUsage;
        } else {
            file = arg.c_str();
        }
    }
    if (file == nullptr) {
        fprintf(stderr, "tessel-image blackbox create: no FILE given\n");
        return kExitUsage;
    }

    std::string openError;
    const int fd = OpenImageFile(file, O_RDWR | O_CREAT | O_TRUNC, &openError);
    if (fd < 0) {
        fprintf(stderr, "tessel-image blackbox create: %s\n", openError.c_str());
        return kExitFailure;
    }
    bool ok = ftruncate(fd, static_cast<off_t>(kDefaultImageSize)) == 0 &&
              (zeroed || Stamp(fd, bootIndex));
    const int error = errno;
    close(fd);
    if (!ok) {
        fprintf(stderr, "tessel-image: cannot write %s: %s\n", file, strerror(error));
        return kExitFailure;
    }
    printf("%s: %llu bytes, %s\n", file, static_cast<unsigned long long>(kDefaultImageSize),
           zeroed ? "all zero" : "default headers");
    return kExitOk;
}

}  // namespace zelkor::tessel::image
