#include "platform/host/LogKillSwitch.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace zelkor::tessel::platform {
namespace {

long gKillAtLine = 0;
const char* gKillAtText = nullptr;
std::atomic<long> gLines{0};
std::atomic<bool> gKilling{false};

// Once the chosen line is reached, no line of any thread is written: the
// signal takes a moment to land, and other threads log meanwhile.
void KillSwitchLogger(const __android_logger_data* data, const char* message) {
    const long number = gLines.fetch_add(1, std::memory_order_relaxed) + 1;
    if (gKilling.load() || (gKillAtLine > 0 && number >= gKillAtLine) ||
        (gKillAtText != nullptr && message != nullptr && strstr(message, gKillAtText) != nullptr)) {
        gKilling.store(true);
        kill(getpid(), SIGKILL);
    }
    __android_log_stderr_logger(data, message);
}

}  // namespace

void InstallHostLogger() {
    const char* line = getenv("TESSEL_KILL_AT_LOG_LINE");
    char* end = nullptr;
    const long at = line != nullptr ? strtol(line, &end, 10) : 0;
    const char* text = getenv("TESSEL_KILL_AT_LOG_TEXT");
    if (text != nullptr && *text != '\0') gKillAtText = text;
    if (line != nullptr && *line != '\0' && *end == '\0' && at > 0) gKillAtLine = at;
    if (gKillAtLine > 0 || gKillAtText != nullptr) {
        __android_log_set_logger(KillSwitchLogger);
    } else {
        __android_log_set_logger(__android_log_stderr_logger);
    }
}

}  // namespace zelkor::tessel::platform
