// The crash history: every crash the boot run classifies is appended as one
// text record to a ring on flash, and "/data/vendor/diag/md_history" is
// regenerated from it, oldest record first.
//
// The ring lives in the blackbox partition when there is one and otherwise in
// the "crash_history" partition (CrashHistoryLayout.h). Its header and records
// come from flash and are not trusted: the history's place must lie inside
// the partition, positions are wrapped into the ring and a record whose
// length does not fit its slot is skipped.
#pragma once

#include <cstdint>
#include <string>

#include "modules/BSPLogProcessor/crash/CrashTypes.h"
#include "modules/BSPLogProcessor/history/CrashHistoryLayout.h"

namespace zelkor::tessel::Minidump {

constexpr char kCrashHistoryPartition[] = "/dev/block/by-name/crash_history";
constexpr char kMdHistoryFile[] = "/data/vendor/diag/md_history";
constexpr char kBuildIncrementalProperty[] = "ro.build.version.incremental";
// Stands in for an unset build number; records have always carried it so.
constexpr char kUnknownVersion[] = "unkown_version";
// Reason and detail are cut to these lengths before a record is formatted.
constexpr size_t kRecordReasonMax = 49;
constexpr size_t kRecordDetailMax = 399;

// The opened history.
struct CrashHistoryPartition {
    int fd = -1;
    const char* path = nullptr;  // device path of the partition
    int64_t offset = 0;          // of the history header
    bool in_blackbox = false;
    // The blackbox's boot counter; the crashed boot is the one before it.
    uint32_t boot_index = 0;
    uint64_t size = 0;  // of the partition: nothing is read or written past it

    // Whether `len` bytes at `offset` from the history header lie inside the
    // partition; logs the part of the history `what` otherwise.
    bool holds(uint64_t offset, uint64_t len, const char* what) const;
};

// Opens the history read-write: in the blackbox partition if that opens (the
// dump code's choice of partition), else in "crash_history". Prints
// "g_crash_history_logic_offset:%d\n" with the chosen offset. False after
// printing "open crash_history partition fail %d(%s)\n" when the partition
// does not open (or its size cannot be told). A partition too small for the
// whole ring still opens: what lies outside it is never read or written.
bool open_crash_history(CrashHistoryPartition* history);
void close_crash_history(CrashHistoryPartition* history);

// Whether the history can be opened at all; logs "check crash history
// partition fail %d(%s)\n" when it cannot.
bool check_crash_history();

// The build number records carry: "ro.build.version.incremental", or
// "unkown_version" when it is unset.
std::string build_version_text();

// The record text of crash number `current_num`:
// "%u)[%u] build|time|reason|detail\n" with the crashed boot index when the
// history is in the blackbox, "%d) build|time|reason|detail\n" otherwise; at
// most 511 characters.
std::string format_crash_history_text(const CrashHistoryPartition& history, uint32_t current_num,
                                      const std::string& reason, const std::string& detail);

// Appends one crash to the ring and counts it; does nothing for CRASH_NONE.
// A header with a wrong magic is initialised first. 0 on success (or when
// there was nothing to record), -1 when the history could not be read or
// written.
int write_to_partition_crash_history(const CrashHistoryPartition& history,
                                     crash_main_type_enum main_type, crash_type_enum sub_type,
                                     const std::string& reason, const std::string& detail);

// Rewrites "/data/vendor/diag/md_history" with every record's text, oldest
// first; left empty when the history has never been initialised. 0, or -1
// when the file could not be written.
int sync_to_file_md_history(const CrashHistoryPartition& history);

// Replaces "/data/vendor/diag/md_history" with `text`: created private, mode
// 0644 once written. False after a log line when it could not be written.
bool write_md_history_file(const std::string& text);

// Classifies the previous boot's end, reports it, records it in the history
// and regenerates "md_history".
void record_crash_history();

}  // namespace zelkor::tessel::Minidump
