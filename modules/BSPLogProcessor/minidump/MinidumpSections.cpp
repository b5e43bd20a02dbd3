// parse_log: from a section's name to its last-log file(s) and writer.
#include <errno.h>

#include <cstring>
#include <string>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/DiagFiles.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

enum class Kind {
    kKmdt,
    kKmsg,
    kPmsg,
    kCpusys,
    kTzImem,
    kTzLog,
    kHypDiag,
    kTzDiag,
    kXblLog,
    kKeyStart,
    kKeyContinue,
};

struct SectionKind {
    const char* prefix;
    Kind kind;
};

// A section counts as a kind when its name begins with the kind's name.
constexpr SectionKind kKinds[] = {
        {"md_KMDT0x110.BIN", Kind::kKmdt},
        {"md_kmsg", Kind::kKmsg},
        {"md_pmsg", Kind::kPmsg},
        {"md_cpusys", Kind::kCpusys},
        {"md_TZ_IMEM", Kind::kTzImem},
        {"md_ltz", Kind::kTzLog},
        {"md_HYP_DIAG", Kind::kHypDiag},
        {"md_TZ_DIAG", Kind::kTzDiag},
        {"md_XBL_LOG", Kind::kXblLog},
        {"md_TZ_AES_KEY", Kind::kKeyStart},
        {"md_encr_key_aes", Kind::kKeyStart},
        {"md_TZ_AES_IV", Kind::kKeyContinue},
        {"md_TZ_HMAC", Kind::kKeyContinue},
        {"md_encr_key_iv", Kind::kKeyContinue},
        {"md_encr_key_mac", Kind::kKeyContinue},
        {"md_TZ_DUMP", Kind::kKeyContinue},
        {"md_MDMP_LOG", Kind::kKeyContinue},
        {"load.cmm", Kind::kKeyContinue},
};

const SectionKind* FindKind(const char* name) {
    for (const SectionKind& k : kKinds) {
        if (strncmp(name, k.prefix, strlen(k.prefix)) == 0) return &k;
    }
    return nullptr;
}

// Writes one file with `write`, created afresh.
template <typename Writer>
void WriteFile(const std::string& path, Writer write) {
    int out = OpenDiagFile(path);
    if (out < 0) return;
    write(out);
    CloseDiagFile(out, path);
}

// A section written to a file and to its translated companion; without the
// companion (-1 to `write`) the file is still written.
template <typename Writer>
void WriteFilePair(const std::string& path, const std::string& parsedPath, Writer write) {
    int out = OpenDiagFile(path);
    if (out < 0) return;
    int parsed = OpenDiagFile(parsedPath);
    write(out, parsed);
    if (parsed >= 0) CloseDiagFile(parsed, parsedPath);
    CloseDiagFile(out, path);
}

}  // namespace

int parse_log(int fd, const char* name, uint64_t offset, uint64_t size, uint32_t late_index) {
    const SectionKind* kind = FindKind(name);
    if (kind == nullptr) {
        MD_LOGD("section %s has no last log file\n", name);
        return 0;
    }
    const int64_t partition = blackbox::partition_size(fd);
    if (partition < 0) {
        MD_LOGE("section %s: partition size unknown %d(%s)\n", name, errno, strerror(errno));
        return -1;
    }
    // A section running past the end of the partition still makes its file,
    // with what lies inside; nothing is read beyond the end.
    const uint64_t end = static_cast<uint64_t>(partition);
    uint64_t kept = size;
    if (!blackbox::range_fits(offset, size, end)) {
        kept = offset < end ? end - offset : 0;
        MD_LOGE("section %s runs past the end of the partition: offset 0x%lx size 0x%lx, "
                "partition 0x%lx bytes, 0x%lx bytes kept, the rest is missing\n",
                name, static_cast<unsigned long>(offset), static_cast<unsigned long>(size),
                static_cast<unsigned long>(partition), static_cast<unsigned long>(kept));
    }
    const Section in{fd, name, offset, kept};
    const RunState& state = State();
    switch (kind->kind) {
        case Kind::kKmdt:
            WriteFile(DiagFilePath("last_kmdt", late_index), [&](int out) { WriteKmdt(in, out); });
            break;
        case Kind::kKmsg: {
            const char* time =
                    state.dump.version == blackbox::kDumpVersion2 ? state.dumpV2.time : nullptr;
            WriteFile(DiagFilePath("last_kmsg", late_index),
                      [&](int out) { WriteKmsg(in, out, time); });
            break;
        }
        case Kind::kPmsg:
            WriteFile(DiagFilePath("last_logcat", late_index),
                      [&](int out) { WritePmsg(in, out); });
            break;
        case Kind::kCpusys:
            WriteFile(DiagFilePath("last_cpusys", late_index),
                      [&](int out) { WriteText(in, out); });
            break;
        case Kind::kTzImem:
            WriteFile(DiagFilePath("last_tzlog", late_index),
                      [&](int out) { WriteHexDump(in, out); });
            break;
        case Kind::kTzLog:
            WriteFilePair(DiagFilePath("last_tzlog", late_index),
                          DiagFilePath("last_tzlog_parsed", late_index),
                          [&](int raw, int parsed) { WriteTzLog(in, raw, parsed); });
            break;
        case Kind::kHypDiag:
            // One hypervisor log per boot: older dumps overwrite it too.
            WriteFile(DiagFilePath("last_hyplog", 0), [&](int out) { WriteHypLog(in, out); });
            break;
        case Kind::kTzDiag:
            WriteFilePair(DiagFilePath("last_tzlog", late_index),
                          DiagFilePath("last_tzlog_parsed", 0),
                          [&](int out, int parsed) { WriteTzDiag(in, out, parsed); });
            break;
        case Kind::kXblLog:
            WriteFile(DiagFilePath("last_warmreset_xbllog", late_index),
                      [&](int out) { WriteText(in, out); });
            break;
        case Kind::kKeyStart:
            WriteKeyRegion(in, late_index, true);
            break;
        case Kind::kKeyContinue:
            WriteKeyRegion(in, late_index, false);
            break;
    }
    return 0;
}

}  // namespace zelkor::tessel::Minidump
