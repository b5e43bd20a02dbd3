// "minidump.gz": the raw dump partition as one zlib stream.
#include <zlib.h>

#include <filesystem>
#include <random>

#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class CompressTest : public MinidumpTest {
  protected:
    std::string Inflate(const std::string& packed, size_t expectedSize) {
        std::string out(expectedSize + 1, '\0');
        uLongf outLen = out.size();
        int rc = uncompress(reinterpret_cast<Bytef*>(out.data()), &outLen,
                            reinterpret_cast<const Bytef*>(packed.data()), packed.size());
        EXPECT_EQ(rc, Z_OK);
        out.resize(outLen);
        return out;
    }
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
    // Past three 512 KiB buffers: text, zeros and bytes that do not compress.
    std::string raw;
    for (int i = 0; raw.size() < 700000; ++i) raw += "kernel line " + std::to_string(i) + "\n";
    raw += std::string(600000, '\0');
    std::mt19937 random(7);
    for (int i = 0; i < 400000; ++i) raw.push_back(static_cast<char>(random()));
    MakeImage(kRawdump, 0);
    Put(kRawdump, 0, raw);

    ASSERT_EQ(compress_minidump(), 0);

    const std::string packed = ReadFile(kGz);
    ASSERT_GE(packed.size(), 2u);
    EXPECT_EQ(static_cast<uint8_t>(packed[0]), 0x78);  // deflate, 32 KiB window
    EXPECT_EQ(static_cast<uint8_t>(packed[1]), 0xDA);  // strongest level
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
    ASSERT_EQ(compress_minidump(), 0);
    struct stat first {};
    ASSERT_EQ(stat(Host(kGz).c_str(), &first), 0);

    ASSERT_EQ(compress_minidump(), 0);
    EXPECT_EQ(mLog.count(kTag, kept), 1);
    struct stat second {};
    ASSERT_EQ(stat(Host(kGz).c_str(), &second), 0);
    EXPECT_EQ(second.st_mtim.tv_nsec, first.st_mtim.tv_nsec);
    EXPECT_EQ(second.st_mtim.tv_sec, first.st_mtim.tv_sec);

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

}  // namespace
}  // namespace zelkor::tessel::testing
