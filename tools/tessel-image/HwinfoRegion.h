// The hardware-information region of a blackbox image: base64 records, each
// ended by a newline and a NUL byte, one after the other from hwinfo_offset.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/tessel-image/ImageFile.h"

namespace zelkor::tessel::image {

struct HwinfoRecord {
    uint64_t offset = 0;  // where the record begins in the image
    std::string text;     // the base64 text, without its end
};

// Where the region begins: hwinfo_offset of the image's control header, or
// the default the module takes when the headers are not valid.
uint64_t HwinfoRegionOffset(int fd);

// The records from `offset` on, up to the first place that holds none (a NUL
// where a record would begin) or the end of the image. At most `limit`.
std::vector<HwinfoRecord> ReadHwinfoRecords(const ImageFile& image, uint64_t offset,
                                            size_t limit = 256);

// Standard base64 to bytes; false for any character outside the alphabet or
// a length that is not a multiple of four.
bool DecodeBase64(const std::string& text, std::string* bytes);

}  // namespace zelkor::tessel::image
