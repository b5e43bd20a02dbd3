// Which partition holds the dump area, and where the area starts in it.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "modules/blackbox/BlackBoxRead.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

using namespace blackbox;

namespace {

enum class BlackboxChoice { kNotTried, kPresent, kAbsent };

BlackboxChoice& Choice() {
    static BlackboxChoice choice = BlackboxChoice::kNotTried;
    return choice;
}

}  // namespace

bool dump_area_in_blackbox() {
    if (Choice() == BlackboxChoice::kNotTried) {
        int fd = open(platform::DevicePath(kBlackboxPartition).c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            MD_LOGE("check blackbox partition fail %d(%s)\n", errno, strerror(errno));
            Choice() = BlackboxChoice::kAbsent;
        } else {
            close(fd);
            Choice() = BlackboxChoice::kPresent;
        }
    }
    return Choice() == BlackboxChoice::kPresent;
}

void reset_dump_partition_choice() {
    Choice() = BlackboxChoice::kNotTried;
}

const char* dump_partition_path() {
    return dump_area_in_blackbox() ? kBlackboxPartition : kMinidumpPartition;
}

int64_t dump_slot_offset(const last_log_header& header, uint32_t area_offset, bool in_blackbox,
                         uint32_t index) {
    uint64_t sum = in_blackbox
                           ? header.slot0_offset + area_offset +
                                     uint64_t(index) * header.blackbox_slot_distance
                           : header.slot0_offset + uint64_t(index) * header.minidump_slot_distance;
    return static_cast<int64_t>(static_cast<int32_t>(static_cast<uint32_t>(sum)));
}

int OpenDumpPartition(int flags) {
    int fd = open(platform::DevicePath(dump_partition_path()).c_str(), flags | O_CLOEXEC);
    if (fd < 0) MD_LOGE("open minidump partition fail %d(%s)\n", errno, strerror(errno));
    return fd;
}

uint32_t DumpAreaOffset(int fd) {
    if (!dump_area_in_blackbox()) return 0;
    log_table_header table;
    read_log_table_header(fd, &table);
    return table.minidump_offset;
}

}  // namespace zelkor::tessel::Minidump
