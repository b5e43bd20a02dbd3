// Call trace of a kernel crash, as the kernel prints it with the caller's
// context in the line prefix:
//   [  163.745012][  T163] Call trace:
//   [  163.745019][  T163]  faulty_write+0x10/0x20 [faulty]
// Other CPUs keep logging while a trace is printed; their lines carry another
// context and are passed over.
#include <algorithm>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr size_t kMaxContextTag = 49;

// The text inside the second bracket pair of the prefix.
std::string ContextTag(std::string_view line) {
    size_t first = line.find(']');
    if (first == std::string_view::npos) return {};
    std::string_view rest = line.substr(first + 1);
    size_t open = rest.find('[');
    size_t close = open == std::string_view::npos ? open : rest.find(']', open + 1);
    if (close == std::string_view::npos) return {};
    return std::string(rest.substr(open + 1, std::min(close - open - 1, kMaxContextTag)));
}

// "  func+0x24" out of "[...][...]  func+0x24/0x80 [module]": the text after
// the second ']' up to the line's first '/', indent included, as every reader
// of the event's trace has always received it. False when the line has no
// such frame.
bool FrameOf(std::string_view line, std::string_view* frame) {
    size_t first = line.find(']');
    size_t second = first == std::string_view::npos ? first : line.find(']', first + 1);
    size_t slash = line.find('/');
    if (second == std::string_view::npos || slash == std::string_view::npos || slash < second) {
        return false;
    }
    *frame = line.substr(second + 1, slash - second - 1);
    return true;
}

}  // namespace

std::string& mutable_crash_stacktrace() {
    static std::string trace;
    return trace;
}

const std::string& crash_stacktrace() {
    return mutable_crash_stacktrace();
}

void record_crash_calltrace(LogLines& kmsg, std::string& trace) {
    std::string_view line;
    if (!skip_past_line(kmsg, kCallTraceMarker, &line)) return;
    const std::string tag = ContextTag(line);

    int counted = 0;
    while (counted < kStacktraceFrames && kmsg.next(&line)) {
        if (line.find(tag) == std::string_view::npos) {
            MD_PRINT("line is not we wanted, skip");
            continue;
        }
        ++counted;
        std::string_view frame;
        if (!FrameOf(line, &frame)) {
            MD_PRINT("found line is not a valid call trace, skip!");
            frame = kInvalidFrame;
        }
        if (trace.size() + frame.size() + 1 > kStacktraceMax) break;
        trace.append(frame).append(";");
    }
}

}  // namespace zelkor::tessel::Minidump
