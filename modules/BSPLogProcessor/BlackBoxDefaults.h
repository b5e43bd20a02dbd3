// The values every writer stamps into a header whose magic is wrong, so that
// the boot run, the blackbox service and tessel-image produce the same bytes.
#pragma once

#include "modules/BSPLogProcessor/BlackboxLayout.h"

namespace zelkor::tessel::blackbox {

void stamp_default_log_table_header(log_table_header* header);
void stamp_default_log_content_header(log_content_header* header);
void stamp_default_control_content_header(control_content_header* header);

// Every field, labels zero-filled; `cur_name` is "dotting" for the boot run and
// "boot_kmesg" for the blackbox service.
void stamp_default_black_box_log_header(black_box_log_header* header,
                                        const char* cur_name = kDefaultCurName);

// Only the dotting fields (offsets 92 to 131): the ring starts over in its
// boot phase.
void reset_dotting_fields(black_box_log_header* header);

}  // namespace zelkor::tessel::blackbox
