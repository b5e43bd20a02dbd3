// UTF-8 <-> UTF-16 conversion.
#include "platform/host/binder_ndk/Utf.h"

#include <cstring>

namespace zelkor::tessel::binder {
namespace {

// Decodes one code point at `s[*pos]`; false on malformed input.
bool NextCodePoint(const unsigned char* s, size_t length, size_t* pos, uint32_t* cp) {
    const unsigned char lead = s[*pos];
    size_t extra;
    uint32_t value;
    uint32_t minimum;
    if (lead < 0x80) {
        *cp = lead;
        *pos += 1;
        return true;
    } else if ((lead & 0xE0) == 0xC0) {
        extra = 1;
        value = lead & 0x1F;
        minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2;
        value = lead & 0x0F;
        minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3;
        value = lead & 0x07;
        minimum = 0x10000;
    } else {
        return false;
    }
    if (extra > length - *pos - 1) return false;
    for (size_t i = 1; i <= extra; ++i) {
        const unsigned char next = s[*pos + i];
        if ((next & 0xC0) != 0x80) return false;
        value = (value << 6) | (next & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF) return false;
    *cp = value;
    *pos += extra + 1;
    return true;
}

void PutUnit(uint8_t* out, size_t index, uint16_t unit) {
    memcpy(out + 2 * index, &unit, sizeof(unit));
}

uint16_t GetUnit(const uint8_t* in, size_t index) {
    uint16_t unit;
    memcpy(&unit, in + 2 * index, sizeof(unit));
    return unit;
}

void AppendUtf8(std::string* out, uint32_t cp) {
    if (cp < 0x80) {
        out->push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

}  // namespace

bool Utf16Length(const char* utf8, size_t length, size_t* units) {
    const auto* s = reinterpret_cast<const unsigned char*>(utf8);
    size_t count = 0;
    size_t pos = 0;
    while (pos < length) {
        uint32_t cp;
        if (!NextCodePoint(s, length, &pos, &cp)) return false;
        count += cp >= 0x10000 ? 2 : 1;
    }
    *units = count;
    return true;
}

void EncodeUtf16(const char* utf8, size_t length, uint8_t* out) {
    const auto* s = reinterpret_cast<const unsigned char*>(utf8);
    size_t pos = 0;
    size_t index = 0;
    while (pos < length) {
        uint32_t cp = 0;
        if (!NextCodePoint(s, length, &pos, &cp)) return;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            PutUnit(out, index++, static_cast<uint16_t>(0xD800 + (cp >> 10)));
            PutUnit(out, index++, static_cast<uint16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            PutUnit(out, index++, static_cast<uint16_t>(cp));
        }
    }
}

std::string DecodeUtf16(const uint8_t* in, size_t units) {
    std::string out;
    out.reserve(units);
    for (size_t i = 0; i < units; ++i) {
        const uint16_t unit = GetUnit(in, i);
        uint32_t cp = unit;
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units) {
            const uint16_t low = GetUnit(in, i + 1);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                cp = 0x10000 + ((static_cast<uint32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            } else {
                cp = 0xFFFD;
            }
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            cp = 0xFFFD;
        }
        AppendUtf8(&out, cp);
    }
    return out;
}

}  // namespace zelkor::tessel::binder
