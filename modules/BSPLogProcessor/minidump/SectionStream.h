// Streaming over a section's bytes in fixed-size pieces, so that a section of
// any announced size is read with bounded memory, and buffered output to the
// last-log files.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zelkor::tessel::Minidump {

// One section as parse_log hands it on: its bytes lie at [offset, offset +
// size) of the partition behind fd, already checked against its size.
struct Section {
    int fd;
    const char* name;
    uint64_t offset;
    uint64_t size;
};

struct ByteRange {
    uint64_t offset;
    uint64_t size;
};

// Reads a list of partition ranges back to back, as one stream.
class ByteSource {
  public:
    ByteSource(int fd, std::vector<ByteRange> ranges);
    // Up to `len` bytes; 0 at the end, -1 with errno set on a read error. A
    // range that ends early (short partition) ends the stream.
    ssize_t Read(void* out, size_t len);

  private:
    int mFd;
    std::vector<ByteRange> mRanges;
    size_t mIndex = 0;
    uint64_t mDone = 0;  // bytes taken from mRanges[mIndex]
};

// Collects output and writes it in large pieces; a failed write is logged once
// and the rest is dropped.
class OutBuffer {
  public:
    explicit OutBuffer(int fd) : mFd(fd) {}
    ~OutBuffer() { Flush(); }
    OutBuffer(const OutBuffer&) = delete;
    OutBuffer& operator=(const OutBuffer&) = delete;

    void Append(std::string_view text);
    void Printf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void Flush();

  private:
    static constexpr size_t kFlushAt = 64 * 1024;
    int mFd;
    bool mFailed = false;
    std::string mPending;
};

// Size of the pieces the copying writers read at a time.
constexpr size_t kCopyChunk = 64 * 1024;

// The bytes of a ring buffer of `len` bytes at `start`, oldest first, from
// the writer's wrap count and next write offset: [0, next) before the first
// wrap, [next, len) and then [0, next) after it. A `next` past the end reads
// the ring from its beginning.
std::vector<ByteRange> RingRanges(uint64_t start, uint64_t len, uint32_t wrap, uint64_t next);

}  // namespace zelkor::tessel::Minidump
