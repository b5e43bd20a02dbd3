// The zlib stream of "minidump.gz", deflated as one stream or in blocks on
// worker threads: every cut of the input inflates in one call to the same
// bytes, and failures stop the run without hanging it.
#include "modules/BSPLogProcessor/BlockDeflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

// Text that compresses, with stretches of bytes that do not.
std::string Input(size_t size) {
    std::string data;
    std::mt19937 random(11);
    for (int line = 0; data.size() < size; ++line) {
        if (line % 50 == 49) {
            for (int i = 0; i < 3000; ++i) data.push_back(static_cast<char>(random()));
        } else {
            data += "<6>[" + std::to_string(line) + "] kernel line of the boot " +
                    std::to_string(line % 7) + "\n";
        }
    }
    data.resize(size);
    return data;
}

struct Deflated {
    DeflateResult result;
    std::string stream;
};

// Deflates `input`, reads failing once `failAfter` bytes have been read.
Deflated Deflate(const std::string& input, const DeflateOptions& options,
                 size_t failAfter = std::string::npos) {
    Deflated run;
    size_t offset = 0;
    run.result = DeflateStream(
            input.size(),
            [&](unsigned char* buf, size_t len) {
                if (offset + len > input.size() || offset + len > failAfter) return false;
                memcpy(buf, input.data() + offset, len);
                offset += len;
                return true;
            },
            [&](const unsigned char* data, size_t len) {
                run.stream.append(reinterpret_cast<const char*>(data), len);
                return true;
            },
            options);
    return run;
}

std::string Inflate(const std::string& stream, size_t expected) {
    std::string out(expected + 1, '\0');
    uLongf outLen = out.size();
    const int status = uncompress(reinterpret_cast<Bytef*>(out.data()), &outLen,
                                  reinterpret_cast<const Bytef*>(stream.data()), stream.size());
    EXPECT_EQ(status, Z_OK);
    out.resize(outLen);
    return out;
}

TEST(BlockDeflateTest, EveryBlockCutInflatesToTheInput) {
    // Blocks smaller than the deflate window take their dictionary from more
    // than one block before them; larger ones from the last block alone.
    for (size_t block : {size_t(4096), size_t(65536)}) {
        for (size_t size : {size_t(0), size_t(1), block - 1, block, block + 1, 5 * block + 17}) {
            for (unsigned threads : {1u, 2u, 3u}) {
                SCOPED_TRACE("block " + std::to_string(block) + " size " + std::to_string(size) +
                             " threads " + std::to_string(threads));
                const std::string input = Input(size);
                const Deflated run = Deflate(input, {threads, block});
                ASSERT_EQ(run.result.error, DeflateError::kNone);
                ASSERT_GE(run.stream.size(), 6u);
                EXPECT_EQ(static_cast<uint8_t>(run.stream[0]), 0x78);
                EXPECT_EQ(static_cast<uint8_t>(run.stream[1]), 0xDA);
                EXPECT_EQ(run.result.adler,
                          adler32(adler32(0L, Z_NULL, 0),
                                  reinterpret_cast<const Bytef*>(input.data()), input.size()));
                EXPECT_TRUE(Inflate(run.stream, size) == input);
            }
        }
    }
}

TEST(BlockDeflateTest, BlocksCostLittleSizeAgainstOneStream) {
    const std::string input = Input(3 << 20);
    const Deflated single = Deflate(input, {1, 0});
    const Deflated blocks = Deflate(input, {2});
    ASSERT_EQ(single.result.error, DeflateError::kNone);
    ASSERT_EQ(blocks.result.error, DeflateError::kNone);
    EXPECT_EQ(blocks.result.adler, single.result.adler);
    EXPECT_LE(double(blocks.stream.size()), double(single.stream.size()) * 1.005);
}

TEST(BlockDeflateTest, ReadAndWriteFailuresStopTheRun) {
    const std::string input = Input(10 * 4096);
    for (unsigned threads : {1u, 4u}) {
        SCOPED_TRACE(threads);
        // A read error in the middle, with blocks still in flight.
        EXPECT_EQ(Deflate(input, {threads, 4096}, 5 * 4096 + 1).result.error, DeflateError::kRead);
        // The first write fails; with blocks, also one after several blocks.
        for (int okWrites : {0, threads > 1 ? 3 : 0}) {
            int writes = 0;
            const DeflateResult result = DeflateStream(
                    input.size(),
                    [&](unsigned char* buf, size_t len) {
                        memset(buf, 'x', len);
                        return true;
                    },
                    [&](const unsigned char*, size_t) { return writes++ < okWrites; },
                    {threads, 4096});
            EXPECT_EQ(result.error, DeflateError::kWrite);
            EXPECT_EQ(writes, okWrites + 1);
        }
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
