// tesselctl: the command-line client of a Tessel daemon's root.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Platform.h"
#include "platform/Properties.h"
#include "tools/tesselctl/BlackboxCommands.h"
#include "tools/tesselctl/FsCommands.h"
#include "tools/tesselctl/LogConfigCheck.h"
#include "tools/tesselctl/ServiceCommands.h"

namespace platform = zelkor::tessel::platform;
namespace tools = zelkor::tessel::tools;

namespace {

int Usage(const char* self) {
    fprintf(stderr,
            "usage: %s --root DIR COMMAND [ARGS]\n"
            "  getprop KEY [DEFAULT]      print a property (DEFAULT or empty when unset)\n"
            "  setprop KEY VALUE          set a property\n"
            "  waitprop KEY [VALUE] [--timeout MS]\n"
            "                             wait until KEY exists (or equals VALUE)\n"
            "  list                       the binder services registered on the root\n"
            "  dump [ARGS...]             binder dump of the daemon (e.g. dump ModuleManager "
            "dump)\n"
            "  transfer ACTION JSON       send an intent to the daemon's internal channel\n"
            "  logconfig FILE.json        check a log-folder configuration array (no root "
            "needed)\n"
            "%s%s",
            self, tools::kFsUsage, tools::kBlackboxUsage);
    return 2;
}

// Parses a non-negative millisecond count; false on anything else.
bool ParseMs(const char* text, std::chrono::milliseconds* out) {
    char* end = nullptr;
    errno = 0;
    long long value = strtoll(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 0) return false;
    *out = std::chrono::milliseconds(value);
    return true;
}

int WaitProp(const char* self, int argc, char** argv) {
    std::string key, value;
    bool hasValue = false;
    auto timeout = std::chrono::milliseconds::max();
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--timeout") == 0) {
            if (i + 1 >= argc || !ParseMs(argv[++i], &timeout)) return Usage(self);
        } else if (key.empty()) {
            key = argv[i];
        } else if (!hasValue) {
            value = argv[i];
            hasValue = true;
        } else {
            return Usage(self);
        }
    }
    if (key.empty()) return Usage(self);
    bool ok = hasValue ? platform::WaitForProperty(key, value, timeout)
                       : platform::WaitForPropertyCreation(key, timeout);
    if (!ok) {
        fprintf(stderr, "waitprop: timed out waiting for %s\n", key.c_str());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // A configuration is checked without a daemon, so without a root.
    if (argc == 3 && strcmp(argv[1], "logconfig") == 0) return tools::CheckLogConfig(argv[2]);
    if (!platform::InitPlatform(&argc, argv)) return 2;
    if (argc < 2) return Usage(argv[0]);
    const std::string command = argv[1];

    if (command == "getprop" && (argc == 3 || argc == 4)) {
        printf("%s\n", platform::GetProperty(argv[2], argc == 4 ? argv[3] : "").c_str());
        return 0;
    }
    if (command == "setprop" && argc == 4) {
        if (!platform::SetProperty(argv[2], argv[3])) {
            fprintf(stderr, "setprop: failed to set property '%s' to '%s'\n", argv[2], argv[3]);
            return 1;
        }
        return 0;
    }
    if (command == "waitprop") return WaitProp(argv[0], argc - 2, argv + 2);
    if (command == "list" && argc == 2) return tools::ListServices();
    if (command == "dump") return tools::DumpTessel(argc - 2, argv + 2);
    if (command == "transfer" && argc == 4) return tools::TransferMessage(argv[2], argv[3]);
    if (command == "logconfig" && argc == 3) return tools::CheckLogConfig(argv[2]);
    if (command == "fs") return tools::RunFsCommand(argc - 2, argv + 2);
    if (command == "blackbox") return tools::RunBlackboxCommand(argc - 2, argv + 2);
    static const char* const kCommands[] = {"getprop", "setprop",  "waitprop", "list",
                                            "dump",    "transfer", "logconfig"};
    bool known = false;
    for (const char* name : kCommands) known = known || command == name;
    if (known) {
        fprintf(stderr, "%s %s: wrong number of arguments\n", argv[0], command.c_str());
    } else {
        fprintf(stderr, "%s: unknown command '%s'\n", argv[0], command.c_str());
    }
    return Usage(argv[0]);
}
