// Kernel printk records ("md_KMDT0x110.BIN", "md_kmsg").
//
// A record is a 16-byte header followed by its text:
//   0  u64 time stamp, nanoseconds
//   8  u16 length of the whole record, header included
//  10  u16 length of the text (the kernel's text_len), not used
//  12  u16 length of the dictionary that follows the text, not used
//  14  u8  facility
//  15  u8  flags and level; the level is the low three bits
// The text written is everything after the header up to the record's length,
// as far as its first NUL: a dictionary the kernel stored behind the text
// stays with it, as the readers of these files have always seen it.
// This is the kernel's struct printk_log without the caller id that
// CONFIG_PRINTK_CALLER appends, so the records say nothing about the thread or
// CPU that logged them.
#include <errno.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/LittleEndian.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr size_t kHeaderSize = 16;
// A zeroed or wrapped-over log is a run of empty records; give up on it.
constexpr int kMaxEmptyRecords = 200;

struct PrintkRecord {
    uint64_t tsNsec;
    unsigned level;
    std::string_view text;
};

// The section read through one window large enough for a whole record, so a
// log of small records costs few reads.
class RecordWindow {
  public:
    explicit RecordWindow(const Section& in)
        : mFd(in.fd), mEnd(in.offset + in.size), mBuf(new uint8_t[kWindow]) {}

    // Makes up to `len` bytes at `pos` available at `*data`; fewer at the end
    // of the section or of the partition, -1 with errno set on a read error.
    ssize_t Fetch(uint64_t pos, size_t len, const uint8_t** data) {
        const uint64_t held = mStart + mLen;
        const bool covered = pos >= mStart && pos <= held && (pos + len <= held || held >= mEnd);
        if (!covered) {
            size_t want = static_cast<size_t>(std::min<uint64_t>(kWindow, mEnd - pos));
            ssize_t n = blackbox::read_at(mFd, static_cast<int64_t>(pos), mBuf.get(), want);
            if (n < 0) return -1;
            mStart = pos;
            mLen = static_cast<size_t>(n);
            // A short read means the partition ends here.
            if (mLen < want) mEnd = pos + mLen;
        }
        *data = mBuf.get() + (pos - mStart);
        return static_cast<ssize_t>(std::min<uint64_t>(len, mStart + mLen - pos));
    }

  private:
    // A record header and the longest record text, with room to spare.
    static constexpr size_t kWindow = 128 * 1024;
    int mFd;
    uint64_t mEnd;
    std::unique_ptr<uint8_t[]> mBuf;  // only bytes read into it are looked at
    uint64_t mStart = 0;
    size_t mLen = 0;
};

void ForEachRecord(const Section& in, const std::function<void(const PrintkRecord&)>& emit) {
    const uint64_t end = in.offset + in.size;
    RecordWindow window(in);
    uint64_t pos = in.offset;
    int emptyRecords = 0;
    while (pos < end) {
        const uint8_t* header = nullptr;
        ssize_t n = end - pos < kHeaderSize ? 0 : window.Fetch(pos, kHeaderSize, &header);
        if (n < 0) {
            MD_LOGE("read mini partition printk header err=%d(%s)", errno, strerror(errno));
            return;
        }
        if (static_cast<size_t>(n) < kHeaderSize) {
            MD_LOGE("Uncomplete head found.");
            return;
        }
        const uint16_t len = LoadU16(header + 8);
        if (len <= kHeaderSize) {
            // Nothing after the header, or a length that cannot advance.
            if (++emptyRecords > kMaxEmptyRecords) return;
            pos += kHeaderSize;
            continue;
        }
        const uint64_t tsNsec = LoadU64(header);
        const unsigned level = header[15] & 7u;
        const size_t bodyLen = len - kHeaderSize;
        const size_t inSection = std::min<uint64_t>(bodyLen, end - (pos + kHeaderSize));
        const uint8_t* body = nullptr;
        n = window.Fetch(pos + kHeaderSize, inSection, &body);
        if (n < 0) {
            MD_LOGE("read mini partition printk buf err=%d(%s)", errno, strerror(errno));
            return;
        }
        std::string_view text(reinterpret_cast<const char*>(body), static_cast<size_t>(n));
        text = text.substr(0, text.find('\0'));
        emit({tsNsec, level, text});
        // A record cut off by the end of the section is the log's last.
        if (static_cast<size_t>(n) < bodyLen) {
            MD_LOGE("Uncomplete block found.");
            return;
        }
        pos += len;
    }
}

}  // namespace

void WriteKmdt(const Section& in, int out) {
    OutBuffer buf(out);
    ForEachRecord(in, [&](const PrintkRecord& r) {
        buf.Printf("<%d> [%lu.%.6lu] ", static_cast<int>(r.level),
                   static_cast<unsigned long>(r.tsNsec / 1000000000),
                   static_cast<unsigned long>(r.tsNsec % 1000000000 / 1000));
        buf.Append(r.text);
        buf.Append("\n");
    });
}

// Lines as the kernel prints them with CONFIG_PRINTK_CALLER: time, then the
// context in a second bracket, which the crash classification uses to keep to
// the lines of one call trace. These records carry no caller id, so the second
// field holds the record's level as "L<level>": the lines of one report share
// it, and lines logged at other levels in between are told apart.
void WriteKmsg(const Section& in, int out, const char* dumpTime) {
    OutBuffer buf(out);
    if (dumpTime != nullptr) {
        buf.Append("=== Dump occured at ");
        buf.Append(dumpTime);
        buf.Append(" ===\n");
    }
    ForEachRecord(in, [&](const PrintkRecord& r) {
        char prefix[64];
        char context[16];
        snprintf(context, sizeof(context), "L%u", r.level);
        int n = snprintf(prefix, sizeof(prefix), "[%5lu.%06lu][%6s] ",
                         static_cast<unsigned long>(r.tsNsec / 1000000000),
                         static_cast<unsigned long>(r.tsNsec % 1000000000 / 1000), context);
        std::string_view text = r.text;
        // One line per line of text, each with the prefix, as the kernel does.
        do {
            size_t nl = text.find('\n');
            std::string_view line = text.substr(0, nl);
            buf.Append(std::string_view(prefix, static_cast<size_t>(n)));
            buf.Append(line);
            buf.Append("\n");
            text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
        } while (!text.empty());
    });
}

}  // namespace zelkor::tessel::Minidump
