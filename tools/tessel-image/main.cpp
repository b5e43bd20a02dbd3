// tessel-image: builds and inspects the partition images of a host root.
#include <algorithm>
#include <cstdio>

#include "tools/tessel-image/Commands.h"

namespace image = zelkor::tessel::image;

namespace {

const std::vector<image::Command>& Commands() {
    static const std::vector<image::Command> commands = {
            {{"blackbox", "create"},
             "FILE [--zeroed] [--boot-index N]",
             "write a sparse blackbox image with the default headers (or all zero)",
             image::RunBlackboxCreate},
            {{"dump", "add"},
             "FILE [--minidump-partition] --slot N [--version 0x2000] [--time TEXT] "
             "[--boot-index N] --section NAME=DATAFILE ...",
             "write a raw dump into a blackbox image's minidump region or a minidump "
             "partition image",
             image::RunDumpAdd},
            {{"inspect"},
             "FILE [--json] [--minidump-partition | --crash-history]",
             "show every header and log area of an image (blackbox, or a minidump or "
             "crash_history partition image), as text or JSON",
             image::RunInspect},
            {{"hwinfo"},
             "FILE --key PRIVATE.pem [--json]",
             "decrypt the hardware-info records of a blackbox image with the product's "
             "private key, in the order the daemon wrote them",
             image::RunHwinfo},
    };
    return commands;
}

std::string Words(const image::Command& command) {
    std::string text;
    for (const auto& word : command.words) text += (text.empty() ? "" : " ") + word;
    return text;
}

void PrintUsage(FILE* out) {
    fprintf(out, "usage: tessel-image COMMAND [ARGS]\n");
    for (const auto& command : Commands()) {
        fprintf(out, "  %s %s\n      %s\n", Words(command).c_str(), command.synopsis,
                command.summary);
    }
}

// The command whose words begin the arguments, the longest first.
const image::Command* Find(const image::Args& args) {
    const image::Command* best = nullptr;
    for (const auto& command : Commands()) {
        if (command.words.size() > args.size()) continue;
        if (!std::equal(command.words.begin(), command.words.end(), args.begin())) continue;
        if (best == nullptr || command.words.size() > best->words.size()) best = &command;
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    const image::Args args(argv + 1, argv + argc);
    if (args.empty()) {
        PrintUsage(stderr);
        return image::kExitUsage;
    }
    if (args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
        PrintUsage(stdout);
        return image::kExitOk;
    }
    const image::Command* command = Find(args);
    if (command == nullptr) {
        fprintf(stderr, "tessel-image: unknown command '%s'\n", args[0].c_str());
        PrintUsage(stderr);
        return image::kExitUsage;
    }
    const int status = command->run(image::Args(args.begin() + command->words.size(), args.end()));
    if (status == image::kExitUsage) {
        fprintf(stderr, "usage: tessel-image %s %s\n", Words(*command).c_str(), command->synopsis);
    }
    return status;
}
