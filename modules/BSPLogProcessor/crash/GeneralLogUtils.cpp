#include "modules/BSPLogProcessor/crash/GeneralLogUtils.h"

#include <android-base/file.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashTypes.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel {

namespace {

constexpr size_t kStampMax = 70;
constexpr size_t kNodePiece = 512;
// A PMIC log node is one page; anything far beyond is not a log.
constexpr size_t kNodeMax = 1024 * 1024;

}  // namespace

std::string& GeneralLogUtils::crashReason() {
    static std::string reason;
    return reason;
}

void GeneralLogUtils::setCrashReason(const std::string& reason) {
    crashReason() = reason;
}

bool GeneralLogUtils::is_other_restart_type() {
    const std::string reason = crashReason().empty()
                                       ? platform::GetProperty(Minidump::kCrashReasonProperty, "")
                                       : crashReason();
    return reason == Minidump::crash_type_name(Minidump::CRASH_OTHER_HARDRESET);
}

int GeneralLogUtils::add_uefilog_time(const std::string& path) {
    int fd = open(platform::DevicePath(path).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        fprintf(stderr, "open file error");
        return -1;
    }
    // The clock text of the run's records, read afresh; the blanks wipe what
    // is left of the boot loader's first line.
    std::string stamp =
            "=== Dump occured at " + Minidump::local_time_text() + " ===                    \n";
    stamp.resize(std::min(stamp.size(), kStampMax - 1));
    if (pwrite(fd, stamp.data(), stamp.size(), 0) != static_cast<ssize_t>(stamp.size())) {
        fprintf(stderr, "Writing error");
    }
    close(fd);
    return 0;
}

int GeneralLogUtils::read_node(const std::string& node, const std::string& path) {
    int in = open(platform::DevicePath(node).c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
        MD_LOGE("open %s fail %d(%s)\n", node.c_str(), errno, strerror(errno));
        return 1;
    }
    int out = open(platform::DevicePath(path).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC,
                   0644);
    if (out < 0) {
        MD_LOGE("open %s fail %d(%s)\n", path.c_str(), errno, strerror(errno));
        close(in);
        return 1;
    }
    bool ok = android::base::WriteFully(out, "\n", 1);
    char piece[kNodePiece];
    for (size_t copied = 0; ok && copied < kNodeMax;) {
        ssize_t n = read(in, piece, std::min(sizeof(piece), kNodeMax - copied));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        ok = android::base::WriteFully(out, piece, static_cast<size_t>(n));
        copied += static_cast<size_t>(n);
    }
    if (!ok)
        MD_LOGE("copy %s to %s fail %d(%s)\n", node.c_str(), path.c_str(), errno, strerror(errno));
    close(out);
    close(in);
    return ok ? 0 : 1;
}

int GeneralLogUtils::log_utils_main() {
    int ret = add_uefilog_time(kUefiLog);
    if (ret == -1) printf("add uefilog time appear error");
    if (!is_other_restart_type()) return ret;

    // The second log is only this reset's when both carry the same boot.
    const int bootIndex = get_boot_index(kUefiLog);
    if (bootIndex == -1 || bootIndex != get_boot_index(kOtherUefiLog)) return ret;

    if (add_uefilog_time(kOtherUefiLog) == -1) printf("add uefilog time appear error");
    if (read_node(kPmicPonLog, kOtherUefiLog) != 0) {
        printf("read pmic register fail");
        printf("get pmic register error");
    }
    const std::string kept =
            std::string(kLogDir) + "/" + kKeptLogPrefix + std::to_string(bootIndex) + ".txt";
    if (rename(platform::DevicePath(kOtherUefiLog).c_str(), platform::DevicePath(kept).c_str()) !=
        0) {
        printf("other uefilog rename fail");
        printf("rename other uefilog error");
    }
    if (retainMaxBootIndexFiles(kLogDir) != 0) {
        printf("remove other uefilog error");
        return -1;
    }
    return 0;
}

}  // namespace zelkor::tessel
