// The dump history ("MNDPHIST") kept inside the dump area, used instead of
// the crash history when that cannot be opened: a small text log of crashes
// at kMdHistoryOffset of the blackbox partition (or of the minidump partition
// without one), copied to "/data/vendor/diag/md_history" at every boot.
//
// Its header comes from flash: the write position is only used inside the
// item space, and what is copied out never exceeds that space.
#pragma once

#include <string>

#include "modules/BSPLogProcessor/CrashHistoryLayout.h"

namespace zelkor::tessel::Minidump {

// The line the last kernel log gives for a history: the line of the first
// summary keyword found in "/data/vendor/diag/last_kmsg" (earlier keywords
// win), without its line end; empty when there is none.
std::string last_kmsg_summary();

// Adds "<item_count>) <line>\n" (at most 512 bytes) to the dump history on
// `fd`, initialising a header without the "MNDPHIST" mark first; `header`
// receives the header as written. -1 when the area could not be read or
// written.
int add_minidump_history_item(int fd, const std::string& line, md_his_header* header);

// The item text the header says is there: up to next_off, or the whole item
// space once it has wrapped.
std::string read_minidump_history(int fd, const md_his_header& header);

// The whole step: on a normal boot (no new dump, power-up reason not
// "other") only copies an existing dump history to "md_history"; otherwise
// adds "build|time|power-up reason|summary" and then copies.
void update_minidump_history();

}  // namespace zelkor::tessel::Minidump
