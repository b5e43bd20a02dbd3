#include "modules/BSPLogProcessor/minidump/PendingCrash.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <optional>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr char kFormatTag[] = "pending-crash-1";

std::optional<PendingCrash>& RunNote() {
    static std::optional<PendingCrash> note;
    return note;
}

// The note's folder, made when missing.
bool MakeNoteFolder(const std::string& file) {
    const std::string dir = file.substr(0, file.rfind('/'));
    const std::string parent = dir.substr(0, dir.rfind('/'));
    mkdir(parent.c_str(), 0771);
    return mkdir(dir.c_str(), 0770) == 0 || errno == EEXIST;
}

bool SyncFolder(const std::string& dir) {
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool ok = fsync(fd) == 0;
    close(fd);
    return ok;
}

}  // namespace

bool read_pending_crash(PendingCrash* pending) {
    FILE* in = fopen(platform::DevicePath(kPendingCrashFile).c_str(), "re");
    if (in == nullptr) return false;
    char tag[32] = {};
    int inBlackbox = 0;
    int reported = 0;
    int64_t slot = -1;
    int64_t before = -1;
    unsigned boot = 0;
    char time[64] = {};
    const int fields = fscanf(in, "%31s %d %" SCNd64 " %u %d %" SCNd64 " %63[^\n]", tag,
                              &inBlackbox, &slot, &boot, &reported, &before, time);
    fclose(in);
    // The time may be empty (a dump without one); everything before it is not.
    if (fields < 6 || strcmp(tag, kFormatTag) != 0) {
        MD_LOGE("ignoring unreadable %s\n", kPendingCrashFile);
        return false;
    }
    pending->inBlackbox = inBlackbox != 0;
    pending->slot = slot;
    pending->bootIndex = boot;
    pending->reported = reported != 0;
    pending->historyBefore = before;
    pending->time = fields == 7 ? time : "";
    return true;
}

bool write_pending_crash(const PendingCrash& pending) {
    const std::string path = platform::DevicePath(kPendingCrashFile);
    const std::string aside = path + ".new";
    if (!MakeNoteFolder(path)) {
        MD_LOGE("create folder of %s fail %d(%s)\n", kPendingCrashFile, errno, strerror(errno));
        return false;
    }
    const int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        MD_LOGE("open %s fail %d(%s)\n", aside.c_str(), errno, strerror(errno));
        return false;
    }
    char text[160];
    const int len =
            snprintf(text, sizeof(text), "%s %d %" PRId64 " %u %d %" PRId64 " %s\n", kFormatTag,
                     pending.inBlackbox ? 1 : 0, pending.slot, pending.bootIndex,
                     pending.reported ? 1 : 0, pending.historyBefore, pending.time.c_str());
    const bool written = len > 0 && len < static_cast<int>(sizeof(text)) &&
                         write(fd, text, static_cast<size_t>(len)) == len && fsync(fd) == 0;
    close(fd);
    if (!written || rename(aside.c_str(), path.c_str()) != 0 ||
        !SyncFolder(path.substr(0, path.rfind('/')))) {
        MD_LOGE("write %s fail %d(%s)\n", kPendingCrashFile, errno, strerror(errno));
        return false;
    }
    return true;
}

void clear_pending_crash() {
    const std::string path = platform::DevicePath(kPendingCrashFile);
    if (unlink(path.c_str()) == 0) {
        SyncFolder(path.substr(0, path.rfind('/')));
    } else if (errno != ENOENT) {
        MD_LOGE("remove %s fail %d(%s)\n", kPendingCrashFile, errno, strerror(errno));
    }
    RunNote().reset();
}

PendingCrash* run_pending_crash() {
    return RunNote() ? &*RunNote() : nullptr;
}

void set_run_pending_crash(const PendingCrash& pending) {
    RunNote() = pending;
}

void reset_run_pending_crash() {
    RunNote().reset();
}

}  // namespace zelkor::tessel::Minidump
