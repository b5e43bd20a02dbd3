// tesselctl fs: the daemon's file-system service from a shell.
#pragma once

namespace zelkor::tessel::tools {

// Usage lines of the fs subcommands, for the tool's help text.
extern const char kFsUsage[];

// Runs "fs SUBCOMMAND ARGS..." (argv[0] is the subcommand). A status other
// than OK is printed by name and number and gives exit status 1; bad
// arguments give 2.
int RunFsCommand(int argc, char** argv);

}  // namespace zelkor::tessel::tools
