// The kept UEFI logs of "other" resets, named by the boot they belong to.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashLines.h"
#include "modules/BSPLogProcessor/crash/GeneralLogUtils.h"
#include "platform/Platform.h"

namespace zelkor::tessel {

namespace {

// The first run of decimal digits in `text`; -1 when there is none or it
// does not fit an int.
int FirstNumber(std::string_view text) {
    size_t at = text.find_first_of("0123456789");
    if (at == std::string_view::npos) return -1;
    long long value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value * 10 + (text[at] - '0');
        if (value > INT_MAX) return -1;
    }
    return static_cast<int>(value);
}

}  // namespace

int GeneralLogUtils::get_boot_index(const std::string& path) {
    Minidump::LogLines lines(path.c_str());
    if (!lines.ok()) {
        printf("open source file fail");
        return -1;
    }
    std::string_view line;
    return Minidump::skip_past_line(lines, "boot_index", &line) ? FirstNumber(line) : -1;
}

int GeneralLogUtils::compareBootIndex(const std::string& a, const std::string& b) {
    const long long diff = static_cast<long long>(FirstNumber(b)) - FirstNumber(a);
    return static_cast<int>(std::clamp<long long>(diff, INT_MIN, INT_MAX));
}

int GeneralLogUtils::retainMaxBootIndexFiles(const std::string& dir) {
    const std::string hostDir = platform::DevicePath(dir);
    DIR* d = opendir(hostDir.c_str());
    if (d == nullptr) {
        MD_LOGE("open %s fail %d(%s)\n", dir.c_str(), errno, strerror(errno));
        return -1;
    }
    const std::string_view prefix(kKeptLogPrefix);
    std::vector<std::string> kept;
    while (struct dirent* entry = readdir(d)) {
        if (std::string_view(entry->d_name).substr(0, prefix.size()) == prefix) {
            kept.emplace_back(entry->d_name);
        }
    }
    closedir(d);
    if (kept.size() <= static_cast<size_t>(kKeptLogs)) return 0;

    // Equal numbers are ordered by name so that the same files go every time.
    std::sort(kept.begin(), kept.end(), [](const std::string& a, const std::string& b) {
        int order = compareBootIndex(a, b);
        return order != 0 ? order < 0 : a < b;
    });
    for (size_t i = kKeptLogs; i < kept.size(); ++i) {
        const std::string path = hostDir + "/" + kept[i];
        if (unlink(path.c_str()) != 0) {
            MD_LOGE("remove %s/%s fail %d(%s)\n", dir.c_str(), kept[i].c_str(), errno,
                    strerror(errno));
        }
    }
    return 0;
}

}  // namespace zelkor::tessel
