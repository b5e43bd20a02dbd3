// The kernel boot log of this boot, copied once per boot into the current
// slot's kernel boot log area as text lines.
#pragma once

#include <cstdint>

#include "modules/blackbox/BlackBoxHeaders.h"

namespace zelkor::tessel::blackbox {

// Records stamped after this many microseconds end the copy.
constexpr unsigned long long kKmsgTimeLimitUs = 100999999;

// Opens the partition and the kernel log (init's "/dev/kmsg" descriptor, or
// its own), writes the records of the first 100 s at slot + kmsg_offset, at
// most kKmsgAreaMax bytes, then relabels the slot header ("boot_kmesg", and
// "dotting N" for the next record) and writes it. `headers` are the run's
// copies from the header pass. Returns the bytes copied, or -1 when nothing
// could be copied.
int64_t copy_kmsg_to_black_box(BlackBoxHeaders* headers);

}  // namespace zelkor::tessel::blackbox
