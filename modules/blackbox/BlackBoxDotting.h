// The dotting ring of the current slot: short text records written one after
// the other into the slot's dotting area.
//
// The first records of a boot (its first 100 seconds, or up to
// boot_dotting_max records) form the boot phase, written once from the start of
// the area and never overwritten. Once that phase closes, ring_start marks the
// first byte of the ring part, and writing wraps back to ring_start, never to 0.
//
// place_dotting_record() is the byte placement shared by every writer of the
// ring; write_black_box_dotting() is the boot run's whole record write around
// it (log lines, labels, header write).
#pragma once

#include <sys/sysinfo.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "modules/blackbox/BlackBoxHeaders.h"

namespace zelkor::tessel::blackbox {

// Longest record text; longer texts are cut.
constexpr size_t kDottingRecordMax = 511;
// Uptime, in seconds, from which a record closes the boot phase.
constexpr long kBootPhaseUptime = 101;

// Where the uptime comes from; ::sysinfo on a device, a stand-in in tests.
using SysinfoFn = std::function<int(struct sysinfo*)>;

// The local time now as records are stamped: "%04d-%02d-%02d% 02d:%02d:%02d".
// The space flag before the hour gives a blank and no leading zero below ten
// o'clock; every reader of the ring and of the crash files knows it so.
std::string local_time_text();

// Index of the next record after `dotting_count`: 1 .. 2048, then 0 again.
uint64_t next_dotting_index(uint64_t dotting_count);

// Bytes of the dotting area (log_size - dotting_offset); may be 0 or negative
// for a header whose fields make no sense.
int64_t dotting_area_size(const BlackBoxHeaders& headers);

struct DottingPiece {
    int64_t offset = 0;   // within the dotting area
    size_t length = 0;    // bytes meant to be written
    ssize_t written = 0;  // write result: length, or -1
    int error = 0;        // errno of a failed write
};

struct DottingPlacement {
    // False when the header's dotting fields do not describe an area inside
    // the slot; then nothing was written or changed.
    bool placed = false;
    bool boot_phase = false;  // written while the boot phase was open
    bool split = false;       // ran past the area's end and went on at ring_start
    DottingPiece first;
    DottingPiece second;  // the rest at ring_start, when split
};

// Writes `record` at the current write offset and moves log_dotting_write_offset
// on; in the boot phase it also asks `get_sysinfo` for the uptime and closes
// the phase when due. headers->log.dotting_count must still be the previous
// record's index. A piece that would leave the dotting area or the partition
// fails with ENOSPC.
DottingPlacement place_dotting_record(int fd, BlackBoxHeaders* headers, std::string_view record,
                                      const SysinfoFn& get_sysinfo);

// The boot run's record write: places `record` (cut to 511 characters), logs
// what was written, makes `index` the new dotting_count, updates the labels
// and writes the slot header. Returns the header write's result (140), or -1.
ssize_t write_black_box_dotting(int fd, BlackBoxHeaders* headers, std::string_view record,
                                uint64_t index, const SysinfoFn& get_sysinfo = ::sysinfo);

}  // namespace zelkor::tessel::blackbox
