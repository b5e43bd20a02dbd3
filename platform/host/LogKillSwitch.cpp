#include "platform/host/LogKillSwitch.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace zelkor::tessel::platform {
namespace {

long gKillAtLine = 0;
std::atomic<long> gLines{0};

void KillSwitchLogger(const __android_logger_data* data, const char* message) {
    if (gLines.fetch_add(1, std::memory_order_relaxed) + 1 == gKillAtLine) {
        kill(getpid(), SIGKILL);
    }
    __android_log_stderr_logger(data, message);
}

}  // namespace

void InstallHostLogger() {
    const char* line = getenv("TESSEL_KILL_AT_LOG_LINE");
    char* end = nullptr;
    const long at = line != nullptr ? strtol(line, &end, 10) : 0;
    if (line != nullptr && *line != '\0' && *end == '\0' && at > 0) {
        gKillAtLine = at;
        __android_log_set_logger(KillSwitchLogger);
    } else {
        __android_log_set_logger(__android_log_stderr_logger);
    }
}

}  // namespace zelkor::tessel::platform
