#include "modules/blackbox/BlackBoxDotting.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackBoxLog.h"

namespace zelkor::tessel::blackbox {
namespace {

DottingPiece put_piece(int fd, int64_t area, int64_t area_size, int64_t offset,
                       std::string_view bytes) {
    DottingPiece piece;
    piece.offset = offset;
    piece.length = bytes.size();
    if (offset < 0 || offset > area_size ||
        static_cast<int64_t>(bytes.size()) > area_size - offset) {
        piece.written = -1;
        piece.error = ENOSPC;
        return piece;
    }
    piece.written = write_at(fd, area + offset, bytes.data(), bytes.size());
    if (piece.written < 0) piece.error = errno;
    return piece;
}

// The boot phase ends with the first record written at 101 s of uptime or
// later, with the record numbered boot_dotting_max, or as soon as the uptime
// cannot be had at all.
bool boot_phase_over(const black_box_log_header& log, const SysinfoFn& get_sysinfo) {
    struct sysinfo info {};
    if (get_sysinfo(&info) != 0) {
        const int error = errno;
        printf("Failed to get sysinfo, errno:%u, reason:%s\n", error, strerror(error));
        return true;
    }
    printf("runtime:%d\n", static_cast<int>(info.uptime));
    if (info.uptime >= kBootPhaseUptime) return true;
    return log.boot_dotting_max <= log.dotting_count + 1;
}

void log_failure(const char* format, int error) {
    BB_LOGE(format, error, strerror(error));
}

void log_placement(const DottingPlacement& placement, uint64_t index) {
    const DottingPiece& first = placement.first;
    if (placement.boot_phase) {
        BB_LOGI("blackbox is in or at boot 100s, write %d bytes.\n",
                static_cast<int>(first.written));
        if (first.written < 0) log_failure("write string failed! error: %d(%s)\n", first.error);
    } else if (!placement.split) {
        BB_LOGI("write %d bytes, index: %d\n", static_cast<int>(first.written),
                static_cast<int>(index));
        if (first.written < 0) {
            log_failure("write ringFreeSize string failed! error: %d(%s)\n", first.error);
        }
    } else {
        const DottingPiece& rest = placement.second;
        BB_LOGI("write ringFreeSize %d bytes.\n", static_cast<int>(first.written));
        if (first.written < 0) {
            log_failure("write ringFreeSize string failed! error: %d(%s)\n", first.error);
        }
        BB_LOGI("write %d bytes.\n", static_cast<int>(rest.written));
        if (rest.written < 0) {
            log_failure("write restart string failed! error: %d(%s)\n", rest.error);
        }
    }
}

// prev_name names the record just written; a count of 0 (the index wrapped)
// gets the bare word without a terminator. cur_name only has its first seven
// bytes replaced.
void update_labels(black_box_log_header* log) {
    if (log->dotting_count == 0) {
        memcpy(log->prev_name, "dotting", 7);
    } else {
        const unsigned long shown =
                log->dotting_count >= kDottingCountWrap ? 0 : log->dotting_count;
        snprintf(log->prev_name, kLabelSize, "dotting %lu", shown);
    }
    memcpy(log->cur_name, "boot_km", 7);
}

}  // namespace

std::string local_time_text() {
    time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    // 19 characters for any real date; room for what the compiler cannot rule out.
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02d% 02d:%02d:%02d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

uint64_t next_dotting_index(uint64_t dotting_count) {
    return dotting_count >= kDottingCountWrap ? 0 : dotting_count + 1;
}

int64_t dotting_area_size(const BlackBoxHeaders& headers) {
    return static_cast<int64_t>(headers.content.log_size) - headers.log.dotting_offset;
}

DottingPlacement place_dotting_record(int fd, BlackBoxHeaders* headers, std::string_view record,
                                      const SysinfoFn& get_sysinfo) {
    DottingPlacement placement;
    black_box_log_header& log = headers->log;
    const int64_t slot = headers->slot_offset();
    const int64_t area_size = dotting_area_size(*headers);
    const int64_t area = slot + log.dotting_offset;
    const int64_t ring_start = log.ring_start;
    int64_t write_offset = log.log_dotting_write_offset;
    if (slot < 0 || area_size <= 0 ||
        (ring_start >= 0 && (ring_start > area_size || write_offset > area_size))) {
        return placement;
    }
    placement.placed = true;

    if (ring_start < 0) {
        placement.boot_phase = true;
        placement.first = put_piece(fd, area, area_size, write_offset, record);
        if (placement.first.written >= 0) write_offset += placement.first.written;
        log.log_dotting_write_offset = static_cast<uint32_t>(write_offset);
        if (boot_phase_over(log, get_sysinfo)) {
            log.boot_dotting_end = static_cast<uint32_t>(log.dotting_count + 1);
            log.ring_start = static_cast<int32_t>(log.log_dotting_write_offset);
        }
        return placement;
    }

    const int64_t free_bytes = area_size - write_offset;
    if (static_cast<int64_t>(record.size()) <= free_bytes) {
        placement.first = put_piece(fd, area, area_size, write_offset, record);
        if (placement.first.written >= 0) write_offset += placement.first.written;
        if (write_offset >= area_size) write_offset = ring_start;
    } else {
        const size_t head = static_cast<size_t>(free_bytes);
        placement.split = true;
        placement.first = put_piece(fd, area, area_size, write_offset, record.substr(0, head));
        placement.second = put_piece(fd, area, area_size, ring_start, record.substr(head));
        if (placement.second.written >= 0) write_offset = ring_start + placement.second.written;
    }
    log.log_dotting_write_offset = static_cast<uint32_t>(write_offset);
    return placement;
}

ssize_t write_black_box_dotting(int fd, BlackBoxHeaders* headers, std::string_view record,
                                uint64_t index, const SysinfoFn& get_sysinfo) {
    black_box_log_header& log = headers->log;
    record = record.substr(0, kDottingRecordMax);
    const DottingPlacement placement = place_dotting_record(fd, headers, record, get_sysinfo);
    if (!placement.placed) {
        BB_LOGE("dotting area out of range: log_size 0x%x, dotting_offset 0x%x, ring_start %d, "
                "write offset 0x%x\n",
                headers->content.log_size, log.dotting_offset, log.ring_start,
                log.log_dotting_write_offset);
        return -1;
    }
    log_placement(placement, index);
    // A boot phase that filled the whole area carries on from ring_start, even
    // while ring_start still says the phase is open.
    if (placement.boot_phase && log.log_dotting_write_offset >= dotting_area_size(*headers)) {
        log.log_dotting_write_offset = static_cast<uint32_t>(log.ring_start);
    }
    log.dotting_count = index;
    update_labels(&log);
    return write_black_box_log_header(fd, *headers);
}

}  // namespace zelkor::tessel::blackbox
