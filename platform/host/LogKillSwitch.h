// A crash-consistency aid of the host build: with TESSEL_KILL_AT_LOG_LINE=N
// in its environment, a process kills itself with SIGKILL where it would
// write its Nth log line, as if the power had gone or the kernel had killed
// it at that point; with TESSEL_KILL_AT_LOG_TEXT=TEXT, where it would write
// the first line holding TEXT. Only lines written through the Android log
// count: android-base's LOG writes its "file.cpp:line]" lines to standard
// error directly. Tests use it to stop a run at chosen steps.
#pragma once

#include <android/log.h>

namespace zelkor::tessel::platform {

// The stderr logger, behind the kill switch when the variable is set.
void InstallHostLogger();

}  // namespace zelkor::tessel::platform
