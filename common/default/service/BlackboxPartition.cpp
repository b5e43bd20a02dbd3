#include "common/default/service/BlackboxPartition.h"

#include <android-base/file.h>
#include <android-base/logging.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "modules/blackbox/BlackboxLayout.h"
#include "platform/Platform.h"

namespace zelkor::tessel {
namespace {

using blackbox::BlackBoxHeaders;

const char* ErrorText() {
    return strerror(errno);
}

}  // namespace

android::base::unique_fd OpenBlackbox() {
    android::base::unique_fd fd(open(platform::DevicePath(blackbox::kBlackboxPartition).c_str(),
                                     O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!fd.ok()) LOG(ERROR) << "open black_box_log partition fail, error: " << ErrorText();
    return fd;
}

bool ReadBlackboxHeaders(int fd, BlackBoxHeaders* headers) {
    return blackbox::handle_black_box_headers(fd, headers, blackbox::HeaderPassMode::kReadOnly) ==
           static_cast<int>(sizeof(blackbox::black_box_log_header));
}

int dot_from_external(const std::string& first, const std::string& time, const std::string& third,
                      const blackbox::SysinfoFn& get_sysinfo) {
    android::base::unique_fd fd = OpenBlackbox();
    if (!fd.ok()) return -1;
    BlackBoxHeaders headers;
    ReadBlackboxHeaders(fd.get(), &headers);
    blackbox::black_box_log_header& log = headers.log;
    const int number = static_cast<int>(log.dotting_count + 1);

    char record[blackbox::kDottingRecordMax + 1];
    snprintf(record, sizeof(record), "{\"%d\", \"%s\", \"%s\", \"%s\"}\n", number, first.c_str(),
             time.empty() ? blackbox::local_time_text().c_str() : time.c_str(), third.c_str());
    const blackbox::DottingPlacement placement =
            blackbox::place_dotting_record(fd.get(), &headers, record, get_sysinfo);
    if (!placement.placed) {
        LOG(ERROR) << ":write string failed! error: dotting area outside the slot";
        return -1;
    }
    if (placement.boot_phase) {
        if (placement.first.written < 0) {
            LOG(ERROR) << ":write booting string failed! error: " << strerror(placement.first.error)
                       << " write offset " << log.log_dotting_write_offset << " slot base "
                       << headers.slot_offset();
        }
    } else if (placement.first.written < 0) {
        LOG(ERROR) << (placement.split ? ":write ringFreeSize string failed! error: "
                                       : ":write string failed! error: ")
                   << strerror(placement.first.error);
        return -1;
    } else if (placement.split && placement.second.written < 0) {
        LOG(ERROR) << ":write string failed! error: " << strerror(placement.second.error);
        return -1;
    }

    memcpy(log.prev_name, log.cur_name, sizeof(log.prev_name));
    snprintf(log.cur_name, sizeof(log.cur_name), "dotting %d", number + 1);
    log.dotting_count = static_cast<uint64_t>(number);
    ssize_t written = blackbox::write_black_box_log_header(fd.get(), headers);
    if (written < 0) LOG(ERROR) << ":write string failed! error: " << ErrorText();
    return static_cast<int>(written);
}

void AddBookkeeping(const std::string& caller, const char* operation) {
    dot_from_external(caller, "", operation);
}

bool WriteToClient(int fd, const char* data, size_t size) {
    // SIGPIPE is held back for this thread only while writing; one raised by
    // a closed pipe is taken off again before it is let through.
    sigset_t pipe, old;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &old);
    const bool ok = android::base::WriteFully(fd, data, size);
    const int error = errno;
    if (!ok && error == EPIPE) {
        const struct timespec none {};
        while (sigtimedwait(&pipe, nullptr, &none) == SIGPIPE) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    errno = error;
    return ok;
}

}  // namespace zelkor::tessel
