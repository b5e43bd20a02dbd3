#include "platform/host/binder_ndk/BulkCopy.h"

#include <cstdint>
#include <cstring>

namespace zelkor::tessel::binder {
namespace {

// Below glibc's smallest `rep movsb` threshold (2 KiB for 16-byte vectors),
// so each piece is copied with vector moves.
constexpr size_t kPiece = 2048;
constexpr uintptr_t kPage = 4096;
constexpr uintptr_t kShortDistance = 64;

// The pieces go through a call to the C library's memcpy: given a size it
// knows to be at most 2 KiB, the compiler would otherwise inline the copy as
// `rep movsq`, which stalls at these distances just as `rep movsb` does
// (a 64 KiB copy 8 bytes apart took 4.5 us inlined, 1.4 us through the call).
void* (*const volatile gCopyPiece)(void*, const void*, size_t) = memcpy;

}  // namespace

void CopyBytes(void* to, const void* from, size_t count) {
    const uintptr_t distance =
            (reinterpret_cast<uintptr_t>(to) - reinterpret_cast<uintptr_t>(from)) % kPage;
    if (count <= kPiece || distance == 0 || distance >= kShortDistance) {
        if (count > 0) memcpy(to, from, count);
        return;
    }
    auto* out = static_cast<uint8_t*>(to);
    const auto* in = static_cast<const uint8_t*>(from);
    for (size_t done = 0; done < count; done += kPiece) {
        gCopyPiece(out + done, in + done, count - done < kPiece ? count - done : kPiece);
    }
}

}  // namespace zelkor::tessel::binder
