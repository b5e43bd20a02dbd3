#include "modules/BSPLogProcessor/crash/CrashLines.h"

#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

LogLines::LogLines(const char* devicePath, uint64_t scanLimit) : mLimit(scanLimit) {
    mFile = fopen(platform::DevicePath(devicePath).c_str(), "re");
}

LogLines::~LogLines() {
    if (mFile != nullptr) fclose(mFile);
}

bool LogLines::next(std::string_view* line) {
    if (mFile == nullptr) return false;
    size_t n = 0;
    while (n < sizeof(mLine) - 1 && mPosition < mLimit) {
        int c = getc_unlocked(mFile);
        if (c == EOF) break;
        mLine[n++] = static_cast<char>(c);
        ++mPosition;
        if (c == '\n') break;
    }
    *line = std::string_view(mLine, n);
    return n > 0;
}

bool LogLines::seek(uint64_t position) {
    if (mFile == nullptr || position > static_cast<uint64_t>(INT64_MAX)) return false;
    if (fseeko(mFile, static_cast<off_t>(position), SEEK_SET) != 0) return false;
    mPosition = position;
    return true;
}

std::string_view trim_line_end(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    return line;
}

LineRanker keyword_ranker(const KeywordList& list) {
    return [&list](std::string_view line, size_t limit) { return list.find(line, limit); };
}

bool FirstHit::offer(int found, std::string_view text, uint64_t nextLine) {
    if (found >= 0) {
        rank = found;
        line.assign(text);
        next = nextLine;
    }
    return rank == 0;
}

FirstHit scan_first_hit(LogLines& lines, const LineRanker& ranker) {
    FirstHit hit;
    std::string_view line;
    while (lines.next(&line)) {
        if (hit.offer(ranker(line, hit.limit()), line, lines.position())) break;
    }
    return hit;
}

bool skip_past_line(LogLines& lines, const char* marker, std::string_view* hit) {
    std::string_view line;
    while (lines.next(&line)) {
        if (line.find(marker) == std::string_view::npos) continue;
        if (hit != nullptr) *hit = line;
        return true;
    }
    return false;
}

}  // namespace zelkor::tessel::Minidump
