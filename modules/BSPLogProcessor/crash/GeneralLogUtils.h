// The last step of the boot run: the boot loader's UEFI logs in "/dev/logfs".
//
// Every UEFI log of this boot is stamped with the time of the run. When the
// previous boot ended in an unexplained hardware reset ("other_hardreset"),
// the boot loader writes a second log of that reset, "UefiLog_other0.txt";
// it is kept, with the PMIC's power-on log appended, as
// "Other_Ufilog_<boot index>.txt", and only the five newest such copies stay.
#pragma once

#include <string>

#include "modules/BSPLogProcessor/crash/CrashParse.h"

namespace zelkor::tessel {

class GeneralLogUtils {
  public:
    static constexpr char kLogDir[] = "/dev/logfs";
    static constexpr const char* kUefiLog = Minidump::kUefiLog0;
    static constexpr char kOtherUefiLog[] = "/dev/logfs/UefiLog_other0.txt";
    static constexpr char kKeptLogPrefix[] = "Other_Ufilog_";
    static constexpr char kPmicPonLog[] = "/sys/kernel/pmic_pon_log/pon_log_full";
    static constexpr int kKeptLogs = 5;

    // The whole step; 0, or -1 when old copies could not be pruned.
    static int log_utils_main();

    // Writes "=== Dump occured at <local time> ===" and blanks, 69 bytes at
    // most, over the start of the file; the file keeps its length when it is
    // longer. -1 when the file cannot be opened.
    static int add_uefilog_time(const std::string& path);

    // True when the remembered crash reason, or the property
    // "vendor.minidump.crash_reason" when none is remembered, is exactly
    // "other_hardreset".
    static bool is_other_restart_type();

    // The first number on the first line that mentions "boot_index" (counted
    // from the start of the line); -1 when there is none or the file cannot
    // be opened.
    static int get_boot_index(const std::string& path);

    // Appends a newline and the node's content to `path`. 0 on success, 1
    // when either file cannot be opened.
    static int read_node(const std::string& node, const std::string& path);

    // Removes the kept copies in `dir` beyond the five with the highest boot
    // indexes. 0, or -1 when the directory cannot be opened.
    static int retainMaxBootIndexFiles(const std::string& dir);

    // Sort order of kept copies by the first number in their names, highest
    // first: number(b) - number(a), a name without digits counting -1.
    static int compareBootIndex(const std::string& a, const std::string& b);

    // Remembers the reason of the last crash; an empty reason falls back to
    // the property again.
    static void setCrashReason(const std::string& reason);

  private:
    static std::string& crashReason();
};

}  // namespace zelkor::tessel
