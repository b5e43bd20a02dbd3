#include "tools/tessel-image/HwinfoRegion.h"

#include <cstring>

#include "modules/blackbox/BlackBoxHwinfo.h"

namespace zelkor::tessel::image {
namespace {

// A record is a few hundred bytes: 344 of base64 for a 2048-bit key, 684 for
// 4096 bits. Anything longer is not a record.
constexpr size_t kLongestRecord = 4096;

}  // namespace

uint64_t HwinfoRegionOffset(int fd) {
    return blackbox::read_hwinfo_location(fd).hwinfo_offset;
}

std::vector<HwinfoRecord> ReadHwinfoRecords(const ImageFile& image, uint64_t offset, size_t limit) {
    std::vector<HwinfoRecord> records;
    while (records.size() < limit && image.Contains(offset, 1)) {
        const uint64_t left = image.size() - offset;
        const std::string span = image.ReadSpan(
                offset, static_cast<size_t>(std::min<uint64_t>(left, kLongestRecord + 2)));
        if (span.empty() || span[0] == '\0') break;
        const size_t end = span.find(std::string("\n\0", 2));
        // A record that does not end where it should still counts, as far as
        // it goes; the reader reports it.
        const std::string text = span.substr(0, end == std::string::npos ? span.find('\0') : end);
        records.push_back({offset, text});
        if (end == std::string::npos) break;
        offset += end + 2;
    }
    return records;
}

bool DecodeBase64(const std::string& text, std::string* bytes) {
    static const char kAlphabet[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    bytes->clear();
    if (text.size() % 4 != 0) return false;
    for (size_t i = 0; i < text.size(); i += 4) {
        uint32_t group = 0;
        int padding = 0;
        for (size_t j = 0; j < 4; ++j) {
            const char c = text[i + j];
            const char* at = c == '\0' ? nullptr : strchr(kAlphabet, c);
            // '=' only at the end of the last group, at most two of them.
            if (c == '=' && i + 4 == text.size() && j >= 2 && (j == 3 || text[i + 3] == '=')) {
                ++padding;
                group <<= 6;
                continue;
            }
            if (at == nullptr || padding > 0) return false;
            group = (group << 6) | static_cast<uint32_t>(at - kAlphabet);
        }
        bytes->push_back(static_cast<char>(group >> 16));
        if (padding < 2) bytes->push_back(static_cast<char>(group >> 8));
        if (padding < 1) bytes->push_back(static_cast<char>(group));
    }
    return true;
}

}  // namespace zelkor::tessel::image
