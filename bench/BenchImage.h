// The benchmark partitions: a blackbox image holding a raw dump with nine
// stored dumps behind it (twenty sections each, 8 MiB kernel log), and raw
// dump partitions of zeros, kernel text, random bytes or a mix of the three,
// as a RAM dump holds. Shared by the extraction and boot-run benchmarks so
// that both measure the same input.
#pragma once

#include <cstdint>
#include <string>

namespace zelkor::tessel::bench {

// Raw dump contents.
constexpr const char* kRawdumpKinds[] = {"zeros", "text", "random"};

// Writes the blackbox image at `image` (created when missing), section files
// going to `scratchDir`. Returns the bytes of one dump's sections.
uint64_t WriteBenchBlackbox(const std::string& image, const std::string& scratchDir);

// Writes a raw dump of `size` bytes at `path`: "zeros" (sparse), "text"
// (printk records), "random", or "mixed" (64 KiB pieces of the three in turn).
// Deterministic for a given kind and size.
void WriteRawdump(const std::string& path, const std::string& kind, uint64_t size);

// The raw dump size in bytes: TESSEL_BENCH_RAWDUMP_MB if set, else
// `defaultMb` MiB.
uint64_t RawdumpSizeFromEnv(uint64_t defaultMb);

// Compresses the file at `path` into one zlib stream at `level`, with the
// window and 512 KiB buffers of "minidump.gz", writing it to `outFd` (or
// nowhere when it is -1). Returns the compressed size, 0 when the file could
// not be read.
uint64_t ZlibCompressFile(const std::string& path, int level, int outFd);

}  // namespace zelkor::tessel::bench
