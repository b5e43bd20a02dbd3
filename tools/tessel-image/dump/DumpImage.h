// Dump areas for "tessel-image dump": writing a dump the way the boot loader
// leaves one, and showing what a dump area holds, so that a host root can be
// given a crash to process and the result can be checked.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace zelkor::tessel::image {

struct DumpSectionArg {
    std::string name;      // at most 19 characters
    std::string dataFile;  // host path of the section's bytes
};

struct DumpAddOptions {
    std::string image;               // host path of the partition image
    bool minidumpPartition = false;  // a minidump partition, else a blackbox image
    uint32_t slot = 0;               // 0 .. 9
    uint32_t version = 0x2000;       // 0x2000 adds the time and boot index
    std::string time;                // at most 19 characters; empty: the boot run fills it
    uint32_t bootIndex = 0;
    std::vector<DumpSectionArg> sections;
};

// Parses the arguments that follow "dump add":
//   FILE [--minidump-partition] --slot N [--version V] [--time TEXT]
//   [--boot-index N] --section NAME=DATAFILE ...
// False with `error` set on a usage error.
bool ParseDumpAddArgs(const std::vector<std::string>& args, DumpAddOptions* options,
                      std::string* error);

// Writes the dump into slot `options.slot` of the image's dump area (the
// blackbox image's minidump region, or the minidump partition image from
// offset 0) and updates the last-log header: a history ("cigamgol") gets the
// dump as its newest entry, anything else becomes a new raw dump
// ("Raw_Dmp!"). False with `error` set when it cannot.
bool WriteDump(const DumpAddOptions& options, std::string* error);

// "tessel-image dump add ...": 0 on success, 1 when writing failed, 2 on a
// usage error; messages go to `out` and `err`.
int RunDumpAdd(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// The last-log header and every dump slot of a dump area with its sections.
// `fileSize` bounds every offset read; a slot or section that does not fit is
// reported with "trusted": false and not read further.
Json::Value InspectDumpArea(int fd, uint64_t fileSize, bool inBlackbox);

}  // namespace zelkor::tessel::image
