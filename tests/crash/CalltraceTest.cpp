// Call trace capture from "last_kmsg".
#include "CrashTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

// A real arm64 oops (Linux 5.15.109 on QEMU virt, a module writing through a
// NULL pointer), as posted in a public course repository, given the two
// bracket prefix the dump's kernel log carries; its abort info and most
// registers left out.
constexpr char kRealOops[] =
        "[  163.745001][  T163] Unable to handle kernel NULL pointer dereference at virtual "
        "address 0000000000000000\n"
        "[  163.745009][  T163] Mem abort info:\n"
        "[  163.745012][  T163]   ESR = 0x0000000096000045\n"
        "[  163.745044][  T163] Internal error: Oops: 96000045 [#1] SMP\n"
        "[  163.745047][  T163] Modules linked in: hello(O) faulty(O) scull(O)\n"
        "[  163.745063][  T163] pc : faulty_write+0x10/0x20 [faulty]\n"
        "[  163.745067][  T163] lr : vfs_write+0xa8/0x2b0\n"
        "[  163.745070][  T163] sp : ffffffc008cabd80\n"
        "[  163.745080][  T163] Call trace:\n"
        "[  163.745083][  T163]  faulty_write+0x10/0x20 [faulty]\n"
        "[  163.745087][  T163]  ksys_write+0x68/0x100\n"
        "[  163.745090][  T163]  __arm64_sys_write+0x1c/0x30\n"
        "[  163.745093][  T163]  invoke_syscall+0x54/0x130\n"
        "[  163.745096][  T163]  el0_svc_common.constprop.0+0x44/0xf0\n"
        "[  163.745099][  T163]  do_el0_svc+0x40/0xa0\n"
        "[  163.745102][  T163]  el0_svc+0x20/0x60\n"
        "[  163.745105][  T163]  el0t_64_sync_handler+0xb0/0xc0\n"
        "[  163.745108][  T163]  el0t_64_sync+0x1a0/0x1a4\n"
        "[  163.745112][  T163] Code: d2800001 d2800000 d503233f d50323bf (b900003f)\n"
        "[  163.745116][  T163] ---[ end trace 464f28afd5ab27ca ]---\n";

// Each frame as the line has it after the prefix, indent included.
constexpr char kRealTrace[] =
        "  faulty_write+0x10;  ksys_write+0x68;  __arm64_sys_write+0x1c;  invoke_syscall+0x54;"
        "  el0_svc_common.constprop.0+0x44;  do_el0_svc+0x40;  el0_svc+0x20;"
        "  el0t_64_sync_handler+0xb0;";

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
    Write(kLastKmsg, std::string("[  100.000000][    T1] init: starting service\n") + kRealOops);
    EXPECT_VERDICT(Parse(), CRASH_KPANIC,
                   "[  163.745001][  T163] Unable to handle kernel NULL pointer dereference at "
                   "virtual address 0000000000000000");
    EXPECT_EQ(crash_stacktrace(), kRealTrace);

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
