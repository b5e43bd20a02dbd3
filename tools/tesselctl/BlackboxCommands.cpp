#include "tools/tesselctl/BlackboxCommands.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/tesselctl/ServiceCommands.h"

namespace zelkor::tessel::tools {

const char kBlackboxUsage[] =
        "  blackbox dot CALLER TIME CONTENT\n"
        "                             add an event record (TIME \"\" stamps the current time)\n"
        "  blackbox log [--type N] [--slot N] [--out FILE]\n"
        "                             a log slot's stretch (type 0 whole slot .. 8); FILE\n"
        "                             takes the bytes through a descriptor\n"
        "  blackbox runtime-log [--out FILE]\n"
        "                             the kernel's retained log\n"
        "  blackbox hwinfo            the hardware-information node\n"
        "  blackbox config [KEY [VALUE] | --json TEXT]\n"
        "                             read all switches, one, set one, or set all from JSON\n";

namespace {

using ::aidl::vendor::zelkor::hardware::blackbox::IBlackboxImpl;

constexpr char kCaller[] = "tesselctl";

bool ParseInt(const char* text, int32_t* out) {
    char* end = nullptr;
    errno = 0;
    long value = strtol(text, &end, 0);
    if (errno != 0 || end == text || *end != '\0' || value < INT32_MIN || value > INT32_MAX) {
        return false;
    }
    *out = static_cast<int32_t>(value);
    return true;
}

// The descriptor output goes to: FILE when given, standard output otherwise.
android::base::unique_fd OutputFd(const std::string& file) {
    return android::base::unique_fd(
            file.empty() ? dup(STDOUT_FILENO)
                         : open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
}

int Dot(IBlackboxImpl& box, int argc, char** argv) {
    if (argc != 4) return -1;
    int32_t result = 0;
    ndk::ScopedAStatus status = box.dotFromExternal(argv[1], argv[2], argv[3], &result);
    if (status.isOk()) {
        printf("%d\n", result);
        return 0;
    }
    ReportStatus("blackbox dot", status);
    if (status.getStatus() == STATUS_UNKNOWN_ERROR) {
        fprintf(stderr,
                "blackbox dot: the service answers this after a written record too (its result "
                "is then 140, the slot header write); see the record with tessel-image inspect\n");
    }
    return 1;
}

int Log(IBlackboxImpl& box, int argc, char** argv) {
    int32_t type = 0, slot = 0;
    std::string out;
    for (int i = 1; i < argc; ++i) {
        if (i + 1 >= argc) return -1;
        const std::string flag = argv[i++];
        if ((flag == "--type" && ParseInt(argv[i], &type)) ||
            (flag == "--slot" && ParseInt(argv[i], &slot))) {
            continue;
        }
        if (flag != "--out") return -1;
        out = argv[i];
    }
    if (out.empty()) {
        std::string text;
        int rc = ReportStatus("blackbox log", box.getStreamLog(kCaller, type, slot, &text));
        if (rc == 0) fwrite(text.data(), 1, text.size(), stdout);
        return rc;
    }
    android::base::unique_fd fd = OutputFd(out);
    if (!fd.ok()) {
        fprintf(stderr, "blackbox log: %s: %s\n", out.c_str(), strerror(errno));
        return 1;
    }
    return ReportStatus(
            "blackbox log",
            box.getStreamLogByPfd(kCaller, type, slot, ndk::ScopedFileDescriptor(fd.release())));
}

int RuntimeLog(IBlackboxImpl& box, int argc, char** argv) {
    std::string out;
    if (argc == 3 && strcmp(argv[1], "--out") == 0) {
        out = argv[2];
    } else if (argc != 1) {
        return -1;
    }
    fflush(stdout);
    android::base::unique_fd fd = OutputFd(out);
    if (!fd.ok()) {
        fprintf(stderr, "blackbox runtime-log: %s: %s\n", out.c_str(), strerror(errno));
        return 1;
    }
    return ReportStatus("blackbox runtime-log",
                        box.getRuntimeLog(kCaller, 0, ndk::ScopedFileDescriptor(fd.release())));
}

int Config(IBlackboxImpl& box, int argc, char** argv) {
    int32_t result = 0;
    ndk::ScopedAStatus status;
    if (argc == 1) {
        std::string json;
        status = box.getAllBlackboxConfig(kCaller, &json);
        if (status.isOk()) printf("%s", json.c_str());
        return ReportStatus("blackbox config", status);
    }
    if (argc == 3 && strcmp(argv[1], "--json") == 0) {
        status = box.setAllBlackboxConfig(kCaller, argv[2], &result);
    } else if (argc == 2) {
        status = box.getBlackboxConfig(kCaller, argv[1], &result);
    } else if (argc == 3) {
        int32_t value = 0;
        if (!ParseInt(argv[2], &value)) return -1;
        status = box.setBlackboxConfig(kCaller, argv[1], value, &result);
    } else {
        return -1;
    }
    if (status.isOk()) printf("%d\n", result);
    return ReportStatus("blackbox config", status);
}

}  // namespace

int RunBlackboxCommand(int argc, char** argv) {
    const std::string command = argc > 0 ? argv[0] : "";
    int (*run)(IBlackboxImpl&, int, char**) = nullptr;
    if (command == "dot") run = Dot;
    if (command == "log") run = Log;
    if (command == "runtime-log") run = RuntimeLog;
    if (command == "config") run = Config;
    if (command == "hwinfo") {
        run = [](IBlackboxImpl& box, int count, char**) {
            if (count != 1) return -1;
            std::string info;
            int rc = ReportStatus("blackbox hwinfo", box.getHardwareInfo(kCaller, &info));
            if (rc == 0) fwrite(info.data(), 1, info.size(), stdout);
            return rc;
        };
    }
    if (run == nullptr) {
        fprintf(stderr, "blackbox: unknown subcommand '%s'\n%s", command.c_str(), kBlackboxUsage);
        return 2;
    }
    std::shared_ptr<IBlackboxImpl> box = ConnectBlackbox(("blackbox " + command).c_str());
    if (box == nullptr) return 1;
    int rc = run(*box, argc, argv);
    if (rc < 0) {
        fprintf(stderr, "blackbox %s: wrong arguments\n%s", command.c_str(), kBlackboxUsage);
        return 2;
    }
    return rc;
}

}  // namespace zelkor::tessel::tools
