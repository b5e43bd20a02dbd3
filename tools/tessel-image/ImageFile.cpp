#include "tools/tessel-image/ImageFile.h"

#include <cinttypes>
#include <cstdio>

#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::image {

bool ImageFile::Read(uint64_t offset, void* out, size_t length) const {
    if (!Contains(offset, length)) return false;
    return blackbox::read_at(mFd, static_cast<int64_t>(offset), out, length) ==
           static_cast<ssize_t>(length);
}

std::string ImageFile::ReadSpan(uint64_t offset, size_t length) const {
    std::string bytes(length, '\0');
    if (!Read(offset, bytes.data(), length)) bytes.clear();
    return bytes;
}

std::string Hex(uint64_t value) {
    char text[24];
    snprintf(text, sizeof(text), "0x%" PRIX64, value);
    return text;
}

std::string Printable(std::string_view bytes) {
    std::string text;
    for (unsigned char c : bytes) {
        if ((c >= 0x20 && c < 0x7f) || c == '\t') {
            text += static_cast<char>(c);
        } else {
            char escaped[5];
            snprintf(escaped, sizeof(escaped), "\\x%02x", c);
            text += escaped;
        }
    }
    return text;
}

}  // namespace zelkor::tessel::image
