#include "modules/blackbox/BlackBoxKmsg.h"

#include <cutils/android_get_control_file.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackBoxLog.h"
#include "modules/blackbox/KmsgRecords.h"
#include "platform/Platform.h"

namespace zelkor::tessel::blackbox {
namespace {

constexpr char kKmsgDevice[] = "/dev/kmsg";
constexpr size_t kKmsgWriteChunk = 64 * 1024;

// The kernel log as init handed it to the service, else opened here.
int open_kmsg(bool* owned) {
    int fd = android_get_control_file(kKmsgDevice);
    if (fd >= 0) {
        *owned = false;
        return fd;
    }
    BB_LOGW("get /dev/kmsg fd by android_get_control_file failed!");
    fd = open(platform::DevicePath(kKmsgDevice).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) BB_LOGE("open /dev/kmsg fail %d(%s)\n", errno, strerror(errno));
    *owned = fd >= 0;
    return fd;
}

// Copies records from `kmsg` into [area, area + limit) of `fd`; returns the
// bytes written. The lines are gathered into writes of up to
// kKmsgWriteChunk bytes: a boot's log is tens of thousands of records, and
// every write_at() also sizes the partition.
int64_t copy_records(int kmsg, int fd, int64_t area, int64_t limit) {
    int64_t total = 0;  // written
    std::string pending;
    const auto flush = [&] {
        if (pending.empty()) return true;
        const bool ok = write_at(fd, area + total, pending.data(), pending.size()) >= 0;
        if (ok) {
            total += static_cast<int64_t>(pending.size());
        } else {
            BB_LOGE("write kmsg to black_box_log failed %d(%s)\n", errno, strerror(errno));
        }
        pending.clear();
        return ok;
    };
    const KmsgRecordSplitter::Sink write_record = [&](std::string_view line) {
        KmsgRecord record;
        if (!parse_kmsg_record(line, &record)) return true;
        if (record.usec > kKmsgTimeLimitUs) {
            puts("time >= 100s, stop write.");
            return false;
        }
        const std::string text = format_kmsg_line(record);
        const int64_t room = limit - total - static_cast<int64_t>(pending.size());
        if (static_cast<int64_t>(text.size()) >= room) {
            pending.append(text, 0, static_cast<size_t>(room));
            // The area holds 5 MiB; the note has always said 1M.
            if (flush()) puts("size >= 1M, stop write.");
            return false;
        }
        pending += text;
        return pending.size() < kKmsgWriteChunk || flush();
    };

    KmsgRecordSplitter splitter;
    char buffer[kKmsgReadSize];
    for (;;) {
        ssize_t n = read(kmsg, buffer, sizeof(buffer));
        if (n < 0) {
            // EPIPE: the record under the read position was overwritten; the
            // next read goes on from the oldest one still kept.
            if (errno == EPIPE) continue;
            break;
        }
        if (n == 0) {
            splitter.finish(write_record);
            break;
        }
        if (!splitter.feed(std::string_view(buffer, static_cast<size_t>(n)), write_record)) break;
    }
    flush();
    return total;
}

}  // namespace

int64_t copy_kmsg_to_black_box(BlackBoxHeaders* headers) {
    int fd = open_black_box_partition();
    if (fd < 0) return -1;

    black_box_log_header& log = headers->log;
    const int64_t slot = headers->slot_offset();
    const int64_t area = slot + log.kmsg_offset;
    const int64_t size = partition_size(fd);
    if (slot < 0 || log.kmsg_offset >= headers->content.log_size || area >= size) {
        BB_LOGE("kmsg area out of range: slot 0x%llx, kmsg_offset 0x%x, log_size 0x%x\n",
                static_cast<unsigned long long>(slot), log.kmsg_offset, headers->content.log_size);
        close(fd);
        return -1;
    }
    const int64_t limit = std::min<int64_t>(
            {kKmsgAreaMax, int64_t(headers->content.log_size) - log.kmsg_offset, size - area});

    bool owned = false;
    int kmsg = open_kmsg(&owned);
    if (kmsg < 0) {
        close(fd);
        return -1;
    }
    lseek(kmsg, 0, SEEK_DATA);
    const int64_t total = copy_records(kmsg, fd, area, limit);
    if (owned) close(kmsg);

    snprintf(log.prev_name, kLabelSize, "%s", "boot_kmesg");
    snprintf(log.cur_name, kLabelSize, "dotting %lu",
             static_cast<unsigned long>(log.dotting_count + 1));
    write_black_box_log_header(fd, *headers);
    close(fd);
    return total;
}

}  // namespace zelkor::tessel::blackbox
