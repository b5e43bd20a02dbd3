#include "modules/BSPLogProcessor/CrashLines.h"

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

}  // namespace zelkor::tessel::Minidump
