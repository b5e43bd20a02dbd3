// The dump history ("MNDPHIST") kept inside the dump area, used instead of
// the crash history when that cannot be opened: a small text log of crashes
// at kMdHistoryOffset of the blackbox partition (or of the minidump partition
// without one), copied to "/data/vendor/diag/md_history" at every boot.
//
// Its header comes from flash: the write position is only used inside the
// item space, and what is copied out never exceeds that space.
#pragma once

#include <string>

namespace zelkor::tessel::Minidump {

// The line the last kernel log gives for a history: the line of the first
// summary keyword found in "/data/vendor/diag/last_kmsg" (earlier keywords
// win), without its line end; empty when there is none.
std::string last_kmsg_summary();

// The whole step: on a normal boot (no new dump, power-up reason not
// "other") only copies an existing dump history to "md_history"; otherwise
// adds "build|time|power-up reason|summary" and then copies.
void update_minidump_history();

}  // namespace zelkor::tessel::Minidump
