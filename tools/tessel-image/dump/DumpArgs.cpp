#include <cerrno>
#include <cstdlib>

#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::image {

namespace {

constexpr size_t kMaxText = 19;  // the 20-byte fields keep a terminator

bool ParseNumber(const std::string& text, uint32_t* out) {
    if (text.empty() || text[0] == '-') return false;
    errno = 0;
    char* end = nullptr;
    unsigned long long value = strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value > UINT32_MAX) return false;
    *out = static_cast<uint32_t>(value);
    return true;
}

}  // namespace

bool ParseDumpAddArgs(const std::vector<std::string>& args, DumpAddOptions* options,
                      std::string* error) {
    DumpAddOptions parsed;
    bool slotGiven = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&](std::string* out) {
            if (i + 1 >= args.size()) {
                *error = arg + " needs a value";
                return false;
            }
            *out = args[++i];
            return true;
        };
        std::string text;
        if (arg == "--minidump-partition") {
            parsed.minidumpPartition = true;
        } else if (arg == "--slot" || arg == "--version" || arg == "--boot-index") {
            uint32_t number = 0;
            if (!value(&text)) return false;
            if (!ParseNumber(text, &number)) {
                *error = arg + " " + text + ": " +
                         (text.rfind('-', 0) == 0 ? "must not be negative" : "not a number");
                if (arg == "--slot") *error += "; --slot must be 0 .. 9";
                return false;
            }
            if (arg == "--slot") {
                if (number > 9) {
                    *error = "--slot " + text + ": --slot must be 0 .. 9";
                    return false;
                }
                parsed.slot = number;
                slotGiven = true;
            } else if (arg == "--version") {
                parsed.version = number;
            } else {
                parsed.bootIndex = number;
            }
        } else if (arg == "--time") {
            if (!value(&parsed.time)) return false;
            if (parsed.time.size() > kMaxText) {
                *error = "--time takes at most 19 characters";
                return false;
            }
        } else if (arg == "--section") {
            if (!value(&text)) return false;
            size_t eq = text.find('=');
            if (eq == std::string::npos || eq == 0 || eq + 1 == text.size()) {
                *error = "--section takes NAME=DATAFILE: " + text;
                return false;
            }
            if (eq > kMaxText) {
                *error = "section name longer than 19 characters: " + text.substr(0, eq);
                return false;
            }
            parsed.sections.push_back({text.substr(0, eq), text.substr(eq + 1)});
        } else if (!arg.empty() && arg[0] != '-' && parsed.image.empty()) {
            parsed.image = arg;
        } else {
            *error = "unexpected argument: " + arg;
            return false;
        }
    }
    if (parsed.image.empty()) {
        *error = "no image file given";
        return false;
    }
    if (!slotGiven) {
        *error = "--slot is required";
        return false;
    }
    if (parsed.sections.empty()) {
        *error = "at least one --section NAME=DATAFILE is required";
        return false;
    }
    *options = std::move(parsed);
    return true;
}

}  // namespace zelkor::tessel::image
