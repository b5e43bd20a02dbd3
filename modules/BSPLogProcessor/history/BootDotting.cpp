#include "modules/BSPLogProcessor/history/BootDotting.h"

#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr char kDottingSource[] = "black_box";

// The dotting record "{"<index>", "black_box", "<time>", "<reasons>"}\n".
std::string boot_dotting_record(uint64_t index, const std::string& reasons) {
    return android::base::StringPrintf("{\"%lu\", \"%s\", \"%s\", \"%s\"}\n",
                                       static_cast<unsigned long>(index), kDottingSource,
                                       run_time_text().c_str(), reasons.c_str());
}

}  // namespace

std::string read_boot_reason(const char* node) {
    int fd = open(platform::DevicePath(node).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        MD_LOGE("open %s fail %d(%s)\n", node, errno, strerror(errno));
        return "";
    }
    char text[kBootReasonReadMax];
    ssize_t n;
    do {
        n = read(fd, text, sizeof(text));
    } while (n < 0 && errno == EINTR);
    close(fd);
    if (n <= 0) return "";
    // The node's text ends with a line end, which the terminator replaces.
    text[n - 1] = '\0';
    return text;
}

std::string boot_reason_text() {
    const std::string up = read_boot_reason(kPowerupReasonNode);
    const std::string off = read_boot_reason(kPoweroffReasonNode);
    std::string text = android::base::StringPrintf("powerup_reason:%s, power_off_reason:%s",
                                                   up.c_str(), off.c_str());
    if (text.size() > kBootReasonTextMax) text.resize(kBootReasonTextMax);
    return text;
}

bool black_box_dotting(blackbox::BlackBoxHeaders* headers, const blackbox::SysinfoFn& get_sysinfo) {
    int fd = blackbox::open_black_box_partition();
    if (fd < 0) return false;
    blackbox::handle_black_box_headers(fd, headers, blackbox::HeaderPassMode::kRepair);
    const std::string reasons = boot_reason_text();
    MD_PRINT("doting boot reason:%s\n", reasons.c_str());
    const uint64_t index = blackbox::next_dotting_index(headers->log.dotting_count);
    blackbox::write_black_box_dotting(fd, headers, boot_dotting_record(index, reasons), index,
                                      get_sysinfo);
    close(fd);
    return true;
}

}  // namespace zelkor::tessel::Minidump
