// tesselctl blackbox: the daemon's blackbox service from a shell.
#pragma once

namespace zelkor::tessel::tools {

extern const char kBlackboxUsage[];

// Runs "blackbox SUBCOMMAND ARGS..." (argv[0] is the subcommand). A status
// other than OK is printed by name and number and gives exit status 1; bad
// arguments give 2.
int RunBlackboxCommand(int argc, char** argv);

}  // namespace zelkor::tessel::tools
