// Sections kept as text or shown as bytes: "md_cpusys", "md_XBL_LOG",
// "md_ltz" and "md_TZ_IMEM".
#include <errno.h>

#include <algorithm>
#include <cstring>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"

namespace zelkor::tessel::Minidump {

namespace {

// Internal memory is small; a larger announced size is not worth a dump file
// four times its size.
constexpr uint64_t kHexDumpMax = 1024 * 1024;
constexpr size_t kHexPerLine = 16;

}  // namespace

void CopyText(ByteSource& source, OutBuffer& out, TzlogTranslator* translator, NulBytes nulBytes) {
    char chunk[kCopyChunk];
    for (;;) {
        ssize_t n = source.Read(chunk, sizeof(chunk));
        if (n < 0) {
            MD_LOGE("read section fail %d(%s)\n", errno, strerror(errno));
            return;
        }
        if (n == 0) return;
        if (nulBytes == NulBytes::kKept) out.Append(std::string_view(chunk, n));
        char* nul = nulBytes == NulBytes::kEndText ? static_cast<char*>(memchr(chunk, '\0', n))
                                                   : nullptr;
        char* end = nul != nullptr ? nul : std::remove(chunk, chunk + n, '\0');
        if (nulBytes != NulBytes::kKept) out.Append(std::string_view(chunk, end - chunk));
        if (translator != nullptr) translator->Feed(chunk, end - chunk);
        if (nul != nullptr) return;
    }
}

void WriteText(const Section& in, int out) {
    ByteSource source(in.fd, {{in.offset, in.size}});
    OutBuffer buf(out);
    CopyText(source, buf, nullptr);
}

void WriteTzLog(const Section& in, int raw, int parsed) {
    ensure_tzlog_dict();
    ByteSource source(in.fd, {{in.offset, in.size}});
    OutBuffer buf(raw);
    TzlogTranslator translator(parsed);
    // "last_tzlog" is the trust zone's log as it lies in the dump.
    CopyText(source, buf, parsed >= 0 ? &translator : nullptr, NulBytes::kKept);
}

void WriteHexDump(const Section& in, int out) {
    uint64_t size = in.size;
    if (size > kHexDumpMax) {
        MD_LOGW("%s: showing the first %lu of %lu bytes\n", in.name,
                static_cast<unsigned long>(kHexDumpMax), static_cast<unsigned long>(size));
        size = kHexDumpMax;
    }
    ByteSource source(in.fd, {{in.offset, size}});
    OutBuffer buf(out);
    uint8_t chunk[kCopyChunk];
    uint64_t at = 0;
    for (;;) {
        ssize_t n = source.Read(chunk, sizeof(chunk));
        if (n < 0) MD_LOGE("read section fail %d(%s)\n", errno, strerror(errno));
        if (n <= 0) return;
        for (ssize_t line = 0; line < n; line += kHexPerLine, at += kHexPerLine) {
            size_t count = std::min<size_t>(kHexPerLine, n - line);
            char text[kHexPerLine * 3 + kHexPerLine + 32];
            int len = snprintf(text, sizeof(text), "%08lx ", static_cast<unsigned long>(at));
            for (size_t i = 0; i < kHexPerLine; ++i) {
                len += i < count
                               ? snprintf(text + len, sizeof(text) - len, " %02x", chunk[line + i])
                               : snprintf(text + len, sizeof(text) - len, "   ");
            }
            len += snprintf(text + len, sizeof(text) - len, "  |");
            for (size_t i = 0; i < count; ++i) {
                uint8_t c = chunk[line + i];
                text[len++] = c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '.';
            }
            text[len++] = '|';
            text[len++] = '\n';
            buf.Append(std::string_view(text, len));
        }
    }
}

}  // namespace zelkor::tessel::Minidump
