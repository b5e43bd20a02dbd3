// Minidump extraction: the boot run's steps that take the dump the boot loader
// left behind, turn its sections into last-log files under
// "/data/vendor/diag", compress the raw dump and repair the headers after a
// dump that the boot loader could not finish.
//
// The steps work over process-wide state, as the rest of the crash run does:
// the last-log header read by handle_mini_lastlog_header() is the one the slot
// walk uses, and the header of the dump being taken is the one parse_log()
// consults. One boot run drives them from one thread.
#pragma once

#include <cstdint>
#include <string>

#include "modules/blackbox/BlackBoxDotting.h"
#include "modules/blackbox/BlackBoxHeaders.h"
#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::Minidump {

constexpr char kDiagDir[] = "/data/vendor/diag";
constexpr char kRawdumpPartition[] = "/dev/block/by-name/rawdump";
constexpr char kMinidumpGz[] = "/data/vendor/diag/minidump.gz";
constexpr char kMinidumpValidProperty[] = "vendor.minidump.is.valid";

// A history holds at most this many dumps, in slots 0 .. kMaxStoredDumps - 1.
constexpr uint32_t kMaxStoredDumps = 10;
// A dump whose header says 0 sections carries this many section headers.
constexpr uint32_t kDefaultSectionCount = 20;
constexpr char kParsedMark[] = "DESRAP";
constexpr uint64_t kParseMarkOffset = 16;

// ---- where the dump area lies ---------------------------------------------

// True when the dump area is inside the blackbox partition. The partition is
// tried once per run (opened read-only and closed again); the answer is kept
// until reset_dump_partition_choice().
bool dump_area_in_blackbox();
void reset_dump_partition_choice();
// "/dev/block/by-name/blackbox" or "/dev/block/by-name/minidump".
const char* dump_partition_path();

// Dump slot `index` of the area: slot-0 offset + `area_offset` + index x the
// blackbox distance (blackbox case) or slot-0 offset + index x the minidump
// distance, summed in 32 bits and sign-extended as the boot loader does.
int64_t dump_slot_offset(const blackbox::last_log_header& header, uint32_t area_offset,
                         bool in_blackbox, uint32_t index);

// The bytes of the dump partition the dump slots may take, [begin, end): in
// the blackbox partition from `minidump_offset` up to
// `control_content_offset`, where the control block and the crash history
// begin; the minidump partition holds nothing else. Never past the partition's
// end; empty when the offsets leave no room. The last-log header lies at
// `begin`.
struct DumpAreaSpan {
    uint64_t begin = 0;
    uint64_t end = 0;

    // True when [pos, pos + len) lies inside the area and behind its last-log
    // header, the only place a dump slot's bytes may take; a negative `pos`
    // (a slot formula that wrapped) never does.
    bool holds_slot_bytes(int64_t pos, uint64_t len) const;
};
DumpAreaSpan dump_area_span(bool in_blackbox, const blackbox::log_table_header& table,
                            uint64_t partition_size);

// Where the dump slot at `slot` ends: `slot + distance` when the distance is
// known (not 0) and that lies before `area_end`, else `area_end`.
uint64_t dump_slot_end(int64_t slot, uint64_t distance, uint64_t area_end);

// The number of section headers a dump header announces: its count, or
// kDefaultSectionCount when that is 0.
uint32_t announced_section_count(uint32_t header_count);
// How many section headers of a dump to read: the announced count, but none
// that would reach past `slot_end`; the headers begin at `first`.
uint64_t section_headers_to_walk(uint32_t header_count, uint64_t first, uint64_t slot_end);

// ---- run state ---------------------------------------------------------------

// The local time now, as every record of the crash run stamps it
// ("%04d-%02d-%02d% 02d:%02d:%02d").
using blackbox::local_time_text;
// Takes the local time as this run's time text ("%04d-%02d-%02d% 02d:%02d:%02d").
void time_init();
const std::string& run_time_text();

// The last-log header as read by handle_mini_lastlog_header().
const blackbox::last_log_header& lastlog_header();
// True once handle_minidump_partition() marked a dump as taken in this run.
bool new_crash_found();
// Forgets the run's headers, flags, time text and partition choice (tests).
void reset_minidump_state();

// ---- the steps of the boot run -------------------------------------------------

// Empties "/data/vendor/diag" (files and empty folders).
void delete_log();

// Reads the last-log header: 1 for a new raw dump, 0 for a valid history of
// processed dumps, -1 for errors.
int handle_mini_lastlog_header();

// Takes dump slot `store_index` and writes its files, numbered with
// `late_index` when it is 1 or more. -1 on failure.
int handle_minidump_partition(uint32_t store_index, uint32_t late_index);

// Takes the older stored dumps after the newest one: from the store index
// below the header's (9 after 0) downwards, late index 0, 1, ... up to the
// header's count, logging "store_index %d, late_index %d" for each.
void handle_stored_minidumps();

// Writes one section's file. `offset` is the section's position in the
// partition behind `fd`. -1 when the section was skipped.
int parse_log(int fd, const char* name, uint64_t offset, uint64_t size, uint32_t late_index);

// Compresses "/dev/block/by-name/rawdump" into "/data/vendor/diag/minidump.gz"
// as one zlib stream (RFC 1950). A second call of the same run keeps the file
// when the raw dump and the file are unchanged since the last compression
// (logged "minidump.gz already holds this raw dump, not compressed again").
// 1 on failure, 0 otherwise.
int compress_minidump();

// ---- repair after a dump the boot loader could not finish ------------------

// Rebuilds the last-log header, the dump header of the current store index and
// a boot-loader log section, then advances the store index. `blackbox` is the
// run's copy of the blackbox headers (all zero without a blackbox partition).
int handle_minidump_fail_header(const blackbox::BlackBoxHeaders& blackbox);

// The steps of the repair, each on the open dump partition. `fd` stays open.
int headle_laster_log_fail_header(int fd, const blackbox::BlackBoxHeaders& blackbox);
int handle_dump_fail_header(int fd, const blackbox::BlackBoxHeaders& blackbox);
int update_lastlog_header(int fd, const blackbox::BlackBoxHeaders& blackbox);

}  // namespace zelkor::tessel::Minidump
