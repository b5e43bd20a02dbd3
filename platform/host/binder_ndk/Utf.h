// UTF-8 <-> UTF-16 for parcel strings: the API speaks UTF-8, the wire
// carries UTF-16 as the platform's Parcel does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelkor::tessel::binder {

// The number of UTF-16 units `utf8` encodes to, or false when it is not
// valid UTF-8 (bad or truncated sequences, overlong forms, values above
// U+10FFFF).
bool Utf16Length(const char* utf8, size_t length, size_t* units);

// Encodes UTF-8 as little-endian UTF-16 units into `out`, checking it in the
// same pass: false, with `out` partly written, for what Utf16Length refuses.
// `out` must hold 2 * the units written: 2 * `length` bytes always suffice,
// as no UTF-8 byte makes more than one unit.
bool EncodeUtf16(const char* utf8, size_t length, uint8_t* out, size_t* units);

// Decodes `units` UTF-16 units stored at `in` (unaligned bytes). Unpaired
// surrogates become U+FFFD rather than an error: the text came from a peer
// and is only ever read, never trusted.
std::string DecodeUtf16(const uint8_t* in, size_t units);

// The UTF-8 bytes DecodeUtf16 makes of `units` units at `in`, and the same
// decoding into `out`, which holds that many bytes.
size_t Utf8Length(const uint8_t* in, size_t units);
void DecodeUtf16(const uint8_t* in, size_t units, char* out);

}  // namespace zelkor::tessel::binder
