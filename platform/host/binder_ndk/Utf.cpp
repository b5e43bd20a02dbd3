// UTF-8 <-> UTF-16 conversion.
#include "platform/host/binder_ndk/Utf.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// The code point `unit` (with `next`, the unit after it, when there is one)
// starts; `*used` tells how many units it takes. Unpaired surrogates read as
// U+FFFD.
uint32_t CodePointAt(const uint8_t* in, size_t i, size_t units, size_t* used) {
    const uint16_t unit = GetUnit(in, i);
    *used = 1;
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    if (unit <= 0xDBFF && i + 1 < units) {
        const uint16_t low = GetUnit(in, i + 1);
        if (low >= 0xDC00 && low <= 0xDFFF) {
            *used = 2;
            return 0x10000 + ((static_cast<uint32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    return 0xFFFD;
}

size_t Utf8Bytes(uint32_t cp) {
    return cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
}

// Writes `cp` as UTF-8 at `out`; the bytes written.
size_t PutUtf8(char* out, uint32_t cp) {
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | (cp >> 6));
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (cp >> 12));
        out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (cp >> 18));
    out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (cp & 0x3F));
    return 4;
}

// Text is mostly ASCII: runs of it are handled sixteen bytes at a time with
// SSE2 (eight with plain words elsewhere), the general decoding only what
// lies between them.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "parcels carry little-endian units");
constexpr uint64_t kHighBits = 0x8080808080808080ULL;
constexpr uint64_t kNonAsciiUnits = 0xFF80FF80FF80FF80ULL;  // little-endian units

uint64_t Load64(const void* p) {
    uint64_t word;
    memcpy(&word, p, sizeof(word));
    return word;
}

size_t AsciiRun(const unsigned char* s, size_t pos, size_t length) {
    size_t end = pos;
#if defined(__SSE2__)
    for (; length - end >= 16; end += 16) {
        const int high =
                _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + end)));
        if (high != 0) return end + static_cast<size_t>(__builtin_ctz(high)) - pos;
    }
#endif
    while (length - end >= 8 && (Load64(s + end) & kHighBits) == 0) end += 8;
    while (end < length && s[end] < 0x80) ++end;
    return end - pos;
}

size_t AsciiUnitRun(const uint8_t* in, size_t i, size_t units) {
    size_t end = i;
#if defined(__SSE2__)
    const __m128i nonAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
    for (; units - end >= 8; end += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * end));
        const int ascii =
                _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, nonAscii), _mm_setzero_si128()));
        if (ascii != 0xFFFF) return end + static_cast<size_t>(__builtin_ctz(~ascii)) / 2 - i;
    }
#endif
    while (units - end >= 4 && (Load64(in + 2 * end) & kNonAsciiUnits) == 0) end += 4;
    while (end < units && in[2 * end] < 0x80 && in[2 * end + 1] == 0) ++end;
    return end - i;
}

// Four ASCII bytes as four little-endian units, and back.
void Widen4(const unsigned char* s, uint8_t* out) {
    uint32_t four;
    memcpy(&four, s, sizeof(four));
    uint64_t wide = four;
    wide = (wide | (wide << 16)) & 0x0000FFFF0000FFFFULL;
    wide = (wide | (wide << 8)) & 0x00FF00FF00FF00FFULL;
    memcpy(out, &wide, sizeof(wide));
}

void Narrow4(const uint8_t* in, char* out) {
    uint64_t wide = Load64(in) & 0x00FF00FF00FF00FFULL;
    wide = (wide | (wide >> 8)) & 0x0000FFFF0000FFFFULL;
    const auto four = static_cast<uint32_t>(wide | (wide >> 16));
    memcpy(out, &four, sizeof(four));
}

// The ASCII bytes at the start of `s` (at most `count`) widened to units at
// `out`, checked and converted in the same pass; the number widened.
size_t WidenAsciiRun(const unsigned char* s, size_t count, uint8_t* out) {
    size_t k = 0;
#if defined(__SSE2__)
    for (; count - k >= 16; k += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k));
        if (_mm_movemask_epi8(v) != 0) break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * k),
                         _mm_unpacklo_epi8(v, _mm_setzero_si128()));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * k + 16),
                         _mm_unpackhi_epi8(v, _mm_setzero_si128()));
    }
#endif
    for (; count - k >= 8 && (Load64(s + k) & kHighBits) == 0; k += 8) {
        Widen4(s + k, out + 2 * k);
        Widen4(s + k + 4, out + 2 * k + 8);
    }
    for (; k < count && s[k] < 0x80; ++k) {
        out[2 * k] = s[k];
        out[2 * k + 1] = 0;
    }
    return k;
}

// The ASCII units at the start of `in` (at most `units`) narrowed to bytes at
// `out` in one pass; the number narrowed.
size_t NarrowAsciiRun(const uint8_t* in, size_t units, char* out) {
    size_t k = 0;
#if defined(__SSE2__)
    const __m128i nonAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
    for (; units - k >= 16; k += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * k));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * k + 16));
        const __m128i high = _mm_and_si128(_mm_or_si128(a, b), nonAscii);
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) != 0xFFFF) break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), _mm_packus_epi16(a, b));
    }
#endif
    for (; units - k >= 4 && (Load64(in + 2 * k) & kNonAsciiUnits) == 0; k += 4) {
        Narrow4(in + 2 * k, out + k);
    }
    for (; k < units && in[2 * k] < 0x80 && in[2 * k + 1] == 0; ++k) {
        out[k] = static_cast<char>(in[2 * k]);
    }
    return k;
}

}  // namespace

bool Utf16Length(const char* utf8, size_t length, size_t* units) {
    const auto* s = reinterpret_cast<const unsigned char*>(utf8);
    size_t count = 0;
    size_t pos = 0;
    while (pos < length) {
        const size_t run = AsciiRun(s, pos, length);
        pos += run;
        count += run;
        if (pos == length) break;
        uint32_t cp;
        if (!NextCodePoint(s, length, &pos, &cp)) return false;
        count += cp >= 0x10000 ? 2 : 1;
    }
    *units = count;
    return true;
}

bool EncodeUtf16(const char* utf8, size_t length, uint8_t* out, size_t* units) {
    const auto* s = reinterpret_cast<const unsigned char*>(utf8);
    size_t pos = 0;
    size_t index = 0;
    while (pos < length) {
        const size_t run = WidenAsciiRun(s + pos, length - pos, out + 2 * index);
        pos += run;
        index += run;
        if (pos == length) break;
        uint32_t cp = 0;
        if (!NextCodePoint(s, length, &pos, &cp)) return false;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            PutUnit(out, index++, static_cast<uint16_t>(0xD800 + (cp >> 10)));
            PutUnit(out, index++, static_cast<uint16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            PutUnit(out, index++, static_cast<uint16_t>(cp));
        }
    }
    *units = index;
    return true;
}

size_t Utf8Length(const uint8_t* in, size_t units) {
    size_t bytes = 0;
    for (size_t i = 0; i < units;) {
        const size_t run = AsciiUnitRun(in, i, units);
        bytes += run;
        i += run;
        if (i == units) break;
        size_t used = 0;
        bytes += Utf8Bytes(CodePointAt(in, i, units, &used));
        i += used;
    }
    return bytes;
}

void DecodeUtf16(const uint8_t* in, size_t units, char* out) {
    for (size_t i = 0; i < units;) {
        const size_t run = NarrowAsciiRun(in + 2 * i, units - i, out);
        out += run;
        i += run;
        if (i == units) break;
        size_t used = 0;
        out += PutUtf8(out, CodePointAt(in, i, units, &used));
        i += used;
    }
}

std::string DecodeUtf16(const uint8_t* in, size_t units) {
    std::string out(Utf8Length(in, units), '\0');
    DecodeUtf16(in, units, out.data());
    return out;
}

}  // namespace zelkor::tessel::binder
