#include "modules/BSPLogProcessor/minidump/TzLogDict.h"

#include <android-base/file.h>
#include <errno.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

namespace {

// One dictionary line "id:module:format". `format` keeps the line's newline
// and is null when nothing but the newline followed the second ':'.
struct DictEntry {
    char* id;
    char* module;
    char* format;
    DictEntry* next;
};

struct Dict {
    DictEntry* head = nullptr;
    DictEntry* tail = nullptr;
    bool tried = false;
};

Dict& TheDict() {
    static Dict dict;
    return dict;
}

void FreeEntry(DictEntry* e) {
    free(e->id);
    free(e->module);
    free(e->format);
    free(e);
}

// Parses one dictionary line; null when it has fewer than two ':' or memory
// ran out (the latter is logged).
DictEntry* ParseLine(const char* line) {
    const char* first = strchr(line, ':');
    if (first == nullptr) return nullptr;
    const char* second = strchr(first + 1, ':');
    if (second == nullptr) return nullptr;
    auto* e = static_cast<DictEntry*>(calloc(1, sizeof(DictEntry)));
    bool ok = e != nullptr;
    if (ok) {
        e->id = strndup(line, first - line);
        e->module = strndup(first + 1, second - first - 1);
        const char* format = second + 1;
        bool hasFormat = *format != '\0' && strcmp(format, "\n") != 0;
        e->format = hasFormat ? strdup(format) : nullptr;
        ok = e->id != nullptr && e->module != nullptr && (!hasFormat || e->format != nullptr);
    }
    if (!ok) {
        MD_LOGE("Add tzlog_dict item failure.");
        if (e != nullptr) FreeEntry(e);
        return nullptr;
    }
    return e;
}

const DictEntry* Lookup(std::string_view id) {
    for (const DictEntry* e = TheDict().head; e != nullptr; e = e->next) {
        if (id == e->id) return e;
    }
    return nullptr;
}

// Output lines are built in a buffer of this many characters.
constexpr size_t kLineMax = 5120;

// Translates one line (without its newline) and appends the result to `out`.
void TranslateLine(std::string_view line, std::string& out) {
    size_t open = line.find('[');
    size_t close = open == std::string_view::npos ? open : line.find(']', open);
    if (close == std::string_view::npos) {
        MD_LOGD("The tzlog has no time id in this line.");
        return;
    }
    std::string_view timeId = line.substr(open, close - open + 1);
    size_t paren = line.find('(', close);
    if (paren == std::string_view::npos) return;
    size_t space = line.find(' ', paren);

    std::string text(timeId);
    text += ' ';
    const DictEntry* entry;
    if (space == std::string_view::npos) {
        size_t end = line.find(')', paren);
        if (end == std::string_view::npos) {
            MD_LOGE("The tzlog has no fatmat in this line.");
            return;
        }
        entry = Lookup(line.substr(paren + 1, end - paren - 1));
        if (entry != nullptr) {
            text += entry->module;
            text += ' ';
            if (entry->format != nullptr) text += entry->format;
        }
    } else {
        entry = Lookup(line.substr(paren + 1, space - paren - 1));
        if (entry != nullptr) {
            // Each argument takes the place of the next "%x" of the format;
            // whatever follows the last one used is not written.
            text += entry->module;
            std::string_view format = entry->format != nullptr ? entry->format : "";
            std::string_view args = line.substr(space + 1);
            while (!args.empty()) {
                size_t cut = args.find(' ');
                std::string_view arg = args.substr(0, cut);
                args = cut == std::string_view::npos ? std::string_view() : args.substr(cut + 1);
                if (arg.empty()) continue;
                size_t percent = format.find('%');
                if (percent == std::string_view::npos) break;
                text += format.substr(0, percent);
                format.remove_prefix(std::min(percent + 2, format.size()));
                text += arg;
            }
        }
    }
    if (entry == nullptr) text += line;
    if (text.size() > kLineMax) text.resize(kLineMax);
    // The last character gives way to the newline: the format's own newline,
    // or the ")" that closed the trust zone's line.
    text.back() = '\n';
    out += text;
}

}  // namespace

void clear_tzlog_dict() {
    Dict& dict = TheDict();
    while (dict.head != nullptr) {
        DictEntry* next = dict.head->next;
        FreeEntry(dict.head);
        dict.head = next;
    }
    dict = Dict{};
}

int load_tzlog_dict() {
    clear_tzlog_dict();
    Dict& dict = TheDict();
    dict.tried = true;
    const std::string path = platform::DevicePath(kTzlogDictPath);
    FILE* fp = fopen(path.c_str(), "re");
    if (fp == nullptr) {
        MD_LOGE("open %s fail %d(%s)\n", kTzlogDictPath, errno, strerror(errno));
        return -1;
    }
    chmod(path.c_str(), 0640);
    char line[512];
    while (fgets(line, sizeof(line), fp) != nullptr) {
        DictEntry* e = ParseLine(line);
        if (e == nullptr) continue;
        if (dict.tail != nullptr) {
            dict.tail->next = e;
        } else {
            dict.head = e;
        }
        dict.tail = e;
    }
    fclose(fp);
    return 0;
}

void ensure_tzlog_dict() {
    if (!TheDict().tried) load_tzlog_dict();
}

void translate_tzlog(int fd, const char* text, size_t length) {
    std::string_view rest(text, length);
    std::string out;
    for (size_t nl = rest.find('\n'); nl != std::string_view::npos; nl = rest.find('\n')) {
        TranslateLine(rest.substr(0, nl), out);
        rest.remove_prefix(nl + 1);
    }
    if (!out.empty() && !android::base::WriteFully(fd, out.data(), out.size())) {
        MD_LOGE("write tzlog translation fail %d(%s)\n", errno, strerror(errno));
    }
}

void TzlogTranslator::Feed(const char* data, size_t length) {
    mPending.append(data, length);
    size_t last = mPending.rfind('\n');
    if (last != std::string::npos) {
        translate_tzlog(mFd, mPending.data(), last + 1);
        mPending.erase(0, last + 1);
    }
    if (mPending.size() > kMaxPending) {
        MD_LOGW("tzlog line longer than %zu bytes dropped\n", kMaxPending);
        mPending.clear();
    }
}

}  // namespace zelkor::tessel::Minidump
