// The trust zone logs an EDAC error as its error code followed by the CPU,
// the ERXSTATUS_EL1 and the ERXMISC0_EL1 words, in hex:
//   [0x2c1a88f1] (700181 2 cc800002 30000000)
#include <algorithm>

#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr size_t kMaxEdacWord = 31;
constexpr char kSeparators[] = " \t,()\r\n";

// The next word of `text`, cut to kMaxEdacWord; false when none is left.
bool NextWord(std::string_view& text, std::string& word) {
    size_t start = text.find_first_not_of(kSeparators);
    if (start == std::string_view::npos) return false;
    text.remove_prefix(start);
    size_t end = std::min(text.find_first_of(kSeparators), text.size());
    word.assign(text.substr(0, std::min(end, kMaxEdacWord)));
    text.remove_prefix(end);
    return true;
}

}  // namespace

bool split_edac_diag_log(std::string_view line, std::string& cpu, std::string& status,
                         std::string& misc) {
    constexpr std::string_view kCode(kTzEdacCode);
    size_t at = line.find(kCode);
    if (at == std::string_view::npos) return false;
    std::string_view rest = line.substr(at + kCode.size());
    // "(7001810 ..." is another code.
    if (!rest.empty() &&
        std::string_view(kSeparators).find(rest.front()) == std::string_view::npos) {
        return false;
    }
    return NextWord(rest, cpu) && NextWord(rest, status) && NextWord(rest, misc);
}

}  // namespace zelkor::tessel::Minidump
