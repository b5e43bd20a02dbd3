// A host root with partition images whose bytes each test writes itself, at
// explicit offsets, so that the tests do not share the code's idea of the
// layout.
#pragma once

#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "LogCapture.h"
#include "LogRecords.h"
#include "TempRoot.h"
#include "blackbox/TestImage.h"
#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/minidump/TzLogDict.h"
#include "modules/blackbox/BlackBoxHeaders.h"
#include "platform/Platform.h"

namespace zelkor::tessel::testing {

constexpr char kBlackbox[] = "/dev/block/by-name/blackbox";
constexpr char kMinidump[] = "/dev/block/by-name/minidump";
constexpr char kRawdump[] = "/dev/block/by-name/rawdump";
constexpr char kDiag[] = "/data/vendor/diag";
constexpr char kTag[] = "BSPLogProcessor";

class MinidumpTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        mOldMask = umask(022);
        setenv("TZ", "UTC", 1);
        tzset();
        Minidump::reset_minidump_state();
        Minidump::clear_tzlog_dict();
        std::filesystem::create_directories(Host(kDiag));
    }
    void TearDown() override {
        Minidump::reset_minidump_state();
        Minidump::clear_tzlog_dict();
        umask(mOldMask);
    }

    std::string Host(const std::string& devicePath) const { return mRoot.path() + devicePath; }
    // A file of the diag folder: its device path, and what it holds.
    static std::string Diag(const std::string& name) { return std::string(kDiag) + "/" + name; }
    std::string DiagText(const std::string& name) const { return ReadFile(Diag(name)); }

    // A sparse image of `size` bytes at a device path.
    void MakeImage(const std::string& devicePath, uint64_t size) const {
        EXPECT_TRUE(TestImage(Host(devicePath), size).ok()) << devicePath;
    }

    void Put(const std::string& devicePath, uint64_t offset, const std::string& bytes) const {
        TestImage image(Host(devicePath));
        image.PutBytes(offset, bytes);
        EXPECT_TRUE(image.ok()) << devicePath;
    }
    // Little-endian integers; consecutive 32-bit words from `offset` on.
    void Put16(const std::string& p, uint64_t o, uint64_t v) const {
        Put(p, o, LittleEndian(v, 2));
    }
    void Put32(const std::string& p, uint64_t o, uint64_t v) const {
        Put(p, o, LittleEndian(v, 4));
    }
    void Put64(const std::string& p, uint64_t o, uint64_t v) const {
        Put(p, o, LittleEndian(v, 8));
    }
    void PutWords(const std::string& devicePath, uint64_t offset,
                  std::initializer_list<uint64_t> words) const {
        for (uint64_t word : words) Put32(devicePath, (offset += 4) - 4, word);
    }

    // A blackbox image with its table header: the log content at 0x400, the
    // dump area at `area`, the control block at `control`.
    void Blackbox(uint64_t size, uint64_t area, uint64_t control) const {
        MakeImage(kBlackbox, size);
        Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);  // log_table_header magic
        Put32(kBlackbox, 20, 0x400);                 // log_content_offset
        Put32(kBlackbox, 24, area);                  // minidump_offset
        Put32(kBlackbox, 32, control);               // control_content_offset
    }
    // A last-log header at `at`: slot 0 at 0x400, the slot distances of both
    // cases.
    void LastLog(const char* dev, uint64_t at, const char* magic, uint32_t store, uint32_t counts,
                 uint64_t blackboxDistance, uint64_t minidumpDistance) const {
        Put(dev, at, std::string(magic, 8));
        PutWords(dev, at + 8, {store, counts, 0x400, 0});
        Put64(dev, at + 40, blackboxDistance);
        Put64(dev, at + 48, minidumpDistance);
    }
    // A dump header at `slot`; version 0x2000 adds the time and boot index.
    void DumpHeader(const char* dev, uint64_t slot, uint32_t version, uint32_t count,
                    const std::string& time = "", uint32_t bootIndex = 0) const {
        Put(dev, slot, "Raw_Dmp!");
        Put32(dev, slot + 8, version);
        Put32(dev, slot + 52, count);
        if (version == 0x2000) {
            Put(dev, slot + 56, time + std::string(20 - time.size(), '\0'));
            Put32(dev, slot + 76, bootIndex);
        }
    }
    // Section header `index` of a dump whose section headers start at `first`.
    void SectionHeader(const char* dev, uint64_t first, int index, uint32_t flags,
                       const std::string& name, uint64_t position, uint64_t size) const {
        const uint64_t at = first + 64 * index;
        Put32(dev, at, flags);
        Put64(dev, at + 12, position);
        Put64(dev, at + 20, size);
        Put(dev, at + 44, name + std::string(20 - name.size(), '\0'));
    }

    std::string Get(const std::string& devicePath, uint64_t offset, size_t len) const {
        return TestImage(Host(devicePath)).Bytes(offset, len);
    }
    uint64_t GetLE(const std::string& devicePath, uint64_t offset, int width) const {
        return TestImage(Host(devicePath)).Le(offset, width);
    }

    // Little-endian fields of an image: U32(offset, value), U64(offset, value).
    using Field = std::tuple<uint64_t, int, uint64_t>;
    static Field U32(uint64_t offset, uint64_t value) { return {offset, 4, value}; }
    static Field U64(uint64_t offset, uint64_t value) { return {offset, 8, value}; }
    void ExpectFields(const std::string& devicePath, const std::vector<Field>& fields) const {
        for (auto [offset, width, value] : fields) {
            EXPECT_EQ(GetLE(devicePath, offset, width), value) << "at 0x" << std::hex << offset;
        }
    }
    // One section parsed from an image, as the dump walk calls it.
    int ParseAt(const char* devicePath, const char* name, uint64_t offset, uint64_t size,
                uint32_t late = 0) const {
        const int fd = OpenImage(devicePath);
        EXPECT_GE(fd, 0) << devicePath;
        const int result = Minidump::parse_log(fd, name, offset, size, late);
        if (fd >= 0) close(fd);
        return result;
    }

    std::string ReadFile(const std::string& devicePath) const {
        std::ifstream in(Host(devicePath), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    bool Exists(const std::string& devicePath) const {
        return std::filesystem::exists(Host(devicePath));
    }
    mode_t ModeOf(const std::string& devicePath) const {
        struct stat st {};
        EXPECT_EQ(stat(Host(devicePath).c_str(), &st), 0) << devicePath;
        return st.st_mode & 07777;
    }
    int OpenImage(const std::string& devicePath) const {
        return open(Host(devicePath).c_str(), O_RDWR);
    }

    TempRoot mRoot;
    LogCapture mLog;
    mode_t mOldMask = 0;
};

// `stream` inflated in one call, which must take it whole.
inline std::string Inflate(const std::string& stream, size_t expectedSize) {
    std::string out(expectedSize + 1, '\0');
    uLongf outLen = out.size();
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(out.data()), &outLen,
                         reinterpret_cast<const Bytef*>(stream.data()), stream.size()),
              Z_OK);
    out.resize(outLen);
    return out;
}

// The failed-dump repair as the boot run calls it: with the blackbox headers
// as the run has read them (all zero when the dump area is not in a blackbox).
inline int RepairFailedDump() {
    blackbox::BlackBoxHeaders headers{};
    if (Minidump::dump_area_in_blackbox()) {
        int fd = open(platform::DevicePath("/dev/block/by-name/blackbox").c_str(),
                      O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            blackbox::handle_black_box_headers(fd, &headers, blackbox::HeaderPassMode::kReadOnly);
            close(fd);
        }
    }
    return Minidump::handle_minidump_fail_header(headers);
}

}  // namespace zelkor::tessel::testing
