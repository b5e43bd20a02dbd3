// Copies of parcel data between the runtime's buffers and the caller's.
#pragma once

#include <cstddef>

namespace zelkor::tessel::binder {

// memcpy, without its slow case on x86. For copies of a few KiB up to about
// the L2 size glibc uses `rep movsb`, which on some CPUs (AMD Zen here, and
// Intel parts without the fast-short-distance flag glibc checks) runs about
// 17 times slower when the destination lies 1 to 63 bytes past the source
// modulo 4 KiB: each store then aliases a load still in flight. Where the
// caller's array and the parcel happen to sit so, the copy is made in
// pieces below the size at which glibc turns to `rep movsb`.
void CopyBytes(void* to, const void* from, size_t count);

}  // namespace zelkor::tessel::binder
