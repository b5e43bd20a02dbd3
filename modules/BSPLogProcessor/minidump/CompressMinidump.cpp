// "minidump.gz": the raw dump partition as one zlib stream (RFC 1950: zlib
// header, strongest setting), despite the file name not a gzip member. Every
// reader of the file has always expected exactly this. zlib does the
// deflating (miniz is not packaged for the host build); the stream's format,
// header and content are the same.
//
// A run with a new dump asks for the compression twice (after the dump is
// taken and again once the crash is recorded). Deflating a raw dump of
// hundreds of MiB at the strongest level takes seconds of boot time, so the
// second request keeps the file when it is provably the same result: the
// raw dump is the same node with the same size and the same Adler-32 of its
// bytes (the checksum the stream's trailer already holds), and "minidump.gz"
// is still the file this run wrote. Anything else compresses again.
//
// The deflating itself runs on every core (independent blocks, one stream;
// see BlockDeflate.h), or as one stream on a machine with a single CPU.
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/BlockDeflate.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr size_t kBufferSize = 512 * 1024;
// The readers of the file take sizes as 32-bit signed numbers.
constexpr int64_t kMaxRawdumpSize = int64_t(1) << 31;

struct FileCloser {
    void operator()(FILE* f) const { fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

bool SameTime(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Whether `in` (its stat `inStat`, `size` bytes, read from its start) is the
// raw dump this run compressed last and "minidump.gz" still holds that result.
bool AlreadyCompressed(FILE* in, const struct stat& inStat, int64_t size,
                       std::vector<unsigned char>* buffer) {
    const CompressedDump& last = State().compressed;
    if (!last.valid || last.inDev != inStat.st_dev || last.inIno != inStat.st_ino ||
        last.inRdev != inStat.st_rdev || last.size != size) {
        return false;
    }
    struct stat outStat {};
    if (stat(platform::DevicePath(kMinidumpGz).c_str(), &outStat) != 0 ||
        outStat.st_dev != last.outDev || outStat.st_ino != last.outIno ||
        outStat.st_size != last.outSize || !SameTime(outStat.st_mtim, last.outMtime)) {
        return false;
    }
    uLong adler = adler32(0L, Z_NULL, 0);
    for (int64_t remaining = size; remaining > 0;) {
        const size_t want = static_cast<size_t>(std::min<int64_t>(remaining, buffer->size()));
        if (fread(buffer->data(), 1, want, in) != want) return false;
        adler = adler32(adler, buffer->data(), static_cast<uInt>(want));
        remaining -= static_cast<int64_t>(want);
    }
    return adler == last.adler;
}

// Remembers what a finished compression read and wrote.
void RememberCompressed(const struct stat& inStat, int64_t size, uLong adler) {
    CompressedDump& last = State().compressed;
    last = CompressedDump{};
    struct stat outStat {};
    if (stat(platform::DevicePath(kMinidumpGz).c_str(), &outStat) != 0) return;
    last = {true,           inStat.st_dev,  inStat.st_ino,   inStat.st_rdev, size, uint32_t(adler),
            outStat.st_dev, outStat.st_ino, outStat.st_size, outStat.st_mtim};
}

}  // namespace

int compress_minidump() {
    FilePtr in(fopen(platform::DevicePath(kRawdumpPartition).c_str(), "rbe"));
    if (in == nullptr) {
        MD_LOGE("Failed opening input file!");
        return 1;
    }
    int64_t size = -1;
    if (fseeko(in.get(), 0, SEEK_END) == 0) size = ftello(in.get());
    if (size < 0 || fseeko(in.get(), 0, SEEK_SET) != 0) {
        MD_LOGE("Failed reading from input file!");
        return 1;
    }
    if (size >= kMaxRawdumpSize) {
        MD_LOGE("File is too large to be processed.");
        return 1;
    }
    std::vector<unsigned char> inBuf(kBufferSize);
    struct stat inStat {};
    const bool statted = fstat(fileno(in.get()), &inStat) == 0;
    if (statted && AlreadyCompressed(in.get(), inStat, size, &inBuf)) {
        MD_LOGI("minidump.gz already holds this raw dump, not compressed again");
        return 0;
    }
    State().compressed.valid = false;
    if (fseeko(in.get(), 0, SEEK_SET) != 0) {
        MD_LOGE("Failed reading from input file!");
        return 1;
    }
    FILE* outFile = fopen(platform::DevicePath(kMinidumpGz).c_str(), "wbe");
    if (outFile == nullptr) {
        MD_LOGE("Failed opening output file!");
        return 1;
    }
    FilePtr out(outFile);

    const DeflateResult result = DeflateStream(
            static_cast<uint64_t>(size),
            [&in](unsigned char* buf, size_t len) { return fread(buf, 1, len, in.get()) == len; },
            [&out](const unsigned char* data, size_t len) {
                return fwrite(data, 1, len, out.get()) == len;
            });
    bool failed = true;
    switch (result.error) {
        case DeflateError::kNone:
            failed = false;
            break;
        case DeflateError::kRead:
            MD_LOGE("Failed reading from input file!");
            break;
        case DeflateError::kWrite:
            MD_LOGE("Failed writing to output file!");
            break;
        case DeflateError::kDeflate:
            MD_LOGE("tdefl_compress() failed with status %i!\n", result.zlibStatus);
            break;
    }
    const uLong adler = result.adler;
    if (fclose(out.release()) != 0 && !failed) {
        MD_LOGE("Failed writing to output file!");
        failed = true;
    }
    if (failed) return 1;
    if (statted) RememberCompressed(inStat, size, adler);
    return 0;
}

}  // namespace zelkor::tessel::Minidump
