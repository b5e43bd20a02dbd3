// A host root with partition images whose bytes each test writes itself, at
// explicit offsets, so that the tests do not share the code's idea of the
// layout.
#pragma once

#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "LogCapture.h"
#include "LogRecords.h"
#include "TempRoot.h"
#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/TzLogDict.h"
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

    // A sparse image of `size` bytes at a device path.
    void MakeImage(const std::string& devicePath, uint64_t size) const {
        std::filesystem::create_directories(std::filesystem::path(Host(devicePath)).parent_path());
        int fd = open(Host(devicePath).c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
        close(fd);
    }

    void Put(const std::string& devicePath, uint64_t offset, const std::string& bytes) const {
        int fd = open(Host(devicePath).c_str(), O_WRONLY);
        ASSERT_GE(fd, 0) << devicePath;
        ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)),
                  static_cast<ssize_t>(bytes.size()));
        close(fd);
    }
    // Little-endian integers, byte by byte.
    void PutLE(const std::string& devicePath, uint64_t offset, uint64_t value, int width) const {
        Put(devicePath, offset, LittleEndian(value, width));
    }
    void Put16(const std::string& p, uint64_t o, uint64_t v) const { PutLE(p, o, v, 2); }
    void Put32(const std::string& p, uint64_t o, uint64_t v) const { PutLE(p, o, v, 4); }
    void Put64(const std::string& p, uint64_t o, uint64_t v) const { PutLE(p, o, v, 8); }

    // A last-log header at `at`: slot 0 at 0x400, the slot distances of both
    // cases.
    void LastLog(const char* dev, uint64_t at, const char* magic, uint32_t store, uint32_t counts,
                 uint64_t blackboxDistance, uint64_t minidumpDistance) const {
        Put(dev, at, std::string(magic, 8));
        Put32(dev, at + 8, store);
        Put32(dev, at + 12, counts);
        Put64(dev, at + 16, 0x400);
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
        std::string bytes(len, '\0');
        int fd = open(Host(devicePath).c_str(), O_RDONLY);
        EXPECT_GE(fd, 0) << devicePath;
        ssize_t n = pread(fd, bytes.data(), len, static_cast<off_t>(offset));
        close(fd);
        bytes.resize(n < 0 ? 0 : static_cast<size_t>(n));
        return bytes;
    }
    uint64_t GetLE(const std::string& devicePath, uint64_t offset, int width) const {
        std::string bytes = Get(devicePath, offset, width);
        uint64_t v = 0;
        for (int i = static_cast<int>(bytes.size()) - 1; i >= 0; --i) {
            v = (v << 8) | static_cast<uint8_t>(bytes[i]);
        }
        return v;
    }

    std::string ReadFile(const std::string& devicePath) const {
        std::ifstream in(Host(devicePath), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    static bool EndsWith(const std::string& text, const std::string& suffix) {
        return text.size() >= suffix.size() &&
               text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
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
