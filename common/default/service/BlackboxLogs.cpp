// The blackbox service's reads: log slots of the partition, the kernel's
// runtime log and the hardware-information node.
#include <android-base/logging.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "common/default/service/BlackboxImpl.h"
#include "common/default/service/BlackboxPartition.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

using blackbox::BlackBoxHeaders;

// A log read hands back at most this much.
constexpr int64_t kStreamLogMax = 512000;
// Slots 0 to 5.
constexpr int32_t kSlotCount = 6;
// The hardware-information node is a page or two of text; anything larger
// than this could not travel back in one reply.
constexpr int64_t kHardwareInfoMax = 1 << 20;
constexpr char kHardwareInfoNode[] = "/sys/kernel/hardware_info_to_dump/hardw_info";
constexpr char kKmsg[] = "/dev/kmsg";

uint32_t WordAt(const blackbox::black_box_log_header& header, size_t offset) {
    uint32_t word;
    memcpy(&word, reinterpret_cast<const char*>(&header) + offset, sizeof(word));
    return word;
}

// Where the stretch of `type` lies in slot `slot`: the offset pairs are those
// of the current slot's header, whichever slot is asked for.
void SelectStretch(const BlackBoxHeaders& headers, int32_t type, int32_t slot, int64_t* start,
                   int64_t* length) {
    const int64_t logSize = headers.content.log_size;
    *start = int64_t{headers.content.log_offset} + logSize * slot;
    *length = logSize;
    size_t pair = 0;
    if (type >= 1 && type <= 5) pair = 20 + 4 * static_cast<size_t>(type - 1);
    if (type == 7) pair = 40;
    if (type == 8) pair = 44;
    if (pair != 0) {
        const uint32_t first = WordAt(headers.log, pair);
        *start += first;
        *length = int64_t{WordAt(headers.log, pair + 4)} - first;
    } else if (type == 6) {
        *start += headers.log.dotting_offset;
        *length = logSize - headers.log.dotting_offset;
    }
    *length = std::clamp<int64_t>(*length, 0, kStreamLogMax);
}

// The selected bytes of a slot, or the status that refuses them.
binder_status_t ReadStretch(int32_t type, int32_t slot, std::vector<char>* bytes) {
    if (slot < 0 || slot >= kSlotCount) {
        LOG(ERROR) << "slot " << slot << " is out of range (0.." << kSlotCount - 1 << ")";
        return STATUS_INVALID_OPERATION;
    }
    android::base::unique_fd fd = OpenBlackbox();
    if (!fd.ok()) return STATUS_UNKNOWN_ERROR;
    BlackBoxHeaders headers;
    ReadBlackboxHeaders(fd.get(), &headers);
    int64_t start, length;
    SelectStretch(headers, type, slot, &start, &length);
    bytes->resize(static_cast<size_t>(length));
    LOG(INFO) << "log_offset: " << start;
    ssize_t got = blackbox::read_at(fd.get(), start, bytes->data(), bytes->size());
    if (got < 0) {
        LOG(ERROR) << ":read string failed! error: " << strerror(errno);
        return STATUS_UNKNOWN_ERROR;
    }
    // What lies past the partition's end is not there to give.
    bytes->resize(static_cast<size_t>(got));
    return STATUS_OK;
}

}  // namespace

ndk::ScopedAStatus BlackboxImpl::getStreamLog(const std::string& caller, int32_t type, int32_t slot,
                                              std::string* result) {
    result->clear();
    std::vector<char> bytes;
    binder_status_t status = ReadStretch(type, slot, &bytes);
    if (status != STATUS_OK) return ndk::ScopedAStatus::fromStatus(status);
    result->assign(bytes.data(), strnlen(bytes.data(), bytes.size()));
    AddBookkeeping(caller, "getStreamLog");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::getStreamLogByPfd(const std::string& caller, int32_t type,
                                                   int32_t slot,
                                                   const ndk::ScopedFileDescriptor& fd) {
    if (fd.get() < 0) {
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT,
                                                                "Invalid file descriptor");
    }
    std::vector<char> bytes;
    binder_status_t status = ReadStretch(type, slot, &bytes);
    if (status != STATUS_OK) return ndk::ScopedAStatus::fromStatus(status);
    if (!WriteToClient(fd.get(), bytes.data(), bytes.size())) {
        LOG(ERROR) << ":write string failed! error: " << strerror(errno);
    }
    AddBookkeeping(caller, "getStreamLogByPfd");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::getRuntimeLog(const std::string&, int32_t,
                                               const ndk::ScopedFileDescriptor& out) {
    if (out.get() < 0) {
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT,
                                                                "Invalid file descriptor");
    }
    android::base::unique_fd kmsg(
            open(platform::DevicePath(kKmsg).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!kmsg.ok()) {
        LOG(ERROR) << "open /dev/kmsg fail, error: " << strerror(errno);
        return ndk::ScopedAStatus::fromStatus(-1);
    }
    // From the oldest retained message on, until nothing more is ready: the
    // kernel answers EAGAIN, a plain file (on a host) its end.
    lseek(kmsg.get(), 0, SEEK_SET);
    std::vector<char> chunk(8192);
    for (;;) {
        ssize_t n = read(kmsg.get(), chunk.data(), chunk.size());
        if (n < 0 && errno == EINTR) continue;
        // EPIPE from /dev/kmsg: records were overwritten while reading; go on.
        if (n < 0 && errno == EPIPE) continue;
        if (n <= 0 || !WriteToClient(out.get(), chunk.data(), static_cast<size_t>(n))) break;
    }
    fcntl(kmsg.get(), F_SETFL, fcntl(kmsg.get(), F_GETFL) & ~O_NONBLOCK);
    // The kernel's own log is no read of the partition: it leaves no
    // bookkeeping record.
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::getHardwareInfo(const std::string& caller, std::string* result) {
    result->clear();
    android::base::unique_fd node(
            open(platform::DevicePath(kHardwareInfoNode).c_str(), O_RDONLY | O_CLOEXEC));
    if (!node.ok()) {
        LOG(ERROR) << "open hardware info node fail, error: " << strerror(errno);
        return ndk::ScopedAStatus::fromStatus(-1);
    }
    struct stat st;
    if (fstat(node.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        LOG(ERROR) << "get fileSize fail, error: " << strerror(errno);
        return ndk::ScopedAStatus::fromStatus(-1);
    }
    if (st.st_size > kHardwareInfoMax) return ndk::ScopedAStatus::fromStatus(STATUS_NO_MEMORY);
    result->resize(static_cast<size_t>(st.st_size));
    ssize_t got = blackbox::read_at(node.get(), 0, result->data(), result->size());
    result->resize(got > 0 ? static_cast<size_t>(got) : 0);
    AddBookkeeping(caller, "getHardwareInfo");
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
