// Crash classification: why did the previous boot end?
//
// Runs after the last-log files of the previous boot were written under
// "/data/vendor/diag". Reads only text files and kernel nodes, never the dump
// partitions, and tries its sources in a fixed order until one of them names
// a sub type other than CRASH_NONE: the boot loader's UEFI log, then (only
// when this run took a new dump) the warm-reset boot-loader log and the
// kernel and trust-zone logs of the dump, then the power-up reason, and last
// the boot loader's own log partition.
//
// Every source fills the same four outputs: the main type, the sub type, the
// reason (the sub type's name) and a one-line detail, usually the log line
// that decided. The call trace of a kernel crash is kept for the report.
#pragma once

#include <string>
#include <string_view>

#include "modules/BSPLogProcessor/crash/CrashLines.h"
#include "modules/BSPLogProcessor/crash/CrashTypes.h"

namespace zelkor::tessel::Minidump {

constexpr char kUefiLog0[] = "/dev/logfs/UefiLog0.txt";
constexpr char kLastKmsg[] = "/data/vendor/diag/last_kmsg";
constexpr char kLastTzlog[] = "/data/vendor/diag/last_tzlog";
constexpr char kLastCpusys[] = "/data/vendor/diag/last_cpusys";
constexpr char kLastWarmresetXbllog[] = "/data/vendor/diag/last_warmreset_xbllog";
constexpr char kPowerupReasonNode[] = "/sys/bootinfo/powerup_reason";
constexpr char kXblScLogsPartition[] = "/dev/block/by-name/xbl_sc_logs";

// Longest call trace kept, and how many of its frames.
constexpr size_t kStacktraceMax = 400;
constexpr int kStacktraceFrames = 8;
constexpr char kInvalidFrame[] = "===== NOT VALID LINE =====";

// The whole classification. Main and sub type start at none and the call
// trace is cleared. `reason` is read as well as written: a caller that
// already knows the boot ended in "kpanic" keeps that verdict (with the
// detail "unknown") when the kernel log cannot say more.
void crash_parse(crash_main_type_enum& main_type, crash_type_enum& sub_type, std::string& reason,
                 std::string& detail);

// The sources, in the order crash_parse() tries them. Each leaves the outputs
// alone when it finds nothing.
void parse_crash_from_uefilog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                              std::string& reason, std::string& detail);
void parse_crash_from_warmreset_xbllog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                                       std::string& reason, std::string& detail);
// The kernel log of the dump, then the trust-zone log.
void parse_crash_from_minidumplog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                                  std::string& reason, std::string& detail);
// The trust zone's reset reason after its "Boot Status :" line.
void parse_crash_from_tzlog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                            std::string& reason, std::string& detail);
void parse_crash_from_powerupreason(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                                    std::string& reason, std::string& detail);

// True when the boot loader's log partition "xbl_sc_logs" says that the
// dump of the crash could not be written: it holds the boot loader's text
// log, and a failed minidump shows there as "XBLRamDump_MiniDump failed" or
// "MD table is not initialized", the same lines the warm-reset log carries.
bool detect_xbl_sc_log_partion();

// ---- CPU error detectors (main type CRASH_MAIN_CPU) --------------------------

// The CPU error a single kernel line reports: the cache and LLCC markers
// (sub types 3 .. 12), then an undefined instruction, then a list corruption.
// CRASH_NONE when the line reports none.
crash_type_enum cpu_error_type_of_line(std::string_view line);

// A CPU error the kernel log itself reports is found in the same pass that
// classifies the kernel log: the earliest marker in the order above wins,
// wherever in the log it is. The EDAC detectors below fill the outputs and
// return true when they recognise a CPU error.

// An EDAC interrupt in "last_cpusys" and the error status after it.
bool detect_cpu_edac_in_cpusys(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                               std::string& reason, std::string& detail);
// The trust zone's EDAC record ("(700181" CPU, status, misc) in "last_tzlog".
bool detect_cpu_edac_in_tzlog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                              std::string& reason, std::string& detail);

// Splits a trust-zone EDAC record: the three words after "(700181", with
// brackets and separators dropped, each cut to 31 characters. False when the
// marker or one of the words is missing.
bool split_edac_diag_log(std::string_view line, std::string& cpu, std::string& status,
                         std::string& misc);

// ---- what is recorded --------------------------------------------------------

// The sub type's name into `reason`; the line, without its line end, into
// `detail`.
void record_crash_line(std::string_view line, crash_type_enum type, std::string& reason,
                       std::string& detail);

// Reads on from the current line of the kernel log to its first "Call trace:"
// and appends the frames that follow ("func+0x24;" each) to `trace`. Only
// lines of the same reporting context (the second bracket of the line
// prefix, "[  123.456789][  T123] ") count, at most kStacktraceFrames of
// them; a counted line without a frame adds kInvalidFrame. The trace never
// grows past kStacktraceMax characters.
void record_crash_calltrace(LogLines& kmsg, std::string& trace);

// The call trace found by the last crash_parse(); empty when there was none.
const std::string& crash_stacktrace();

}  // namespace zelkor::tessel::Minidump
