// tessel-image inspect FILE [--json] [--minidump-partition | --crash-history]:
// what a partition image holds, as a JSON tree or its text rendering. Each
// region's inspector adds one subtree. FILE is a blackbox image, or a
// minidump or "crash_history" partition image of a device without a blackbox.
#include <fcntl.h>
#include <json/json.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackboxLayout.h"
#include "tools/tessel-image/BlackboxInspector.h"
#include "tools/tessel-image/Commands.h"
#include "tools/tessel-image/CrashHistoryInspector.h"
#include "tools/tessel-image/ImageFile.h"
#include "tools/tessel-image/JsonText.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::image {
namespace {

// True when no subtree says it is invalid.
bool AllValid(const Json::Value& root) {
    for (const auto& name : root.getMemberNames()) {
        const Json::Value& subtree = root[name];
        if (subtree.isObject() && subtree.isMember("valid") && !subtree["valid"].asBool()) {
            return false;
        }
    }
    return true;
}

// Where the daemon keeps the crash history of the blackbox inspected: behind
// the control content header (whose offset the inspection always gives), at
// the default distance when that header is not valid (the daemon stamps the
// defaults into it before writing).
uint64_t CrashHistoryOffset(const Json::Value& blackbox) {
    const Json::Value& control = blackbox["control_content_header"];
    const uint64_t base = control["offset"].asUInt64();
    const uint64_t distance = control["valid"].asBool()
                                      ? control["crash_history_offset"].asUInt64()
                                      : uint64_t(blackbox::kDefaultCrashHistoryOffset);
    return base + distance;
}

}  // namespace

int RunInspect(const Args& args) {
    const char* file = nullptr;
    bool json = false;
    bool minidumpPartition = false;
    bool crashHistory = false;
    for (const auto& arg : args) {
        if (arg == "--json") {
            json = true;
        } else if (arg == "--minidump-partition") {
            minidumpPartition = true;
        } else if (arg == "--crash-history") {
            crashHistory = true;
        } else if (arg.rfind("--", 0) == 0 || file != nullptr) {
            fprintf(stderr, "tessel-image inspect: unexpected argument '%s'\n", arg.c_str());
            return kExitUsage;
        } else {
            file = arg.c_str();
        }
    }
    if (file == nullptr) {
        fprintf(stderr, "tessel-image inspect: no FILE given\n");
        return kExitUsage;
    }
    if (minidumpPartition && crashHistory) {
        fprintf(stderr,
                "tessel-image inspect: --minidump-partition and --crash-history name "
                "different images\n");
        return kExitUsage;
    }

    std::string error;
    const int fd = OpenImageFile(file, O_RDONLY, &error);
    if (fd < 0) {
        fprintf(stderr, "tessel-image inspect: %s\n", error.c_str());
        return kExitFailure;
    }
    const int64_t size = blackbox::partition_size(fd);
    if (size < 0) {
        fprintf(stderr, "tessel-image inspect: %s: size unknown: %s\n", file, strerror(errno));
        close(fd);
        return kExitFailure;
    }
    Json::Value root(Json::objectValue);
    root["file"] = file;
    root["size"] = Json::UInt64(size);
    if (minidumpPartition) {
        root["minidump"] = InspectDumpArea(fd, static_cast<uint64_t>(size), false);
    } else if (crashHistory) {
        root["crash_history"] = InspectCrashHistory(fd, static_cast<uint64_t>(size), 0);
    } else {
        root["blackbox"] = InspectBlackbox(fd, static_cast<uint64_t>(size));
        root["minidump"] = InspectDumpArea(fd, static_cast<uint64_t>(size), true);
        root["crash_history"] = InspectCrashHistory(fd, static_cast<uint64_t>(size),
                                                    CrashHistoryOffset(root["blackbox"]));
    }
    close(fd);

    if (json) {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "  ";
        std::cout << Json::writeString(builder, root) << std::endl;
    } else {
        std::cout << RenderJsonText(root);
    }
    return AllValid(root) ? kExitOk : kExitFailure;
}

}  // namespace zelkor::tessel::image
