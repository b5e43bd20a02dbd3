// The clean report of one log folder, sent as JSON under its renamed keys.
#pragma once

#include <cstdint>
#include <string>

#include "utils/JsonHelper.h"

namespace zelkor::tessel {

struct LogManagerEvent {
    std::string EVENT_NAME = "logManage";
    std::string dirFullPath;
    int64_t dirSizeBefore = -1;  // bytes; -1 when never measured
    int64_t dirSizeAfter = -1;
    bool isReuseOpen = false;
    int64_t reuseClearSize = -1;  // -1 when no move was tried
    int64_t reuseMoveSize = -1;

    HALVEX_JSON_MEMBERS_RENAMED(
            "\"EVENT_NAME\", \"folderPath\", \"totalSizeBefore\", "
            "\"totalSize\", \"reuseOpen\", \"reuseClearSize\", "
            "\"reuseMoveSize\"",
            EVENT_NAME, dirFullPath, dirSizeBefore, dirSizeAfter, isReuseOpen, reuseClearSize,
            reuseMoveSize)
};

}  // namespace zelkor::tessel
