// The trust zone's log-key regions, gathered in "last_tzlog_key" so that the
// enciphered trust-zone log can be read by whoever holds the private key. The
// bytes are copied as they are; nothing here deciphers anything.
#include <errno.h>

#include <cstring>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/DiagFiles.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"

namespace zelkor::tessel::Minidump {

void WriteKeyRegion(const Section& in, uint32_t lateIndex, bool startFile) {
    const std::string path = DiagFilePath("last_tzlog_key", lateIndex);
    if (!startFile && in.size == 0) {
        // The key went missing: what earlier regions wrote is no use alone.
        int fd = OpenDiagFile(path, O_TRUNC);
        MD_LOGI("no tz log key, clean %s \n", path.c_str());
        if (fd >= 0) CloseDiagFile(fd, path);
        return;
    }
    int fd = OpenDiagFile(path, startFile ? O_TRUNC : O_APPEND);
    if (fd < 0) return;
    if (startFile) {
        MD_LOGI("creat file %s \n", path.c_str());
    } else {
        MD_LOGI("open file %s, write continue \n", path.c_str());
    }
    {
        OutBuffer out(fd);
        out.Printf("tz log key region %s:\n", in.name);
        ByteSource source(in.fd, {{in.offset, in.size}});
        char chunk[kCopyChunk];
        for (ssize_t n; (n = source.Read(chunk, sizeof(chunk))) != 0;) {
            if (n < 0) {
                MD_LOGE("read section %s fail %d(%s)\n", in.name, errno, strerror(errno));
                break;
            }
            out.Append(std::string_view(chunk, static_cast<size_t>(n)));
        }
    }
    CloseDiagFile(fd, path);
}

}  // namespace zelkor::tessel::Minidump
