// One zlib stream (RFC 1950) at the strongest level, deflated either as one
// stream on the calling thread or in independent blocks on every core.
//
// The block form cuts the input into fixed-size blocks. Each block is
// deflated on its own with the 32 KiB of input before it as its dictionary,
// flushed to a byte boundary, and the blocks are written in input order behind
// one "78 DA" header; the trailer is the Adler-32 of the whole input,
// combined from the blocks' own. Any zlib reader inflates the result in one
// call to the same bytes. Only a fixed number of blocks is in flight, so
// memory stays bounded whatever the input size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace zelkor::tessel::Minidump {

// Fills `buf` with exactly `size` further bytes of the input; false on error.
using DeflateReader = std::function<bool(unsigned char* buf, size_t size)>;
// Writes `size` bytes of the stream; false on error.
using DeflateWriter = std::function<bool(const unsigned char* data, size_t size)>;

enum class DeflateError { kNone, kRead, kWrite, kDeflate };

struct DeflateResult {
    DeflateError error = DeflateError::kNone;
    int zlibStatus = 0;  // zlib's status when error is kDeflate
    uint32_t adler = 1;  // Adler-32 of the input, valid without an error
};

struct DeflateOptions {
    // Worker threads; 0 picks one per online CPU, at most kMaxDeflateThreads.
    // One thread deflates a single stream on the calling thread.
    unsigned threads = 0;
    size_t blockSize = size_t(512) << 10;
};

constexpr unsigned kMaxDeflateThreads = 8;

// Deflates `size` input bytes taken from `read` into one zlib stream handed
// to `write`. Stops at the first error; what was written stays written.
DeflateResult DeflateStream(uint64_t size, const DeflateReader& read, const DeflateWriter& write,
                            const DeflateOptions& options = {});

// The worker count DeflateOptions{} resolves to on this machine.
unsigned DefaultDeflateThreads();

}  // namespace zelkor::tessel::Minidump
