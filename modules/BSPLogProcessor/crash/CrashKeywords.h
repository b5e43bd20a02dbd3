// The texts the crash classification looks for in the last-log files. Every
// entry is searched as a plain substring of one line; where a table has an
// order, its earlier entries win.
#pragma once

#include <cstddef>
#include <string_view>

namespace zelkor::tessel::Minidump {

// A fixed table of keywords, in the order they are tried.
class KeywordList {
  public:
    template <size_t N>
    constexpr KeywordList(const char* const (&words)[N]) : mWords(words), mCount(N) {}
    constexpr KeywordList(const char* const* words, size_t count) : mWords(words), mCount(count) {}

    constexpr size_t size() const { return mCount; }
    constexpr const char* operator[](size_t i) const { return mWords[i]; }

    // Index of the first entry below `limit` that `line` contains; -1 if none.
    int find(std::string_view line, size_t limit = static_cast<size_t>(-1)) const;

  private:
    const char* const* mWords;
    size_t mCount;
};

// Kernel lines that end a boot in the minidump's kernel log. Index 6 is a
// forced combo-key reset and index 7 a cache error, the others a kernel crash.
extern const KeywordList kMinidumpKernelKeywords;
constexpr size_t kMinidumpKernelKeywordCount = 9;
constexpr size_t kKeywordComboKeys = 6;
constexpr size_t kKeywordCacheMatchError = 7;

extern const KeywordList kKernelBugKeywords;
extern const KeywordList kKernelPanicKeywords;
// Cache and LLCC error reports, in the order of sub types 3 .. 12.
extern const KeywordList kCpuErrorKeywords;
constexpr size_t kCpuErrorKeywordCount = 10;
extern const KeywordList kEdacInterruptKeywords;
extern const KeywordList kListCorruptionKeywords;
extern const KeywordList kUndefInstrKeywords;

// The boot loader's UEFI log: OCP, SMPL, PBS NACK.
extern const KeywordList kUefiLogKeywords;
constexpr size_t kUefiOcp = 0;
constexpr size_t kUefiSmpl = 1;
constexpr size_t kUefiPbsNack = 2;

// The boot loader's log of the warm reset.
extern const KeywordList kWarmResetXblKeywords;
constexpr size_t kXblOcp = 0;
constexpr size_t kXblComboKeys = 1;
constexpr size_t kXblDumpFailed = 2;
constexpr size_t kXblMdTableMissing = 3;
constexpr size_t kXblOcpDetail = 4;
// A PMIC reset the boot loader logs when the battery contact bounced.
constexpr char kXblSmplMarker[] = "Reset. trigger";

// The trust zone's reset reasons, 54 entries; see CRASH_TZ_NON_SECURE_WDT.
extern const KeywordList kTzResetTypes;

// Lines worth quoting from a kernel log in a history text. The stored table
// ends with kSummaryEnd, which is not a keyword itself.
extern const KeywordList kLastKmsgSummaryKeywords;
constexpr char kSummaryEnd[] = "End of keyword";

// Fixed markers of the files the classification reads.
constexpr char kCallTraceMarker[] = "Call trace:";
constexpr char kTzBootStatus[] = "Boot Status :";
constexpr char kTzEdacCode[] = "(700181";
constexpr char kEdacUncorrectedStatus[] = "cc800002";
constexpr char kEdacCorrectedStatus[] = "ce000002";

}  // namespace zelkor::tessel::Minidump
