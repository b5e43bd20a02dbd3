// Line-wise reading and scanning of the text files the crash classification
// and the crash histories look at.
//
// These files come from a crashed boot: they may be cut short, hold binary
// runs or NUL bytes, or be far larger than any log should be. Lines are read
// into a fixed 512-byte buffer as fgets() would: a longer line comes out in
// pieces of 511 bytes, and a line keeps its newline when it fits. NUL bytes
// stay part of the line. No pass reads past a fixed number of bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "modules/BSPLogProcessor/crash/CrashKeywords.h"

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

// `line` without its line end ("\n", "\r\n").
std::string_view trim_line_end(std::string_view line);

// Ranks a line: the lowest rank below `limit` that the line shows, or -1.
using LineRanker = std::function<int(std::string_view line, size_t limit)>;

// Ranks a line by the first entry of `list` it contains.
LineRanker keyword_ranker(const KeywordList& list);

// The lowest rank a scan has met so far, with the first line that showed it.
struct FirstHit {
    int rank = -1;      // -1: nothing matched
    std::string line;   // first line that shows `rank`
    uint64_t next = 0;  // offset of the line after it

    // Only a rank below this can change the answer.
    size_t limit() const { return rank < 0 ? static_cast<size_t>(-1) : static_cast<size_t>(rank); }
    // Takes the rank `found` for `text` (the line before offset `nextLine`)
    // unless it is -1, which a ranker given limit() returns for anything not
    // better; true once rank 0, the best there is, has been met.
    bool offer(int found, std::string_view text, uint64_t nextLine);
};

// Reads the rest of the file once and returns the lowest rank shown anywhere
// in it, with the first line that shows it. The same answer as trying each
// rank over the whole file in turn, in one pass.
FirstHit scan_first_hit(LogLines& lines, const LineRanker& ranker);

// Reads lines up to and including the first one that contains `marker`;
// that line is left in `hit` when one is given.
bool skip_past_line(LogLines& lines, const char* marker, std::string_view* hit = nullptr);

}  // namespace zelkor::tessel::Minidump
