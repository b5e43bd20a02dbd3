// Copies of parcel data between the runtime's buffers and the caller's.
#pragma once

#include <cstddef>

namespace zelkor::tessel::binder {

// memcpy, without its slow case on some x86 CPUs (this machine's AMD EPYC
// among them). For copies of a few KiB up to about the L2 size glibc uses
// `rep movsb`, which there runs about 17 times slower when the destination
// lies 1 to 15 bytes past the source modulo 4 KiB (and up to 1.5 times slower
// up to 63): its stores alias loads still in flight. Where the caller's array
// and the parcel happen to sit so, the copy is made in pieces below the size
// at which glibc turns to `rep movsb`, which it then does not use.
void CopyBytes(void* to, const void* from, size_t count);

}  // namespace zelkor::tessel::binder
