#include "modules/BSPLogProcessor/history/FallbackHistory.h"

#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashLines.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/history/BootDotting.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

namespace {

bool has_mark(const md_his_header& header) {
    return memcmp(header.magic, kMdHistoryMagic, sizeof(header.magic)) == 0;
}

void log_header(const md_his_header& header) {
    uint64_t magic = 0;
    memcpy(&magic, header.magic, sizeof(magic));
    MD_LOGI("md_his_header: version 0x%x, magic 0x%lx, item_count %d, item_len_max %dk, "
            "next_off 0x%x, full %d",
            header.version, static_cast<unsigned long>(magic), static_cast<int>(header.item_count),
            static_cast<int>(header.item_len_max / 1024), header.next_off, header.full);
}

void init_header(md_his_header* header) {
    *header = md_his_header{};
    header->version = kMdHistoryVersion;
    memcpy(header->magic, kMdHistoryMagic, sizeof(header->magic));
    header->item_len_max = kMdHistoryItemSpace;
    header->next_off = kMdHistoryItemsOffset;
}

bool read_header(int fd, md_his_header* header) {
    return blackbox::read_at(fd, kMdHistoryOffset, header, sizeof(*header)) == sizeof(*header);
}

// The partition must hold the whole area before any of it is touched.
bool area_fits(int fd, const char* path) {
    const int64_t size = blackbox::partition_size(fd);
    if (size >= 0 && blackbox::range_fits(kMdHistoryOffset, kMdHistoryItemsEnd - kMdHistoryOffset,
                                          static_cast<uint64_t>(size))) {
        return true;
    }
    MD_LOGE("minidump history at 0x%x does not fit in %s (0x%llx bytes)\n", kMdHistoryOffset, path,
            static_cast<unsigned long long>(size));
    return false;
}

// Adds "<item_count>) <line>\n" (at most 512 bytes) to the dump history on
// `fd`, initialising a header without the "MNDPHIST" mark first; `header`
// receives the header as written. -1 when the area could not be read or
// written.
int add_minidump_history_item(int fd, const std::string& line, md_his_header* header) {
    if (!read_header(fd, header)) {
        MD_LOGE("read md_his_header fail %d(%s)\n", errno, strerror(errno));
        return -1;
    }
    log_header(*header);
    if (!has_mark(*header)) init_header(header);
    if (header->next_off < kMdHistoryItemsOffset || header->next_off > kMdHistoryItemsEnd) {
        MD_LOGE("md_his_header next_off 0x%x out of range, starting over\n", header->next_off);
        header->next_off = kMdHistoryItemsOffset;
    }
    ++header->item_count;
    std::string item = android::base::StringPrintf("%d) ", static_cast<int>(header->item_count));
    item = (item + line).substr(0, kMdHistoryItemMax - 1) + "\n";
    // Once full, new items overwrite the oldest text from the start; nothing
    // else is cleared.
    if (static_cast<uint32_t>(header->next_off + item.size()) > kMdHistoryItemsEnd) {
        header->next_off = kMdHistoryItemsOffset;
        header->full = 1;
    }
    if (blackbox::write_at(fd, header->next_off, item.data(), item.size()) < 0) {
        MD_LOGE("write minidump history item fail %d(%s)\n", errno, strerror(errno));
        return -1;
    }
    header->next_off += static_cast<uint32_t>(item.size());
    if (blackbox::write_at(fd, kMdHistoryOffset, header, sizeof(*header)) < 0) {
        MD_LOGE("write md_his_header fail %d(%s)\n", errno, strerror(errno));
        return -1;
    }
    // On flash, and the crash no longer pending, before anything else: a run
    // taking the crash up again must not add it a second time.
    if (fdatasync(fd) != 0) MD_LOGE("sync md_his_header fail %d(%s)\n", errno, strerror(errno));
    clear_pending_crash();
    log_header(*header);
    return 0;
}

// The item text the header says is there: up to next_off, or the whole item
// space once it has wrapped.
std::string read_minidump_history(int fd, const md_his_header& header) {
    // Unsigned: a position below the item space reads as the whole space.
    uint32_t length = header.next_off - kMdHistoryItemsOffset;
    if (header.full == 1 || length >= kMdHistoryItemSpace) length = kMdHistoryItemSpace;
    std::string text(length, '\0');
    const ssize_t n = blackbox::read_at(fd, kMdHistoryItemsOffset, text.data(), length);
    text.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return text;
}

}  // namespace

std::string last_kmsg_summary() {
    LogLines kmsg(kLastKmsg);
    if (!kmsg.ok()) return "";
    const FirstHit hit = scan_first_hit(kmsg, keyword_ranker(kLastKmsgSummaryKeywords));
    return std::string(trim_line_end(hit.line));
}

void update_minidump_history() {
    const char* path = dump_partition_path();
    const bool newDump = platform::GetBoolProperty(kMinidumpValidProperty, false);
    const std::string powerup = read_boot_reason(kPowerupReasonNode);
    const bool otherReset = powerup.compare(0, 5, "other") == 0;

    int fd = open(platform::DevicePath(path).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        MD_LOGE("open %s fail %d(%s)\n", path, errno, strerror(errno));
        return;
    }
    if (!area_fits(fd, path)) {
        close(fd);
        return;
    }
    md_his_header header{};
    if (!newDump && !otherReset) {
        puts("Normal boot, won't update minidump history in partition,but need update md_history "
             "file");
        if (!read_header(fd, &header) || !has_mark(header)) {
            puts("Normal boot, no minidump history");
            close(fd);
            return;
        }
    } else {
        MD_LOGI("find new crash , write to minidump history in partition first");
        const std::string line = build_version_text() + "|" + run_time_text() + "|" + powerup +
                                 "|" + last_kmsg_summary();
        if (add_minidump_history_item(fd, line, &header) < 0) {
            close(fd);
            return;
        }
    }
    const std::string text = read_minidump_history(fd, header);
    close(fd);
    write_md_history_file(text);
}

}  // namespace zelkor::tessel::Minidump
