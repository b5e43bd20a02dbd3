// The blackbox part of an image inspection. The dump-area and crash-history
// inspectors sit beside it, each turning one region into a JSON subtree.
#pragma once

#include <json/json.h>

#include <cstdint>

namespace zelkor::tessel::image {

// Every header of the blackbox image behind `fd` (file_size bytes), the
// current slot's dotting records in ring order and its kernel boot log lines.
// Nothing in the image is trusted: a header with a wrong magic is shown with
// "valid": false and the defaults stand in for the offsets it would give; a
// region outside the file is not read. Each problem is one line of "errors";
// "valid" is true when there are none.
Json::Value InspectBlackbox(int fd, uint64_t file_size);

}  // namespace zelkor::tessel::image
