#include "modules/blackbox/BlackBoxRead.h"

#include "modules/blackbox/BlackBoxDefaults.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::blackbox {
namespace {

template <typename Header>
HeaderRead ReadOrDefaults(int fd, int64_t offset, uint64_t magic, Header* out,
                          void (*stamp)(Header*)) {
    *out = Header{};
    HeaderRead result = HeaderRead::kValid;
    if (read_at(fd, offset, out, sizeof(*out)) != static_cast<ssize_t>(sizeof(*out))) {
        result = HeaderRead::kShortRead;
    } else if (out->magic != magic) {
        result = HeaderRead::kWrongMagic;
    }
    if (result != HeaderRead::kValid) stamp(out);
    return result;
}

}  // namespace

HeaderRead read_log_table_header(int fd, log_table_header* out) {
    return ReadOrDefaults(fd, 0, kLogTableMagic, out, stamp_default_log_table_header);
}

HeaderRead read_control_content_header(int fd, uint32_t offset, control_content_header* out) {
    return ReadOrDefaults(fd, offset, kControlContentMagic, out,
                          stamp_default_control_content_header);
}

}  // namespace zelkor::tessel::blackbox
