// tesselctl commands that talk to the daemon's binder services.
#pragma once

#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>

#include <memory>

namespace zelkor::tessel::tools {

// The daemon's ITesselImpl if it is up; null, after saying so on standard
// error under `command`, otherwise. A command-line tool never waits for a
// service that may never come.
std::shared_ptr<::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl> ConnectTessel(
        const char* command);

int ListServices();
// Binder dump of ITesselImpl/default with args, written to standard output.
int DumpTessel(int argc, char** argv);
// IHalvexIntl.transferMessage(action, json) on the daemon.
int TransferMessage(const char* action, const char* json);

}  // namespace zelkor::tessel::tools
