#include "modules/BSPLogProcessor/minidump/SectionStream.h"

#include <android-base/file.h>
#include <errno.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

ByteSource::ByteSource(int fd, std::vector<ByteRange> ranges)
    : mFd(fd), mRanges(std::move(ranges)) {}

ssize_t ByteSource::Read(void* out, size_t len) {
    while (mIndex < mRanges.size() && mDone == mRanges[mIndex].size) {
        ++mIndex;
        mDone = 0;
    }
    if (mIndex >= mRanges.size()) return 0;
    const ByteRange& range = mRanges[mIndex];
    uint64_t left = range.size - mDone;
    size_t want = left < len ? static_cast<size_t>(left) : len;
    ssize_t n = blackbox::read_at(mFd, static_cast<int64_t>(range.offset + mDone), out, want);
    if (n < 0) return -1;
    if (static_cast<size_t>(n) < want) mIndex = mRanges.size();  // the data ends here
    mDone += static_cast<uint64_t>(n);
    return n;
}

std::vector<ByteRange> RingRanges(uint64_t start, uint64_t len, uint32_t wrap, uint64_t next) {
    if (next > len) {
        MD_LOGW("ring position %lu beyond its %lu bytes\n", static_cast<unsigned long>(next),
                static_cast<unsigned long>(len));
        return {{start, len}};
    }
    if (wrap == 0) return {{start, next}};
    return {{start + next, len - next}, {start, next}};
}

void OutBuffer::Append(std::string_view text) {
    if (mFailed) return;
    mPending.append(text);
    if (mPending.size() >= kFlushAt) Flush();
}

void OutBuffer::Printf(const char* fmt, ...) {
    char line[1024];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(line, sizeof(line), fmt, ap);
    va_end(ap);
    if (n < 0) return;
    if (static_cast<size_t>(n) < sizeof(line)) {
        Append(std::string_view(line, static_cast<size_t>(n)));
        return;
    }
    std::string longer(static_cast<size_t>(n) + 1, '\0');
    va_start(ap, fmt);
    vsnprintf(longer.data(), longer.size(), fmt, ap);
    va_end(ap);
    longer.pop_back();
    Append(longer);
}

void OutBuffer::Flush() {
    // After a failed write nothing is kept (Append takes no more).
    if (mPending.empty()) return;
    if (!android::base::WriteFully(mFd, mPending.data(), mPending.size())) {
        MD_LOGE("write last log file fail %d(%s)\n", errno, strerror(errno));
        mFailed = true;
    }
    mPending.clear();
}

}  // namespace zelkor::tessel::Minidump
