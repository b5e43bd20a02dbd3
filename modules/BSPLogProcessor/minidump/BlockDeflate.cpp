#include "modules/BSPLogProcessor/minidump/BlockDeflate.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace zelkor::tessel::Minidump {

namespace {

constexpr size_t kStreamBuffer = 512 * 1024;
// Deflate looks back at most this far; it is all a block needs of the input
// before it.
constexpr size_t kWindow = size_t(1) << MAX_WBITS;
// Blocks are read and deflated whole; beyond this a block would only cost
// memory (and zlib takes 32-bit lengths).
constexpr size_t kMaxBlock = size_t(64) << 20;

DeflateResult Failed(DeflateError error, int zlibStatus = 0) {
    DeflateResult result;
    result.error = error;
    result.zlibStatus = zlibStatus;
    return result;
}

// The whole input as one deflate stream on the calling thread, for a machine
// with one CPU.
DeflateResult SingleStream(uint64_t size, const DeflateReader& read, const DeflateWriter& write) {
    z_stream zs{};
    if (deflateInit2(&zs, Z_BEST_COMPRESSION, Z_DEFLATED, MAX_WBITS, MAX_MEM_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        return Failed(DeflateError::kDeflate, Z_STREAM_ERROR);
    }
    std::vector<unsigned char> inBuf(kStreamBuffer);
    std::vector<unsigned char> outBuf(kStreamBuffer);
    DeflateResult result;
    uint64_t remaining = size;
    for (;;) {
        if (zs.avail_in == 0 && remaining > 0) {
            const size_t want = static_cast<size_t>(std::min<uint64_t>(remaining, kStreamBuffer));
            if (!read(inBuf.data(), want)) {
                result = Failed(DeflateError::kRead);
                break;
            }
            zs.next_in = inBuf.data();
            zs.avail_in = static_cast<uInt>(want);
            remaining -= want;
        }
        zs.next_out = outBuf.data();
        zs.avail_out = static_cast<uInt>(outBuf.size());
        const int status = deflate(&zs, remaining == 0 ? Z_FINISH : Z_NO_FLUSH);
        // Z_BUF_ERROR only says that no progress was possible this round.
        if (status < 0 && status != Z_BUF_ERROR) {
            result = Failed(DeflateError::kDeflate, status);
            break;
        }
        const size_t produced = outBuf.size() - zs.avail_out;
        if (produced > 0 && !write(outBuf.data(), produced)) {
            result = Failed(DeflateError::kWrite);
            break;
        }
        if (status == Z_STREAM_END) {
            result.adler = static_cast<uint32_t>(zs.adler);
            break;
        }
    }
    deflateEnd(&zs);
    return result;
}

// One block of input: the input before it (up to one window), then its own
// bytes; filled in by a worker with the block's raw deflate output.
struct Block {
    std::vector<unsigned char> in;
    size_t dictLen = 0;
    size_t dataLen = 0;
    bool last = false;

    std::vector<unsigned char> out;
    uint32_t adler = 1;
    int status = Z_OK;
    bool done = false;
};

// Deflates `block` with a raw-deflate stream `zs` set up at the strongest
// level: the whole block in one call, ended at a byte boundary (a sync flush)
// or, for the last block, with the final block of the stream.
int DeflateBlock(z_stream* zs, Block* block) {
    int status = deflateReset(zs);
    if (status == Z_OK && block->dictLen > 0) {
        status = deflateSetDictionary(zs, block->in.data(), static_cast<uInt>(block->dictLen));
    }
    if (status != Z_OK) return status;
    const unsigned char* data = block->in.data() + block->dictLen;
    block->adler = static_cast<uint32_t>(
            adler32(adler32(0L, Z_NULL, 0), data, static_cast<uInt>(block->dataLen)));
    // The bound covers a finished stream; a sync flush adds at most an empty
    // stored block, five bytes.
    block->out.resize(deflateBound(zs, block->dataLen) + 16);
    zs->next_in = const_cast<unsigned char*>(data);
    zs->avail_in = static_cast<uInt>(block->dataLen);
    zs->next_out = block->out.data();
    zs->avail_out = static_cast<uInt>(block->out.size());
    const int flush = block->last ? Z_FINISH : Z_SYNC_FLUSH;
    for (;;) {
        status = deflate(zs, flush);
        if (status < 0 && status != Z_BUF_ERROR) return status;
        if (block->last ? status == Z_STREAM_END : zs->avail_out > 0) break;
        if (zs->avail_out > 0) return Z_STREAM_ERROR;  // no progress and not finished
        const size_t used = block->out.size();
        block->out.resize(used * 2);
        zs->next_out = block->out.data() + used;
        zs->avail_out = static_cast<uInt>(block->out.size() - used);
    }
    block->out.resize(block->out.size() - zs->avail_out);
    return Z_OK;
}

// Worker threads deflating submitted blocks, each with a deflate state of its
// own that lives as long as the thread.
class BlockWorkers {
  public:
    explicit BlockWorkers(unsigned count) {
        for (unsigned i = 0; i < count; ++i) mThreads.emplace_back([this] { run(); });
    }
    ~BlockWorkers() {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mQuit = true;
        }
        mWork.notify_all();
        for (std::thread& thread : mThreads) thread.join();
    }
    BlockWorkers(const BlockWorkers&) = delete;
    BlockWorkers& operator=(const BlockWorkers&) = delete;

    void submit(Block* block) {
        {
            std::lock_guard<std::mutex> lock(mLock);
            block->done = false;
            mQueue.push_back(block);
        }
        mWork.notify_one();
    }

    void waitFor(Block* block) {
        std::unique_lock<std::mutex> lock(mLock);
        mDone.wait(lock, [block] { return block->done; });
    }

  private:
    void run() {
        // zlib's default memory level: on raw dumps (text, zeros and
        // incompressible stretches) its smaller symbol buffer ends deflate
        // blocks more often, which measured both faster and smaller than the
        // largest level the single stream uses.
        z_stream zs{};
        const int init = deflateInit2(&zs, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8,
                                      Z_DEFAULT_STRATEGY);
        for (;;) {
            Block* block;
            {
                std::unique_lock<std::mutex> lock(mLock);
                mWork.wait(lock, [this] { return mQuit || !mQueue.empty(); });
                if (mQuit) break;
                block = mQueue.front();
                mQueue.pop_front();
            }
            const int status = init == Z_OK ? DeflateBlock(&zs, block) : init;
            {
                std::lock_guard<std::mutex> lock(mLock);
                block->status = status;
                block->done = true;
            }
            mDone.notify_all();
        }
        if (init == Z_OK) deflateEnd(&zs);
    }

    std::mutex mLock;
    std::condition_variable mWork;
    std::condition_variable mDone;
    std::deque<Block*> mQueue;
    bool mQuit = false;
    std::vector<std::thread> mThreads;
};

// Keeps `window` the last kWindow bytes of the input read so far.
void Slide(std::vector<unsigned char>* window, const unsigned char* data, size_t len) {
    if (len >= kWindow) {
        window->assign(data + len - kWindow, data + len);
        return;
    }
    window->insert(window->end(), data, data + len);
    if (window->size() > kWindow) window->erase(window->begin(), window->end() - kWindow);
}

DeflateResult BlockStream(uint64_t size, const DeflateReader& read, const DeflateWriter& write,
                          unsigned threads, size_t blockSize) {
    // Two blocks per worker keep every worker busy while the calling thread
    // reads ahead and writes behind; never more than that is held.
    std::vector<Block> blocks(threads * 2);
    std::vector<Block*> idle;
    for (Block& block : blocks) idle.push_back(&block);
    std::deque<Block*> inFlight;
    BlockWorkers workers(threads);  // after `blocks`: joined before they go

    static const unsigned char kHeader[2] = {0x78, 0xDA};  // deflate, 32 KiB, strongest
    if (!write(kHeader, sizeof(kHeader))) return Failed(DeflateError::kWrite);
    std::vector<unsigned char> window;
    uint64_t remaining = size;
    bool allRead = false;
    uLong adler = adler32(0L, Z_NULL, 0);
    for (;;) {
        while (!allRead && !idle.empty()) {
            Block* block = idle.back();
            idle.pop_back();
            const size_t len = static_cast<size_t>(std::min<uint64_t>(remaining, blockSize));
            block->dictLen = window.size();
            block->dataLen = len;
            block->in.resize(block->dictLen + len);
            std::copy(window.begin(), window.end(), block->in.begin());
            unsigned char* data = block->in.data() + block->dictLen;
            if (len > 0 && !read(data, len)) return Failed(DeflateError::kRead);
            Slide(&window, data, len);
            remaining -= len;
            block->last = allRead = remaining == 0;
            workers.submit(block);
            inFlight.push_back(block);
        }
        if (inFlight.empty()) break;
        Block* block = inFlight.front();
        inFlight.pop_front();
        workers.waitFor(block);
        if (block->status != Z_OK) return Failed(DeflateError::kDeflate, block->status);
        if (!write(block->out.data(), block->out.size())) return Failed(DeflateError::kWrite);
        adler = adler32_combine(adler, block->adler, static_cast<z_off_t>(block->dataLen));
        idle.push_back(block);
    }
    const unsigned char trailer[4] = {
            static_cast<unsigned char>(adler >> 24), static_cast<unsigned char>(adler >> 16),
            static_cast<unsigned char>(adler >> 8), static_cast<unsigned char>(adler)};
    if (!write(trailer, sizeof(trailer))) return Failed(DeflateError::kWrite);
    DeflateResult result;
    result.adler = static_cast<uint32_t>(adler);
    return result;
}

}  // namespace

unsigned DefaultDeflateThreads() {
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    if (online < 1) return 1;
    return static_cast<unsigned>(std::min<long>(online, kMaxDeflateThreads));
}

DeflateResult DeflateStream(uint64_t size, const DeflateReader& read, const DeflateWriter& write,
                            const DeflateOptions& options) {
    const unsigned threads = std::min(
            options.threads == 0 ? DefaultDeflateThreads() : options.threads, kMaxDeflateThreads);
    if (threads <= 1) return SingleStream(size, read, write);
    const size_t blockSize = std::clamp<size_t>(options.blockSize, 1, kMaxBlock);
    return BlockStream(size, read, write, threads, blockSize);
}

}  // namespace zelkor::tessel::Minidump
