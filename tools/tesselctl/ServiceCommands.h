// tesselctl commands that talk to the daemon's binder services.
#pragma once

#include <aidl/vendor/zelkor/hardware/blackbox/IBlackboxImpl.h>
#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>

#include <memory>
#include <string>

namespace zelkor::tessel::tools {

// The daemon's ITesselImpl if it is up; null, after saying so on standard
// error under `command`, otherwise. A command-line tool never waits for a
// service that may never come.
std::shared_ptr<::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl> ConnectTessel(
        const char* command);
std::shared_ptr<::aidl::vendor::zelkor::hardware::blackbox::IBlackboxImpl> ConnectBlackbox(
        const char* command);

// 0 for an OK status; otherwise "COMMAND: NAME (NUMBER)" (or the binder's
// description of an exception) on standard error and 1.
int ReportStatus(const std::string& command, const ndk::ScopedAStatus& status);

int ListServices();
// Binder dump of ITesselImpl/default with args, written to standard output.
int DumpTessel(int argc, char** argv);
// IHalvexIntl.transferMessage(action, json) on the daemon.
int TransferMessage(const char* action, const char* json);

}  // namespace zelkor::tessel::tools
