// tesselctl commands that talk to the daemon's binder services.
#pragma once

namespace zelkor::tessel::tools {

int ListServices();
// Binder dump of ITesselImpl/default with args, written to standard output.
int DumpTessel(int argc, char** argv);
// IHalvexIntl.transferMessage(action, json) on the daemon.
int TransferMessage(const char* action, const char* json);

}  // namespace zelkor::tessel::tools
