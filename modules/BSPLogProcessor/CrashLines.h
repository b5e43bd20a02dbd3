// Line-wise reading of the text files the crash classification looks at.
//
// These files come from a crashed boot: they may be cut short, hold binary
// runs or NUL bytes, or be far larger than any log should be. Lines are read
// into a fixed 512-byte buffer as fgets() would: a longer line comes out in
// pieces of 511 bytes, and a line keeps its newline when it fits. NUL bytes
// stay part of the line. No pass reads past a fixed number of bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

namespace zelkor::tessel::Minidump {

constexpr size_t kCrashLineBuffer = 512;
// Far beyond any last-log file; only a runaway node or image reaches it.
constexpr uint64_t kCrashScanLimit = 256ull * 1024 * 1024;

class LogLines {
  public:
    // Opens the device path read-only; see ok().
    explicit LogLines(const char* devicePath, uint64_t scanLimit = kCrashScanLimit);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    bool ok() const { return mFile != nullptr; }

    // The next line, valid until the next call; false at the end of the file,
    // on a read error, or once the scan limit is reached.
    bool next(std::string_view* line);

    // Byte offset of the next line, and a way back to one.
    uint64_t position() const { return mPosition; }
    bool seek(uint64_t position);

  private:
    FILE* mFile = nullptr;
    uint64_t mPosition = 0;
    uint64_t mLimit;
    char mLine[kCrashLineBuffer];
};

}  // namespace zelkor::tessel::Minidump
