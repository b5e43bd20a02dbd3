// The values every writer stamps into a header whose magic is wrong, so that
// the boot run, the blackbox service and tessel-image produce the same bytes.
#pragma once

#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::blackbox {

void stamp_default_log_table_header(log_table_header* header);
void stamp_default_log_content_header(log_content_header* header);
void stamp_default_control_content_header(control_content_header* header);

// Every field, labels zero-filled; `cur_name` is "dotting" for the boot run and
// "boot_kmesg" for the blackbox service.
void stamp_default_black_box_log_header(black_box_log_header* header,
                                        const char* cur_name = kDefaultCurName);

// The slot geometry of a last-log header (offsets 16 to 55) that the header
// repair stamps and tessel-image writes for a new dump area: slot 0 at 1 KiB
// behind the header, slots 10 MiB apart inside the blackbox partition and
// 6 MiB apart in the minidump partition.
constexpr uint64_t kDefaultSlot0Offset = 1024;
constexpr uint64_t kDefaultLastLogReserved0 = 0x100000;
constexpr uint64_t kDefaultLastLogReserved1 = 0x200000;
constexpr uint64_t kDefaultBlackboxSlotDistance = 0xA00000;
constexpr uint64_t kDefaultMinidumpSlotDistance = 0x600000;

// Only those geometry fields; the magic, store index and counts are left as
// they are.
void stamp_default_last_log_geometry(last_log_header* header);

// Only the dotting fields (offsets 92 to 131): the ring starts over in its
// boot phase.
void reset_dotting_fields(black_box_log_header* header);

}  // namespace zelkor::tessel::blackbox
