// "minidump.gz": the raw dump partition as one zlib stream, deflated as one
// stream or in blocks on worker threads: every cut of the input inflates in
// one call to the same bytes, and failures stop the run without hanging it.
#include <climits>
#include <cstring>
#include <filesystem>
#include <random>

#include "MinidumpTestSupport.h"
#include "modules/BSPLogProcessor/minidump/BlockDeflate.h"

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

class CompressTest : public MinidumpTest {
  protected:
    static std::string PigzInflate(const std::string& path) {
        FILE* pipe = popen(("pigz -dz -c " + path).c_str(), "r");
        if (pipe == nullptr) return "<pigz not run>";
        std::string out;
        char buf[1 << 16];
        for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) out.append(buf, n);
        return pclose(pipe) == 0 ? out : "<pigz failed>";
    }
    const std::string kGz = std::string(kDiag) + "/minidump.gz";
};

TEST_F(CompressTest, RawdumpRoundTripsThroughZlib) {
    // Past three 512 KiB buffers: text, bytes that do not compress and zeros.
    const std::string raw = Input(1100000) + std::string(600000, '\0');
    MakeImage(kRawdump, 0);
    Put(kRawdump, 0, raw);

    ASSERT_EQ(compress_minidump(), 0);

    const std::string packed = ReadFile(kGz);
    EXPECT_LT(packed.size(), raw.size() / 2);
    EXPECT_TRUE(Inflate(packed, raw.size()) == raw);
    // A second, independent reader of zlib streams.
    EXPECT_TRUE(PigzInflate(Host(kGz)) == raw);

    // An empty raw dump still gives a whole, empty stream.
    MakeImage(kRawdump, 0);
    ASSERT_EQ(compress_minidump(), 0);
    EXPECT_EQ(Inflate(ReadFile(kGz), 0), "");
}

TEST_F(CompressTest, FailuresAreReported) {
    EXPECT_EQ(compress_minidump(), 1);
    EXPECT_TRUE(mLog.contains(kTag, "Failed opening input file!"));

    // 2 GiB, sparse: refused before anything is read or written.
    MakeImage(kRawdump, uint64_t(1) << 31);
    EXPECT_EQ(compress_minidump(), 1);
    EXPECT_TRUE(mLog.contains(kTag, "File is too large to be processed."));
    EXPECT_FALSE(Exists(kGz));

    MakeImage(kRawdump, (uint64_t(1) << 31) - 1);
    std::filesystem::remove_all(Host(kDiag));
    EXPECT_EQ(compress_minidump(), 1);
    EXPECT_TRUE(mLog.contains(kTag, "Failed opening output file!"));
}

TEST_F(CompressTest, SecondCallKeepsTheFileOnlyWhileRawDumpAndFileAreUnchanged) {
    const std::string kept = "minidump.gz already holds this raw dump, not compressed again";
    MakeImage(kRawdump, 0);
    Put(kRawdump, 0, std::string(300000, 'a'));
    auto modified = [&] { return std::filesystem::last_write_time(Host(kGz)); };
    ASSERT_EQ(compress_minidump(), 0);
    const auto first = modified();

    ASSERT_EQ(compress_minidump(), 0);
    EXPECT_EQ(mLog.count(kTag, kept), 1);
    EXPECT_TRUE(modified() == first);

    // Same node, same size, one byte changed: compressed again.
    Put(kRawdump, 123456, "b");
    ASSERT_EQ(compress_minidump(), 0);
    EXPECT_EQ(mLog.count(kTag, kept), 1);
    std::string changed(300000, 'a');
    changed[123456] = 'b';
    EXPECT_TRUE(Inflate(ReadFile(kGz), changed.size()) == changed);

    // The file replaced behind the run's back: compressed again.
    std::filesystem::remove(Host(kGz));
    { std::ofstream(Host(kGz)) << "stale"; }
    ASSERT_EQ(compress_minidump(), 0);
    EXPECT_EQ(mLog.count(kTag, kept), 1);
    EXPECT_TRUE(Inflate(ReadFile(kGz), changed.size()) == changed);

    // A new run starts from nothing.
    reset_minidump_state();
    ASSERT_EQ(compress_minidump(), 0);
    EXPECT_EQ(mLog.count(kTag, kept), 1);
}

struct Deflated {
    DeflateResult result;
    std::string stream;
    int writes = 0;
};

// Deflates `input`; reads fail once `failAfter` bytes have been read, writes
// after the first `okWrites`.
Deflated Deflate(const std::string& input, const DeflateOptions& options,
                 size_t failAfter = std::string::npos, int okWrites = INT_MAX) {
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
                if (run.writes++ >= okWrites) return false;
                run.stream.append(reinterpret_cast<const char*>(data), len);
                return true;
            },
            options);
    return run;
}

TEST(BlockDeflateTest, EveryBlockCutInflatesToTheInput) {
    // Blocks smaller than the deflate window take their dictionary from more
    // than one block before them; larger ones from the last block alone.
    for (size_t block : {size_t(4096), size_t(65536)}) {
        for (size_t size : {size_t(0), size_t(1), block - 1, block, block + 1, 5 * block + 17}) {
            for (unsigned threads : {1u, 2u, 3u}) {
                SCOPED_TRACE(::testing::Message() << block << " " << size << " " << threads);
                const std::string input = Input(size);
                const Deflated run = Deflate(input, {threads, block});
                ASSERT_EQ(run.result.error, DeflateError::kNone);
                ASSERT_GE(run.stream.size(), 6u);
                EXPECT_TRUE(run.stream.compare(0, 2, "\x78\xDA") == 0);
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
            const Deflated run = Deflate(input, {threads, 4096}, std::string::npos, okWrites);
            EXPECT_EQ(run.result.error, DeflateError::kWrite);
            EXPECT_EQ(run.writes, okWrites + 1);
        }
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
