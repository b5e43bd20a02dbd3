// One kept log folder: where it lies, its limits and its sub-folders with
// limits of their own. Records arrive as JSON; keys are the member names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "utils/JsonHelper.h"

namespace zelkor::tessel {

struct LogConfig {
    std::string folderName;
    // When set, the folder's full path; folderName is then not used for it.
    std::string folderPath;
    std::vector<LogConfig> children;
    bool compress = false;
    bool delayCompress = false;
    bool pushEventOnly = false;
    bool watchSSRRamdumpHack = false;
    bool inVendor = false;
    uint64_t maxSize = 0;       // KiB; 0: no size limit
    uint64_t reuseMaxSize = 0;  // KiB on the reuse partition; 0: none
    uint32_t maxValidDay = 0;
    uint32_t maxLogNumber = 0;
    uint32_t compressLatestAfterSec = 0;
    // The record this one is a direct child of; not part of the JSON. Set by
    // LogManagerUtil::GenerateConfigList, pointing into the list it returns.
    LogConfig* parent = nullptr;

    HALVEX_JSON_MEMBERS(folderName, folderPath, children, compress, delayCompress, pushEventOnly,
                        watchSSRRamdumpHack, inVendor, maxSize, reuseMaxSize, maxValidDay,
                        compressLatestAfterSec, maxLogNumber)
};

}  // namespace zelkor::tessel
