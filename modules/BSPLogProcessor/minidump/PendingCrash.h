// The crash a run has taken from its dump but not yet recorded.
//
// Taking a dump marks it on flash so that the next boot does not report it
// again, and the crash is recorded (event, crash history) only later in the
// run. A run that dies in between (killed, or the power goes) would leave a
// dump marked as taken whose crash is in no history. So the run first notes
// the dump it is about to mark in a small file on /data, notes there which
// of the later steps are done, and removes the note once the crash is in the
// history. A run that finds a note for a dump already marked takes the
// crash up again and does only the steps the note does not list as done.
#pragma once

#include <cstdint>
#include <string>

namespace zelkor::tessel::Minidump {

constexpr char kPendingCrashFile[] = "/data/vendor/tessel/pending_crash";

struct PendingCrash {
    // Which dump: the partition it lies in, its slot and what it says of the
    // boot and time it was taken at.
    bool inBlackbox = false;
    int64_t slot = -1;
    uint32_t bootIndex = 0;
    std::string time;
    // The crash event went out.
    bool reported = false;
    // The history's crash count just before the record was written, or -1
    // while the write has not begun.
    int64_t historyBefore = -1;

    bool sameDump(const PendingCrash& other) const {
        return inBlackbox == other.inBlackbox && slot == other.slot &&
               bootIndex == other.bootIndex && time == other.time;
    }
};

// The note on /data, if there is a readable one.
bool read_pending_crash(PendingCrash* pending);
// Replaces the note, durably (written aside, synced, renamed into place).
bool write_pending_crash(const PendingCrash& pending);
void clear_pending_crash();

// The note of this run: the crash it took or took up again, if any.
PendingCrash* run_pending_crash();
void set_run_pending_crash(const PendingCrash& pending);
void reset_run_pending_crash();

}  // namespace zelkor::tessel::Minidump
