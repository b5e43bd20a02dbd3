// Little-endian fields of section data read from a byte buffer, whatever the
// buffer's alignment.
#pragma once

#include <cstdint>

namespace zelkor::tessel::Minidump {

inline uint16_t LoadU16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

inline uint32_t LoadU32(const uint8_t* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t(p[3]) << 24);
}

inline uint64_t LoadU64(const uint8_t* p) {
    return LoadU32(p) | uint64_t(LoadU32(p + 4)) << 32;
}

}  // namespace zelkor::tessel::Minidump
