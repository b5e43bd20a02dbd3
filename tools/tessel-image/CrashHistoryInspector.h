// The crash history part of an image inspection: the history header, the
// counters per crash type and the records in the order they were written.
#pragma once

#include <json/json.h>

#include <cstdint>

namespace zelkor::tessel::image {

// The crash history at `offset` of the image behind `fd` (file_size bytes):
// a blackbox image's history at control_content_offset + crash_history_offset,
// or a "crash_history" partition image's at 0. A history that was never
// written (an all-zero header) is shown with "initialised": false and is not
// an error. Nothing is trusted: the history must lie inside the file, the
// write position must agree with the crash count, and a record whose length
// does not fit its text is shown without text. Each problem is one line of
// "errors"; "valid" is true when there are none.
Json::Value InspectCrashHistory(int fd, uint64_t file_size, uint64_t offset);

}  // namespace zelkor::tessel::image
