// Host delivery of reported events: one JSON line per event, appended with a
// single write so that lines of concurrent senders never interleave.
#include <pellora/Pellora.h>

#include <fcntl.h>
#include <json/json.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "platform/Platform.h"
#include "utils/FileUtil.h"
#include "utils/JsonUtil.h"

namespace android {

namespace {

constexpr char kEventDir[] = "/data/vendor/pellora";
constexpr char kEventFile[] = "/data/vendor/pellora/events.jsonl";

// Length of the UTF-8 sequence that starts `text`, or 0 when it is not one
// (stray continuation byte, overlong form, surrogate, beyond U+10FFFF, cut).
size_t Utf8SequenceLength(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    size_t len;
    unsigned char min2 = 0x80, max2 = 0xBF;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        len = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        len = 3;
        if (lead == 0xE0) min2 = 0xA0;
        if (lead == 0xED) max2 = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        len = 4;
        if (lead == 0xF0) min2 = 0x90;
        if (lead == 0xF4) max2 = 0x8F;
    } else {
        return 0;
    }
    if (text.size() < len || byte(1) < min2 || byte(1) > max2) return 0;
    for (size_t i = 2; i < len; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
    }
    return len;
}

// Values often quote logs of a crashed boot, binary bytes included; the line
// must stay valid JSON text, so bytes that are not UTF-8 become U+FFFD.
std::string ValidUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        size_t len = Utf8SequenceLength(text);
        if (len == 0) {
            out += "\xEF\xBF\xBD";
            len = 1;
        } else {
            out.append(text.substr(0, len));
        }
        text.remove_prefix(len);
    }
    return out;
}

}  // namespace

int Pellora::sendEvent(PelloraEvent& event) {
    Json::Value record(Json::objectValue);
    record["id"] = event.getEventId();
    Json::Value values(Json::objectValue);
    for (const auto& [key, value] : event.getStrings()) values[ValidUtf8(key)] = ValidUtf8(value);
    record["values"] = values;
    std::string line;
    if (!zelkor::tessel::JsonUtil::ConvertJsonToString(record, line)) return -EINVAL;

    const std::string dir = zelkor::tessel::platform::DevicePath(kEventDir);
    // A failure here shows as the open's error below.
    zelkor::tessel::FileUtil::CreateDirectory(dir, 0775);
    int fd = open(zelkor::tessel::platform::DevicePath(kEventFile).c_str(),
                  O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return -errno;
    ssize_t n;
    do {
        n = write(fd, line.data(), line.size());
    } while (n < 0 && errno == EINTR);
    int ret = n == static_cast<ssize_t>(line.size()) ? 0 : (n < 0 ? -errno : -EIO);
    close(fd);
    return ret;
}

}  // namespace android
