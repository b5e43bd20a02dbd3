// Call trace capture from "last_kmsg".
#include <cstdio>
#include <fstream>

#include "CrashTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

// The real arm64 oops the end-to-end tests boot with (a module writing
// through a NULL pointer on QEMU virt), its /dev/kmsg records given the two
// bracket prefix of the dump's kernel log. Converted here rather than with
// parse_kmsg_record, which drops the blanks that begin a message: the dump's
// log keeps them, and the frames' indent is part of the call trace.
std::string RealOops() {
    std::ifstream in(std::string(TESSEL_SOURCE_DIR) + "/tests/data/arm64-null-write-oops.kmsg");
    std::string text;
    for (std::string record; std::getline(in, record);) {
        const unsigned long long usec =
                std::stoull(record.substr(record.find(',', record.find(',') + 1) + 1));
        char prefix[40];
        snprintf(prefix, sizeof(prefix), "[%5llu.%06llu][  T159] ", usec / 1000000, usec % 1000000);
        text += prefix + record.substr(record.find(';') + 1) + "\n";
    }
    return text;
}

class CalltraceTest : public CrashTest {
  protected:
    std::string Capture(const std::string& kmsgText) const {
        Write(kLastKmsg, kmsgText);
        LogLines kmsg(kLastKmsg);
        std::string trace;
        record_crash_calltrace(kmsg, trace);
        return trace;
    }
};

TEST_F(CalltraceTest, RealArm64OopsGivesItsFirstEightFrames) {
    Write(kLastKmsg, RealOops());
    EXPECT_VERDICT(Parse(), CRASH_KPANIC,
                   "[  163.745001][  T159] Unable to handle kernel NULL pointer dereference at "
                   "virtual address 0000000000000000");
    // Each frame as the line has it after the prefix, indent included.
    EXPECT_EQ(crash_stacktrace(),
              "  faulty_write+0x14;  ksys_write+0x68;  __arm64_sys_write+0x20;  "
              "invoke_syscall+0x54;  el0_svc_common.constprop.0+0x44;  do_el0_svc+0x40;  "
              "el0_svc+0x20;  el0t_64_sync_handler+0xe8;");

    // The next classification starts from an empty trace.
    Write(kLastKmsg, "[    1.0][    T1] Kernel panic - not syncing: no trace\n");
    Parse();
    EXPECT_EQ(crash_stacktrace(), "");
}

TEST_F(CalltraceTest, OtherContextsAreSkippedAndFramelessLinesMarked) {
    EXPECT_EQ(Capture("[ 5.000000][  T412] Call trace:\n"
                      "[ 5.000001][    C3] rcu: INFO: rcu_preempt self-detected stall\n"
                      "[ 5.000002][  T412]  dump_backtrace+0x0/0x1c0\n"
                      "[ 5.000003][  T412]  show_stack\n"
                      "[ 5.000004][  T412\n"
                      "[ 5.000005][  T412]  panic+0x16c/0x35c\n"),
              std::string("  dump_backtrace+0x0;") + kInvalidFrame + ";" + kInvalidFrame +
                      ";  panic+0x16c;");
    // A '/' inside the prefix is no frame either.
    EXPECT_EQ(Capture("[ 5.0][ T1] Call trace:\n[ 5/0][ T1]  a+0x1/0x2\n"),
              std::string(kInvalidFrame) + ";");
}

TEST_F(CalltraceTest, TraceStartsAfterTheCrashLineAndStaysBounded) {
    // The warning's trace comes before the crash and is not the crash's.
    Write(kLastKmsg,
          "[ 1.0][  T10] WARNING: CPU: 0 PID: 10 at kernel/foo.c:1\n"
          "[ 1.1][  T10] Call trace:\n[ 1.2][  T10]  warn_here+0x4/0x8\n"
          "[ 2.0][  T20] Unable to handle kernel paging request at virtual address dead\n"
          "[ 2.1][  T20] Call trace:\n[ 2.2][  T20]  crash_here+0x8/0x10\n");
    Parse();
    EXPECT_EQ(crash_stacktrace(), "  crash_here+0x8;");

    std::string longFrames = "[ 1.0][ T1] Call trace:\n";
    for (int i = 0; i < 8; ++i) {
        longFrames += "[ 1.1][ T1]  " + std::string(90, static_cast<char>('a' + i)) + "+0x1/0x2\n";
    }
    std::string trace = Capture(longFrames);
    EXPECT_LE(trace.size(), kStacktraceMax);
    EXPECT_EQ(trace.size(), 4u * 97u);  // four whole frames fit, never a part

    EXPECT_EQ(Capture("[ 1.0][ T1] no trace here\n"), "");
}

}  // namespace
}  // namespace zelkor::tessel::testing
