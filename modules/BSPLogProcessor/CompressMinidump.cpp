// "minidump.gz": the raw dump partition as one zlib stream (RFC 1950: zlib
// header, strongest setting), despite the file name not a gzip member. Every
// reader of the file has always expected exactly this.
#include <zlib.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
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
    FILE* outFile = fopen(platform::DevicePath(kMinidumpGz).c_str(), "wbe");
    if (outFile == nullptr) {
        MD_LOGE("Failed opening output file!");
        return 1;
    }
    FilePtr out(outFile);

    z_stream zs{};
    if (deflateInit2(&zs, Z_BEST_COMPRESSION, Z_DEFLATED, MAX_WBITS, MAX_MEM_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        MD_LOGE("tdefl_compress() failed with status %i!\n", Z_STREAM_ERROR);
        return 1;
    }
    std::vector<unsigned char> inBuf(kBufferSize);
    std::vector<unsigned char> outBuf(kBufferSize);
    uint64_t remaining = static_cast<uint64_t>(size);
    bool failed = false;
    for (;;) {
        if (zs.avail_in == 0 && remaining > 0) {
            size_t want = remaining < kBufferSize ? remaining : kBufferSize;
            if (fread(inBuf.data(), 1, want, in.get()) != want) {
                MD_LOGE("Failed reading from input file!");
                failed = true;
                break;
            }
            zs.next_in = inBuf.data();
            zs.avail_in = static_cast<uInt>(want);
            remaining -= want;
        }
        zs.next_out = outBuf.data();
        zs.avail_out = static_cast<uInt>(outBuf.size());
        int status = deflate(&zs, remaining == 0 ? Z_FINISH : Z_NO_FLUSH);
        // Z_BUF_ERROR only says that no progress was possible this round.
        if (status < 0 && status != Z_BUF_ERROR) {
            MD_LOGE("tdefl_compress() failed with status %i!\n", status);
            failed = true;
            break;
        }
        size_t produced = outBuf.size() - zs.avail_out;
        if (produced > 0 && fwrite(outBuf.data(), 1, produced, out.get()) != produced) {
            MD_LOGE("Failed writing to output file!");
            failed = true;
            break;
        }
        if (status == Z_STREAM_END) break;
    }
    deflateEnd(&zs);
    if (fclose(out.release()) != 0 && !failed) {
        MD_LOGE("Failed writing to output file!");
        failed = true;
    }
    return failed ? 1 : 0;
}

}  // namespace zelkor::tessel::Minidump
