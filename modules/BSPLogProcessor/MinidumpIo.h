// The size check every offset and length taken from a partition header goes
// through before it is used; the positioned reads and writes themselves are
// the blackbox partition's (BlackBoxIo.h).
#pragma once

#include <cstdint>

namespace zelkor::tessel::Minidump {

// True when [pos, pos + len) lies inside [0, limit), overflow-safe.
inline bool RangeFits(uint64_t pos, uint64_t len, uint64_t limit) {
    return pos <= limit && len <= limit - pos;
}

}  // namespace zelkor::tessel::Minidump
