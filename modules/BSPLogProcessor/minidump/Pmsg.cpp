// The persistent user-space log ("md_pmsg"): what liblog wrote to /dev/pmsg0,
// as the kernel's pstore keeps it, turned back into logcat lines.
//
// liblog frames each entry as
//   android_pmsg_log_header_t  u8 magic 'l', u16 len (whole record), u16 uid, u16 pid
//   android_log_header_t       u8 log id, u16 tid, u32 seconds, u32 nanoseconds
// followed, for the text buffers, by a priority byte, the tag and its NUL, and
// the message. pstore keeps the bytes in a ring behind a 12-byte header
// ("DBGC" signature, start, size). The ring may have wrapped through a record,
// and the zone may end in ECC bytes, so records are found by their magic and
// a plausible header rather than trusted to follow each other.
#include <time.h>

#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/LittleEndian.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr uint8_t kRecordMagic = 'l';
constexpr size_t kPmsgHeaderSize = 7;
constexpr size_t kLogHeaderSize = 11;
constexpr size_t kHeadersSize = kPmsgHeaderSize + kLogHeaderSize;
// liblog's LOGGER_ENTRY_MAX_PAYLOAD.
constexpr size_t kMaxPayload = 4068;
constexpr size_t kMaxRecord = kHeadersSize + kMaxPayload;
constexpr uint8_t kLogIdMax = 8;
constexpr uint8_t kLogIdEvents = 2;
constexpr uint8_t kLogIdStats = 5;
constexpr uint8_t kLogIdSecurity = 6;
constexpr uint8_t kPrioVerbose = 2;
constexpr uint8_t kPrioFatal = 7;

constexpr uint32_t kPstoreSignature = 0x43474244;  // "DBGC"
constexpr size_t kPstoreHeaderSize = 12;

// The section's bytes oldest first: behind a pstore header, the ring from its
// start position to the end of the data, then from the beginning.
std::vector<ByteRange> RingOrder(const Section& in) {
    uint8_t header[kPstoreHeaderSize];
    if (in.size >= kPstoreHeaderSize &&
        blackbox::read_at(in.fd, in.offset, header, sizeof(header)) == sizeof(header) &&
        LoadU32(header) == kPstoreSignature) {
        const uint64_t data = in.offset + kPstoreHeaderSize;
        const uint64_t capacity = in.size - kPstoreHeaderSize;
        const uint64_t start = LoadU32(header + 4);
        const uint64_t used = LoadU32(header + 8);
        if (used <= capacity && start <= used) {
            return {{data + start, used - start}, {data, start}};
        }
        MD_LOGW("pmsg ring start %lu size %lu do not fit %lu bytes, reading it whole\n",
                static_cast<unsigned long>(start), static_cast<unsigned long>(used),
                static_cast<unsigned long>(capacity));
    }
    return {{in.offset, in.size}};
}

char PriorityLetter(uint8_t prio) {
    static constexpr char kLetters[] = "??VDIWEFS";
    return prio < sizeof(kLetters) - 1 ? kLetters[prio] : '?';
}

// Writes one text record as logcat lines; false when the payload is not one.
// liblog writes the message with its NUL, so a NUL anywhere else means that
// the record's length ran into other data: its tail was overwritten. Content
// written without a NUL (pmsg files) must at least be followed by the next
// record, zero fill or the end of the data.
bool WriteTextRecord(const uint8_t* rec, size_t len, const uint8_t* end, OutBuffer& out) {
    const uint8_t prio = rec[kHeadersSize];
    if (prio < kPrioVerbose || prio > kPrioFatal) return false;
    std::string_view payload(reinterpret_cast<const char*>(rec) + kHeadersSize + 1,
                             len - kHeadersSize - 1);
    size_t tagEnd = payload.find('\0');
    if (tagEnd == std::string_view::npos) return false;
    std::string_view tag = payload.substr(0, tagEnd);
    std::string_view msg = payload.substr(tagEnd + 1);
    size_t nul = msg.find('\0');
    const uint8_t* next = rec + len;
    if (nul == std::string_view::npos) {
        if (next != end && *next != kRecordMagic && *next != '\0') return false;
    } else if (nul != msg.size() - 1) {
        return false;
    } else {
        msg.remove_suffix(1);
    }
    while (!msg.empty() && msg.back() == '\n') msg.remove_suffix(1);

    const time_t sec = static_cast<time_t>(LoadU32(rec + 10));
    struct tm local {};
    localtime_r(&sec, &local);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
    const int ms = static_cast<int>(LoadU32(rec + 14) / 1000000);
    const int pid = LoadU16(rec + 5);
    const int tid = LoadU16(rec + 8);
    // One line per line of the message, as logcat prints them.
    do {
        size_t nl = msg.find('\n');
        std::string_view line = msg.substr(0, nl);
        out.Printf("%s.%03d %d %d %c %.*s:\t%.*s\n", stamp, ms, pid, tid, PriorityLetter(prio),
                   static_cast<int>(tag.size()), tag.data(), static_cast<int>(line.size()),
                   line.data());
        msg = nl == std::string_view::npos ? std::string_view() : msg.substr(nl + 1);
    } while (!msg.empty());
    return true;
}

// Length of a plausible record header at `rec`, or 0.
size_t RecordLength(const uint8_t* rec) {
    const size_t len = LoadU16(rec + 1);
    const uint8_t id = rec[kPmsgHeaderSize];
    if (len <= kHeadersSize + 1 || len > kMaxRecord || id >= kLogIdMax) return 0;
    if (LoadU32(rec + 14) >= 1000000000u) return 0;
    return len;
}

bool IsBinaryLog(uint8_t id) {
    return id == kLogIdEvents || id == kLogIdStats || id == kLogIdSecurity;
}

}  // namespace

void WritePmsg(const Section& in, int out) {
    ByteSource source(in.fd, RingOrder(in));
    OutBuffer buf(out);
    // Refilled whenever less than the largest record lies ahead, so a whole
    // record is always in view; only the bytes read into it are looked at.
    constexpr size_t kWindowSize = 2 * kCopyChunk;
    std::unique_ptr<uint8_t[]> window(new uint8_t[kWindowSize]);
    size_t begin = 0;
    size_t fill = 0;
    bool atEnd = false;
    for (;;) {
        if (!atEnd && fill - begin < kMaxRecord) {
            memmove(window.get(), window.get() + begin, fill - begin);
            fill -= begin;
            begin = 0;
            ssize_t n = source.Read(window.get() + fill, kWindowSize - fill);
            if (n <= 0) {
                atEnd = true;
            } else {
                fill += static_cast<size_t>(n);
                continue;
            }
        }
        if (begin >= fill) break;
        auto* magic =
                static_cast<uint8_t*>(memchr(window.get() + begin, kRecordMagic, fill - begin));
        if (magic == nullptr) {
            begin = fill;
            continue;
        }
        begin = static_cast<size_t>(magic - window.get());
        // Bring the whole of a possible record into view before judging it.
        if (!atEnd && fill - begin < kMaxRecord) continue;
        if (fill - begin < kHeadersSize) break;
        const size_t len = RecordLength(magic);
        if (len == 0 || len > fill - begin) {
            // Not a record, or one torn by the end of the data: look further.
            begin += 1;
            continue;
        }
        const uint8_t id = magic[kPmsgHeaderSize];
        if (IsBinaryLog(id) || WriteTextRecord(magic, len, window.get() + fill, buf)) {
            begin += len;
        } else {
            begin += 1;
        }
    }
}

}  // namespace zelkor::tessel::Minidump
