// Byte encodings of what the kernel and Android's logger leave in a dump, for
// the tests and benchmarks that build partition images: little-endian fields,
// kernel printk records and liblog's pmsg records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelkor::tessel::testing {

// `value` as `width` little-endian bytes.
inline std::string LittleEndian(uint64_t value, int width) {
    std::string bytes;
    for (int i = 0; i < width; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
    return bytes;
}

// One printk record: u64 timestamp (ns), u16 record length, u16 text length,
// u16 dictionary length (0), u8 facility (0), u8 flags and level; then the
// text, zero-padded to a multiple of `align` bytes.
inline std::string PrintkRecord(uint64_t tsNsec, uint8_t levelByte, const std::string& text,
                                size_t align = 8) {
    const size_t length = (16 + text.size() + align - 1) / align * align;
    return LittleEndian(tsNsec, 8) + LittleEndian(length, 2) + LittleEndian(text.size(), 2) +
           LittleEndian(0, 2) + LittleEndian(0, 1) + LittleEndian(levelByte, 1) + text +
           std::string(length - 16 - text.size(), '\0');
}

// One pmsg record: android_pmsg_log_header_t ('l', length, uid 1000, pid),
// android_log_header_t (log id, tid, sec, nsec), then prio, tag and message,
// each string NUL-terminated.
inline std::string PmsgRecord(uint8_t logId, uint16_t pid, uint16_t tid, uint32_t sec,
                              uint32_t nsec, uint8_t prio, const std::string& tag,
                              const std::string& msg) {
    const std::string payload = std::string(1, static_cast<char>(prio)) + tag + '\0' + msg + '\0';
    return "l" + LittleEndian(7 + 11 + payload.size(), 2) + LittleEndian(1000, 2) +
           LittleEndian(pid, 2) + std::string(1, static_cast<char>(logId)) + LittleEndian(tid, 2) +
           LittleEndian(sec, 4) + LittleEndian(nsec, 4) + payload;
}

}  // namespace zelkor::tessel::testing
