// The subcommands of tessel-image. main.cpp dispatches on their words; each
// command lives in its own file and gets the arguments after its words.
#pragma once

#include <string>
#include <vector>

namespace zelkor::tessel::image {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // the image could not be made or read, or has errors
constexpr int kExitUsage = 2;

using Args = std::vector<std::string>;

struct Command {
    std::vector<std::string> words;  // {"blackbox", "create"}
    const char* synopsis;            // the arguments after the words
    const char* summary;
    int (*run)(const Args& args);  // kExitUsage makes main print the synopsis
};

int RunBlackboxCreate(const Args& args);
int RunInspect(const Args& args);
int RunDumpAdd(const Args& args);
int RunHwinfo(const Args& args);

}  // namespace zelkor::tessel::image
