// Blackbox images for tests, read and patched at explicit offsets, so that a
// misreading of the layout shared by the daemon's writer and reader cannot
// hide; the default headers come from the daemon's encoders.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

#include "modules/blackbox/BlackBoxDefaults.h"

namespace zelkor::tessel::testing {

// The default layout, from the partition map.
constexpr uint64_t kImageSize = 0x9884000;
constexpr uint64_t kSlot1 = 0x1000;
constexpr uint64_t kSlotSize = 0x800000;
constexpr uint64_t kControl = 0x9800000;
constexpr uint64_t kKmsgArea = 0x12000;      // within the slot
constexpr uint64_t kDottingArea = 0x512000;  // within the slot
constexpr uint64_t kDottingAreaSize = kSlotSize - kDottingArea;

class TestImage {
  public:
    // Creates (or truncates) `path` as `size` zero bytes, sparse.
    TestImage(const std::string& path, uint64_t size) : mPath(path) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        mFd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        mFailed = ftruncate(mFd, static_cast<off_t>(size)) != 0;
    }
    // Opens an existing image as it is.
    explicit TestImage(const std::string& path)
        : mPath(path), mFd(open(path.c_str(), O_RDWR | O_CLOEXEC)) {}
    ~TestImage() { close(mFd); }
    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;

    // False once creating the file or one of the writes failed.
    bool ok() const { return mFd >= 0 && !mFailed; }
    const std::string& path() const { return mPath; }
    int fd() const { return mFd; }
    uint64_t size() const {
        struct stat st {};
        fstat(mFd, &st);
        return static_cast<uint64_t>(st.st_size);
    }

    void PutBytes(uint64_t offset, const std::string& bytes) {
        mFailed |= pwrite(mFd, bytes.data(), bytes.size(), static_cast<off_t>(offset)) !=
                   static_cast<ssize_t>(bytes.size());
    }
    void PutLe(uint64_t offset, uint64_t value, int width) {
        std::string bytes;
        for (int i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i));
        PutBytes(offset, bytes);
    }
    void PutU32(uint64_t offset, uint32_t value) { PutLe(offset, value, 4); }
    void PutU64(uint64_t offset, uint64_t value) { PutLe(offset, value, 8); }
    // Consecutive little-endian u32 fields from `offset` on.
    void PutWords(uint64_t offset, std::initializer_list<uint32_t> words) {
        for (uint32_t word : words) PutU32(std::exchange(offset, offset + 4), word);
    }
    // A 20-byte label field, zero-filled.
    void PutLabel(uint64_t offset, const std::string& text) {
        PutBytes(offset, text + std::string(20 - text.size(), '\0'));
    }

    std::string Bytes(uint64_t offset, size_t length) const {
        std::string bytes(length, '\0');
        ssize_t n = pread(mFd, bytes.data(), length, static_cast<off_t>(offset));
        bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return bytes;
    }
    uint64_t Le(uint64_t offset, int width) const {
        const std::string bytes = Bytes(offset, static_cast<size_t>(width));
        uint64_t value = 0;
        for (auto it = bytes.rbegin(); it != bytes.rend(); ++it) {
            value = (value << 8) | static_cast<unsigned char>(*it);
        }
        return value;
    }
    uint32_t U32(uint64_t offset) const { return static_cast<uint32_t>(Le(offset, 4)); }
    uint64_t U64(uint64_t offset) const { return Le(offset, 8); }

    // A header struct as it lies on the partition.
    template <typename Header>
    void PutHeader(uint64_t offset, const Header& header) {
        PutBytes(offset, std::string(reinterpret_cast<const char*>(&header), sizeof(header)));
    }

    // The headers `tessel-image blackbox create` and the header pass write to a
    // blank partition, from the daemon's own encoders, with the current slot
    // `dump_count` (no slot header for slot 0). Their bytes are checked
    // against the layout in the header pass test.
    void PutDefaultHeaders(uint32_t dump_count = 1) {
        blackbox::log_table_header table{};
        blackbox::stamp_default_log_table_header(&table);
        PutHeader(0, table);
        blackbox::log_content_header content{};
        blackbox::stamp_default_log_content_header(&content);
        content.dump_count = dump_count;
        PutHeader(table.log_content_offset, content);
        if (dump_count > 0) PutDefaultSlotHeader(kSlot1 + (dump_count - 1) * kSlotSize);
        blackbox::control_content_header control{};
        blackbox::stamp_default_control_content_header(&control);
        PutHeader(kControl, control);
    }

    void PutDefaultSlotHeader(uint64_t slot) {
        blackbox::black_box_log_header header{};
        blackbox::stamp_default_black_box_log_header(&header);
        PutHeader(slot, header);
    }

  private:
    std::string mPath;
    int mFd = -1;
    bool mFailed = false;
};

}  // namespace zelkor::tessel::testing
